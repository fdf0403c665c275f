// The masks of the fixed-kernel filters as two-stage plans: a column stage
// combines the neighbourhood's source rows into up to kMaxMids intermediate
// rows (mids), a row stage combines the mids at column offsets into the
// destination row, and a finishing rule turns the result into a sample.
//
// A stage is a weighted sum: a list of groups, each a weight and a list of
// signed terms, value = sum over groups of w * (sum of the signed terms).
// Float kernels evaluate it in exactly that order (terms left to right into
// the group's sum, w times it, groups added left to right; a weight of 1
// multiplies nothing), so the order is part of each float filter's rule and
// is documented with it. Integer results are exact whatever the order.
//
// Plain constant data and compile-time analysis: the kernels specialise
// themselves on a plan, the family code reads its sizes.
#pragma once

#include <cstdint>
#include <initializer_list>

namespace rok::kernels::fixed {

enum class Fixed {
    PrewittVert, PrewittHoriz, SobelVert, SobelHoriz, SobelVertSecond, SobelHorizSecond, SobelCross,
    ScharrVert, ScharrHoriz, Laplace, Hipass, Lowpass, Gauss, Sharpen,
};

constexpr int kMaxRows = 5, kMaxMids = 3, kMaxTerms = 5, kMaxGroups = 6;

// Column stage: src is a source row (0 = top of the neighbourhood). Row
// stage: src is a mid and off a pixel column (0 = left of the neighbourhood).
struct Term {
    int src, off, sign;
};
struct Group {
    double w;
    int n;
    Term t[kMaxTerms];
};
struct Sum {
    int n;
    Group g[kMaxGroups];
};
struct Plan {
    int size;  // a size x size neighbourhood centred on the destination pixel
    int mids;
    Sum column[kMaxMids];
    Sum row;
};

enum class Finish {
    Exact,      // integer: saturated; float: stored as it is
    ShiftEven,  // integer / 2^shift with ties to even, saturated
    Nearest,    // integer times c rounded to nearest, saturated (exact nearest of value / d, d odd)
    Scale,      // float times c
    Divide,     // float divided by c
};
struct FinishRule {
    Finish kind = Finish::Exact;
    int shift = 0;
    double c = 1.0;
};

namespace plans {

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
constexpr Sum kColumnSmooth3 = S({G(1, {R(0), R(2)}), G(2, {R(1)})});  // (1 2 1)
constexpr Sum kRowSmooth3 = S({G(1, {M(0, 0), M(0, 2)}), G(2, {M(0, 1)})});
constexpr Sum kColumnBelowMinusAbove3 = S({G(1, {R(2), R(0, -1)})});
constexpr Sum kRowLeftMinusRight3 = S({G(1, {M(0, 0), M(0, 2, -1)})});
constexpr Sum kRowRightMinusLeft3 = S({G(1, {M(0, 2), M(0, 0, -1)})});

constexpr Plan kPrewittVert3{3, 1, {kColumnSum3}, kRowLeftMinusRight3};
constexpr Plan kPrewittHoriz3{3, 1, {kColumnBelowMinusAbove3}, kRowSum3};
constexpr Plan kSobelVert3{3, 1, {kColumnSmooth3}, kRowLeftMinusRight3};
constexpr Plan kSobelHoriz3{3, 1, {kColumnBelowMinusAbove3}, kRowSmooth3};
constexpr Plan kScharrVert3{3, 1, {S({G(3, {R(0), R(2)}), G(10, {R(1)})})}, kRowRightMinusLeft3};
constexpr Plan kScharrHoriz3{3, 1, {kColumnBelowMinusAbove3}, S({G(3, {M(0, 0), M(0, 2)}), G(10, {M(0, 1)})})};
constexpr Plan kSobelHorizSecond3{3, 1, {S({G(1, {R(0), R(2)}), G(2, {R(1, -1)})})}, kRowSmooth3};
constexpr Plan kSobelVertSecond3{3, 1, {kColumnSmooth3}, S({G(1, {M(0, 0), M(0, 2)}), G(2, {M(0, 1, -1)})})};
constexpr Plan kSobelCross3{3, 1, {kColumnBelowMinusAbove3}, kRowRightMinusLeft3};
// 8 * centre minus the eight neighbours: mids above+below, column sum, centre.
constexpr Plan kLaplace3{3, 3, {S({G(1, {R(0), R(2)})}), kColumnSum3, S({G(1, {R(1)})})},
                         S({G(8, {M(2, 1)}), G(1, {M(1, 0, -1), M(0, 1, -1), M(1, 2, -1)})})};
// Integer data: the same mask as 9 * centre minus the nine-pixel sum (mids
// column sum and centre), one mid fewer.
constexpr Plan kLaplace3Int{3, 2, {kColumnSum3, S({G(1, {R(1)})})},
                            S({G(9, {M(1, 1)}), G(1, {M(0, 0, -1), M(0, 1, -1), M(0, 2, -1)})})};
constexpr Plan kLowpass3{3, 1, {kColumnSum3}, kRowSum3};
constexpr Plan kGauss3{3, 1, {kColumnSmooth3}, kRowSmooth3};
// 17 * centre minus the nine-pixel sum: mids column sum and centre.
constexpr Plan kSharpen3{3, 2, {kColumnSum3, S({G(1, {R(1)})})},
                         S({G(17, {M(1, 1)}), G(1, {M(0, 0, -1), M(0, 1, -1), M(0, 2, -1)})})};

// ---- 5x5 ---------------------------------------------------------------------
constexpr Sum kColumnSum5 = S({G(1, {R(0), R(1), R(2), R(3), R(4)})});
constexpr Sum kRowSum5 = S({G(1, {M(0, 0), M(0, 1), M(0, 2), M(0, 3), M(0, 4)})});
constexpr Sum kColumnSmooth5 = S({G(6, {R(2)}), G(1, {R(0), R(4)}), G(4, {R(1), R(3)})});  // (1 4 6 4 1)
constexpr Sum kRowSmooth5 = S({G(6, {M(0, 2)}), G(1, {M(0, 0), M(0, 4)}), G(4, {M(0, 1), M(0, 3)})});
constexpr Sum kColumnDerivative5 = S({G(1, {R(4), R(0, -1)}), G(2, {R(3), R(1, -1)})});  // (-1 -2 0 2 1)
constexpr Sum kColumnSecond5 = S({G(1, {R(0), R(4)}), G(2, {R(2, -1)})});                // (1 0 -2 0 1)

constexpr Plan kSobelVert5{5, 1, {kColumnSmooth5}, S({G(2, {M(0, 1), M(0, 3, -1)}), G(1, {M(0, 0), M(0, 4, -1)})})};
constexpr Plan kSobelHoriz5{5, 1, {kColumnDerivative5}, kRowSmooth5};
constexpr Plan kSobelHorizSecond5{5, 1, {kColumnSecond5}, kRowSmooth5};
constexpr Plan kSobelVertSecond5{5, 1, {kColumnSmooth5}, S({G(1, {M(0, 0), M(0, 4)}), G(2, {M(0, 2, -1)})})};
constexpr Plan kSobelCross5{5, 1, {kColumnDerivative5},
                            S({G(1, {M(0, 4), M(0, 0, -1)}), G(2, {M(0, 3), M(0, 1, -1)})})};
// Columns 0 and 4, 1 and 3, and 2 of the mask, then their sum.
constexpr Plan kLaplace5{5, 3,
                         {S({G(1, {R(0, -1), R(4, -1)}), G(3, {R(1, -1), R(3, -1)}), G(4, {R(2, -1)})}),
                          S({G(3, {R(0, -1), R(4, -1)}), G(6, {R(2)})}),
                          S({G(4, {R(0, -1), R(4, -1)}), G(6, {R(1), R(3)}), G(20, {R(2)})})},
                         S({G(1, {M(0, 0), M(0, 4), M(1, 1), M(1, 3), M(2, 2)})})};
// 25 * centre minus the 5x5 sum.
constexpr Plan kHipass5{5, 2, {kColumnSum5, S({G(1, {R(2)})})},
                        S({G(25, {M(1, 2)}), G(1, {M(0, 0, -1), M(0, 1, -1), M(0, 2, -1), M(0, 3, -1), M(0, 4, -1)})})};
constexpr Plan kLowpass5{5, 1, {kColumnSum5}, kRowSum5};
// Integer data: the mask's columns 0 and 4, 1 and 3, and 2, then their sum.
constexpr Plan kGauss5{5, 3,
                       {S({G(2, {R(0), R(4)}), G(7, {R(1), R(3)}), G(12, {R(2)})}),
                        S({G(7, {R(0), R(4)}), G(31, {R(1), R(3)}), G(52, {R(2)})}),
                        S({G(12, {R(0), R(4)}), G(52, {R(1), R(3)}), G(127, {R(2)})})},
                       S({G(1, {M(0, 0), M(0, 4), M(1, 1), M(1, 3), M(2, 2)})})};
// Float data: the pixels of each weight summed (mids: rows 0+4, 1+3, 2),
// each sum times its normalised weight, largest weight first.
constexpr Plan kGauss5Float{
    5, 3, {S({G(1, {R(0), R(4)})}), S({G(1, {R(1), R(3)})}), S({G(1, {R(2)})})},
    S({G(127.0f / 571.0f, {M(2, 2)}), G(52.0f / 571.0f, {M(1, 2), M(2, 1), M(2, 3)}),
       G(31.0f / 571.0f, {M(1, 1), M(1, 3)}), G(12.0f / 571.0f, {M(0, 2), M(2, 0), M(2, 4)}),
       G(7.0f / 571.0f, {M(0, 1), M(0, 3), M(1, 0), M(1, 4)}), G(2.0f / 571.0f, {M(0, 0), M(0, 4)})})};

}  // namespace plans

constexpr const Plan& plan_of(Fixed f, int size, bool floatData) {
    using namespace plans;
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
        case Fixed::Laplace: return five ? kLaplace5 : floatData ? kLaplace3 : kLaplace3Int;
        case Fixed::Hipass: return five ? kHipass5 : floatData ? kLaplace3 : kLaplace3Int;
        case Fixed::Lowpass: return five ? kLowpass5 : kLowpass3;
        case Fixed::Gauss: return five ? (floatData ? kGauss5Float : kGauss5) : kGauss3;
        case Fixed::Sharpen: return kSharpen3;
    }
    return kLaplace3;
}

