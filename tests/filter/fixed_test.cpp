// Fixed-kernel filters against references written from the masks: integer
// results as the exact weighted sum of the neighbourhood (64-bit), finished
// by the stated division and saturated; float results as the stated formula
// of each filter, evaluated in single precision in its stated order.
#include <gtest/gtest.h>

#include <cfenv>
#include <cmath>
#include <cstring>
#include <algorithm>
#include <functional>
#include <limits>
#include <string>
#include <type_traits>
#include <vector>

#include "guarded.h"
#include "kernels/copy/copy_move.h"
#include "kernels/filter/fixed.h"
#include "random.h"
#include "reference.h"
#include "roki.h"
#include "threads.h"

namespace {

using rokt::GuardedImage;

enum class F {
    PrewittVert, PrewittHoriz, SobelVert, SobelHoriz, SobelVertSecond, SobelHorizSecond, SobelCross,
    ScharrVert, ScharrHoriz, Laplace, Hipass, Lowpass, Gauss, Sharpen, RobertsDown, RobertsUp,
};

// ---- masks as neighbourhood weights, top row first (not flipped) ----------

using Mask = std::vector<std::vector<int>>;

Mask outer(const std::vector<int>& down, const std::vector<int>& along) {
    Mask m(down.size(), std::vector<int>(along.size()));
    for (std::size_t r = 0; r < down.size(); ++r)
        for (std::size_t c = 0; c < along.size(); ++c) m[r][c] = down[r] * along[c];
    return m;
}

Mask mask_of(F f, int size) {
    const std::vector<int> s3 = {1, 2, 1}, d3 = {-1, 0, 1}, s5 = {1, 4, 6, 4, 1}, d5 = {-1, -2, 0, 2, 1};
    const bool five = size == 5;
    switch (f) {
        case F::PrewittVert: return {{1, 0, -1}, {1, 0, -1}, {1, 0, -1}};
        case F::PrewittHoriz: return {{-1, -1, -1}, {0, 0, 0}, {1, 1, 1}};
        case F::SobelVert: return five ? outer(s5, {1, 2, 0, -2, -1}) : Mask{{1, 0, -1}, {2, 0, -2}, {1, 0, -1}};
        case F::SobelHoriz: return five ? outer(d5, s5) : Mask{{-1, -2, -1}, {0, 0, 0}, {1, 2, 1}};
        case F::SobelHorizSecond: return five ? outer({1, 0, -2, 0, 1}, s5) : Mask{{1, 2, 1}, {-2, -4, -2}, {1, 2, 1}};
        case F::SobelVertSecond: return five ? outer(s5, {1, 0, -2, 0, 1}) : Mask{{1, -2, 1}, {2, -4, 2}, {1, -2, 1}};
        case F::SobelCross: return five ? outer(d5, d5) : outer(d3, d3);
        case F::ScharrVert: return {{-3, 0, 3}, {-10, 0, 10}, {-3, 0, 3}};
        case F::ScharrHoriz: return {{-3, -10, -3}, {0, 0, 0}, {3, 10, 3}};
        case F::Laplace:
        case F::Hipass:
            if (!five) return {{-1, -1, -1}, {-1, 8, -1}, {-1, -1, -1}};
            if (f == F::Hipass) {
                Mask m(5, std::vector<int>(5, -1));
                m[2][2] = 24;
                return m;
            }
            return {{-1, -3, -4, -3, -1}, {-3, 0, 6, 0, -3}, {-4, 6, 20, 6, -4}, {-3, 0, 6, 0, -3}, {-1, -3, -4, -3, -1}};
        case F::Lowpass: return Mask(size, std::vector<int>(size, 1));
        case F::Gauss:
            if (!five) return {{1, 2, 1}, {2, 4, 2}, {1, 2, 1}};
            return {{2, 7, 12, 7, 2}, {7, 31, 52, 31, 7}, {12, 52, 127, 52, 12}, {7, 31, 52, 31, 7}, {2, 7, 12, 7, 2}};
        case F::Sharpen: return {{-1, -1, -1}, {-1, 16, -1}, {-1, -1, -1}};
        case F::RobertsDown: return {{-1, 0}, {0, 1}};  // rows -1..0, columns -1..0
        case F::RobertsUp: return {{0, -1}, {1, 0}};    // rows -1..0, columns 0..1
    }
    return {};
}

// Where the mask's top-left weight sits relative to the destination pixel.
int left_of(F f, int size) { return f == F::RobertsDown ? 1 : f == F::RobertsUp ? 0 : size / 2; }
int up_of(F f, int size) { return f == F::RobertsDown || f == F::RobertsUp ? 1 : size / 2; }

// floor(a / b) for b > 0.
std::int64_t floor_div(std::int64_t a, std::int64_t b) { return a >= 0 ? a / b : -((-a + b - 1) / b); }

template <class D>
D finish_int(F f, int size, std::int64_t s) {
    using rokt::ref::saturate;
    switch (f) {
        case F::Lowpass: {
            const std::int64_t d = size == 5 ? 25 : 9;
            return saturate<D>(floor_div(2 * s + d, 2 * d));  // nearest; odd d has no ties
        }
        case F::Gauss:
            if (size == 5) return saturate<D>(floor_div(2 * s + 571, 2 * 571));
            return saturate<D>(rokt::ref::divide_pow2_half_even(s, 4));
        case F::Sharpen: return saturate<D>(rokt::ref::divide_pow2_half_even(s, 3));
        default: return saturate<D>(s);
    }
}

// The float rule of each filter in its stated order; p(dx, dy) reads the
// neighbour dx right and dy below the destination pixel.
template <class P>
float float_rule(F f, int size, P&& p) {
    const bool five = size == 5;
    auto smooth3 = [&](int i) { return (p(i, -1) + p(i, 1)) + 2.0f * p(i, 0); };
    auto smooth5 = [&](int i) { return (6.0f * p(i, 0) + (p(i, -2) + p(i, 2))) + 4.0f * (p(i, -1) + p(i, 1)); };
    auto deriv3 = [&](int i) { return p(i, 1) - p(i, -1); };
    auto deriv5 = [&](int i) { return (p(i, 2) - p(i, -2)) + 2.0f * (p(i, 1) - p(i, -1)); };
    auto sum3 = [&](int i) { return (p(i, -1) + p(i, 0)) + p(i, 1); };
    auto sum5 = [&](int i) { return (((p(i, -2) + p(i, -1)) + p(i, 0)) + p(i, 1)) + p(i, 2); };
    switch (f) {
        case F::PrewittVert: return sum3(-1) - sum3(1);
        case F::PrewittHoriz: return (deriv3(-1) + deriv3(0)) + deriv3(1);
        case F::SobelVert:
            if (five) return 2.0f * (smooth5(-1) - smooth5(1)) + (smooth5(-2) - smooth5(2));
            return smooth3(-1) - smooth3(1);
        case F::SobelHoriz:
            if (five) return (6.0f * deriv5(0) + (deriv5(-2) + deriv5(2))) + 4.0f * (deriv5(-1) + deriv5(1));
            return (deriv3(-1) + deriv3(1)) + 2.0f * deriv3(0);
        case F::SobelHorizSecond: {
            if (five) {
                auto c = [&](int i) { return (p(i, -2) + p(i, 2)) + 2.0f * (-p(i, 0)); };
                return (6.0f * c(0) + (c(-2) + c(2))) + 4.0f * (c(-1) + c(1));
            }
            auto c = [&](int i) { return (p(i, -1) + p(i, 1)) + 2.0f * (-p(i, 0)); };
            return (c(-1) + c(1)) + 2.0f * c(0);
        }
        case F::SobelVertSecond:
            if (five) return (smooth5(-2) + smooth5(2)) + 2.0f * (-smooth5(0));
            return (smooth3(-1) + smooth3(1)) + 2.0f * (-smooth3(0));
        case F::SobelCross:
            if (five) return (deriv5(2) - deriv5(-2)) + 2.0f * (deriv5(1) - deriv5(-1));
            return deriv3(1) - deriv3(-1);
        case F::ScharrVert: {
            auto c = [&](int i) { return 3.0f * (p(i, -1) + p(i, 1)) + 10.0f * p(i, 0); };
            return c(1) - c(-1);
        }
        case F::ScharrHoriz: return 3.0f * (deriv3(-1) + deriv3(1)) + 10.0f * deriv3(0);
        case F::Laplace:
        case F::Hipass:
            if (!five) return 8.0f * p(0, 0) + ((-sum3(-1) - (p(0, -1) + p(0, 1))) - sum3(1));
            if (f == F::Hipass)
                return 25.0f * p(0, 0) + ((((-sum5(-2) - sum5(-1)) - sum5(0)) - sum5(1)) - sum5(2));
            {
                auto a = [&](int i) { return ((-p(i, -2) - p(i, 2)) + 3.0f * (-p(i, -1) - p(i, 1))) + 4.0f * (-p(i, 0)); };
                auto b = [&](int i) { return 3.0f * (-p(i, -2) - p(i, 2)) + 6.0f * p(i, 0); };
                auto e = [&](int i) {
                    return (4.0f * (-p(i, -2) - p(i, 2)) + 6.0f * (p(i, -1) + p(i, 1))) + 20.0f * p(i, 0);
                };
                return (((a(-2) + a(2)) + b(-1)) + b(1)) + e(0);
            }
        case F::Lowpass:
            if (five) return ((((sum5(-2) + sum5(-1)) + sum5(0)) + sum5(1)) + sum5(2)) / 25.0f;
            return ((sum3(-1) + sum3(0)) + sum3(1)) * 0.11111111f;
        case F::Gauss: {
            if (!five) return ((smooth3(-1) + smooth3(1)) + 2.0f * smooth3(0)) * 0.0625f;
            auto p2 = [&](int i) { return p(i, -2) + p(i, 2); };
            auto p1 = [&](int i) { return p(i, -1) + p(i, 1); };
            auto p0 = [&](int i) { return p(i, 0); };
            const float g127 = p0(0), g52 = (p1(0) + p0(-1)) + p0(1), g31 = p1(-1) + p1(1);
            const float g12 = (p2(0) + p0(-2)) + p0(2), g7 = ((p2(-1) + p2(1)) + p1(-2)) + p1(2), g2 = p2(-2) + p2(2);
            return ((((127.0f / 571.0f * g127 + 52.0f / 571.0f * g52) + 31.0f / 571.0f * g31) + 12.0f / 571.0f * g12) +
                    7.0f / 571.0f * g7) +
                   2.0f / 571.0f * g2;
        }
        case F::Sharpen: return (17.0f * p(0, 0) + ((-sum3(-1) - sum3(0)) - sum3(1))) * 0.125f;
        case F::RobertsDown: return p(0, 0) - p(-1, -1);
        case F::RobertsUp: return p(0, 0) - p(1, -1);
    }
    return 0;
}

// ---- one export on one image ----------------------------------------------

template <class S, class D>
using FixedFn = std::function<RokStatus(const S*, int, D*, int, RokiSize)>;

template <class S, class D>
struct Form {
    std::string name;
    F f;
    int size;
    int channels, processed;
    FixedFn<S, D> fn;
};

template <class S>
void fill_source(GuardedImage<S>& img, std::uint32_t seed) {
    if constexpr (std::is_floating_point_v<S>) {
        rokt::fill_random(img, seed);
    } else {
        // Half the samples at the ends of the range, where saturation and
        // the 16-bit lanes are tested hardest.
        rokt::fill_random(img, seed);
        std::mt19937 rng(seed + 7);
        for (int y = 0; y < img.height(); ++y)
            for (int i = 0; i < img.width() * img.channels(); ++i)
                if (rng() & 1) img.row(y)[i] = (rng() & 1) ? std::numeric_limits<S>::max() : std::numeric_limits<S>::min();
    }
}

// The image holds exactly the neighbourhood of the ROI; with Guard::After
// the last byte the filter may read abuts a protected page, with
// Guard::Before the first one follows it.
template <class S, class D>
void check(const Form<S, D>& form, int w, int h, std::uint32_t seed, rokt::Guard guard = rokt::Guard::After,
           int pad = 1, GuardedImage<S>* given = nullptr) {
    SCOPED_TRACE(testing::Message() << form.name << " size " << form.size << " roi " << w << "x" << h);
    const Mask mask = mask_of(form.f, form.size);
    const int kh = int(mask.size()), kw = int(mask[0].size());
    const int left = left_of(form.f, form.size), up = up_of(form.f, form.size);
    GuardedImage<S> own(w + kw - 1, h + kh - 1, form.channels, pad, guard);
    GuardedImage<S>& src = given ? *given : own;
    if (!given) fill_source(src, seed);
    const S* roi = &src.at(left, up);
    GuardedImage<D> dst(w, h, form.channels, pad);
    dst.fill_bytes(0xA5);
    GuardedImage<D> want(w, h, form.channels, pad);
    want.fill_bytes(0xA5);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            for (int c = 0; c < form.processed; ++c) {
                if constexpr (std::is_floating_point_v<D>) {
                    want.at(x, y, c) = float_rule(form.f, form.size,
                                                  [&](int dx, int dy) { return float(src.at(x + left + dx, y + up + dy, c)); });
                } else {
                    std::int64_t s = 0;
                    for (int r = 0; r < kh; ++r)
                        for (int k = 0; k < kw; ++k) s += std::int64_t(mask[r][k]) * std::int64_t(src.at(x + k, y + r, c));
                    want.at(x, y, c) = finish_int<D>(form.f, form.size, s);
                }
            }
    ASSERT_EQ(form.fn(roi, src.step(), dst.data(), dst.step(), {w, h}), rokStatusOk);
    if (dst.bytes() != want.bytes()) {
        for (int y = 0; y < h; ++y)
            for (int i = 0; i < w * form.channels; ++i)
                if (std::memcmp(&dst.row(y)[i], &want.row(y)[i], sizeof(D)) != 0)
                    FAIL() << "sample " << i << " of row " << y << ": " << double(dst.row(y)[i]) << " want "
                           << double(want.row(y)[i]);
        FAIL() << "bytes outside the ROI differ";
    }
}

// Widths 1 to 70 (every vector tail), odd steps, both guard sides.
template <class S, class D>
void sweep(const Form<S, D>& form) {
    for (int w = 1; w <= 70; ++w)
        check(form, w, 1 + w % 3, unsigned(w), w % 2 ? rokt::Guard::After : rokt::Guard::Before, w % 4);
}

// ---- forms ---------------------------------------------------------------------

#define NOMASK(fn) [](auto s, int ss, auto d, int ds, RokiSize r) { return fn(s, ss, d, ds, r); }
#define WITHMASK(fn, code) [](auto s, int ss, auto d, int ds, RokiSize r) { return fn(s, ss, d, ds, r, code); }

template <class S, class D>
void each(const char* name, F f, int size, int nc, int processed, FixedFn<S, D> fn) {
    const Form<S, D> form{name, f, size, nc, processed, std::move(fn)};
    check(form, 37, 3, 1);
    check(form, 19, 2, 2, rokt::Guard::Before, 3);
}

// Every layout of a type with one mask code.
#define LAYOUTS4(fam, T, S, D, f, size, W, ...)                                           \
    each<S, D>(#fam "_" #T "_C1R", f, size, 1, 1, W(fam##_##T##_C1R __VA_ARGS__));      \
    each<S, D>(#fam "_" #T "_C3R", f, size, 3, 3, W(fam##_##T##_C3R __VA_ARGS__));      \
    each<S, D>(#fam "_" #T "_C4R", f, size, 4, 4, W(fam##_##T##_C4R __VA_ARGS__));      \
    each<S, D>(#fam "_" #T "_AC4R", f, size, 4, 3, W(fam##_##T##_AC4R __VA_ARGS__))
#define LAYOUTS3(fam, T, S, D, f, size, W, ...)                                           \
    each<S, D>(#fam "_" #T "_C1R", f, size, 1, 1, W(fam##_##T##_C1R __VA_ARGS__));      \
    each<S, D>(#fam "_" #T "_C3R", f, size, 3, 3, W(fam##_##T##_C3R __VA_ARGS__));      \
    each<S, D>(#fam "_" #T "_AC4R", f, size, 4, 3, W(fam##_##T##_AC4R __VA_ARGS__))

template <int Code>
void masked_forms() {
    constexpr int k = Code == 33 ? 3 : 5;
    LAYOUTS4(rokiFilterLaplace, 8u, Rok8u, Rok8u, F::Laplace, k, WITHMASK, , Code);
    LAYOUTS4(rokiFilterLaplace, 16s, Rok16s, Rok16s, F::Laplace, k, WITHMASK, , Code);
    LAYOUTS4(rokiFilterLaplace, 32f, Rok32f, Rok32f, F::Laplace, k, WITHMASK, , Code);
    LAYOUTS4(rokiFilterHipass, 8u, Rok8u, Rok8u, F::Hipass, k, WITHMASK, , Code);
    LAYOUTS4(rokiFilterHipass, 16s, Rok16s, Rok16s, F::Hipass, k, WITHMASK, , Code);
    LAYOUTS4(rokiFilterHipass, 32f, Rok32f, Rok32f, F::Hipass, k, WITHMASK, , Code);
    LAYOUTS4(rokiFilterGauss, 8u, Rok8u, Rok8u, F::Gauss, k, WITHMASK, , Code);
    LAYOUTS4(rokiFilterGauss, 16s, Rok16s, Rok16s, F::Gauss, k, WITHMASK, , Code);
    LAYOUTS4(rokiFilterGauss, 16u, Rok16u, Rok16u, F::Gauss, k, WITHMASK, , Code);
    LAYOUTS4(rokiFilterGauss, 32f, Rok32f, Rok32f, F::Gauss, k, WITHMASK, , Code);
    LAYOUTS3(rokiFilterLowpass, 8u, Rok8u, Rok8u, F::Lowpass, k, WITHMASK, , Code);
    LAYOUTS3(rokiFilterLowpass, 16s, Rok16s, Rok16s, F::Lowpass, k, WITHMASK, , Code);
    LAYOUTS3(rokiFilterLowpass, 16u, Rok16u, Rok16u, F::Lowpass, k, WITHMASK, , Code);
    LAYOUTS3(rokiFilterLowpass, 32f, Rok32f, Rok32f, F::Lowpass, k, WITHMASK, , Code);
}

TEST(FixedFilters, EveryMemberAgainstItsMask) {
    LAYOUTS4(rokiFilterPrewittVert, 8u, Rok8u, Rok8u, F::PrewittVert, 3, NOMASK);
    LAYOUTS4(rokiFilterPrewittVert, 16s, Rok16s, Rok16s, F::PrewittVert, 3, NOMASK);
    LAYOUTS4(rokiFilterPrewittVert, 32f, Rok32f, Rok32f, F::PrewittVert, 3, NOMASK);
    LAYOUTS4(rokiFilterPrewittHoriz, 8u, Rok8u, Rok8u, F::PrewittHoriz, 3, NOMASK);
    LAYOUTS4(rokiFilterPrewittHoriz, 16s, Rok16s, Rok16s, F::PrewittHoriz, 3, NOMASK);
    LAYOUTS4(rokiFilterPrewittHoriz, 32f, Rok32f, Rok32f, F::PrewittHoriz, 3, NOMASK);
    LAYOUTS4(rokiFilterSobelVert, 8u, Rok8u, Rok8u, F::SobelVert, 3, NOMASK);
    LAYOUTS4(rokiFilterSobelVert, 16s, Rok16s, Rok16s, F::SobelVert, 3, NOMASK);
    LAYOUTS4(rokiFilterSobelVert, 32f, Rok32f, Rok32f, F::SobelVert, 3, NOMASK);
    LAYOUTS4(rokiFilterSobelHoriz, 8u, Rok8u, Rok8u, F::SobelHoriz, 3, NOMASK);
    LAYOUTS4(rokiFilterSobelHoriz, 16s, Rok16s, Rok16s, F::SobelHoriz, 3, NOMASK);
    LAYOUTS4(rokiFilterSobelHoriz, 32f, Rok32f, Rok32f, F::SobelHoriz, 3, NOMASK);
    LAYOUTS4(rokiFilterSharpen, 8u, Rok8u, Rok8u, F::Sharpen, 3, NOMASK);
    LAYOUTS4(rokiFilterSharpen, 16s, Rok16s, Rok16s, F::Sharpen, 3, NOMASK);
    LAYOUTS4(rokiFilterSharpen, 32f, Rok32f, Rok32f, F::Sharpen, 3, NOMASK);
    LAYOUTS3(rokiFilterRobertsDown, 8u, Rok8u, Rok8u, F::RobertsDown, 3, NOMASK);
    LAYOUTS3(rokiFilterRobertsDown, 16s, Rok16s, Rok16s, F::RobertsDown, 3, NOMASK);
    LAYOUTS3(rokiFilterRobertsDown, 32f, Rok32f, Rok32f, F::RobertsDown, 3, NOMASK);
    LAYOUTS3(rokiFilterRobertsUp, 8u, Rok8u, Rok8u, F::RobertsUp, 3, NOMASK);
    LAYOUTS3(rokiFilterRobertsUp, 16s, Rok16s, Rok16s, F::RobertsUp, 3, NOMASK);
    LAYOUTS3(rokiFilterRobertsUp, 32f, Rok32f, Rok32f, F::RobertsUp, 3, NOMASK);
    masked_forms<33>();
    masked_forms<55>();
}

template <int Code>
void one_channel_forms() {
    constexpr int size = Code == 33 ? 3 : 5;
#define ONE(fam, T, S, D, f) each<S, D>(#fam "_" #T "_C1R", f, size, 1, 1, WITHMASK(fam##_##T##_C1R, Code))
    ONE(rokiFilterSobelVert, 8u16s, Rok8u, Rok16s, F::SobelVert);
    ONE(rokiFilterSobelVert, 8s16s, Rok8s, Rok16s, F::SobelVert);
    ONE(rokiFilterSobelHoriz, 8u16s, Rok8u, Rok16s, F::SobelHoriz);
    ONE(rokiFilterSobelHoriz, 8s16s, Rok8s, Rok16s, F::SobelHoriz);
    ONE(rokiFilterSobelVertMask, 32f, Rok32f, Rok32f, F::SobelVert);
    ONE(rokiFilterSobelHorizMask, 32f, Rok32f, Rok32f, F::SobelHoriz);
    ONE(rokiFilterSobelHorizSecond, 32f, Rok32f, Rok32f, F::SobelHorizSecond);
    ONE(rokiFilterSobelHorizSecond, 8u16s, Rok8u, Rok16s, F::SobelHorizSecond);
    ONE(rokiFilterSobelHorizSecond, 8s16s, Rok8s, Rok16s, F::SobelHorizSecond);
    ONE(rokiFilterSobelVertSecond, 32f, Rok32f, Rok32f, F::SobelVertSecond);
    ONE(rokiFilterSobelVertSecond, 8u16s, Rok8u, Rok16s, F::SobelVertSecond);
    ONE(rokiFilterSobelVertSecond, 8s16s, Rok8s, Rok16s, F::SobelVertSecond);
    ONE(rokiFilterSobelCross, 32f, Rok32f, Rok32f, F::SobelCross);
    ONE(rokiFilterSobelCross, 8u16s, Rok8u, Rok16s, F::SobelCross);
    ONE(rokiFilterSobelCross, 8s16s, Rok8s, Rok16s, F::SobelCross);
    ONE(rokiFilterLaplace, 8u16s, Rok8u, Rok16s, F::Laplace);
    ONE(rokiFilterLaplace, 8s16s, Rok8s, Rok16s, F::Laplace);
#undef ONE
}

TEST(FixedFilters, EveryOneChannelMemberWithAMaskCode) {
    one_channel_forms<33>();
    one_channel_forms<55>();
    each<Rok32f, Rok32f>("rokiFilterScharrVert_32f_C1R", F::ScharrVert, 3, 1, 1, NOMASK(rokiFilterScharrVert_32f_C1R));
    each<Rok8u, Rok16s>("rokiFilterScharrVert_8u16s_C1R", F::ScharrVert, 3, 1, 1, NOMASK(rokiFilterScharrVert_8u16s_C1R));
    each<Rok8s, Rok16s>("rokiFilterScharrVert_8s16s_C1R", F::ScharrVert, 3, 1, 1, NOMASK(rokiFilterScharrVert_8s16s_C1R));
    each<Rok32f, Rok32f>("rokiFilterScharrHoriz_32f_C1R", F::ScharrHoriz, 3, 1, 1, NOMASK(rokiFilterScharrHoriz_32f_C1R));
    each<Rok8u, Rok16s>("rokiFilterScharrHoriz_8u16s_C1R", F::ScharrHoriz, 3, 1, 1, NOMASK(rokiFilterScharrHoriz_8u16s_C1R));
    each<Rok8s, Rok16s>("rokiFilterScharrHoriz_8s16s_C1R", F::ScharrHoriz, 3, 1, 1, NOMASK(rokiFilterScharrHoriz_8s16s_C1R));
}

// Every lane arrangement of the engine over every tail: 8-bit sources in
// narrow, widened and unsigned 16-bit lanes, signed bytes, 16-bit sources in
// 32-bit lanes, float data; several channels.
TEST(FixedFilters, VectorTailsAndOddSteps) {
    sweep(Form<Rok8u, Rok8u>{"Gauss 8u C1 5x5", F::Gauss, 5, 1, 1, WITHMASK(rokiFilterGauss_8u_C1R, 55)});
    sweep(Form<Rok8u, Rok8u>{"Lowpass 8u C3 3x3", F::Lowpass, 3, 3, 3, WITHMASK(rokiFilterLowpass_8u_C3R, 33)});
    sweep(Form<Rok8u, Rok8u>{"Sobel 8u C1", F::SobelVert, 3, 1, 1, NOMASK(rokiFilterSobelVert_8u_C1R)});
    sweep(Form<Rok8u, Rok8u>{"Sharpen 8u AC4", F::Sharpen, 3, 4, 3, NOMASK(rokiFilterSharpen_8u_AC4R)});
    sweep(Form<Rok8s, Rok16s>{"Laplace 8s16s 5x5", F::Laplace, 5, 1, 1, WITHMASK(rokiFilterLaplace_8s16s_C1R, 55)});
    sweep(Form<Rok8u, Rok16s>{"Sobel 8u16s 5x5", F::SobelHoriz, 5, 1, 1, WITHMASK(rokiFilterSobelHoriz_8u16s_C1R, 55)});
    sweep(Form<Rok16s, Rok16s>{"Hipass 16s C4 5x5", F::Hipass, 5, 4, 4, WITHMASK(rokiFilterHipass_16s_C4R, 55)});
    sweep(Form<Rok16u, Rok16u>{"Gauss 16u C1 5x5", F::Gauss, 5, 1, 1, WITHMASK(rokiFilterGauss_16u_C1R, 55)});
    sweep(Form<Rok16u, Rok16u>{"Lowpass 16u C1 3x3", F::Lowpass, 3, 1, 1, WITHMASK(rokiFilterLowpass_16u_C1R, 33)});
    sweep(Form<Rok32f, Rok32f>{"Gauss 32f C3 5x5", F::Gauss, 5, 3, 3, WITHMASK(rokiFilterGauss_32f_C3R, 55)});
    sweep(Form<Rok32f, Rok32f>{"Laplace 32f C1 3x3", F::Laplace, 3, 1, 1, WITHMASK(rokiFilterLaplace_32f_C1R, 33)});
    // The float kernels form one-channel mids per block and shift them (from
    // 22 samples on at 3x3, 20 at 5x5; vector blocks below), other layouts
    // load them at each offset.
    sweep(Form<Rok32f, Rok32f>{"Sobel 32f C1", F::SobelVert, 3, 1, 1, NOMASK(rokiFilterSobelVert_32f_C1R)});
    sweep(Form<Rok32f, Rok32f>{"Sobel 32f C1 horizontal", F::SobelHoriz, 3, 1, 1, NOMASK(rokiFilterSobelHoriz_32f_C1R)});
    sweep(Form<Rok32f, Rok32f>{"Lowpass 32f C3 3x3", F::Lowpass, 3, 3, 3, WITHMASK(rokiFilterLowpass_32f_C3R, 33)});
    sweep(Form<Rok32f, Rok32f>{"Sharpen 32f C4", F::Sharpen, 3, 4, 4, NOMASK(rokiFilterSharpen_32f_C4R)});
    sweep(Form<Rok32f, Rok32f>{"Sobel 32f C1 5x5", F::SobelVert, 5, 1, 1, WITHMASK(rokiFilterSobelVertMask_32f_C1R, 55)});
    sweep(Form<Rok32f, Rok32f>{"Gauss 32f C1 5x5", F::Gauss, 5, 1, 1, WITHMASK(rokiFilterGauss_32f_C1R, 55)});
    sweep(Form<Rok16s, Rok16s>{"Roberts 16s C3", F::RobertsUp, 3, 3, 3, NOMASK(rokiFilterRobertsUp_16s_C3R)});
}

// Rows are split among threads; every row must come out the same.
TEST(FixedFilters, SameResultsAtOneAndTwoThreads) {
    auto twice = [](const auto& form, auto& image) {
        for (int t : {1, 2}) {
            rokt::WithThreads with(t);
            check(form, 2100, 67, 5, rokt::Guard::After, 1, &image);
        }
    };
    {
        GuardedImage<Rok8u> img(2104, 71, 1, 1);
        fill_source(img, 3);
        twice(Form<Rok8u, Rok8u>{"Gauss 8u 5x5", F::Gauss, 5, 1, 1, WITHMASK(rokiFilterGauss_8u_C1R, 55)}, img);
    }
    {
        GuardedImage<Rok32f> img(2102, 69, 3, 1);
        fill_source(img, 4);
        twice(Form<Rok32f, Rok32f>{"Sobel 32f C3", F::SobelHoriz, 3, 3, 3, NOMASK(rokiFilterSobelHoriz_32f_C3R)}, img);
    }
    {
        GuardedImage<Rok32f> img(2102, 69, 1, 1);
        fill_source(img, 6);
        twice(Form<Rok32f, Rok32f>{"Sobel 32f C1", F::SobelVert, 3, 1, 1, NOMASK(rokiFilterSobelVert_32f_C1R)}, img);
    }
}

}  // namespace

namespace {

// ---- the stated edge cases ------------------------------------------------------

TEST(FixedFilters, ConstantImages) {
    GuardedImage<Rok8u> src(9, 9, 1);
    src.fill_bytes(77);
    GuardedImage<Rok8u> dst(5, 5, 1);
    const Rok8u* roi = &src.at(2, 2);
    const struct {
        RokStatus (*fn)(const Rok8u*, int, Rok8u*, int, RokiSize, int);
        int mask, want;
    } masked[] = {{rokiFilterLaplace_8u_C1R, 55, 0}, {rokiFilterHipass_8u_C1R, 55, 0}, {rokiFilterGauss_8u_C1R, 55, 77},
                  {rokiFilterLowpass_8u_C1R, 55, 77}, {rokiFilterGauss_8u_C1R, 33, 77}, {rokiFilterLaplace_8u_C1R, 33, 0}};
    for (const auto& m : masked) {
        dst.fill_bytes(1);
        ASSERT_EQ(m.fn(roi, src.step(), dst.data(), dst.step(), {5, 5}, m.mask), rokStatusOk);
        for (int y = 0; y < 5; ++y)
            for (int x = 0; x < 5; ++x) EXPECT_EQ(dst.at(x, y), m.want);
    }
    using Plain = RokStatus (*)(const Rok8u*, int, Rok8u*, int, RokiSize);
    const std::pair<Plain, int> plain[] = {{rokiFilterSobelVert_8u_C1R, 0}, {rokiFilterPrewittHoriz_8u_C1R, 0},
                                           {rokiFilterSharpen_8u_C1R, 77}};
    for (const auto& [fn, want] : plain) {
        dst.fill_bytes(1);
        ASSERT_EQ(fn(roi, src.step(), dst.data(), dst.step(), {5, 5}), rokStatusOk);
        EXPECT_EQ(dst.at(4, 4), want);
    }
}

// The 8u Gauss 5x5 sums reach 18 bits (571 * 255): constant images whose
// sums fall on either side of 65536 and 131072, on the vector path.
TEST(FixedFilters, Gauss5ConstantsAcrossSixteenBits) {
    GuardedImage<Rok8u> src(44, 6, 1);
    GuardedImage<Rok8u> dst(40, 2, 1);
    for (int c : {0, 1, 114, 115, 229, 230, 254, 255}) {
        src.fill_bytes(Rok8u(c));
        dst.fill_bytes(Rok8u(c ^ 0x55));
        ASSERT_EQ(rokiFilterGauss_8u_C1R(&src.at(2, 2), src.step(), dst.data(), dst.step(), {40, 2}, 55), rokStatusOk);
        for (int y = 0; y < 2; ++y)
            for (int x = 0; x < 40; ++x) ASSERT_EQ(dst.at(x, y), c) << "at " << x << "," << y;
    }
}

// Dark-to-bright from left to right: Sobel and Prewitt answer negative,
// Scharr positive; Hipass 33 and Laplace 33 agree.
TEST(FixedFilters, SignsOfTheVerticalMasks) {
    GuardedImage<Rok8u> src(6, 3, 1);
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 6; ++x) src.at(x, y) = x < 3 ? 10 : 200;
    const Rok8u* roi = &src.at(1, 1);
    Rok16s d16[4];
    ASSERT_EQ(rokiFilterSobelVert_8u16s_C1R(roi, src.step(), d16, 8, {4, 1}, 33), rokStatusOk);
    EXPECT_EQ(d16[1], -4 * 190);
    ASSERT_EQ(rokiFilterScharrVert_8u16s_C1R(roi, src.step(), d16, 8, {4, 1}), rokStatusOk);
    EXPECT_EQ(d16[1], 16 * 190);
    Rok8u d8[4] = {9, 9, 9, 9};
    ASSERT_EQ(rokiFilterPrewittVert_8u_C1R(roi, src.step(), d8, 4, {4, 1}), rokStatusOk);
    EXPECT_EQ(d8[1], 0);  // -570 saturated
    Rok8u hip[4], lap[4];
    ASSERT_EQ(rokiFilterHipass_8u_C1R(roi, src.step(), hip, 4, {4, 1}, 33), rokStatusOk);
    ASSERT_EQ(rokiFilterLaplace_8u_C1R(roi, src.step(), lap, 4, {4, 1}, 33), rokStatusOk);
    EXPECT_EQ(std::vector<Rok8u>(hip, hip + 4), std::vector<Rok8u>(lap, lap + 4));
    EXPECT_EQ(lap[2], 255);  // 8 * 200 - 3 * 10 - 5 * 200 saturated
}

// The Mask forms take any code but 33 as 5x5; the coded forms refuse it.
TEST(FixedFilters, MaskCodes) {
    GuardedImage<Rok32f> src(5, 5, 1);
    rokt::fill_random(src, 9);
    Rok32f five = 0, other = 0;
    ASSERT_EQ(rokiFilterSobelHorizMask_32f_C1R(&src.at(2, 2), src.step(), &five, 4, {1, 1}, 55), rokStatusOk);
    for (int code : {0, 34, -1, 31}) {
        ASSERT_EQ(rokiFilterSobelHorizMask_32f_C1R(&src.at(2, 2), src.step(), &other, 4, {1, 1}, code), rokStatusOk);
        EXPECT_EQ(other, five) << code;
    }
    GuardedImage<Rok8u> s8(5, 5, 1);
    Rok16s d = 7;
    for (int code : {0, 34, 35, 53})
        EXPECT_EQ(rokiFilterSobelHoriz_8u16s_C1R(&s8.at(2, 2), s8.step(), &d, 2, {1, 1}, code), rokStatusBadMaskSize);
    EXPECT_EQ(d, 7);
}

TEST(FixedFilters, ChecksInOrderWriteNothing) {
    GuardedImage<Rok8u> src(8, 8, 1);
    GuardedImage<Rok8u> dst(4, 4, 1);
    dst.fill_bytes(0x3C);
    const auto before = dst.bytes();
    const Rok8u* s = &src.at(2, 2);
    Rok8u* d = dst.data();
    const int ss = src.step(), ds = dst.step();
    const RokiSize roi{4, 4};
    const RokStatus got[][2] = {
        {rokStatusNullPtr, rokiFilterGauss_8u_C1R(nullptr, 0, d, 0, {0, 0}, 0)},
        {rokStatusNullPtr, rokiFilterGauss_8u_C1R(s, ss, nullptr, ds, roi, 55)},
        {rokStatusBadSize, rokiFilterGauss_8u_C1R(s, 0, d, 0, {0, 4}, 0)},
        {rokStatusBadSize, rokiFilterSobelVert_8u_C1R(s, ss, d, ds, {4, -1})},
        {rokStatusBadStep, rokiFilterGauss_8u_C1R(s, 0, d, ds, roi, 0)},
        {rokStatusBadStep, rokiFilterRobertsUp_8u_C1R(s, ss, d, -4, roi)},
        {rokStatusBadMaskSize, rokiFilterGauss_8u_C1R(s, ss, d, ds, roi, 0)},
        {rokStatusBadMaskSize, rokiFilterLowpass_8u_C1R(s, ss, d, ds, roi, 53)},
    };
    for (std::size_t i = 0; i < std::size(got); ++i) EXPECT_EQ(got[i][1], got[i][0]) << "check " << i;
    EXPECT_EQ(dst.bytes(), before);
    // A step smaller than the row is not an error.
    EXPECT_EQ(rokiFilterSobelVert_8u_C1R(s, 1, d, 1, {4, 1}), rokStatusOk);
}

// A 1x1 ROI reads the whole neighbourhood round it.
TEST(FixedFilters, OnePixelRoi) {
    for (int code : {33, 55}) {
        const int h = code == 33 ? 1 : 2;
        GuardedImage<Rok16s> src(2 * h + 1, 2 * h + 1, 1);
        rokt::fill_random(src, unsigned(code), -1000, 1000);
        Rok16s got = 0;
        ASSERT_EQ(rokiFilterHipass_16s_C1R(&src.at(h, h), src.step(), &got, 2, {1, 1}, code), rokStatusOk);
        std::int64_t sum = 0;
        for (int y = 0; y < 2 * h + 1; ++y)
            for (int x = 0; x < 2 * h + 1; ++x) sum += src.at(x, y);
        const std::int64_t centre = src.at(h, h);
        EXPECT_EQ(got, rokt::ref::saturate<Rok16s>((code == 33 ? 9 : 25) * centre - sum));
    }
}

// Integer results do not depend on the caller's rounding control, which is
// left as it was; the 16-bit 3x3 Lowpass works under round-to-nearest.
TEST(FixedFilters, IntegerResultsIgnoreTheRoundingControl) {
    GuardedImage<Rok16u> src(40, 6, 1);
    fill_source(src, 21);
    std::vector<std::uint8_t> results[3];
    const int modes[3] = {FE_TONEAREST, FE_UPWARD, FE_TOWARDZERO};
    for (int i = 0; i < 3; ++i) {
        const int saved = std::fegetround();
        std::fesetround(modes[i]);
        GuardedImage<Rok16u> dst(38, 4, 1);
        const RokStatus lowpass = rokiFilterLowpass_16u_C1R(&src.at(1, 1), src.step(), dst.data(), dst.step(), {38, 4}, 33);
        GuardedImage<Rok16u> gauss(36, 2, 1);
        const RokStatus g = rokiFilterGauss_16u_C1R(&src.at(2, 2), src.step(), gauss.data(), gauss.step(), {36, 2}, 55);
        EXPECT_EQ(std::fegetround(), modes[i]);
        std::fesetround(saved);
        ASSERT_EQ(lowpass, rokStatusOk);
        ASSERT_EQ(g, rokStatusOk);
        results[i] = dst.bytes();
        const auto more = gauss.bytes();
        results[i].insert(results[i].end(), more.begin(), more.end());
    }
    EXPECT_EQ(results[1], results[0]);
    EXPECT_EQ(results[2], results[0]);
}

}  // namespace

namespace {

// Destinations too large for the largest cache take streaming stores
// between an ordinary first and last block of each row (8-bit sources:
// whole lines between ordinary head and tail blocks; the odd steps start
// the rows at every offset within a line). The heights follow
// the reported cache so that each form writes just over half of it (at most
// 24 MiB, so that the test stays short; beyond that the ordinary stores are
// what is checked).
TEST(FixedFilters, LargeDestinations) {
    int cache = 0;
    ASSERT_EQ(rokGetMaxCacheSizeB(&cache), rokStatusOk);
    const long long written = std::min<long long>(cache / 2 + 4096, 24ll << 20);
    auto rows = [&](int w, int bytes) { return int(written / (static_cast<long long>(w) * bytes)) + 1; };
    check(Form<Rok8u, Rok16s>{"Sobel 8u16s 5x5", F::SobelVert, 5, 1, 1, WITHMASK(rokiFilterSobelVert_8u16s_C1R, 55)},
          2051, rows(2051, 2), 31, rokt::Guard::After, 3);
    check(Form<Rok32f, Rok32f>{"Gauss 32f 5x5", F::Gauss, 5, 1, 1, WITHMASK(rokiFilterGauss_32f_C1R, 55)}, 1031,
          rows(1031, 4), 32, rokt::Guard::After, 1);
    check(Form<Rok8u, Rok8u>{"Sharpen 8u C3", F::Sharpen, 3, 3, 3, NOMASK(rokiFilterSharpen_8u_C3R)}, 1501,
          rows(1501 * 3, 1), 33, rokt::Guard::After, 2);
    // Float 3x3 rows made in pairs: rows on 64-byte steps from a start 32
    // bytes past a line (both rows of a pair stream, after an ordinary first
    // block), and rows whose alignment alternates (the second row of a pair
    // stores normally).
    check(Form<Rok32f, Rok32f>{"Sobel 32f C1", F::SobelVert, 3, 1, 1, NOMASK(rokiFilterSobelVert_32f_C1R)}, 1000,
          rows(1000, 4), 34, rokt::Guard::After, 8);
    check(Form<Rok32f, Rok32f>{"Sobel 32f C1 horizontal", F::SobelHoriz, 3, 1, 1, NOMASK(rokiFilterSobelHoriz_32f_C1R)},
          1031, rows(1031, 4), 35, rokt::Guard::After, 1);
    check(Form<Rok8u, Rok8u>{"Gauss 8u 5x5", F::Gauss, 5, 1, 1, WITHMASK(rokiFilterGauss_8u_C1R, 55)}, 2053,
          rows(2053, 1), 34, rokt::Guard::After, 1);
}

// The one-channel 8u Gauss 5x5 filters rows first (from 32 pixels on),
// keeps five source rows of results in a ring and makes each row in two
// passes, over the whole row up to 2048 pixels and over chunks of 1024
// beyond: widths at the 32-pixel blocks (the last one overlapping, with a
// ring slot of its own), at the whole-row limit and the chunk seams, heights
// past the ring's five rows, every row start within a line, both guard
// sides, and bands split between two threads (each band fills its own ring).
TEST(FixedFilters, Gauss5RowFirstSeams) {
    const Form<Rok8u, Rok8u> form{"Gauss 8u C1 5x5", F::Gauss, 5, 1, 1, WITHMASK(rokiFilterGauss_8u_C1R, 55)};
    const struct {
        int w, h, pad;
        rokt::Guard guard;
    } cases[] = {{32, 9, 0, rokt::Guard::After},   {33, 7, 1, rokt::Guard::Before},  {63, 6, 3, rokt::Guard::After},
                 {64, 11, 5, rokt::Guard::Before}, {65, 8, 2, rokt::Guard::After},   {95, 5, 7, rokt::Guard::Before},
                 {1023, 4, 1, rokt::Guard::After}, {1024, 7, 0, rokt::Guard::Before}, {1025, 6, 9, rokt::Guard::After},
                 {1057, 3, 4, rokt::Guard::Before}, {2048, 6, 1, rokt::Guard::Before}, {2049, 5, 0, rokt::Guard::After},
                 {2080, 7, 3, rokt::Guard::Before}, {2081, 8, 31, rokt::Guard::After}, {3137, 6, 5, rokt::Guard::Before}};
    for (const auto& c : cases) check(form, c.w, c.h, unsigned(c.w * 7 + c.h), c.guard, c.pad);
    for (int t : {1, 2}) {
        rokt::WithThreads with(t);
        check(form, 97, 131, 11, rokt::Guard::After, 3);
        check(form, 1100, 67, 12, rokt::Guard::Before, 1);
    }
}

// Results larger than the caches take streaming stores, only for whole
// 64-byte lines of rows that start on one: the row kernel itself with
// streaming on, odd steps (so every row start within a line comes round),
// widths with and without the overlapping last block, whole rows and
// chunks, against the reference and with nothing else written.
TEST(FixedFilters, Gauss5StreamingRows) {
    const Form<Rok8u, Rok8u> form{"Gauss 8u C1 5x5 streaming", F::Gauss, 5, 1, 1,
                                  [](const Rok8u* s, int ss, Rok8u* d, int ds, RokiSize r) {
                                      std::vector<char> ring(rok::kernels::fixed::gauss5_ring_bytes(r.width));
                                      rok::kernels::fixed::gauss5_rows(s, ss, d, ds, r.width, 0, r.height,
                                                                       ring.data(), true);
                                      rok::kernels::store_fence();
                                      return rokStatusOk;
                                  }};
    for (int w : {64, 100, 2113, 2176}) check(form, w, 66, unsigned(w), rokt::Guard::After, 1);
}

// 8-bit sources run their rows in chunks of 1024 pixels: widths on both
// sides of the chunk seams, in every layout's pixel size.
TEST(FixedFilters, ChunkSeams) {
    for (int w : {1023, 1024, 1025, 1029, 2047, 2049, 2050}) {
        SCOPED_TRACE(w);
        check(Form<Rok8u, Rok8u>{"Gauss 8u C3 5x5", F::Gauss, 5, 3, 3, WITHMASK(rokiFilterGauss_8u_C3R, 55)}, w, 3,
              unsigned(w), rokt::Guard::After, w % 3);
        check(Form<Rok8u, Rok8u>{"Gauss 8u AC4 5x5", F::Gauss, 5, 4, 3, WITHMASK(rokiFilterGauss_8u_AC4R, 55)}, w, 2,
              unsigned(w) + 1, rokt::Guard::Before, 1);
        check(Form<Rok8u, Rok8u>{"Hipass 8u C4 5x5", F::Hipass, 5, 4, 4, WITHMASK(rokiFilterHipass_8u_C4R, 55)}, w, 2,
              unsigned(w) + 2, rokt::Guard::After, 0);
        check(Form<Rok8u, Rok16s>{"Laplace 8u16s 3x3", F::Laplace, 3, 1, 1, WITHMASK(rokiFilterLaplace_8u16s_C1R, 33)},
              w, 3, unsigned(w) + 3, rokt::Guard::Before, w % 2);
    }
}

}  // namespace

namespace {

// The nearest-integer rule of Lowpass and Gauss 5x5 at its rounding
// boundaries: sums d*q + (d-1)/2 and d*q + (d+1)/2 built into one
// neighbourhood per ROI row (every fifth row; its pixel 5 lies in a vector
// block), the rest random, all checked against the reference.
template <class T>
void boundaries(const char* name, F f, int size, RokStatus (*fn)(const T*, int, T*, int, RokiSize, int), int qStep) {
    const Mask mask = mask_of(f, size);
    const int d = f == F::Gauss ? 571 : size * size;
    const long long top = std::numeric_limits<T>::max();
    std::vector<long long> targets;
    for (long long q = 0; q * d <= top * d; q += qStep)
        for (long long r : {(d - 1) / 2, (d + 1) / 2})
            if (q * d + r <= top * d) targets.push_back(q * d + r);
    const int rows = int(targets.size()) * 5, w = 40;
    GuardedImage<T> src(w + size - 1, rows + size - 1, 1);
    rokt::fill_random(src, 3);
    for (std::size_t t = 0; t < targets.size(); ++t) {
        // Pixels by descending weight take what is left of the sum.
        std::vector<std::pair<int, int>> order;
        for (int r = 0; r < size; ++r)
            for (int c = 0; c < size; ++c) order.push_back({r, c});
        std::stable_sort(order.begin(), order.end(),
                         [&](auto a, auto b) { return mask[a.first][a.second] > mask[b.first][b.second]; });
        long long left = targets[t];
        auto at = [&](std::pair<int, int> p) -> T& { return src.at(5 + p.second, int(t) * 5 + p.first); };
        for (auto p : order) {
            const long long v = std::min(top, left / mask[p.first][p.second]);
            at(p) = T(v);
            left -= v * mask[p.first][p.second];
        }
        // An odd rest of the Gauss mask: one pixel of odd weight less.
        for (auto p : order)
            if (left % 2 && mask[p.first][p.second] % 2 && at(p) > 0) {
                at(p) = T(at(p) - 1);
                left += mask[p.first][p.second];
            }
        for (auto p : order)
            if (mask[p.first][p.second] == 2 && left > 0) {
                const long long v = std::min<long long>(top - at(p), left / 2);
                at(p) = T(at(p) + v);
                left -= 2 * v;
            }
        if (left != 0) targets[t] = -1;  // not built; its row is checked all the same
    }
    check(Form<T, T>{name, f, size, 1, 1, [fn, size](const T* s, int ss, T* dd, int ds, RokiSize r) {
              return fn(s, ss, dd, ds, r, size == 3 ? 33 : 55);
          }},
          w, rows, 0, rokt::Guard::After, 1, &src);
    int built = 0;
    for (long long t : targets) built += t >= 0;
    EXPECT_GT(built, int(targets.size()) * 9 / 10) << name;
}

TEST(FixedFilters, NearestAtEveryRoundingBoundary) {
    boundaries<Rok8u>("Lowpass 8u 3x3", F::Lowpass, 3, rokiFilterLowpass_8u_C1R, 1);
    boundaries<Rok8u>("Lowpass 8u 5x5", F::Lowpass, 5, rokiFilterLowpass_8u_C1R, 1);
    boundaries<Rok8u>("Gauss 8u 5x5", F::Gauss, 5, rokiFilterGauss_8u_C1R, 1);
    boundaries<Rok16u>("Lowpass 16u 3x3", F::Lowpass, 3, rokiFilterLowpass_16u_C1R, 97);
    boundaries<Rok16u>("Lowpass 16u 5x5", F::Lowpass, 5, rokiFilterLowpass_16u_C1R, 97);
    boundaries<Rok16u>("Gauss 16u 5x5", F::Gauss, 5, rokiFilterGauss_16u_C1R, 97);
}

}  // namespace
