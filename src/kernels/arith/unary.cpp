#include "kernels/arith/unary.h"

#include <immintrin.h>

#include <bit>
#include <cstdint>
#include <type_traits>

namespace rok::kernels {

namespace {

inline Rok16s abs_one(Rok16s x) { return Rok16s(x < -32767 ? 32767 : (x < 0 ? -x : x)); }
inline Rok32f abs_one(Rok32f x) { return std::bit_cast<Rok32f>(std::bit_cast<std::uint32_t>(x) & 0x7FFFFFFFu); }

inline Rok32s complement_one(Rok32s x) {
    const std::uint32_t u = std::bit_cast<std::uint32_t>(x);
    return x < 0 ? std::bit_cast<Rok32s>(0x80000000u | (0u - u)) : x;
}

// The whole vectors of a row, aligned on d, with `one` over the samples
// before and after them.
template <class T, class One, class Vec>
void each_sample(const T* s, T* d, int n, One one, Vec vec) {
    constexpr int lanes = 32 / sizeof(T);
    int i = 0;
    const auto mis = reinterpret_cast<std::uintptr_t>(d) & 31;
    if (n >= 2 * lanes && mis % sizeof(T) == 0) {
        const int head = int(((32 - mis) & 31) / sizeof(T));
        for (; i < head; ++i) d[i] = one(s[i]);
        for (; i + lanes <= n; i += lanes)
            _mm256_store_si256(reinterpret_cast<__m256i*>(d + i),
                               vec(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(s + i))));
    }
    for (; i < n; ++i) d[i] = one(s[i]);
}

}  // namespace

template <class T>
void abs_row(const T* s, T* d, int n) {
    if constexpr (std::is_same_v<T, Rok16s>) {
        // Clamped to -32767 first, so the magnitude fits.
        each_sample(s, d, n, [](T x) { return abs_one(x); },
                    [](__m256i x) { return _mm256_abs_epi16(_mm256_max_epi16(x, _mm256_set1_epi16(-32767))); });
    } else {
        each_sample(s, d, n, [](T x) { return abs_one(x); },
                    [](__m256i x) { return _mm256_and_si256(x, _mm256_set1_epi32(0x7FFFFFFF)); });
    }
}

void complement_row(const Rok32s* s, Rok32s* d, int n) {
    each_sample(s, d, n, complement_one, [](__m256i x) {
        const __m256i magnitude = _mm256_or_si256(_mm256_sub_epi32(_mm256_setzero_si256(), x), _mm256_set1_epi32(INT32_MIN));
        return _mm256_castps_si256(_mm256_blendv_ps(_mm256_castsi256_ps(x), _mm256_castsi256_ps(magnitude), _mm256_castsi256_ps(x)));
    });
}

template void abs_row<Rok16s>(const Rok16s*, Rok16s*, int);
template void abs_row<Rok32f>(const Rok32f*, Rok32f*, int);

}  // namespace rok::kernels
