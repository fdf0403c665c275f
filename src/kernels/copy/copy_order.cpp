#include "kernels/copy/copy_order.h"

#include "kernels/copy/copy_move.h"

#include <immintrin.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <type_traits>

namespace rok::kernels {

namespace {

using u8 = std::uint8_t;
using i8 = std::int8_t;

inline __m256i load32(const u8* p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)); }
inline void store32(u8* p, __m256i v) { _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), v); }

template <int PB>
constexpr bool is_colour_byte(int b) { return b % PB < PB * 3 / 4; }

template <int PB, bool KeepAlpha>
inline void put_pixel(const u8* s, u8* d) {
    for (int b = 0; b < (KeepAlpha ? PB * 3 / 4 : PB); ++b) d[b] = s[b];
}

template <int PB, bool KeepAlpha>
inline void swap_pixel(u8* a, u8* b) {
    for (int i = 0; i < (KeepAlpha ? PB * 3 / 4 : PB); ++i) std::swap(a[i], b[i]);
}

// Power-of-two pixels fill a 32-byte register exactly; the register's pixels
// are reversed by an in-lane byte shuffle and a swap of the two halves.
template <int PB>
constexpr bool kVectorPixel = PB == 1 || PB == 2 || PB == 4 || PB == 8 || PB == 16;

// Byte tables of the reversers below, built at compile time so that a call
// per row costs no set-up.
template <int PB>
struct ReverseTables {
    alignas(32) u8 idx[32];
    alignas(32) u8 colour[32];
    constexpr ReverseTables() : idx{}, colour{} {
        for (int j = 0; j < 32; ++j) {
            const int lane = j % 16, p = lane / PB, b = lane % PB;
            idx[j] = PB >= 16 ? u8(lane) : u8((16 / PB - 1 - p) * PB + b);
            colour[j] = is_colour_byte<PB>(j) ? 0xFF : 0x00;
        }
    }
};
template <int PB>
inline constexpr ReverseTables<PB> kReverse{};

template <int PB>
struct Reverser {
    static constexpr int kPixels = 32 / PB;
    __m256i shuffle, keep;
    Reverser() : shuffle(load32(kReverse<PB>.idx)), keep(load32(kReverse<PB>.colour)) {}
    __m256i operator()(__m256i v) const {
        return _mm256_permute4x64_epi64(_mm256_shuffle_epi8(v, shuffle), 0x4E);
    }
    // Stores v at d, keeping d's alpha bytes when asked.
    template <bool KeepAlpha>
    void put(u8* d, __m256i v) const {
        store32(d, KeepAlpha ? _mm256_blendv_epi8(load32(d), v, keep) : v);
    }
};

// Three-channel pixels have no power-of-two size, so in place they move in
// chunks of 12 bytes (4, 2 or 1 pixels): loaded as 16 bytes that hold the
// chunk at offset 0 ("head" chunk) or at offset 4 ("tail" chunk, loaded up
// to its end), reversed by a shuffle into bytes 0..11 and stored as exactly
// 12 bytes, so nothing outside the chunk is written.
template <int PB>
struct Chunk12Tables {
    alignas(16) i8 head[16];
    alignas(16) i8 tail[16];
    constexpr Chunk12Tables() : head{}, tail{} {
        for (int j = 0; j < 16; ++j) {
            const int at = (12 / PB - 1 - j / PB) * PB + j % PB;
            head[j] = i8(j < 12 ? at : 0x80);
            tail[j] = i8(j < 12 ? 4 + at : 0x80);
        }
    }
};
template <int PB>
inline constexpr Chunk12Tables<PB> kChunk12{};

template <int PB>
struct Chunk12 {
    static constexpr int kPixels = 12 / PB;
    __m128i fromHead, fromTail;
    Chunk12()
        : fromHead(_mm_load_si128(reinterpret_cast<const __m128i*>(kChunk12<PB>.head))),
          fromTail(_mm_load_si128(reinterpret_cast<const __m128i*>(kChunk12<PB>.tail))) {}
    static __m128i load_head(const u8* chunk) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(chunk)); }
    static __m128i load_tail(const u8* chunk) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(chunk - 4)); }
    static void store(u8* p, __m128i v) {
        _mm_storel_epi64(reinterpret_cast<__m128i*>(p), v);
        const int last = _mm_extract_epi32(v, 2);
        std::memcpy(p + 8, &last, 4);
    }
};

// Reverses the K = 16 / PB pixels that follow `spare` leading bytes of a
// 16-byte lane into its first K * PB bytes.
template <int PB>
struct SpareLaneTable {
    alignas(16) i8 idx[16];
    constexpr SpareLaneTable() : idx{} {
        constexpr int K = 16 / PB, spare = 16 - K * PB;
        for (int j = 0; j < 16; ++j) idx[j] = i8(j < K * PB ? spare + (K - 1 - j / PB) * PB + j % PB : 0x80);
    }
};
template <int PB>
inline constexpr SpareLaneTable<PB> kSpareLane{};

}  // namespace

