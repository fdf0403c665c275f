#include "kernels/arith/shift.h"

#include <immintrin.h>

#include <algorithm>
#include <cstdint>
#include <type_traits>

namespace rok::kernels {

namespace {

template <class T>
constexpr std::uint32_t kBits = 8 * sizeof(T);

// The rule, one sample at a time.
template <ShiftDir Dir, class T>
T shift_one(T x, std::uint32_t k) {
    using U = std::make_unsigned_t<T>;
    if constexpr (Dir == ShiftDir::Left) return k >= kBits<T> ? T(0) : T(U(std::uint32_t(U(x)) << k));
    else if constexpr (std::is_signed_v<T>) return T(x >> std::min(k, kBits<T> - 1));
    else return k >= kBits<T> ? T(0) : T(x >> k);
}

// Per-lane shifts without per-lane shift instructions (AVX2 has them for
// 32-bit lanes only): a left shift by k is a product by 2^k, a right shift a
// high product by 2^(w-k) (w the lane width). 8-bit samples run as the low
// and high bytes of 16-bit lanes. Signed right shifts run unsigned on x ^ m
// (m the sign bit) and take m >> k off again: (x + m) >> k - m >> k is the
// floor of x / 2^k. Each vector of a row gets its own multipliers, since the
// channel of a lane changes from vector to vector; three vectors make one
// period for every channel count (1, 3, 4).
struct Lanes {
    __m256i a, b, c;  // multipliers and masks, by type (see apply)
};

template <ShiftDir Dir, class T>
std::uint16_t multiplier16(std::uint32_t k) {
    if constexpr (Dir == ShiftDir::Left) return k < 16 ? std::uint16_t(1u << k) : 0;
    else return k >= 1 && k <= 16 ? std::uint16_t(1u << (16 - k)) : 0;
}

inline __m256i load_lanes(const void* p) { return _mm256_load_si256(static_cast<const __m256i*>(p)); }

// The parameters of a vector from the counts of its lanes, k[0 .. lanes - 1].
template <ShiftDir Dir, class T>
Lanes lanes_for(const std::uint32_t* k) {
    constexpr bool arithmetic = Dir == ShiftDir::Right && std::is_signed_v<T>;
    // Counts beyond the sign bit change nothing in a signed right shift.
    auto count = [&](int j) { return arithmetic ? std::min(k[j], kBits<T> - 1) : k[j]; };
    if constexpr (sizeof(T) == 4) {
        return {_mm256_loadu_si256(reinterpret_cast<const __m256i*>(k)), _mm256_setzero_si256(), _mm256_setzero_si256()};
    } else if constexpr (sizeof(T) == 2) {
        alignas(32) std::uint16_t mul[16], keep[16], bias[16];
        for (int j = 0; j < 16; ++j) {
            mul[j] = multiplier16<Dir, T>(count(j));
            keep[j] = Dir == ShiftDir::Right && count(j) == 0 ? 0xFFFF : 0;  // a right shift by 0 keeps the sample
            bias[j] = arithmetic ? std::uint16_t(0x8000u >> count(j)) : 0;
        }
        return {load_lanes(mul), load_lanes(keep), load_lanes(bias)};
    } else {
        // a and b multiply the even and odd bytes of each 16-bit lane (2^k, or
        // 2^(8-k) for right shifts, where k = 0 gives 256); c is the bias.
        alignas(32) std::uint16_t even[16], odd[16];
        alignas(32) std::uint8_t bias[32];
        auto mul = [](std::uint32_t c) -> std::uint16_t {
            if constexpr (Dir == ShiftDir::Left) return c < 8 ? std::uint16_t(1u << c) : 0;
            else return c <= 8 ? std::uint16_t(1u << (8 - c)) : 0;
        };
        for (int j = 0; j < 16; ++j) {
            even[j] = mul(count(2 * j));
            odd[j] = mul(count(2 * j + 1));
        }
        for (int j = 0; j < 32; ++j) bias[j] = arithmetic ? std::uint8_t(0x80u >> count(j)) : 0;
        return {load_lanes(even), load_lanes(odd), load_lanes(bias)};
    }
}

template <ShiftDir Dir, class T>
inline __m256i apply(__m256i x, const Lanes& p) {
    constexpr bool arithmetic = Dir == ShiftDir::Right && std::is_signed_v<T>;
    if constexpr (sizeof(T) == 4) {
        if constexpr (Dir == ShiftDir::Left) return _mm256_sllv_epi32(x, p.a);
        else if constexpr (arithmetic) return _mm256_srav_epi32(x, p.a);  // counts of 32 and more: the sign
        else return _mm256_srlv_epi32(x, p.a);
    } else if constexpr (sizeof(T) == 2) {
        if constexpr (Dir == ShiftDir::Left) return _mm256_mullo_epi16(x, p.a);
        const __m256i sign = _mm256_set1_epi16(short(0x8000));
        const __m256i u = arithmetic ? _mm256_xor_si256(x, sign) : x;
        const __m256i r = _mm256_or_si256(_mm256_mulhi_epu16(u, p.a), _mm256_and_si256(u, p.b));
        return arithmetic ? _mm256_sub_epi16(r, p.c) : r;
    } else {
        const __m256i high = _mm256_set1_epi16(short(0xFF00));
        if constexpr (Dir == ShiftDir::Left) {
            const __m256i even = _mm256_andnot_si256(high, _mm256_mullo_epi16(x, p.a));
            const __m256i odd = _mm256_mullo_epi16(_mm256_and_si256(x, high), p.b);
            return _mm256_or_si256(even, odd);
        }
        const __m256i u = arithmetic ? _mm256_xor_si256(x, _mm256_set1_epi8(char(0x80))) : x;
        const __m256i even = _mm256_mulhi_epu16(_mm256_slli_epi16(u, 8), p.a);
        const __m256i odd = _mm256_slli_epi16(_mm256_mulhi_epu16(_mm256_and_si256(u, high), p.b), 8);
        const __m256i r = _mm256_or_si256(even, odd);
        return arithmetic ? _mm256_sub_epi8(r, p.c) : r;
    }
}

inline __m256i load(const void* p) { return _mm256_loadu_si256(static_cast<const __m256i*>(p)); }
inline void store(void* p, __m256i v) { _mm256_store_si256(static_cast<__m256i*>(p), v); }

}  // namespace

template <ShiftDir Dir, class T>
void shift_row(const T* s, T* d, int n, const std::uint32_t* counts, int channels) {
    constexpr int lanes = 32 / sizeof(T);
    int i = 0, c = 0;  // c: the channel of sample i
    auto scalar = [&](int to) {
        for (; i < to; ++i, c = c + 1 == channels ? 0 : c + 1) d[i] = shift_one<Dir>(s[i], counts[c]);
    };
    const auto mis = reinterpret_cast<std::uintptr_t>(d) & 31;
    if (n >= 2 * lanes && mis % sizeof(T) == 0) {
        scalar(int(((32 - mis) & 31) / sizeof(T)));
        // The counts of the lanes of three vectors: one period for 1, 3 and 4
        // channels, so the vectors after them repeat it.
        std::uint32_t k[3 * lanes];
        for (int j = 0, kc = c; j < 3 * lanes; ++j, kc = kc + 1 == channels ? 0 : kc + 1) k[j] = counts[kc];
        const Lanes p[3] = {lanes_for<Dir, T>(k), lanes_for<Dir, T>(k + lanes), lanes_for<Dir, T>(k + 2 * lanes)};
        for (; i + 3 * lanes <= n; i += 3 * lanes) {
            const __m256i r0 = apply<Dir, T>(load(s + i), p[0]);
            const __m256i r1 = apply<Dir, T>(load(s + i + lanes), p[1]);
            const __m256i r2 = apply<Dir, T>(load(s + i + 2 * lanes), p[2]);
            store(d + i, r0);
            store(d + i + lanes, r1);
            store(d + i + 2 * lanes, r2);
        }
        int v = 0;
        for (; i + lanes <= n; i += lanes, ++v) store(d + i, apply<Dir, T>(load(s + i), p[v]));
        c = (c + v * lanes) % channels;  // whole periods leave the channel as it was
    }
    scalar(n);
}

#define ROK_SHIFT(DIR, T) template void shift_row<ShiftDir::DIR, T>(const T*, T*, int, const std::uint32_t*, int);
ROK_SHIFT(Left, Rok8u)
ROK_SHIFT(Left, Rok16u)
ROK_SHIFT(Left, Rok32s)
ROK_SHIFT(Right, Rok8u)
ROK_SHIFT(Right, Rok8s)
ROK_SHIFT(Right, Rok16u)
ROK_SHIFT(Right, Rok16s)
ROK_SHIFT(Right, Rok32s)
#undef ROK_SHIFT

}  // namespace rok::kernels
