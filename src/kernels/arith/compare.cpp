#include "kernels/arith/compare.h"

#include <immintrin.h>

#include <cmath>
#include <cstdint>
#include <type_traits>
#include <utility>

namespace rok::kernels {

namespace {

// The rule, one sample at a time.
template <class T>
bool holds(T a, T b, CompareKind kind, float eps) {
    switch (kind) {
        case CompareKind::Less: return a < b;
        case CompareKind::LessEq: return a <= b;
        case CompareKind::Eq: return a == b;
        case CompareKind::GreaterEq: return b <= a;
        case CompareKind::Greater: return b < a;
        default: return std::fabs(float(a) - float(b)) <= eps;
    }
}

template <class T>
void compare_scalar(const T* a, const T* b, Rok8u* out, int from, int to, CompareKind kind, float eps) {
    for (int i = from; i < to; ++i) out[i] = holds(a[i], b[i], kind, eps) ? 255 : 0;
}

inline __m256i load(const void* p) { return _mm256_loadu_si256(static_cast<const __m256i*>(p)); }

// Masks of 32 samples as 32 bytes of 0 or 0xFF. Kind is one of Less, LessEq,
// Eq, EqualEps (the caller exchanged the operands of the other two).
template <class T, CompareKind Kind>
inline __m256i masks32(const T* a, const T* b, float eps) {
    const __m256i ones = _mm256_set1_epi8(-1);
    if constexpr (std::is_same_v<T, Rok8u>) {
        const __m256i x = load(a), y = load(b);
        if constexpr (Kind == CompareKind::Eq) return _mm256_cmpeq_epi8(x, y);
        const __m256i m = _mm256_min_epu8(x, y);
        if constexpr (Kind == CompareKind::LessEq) return _mm256_cmpeq_epi8(m, x);
        else return _mm256_xor_si256(_mm256_cmpeq_epi8(m, y), ones);  // not b <= a
    } else if constexpr (sizeof(T) == 2) {
        auto one = [&](int k) {
            const __m256i x = load(a + 16 * k), y = load(b + 16 * k);
            if constexpr (Kind == CompareKind::Eq) return _mm256_cmpeq_epi16(x, y);
            if constexpr (std::is_signed_v<T>) {
                if constexpr (Kind == CompareKind::Less) return _mm256_cmpgt_epi16(y, x);
                else return _mm256_xor_si256(_mm256_cmpgt_epi16(x, y), ones);
            } else {
                const __m256i m = _mm256_min_epu16(x, y);
                if constexpr (Kind == CompareKind::LessEq) return _mm256_cmpeq_epi16(m, x);
                else return _mm256_xor_si256(_mm256_cmpeq_epi16(m, y), ones);
            }
        };
        // The pack interleaves 128-bit lanes; the permute puts them back in order.
        return _mm256_permute4x64_epi64(_mm256_packs_epi16(one(0), one(1)), 0xD8);
    } else {
        auto one = [&](int k) {
            const __m256 x = _mm256_loadu_ps(a + 8 * k), y = _mm256_loadu_ps(b + 8 * k);
            __m256 m;
            if constexpr (Kind == CompareKind::Less) m = _mm256_cmp_ps(x, y, _CMP_LT_OQ);
            else if constexpr (Kind == CompareKind::LessEq) m = _mm256_cmp_ps(x, y, _CMP_LE_OQ);
            else if constexpr (Kind == CompareKind::Eq) m = _mm256_cmp_ps(x, y, _CMP_EQ_OQ);
            else {
                const __m256 diff = _mm256_andnot_ps(_mm256_set1_ps(-0.0f), _mm256_sub_ps(x, y));
                m = _mm256_cmp_ps(diff, _mm256_set1_ps(eps), _CMP_LE_OQ);
            }
            return _mm256_castps_si256(m);
        };
        const __m256i w = _mm256_packs_epi16(_mm256_packs_epi32(one(0), one(1)), _mm256_packs_epi32(one(2), one(3)));
        return _mm256_permutevar8x32_epi32(w, _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7));
    }
}

template <class T, CompareKind Kind>
void compare_vector(const T* a, const T* b, Rok8u* out, int n, float eps) {
    int i = 0;
    if (n >= 64) {
        const int head = int((32 - (reinterpret_cast<std::uintptr_t>(out) & 31)) & 31);
        compare_scalar(a, b, out, 0, head, Kind, eps);
        for (i = head; i + 32 <= n; i += 32)
            _mm256_store_si256(reinterpret_cast<__m256i*>(out + i), masks32<T, Kind>(a + i, b + i, eps));
    }
    compare_scalar(a, b, out, i, n, Kind, eps);
}

}  // namespace