template <class U, int SC, int DC, int NP>
void reorder_channels(const U* src, U* dst, int n, const int* order, U fill) {
    int ord[NP];
    for (int k = 0; k < NP; ++k) ord[k] = order[k];
    int i = 0;
    bool exact = true;
    for (int k = 0; k < NP; ++k) exact = exact && ord[k] < SC;
    constexpr bool kBytePixels = sizeof(U) == 1 && SC == DC && (NP == SC || (SC == 4 && NP == 3));
    if (!kBytePixels || !exact) i = reorder_runs<U, SC, DC, NP>(src, dst, n, ord, fill);
    if constexpr (kBytePixels) {
        // Whole 8-bit pixels reordered by one byte shuffle per 16-byte lane:
        // 5 three-channel pixels per lane (the 16th byte is the next pixel's
        // first sample, rewritten by the next lane or step, which always
        // exists since one more pixel remains) or 4 four-channel ones. Each
        // register is loaded before it is stored, so src == dst works. An
        // alpha channel that stays is taken back from the destination.
        constexpr int K = SC == 3 ? 5 : 4;
        alignas(16) std::int8_t idx[16];
        for (int j = 0; j < 16; ++j)
            idx[j] = std::int8_t(j / SC < K && j % SC < NP ? (j / SC) * SC + ord[j % SC] : j);
        const __m256i shuffle = _mm256_broadcastsi128_si256(_mm_load_si128(reinterpret_cast<const __m128i*>(idx)));
        const __m256i colour = _mm256_set1_epi32(0x00FFFFFF);
        for (; exact && n - i >= 2 * K + (SC == 3); i += 2 * K) {
            const U* s = src + std::size_t(i) * SC;
            U* d = dst + std::size_t(i) * DC;
            if constexpr (SC == 3) {
                const __m256i v = _mm256_inserti128_si256(
                    _mm256_castsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(s))),
                    _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + 3 * K)), 1);
                const __m256i r = _mm256_shuffle_epi8(v, shuffle);
                _mm_storeu_si128(reinterpret_cast<__m128i*>(d), _mm256_castsi256_si128(r));
                _mm_storeu_si128(reinterpret_cast<__m128i*>(d + 3 * K), _mm256_extracti128_si256(r, 1));
            } else {
                __m256i r = _mm256_shuffle_epi8(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(s)), shuffle);
                if constexpr (NP == 3) r = _mm256_blendv_epi8(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(d)), r, colour);
                _mm256_storeu_si256(reinterpret_cast<__m256i*>(d), r);
            }
        }
    }
    for (; i < n; ++i) {
        const U* s = src + std::size_t(i) * SC;
        U* d = dst + std::size_t(i) * DC;
        U in[SC];
        for (int c = 0; c < SC; ++c) in[c] = s[c];
        for (int k = 0; k < NP; ++k) {
            if (ord[k] < SC) d[k] = in[ord[k]];
            else if (ord[k] == SC) d[k] = fill;
        }
    }
}

template <int PB, bool KeepAlpha>
void reverse_pixels(const u8* src, u8* dst, int n) {
    int i = 0;
    if constexpr (PB == 3 || PB == 6 || PB == 12) {
        // K whole pixels fit in a 16-byte lane with `spare` bytes over. Each
        // lane is loaded starting `spare` bytes before its K source pixels
        // (an earlier source pixel is there) and reversed by one shuffle;
        // its last `spare` bytes belong to the next destination pixels,
        // which the next lane or step writes again, so the loop keeps one
        // pixel in hand. Two lanes, of consecutive destination pixels, per
        // register.
        constexpr int K = 16 / PB, spare = 16 - K * PB;
        const __m256i shuffle = _mm256_broadcastsi128_si256(_mm_load_si128(reinterpret_cast<const __m128i*>(kSpareLane<PB>.idx)));
        for (; n - i >= 2 * K + 1; i += 2 * K) {
            const u8* s0 = src + std::size_t(n - i - K) * PB - spare;
            const u8* s1 = src + std::size_t(n - i - 2 * K) * PB - spare;
            const __m256i v = _mm256_inserti128_si256(
                _mm256_castsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(s0))),
                _mm_loadu_si128(reinterpret_cast<const __m128i*>(s1)), 1);
            const __m256i r = _mm256_shuffle_epi8(v, shuffle);
            u8* d = dst + std::size_t(i) * PB;
            _mm_storeu_si128(reinterpret_cast<__m128i*>(d), _mm256_castsi256_si128(r));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(d + K * PB), _mm256_extracti128_si256(r, 1));
        }
    }
    if constexpr (kVectorPixel<PB>) {
        const Reverser<PB> rev;
        constexpr int K = Reverser<PB>::kPixels;
        for (; i + K <= n; i += K)
            rev.template put<KeepAlpha>(dst + std::size_t(i) * PB, rev(load32(src + std::size_t(n - i - K) * PB)));
    }
    for (; i < n; ++i) put_pixel<PB, KeepAlpha>(src + std::size_t(n - 1 - i) * PB, dst + std::size_t(i) * PB);
}