// Integer data: Gauss 3x3 and Sharpen divide by 16 and 8 with ties to even;
// Lowpass and Gauss 5x5 give the nearest integer to sum / 9, 25 or 571 (odd
// divisors: no ties). Float data: the stated constant factors.
constexpr FinishRule finish_of(Fixed f, int size, bool floatData) {
    const bool five = size == 5;
    switch (f) {
        case Fixed::Lowpass:
            if (floatData) return five ? FinishRule{Finish::Divide, 0, 25.0} : FinishRule{Finish::Scale, 0, double(0.11111111f)};
            return {Finish::Nearest, 0, five ? 1.0 / 25.0 : 1.0 / 9.0};
        case Fixed::Gauss:
            if (five) return floatData ? FinishRule{} : FinishRule{Finish::Nearest, 0, 1.0 / 571.0};
            return floatData ? FinishRule{Finish::Scale, 0, 0.0625} : FinishRule{Finish::ShiftEven, 4, 1.0};
        case Fixed::Sharpen:
            return floatData ? FinishRule{Finish::Scale, 0, 0.125} : FinishRule{Finish::ShiftEven, 3, 1.0};
        default:
            return {};
    }
}

// ---- compile-time analysis of the integer lanes -------------------------------

// A sum with its groups multiplied out and equal inputs merged (integer
// weights); offsets stay in pixels.
constexpr int kMaxFlat = kMaxGroups * kMaxTerms;
struct Flat {
    int n = 0;
    int src[kMaxFlat] = {};
    int off[kMaxFlat] = {};
    int w[kMaxFlat] = {};
};

