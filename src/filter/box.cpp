#include "filter/box.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <limits>
#include <type_traits>

#include "copy/engine.h"
#include "core/core.h"
#include "frame/parallel.h"
#include "kernels/copy/channels.h"
#include "kernels/copy/copy_move.h"
#include "kernels/filter/box.h"

namespace rok::filter {

BoxMultiplier box_multiplier(long long area, bool oneChannel) {
    const float r = 1.0f / float(area);
    if (r == 1.0f) return oneChannel ? BoxMultiplier{4096, 12} : BoxMultiplier{65536, 24};
    std::uint32_t u = std::uint32_t(double(r) * 4294967295.0);
    int n = 0;
    while (n < 24 && (u & 0x80000000u) == 0) {
        u <<= 1;
        ++n;
    }
    if (oneChannel) return {(u >> 20) + 1, n + 12};
    return {u >> 8, n + 24};
}

namespace {

// Above this area the integer types take the double-precision engine.
constexpr long long kIntegerArea = 8100;
// Double column sums start afresh every kBlock rows of the ROI, and threads
// take whole blocks, so rounding never depends on the split.
constexpr int kBlock = 64;

std::size_t round64(std::size_t v) { return (v + 63) / 64 * 64; }

template <class T>
long long largest_magnitude() {
    if constexpr (std::is_floating_point_v<T>) return 0;
    else return std::max<long long>(-(long long)std::numeric_limits<T>::min(), std::numeric_limits<T>::max());
}

struct Geometry {
    int width, height, nc, mw, mh, ax, ay;
    bool ac4, inPlace, window;
};

// How the rows run: column sums first, then window sums along them; or
// rows first (8u data whose window sums along a row fit 16 bits): each
// source row's window sums are formed once, as it enters, into a ring of
// 16-bit rows, and the column sums of those run down the image, so the mean
// needs no pass along the row. Split: rows first on one channel, each block
// of 32 samples held as its even then its odd samples (kernels/filter/box.h).
enum class Order { Columns, Rows, Split };

// Runs the rows with column sums of type A.
template <class A, class T, class D, Order O = Order::Columns>
RokStatus run_lanes(const T* src, int srcStep, D* dst, int dstStep, const Geometry& g,
                    const kernels::box::Mean& mean) {
    const int nc = g.nc;
    const int n = g.width * nc;                        // output samples of a row
    const int columns = (g.width + g.mw - 1) * nc;     // column sums of a row
    const double area = double(g.mw) * double(g.mh);
    const int lanes = O == Order::Split ? kernels::box::split_length(n) : columns;  // column sums held
    const std::size_t sumBytes = round64((std::size_t(lanes) + 8) * sizeof(A));
    const std::size_t prefixBytes = round64((std::size_t(n) + std::size_t(g.mw) * nc + 32) * sizeof(A));
    constexpr bool RowsFirst = O != Order::Columns;
    // The window sums of rows still in the mask, and the next (two, where
    // 32-bit split sums step two rows at once); with 16-bit split sums, the
    // running column sums of those rows and of the row above them.
    constexpr bool Pairs = O == Order::Split && std::is_same_v<A, std::int32_t>;
    const int ring = RowsFirst ? g.mh + 1 + (Pairs ? 1 : 0) : 0;
    const std::size_t ringRow = round64((std::size_t(O == Order::Split ? lanes : n) + 8) * sizeof(std::uint16_t));
    const std::size_t rowBytes = round64(std::size_t(n) * sizeof(D));
    // Rows held back in place: row y is written once row y + ay + 1 has
    // taken it out of the column sums.
    const int held = g.inPlace ? g.ay + 2 : (g.ac4 ? 1 : 0);
    // Means that outgrow the core's cache go past it (written straight to
    // the destination only).
    const std::size_t written = std::size_t(n) * sizeof(D) * std::size_t(g.height);
    const bool outgrows =
        held == 0 && copy::outgrows_core_cache(written, written + written / sizeof(D) * sizeof(T));
    // Where they cannot, split rows with 16-bit sums and means of four
    // times the core's cache and more go through an aligned row in the
    // cache, copied out with streaming stores of its whole lines. (Measured:
    // the copy cost more than it saved at 2 MB of means over 1 MB caches and
    // paid at 8 MB, 3830x2165 11x11 in 1.0 ms rather than 1.6 with
    // ordinary stores; with 32-bit sums, two rows a pass, it did not pay.)
    // Streaming stores must fill whole cache lines that no ordinary store
    // touches: a line written partly by each, or streamed in part, costs a
    // trip to memory (measured at one thread, 8u 11x11 at 1080p: 1936-byte
    // rows, every other one on 32 bytes, took 2.3 times as long as
    // 1920-byte ones; 1910 samples in rows of 1920 bytes, 2.7 times). So
    // the means stream straight to dst only where every row starts on 64
    // bytes and ends on a whole line.
    const bool wholeLines = reinterpret_cast<std::uintptr_t>(dst) % 64 == 0 && dstStep % 64 == 0 &&
                            std::size_t(n) * sizeof(D) % 64 == 0;
    const int staging =
        O == Order::Split && !Pairs && outgrows && !wholeLines && core::l2_cache_bytes > 0 &&
                written >= 4 * std::size_t(core::l2_cache_bytes) ? 1 : 0;
    const bool stream = outgrows && (wholeLines || staging > 0);
    const std::size_t slice = sumBytes + prefixBytes + rowBytes * std::size_t(held + staging) +
                              ringRow * std::size_t(ring);

    const int team = ownGetNumThreads();
    const bool threaded = !g.inPlace && team > 1 && g.width > 63 && g.height > 63;
    const int slices = threaded ? team : 1;
    if (slice * slices > std::size_t(INT_MAX)) return rokStatusNoMemory;
    char* scratch = static_cast<char*>(rokMalloc(int(slice * slices)));
    if (scratch == nullptr) return rokStatusNoMemory;

    auto source = [&](int y) { return row(src, srcStep, y) - g.ax * nc; };
    auto band = [&](int first, int last, char* mem) {
        A* sums = reinterpret_cast<A*>(mem);
        A* prefix = reinterpret_cast<A*>(mem + sumBytes);
        char* held0 = mem + sumBytes + prefixBytes;
        auto slot = [&](int y) { return reinterpret_cast<D*>(held0 + rowBytes * std::size_t(y % std::max(held, 1))); };
        char* ring0 = held0 + rowBytes * std::size_t(held);
        // The window sums (or running sums) of source row r (counted from
        // the ROI's first row, so from -ay up): the ring holds `ring` of them.
        auto windows_of = [&](int r) {
            // (Only rows-first runs keep a ring; the guard keeps the
            // others' copy of this lambda free of a remainder by zero.)
            const int rows = std::max(ring, 1);
            const int at = ((r % rows) + rows) % rows;
            return reinterpret_cast<std::uint16_t*>(ring0 + ringRow * std::size_t(at));
        };
        auto stage = [&](int i) { return reinterpret_cast<D*>(ring0 + ringRow * std::size_t(ring) + rowBytes * i); };
        auto write_back = [&](int y) {
            D* out = row(dst, dstStep, y);
            if (g.ac4) kernels::copy_ac4(slot(y), out, g.width, sizeof(D));
            else std::memcpy(out, slot(y), std::size_t(n) * sizeof(D));
        };
        for (int y = first; y < last; ++y) {
            const bool restart = y == first || (std::is_floating_point_v<A> && y % kBlock == 0);
            D* out = held > 0 ? slot(y) : row(dst, dstStep, y);
            D* const target = out;
            if (staging > 0) out = stage(0);
            [[maybe_unused]] const bool direct = stream && out == target;  // streaming stores straight to dst
            if constexpr (RowsFirst) {
                // The entering row's window sums, then the column sums and
                // the means in one pass (the sums in the kernel's order).
                auto form = [&](int r) {
                    if constexpr (O == Order::Split)
                        kernels::box::row_windows_split(source(r), n, g.mw, windows_of(r),
                                                        reinterpret_cast<std::uint16_t*>(prefix));
                    else
                        kernels::box::row_windows(source(r), n, nc, g.mw, reinterpret_cast<std::uint16_t*>(prefix),
                                                  windows_of(r));
                };
                std::uint16_t* stale = windows_of(y - g.ay - 1);
                std::uint16_t* fresh = stale;
                bool stepped = false;  // the means written with the entering row's sums
                if constexpr (O == Order::Split && std::is_same_v<A, std::uint16_t>) {
                    // The ring holds running column sums: the row above the
                    // box starts them at zero, and the rows of the box but its
                    // last add up (their window sums formed in `sums`).
                    const int top = y - g.ay;
                    if (restart) {
                        std::fill(stale, stale + lanes, std::uint16_t(0));
                        auto* windows = reinterpret_cast<std::uint16_t*>(sums);
                        for (int j = 0; j + 1 < g.mh; ++j) {
                            kernels::box::row_windows_split(source(top + j), n, g.mw, windows,
                                                            reinterpret_cast<std::uint16_t*>(prefix));
                            kernels::box::split_running(windows, windows_of(top + j - 1), n, windows_of(top + j));
                        }
                    }
                    kernels::box::split_row(source(top + g.mh - 1), n, g.mw, windows_of(top + g.mh - 2), stale,
                                            windows_of(top + g.mh - 1), mean, out, direct);
                    stepped = true;
                } else if (restart) {
                    for (int j = 0; j < g.mh; ++j) {
                        form(y - g.ay + j);
                        if constexpr (O == Order::Split)
                            kernels::box::split_add(windows_of(y - g.ay + j), n, j == 0, mean, sums);
                        else
                            kernels::box::vertical_add(windows_of(y - g.ay + j), n, j == 0, sums);
                    }
                    // Nothing leaves the first row's sums.
                    std::fill(stale, stale + (O == Order::Split ? lanes : n), std::uint16_t(0));
                } else if (Pairs && held == 0 && y + 1 < last) {
                    // Rows y and y + 1 (nothing is held back, so the next row
                    // needs nothing after its means).
                    if constexpr (Pairs) {
                        form(y - g.ay + g.mh - 1);
                        form(y - g.ay + g.mh);
                        kernels::box::split_step2(windows_of(y - g.ay + g.mh - 1), stale, windows_of(y - g.ay + g.mh),
                                                  windows_of(y - g.ay), n, mean, sums, out, row(dst, dstStep, y + 1),
                                                  stream);
                    }
                    stepped = true;
                    ++y;
                } else {
                    form(y - g.ay + g.mh - 1);
                    fresh = windows_of(y - g.ay + g.mh - 1);
                }
                if (stepped) {
                } else if constexpr (O == Order::Split && std::is_same_v<A, std::int32_t>) {
                    kernels::box::split_step(fresh, stale, n, mean, sums, out, direct);
                } else if constexpr (std::is_same_v<D, Rok8u> && std::is_same_v<A, std::int32_t>) {
                    kernels::box::vertical_step(fresh, stale, n, mean, sums, out);
                }
            } else {
                if (restart) {
                    kernels::box::column_set(source(y - g.ay), columns, sums);
                    for (int j = 1; j < g.mh; ++j) kernels::box::column_add(source(y - g.ay + j), columns, sums);
                } else {
                    kernels::box::column_update(source(y - g.ay + g.mh - 1), source(y - g.ay - 1), columns, sums);
                }
                if constexpr (std::is_same_v<A, std::uint16_t>) {
                    kernels::box::box_mean(sums, n, nc, g.mw, mean, prefix, out, stream);
                } else if constexpr (std::is_same_v<D, Rok32f> && std::is_integral_v<T>) {
                    if (g.window) kernels::box::window_sum(sums, n, nc, g.mw, prefix, out);
                    else if constexpr (std::is_floating_point_v<A>)
                        kernels::box::box_mean(sums, n, nc, g.mw, area, prefix, out);
                } else if constexpr (std::is_same_v<A, std::int32_t>) {
                    kernels::box::box_mean(sums, n, nc, g.mw, mean, prefix, out);
                } else {
                    kernels::box::box_mean(sums, n, nc, g.mw, area, prefix, out);
                }
            }
            if (out != target && held == 0)
                kernels::copy_bytes_streaming(out, target, std::size_t(n) * sizeof(D));
            if (g.inPlace) {
                if (y - g.ay - 1 >= first) write_back(y - g.ay - 1);
            } else if (g.ac4) {
                kernels::copy_ac4(out, row(dst, dstStep, y), g.width, sizeof(D));
            }
        }
        if (g.inPlace)
            for (int y = std::max(first, last - g.ay - 1); y < last; ++y) write_back(y);
        if (stream) kernels::store_fence();
    };

    if (!threaded) {
        band(0, g.height, scratch);
    } else {
        // Threads take whole blocks of rows.
        const int blocks = (g.height + kBlock - 1) / kBlock;
        parallel_for(blocks, team, [&](int first, int last, int slot) {
            band(first * kBlock, std::min(g.height, last * kBlock), scratch + slice * slot);
        });
    }
    rokFree(scratch);
    return rokStatusOk;
}

}  // namespace

template <class T, class D>
RokStatus run_box(const T* src, int srcStep, D* dst, int dstStep, RokiSize roi, Layout layout, RokiSize mask,
                  RokiPoint anchor, bool window) {
    bool inPlace = false;
    if constexpr (std::is_same_v<T, D>) inPlace = src == dst;
    const Geometry g{roi.width, roi.height, channels(layout), mask.width, mask.height, anchor.x, anchor.y,
                     layout == Layout::AC4, inPlace, window};
    const long long area = (long long)mask.width * mask.height;
    const long long largest = largest_magnitude<T>();
    kernels::box::Mean mean{1, 1, false};
    if constexpr (std::is_integral_v<T>) {
        if (window) {
            if (area * largest < (1ll << 31)) return run_lanes<std::int32_t>(src, srcStep, dst, dstStep, g, mean);
        } else if (area <= kIntegerArea) {
            const BoxMultiplier m = box_multiplier(area, g.nc == 1);
            mean = {m.mult, m.shift, m.mult * area * largest + (1ll << (m.shift - 1)) >= (1ll << 31)};
            if constexpr (std::is_same_v<T, Rok8u> && std::is_same_v<D, Rok8u>) {
                // One channel rows first, split, on rows of 32 samples and
                // more: 16-bit column sums while every box sum fits them and
                // the mean takes the high half of a 16-bit product or one
                // rounding multiply (3x3 and 5x5 among them), else
                // 32-bit ones while the mean is not wide.
                if (g.nc == 1 && roi.width >= 32 && mask.width <= kernels::box::kSplitWidest) {
                    if (area * 255 <= 65535 &&
                        (kernels::box::split_high(mean) || kernels::box::split_round(mean, area, mask.width)))
                        return run_lanes<std::uint16_t, T, D, Order::Split>(src, srcStep, dst, dstStep, g, mean);
                    if (area * 255 > 65535 && !mean.wide)
                        return run_lanes<std::int32_t, T, D, Order::Split>(src, srcStep, dst, dstStep, g, mean);
                }
                // 16-bit lanes while every box sum fits; rows first while
                // the sums along a row fit.
                if (area * 255 <= 65535) return run_lanes<std::uint16_t>(src, srcStep, dst, dstStep, g, mean);
                if (mask.width * 255 <= 65535)
                    return run_lanes<std::int32_t, T, D, Order::Rows>(src, srcStep, dst, dstStep, g, mean);
            }
            return run_lanes<std::int32_t>(src, srcStep, dst, dstStep, g, mean);
        }
    }
    return run_lanes<double>(src, srcStep, dst, dstStep, g, mean);
}

#define ROK_RUN_BOX(T, D) \
    template RokStatus run_box(const T*, int, D*, int, RokiSize, Layout, RokiSize, RokiPoint, bool);
ROK_RUN_BOX(Rok8u, Rok8u)
ROK_RUN_BOX(Rok16s, Rok16s)
ROK_RUN_BOX(Rok16u, Rok16u)
ROK_RUN_BOX(Rok32f, Rok32f)
ROK_RUN_BOX(Rok64f, Rok64f)
ROK_RUN_BOX(Rok8u, Rok32f)
ROK_RUN_BOX(Rok16s, Rok32f)
ROK_RUN_BOX(Rok16u, Rok32f)
#undef ROK_RUN_BOX

}  // namespace rok::filter
