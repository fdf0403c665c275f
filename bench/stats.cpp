// Statistics beside the OpenCV calls that compute the same numbers. `bytes`
// is what each pass reads, so the memcpy bound moves half of it each way.
#include <opencv2/core.hpp>

#include <cmath>
#include <memory>

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
