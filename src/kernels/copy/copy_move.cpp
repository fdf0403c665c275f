#include "kernels/copy/copy_move.h"

#include <immintrin.h>

#include <algorithm>
#include <cstring>

namespace rok::kernels {

namespace {

using u8 = std::uint8_t;

inline __m256i load32(const u8* p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)); }
inline void store32(u8* p, __m256i v) { _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), v); }
inline __m128i load16(const u8* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }
inline void store16(u8* p, __m128i v) { _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v); }

// Below 64 bytes: one move per set bit of n, largest first.
inline void copy_short(const u8* s, u8* d, std::size_t n) {
    if (n & 32) { store32(d, load32(s)); s += 32; d += 32; }
    if (n & 16) { store16(d, load16(s)); s += 16; d += 16; }
    if (n & 8) { std::memcpy(d, s, 8); s += 8; d += 8; }
    if (n & 4) { std::memcpy(d, s, 4); s += 4; d += 4; }
    for (std::size_t i = 0; i < (n & 3); ++i) d[i] = s[i];
}

// Pixels of PB bytes: which bytes are not alpha (the pixel's last quarter).
template <int PB>
constexpr bool is_colour_byte(int b) { return b % PB < PB * 3 / 4; }

template <int PB, bool KeepAlpha>
inline void copy_pixel(const u8* s, u8* d) {
    for (int b = 0; b < (KeepAlpha ? PB * 3 / 4 : PB); ++b) d[b] = s[b];
}

// Mask expansion for 16 pixels of PB bytes: byte j of the k-th 16-byte chunk
// belongs to pixel (16k + j) / PB; `keep` clears the alpha bytes.
template <int PB, bool KeepAlpha>
struct MaskTables {
    alignas(16) u8 idx[PB][16];
    alignas(16) u8 keep[PB][16];
    constexpr MaskTables() : idx{}, keep{} {
        for (int k = 0; k < PB; ++k)
            for (int j = 0; j < 16; ++j) {
                idx[k][j] = u8((16 * k + j) / PB);
                keep[k][j] = (!KeepAlpha || is_colour_byte<PB>(16 * k + j)) ? 0xFF : 0x00;
            }
    }
};
template <int PB, bool KeepAlpha>
inline constexpr MaskTables<PB, KeepAlpha> kMaskTables{};

// Shared body of the masked copy and the masked set. With Pattern, src holds
// 16 copies of the pixel and does not advance.
template <int PB, bool KeepAlpha, bool Pattern>
void masked_rows(const u8* src, u8* dst, const u8* mask, int n) {
    const auto& t = kMaskTables<PB, KeepAlpha>;
    const __m128i zero = _mm_setzero_si128(), ones = _mm_set1_epi8(-1);
    int x = 0;
    if constexpr (PB == 1) {
        // One-byte pixels: the mask bytes are the blend lanes, 32 at a time.
        const __m256i pattern = _mm256_set1_epi8(char(src[0]));
        for (; x + 32 <= n; x += 32) {
            const __m256i z = _mm256_cmpeq_epi8(load32(mask + x), _mm256_setzero_si256());
            const unsigned zeros = unsigned(_mm256_movemask_epi8(z));
            if (zeros == 0xFFFFFFFFu) continue;
            const __m256i s = Pattern ? pattern : load32(src + x);
            store32(dst + x, zeros == 0 ? s : _mm256_blendv_epi8(s, load32(dst + x), z));
        }
    }
    for (; x + 16 <= n; x += 16) {
        const __m128i z = _mm_cmpeq_epi8(load16(mask + x), zero);
        const int zeros = _mm_movemask_epi8(z);
        if (zeros == 0xFFFF) continue;
        const u8* s = Pattern ? src : src + std::size_t(x) * PB;
        u8* d = dst + std::size_t(x) * PB;
        if (zeros == 0 && !KeepAlpha) {
            std::memcpy(d, s, 16 * PB);
            continue;
        }
        const __m128i sel = _mm_xor_si128(z, ones);
        for (int k = 0; k < PB; ++k) {
            __m128i e = PB == 1 ? sel : _mm_shuffle_epi8(sel, load16(t.idx[k]));
            if (KeepAlpha) e = _mm_and_si128(e, load16(t.keep[k]));
            store16(d + 16 * k, _mm_blendv_epi8(load16(d + 16 * k), load16(s + 16 * k), e));
        }
    }
    for (; x < n; ++x)
        if (mask[x]) copy_pixel<PB, KeepAlpha>(Pattern ? src : src + std::size_t(x) * PB, dst + std::size_t(x) * PB);
}

}  // namespace

