// The general median: checks, the centring of the entry point, the dispatch
// by mask shape, and the engines for masks without a kernel of their own.
#include <algorithm>
#include <climits>
#include <cstdint>

#include "copy/engine.h"
#include "core/core.h"
#include "filter/median_loop.h"
#include "kernels/copy/channels.h"
#include "kernels/filter/median_general.h"
#include "kernels/filter/median_hist.h"
#include "kernels/filter/median_rows.h"

namespace rok::filter {

namespace {

// Rows per call of the square kernels, which walk down their rows in
// register-wide strips: enough to share each sorted source row among the
// outputs that read it, few enough that the rows a strip touches (about
// 32 KiB of each image) stay in the first-level cache and TLB for the next
// strip. Rows whose steps are close to a multiple of 4 KiB fall into few
// sets of that cache (64 sets of 64-byte lines); the walk is then shortened
// until no set holds more than four of its lines.
int square_rows(const void* src, int srcStep, const void* dst, int dstStep, int size) {
    int rows = std::clamp(32768 / std::max(srcStep, dstStep), 8, 64);
    auto set_of = [](const void* p, long long offset) { return ((reinterpret_cast<std::uintptr_t>(p) + offset) >> 6) & 63; };
    for (; rows > 2; rows /= 2) {
        int count[64] = {};
        int most = 0;
        for (int k = -(size / 2); k < rows + size / 2; ++k) most = std::max(most, ++count[set_of(src, (long long)k * srcStep)]);
        for (int k = 0; k < rows; ++k) most = std::max(most, ++count[set_of(dst, (long long)k * dstStep)]);
        if (most <= 4) break;
    }
    return rows;
}

// Below this many ROI pixels a threaded member stays on the calling thread.
constexpr long long kThreadPixels = 16384;

// The column histograms of one stripe of the 8-bit engine stay near this
// size, so that they live in the core's cache while the stripe walks down.
constexpr std::size_t kStripeBytes = 256 * 1024;
constexpr int kMinStripe = 64;

// Only these members divide their rows among threads.
bool threaded_member(Sample s, Layout l) {
    return (s == Sample::U8 && l == Layout::C4) || s == Sample::F64;
}

// Splits rows 0..height-1 into `bands` contiguous bands and runs
// band(index, firstRow, endRow) for each, one band per thread when threaded.
template <class Band>
RokStatus for_bands(int bands, int height, Band&& band) {
    return for_rows(bands > 1, bands, [&](int b) {
        const int y0 = int((long long)height * b / bands), y1 = int((long long)height * (b + 1) / bands);
        return band(b, y0, y1);
    });
}

// Per-thread bytes of the 64f work buffer (and, for one thread, of 32f).
long long buffer_per_thread(Sample s, long long area) {
    return s == Sample::F32 ? area * 4 : (area * 17 * 8 + 144) / 16 * 16;
}

RokStatus copy_roi(const MedianCall& m, std::size_t sampleBytes) {
    const int nc = channels(m.layout);
    if (m.layout == Layout::AC4) {
        for (int y = 0; y < m.roi.height; ++y)
            kernels::copy_ac4(row(static_cast<const char*>(m.src), m.srcStep, y),
                              row(static_cast<char*>(m.dst), m.dstStep, y), m.roi.width, sampleBytes);
    } else {
        copy::copy_plane(m.src, m.srcStep, m.dst, m.dstStep, std::size_t(m.roi.width) * nc * sampleBytes,
                         m.roi.height);
    }
    return rokStatusOk;
}

// 8-bit data, any mask: column histograms per stripe of output columns,
// built afresh at the top of each band and slid down its rows.
RokStatus histogram_8u(const Rok8u* topLeft, const MedianCall& m, int bands) {
    const int nc = channels(m.layout), pc = processed_channels(m.layout);
    const int mw = m.mask.width, mh = m.mask.height;
    const kernels::HistCounts kind = kernels::hist_counts_for((long long)mw * mh);
    const long long perColumn = (long long)kernels::hist_columns_bytes(1, pc, kind);
    const long long budget = (long long)kStripeBytes / perColumn - (mw - 1);
    const int stripe = int(std::min<long long>(m.roi.width, std::max<long long>(kMinStripe, budget)));
    const long long bandBytes = perColumn * ((long long)stripe + mw - 1);
    if (bandBytes * bands > INT_MAX) return rokStatusNoMemory;
    auto* scratch = static_cast<char*>(rokMalloc(int(bandBytes * bands)));
    if (!scratch) return rokStatusNoMemory;
    const std::uint32_t rank = std::uint32_t((long long)mw * mh / 2 + 1);
    auto* dst = static_cast<Rok8u*>(m.dst);
    for_bands(bands, m.roi.height, [&](int b, int y0, int y1) {
        for (int x0 = 0; x0 < m.roi.width; x0 += stripe) {
            const int width = std::min(stripe, m.roi.width - x0);
            const kernels::HistColumns h{scratch + bandBytes * b, width + mw - 1, pc, nc, kind};
            const Rok8u* left = topLeft + std::size_t(x0) * nc;
            kernels::hist_clear(h);
            for (int r = 0; r < mh; ++r) kernels::hist_add_row(h, row(left, m.srcStep, y0 + r));
            for (int y = y0; y < y1; ++y) {
                const bool moved = y > y0;
                kernels::hist_median_row(h, moved ? row(left, m.srcStep, y - 1) : nullptr,
                                         moved ? row(left, m.srcStep, y - 1 + mh) : nullptr, mw, rank,
                                         row(dst, m.dstStep, y) + std::size_t(x0) * nc, width);
            }
        }
        return rokStatusOk;
    });
    rokFree(scratch);
    return rokStatusOk;
}

kernels::MaskGeometry geometry(const MedianCall& m) {
    return {m.mask.width, m.mask.height, channels(m.layout), processed_channels(m.layout),
            std::uint32_t((long long)m.mask.width * m.mask.height / 2)};
}

// 16-bit data, any mask: one sliding histogram over the whole ROI.
template <class T>
RokStatus histogram_16(const T* topLeft, const MedianCall& m) {
    const std::size_t bytes = kernels::hist16_bytes(processed_channels(m.layout));
    void* work = rokMalloc(int(bytes));
    if (!work) return rokStatusNoMemory;
    kernels::median_hist16(topLeft, m.srcStep, geometry(m), static_cast<T*>(m.dst), m.dstStep, m.roi, work);
    rokFree(work);
    return rokStatusOk;
}

// Float data, any mask: selection in the caller's buffer, one slice of it
// per band.
template <class T>
RokStatus select(const T* topLeft, const MedianCall& m, int bands) {
    const kernels::MaskGeometry g = geometry(m);
    const long long slice = buffer_per_thread(m.sample, (long long)g.width * g.height);
    return for_bands(bands, m.roi.height, [&](int b, int y0, int y1) {
        for (int y = y0; y < y1; ++y)
            kernels::median_select_row(row(topLeft, m.srcStep, y), m.srcStep, g, row(static_cast<T*>(m.dst), m.dstStep, y),
                                       m.roi.width, m.buffer + slice * b);
        return rokStatusOk;
    });
}

template <class T>
RokStatus run(const MedianCall& m) {
    const int nc = channels(m.layout);
    const int mw = m.mask.width, mh = m.mask.height;
    const std::ptrdiff_t pixel = std::ptrdiff_t(nc) * std::ptrdiff_t(sizeof(T));
    const auto* src = static_cast<const T*>(m.src);
    auto* dst = static_cast<T*>(m.dst);
    const int team = ownGetNumThreads();
    const bool threaded =
        threaded_member(m.sample, m.layout) && team > 1 && (long long)m.roi.width * m.roi.height >= kThreadPixels;
    const int bands = threaded ? std::min(team, m.roi.height) : 1;

    if (mw == 1 && mh == 1) return copy_roi(m, sizeof(T));
    // The fixed shapes read a neighbourhood centred on the pointer they get.
    const T* centre = at_bytes(src, std::ptrdiff_t(mh / 2 - m.anchor.y) * m.srcStep + (mw / 2 - m.anchor.x) * pixel);
    auto rows = [&](int perCall, auto&& kernel) {
        return kernel_rows(centre, m.srcStep, dst, m.dstStep, m.roi, m.layout, threaded, perCall, kernel);
    };
    if (mw == mh && (mw == 3 || mw == 5))
        return rows(square_rows(centre, m.srcStep, dst, m.dstStep, mw), [&](const T* s, T* d, int r, int n) {
            kernels::median_square(s, m.srcStep, nc, mw, d, m.dstStep, r, n);
        });
    if (mh == 1 && (mw == 3 || mw == 5))
        return rows(1, [&](const T* s, T* d, int, int n) { kernels::median_line(s, pixel, mw, d, n); });
    if (mw == 1 && (mh == 3 || mh == 5))
        return rows(1, [&](const T* s, T* d, int, int n) { kernels::median_line(s, m.srcStep, mh, d, n); });

    const T* topLeft = at_bytes(src, -std::ptrdiff_t(m.anchor.y) * m.srcStep - m.anchor.x * pixel);
    if constexpr (std::is_same_v<T, Rok8u>) return histogram_8u(topLeft, m, bands);
    else if constexpr (std::is_floating_point_v<T>) return select(topLeft, m, bands);
    else return histogram_16(topLeft, m);
}

bool bad_mask(RokiSize mask) {
    return mask.width < 1 || mask.height < 1 || mask.width % 2 == 0 || mask.height % 2 == 0 ||
           (long long)mask.width * mask.height > INT_MAX;
}

}  // namespace

RokStatus median(const MedianCall& m) {
    if (!m.src || !m.dst || (m.buffered && !m.buffer)) return rokStatusNullPtr;
    if (bad_size(m.roi)) return rokStatusBadSize;
    if (any_step_below_one(m.srcStep, m.dstStep)) return rokStatusBadStep;
    if (bad_mask(m.mask)) return rokStatusBadMaskSize;
    if (m.anchor.x < 0 || m.anchor.y < 0 || m.anchor.x >= m.mask.width || m.anchor.y >= m.mask.height)
        return rokStatusBadAnchor;
    return with_sample<Rok8u, Rok16u, Rok16s, Rok32f, Rok64f>(m.sample, [&](auto t) { return run<decltype(t)>(m); });
}

RokStatus median_buffer_size(Sample sample, RokiSize roi, RokiSize mask, int channels, int* size) {
    if (!size) return rokStatusNullPtr;
    if (bad_size(roi)) return rokStatusBadSize;
    if (bad_mask(mask)) return rokStatusBadMaskSize;
    if (channels < 1 || channels == 2 || channels > 4) return rokStatusBadChannelCount;
    const long long area = (long long)mask.width * mask.height;
    const long long threads = sample == Sample::F64 ? ownGetNumThreads() : 1;
    const long long bytes = buffer_per_thread(sample, area) * threads;
    if (bytes > INT_MAX) return rokStatusBadMaskSize;
    *size = int(bytes);
    return rokStatusOk;
}

}  // namespace rok::filter
