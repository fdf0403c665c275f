// Histogram counting: 256-bin byte counts in sub-histograms, threshold counts
// by vector compares, and the per-pixel searches of the 16-bit and float
// members.
#include "kernels/stats/histogram.h"

#include <immintrin.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>

namespace rok::kernels {

namespace {

template <class T>
inline const T* row_at(const T* p, int step, int y) {
    return reinterpret_cast<const T*>(reinterpret_cast<const char*>(p) + std::ptrdiff_t(step) * y);
}

// Calls run(row, samples) for every row, or once for rows that follow each
// other without a gap.
template <class T, class Run>
void rows_of(const T* p, int step, int w, int h, int nc, Run&& run) {
    const std::size_t samples = std::size_t(w) * nc;
    if (std::size_t(step) == samples * sizeof(T)) {
        run(p, samples * std::size_t(h));
        return;
    }
    for (int y = 0; y < h; ++y) run(row_at(p, step, y), samples);
}

inline std::uint64_t sum_lanes(__m256i v) {
    const __m128i s = _mm_add_epi64(_mm256_castsi256_si128(v), _mm256_extracti128_si256(v, 1));
    return std::uint64_t(_mm_cvtsi128_si64(s)) + std::uint64_t(_mm_extract_epi64(s, 1));
}

}  // namespace

namespace {

// Pair counting for large one-channel images. The byte counting below is
// bound by one store per sample; counting two adjacent samples at once in
// one 16-bit counter per pair of values (65,536 of them, indexed by the two
// bytes read as one little-endian word) needs one store per two samples.
// The table is four times the first-level cache, so on random data the
// pairs wait on cache misses instead: of every 16 samples, the first 12 go
// as six pairs and the last 4 as bytes, so that the misses of the one and
// the stores of the other overlap (on random data and on smooth images
// this beats both all pairs and all bytes). The marginals come back at the
// end: value a was seen once for every pair with a in the low byte and
// once for every pair with a in the high byte, so each row and each column
// of the table adds to one value's total.
constexpr std::size_t kPairCells = 65536;
// Samples of one call from which the table's fold (a few microseconds) is
// repaid.
constexpr std::size_t kPairMinSamples = std::size_t(1) << 17;
// Blocks of a run decide alone between pairs and bytes, from their first
// kPairProbe bytes: where a pair often repeats the next one or the one
// after (flat or nearly flat areas), the increments of one counter would
// wait on each other's stores, which the byte counting's eight
// sub-histograms avoid.
constexpr std::size_t kPairBlock = 4096;
constexpr std::size_t kPairProbe = 512;
constexpr int kPairMaxRepeats = 128;  // of the probe's 512 comparisons
constexpr std::size_t kMixedGroup = 16, kGroupPairs = 6;

// The table of the calling thread, all zero between calls (the fold clears
// it); null if it cannot be allocated, in which case bytes are counted.
std::uint16_t* pair_table() {
    struct Table {
        std::uint16_t* cells = nullptr;
        ~Table() { std::free(cells); }
    };
    thread_local Table t;
    if (!t.cells) {
        t.cells = static_cast<std::uint16_t*>(std::aligned_alloc(64, kPairCells * sizeof(std::uint16_t)));
        if (t.cells) std::memset(t.cells, 0, kPairCells * sizeof(std::uint16_t));
    }
    return t.cells;
}

// Whether the kPairProbe bytes at q (readable up to q + kPairProbe + 4)
// hold few pairs equal to the next pair or the one after.
bool pairs_vary(const Rok8u* q) {
    __m256i repeats = _mm256_setzero_si256();
    for (std::size_t j = 0; j < kPairProbe; j += 32) {
        const __m256i x = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(q + j));
        const __m256i next = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(q + j + 2));
        const __m256i after = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(q + j + 4));
        repeats = _mm256_sub_epi16(repeats, _mm256_cmpeq_epi16(x, next));
        repeats = _mm256_sub_epi16(repeats, _mm256_cmpeq_epi16(x, after));
    }
    const __m256i s = _mm256_madd_epi16(repeats, _mm256_set1_epi16(1));
    __m128i t = _mm_add_epi32(_mm256_castsi256_si128(s), _mm256_extracti128_si256(s, 1));
    t = _mm_add_epi32(t, _mm_shuffle_epi32(t, 0x4E));
    t = _mm_add_epi32(t, _mm_shuffle_epi32(t, 0xB1));
    return _mm_cvtsi128_si32(t) <= kPairMaxRepeats;
}

