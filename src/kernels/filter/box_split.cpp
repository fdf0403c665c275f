// Box filter kernels of one-channel 8u rows first, each block of 32 samples
// split into its even and its odd samples (see box.h). A translation unit of
// their own: their many small instantiations must not crowd the inlining of
// the other box kernels.
#include <immintrin.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <type_traits>
#include <utility>

#include "kernels/filter/box.h"

namespace rok::kernels::box {

namespace {

inline __m256i load(const void* p) { return _mm256_loadu_si256(static_cast<const __m256i*>(p)); }

// Byte weights of the multiply-adds that sum adjacent pairs: both, the
// first alone, the second alone.
struct Weights {
    __m256i both = _mm256_set1_epi8(1), first = _mm256_set1_epi16(0x0001), second = _mm256_set1_epi16(0x0100);
};

template <int... T>
inline __m256i middle(const Rok8u* p, const Weights& w, std::integer_sequence<int, T...>) {
    __m256i m = _mm256_setzero_si256();
    ((m = _mm256_add_epi16(m, _mm256_maddubs_epi16(load(p + 2 * (T + 1)), w.both))), ...);
    return m;
}

// Adds the R-pixel windows from p (bytes p[0 .. R + 30]) to the sums of the
// 16 even starts (e: p[2i] .. p[2i + R - 1]) and the 16 odd ones (o: one
// pixel on). Both are the pairs p[2i + 2t], p[2i + 2t + 1] between the
// first pair and the last pixel, the ends taken whole or in part: R + 1
// pixels cover both windows, so one multiply-add of each shifted load serves
// the two.
template <int R>
inline void windows_split(const Rok8u* p, const Weights& w, __m256i& e, __m256i& o) {
    if constexpr (R == 1) {
        const __m256i v = load(p);
        e = _mm256_add_epi16(e, _mm256_maddubs_epi16(v, w.first));
        o = _mm256_add_epi16(o, _mm256_maddubs_epi16(v, w.second));
    } else if constexpr (R > 1) {
        // Odd R: pairs at 2 .. R - 3 shared, the first pair whole in e and
        // its second pixel in o, the pair at R - 1 its first pixel in e and
        // whole in o. Even R: pairs at 2 .. R - 2 shared, the first pair
        // whole in e and its second pixel in o, which ends on the second
        // pixel of the pair at R - 1.
        const __m256i m = middle(p, w, std::make_integer_sequence<int, R % 2 ? (R - 3) / 2 : R / 2 - 1>{});
        const __m256i head = load(p), last = load(p + R - 1);
        const __m256i he = _mm256_maddubs_epi16(head, w.both), ho = _mm256_maddubs_epi16(head, w.second);
        if constexpr (R % 2) {
            e = _mm256_add_epi16(e, _mm256_add_epi16(m, _mm256_add_epi16(he, _mm256_maddubs_epi16(last, w.first))));
            o = _mm256_add_epi16(o, _mm256_add_epi16(m, _mm256_add_epi16(ho, _mm256_maddubs_epi16(last, w.both))));
        } else {
            e = _mm256_add_epi16(e, _mm256_add_epi16(m, he));
            o = _mm256_add_epi16(o, _mm256_add_epi16(m, _mm256_add_epi16(ho, _mm256_maddubs_epi16(last, w.second))));
        }
    }
}

// Lanes k .. k + 15 of the 32 that a and then b hold.
template <int K>
inline __m256i lanes_from(__m256i a, __m256i b) {
    if constexpr (K == 0) return a;
    const __m256i mid = _mm256_permute2x128_si256(a, b, 0x21);  // lanes 8 .. 23
    if constexpr (K == 8) return mid;
    else if constexpr (K < 8) return _mm256_alignr_epi8(mid, a, 2 * K);
    else return _mm256_alignr_epi8(b, mid, 2 * (K - 8));
}

// A window of R pixels may be two windows of H = (R + 1) / 2 pixels, the
// second S = R - H pixels on, less the pixel they share when R is odd:
// W_R(q) = W_H(q) + W_H(q + S) - [R odd] row[q + S]. The second comes from
// this block's and the next one's W_H by a shift of lanes (from the other
// half when S is odd), so each block forms W_H once. That pays where it
// takes fewer operations, a lane shift counted as two (it measured so: 31
// pixels gained, 21 lost).
constexpr int multiply_adds(int r) { return r == 1 ? 2 : r % 2 ? (r - 3) / 2 + 4 : r / 2 + 2; }
constexpr int lane_shift_cost(int k) { return k == 0 ? 0 : k == 8 ? 2 : 4; }
constexpr bool halved(int r) {
    const int h = (r + 1) / 2, s = r - h;
    const int shifts = s % 2 ? lane_shift_cost((s - 1) / 2) + lane_shift_cost((s + 1) / 2) : 2 * lane_shift_cost(s / 2);
    return r > 16 && 2 * multiply_adds(h) + shifts + 2 + (r % 2 ? 4 : 0) < 2 * multiply_adds(r);
}

// Calls sink(x, e, o) with the split window sums of each whole block of a
// row of n samples, in order (pixels read: row[0 .. n + R - 2]).
template <int R, class Sink>
inline void each_block(const Rok8u* row, int n, Sink&& sink) {
    const Weights w;
    const int whole = n / 32;
    int b = 0;
    if constexpr (halved(R)) {
        constexpr int H = (R + 1) / 2, S = R - H;
        // Blocks whose next block's W_H reads within the row.
        const int paired = n + S - 64 >= 0 ? std::min(whole, (n + S - 64) / 32 + 1) : 0;
        __m256i e0 = _mm256_setzero_si256(), o0 = _mm256_setzero_si256();
        if (paired > 0) windows_split<H>(row, w, e0, o0);
        for (; b < paired; ++b) {
            const int x = 32 * b;
            __m256i e1 = _mm256_setzero_si256(), o1 = _mm256_setzero_si256();
            windows_split<H>(row + x + 32, w, e1, o1);
            __m256i e, o;
            if constexpr (S % 2 == 0) {
                e = _mm256_add_epi16(e0, lanes_from<S / 2>(e0, e1));
                o = _mm256_add_epi16(o0, lanes_from<S / 2>(o0, o1));
            } else {
                e = _mm256_add_epi16(e0, lanes_from<(S - 1) / 2>(o0, o1));
                o = _mm256_add_epi16(o0, lanes_from<(S + 1) / 2>(e0, e1));
            }
            if constexpr (R % 2 == 1) {
                const __m256i v = load(row + x + S);
                e = _mm256_sub_epi16(e, _mm256_maddubs_epi16(v, w.first));
                o = _mm256_sub_epi16(o, _mm256_maddubs_epi16(v, w.second));
            }
            sink(x, e, o);
            e0 = e1;
            o0 = o1;
        }
    }
    for (int x = 32 * b; x < 32 * whole; x += 32) {
        __m256i e = _mm256_setzero_si256(), o = _mm256_setzero_si256();
        windows_split<R>(row + x, w, e, o);
        sink(x, e, o);
    }
}

// The split window sums of the whole blocks of a row of n samples.
template <int R>
void blocks_split(const Rok8u* row, int n, std::uint16_t* out) {
    each_block<R>(row, n, [&](int x, __m256i e, __m256i o) {
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + x), e);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + x + 16), o);
    });
}

