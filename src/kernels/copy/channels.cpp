#include "kernels/copy/channels.h"

#include <immintrin.h>

#include <cstdint>
#include <cstring>

namespace rok::kernels {

namespace {
// Works on bytes: an AC4 row of complex samples is aligned only to their
// parts, so the samples cannot be moved as one wider integer.
template <std::size_t Bytes>
void copy_ac4_as(const void* src, void* dst, int n) {
    const auto* s = static_cast<const std::uint8_t*>(src);
    auto* d = static_cast<std::uint8_t*>(dst);
    constexpr std::size_t kPixel = 4 * Bytes;
    int i = 0;
    if constexpr (Bytes <= 4) {
        // 32 bytes hold whole pixels; the blend takes channels 0..2 from the
        // source and puts back the alpha samples the destination already had.
        constexpr int kPixels = int(32 / kPixel);
        alignas(32) std::uint8_t colour[32];
        for (std::size_t b = 0; b < 32; ++b) colour[b] = (b % kPixel) < 3 * Bytes ? 0xFF : 0x00;
        const __m256i keep = _mm256_load_si256(reinterpret_cast<const __m256i*>(colour));
        for (; i + kPixels <= n; i += kPixels) {
            __m256i* dp = reinterpret_cast<__m256i*>(d + kPixel * std::size_t(i));
            const __m256i sv = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s + kPixel * std::size_t(i)));
            _mm256_storeu_si256(dp, _mm256_blendv_epi8(_mm256_loadu_si256(dp), sv, keep));
        }
    }
    for (; i < n; ++i) std::memcpy(d + kPixel * std::size_t(i), s + kPixel * std::size_t(i), 3 * Bytes);
}
}  // namespace

void copy_ac4(const void* src, void* dst, int n, std::size_t sampleBytes) {
    switch (sampleBytes) {
        case 1: return copy_ac4_as<1>(src, dst, n);
        case 2: return copy_ac4_as<2>(src, dst, n);
        case 4: return copy_ac4_as<4>(src, dst, n);
        default: return copy_ac4_as<8>(src, dst, n);
    }
}

}  // namespace rok::kernels
