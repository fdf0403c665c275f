// 256-entry byte tables applied with byte shuffles, without gathers or
// blends. A shuffle yields 0 where its index byte has bit 7 set, so the index
// x +sat (112 - 16h) (unsigned saturating add) takes part exactly when
// x < 16 (h + 1), for h = 0 .. 7. Lower part h < 7 holds entries 16h .. 16h + 15
// XOR entries 16h + 16 .. 16h + 31, part 7 entries 112 .. 127; for x < 128 the
// parts h = x / 16 .. 7 take part and their XOR telescopes to entry x. The
// upper half does the same for x XOR 0x80, which saturates every lower value
// out. Per 32 samples: 16 shuffles, 14 saturating adds and 16 XORs.
#include <immintrin.h>

#include <cstdint>

#include "kernels/lut/lut.h"

namespace rok::kernels {

namespace {

struct Parts {
    __m256i low[8], high[8];
    explicit Parts(const Rok8u* table) {
        auto part = [table](int h) {
            return _mm256_broadcastsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(table + 16 * h)));
        };
        low[7] = part(7);
        high[7] = part(15);
        for (int h = 6; h >= 0; --h) {
            low[h] = _mm256_xor_si256(part(h), part(h + 1));
            high[h] = _mm256_xor_si256(part(h + 8), part(h + 9));
        }
    }

    __m256i lookup(__m256i x) const {
        const __m256i y = _mm256_xor_si256(x, _mm256_set1_epi8(char(0x80)));
        __m256i r = _mm256_xor_si256(_mm256_shuffle_epi8(low[7], x), _mm256_shuffle_epi8(high[7], y));
        for (int h = 6; h >= 0; --h) {
            const __m256i c = _mm256_set1_epi8(char(112 - 16 * h));
            r = _mm256_xor_si256(r, _mm256_xor_si256(_mm256_shuffle_epi8(low[h], _mm256_adds_epu8(x, c)),
                                                     _mm256_shuffle_epi8(high[h], _mm256_adds_epu8(y, c))));
        }
        return r;
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
        const Parts t(table);
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
        const Parts t(table);
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
