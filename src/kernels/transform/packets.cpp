// Gathers and scatters between images and engine packets. Eight whole rows
// of one-sample pixels go through 8 x 8 register transposes; everything else
// (partial batches, interleaved channels, ragged tails) moves sample by
// sample.
#include <immintrin.h>

#include <cstdint>

#include "kernels/transform/fft_engine.h"
#include "kernels/transform/packets.h"

namespace rok::kernels::fft {

namespace {

inline const float* row_at(const float* base, int step, int y) {
    return reinterpret_cast<const float*>(reinterpret_cast<const char*>(base) + std::ptrdiff_t(step) * y);
}
inline float* row_at(float* base, int step, int y) {
    return reinterpret_cast<float*>(reinterpret_cast<char*>(base) + std::ptrdiff_t(step) * y);
}

// r[i] element j <-> r[j] element i.
inline void transpose8(__m256* r) {
    const __m256 t0 = _mm256_unpacklo_ps(r[0], r[1]), t1 = _mm256_unpackhi_ps(r[0], r[1]);
    const __m256 t2 = _mm256_unpacklo_ps(r[2], r[3]), t3 = _mm256_unpackhi_ps(r[2], r[3]);
    const __m256 t4 = _mm256_unpacklo_ps(r[4], r[5]), t5 = _mm256_unpackhi_ps(r[4], r[5]);
    const __m256 t6 = _mm256_unpacklo_ps(r[6], r[7]), t7 = _mm256_unpackhi_ps(r[6], r[7]);
    const __m256 s0 = _mm256_shuffle_ps(t0, t2, 0x44), s1 = _mm256_shuffle_ps(t0, t2, 0xEE);
    const __m256 s2 = _mm256_shuffle_ps(t1, t3, 0x44), s3 = _mm256_shuffle_ps(t1, t3, 0xEE);
    const __m256 s4 = _mm256_shuffle_ps(t4, t6, 0x44), s5 = _mm256_shuffle_ps(t4, t6, 0xEE);
    const __m256 s6 = _mm256_shuffle_ps(t5, t7, 0x44), s7 = _mm256_shuffle_ps(t5, t7, 0xEE);
    r[0] = _mm256_permute2f128_ps(s0, s4, 0x20);
    r[1] = _mm256_permute2f128_ps(s1, s5, 0x20);
    r[2] = _mm256_permute2f128_ps(s2, s6, 0x20);
    r[3] = _mm256_permute2f128_ps(s3, s7, 0x20);
    r[4] = _mm256_permute2f128_ps(s0, s4, 0x31);
    r[5] = _mm256_permute2f128_ps(s1, s5, 0x31);
    r[6] = _mm256_permute2f128_ps(s2, s6, 0x31);
    r[7] = _mm256_permute2f128_ps(s3, s7, 0x31);
}

}  // namespace

void gather_rows(const float* base, int step, int rows, int count, int stride, float* packets) {
    const float* row[kLanes];
    for (int r = 0; r < kLanes; ++r) row[r] = r < rows ? row_at(base, step, r) : nullptr;
    int n = 0;
    if (stride == 1 && rows == kLanes) {
        for (; n + kLanes <= count; n += kLanes) {
            __m256 v[kLanes];
            for (int r = 0; r < kLanes; ++r) v[r] = _mm256_loadu_ps(row[r] + n);
            transpose8(v);
            for (int c = 0; c < kLanes; ++c) _mm256_store_ps(packets + (n + c) * kLanes, v[c]);
        }
    }
    for (; n < count; ++n)
        for (int r = 0; r < kLanes; ++r)
            packets[n * kLanes + r] = row[r] ? row[r][std::ptrdiff_t(n) * stride] : 0.0f;
}

void scatter_rows(const float* packets, float* base, int step, int rows, int count, int stride) {
    float* row[kLanes];
    for (int r = 0; r < kLanes; ++r) row[r] = r < rows ? row_at(base, step, r) : nullptr;
    int n = 0;
    if (stride == 1 && rows == kLanes) {
        for (; n + kLanes <= count; n += kLanes) {
            __m256 v[kLanes];
            for (int c = 0; c < kLanes; ++c) v[c] = _mm256_load_ps(packets + (n + c) * kLanes);
            transpose8(v);
            for (int r = 0; r < kLanes; ++r) _mm256_storeu_ps(row[r] + n, v[r]);
        }
    }
    for (; n < count; ++n)
        for (int r = 0; r < rows; ++r) row[r][std::ptrdiff_t(n) * stride] = packets[n * kLanes + r];
}

void gather_columns(const float* base, int step, int count, const int* offsets, float* packets, int packetFloats,
                    int laneBase) {
    int used[kLanes], lanes = 0;
    for (int l = 0; l < kLanes; ++l)
        if (offsets[l] >= 0) used[lanes++] = l;
    for (int y = 0; y < count; ++y) {
        const float* row = row_at(base, step, y);
        float* p = packets + std::ptrdiff_t(y) * packetFloats + laneBase;
        if (lanes < kLanes) _mm256_storeu_ps(p, _mm256_setzero_ps());
        for (int i = 0; i < lanes; ++i) p[used[i]] = row[offsets[used[i]]];
    }
}

void scatter_columns(const float* packets, int packetFloats, int laneBase, float* base, int step, int count,
                     const int* offsets) {
    int used[kLanes], lanes = 0;
    for (int l = 0; l < kLanes; ++l)
        if (offsets[l] >= 0) used[lanes++] = l;
    for (int y = 0; y < count; ++y) {
        float* row = row_at(base, step, y);
        const float* p = packets + std::ptrdiff_t(y) * packetFloats + laneBase;
        for (int i = 0; i < lanes; ++i) row[offsets[used[i]]] = p[used[i]];
    }
}

void gather_pairs(const float* base, int step, int count, int first, float* packets, int blocks) {
    const std::ptrdiff_t next = std::ptrdiff_t(count) * kComplexPacketFloats;
    for (int y = 0; y < count; ++y) {
        const float* row = row_at(base, step, y) + first;
        for (int b = 0; b < blocks; ++b) {
            const __m256 a = _mm256_loadu_ps(row + 16 * b), c = _mm256_loadu_ps(row + 16 * b + kLanes);
            float* p = packets + b * next + std::ptrdiff_t(y) * kComplexPacketFloats;
            _mm256_store_ps(p, _mm256_shuffle_ps(a, c, 0x88));
            _mm256_store_ps(p + kLanes, _mm256_shuffle_ps(a, c, 0xDD));
        }
    }
}

void scatter_pairs(const float* packets, float* base, int step, int count, int first, int blocks) {
    const std::ptrdiff_t next = std::ptrdiff_t(count) * kComplexPacketFloats;
    for (int y = 0; y < count; ++y) {
        float* row = row_at(base, step, y) + first;
        for (int b = 0; b < blocks; ++b) {
            const float* p = packets + b * next + std::ptrdiff_t(y) * kComplexPacketFloats;
            const __m256 re = _mm256_load_ps(p), im = _mm256_load_ps(p + kLanes);
            _mm256_storeu_ps(row + 16 * b, _mm256_unpacklo_ps(re, im));
            _mm256_storeu_ps(row + 16 * b + kLanes, _mm256_unpackhi_ps(re, im));
        }
    }
}

}  // namespace rok::kernels::fft
