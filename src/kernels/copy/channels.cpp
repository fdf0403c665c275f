#include "kernels/copy/channels.h"

#include <immintrin.h>

#include <cstdint>
#include <cstring>

namespace rok::kernels {

namespace {
template <class U>
void copy_ac4_as(const void* src, void* dst, int n) {
    const U* s = static_cast<const U*>(src);
    U* d = static_cast<U*>(dst);
    int i = 0;
    if constexpr (sizeof(U) <= 4) {
        // 32 bytes hold whole pixels; the blend takes channels 0..2 from the
        // source and puts back the alpha samples the destination already had.
        constexpr int kPixels = 32 / (4 * int(sizeof(U)));
        alignas(32) std::uint8_t colour[32];
        for (int b = 0; b < 32; ++b) colour[b] = (b % (4 * sizeof(U))) < 3 * sizeof(U) ? 0xFF : 0x00;
        const __m256i keep = _mm256_load_si256(reinterpret_cast<const __m256i*>(colour));
        for (; i + kPixels <= n; i += kPixels) {
            __m256i* dp = reinterpret_cast<__m256i*>(d + 4 * std::size_t(i));
            const __m256i sv = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s + 4 * std::size_t(i)));
            _mm256_storeu_si256(dp, _mm256_blendv_epi8(_mm256_loadu_si256(dp), sv, keep));
        }
    }
    for (; i < n; ++i) {
        d[4 * i + 0] = s[4 * i + 0];
        d[4 * i + 1] = s[4 * i + 1];
        d[4 * i + 2] = s[4 * i + 2];
    }
}
}  // namespace

void copy_ac4(const void* src, void* dst, int n, std::size_t sampleBytes) {
    switch (sampleBytes) {
        case 1: return copy_ac4_as<std::uint8_t>(src, dst, n);
        case 2: return copy_ac4_as<std::uint16_t>(src, dst, n);
        case 4: return copy_ac4_as<std::uint32_t>(src, dst, n);
        default: return copy_ac4_as<std::uint64_t>(src, dst, n);
    }
}

}  // namespace rok::kernels