template <int PB, bool KeepAlpha>
void reverse_pixels_inplace(u8* row, int n) {
    int l = 0, r = n;  // pixels [l, r) still to reverse
    if constexpr (PB == 3 || PB == 6 || PB == 12) {
        // The 16-byte loads reach 4 bytes into the unreversed middle.
        const Chunk12<PB> c;
        constexpr int K = Chunk12<PB>::kPixels;
        for (; (r - l) * PB >= 24 + 4; l += K, r -= K) {
            u8* a = row + std::size_t(l) * PB;
            u8* b = row + std::size_t(r - K) * PB;
            const __m128i va = c.load_head(a), vb = c.load_tail(b);
            c.store(a, _mm_shuffle_epi8(vb, c.fromTail));
            c.store(b, _mm_shuffle_epi8(va, c.fromHead));
        }
    }
    if constexpr (kVectorPixel<PB>) {
        const Reverser<PB> rev;
        constexpr int K = Reverser<PB>::kPixels;
        for (; r - l >= 2 * K; l += K, r -= K) {
            u8* a = row + std::size_t(l) * PB;
            u8* b = row + std::size_t(r - K) * PB;
            const __m256i va = load32(a), vb = load32(b);
            rev.template put<KeepAlpha>(a, rev(vb));
            rev.template put<KeepAlpha>(b, rev(va));
        }
    }
    for (; r - l >= 2; ++l, --r) swap_pixel<PB, KeepAlpha>(row + std::size_t(l) * PB, row + std::size_t(r - 1) * PB);
}

template <int PB, bool KeepAlpha>
void swap_rows(u8* a, u8* b, int n) {
    const std::size_t bytes = std::size_t(n) * PB;
    std::size_t i = 0;
    if constexpr (kVectorPixel<PB> || !KeepAlpha) {
        const __m256i keep = load32(kReverse<PB>.colour);  // used only when alpha stays
        for (; i + 32 <= bytes; i += 32) {
            const __m256i va = load32(a + i), vb = load32(b + i);
            store32(a + i, KeepAlpha ? _mm256_blendv_epi8(va, vb, keep) : vb);
            store32(b + i, KeepAlpha ? _mm256_blendv_epi8(vb, va, keep) : va);
        }
    }
    for (; i < bytes; ++i)
        if (!KeepAlpha || is_colour_byte<PB>(int(i % PB))) std::swap(a[i], b[i]);
}

template <int PB, bool KeepAlpha>
void swap_rows_reversed(u8* a, u8* b, int n) {
    int i = 0;
    if constexpr (PB == 3 || PB == 6 || PB == 12) {
        // Pixel i of a meets pixel n-1-i of b; the 16-byte loads reach 4
        // bytes past a's chunk and before b's, still inside the rows.
        const Chunk12<PB> c;
        constexpr int K = Chunk12<PB>::kPixels;
        for (; (n - i - K) * PB >= 4; i += K) {
            u8* pa = a + std::size_t(i) * PB;
            u8* pb = b + std::size_t(n - i - K) * PB;
            const __m128i va = c.load_head(pa), vb = c.load_tail(pb);
            c.store(pa, _mm_shuffle_epi8(vb, c.fromTail));
            c.store(pb, _mm_shuffle_epi8(va, c.fromHead));
        }
    }
    if constexpr (kVectorPixel<PB>) {
        const Reverser<PB> rev;
        constexpr int K = Reverser<PB>::kPixels;
        for (; i + K <= n; i += K) {
            u8* pa = a + std::size_t(i) * PB;
            u8* pb = b + std::size_t(n - i - K) * PB;
            const __m256i va = load32(pa), vb = load32(pb);
            rev.template put<KeepAlpha>(pa, rev(vb));
            rev.template put<KeepAlpha>(pb, rev(va));
        }
    }
    for (; i < n; ++i) swap_pixel<PB, KeepAlpha>(a + std::size_t(i) * PB, b + std::size_t(n - 1 - i) * PB);
}

// 16 x 16 bytes: four rounds of pairwise interleaving (8-, 16-, 32-, then
// 64-bit units), each a perfect shuffle of the rows.
inline void transpose_16x16(const u8* src, int srcStep, u8* dst, int dstStep) {
    __m128i r[16], t[16];
    for (int i = 0; i < 16; ++i) r[i] = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + std::ptrdiff_t(i) * srcStep));
    for (int i = 0; i < 8; ++i) {
        t[i] = _mm_unpacklo_epi8(r[2 * i], r[2 * i + 1]);
        t[i + 8] = _mm_unpackhi_epi8(r[2 * i], r[2 * i + 1]);
    }
    for (int i = 0; i < 8; ++i) {
        r[i] = _mm_unpacklo_epi16(t[2 * i], t[2 * i + 1]);
        r[i + 8] = _mm_unpackhi_epi16(t[2 * i], t[2 * i + 1]);
    }
    for (int i = 0; i < 8; ++i) {
        t[i] = _mm_unpacklo_epi32(r[2 * i], r[2 * i + 1]);
        t[i + 8] = _mm_unpackhi_epi32(r[2 * i], r[2 * i + 1]);
    }
    for (int i = 0; i < 8; ++i) {
        r[i] = _mm_unpacklo_epi64(t[2 * i], t[2 * i + 1]);
        r[i + 8] = _mm_unpackhi_epi64(t[2 * i], t[2 * i + 1]);
    }
    // The shuffles leave source column bit-reverse(i) in register i.
    static constexpr int kBitReversed[16] = {0, 8, 4, 12, 2, 10, 6, 14, 1, 9, 5, 13, 3, 11, 7, 15};
    for (int i = 0; i < 16; ++i)
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + std::ptrdiff_t(kBitReversed[i]) * dstStep), r[i]);
}

