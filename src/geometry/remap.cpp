// Remap: the checks in their order, the admissible box, the small-image
// rule, and the row loop over the maps, shared among the library's threads.
#include "geometry/remap.h"

#include <algorithm>
#include <cfenv>

#include "convert/rounding.h"
#include "frame/ac4.h"
#include "frame/image.h"
#include "frame/parallel.h"
#include "geometry/interp.h"
#include "kernels/geometry/pixel_interp.h"

namespace rok::geometry {

namespace {

// Narrow sources cannot feed the wide kernels: below 6 pixels on a side
// Lanczos becomes cubic, below 4 cubic and Catmull-Rom become bilinear, and
// one pixel leaves nothing but nearest neighbour.
int small_image_method(int method, RokiSize s) {
    const int side = std::min(s.width, s.height);
    if (side == 1) return kNearest;
    if (side < 4 && (method == kCubic || method == kCatmullRom || method == kLanczos)) return kLinear;
    if (side < 6 && method == kLanczos) return kCubic;
    return method;
}

template <class T>
void run(const RemapArgs& a, const kernels::PixelRule& rule, RokiRect box) {
    using M = MapOf<T>;
    kernels::PixelSource<T> src[4];
    for (int p = 0; p < a.planes; ++p)
        src[p] = {static_cast<const T*>(a.src[p]), a.srcStep, a.ac4 ? 4 : a.nc, box.x, box.y,
                  box.x + box.width - 1, box.y + box.height - 1};
    const int n = a.dstSize.width;
    // Each destination row depends only on its own map rows and the source.
    auto rows = [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y) {
            const M* xs = row(static_cast<const M*>(a.xMap), a.xMapStep, y);
            const M* ys = row(static_cast<const M*>(a.yMap), a.yMapStep, y);
            for (int p = 0; p < a.planes; ++p) {
                T* d = row(static_cast<T*>(a.dst[p]), a.dstStep, y);
                if (a.ac4)
                    ac4_row_update(d, n, [&](T* block, int x, int count) {
                        kernels::interpolate_pixels(src[p], rule, xs + x, ys + x, count, block);
                    });
                else
                    kernels::interpolate_pixels(src[p], rule, xs, ys, n, d);
            }
        }
    };
    constexpr long long kMinPixelsToShare = 1 << 14;
    const int team = ownGetNumThreads();
    const int h = a.dstSize.height;
    if (team <= 1 || h < 2 || static_cast<long long>(n) * h < kMinPixelsToShare) return rows(0, h);
    parallel_for(h, team, [&](int begin, int end, int) {
        // The kernels round to nearest on whichever thread runs them.
        convert::RoundingGuard nearest(FE_TONEAREST);
        rows(begin, end);
    });
}

}  // namespace

RokStatus remap(const RemapArgs& a, int interpolation) {
    if (!a.srcGiven || !a.dstGiven || !a.xMap || !a.yMap) return rokStatusNullPtr;
    for (int p = 0; p < a.planes; ++p)
        if (!a.src[p] || !a.dst[p]) return rokStatusNullPtr;
    if (a.srcSize.width <= 0 || a.srcSize.height <= 0 || a.srcRoi.x < 0 || a.srcRoi.y < 0 || a.srcRoi.width <= 0 ||
        a.srcRoi.height <= 0 || a.dstSize.width <= 0 || a.dstSize.height <= 0)
        return rokStatusBadSize;
    int method;
    bool smooth;
    if (!parse_pixel_interp(interpolation, {kNearest, kLinear, kCubic, kCatmullRom, kLanczos}, &method, &smooth))
        return rokStatusBadInterpolation;
    if (a.srcStep <= 0 || a.dstStep <= 0 || a.xMapStep < 1 || a.yMapStep < 1) return rokStatusBadStep;
    if (a.srcRoi.x >= a.srcSize.width || a.srcRoi.y >= a.srcSize.height) return rokStatusNoIntersection;

    const RokiRect box{a.srcRoi.x, a.srcRoi.y, std::min(a.srcSize.width - a.srcRoi.x, a.srcRoi.width),
                       std::min(a.srcSize.height - a.srcRoi.y, a.srcRoi.height)};
    const kernels::PixelRule rule{small_image_method(method, a.srcSize), smooth, true};
    // The kernels round to nearest; the caller's mode comes back on return.
    convert::RoundingGuard nearest(FE_TONEAREST);
    switch (a.type) {
        case SampleType::U8: run<Rok8u>(a, rule, box); break;
        case SampleType::U16: run<Rok16u>(a, rule, box); break;
        case SampleType::S16: run<Rok16s>(a, rule, box); break;
        case SampleType::F32: run<Rok32f>(a, rule, box); break;
        default: run<Rok64f>(a, rule, box); break;
    }
    return rokStatusOk;
}

}  // namespace rok::geometry
