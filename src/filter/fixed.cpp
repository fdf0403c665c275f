#include "filter/fixed.h"

#include <omp.h>

#include <algorithm>
#include <climits>
#include <cstddef>

#include "core/core.h"
#include "kernels/copy/channels.h"
#include "kernels/filter/fixed.h"

namespace rok::filter {

namespace {

std::size_t round64(std::size_t v) { return (v + 63) / 64 * 64; }

}  // namespace

// The rows go down in vertical strips sized so that a strip's source rows
// and mids stay in the level-1 cache: each source row is loaded once from
// memory and reused by the rows below it. Rows are shared among threads for
// ROIs wider and higher than 63 pixels, in equal stripes (the last thread
// also takes the remainder); every row is computed the same way whatever
// the split.
template <class S, class D>
RokStatus run_fixed(Fixed f, int size, const S* src, int srcStep, D* dst, int dstStep, RokiSize roi, Layout layout) {
    kernels::fixed::Strip<S, D> kernel = nullptr;
    kernels::fixed::select(f, size, kernel);
    const int mids = kernels::fixed::plan_of(f, size, std::is_floating_point_v<S>).mids;
    constexpr int midBytes = kernels::fixed::mid_bytes<S>();
    const int nc = channels(layout), half = size / 2;
    const bool ac4 = layout == Layout::AC4;

    const long long perPixel = (long long)(size * sizeof(S) + mids * midBytes) * nc;
    const int strip = int(std::min<long long>(roi.width, std::max<long long>(64, 24576000 / perPixel)));
    const int midStride = int(round64(std::size_t(strip + size - 1) * nc * midBytes) / midBytes);
    const std::size_t blockBytes = ac4 ? round64(std::size_t(strip) * 4 * sizeof(D)) : 0;
    const std::size_t slice = std::size_t(midStride) * midBytes * mids + blockBytes;

    const int team = ownGetNumThreads();
    const bool threaded = team > 1 && roi.width > 63 && roi.height > 63;
    const int slices = threaded ? team : 1;
    if ((long long)slice * slices > INT_MAX) return rokStatusNoMemory;
    char* scratch = static_cast<char*>(rokMalloc(int(slice * slices)));
    if (scratch == nullptr) return rokStatusNoMemory;

    auto band = [&](int first, int last, char* mem) {
        D* block = reinterpret_cast<D*>(mem + std::size_t(midStride) * midBytes * mids);
        const S* rows[kernels::fixed::kMaxRows];
        for (int x0 = 0; x0 < roi.width; x0 += strip) {
            const int n = std::min(strip, roi.width - x0);
            for (int y = first; y < last; ++y) {
                for (int j = 0; j < size; ++j) rows[j] = row(src, srcStep, y - half + j) + (x0 - half) * nc;
                D* out = row(dst, dstStep, y) + x0 * nc;
                kernel(rows, n, nc, mem, midStride, ac4 ? block : out);
                if (ac4) kernels::copy_ac4(block, out, n, sizeof(D));
            }
        }
    };
    if (!threaded) {
        band(0, roi.height, scratch);
    } else {
#pragma omp parallel num_threads(team)
        {
            const int t = omp_get_thread_num(), count = omp_get_num_threads();
            const int stripe = roi.height / count;
            band(t * stripe, t == count - 1 ? roi.height : (t + 1) * stripe, scratch + slice * t);
        }
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
