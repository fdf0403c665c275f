// Value-keeping conversions: exact widening, saturating narrowing and the
// sign changes that send negative values to 0.
#include <cstdint>
#include <limits>
#include <type_traits>

#include "kernels/convert/convert.h"
#include "kernels/convert/convert_engine.h"
#include "kernels/convert/convert_pack.h"

namespace rok::kernels {

namespace {

// The clamp bounds of an S value for destination D, as S values (every bound
// is inside S's range, so the comparison stays in S's own width).
template <class S, class D>
constexpr bool fits() {
    if constexpr (std::is_floating_point_v<D>) return true;
    else return std::int64_t(std::numeric_limits<D>::min()) <= std::int64_t(std::numeric_limits<S>::min()) &&
                std::uint64_t(std::numeric_limits<D>::max()) >= std::uint64_t(std::numeric_limits<S>::max());
}

template <class S, class D>
inline D value_of(S x) {
    if constexpr (fits<S, D>()) {
        return D(x);
    } else {
        constexpr std::int64_t dlo = std::numeric_limits<D>::min(), slo = std::numeric_limits<S>::min();
        constexpr std::uint64_t dhi = std::numeric_limits<D>::max(), shi = std::numeric_limits<S>::max();
        constexpr S lo = S(dlo > slo ? dlo : slo);
        constexpr S hi = S(dhi < shi ? dhi : shi);
        return D(x < lo ? lo : (x > hi ? hi : x));
    }
}

}  // namespace

// Narrowing to 8 bits by the saturating packs, 32 samples per step.
template <class S, class D>
void narrow_to_8(const S* src, D* dst, int n) {
    auto rule = [src](int i) { return value_of<S, D>(src[i]); };
    const int head = pack::head_to_boundary(dst, n);
    engine::plain(dst, 0, head, rule);
    int i = head;
    for (; i + 32 <= n; i += 32) {
        const __m256i* s = reinterpret_cast<const __m256i*>(src + i);
        if constexpr (sizeof(S) == 4) {
            pack::store32(dst + i, _mm256_loadu_si256(s), _mm256_loadu_si256(s + 1), _mm256_loadu_si256(s + 2),
                          _mm256_loadu_si256(s + 3));
        } else {
            __m256i a = _mm256_loadu_si256(s), b = _mm256_loadu_si256(s + 1);
            if constexpr (std::is_unsigned_v<S>) {  // above 255 would read as negative in the signed pack
                a = _mm256_min_epu16(a, _mm256_set1_epi16(255));
                b = _mm256_min_epu16(b, _mm256_set1_epi16(255));
            }
            const __m256i bytes = _mm256_permute4x64_epi64(_mm256_packus_epi16(a, b), 0xD8);
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + i), bytes);
        }
    }
    engine::plain(dst, i, n, rule);
}

template <class S, class D>
void convert_value(const S* src, D* dst, int n, bool stream) {
    if constexpr (sizeof(D) == 1 && sizeof(S) > 1) {
        static_assert(sizeof(S) == 4 || std::is_unsigned_v<D>, "the 16-bit pack saturates to unsigned");
        narrow_to_8(src, dst, n);  // outputs are small; no streaming needed
    } else {
        engine::run(dst, n, stream, [src](int i) { return value_of<S, D>(src[i]); });
    }
}

#define ROK_CONVERT_VALUE(S, D) template void convert_value<S, D>(const S*, D*, int, bool);
// widening
ROK_CONVERT_VALUE(std::uint8_t, std::uint16_t)
ROK_CONVERT_VALUE(std::uint8_t, std::int16_t)
ROK_CONVERT_VALUE(std::uint8_t, std::int32_t)
ROK_CONVERT_VALUE(std::uint8_t, float)
ROK_CONVERT_VALUE(std::int8_t, std::int16_t)
ROK_CONVERT_VALUE(std::int8_t, std::int32_t)
ROK_CONVERT_VALUE(std::int8_t, float)
ROK_CONVERT_VALUE(std::uint16_t, std::int32_t)
ROK_CONVERT_VALUE(std::uint16_t, std::uint32_t)
ROK_CONVERT_VALUE(std::uint16_t, float)
ROK_CONVERT_VALUE(std::int16_t, std::int32_t)
ROK_CONVERT_VALUE(std::int16_t, float)
ROK_CONVERT_VALUE(std::int32_t, float)
ROK_CONVERT_VALUE(std::uint32_t, float)
// saturating narrowing
ROK_CONVERT_VALUE(std::uint16_t, std::uint8_t)
ROK_CONVERT_VALUE(std::int16_t, std::uint8_t)
ROK_CONVERT_VALUE(std::int32_t, std::uint8_t)
ROK_CONVERT_VALUE(std::int32_t, std::int8_t)
// sign changes
ROK_CONVERT_VALUE(std::int8_t, std::uint8_t)
ROK_CONVERT_VALUE(std::int8_t, std::uint16_t)
ROK_CONVERT_VALUE(std::int8_t, std::uint32_t)
ROK_CONVERT_VALUE(std::int16_t, std::uint16_t)
ROK_CONVERT_VALUE(std::int16_t, std::uint32_t)
ROK_CONVERT_VALUE(std::int32_t, std::uint32_t)
#undef ROK_CONVERT_VALUE

}  // namespace rok::kernels
