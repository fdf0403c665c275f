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
// Each pass is a loop of its own, out of line, with its constants in
// registers and one index stepping every address (the source at x, the
// ring at 4 x): the block loops that picked each block's start and kept
// four ring pointers spent about 17 scalar instructions a block beside
// some 60 vector ones, and the core issues few more than five a cycle
// (1920x1080 at one thread 0.96 of the time without them).
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

// The values before the final shift of the even (0) and odd (1) halves of
// a block, from H0 of rows y-2 and y+2 (each with half the rounding term),
// H1 of rows y-1 and y+1, and H2 of row y. The halves go step by step side
// by side (1920x1080 at one thread 0.99 of the time of one half after the
// other).
using Halves = __m256i[2];
[[gnu::always_inline]] inline void combine(const Halves& a0, const Halves& a4, const Halves& b1, const Halves& b3,
                                           const Halves& c, Halves& r) {
    const __m256i k = _mm256_set1_epi16(std::int16_t(kMul));
    __m256i u[2], v[2], s[2], t[2], over1[2], kept2[2];
    for (int i = 0; i < 2; ++i) u[i] = _mm256_add_epi16(a0[i], a4[i]);  // at most 15586
    for (int i = 0; i < 2; ++i) v[i] = _mm256_add_epi16(b1[i], b3[i]);  // at most 65280
    for (int i = 0; i < 2; ++i) s[i] = _mm256_add_epi16(u[i], v[i]);
    for (int i = 0; i < 2; ++i) t[i] = _mm256_add_epi16(s[i], c[i]);
    // A wrapped unsigned sum is below the addend it started from. u + v
    // wraps only where v > 65536 - u, so u - s is then 65536 - v, from 256
    // to 15586, and the saturating u - s is 0 elsewhere: its sign scales
    // the multiplier directly (two operations; 1920x1080 at one thread
    // 0.99 of the time of a compare and a mask). Both addends of s + c
    // reach past 32767, so there the larger of s and t being t, compared
    // and masked, tells that nothing wrapped. (Saturating subtracts, a
    // minimum and one multiply for both took 1.03 of the time: those
    // share the two pipes of the multiply-adds.)
    for (int i = 0; i < 2; ++i) over1[i] = _mm256_subs_epu16(u[i], s[i]);
    for (int i = 0; i < 2; ++i) kept2[i] = _mm256_cmpeq_epi16(_mm256_max_epu16(s[i], t[i]), t[i]);
    for (int i = 0; i < 2; ++i)
        r[i] = _mm256_add_epi16(_mm256_sign_epi16(k, over1[i]), _mm256_andnot_si256(kept2[i], k));
    for (int i = 0; i < 2; ++i) r[i] = _mm256_add_epi16(r[i], _mm256_mulhi_epu16(t[i], k));
}

}  // namespace

// Blocks of 32 outputs per pass. Rows of up to 64 blocks take each pass
// over the whole row (1920x1080 at one thread 0.98 of the time with chunks
// of 32 blocks); wider rows take chunks of 32, so that the ring lines the
// first pass writes are still in the level-1 cache for the second (3840x2160
// took 1.0-1.06 of that time with chunks of 60; the older kernel measured
// 16 blocks at 1.02 of the time of 32).
constexpr int kWholeRow = 64, kChunk = 32;

std::size_t gauss5_ring_bytes(int width) { return std::size_t(5) * std::size_t((width + 31) / 32) * 128; }

