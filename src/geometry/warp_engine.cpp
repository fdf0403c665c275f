// The row engine of the warps: for every span of destination pixels, the
// source positions of the inverse map in blocks, interpolated by the
// per-pixel kernels; and the exact path of the quarter-turn rotations, which
// moves pixels with the copy family's row and block kernels. Interpolated
// rows are shared among the library's threads; the exact path runs on the
// calling thread (it is a copy, bound by memory).
#include <algorithm>
#include <cfenv>
#include <cstring>
#include <type_traits>

#include "convert/rounding.h"
#include "frame/ac4.h"
#include "frame/image.h"
#include "frame/parallel.h"
#include "geometry/warp_plan.h"
#include "kernels/copy/channels.h"
#include "kernels/copy/copy_order.h"
#include "kernels/geometry/pixel_interp.h"

namespace rok::geometry {

namespace {

template <class T>
using Pos = std::conditional_t<std::is_same_v<T, Rok64f>, double, float>;

constexpr int kBlock = kAc4BlockPixels;

// The inverse map along row y, where it has a closed form.
bool row_map(const WarpPlan& p, int y, kernels::RowMap* m) {
    const auto& c = p.map.c;
    const double v = y;
    switch (p.inverse) {
        case Inverse::Affine:
            *m = {false, {c[0][0], c[0][1] * v + c[0][2]}, {c[1][0], c[1][1] * v + c[1][2]}, {0.0, 1.0}};
            return true;
        case Inverse::Bilinear:
            *m = {false, {c[0][0] * v + c[0][1], c[0][2] * v + c[0][3]}, {c[1][0] * v + c[1][1], c[1][2] * v + c[1][3]},
                  {0.0, 1.0}};
            return true;
        case Inverse::Perspective:
            *m = {true, {c[0][0], c[0][1] * v + c[0][2]}, {c[1][0], c[1][1] * v + c[1][2]}, {c[2][0], c[2][1] * v + c[2][2]}};
            return true;
        default:
            return false;
    }
}

// Source positions of the forward bilinear map, solved at every pixel: a
// pixel without a preimage goes to the box's corner.
template <class P>
void solved_positions(const WarpPlan& p, int x, int y, int n, P* xs, P* ys) {
    for (int i = 0; i < n; ++i) {
        double sx = p.bx0, sy = p.by0;
        bilinear_preimage(p.map, double(x) + i, y, p.bx0, p.by0, p.bx1, p.by1, &sx, &sy);
        xs[i] = P(sx), ys[i] = P(sy);
    }
}

// Rows r0 .. r1 - 1 top to bottom, each span left to right: one destination
// row reads source pixels that the next row mostly reads again.
template <class T>
void interpolate_rows(const WarpPlan& p, int r0, int r1) {
    using P = Pos<T>;
    const WarpImages& im = *p.images;
    const int nc = im.ac4 ? 4 : im.nc;
    kernels::PixelSource<T> src[4];
    for (int k = 0; k < im.planes; ++k)
        src[k] = {static_cast<const T*>(im.src[k]), im.srcStep, nc, p.bx0, p.by0, p.bx1, p.by1};
    const kernels::PixelRule rule{p.method, p.smooth, false};
    alignas(32) P xs[kBlock], ys[kBlock];
    for (int r = r0; r < r1; ++r) {
        const int y = p.firstRow + r, left = p.spans[2 * r], right = p.spans[2 * r + 1];
        kernels::RowMap m;
        const bool closed = row_map(p, y, &m);
        if (closed && !im.ac4) {
            // The whole span in one call: the kernels find its inner run once.
            for (int k = 0; k < im.planes && left <= right; ++k)
                kernels::interpolate_row(src[k], rule, m, left, right - left + 1,
                                         row(static_cast<T*>(im.dst[k]), im.dstStep, y) + std::ptrdiff_t(left) * nc);
            continue;
        }
        for (int x = left; x <= right; x += kBlock) {
            const int n = std::min(kBlock, right - x + 1);
            if (!closed) solved_positions(p, x, y, n, xs, ys);
            // Pixels x + i .. x + i + count - 1 into out.
            auto run = [&](const kernels::PixelSource<T>& s, int i, int count, T* out) {
                if (closed)
                    kernels::interpolate_row(s, rule, m, x + i, count, out);
                else
                    kernels::interpolate_pixels(s, rule, xs + i, ys + i, count, out);
            };
            for (int k = 0; k < im.planes; ++k) {
                T* d = row(static_cast<T*>(im.dst[k]), im.dstStep, y) + std::ptrdiff_t(x) * nc;
                if (im.ac4)
                    ac4_row_update(d, n, [&](T* block, int i, int count) { run(src[k], i, count, block); });
                else
                    run(src[k], 0, n, d);
            }
        }
    }
}

// Every row depends only on its own span and the source (the smooth edge
// blends a pixel with its own old value), so the rows are shared among the
// threads in runs of consecutive rows; small warps stay on the caller.
template <class T>
void interpolate_spans(const WarpPlan& p) {
    constexpr long long kMinPixelsToShare = 1 << 14;
    const int team = ownGetNumThreads();
    long long pixels = 0;
    for (int r = 0; r < p.rows; ++r) pixels += std::max(0, p.spans[2 * r + 1] - p.spans[2 * r] + 1);
    if (team <= 1 || p.rows < 2 || pixels < kMinPixelsToShare) return interpolate_rows<T>(p, 0, p.rows);
    parallel_for(p.rows, team, [&](int begin, int end, int) {
        // The kernels round to nearest on whichever thread runs them.
        convert::RoundingGuard nearest(FE_TONEAREST);
        interpolate_rows<T>(p, begin, end);
    });
}

// ---- the exact path: quarter turns with whole shifts ----

// Calls f.template operator()<PB>() for the pixel size in bytes.
template <class F>
void with_pixel_bytes(int pb, F&& f) {
    switch (pb) {
        case 1: return f.template operator()<1>();
        case 2: return f.template operator()<2>();
        case 3: return f.template operator()<3>();
        case 4: return f.template operator()<4>();
        case 6: return f.template operator()<6>();
        case 8: return f.template operator()<8>();
        case 12: return f.template operator()<12>();
        case 16: return f.template operator()<16>();
        case 24: return f.template operator()<24>();
        default: return f.template operator()<32>();
    }
}

using Bytes = const std::uint8_t*;

// Transposes w x h source pixels (src row j, pixel i to dst row i, pixel j)
// in tiles that stay in cache; steps may be negative. Alpha-keeping layouts
// go through a tile on the stack and copy channels 0..2.
template <int PB>
void transpose_tiles(Bytes src, int srcStep, std::uint8_t* dst, int dstStep, int w, int h, int sampleBytes, bool ac4) {
    constexpr int kTile = 64, kAc4Tile = 16;
    const int tile = ac4 ? kAc4Tile : kTile;
    alignas(64) std::uint8_t block[kAc4Tile * kAc4Tile * PB];
    for (int i = 0; i < w; i += tile)
        for (int j = 0; j < h; j += tile) {
            const int tw = std::min(tile, w - i), th = std::min(tile, h - j);
            Bytes s = src + std::ptrdiff_t(j) * srcStep + std::ptrdiff_t(i) * PB;
            std::uint8_t* d = dst + std::ptrdiff_t(i) * dstStep + std::ptrdiff_t(j) * PB;
            if (!ac4) {
                kernels::transpose_block<PB>(s, srcStep, d, dstStep, tw, th);
                continue;
            }
            kernels::transpose_block<PB>(s, srcStep, block, kAc4Tile * PB, tw, th);
            for (int r = 0; r < tw; ++r)
                kernels::copy_ac4(block + r * kAc4Tile * PB, d + std::ptrdiff_t(r) * dstStep, th,
                                  std::size_t(sampleBytes));
        }
}

template <class T>
void move_quarter(const WarpPlan& p) {
    const WarpImages& im = *p.images;
    // An exact rotation covers a rectangle: every span is the same.
    const int x0 = p.spans[0], x1 = p.spans[1], y0 = p.firstRow, y1 = p.firstRow + p.rows - 1;
    if (x0 > x1) return;
    const int w = x1 - x0 + 1, h = y1 - y0 + 1;
    const long long sx = p.shiftX, sy = p.shiftY;
    const int pb = int(sizeof(T)) * (im.ac4 ? 4 : im.nc);
    const int ss = im.srcStep, ds = im.dstStep;
    for (int k = 0; k < im.planes; ++k) {
        auto S = [&](long long x, long long y) {
            return static_cast<Bytes>(im.src[k]) + std::ptrdiff_t(y) * ss + std::ptrdiff_t(x) * pb;
        };
        auto D = [&](long long x, long long y) {
            return static_cast<std::uint8_t*>(im.dst[k]) + std::ptrdiff_t(y) * ds + std::ptrdiff_t(x) * pb;
        };
        with_pixel_bytes(pb, [&]<int PB>() {
            switch (p.quarter) {
                case 0:  // (x, y) from (x - sx, y - sy)
                    for (int y = y0; y <= y1; ++y) {
                        if (im.ac4) kernels::copy_ac4(S(x0 - sx, y - sy), D(x0, y), w, sizeof(T));
                        else std::memcpy(D(x0, y), S(x0 - sx, y - sy), std::size_t(w) * PB);
                    }
                    break;
                case 2:  // (x, y) from (sx - x, sy - y)
                    for (int y = y0; y <= y1; ++y) {
                        if constexpr (PB >= 4 && (PB & (PB - 1)) == 0) {
                            if (im.ac4) {
                                kernels::reverse_pixels<PB, true>(S(sx - x1, sy - y), D(x0, y), w);
                                continue;
                            }
                        }
                        kernels::reverse_pixels<PB, false>(S(sx - x1, sy - y), D(x0, y), w);
                    }
                    break;
                case 1:  // (x, y) from (sy - y, x - sx): source columns become rows, bottom up
                    transpose_tiles<PB>(S(sy - y1, x0 - sx), ss, D(x0, y1), -ds, h, w, int(sizeof(T)), im.ac4);
                    break;
                default:  // (x, y) from (y - sy, sx - x): source rows walked bottom up
                    transpose_tiles<PB>(S(y0 - sy, sx - x0), -ss, D(x0, y0), ds, h, w, int(sizeof(T)), im.ac4);
                    break;
            }
        });
    }
}

}  // namespace

template <class T>
void run_warp(const WarpPlan& p) {
    if (p.quarter >= 0) return move_quarter<T>(p);
    interpolate_spans<T>(p);
}

template void run_warp<Rok8u>(const WarpPlan&);
template void run_warp<Rok16u>(const WarpPlan&);
template void run_warp<Rok32f>(const WarpPlan&);
template void run_warp<Rok64f>(const WarpPlan&);

}  // namespace rok::geometry
