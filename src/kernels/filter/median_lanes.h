// Lane operations of the median kernels: load, store, min and max for each
// sample type, one lane at a time (Scalar) or a register at a time (Vec).
//
// The medians compare keys, integers whose order is the order the filters
// use. Integer samples are their own keys. Float samples are ordered as IEEE
// totalOrder (-NaN < -inf < ... < -0 < +0 < ... < +inf < +NaN), whose key
// is the bit pattern with the magnitude bits flipped for negative numbers:
// every bit pattern has its own key, so a median is always one of its
// neighbourhood's samples, bit for bit, NaNs and signed zeros included.
#pragma once

#include <immintrin.h>

#include <bit>
#include <cstdint>
#include <type_traits>

#include "frame/generated/roki_types.h"

namespace rok::kernels::median {

template <class T>
using Key = std::conditional_t<std::is_same_v<T, Rok32f>, std::int32_t,
                               std::conditional_t<std::is_same_v<T, Rok64f>, std::int64_t, T>>;

// The same flip maps a float's bits to its key and the key back to the bits.
template <class K>
constexpr K flip_negative(K bits) {
    using U = std::make_unsigned_t<K>;
    const K sign = bits >> (8 * sizeof(K) - 1);  // 0 or -1
    return K(bits ^ K(U(sign) >> 1));
}

template <class T>
inline Key<T> to_key(T v) {
    if constexpr (std::is_floating_point_v<T>) return flip_negative(std::bit_cast<Key<T>>(v));
    else return v;
}

template <class T>
inline T from_key(Key<T> k) {
    if constexpr (std::is_floating_point_v<T>) return std::bit_cast<T>(flip_negative(k));
    else return k;
}

template <class T>
struct Scalar {
    using Sample = T;
    using K = Key<T>;
    using V = K;
    static constexpr int N = 1;
    static V load(const T* p) { return to_key(*p); }
    static void store(T* p, V v) { *p = from_key<T>(v); }
    static V load_key(const K* p) { return *p; }
    static void store_key(K* p, V v) { *p = v; }
    static V min(V a, V b) { return b < a ? b : a; }
    static V max(V a, V b) { return a < b ? b : a; }
    static void sort2(V& a, V& b) {
        const V lo = min(a, b);
        b = max(a, b);
        a = lo;
    }
};

template <class T>
struct Vec;

struct VecBase {
    using V = __m256i;
    static V loadu(const void* p) { return _mm256_loadu_si256(static_cast<const __m256i*>(p)); }
    static void storeu(void* p, V v) { _mm256_storeu_si256(static_cast<__m256i*>(p), v); }
};

template <class T, class Derived>
struct VecOf : VecBase {
    using Sample = T;
    using K = Key<T>;
    static constexpr int N = 32 / int(sizeof(T));
    static V load_key(const K* p) { return loadu(p); }
    static void store_key(K* p, V v) { storeu(p, v); }
    static void sort2(V& a, V& b) {
        const V lo = Derived::min(a, b);
        b = Derived::max(a, b);
        a = lo;
    }
};

template <>
struct Vec<Rok8u> : VecOf<Rok8u, Vec<Rok8u>> {
    static V load(const Rok8u* p) { return loadu(p); }
    static void store(Rok8u* p, V v) { storeu(p, v); }
    static V min(V a, V b) { return _mm256_min_epu8(a, b); }
    static V max(V a, V b) { return _mm256_max_epu8(a, b); }
};

template <>
struct Vec<Rok16u> : VecOf<Rok16u, Vec<Rok16u>> {
    static V load(const Rok16u* p) { return loadu(p); }
    static void store(Rok16u* p, V v) { storeu(p, v); }
    static V min(V a, V b) { return _mm256_min_epu16(a, b); }
    static V max(V a, V b) { return _mm256_max_epu16(a, b); }
};

template <>
struct Vec<Rok16s> : VecOf<Rok16s, Vec<Rok16s>> {
    static V load(const Rok16s* p) { return loadu(p); }
    static void store(Rok16s* p, V v) { storeu(p, v); }
    static V min(V a, V b) { return _mm256_min_epi16(a, b); }
    static V max(V a, V b) { return _mm256_max_epi16(a, b); }
};

template <>
struct Vec<Rok32f> : VecOf<Rok32f, Vec<Rok32f>> {
    static V flip(V b) { return _mm256_xor_si256(b, _mm256_srli_epi32(_mm256_srai_epi32(b, 31), 1)); }
    static V load(const Rok32f* p) { return flip(loadu(p)); }
    static void store(Rok32f* p, V v) { storeu(p, flip(v)); }
    static V min(V a, V b) { return _mm256_min_epi32(a, b); }
    static V max(V a, V b) { return _mm256_max_epi32(a, b); }
};

// AVX2 has no 64-bit min or max: one compare serves both halves of a pair.
template <>
struct Vec<Rok64f> : VecOf<Rok64f, Vec<Rok64f>> {
    static V flip(V b) {
        const V sign = _mm256_cmpgt_epi64(_mm256_setzero_si256(), b);
        return _mm256_xor_si256(b, _mm256_srli_epi64(sign, 1));
    }
    static V load(const Rok64f* p) { return flip(loadu(p)); }
    static void store(Rok64f* p, V v) { storeu(p, flip(v)); }
    static V min(V a, V b) { return _mm256_blendv_epi8(a, b, _mm256_cmpgt_epi64(a, b)); }
    static V max(V a, V b) { return _mm256_blendv_epi8(b, a, _mm256_cmpgt_epi64(a, b)); }
    static void sort2(V& a, V& b) {
        const V gt = _mm256_cmpgt_epi64(a, b);
        const V lo = _mm256_blendv_epi8(a, b, gt);
        b = _mm256_blendv_epi8(b, a, gt);
        a = lo;
    }
};

// Address `bytes` away from p (steps and channel strides are byte counts).
template <class T>
inline T* offset(T* p, std::ptrdiff_t bytes) {
    using Byte = std::conditional_t<std::is_const_v<T>, const char, char>;
    return reinterpret_cast<T*>(reinterpret_cast<Byte*>(p) + bytes);
}

}  // namespace rok::kernels::median