// n (a multiple of kMixedGroup) samples from q, in groups of six pairs and
// four bytes (the bytes into sub[4 .. 7]). A counter that wraps to zero
// has seen 65,536 pairs: both of its values get them at once.
void count_mixed(const Rok8u* q, std::size_t n, std::uint16_t* table, std::uint32_t (*sub)[256],
                 std::uint32_t* counts) {
    for (std::size_t k = 0; k < n; k += kMixedGroup) {
#pragma GCC unroll 6
        for (std::size_t t = 0; t < kGroupPairs; ++t) {
            std::uint16_t ix;
            std::memcpy(&ix, q + k + 2 * t, 2);
            if (++table[ix] == 0) [[unlikely]] {
                counts[ix & 0xFF] += 65536;
                counts[ix >> 8] += 65536;
            }
        }
#pragma GCC unroll 4
        for (std::size_t t = 2 * kGroupPairs; t < kMixedGroup; ++t) ++sub[t & 7][q[k + t]];
    }
}

// Adds row b's sum (pairs with b in the high byte) to counts[b] and column
// a's (pairs with a in the low byte) to counts[a], and clears the table.
void fold_pairs(std::uint16_t* table, std::uint32_t* counts) {
    alignas(32) std::uint32_t columns[256] = {};
    const __m256i zero = _mm256_setzero_si256();
    for (int b = 0; b < 256; ++b) {
        std::uint16_t* row = table + 256 * b;
        __m256i sum = zero;
        for (int a = 0; a < 256; a += 16) {
            __m256i* cells = reinterpret_cast<__m256i*>(row + a);
            const __m256i x = _mm256_load_si256(cells);
            _mm256_store_si256(cells, zero);
            const __m256i lo = _mm256_cvtepu16_epi32(_mm256_castsi256_si128(x));
            const __m256i hi = _mm256_cvtepu16_epi32(_mm256_extracti128_si256(x, 1));
            sum = _mm256_add_epi32(sum, _mm256_add_epi32(lo, hi));
            __m256i* c = reinterpret_cast<__m256i*>(columns + a);
            _mm256_store_si256(c, _mm256_add_epi32(_mm256_load_si256(c), lo));
            _mm256_store_si256(c + 1, _mm256_add_epi32(_mm256_load_si256(c + 1), hi));
        }
        __m128i t = _mm_add_epi32(_mm256_castsi256_si128(sum), _mm256_extracti128_si256(sum, 1));
        t = _mm_add_epi32(t, _mm_shuffle_epi32(t, 0x4E));
        t = _mm_add_epi32(t, _mm_shuffle_epi32(t, 0xB1));
        counts[b] += std::uint32_t(_mm_cvtsi128_si32(t));
    }
    for (int a = 0; a < 256; ++a) counts[a] += columns[a];
}

// Interleaved pixels of NC samples, the first P of them counted. Four
// sub-histograms per channel, one per pixel position mod 4, keep a flat
// image's increments of one counter four pixels apart.
template <int NC, int P>
void histogram_pixels_8u(const Rok8u* p, int step, int w, int h, std::uint32_t (*counts)[256]) {
    alignas(64) std::uint32_t sub[4][P][256] = {};
    for (int y = 0; y < h; ++y) {
        const Rok8u* r = row_at(p, step, y);
        int x = 0;
        for (; x + 4 <= w; x += 4, r += 4 * NC) {
#pragma GCC unroll 4
            for (int j = 0; j < 4; ++j)
#pragma GCC unroll 4
                for (int c = 0; c < P; ++c) ++sub[j][c][r[j * NC + c]];
        }
        for (; x < w; ++x, r += NC)
            for (int c = 0; c < P; ++c) ++sub[0][c][r[c]];
    }
    for (int c = 0; c < P; ++c)
        for (int v = 0; v < 256; ++v) counts[c][v] += sub[0][c][v] + sub[1][c][v] + sub[2][c][v] + sub[3][c][v];
}

}  // namespace

