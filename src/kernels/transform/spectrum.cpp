// Packed-spectrum row kernels. The one-channel float products run four
// complex pairs per vector step; every other form is the scalar rule
// (product() states what the vector step computes).
#include "kernels/transform/spectrum.h"

#include <immintrin.h>

#include <cmath>
#include <cstdint>
#include <limits>

namespace rok::kernels::spectrum {

namespace {

using Wide = __int128;

// x * 2^-sf: half to even for sf > 0, left shift for sf < 0; saturated.
template <class T>
T scale_wide(Wide x, int sf) {
    constexpr Wide lo = std::numeric_limits<T>::min(), hi = std::numeric_limits<T>::max();
    if (sf > 0) {
        if (sf > 100) return T(0);  // every exact product here is below 2^66
        x = (x + (Wide(1) << (sf - 1)) - 1 + ((x >> sf) & 1)) >> sf;
    } else if (sf < 0 && x != 0) {
        // Any shift of 40 or more saturates every non-zero value.
        x *= Wide(1) << (sf > -40 ? -sf : 40);
    }
    return T(x < lo ? lo : (x > hi ? hi : x));
}

// One complex product with the type's rule.
inline void product(float ar, float ai, float br, float bi, bool conj, float& dr, float& di) {
    if (conj) {
        dr = ar * br + ai * bi;
        di = ai * br - ar * bi;
    } else {
        dr = ar * br - ai * bi;
        di = ai * br + ar * bi;
    }
}
template <class T>
inline void product(T ar, T ai, T br, T bi, int sf, T& dr, T& di) {
    const Wide r = Wide(ar) * br - Wide(ai) * bi, i = Wide(ai) * br + Wide(ar) * bi;
    dr = scale_wide<T>(r, sf);
    di = scale_wide<T>(i, sf);
}

// The column pixels of a row: 0 and, for even W, W-1.
template <class Fn>
inline void for_columns(int w, Fn fn) {
    fn(0);
    if (w % 2 == 0 && w > 1) fn(w - 1);
}

// Four complex products of interleaved pairs per step, the last step
// masked, so every pair goes through the same instructions. The sums are a
// product plus a sign-flipped product: an add-subtract instruction here
// would let the compiler fuse the products into it and round differently.
void mul_pairs_c1(const float* a, const float* b, float* d, int floats, bool conj) {
    const std::int32_t s = std::int32_t(0x80000000u);
    const __m256 flip = conj ? _mm256_castsi256_ps(_mm256_setr_epi32(0, s, 0, s, 0, s, 0, s))
                             : _mm256_castsi256_ps(_mm256_setr_epi32(s, 0, s, 0, s, 0, s, 0));
    auto step = [&](__m256 va, __m256 vb) {
        const __m256 t1 = _mm256_mul_ps(va, _mm256_moveldup_ps(vb));
        const __m256 t2 = _mm256_mul_ps(_mm256_permute_ps(va, 0xB1), _mm256_movehdup_ps(vb));
        return _mm256_add_ps(t1, _mm256_xor_ps(t2, flip));
    };
    int i = 0;
    for (; i + 8 <= floats; i += 8) _mm256_storeu_ps(d + i, step(_mm256_loadu_ps(a + i), _mm256_loadu_ps(b + i)));
    if (i < floats) {
        const __m256i mask = _mm256_cmpgt_epi32(_mm256_set1_epi32(floats - i), _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7));
        _mm256_maskstore_ps(d + i, mask, step(_mm256_maskload_ps(a + i, mask), _mm256_maskload_ps(b + i, mask)));
    }
}

template <class T>
void mul_inner_any(const T* a, const T* b, T* d, int w, int nc, int processed, int sf) {
    for (int u = 1; 2 * u < w; ++u)
        for (int c = 0; c < processed; ++c) {
            const int re = (2 * u - 1) * nc + c, im = 2 * u * nc + c;
            product(a[re], a[im], b[re], b[im], sf, d[re], d[im]);
        }
}

template <class T>
void mul_columns_any(const T* a1, const T* a2, const T* b1, const T* b2, T* d1, T* d2, int w, int nc, int processed,
                     int sf) {
    for_columns(w, [&](int x) {
        for (int c = 0; c < processed; ++c) {
            const int i = x * nc + c;
            product(a1[i], a2[i], b1[i], b2[i], sf, d1[i], d2[i]);
        }
    });
}

template <class T>
void mul_real_any(const T* a, const T* b, T* d, int w, int nc, int processed, int sf) {
    for_columns(w, [&](int x) {
        for (int c = 0; c < processed; ++c) d[x * nc + c] = scale_wide<T>(Wide(a[x * nc + c]) * b[x * nc + c], sf);
    });
}

// The wide type in which a value and its negation are both exact.
template <class T>
using Exact = std::conditional_t<std::is_same_v<T, float>, float, std::int64_t>;

// Calls put(x, c, re, im) for every pixel x and channel c of output row y.
template <class T, class Put>
void walk(const Sources<T>& s, int w, int nc, Put put) {
    using E = Exact<T>;
    for (int c = 0; c < nc; ++c) {
        auto column = [&](int x, int at) {
            const E re = s.colRe[at * nc + c], im = s.colIm ? E(s.colIm[at * nc + c]) : E(0);
            put(x, c, re, s.colConj ? E(-im) : im);
        };
        column(0, 0);
        for (int x = 1; 2 * x < w; ++x) put(x, c, E(s.row[(2 * x - 1) * nc + c]), E(s.row[2 * x * nc + c]));
        if (w % 2 == 0 && w > 1) column(w / 2, w - 1);
        for (int x = w / 2 + 1; x < w; ++x) {
            const int u = w - x;
            put(x, c, E(s.mirror[(2 * u - 1) * nc + c]), E(-E(s.mirror[2 * u * nc + c])));
        }
    }
}

template <class T>
T saturate(std::int64_t v) {
    constexpr std::int64_t lo = std::numeric_limits<T>::min(), hi = std::numeric_limits<T>::max();
    return T(v < lo ? lo : (v > hi ? hi : v));
}

// floor(sqrt(n)) for n < 2^64.
std::uint64_t isqrt(std::uint64_t n) {
    std::uint64_t r = std::uint64_t(std::sqrt(double(n)));
    while (r > 0 && (unsigned __int128)r * r > n) --r;
    while ((unsigned __int128)(r + 1) * (r + 1) <= n) ++r;
    return r;
}

// sqrt(s) * 2^-sf rounded to nearest, ties to even, saturated to T.
template <class T>
T magnitude(std::uint64_t s, int sf) {
    constexpr std::uint64_t hi = std::uint64_t(std::numeric_limits<T>::max());
    if (s == 0) return T(0);
    if (sf < 0) {
        // sqrt(s) >= 1: a factor of 2^32 or more saturates every type here.
        if (sf <= -32) return T(hi);
        const unsigned __int128 n = (unsigned __int128)s << (-2 * sf);
        if (n >> 64) return T(hi);
        s = std::uint64_t(n);
        sf = 0;
    }
    if (sf >= 34) return T(0);  // sqrt(s) < 2^32 <= 2^(sf-2): below one half
    const std::uint64_t q = isqrt(std::uint64_t((unsigned __int128)s >> (2 * sf)));
    // Compare sqrt(s) / 2^sf with q + 1/2: 4 s against (2q + 1)^2 4^sf.
    const unsigned __int128 lhs = (unsigned __int128)s << 2;
    const unsigned __int128 rhs = ((unsigned __int128)(2 * q + 1) * (2 * q + 1)) << (2 * sf);
    const std::uint64_t r = lhs > rhs ? q + 1 : (lhs == rhs ? q + (q & 1) : q);
    return T(r > hi ? hi : r);
}

template <class T>
T phase(std::int64_t re, std::int64_t im, int sf) {
    const int s = sf < -200 ? -200 : (sf > 200 ? 200 : sf);
    const double v = std::nearbyint(std::ldexp(std::atan2(double(im), double(re)), -s));
    constexpr double lo = std::numeric_limits<T>::min(), hi = std::numeric_limits<T>::max();
    return T(v < lo ? lo : (v > hi ? hi : v));
}

template <class T, class C>
void pack_any(const C* row, const C* column, bool columnImag, T* out, int w, int nc) {
    for (int c = 0; c < nc; ++c) {
        auto col = [&](int x, int u) {
            const C& v = column[u * nc + c];
            out[x * nc + c] = columnImag ? v.im : v.re;
        };
        col(0, 0);
        for (int u = 1; 2 * u < w; ++u) {
            out[(2 * u - 1) * nc + c] = row[u * nc + c].re;
            out[2 * u * nc + c] = row[u * nc + c].im;
        }
        if (w % 2 == 0 && w > 1) col(w - 1, w / 2);
    }
}

}  // namespace