void copy_bytes(const void* src, void* dst, std::size_t n) {
    const u8* s = static_cast<const u8*>(src);
    u8* d = static_cast<u8*>(dst);
    if (n < 64) return copy_short(s, d, n);
    // One unaligned move covers the bytes up to the destination's next
    // 32-byte boundary; the body then stores aligned.
    store32(d, load32(s));
    const std::size_t head = 32 - (reinterpret_cast<std::uintptr_t>(d) & 31);
    s += head;
    d += head;
    n -= head;
    for (; n >= 64; n -= 64, s += 64, d += 64) {
        const __m256i a = load32(s), b = load32(s + 32);
        _mm256_store_si256(reinterpret_cast<__m256i*>(d), a);
        _mm256_store_si256(reinterpret_cast<__m256i*>(d + 32), b);
    }
    copy_short(s, d, n);
}

// Streaming stores only pay when they fill whole 64-byte lines: an ordinary
// store into a line first reads it from memory, and a line that gets both
// kinds, or is streamed in part, is written back piecemeal at the cost of a
// trip to memory (rows of 3830 bytes in steps of 3840 took 3.5 times as long
// when their partial lines were streamed in 16-byte pieces). So the partial
// lines at either end take ordinary stores and only whole lines stream.
void copy_bytes_streaming(const void* src, void* dst, std::size_t n) {
    const u8* s = static_cast<const u8*>(src);
    u8* d = static_cast<u8*>(dst);
    const std::size_t lead = std::min(n, std::size_t((0 - reinterpret_cast<std::uintptr_t>(d)) & 63));
    copy_short(s, d, lead);
    s += lead;
    d += lead;
    n -= lead;
    for (; n >= 64; n -= 64, s += 64, d += 64) {
        _mm_prefetch(reinterpret_cast<const char*>(s) + 512, _MM_HINT_T0);
        const __m256i a = load32(s), b = load32(s + 32);
        _mm256_stream_si256(reinterpret_cast<__m256i*>(d), a);
        _mm256_stream_si256(reinterpret_cast<__m256i*>(d + 32), b);
    }
    copy_short(s, d, n);
}

void copy_bytes_aligned64(const void* src, void* dst, std::size_t n) {
    const u8* s = static_cast<const u8*>(src);
    u8* d = static_cast<u8*>(dst);
    for (std::size_t piece = 1; piece < 64 && n >= piece; piece *= 2) {
        if ((reinterpret_cast<std::uintptr_t>(d) & piece) == 0) continue;
        std::memcpy(d, s, piece);
        s += piece;
        d += piece;
        n -= piece;
    }
    for (; n >= 64; n -= 64, s += 64, d += 64) {
        const __m256i a = load32(s), b = load32(s + 32);
        store32(d, a);
        store32(d + 32, b);
    }
    copy_short(s, d, n);
}

void store_fence() { _mm_sfence(); }

template <int PB, bool KeepAlpha>
void copy_masked(const u8* src, u8* dst, const u8* mask, int n) {
    masked_rows<PB, KeepAlpha, false>(src, dst, mask, n);
}

template <int PB, bool KeepAlpha>
void set_masked(const u8* pixel, u8* dst, const u8* mask, int n) {
    u8 pattern[16 * PB];
    for (int i = 0; i < 16 * PB; ++i) pattern[i] = pixel[i % PB];
    masked_rows<PB, KeepAlpha, true>(pattern, dst, mask, n);
}