// 4 x 4 samples of 4 bytes: interleave 32-bit then 64-bit units.
inline void transpose_4x4(const u8* src, int srcStep, u8* dst, int dstStep) {
    __m128i r[4];
    for (int i = 0; i < 4; ++i) r[i] = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + std::ptrdiff_t(i) * srcStep));
    const __m128i t0 = _mm_unpacklo_epi32(r[0], r[1]), t1 = _mm_unpacklo_epi32(r[2], r[3]);
    const __m128i t2 = _mm_unpackhi_epi32(r[0], r[1]), t3 = _mm_unpackhi_epi32(r[2], r[3]);
    const __m128i o[4] = {_mm_unpacklo_epi64(t0, t1), _mm_unpackhi_epi64(t0, t1), _mm_unpacklo_epi64(t2, t3),
                          _mm_unpackhi_epi64(t2, t3)};
    for (int i = 0; i < 4; ++i) _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + std::ptrdiff_t(i) * dstStep), o[i]);
}

// 8 x 8 samples of 2 bytes: interleave 16-, 32-, then 64-bit units; as in
// the 16 x 16 case, register i ends with source column bit-reverse(i).
inline void transpose_8x8(const u8* src, int srcStep, u8* dst, int dstStep) {
    __m128i r[8], t[8];
    for (int i = 0; i < 8; ++i) r[i] = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + std::ptrdiff_t(i) * srcStep));
    for (int i = 0; i < 4; ++i) {
        t[i] = _mm_unpacklo_epi16(r[2 * i], r[2 * i + 1]);
        t[i + 4] = _mm_unpackhi_epi16(r[2 * i], r[2 * i + 1]);
    }
    for (int i = 0; i < 4; ++i) {
        r[i] = _mm_unpacklo_epi32(t[2 * i], t[2 * i + 1]);
        r[i + 4] = _mm_unpackhi_epi32(t[2 * i], t[2 * i + 1]);
    }
    for (int i = 0; i < 4; ++i) {
        t[i] = _mm_unpacklo_epi64(r[2 * i], r[2 * i + 1]);
        t[i + 4] = _mm_unpackhi_epi64(r[2 * i], r[2 * i + 1]);
    }
    static constexpr int kBitReversed[8] = {0, 4, 2, 6, 1, 5, 3, 7};
    for (int i = 0; i < 8; ++i)
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + std::ptrdiff_t(kBitReversed[i]) * dstStep), t[i]);
}

// 4 x 4 samples of 8 bytes: interleave 64-bit units, then 128-bit halves.
inline void transpose_4x4_wide(const u8* src, int srcStep, u8* dst, int dstStep) {
    __m256i r[4];
    for (int i = 0; i < 4; ++i) r[i] = load32(src + std::ptrdiff_t(i) * srcStep);
    const __m256i t0 = _mm256_unpacklo_epi64(r[0], r[1]), t1 = _mm256_unpackhi_epi64(r[0], r[1]);
    const __m256i t2 = _mm256_unpacklo_epi64(r[2], r[3]), t3 = _mm256_unpackhi_epi64(r[2], r[3]);
    store32(dst, _mm256_permute2x128_si256(t0, t2, 0x20));
    store32(dst + dstStep, _mm256_permute2x128_si256(t1, t3, 0x20));
    store32(dst + 2 * std::ptrdiff_t(dstStep), _mm256_permute2x128_si256(t0, t2, 0x31));
    store32(dst + 3 * std::ptrdiff_t(dstStep), _mm256_permute2x128_si256(t1, t3, 0x31));
}

// 4 x 4 pixels of 16 bytes: each 32-byte load holds two pixels of a source
// row, and each destination register joins one pixel of two source rows.
inline void transpose_4x4_px16(const u8* src, int srcStep, u8* dst, int dstStep) {
    __m256i r[4][2];
    for (int i = 0; i < 4; ++i)
        for (int g = 0; g < 2; ++g) r[i][g] = load32(src + std::ptrdiff_t(i) * srcStep + 32 * g);
    for (int j = 0; j < 4; ++j) {
        u8* d = dst + std::ptrdiff_t(j) * dstStep;
        const int g = j / 2;
        if (j % 2) {
            store32(d, _mm256_permute2x128_si256(r[0][g], r[1][g], 0x31));
            store32(d + 32, _mm256_permute2x128_si256(r[2][g], r[3][g], 0x31));
        } else {
            store32(d, _mm256_permute2x128_si256(r[0][g], r[1][g], 0x20));
            store32(d + 32, _mm256_permute2x128_si256(r[2][g], r[3][g], 0x20));
        }
    }
}