void mul_inner(const Rok32f* a, const Rok32f* b, Rok32f* d, int w, int nc, int processed, bool conj) {
    if (nc == 1) {
        mul_pairs_c1(a + 1, b + 1, d + 1, 2 * ((w - 1) / 2), conj);
        return;
    }
    for (int u = 1; 2 * u < w; ++u)
        for (int c = 0; c < processed; ++c) {
            const int re = (2 * u - 1) * nc + c, im = 2 * u * nc + c;
            product(a[re], a[im], b[re], b[im], conj, d[re], d[im]);
        }
}
void mul_inner(const Rok16s* a, const Rok16s* b, Rok16s* d, int w, int nc, int processed, int sf) {
    mul_inner_any(a, b, d, w, nc, processed, sf);
}
void mul_inner(const Rok32s* a, const Rok32s* b, Rok32s* d, int w, int nc, int processed, int sf) {
    mul_inner_any(a, b, d, w, nc, processed, sf);
}

void mul_columns(const Rok32f* a1, const Rok32f* a2, const Rok32f* b1, const Rok32f* b2, Rok32f* d1, Rok32f* d2,
                 int w, int nc, int processed, bool conj) {
    for_columns(w, [&](int x) {
        for (int c = 0; c < processed; ++c) {
            const int i = x * nc + c;
            product(a1[i], a2[i], b1[i], b2[i], conj, d1[i], d2[i]);
        }
    });
}
void mul_columns(const Rok16s* a1, const Rok16s* a2, const Rok16s* b1, const Rok16s* b2, Rok16s* d1, Rok16s* d2,
                 int w, int nc, int processed, int sf) {
    mul_columns_any(a1, a2, b1, b2, d1, d2, w, nc, processed, sf);
}
void mul_columns(const Rok32s* a1, const Rok32s* a2, const Rok32s* b1, const Rok32s* b2, Rok32s* d1, Rok32s* d2,
                 int w, int nc, int processed, int sf) {
    mul_columns_any(a1, a2, b1, b2, d1, d2, w, nc, processed, sf);
}

