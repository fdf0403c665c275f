// The 8u one-channel Gauss 5x5, horizontal stage first.
//
// The mask is symmetric, so its rows are the same three filters as its
// columns: H0 = (2 7 12 7 2), H1 = (7 31 52 31 7), H2 = (12 52 127 52 12),
// and a destination row is H0 of source rows y-2 and y+2, plus H1 of rows
// y-1 and y+1, plus H2 of row y. Filtering along the row lets the byte
// multiply-adds take neighbouring samples straight from unaligned loads:
// the 16-bit words of a load at x + k pair samples x + k + 2i and
// x + k + 2i + 1, so the loads at x .. x + 4 give the even outputs of a
// block of 32 in one vector and the odd ones in another, with no byte
// unpacking or lane permutes (the column-first stage spends 11 of them per
// 32 outputs). Each source row's H0 and H1 are made once, when the row
// first enters the neighbourhood, and kept in a ring of five rows for the
// destination rows that use them later; H2 is made where it is used.
// At one thread 1920x1080 and 3840x2160 took about 0.93 of the
// time of the column-first kernel (which other layouts and rows narrower
// than one block still take).
//
// The even/odd split stays through the vertical sums (they add equal
// positions) and is undone by the final byte blend.
#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "kernels/filter/fixed.h"