void histogram_8u(const Rok8u* p, int step, int w, int h, int nc, int processed, std::uint32_t (*counts)[256]) {
    // Counting bytes is bound by the one store per sample that the processor
    // retires per cycle (hence the pairs above, for large images); what
    // matters is that every increment is one byte load plus one
    // read-modify-write at an address known from the load (no shifts or
    // masks on the way), and that consecutive samples update different
    // counters so that a run of equal samples never waits for the previous
    // increment's store. Eight sub-histograms, one per position mod 8.
    if (nc == 1) {
        alignas(64) std::uint32_t sub[8][256] = {};
        auto bytes = [&sub](const Rok8u* r, std::size_t n) {
            std::size_t i = 0;
            for (; i + 16 <= n; i += 16) {
#pragma GCC unroll 16
                for (int k = 0; k < 16; ++k) ++sub[k & 7][r[i + k]];
            }
            for (; i < n; ++i) ++sub[i & 7][r[i]];
        };
        // Blocks whose pairs repeat: 32 samples equal to their first are one
        // increment of 32 (flat areas, masks, scanned backgrounds); others
        // go as bytes.
        auto runs = [&sub, &bytes](const Rok8u* r, std::size_t n) {
            std::size_t i = 0;
            for (; i + 32 <= n; i += 32) {
                const __m256i x = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(r + i));
                if (_mm256_movemask_epi8(_mm256_cmpeq_epi8(x, _mm256_set1_epi8(char(r[i])))) == -1)
                    sub[(i >> 5) & 7][r[i]] += 32;
                else
                    bytes(r + i, 32);
            }
            bytes(r + i, n - i);
        };
        std::uint16_t* table = std::size_t(w) * std::size_t(h) >= kPairMinSamples ? pair_table() : nullptr;
        bool paired = false;  // whether the table needs its fold
        rows_of(p, step, w, h, 1, [&](const Rok8u* r, std::size_t n) {
            if (!table) return bytes(r, n);
            for (std::size_t i = 0; i < n;) {
                const std::size_t len = std::min(n - i, kPairBlock), whole = len / kMixedGroup * kMixedGroup;
                if (len < 2 * kPairProbe) {
                    bytes(r + i, len);
                } else if (pairs_vary(r + i)) {
                    count_mixed(r + i, whole, table, sub, counts[0]);
                    paired = true;
                    bytes(r + i + whole, len - whole);
                } else {
                    runs(r + i, len);
                }
                i += len;
            }
        });
        if (paired) fold_pairs(table, counts[0]);
        for (int v = 0; v < 256; ++v) {
            std::uint32_t s = 0;
            for (int b = 0; b < 8; ++b) s += sub[b][v];
            counts[0][v] += s;
        }
        return;
    }
    if (nc == 3) histogram_pixels_8u<3, 3>(p, step, w, h, counts);
    else if (processed == 4) histogram_pixels_8u<4, 4>(p, step, w, h, counts);
    else histogram_pixels_8u<4, 3>(p, step, w, h, counts);
}

namespace {

// Thresholds t[0 .. M-1] over `vectors` whole registers from r: byte
// counters (at most 255 registers' worth) added into the totals.
template <int M>
void at_least_bytes(const Rok8u* r, std::size_t vectors, const __m256i* t, __m256i* totals) {
    const __m256i flip = _mm256_set1_epi8(char(0x80)), zero = _mm256_setzero_si256();
    __m256i acc[M];
    for (auto& a : acc) a = zero;
    for (std::size_t v = 0; v < vectors; ++v) {
        const __m256i x = _mm256_xor_si256(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(r + 32 * v)), flip);
        for (int j = 0; j < M; ++j) acc[j] = _mm256_sub_epi8(acc[j], _mm256_cmpgt_epi8(x, t[j]));
    }
    for (int j = 0; j < M; ++j) totals[j] = _mm256_add_epi64(totals[j], _mm256_sad_epu8(acc[j], zero));
}

}  // namespace

