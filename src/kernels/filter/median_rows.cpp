#include "kernels/filter/median_rows.h"

#include <algorithm>

#include "kernels/filter/median_lanes.h"
#include "kernels/filter/median_net.h"

namespace rok::kernels {

namespace {

using median::offset;
using median::Scalar;
using median::Vec;
using net::Network;
using net::Plan;
using net::Wires;

// ---- networks ---------------------------------------------------------------

// `count` free inputs sorted; outputs are the values of rank 0 .. count-1.
constexpr Network sorted_free(int count) {
    Plan p;
    Wires in;
    for (int i = 0; i < count; ++i) in.add(p.input(1)[0]);
    const Wires s = net::sort(p, in);
    int ranks[net::kMaxWires]{};
    for (int i = 0; i < count; ++i) ranks[i] = i;
    return net::trim(p, s, ranks, count);
}

// Values of rank lo and hi (0-based) of `count` free inputs.
constexpr Network ranks_of_free(int count, int lo, int hi) {
    Plan p;
    Wires in;
    for (int i = 0; i < count; ++i) in.add(p.input(1)[0]);
    const Wires s = net::sort(p, in);
    Wires at;
    at.add(s[lo]);
    at.add(s[hi]);
    const int ranks[] = {lo, hi};
    return net::trim(p, at, ranks, lo == hi ? 1 : 2);
}

constexpr Network median_of_free(int count) { return ranks_of_free(count, count / 2, count / 2); }

// 3x3 from its three sorted columns (or rows): once the rows of a
// column-sorted matrix are sorted its columns stay sorted, and then only the
// anti-diagonal can hold the median (every other entry has five entries
// known to lie on one side). Those three are the largest of the column
// minima, the median of the middles and the smallest of the maxima.
constexpr Network square3_from_columns() {
    Plan p;
    const Wires col[3] = {p.input(3), p.input(3), p.input(3)};
    p.compare(col[0][0], col[1][0]);  // bubble the largest minimum up
    p.compare(col[1][0], col[2][0]);
    Wires middles;
    for (int c = 0; c < 3; ++c) middles.add(col[c][1]);
    net::sort(p, middles);
    p.compare(col[1][2], col[2][2]);  // and the smallest maximum down
    p.compare(col[0][2], col[1][2]);
    Wires diagonal;
    diagonal.add(col[2][0]);
    diagonal.add(col[1][1]);
    diagonal.add(col[0][2]);
    const Wires s = net::sort(p, diagonal);
    Wires at;
    at.add(s[1]);
    const int rank[] = {4};
    return net::trim(p, at, rank, 1);
}

// Two sorted columns of `rows` merged into one sorted list of 2 rows.
constexpr Network merged_columns(int rows) {
    Plan p;
    const Wires a = p.input(rows), b = p.input(rows);
    const Wires m = net::merge(p, a, b);
    int ranks[net::kMaxWires]{};
    for (int i = 0; i < 2 * rows; ++i) ranks[i] = i;
    return net::trim(p, m, ranks, 2 * rows);
}

// 5x5 from the merged pair on its left (10), the merged pair on its right
// (10) and its centre column (5), all sorted. Of the two pairs merged, only
// ranks 7..12 can be the median (any other has 13 of the 25 on one side);
// their merge with the centre column gives rank 12.
constexpr Network square5_from_pairs() {
    Plan p;
    const Wires left = p.input(10), right = p.input(10), centre = p.input(5);
    const Wires pairs = net::merge(p, left, right);
    Wires middle;
    for (int i = 7; i <= 12; ++i) middle.add(pairs[i]);
    const Wires all = net::merge(p, middle, centre);
    Wires at;
    at.add(all[5]);
    const int rank[] = {12};
    return net::trim(p, at, rank, 1);
}

// Two output rows share four of their five source rows. From the 4x5 block
// they share (sorted pairs of columns of four on either side, the centre
// column of four), only ranks 7..12 can be the median of either square:
// the fifth row adds five values, so any other rank has 13 of the 25 on
// one side. Those six come out sorted.
constexpr Network shared_block() {
    Plan p;
    const Wires left = p.input(8), right = p.input(8), centre = p.input(4);
    const Wires lc = net::merge(p, left, centre);
    const Wires all = net::merge(p, lc, right);
    Wires at;
    int ranks[6]{};
    for (int i = 0; i < 6; ++i) {
        at.add(all[7 + i]);
        ranks[i] = 7 + i;
    }
    return net::trim(p, at, ranks, 6);
}

// The median of a square from those six (sorted) and the five free values of
// its own fifth row: with seven of the 25 below the six, it has rank 5 here.
constexpr Network square5_from_shared() {
    Plan p;
    const Wires middle = p.input(6);
    Wires extra;
    for (int i = 0; i < 5; ++i) extra.add(p.input(1)[0]);
    const Wires all = net::merge(p, middle, net::sort(p, extra));
    Wires at;
    at.add(all[5]);
    const int rank[] = {5};
    return net::trim(p, at, rank, 1);
}

constexpr Network kSort3 = sorted_free(3);
constexpr Network kSort4 = sorted_free(4);
constexpr Network kPair4 = merged_columns(4);
constexpr Network kShared5 = shared_block();
constexpr Network kSquare5Shared = square5_from_shared();
constexpr Network kSort5 = sorted_free(5);
constexpr Network kSquare3 = square3_from_columns();
constexpr Network kPair5 = merged_columns(5);
constexpr Network kSquare5 = square5_from_pairs();
constexpr Network kMedian3 = median_of_free(3);
constexpr Network kMedian5 = median_of_free(5);
constexpr Network kMedian9 = median_of_free(9);
// Weight w: the median of the 8 neighbours and w copies of the centre c is c
// clamped to the neighbours of rank (9 - w) / 2 - 1 and (7 + w) / 2 (0-based).
constexpr Network kWeighted3 = ranks_of_free(8, 2, 5);
constexpr Network kWeighted5 = ranks_of_free(8, 1, 6);
constexpr Network kWeighted7 = ranks_of_free(8, 0, 7);

static_assert(kSort4.proven && kPair4.proven && kShared5.proven && kSquare5Shared.proven);
static_assert(kSort3.proven && kSort5.proven && kSquare3.proven && kPair5.proven && kSquare5.proven);
static_assert(kMedian3.proven && kMedian5.proven && kMedian9.proven);
static_assert(kWeighted3.proven && kWeighted5.proven && kWeighted7.proven);

// ---- loops ------------------------------------------------------------------

// Calls body(Vec<T>{}, x) for register after register of the n outputs and
// body(Scalar<T>{}, x) for the outputs of a row shorter than one register.
// A row that does not end on a register boundary ends with a register that
// overlaps the one before: no median works in place, so the overlap only
// rewrites the values it wrote already.
template <class T, class Body>
inline void for_lanes(int n, Body&& body) {
    constexpr int N = Vec<T>::N;
    if (n < N) {
        for (int x = 0; x < n; ++x) body(Scalar<T>{}, x);
        return;
    }
    for (int x = 0; x + N <= n; x += N) body(Vec<T>{}, x);
    if (n % N) body(Vec<T>{}, n - N);
}

// Median network over taps at fixed byte offsets from each output's centre.
template <class T, const Network& Net, int Taps>
void direct(const T* centre, const std::ptrdiff_t (&taps)[Taps], T* dst, int n) {
    static_assert(Net.wires == Taps);
    for_lanes<T>(n, [&](auto ops, int x) {
        using O = decltype(ops);
        typename O::V v[Taps];
        for (int i = 0; i < Taps; ++i) v[i] = O::load(offset(centre + x, taps[i]));
        net::run<O, Net>(v);
        O::store(dst + x, v[Net.out[0]]);
    });
}

// The 3x3 kernel walks down each register-wide strip of its rows, sorting
// every source row's three samples once: each sorted triple serves the
// three outputs above, on and below its row. A chunk of rows keeps the
// strip's lines in the first-level cache for the next strip.
constexpr int kPrefetchBytes = 128;

template <class T>
void square3(const T* centre, std::ptrdiff_t step, int s, T* dst, std::ptrdiff_t dstStep, int rows, int n) {
    const std::ptrdiff_t h = std::ptrdiff_t(s) * std::ptrdiff_t(sizeof(T));
    for_lanes<T>(n, [&](auto ops, int x) {
        using O = decltype(ops);
        using V = typename O::V;
        auto sorted_row = [&](int y, V* v) {
            const T* p = offset(centre + x, y * step);
            _mm_prefetch(reinterpret_cast<const char*>(p) + kPrefetchBytes, _MM_HINT_T0);
            V r[3] = {O::load(offset(p, -h)), O::load(p), O::load(offset(p, h))};
            net::run<O, kSort3>(r);
            for (int i = 0; i < 3; ++i) v[i] = r[kSort3.out[i]];
        };
        V v[9];  // the sorted rows above, on and below the output row
        sorted_row(-1, v);
        sorted_row(0, v + 3);
        for (int y = 0; y < rows; ++y) {
            sorted_row(y + 1, v + 6);
            V w[9];
            for (int i = 0; i < 9; ++i) w[i] = v[i];
            net::run<O, kSquare3>(w);
            O::store(offset(dst + x, y * dstStep), w[kSquare3.out[0]]);
            for (int i = 0; i < 6; ++i) v[i] = v[i + 3];
        }
    });
}

// The 5x5 kernel sorts every column of a chunk of the row once and merges
// every two adjacent sorted columns once, keeping both in stage buffers
// where each output finds those of its neighbours: 90 operations an output
// against about 200 for a network over the whole neighbourhood. Chunks are
// short (256 bytes): the stages of one (about 3 KiB) are read back while the
// lines just written are still at hand. That measured 5 to 10% faster than
// chunks of 512 or 1024 bytes on one- and three-channel rows of 2 to 12 KiB,
// more than the few positions each stage computes past a chunk's end cost.
constexpr int kChunkBytes = 256;
constexpr int kMaxPixel = 4;  // samples between adjacent pixels, at most

// The loop bodies below are forced inline: left to itself the compiler calls
// the body of the last stage once per register, and the call and the
// reloads of its captures add about a fifth to the instructions it runs.
//
// Stage buffers of a chunk: sorted columns and merged pairs of columns.
template <class T>
constexpr int kChunk = kChunkBytes / int(sizeof(median::Key<T>));
template <class T>
using ColumnStage = median::Key<T>[kChunk<T> + 4 * kMaxPixel];
template <class T>
using PairStage = median::Key<T>[kChunk<T> + 3 * kMaxPixel];

// The first two stages over m outputs of a chunk: every column of `Rows`
// source rows (from row `top` of `first`) sorted into col, then
// pair[.][q] the merge of the columns at stage positions q and q + s.
template <class T, int Rows, const Network& Sort, const Network& Pair>
inline void column_stages(const T* first, std::ptrdiff_t step, int top, int s, int m, ColumnStage<T>* col,
                          PairStage<T>* pair) {
    for_lanes<T>(m + 4 * s, [&](auto ops, int p) __attribute__((always_inline)) {
        using O = decltype(ops);
        typename O::V v[Rows];
        for (int r = 0; r < Rows; ++r) v[r] = O::load(offset(first + p, (r + top) * step));
        net::run<O, Sort>(v);
        for (int r = 0; r < Rows; ++r) O::store_key(col[r] + p, v[Sort.out[r]]);
    });
    for_lanes<T>(m + 3 * s, [&](auto ops, int q) __attribute__((always_inline)) {
        using O = decltype(ops);
        typename O::V v[2 * Rows];
        for (int r = 0; r < Rows; ++r) {
            v[r] = O::load_key(col[r] + q);
            v[Rows + r] = O::load_key(col[r] + q + s);
        }
        net::run<O, Pair>(v);
        for (int r = 0; r < 2 * Rows; ++r) O::store_key(pair[r] + q, v[Pair.out[r]]);
    });
}

template <class T>
void square5(const T* centre, std::ptrdiff_t step, int s, T* dst, int n) {
    constexpr int M = kChunk<T>;
    alignas(32) ColumnStage<T> col[5];
    alignas(32) PairStage<T> pair[10];
    for (int x0 = 0; x0 < n; x0 += M) {
        const int m = std::min(M, n - x0);
        const T* first = centre + x0 - 2 * s;
        column_stages<T, 5, kSort5, kPair5>(first, step, -2, s, m, col, pair);
        for_lanes<T>(m, [&](auto ops, int x) {
            using O = decltype(ops);
            typename O::V v[25];
            for (int r = 0; r < 10; ++r) {
                v[r] = O::load_key(pair[r] + x);
                v[10 + r] = O::load_key(pair[r] + x + 3 * s);
            }
            for (int r = 0; r < 5; ++r) v[20 + r] = O::load_key(col[r] + x + 2 * s);
            net::run<O, kSquare5>(v);
            O::store(dst + x0 + x, v[kSquare5.out[0]]);
        });
    }
}

// Two adjacent output rows at once (rows 0 and 1 from `centre`): columns of
// the four shared source rows are sorted and merged in pairs once, as in the
// one-row kernel; each output position then takes the six ranks of the
// shared block that can hold either median, and finishes each row with its
// own fifth row (source row -2 for the first, 3 for the second). About 77
// operations an output against 90.
//
// Source rows 2 and 3 are the two that the pair above did not read: on an
// image larger than the caches they come from memory. Their lines one chunk
// ahead (from the last chunk, the first chunk of the pair below), and the
// destination lines that chunk will write, are requested while this chunk
// is computed, once for each 64-byte line, so that the comparators never
// wait on them. A prefetch never faults, so the requests past the end of a
// row or of an image are harmless.
constexpr int kLineBytes = 64;

template <class T>
void square5_two(const T* centre, std::ptrdiff_t step, int s, T* dst, std::ptrdiff_t dstStep, int n) {
    constexpr int M = kChunk<T>;
    alignas(32) ColumnStage<T> col[4];
    alignas(32) PairStage<T> pair[8];
    for (int x0 = 0; x0 < n; x0 += M) {
        const int m = std::min(M, n - x0);
        const T* first = centre + x0 - 2 * s;
        // The chunk after this one: the next of this pair, or after the last
        // the first of the pair below, whose new rows are 4 and 5 from here.
        const bool lastChunk = x0 + M >= n;
        const T* const aheadSrc = lastChunk ? offset(centre - 2 * s, 2 * step) : first + M;
        T* const aheadDst = lastChunk ? offset(dst, 2 * dstStep) : dst + x0 + M;
        column_stages<T, 4, kSort4, kPair4>(first, step, -1, s, m, col, pair);
        for_lanes<T>(m, [&](auto ops, int x) __attribute__((always_inline)) {
            using O = decltype(ops);
            using V = typename O::V;
            // Locals, not captures: the byte stores below may alias anything
            // a reference points at, which would reload every address.
            const T* const rowAt = first + x;
            T* const out0 = dst + x0 + x;
            const std::ptrdiff_t srcStep = step, outStep = dstStep;
            const int px = s;
            V v[20];
            for (int r = 0; r < 8; ++r) {
                v[r] = O::load_key(pair[r] + x);
                v[8 + r] = O::load_key(pair[r] + x + 3 * s);
            }
            for (int r = 0; r < 4; ++r) v[16 + r] = O::load_key(col[r] + x + 2 * s);
            if constexpr (O::N > 1) {
                if (x * int(sizeof(T)) % kLineBytes == 0) {
                    _mm_prefetch(reinterpret_cast<const char*>(offset(aheadSrc + x, 2 * srcStep)), _MM_HINT_T0);
                    _mm_prefetch(reinterpret_cast<const char*>(offset(aheadSrc + x, 3 * srcStep)), _MM_HINT_T0);
                    _mm_prefetch(reinterpret_cast<const char*>(aheadDst + x), _MM_HINT_T0);
                    _mm_prefetch(reinterpret_cast<const char*>(offset(aheadDst + x, outStep)), _MM_HINT_T0);
                }
            }
            net::run<O, kShared5>(v);
            auto finish = [&](int row, T* out) __attribute__((always_inline)) {
                V w[11];
                for (int i = 0; i < 6; ++i) w[i] = v[kShared5.out[i]];
                const T* e = offset(rowAt, row * srcStep);
                for (int i = 0; i < 5; ++i) w[6 + i] = O::load(e + i * px);
                net::run<O, kSquare5Shared>(w);
                O::store(out, w[kSquare5Shared.out[0]]);
            };
            finish(-2, out0);
            finish(3, offset(out0, outStep));
        });
    }
}

template <class T>
void square(const T* centre, std::ptrdiff_t step, int pixel, int size, T* dst, std::ptrdiff_t dstStep, int rows,
            int n) {
    if (size == 3) {
        square3(centre, step, pixel, dst, dstStep, rows, n);
    } else {
        int y = 0;
        for (; y + 2 <= rows; y += 2)
            square5_two(offset(centre, y * step), step, pixel, offset(dst, y * dstStep), dstStep, n);
        if (y < rows) square5(offset(centre, y * step), step, pixel, offset(dst, y * dstStep), n);
    }
}

template <class T>
void line(const T* centre, std::ptrdiff_t d, int size, T* dst, int n) {
    if (size == 3) {
        const std::ptrdiff_t taps[] = {-d, 0, d};
        direct<T, kMedian3>(centre, taps, dst, n);
    } else {
        const std::ptrdiff_t taps[] = {-2 * d, -d, 0, d, 2 * d};
        direct<T, kMedian5>(centre, taps, dst, n);
    }
}

template <class T>
void cross(const T* centre, std::ptrdiff_t step, int pixel, int arm, T* dst, int n) {
    const std::ptrdiff_t h = std::ptrdiff_t(pixel) * std::ptrdiff_t(sizeof(T));
    if (arm == 1) {
        const std::ptrdiff_t taps[] = {-step, -h, 0, h, step};
        direct<T, kMedian5>(centre, taps, dst, n);
    } else {
        const std::ptrdiff_t taps[] = {-2 * step, -step, -2 * h, -h, 0, h, 2 * h, step, 2 * step};
        direct<T, kMedian9>(centre, taps, dst, n);
    }
}

template <const Network& Net>
void weighted(const Rok8u* centre, std::ptrdiff_t step, Rok8u* dst, int n) {
    const std::ptrdiff_t taps[] = {-step - 1, -step, -step + 1, -1, 1, step - 1, step, step + 1};
    for_lanes<Rok8u>(n, [&](auto ops, int x) {
        using O = decltype(ops);
        typename O::V v[8];
        for (int i = 0; i < 8; ++i) v[i] = O::load(offset(centre + x, taps[i]));
        net::run<O, Net>(v);
        const typename O::V c = O::load(centre + x);
        O::store(dst + x, O::min(O::max(c, v[Net.out[0]]), v[Net.out[1]]));
    });
}

}  // namespace

#define ROK_MEDIAN_ROWS(T)                                                                             \
    void median_square(const T* c, std::ptrdiff_t step, int pixel, int size, T* dst, std::ptrdiff_t dstStep, \
                       int rows, int n) {                                                                     \
        square(c, step, pixel, size, dst, dstStep, rows, n);                                                 \
    }                                                                                                         \
    void median_line(const T* c, std::ptrdiff_t delta, int size, T* dst, int n) { line(c, delta, size, dst, n); }
ROK_MEDIAN_ROWS(Rok8u)
ROK_MEDIAN_ROWS(Rok16u)
ROK_MEDIAN_ROWS(Rok16s)
ROK_MEDIAN_ROWS(Rok32f)
ROK_MEDIAN_ROWS(Rok64f)
#undef ROK_MEDIAN_ROWS

void median_cross(const Rok8u* c, std::ptrdiff_t step, int pixel, int arm, Rok8u* dst, int n) {
    cross(c, step, pixel, arm, dst, n);
}
void median_cross(const Rok16u* c, std::ptrdiff_t step, int pixel, int arm, Rok16u* dst, int n) {
    cross(c, step, pixel, arm, dst, n);
}
void median_cross(const Rok16s* c, std::ptrdiff_t step, int pixel, int arm, Rok16s* dst, int n) {
    cross(c, step, pixel, arm, dst, n);
}

void median_weighted_centre(const Rok8u* c, std::ptrdiff_t step, int weight, Rok8u* dst, int n) {
    if (weight == 3) weighted<kWeighted3>(c, step, dst, n);
    else if (weight == 5) weighted<kWeighted5>(c, step, dst, n);
    else weighted<kWeighted7>(c, step, dst, n);
}

void median_of_three(const Rok8u* a, const Rok8u* b, const Rok8u* c, Rok8u* dst, int n) {
    for_lanes<Rok8u>(n, [&](auto ops, int x) {
        using O = decltype(ops);
        typename O::V v[3] = {O::load(a + x), O::load(b + x), O::load(c + x)};
        net::run<O, kMedian3>(v);
        O::store(dst + x, v[kMedian3.out[0]]);
    });
}

}  // namespace rok::kernels
