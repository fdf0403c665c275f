#include "stats/histogram.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <limits>
#include <type_traits>

#include "core/core.h"
#include "frame/image.h"
#include "frame/parallel.h"
#include "kernels/stats/histogram.h"

namespace rok::stats {

HistMethod method_16(std::int64_t pixels, int n, bool increasing) {
    auto reached = [pixels](const auto& sizes) {
        int i = 0;
        for (std::int64_t s : sizes) i += pixels >= s;
        return i;
    };
    if (increasing) {
        static constexpr std::int64_t sizes[] = {6400, 9216, 12544, 16384, 20736, 25600, 36864};
        static constexpr int searchUpTo[] = {INT_MAX, 134, 78, 50, 34, 22, 6, 2};
        if (n <= searchUpTo[reached(sizes)]) return n < 171 ? HistMethod::LinearSearch : HistMethod::BinarySearch;
        return HistMethod::Table;
    }
    static constexpr std::int64_t sizes[] = {1024, 2304, 4096, 6400, 9216, 12544, 16384, 20736, 25600, 30976, 43264};
    static constexpr int bruteUpTo[] = {INT_MAX, 434, 222, 126, 78, 50, 34, 22, 14, 10, 6, 2};
    return n > bruteUpTo[reached(sizes)] ? HistMethod::Table : HistMethod::BruteForce;
}

HistMethod method_32f(int n, bool increasing) {
    if (!increasing) return HistMethod::BruteForce;
    return n > 102 ? HistMethod::BinarySearch : HistMethod::LinearSearch;
}

void even_levels(Rok32s* levels, int n, Rok32s lower, Rok32s upper) {
    const std::int64_t span = std::int64_t(upper) - lower;
    const std::int64_t d = span / (n - 1), r = span % (n - 1);  // both truncated toward zero
    std::int64_t v = lower;
    levels[0] = lower;
    for (int k = 1; k < n; ++k) {
        const std::int64_t e = upper >= lower ? (k <= r ? 1 : 0) : (k <= -r ? -1 : 0);
        v += d + e;
        levels[k] = Rok32s(v);
    }
}

namespace {

template <class V>
bool strictly_increasing(const V* levels, int n) {
    for (int k = 0; k + 1 < n; ++k)
        if (!(levels[k] < levels[k + 1])) return false;
    return true;
}

// A count stored into a signed 32-bit bin (counts of 2^31 or more wrap).
inline Rok32s bin_value(std::uint64_t count) { return Rok32s(std::uint32_t(count)); }

// Bin k = below(end of k + 1) - below(end of k) where those ends increase,
// 0 where they do not; `below(t)` counts samples under the table end t.
template <class Below>
void bins_from_ends(const Rok32s* levels, int n, std::int64_t lo, std::int64_t hi, Below&& below, Rok32s* hist) {
    auto end = [lo, hi](Rok32s l) { return std::clamp<std::int64_t>(l, lo, hi + 1); };
    for (int k = 0; k + 1 < n; ++k) {
        const std::int64_t a = end(levels[k]), b = end(levels[k + 1]);
        hist[k] = b > a ? bin_value(below(b) - below(a)) : 0;
    }
}

// The 8-bit counts share the rows among threads once an image has enough
// samples to repay the hand-off. Every part adds into its own thread's
// totals (slots[slot]), which the caller then adds up: integer counts, so
// the result is the same at any thread count. Returns the slots used, each
// zeroed before counting.
constexpr std::int64_t kThreadedSamples8u = std::int64_t(1) << 18;
constexpr int kMaxCountThreads = 8;

template <class Totals, class Count>
int count_rows_8u(RokiSize roi, int nc, Totals* slots, Count&& count) {
    const std::int64_t samples = std::int64_t(roi.width) * roi.height * nc;
    const int team =
        samples >= kThreadedSamples8u && roi.height > 1 ? std::min(ownGetNumThreads(), kMaxCountThreads) : 1;
    std::memset(slots, 0, sizeof(Totals) * std::size_t(team));
    if (team <= 1) {
        count(0, roi.height, slots[0]);
        return 1;
    }
    // One band of rows per thread: each call of the counting kernel has a
    // fixed cost (the pair table's fold) that smaller pieces would repeat.
    parallel_for(team, team, [&](int begin, int end, int slot) {
        for (int band = begin; band < end; ++band) {
            const int y0 = int(std::int64_t(roi.height) * band / team);
            const int y1 = int(std::int64_t(roi.height) * (band + 1) / team);
            if (y1 > y0) count(y0, y1 - y0, slots[slot]);
        }
    });
    return team;
}

// 8-bit images: one pass counts all 256 values of every channel; a single
// channel with few distinct level ends counts samples at or above each end
// instead. Both give bin k = the samples from levels[k] to levels[k + 1] - 1
// within 0 .. 255. prepare(c) runs before channel c's levels are read, so
// HistogramEven can write them channel by channel.
template <Layout L, class Prepare>
void count_8u(const Rok8u* src, int step, RokiSize roi, Rok32s* const* hist, const Rok32s* const* levels,
              const int* nLevels, Prepare&& prepare) {
    constexpr int nc = channels(L), outs = processed_channels(L);
    const std::uint64_t pixels = std::uint64_t(roi.width) * std::uint64_t(roi.height);
    if constexpr (L == Layout::C1) {
        prepare(0);
        Rok8u ends[kernels::kMaxAtLeast8u];
        int m = 0;
        bool few = true;
        for (int k = 0; k < nLevels[0] && few; ++k) {
            const Rok32s l = levels[0][k];
            if (l <= 0 || l >= 256 || std::find(ends, ends + m, Rok8u(l)) != ends + m) continue;
            if (m == kernels::kMaxAtLeast8u) few = false;
            else ends[m++] = Rok8u(l);
        }
        if (few) {
            std::uint64_t slots[kMaxCountThreads][kernels::kMaxAtLeast8u];
            const int used = count_rows_8u(roi, 1, slots, [&](int y, int rows, std::uint64_t* atLeast) {
                kernels::count_at_least_8u(row(src, step, y), step, roi.width, rows, ends, m, atLeast);
            });
            std::uint64_t* atLeast = slots[0];
            for (int t = 1; t < used; ++t)
                for (int j = 0; j < m; ++j) atLeast[j] += slots[t][j];
            auto below = [&](std::int64_t t) -> std::uint64_t {
                if (t <= 0) return 0;
                if (t >= 256) return pixels;
                return pixels - atLeast[std::find(ends, ends + m, Rok8u(t)) - ends];
            };
            bins_from_ends(levels[0], nLevels[0], 0, 255, below, hist[0]);
            return;
        }
    }
    std::uint32_t slots[kMaxCountThreads][4][256];
    const int used = count_rows_8u(roi, nc, slots, [&](int y, int rows, std::uint32_t (*counts)[256]) {
        kernels::histogram_8u(row(src, step, y), step, roi.width, rows, nc, outs, counts);
    });
    auto& counts = slots[0];
    for (int t = 1; t < used; ++t)
        for (int c = 0; c < outs; ++c)
            for (int v = 0; v < 256; ++v) counts[c][v] += slots[t][c][v];
    for (int c = 0; c < outs; ++c) {
        if (L != Layout::C1) prepare(c);
        std::uint64_t under[257];
        under[0] = 0;
        for (int v = 0; v < 256; ++v) under[v + 1] = under[v] + counts[c][v];
        bins_from_ends(levels[c], nLevels[c], 0, 255, [&](std::int64_t t) { return under[t]; }, hist[c]);
    }
}

// 16-bit and float images count channel by channel with the method chosen
// for it; `table` (65537 entries) is there when some channel needs it.
// prepare(c) runs before channel c's levels are read.
template <class T, Layout L, class Prepare>
void count_channels(const T* src, int step, RokiSize roi, Rok32s* const* hist, const HistLevel<T>* const* levels,
                    const int* nLevels, const HistMethod* method, std::uint32_t* table, Prepare&& prepare) {
    constexpr int nc = channels(L), outs = processed_channels(L);
    for (int c = 0; c < outs; ++c) {
        prepare(c);
        const T* p = src + c;
        const HistLevel<T>* lv = levels[c];
        const int n = nLevels[c];
        auto* bins = reinterpret_cast<std::uint32_t*>(hist[c]);
        if constexpr (std::is_same_v<T, Rok32f>) {
            if (method[c] == HistMethod::LinearSearch && nc == 1) {
                std::uint64_t atLeast[103] = {};  // the linear search serves at most 102 levels
                kernels::count_at_least_32f(p, step, roi.width, roi.height, nc, lv, n, atLeast);
                for (int k = 0; k + 1 < n; ++k) hist[c][k] = bin_value(atLeast[k] - atLeast[k + 1]);
                continue;
            }
        } else if (method[c] == HistMethod::Table) {
            constexpr std::int64_t lo = std::numeric_limits<T>::min(), hi = std::numeric_limits<T>::max();
            std::memset(table, 0, 65537 * sizeof(std::uint32_t));
            kernels::histogram_16(reinterpret_cast<const std::uint16_t*>(p), step, roi.width, roi.height, nc,
                                  std::is_signed_v<T> ? 0x8000u : 0u, table + 1);
            for (int v = 1; v <= 65536; ++v) table[v] += table[v - 1];  // table[v]: samples below lo + v
            bins_from_ends(lv, n, lo, hi, [&](std::int64_t t) { return table[t - lo]; }, hist[c]);
            continue;
        }
        std::fill(bins, bins + (n - 1), 0u);
        switch (method[c]) {
            case HistMethod::LinearSearch: kernels::bins_linear(p, step, roi.width, roi.height, nc, lv, n, bins); break;
            case HistMethod::BinarySearch: kernels::bins_binary(p, step, roi.width, roi.height, nc, lv, n, bins); break;
            default: kernels::bins_brute(p, step, roi.width, roi.height, nc, lv, n, bins); break;
        }
    }
}

// Chooses each channel's method and takes the table where one needs it:
// rokStatusNoMemory when the allocation fails, before anything is written.
template <class T, Layout L>
RokStatus plan(RokiSize roi, const int* nLevels, const bool* increasing, HistMethod* method, std::uint32_t*& table) {
    constexpr int outs = processed_channels(L);
    const std::int64_t pixels = std::int64_t(roi.width) * roi.height;
    bool needTable = false;
    for (int c = 0; c < outs; ++c) {
        method[c] = std::is_same_v<T, Rok32f> ? method_32f(nLevels[c], increasing[c])
                                               : method_16(pixels, nLevels[c], increasing[c]);
        needTable = needTable || method[c] == HistMethod::Table;
    }
    table = nullptr;
    if (needTable) {
        table = static_cast<std::uint32_t*>(rokMalloc(65537 * int(sizeof(std::uint32_t))));
        if (!table) return rokStatusNoMemory;
    }
    return rokStatusOk;
}

template <class T, Layout L, class LevelPtr>
RokStatus check(const T* src, int step, RokiSize roi, Rok32s* const* hist, const LevelPtr* levels, const int* nLevels) {
    constexpr int outs = processed_channels(L);
    if (any_null(src, hist, levels, nLevels)) return rokStatusNullPtr;
    for (int c = 0; c < outs; ++c)
        if (any_null(hist[c], levels[c])) return rokStatusNullPtr;
    if (bad_size(roi)) return rokStatusBadSize;
    if (step < 1) return rokStatusBadStep;
    for (int c = 0; c < outs; ++c)
        if (nLevels[c] < 2) return rokStatusBadHistLevels;
    return rokStatusOk;
}

}  // namespace

template <class T, Layout L>
RokStatus histogram_range(const T* src, int step, RokiSize roi, Rok32s* const* hist,
                          const HistLevel<T>* const* levels, const int* nLevels) {
    if (RokStatus s = check<T, L>(src, step, roi, hist, levels, nLevels); s != rokStatusOk) return s;
    auto nothing = [](int) {};
    if constexpr (std::is_same_v<T, Rok8u>) {
        count_8u<L>(src, step, roi, hist, levels, nLevels, nothing);
    } else {
        constexpr int outs = processed_channels(L);
        bool increasing[4];
        for (int c = 0; c < outs; ++c) increasing[c] = strictly_increasing(levels[c], nLevels[c]);
        HistMethod method[4];
        std::uint32_t* table;
        if (RokStatus s = plan<T, L>(roi, nLevels, increasing, method, table); s != rokStatusOk) return s;
        count_channels<T, L>(src, step, roi, hist, levels, nLevels, method, table, nothing);
        rokFree(table);
    }
    return rokStatusOk;
}

template <class T, Layout L>
RokStatus histogram_even(const T* src, int step, RokiSize roi, Rok32s* const* hist, Rok32s* const* levels,
                         const int* nLevels, const Rok32s* lower, const Rok32s* upper) {
    constexpr int outs = processed_channels(L);
    if (any_null(lower, upper)) return rokStatusNullPtr;
    if (RokStatus s = check<T, L>(src, step, roi, hist, levels, nLevels); s != rokStatusOk) return s;
    // Even levels increase strictly when every step is at least 1.
    bool increasing[4];
    for (int c = 0; c < outs; ++c) increasing[c] = std::int64_t(upper[c]) - lower[c] >= nLevels[c] - 1;
    HistMethod method[4];
    std::uint32_t* table = nullptr;
    if constexpr (!std::is_same_v<T, Rok8u>)
        if (RokStatus s = plan<T, L>(roi, nLevels, increasing, method, table); s != rokStatusOk) return s;
    // Channel by channel: levels of channel c, then its counts, so arrays
    // shared between channels end up with the last channel's levels and bins.
    auto write_levels = [&](int c) { even_levels(levels[c], nLevels[c], lower[c], upper[c]); };
    const Rok32s* const* fixed = levels;
    if constexpr (std::is_same_v<T, Rok8u>) {
        count_8u<L>(src, step, roi, hist, fixed, nLevels, write_levels);
    } else {
        count_channels<T, L>(src, step, roi, hist, fixed, nLevels, method, table, write_levels);
        rokFree(table);
    }
    return rokStatusOk;
}

#define ROK_HIST_RANGE(T)                                                                                    \
    template RokStatus histogram_range<T, Layout::C1>(const T*, int, RokiSize, Rok32s* const*,             \
                                                      const HistLevel<T>* const*, const int*);              \
    template RokStatus histogram_range<T, Layout::C3>(const T*, int, RokiSize, Rok32s* const*,             \
                                                      const HistLevel<T>* const*, const int*);              \
    template RokStatus histogram_range<T, Layout::C4>(const T*, int, RokiSize, Rok32s* const*,             \
                                                      const HistLevel<T>* const*, const int*);              \
    template RokStatus histogram_range<T, Layout::AC4>(const T*, int, RokiSize, Rok32s* const*,            \
                                                       const HistLevel<T>* const*, const int*);
#define ROK_HIST_EVEN(T)                                                                                       \
    template RokStatus histogram_even<T, Layout::C1>(const T*, int, RokiSize, Rok32s* const*, Rok32s* const*, \
                                                     const int*, const Rok32s*, const Rok32s*);               \
    template RokStatus histogram_even<T, Layout::C3>(const T*, int, RokiSize, Rok32s* const*, Rok32s* const*, \
                                                     const int*, const Rok32s*, const Rok32s*);               \
    template RokStatus histogram_even<T, Layout::C4>(const T*, int, RokiSize, Rok32s* const*, Rok32s* const*, \
                                                     const int*, const Rok32s*, const Rok32s*);               \
    template RokStatus histogram_even<T, Layout::AC4>(const T*, int, RokiSize, Rok32s* const*, Rok32s* const*, \
                                                      const int*, const Rok32s*, const Rok32s*);
ROK_HIST_RANGE(Rok8u)
ROK_HIST_RANGE(Rok16s)
ROK_HIST_RANGE(Rok16u)
ROK_HIST_RANGE(Rok32f)
ROK_HIST_EVEN(Rok8u)
ROK_HIST_EVEN(Rok16s)
ROK_HIST_EVEN(Rok16u)
#undef ROK_HIST_RANGE
#undef ROK_HIST_EVEN

}  // namespace rok::stats