// 4 x 4 pixels of 12 bytes (three 32-bit samples). Each source pixel is
// loaded as 16 bytes holding it in units 0..2 (pixel 3 of a row, loaded up
// to the row's end so nothing past the tile is read, in units 1..3), and
// each destination row of four pixels is put together from them as three
// registers of four units.
inline void transpose_4x4_px12(const u8* src, int srcStep, u8* dst, int dstStep) {
    auto load = [](const u8* p) { return _mm_castsi128_ps(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p))); };
    auto store = [](u8* p, __m128 v) { _mm_storeu_si128(reinterpret_cast<__m128i*>(p), _mm_castps_si128(v)); };
    __m128 x[4][4];
    for (int i = 0; i < 4; ++i) {
        const u8* row = src + std::ptrdiff_t(i) * srcStep;
        for (int j = 0; j < 3; ++j) x[j][i] = load(row + 12 * j);
        x[3][i] = load(row + 32);
    }
    for (int j = 0; j < 3; ++j) {
        const __m128* p = x[j];
        u8* d = dst + std::ptrdiff_t(j) * dstStep;
        store(d, _mm_insert_ps(p[0], p[1], (0 << 6) | (3 << 4)));
        store(d + 16, _mm_shuffle_ps(p[1], p[2], _MM_SHUFFLE(1, 0, 2, 1)));
        store(d + 32, _mm_insert_ps(_mm_castsi128_ps(_mm_slli_si128(_mm_castps_si128(p[3]), 4)), p[2], (2 << 6) | (0 << 4)));
    }
    const __m128* p = x[3];
    u8* d = dst + 3 * std::ptrdiff_t(dstStep);
    store(d, _mm_insert_ps(_mm_castsi128_ps(_mm_srli_si128(_mm_castps_si128(p[0]), 4)), p[1], (1 << 6) | (3 << 4)));
    store(d + 16, _mm_shuffle_ps(p[1], p[2], _MM_SHUFFLE(2, 1, 3, 2)));
    store(d + 32, _mm_insert_ps(p[3], p[2], (3 << 6) | (0 << 4)));
}

// The piece a pixel moves as when it may carry spare bytes: the next power
// of two for 3, 6 and 12 bytes, the pixel itself otherwise.
template <int PB>
constexpr int kWidePixel = PB == 3 ? 4 : PB == 6 ? 8 : PB == 12 ? 16 : PB;

template <int PB>
void transpose_narrow(const u8* src, int srcStep, u8* dst, int dstStep, int w, int h) {
    if constexpr (PB == 1 || PB == 2 || PB == 4 || PB == 8 || PB == 12 || PB == 16) {
        // Whole vector tiles (16 x 16 bytes, 8 x 8 or 4 x 4 pixels); the
        // edge strips by the loop below.
        constexpr int T = PB == 1 ? 16 : PB == 2 ? 8 : 4;
        if (w >= T && h >= T) {
            const int wt = w / T * T, ht = h / T * T;
            for (int y = 0; y < ht; y += T)
                for (int x = 0; x < wt; x += T) {
                    const u8* s = src + std::ptrdiff_t(y) * srcStep + std::size_t(x) * PB;
                    u8* d = dst + std::ptrdiff_t(x) * dstStep + std::size_t(y) * PB;
                    if constexpr (PB == 1) transpose_16x16(s, srcStep, d, dstStep);
                    else if constexpr (PB == 2) transpose_8x8(s, srcStep, d, dstStep);
                    else if constexpr (PB == 4) transpose_4x4(s, srcStep, d, dstStep);
                    else if constexpr (PB == 8) transpose_4x4_wide(s, srcStep, d, dstStep);
                    else if constexpr (PB == 12) transpose_4x4_px12(s, srcStep, d, dstStep);
                    else transpose_4x4_px16(s, srcStep, d, dstStep);
                }
            if (wt < w)
                transpose_narrow<PB>(src + std::size_t(wt) * PB, srcStep, dst + std::ptrdiff_t(wt) * dstStep, dstStep, w - wt, h);
            if (ht < h)
                transpose_narrow<PB>(src + std::ptrdiff_t(ht) * srcStep, srcStep, dst + std::size_t(ht) * PB, dstStep, wt, h - ht);
            return;
        }
    }
    // Four destination rows per pass read four neighbouring source pixels
    // of each source row together. Pixels of 3, 6 and 12 bytes move as one
    // 4-, 8- or 16-byte piece wherever the spare bytes stay inside the
    // block: the read then runs into the next source pixel of the row, and
    // the write into the next destination pixel, which the following step
    // writes over with its own value. The last pixel of a destination row
    // and the last source column move exactly.
    constexpr int W = kWidePixel<PB>;
    int x = 0;
    for (; x + 4 <= w; x += 4) {
        u8* d0 = dst + std::ptrdiff_t(x) * dstStep;
        u8* d1 = d0 + dstStep;
        u8* d2 = d1 + dstStep;
        u8* d3 = d2 + dstStep;
        const bool lastWide = x + 4 < w;
        int y = 0;
        for (; y + 1 < h; ++y) {
            const u8* s = src + std::ptrdiff_t(y) * srcStep + std::size_t(x) * PB;
            const std::size_t at = std::size_t(y) * PB;
            std::memcpy(d0 + at, s, W);
            std::memcpy(d1 + at, s + PB, W);
            std::memcpy(d2 + at, s + 2 * PB, W);
            if (lastWide) std::memcpy(d3 + at, s + 3 * PB, W);
            else std::memcpy(d3 + at, s + 3 * PB, PB);
        }
        const u8* s = src + std::ptrdiff_t(y) * srcStep + std::size_t(x) * PB;
        const std::size_t at = std::size_t(y) * PB;
        std::memcpy(d0 + at, s, PB);
        std::memcpy(d1 + at, s + PB, PB);
        std::memcpy(d2 + at, s + 2 * PB, PB);
        std::memcpy(d3 + at, s + 3 * PB, PB);
    }
    for (; x < w; ++x) {
        u8* d = dst + std::ptrdiff_t(x) * dstStep;
        const bool wide = x + 1 < w;
        int y = 0;
        for (; y + 1 < h; ++y) {
            const u8* s = src + std::ptrdiff_t(y) * srcStep + std::size_t(x) * PB;
            if (wide) std::memcpy(d + std::size_t(y) * PB, s, W);
            else std::memcpy(d + std::size_t(y) * PB, s, PB);
        }
        std::memcpy(d + std::size_t(y) * PB, src + std::ptrdiff_t(y) * srcStep + std::size_t(x) * PB, PB);
    }
}