using BlocksSplit = void (*)(const Rok8u*, int, std::uint16_t*);
template <int... R>
constexpr std::array<BlocksSplit, sizeof...(R)> blocks_table(std::integer_sequence<int, R...>) {
    return {&blocks_split<R>...};
}
constexpr auto kBlocksSplit = blocks_table(std::make_integer_sequence<int, kSplitWidest + 1>{});

// Running sums of the words of v within each 128-bit half (modulo 2^16).
inline __m256i running_halves(__m256i v) {
    v = _mm256_add_epi16(v, _mm256_slli_si256(v, 2));
    v = _mm256_add_epi16(v, _mm256_slli_si256(v, 4));
    return _mm256_add_epi16(v, _mm256_slli_si256(v, 8));
}

// The split window sums of the whole blocks of a row of n samples from the
// running sum of its pairs: pe[j] = row[0] + ... + row[2j - 1] (modulo
// 2^16; the window sums, below 2^16, come out exact as differences), so
// each block costs the same whatever the width. With w = 2h or 2h + 1, the
// window at 2i is pe[i + h] - pe[i], plus row[2i + w - 1] for odd w; the
// one at 2i + 1 is that less row[2i], plus row[2i + w]. Reads
// row[0 .. n + w - 2]; pe holds n / 2 + w / 2 + 48 words, pe[j] in word
// 15 + j, so that the stores of the running sums fall on 32 bytes where pe
// does (stores split across cache lines made the 31x31 means 3% slower).
void windows_running(const Rok8u* row, int n, int width, std::uint16_t* pe) {
    const Weights w;
    const int h = width / 2;
    // pe[0 .. 16 * whole + h] (pe[j] reads row[0 .. 2j - 1]).
    const int words = 16 * (n / 32) + h + 1;
    const int readable = n + width - 1;  // bytes of the row that may be read
    // Word 7 of each half to all of that half.
    const __m256i word7 = _mm256_set1_epi16(0x0F0E);
    __m256i carry = _mm256_setzero_si256();
    pe[15] = 0;
    for (int c = 0; 16 * c + 1 < words; ++c) {
        __m256i v;
        if (32 * c + 32 <= readable) {
            v = load(row + 32 * c);
        } else {
            alignas(32) Rok8u part[32] = {};
            std::memcpy(part, row + 32 * c, std::size_t(std::min(32, readable - 32 * c)));
            v = load(part);
        }
        // The halves' running sums, the low half's total added to the high
        // half and the carry to both; the carry then takes both totals.
        const __m256i run = running_halves(_mm256_maddubs_epi16(v, w.both));
        const __m256i totals = _mm256_shuffle_epi8(run, word7);
        const __m256i low = _mm256_permute2x128_si256(totals, totals, 0x08);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(pe + 16 * c + 16),
                            _mm256_add_epi16(_mm256_add_epi16(run, low), carry));
        carry = _mm256_add_epi16(
            carry, _mm256_add_epi16(totals, _mm256_permute2x128_si256(totals, totals, 0x01)));
    }
}

