// Borders are usually a few pixels wide: the short fill loops must stay
// plain stores rather than become library calls.
#pragma GCC optimize("no-tree-loop-distribute-patterns")

#include "kernels/border/border_fill.h"

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

namespace {

// count copies of an N-byte pixel; N is a constant, so each copy is one or
// two plain stores.
template <int N>
void repeat(std::uint8_t* d, const std::uint8_t* px, int count) {
    for (int i = 0; i < count; ++i) std::memcpy(d + std::size_t(i) * N, px, N);
}

void repeat_any(std::uint8_t* d, const std::uint8_t* px, int pixelBytes, int count) {
    switch (pixelBytes) {
        case 2: return repeat<2>(d, px, count);
        case 3: return repeat<3>(d, px, count);
        case 4: return repeat<4>(d, px, count);
        case 6: return repeat<6>(d, px, count);
        case 8: return repeat<8>(d, px, count);
        case 12: return repeat<12>(d, px, count);
        case 16: return repeat<16>(d, px, count);
        default:
            for (int i = 0; i < count; ++i) std::memcpy(d + std::size_t(i) * pixelBytes, px, std::size_t(pixelBytes));
    }
}

}  // namespace

void fill_pixels(void* dst, const void* pixel, int pixelBytes, int writeBytes, int count) {
    if (count <= 0) return;
    auto* d = static_cast<std::uint8_t*>(dst);
    if (writeBytes == pixelBytes && count * pixelBytes < kPattern) {
        // Narrow borders, the common case: a few plain stores, no calls.
        const auto* p = static_cast<const std::uint8_t*>(pixel);
        if (pixelBytes == 1) {
            const std::uint8_t v = p[0];
            for (int i = 0; i < count; ++i) d[i] = v;
        } else {
            std::uint8_t px[16];
            std::memcpy(px, p, std::size_t(pixelBytes));
            repeat_any(d, px, pixelBytes, count);
        }
        return;
    }
    // The value holds only the samples that are written: three for AC4.
    std::uint8_t px[16];
    std::memcpy(px, pixel, std::size_t(writeBytes));
    if (writeBytes != pixelBytes) {  // AC4: leave each pixel's alpha alone
        for (int i = 0; i < count; ++i) std::memcpy(d + std::size_t(i) * pixelBytes, px, std::size_t(writeBytes));
        return;
    }
    if (pixelBytes == 1) {
        std::memset(d, px[0], std::size_t(count));
        return;
    }
    std::size_t bytes = std::size_t(count) * pixelBytes;
    // The pattern: one pixel, then doubled until 96 bytes are filled.
    alignas(32) std::uint8_t pattern[kPattern];
    std::memcpy(pattern, px, std::size_t(pixelBytes));
    for (int filled = pixelBytes; filled < kPattern; filled *= 2)
        std::memcpy(pattern + filled, pattern, std::size_t(filled < kPattern - filled ? filled : kPattern - filled));
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

void copy_row_bytes(void* dst, const void* src, std::size_t n) {
    auto* d = static_cast<std::uint8_t*>(dst);
    const auto* s = static_cast<const std::uint8_t*>(src);
    std::size_t i = 0;
    if (n >= 64) {
        // One unaligned vector, then aligned stores from the next 32-byte
        // boundary of the destination (stores that split cache lines cost
        // more than loads that do).
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(d), _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s)));
        i = 32 - (reinterpret_cast<std::uintptr_t>(d) & 31);
    }
    for (; i + 128 <= n; i += 128) {
        const __m256i a = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s + i));
        const __m256i b = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s + i + 32));
        const __m256i c = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s + i + 64));
        const __m256i e = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s + i + 96));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(d + i), a);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(d + i + 32), b);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(d + i + 64), c);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(d + i + 96), e);
    }
    for (; i + 32 <= n; i += 32)
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(d + i), _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s + i)));
    std::memcpy(d + i, s + i, n - i);
}

void replicate_row(void* d, const void* src, int left, int n, int right, int pixelBytes) {
    auto* row = static_cast<std::uint8_t*>(d);
    std::uint8_t* part = row + std::size_t(left) * pixelBytes;
    if (src != nullptr) copy_row_bytes(part, src, std::size_t(n) * pixelBytes);
    std::uint8_t* rightPart = part + std::size_t(n) * pixelBytes;
    fill_pixels(row, part, pixelBytes, pixelBytes, left);
    fill_pixels(rightPart, rightPart - pixelBytes, pixelBytes, pixelBytes, right);
}

}  // namespace rok::kernels