// Unit interleave of one round of the in-lane transposes below.
template <int Bytes>
inline __m256i unpack(__m256i a, __m256i b, bool high) {
    if constexpr (Bytes == 2) return high ? _mm256_unpackhi_epi16(a, b) : _mm256_unpacklo_epi16(a, b);
    else if constexpr (Bytes == 4) return high ? _mm256_unpackhi_epi32(a, b) : _mm256_unpacklo_epi32(a, b);
    else return high ? _mm256_unpackhi_epi64(a, b) : _mm256_unpacklo_epi64(a, b);
}

// Transposes, within each 128-bit lane, the K x K matrix of E-byte samples
// whose row i is lane of r[i] (K = 16 / E): rounds of pairwise interleaving
// at E, 2E, ... 8 bytes. As in the 128-bit tiles, register i ends with
// column bit-reverse(i).
template <int E>
inline void lane_transpose(__m256i (&r)[16 / E]) {
    constexpr int K = 16 / E;
    __m256i t[K];
    auto round = [&](auto unit, __m256i (&in)[K], __m256i (&out)[K]) {
        for (int i = 0; i < K / 2; ++i) {
            out[i] = unpack<decltype(unit)::value>(in[2 * i], in[2 * i + 1], false);
            out[i + K / 2] = unpack<decltype(unit)::value>(in[2 * i], in[2 * i + 1], true);
        }
    };
    if constexpr (E == 2) {
        round(std::integral_constant<int, 2>{}, r, t);
        round(std::integral_constant<int, 4>{}, t, r);
        round(std::integral_constant<int, 8>{}, r, t);
        for (int i = 0; i < K; ++i) r[i] = t[i];
    } else {
        round(std::integral_constant<int, 4>{}, r, t);
        round(std::integral_constant<int, 8>{}, t, r);
    }
}

constexpr int bit_reverse(int i, int bits) {
    int o = 0;
    for (int b = 0; b < bits; ++b) o |= ((i >> b) & 1) << (bits - 1 - b);
    return o;
}

// A 2K x 2K tile of E-byte samples (K = 16 / E: 8 x 8 of 4 bytes, 16 x 16 of
// 2 bytes) through 256-bit registers. Register i of a column group holds
// source row i in its low lane and row i + K in its high lane, each 16 bytes
// of that group's columns; the lane transposes then leave whole destination
// rows of 2K samples, so every store is a full 32-byte row and no
// cross-lane permute is needed (the high lanes come in with the loads).
template <int E>
inline void transpose_wide(const u8* src, int srcStep, u8* dst, int dstStep) {
    constexpr int K = 16 / E;
    constexpr int kBits = E == 2 ? 3 : 2;
    for (int g = 0; g < 2; ++g) {
        __m256i r[K];
        for (int i = 0; i < K; ++i) {
            const u8* lo = src + std::ptrdiff_t(i) * srcStep + 16 * g;
            const u8* hi = lo + std::ptrdiff_t(K) * srcStep;
            r[i] = _mm256_inserti128_si256(_mm256_castsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(lo))),
                                           _mm_loadu_si128(reinterpret_cast<const __m128i*>(hi)), 1);
        }
        lane_transpose<E>(r);
        for (int i = 0; i < K; ++i) store32(dst + std::ptrdiff_t(g * K + bit_reverse(i, kBits)) * dstStep, r[i]);
    }
}