template <bool Odd>
void blocks_running(const Rok8u* row, int n, int width, const std::uint16_t* pe, std::uint16_t* out) {
    const Weights w;
    const int h = width / 2;
    for (int x = 0; x + 32 <= n; x += 32) {
        const std::uint16_t* p = pe + 15 + x / 2;
        const __m256i start = load(p), first = _mm256_maddubs_epi16(load(row + x), w.first);
        const __m256i end = load(row + x + width - 1);
        __m256i e = _mm256_sub_epi16(load(p + h), start);
        if constexpr (Odd) e = _mm256_add_epi16(e, _mm256_maddubs_epi16(end, w.first));
        const __m256i o = _mm256_add_epi16(e, _mm256_sub_epi16(_mm256_maddubs_epi16(end, w.second), first));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + x), e);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + x + 16), o);
    }
}

}  // namespace

int split_length(int n) { return (n + 31) / 32 * 32; }

void row_windows_split(const Rok8u* row, int n, int width, std::uint16_t* out, std::uint16_t* scratch) {
    if (width >= kSplitRunningFrom) {
        windows_running(row, n, width, scratch);
        if (width % 2) blocks_running<true>(row, n, width, scratch, out);
        else blocks_running<false>(row, n, width, scratch, out);
    } else {
        kBlocksSplit[std::size_t(width)](row, n, out);
    }
    if (n % 32 != 0) {
        // One more block of the row's last 32 samples, from a copy of the
        // pixels its windows read (the loads run past them into padding).
        alignas(32) Rok8u last[32 + kSplitWidest + 64] = {};
        std::memcpy(last, row + n - 32, std::size_t(32 + width - 1));
        kBlocksSplit[std::size_t(width)](last, 32, out + 32 * (n / 32));
    }
}

bool split_high(const Mean& m) {
    const int k = m.shift - 16;
    return !m.wide && k >= 1 && m.mult + (std::int64_t(1) << (k - 1)) <= 65536;
}

void split_running(const std::uint16_t* windows, const std::uint16_t* above, int n, std::uint16_t* running) {
    for (int x = 0; x < split_length(n); ++x) running[x] = std::uint16_t(above[x] + windows[x]);
}

