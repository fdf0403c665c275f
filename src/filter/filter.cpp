#include "filter/filter.h"

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstring>

#include "arith/unary_rows.h"
#include "core/core.h"
#include "frame/ac4.h"
#include "frame/image.h"
#include "frame/parallel.h"
#include "kernels/copy/channels.h"
#include "kernels/copy/copy_move.h"
#include "kernels/filter/filter_finish.h"
#include "kernels/filter/filter_sum.h"

namespace rok::filter {

struct RowJob {
    const void* src;
    int srcStep;
    void* dst;
    int dstStep;
    int width;    // ROI pixels
    int samples;  // samples per row, alpha included
    bool ac4;
    const std::ptrdiff_t* offs;
    const void* coefs;
    int ntaps;
    bool packed;
    bool bytes;  // horizontal byte pairs (ntaps pairs, sums from `lowest`)
    int lowest;
    bool anyPairs;  // 8u taps in pairs of any two (ntaps pairs, fullPairs with a second tap)
    int fullPairs;
    bool bytesRow;  // byte pairs finished straight into an 8u row by bytesFinish
    kernels::BytesFinish bytesFinish;
    bool stream;  // float sums written straight to a destination too large to cache
    int kw, kh;
    kernels::IntRule intRule;
    kernels::FloatFinish floatMode;
};

template <class S, class D, class A>
void filter_row(const RowJob& job, int y, void* scratch) {
    const S* base = row(static_cast<const S*>(job.src), job.srcStep, y);
    D* out = row(static_cast<D*>(job.dst), job.dstStep, y);
    if constexpr (std::is_floating_point_v<D>) {
        // Float data: the sums are the results.
        A* acc = job.ac4 ? static_cast<A*>(scratch) : reinterpret_cast<A*>(out);
        if constexpr (std::is_same_v<S, Rok32f>)
            kernels::filter_sum(base, job.offs, static_cast<const A*>(job.coefs), job.ntaps,
                                job.samples, acc, job.stream && !job.ac4);
        else
            kernels::filter_sum(base, job.offs, static_cast<const A*>(job.coefs), job.ntaps, job.samples, acc);
        if (job.ac4) kernels::copy_ac4(acc, out, job.width, sizeof(D));
    } else {
        A* acc = static_cast<A*>(scratch);
        if constexpr (std::is_same_v<S, Rok8u> && std::is_same_v<D, Rok8u> && std::is_same_v<A, std::int32_t>) {
            if (job.bytesRow) {
                const auto* weights = static_cast<const std::int16_t*>(job.coefs);
                if (job.ac4) {
                    // All four channels into the scratch row, then the three
                    // that are written.
                    auto* all = static_cast<Rok8u*>(scratch);
                    kernels::byte_pair_any_row(base, job.offs, weights, job.ntaps, job.fullPairs, job.samples, all,
                                               job.bytesFinish);
                    kernels::copy_ac4(all, out, job.width, 1);
                } else if (job.anyPairs)
                    kernels::byte_pair_any_row(base, job.offs, weights, job.ntaps, job.fullPairs, job.samples, out,
                                               job.bytesFinish);
                else
                    kernels::byte_pair_row(base, job.offs, weights, job.ntaps, job.samples, out, job.bytesFinish);
                return;
            }
        }
        if constexpr (std::is_same_v<S, Rok8u> && std::is_same_v<A, std::int32_t>) {
            if (job.bytes) {
                kernels::filter_sum_bytes(base, job.offs, static_cast<const std::int16_t*>(job.coefs), job.ntaps,
                                          job.lowest, job.samples, acc);
            } else if (job.packed) {
                kernels::filter_sum_pairs(base, job.offs, static_cast<const std::int32_t*>(job.coefs), job.ntaps,
                                          job.samples, acc);
            } else {
                kernels::filter_sum(base, job.offs, static_cast<const A*>(job.coefs), job.ntaps, job.samples, acc);
            }
        } else {
            kernels::filter_sum(base, job.offs, static_cast<const A*>(job.coefs), job.ntaps, job.samples, acc);
        }
        auto finish = [&](const A* sums, int n, D* to) {
            if constexpr (std::is_same_v<A, std::int32_t>)
                kernels::filter_finish(sums, n, job.intRule, to);
            else
                kernels::filter_finish(sums, n, job.floatMode, to);
        };
        if (job.ac4)
            ac4_row(out, job.width, [&](D* block, int x0, int n) { finish(acc + 4 * std::size_t(x0), 4 * n, block); });
        else
            finish(acc, job.samples, out);
    }
}

// Rows y and y + 1 of float data written straight to the destination.
void filter_rows2(const RowJob& job, int y) {
    const Rok32f* base = row(static_cast<const Rok32f*>(job.src), job.srcStep, y);
    auto* out = static_cast<Rok32f*>(job.dst);
    kernels::filter_sum_rows2(base, job.srcStep, job.offs, static_cast<const float*>(job.coefs), job.kw, job.kh,
                              job.samples, row(out, job.dstStep, y), row(out, job.dstStep, y + 1), job.stream);
}

template void filter_row<Rok8u, Rok8u, std::int32_t>(const RowJob&, int, void*);
template void filter_row<Rok16s, Rok16s, std::int32_t>(const RowJob&, int, void*);
template void filter_row<Rok16u, Rok16u, std::int32_t>(const RowJob&, int, void*);
template void filter_row<Rok8u, Rok8u, float>(const RowJob&, int, void*);
template void filter_row<Rok8s, Rok8s, float>(const RowJob&, int, void*);
template void filter_row<Rok16s, Rok16s, float>(const RowJob&, int, void*);
template void filter_row<Rok16u, Rok16u, float>(const RowJob&, int, void*);
template void filter_row<Rok32s, Rok32s, float>(const RowJob&, int, void*);
template void filter_row<Rok8u, Rok16s, float>(const RowJob&, int, void*);
template void filter_row<Rok8s, Rok16s, float>(const RowJob&, int, void*);
template void filter_row<Rok32f, Rok32f, float>(const RowJob&, int, void*);
template void filter_row<Rok64f, Rok64f, double>(const RowJob&, int, void*);

namespace {

// The fast path multiplies two taps at once in 16-bit lanes.
constexpr std::int32_t kPairMin = -32767, kPairMax = 32766;

std::int32_t int_coef(const FilterCall& s, long long i) {
    return s.coef == Coef::I16 ? static_cast<const Rok16s*>(s.kernel)[i] : static_cast<const Rok32s*>(s.kernel)[i];
}

// The finishing rule is chosen once per call from the divisor (and mode).
kernels::IntRule int_rule(int divisor, int mode) {
    using kernels::IntFinish;
    kernels::IntRule r;
    r.divisor = divisor;
    if (divisor == 1) {
        r.kind = IntFinish::Saturate;
    } else if (divisor > 1 && (divisor & (divisor - 1)) == 0) {
        r.shift = __builtin_ctz(unsigned(divisor));
        r.kind = mode == 0 ? IntFinish::TruncShift : mode == 2 ? IntFinish::HalfAwayShift : IntFinish::ShiftEven;
    } else if (mode < 0) {
        r.kind = IntFinish::Reciprocal;
        r.reciprocal = 1.0f / float(divisor);
    } else {
        r.kind = mode == 0 ? IntFinish::TruncDivide : mode == 1 ? IntFinish::DoubleEven : IntFinish::HalfAwayDivide;
    }
    return r;
}

std::size_t align_up(std::size_t v, std::size_t a) { return (v + a - 1) / a * a; }

template <class P>
P* align_ptr(void* p, std::size_t a) {
    return reinterpret_cast<P*>(align_up(reinterpret_cast<std::uintptr_t>(p), a));
}

// Fills the tap offsets and coefficients: tap t = j * kw + i reads the
// neighbourhood pixel (i, j) counted from its top-left corner and takes the
// kernel's coefficient stored at kw*kh - 1 - t (the kernel is applied flipped).
// Returns whether the coefficients were packed in pairs.
bool prepare_taps(const FilterCall& s, std::ptrdiff_t* offs, void* coefs) {
    const int kw = s.kernelSize.width, kh = s.kernelSize.height;
    const long long ntaps = (long long)kw * kh;
    const std::ptrdiff_t pixelBytes = std::ptrdiff_t(channels(s.layout)) * s.srcBytes;
    const long long left = kw - 1 - (long long)s.anchor.x, up = kh - 1 - (long long)s.anchor.y;
    for (int j = 0; j < kh; ++j)
        for (int i = 0; i < kw; ++i)
            offs[(long long)j * kw + i] = std::ptrdiff_t(j - up) * s.srcStep + std::ptrdiff_t(i - left) * pixelBytes;
    switch (s.coef) {
        case Coef::F32: {
            const auto* k = static_cast<const Rok32f*>(s.kernel);
            for (long long t = 0; t < ntaps; ++t) static_cast<float*>(coefs)[t] = k[ntaps - 1 - t];
            return false;
        }
        case Coef::F64: {
            const auto* k = static_cast<const Rok64f*>(s.kernel);
            for (long long t = 0; t < ntaps; ++t) static_cast<double*>(coefs)[t] = k[ntaps - 1 - t];
            return false;
        }
        default:
            break;
    }
    auto* c = static_cast<std::int32_t*>(coefs);
    bool fits = s.packable;
    for (long long t = 0; t < ntaps && fits; ++t) {
        const std::int32_t v = int_coef(s, t);
        fits = v >= kPairMin && v <= kPairMax;
    }
    if (!fits) {
        for (long long t = 0; t < ntaps; ++t) c[t] = int_coef(s, ntaps - 1 - t);
        return false;
    }
    for (long long t = 0; t < ntaps; t += 2) {
        const std::uint32_t lo = std::uint16_t(int_coef(s, ntaps - 1 - t));
        const std::uint32_t hi = t + 1 < ntaps ? std::uint16_t(int_coef(s, ntaps - 2 - t)) : 0u;
        c[t / 2] = std::int32_t(lo | (hi << 16));
    }
    return true;
}

// One-channel 8u data with small coefficients: horizontally adjacent taps in
// pairs, one byte multiply-add each, summed in 16-bit lanes. Holds when
// every coefficient lies in -127..127, the two of a pair add up to at most
// 128 in magnitude (no pair saturates) and 255 times the sum of magnitudes
// stays within 65535 (every sum fits 16 bits from its lowest value). Pair p
// starts at byte offs[p] with weights[p] = (second << 8) | first; an odd
// kernel width ends with the last tap paired with a zero weight on its left.
// Returns the number of pairs, or 0 where this does not apply.
// The sums of a kernel's coefficients that bound the byte-pair paths' 16-bit
// sums; false where a coefficient does not fit a signed byte or 255 times
// the sum of magnitudes exceeds 65535.
struct ByteTaps {
    long long negative = 0, positive = 0, nonzero = 0;
};
bool byte_taps(const FilterCall& s, ByteTaps& b) {
    const long long ntaps = (long long)s.kernelSize.width * s.kernelSize.height;
    for (long long t = 0; t < ntaps; ++t) {
        const std::int32_t v = int_coef(s, t);
        if (v < -127 || v > 127) return false;
        b.negative += v < 0 ? v : 0;
        b.positive += v > 0 ? v : 0;
        b.nonzero += v != 0;
    }
    return 255 * (b.positive - b.negative) <= 65535;
}

int prepare_byte_pairs(const FilterCall& s, std::ptrdiff_t* offs, std::int16_t* weights, int* lowest, int* highest) {
    const int kw = s.kernelSize.width, kh = s.kernelSize.height;
    if (!s.packable || s.layout != Layout::C1 || kw < 2) return 0;
    const long long ntaps = (long long)kw * kh;
    ByteTaps taps;
    if (!byte_taps(s, taps)) return 0;
    // Neighbourhood pixel (i, j) from the top left takes the coefficient
    // stored at (kh-1-j, kw-1-i): the kernel is applied flipped.
    auto w = [&](int j, int i) { return i < 0 ? 0 : int_coef(s, ntaps - 1 - ((long long)j * kw + i)); };
    const long long left = kw - 1 - (long long)s.anchor.x, up = kh - 1 - (long long)s.anchor.y;
    int pairs = 0;
    for (int j = 0; j < kh; ++j)
        for (int i = 0; i < kw; i += 2) {
            const int first = i + 1 < kw ? i : i - 1;  // an odd last tap pairs leftwards with a zero
            const int a = first == i ? w(j, i) : 0, b = w(j, first + 1);
            if (a == 0 && b == 0) continue;
            if ((a < 0 ? -a : a) + (b < 0 ? -b : b) > 128) return 0;
            offs[pairs] = std::ptrdiff_t(j - up) * s.srcStep + std::ptrdiff_t(first - left);
            weights[pairs++] = std::int16_t((b << 8) | (a & 0xFF));
        }
    *lowest = int(255 * taps.negative);
    *highest = int(255 * taps.positive);
    return pairs;
}

// 8u data of C1 (where horizontal pairs do not apply: one-column kernels),
// C3, C4 or AC4 (all four channels formed) with small coefficients: the nonzero taps in summing order, two
// at a time (any two taps, the bytes interleaved by the kernel), within the
// bounds of prepare_byte_pairs. Pair p reads offs[p] (low weight byte) and,
// for p < *full, offs[pairs + p] (high byte); an odd last tap stands alone.
// Returns the number of pairs, or 0 where this does not apply.
int prepare_any_pairs(const FilterCall& s, std::ptrdiff_t* offs, std::int16_t* weights, int* lowest, int* highest,
                      int* full) {
    if (!s.packable) return 0;
    const int kw = s.kernelSize.width, kh = s.kernelSize.height;
    const long long ntaps = (long long)kw * kh;
    ByteTaps taps;
    if (!byte_taps(s, taps) || taps.nonzero == 0) return 0;
    const int pairs = int((taps.nonzero + 1) / 2);
    const std::ptrdiff_t pixelBytes = channels(s.layout);
    const long long left = kw - 1 - (long long)s.anchor.x, up = kh - 1 - (long long)s.anchor.y;
    int q = 0, first = 0;
    for (int j = 0; j < kh; ++j)
        for (int i = 0; i < kw; ++i) {
            const int v = int_coef(s, ntaps - 1 - ((long long)j * kw + i));
            if (v == 0) continue;
            const std::ptrdiff_t off = std::ptrdiff_t(j - up) * s.srcStep + std::ptrdiff_t(i - left) * pixelBytes;
            if (q % 2 == 0) {
                offs[q / 2] = off;
                first = v;
                weights[q / 2] = std::int16_t(v & 0xFF);
            } else {
                if ((first < 0 ? -first : first) + (v < 0 ? -v : v) > 128) return 0;
                offs[pairs + q / 2] = off;
                weights[q / 2] = std::int16_t((v << 8) | (first & 0xFF));
            }
            ++q;
        }
    *lowest = int(255 * taps.negative);
    *highest = int(255 * taps.positive);
    *full = int(taps.nonzero / 2);
    return pairs;
}

// The weights of the shaped byte-pair kernels: every kernel row of the
// neighbourhood in (kw + 1) / 2 pairs from columns 0, 2, ..., an odd
// width's last pair at kw - 2 with a zero first weight; pairs whose weights
// are both zero are kept. Applies wherever prepare_byte_pairs does (the same
// pairs, the zero ones aside).
void prepare_shaped_pairs(const FilterCall& s, std::int16_t* weights) {
    const int kw = s.kernelSize.width, kh = s.kernelSize.height, np = (kw + 1) / 2;
    const long long ntaps = (long long)kw * kh;
    auto w = [&](int j, int i) { return int_coef(s, ntaps - 1 - ((long long)j * kw + i)); };
    for (int j = 0; j < kh; ++j)
        for (int p = 0; p < np; ++p) {
            const bool last = 2 * p + 1 >= kw;
            const int a = last ? 0 : w(j, 2 * p), b = last ? w(j, kw - 1) : w(j, 2 * p + 1);
            weights[j * np + p] = std::int16_t((b << 8) | (a & 0xFF));
        }
}

}  // namespace

RokStatus run(const FilterCall& s) {
    if (s.src == nullptr || s.dst == nullptr || s.kernel == nullptr) return rokStatusNullPtr;
    if (bad_size(s.roi) || bad_size(s.kernelSize)) return rokStatusBadSize;
    if (s.hasDivisor && s.divisor == 0) return rokStatusBadFilterDivisor;
    const int nc = channels(s.layout);
    const long long srcRow = ((long long)s.roi.width + s.kernelSize.width - 1) * nc * s.srcBytes;
    const long long dstRow = (long long)s.roi.width * nc * s.dstBytes;
    if (s.srcStep < srcRow || s.dstStep < dstRow) return rokStatusBadStep;
    if (s.rounding) {
        if (s.mode < 0 || s.mode > 2) return rokStatusBadRoundMode;
        if (s.buffer == nullptr) return rokStatusNullPtr;
    }

    const long long ntaps = (long long)s.kernelSize.width * s.kernelSize.height;
    const long long samples = (long long)s.roi.width * nc;
    const int coefBytes = s.coef == Coef::F64 ? 8 : 4;
    const int team = ownGetNumThreads();
    const bool threaded = team > 1 && s.roi.width > 63 && s.roi.height > 63;
    const int slices = threaded ? team : 1;

    // Scratch: the taps (shared, read-only) and one row of sums per thread,
    // from the caller's buffer (the _Round forms; slice t starts at
    // t * bufferPerThread) or from the core library.
    void* owned = nullptr;
    char* base;
    long long sliceBytes;
    const long long tapBytes = 8 * ntaps + coefBytes * ntaps;
    const long long accBytes = (long long)s.accBytes * samples;
    if (s.rounding) {
        base = static_cast<char*>(s.buffer);
        sliceBytes = s.bufferPerThread;
    } else {
        // Every slice is laid out like the first, as in a caller's buffer.
        sliceBytes = (long long)align_up(std::size_t(tapBytes + accBytes + 16), 64);
        const long long total = sliceBytes * slices;
        if (total > INT_MAX) return rokStatusNoMemory;
        owned = rokMalloc(int(total));
        if (owned == nullptr) return rokStatusNoMemory;
        base = static_cast<char*>(owned);
    }
    // Slice 0 begins with the taps; every slice then holds its row of sums.
    auto* offs = align_ptr<std::ptrdiff_t>(base, 8);
    void* coefs = offs + ntaps;
    char* firstAcc = static_cast<char*>(coefs) + coefBytes * ntaps;
    auto acc_of = [&](int t) -> void* {
        if (t == 0) return align_ptr<char>(firstAcc, 8);
        return align_ptr<char>(base + sliceBytes * t, 8);
    };

    RowJob job{};
    job.src = s.src;
    job.srcStep = s.srcStep;
    job.dst = s.dst;
    job.dstStep = s.dstStep;
    job.width = s.roi.width;
    job.samples = int(samples);
    job.ac4 = s.layout == Layout::AC4;
    job.offs = offs;
    job.coefs = coefs;
    job.ntaps = int(ntaps);
    job.intRule = int_rule(s.divisor, s.rounding ? s.mode : -1);
    // 8u data whose taps pair in bytes (horizontal neighbours on C1, else
    // any two): the 16-bit sums are finished straight into an 8u
    // destination, by a 16-bit form of the rule where one holds (looked for
    // with an exhaustive check over the reachable sums, only where the image
    // outweighs that check: the rounding-mode rules check against their
    // scalar statement, which costs more), else by the rule on 32-bit lanes
    // (not offered for the rounding-mode rules: those then take the other
    // paths).
    int highest = 0;
    const int pairs = prepare_byte_pairs(s, offs, static_cast<std::int16_t*>(coefs), &job.lowest, &highest);
    job.bytes = pairs > 0;
    const bool direct = s.dstBytes == 1 && samples >= 32;
    int anyPairs = 0;
    if (!job.bytes && direct)
        anyPairs = prepare_any_pairs(s, offs, static_cast<std::int16_t*>(coefs), &job.lowest, &highest, &job.fullPairs);
    if ((job.bytes || anyPairs > 0) && direct) {
        const long long weight = s.rounding ? 64 : 8;
        const bool search = samples * s.roi.height >= weight * (highest - job.lowest);
        job.bytesFinish = search ? kernels::byte_pair_finish(job.intRule, job.lowest, highest) : kernels::BytesFinish{};
        job.bytesFinish.rule = job.intRule;
        job.bytesFinish.lowest = job.lowest;
        job.bytesRow = !s.rounding || job.bytesFinish.form != kernels::Form16::None;
    }
    job.anyPairs = anyPairs > 0 && job.bytesRow;
    if (job.bytes) job.ntaps = pairs;
    else if (job.anyPairs) job.ntaps = anyPairs;
    else job.packed = prepare_taps(s, offs, coefs);
    job.floatMode = s.rounding ? kernels::FloatFinish(s.mode) : kernels::FloatFinish::NearestEven;

    // Float results go past the cache from the size at which the library's
    // one-operand families stream theirs (a result that, with its source,
    // no longer fits the last-level cache); below it the result stays in
    // the cache for whatever reads it next.
    job.stream = s.dstBytes == 4 && s.accBytes == 0 && dstRow * s.roi.height >= arith::detail::kStreamBytes;

    job.kw = s.kernelSize.width;
    job.kh = s.kernelSize.height;
    // Column filters of float data written straight out go two rows at a
    // time, sharing the loads of the rows they have in common (wider
    // kernels find their rows in the level-1 cache and lose more to the
    // narrower blocks than they gain).
    const bool twoRows = s.srcBytes == 4 && s.dstBytes == 4 && s.coef == Coef::F32 && s.accBytes == 0 &&
                         s.kernelSize.width == 1 && s.kernelSize.height > 1;
    // One-channel float data with a kernel of a common shape has its own
    // kernels, the taps unrolled and several rows to a pass.
    const kernels::ShapedRowsFn shaped =
        s.srcBytes == 4 && s.dstBytes == 4 && s.coef == Coef::F32 && s.accBytes == 0 && s.layout == Layout::C1
            ? kernels::shaped_rows_kernel(s.kernelSize.width, s.kernelSize.height)
            : nullptr;
    // One-channel kernels of a common shape in horizontal byte pairs keep
    // their sums in registers, several rows a pass.
    kernels::BytePairRowsFn bytePairs = nullptr;
    std::int16_t shapedWeights[15];
    const Rok8u* shapedTop = nullptr;
    if (job.bytesRow) {
        if (job.bytes && s.kernelSize.width <= 5 && s.kernelSize.height <= 5)
            bytePairs = kernels::byte_pair_rows_kernel(s.kernelSize.width, s.kernelSize.height);
        if (bytePairs) {
            prepare_shaped_pairs(s, shapedWeights);
            const long long left = s.kernelSize.width - 1 - (long long)s.anchor.x;
            const long long up = s.kernelSize.height - 1 - (long long)s.anchor.y;
            shapedTop = static_cast<const Rok8u*>(s.src) - up * s.srcStep - left;
        }
    }
    auto rows = [&](int first, int last, void* acc) {
        int y = first;
        if (bytePairs) {
            bytePairs(row(shapedTop, s.srcStep, first), s.srcStep, shapedWeights, job.samples,
                      row(static_cast<Rok8u*>(s.dst), s.dstStep, first), s.dstStep, last - first, job.bytesFinish);
            y = last;
        }
        if (shaped) {
            const auto* top = reinterpret_cast<const Rok32f*>(static_cast<const char*>(s.src) + offs[0]);
            shaped(row(top, s.srcStep, first), s.srcStep, static_cast<const float*>(coefs), job.samples,
                   row(static_cast<Rok32f*>(s.dst), s.dstStep, first), s.dstStep, last - first, job.stream);
            y = last;
        }
        if (twoRows)
            for (; y + 1 < last; y += 2) filter_rows2(job, y);
        for (; y < last; ++y) s.row(job, y, acc);
        if (job.stream) kernels::store_fence();
    };

    const int height = s.roi.height;
    if (!threaded) {
        rows(0, height, acc_of(0));
    } else {
        parallel_for(height, team, [&](int first, int last, int slot) { rows(first, last, acc_of(slot)); });
    }
    rokFree(owned);
    return rokStatusOk;
}

long long round_buffer_per_thread(RoundBuf kind, Layout layout, long long area, long long w) {
    const long long pad = kind == RoundBuf::S32 ? 31 : 15;
    switch (layout) {
        case Layout::C1: return (4 * area + w) * 4 + pad;
        case Layout::C3: return (4 * area + 3 * w) * 4 + pad;
        default: return kind == RoundBuf::F32 ? (4 * area + 8 * w) * 4 + 15 : (area + w) * 16 + pad;
    }
}

RokStatus round_buffer_size(RoundBuf kind, Layout layout, RokiSize ks, int roiWidth, int* pSize) {
    if (pSize == nullptr) return rokStatusNullPtr;
    if (ks.width < 1 || ks.height < 1 || roiWidth < 1) return rokStatusBadSize;
    // Past 2^28 taps a single thread's share already exceeds 2^31 bytes; the
    // bound keeps the products below from overflowing.
    const long long area = (long long)ks.width * ks.height;
    if (area > (1LL << 28)) return rokStatusBadSize;
    const long long bytes = round_buffer_per_thread(kind, layout, area, roiWidth) * ownGetNumThreads();
    if (bytes > INT_MAX) return rokStatusBadSize;
    *pSize = int(bytes);
    return rokStatusOk;
}

RokStatus decimate(const Rok8u* src, int srcStep, RokiSize srcRoi, Rok8u* dst, int dstStep, const Rok32s* kernel,
                   int kernelSize, int anchor, int divisor, int factor, bool rows) {
    if (src == nullptr || dst == nullptr || kernel == nullptr) return rokStatusNullPtr;
    if (bad_size(srcRoi) || kernelSize < 1) return rokStatusBadSize;
    if (divisor == 0) return rokStatusBadFilterDivisor;
    if (factor < 2) return rokStatusBadDecimation;
    const int w = srcRoi.width, h = srcRoi.height;
    const int dstW = rows ? (w + factor - 1) / factor : w;
    const int dstH = rows ? h : (h + factor - 1) / factor;
    const long long srcRow = (long long)w + (rows ? kernelSize - 1 : 0);
    if (srcStep < srcRow || dstStep < dstW) return rokStatusBadStep;

    FilterCall s = describe<Rok8u, Rok8u, Rok32s, Layout::C1>(src, srcStep, dst, dstStep, srcRoi, kernel,
                                                         rows ? RokiSize{kernelSize, 1} : RokiSize{1, kernelSize},
                                                         rows ? RokiPoint{anchor, 0} : RokiPoint{0, anchor});
    // Taps, a row of sums and the kept sums of a row.
    const long long bytes = 16 * (long long)kernelSize + 8 * (long long)w + 64;
    if (bytes > INT_MAX) return rokStatusNoMemory;
    void* owned = rokMalloc(int(bytes));
    if (owned == nullptr) return rokStatusNoMemory;
    auto* offs = static_cast<std::ptrdiff_t*>(owned);
    auto* coefs = reinterpret_cast<std::int32_t*>(offs + kernelSize);
    std::int32_t* acc = coefs + kernelSize;
    std::int32_t* kept = acc + w;
    const bool packed = prepare_taps(s, offs, coefs);
    const kernels::IntRule rule = int_rule(divisor, -1);
    for (int y = 0; y < dstH; ++y) {
        const Rok8u* base = row(src, srcStep, rows ? y : y * factor);
        if (packed)
            kernels::filter_sum_pairs(base, offs, coefs, kernelSize, w, acc);
        else
            kernels::filter_sum(base, offs, coefs, kernelSize, w, acc);
        const std::int32_t* sums = acc;
        if (rows) {
            for (int x = 0; x < dstW; ++x) kept[x] = acc[std::size_t(x) * factor];
            sums = kept;
        }
        kernels::filter_finish(sums, dstW, rule, row(dst, dstStep, y));
    }
    rokFree(owned);
    return rokStatusOk;
}

RokStatus zero_buffer_size(RokiSize ks, int roiWidth, int* pSize) {
    if (pSize == nullptr) return rokStatusNullPtr;
    if (ks.width < 1 || ks.height < 1 || roiWidth < 1) return rokStatusBadSize;
    *pSize = 0;
    return rokStatusOk;
}

}  // namespace rok::filter
