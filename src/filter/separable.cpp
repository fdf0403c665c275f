#include "filter/separable.h"

#include <omp.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <type_traits>

#include "core/core.h"
#include "frame/image.h"
#include "kernels/copy/channels.h"

namespace rok::filter {

namespace {

using namespace kernels::sep;

struct Range {
    std::int64_t lo, hi;
};

// A sum with its groups multiplied out (integer weights only) and equal
// inputs merged; offsets become samples.
Weights flatten(const Sum& s, int nc) {
    Weights w{};
    for (int g = 0; g < s.n; ++g)
        for (int t = 0; t < s.g[g].n; ++t) {
            const Term& term = s.g[g].t[t];
            const std::int32_t weight = std::int32_t(std::lround(s.g[g].w)) * term.sign;
            const int off = term.off * nc;
            int i = 0;
            while (i < w.n && (w.src[i] != term.src || w.off[i] != off)) ++i;
            if (i == w.n) {
                w.src[i] = term.src;
                w.off[i] = off;
                w.w[i] = 0;
                ++w.n;
            }
            w.w[i] += weight;
        }
    int kept = 0;
    for (int i = 0; i < w.n; ++i)
        if (w.w[i] != 0) {
            w.src[kept] = w.src[i];
            w.off[kept] = w.off[i];
            w.w[kept++] = w.w[i];
        }
    w.n = kept;
    return w;
}

Range range_of(const Weights& w, const Range* inputs) {
    Range r{0, 0};
    for (int i = 0; i < w.n; ++i) {
        const std::int64_t a = w.w[i] * inputs[w.src[i]].lo, b = w.w[i] * inputs[w.src[i]].hi;
        r.lo += std::min(a, b);
        r.hi += std::max(a, b);
    }
    return r;
}

// What the 16-bit lanes of an 8-bit source need to know about a plan. The
// mids are unsigned when one of them exceeds 32767 (the plans keep every mid
// within 16 bits and make such mids non-negative); rows go in pairs where
// every mid's two weights fit one byte multiply-add.
struct ByteLanes {
    bool unsignedMids = false;
    bool narrow = false;
    std::int64_t rowMax = 0;  // largest magnitude of a row-stage value
    BytePairs pairs{};
};

ByteLanes byte_lanes(const SepPlan& plan, bool signedSource, int shiftBias) {
    ByteLanes b;
    const Range sample = signedSource ? Range{-128, 127} : Range{0, 255};
    Range rows[kMaxRows] = {};
    std::fill(rows, rows + kMaxRows, sample);
    Range mids[kMaxMids] = {};
    int w[kMaxMids][kMaxRows] = {};
    for (int m = 0; m < plan.mids; ++m) {
        const Weights c = flatten(plan.column[m], 1);
        for (int i = 0; i < c.n; ++i) w[m][c.src[i]] = c.w[i];
        mids[m] = range_of(c, rows);
        b.unsignedMids = b.unsignedMids || mids[m].hi > 32767;
    }
    const Range r = range_of(flatten(plan.row, 1), mids);
    b.rowMax = std::max(-r.lo, r.hi);
    b.narrow = r.lo >= -32768 && r.hi + shiftBias <= 32767;

    BytePairs& p = b.pairs;
    bool used[kMaxRows] = {};
    for (int j = 0; j < plan.size; ++j)
        for (int m = 0; m < plan.mids; ++m) used[j] = used[j] || w[m][j] != 0;
    for (int j = 0; j < plan.size; ++j) {
        if (!used[j]) continue;
        int k = j + 1;
        while (k < plan.size && !used[k]) ++k;
        bool pair = k < plan.size;
        for (int m = 0; pair && m < plan.mids; ++m) pair = std::abs(w[m][j]) + std::abs(w[m][k]) <= 128;
        p.a[p.pairs] = j;
        p.b[p.pairs] = pair ? k : -1;
        for (int m = 0; m < plan.mids; ++m) {
            const int wb = pair ? w[m][k] : 0;
            p.weights[m][p.pairs] = std::int16_t((wb << 8) | (w[m][j] & 0xFF));
        }
        ++p.pairs;
        if (pair) j = k;
    }
    for (int m = 0; m < plan.mids; ++m) {
        int sum = 0;
        for (int j = 0; j < plan.size; ++j) sum += w[m][j];
        p.bias[m] = std::int16_t(128 * sum);
    }
    return b;
}

template <class S>
using MidOf = std::conditional_t<sizeof(S) == 1, std::int16_t, std::conditional_t<sizeof(S) == 2, std::int32_t, float>>;

std::size_t round64(std::size_t v) { return (v + 63) / 64 * 64; }

}  // namespace

template <class S, class D>
RokStatus run_separable(const SepPlan& plan, const FinishRule& finishIn, const S* src, int srcStep, D* dst,
                        int dstStep, RokiSize roi, Layout layout) {
    using I = MidOf<S>;
    const int nc = channels(layout);
    const bool ac4 = layout == Layout::AC4;
    const int size = plan.size, half = size / 2, mids = plan.mids;

    FinishRule finish = finishIn;
    ByteLanes lanes;
    Weights columnWeights[kMaxMids];
    Weights rowWeights{};
    if constexpr (std::is_integral_v<S>) {
        std::int64_t rowMax = 0;
        if constexpr (sizeof(S) == 1) {
            const int bias = finish.kind == Finish::ShiftEven ? 1 << (finish.shift - 1) : 0;
            lanes = byte_lanes(plan, std::is_signed_v<S>, bias);
            rowMax = lanes.rowMax;
        } else {
            Range sample{std::numeric_limits<S>::min(), std::numeric_limits<S>::max()};
            Range rows[kMaxRows], midRange[kMaxMids];
            std::fill(rows, rows + kMaxRows, sample);
            for (int m = 0; m < mids; ++m) {
                columnWeights[m] = flatten(plan.column[m], 1);
                midRange[m] = range_of(columnWeights[m], rows);
            }
            const Range r = range_of(flatten(plan.row, 1), midRange);
            rowMax = std::max(-r.lo, r.hi);
        }
        rowWeights = flatten(plan.row, nc);
        finish.wide = rowMax >= (std::int64_t(1) << 22);
    }

    // Strip width: the strip's source rows and mids within about 24 KiB.
    const long long perPixel = (long long)(size * sizeof(S) + mids * sizeof(I)) * nc;
    const int strip = int(std::min<long long>(roi.width, std::max<long long>(64, 24576 / perPixel)));
    const long long midSamples = (long long)(strip + size - 1) * nc;
    const std::size_t midBytes = round64(std::size_t(midSamples) * sizeof(I));
    const std::size_t blockBytes = ac4 ? round64(std::size_t(strip) * 4 * sizeof(D)) : 0;
    const std::size_t slice = midBytes * std::size_t(mids) + blockBytes;

    const int team = ownGetNumThreads();
    const bool threaded = team > 1 && roi.width > 63 && roi.height > 63;
    const int slices = threaded ? team : 1;
    if ((long long)slice * slices > INT_MAX) return rokStatusNoMemory;
    char* scratch = static_cast<char*>(rokMalloc(int(slice * slices)));
    if (scratch == nullptr) return rokStatusNoMemory;

    auto band = [&](int first, int last, char* mem) {
        I* mid[kMaxMids];
        for (int m = 0; m < mids; ++m) mid[m] = reinterpret_cast<I*>(mem + midBytes * m);
        D* block = reinterpret_cast<D*>(mem + midBytes * mids);
        const S* rows[kMaxRows];
        for (int x0 = 0; x0 < roi.width; x0 += strip) {
            const int n = std::min(strip, roi.width - x0);
            const int columnSamples = (n + size - 1) * nc;
            for (int y = first; y < last; ++y) {
                for (int j = 0; j < size; ++j) rows[j] = row(src, srcStep, y - half + j) + (x0 - half) * nc;
                D* out = ac4 ? block : row(dst, dstStep, y) + x0 * nc;
                if constexpr (sizeof(S) == 1) {
                    kernels::sep::column_bytes(reinterpret_cast<const Rok8u* const*>(rows), std::is_signed_v<S>,
                                               lanes.pairs, mids, columnSamples, mid);
                    kernels::sep::row_sums(mid, lanes.unsignedMids, lanes.narrow, rowWeights, finish, n * nc, out);
                } else if constexpr (sizeof(S) == 2) {
                    kernels::sep::column_sums(rows, columnWeights, mids, columnSamples, mid);
                    kernels::sep::row_sums(mid, rowWeights, finish, n * nc, out);
                } else {
                    kernels::sep::column_sums(rows, plan.column, mids, columnSamples, mid);
                    kernels::sep::row_sums(mid, plan.row, nc, finish, n * nc, out);
                }
                if (ac4) kernels::copy_ac4(block, row(dst, dstStep, y) + x0 * nc, n, sizeof(D));
            }
        }
    };

    if (!threaded) {
        band(0, roi.height, scratch);
    } else {
#pragma omp parallel num_threads(team)
        {
            // Equal stripes of height / T rows; the last thread also takes
            // the remainder.
            const int t = omp_get_thread_num(), count = omp_get_num_threads();
            const int stripe = roi.height / count;
            const int first = t * stripe;
            band(first, t == count - 1 ? roi.height : first + stripe, scratch + slice * t);
        }
    }
    rokFree(scratch);
    return rokStatusOk;
}

template RokStatus run_separable(const SepPlan&, const FinishRule&, const Rok8u*, int, Rok8u*, int, RokiSize, Layout);
template RokStatus run_separable(const SepPlan&, const FinishRule&, const Rok8u*, int, Rok16s*, int, RokiSize, Layout);
template RokStatus run_separable(const SepPlan&, const FinishRule&, const Rok8s*, int, Rok16s*, int, RokiSize, Layout);
template RokStatus run_separable(const SepPlan&, const FinishRule&, const Rok16s*, int, Rok16s*, int, RokiSize, Layout);
template RokStatus run_separable(const SepPlan&, const FinishRule&, const Rok16u*, int, Rok16u*, int, RokiSize, Layout);
template RokStatus run_separable(const SepPlan&, const FinishRule&, const Rok32f*, int, Rok32f*, int, RokiSize, Layout);

}  // namespace rok::filter
