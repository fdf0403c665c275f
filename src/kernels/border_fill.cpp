#include "kernels/border_fill.h"

#include <immintrin.h>

#include <cstdint>
#include <cstring>

namespace rok::kernels {

namespace {

// 96 bytes hold a whole number of pixels of every size up to 16 bytes that a
// layout can have (1, 2, 3, 4, 6, 8, 12, 16), so the pattern can be stored
// 32 bytes at a time and continue seamlessly.
constexpr int kPattern = 96;

}  // namespace

void fill_pixels(void* dst, const void* pixel, int pixelBytes, int writeBytes, int count) {
    if (count <= 0) return;
    std::uint8_t px[16];
    std::memcpy(px, pixel, std::size_t(pixelBytes));
    auto* d = static_cast<std::uint8_t*>(dst);
    if (writeBytes != pixelBytes) {  // AC4: leave each pixel's alpha alone
        for (int i = 0; i < count; ++i) std::memcpy(d + std::size_t(i) * pixelBytes, px, std::size_t(writeBytes));
        return;
    }
    std::size_t bytes = std::size_t(count) * pixelBytes;
    if (bytes < 16) {
        for (int i = 0; i < count; ++i) std::memcpy(d + std::size_t(i) * pixelBytes, px, std::size_t(pixelBytes));
        return;
    }
    alignas(32) std::uint8_t pattern[kPattern];
    for (int i = 0; i < kPattern; ++i) pattern[i] = px[i % pixelBytes];
    const __m256i p0 = _mm256_load_si256(reinterpret_cast<const __m256i*>(pattern));
    const __m256i p1 = _mm256_load_si256(reinterpret_cast<const __m256i*>(pattern + 32));
    const __m256i p2 = _mm256_load_si256(reinterpret_cast<const __m256i*>(pattern + 64));
    for (; bytes >= kPattern; bytes -= kPattern, d += kPattern) {
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(d), p0);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(d + 32), p1);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(d + 64), p2);
    }
    std::memcpy(d, pattern, bytes);  // a whole number of pixels, from phase 0
}

}  // namespace rok::kernels
