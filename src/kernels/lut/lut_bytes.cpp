// 256-entry byte tables applied with byte shuffles. The table sits in sixteen
// registers of 16 entries (each repeated in both lanes); every part is looked
// up with the sample's low four bits, and bits 4, 5, 6 and 7 choose among the
// sixteen results by a tree of blends: 16 shuffles and 15 blends per 32
// samples, no gathers.
#include <immintrin.h>

#include <cstdint>

#include "kernels/lut/lut.h"

namespace rok::kernels {

namespace {

struct Parts {
    __m256i part[16];
    explicit Parts(const Rok8u* table) {
        for (int h = 0; h < 16; ++h)
            part[h] = _mm256_broadcastsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(table + 16 * h)));
    }

    __m256i lookup(__m256i x) const {
        const __m256i low = _mm256_and_si256(x, _mm256_set1_epi8(0x0F));
        __m256i r[16];
        for (int h = 0; h < 16; ++h) r[h] = _mm256_shuffle_epi8(part[h], low);
        // A blend takes bit 7 of each mask byte; shifting the 16-bit lanes
        // left by 3, 2 and 1 brings bits 4, 5 and 6 of every byte there.
        __m256i m = _mm256_slli_epi16(x, 3);
        for (int i = 0; i < 8; ++i) r[i] = _mm256_blendv_epi8(r[2 * i], r[2 * i + 1], m);
        m = _mm256_slli_epi16(x, 2);
        for (int i = 0; i < 4; ++i) r[i] = _mm256_blendv_epi8(r[2 * i], r[2 * i + 1], m);
        m = _mm256_slli_epi16(x, 1);
        for (int i = 0; i < 2; ++i) r[i] = _mm256_blendv_epi8(r[2 * i], r[2 * i + 1], m);
        return _mm256_blendv_epi8(r[0], r[1], x);
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
        for (; i + 64 <= n; i += 64) {
            const __m256i a = t.lookup(load(src + i)), b = t.lookup(load(src + i + 32));
            _mm256_store_si256(reinterpret_cast<__m256i*>(dst + i), a);
            _mm256_store_si256(reinterpret_cast<__m256i*>(dst + i + 32), b);
        }
        if (i + 32 <= n) {
            _mm256_store_si256(reinterpret_cast<__m256i*>(dst + i), t.lookup(load(src + i)));
            i += 32;
        }
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