void count_at_least_8u(const Rok8u* p, int step, int w, int h, const Rok8u* thresholds, int m, std::uint64_t* atLeast) {
    // Signed compares of x ^ 0x80 against (t - 1) ^ 0x80 give x >= t. Groups
    // of eight thresholds, the last one holding only what is left.
    __m256i below[kMaxAtLeast8u];
    for (int j = 0; j < m; ++j) below[j] = _mm256_set1_epi8(char((thresholds[j] - 1) ^ 0x80));
    __m256i totals[kMaxAtLeast8u];
    for (auto& t : totals) t = _mm256_setzero_si256();
    rows_of(p, step, w, h, 1, [&](const Rok8u* r, std::size_t n) {
        std::size_t i = 0;
        while (i + 32 <= n) {
            const std::size_t vectors = std::min<std::size_t>((n - i) / 32, 255);
            for (int g = 0; g < m; g += 8) {
                const __m256i* t = below + g;
                __m256i* s = totals + g;
                switch (std::min(8, m - g)) {
                    case 1: at_least_bytes<1>(r + i, vectors, t, s); break;
                    case 2: at_least_bytes<2>(r + i, vectors, t, s); break;
                    case 3: at_least_bytes<3>(r + i, vectors, t, s); break;
                    case 4: at_least_bytes<4>(r + i, vectors, t, s); break;
                    case 5: at_least_bytes<5>(r + i, vectors, t, s); break;
                    case 6: at_least_bytes<6>(r + i, vectors, t, s); break;
                    case 7: at_least_bytes<7>(r + i, vectors, t, s); break;
                    default: at_least_bytes<8>(r + i, vectors, t, s); break;
                }
            }
            i += 32 * vectors;
        }
        for (; i < n; ++i)
            for (int j = 0; j < m; ++j) atLeast[j] += r[i] >= thresholds[j];
    });
    for (int j = 0; j < m; ++j) atLeast[j] += sum_lanes(totals[j]);
}

void histogram_16(const std::uint16_t* p, int step, int w, int h, int nc, unsigned flip, std::uint32_t* counts) {
    for (int y = 0; y < h; ++y) {
        const std::uint16_t* r = row_at(p, step, y);
        for (int x = 0; x < w; ++x) ++counts[r[std::size_t(x) * nc] ^ flip];
    }
}

