#include "kernels/filter/median_hist.h"

#include <immintrin.h>

#include <cstring>

namespace rok::kernels {

namespace {

constexpr int kBins = 16 + 256;  // per column and channel: coarse, then fine

std::size_t count_bytes(HistCounts kind) { return kind == HistCounts::Bytes ? 1 : kind == HistCounts::Words ? 2 : 4; }

template <class C>
C* column(const HistColumns& h, int col, int ch) {
    return static_cast<C*>(h.counts) + (std::size_t(col) * h.channels + ch) * kBins;
}

// Running totals of 16 byte counts (at most 255 in all).
inline __m128i running_bytes(__m128i c) {
    __m128i p = _mm_add_epi8(c, _mm_slli_si128(c, 1));
    p = _mm_add_epi8(p, _mm_slli_si128(p, 2));
    p = _mm_add_epi8(p, _mm_slli_si128(p, 4));
    return _mm_add_epi8(p, _mm_slli_si128(p, 8));
}

// Lanes where the running total `run` has reached `need` (every byte).
inline __m128i reached_bytes(__m128i run, __m128i need) { return _mm_cmpeq_epi8(_mm_max_epu8(run, need), run); }

inline int first_lane(__m128i reached) { return __builtin_ctz(unsigned(_mm_movemask_epi8(reached))); }
// The same for 16 counts of 16 bits.
inline int find_words(__m256i c, std::uint32_t need, std::uint32_t& below) {
    __m256i p = _mm256_add_epi16(c, _mm256_slli_si256(c, 2));
    p = _mm256_add_epi16(p, _mm256_slli_si256(p, 4));
    p = _mm256_add_epi16(p, _mm256_slli_si256(p, 8));
    // Each half now holds its own running totals; the high half also needs
    // the low half's total.
    const __m256i low = _mm256_shuffle_epi8(p, _mm256_set1_epi16(0x0F0E));
    p = _mm256_add_epi16(p, _mm256_permute2x128_si256(low, low, 0x08));
    const __m256i reached = _mm256_cmpeq_epi16(_mm256_max_epu16(p, _mm256_set1_epi16(short(need))), p);
    const int i = __builtin_ctz(unsigned(_mm256_movemask_epi8(reached))) / 2;
    alignas(32) std::uint16_t before[16];
    _mm256_store_si256(reinterpret_cast<__m256i*>(before), _mm256_sub_epi16(p, c));
    below += before[i];
    return i;
}

// The mask's histogram in byte counts: coarse bins in one register, the
// 256 fine bins in eight.
struct ByteMask {
    using C = std::uint8_t;
    __m128i coarse = _mm_setzero_si128();
    __m256i fine[8];

    ByteMask() {
        for (__m256i& f : fine) f = _mm256_setzero_si256();
    }
    static __m128i goal(std::uint32_t rank) { return _mm_set1_epi8(char(rank)); }
    static __m256i part(const C* col, int r) { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(col + 16 + 32 * r)); }
    void add(const C* col) {
        coarse = _mm_add_epi8(coarse, _mm_loadu_si128(reinterpret_cast<const __m128i*>(col)));
        for (int r = 0; r < 8; ++r) fine[r] = _mm256_add_epi8(fine[r], part(col, r));
    }
    void move(const C* in, const C* out) {
        const __m128i c = _mm_sub_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(in)),
                                       _mm_loadu_si128(reinterpret_cast<const __m128i*>(out)));
        coarse = _mm_add_epi8(coarse, c);
        for (int r = 0; r < 8; ++r) fine[r] = _mm256_add_epi8(fine[r], _mm256_sub_epi8(part(in, r), part(out, r)));
    }
    // The coarse bin k where the running total reaches the rank, then the
    // fine bin within k where the total of the bins below k plus the fine
    // running total does. The count below k is summed in registers (the
    // coarse bins short of the rank), so the fine search need not wait for
    // it to travel through a general register.
    int select(__m128i rank) const {
        const __m128i reached = reached_bytes(running_bytes(coarse), rank);
        const int k = first_lane(reached);
        const __m128i below = _mm_sad_epu8(_mm_andnot_si128(reached, coarse), _mm_setzero_si128());
        const __m128i base = _mm_shuffle_epi8(_mm_add_epi64(below, _mm_unpackhi_epi64(below, below)),
                                              _mm_setzero_si128());
        alignas(32) C bins[256];
        for (int r = 0; r < 8; ++r) _mm256_store_si256(reinterpret_cast<__m256i*>(bins + 32 * r), fine[r]);
        const __m128i seg = _mm_load_si128(reinterpret_cast<const __m128i*>(bins + 16 * k));
        return 16 * k + first_lane(reached_bytes(_mm_add_epi8(running_bytes(seg), base), rank));
    }
};

struct WordMask {
    using C = std::uint16_t;
    __m256i coarse = _mm256_setzero_si256();
    __m256i fine[16];