namespace {

// mult * 2^(15 - shift) where that is a whole number below 2^15, else 0.
std::int64_t round_mult(const Mean& m) {
    std::int64_t r = 0;
    if (m.shift <= 15) r = m.mult << (15 - m.shift);
    else if (m.shift - 15 < 32 && m.mult % (std::int64_t(1) << (m.shift - 15)) == 0) r = m.mult >> (m.shift - 15);
    return r < 32768 ? r : 0;
}

// The 32 means of one split block from its 16-bit box sums. High: the mean
// from the high half of mult * S (as mean_uint16 in box.cpp takes it).
// Round (box sums below 2^15): (mult * S + 2^(shift-1)) >> shift is
// (S * r + 2^14) >> 15 with r = mult * 2^(15 - shift), one rounding
// multiply. The one-channel multipliers never take a box of 255s past 255,
// so the odd means shift into the high bytes with nothing to clamp.
template <bool Round>
struct Means16 {
    __m256i mult, down;
    explicit Means16(const Mean& m)
        : mult(_mm256_set1_epi16(std::int16_t(Round ? round_mult(m) : m.mult))),
          down(_mm256_set1_epi16(std::int16_t(Round ? 0 : 1 << (31 - m.shift)))) {}
    // High: q = (mult * S) >> 16, then (q + 2^(k-1)) >> k with k = shift -
    // 16 from 1 to 8 as one rounding multiply by 2^(15-k): q is below 2^12
    // (the multipliers of one channel have 12 bits), so the product stays
    // positive and far from overflow. (Two multiplies in place of a
    // multiply, an add and a shift: 8u 11x11 at 1080p 4% faster.)
    __m256i half(__m256i s) const {
        if constexpr (Round) return _mm256_mulhrs_epi16(s, mult);
        else return _mm256_mulhrs_epi16(_mm256_mulhi_epu16(s, mult), down);
    }
    __m256i block(__m256i even, __m256i odd) const {
        return _mm256_or_si256(half(even), _mm256_mullo_epi16(half(odd), _mm256_set1_epi16(256)));
    }
};

// One half of a block down the columns: the running sum of the row above
// plus this row's window sums, stored; the box sum is that less the running
// sum of the row that left the box (modulo 2^16, exact as the box sums fit).
inline __m256i down(const std::uint16_t* above, __m256i windows, std::uint16_t* running,
                    const std::uint16_t* left) {
    const __m256i r = _mm256_add_epi16(load(above), windows);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(running), r);
    return _mm256_sub_epi16(r, load(left));
}

template <bool Stream>
inline void store32(Rok8u* d, __m256i v) {
    if constexpr (Stream) _mm256_stream_si256(reinterpret_cast<__m256i*>(d), v);
    else _mm256_storeu_si256(reinterpret_cast<__m256i*>(d), v);
}

// One entering row's split window sums, its running column sums and the
// means in one pass over each block.
template <int R, bool Stream, bool Round>
void row_step16(const Rok8u* row, int n, const std::uint16_t* above, const std::uint16_t* left,
                std::uint16_t* running, const Mean& m, Rok8u* dst) {
    const Weights w;
    const Means16<Round> mm(m);
    const int whole = n / 32;
    each_block<R>(row, n, [&](int x, __m256i e, __m256i o) {
        const __m256i se = down(above + x, e, running + x, left + x);
        const __m256i so = down(above + x + 16, o, running + x + 16, left + x + 16);
        store32<Stream>(dst + x, mm.block(se, so));
    });
    if (n % 32 != 0) {
        alignas(32) Rok8u last[32 + kSplitWidest + 64] = {};
        std::memcpy(last, row + n - 32, std::size_t(32 + R - 1));
        const int x = 32 * whole;
        __m256i e = _mm256_setzero_si256(), o = _mm256_setzero_si256();
        windows_split<R>(last, w, e, o);
        const __m256i se = down(above + x, e, running + x, left + x);
        const __m256i so = down(above + x + 16, o, running + x + 16, left + x + 16);
        store32<false>(dst + n - 32, mm.block(se, so));
    }
}

