// Statistics beside the OpenCV calls that compute the same numbers. `bytes`
// is what each pass reads, so the memcpy bound moves half of it each way.
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <array>
#include <cmath>
#include <memory>
#include <type_traits>
#include <vector>

#include "harness.h"

namespace {

using rokbench::Case;
using rokbench::random_mat;
using rokbench::roi_of;
using rokbench::step_of;

// One source (two when `second`), a rok call and a cv call that each return
// the same number (within a relative tolerance: float sums are accumulated in
// different orders).
template <class Rok, class Cv>
Case reduce_case(int w, int h, int type, bool second, double tolerance, Rok rok, Cv cvcall, double lo = 0,
                 double hi = 256) {
    auto a = std::make_shared<cv::Mat>(random_mat(w, h, type, lo, hi));
    auto b = std::make_shared<cv::Mat>(random_mat(w, h, type));
    cv::randu(*b, 0, 256);
    auto sink = std::make_shared<double>(0);
    Case c;
    c.rok = [=] { *sink += rok(*a, *b); };
    c.cv = [=] { *sink += cvcall(*a, *b); };
    c.bytes = (second ? 2 : 1) * a->total() * a->elemSize();
    c.same = [=] {
        const double x = rok(*a, *b), y = cvcall(*a, *b);
        return std::fabs(x - y) <= tolerance * std::fabs(y);
    };
    return c;
}

template <class T>
const T* ptr(const cv::Mat& m) { return m.ptr<T>(); }

const bool sum8 = rokbench::add("Sum_8u_C1R", [](int w, int h) {
    return reduce_case(w, h, CV_8UC1, false, 0,
        [](const cv::Mat& a, const cv::Mat&) { Rok64f s; rokiSum_8u_C1R(ptr<Rok8u>(a), step_of(a), roi_of(a), &s); return s; },
        [](const cv::Mat& a, const cv::Mat&) { return cv::sum(a)[0]; });
});

const bool sum32f = rokbench::add("Sum_32f_C1R", [](int w, int h) {
    return reduce_case(w, h, CV_32FC1, false, 1e-4,
        [](const cv::Mat& a, const cv::Mat&) { Rok64f s; rokiSum_32f_C1R(ptr<Rok32f>(a), step_of(a), roi_of(a), &s, rokHintDefault); return s; },
        [](const cv::Mat& a, const cv::Mat&) { return cv::sum(a)[0]; });
});

const bool mean3 = rokbench::add("Mean_8u_C3R", [](int w, int h) {
    return reduce_case(w, h, CV_8UC3, false, 1e-12,
        [](const cv::Mat& a, const cv::Mat&) { Rok64f m[3]; rokiMean_8u_C3R(ptr<Rok8u>(a), step_of(a), roi_of(a), m); return m[0] + m[1] + m[2]; },
        [](const cv::Mat& a, const cv::Mat&) { const cv::Scalar m = cv::mean(a); return m[0] + m[1] + m[2]; });
});

const bool inf8 = rokbench::add("Norm_Inf_8u_C1R", [](int w, int h) {
    return reduce_case(w, h, CV_8UC1, false, 0,
        [](const cv::Mat& a, const cv::Mat&) { Rok64f n; rokiNorm_Inf_8u_C1R(ptr<Rok8u>(a), step_of(a), roi_of(a), &n); return n; },
        [](const cv::Mat& a, const cv::Mat&) { return cv::norm(a, cv::NORM_INF); });
});

const bool l1_8 = rokbench::add("Norm_L1_8u_C1R", [](int w, int h) {
    return reduce_case(w, h, CV_8UC1, false, 0,
        [](const cv::Mat& a, const cv::Mat&) { Rok64f n; rokiNorm_L1_8u_C1R(ptr<Rok8u>(a), step_of(a), roi_of(a), &n); return n; },
        [](const cv::Mat& a, const cv::Mat&) { return cv::norm(a, cv::NORM_L1); });
});

const bool l2_8 = rokbench::add("Norm_L2_8u_C1R", [](int w, int h) {
    return reduce_case(w, h, CV_8UC1, false, 1e-12,
        [](const cv::Mat& a, const cv::Mat&) { Rok64f n; rokiNorm_L2_8u_C1R(ptr<Rok8u>(a), step_of(a), roi_of(a), &n); return n; },
        [](const cv::Mat& a, const cv::Mat&) { return cv::norm(a, cv::NORM_L2); });
});

// Single-precision accumulation (the default hint) against OpenCV's double.
const bool l2_32f = rokbench::add("Norm_L2_32f_C1R", [](int w, int h) {
    return reduce_case(w, h, CV_32FC1, false, 1e-4,
        [](const cv::Mat& a, const cv::Mat&) { Rok64f n; rokiNorm_L2_32f_C1R(ptr<Rok32f>(a), step_of(a), roi_of(a), &n, rokHintDefault); return n; },
        [](const cv::Mat& a, const cv::Mat&) { return cv::norm(a, cv::NORM_L2); });
});

const bool diff_inf8 = rokbench::add("NormDiff_Inf_8u_C1R", [](int w, int h) {
    return reduce_case(w, h, CV_8UC1, true, 0,
        [](const cv::Mat& a, const cv::Mat& b) { Rok64f n; rokiNormDiff_Inf_8u_C1R(ptr<Rok8u>(a), step_of(a), ptr<Rok8u>(b), step_of(b), roi_of(a), &n); return n; },
        [](const cv::Mat& a, const cv::Mat& b) { return cv::norm(a, b, cv::NORM_INF); });
});

const bool diff_l1_8 = rokbench::add("NormDiff_L1_8u_C1R", [](int w, int h) {
    return reduce_case(w, h, CV_8UC1, true, 0,
        [](const cv::Mat& a, const cv::Mat& b) { Rok64f n; rokiNormDiff_L1_8u_C1R(ptr<Rok8u>(a), step_of(a), ptr<Rok8u>(b), step_of(b), roi_of(a), &n); return n; },
        [](const cv::Mat& a, const cv::Mat& b) { return cv::norm(a, b, cv::NORM_L1); });
});

const bool diff_l2_8 = rokbench::add("NormDiff_L2_8u_C1R", [](int w, int h) {
    return reduce_case(w, h, CV_8UC1, true, 1e-12,
        [](const cv::Mat& a, const cv::Mat& b) { Rok64f n; rokiNormDiff_L2_8u_C1R(ptr<Rok8u>(a), step_of(a), ptr<Rok8u>(b), step_of(b), roi_of(a), &n); return n; },
        [](const cv::Mat& a, const cv::Mat& b) { return cv::norm(a, b, cv::NORM_L2); });
});

const bool dot32f = rokbench::add("DotProd_32f64f_C1R", [](int w, int h) {
    return reduce_case(w, h, CV_32FC1, true, 1e-6,
        [](const cv::Mat& a, const cv::Mat& b) { Rok64f d; rokiDotProd_32f64f_C1R(ptr<Rok32f>(a), step_of(a), ptr<Rok32f>(b), step_of(b), roi_of(a), &d); return d; },
        [](const cv::Mat& a, const cv::Mat& b) { return a.dot(b); });
});

const bool dot8 = rokbench::add("DotProd_8u64f_C1R", [](int w, int h) {
    return reduce_case(w, h, CV_8UC1, true, 0,
        [](const cv::Mat& a, const cv::Mat& b) { Rok64f d; rokiDotProd_8u64f_C1R(ptr<Rok8u>(a), step_of(a), ptr<Rok8u>(b), step_of(b), roi_of(a), &d); return d; },
        [](const cv::Mat& a, const cv::Mat& b) { return a.dot(b); });
});

// minMaxLoc finds both extremes and their positions; so do the two index
// searches together. The comparison folds values and positions into one
// number. The values avoid 0 and 255, where the searches may stop early.
const bool minmaxloc = rokbench::add("MinIndx+MaxIndx_8u_C1R", [](int w, int h) {
    return reduce_case(w, h, CV_8UC1, false, 0,
        [](const cv::Mat& a, const cv::Mat&) {
            Rok8u lo, hi;
            int x0, y0, x1, y1;
            rokiMinIndx_8u_C1R(ptr<Rok8u>(a), step_of(a), roi_of(a), &lo, &x0, &y0);
            rokiMaxIndx_8u_C1R(ptr<Rok8u>(a), step_of(a), roi_of(a), &hi, &x1, &y1);
            return lo + 1e3 * hi + 1e6 * (x0 + 7 * y0 + 11 * x1 + 13 * y1);
        },
        [](const cv::Mat& a, const cv::Mat&) {
            double lo, hi;
            cv::Point p0, p1;
            cv::minMaxLoc(a, &lo, &hi, &p0, &p1);
            return lo + 1e3 * hi + 1e6 * (p0.x + 7 * p0.y + 11 * p1.x + 13 * p1.y);
        },
        1, 255);
});

const bool minmax32f = rokbench::add("MinMax_32f_C1R", [](int w, int h) {
    return reduce_case(w, h, CV_32FC1, false, 0,
        [](const cv::Mat& a, const cv::Mat&) { Rok32f lo, hi; rokiMinMax_32f_C1R(ptr<Rok32f>(a), step_of(a), roi_of(a), &lo, &hi); return double(lo) + 1e3 * hi; },
        [](const cv::Mat& a, const cv::Mat&) { double lo, hi; cv::minMaxLoc(a, &lo, &hi); return lo + 1e3 * hi; });
});

const bool count8 = rokbench::add("CountInRange_8u_C1R", [](int w, int h) {
    return reduce_case(w, h, CV_8UC1, false, 0,
        [](const cv::Mat& a, const cv::Mat&) { int n; rokiCountInRange_8u_C1R(ptr<Rok8u>(a), step_of(a), roi_of(a), &n, 60, 190); return double(n); },
        [](const cv::Mat& a, const cv::Mat&) {
            cv::Mat mask;
            cv::inRange(a, cv::Scalar(60), cv::Scalar(190), mask);
            return double(cv::countNonZero(mask));
        });
});

}  // namespace

