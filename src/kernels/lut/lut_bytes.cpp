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
#include <cstring>

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

void lut_8u_channels(const Rok8u* src, Rok8u* dst, std::size_t pixels, int nc, int processed,
                     const Rok8u* const* tables) {
    const std::size_t n = std::size_t(nc) * pixels;
    auto scalar = [&](std::size_t from, std::size_t to) {
        for (std::size_t p = from; p < to; p += std::size_t(nc))
            for (int c = 0; c < processed; ++c) dst[p + c] = tables[c][src[p + c]];
    };
    std::size_t i = 0;  // always at a pixel's first sample outside the vector body
    if (n >= 128) {
        // Whole pixels up to the destination's alignment, where some number
        // of them reaches it; otherwise unaligned stores from the start.
        std::size_t head = 0;
        while (head < 32 * std::size_t(nc) && (reinterpret_cast<std::uintptr_t>(dst + head) & 31) != 0) head += nc;
        if (head >= 32 * std::size_t(nc)) head = 0;
        scalar(0, head);
        i = head;
        // One lookup per distinct table; channels sharing a table share it.
        int id[4] = {};
        const Rok8u* distinct[4];
        int u = 0;
        for (int c = 0; c < processed; ++c) {
            int d = 0;
            while (d < u && distinct[d] != tables[c] && std::memcmp(distinct[d], tables[c], 256) != 0) ++d;
            if (d == u) distinct[u++] = tables[c];
            id[c] = d;
        }
        Parts parts[4] = {Parts(distinct[0]), Parts(distinct[u > 1 ? 1 : 0]), Parts(distinct[u > 2 ? 2 : 0]),
                          Parts(distinct[u > 3 ? 3 : 0])};
        // The channel of each byte repeats every 3 vectors (3 channels) or
        // every vector (4). uses[k][d]: the bytes of vector k that take table
        // d; kept[k]: the bytes of channels that are not processed.
        const int period = nc == 3 ? 3 : 1;
        __m256i uses[3][4], kept[3];
        for (int k = 0; k < period; ++k) {
            alignas(32) Rok8u m[4][32], a[32];
            for (int j = 0; j < 32; ++j) {
                const int c = (32 * k + j) % nc;
                for (int d = 0; d < 4; ++d) m[d][j] = c < processed && id[c] == d ? 0xFF : 0;
                a[j] = c < processed ? 0 : 0xFF;
            }
            for (int d = 0; d < 4; ++d) uses[k][d] = _mm256_load_si256(reinterpret_cast<const __m256i*>(m[d]));
            kept[k] = _mm256_load_si256(reinterpret_cast<const __m256i*>(a));
        }
        const std::size_t block = 32 * std::size_t(period);
        for (; i + block <= n; i += block)
            for (int k = 0; k < period; ++k) {
                const __m256i x = load(src + i + 32 * k);
                __m256i r = parts[0].lookup(x);
                for (int d = 1; d < u; ++d) r = _mm256_blendv_epi8(r, parts[d].lookup(x), uses[k][d]);
                if (processed < nc) r = _mm256_blendv_epi8(r, load(dst + i + 32 * k), kept[k]);
                _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + i + 32 * k), r);
            }
    }
    scalar(i, n);
}

}  // namespace rok::kernels