// 8 x 8 pixels of 3 bytes. Each pixel is spread to a 32-bit unit as it is
// loaded: register i of a column group holds pixels 4g..4g+3 of source row
// i in its low lane and of row i + 4 in its high lane (16-byte loads at
// byte 0 and byte 8 of the row's 24, so nothing past the tile is read).
// The lane transposes leave destination row 4g + j as eight units, which
// are packed back to 24 bytes and stored as 16 + 8 bytes.
inline void transpose_8x8_px3(const u8* src, int srcStep, u8* dst, int dstStep) {
    alignas(32) static constexpr i8 kSpread[2][32] = {
        {0, 1, 2, -1, 3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11, -1, 0, 1, 2, -1, 3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11, -1},
        {4, 5, 6, -1, 7, 8, 9, -1, 10, 11, 12, -1, 13, 14, 15, -1, 4, 5, 6, -1, 7, 8, 9, -1, 10, 11, 12, -1, 13, 14, 15, -1}};
    alignas(32) static constexpr i8 kPack[32] = {0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1,
                                                 0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1};
    const __m256i pack = _mm256_load_si256(reinterpret_cast<const __m256i*>(kPack));
    const __m256i join = _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 6, 6);
    for (int g = 0; g < 2; ++g) {
        const __m256i spread = _mm256_load_si256(reinterpret_cast<const __m256i*>(kSpread[g]));
        __m256i r[4];
        for (int i = 0; i < 4; ++i) {
            const u8* lo = src + std::ptrdiff_t(i) * srcStep + 8 * g;
            const u8* hi = lo + 4 * std::ptrdiff_t(srcStep);
            const __m256i v = _mm256_inserti128_si256(_mm256_castsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(lo))),
                                                      _mm_loadu_si128(reinterpret_cast<const __m128i*>(hi)), 1);
            r[i] = _mm256_shuffle_epi8(v, spread);
        }
        lane_transpose<4>(r);
        for (int i = 0; i < 4; ++i) {
            const __m256i row = _mm256_permutevar8x32_epi32(_mm256_shuffle_epi8(r[i], pack), join);
            u8* d = dst + std::ptrdiff_t(4 * g + bit_reverse(i, 2)) * dstStep;
            _mm_storeu_si128(reinterpret_cast<__m128i*>(d), _mm256_castsi256_si128(row));
            _mm_storel_epi64(reinterpret_cast<__m128i*>(d + 16), _mm256_extracti128_si256(row, 1));
        }
    }
}

// 4 x 4 pixels of 6 bytes, as the 3-byte tile with 64-bit units: register
// i holds source row i's four pixels, each spread to 8 bytes (16-byte loads
// at byte 0 and byte 8 of the row's 24), the units are transposed as in
// transpose_4x4_wide and each destination row is packed back to 24 bytes.
inline void transpose_4x4_px6(const u8* src, int srcStep, u8* dst, int dstStep) {
    alignas(32) static constexpr i8 kSpread[32] = {0, 1, 2, 3, 4, 5, -1, -1, 6, 7, 8, 9, 10, 11, -1, -1,
                                                   4, 5, 6, 7, 8, 9, -1, -1, 10, 11, 12, 13, 14, 15, -1, -1};
    alignas(32) static constexpr i8 kPack[32] = {0, 1, 2, 3, 4, 5, 8, 9, 10, 11, 12, 13, -1, -1, -1, -1,
                                                 0, 1, 2, 3, 4, 5, 8, 9, 10, 11, 12, 13, -1, -1, -1, -1};
    const __m256i spread = _mm256_load_si256(reinterpret_cast<const __m256i*>(kSpread));
    const __m256i pack = _mm256_load_si256(reinterpret_cast<const __m256i*>(kPack));
    const __m256i join = _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 6, 6);
    __m256i r[4];
    for (int i = 0; i < 4; ++i) {
        const u8* row = src + std::ptrdiff_t(i) * srcStep;
        const __m256i v = _mm256_inserti128_si256(_mm256_castsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(row))),
                                                  _mm_loadu_si128(reinterpret_cast<const __m128i*>(row + 8)), 1);
        r[i] = _mm256_shuffle_epi8(v, spread);
    }
    const __m256i t0 = _mm256_unpacklo_epi64(r[0], r[1]), t1 = _mm256_unpackhi_epi64(r[0], r[1]);
    const __m256i t2 = _mm256_unpacklo_epi64(r[2], r[3]), t3 = _mm256_unpackhi_epi64(r[2], r[3]);
    const __m256i rows[4] = {_mm256_permute2x128_si256(t0, t2, 0x20), _mm256_permute2x128_si256(t1, t3, 0x20),
                             _mm256_permute2x128_si256(t0, t2, 0x31), _mm256_permute2x128_si256(t1, t3, 0x31)};
    for (int j = 0; j < 4; ++j) {
        const __m256i packed = _mm256_permutevar8x32_epi32(_mm256_shuffle_epi8(rows[j], pack), join);
        u8* d = dst + std::ptrdiff_t(j) * dstStep;
        _mm_storeu_si128(reinterpret_cast<__m128i*>(d), _mm256_castsi256_si128(packed));
        _mm_storel_epi64(reinterpret_cast<__m128i*>(d + 16), _mm256_extracti128_si256(packed, 1));
    }
}