namespace rok::kernels::fixed {

namespace {

// Nearest integer to S / 571 for S = the 18-bit weighted sum: with
// T = S + 286, (T * 14691) >> 23 for every S from 0 to 145605. T is
// summed in wrapping 16-bit lanes with the carries of the two adds that
// can wrap counted apart (h, 0 to 2), and with the doubled multiplier
//   (T * 14691) >> 23 == (h * 29382 + ((T mod 65536) * 29382 >> 16)) >> 8
// exactly (h * 29382 is a whole number, so the floor of the high product
// loses nothing the shift keeps). The value before the shift is the
// floor of T * 29382 / 65536, at most 65407, so it fits a word, and the
// result is its high byte: odd outputs are blended in without a shift.
constexpr int kRound = 286, kMul = 2 * 14691;

// Taps 0, 1 and 2 of H0, H1, H2 (3 and 4 mirror 1 and 0).
constexpr int kTaps[3][3] = {{2, 7, 12}, {7, 31, 52}, {12, 52, 127}};

inline __m256i load(const void* p) { return _mm256_loadu_si256(static_cast<const __m256i*>(p)); }
inline void store(void* p, __m256i v) { _mm256_storeu_si256(static_cast<__m256i*>(p), v); }

// Byte weights (a, b) for a multiply-add over sample pairs (first, second).
inline __m256i weights(int a, int b) { return _mm256_set1_epi16(std::int16_t((b << 8) | (a & 0xFF))); }

// The byte weights of the three filters: outer taps (0, 1), centre tap
// with a zero (2), mirrored taps (3, 4).
struct Weights {
    __m256i w[3][3];
    Weights() {
        for (int m = 0; m < 3; ++m) {
            const int a = kTaps[m][0], b = kTaps[m][1], c = kTaps[m][2];
            w[m][0] = weights(a, b);
            w[m][1] = weights(c, 0);
            w[m][2] = weights(b, a);
        }
    }
    // Kept in registers: the compiler would otherwise fold each into its
    // multiply-add as a memory operand, and the loads, not the arithmetic,
    // then set the pace.
    void pin(int m) {
        for (int i = 0; i < 3; ++i) __asm__("" : "+x"(w[m][i]));
    }
};

// Filter M over 32 outputs from the loads at offsets 0..4: e holds outputs
// 0, 2, .., 30, o outputs 1, 3, .., 31. Tap 2 pairs with a zero weight so
// that no product pair exceeds 127 * 255 (the multiply-adds saturate at
// 32767); the 16-bit sums wrap (H2 reaches 64515, read as unsigned).
template <int M>
[[gnu::always_inline]] inline void filter(const Weights& k, const __m256i (&l)[5], __m256i& e, __m256i& o) {
    const __m256i outer = k.w[M][0], centre = k.w[M][1], mirrored = k.w[M][2];
    e = _mm256_add_epi16(_mm256_add_epi16(_mm256_maddubs_epi16(l[0], outer), _mm256_maddubs_epi16(l[2], centre)),
                         _mm256_maddubs_epi16(l[3], mirrored));
    o = _mm256_add_epi16(_mm256_add_epi16(_mm256_maddubs_epi16(l[1], outer), _mm256_maddubs_epi16(l[3], centre)),
                         _mm256_maddubs_epi16(l[4], mirrored));
}

[[gnu::always_inline]] inline void loads(const Rok8u* s, __m256i (&l)[5]) {
    for (int k = 0; k < 5; ++k) l[k] = load(s + k);
}

// The value before the final shift, from H0 of rows y-2 and y+2 (each
// with half the rounding term), H1 of rows y-1 and y+1, and H2 of row y.
[[gnu::always_inline]] inline __m256i combine(__m256i a0, __m256i a4, __m256i b1, __m256i b3, __m256i c) {
    const __m256i k = _mm256_set1_epi16(std::int16_t(kMul));
    const __m256i u = _mm256_add_epi16(a0, a4);  // at most 15586
    const __m256i v = _mm256_add_epi16(b1, b3);  // at most 65280
    const __m256i s = _mm256_add_epi16(u, v);
    const __m256i t = _mm256_add_epi16(s, c);
    // A wrapped unsigned sum is below the addend it started from: where
    // the larger of the two is the sum, nothing wrapped. Compares and
    // masks rather than saturating subtracts and a multiply, which share
    // the two pipes of the multiply-adds.
    const __m256i kept1 = _mm256_cmpeq_epi16(_mm256_max_epu16(u, s), s);
    const __m256i kept2 = _mm256_cmpeq_epi16(_mm256_max_epu16(s, t), t);
    const __m256i high = _mm256_add_epi16(_mm256_andnot_si256(kept1, k), _mm256_andnot_si256(kept2, k));
    return _mm256_add_epi16(high, _mm256_mulhi_epu16(t, k));
}

}  // namespace

// Blocks of 32 outputs per pass: the ring lines the first pass writes are
// still in the level-1 cache for the second (16 blocks took 1.02 of the
// time at 1920x1080, 64 and whole rows the same as 32).
constexpr int kChunk = 32;

std::size_t gauss5_ring_bytes(int width) { return std::size_t(5) * std::size_t((width + 31) / 32) * 128; }

void gauss5_rows(const Rok8u* src, int srcStep, Rok8u* dst, int dstStep, int width, int first, int last, void* ring,
                 bool stream) {
    // Blocks of 32 outputs at 32 b, the last one ending at the row's end
    // (overlapping its neighbour where the width is no multiple of 32, with
    // a ring slot of its own). A ring slot holds H0 even, H0 odd, H1 even,
    // H1 odd of one source row, H0 with half the rounding term (143) added,
    // at most 7793.
    const int blocks = (width + 31) / 32;
    auto at = [&](int r) { return src + std::ptrdiff_t(r) * srcStep - 2; };
    auto slots = [&](int r) { return static_cast<__m256i*>(ring) + std::ptrdiff_t((r % 5 + 5) % 5) * blocks * 4; };
    auto start = [&](int b) { return b * 32 + 32 > width ? width - 32 : b * 32; };

    // H0 and H1 of source row r into its ring slots.
    auto enter = [&](int r, int from, int to) {
        Weights k;
        k.pin(0);
        k.pin(1);
        const __m256i half = _mm256_set1_epi16(kRound / 2);
        const Rok8u* s = at(r);
        __m256i* q = slots(r);
        for (int b = from; b < to; ++b) {
            __m256i l[5], e0, o0, e1, o1;
            loads(s + start(b), l);
            filter<0>(k, l, e0, o0);
            filter<1>(k, l, e1, o1);
            store(q + 4 * b, _mm256_add_epi16(e0, half));
            store(q + 4 * b + 1, _mm256_add_epi16(o0, half));
            store(q + 4 * b + 2, e1);
            store(q + 4 * b + 3, o1);
        }
    };
    for (int r = first - 2; r < first + 2; ++r) enter(r, 0, blocks);

    // Two passes over each chunk of blocks: source row y + 2 into the ring,
    // then H2 of row y and the results. One pass over both would need more
    // weights and constants than the sixteen vector registers hold (each
    // multiply-add then loads its weights); the first pass, bound by the
    // two pipes of its multiply-adds, has room for the rounding adds.
    // Slower, as measured: H2 made in the first pass and kept in the ring
    // (1.07 of the time), u and v formed in the first pass (no gain), and
    // the columns in vertical strips with a ring each (1.2).
    // Also slower on this kernel: carries counted by saturating subtracts
    // and a minimum, scaled by one multiply (1.03 of the time; those share
    // the pipes of the multiply-adds), the two carry masks scaled by one
    // multiply (1.03), block loops that take the overlapping last block
    // apart instead of choosing each block's start (1.04-1.09, the compiler
    // then spills the first pass's weights), padding the ring's rows off
    // 4 KiB strides (no gain) and chunks of 1, 2 or 4 blocks (1.08-1.4).
    // Output bytes: even results shifted down into the low byte of each
    // word, odd results already in the high byte. (The multiplier of 14691
    // with a shift of 7 needed a shift for each; at one thread 1920x1080
    // took 0.98-0.99 of that time.)
    const __m256i oddBytes = _mm256_set1_epi16(std::int16_t(0x8000));
    for (int y = first; y < last; ++y) {
        const Rok8u* centre = at(y);
        const __m256i* fresh = slots(y + 2);
        const __m256i* r0 = slots(y - 2);
        const __m256i* r1 = slots(y - 1);
        const __m256i* r3 = slots(y + 1);
        Rok8u* out = dst + std::ptrdiff_t(y) * dstStep;
        // Streaming stores only for whole 64-byte lines that no ordinary
        // store of the row touches: rows starting on a line, up to the last
        // line before the overlapping last block.
        int streamEnd = 0;
        if (stream && reinterpret_cast<std::uintptr_t>(out) % 64 == 0)
            streamEnd = (width % 32 == 0 ? width : width - 32) / 64 * 64;
        for (int from = 0; from < blocks; from += kChunk) {
            const int to = from + kChunk < blocks ? from + kChunk : blocks;
            enter(y + 2, from, to);
            Weights k;
            k.pin(2);
            for (int b = from; b < to; ++b) {
                const int x = start(b);
                __m256i l[5], e2, o2;
                loads(centre + x, l);
                filter<2>(k, l, e2, o2);
                const __m256i even = _mm256_srli_epi16(
                    combine(load(r0 + 4 * b), load(fresh + 4 * b), load(r1 + 4 * b + 2), load(r3 + 4 * b + 2), e2), 8);
                const __m256i odd = combine(load(r0 + 4 * b + 1), load(fresh + 4 * b + 1), load(r1 + 4 * b + 3),
                                            load(r3 + 4 * b + 3), o2);
                const __m256i bytes = _mm256_blendv_epi8(even, odd, oddBytes);
                if ((x | 63) + 1 <= streamEnd) _mm256_stream_si256(reinterpret_cast<__m256i*>(out + x), bytes);
                else store(out + x, bytes);
            }
        }
    }
}

}  // namespace rok::kernels::fixed