template <class T>
void compare_samples(const T* a, const T* b, Rok8u* out, int n, CompareKind kind, float eps) {
    if (kind == CompareKind::Greater || kind == CompareKind::GreaterEq) {
        std::swap(a, b);
        kind = kind == CompareKind::Greater ? CompareKind::Less : CompareKind::LessEq;
    }
    switch (kind) {
        case CompareKind::Less: return compare_vector<T, CompareKind::Less>(a, b, out, n, eps);
        case CompareKind::LessEq: return compare_vector<T, CompareKind::LessEq>(a, b, out, n, eps);
        case CompareKind::Eq: return compare_vector<T, CompareKind::Eq>(a, b, out, n, eps);
        default:
            if constexpr (std::is_same_v<T, Rok32f>) return compare_vector<T, CompareKind::EqualEps>(a, b, out, n, eps);
    }
}

void fold_masks(const Rok8u* masks, Rok8u* dst, int pixels, int channels, int tested) {
    auto scalar = [&](int from, int to) {
        for (int p = from; p < to; ++p) {
            Rok8u all = 255;
            for (int k = 0; k < tested; ++k) all &= masks[channels * p + k];
            dst[p] = all;
        }
    };
    int p = 0;
    if (channels == 4) {
        // Four mask bytes per 32-bit lane: all ones where every tested byte is.
        const __m256i untested = _mm256_set1_epi32(tested == 4 ? 0 : int(0xFF000000u)), ones = _mm256_set1_epi8(-1);
        auto pixel8 = [&](int at) { return _mm256_cmpeq_epi32(_mm256_or_si256(load(masks + 4 * at), untested), ones); };
        for (; p + 32 <= pixels; p += 32) {
            const __m256i w = _mm256_packs_epi16(_mm256_packs_epi32(pixel8(p), pixel8(p + 8)),
                                                 _mm256_packs_epi32(pixel8(p + 16), pixel8(p + 24)));
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + p),
                                _mm256_permutevar8x32_epi32(w, _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7)));
        }
    } else {
        // Sixteen pixels from 48 bytes: the AND of each byte with its next two,
        // then the bytes where pixels start gathered from the three blocks.
        const __m128i from0 = _mm_setr_epi8(0, 3, 6, 9, 12, 15, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1);
        const __m128i from1 = _mm_setr_epi8(-1, -1, -1, -1, -1, -1, 2, 5, 8, 11, 14, -1, -1, -1, -1, -1);
        const __m128i from2 = _mm_setr_epi8(-1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, 1, 4, 7, 10, 13);
        for (; p + 16 <= pixels; p += 16) {
            const Rok8u* m = masks + 3 * p;
            const __m128i x0 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(m));
            const __m128i x1 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(m + 16));
            const __m128i x2 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(m + 32));
            const __m128i t0 = _mm_and_si128(x0, _mm_and_si128(_mm_alignr_epi8(x1, x0, 1), _mm_alignr_epi8(x1, x0, 2)));
            const __m128i t1 = _mm_and_si128(x1, _mm_and_si128(_mm_alignr_epi8(x2, x1, 1), _mm_alignr_epi8(x2, x1, 2)));
            const __m128i t2 = _mm_and_si128(x2, _mm_and_si128(_mm_srli_si128(x2, 1), _mm_srli_si128(x2, 2)));
            const __m128i r = _mm_or_si128(_mm_shuffle_epi8(t0, from0),
                                           _mm_or_si128(_mm_shuffle_epi8(t1, from1), _mm_shuffle_epi8(t2, from2)));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + p), r);
        }
    }
    scalar(p, pixels);
}

template void compare_samples<Rok8u>(const Rok8u*, const Rok8u*, Rok8u*, int, CompareKind, float);
template void compare_samples<Rok16u>(const Rok16u*, const Rok16u*, Rok8u*, int, CompareKind, float);
template void compare_samples<Rok16s>(const Rok16s*, const Rok16s*, Rok8u*, int, CompareKind, float);
template void compare_samples<Rok32f>(const Rok32f*, const Rok32f*, Rok8u*, int, CompareKind, float);

}  // namespace rok::kernels
