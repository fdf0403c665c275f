// 256-entry byte tables applied with byte shuffles, without gathers.
//
// A 16-entry shuffle yields 0 where its index byte has bit 7 set. Row h of
// the table (entries 16h .. 16h + 15) looked up with x picks the row's entry
// x & 15 for x < 128 and 0 otherwise; looked up with x ^ 0x80 it does the
// same for x >= 128. So row m OR row m + 8 (looked up with x and x ^ 0x80)
// is entry x for every x whose bits 4..6 are m: eight such pairs, then a
// three-level blend tree picks among them by bits 4, 5 and 6 (each moved to
// the sign bit, which is all a byte blend reads). Per 32 samples: 16
// shuffles, 8 ORs and 7 blends.
//
// On the cores we target shuffles and blends share two ports while plain
// logic and adds have four, so the blend tree (23 operations on the narrow
// ports) beats a telescoped cascade of saturating adds (30).
#include <immintrin.h>

#include <cstdint>

#include "kernels/lut/lut.h"

namespace rok::kernels {

namespace {

struct Rows {
    __m256i row[16];
    explicit Rows(const Rok8u* table) {
        for (int h = 0; h < 16; ++h)
            row[h] = _mm256_broadcastsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(table + 16 * h)));
    }

    // Entry x for x's bits 4..6 equal to m.
    __m256i pair(int m, __m256i x, __m256i y) const {
        return _mm256_or_si256(_mm256_shuffle_epi8(row[m], x), _mm256_shuffle_epi8(row[m + 8], y));
    }

    __m256i lookup(__m256i x) const {
        const __m256i y = _mm256_xor_si256(x, _mm256_set1_epi8(char(0x80)));
        const __m256i bit6 = _mm256_add_epi8(x, x);  // bit 6 at the sign
        const __m256i bit5 = _mm256_add_epi8(bit6, bit6);
        const __m256i bit4 = _mm256_add_epi8(bit5, bit5);
        const __m256i m0 = _mm256_blendv_epi8(_mm256_blendv_epi8(pair(0, x, y), pair(1, x, y), bit4),
                                              _mm256_blendv_epi8(pair(2, x, y), pair(3, x, y), bit4), bit5);
        const __m256i m1 = _mm256_blendv_epi8(_mm256_blendv_epi8(pair(4, x, y), pair(5, x, y), bit4),
                                              _mm256_blendv_epi8(pair(6, x, y), pair(7, x, y), bit4), bit5);
        return _mm256_blendv_epi8(m0, m1, bit6);
    }
};

inline __m256i load(const Rok8u* p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)); }

}  // namespace

void lut_8u(const Rok8u* src, Rok8u* dst, std::size_t n, const Rok8u* table) {
    std::size_t i = 0;
    if (n >= 64) {
        while ((reinterpret_cast<std::uintptr_t>(dst + i) & 31) != 0) {
            dst[i] = table[src[i]];
            ++i;
        }
        const Rows t(table);
        for (; i + 32 <= n; i += 32) _mm256_store_si256(reinterpret_cast<__m256i*>(dst + i), t.lookup(load(src + i)));
    }
    for (; i < n; ++i) dst[i] = table[src[i]];
}

void lut_8u_ac4(const Rok8u* src, Rok8u* dst, std::size_t pixels, const Rok8u* table) {
    const std::size_t n = 4 * pixels;
    std::size_t i = 0;
    if (n >= 64) {
        // Whole pixels up to the destination's alignment where it can be reached.
        if ((reinterpret_cast<std::uintptr_t>(dst) & 3) == 0) {
            for (; (reinterpret_cast<std::uintptr_t>(dst + i) & 31) != 0; i += 4)
                for (int c = 0; c < 3; ++c) dst[i + c] = table[src[i + c]];
        }
        const Rows t(table);
        const __m256i alpha = _mm256_set1_epi32(int(0x80000000u));
        for (; i + 32 <= n; i += 32) {
            const __m256i kept = load(dst + i);
            const __m256i v = _mm256_blendv_epi8(t.lookup(load(src + i)), kept, alpha);
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + i), v);
        }
    }
    for (; i < n; i += 4)
        for (int c = 0; c < 3; ++c) dst[i + c] = table[src[i + c]];
}

}  // namespace rok::kernels