namespace {

template <class T, class V, class Bin>
void each_sample(const T* p, int step, int w, int h, int nc, Bin&& bin) {
    for (int y = 0; y < h; ++y) {
        const T* r = row_at(p, step, y);
        for (int x = 0; x < w; ++x) bin(r[std::size_t(x) * nc]);
    }
}

template <class T, class V>
void linear(const T* p, int step, int w, int h, int nc, const V* levels, int n, std::uint32_t* bins) {
    const V first = levels[0], last = levels[n - 1];
    each_sample<T, V>(p, step, w, h, nc, [&](T v) {
        if (!(v >= first) || !(v < last)) return;  // NaN too
        int k = 0;
        while (!(v < levels[k + 1])) ++k;
        ++bins[k];
    });
}

// The interval k with levels[k] <= v < levels[k + 1], searched between lo
// and hi (levels[lo] <= v < levels[hi]).
template <class T, class V>
inline int bisect(const V* levels, int lo, int hi, T v) {
    while (hi - lo > 1) {
        const int mid = lo + (hi - lo) / 2;
        if (levels[mid] <= v) lo = mid;
        else hi = mid;
    }
    return lo;
}

template <class T, class V>
void binary(const T* p, int step, int w, int h, int nc, const V* levels, int n, std::uint32_t* bins) {
    const V first = levels[0], last = levels[n - 1];
    each_sample<T, V>(p, step, w, h, nc, [&](T v) {
        if (!(v >= first) || !(v < last)) return;
        ++bins[bisect(levels, 0, n - 1, v)];
    });
}

template <class T, class V>
void brute(const T* p, int step, int w, int h, int nc, const V* levels, int n, std::uint32_t* bins) {
    each_sample<T, V>(p, step, w, h, nc, [&](T v) {
        for (int k = 0; k + 1 < n; ++k) bins[k] += levels[k] <= v && v < levels[k + 1];
    });
}

// The bucket of v: (v - origin) * scale in float arithmetic, truncated.
// Every step rounds monotonically, so v < w never puts w in an earlier
// bucket than v. A level in an earlier bucket than v is therefore below v and
// one in a later bucket above it; only a level in v's own bucket needs a
// compare. With at most one level per bucket, the bin of v is
// below[b] + (v >= levels[below[b] + 1]), exactly, where below[b] + 1 is the
// number of levels in buckets before b.
constexpr int kMaxBuckets = 4096;
constexpr int kMaxSubBins = 1024;

bool bucket_search(const Rok32f* p, int step, int w, int h, int nc, const Rok32f* levels, int n, std::uint32_t* bins) {
    const float origin = levels[0], range = levels[n - 1] - origin;
    float gap = range;
    for (int k = 0; k + 1 < n; ++k) gap = std::min(gap, levels[k + 1] - levels[k]);
    if (!(range > 0) || !std::isfinite(range) || !(gap > 0) || !(range / gap < kMaxBuckets / 2)) return false;
    std::int16_t below[kMaxBuckets + 1];
    const float scale = float(std::ceil(range / gap)) / range;
    auto bucket = [origin, scale](float v) { return int((v - origin) * scale); };
    const int last = bucket(levels[n - 1]);
    if (last < 0 || last > kMaxBuckets) return false;
    int k = 0;  // levels in buckets before b
    for (int b = 0; b <= last; ++b) {
        const int first = k;
        while (k < n && bucket(levels[k]) <= b) ++k;
        if (k - first > 1) return false;  // two levels in one bucket
        below[b] = std::int16_t(first - 1);
    }
    // Samples outside [levels[0], levels[n - 1]) and NaN go to a spare bin.
    const int spare = n - 1;
    alignas(64) std::uint32_t sub[4][kMaxSubBins + 1];
    const int subs = n <= kMaxSubBins ? 4 : 0;
    for (int j = 0; j < subs; ++j) std::fill(sub[j], sub[j] + n, 0u);
    const Rok32f lo = levels[0], hi = levels[n - 1];
    auto bin_of = [&](Rok32f v) {
        if (!(v >= lo) || !(v < hi)) return spare;
        const int base = below[bucket(v)];
        return base + (v >= levels[base + 1]);
    };
    // Buckets that are the bins themselves: level k falls in bucket k and the
    // float just below it in bucket k - 1. Bucketing being monotonic, every v
    // in [levels[k], levels[k + 1]) then lies in bucket k, and the bin is the
    // bucket with no look-up or compare (the usual case of evenly spaced
    // levels), eight samples at once.
    bool exact = subs && nc == 1 && last == n - 1;
    for (int j = 0; exact && j < n; ++j)
        exact = bucket(levels[j]) == j && (j == 0 || bucket(std::nextafter(levels[j], -INFINITY)) == j - 1);
    const __m256 vlo = _mm256_set1_ps(lo), vhi = _mm256_set1_ps(hi), vorigin = _mm256_set1_ps(origin),
                 vscale = _mm256_set1_ps(scale);
    const __m256i vspare = _mm256_set1_epi32(spare);
    for (int y = 0; y < h; ++y) {
        const Rok32f* r = row_at(p, step, y);
        int x = 0;
        if (exact)
            for (; x + 8 <= w; x += 8) {
                const __m256 v = _mm256_loadu_ps(r + x);
                const __m256 inside = _mm256_and_ps(_mm256_cmp_ps(v, vlo, _CMP_GE_OQ), _mm256_cmp_ps(v, vhi, _CMP_LT_OQ));
                const __m256i b = _mm256_cvttps_epi32(_mm256_mul_ps(_mm256_sub_ps(v, vorigin), vscale));
                const __m256i k8 = _mm256_blendv_epi8(vspare, b, _mm256_castps_si256(inside));
                const __m128i k0 = _mm256_castsi256_si128(k8), k1 = _mm256_extracti128_si256(k8, 1);
                const std::uint64_t q[4] = {std::uint64_t(_mm_cvtsi128_si64(k0)), std::uint64_t(_mm_extract_epi64(k0, 1)),
                                            std::uint64_t(_mm_cvtsi128_si64(k1)), std::uint64_t(_mm_extract_epi64(k1, 1))};
                for (int j = 0; j < 4; ++j) {
                    ++sub[(2 * j) & 3][std::uint32_t(q[j])];
                    ++sub[(2 * j + 1) & 3][q[j] >> 32];
                }
            }
        if (subs)
            for (; x + 4 <= w; x += 4)
                for (int j = 0; j < 4; ++j) ++sub[j][bin_of(r[std::size_t(x + j) * nc])];
        for (; x < w; ++x) {
            const int b = bin_of(r[std::size_t(x) * nc]);
            if (b != spare) ++bins[b];
        }
    }
    for (int j = 0; j < subs; ++j)
        for (int b = 0; b < n - 1; ++b) bins[b] += sub[j][b];
    return true;
}

template <int M>
void at_least_group(const Rok32f* r, std::size_t n, const Rok32f* levels, std::uint64_t* atLeast) {
    __m256 l[M];
    __m256i acc[M];
    for (int j = 0; j < M; ++j) {
        l[j] = _mm256_set1_ps(levels[j]);
        acc[j] = _mm256_setzero_si256();
    }
    std::size_t i = 0;
    for (; i + 8 <= n; i += 8) {
        const __m256 x = _mm256_loadu_ps(r + i);
        for (int j = 0; j < M; ++j)
            acc[j] = _mm256_sub_epi32(acc[j], _mm256_castps_si256(_mm256_cmp_ps(x, l[j], _CMP_GE_OQ)));
    }
    for (int j = 0; j < M; ++j) {
        const __m256i wide = _mm256_add_epi64(_mm256_cvtepu32_epi64(_mm256_castsi256_si128(acc[j])),
                                              _mm256_cvtepu32_epi64(_mm256_extracti128_si256(acc[j], 1)));
        std::uint64_t s = sum_lanes(wide);
        for (std::size_t t = i; t < n; ++t) s += r[t] >= levels[j];
        atLeast[j] += s;
    }
}

}  // namespace

