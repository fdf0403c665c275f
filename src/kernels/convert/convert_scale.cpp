// Range-mapping conversions between 8u and the wider types.
#include <cmath>
#include <cstdint>
#include <type_traits>

// The linear maps are a multiply and an add, each rounded: contracting them
// into one fused multiply-add would move results across rounding ties.
#pragma GCC optimize("fp-contract=off")

#include "kernels/convert/convert.h"
#include "kernels/convert/convert_engine.h"
#include "kernels/convert/convert_pack.h"

namespace rok::kernels {

template <class D>
void scale_up(const std::uint8_t* src, D* dst, int n, bool stream) {
    engine::run(dst, n, stream, [src](int i) {
        const std::uint32_t x = src[i];
        if constexpr (sizeof(D) == 4) return D((x * 0x01010101u) ^ 0x80000000u);
        else if constexpr (std::is_signed_v<D>) return D(int(x * 257) - 32768);
        else return D(x * 257);
    });
}

void scale_up_float(const std::uint8_t* src, float* dst, int n, float vMin, float step, bool stream) {
    engine::run(dst, n, stream, [=](int i) {
        const float product = float(src[i]) * step;
        return vMin + product;
    });
}

namespace {
inline std::uint8_t to_8u(float r) {
    r = r > 0.0f ? r : 0.0f;  // also sends NaN to 0
    r = r < 255.0f ? r : 255.0f;
    return std::uint8_t(r);
}
inline std::uint8_t to_8u(double r) {
    r = r > 0.0 ? r : 0.0;
    r = r < 255.0 ? r : 255.0;
    return std::uint8_t(r);
}
}  // namespace

template <class S>
void scale_down_accurate(const S* src, std::uint8_t* dst, int n) {
    auto rule = [src](int i) {
        if constexpr (sizeof(S) == 4) {
            const double product = double(src[i]) * 5.937181414556033e-8;
            return to_8u(std::nearbyint(product + 127.5000000296859));
        } else if constexpr (std::is_signed_v<S>) {
            return to_8u(std::nearbyint(float(int(src[i]) + 32768) * 0.0038910506f));
        } else {
            return to_8u(std::nearbyint(float(src[i]) * 0.0038910506f));
        }
    };
    if constexpr (sizeof(S) == 4) {
        engine::plain(dst, 0, n, rule);
    } else {
        // 16-bit sources: u = x (or x + 32768) is exact in float, and the
        // product u * 0.0038910506f rounded to nearest equals
        // ((u * 65281) >> 16 + 128) >> 8 for every u in 0..65535 (the
        // product never falls near enough to a half for its float error to
        // matter; the tests compare all 65536 inputs with the float rule),
        // so the vector body works in 16-bit lanes.
        const int head = pack::head_to_boundary(dst, n);
        engine::plain(dst, 0, head, rule);
        const __m256i m = _mm256_set1_epi16(short(65281));
        const __m256i half = _mm256_set1_epi16(128);
        const __m256i flip = _mm256_set1_epi16(std::is_signed_v<S> ? short(0x8000) : 0);
        auto sixteen = [&](const S* s) {
            const __m256i u = _mm256_xor_si256(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(s)), flip);
            return _mm256_srli_epi16(_mm256_add_epi16(_mm256_mulhi_epu16(u, m), half), 8);
        };
        int i = head;
        for (; i + 32 <= n; i += 32) {
            const __m256i bytes = _mm256_packus_epi16(sixteen(src + i), sixteen(src + i + 16));
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + i), _mm256_permute4x64_epi64(bytes, 0xD8));
        }
        engine::plain(dst, i, n, rule);
    }
}

template <class S>
void scale_down_fast(const S* src, std::uint8_t* dst, int n, bool stream) {
    engine::run(dst, n, stream, [src](int i) {
        if constexpr (sizeof(S) == 4) {
            const std::int32_t x = src[i];
            return std::uint8_t(((x - (x >> 8)) >> 24) + 128);
        } else {
            const int x = std::is_signed_v<S> ? int(src[i]) : int(src[i]) - 32768;
            return std::uint8_t(((x - (x >> 8)) >> 8) + 128);
        }
    });
}

void scale_down_float(const float* src, std::uint8_t* dst, int n, float vMin, float vMax, float k, float b) {
    auto rule = [=](int i) {
        float x = src[i];
        if (x != x) return std::uint8_t(0);
        x = x > vMax ? vMax : x;
        x = x < vMin ? vMin : x;
        const float product = x * k;
        return to_8u(std::nearbyint(product + b));
    };
    const int head = pack::head_to_boundary(dst, n);
    engine::plain(dst, 0, head, rule);
    const __m256 lo = _mm256_set1_ps(vMin), hi = _mm256_set1_ps(vMax);
    const __m256 vk = _mm256_set1_ps(k), vb = _mm256_set1_ps(b);
    auto eight = [&](const float* s) {
        // Upper bound first; min passes a NaN on and max turns it into vMin,
        // which maps to exactly 0 (vMin*k + (0 - vMin*k)). The saturating
        // packs keep the last-bit errors of the map inside 0..255.
        const __m256 x = _mm256_max_ps(_mm256_min_ps(hi, _mm256_loadu_ps(s)), lo);
        return _mm256_cvtps_epi32(_mm256_add_ps(_mm256_mul_ps(x, vk), vb));
    };
    int i = head;
    for (; i + 64 <= n; i += 64) {  // two independent 32-sample chains
        pack::store32(dst + i, eight(src + i), eight(src + i + 8), eight(src + i + 16), eight(src + i + 24));
        pack::store32(dst + i + 32, eight(src + i + 32), eight(src + i + 40), eight(src + i + 48), eight(src + i + 56));
    }
    for (; i + 32 <= n; i += 32)
        pack::store32(dst + i, eight(src + i), eight(src + i + 8), eight(src + i + 16), eight(src + i + 24));
    engine::plain(dst, i, n, rule);
}

template void scale_up<std::uint16_t>(const std::uint8_t*, std::uint16_t*, int, bool);
template void scale_up<std::int16_t>(const std::uint8_t*, std::int16_t*, int, bool);
template void scale_up<std::int32_t>(const std::uint8_t*, std::int32_t*, int, bool);
template void scale_down_accurate<std::uint16_t>(const std::uint16_t*, std::uint8_t*, int);
template void scale_down_accurate<std::int16_t>(const std::int16_t*, std::uint8_t*, int);
template void scale_down_accurate<std::int32_t>(const std::int32_t*, std::uint8_t*, int);
template void scale_down_fast<std::uint16_t>(const std::uint16_t*, std::uint8_t*, int, bool);
template void scale_down_fast<std::int16_t>(const std::int16_t*, std::uint8_t*, int, bool);
template void scale_down_fast<std::int32_t>(const std::int32_t*, std::uint8_t*, int, bool);

}  // namespace rok::kernels