using RowStep16 = void (*)(const Rok8u*, int, const std::uint16_t*, const std::uint16_t*, std::uint16_t*,
                           const Mean&, Rok8u*);
template <bool Stream, bool Round, int... R>
constexpr std::array<RowStep16, sizeof...(R)> row_step16_table(std::integer_sequence<int, R...>) {
    return {&row_step16<R, Stream, Round>...};
}
constexpr auto kRowStep16 = row_step16_table<false, false>(std::make_integer_sequence<int, kSplitWidest + 1>{});
constexpr auto kRowStep16Stream = row_step16_table<true, false>(std::make_integer_sequence<int, kSplitWidest + 1>{});
constexpr auto kRowRound16 = row_step16_table<false, true>(std::make_integer_sequence<int, kSplitRoundWidest + 1>{});
constexpr auto kRowRound16Stream =
    row_step16_table<true, true>(std::make_integer_sequence<int, kSplitRoundWidest + 1>{});

}  // namespace

bool split_round(const Mean& m, long long area, int width) {
    return !m.wide && area * 255 < 32768 && width <= kSplitRoundWidest && round_mult(m) != 0;
}

void split_row(const Rok8u* row, int n, int width, const std::uint16_t* above, const std::uint16_t* left,
               std::uint16_t* running, const Mean& m, Rok8u* dst, bool stream) {
    const bool streamed = stream && reinterpret_cast<std::uintptr_t>(dst) % 32 == 0;
    const RowStep16* table = split_high(m) ? (streamed ? kRowStep16Stream : kRowStep16).data()
                                           : (streamed ? kRowRound16Stream : kRowRound16).data();
    table[std::size_t(width)](row, n, above, left, running, m, dst);
}

namespace {

// The 32 means of one split block from its four blocks of 32-bit sums, held
// as mult * S + 2^(shift-1) with shift from 20 to 24 (box sums past 16 bits,
// areas up to 8100): lane l of the four holds samples 4l, 4l + 2, 4l + 1,
// 4l + 3. The high halves of the first two side by side are the even
// samples' sums >> 16 in order, of the last two the odd samples'; the means
// (at most 255, as in split_step) shift down into the low bytes and up into
// the high bytes, both by multiplies (the high half of a product by
// 2^(32 - shift), the low half of one by 2^(24 - shift), whose low bytes a
// byte blend drops), which run beside the blends and shifts rather than
// queue with them (31x31 at 1080p 2% faster).
struct Means32 {
    __m256i down, up;
    __m256i high = _mm256_set1_epi16(std::int16_t(0xFF00));
    explicit Means32(const Mean& m)
        : down(_mm256_set1_epi16(std::int16_t(1 << (32 - m.shift)))), up(_mm256_set1_epi16(std::int16_t(1 << (24 - m.shift)))) {}
    __m256i operator()(const __m256i s[4]) const {
        const __m256i even = _mm256_blend_epi16(_mm256_srli_epi32(s[0], 16), s[1], 0xAA);
        const __m256i odd = _mm256_blend_epi16(_mm256_srli_epi32(s[2], 16), s[3], 0xAA);
        return _mm256_blendv_epi8(_mm256_mulhi_epu16(even, down), _mm256_mullo_epi16(odd, up), high);
    }
};

// The four blocks of 8 column sums of one split block take its even and odd
// halves' sums as signed 16-bit pairs: weights (mult, 0) pick the even of
// each pair, (0, mult) the odd.
template <bool Step>
void split32(const std::uint16_t* fresh, const std::uint16_t* stale, int n, bool first, const Mean& m,
             std::int32_t* sums, Rok8u* dst, bool stream) {
    // The sums are kept as mult * S + 2^(shift-1), which stays below 2^31
    // (the mean is not `wide`): the multiply-adds take the multiplier along,
    // and each mean is one shift.
    const std::int32_t mult = std::int32_t(m.mult);
    const __m256i even = _mm256_set1_epi32(mult), odd = _mm256_set1_epi32(mult << 16);
    const __m256i bias = _mm256_set1_epi32(std::int32_t(1) << (m.shift - 1));
    const Means32 means(m);
    // The sums of one block, and (Step) its 32 means.
    auto block = [&](int x) {
        __m256i d[2];
        for (int h = 0; h < 2; ++h) {
            d[h] = load(fresh + x + 16 * h);
            if (Step) d[h] = _mm256_sub_epi16(d[h], load(stale + x + 16 * h));
        }
        __m256i s[4] = {_mm256_madd_epi16(d[0], even), _mm256_madd_epi16(d[0], odd), _mm256_madd_epi16(d[1], even),
                        _mm256_madd_epi16(d[1], odd)};
        for (int i = 0; i < 4; ++i) {
            s[i] = _mm256_add_epi32(s[i], Step || !first ? load(sums + x + 8 * i) : bias);
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(sums + x + 8 * i), s[i]);
        }
        if constexpr (!Step) return _mm256_setzero_si256();
        return means(s);
    };
    const int whole = n / 32;
    if constexpr (!Step) {
        for (int b = 0; b < (n + 31) / 32; ++b) block(32 * b);
    } else {
        if (stream && reinterpret_cast<std::uintptr_t>(dst) % 32 == 0)
            for (int b = 0; b < whole; ++b) store32<true>(dst + 32 * b, block(32 * b));
        else
            for (int b = 0; b < whole; ++b) store32<false>(dst + 32 * b, block(32 * b));
        if (n % 32 != 0) store32<false>(dst + n - 32, block(32 * whole));
    }
}

}  // namespace