template <int PB, bool KeepAlpha>
void set_pixels(const u8* pixel, u8* dst, int n, bool stream) {
    const std::size_t bytes = std::size_t(n) * PB;
    std::size_t i = 0;
    if constexpr (KeepAlpha) {
        static_assert(32 % PB == 0);
        alignas(32) u8 pattern[32], keep[32];
        for (int b = 0; b < 32; ++b) {
            pattern[b] = pixel[b % PB];
            keep[b] = is_colour_byte<PB>(b) ? 0xFF : 0x00;
        }
        const __m256i p = load32(pattern), k = load32(keep);
        for (; i + 32 <= bytes; i += 32) store32(dst + i, _mm256_blendv_epi8(load32(dst + i), p, k));
        for (; i < bytes; i += PB) copy_pixel<PB, true>(pixel, dst + i);
    } else {
        // 32 bytes hold a whole number of 1/2/4/8/16-byte pixels, 96 bytes
        // a whole number of 3/6/12-byte ones.
        constexpr int kPeriod = PB % 3 == 0 ? 96 : 32;
        alignas(32) u8 pattern[96];
        for (int b = 0; b < 96; ++b) pattern[b] = pixel[b % PB];
        const __m256i p0 = load32(pattern), p1 = load32(pattern + 32), p2 = load32(pattern + 64);
        if (stream) {
            // Streaming stores from the first pixel that starts a 64-byte
            // line, in whole lines (two periods of three registers, or two
            // registers), so that no line they touch gets an ordinary store.
            constexpr std::size_t kLines = kPeriod == 96 ? 192 : 64;
            int head = -1;
            for (int h = 0; h < 64 && h < n && head < 0; ++h)
                if ((reinterpret_cast<std::uintptr_t>(dst) + std::uintptr_t(h) * PB) % 64 == 0) head = h;
            if (head >= 0 && bytes - std::size_t(head) * PB >= kLines) {
                set_pixels<PB, false>(pixel, dst, head, false);
                i = std::size_t(head) * PB;
                for (; i + kLines <= bytes; i += kLines) {
                    __m256i* d = reinterpret_cast<__m256i*>(dst + i);
                    if constexpr (kPeriod == 96) {
                        const __m256i run[6] = {p0, p1, p2, p0, p1, p2};
                        for (int k = 0; k < 6; ++k) _mm256_stream_si256(d + k, run[k]);
                    } else {
                        _mm256_stream_si256(d, p0);
                        _mm256_stream_si256(d + 1, p0);
                    }
                }
            }
        }
        // Each period starts on a pixel: i is a whole number of periods or
        // of streamed lines past a pixel boundary.
        for (; i + kPeriod <= bytes; i += kPeriod) {
            store32(dst + i, p0);
            if (kPeriod == 96) {
                store32(dst + i + 32, p1);
                store32(dst + i + 64, p2);
            }
        }
        std::memcpy(dst + i, pattern, bytes - i);
    }
}

#define ROK_PIXEL_KERNELS(PB, KA)                                               \
    template void copy_masked<PB, KA>(const u8*, u8*, const u8*, int);          \
    template void set_masked<PB, KA>(const u8*, u8*, const u8*, int);
ROK_PIXEL_KERNELS(1, false)
ROK_PIXEL_KERNELS(2, false)
ROK_PIXEL_KERNELS(3, false)
ROK_PIXEL_KERNELS(4, false)
ROK_PIXEL_KERNELS(6, false)
ROK_PIXEL_KERNELS(8, false)
ROK_PIXEL_KERNELS(12, false)
ROK_PIXEL_KERNELS(16, false)
ROK_PIXEL_KERNELS(4, true)
ROK_PIXEL_KERNELS(8, true)
ROK_PIXEL_KERNELS(16, true)
template void set_pixels<1, false>(const u8*, u8*, int, bool);
template void set_pixels<2, false>(const u8*, u8*, int, bool);
template void set_pixels<3, false>(const u8*, u8*, int, bool);
template void set_pixels<4, false>(const u8*, u8*, int, bool);
template void set_pixels<6, false>(const u8*, u8*, int, bool);
template void set_pixels<8, false>(const u8*, u8*, int, bool);
template void set_pixels<12, false>(const u8*, u8*, int, bool);
template void set_pixels<16, false>(const u8*, u8*, int, bool);
template void set_pixels<4, true>(const u8*, u8*, int, bool);
template void set_pixels<8, true>(const u8*, u8*, int, bool);
template void set_pixels<16, true>(const u8*, u8*, int, bool);

}  // namespace rok::kernels
