#include "kernels/morph/extrema.h"

#include <immintrin.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <type_traits>
#include <utility>

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
    static void storeu(Rok8u* p, V v) { _mm256_storeu_si256(reinterpret_cast<V*>(p), v); }
    static void stream(Rok8u* p, V v) { _mm256_stream_si256(reinterpret_cast<V*>(p), v); }
    static V max(V a, V b) { return _mm256_max_epu8(a, b); }
    static V min(V a, V b) { return _mm256_min_epu8(a, b); }
};

template <>
struct Lanes<Rok16u> {
    using V = __m256i;
    static V load(const Rok16u* p) { return _mm256_loadu_si256(reinterpret_cast<const V*>(p)); }
    static void storeu(Rok16u* p, V v) { _mm256_storeu_si256(reinterpret_cast<V*>(p), v); }
    static void stream(Rok16u* p, V v) { _mm256_stream_si256(reinterpret_cast<V*>(p), v); }
    static V max(V a, V b) { return _mm256_max_epu16(a, b); }
    static V min(V a, V b) { return _mm256_min_epu16(a, b); }
};

template <>
struct Lanes<Rok16s> {
    using V = __m256i;
    static V load(const Rok16s* p) { return _mm256_loadu_si256(reinterpret_cast<const V*>(p)); }
    static void storeu(Rok16s* p, V v) { _mm256_storeu_si256(reinterpret_cast<V*>(p), v); }
    static void stream(Rok16s* p, V v) { _mm256_stream_si256(reinterpret_cast<V*>(p), v); }
    static V max(V a, V b) { return _mm256_max_epi16(a, b); }
    static V min(V a, V b) { return _mm256_min_epi16(a, b); }
};

template <>
struct Lanes<Rok32f> {
    using V = __m256;
    static V load(const Rok32f* p) { return _mm256_loadu_ps(p); }
    static void storeu(Rok32f* p, V v) { _mm256_storeu_ps(p, v); }
    static void stream(Rok32f* p, V v) { _mm256_stream_ps(p, v); }
    static V max(V a, V b) { return _mm256_max_ps(a, b); }
    static V min(V a, V b) { return _mm256_min_ps(a, b); }
};

template <>
struct Lanes<Rok64f> {
    using V = __m256d;
    static V load(const Rok64f* p) { return _mm256_loadu_pd(p); }
    static void storeu(Rok64f* p, V v) { _mm256_storeu_pd(p, v); }
    static void stream(Rok64f* p, V v) { _mm256_stream_pd(p, v); }
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
    // A result vector stored by a streaming store where it lies in the
    // lines that take them, otherwise by an ordinary store. Only samples of
    // four bytes or more stream (the engine asks for no other), so the loops
    // of the smaller ones keep no test for it.
    static constexpr bool kStreams = sizeof(T) >= 4;
    template <class Lines>
    static void put(T* p, V v, const Lines& lines) {
        if (kStreams && lines.whole(p, 32))
            Lanes<T>::stream(p, v);
        else
            Lanes<T>::storeu(p, v);
    }
    // The same by a flag and p's alignment alone, for the rectangle
    // streams, whose loops measured slower with the bounds of Lines (on
    // images within the caches, where nothing streams): there the lines at
    // either end of a row may be streamed in part.
    static void put(T* p, V v, bool stream) {
        if (kStreams && stream && (reinterpret_cast<std::uintptr_t>(p) & 31) == 0)
            Lanes<T>::stream(p, v);
        else
            Lanes<T>::storeu(p, v);
    }
};

// The whole 64-byte lines within [from, to) where a stream of result
// vectors may use streaming stores: a line streamed only in part, or written
// both ways, goes to memory piecewise (several times slower than ordinary
// stores). So `from` is past every ordinary store of the row's head and `to`
// before every one of its tail, and the stores between tile those lines
// (whole(p) holds only at p aligned to the store). Empty unless `on`.
struct Lines {
    Lines(const void* from, const void* to, bool on) {
        const auto a = reinterpret_cast<std::uintptr_t>(from), b = reinterpret_cast<std::uintptr_t>(to);
        lo = (a + 63) & ~std::uintptr_t(63);
        hi = b & ~std::uintptr_t(63);
        some = on && hi > lo;
    }
    // Empty, a flag's test alone.
    bool whole(const void* p, int bytes) const {
        const auto a = reinterpret_cast<std::uintptr_t>(p);
        return some && a >= lo && a + unsigned(bytes) <= hi && (a & unsigned(bytes - 1)) == 0;
    }
    std::uintptr_t lo, hi;
    bool some;
};

// Moves between the sample types' registers and the byte shuffles.
inline __m256i bits(__m256i v) { return v; }
inline __m256i bits(__m256 v) { return _mm256_castps_si256(v); }
inline __m256i bits(__m256d v) { return _mm256_castpd_si256(v); }
// Back to the type of `like`.
inline __m256i as(__m256i v, __m256i) { return v; }
inline __m256 as(__m256i v, __m256) { return _mm256_castsi256_ps(v); }
inline __m256d as(__m256i v, __m256d) { return _mm256_castsi256_pd(v); }

// The 32 bytes that start 16 bytes into the 64-byte stream (a, b).
template <class V>
V middle(V a, V b) {
    return as(_mm256_permute2x128_si256(bits(a), bits(b), 0x21), a);
}

// With m = middle(a, b): the vector one sample of B bytes after a, and the
// one one sample before b, in the stream (a, b).
template <int B, class V>
V one_after(V a, V m) {
    return as(_mm256_alignr_epi8(bits(m), bits(a), B), a);
}
template <int B, class V>
V one_before(V m, V b) {
    return as(_mm256_alignr_epi8(bits(b), bits(m), 16 - B), b);
}

// The vector S bytes into the stream (a, b), 0 < S <= 32.
template <int S, class V>
V bytes_into(V a, V b) {
    if constexpr (S == 32)
        return b;
    else if constexpr (S == 16)
        return middle(a, b);
    else if constexpr (S < 16)
        return as(_mm256_alignr_epi8(bits(middle(a, b)), bits(a), S), a);
    else
        return as(_mm256_alignr_epi8(bits(b), bits(middle(a, b)), S - 16), a);
}

// How far ahead along a row the kernels prefetch the source rows that
// reach them first from memory (each row a single stream): a few
// kilobytes, so that the lines arrive before the loop does.
constexpr int kAhead = 4096;

