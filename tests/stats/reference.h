// Independent statements of the reductions' rules, written sample by sample
// in wide arithmetic.
#pragma once

#include <cmath>
#include <cstdint>
#include <type_traits>
#include <vector>

#include "guarded.h"

namespace rokt::stats {

enum class Term { Value, Abs, Square };

// Exact totals of integer data, as long double holds every such total exactly
// for the test sizes.
template <class T>
std::vector<double> exact_totals(const GuardedImage<T>& a, const GuardedImage<T>* b, Term t, int outs) {
    std::vector<__int128> acc(4, 0);
    for (int y = 0; y < a.height(); ++y)
        for (int x = 0; x < a.width(); ++x)
            for (int c = 0; c < a.channels(); ++c) {
                __int128 v = __int128(a.at(x, y, c)) - (b ? __int128(b->at(x, y, c)) : 0);
                acc[c] += t == Term::Value ? v : t == Term::Abs ? (v < 0 ? -v : v) : v * v;
            }
    std::vector<double> out(static_cast<std::size_t>(outs));
    for (int c = 0; c < outs; ++c) out[std::size_t(c)] = double(acc[std::size_t(c)]);
    return out;
}

// Single-precision partials: sample i of a row into partial i mod 48.
inline std::vector<double> float_totals(const GuardedImage<float>& a, const GuardedImage<float>* b, Term t, int outs) {
    float part[48] = {};
    const int m = a.width() * a.channels();
    for (int y = 0; y < a.height(); ++y)
        for (int i = 0; i < m; ++i) {
            float v = a.row(y)[i];
            if (b) v = v - b->row(y)[i];
            float& p = part[i % 48];
            p = t == Term::Square ? std::fma(v, v, p) : p + (t == Term::Abs ? std::fabs(v) : v);
        }
    std::vector<double> out(std::size_t(outs), 0.0);
    for (int j = 0; j < 48; ++j)
        if (j % a.channels() < outs) out[std::size_t(j % a.channels())] += double(part[j]);
    return out;
}

// Double partials: pixel x of each channel into that channel's partial x mod
// 8 (products of one-channel data: x mod 16).
template <class T>
std::vector<double> double_totals(const GuardedImage<T>& a, const GuardedImage<T>* b, Term t, int outs,
                                  bool product = false) {
    double part[4][16] = {};
    const int count = product && a.channels() == 1 ? 16 : 8;
    for (int y = 0; y < a.height(); ++y)
        for (int x = 0; x < a.width(); ++x)
            for (int c = 0; c < a.channels(); ++c) {
                double v = double(a.at(x, y, c));
                double& p = part[c][x % count];
                if (product) {
                    p = std::fma(v, double(b->at(x, y, c)), p);
                    continue;
                }
                if (b) v = v - double(b->at(x, y, c));
                p = t == Term::Square ? std::fma(v, v, p) : p + (t == Term::Abs ? std::fabs(v) : v);
            }
    std::vector<double> out(static_cast<std::size_t>(outs));
    for (int c = 0; c < outs; ++c) {
        double s = 0;
        for (int k = 0; k < count; ++k) s += part[c][k];
        out[std::size_t(c)] = s;
    }
    return out;
}

template <class T>
std::vector<double> max_magnitude(const GuardedImage<T>& a, const GuardedImage<T>* b, int outs) {
    std::vector<double> out(std::size_t(outs), 0.0);
    for (int y = 0; y < a.height(); ++y)
        for (int x = 0; x < a.width(); ++x)
            for (int c = 0; c < outs; ++c) {
                double v;
                if constexpr (std::is_same_v<T, float>)
                    v = std::fabs(double(a.at(x, y, c) - (b ? b->at(x, y, c) : 0.0f)));
                else
                    v = std::fabs(double(a.at(x, y, c)) - (b ? double(b->at(x, y, c)) : 0.0));
                if (v > out[std::size_t(c)]) out[std::size_t(c)] = v;
            }
    return out;
}

}  // namespace rokt::stats
