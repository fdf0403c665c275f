// Value-keeping conversions: exact widening, saturating narrowing and the
// sign changes that send negative values to 0.
#include <cstdint>
#include <limits>
#include <type_traits>

#include "kernels/convert.h"
#include "kernels/convert_engine.h"

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

template <class S, class D>
void convert_value(const S* src, D* dst, int n, bool stream) {
    engine::run(dst, n, stream, [src](int i) { return value_of<S, D>(src[i]); });
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