inline void prefetch(const void* p) { _mm_prefetch(static_cast<const char*>(p) + kAhead, _MM_HINT_T0); }

// Samples before dst reaches a 32-byte boundary (none when it never can,
// because dst is not even aligned to its sample size).
template <class T>
int head_samples(const T* dst, int n) {
    const auto addr = reinterpret_cast<std::uintptr_t>(dst);
    if (addr % sizeof(T) != 0) return 0;
    const int head = int(((32 - addr % 32) % 32) / sizeof(T));
    return head < n ? head : n;
}

// Whether the samples [a, a + na) and [b, b + nb) do not overlap.
template <class T>
bool apart(const T* a, int na, const T* b, int nb) {
    const auto x = reinterpret_cast<std::uintptr_t>(a), y = reinterpret_cast<std::uintptr_t>(b);
    return x + std::uintptr_t(na) * sizeof(T) <= y || y + std::uintptr_t(nb) * sizeof(T) <= x;
}

// Runs vector(i) (L outputs from i) over the n outputs of dst, the stores
// aligned on dst after the first; block(i) does four vectors at once where
// that saves work. Where a sample computed twice comes out the same
// (`recompute`: no source overlaps dst except as dst itself), the unaligned
// head and the short tail are one more vector each, overlapping the body;
// otherwise they go through scalar(i), one sample at a time.
template <int L, class T, class Vector, class Block, class Scalar>
void sweep(const T* dst, int n, bool recompute, Vector&& vector, Block&& block, Scalar&& scalar) {
    const int head = head_samples(dst, n);
    int i = 0;
    const bool overlap = recompute && n >= L;
    if (overlap && head > 0) {
        vector(0);
        i = head;
    }
    for (; i < head; ++i) scalar(i);
    for (; i + 4 * L <= n; i += 4 * L) block(i);
    for (; i + L <= n; i += L) vector(i);
    if (overlap && i < n) return vector(n - L);
    for (; i < n; ++i) scalar(i);
}