// Histograms beside cv::calcHist over [0, 256): 256 bins or 16 bins of 16,
// which rokIP gets as levels 0, 1, ..., 256 or 0, 16, ..., 256. Float data
// lies in [0, 256), where both sides bin identically.
namespace {

RokStatus histogram_range(const Rok8u* s, int ss, RokiSize r, Rok32s* h, const Rok32s* l, int n) {
    return rokiHistogramRange_8u_C1R(s, ss, r, h, l, n);
}
RokStatus histogram_range(const Rok32f* s, int ss, RokiSize r, Rok32s* h, const Rok32f* l, int n) {
    return rokiHistogramRange_32f_C1R(s, ss, r, h, l, n);
}

// A smooth 8-bit image: a diagonal ramp plus noise of +-4, so that
// neighbouring samples repeat a few values (the counting's hard case for
// store-to-load dependencies) unlike uniform random bytes.
cv::Mat smooth_8u(int w, int h) {
    cv::Mat m(h, w, CV_8UC1);
    cv::Mat noise(h, w, CV_8SC1);
    cv::theRNG().state = 7;
    cv::randu(noise, cv::Scalar(-4), cv::Scalar(5));
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            m.at<std::uint8_t>(y, x) =
                cv::saturate_cast<std::uint8_t>((x * 255 / w + y * 255 / h) / 2 + noise.at<std::int8_t>(y, x));
    return m;
}

template <class T, class Level>
Case histogram_case(int w, int h, int cvType, int bins, bool smooth = false) {
    auto src = std::make_shared<cv::Mat>(smooth ? smooth_8u(w, h) : random_mat(w, h, cvType, 0, 256));
    auto levels = std::make_shared<std::vector<Level>>();
    for (int k = 0; k <= bins; ++k) levels->push_back(Level(k * (256 / bins)));
    auto ours = std::make_shared<std::vector<Rok32s>>(std::size_t(bins));
    auto theirs = std::make_shared<cv::Mat>();
    Case c;
    c.rok = [=] { histogram_range(src->ptr<T>(), step_of(*src), roi_of(*src), ours->data(), levels->data(), bins + 1); };
    c.cv = [=] {
        const int channels[] = {0}, sizes[] = {bins};
        const float range[] = {0, 256};
        const float* ranges[] = {range};
        cv::calcHist(src.get(), 1, channels, cv::Mat(), *theirs, 1, sizes, ranges);
    };
    c.bytes = src->total() * src->elemSize();
    c.same = [=] {
        c.rok();
        c.cv();
        for (int k = 0; k < bins; ++k)
            if (double((*ours)[std::size_t(k)]) != double(theirs->at<float>(k))) return false;
        return true;
    };
    return c;
}

const bool hist8 = rokbench::add("HistogramRange_8u_C1R(256 bins)",
                                 [](int w, int h) { return histogram_case<Rok8u, Rok32s>(w, h, CV_8UC1, 256); });
const bool hist8smooth = rokbench::add("HistogramRange_8u_C1R(256 bins, smooth)", [](int w, int h) {
    return histogram_case<Rok8u, Rok32s>(w, h, CV_8UC1, 256, true);
});
const bool hist8x16 = rokbench::add("HistogramRange_8u_C1R(16 bins)",
                                    [](int w, int h) { return histogram_case<Rok8u, Rok32s>(w, h, CV_8UC1, 16); });
const bool hist32 = rokbench::add("HistogramRange_32f_C1R(256 bins)",
                                  [](int w, int h) { return histogram_case<Rok32f, Rok32f>(w, h, CV_32FC1, 256); });
const bool hist32x16 = rokbench::add("HistogramRange_32f_C1R(16 bins)",
                                     [](int w, int h) { return histogram_case<Rok32f, Rok32f>(w, h, CV_32FC1, 16); });

// Raw moments and the Hu invariants beside cv::moments and cv::HuMoments.
// The comparison takes the ten raw moments and the invariants other than
// h5, whose first bracket squares (eta12 + eta03) here.
template <class T>
Case moments_case(int w, int h, int cvType) {
    auto src = std::make_shared<cv::Mat>(random_mat(w, h, cvType, 0, 256));
    auto state = std::shared_ptr<RokiMomentState_64f>(
        [] {
            RokiMomentState_64f* s = nullptr;
            rokiMomentInitAlloc_64f(&s, rokHintDefault);
            return s;
        }(),
        rokiMomentFree_64f);
    auto ours = std::make_shared<std::array<double, 17>>();
    auto theirs = std::make_shared<std::array<double, 17>>();
    Case c;
    c.rok = [=] {
        if constexpr (std::is_same_v<T, Rok8u>) rokiMoments64f_8u_C1R(src->ptr<T>(), step_of(*src), roi_of(*src), state.get());
        else rokiMoments64f_32f_C1R(src->ptr<T>(), step_of(*src), roi_of(*src), state.get());
        rokiGetHuMoments_64f(state.get(), 0, ours->data());
        int i = 7;
        for (int n = 0; n < 4; ++n)
            for (int m = 0; m + n < 4; ++m) rokiGetSpatialMoment_64f(state.get(), m, n, 0, {0, 0}, &(*ours)[std::size_t(i++)]);
    };
    c.cv = [=] {
        const cv::Moments mo = cv::moments(*src);
        cv::HuMoments(mo, theirs->data());
        const double raw[10] = {mo.m00, mo.m10, mo.m20, mo.m30, mo.m01, mo.m11, mo.m21, mo.m02, mo.m12, mo.m03};
        std::copy(raw, raw + 10, theirs->data() + 7);
    };
    c.bytes = src->total() * src->elemSize();
    c.same = [=] {
        c.rok();
        c.cv();
        for (std::size_t i = 0; i < 17; ++i)
            if (i != 4 && std::fabs((*ours)[i] - (*theirs)[i]) > 1e-9 * std::fabs((*theirs)[i])) return false;
        return true;
    };
    return c;
}

const bool moments8 = rokbench::add("Moments64f_8u_C1R+GetHuMoments",
                                    [](int w, int h) { return moments_case<Rok8u>(w, h, CV_8UC1); });
const bool moments32 = rokbench::add("Moments64f_32f_C1R+GetHuMoments",
                                     [](int w, int h) { return moments_case<Rok32f>(w, h, CV_32FC1); });

}  // namespace