namespace {

// a += the H0 weight j times l, b += the H1 weight j times l.
[[gnu::always_inline]] inline void add_taps(const Weights& k, int j, __m256i l, __m256i& a, __m256i& b) {
    a = _mm256_add_epi16(a, _mm256_maddubs_epi16(l, k.w[0][j]));
    b = _mm256_add_epi16(b, _mm256_maddubs_epi16(l, k.w[1][j]));
}

// H0 and H1 of the 32 samples from s + 2 on into the ring block q (H0 even,
// H0 odd, H1 even, H1 odd), H0 with half the rounding term (143) added, at
// most 7793.
[[gnu::always_inline]] inline void enter_block(const Weights& k, __m256i half, const Rok8u* s, char* q) {
    // One load live at a time, each feeding both filters: with the six
    // weights and the rounding term that stays within the registers. The
    // load of s + 3 serves the even half's last taps and the odd half's
    // first.
    __m256i l = load(s);
    __m256i a = _mm256_maddubs_epi16(l, k.w[0][0]), b = _mm256_maddubs_epi16(l, k.w[1][0]);
    add_taps(k, 1, load(s + 2), a, b);
    l = load(s + 3);
    add_taps(k, 2, l, a, b);
    store(q, _mm256_add_epi16(a, half));
    store(q + 64, b);
    a = _mm256_maddubs_epi16(l, k.w[0][1]);
    b = _mm256_maddubs_epi16(l, k.w[1][1]);
    add_taps(k, 0, load(s + 1), a, b);
    add_taps(k, 2, load(s + 4), a, b);
    store(q + 32, _mm256_add_epi16(a, half));
    store(q + 96, b);
}

// The 32 results from row y's samples at c + 2 on and the ring blocks of
// rows y - 2 (r0), y - 1 (r1), y + 1 (r3) and y + 2 (r4). Output bytes:
// even results shifted down into the low byte of each word, odd results
// already in the high byte.
[[gnu::always_inline]] inline __m256i result_block(const Weights& k, __m256i oddBytes, const Rok8u* c, const char* r0,
                                                   const char* r1, const char* r3, const char* r4) {
    __m256i l[5], h2[2], r[2];
    loads(c, l);
    filter<2>(k, l, h2[0], h2[1]);
    const Halves a0 = {load(r0), load(r0 + 32)}, a4 = {load(r4), load(r4 + 32)};
    const Halves b1 = {load(r1 + 64), load(r1 + 96)}, b3 = {load(r3 + 64), load(r3 + 96)};
    combine(a0, a4, b1, b3, h2, r);
    return _mm256_blendv_epi8(_mm256_srli_epi16(r[0], 8), r[1], oddBytes);
}

// n blocks of source row s (from s + 2 on) into the ring row q (4 bytes a
// sample). Out of line, so that the six weights and the rounding term
// stay in registers (inlined, the compiler spilled two of them). Two
// blocks an iteration: 1920x1080 at one thread about 0.99 of the time.
// Where pf is not 0, each 64 bytes of the row pf bytes on (the next
// source row) are fetched into the second-level cache: rows taken in
// chunks interrupt the hardware's stream along the row, and 3840x2160 at
// one thread took 0.90-0.98 of the time with it (rows in one pass, and
// images that the last-level cache holds, the same time as without).
[[gnu::noinline]] void enter_run(const Rok8u* s, char* q, std::ptrdiff_t n, std::ptrdiff_t pf = 0) {
    Weights k;
    k.pin(0);
    k.pin(1);
    const __m256i half = _mm256_set1_epi16(kRound / 2);
    std::ptrdiff_t x = 0;
    if (pf != 0) {
        for (; x + 32 < 32 * n; x += 64) {
            _mm_prefetch(reinterpret_cast<const char*>(s + x + pf), _MM_HINT_T1);
            enter_block(k, half, s + x, q + 4 * x);
            enter_block(k, half, s + x + 32, q + 4 * x + 128);
        }
    }
#pragma GCC unroll 2
    for (; x < 32 * n; x += 32) enter_block(k, half, s + x, q + 4 * x);
}

// n blocks of destination row out from row y's samples at c + 2 on and the
// ring rows of y - 2 (r0), y - 1 (r1), y + 1 (r3) and y + 2 (r4); Stream
// stores bypass the cache.
template <bool Stream>
[[gnu::noinline]] void result_run(const Rok8u* c, const char* r0, const char* r1, const char* r3, const char* r4,
                                  Rok8u* out, std::ptrdiff_t n) {
    Weights k;
    k.pin(2);
    const __m256i oddBytes = _mm256_set1_epi16(std::int16_t(0x8000));
#pragma GCC unroll 2
    for (std::ptrdiff_t x = 0; x < 32 * n; x += 32) {
        const __m256i bytes = result_block(k, oddBytes, c + x, r0 + 4 * x, r1 + 4 * x, r3 + 4 * x, r4 + 4 * x);
        if constexpr (Stream) _mm256_stream_si256(reinterpret_cast<__m256i*>(out + x), bytes);
        else store(out + x, bytes);
    }
}

}  // namespace

