// Runs a warp export of any family, sample type and layout on guarded images
// and checks every destination sample against the reference: the pixels
// whose centres lie inside the mapped quadrangle hold the reference value,
// every other sample (and every alpha sample) holds what it held before.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "guarded.h"
#include "random.h"
#include "resize_harness.h"
#include "roki.h"
#include "warp_reference.h"

namespace wtest {

using rtest::Lay;
using rtest::planes_of;
using rtest::samples_of;

using C23 = const double (*)[3];
using C24 = const double (*)[4];
using Q = const double (*)[2];

// One family's exports of one type: the four interleaved layouts, P3, P4.
template <class T, class... A>
struct Fns {
    RokStatus (*i[4])(const T*, RokiSize, int, RokiRect, T*, int, RokiRect, A..., int);
    RokStatus (*p3)(const T* const*, RokiSize, int, RokiRect, T* const*, int, RokiRect, A..., int);
    RokStatus (*p4)(const T* const*, RokiSize, int, RokiRect, T* const*, int, RokiRect, A..., int);

    RokStatus call(Lay l, const T* const* s, RokiSize ss, int sst, RokiRect sr, T* const* d, int dst, RokiRect dr,
                   A... a, int ip) const {
        if (l == Lay::P3) return p3(s, ss, sst, sr, d, dst, dr, a..., ip);
        if (l == Lay::P4) return p4(s, ss, sst, sr, d, dst, dr, a..., ip);
        return i[int(l)](s[0], ss, sst, sr, d[0], dst, dr, a..., ip);
    }
};
#define WT_FNS(FAM, S)                                                                                     \
    {{roki##FAM##_##S##_C1R, roki##FAM##_##S##_C3R, roki##FAM##_##S##_C4R, roki##FAM##_##S##_AC4R},        \
     roki##FAM##_##S##_P3R, roki##FAM##_##S##_P4R}

// The families every warp type has, and those of the types other than 64f.
template <class T>
struct AllTypes {
    Fns<T, C23> affine;
    Fns<T, double, double, double> rotate, rotateCenter;
    Fns<T, double, double, double, double> shear;
};
template <class T>
struct MostTypes {
    Fns<T, C23> affineBack;
    Fns<T, Q, Q> affineQuad, perspQuad, bilinQuad;
    Fns<T, C23> persp, perspBack;
    Fns<T, C24> bilin, bilinBack;
};
#define WT_ALL(S) {WT_FNS(WarpAffine, S), WT_FNS(Rotate, S), WT_FNS(RotateCenter, S), WT_FNS(Shear, S)}
#define WT_MOST(S)                                                                                          \
    {WT_FNS(WarpAffineBack, S), WT_FNS(WarpAffineQuad, S), WT_FNS(WarpPerspectiveQuad, S),                  \
     WT_FNS(WarpBilinearQuad, S), WT_FNS(WarpPerspective, S), WT_FNS(WarpPerspectiveBack, S),               \
     WT_FNS(WarpBilinear, S), WT_FNS(WarpBilinearBack, S)}

// A call as the reference sees it.
struct Case {
    int srcW, srcH;
    wref::Rect srcRoi, dstRoi;
    wref::Transform t;
    int method;  // as passed
    bool smooth = false;
};

inline std::string describe(const Case& c) {
    char buf[200];
    std::snprintf(buf, sizeof buf, "src %dx%d {%d,%d,%d,%d} dst {%d,%d,%d,%d} method %d%s", c.srcW, c.srcH,
                  c.srcRoi.x, c.srcRoi.y, c.srcRoi.w, c.srcRoi.h, c.dstRoi.x, c.dstRoi.y, c.dstRoi.w, c.dstRoi.h,
                  c.method, c.smooth ? " smooth" : "");
    return buf;
}

inline int code_of(const Case& c) { return int(std::uint32_t(c.method) | (c.smooth ? 0x80000000u : 0u)); }

// Images of one call: a random source of srcW x srcH and a destination just
// large enough for dstRoi, filled with a pattern, each plane guarded.
template <class T>
class WarpRun {
public:
    WarpRun(Lay lay, const Case& c, int pad = 0, std::uint32_t seed = 1) : lay_(lay), c_(c) {
        const int np = planes_of(lay), nc = samples_of(lay);
        for (int p = 0; p < np; ++p) {
            src_.push_back(std::make_unique<rokt::GuardedImage<T>>(c.srcW, c.srcH, nc, pad));
            dst_.push_back(std::make_unique<rokt::GuardedImage<T>>(c.dstRoi.x + c.dstRoi.w, c.dstRoi.y + c.dstRoi.h,
                                                                   nc, pad + 1));
            fill(*src_.back(), seed + p);
            fill(*dst_.back(), seed + 100 + p);
            before_.push_back(dst_.back()->bytes());
        }
        for (int p = 0; p < np; ++p) sp_[p] = src_[p]->data(), dp_[p] = dst_[p]->data();
    }

    // fns.call with this run's images and the transform arguments a...
    template <class F, class... A>
    RokStatus run(const F& fns, A... a) {
        const RokiRect sr{c_.srcRoi.x, c_.srcRoi.y, c_.srcRoi.w, c_.srcRoi.h};
        const RokiRect dr{c_.dstRoi.x, c_.dstRoi.y, c_.dstRoi.w, c_.dstRoi.h};
        return fns.call(lay_, sp_, RokiSize{c_.srcW, c_.srcH}, src_[0]->step(), sr, dp_, dst_[0]->step(), dr, a...,
                        code_of(c_));
    }

    bool untouched() const {
        for (std::size_t p = 0; p < dst_.size(); ++p)
            if (dst_[p]->bytes() != before_[p]) return false;
        return true;
    }

    // Checks every destination sample; returns the number of pixels the
    // reference places inside the quadrangle.
    long long check(const std::string& what) const {
        using P = std::conditional_t<std::is_same_v<T, Rok64f>, double, float>;
        const Case& c = c_;
        const int x0 = c.srcRoi.x, y0 = c.srcRoi.y;
        const int x1 = x0 + std::min(c.srcW - x0, c.srcRoi.w) - 1, y1 = y0 + std::min(c.srcH - y0, c.srcRoi.h) - 1;
        const int method = effective_method();
        // The quadrangle of the cut rectangle.
        wref::LD q[4][2];
        const wref::LD corners[4][2] = {{wref::LD(x0), wref::LD(y0)}, {wref::LD(x1), wref::LD(y0)},
                                        {wref::LD(x1), wref::LD(y1)}, {wref::LD(x0), wref::LD(y1)}};
        const wref::Rect box = c.dstRoi;
        for (int k = 0; k < 4; ++k) {
            if (c.t.back)
                wref::solve(c.t, corners[k][0], corners[k][1], box.x, box.y, box.x + box.w - 1, box.y + box.h - 1,
                            &q[k][0], &q[k][1]);
            else
                wref::apply(c.t, corners[k][0], corners[k][1], &q[k][0], &q[k][1]);
        }
        const int nc = samples_of(lay_);
        long long inside = 0, bad = 0;
        for (std::size_t p = 0; p < dst_.size(); ++p) {
            const auto& d = *dst_[p];
            const wref::Image<T> img{src_[p]->data(), src_[p]->step(), nc, x0, y0, x1, y1};
            const auto* old = reinterpret_cast<const T*>(before_[p].data());
            for (int y = 0; y < d.height(); ++y)
                for (int x = 0; x < d.width(); ++x) {
                    const int in = wref::inside(q, x, y, box);
                    const std::size_t at = std::size_t(y) * d.step() / sizeof(T) + std::size_t(x) * nc;
                    const T* got = d.data() + at;
                    const T* was = old + at;
                    P px = 0, py = 0;
                    if (in != 0) {
                        wref::LD sx = NAN, sy = NAN;
                        if (c.t.back)
                            wref::apply(c.t, x, y, &sx, &sy);
                        else
                            wref::solve(c.t, x, y, x0, y0, x1, y1, &sx, &sy);
                        px = std::clamp(P(double(sx)), P(x0), P(x1));
                        py = std::clamp(P(double(sy)), P(y0), P(y1));
                    }
                    inside += in == 1;
                    bool same = true, right = true;
                    std::string why = "written outside the quadrangle";
                    for (int ch = 0; ch < nc; ++ch) {
                        const bool kept = std::memcmp(got + ch, was + ch, sizeof(T)) == 0;
                        same = same && kept;
                        if (lay_ == Lay::AC4 && ch == 3) {
                            if (!kept) right = false, why = "alpha written";
                            continue;
                        }
                        if (in == 0) continue;
                        double slack;
                        double v = wref::value(img, method, px, py, ch, &slack);
                        if (c.smooth) {
                            const double cov = wref::cover(px, py, x0, y0, x1, y1);
                            if (cov < 1) {
                                v = v * cov + double(was[ch]) * (1 - cov);
                                slack += (std::fabs(v) + std::fabs(double(was[ch]))) * 1e-6;
                            }
                        }
                        if (right && !wref::matches(got[ch], v, slack)) {
                            right = false;
                            char buf[160];
                            std::snprintf(buf, sizeof buf, "channel %d at (%.9g, %.9g) got %.9g want %.9g slack %.3g",
                                          ch, double(px), double(py), double(got[ch]), v, slack);
                            why = buf;
                        }
                    }
                    const bool ok = in == 0 ? same : in == 1 ? right : (same || right);
                    if (!ok && bad++ < 5)
                        ADD_FAILURE() << what << " " << describe(c) << ": pixel " << x << "," << y << " (inside "
                                      << in << "): " << why;
                }
        }
        return inside;
    }

    rokt::GuardedImage<T>& src(int p = 0) { return *src_[p]; }
    rokt::GuardedImage<T>& dst(int p = 0) { return *dst_[p]; }

private:
    int effective_method() const {
        if (c_.srcW == 1 || c_.srcH == 1) return 1;
        if (c_.method == 4 && (c_.srcW < 4 || c_.srcH < 4)) return 2;
        return c_.method;
    }

    static void fill(rokt::GuardedImage<T>& img, std::uint32_t seed) {
        if constexpr (std::is_floating_point_v<T>)
            rokt::fill_random(img, seed);
        else
            rokt::fill_random(img, seed, std::numeric_limits<T>::min(), std::numeric_limits<T>::max());
    }

    Lay lay_;
    Case c_;
    std::vector<std::unique_ptr<rokt::GuardedImage<T>>> src_, dst_;
    std::vector<std::vector<std::uint8_t>> before_;
    const T* sp_[4] = {};
    T* dp_[4] = {};
};

}  // namespace wtest
