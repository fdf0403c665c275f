#include "filter/fixed.h"

#include <algorithm>
#include <climits>
#include <cstddef>

#include "copy/engine.h"
#include "core/core.h"
#include "frame/parallel.h"
#include "kernels/copy/channels.h"
#include "kernels/copy/copy_move.h"
#include "kernels/filter/fixed.h"

namespace rok::filter {

namespace {

std::size_t round64(std::size_t v) { return (v + 63) / 64 * 64; }

}  // namespace

// Whole rows, top to bottom: the source streams through in memory order
// and each row is loaded once, then reused from the cache by the rows below
// it (vertical strips narrower than the row would keep more in the level-1
// cache but break the stream at every row, which costs more; the 8-bit
// kernels instead split each row into chunks of 1024 pixels, each through
// both stages, so that a chunk's mids stay in that cache). Rows are
// shared among the pool's threads for ROIs wider and higher than 63 pixels;
// every row is computed the same way whatever the split. Kernels that make
// rows straight from the source (the float ones) take them in pairs,
// which share all but two of their source rows.
template <class S, class D>
RokStatus run_fixed(Fixed f, int size, const S* src, int srcStep, D* dst, int dstStep, RokiSize roi, Layout layout) {
    kernels::fixed::Strip<S, D> kernel = nullptr;
    kernels::fixed::Rows<S, D> rowsKernel = nullptr;
    if constexpr (std::is_same_v<S, Rok32f>) kernels::fixed::select_rows(f, size, rowsKernel);
    else kernels::fixed::select(f, size, kernel);
    const int mids = rowsKernel ? 0 : kernels::fixed::plan_of(f, size, std::is_floating_point_v<S>).mids;
    constexpr int midBytes = kernels::fixed::mid_bytes<S>();
    const int nc = channels(layout), half = size / 2;
    const bool ac4 = layout == Layout::AC4;

    const std::size_t midRow = round64((std::size_t(roi.width) + size - 1) * nc * midBytes);
    const std::size_t blockBytes = ac4 ? round64(std::size_t(roi.width) * 4 * sizeof(D)) : 0;
    const std::size_t spareBytes = rowsKernel ? round64(std::size_t(roi.width) * nc * sizeof(D)) : 0;
    // One-channel 8u Gauss 5x5 filters each source row along the row first
    // and keeps the results for the rows below (a ring per thread).
    bool gauss5 = false;
    if constexpr (std::is_same_v<S, Rok8u> && std::is_same_v<D, Rok8u>)
        gauss5 = f == Fixed::Gauss && size == 5 && layout == Layout::C1 && roi.width >= kernels::fixed::kGauss5Width;
    const std::size_t slice = gauss5 ? round64(kernels::fixed::gauss5_ring_bytes(roi.width))
                                     : midRow * mids + blockBytes + spareBytes;

    // Only results too large to stay in the largest cache go past it: a
    // result that the last-level cache holds is read back from there by
    // whatever uses it next. Streaming a 1920x1080 8u Gauss 5x5 (a 2 MB
    // result, beyond the core's own cache) saved nothing on rows starting
    // on a 64-byte line and took 1.6 times as long on the others.
    const std::size_t written = std::size_t(roi.width) * nc * sizeof(D) * std::size_t(roi.height);
    const bool stream = !ac4 && copy::exceeds_cache(written);

    const int team = ownGetNumThreads();
    const bool threaded = team > 1 && roi.width > 63 && roi.height > 63;
    const int slices = threaded ? team : 1;
    if ((long long)slice * slices > INT_MAX) return rokStatusNoMemory;
    char* scratch = static_cast<char*>(rokMalloc(int(slice * slices)));
    if (scratch == nullptr) return rokStatusNoMemory;
    const int midStride = int(midRow / midBytes);

    auto band = [&](int first, int last, char* mem) {
        D* block = reinterpret_cast<D*>(mem + midRow * mids);
        if constexpr (std::is_same_v<S, Rok8u> && std::is_same_v<D, Rok8u>) {
            if (gauss5) {
                kernels::fixed::gauss5_rows(src, srcStep, dst, dstStep, roi.width, first, last, mem, stream);
                if (stream) kernels::store_fence();
                return;
            }
        }
        const S* rows[kernels::fixed::kMaxRows + 1];
        if (rowsKernel != nullptr) {
            // Rows in pairs. A band's odd last row pairs with a spare row
            // (made from its last source row repeated, and discarded); AC4
            // pairs go through the block and the spare row.
            D* spare = reinterpret_cast<D*>(mem + midRow * mids + blockBytes);
            for (int y = first; y < last; y += 2) {
                const bool two = y + 1 < last;
                for (int j = 0; j < size; ++j) rows[j] = row(src, srcStep, y - half + j) - half * nc;
                rows[size] = two ? row(src, srcStep, y - half + size) - half * nc : rows[size - 1];
                D* out0 = row(dst, dstStep, y);
                D* out1 = two ? row(dst, dstStep, y + 1) : spare;
                rowsKernel(rows, roi.width, nc, ac4 ? block : out0, ac4 ? spare : out1, stream);
                if (ac4) {
                    kernels::copy_ac4(block, out0, roi.width, sizeof(D));
                    if (two) kernels::copy_ac4(spare, out1, roi.width, sizeof(D));
                }
            }
            if (stream) kernels::store_fence();
            return;
        }
        for (int y = first; y < last; ++y) {
            for (int j = 0; j < size; ++j) rows[j] = row(src, srcStep, y - half + j) - half * nc;
            D* out = row(dst, dstStep, y);
            kernel(rows, roi.width, nc, mem, midStride, ac4 ? block : out, stream);
            if (ac4) kernels::copy_ac4(block, out, roi.width, sizeof(D));
        }
        if (stream) kernels::store_fence();
    };
    if (!threaded) {
        band(0, roi.height, scratch);
    } else {
        parallel_for(roi.height, team, [&](int first, int last, int slot) { band(first, last, scratch + slice * slot); });
    }
    rokFree(scratch);
    return rokStatusOk;
}

template RokStatus run_fixed(Fixed, int, const Rok8u*, int, Rok8u*, int, RokiSize, Layout);
template RokStatus run_fixed(Fixed, int, const Rok8u*, int, Rok16s*, int, RokiSize, Layout);
template RokStatus run_fixed(Fixed, int, const Rok8s*, int, Rok16s*, int, RokiSize, Layout);
template RokStatus run_fixed(Fixed, int, const Rok16s*, int, Rok16s*, int, RokiSize, Layout);
template RokStatus run_fixed(Fixed, int, const Rok16u*, int, Rok16u*, int, RokiSize, Layout);
template RokStatus run_fixed(Fixed, int, const Rok32f*, int, Rok32f*, int, RokiSize, Layout);

}  // namespace rok::filter
