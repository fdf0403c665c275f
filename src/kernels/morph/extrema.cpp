#include "kernels/morph/extrema.h"

#include <immintrin.h>

#include <cstdint>

namespace rok::kernels {

namespace {

// One 32-byte register of T and the extremum instructions. The float forms
// return the first operand where it is strictly better and the second
// otherwise, which is better(a, b).
template <class T>
struct Lanes;

template <>
struct Lanes<Rok8u> {
    using V = __m256i;
    static V load(const Rok8u* p) { return _mm256_loadu_si256(reinterpret_cast<const V*>(p)); }
    static void store(Rok8u* p, V v) { _mm256_store_si256(reinterpret_cast<V*>(p), v); }
    static void storeu(Rok8u* p, V v) { _mm256_storeu_si256(reinterpret_cast<V*>(p), v); }
    static V max(V a, V b) { return _mm256_max_epu8(a, b); }
    static V min(V a, V b) { return _mm256_min_epu8(a, b); }
};

template <>
struct Lanes<Rok16u> {
    using V = __m256i;
    static V load(const Rok16u* p) { return _mm256_loadu_si256(reinterpret_cast<const V*>(p)); }
    static void store(Rok16u* p, V v) { _mm256_store_si256(reinterpret_cast<V*>(p), v); }
    static void storeu(Rok16u* p, V v) { _mm256_storeu_si256(reinterpret_cast<V*>(p), v); }
    static V max(V a, V b) { return _mm256_max_epu16(a, b); }
    static V min(V a, V b) { return _mm256_min_epu16(a, b); }
};

template <>
struct Lanes<Rok16s> {
    using V = __m256i;
    static V load(const Rok16s* p) { return _mm256_loadu_si256(reinterpret_cast<const V*>(p)); }
    static void store(Rok16s* p, V v) { _mm256_store_si256(reinterpret_cast<V*>(p), v); }
    static void storeu(Rok16s* p, V v) { _mm256_storeu_si256(reinterpret_cast<V*>(p), v); }
    static V max(V a, V b) { return _mm256_max_epi16(a, b); }
    static V min(V a, V b) { return _mm256_min_epi16(a, b); }
};

template <>
struct Lanes<Rok32f> {
    using V = __m256;
    static V load(const Rok32f* p) { return _mm256_loadu_ps(p); }
    static void store(Rok32f* p, V v) { _mm256_store_ps(p, v); }
    static void storeu(Rok32f* p, V v) { _mm256_storeu_ps(p, v); }
    static V max(V a, V b) { return _mm256_max_ps(a, b); }
    static V min(V a, V b) { return _mm256_min_ps(a, b); }
};

template <>
struct Lanes<Rok64f> {
    using V = __m256d;
    static V load(const Rok64f* p) { return _mm256_loadu_pd(p); }
    static void store(Rok64f* p, V v) { _mm256_store_pd(p, v); }
    static void storeu(Rok64f* p, V v) { _mm256_storeu_pd(p, v); }
    static V max(V a, V b) { return _mm256_max_pd(a, b); }
    static V min(V a, V b) { return _mm256_min_pd(a, b); }
};

template <class T, Extremum E>
struct Pick : Lanes<T> {
    using typename Lanes<T>::V;
    static constexpr int kLanes = 32 / int(sizeof(T));
    static V best(V a, V b) {
        if constexpr (E == Extremum::Max)
            return Lanes<T>::max(a, b);
        else
            return Lanes<T>::min(a, b);
    }
};

// Samples before dst reaches a 32-byte boundary (all of n when it never can,
// because dst is not even aligned to its sample size).
template <class T>
int head_samples(const T* dst, int n) {
    const auto addr = reinterpret_cast<std::uintptr_t>(dst);
    if (addr % sizeof(T) != 0) return n;
    const int head = int(((32 - addr % 32) % 32) / sizeof(T));
    return head < n ? head : n;
}

template <class T, Extremum E>
T rows_at(const T* const* src, int count, int i) {
    T acc = src[0][i];
    for (int k = 1; k < count; ++k) acc = better<E>(acc, src[k][i]);
    return acc;
}

template <class T, Extremum E>
T column_at(const T* r0, const T* r1, const T* r2, int i) {
    return better<E>(r0[i], better<E>(r1[i], r2[i]));
}

template <class T, Extremum E>
T nine_at(const T* r0, const T* r1, const T* r2, int i, int s) {
    return better<E>(better<E>(column_at<T, E>(r0, r1, r2, i - s), column_at<T, E>(r0, r1, r2, i)),
                     column_at<T, E>(r0, r1, r2, i + s));
}

}  // namespace

template <class T, Extremum E>
void extrema_rows(const T* const* src, int count, T* dst, int n) {
    using P = Pick<T, E>;
    using V = typename P::V;
    constexpr int L = P::kLanes;
    const int head = head_samples(dst, n);
    int i = 0;
    for (; i < head; ++i) dst[i] = rows_at<T, E>(src, count, i);
    // Four registers per pass over the sources, so that each source pointer
    // is fetched once per 128 bytes.
    for (; i + 4 * L <= n; i += 4 * L) {
        const T* p = src[0] + i;
        V a0 = P::load(p), a1 = P::load(p + L), a2 = P::load(p + 2 * L), a3 = P::load(p + 3 * L);
        for (int k = 1; k < count; ++k) {
            p = src[k] + i;
            a0 = P::best(a0, P::load(p));
            a1 = P::best(a1, P::load(p + L));
            a2 = P::best(a2, P::load(p + 2 * L));
            a3 = P::best(a3, P::load(p + 3 * L));
        }
        P::store(dst + i, a0);
        P::store(dst + i + L, a1);
        P::store(dst + i + 2 * L, a2);
        P::store(dst + i + 3 * L, a3);
    }
    for (; i + L <= n; i += L) {
        V a = P::load(src[0] + i);
        for (int k = 1; k < count; ++k) a = P::best(a, P::load(src[k] + i));
        P::store(dst + i, a);
    }
    for (; i < n; ++i) dst[i] = rows_at<T, E>(src, count, i);
}

template <class T, Extremum E>
void extrema_3x3(const T* r0, const T* r1, const T* r2, T* dst, int n, int s) {
    using P = Pick<T, E>;
    constexpr int L = P::kLanes;
    const int head = head_samples(dst, n);
    int i = 0;
    for (; i < head; ++i) dst[i] = nine_at<T, E>(r0, r1, r2, i, s);
    auto column = [&](int at) { return P::best(P::load(r0 + at), P::best(P::load(r1 + at), P::load(r2 + at))); };
    for (; i + L <= n; i += L) P::store(dst + i, P::best(P::best(column(i - s), column(i)), column(i + s)));
    for (; i < n; ++i) dst[i] = nine_at<T, E>(r0, r1, r2, i, s);
}

template <class T, Extremum E>
void extrema_3x3_pair(const T* r0, const T* r1, const T* r2, const T* r3, T* d0, T* d1, int n, int s) {
    using P = Pick<T, E>;
    using V = typename P::V;
    constexpr int L = P::kLanes;
    auto pair_at = [&](int i) {
        T top[3], bottom[3];
        for (int d = -1; d <= 1; ++d) {
            const T mid = better<E>(r1[i + d * s], r2[i + d * s]);
            top[d + 1] = better<E>(r0[i + d * s], mid);
            bottom[d + 1] = better<E>(mid, r3[i + d * s]);
        }
        d0[i] = better<E>(better<E>(top[0], top[1]), top[2]);
        d1[i] = better<E>(better<E>(bottom[0], bottom[1]), bottom[2]);
    };
    // The two destinations rarely share an alignment; align on the first.
    const int head = head_samples(d0, n);
    int i = 0;
    for (; i < head; ++i) pair_at(i);
    for (; i + L <= n; i += L) {
        V top[3], bottom[3];
        for (int d = 0; d < 3; ++d) {
            const int at = i + (d - 1) * s;
            const V mid = P::best(P::load(r1 + at), P::load(r2 + at));
            top[d] = P::best(P::load(r0 + at), mid);
            bottom[d] = P::best(mid, P::load(r3 + at));
        }
        P::store(d0 + i, P::best(P::best(top[0], top[1]), top[2]));
        P::storeu(d1 + i, P::best(P::best(bottom[0], bottom[1]), bottom[2]));
    }
    for (; i < n; ++i) pair_at(i);
}

#define ROK_EXTREMA(T)                                                                                           \
    template void extrema_rows<T, Extremum::Min>(const T* const*, int, T*, int);                                 \
    template void extrema_rows<T, Extremum::Max>(const T* const*, int, T*, int);                                 \
    template void extrema_3x3<T, Extremum::Min>(const T*, const T*, const T*, T*, int, int);                     \
    template void extrema_3x3<T, Extremum::Max>(const T*, const T*, const T*, T*, int, int);                     \
    template void extrema_3x3_pair<T, Extremum::Min>(const T*, const T*, const T*, const T*, T*, T*, int, int); \
    template void extrema_3x3_pair<T, Extremum::Max>(const T*, const T*, const T*, const T*, T*, T*, int, int);

ROK_EXTREMA(Rok8u)
ROK_EXTREMA(Rok16u)
ROK_EXTREMA(Rok16s)
ROK_EXTREMA(Rok32f)
ROK_EXTREMA(Rok64f)

#undef ROK_EXTREMA

}  // namespace rok::kernels