template <int L, class T, class Vector, class Scalar>
void sweep(const T* dst, int n, bool recompute, Vector&& vector, Scalar&& scalar) {
    sweep<L>(
        dst, n, recompute, vector,
        [&](int i) {
            for (int k = 0; k < 4; ++k) vector(i + k * L);
        },
        scalar);
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
void extrema_rows(const T* const* src, int count, T* dst, int n, bool stream) {
    using P = Pick<T, E>;
    using V = typename P::V;
    constexpr int L = P::kLanes;
    bool recompute = true;
    for (int k = 0; k < count; ++k) recompute = recompute && (src[k] == dst || apart(src[k], n, dst, n));
    auto scalar = [&](int i) { dst[i] = rows_at<T, E>(src, count, i); };
    switch (count) {
        case 1:
            return sweep<L>(dst, n, recompute, [&](int i) { P::storeu(dst + i, P::load(src[0] + i)); }, scalar);
        case 2: {
            const T *a = src[0], *b = src[1];
            // Past the unaligned head vector, before the overlapping tail.
            const Lines lines(dst + L, dst + (n - L), stream && recompute);
            if (P::kStreams && lines.some)
                return sweep<L>(
                    dst, n, recompute, [&](int i) { P::put(dst + i, P::best(P::load(a + i), P::load(b + i)), lines); },
                    scalar);
            return sweep<L>(
                dst, n, recompute, [&](int i) { P::storeu(dst + i, P::best(P::load(a + i), P::load(b + i))); }, scalar);
        }
        case 3: {
            const T *a = src[0], *b = src[1], *c = src[2];
            return sweep<L>(
                dst, n, recompute,
                [&](int i) { P::storeu(dst + i, P::best(P::best(P::load(a + i), P::load(b + i)), P::load(c + i))); },
                scalar);
        }
        default:
            // Four registers per pass over the sources, so that each source
            // pointer is fetched once per four vectors.
            return sweep<L>(
                dst, n, recompute,
                [&](int i) {
                    V acc = P::load(src[0] + i);
                    for (int k = 1; k < count; ++k) acc = P::best(acc, P::load(src[k] + i));
                    P::storeu(dst + i, acc);
                },
                [&](int i) {
                    const T* p = src[0] + i;
                    V a0 = P::load(p), a1 = P::load(p + L), a2 = P::load(p + 2 * L), a3 = P::load(p + 3 * L);
                    for (int k = 1; k < count; ++k) {
                        p = src[k] + i;
                        a0 = P::best(a0, P::load(p));
                        a1 = P::best(a1, P::load(p + L));
                        a2 = P::best(a2, P::load(p + 2 * L));
                        a3 = P::best(a3, P::load(p + 3 * L));
                    }
                    P::storeu(dst + i, a0);
                    P::storeu(dst + i + L, a1);
                    P::storeu(dst + i + 2 * L, a2);
                    P::storeu(dst + i + 3 * L, a3);
                },
                scalar);
    }
}

template <class T, Extremum E>
void extrema_rows_shared(const T* const* shared, int ns, const T* const* first, int n0, const T* const* second,
                         int n1, T* d0, T* d1, int n) {
    using P = Pick<T, E>;
    using V = typename P::V;
    constexpr int L = P::kLanes;
    auto fold = [](V acc, const T* const* src, int count, int i) {
        for (int k = 0; k < count; ++k) acc = P::best(acc, P::load(src[k] + i));
        return acc;
    };
    sweep<L>(
        d0, n, true,
        [&](int i) {
            const V mid = fold(P::load(shared[0] + i), shared + 1, ns - 1, i);
            P::storeu(d0 + i, fold(mid, first, n0, i));
            P::storeu(d1 + i, fold(mid, second, n1, i));
        },
        [&](int i) {
            // Four registers per pass over the sources, each source pointer
            // fetched once per four vectors.
            V m[4], a[4];
            for (int q = 0; q < 4; ++q) m[q] = P::load(shared[0] + i + q * L);
            for (int k = 1; k < ns; ++k)
                for (int q = 0; q < 4; ++q) m[q] = P::best(m[q], P::load(shared[k] + i + q * L));
            for (int q = 0; q < 4; ++q) a[q] = m[q];
            for (int k = 0; k < n0; ++k)
                for (int q = 0; q < 4; ++q) a[q] = P::best(a[q], P::load(first[k] + i + q * L));
            for (int q = 0; q < 4; ++q) P::storeu(d0 + i + q * L, a[q]);
            for (int k = 0; k < n1; ++k)
                for (int q = 0; q < 4; ++q) m[q] = P::best(m[q], P::load(second[k] + i + q * L));
            for (int q = 0; q < 4; ++q) P::storeu(d1 + i + q * L, m[q]);
        },
        [&](int i) {
            T mid = shared[0][i];
            for (int k = 1; k < ns; ++k) mid = better<E>(mid, shared[k][i]);
            T a = mid, b = mid;
            for (int k = 0; k < n0; ++k) a = better<E>(a, first[k][i]);
            for (int k = 0; k < n1; ++k) b = better<E>(b, second[k][i]);
            d0[i] = a;
            d1[i] = b;
        });
}

template <class T, Extremum E>
void extrema_suffixes(const T* const* src, int count, T* const* dst, int n) {
    using P = Pick<T, E>;
    using V = typename P::V;
    constexpr int L = P::kLanes;
    sweep<L>(
        dst[0], n, true,
        [&](int i) {
            V acc = P::load(src[count] + i);
            for (int k = count - 1; k >= 0; --k) {
                acc = P::best(P::load(src[k] + i), acc);
                P::storeu(dst[k] + i, acc);
            }
        },
        [&](int i) {
            // Four vectors at once, four chains of dependent extrema, each
            // row's 128 bytes read and written in one go.
            V a[4];
            for (int q = 0; q < 4; ++q) a[q] = P::load(src[count] + i + q * L);
            for (int k = count - 1; k >= 0; --k) {
                const T* s = src[k] + i;
                T* d = dst[k] + i;
                for (int q = 0; q < 4; ++q) {
                    a[q] = P::best(P::load(s + q * L), a[q]);
                    P::storeu(d + q * L, a[q]);
                }
            }
        },
        [&](int i) {
            T acc = src[count][i];
            for (int k = count - 1; k >= 0; --k) dst[k][i] = acc = better<E>(src[k][i], acc);
        });
}

namespace {

// Level k of the doubling at vector m: best(level k-1 at m, the same
// 2^(k-1) samples later). Each loop step loads level 0 at vector j and
// forms level k at vector j - k from level k-1 at j - k and j - k + 1, so
// every level is formed once per vector; level K at j - K is stored.
template <class T, Extremum E, int K>
void doubling_levels(const T* v, T* d, int n) {
    using P = Pick<T, E>;
    using V = typename P::V;
    constexpr int L = P::kLanes, B = int(sizeof(T));
    const int readable = n + (1 << K) - 1;
    V last[K + 1] = {};
    int done = 0;
    for (int j = 0; (j + 1) * L <= readable && (j - K) * L < n; ++j) {
        V now[K + 1];
        now[0] = P::load(v + j * L);
        [&]<int... k>(std::integer_sequence<int, k...>) {
            ((now[k + 1] = P::best(last[k], bytes_into<(B << k)>(last[k], now[k]))), ...);
        }(std::make_integer_sequence<int, K>{});
        for (int k = 0; k <= K; ++k) last[k] = now[k];
        if (j >= K && (j - K + 1) * L <= n) {
            P::storeu(d + (j - K) * L, now[K]);
            done = (j - K + 1) * L;
        }
    }
    // What the stream could not reach: windows of loads combined in the
    // same pairs as the stream combines them, so that a sample comes out
    // the same wherever it lies; the last one ends at n.
    auto window = [&](int at) {
        V node[1 << K];
        for (int t = 0; t < (1 << K); ++t) node[t] = P::load(v + at + t);
        for (int k = 1; k <= K; ++k)
            for (int t = 0; t < (1 << K); t += 1 << k) node[t] = P::best(node[t], node[t + (1 << (k - 1))]);
        P::storeu(d + at, node[0]);
    };
    int i = done;
    if (n >= L) {
        for (; i + L <= n; i += L) window(i);
        if (i < n) window(n - L);
        return;
    }
    for (; i < n; ++i) {
        T node[1 << K];
        for (int t = 0; t < (1 << K); ++t) node[t] = v[i + t];
        for (int k = 1; k <= K; ++k)
            for (int t = 0; t < (1 << K); t += 1 << k) node[t] = better<E>(node[t], node[t + (1 << (k - 1))]);
        d[i] = node[0];
    }
}

}  // namespace

template <class T, Extremum E>
void extrema_doubling(const T* v, T* d, int n, int levels) {
    switch (levels) {
        case 1: return doubling_levels<T, E, 1>(v, d, n);
        case 2: return doubling_levels<T, E, 2>(v, d, n);
        default: return doubling_levels<T, E, 3>(v, d, n);
    }
}

namespace {

// Each 16-byte half of the vector S bytes into the halves' streams (x, y),
// for an S known only at run time, 0 < S <= 16: a byte shuffle of each.
struct HalfShift {
    explicit HalfShift(int s) {
        alignas(32) std::int8_t lo[32], hi[32];
        for (int i = 0; i < 32; ++i) {
            const int k = i % 16 + s;
            lo[i] = k < 16 ? std::int8_t(k) : std::int8_t(-128);
            hi[i] = k >= 16 ? std::int8_t(k - 16) : std::int8_t(-128);
        }
        fromLow = _mm256_load_si256(reinterpret_cast<const __m256i*>(lo));
        fromHigh = _mm256_load_si256(reinterpret_cast<const __m256i*>(hi));
    }
    __m256i operator()(__m256i x, __m256i y) const {
        return _mm256_or_si256(_mm256_shuffle_epi8(x, fromLow), _mm256_shuffle_epi8(y, fromHigh));
    }
    __m256i fromLow, fromHigh;
};

// The vector S bytes into the stream (x, y) for an S known only at run
// time, 0 < S <= 32 (kHigh: S >= 16): the halves of the pair that holds it.
template <bool kHigh>
struct ByteShift {
    explicit ByteShift(int bytes) : half(kHigh ? bytes - 16 : bytes) {}
    template <class V>
    V operator()(V x, V y) const {
        const V m = middle(x, y);
        return as(half(bits(kHigh ? m : x), bits(kHigh ? y : m)), x);
    }
    HalfShift half;
};

// Drives the steps of a stream: the first `lag` steps only fill the levels,
// then each step is followed by its result, two steps a turn with the
// levels alternating between x and y (no copies in the loop).
template <class V, int K, class Step, class Result>
inline void run_steps(int steps, int lag, Step& step, Result& result) {
    V x[K + 1] = {}, y[K + 1];
    int j = 0;
    for (; j < lag && j < steps; ++j) {
        step(j, x, y);
        for (int k = 0; k <= K; ++k) x[k] = y[k];
    }
    for (; j + 1 < steps; j += 2) {
        step(j, x, y);
        result(j, x, y);
        step(j + 1, y, x);
        result(j + 1, y, x);
    }
    if (j < steps) {
        step(j, x, y);
        result(j, x, y);
    }
}

// The stream of doubling_levels over column vectors column(j * L) for
// j * L + L <= readable, with a rest joined at the end (extrema_rect_row).
// Step j forms column vector j, level k at j - k and, with a rest, the
// result at j - K - 1 from level K at j - K - 1 and j - K. Stores the whole
// result vectors it reaches below n; returns how many samples those cover.
template <class T, Extremum E, int K, bool kRest, class Column, class Shift>
int rect_stream(Column&& column, int readable, T* d, int n, const Shift& shift, bool stream) {
    using P = Pick<T, E>;
    using V = typename P::V;
    constexpr int L = P::kLanes, B = int(sizeof(T)), lag = K + (kRest ? 1 : 0);
    const int steps = std::min(readable / L, n / L + lag);
    auto step = [&](int j, const V* last, V* now) {
        now[0] = column(j * L);
        [&]<int... k>(std::integer_sequence<int, k...>) {
            ((now[k + 1] = P::best(last[k], bytes_into<(B << k)>(last[k], now[k]))), ...);
        }(std::make_integer_sequence<int, K>{});
    };
    auto result = [&, stream](int j, const V* last, const V* now) {
        if constexpr (kRest)
            P::put(d + (j - lag) * L, P::best(last[K], shift(last[K], now[K])), stream);
        else
            P::put(d + (j - lag) * L, now[K], stream);
    };
    run_steps<V, K>(steps, lag, step, result);
    return std::max(0, steps - lag) * L;
}

template <class T, Extremum E, int K, bool kRest, bool kHigh>
[[gnu::flatten]] void rect_levels(const T* a, const T* b, const T* c, T* mOut, T* d, int n, int rest, bool stream,
                                  bool fetch) {
    using P = Pick<T, E>;
    using V = typename P::V;
    constexpr int L = P::kLanes, lag = K + (kRest ? 1 : 0);
    const int readable = n + (1 << K) - 1 + rest;
    const ByteShift<kHigh> shift(kRest ? rest * int(sizeof(T)) : 16);
    // The column vector at sample `at`, its running extremum stored on the way.
    auto column = [&](int at) {
        if (sizeof(T) >= 4 && fetch) prefetch(c + at);
        const V m = P::best(P::load(b + at), P::load(c + at));
        if (mOut != nullptr) P::storeu(mOut + at, m);
        return P::best(P::load(a + at), m);
    };
    const int done = rect_stream<T, E, K, kRest>(column, readable, d, n, shift, stream);
    if (done == n && mOut == nullptr) return;
    // The rest of the row (fewer than lag + 2 vectors of columns): its
    // columns copied to the stack, padded, and streamed again, so that every
    // sample is formed by the same pairs; the running extremum completed on
    // the way. A column formed twice comes out the same.
    constexpr int kTail = (2 * lag + 3) * L;
    alignas(32) T cols[kTail], out[kTail];
    const int first = std::min(done, std::max(0, readable - L));
    if (readable >= L) {
        int at = first;
        for (; at + L <= readable; at += L) P::storeu(cols + (at - first), column(at));
        if (at < readable) P::storeu(cols + (readable - L - first), column(readable - L));
    } else {
        for (int i = 0; i < readable; ++i) {
            const T m = better<E>(b[i], c[i]);
            if (mOut != nullptr) mOut[i] = m;
            cols[i] = better<E>(a[i], m);
        }
    }
    if (done == n) return;
    for (int at = readable - first; at + L <= kTail; at += L) P::storeu(cols + at, V{});
    auto stored = [&](int at) { return P::load(cols + at); };
    const int left = n - first, vectors = (left + L - 1) / L;
    rect_stream<T, E, K, kRest>(stored, (vectors + lag) * L, out, vectors * L, shift, false);
    std::memcpy(d + done, out + (done - first), std::size_t(n - done) * sizeof(T));
}

template <class T, Extremum E, int K>
void rect_levels(const T* a, const T* b, const T* c, T* mOut, T* d, int n, int rest, bool stream, bool fetch) {
    if (rest * int(sizeof(T)) >= 16)
        rect_levels<T, E, K, true, true>(a, b, c, mOut, d, n, rest, stream, fetch);
    else if (rest > 0)
        rect_levels<T, E, K, true, false>(a, b, c, mOut, d, n, rest, stream, fetch);
    else
        rect_levels<T, E, K, false, true>(a, b, c, mOut, d, n, 0, stream, fetch);
}

}  // namespace

template <class T, Extremum E>
void extrema_rect_row(const T* a, const T* b, const T* c, T* mOut, T* d, int n, int levels, int rest, bool stream,
                      bool fetch) {
    switch (levels) {
        case 1: return rect_levels<T, E, 1>(a, b, c, mOut, d, n, rest, stream, fetch);
        case 2: return rect_levels<T, E, 2>(a, b, c, mOut, d, n, rest, stream, fetch);
        case 3: return rect_levels<T, E, 3>(a, b, c, mOut, d, n, rest, stream, fetch);
        default:
            if constexpr (sizeof(T) <= 4)
                return rect_levels<T, E, 4>(a, b, c, mOut, d, n, rest, stream, fetch);
            else
                return rect_levels<T, E, 3>(a, b, c, mOut, d, n, rest, stream, fetch);
    }
}

namespace {

// The 16-byte halves, with the operand order of Pick::best.
template <class T, Extremum E>
__m128i best_half(__m128i a, __m128i b) {
    if constexpr (std::is_same_v<T, Rok32f>) {
        const __m128 x = _mm_castsi128_ps(a), y = _mm_castsi128_ps(b);
        return _mm_castps_si128(E == Extremum::Max ? _mm_max_ps(x, y) : _mm_min_ps(x, y));
    } else if constexpr (E == Extremum::Max) {
        if constexpr (std::is_same_v<T, Rok8u>) return _mm_max_epu8(a, b);
        else if constexpr (std::is_same_v<T, Rok16u>) return _mm_max_epu16(a, b);
        else return _mm_max_epi16(a, b);
    } else {
        if constexpr (std::is_same_v<T, Rok8u>) return _mm_min_epu8(a, b);
        else if constexpr (std::is_same_v<T, Rok16u>) return _mm_min_epu16(a, b);
        else return _mm_min_epi16(a, b);
    }
}

inline __m128i load_half(const void* p) { return _mm_loadu_si128(static_cast<const __m128i*>(p)); }
inline void store_half(void* p, __m128i v) { _mm_storeu_si128(static_cast<__m128i*>(p), v); }
// As Pick::put, for 16 bytes.
template <class T>
inline void put_half(T* p, __m128i v, bool stream) {
    if (sizeof(T) >= 4 && stream && (reinterpret_cast<std::uintptr_t>(p) & 15) == 0)
        _mm_stream_si128(reinterpret_cast<__m128i*>(p), v);
    else
        store_half(p, v);
}
inline __m256i halves(__m128i lo, __m128i hi) { return _mm256_inserti128_si256(_mm256_castsi128_si256(lo), hi, 1); }

// The 16 bytes S bytes into each half's stream (x, y), 0 < S <= 16.
template <int S>
__m256i in_halves(__m256i x, __m256i y) {
    if constexpr (S == 16)
        return y;
    else
        return _mm256_alignr_epi8(y, x, S);
}


// rect_stream over chunks of H = 16 / sizeof(T) samples of two rows, row 0
// in the low half; results go to d0 and d1. With kHigh the rest reaches
// past the next chunk (rest * sizeof(T) > 16): the result then joins the
// run at a chunk with the one rest samples on, which spans the two chunks
// after it, so the run two chunks back is kept in one more slot.
template <class T, Extremum E, int K, bool kRest, bool kHigh, class Column>
void pair_stream(Column&& column, int steps, T* d0, T* d1, const HalfShift& shift, bool stream) {
    using P = Pick<T, E>;
    using V = typename P::V;
    constexpr int H = 16 / int(sizeof(T)), B = int(sizeof(T)), lag = K + (kRest ? (kHigh ? 2 : 1) : 0);
    auto step = [&](int j, const V* last, V* now) {
        now[0] = as(column(j), V{});
        [&]<int... k>(std::integer_sequence<int, k...>) {
            ((now[k + 1] = P::best(last[k], as(in_halves<(B << k)>(bits(last[k]), bits(now[k])), V{}))), ...);
        }(std::make_integer_sequence<int, K>{});
        if constexpr (kHigh) now[K + 1] = last[K];
    };
    auto result = [&, stream](int j, const V* last, const V* now) {
        V r;
        if constexpr (kHigh)
            r = P::best(last[K + 1], as(shift(bits(now[K + 1]), bits(now[K])), V{}));
        else if constexpr (kRest)
            r = P::best(last[K], as(shift(bits(last[K]), bits(now[K])), V{}));
        else
            r = now[K];
        put_half(d0 + (j - lag) * H, _mm256_castsi256_si128(bits(r)), stream);
        put_half(d1 + (j - lag) * H, _mm256_extracti128_si256(bits(r), 1), stream);
    };
    run_steps<V, K + (kHigh ? 1 : 0)>(steps, lag, step, result);
}

// extrema_rect_pair for one-byte samples, levels 3 and 4, over rows of a few
// chunks or more (false, nothing done, below that). The same results (on
// integers the order of the pairs does not change one) by a stream shaped
// for the byte shuffles that bound it:
// - the column extrema of two chunks at a time, one 32-byte operation per
//   row, and the run of 2^K (level K, lag K) of two chunks stored as one
//   32-byte store per row (the halves change places once per two chunks on
//   the way in and once on the way out);
// - a rest joins in a second pass over the rows as better(d[i], d[i +
//   rest]) by loads, in place going forward (the run at i + rest is read
//   before anything there is replaced), rather than by two byte shuffles a
//   vector;
// - the row's end goes on from the stream's own levels, the columns past
//   the last whole chunk shifted into a register (formed before the stream,
//   so that a running extremum written over b0 or b1 is not read back) and
//   zeros after them, and there the rest joins in registers as in
//   pair_stream: the stream is not started again on a tail.
template <class T, Extremum E, int K, bool kRest>
bool rect_pair_wide(const T* a0, const T* b0, const T* c0, const T* a1, const T* b1, const T* c1, bool chain,
                    T* mOut, T* d0, T* d1, int n, int rest, T* s0, T* s1) {
    static_assert(sizeof(T) == 1);
    using P = Pick<T, E>;
    using V = __m256i;
    constexpr int H = 16, lag = K;
    const int readable = n + (1 << K) - 1 + rest;
    const int chunks = readable / H, part = readable - chunks * H;
    if (chunks < lag + 4) return false;
    auto load = [](const T* p) { return _mm256_loadu_si256(reinterpret_cast<const V*>(p)); };
    auto store = [](T* p, V v) { _mm256_storeu_si256(reinterpret_cast<V*>(p), v); };
    if constexpr (kRest) {
        if (s0 != nullptr) {
            // Level K of the n + rest runs into the scratch rows (within the
            // caches), then each result written once, as better(s[i], s[i +
            // rest]), by streaming stores over the whole lines between the
            // row's first and last vectors (n >= 32 here).
            rect_pair_wide<T, E, K, false>(a0, b0, c0, a1, b1, c1, chain, mOut, s0, s1, n + rest, 0, nullptr, nullptr);
            for (int r = 0; r < 2; ++r) {
                const T* s = r == 0 ? s0 : s1;
                T* d = r == 0 ? d0 : d1;
                const Lines lines(d + 32, d + n - 32, true);
                auto join = [&](int i) { return P::best(load(s + i), load(s + i + rest)); };
                store(d, join(0));
                int i = head_samples(d, n);
                for (; i + 32 <= n; i += 32) {
                    if (lines.whole(d + i, 32))
                        _mm256_stream_si256(reinterpret_cast<V*>(d + i), join(i));
                    else
                        store(d + i, join(i));
                }
                if (i < n) store(d + n - 32, join(n - 32));
            }
            return true;
        }
    }
    auto both = [&](int at, __m128i& x0, __m128i& x1, __m128i& m1) {
        const __m128i m0 = best_half<T, E>(load_half(b0 + at), load_half(c0 + at));
        m1 = best_half<T, E>(chain ? m0 : load_half(b1 + at), load_half(c1 + at));
        x0 = best_half<T, E>(load_half(a0 + at), m0);
        x1 = best_half<T, E>(load_half(a1 + at), m1);
    };
    // The columns past the last whole chunk, then zeros: the last 16
    // columns shifted down by 16 - part bytes (an index with its top bit
    // set gives zero).
    V tail = _mm256_setzero_si256();
    __m128i tailM = _mm_setzero_si128();
    if (part > 0) {
        alignas(32) static constexpr std::int8_t kDown[32] = {
            0,    1,    2,    3,    4,    5,    6,    7,    8,    9,    10,   11,   12,   13,   14,   15,
            -128, -128, -128, -128, -128, -128, -128, -128, -128, -128, -128, -128, -128, -128, -128, -128};
        const __m128i down = _mm_loadu_si128(reinterpret_cast<const __m128i*>(kDown + (H - part)));
        __m128i x0, x1;
        both(readable - H, x0, x1, tailM);
        tail = halves(_mm_shuffle_epi8(x0, down), _mm_shuffle_epi8(x1, down));
    }
    // Chunk j of columns, row 0 in the low half, the running extremum
    // written on the way for a whole chunk.
    auto column = [&](int j) -> V {
        if (j > chunks) return _mm256_setzero_si256();
        if (j == chunks) return tail;
        __m128i x0, x1, m1;
        both(j * H, x0, x1, m1);
        if (mOut != nullptr) store_half(mOut + j * H, m1);
        return halves(x0, x1);
    };
    auto step = [&](V col, const V* last, V* now) {
        now[0] = col;
        [&]<int... k>(std::integer_sequence<int, k...>) {
            ((now[k + 1] = P::best(last[k], in_halves<(1 << k)>(last[k], now[k]))), ...);
        }(std::make_integer_sequence<int, K>{});
    };
    V x[K + 1] = {}, y[K + 1];
    int j = 0;
    for (; j < lag; ++j) {
        step(column(j), x, y);
        for (int k = 0; k <= K; ++k) x[k] = y[k];
    }
    // Two whole chunks a turn. Their level K lies within n: the whole
    // chunks end by n + 2^K - 1 + rest, at least 16K - 2^(K+1) + 1 before
    // n + 16K.
    for (; j + 1 < chunks; j += 2) {
        const int at = j * H;
        const V m0 = P::best(load(b0 + at), load(c0 + at));
        const V m1 = P::best(chain ? m0 : load(b1 + at), load(c1 + at));
        const V x0 = P::best(load(a0 + at), m0), x1 = P::best(load(a1 + at), m1);
        if (mOut != nullptr) store(mOut + at, m1);
        step(_mm256_permute2x128_si256(x0, x1, 0x20), x, y);
        step(_mm256_permute2x128_si256(x0, x1, 0x31), y, x);
        store(d0 + (j - lag) * H, _mm256_permute2x128_si256(y[K], x[K], 0x20));
        store(d1 + (j - lag) * H, _mm256_permute2x128_si256(y[K], x[K], 0x31));
    }
    // Level K is in the rows for the chunks below `stored`; x holds the
    // levels at chunk j - 1.
    const int stored = j - lag;
    auto put = [&](int e, V r) {
        if ((e + 1) * H <= n) {
            store_half(d0 + e * H, _mm256_castsi256_si128(r));
            store_half(d1 + e * H, _mm256_extracti128_si256(r, 1));
        } else {
            alignas(32) T out[2 * H];
            store(out, r);
            std::memcpy(d0 + e * H, out, std::size_t(n - e * H));
            std::memcpy(d1 + e * H, out + H, std::size_t(n - e * H));
        }
    };
    if constexpr (kRest) {
        // The second pass, over the chunks whose rest lies in the rows
        // (all but the last stored one).
        const int end = (stored - 1) * H;
        for (T* d : {d0, d1}) {
            int i = 0;
            for (; i + 32 <= end; i += 32) store(d + i, P::best(load(d + i), load(d + i + rest)));
            if (i < end)
                store_half(d + i, best_half<T, E>(load_half(d + i), load_half(d + i + rest)));
        }
        // The rest from chunk stored - 1 on, in registers.
        const HalfShift shift(rest);
        V prev = x[K];
        for (int e = stored - 1; e * H < n; ++e, ++j) {
            step(column(j), x, y);
            for (int k = 0; k <= K; ++k) x[k] = y[k];
            put(e, P::best(prev, shift(prev, x[K])));
            prev = x[K];
        }
    } else {
        for (int e = stored; e * H < n; ++e, ++j) {
            step(column(j), x, y);
            for (int k = 0; k <= K; ++k) x[k] = y[k];
            put(e, x[K]);
        }
    }
    // The running extremum of the columns past the last whole chunk (the
    // overlap with it comes out the same).
    if (mOut != nullptr && part > 0) store_half(mOut + (readable - H), tailM);
    return true;
}

// kStream: `stream` of extrema_rect_pair, fixed at compile time (only for
// samples of four bytes or more) so that a pass within the caches carries
// no test for it (float rows at 1920x1080 measured 4-7% slower with one).
template <class T, Extremum E, int K, bool kRest, bool kHigh, bool kStream>
[[gnu::flatten]] void rect_pair_levels(const T* a0, const T* b0, const T* c0, const T* a1, const T* b1, const T* c1, bool chain,
                      T* mOut, T* d0, T* d1, int n, int rest, T* s0, T* s1) {
    // (Rectangles 8 or more wide: the narrower ones keep to pair_stream,
    // which saves the file's build four instantiations a sample type.)
    if constexpr (sizeof(T) == 1 && !kHigh && K >= 3)
        if (rect_pair_wide<T, E, K, kRest>(a0, b0, c0, a1, b1, c1, chain, mOut, d0, d1, n, rest, s0, s1)) return;
    constexpr bool stream = kStream;
    constexpr int H = 16 / int(sizeof(T)), lag = K + (kRest ? (kHigh ? 2 : 1) : 0);
    const int readable = n + (1 << K) - 1 + rest;
    const int steps = std::min(readable / H, n / H + lag);
    const int done = std::max(0, steps - lag) * H;
    // Row 1's running extremum may replace a row that row 0 reads, so it is
    // written only below `first`, where no column is formed again; the
    // columns from `first` on are formed once more into the stack below.
    const int first = std::min(done, std::max(0, readable - H)) / H * H;
    const HalfShift shift(kRest ? rest * int(sizeof(T)) - (kHigh ? 16 : 0) : 16);
    auto both = [&](int at, __m128i& x0, __m128i& x1, __m128i& m1) {
        const __m128i m0 = best_half<T, E>(load_half(b0 + at), load_half(c0 + at));
        m1 = best_half<T, E>(chain ? m0 : load_half(b1 + at), load_half(c1 + at));
        x0 = best_half<T, E>(load_half(a0 + at), m0);
        x1 = best_half<T, E>(load_half(a1 + at), m1);
    };
    // The chunks of row 1's running extremum the stream writes: those below
    // `first`, none without mOut.
    const int mChunks = mOut != nullptr ? first / H : 0;
    auto column = [&](int j) {
        __m128i x0, x1, m1;
        // c0 and c1 are the rows new to the pass (the others were formed
        // or read a few rows back).
        if constexpr (stream) {
            prefetch(c0 + j * H);
            prefetch(c1 + j * H);
        }
        both(j * H, x0, x1, m1);
        if (j < mChunks) store_half(mOut + j * H, m1);
        return halves(x0, x1);
    };
    pair_stream<T, E, K, kRest, kHigh>(column, steps, d0, d1, shift, stream);
    if (done == n && (mOut == nullptr || first == readable)) return;
    constexpr int kTail = (2 * lag + 3) * H;
    alignas(32) T cols0[kTail], cols1[kTail], m[kTail] = {}, out0[kTail], out1[kTail];
    const int count = readable - first;
    if (readable >= H) {
        auto put = [&](int at) {
            __m128i x0, x1, m1;
            both(at, x0, x1, m1);
            store_half(cols0 + (at - first), x0);
            store_half(cols1 + (at - first), x1);
            store_half(m + (at - first), m1);
        };
        int at = first;
        for (; at + H <= readable; at += H) put(at);
        if (at < readable) put(readable - H);
    } else {
        for (int i = 0; i < readable; ++i) {
            const T m0 = better<E>(b0[i], c0[i]);
            m[i] = better<E>(chain ? m0 : b1[i], c1[i]);
            cols0[i] = better<E>(a0[i], m0);
            cols1[i] = better<E>(a1[i], m[i]);
        }
    }
    if (mOut != nullptr) std::memcpy(mOut + first, m, std::size_t(count) * sizeof(T));
    if (done == n) return;
    std::memset(cols0 + count, 0, std::size_t(kTail - count) * sizeof(T));
    std::memset(cols1 + count, 0, std::size_t(kTail - count) * sizeof(T));
    const int left = n - first, chunks = (left + H - 1) / H;
    auto stored = [&](int j) { return halves(load_half(cols0 + j * H), load_half(cols1 + j * H)); };
    pair_stream<T, E, K, kRest, kHigh>(stored, chunks + lag, out0, out1, shift, false);
    std::memcpy(d0 + done, out0 + (done - first), std::size_t(n - done) * sizeof(T));
    std::memcpy(d1 + done, out1 + (done - first), std::size_t(n - done) * sizeof(T));
}

}  // namespace

template <class T, Extremum E>
void extrema_rect_pair(const T* a0, const T* b0, const T* c0, const T* a1, const T* b1, const T* c1, bool chain,
                       T* mOut, T* d0, T* d1, int n, int levels, int rest, bool stream, T* s0, T* s1) {
    if constexpr (sizeof(T) <= 4) {
        auto go = [&]<int K>(std::integral_constant<int, K>) {
            if constexpr ((1 << (K - 1)) * sizeof(T) <= 16) {
                auto pass = [&]<bool kRest, bool kHigh>(int r) {
                    if constexpr (sizeof(T) >= 4)
                        if (stream)
                            return rect_pair_levels<T, E, K, kRest, kHigh, true>(a0, b0, c0, a1, b1, c1, chain, mOut, d0,
                                                                                 d1, n, r, s0, s1);
                    rect_pair_levels<T, E, K, kRest, kHigh, false>(a0, b0, c0, a1, b1, c1, chain, mOut, d0, d1, n, r, s0,
                                                                   s1);
                };
                // A rest past 16 bytes arises only where 2^K samples fill 32.
                constexpr bool kHighRest = (1 << K) * sizeof(T) > 16;
                if constexpr (kHighRest) {
                    if (rest * int(sizeof(T)) > 16) return pass.template operator()<true, true>(rest);
                }
                if (rest > 0)
                    pass.template operator()<true, false>(rest);
                else
                    pass.template operator()<false, false>(0);
            }
        };
        switch (levels) {
            case 1: return go(std::integral_constant<int, 1>{});
            case 2: return go(std::integral_constant<int, 2>{});
            case 3: return go(std::integral_constant<int, 3>{});
            default:
                return go(std::integral_constant<int, 4>{});
        }
    }
}

template <class T, Extremum E>
void extrema_3x3(const T* r0, const T* r1, const T* r2, T* dst, int n, int s) {
    using P = Pick<T, E>;
    constexpr int L = P::kLanes;
    const bool recompute = apart(r0 - s, n + 2 * s, dst, n) && apart(r1 - s, n + 2 * s, dst, n) &&
                           apart(r2 - s, n + 2 * s, dst, n);
    auto column = [&](int at) { return P::best(P::load(r0 + at), P::best(P::load(r1 + at), P::load(r2 + at))); };
    sweep<L>(
        dst, n, recompute,
        [&](int i) { P::storeu(dst + i, P::best(P::best(column(i - s), column(i)), column(i + s))); },
        [&](int i) { dst[i] = nine_at<T, E>(r0, r1, r2, i, s); });
}

template <class T, Extremum E>
void extrema_3x3_pair(const T* r0, const T* r1, const T* r2, const T* r3, T* d0, T* d1, int n, int s, bool stream) {
    using P = Pick<T, E>;
    using V = typename P::V;
    constexpr int L = P::kLanes, B = int(sizeof(T));
    bool recompute = apart(d0, n, d1, n);
    for (const T* r : {r0, r1, r2, r3}) recompute = recompute && apart(r - s, n + 2 * s, d0, n) && apart(r - s, n + 2 * s, d1, n);
    auto scalar = [&](int i) {
        T top[3], bottom[3];
        for (int d = -1; d <= 1; ++d) {
            const T mid = better<E>(r1[i + d * s], r2[i + d * s]);
            top[d + 1] = better<E>(r0[i + d * s], mid);
            bottom[d + 1] = better<E>(mid, r3[i + d * s]);
        }
        d0[i] = better<E>(better<E>(top[0], top[1]), top[2]);
        d1[i] = better<E>(better<E>(bottom[0], bottom[1]), bottom[2]);
    };
    // The column extrema of the two output rows at samples i .. i + L - 1.
    auto columns = [&](int i, V& top, V& bottom) {
        const V mid = P::best(P::load(r1 + i), P::load(r2 + i));
        top = P::best(P::load(r0 + i), mid);
        bottom = P::best(mid, P::load(r3 + i));
    };
    auto by_loads = [&](int i) {
        V top[3], bottom[3];
        for (int d = 0; d < 3; ++d) columns(i + (d - 1) * s, top[d], bottom[d]);
        P::storeu(d0 + i, P::best(P::best(top[0], top[1]), top[2]));
        P::storeu(d1 + i, P::best(P::best(bottom[0], bottom[1]), bottom[2]));
    };
    const int head = head_samples(d0, n);
    if (s != 1 || !recompute || n < 4 * L) return sweep<L>(d0, n, recompute, by_loads, scalar);
    // One channel: each column extremum is loaded once and its neighbours
    // are shifted in from the registers before and after, the stores aligned
    // on the first destination after one or two vectors that load their
    // neighbours.
    by_loads(0);
    if (head > 0) by_loads(head);
    int i = head + L;
    // The loop, with streaming as a compile-time choice (float rows within
    // the caches measured a few percent slower with its tests in the loop).
    auto loop = [&]<bool kStream>() {
        // The loop's stores, between the head's vectors and the tail's.
        const Lines lines0(d0 + i, d0 + (n - 2 * L), kStream), lines1(d1 + i, d1 + (n - 2 * L), kStream);
        V topPrev, bottomPrev, top, bottom, topNext, bottomNext;
        columns(i - L, topPrev, bottomPrev);
        columns(i, top, bottom);
        V topMid = middle(topPrev, top), bottomMid = middle(bottomPrev, bottom);
        for (; i + 2 * L <= n; i += L) {
            columns(i + L, topNext, bottomNext);
            // The rows new to this pair come from memory, or from the last
            // level of cache: prefetched for narrow samples whatever the
            // image (8u at 1920x1080 measured a tenth faster), for floats
            // only beyond the caches (32f at 1920x1080 measured slower).
            if constexpr (sizeof(T) < 4 || kStream) {
                prefetch(r2 + i);
                prefetch(r3 + i);
            }
            const V topMidNext = middle(top, topNext), bottomMidNext = middle(bottom, bottomNext);
            const V r0v = P::best(P::best(one_before<B>(topMid, top), top), one_after<B>(top, topMidNext));
            const V r1v = P::best(P::best(one_before<B>(bottomMid, bottom), bottom), one_after<B>(bottom, bottomMidNext));
            if constexpr (kStream) {
                P::put(d0 + i, r0v, lines0);
                P::put(d1 + i, r1v, lines1);
            } else {
                P::storeu(d0 + i, r0v);
                P::storeu(d1 + i, r1v);
            }
            topPrev = top, top = topNext, topMid = topMidNext;
            bottomPrev = bottom, bottom = bottomNext, bottomMid = bottomMidNext;
        }
    };
    if (P::kStreams && stream)
        loop.template operator()<P::kStreams>();
    else
        loop.template operator()<false>();
    for (; i + L <= n; i += L) by_loads(i);
    if (i < n) by_loads(n - L);
}

#define ROK_EXTREMA(T)                                                                                           \
    template void extrema_rows<T, Extremum::Min>(const T* const*, int, T*, int, bool);                           \
    template void extrema_rows<T, Extremum::Max>(const T* const*, int, T*, int, bool);                           \
    template void extrema_rows_shared<T, Extremum::Min>(const T* const*, int, const T* const*, int,             \
                                                        const T* const*, int, T*, T*, int);                      \
    template void extrema_rows_shared<T, Extremum::Max>(const T* const*, int, const T* const*, int,             \
                                                        const T* const*, int, T*, T*, int);                      \
    template void extrema_doubling<T, Extremum::Min>(const T*, T*, int, int);                                    \
    template void extrema_doubling<T, Extremum::Max>(const T*, T*, int, int);                                    \
    template void extrema_suffixes<T, Extremum::Min>(const T* const*, int, T* const*, int);                      \
    template void extrema_suffixes<T, Extremum::Max>(const T* const*, int, T* const*, int);                      \
    template void extrema_rect_pair<T, Extremum::Min>(const T*, const T*, const T*, const T*, const T*, const T*, bool, \
                                                      T*, T*, T*, int, int, int, bool, T*, T*);                  \
    template void extrema_rect_pair<T, Extremum::Max>(const T*, const T*, const T*, const T*, const T*, const T*, bool, \
                                                      T*, T*, T*, int, int, int, bool, T*, T*);                  \
    template void extrema_rect_row<T, Extremum::Min>(const T*, const T*, const T*, T*, T*, int, int, int, bool, bool); \
    template void extrema_rect_row<T, Extremum::Max>(const T*, const T*, const T*, T*, T*, int, int, int, bool, bool); \
    template void extrema_3x3<T, Extremum::Min>(const T*, const T*, const T*, T*, int, int);                     \
    template void extrema_3x3<T, Extremum::Max>(const T*, const T*, const T*, T*, int, int);                     \
    template void extrema_3x3_pair<T, Extremum::Min>(const T*, const T*, const T*, const T*, T*, T*, int, int, bool); \
    template void extrema_3x3_pair<T, Extremum::Max>(const T*, const T*, const T*, const T*, T*, T*, int, int, bool);

ROK_EXTREMA(Rok8u)
ROK_EXTREMA(Rok16u)
ROK_EXTREMA(Rok16s)
ROK_EXTREMA(Rok32f)
ROK_EXTREMA(Rok64f)

#undef ROK_EXTREMA

}  // namespace rok::kernels
