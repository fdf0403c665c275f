// Per-sample table look-ups: channel tables of the 8- and 16-bit images, and
// the palettes. One load from the table per sample.
#include <cstdint>
#include <cstring>

#include "kernels/lut/lut.h"

namespace rok::kernels {

namespace {

template <class U>
void channels_through(const U* src, U* dst, std::size_t pixels, int nc, int processed, const U* const* tables,
                      unsigned flip) {
    if (nc == 1) {
        const U* t = tables[0];
        for (std::size_t i = 0; i < pixels; ++i) dst[i] = t[src[i] ^ flip];
        return;
    }
    for (std::size_t p = 0; p < pixels; ++p, src += nc, dst += nc)
        for (int c = 0; c < processed; ++c) dst[c] = tables[c][src[c] ^ flip];
}

}  // namespace

namespace {

// Byte samples through per-channel tables, eight source bytes read at once:
// the byte loads from the tables are the whole cost, so the source is read
// as 64-bit words and the result stored byte by byte. A period of whole
// pixels in whole words (24 bytes for three channels, 8 for four) fixes each
// byte's channel at compile time. Each word is read before any of its bytes
// is written, so source and destination may be the same row.
template <int NC, int P>
void channels_8u(const std::uint8_t* src, std::uint8_t* dst, std::size_t pixels, const std::uint8_t* const* tables) {
    constexpr std::size_t period = NC == 4 ? 8 : 8 * NC;
    const std::uint8_t* t[NC];
    for (int c = 0; c < NC; ++c) t[c] = tables[c < P ? c : 0];
    const std::size_t n = pixels * NC;
    std::size_t i = 0;
    for (; i + period <= n; i += period) {
        for (std::size_t w = 0; w < period; w += 8) {
            std::uint64_t a;
            std::memcpy(&a, src + i + w, 8);
            // Two bytes per 16-bit step: the low byte and the second-lowest
            // byte are each one register move, so one shift serves two.
            for (int q = 0; q < 8; q += 2) {
                const int c0 = int((w + std::size_t(q)) % NC), c1 = int((w + std::size_t(q) + 1) % NC);
                const unsigned lo = unsigned(a) & 0xFF, hi = (unsigned(a) >> 8) & 0xFF;
                if (c0 < P) dst[i + w + std::size_t(q)] = t[c0][lo];
                if (c1 < P) dst[i + w + std::size_t(q) + 1] = t[c1][hi];
                a >>= 16;
            }
        }
    }
    for (; i < n; i += NC)
        for (int c = 0; c < P; ++c) dst[i + std::size_t(c)] = t[c][src[i + std::size_t(c)]];
}

}  // namespace

void lut_channels(const std::uint8_t* src, std::uint8_t* dst, std::size_t pixels, int nc, int processed,
                  const std::uint8_t* const* tables, unsigned flip) {
    if (flip == 0 && nc == 3 && processed == 3) return channels_8u<3, 3>(src, dst, pixels, tables);
    if (flip == 0 && nc == 4 && processed == 4) return channels_8u<4, 4>(src, dst, pixels, tables);
    if (flip == 0 && nc == 4 && processed == 3) return channels_8u<4, 3>(src, dst, pixels, tables);
    channels_through(src, dst, pixels, nc, processed, tables, flip);
}

void lut_channels(const std::uint16_t* src, std::uint16_t* dst, std::size_t pixels, int nc, int processed,
                  const std::uint16_t* const* tables, unsigned flip) {
    channels_through(src, dst, pixels, nc, processed, tables, flip);
}

template <class S, class D>
void palette(const S* src, D* dst, std::size_t pixels, int srcNc, int dstNc, int processed, const D* const* tables,
             unsigned mask, bool reverse, std::int64_t alpha) {
    if (srcNc == 1 && dstNc == 1) {
        const D* t = tables[0];
        for (std::size_t i = 0; i < pixels; ++i) dst[i] = t[src[i] & mask];
        return;
    }
    const bool writeAlpha = dstNc > srcNc && alpha >= 0;
    for (std::size_t p = 0; p < pixels; ++p, src += srcNc, dst += dstNc) {
        for (int c = 0; c < processed; ++c) {
            const int from = reverse ? processed - 1 - c : c;
            dst[c] = tables[from][src[from] & mask];
        }
        if (writeAlpha) dst[dstNc - 1] = D(alpha);
    }
}

template void palette(const Rok8u*, Rok8u*, std::size_t, int, int, int, const Rok8u* const*, unsigned, bool,
                      std::int64_t);
template void palette(const Rok16u*, Rok16u*, std::size_t, int, int, int, const Rok16u* const*, unsigned, bool,
                      std::int64_t);
template void palette(const Rok8u*, Rok32u*, std::size_t, int, int, int, const Rok32u* const*, unsigned, bool,
                      std::int64_t);
template void palette(const Rok16u*, Rok8u*, std::size_t, int, int, int, const Rok8u* const*, unsigned, bool,
                      std::int64_t);
template void palette(const Rok16u*, Rok32u*, std::size_t, int, int, int, const Rok32u* const*, unsigned, bool,
                      std::int64_t);

template <class S>
void palette_24(const S* src, Rok8u* dst, std::size_t pixels, const Rok8u* table, unsigned mask) {
    for (std::size_t i = 0; i < pixels; ++i) std::memcpy(dst + 3 * i, table + 3 * std::size_t(src[i] & mask), 3);
}

template void palette_24(const Rok8u*, Rok8u*, std::size_t, const Rok8u*, unsigned);
template void palette_24(const Rok16u*, Rok8u*, std::size_t, const Rok8u*, unsigned);

}  // namespace rok::kernels