void gauss5_rows(const Rok8u* src, int srcStep, Rok8u* dst, int dstStep, int width, int first, int last, void* ring,
                 bool stream) {
    // Blocks of 32 outputs at x = 32 b, their ring slots at 4 x, and where
    // the width is no multiple of 32 a last block ending at the row's end
    // (overlapping its neighbour) with a ring slot of its own after the
    // others. A ring slot holds H0 even, H0 odd, H1 even, H1 odd of one
    // source row.
    const int blocks = (width + 31) / 32, whole = width / 32, chunk = whole <= kWholeRow ? whole : kChunk;
    const bool tail = whole != blocks;
    const std::ptrdiff_t tailX = width - 32, tailRing = std::ptrdiff_t(whole) * 128;
    auto at = [&](int r) { return src + std::ptrdiff_t(r) * srcStep - 2; };
    auto slots = [&](int r) {
        return static_cast<char*>(ring) + std::ptrdiff_t((r % 5 + 5) % 5) * blocks * 128;
    };

    // H0 and H1 of source row r into its ring slots: the whole blocks from
    // b0 to b1 - 1, and the last one with them.
    auto enter = [&](int r, int b0, int b1, bool withTail) {
        const Rok8u* s = at(r);
        char* q = slots(r);
        // The next row is fetched ahead where the row goes in chunks and
        // the next row is one the band reads.
        enter_run(s + 32 * b0, q + 128 * b0, b1 - b0, chunk < whole && r + 1 < last + 2 ? srcStep : 0);
        if (withTail) enter_run(s + tailX, q + tailRing, 1);
    };
    for (int r = first - 2; r < first + 2; ++r) enter(r, 0, whole, tail);

    // Two passes over each chunk of blocks: source row y + 2 into the ring,
    // then H2 of row y and the results. The first pass is bound by the two
    // pipes of its multiply-adds, the second by all four vector pipes.
    // Slower, as measured: one loop over both passes with the centre
    // weights read from memory (the registers hold no more; 1.05 of the
    // time), H2 made in the first pass and kept in the ring (1.07), u and v
    // formed in the first pass (no gain), vertical strips of 32 blocks with
    // a ring each (1.05; narrower ones up to 1.2), H2 made a block ahead of
    // its combination (no gain), loops unrolled by four rather than two
    // (no gain), the output bytes merged by and/or rather than the blend
    // (1.01-1.02), both passes in one call a row (no gain), the first pass
    // with four sums at once or two blocks side by side (the compiler
    // spills; 1.04-1.06), H1 doubled as 7 H0 + (0 13 20 13 0), two
    // multiply-adds fewer and three other operations more (1.02), carries
    // counted by saturating subtracts and a minimum (1.03), the two carry
    // masks scaled by one multiply (1.03), padding the ring's rows off
    // 4 KiB strides (no gain) and chunks of 1, 2 or 4 blocks (1.08-1.4).
    for (int y = first; y < last; ++y) {
        const Rok8u* centre = at(y);
        const char* r4 = slots(y + 2);
        const char* r0 = slots(y - 2);
        const char* r1 = slots(y - 1);
        const char* r3 = slots(y + 1);
        Rok8u* out = dst + std::ptrdiff_t(y) * dstStep;
        // Streaming stores only for whole 64-byte lines that no ordinary
        // store of the row touches: rows starting on a line, up to the last
        // line before the overlapping last block (whole blocks below sb).
        int sb = 0;
        if (stream && reinterpret_cast<std::uintptr_t>(out) % 64 == 0) sb = int((tail ? tailX : width) / 64 * 2);
        auto results = [&](std::ptrdiff_t x, std::ptrdiff_t q, int n, bool streaming) {
            if (streaming) result_run<true>(centre + x, r0 + q, r1 + q, r3 + q, r4 + q, out + x, n);
            else result_run<false>(centre + x, r0 + q, r1 + q, r3 + q, r4 + q, out + x, n);
        };
        for (int b0 = 0; b0 < whole; b0 += chunk) {
            const int b1 = b0 + chunk < whole ? b0 + chunk : whole;
            const bool withTail = tail && b1 == whole;
            enter(y + 2, b0, b1, withTail);
            const int bs = sb < b0 ? b0 : sb < b1 ? sb : b1;
            if (bs > b0) results(32 * b0, 128 * b0, bs - b0, true);
            if (b1 > bs) results(32 * bs, 128 * bs, b1 - bs, false);
            if (withTail) results(tailX, tailRing, 1, false);
        }
    }
}

}  // namespace rok::kernels::fixed