void split_add(const std::uint16_t* row, int n, bool first, const Mean& m, std::int32_t* sums) {
    split32<false>(row, nullptr, n, first, m, sums, nullptr, false);
}

void split_step2(const std::uint16_t* fresh1, const std::uint16_t* stale1, const std::uint16_t* fresh2,
                 const std::uint16_t* stale2, int n, const Mean& m, std::int32_t* sums, Rok8u* dst1, Rok8u* dst2,
                 bool stream) {
    const __m256i even = _mm256_set1_epi32(std::int32_t(m.mult)), odd = _mm256_set1_epi32(std::int32_t(m.mult) << 16);
    const Means32 means(m);
    // The sums of one block carried through both rows in registers.
    auto block = [&](int x, Rok8u* d1, Rok8u* d2, auto streamed) {
        __m256i s[4];
        for (int i = 0; i < 4; ++i) s[i] = load(sums + x + 8 * i);
        auto row = [&](const std::uint16_t* fresh, const std::uint16_t* stale, Rok8u* d) {
            const __m256i de = _mm256_sub_epi16(load(fresh + x), load(stale + x));
            const __m256i dO = _mm256_sub_epi16(load(fresh + x + 16), load(stale + x + 16));
            s[0] = _mm256_add_epi32(s[0], _mm256_madd_epi16(de, even));
            s[1] = _mm256_add_epi32(s[1], _mm256_madd_epi16(de, odd));
            s[2] = _mm256_add_epi32(s[2], _mm256_madd_epi16(dO, even));
            s[3] = _mm256_add_epi32(s[3], _mm256_madd_epi16(dO, odd));
            store32<decltype(streamed)::value>(d, means(s));
        };
        row(fresh1, stale1, d1);
        row(fresh2, stale2, d2);
        for (int i = 0; i < 4; ++i) _mm256_storeu_si256(reinterpret_cast<__m256i*>(sums + x + 8 * i), s[i]);
    };
    const int whole = n / 32;
    const bool aligned = stream && reinterpret_cast<std::uintptr_t>(dst1) % 32 == 0 &&
                         reinterpret_cast<std::uintptr_t>(dst2) % 32 == 0;
    if (aligned)
        for (int x = 0; x < 32 * whole; x += 32) block(x, dst1 + x, dst2 + x, std::true_type{});
    else
        for (int x = 0; x < 32 * whole; x += 32) block(x, dst1 + x, dst2 + x, std::false_type{});
    if (n % 32 != 0) block(32 * whole, dst1 + n - 32, dst2 + n - 32, std::false_type{});
}

void split_step(const std::uint16_t* fresh, const std::uint16_t* stale, int n, const Mean& m, std::int32_t* sums,
                Rok8u* dst, bool stream) {
    split32<true>(fresh, stale, n, false, m, sums, dst, stream);
}

}  // namespace rok::kernels::box