constexpr Flat flatten(const Sum& s) {
    Flat f;
    for (int g = 0; g < s.n; ++g)
        for (int t = 0; t < s.g[g].n; ++t) {
            const Term& term = s.g[g].t[t];
            int i = 0;
            while (i < f.n && (f.src[i] != term.src || f.off[i] != term.off)) ++i;
            if (i == f.n) {
                f.src[i] = term.src;
                f.off[i] = term.off;
                ++f.n;
            }
            f.w[i] += int(s.g[g].w) * term.sign;
        }
    Flat kept;
    for (int i = 0; i < f.n; ++i)
        if (f.w[i] != 0) {
            kept.src[kept.n] = f.src[i];
            kept.off[kept.n] = f.off[i];
            kept.w[kept.n++] = f.w[i];
        }
    return kept;
}

struct Range {
    long long lo = 0, hi = 0;
};

constexpr Range range_of(const Flat& f, const Range* inputs) {
    Range r;
    for (int i = 0; i < f.n; ++i) {
        const long long a = f.w[i] * inputs[f.src[i]].lo, b = f.w[i] * inputs[f.src[i]].hi;
        r.lo += a < b ? a : b;
        r.hi += a < b ? b : a;
    }
    return r;
}

// The ranges of the mids and of the row-stage value over source samples in
// `sample`.
struct Ranges {
    Range mid[kMaxMids];
    Range row;
};
constexpr Ranges ranges_of(const Plan& p, Range sample) {
    Ranges r;
    Range rows[kMaxRows] = {sample, sample, sample, sample, sample};
    for (int m = 0; m < p.mids; ++m) r.mid[m] = range_of(flatten(p.column[m]), rows);
    r.row = range_of(flatten(p.row), r.mid);
    return r;
}