void mul_real(const Rok32f* a, const Rok32f* b, Rok32f* d, int w, int nc, int processed) {
    for_columns(w, [&](int x) {
        for (int c = 0; c < processed; ++c) d[x * nc + c] = a[x * nc + c] * b[x * nc + c];
    });
}
void mul_real(const Rok16s* a, const Rok16s* b, Rok16s* d, int w, int nc, int processed, int sf) {
    mul_real_any(a, b, d, w, nc, processed, sf);
}
void mul_real(const Rok32s* a, const Rok32s* b, Rok32s* d, int w, int nc, int processed, int sf) {
    mul_real_any(a, b, d, w, nc, processed, sf);
}

void extend_row(const Sources<Rok32f>& s, Rok32fc* out, int w, int nc) {
    walk(s, w, nc, [&](int x, int c, float re, float im) { out[x * nc + c] = Rok32fc{re, im}; });
}
void extend_row(const Sources<Rok32s>& s, Rok32sc* out, int w, int nc) {
    walk(s, w, nc, [&](int x, int c, std::int64_t re, std::int64_t im) {
        out[x * nc + c] = Rok32sc{saturate<Rok32s>(re), saturate<Rok32s>(im)};
    });
}

void magnitude_row(const Sources<Rok32f>& s, Rok32f* out, int w, int nc) {
    walk(s, w, nc, [&](int x, int c, float re, float im) {
        out[x * nc + c] = float(std::sqrt(double(re) * re + double(im) * im));
    });
}
void magnitude_row(const Sources<Rok16s>& s, Rok16s* out, int w, int nc, int sf) {
    walk(s, w, nc, [&](int x, int c, std::int64_t re, std::int64_t im) {
        out[x * nc + c] = magnitude<Rok16s>(std::uint64_t(re * re + im * im), sf);
    });
}
void magnitude_row(const Sources<Rok32s>& s, Rok32s* out, int w, int nc, int sf) {
    walk(s, w, nc, [&](int x, int c, std::int64_t re, std::int64_t im) {
        out[x * nc + c] = magnitude<Rok32s>(std::uint64_t(re * re) + std::uint64_t(im * im), sf);
    });
}

void phase_row(const Sources<Rok32f>& s, Rok32f* out, int w, int nc) {
    walk(s, w, nc, [&](int x, int c, float re, float im) {
        out[x * nc + c] = float(std::atan2(double(im), double(re)));
    });
}
void phase_row(const Sources<Rok16s>& s, Rok16s* out, int w, int nc, int sf) {
    walk(s, w, nc, [&](int x, int c, std::int64_t re, std::int64_t im) { out[x * nc + c] = phase<Rok16s>(re, im, sf); });
}
void phase_row(const Sources<Rok32s>& s, Rok32s* out, int w, int nc, int sf) {
    walk(s, w, nc, [&](int x, int c, std::int64_t re, std::int64_t im) { out[x * nc + c] = phase<Rok32s>(re, im, sf); });
}

void pack_row(const Rok32fc* row, const Rok32fc* column, bool columnImag, Rok32f* out, int w, int nc) {
    pack_any(row, column, columnImag, out, w, nc);
}
void pack_row(const Rok32sc* row, const Rok32sc* column, bool columnImag, Rok32s* out, int w, int nc) {
    pack_any(row, column, columnImag, out, w, nc);
}
void pack_row(const Rok16sc* row, const Rok16sc* column, bool columnImag, Rok16s* out, int w, int nc) {
    pack_any(row, column, columnImag, out, w, nc);
}

}  // namespace rok::kernels::spectrum
