// The masks of the fixed-kernel filters as two-stage plans. Rows R(j) count
// from the top of the neighbourhood, mid columns M(m, i) from its left; a
// group is a weight and the signed terms it multiplies. Integer results are
// exact whatever the order; float results follow the order written here,
// which the header documents for each filter.
#include <initializer_list>

#include "filter/fixed.h"
#include "filter/separable.h"

namespace rok::filter {

namespace {

using kernels::sep::Finish;
using kernels::sep::FinishRule;
using kernels::sep::Group;
using kernels::sep::Sum;
using kernels::sep::Term;

constexpr Term R(int j, int sign = 1) { return {j, 0, sign}; }
constexpr Term M(int mid, int i, int sign = 1) { return {mid, i, sign}; }

constexpr Group G(double w, std::initializer_list<Term> terms) {
    Group g{w, 0, {}};
    for (Term t : terms) g.t[g.n++] = t;
    return g;
}
constexpr Sum S(std::initializer_list<Group> groups) {
    Sum s{0, {}};
    for (const Group& g : groups) s.g[s.n++] = g;
    return s;
}

// ---- 3x3 ---------------------------------------------------------------------

constexpr Sum kColumnSum3 = S({G(1, {R(0), R(1), R(2)})});
constexpr Sum kRowSum3 = S({G(1, {M(0, 0), M(0, 1), M(0, 2)})});
constexpr Sum kColumnSmooth3 = S({G(1, {R(0), R(2)}), G(2, {R(1)})});            // (1 2 1)
constexpr Sum kRowSmooth3 = S({G(1, {M(0, 0), M(0, 2)}), G(2, {M(0, 1)})});
constexpr Sum kColumnBelowMinusAbove3 = S({G(1, {R(2), R(0, -1)})});
constexpr Sum kRowLeftMinusRight3 = S({G(1, {M(0, 0), M(0, 2, -1)})});
constexpr Sum kRowRightMinusLeft3 = S({G(1, {M(0, 2), M(0, 0, -1)})});

constexpr SepPlan kPrewittVert3{3, 1, {kColumnSum3}, kRowLeftMinusRight3};
constexpr SepPlan kPrewittHoriz3{3, 1, {kColumnBelowMinusAbove3}, kRowSum3};
constexpr SepPlan kSobelVert3{3, 1, {kColumnSmooth3}, kRowLeftMinusRight3};
constexpr SepPlan kSobelHoriz3{3, 1, {kColumnBelowMinusAbove3}, kRowSmooth3};
constexpr SepPlan kScharrVert3{3, 1, {S({G(3, {R(0), R(2)}), G(10, {R(1)})})}, kRowRightMinusLeft3};
constexpr SepPlan kScharrHoriz3{3, 1, {kColumnBelowMinusAbove3}, S({G(3, {M(0, 0), M(0, 2)}), G(10, {M(0, 1)})})};
constexpr SepPlan kSobelHorizSecond3{3, 1, {S({G(1, {R(0), R(2)}), G(2, {R(1, -1)})})}, kRowSmooth3};
constexpr SepPlan kSobelVertSecond3{3, 1, {kColumnSmooth3}, S({G(1, {M(0, 0), M(0, 2)}), G(2, {M(0, 1, -1)})})};
constexpr SepPlan kSobelCross3{3, 1, {kColumnBelowMinusAbove3}, kRowRightMinusLeft3};
// 8 * centre minus the eight neighbours: mids above+below, column sum, centre.
constexpr SepPlan kLaplace3{3, 3, {S({G(1, {R(0), R(2)})}), kColumnSum3, S({G(1, {R(1)})})},
                            S({G(8, {M(2, 1)}), G(1, {M(1, 0, -1), M(0, 1, -1), M(1, 2, -1)})})};
constexpr SepPlan kLowpass3{3, 1, {kColumnSum3}, kRowSum3};
constexpr SepPlan kGauss3{3, 1, {kColumnSmooth3}, kRowSmooth3};
// 17 * centre minus the nine-pixel sum: mids column sum and centre.
constexpr SepPlan kSharpen3{3, 2, {kColumnSum3, S({G(1, {R(1)})})},
                            S({G(17, {M(1, 1)}), G(1, {M(0, 0, -1), M(0, 1, -1), M(0, 2, -1)})})};

// ---- 5x5 ---------------------------------------------------------------------

constexpr Sum kColumnSum5 = S({G(1, {R(0), R(1), R(2), R(3), R(4)})});
constexpr Sum kRowSum5 = S({G(1, {M(0, 0), M(0, 1), M(0, 2), M(0, 3), M(0, 4)})});
constexpr Sum kColumnSmooth5 = S({G(6, {R(2)}), G(1, {R(0), R(4)}), G(4, {R(1), R(3)})});  // (1 4 6 4 1)
constexpr Sum kRowSmooth5 = S({G(6, {M(0, 2)}), G(1, {M(0, 0), M(0, 4)}), G(4, {M(0, 1), M(0, 3)})});
constexpr Sum kColumnDerivative5 = S({G(1, {R(4), R(0, -1)}), G(2, {R(3), R(1, -1)})});  // (-1 -2 0 2 1)
constexpr Sum kColumnSecond5 = S({G(1, {R(0), R(4)}), G(2, {R(2, -1)})});                // (1 0 -2 0 1)

constexpr SepPlan kSobelVert5{5, 1, {kColumnSmooth5},
                              S({G(2, {M(0, 1), M(0, 3, -1)}), G(1, {M(0, 0), M(0, 4, -1)})})};
constexpr SepPlan kSobelHoriz5{5, 1, {kColumnDerivative5}, kRowSmooth5};
constexpr SepPlan kSobelHorizSecond5{5, 1, {kColumnSecond5}, kRowSmooth5};
constexpr SepPlan kSobelVertSecond5{5, 1, {kColumnSmooth5}, S({G(1, {M(0, 0), M(0, 4)}), G(2, {M(0, 2, -1)})})};
constexpr SepPlan kSobelCross5{5, 1, {kColumnDerivative5},
                               S({G(1, {M(0, 4), M(0, 0, -1)}), G(2, {M(0, 3), M(0, 1, -1)})})};
// Columns 0 and 4, 1 and 3, and 2 of the mask, then their sum.
constexpr SepPlan kLaplace5{5, 3,
                            {S({G(1, {R(0, -1), R(4, -1)}), G(3, {R(1, -1), R(3, -1)}), G(4, {R(2, -1)})}),
                             S({G(3, {R(0, -1), R(4, -1)}), G(6, {R(2)})}),
                             S({G(4, {R(0, -1), R(4, -1)}), G(6, {R(1), R(3)}), G(20, {R(2)})})},
                            S({G(1, {M(0, 0), M(0, 4), M(1, 1), M(1, 3), M(2, 2)})})};
// 25 * centre minus the 5x5 sum.
constexpr SepPlan kHipass5{5, 2, {kColumnSum5, S({G(1, {R(2)})})},
                           S({G(25, {M(1, 2)}), G(1, {M(0, 0, -1), M(0, 1, -1), M(0, 2, -1), M(0, 3, -1), M(0, 4, -1)})})};
constexpr SepPlan kLowpass5{5, 1, {kColumnSum5}, kRowSum5};
// Integer data: the mask's columns 0 and 4, 1 and 3, and 2, then their sum.
constexpr SepPlan kGauss5{5, 3,
                          {S({G(2, {R(0), R(4)}), G(7, {R(1), R(3)}), G(12, {R(2)})}),
                           S({G(7, {R(0), R(4)}), G(31, {R(1), R(3)}), G(52, {R(2)})}),
                           S({G(12, {R(0), R(4)}), G(52, {R(1), R(3)}), G(127, {R(2)})})},
                          S({G(1, {M(0, 0), M(0, 4), M(1, 1), M(1, 3), M(2, 2)})})};
// Float data: the pixels of each weight summed (mids: rows 0+4, 1+3, 2),
// each group times its normalised weight, largest weight first.
constexpr SepPlan kGauss5Float{
    5, 3, {S({G(1, {R(0), R(4)})}), S({G(1, {R(1), R(3)})}), S({G(1, {R(2)})})},
    S({G(127.0f / 571.0f, {M(2, 2)}), G(52.0f / 571.0f, {M(1, 2), M(2, 1), M(2, 3)}),
       G(31.0f / 571.0f, {M(1, 1), M(1, 3)}), G(12.0f / 571.0f, {M(0, 2), M(2, 0), M(2, 4)}),
       G(7.0f / 571.0f, {M(0, 1), M(0, 3), M(1, 0), M(1, 4)}), G(2.0f / 571.0f, {M(0, 0), M(0, 4)})})};

const SepPlan& plan_of(Fixed f, int size, bool floatData) {
    const bool five = size == 5;
    switch (f) {
        case Fixed::PrewittVert: return kPrewittVert3;
        case Fixed::PrewittHoriz: return kPrewittHoriz3;
        case Fixed::SobelVert: return five ? kSobelVert5 : kSobelVert3;
        case Fixed::SobelHoriz: return five ? kSobelHoriz5 : kSobelHoriz3;
        case Fixed::SobelVertSecond: return five ? kSobelVertSecond5 : kSobelVertSecond3;
        case Fixed::SobelHorizSecond: return five ? kSobelHorizSecond5 : kSobelHorizSecond3;
        case Fixed::SobelCross: return five ? kSobelCross5 : kSobelCross3;
        case Fixed::ScharrVert: return kScharrVert3;
        case Fixed::ScharrHoriz: return kScharrHoriz3;
        case Fixed::Laplace: return five ? kLaplace5 : kLaplace3;
        case Fixed::Hipass: return five ? kHipass5 : kLaplace3;
        case Fixed::Lowpass: return five ? kLowpass5 : kLowpass3;
        case Fixed::Gauss: return five ? (floatData ? kGauss5Float : kGauss5) : kGauss3;
        case Fixed::Sharpen: return kSharpen3;
    }
    return kLaplace3;
}

// Integer data: Gauss 3x3 and Sharpen divide by 16 and 8 with ties to even;
// Lowpass and Gauss 5x5 give the nearest integer to sum / 9, 25 or 571 (no
// ties: the divisors are odd). Float data: the stated constant factors.
FinishRule finish_of(Fixed f, int size, bool floatData) {
    FinishRule r;
    const bool five = size == 5;
    switch (f) {
        case Fixed::Lowpass:
            if (floatData) {
                r.kind = five ? Finish::Divide : Finish::Scale;
                r.c = five ? 25.0 : double(0.11111111f);
            } else {
                r.kind = Finish::Nearest;
                r.c = five ? 1.0 / 25.0 : 1.0 / 9.0;
            }
            break;
        case Fixed::Gauss:
            if (five) {
                if (!floatData) r.kind = Finish::Nearest, r.c = 1.0 / 571.0;
            } else if (floatData) {
                r.kind = Finish::Scale, r.c = 0.0625;
            } else {
                r.kind = Finish::ShiftEven, r.shift = 4;
            }
            break;
        case Fixed::Sharpen:
            if (floatData) r.kind = Finish::Scale, r.c = 0.125;
            else r.kind = Finish::ShiftEven, r.shift = 3;
            break;
        default:
            break;
    }
    return r;
}

}  // namespace

template <class S, class D>
RokStatus run_fixed(Fixed f, int size, const S* src, int srcStep, D* dst, int dstStep, RokiSize roi, Layout layout) {
    constexpr bool floatData = std::is_floating_point_v<S>;
    return run_separable(plan_of(f, size, floatData), finish_of(f, size, floatData), src, srcStep, dst, dstStep, roi,
                         layout);
}

template RokStatus run_fixed(Fixed, int, const Rok8u*, int, Rok8u*, int, RokiSize, Layout);
template RokStatus run_fixed(Fixed, int, const Rok8u*, int, Rok16s*, int, RokiSize, Layout);
template RokStatus run_fixed(Fixed, int, const Rok8s*, int, Rok16s*, int, RokiSize, Layout);
template RokStatus run_fixed(Fixed, int, const Rok16s*, int, Rok16s*, int, RokiSize, Layout);
template RokStatus run_fixed(Fixed, int, const Rok16u*, int, Rok16u*, int, RokiSize, Layout);
template RokStatus run_fixed(Fixed, int, const Rok32f*, int, Rok32f*, int, RokiSize, Layout);

}  // namespace rok::filter