constexpr int iabs(int v) { return v < 0 ? -v : v; }

// The column stage of an 8-bit source takes rows in pairs, one byte
// multiply-add forming wa * a + wb * b for every mid; a pair's weights keep
// |wa| + |wb| <= 128 (and each within -127..127), so no pair saturates.
struct BytePairs {
    int pairs = 0;
    int a[kMaxRows] = {}, b[kMaxRows] = {};  // b = -1: a alone
    int wa[kMaxMids][kMaxRows] = {}, wb[kMaxMids][kMaxRows] = {};
    int weightSum[kMaxMids] = {};
};

constexpr BytePairs byte_pairs(const Plan& p) {
    int w[kMaxMids][kMaxRows] = {};
    for (int m = 0; m < p.mids; ++m) {
        const Flat c = flatten(p.column[m]);
        for (int i = 0; i < c.n; ++i) w[m][c.src[i]] = c.w[i];
    }
    bool used[kMaxRows] = {};
    for (int j = 0; j < p.size; ++j)
        for (int m = 0; m < p.mids; ++m) used[j] = used[j] || w[m][j] != 0;
    BytePairs bp;
    for (int j = 0; j < p.size; ++j) {
        if (!used[j]) continue;
        int k = j + 1;
        while (k < p.size && !used[k]) ++k;
        bool pair = k < p.size;
        for (int m = 0; pair && m < p.mids; ++m) pair = iabs(w[m][j]) + iabs(w[m][k]) <= 128;
        bp.a[bp.pairs] = j;
        bp.b[bp.pairs] = pair ? k : -1;
        for (int m = 0; m < p.mids; ++m) {
            bp.wa[m][bp.pairs] = w[m][j];
            bp.wb[m][bp.pairs] = pair ? w[m][k] : 0;
        }
        ++bp.pairs;
        if (pair) j = k;
    }
    for (int m = 0; m < p.mids; ++m)
        for (int j = 0; j < p.size; ++j) bp.weightSum[m] += w[m][j];
    return bp;
}

// Whether the plan fits 16-bit mids for 8-bit sources: every mid within
// signed 16 bits, or every mid within unsigned 16 bits.
constexpr bool byte_mids_fit(const Plan& p, bool signedSource) {
    const Ranges r = ranges_of(p, signedSource ? Range{-128, 127} : Range{0, 255});
    bool isSigned = true, isUnsigned = true;
    for (int m = 0; m < p.mids; ++m) {
        isSigned = isSigned && r.mid[m].lo >= -32768 && r.mid[m].hi <= 32767;
        isUnsigned = isUnsigned && r.mid[m].lo >= 0 && r.mid[m].hi <= 65535;
    }
    bool weightsFit = true;
    const BytePairs bp = byte_pairs(p);
    for (int m = 0; m < p.mids; ++m)
        for (int i = 0; i < bp.pairs; ++i)
            weightsFit = weightsFit && iabs(bp.wa[m][i]) <= 127 && iabs(bp.wb[m][i]) <= 127;
    return (isSigned || isUnsigned) && weightsFit;
}

}  // namespace rok::kernels::fixed