template <int PB>
void transpose_block(const u8* src, int srcStep, u8* dst, int dstStep, int w, int h) {
    if constexpr (PB == 2 || PB == 3 || PB == 4 || PB == 6) {
        // Whole 256-bit tiles (8 x 8 for 3-byte pixels, 4 x 4 for 6-byte
        // ones), visited column strip by column strip so that the
        // destination rows a strip fills are written one after another; the
        // edges go to the 128-bit tiles and single pixels.
        constexpr int T = PB == 3 ? 8 : PB == 6 ? 4 : 32 / PB;
        if (w >= T && h >= T) {
            const int wt = w / T * T, ht = h / T * T;
            for (int x = 0; x < wt; x += T)
                for (int y = 0; y < ht; y += T) {
                    const u8* s = src + std::ptrdiff_t(y) * srcStep + std::size_t(x) * PB;
                    u8* d = dst + std::ptrdiff_t(x) * dstStep + std::size_t(y) * PB;
                    if constexpr (PB == 3) transpose_8x8_px3(s, srcStep, d, dstStep);
                    else if constexpr (PB == 6) transpose_4x4_px6(s, srcStep, d, dstStep);
                    else transpose_wide<PB>(s, srcStep, d, dstStep);
                }
            if (wt < w)
                transpose_narrow<PB>(src + std::size_t(wt) * PB, srcStep, dst + std::ptrdiff_t(wt) * dstStep, dstStep, w - wt, h);
            if (ht < h)
                transpose_narrow<PB>(src + std::ptrdiff_t(ht) * srcStep, srcStep, dst + std::size_t(ht) * PB, dstStep, wt, h - ht);
            return;
        }
    }
    transpose_narrow<PB>(src, srcStep, dst, dstStep, w, h);
}

template <int PB>
void transpose_recursive(const u8* src, int srcStep, u8* dst, int dstStep, int w, int h) {
    if (w <= 32 && h <= 32) return transpose_block<PB>(src, srcStep, dst, dstStep, w, h);
    if (w >= h) {
        const int half = w / 2;
        transpose_recursive<PB>(src, srcStep, dst, dstStep, half, h);
        transpose_recursive<PB>(src + std::size_t(half) * PB, srcStep, dst + std::ptrdiff_t(half) * dstStep, dstStep, w - half, h);
    } else {
        const int half = h / 2;
        transpose_recursive<PB>(src, srcStep, dst, dstStep, w, half);
        transpose_recursive<PB>(src + std::ptrdiff_t(half) * srcStep, srcStep, dst + std::size_t(half) * PB, dstStep, w, h - half);
    }
}

template <int PB>
void transpose_swap_blocks(u8* a, u8* b, int step, int rows, int cols) {
    // Both blocks go through the tile kernels: the block at b is turned into
    // a stack copy, the block at a is turned straight into b's place, and the
    // copy then goes to a. On the diagonal the block is turned into the copy
    // and copied back.
    constexpr int kMax = 32;
    alignas(32) u8 turned[kMax * kMax * PB];
    const int rowBytes = cols * PB;
    if (a == b) {
        transpose_block<PB>(a, step, turned, rowBytes, cols, rows);
    } else {
        transpose_block<PB>(b, step, turned, rowBytes, rows, cols);
        transpose_block<PB>(a, step, b, step, cols, rows);
    }
    for (int r = 0; r < rows; ++r) std::memcpy(a + std::ptrdiff_t(r) * step, turned + std::size_t(r) * rowBytes, rowBytes);
}

#define ROK_REORDER(U)                                                                 \
    template void reorder_channels<U, 3, 3, 3>(const U*, U*, int, const int*, U);      \
    template void reorder_channels<U, 4, 4, 3>(const U*, U*, int, const int*, U);      \
    template void reorder_channels<U, 4, 4, 4>(const U*, U*, int, const int*, U);      \
    template void reorder_channels<U, 3, 4, 4>(const U*, U*, int, const int*, U);      \
    template void reorder_channels<U, 4, 3, 3>(const U*, U*, int, const int*, U);
ROK_REORDER(std::uint8_t)
ROK_REORDER(std::uint16_t)
ROK_REORDER(std::uint32_t)

#define ROK_MIRROR(PB, KA)                                             \
    template void reverse_pixels<PB, KA>(const u8*, u8*, int);        \
    template void reverse_pixels_inplace<PB, KA>(u8*, int);           \
    template void swap_rows<PB, KA>(u8*, u8*, int);                   \
    template void swap_rows_reversed<PB, KA>(u8*, u8*, int);
#define ROK_TRANSPOSE(PB)                                                          \
    template void transpose_block<PB>(const u8*, int, u8*, int, int, int);        \
    template void transpose_recursive<PB>(const u8*, int, u8*, int, int, int);    \
    template void transpose_swap_blocks<PB>(u8*, u8*, int, int, int);
#define ROK_PIXEL(PB) ROK_MIRROR(PB, false) ROK_TRANSPOSE(PB)
ROK_PIXEL(1)
ROK_PIXEL(2)
ROK_PIXEL(3)
ROK_PIXEL(4)
ROK_PIXEL(6)
ROK_PIXEL(8)
ROK_PIXEL(12)
ROK_PIXEL(16)
ROK_PIXEL(24)
ROK_PIXEL(32)
ROK_MIRROR(4, true)
ROK_MIRROR(8, true)
ROK_MIRROR(16, true)
ROK_MIRROR(32, true)

}  // namespace rok::kernels