    WordMask() {
        for (__m256i& f : fine) f = _mm256_setzero_si256();
    }
    static std::uint32_t goal(std::uint32_t rank) { return rank; }
    static __m256i part(const C* col, int r) { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(col + 16 * r)); }
    void add(const C* col) {
        coarse = _mm256_add_epi16(coarse, part(col, 0));
        for (int r = 0; r < 16; ++r) fine[r] = _mm256_add_epi16(fine[r], part(col, r + 1));
    }
    void move(const C* in, const C* out) {
        coarse = _mm256_add_epi16(coarse, _mm256_sub_epi16(part(in, 0), part(out, 0)));
        for (int r = 0; r < 16; ++r)
            fine[r] = _mm256_add_epi16(fine[r], _mm256_sub_epi16(part(in, r + 1), part(out, r + 1)));
    }
    int select(std::uint32_t rank) const {
        std::uint32_t below = 0;
        const int k = find_words(coarse, rank, below);
        return 16 * k + find_words(fine[k], rank - below, below);
    }
};

// Masks of more than 65535 samples: plain 32-bit counts.
struct DwordMask {
    using C = std::uint32_t;
    C bins[kBins] = {};

    static std::uint32_t goal(std::uint32_t rank) { return rank; }
    void add(const C* col) {
        for (int i = 0; i < kBins; ++i) bins[i] += col[i];
    }
    void move(const C* in, const C* out) {
        for (int i = 0; i < kBins; ++i) bins[i] += in[i] - out[i];
    }
    int select(std::uint32_t rank) const {
        int k = 0;
        while (rank > bins[k]) rank -= bins[k++];
        int v = 16 * k;
        while (rank > bins[16 + v]) rank -= bins[16 + v++];
        return v;
    }
};

template <class C>
void add_row(const HistColumns& h, const Rok8u* row) {
    for (int col = 0; col < h.columns; ++col)
        for (int ch = 0; ch < h.channels; ++ch) {
            const int v = row[std::size_t(col) * h.stride + ch];
            C* c = column<C>(h, col, ch);
            ++c[v >> 4];
            ++c[16 + v];
        }
}

// Columns move down this many columns ahead of entering the mask: reading
// a column's counts right after storing one of them would wait for the
// store.
constexpr int kSlideAhead = 8;

template <class Mask>
void median_row(const HistColumns& h, const Rok8u* leaving, const Rok8u* entering, int mw, std::uint32_t rank,
                Rok8u* dst, int width) {
    using C = typename Mask::C;
    for (int ch = 0; ch < h.channels; ++ch) {
        auto slide = [&](int col) {
            if (!leaving || col >= h.columns) return;
            C* c = column<C>(h, col, ch);
            const std::size_t i = std::size_t(col) * h.stride + ch;
            const int out = leaving[i], in = entering[i];
            --c[out >> 4];
            --c[16 + out];
            ++c[in >> 4];
            ++c[16 + in];
        };
        Mask mask;
        const auto goal = Mask::goal(rank);
        for (int col = 0; col < mw + kSlideAhead; ++col) slide(col);
        for (int col = 0; col < mw; ++col) mask.add(column<C>(h, col, ch));
        for (int x = 0; x < width; ++x) {
            if (x > 0) {
                slide(x + mw - 1 + kSlideAhead);
                mask.move(column<C>(h, x + mw - 1, ch), column<C>(h, x - 1, ch));
            }
            dst[std::size_t(x) * h.stride + ch] = Rok8u(mask.select(goal));
        }
    }
}

}  // namespace

std::size_t hist_columns_bytes(int columns, int channels, HistCounts kind) {
    return std::size_t(columns) * std::size_t(channels) * kBins * count_bytes(kind);
}

void hist_clear(const HistColumns& h) { std::memset(h.counts, 0, hist_columns_bytes(h.columns, h.channels, h.kind)); }

void hist_add_row(const HistColumns& h, const Rok8u* row) {
    switch (h.kind) {
        case HistCounts::Bytes: return add_row<std::uint8_t>(h, row);
        case HistCounts::Words: return add_row<std::uint16_t>(h, row);
        case HistCounts::Dwords: return add_row<std::uint32_t>(h, row);
    }
}

void hist_median_row(const HistColumns& h, const Rok8u* leaving, const Rok8u* entering, int maskWidth,
                     std::uint32_t rank, Rok8u* dst, int width) {
    switch (h.kind) {
        case HistCounts::Bytes: return median_row<ByteMask>(h, leaving, entering, maskWidth, rank, dst, width);
        case HistCounts::Words: return median_row<WordMask>(h, leaving, entering, maskWidth, rank, dst, width);
        case HistCounts::Dwords: return median_row<DwordMask>(h, leaving, entering, maskWidth, rank, dst, width);
    }
}

}  // namespace rok::kernels
