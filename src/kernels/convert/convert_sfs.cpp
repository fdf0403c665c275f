// Integer conversions with a scale factor and rounding mode, and bits to
// bytes.
#include <cstdint>
#include <cstring>
#include <limits>

#include "kernels/convert/convert.h"
#include "kernels/convert/convert_engine.h"

namespace rok::kernels {

namespace {

enum class Shift { Truncate, HalfEven, HalfAway, Left, None };

// The magnitude of x (every source is at most 32 bits, so |x| < 2^32) is
// scaled, then the sign restored and the result saturated to D.
template <class S, class D, Shift K>
inline D scaled(S x, int s) {
    const bool negative = x < 0;
    const std::uint64_t mag = negative ? std::uint64_t(-std::int64_t(x)) : std::uint64_t(x);
    std::uint64_t q;
    if constexpr (K == Shift::None) q = mag;
    else if constexpr (K == Shift::Left) q = mag << s;
    else if constexpr (K == Shift::Truncate) q = mag >> s;
    else if constexpr (K == Shift::HalfEven) q = (mag + (std::uint64_t(1) << (s - 1)) - 1 + ((mag >> s) & 1)) >> s;
    else q = (mag + (std::uint64_t(1) << (s - 1))) >> s;
    constexpr std::uint64_t hi = std::uint64_t(std::numeric_limits<D>::max());
    constexpr std::uint64_t lo_mag = std::uint64_t(-std::int64_t(std::numeric_limits<D>::min()));
    if (negative) return q > lo_mag ? std::numeric_limits<D>::min() : D(-std::int64_t(q));
    return q > hi ? std::numeric_limits<D>::max() : D(q);
}

template <class S, class D, Shift K>
inline void scaled_row(const S* src, D* dst, int n, int s) {
    engine::run(dst, n, false, [=](int i) { return scaled<S, D, K>(src[i], s); });
}

}  // namespace

template <class S, class D>
void convert_int_sfs(const S* src, D* dst, int n, int mode, int scaleFactor) {
    if (scaleFactor == 0) return scaled_row<S, D, Shift::None>(src, dst, n, 0);
    if (scaleFactor < 0) {
        // A shift by 32 already saturates every non-zero 32-bit magnitude,
        // and keeps (2^32 - 1) << 32 inside 64 bits.
        return scaled_row<S, D, Shift::Left>(src, dst, n, scaleFactor < -32 ? 32 : -scaleFactor);
    }
    // Beyond 40 every magnitude below 2^32 rounds to 0 in each mode.
    const int s = scaleFactor > 40 ? 40 : scaleFactor;
    if (mode == 0) return scaled_row<S, D, Shift::Truncate>(src, dst, n, s);
    if (mode == 1) return scaled_row<S, D, Shift::HalfEven>(src, dst, n, s);
    return scaled_row<S, D, Shift::HalfAway>(src, dst, n, s);
}

#define ROK_CONVERT_SFS(S, D) template void convert_int_sfs<S, D>(const S*, D*, int, int, int);
ROK_CONVERT_SFS(std::uint8_t, std::int8_t)
ROK_CONVERT_SFS(std::uint16_t, std::int8_t)
ROK_CONVERT_SFS(std::uint16_t, std::int16_t)
ROK_CONVERT_SFS(std::int16_t, std::int8_t)
ROK_CONVERT_SFS(std::int32_t, std::int16_t)
ROK_CONVERT_SFS(std::int32_t, std::uint16_t)
ROK_CONVERT_SFS(std::uint32_t, std::uint8_t)
ROK_CONVERT_SFS(std::uint32_t, std::int8_t)
ROK_CONVERT_SFS(std::uint32_t, std::uint16_t)
ROK_CONVERT_SFS(std::uint32_t, std::int16_t)
ROK_CONVERT_SFS(std::uint32_t, std::int32_t)
#undef ROK_CONVERT_SFS

void convert_bits(const std::uint8_t* src, int bitOffset, std::uint8_t* dst, int n) {
    src += bitOffset / 8;
    int bit = bitOffset % 8;
    int i = 0;
    // Head: the bits of the first byte that the offset leaves.
    if (bit != 0) {
        for (; i < n && bit < 8; ++i, ++bit) dst[i] = (*src >> (7 - bit)) & 1 ? 255 : 0;
        ++src;
    }
    // Whole bytes: each 4-bit group picks four output bytes from a table.
    static constexpr std::uint32_t kNibble[16] = {
        0x00000000, 0xFF000000, 0x00FF0000, 0xFFFF0000, 0x0000FF00, 0xFF00FF00, 0x00FFFF00, 0xFFFFFF00,
        0x000000FF, 0xFF0000FF, 0x00FF00FF, 0xFFFF00FF, 0x0000FFFF, 0xFF00FFFF, 0x00FFFFFF, 0xFFFFFFFF};
    for (; i + 8 <= n; i += 8, ++src) {
        std::memcpy(dst + i, &kNibble[*src >> 4], 4);
        std::memcpy(dst + i + 4, &kNibble[*src & 15], 4);
    }
    // Tail: the leading bits of one more byte.
    for (int b = 0; i < n; ++i, ++b) dst[i] = (*src >> (7 - b)) & 1 ? 255 : 0;
}

}  // namespace rok::kernels
