#include "kernels/filter/median_hist.h"

#include <immintrin.h>

#include <cstring>

namespace rok::kernels {

namespace {

// Sixteen counts (one coarse histogram, or the fine bins of one coarse bin)
// as registers, with the search for the bin where a running total reaches
// `need`.
struct Counts16 {
    using C = std::uint16_t;
    using R = __m256i;
    static R load(const C* p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)); }
    static R zero() { return _mm256_setzero_si256(); }
    static R add(R a, R b) { return _mm256_add_epi16(a, b); }
    static R sub(R a, R b) { return _mm256_sub_epi16(a, b); }

    // First bin i whose running total (bins 0..i) reaches need (need is at
    // most the total); adds the counts of bins 0..i-1 to below.
    static int find(R h, std::uint32_t need, std::uint32_t& below) {
        R p = _mm256_add_epi16(h, _mm256_slli_si256(h, 2));
        p = _mm256_add_epi16(p, _mm256_slli_si256(p, 4));
        p = _mm256_add_epi16(p, _mm256_slli_si256(p, 8));
        // Each half now holds its own running totals; the high half also
        // needs the low half's total.
        R low = _mm256_shuffle_epi8(p, _mm256_set1_epi16(0x0F0E));
        p = _mm256_add_epi16(p, _mm256_permute2x128_si256(low, low, 0x08));
        const R reached = _mm256_cmpeq_epi16(_mm256_max_epu16(p, _mm256_set1_epi16(short(need))), p);
        const int i = __builtin_ctz(unsigned(_mm256_movemask_epi8(reached))) / 2;
        alignas(32) C run[16], own[16];
        _mm256_store_si256(reinterpret_cast<__m256i*>(run), p);
        _mm256_store_si256(reinterpret_cast<__m256i*>(own), h);
        below += std::uint32_t(run[i] - own[i]);
        return i;
    }
};

struct Counts32 {
    using C = std::uint32_t;
    struct R {
        __m256i lo, hi;
    };
    static R load(const C* p) {
        return {_mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)),
                _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p + 8))};
    }
    static R zero() { return {_mm256_setzero_si256(), _mm256_setzero_si256()}; }
    static R add(R a, R b) { return {_mm256_add_epi32(a.lo, b.lo), _mm256_add_epi32(a.hi, b.hi)}; }
    static R sub(R a, R b) { return {_mm256_sub_epi32(a.lo, b.lo), _mm256_sub_epi32(a.hi, b.hi)}; }
    static int find(R h, std::uint32_t need, std::uint32_t& below) {
        alignas(32) C c[16];
        _mm256_store_si256(reinterpret_cast<__m256i*>(c), h.lo);
        _mm256_store_si256(reinterpret_cast<__m256i*>(c + 8), h.hi);
        std::uint32_t run = 0;
        int i = 0;
        while (run + c[i] < need) run += c[i++];
        below += run;
        return i;
    }
};

template <class Counts>
typename Counts::C* column(const HistColumns& h, int col, int ch) {
    return static_cast<typename Counts::C*>(h.counts) + (std::size_t(col) * h.channels + ch) * kHistBins;
}

template <class Counts>
void add_row(const HistColumns& h, const Rok8u* row) {
    using C = typename Counts::C;
    for (int col = 0; col < h.columns; ++col)
        for (int ch = 0; ch < h.channels; ++ch) {
            const int v = row[std::size_t(col) * h.stride + ch];
            C* c = column<Counts>(h, col, ch);
            ++c[v >> 4];
            ++c[16 + v];
        }
}

template <class Counts>
void slide(const HistColumns& h, const Rok8u* leaving, const Rok8u* entering) {
    using C = typename Counts::C;
    for (int col = 0; col < h.columns; ++col)
        for (int ch = 0; ch < h.channels; ++ch) {
            const std::size_t i = std::size_t(col) * h.stride + ch;
            const int out = leaving[i], in = entering[i];
            C* c = column<Counts>(h, col, ch);
            --c[out >> 4];
            --c[16 + out];
            ++c[in >> 4];
            ++c[16 + in];
        }
}

template <class Counts>
void median_row(const HistColumns& h, int mw, std::uint32_t rank, Rok8u* dst, int width) {
    using R = typename Counts::R;
    for (int ch = 0; ch < h.channels; ++ch) {
        auto coarse = [&](int col) { return Counts::load(column<Counts>(h, col, ch)); };
        auto fine = [&](int col, int bin) { return Counts::load(column<Counts>(h, col, ch) + 16 + 16 * bin); };
        R mask = Counts::zero();
        for (int j = 0; j < mw; ++j) mask = Counts::add(mask, coarse(j));
        // The fine counts of coarse bin k are those of the mask at output
        // position since[k]; they are stale further along the row.
        R fineOf[16];
        long long since[16];
        for (int k = 0; k < 16; ++k) since[k] = -(long long)mw - 1;
        for (int x = 0; x < width; ++x) {
            if (x > 0) mask = Counts::add(mask, Counts::sub(coarse(x + mw - 1), coarse(x - 1)));
            std::uint32_t below = 0;
            const int k = Counts::find(mask, rank, below);
            const long long behind = x - since[k];
            if (2 * behind >= mw) {
                R f = Counts::zero();
                for (int j = x; j < x + mw; ++j) f = Counts::add(f, fine(j, k));
                fineOf[k] = f;
            } else {
                for (int t = int(since[k]) + 1; t <= x; ++t)
                    fineOf[k] = Counts::add(fineOf[k], Counts::sub(fine(t + mw - 1, k), fine(t - 1, k)));
            }
            since[k] = x;
            const int j = Counts::find(fineOf[k], rank - below, below);
            dst[std::size_t(x) * h.stride + ch] = Rok8u(16 * k + j);
        }
    }
}

}  // namespace

std::size_t hist_columns_bytes(int columns, int channels, bool wide) {
    return std::size_t(columns) * std::size_t(channels) * kHistBins * (wide ? 4 : 2);
}

void hist_clear(const HistColumns& h) { std::memset(h.counts, 0, hist_columns_bytes(h.columns, h.channels, h.wide)); }

void hist_add_row(const HistColumns& h, const Rok8u* row) {
    if (h.wide) add_row<Counts32>(h, row);
    else add_row<Counts16>(h, row);
}

void hist_slide(const HistColumns& h, const Rok8u* leaving, const Rok8u* entering) {
    if (h.wide) slide<Counts32>(h, leaving, entering);
    else slide<Counts16>(h, leaving, entering);
}

void hist_median_row(const HistColumns& h, int maskWidth, std::uint32_t rank, Rok8u* dst, int width) {
    if (h.wide) median_row<Counts32>(h, maskWidth, rank, dst, width);
    else median_row<Counts16>(h, maskWidth, rank, dst, width);
}

}  // namespace rok::kernels