#define ROK_BINS(T, V)                                                                                          \
    void bins_linear(const T* p, int step, int w, int h, int nc, const V* levels, int n, std::uint32_t* bins) { \
        linear(p, step, w, h, nc, levels, n, bins);                                                             \
    }                                                                                                           \
    void bins_brute(const T* p, int step, int w, int h, int nc, const V* levels, int n, std::uint32_t* bins) {  \
        brute(p, step, w, h, nc, levels, n, bins);                                                              \
    }
ROK_BINS(Rok16s, Rok32s)
ROK_BINS(Rok16u, Rok32s)
ROK_BINS(Rok32f, Rok32f)
#undef ROK_BINS

void bins_binary(const Rok16s* p, int step, int w, int h, int nc, const Rok32s* levels, int n, std::uint32_t* bins) {
    binary(p, step, w, h, nc, levels, n, bins);
}
void bins_binary(const Rok16u* p, int step, int w, int h, int nc, const Rok32s* levels, int n, std::uint32_t* bins) {
    binary(p, step, w, h, nc, levels, n, bins);
}
void bins_binary(const Rok32f* p, int step, int w, int h, int nc, const Rok32f* levels, int n, std::uint32_t* bins) {
    if (!bucket_search(p, step, w, h, nc, levels, n, bins)) binary(p, step, w, h, nc, levels, n, bins);
}

void count_at_least_32f(const Rok32f* p, int step, int w, int h, int nc, const Rok32f* levels, int n,
                        std::uint64_t* atLeast) {
    if (nc != 1) {
        each_sample<Rok32f, Rok32f>(p, step, w, h, nc, [&](Rok32f v) {
            for (int k = 0; k < n; ++k) atLeast[k] += v >= levels[k];
        });
        return;
    }
    // Groups of eight levels over each row while it sits in the first-level cache.
    rows_of(p, step, w, h, 1, [&](const Rok32f* r, std::size_t samples) {
        for (std::size_t off = 0; off < samples; off += 4096) {
            const std::size_t len = std::min<std::size_t>(4096, samples - off);
            int k = 0;
            for (; k + 8 <= n; k += 8) at_least_group<8>(r + off, len, levels + k, atLeast + k);
            switch (n - k) {
                case 7: at_least_group<7>(r + off, len, levels + k, atLeast + k); break;
                case 6: at_least_group<6>(r + off, len, levels + k, atLeast + k); break;
                case 5: at_least_group<5>(r + off, len, levels + k, atLeast + k); break;
                case 4: at_least_group<4>(r + off, len, levels + k, atLeast + k); break;
                case 3: at_least_group<3>(r + off, len, levels + k, atLeast + k); break;
                case 2: at_least_group<2>(r + off, len, levels + k, atLeast + k); break;
                case 1: at_least_group<1>(r + off, len, levels + k, atLeast + k); break;
                default: break;
            }
        }
    });
}

}  // namespace rok::kernels
