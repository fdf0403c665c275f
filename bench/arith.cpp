// Pixel arithmetic beside the OpenCV calls that do the same work.
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "harness.h"

namespace {

using rokbench::Case;
using rokbench::random_mat;
using rokbench::roi_of;
using rokbench::step_of;

// Two sources and a destination of one type; `rok` and `cv` get the three.
template <class Rok, class Cv>
Case binary_case(int w, int h, int type, double lo, double hi, double tolerance, Rok rok, Cv cvcall) {
    auto a = std::make_shared<cv::Mat>(random_mat(w, h, type, lo, hi));
    auto b = std::make_shared<cv::Mat>(random_mat(w, h, type, lo, hi));
    cv::randu(*b, lo, hi);  // a different fill from a
    auto d1 = std::make_shared<cv::Mat>(h, w, type), d2 = std::make_shared<cv::Mat>(h, w, type);
    Case c;
    c.rok = [=] { rok(*a, *b, *d1); };
    c.cv = [=] { cvcall(*a, *b, *d2); };
    c.bytes = 3 * a->total() * a->elemSize();
    c.same = [=] {
        rok(*a, *b, *d1);
        cvcall(*a, *b, *d2);
        return rokbench::equal_mats(*d1, *d2, tolerance);
    };
    return c;
}

template <class T>
const T* ptr(const cv::Mat& m) { return m.ptr<T>(); }
template <class T>
T* ptr(cv::Mat& m) { return m.ptr<T>(); }

const bool add8 = rokbench::add("Add_8u_C1RSfs", [](int w, int h) {
    return binary_case(w, h, CV_8UC1, 0, 256, 0,
        [](const cv::Mat& a, const cv::Mat& b, cv::Mat& d) {
            rokiAdd_8u_C1RSfs(ptr<Rok8u>(a), step_of(a), ptr<Rok8u>(b), step_of(b), ptr<Rok8u>(d), step_of(d), roi_of(a), 0); },
        [](const cv::Mat& a, const cv::Mat& b, cv::Mat& d) { cv::add(a, b, d); });
});

const bool add8c3 = rokbench::add("Add_8u_C3RSfs", [](int w, int h) {
    return binary_case(w, h, CV_8UC3, 0, 256, 0,
        [](const cv::Mat& a, const cv::Mat& b, cv::Mat& d) {
            rokiAdd_8u_C3RSfs(ptr<Rok8u>(a), step_of(a), ptr<Rok8u>(b), step_of(b), ptr<Rok8u>(d), step_of(d), roi_of(a), 0); },
        [](const cv::Mat& a, const cv::Mat& b, cv::Mat& d) { cv::add(a, b, d); });
});

// Sub subtracts the first image from the second: cv::subtract(b, a).
const bool sub16 = rokbench::add("Sub_16s_C1RSfs", [](int w, int h) {
    return binary_case(w, h, CV_16SC1, -32768, 32768, 0,
        [](const cv::Mat& a, const cv::Mat& b, cv::Mat& d) {
            rokiSub_16s_C1RSfs(ptr<Rok16s>(a), step_of(a), ptr<Rok16s>(b), step_of(b), ptr<Rok16s>(d), step_of(d), roi_of(a), 0); },
        [](const cv::Mat& a, const cv::Mat& b, cv::Mat& d) { cv::subtract(b, a, d); });
});

// Scale factor 1 against scale 0.5: both round the halves to even here, but
// OpenCV goes through floating point, so a difference of 1 is tolerated.
const bool mul8 = rokbench::add("Mul_8u_C1RSfs_sf1", [](int w, int h) {
    return binary_case(w, h, CV_8UC1, 0, 32, 1,
        [](const cv::Mat& a, const cv::Mat& b, cv::Mat& d) {
            rokiMul_8u_C1RSfs(ptr<Rok8u>(a), step_of(a), ptr<Rok8u>(b), step_of(b), ptr<Rok8u>(d), step_of(d), roi_of(a), 1); },
        [](const cv::Mat& a, const cv::Mat& b, cv::Mat& d) { cv::multiply(a, b, d, 0.5); });
});

// Div divides the second image by the first: cv::divide(b, a). Our quotient
// comes from the refined reciprocal estimate, so the last bits may differ.
const bool div32 = rokbench::add("Div_32f_C1R", [](int w, int h) {
    return binary_case(w, h, CV_32FC1, 1, 256, 1e-3,
        [](const cv::Mat& a, const cv::Mat& b, cv::Mat& d) {
            rokiDiv_32f_C1R(ptr<Rok32f>(a), step_of(a), ptr<Rok32f>(b), step_of(b), ptr<Rok32f>(d), step_of(d), roi_of(a)); },
        [](const cv::Mat& a, const cv::Mat& b, cv::Mat& d) { cv::divide(b, a, d); });
});

// Divisors from 1 up: OpenCV writes 0 for a zero divisor where we saturate.
// OpenCV rounds a float quotient, so a difference of 1 at ties is tolerated.
const bool div8 = rokbench::add("Div_8u_C1RSfs", [](int w, int h) {
    return binary_case(w, h, CV_8UC1, 1, 256, 1,
        [](const cv::Mat& a, const cv::Mat& b, cv::Mat& d) {
            rokiDiv_8u_C1RSfs(ptr<Rok8u>(a), step_of(a), ptr<Rok8u>(b), step_of(b), ptr<Rok8u>(d), step_of(d), roi_of(a), 0); },
        [](const cv::Mat& a, const cv::Mat& b, cv::Mat& d) { cv::divide(b, a, d); });
});

// MulScale is p / 255 by an integer rule; OpenCV scales by 1/255 in float.
const bool mulscale8 = rokbench::add("MulScale_8u_C1R", [](int w, int h) {
    return binary_case(w, h, CV_8UC1, 0, 256, 1,
        [](const cv::Mat& a, const cv::Mat& b, cv::Mat& d) {
            rokiMulScale_8u_C1R(ptr<Rok8u>(a), step_of(a), ptr<Rok8u>(b), step_of(b), ptr<Rok8u>(d), step_of(d), roi_of(a)); },
        [](const cv::Mat& a, const cv::Mat& b, cv::Mat& d) { cv::multiply(a, b, d, 1.0 / 255); });
});

// Complex products of interleaved (re, im) floats: cv::mulSpectrums on
// two-channel matrices is the per-element complex product. Rounding of the
// four products and two sums may differ in the last bit.
const bool mul32fc = rokbench::add("Mul_32fc_C1R", [](int w, int h) {
    return binary_case(w, h, CV_32FC2, -100, 100, 1e-2,
        [](const cv::Mat& a, const cv::Mat& b, cv::Mat& d) {
            rokiMul_32fc_C1R(ptr<Rok32fc>(a), step_of(a), ptr<Rok32fc>(b), step_of(b), ptr<Rok32fc>(d), step_of(d), roi_of(a)); },
        [](const cv::Mat& a, const cv::Mat& b, cv::Mat& d) { cv::mulSpectrums(a, b, d, 0); });
});

// Complex quotients, the second image by the first: cv::divSpectrums(b, a).
// Parts from 1 up keep |a|^2 >= 2; ours divides by the refined reciprocal
// estimate, so the last bits may differ.
const bool div32fc = rokbench::add("Div_32fc_C1R", [](int w, int h) {
    return binary_case(w, h, CV_32FC2, 1, 100, 1e-3,
        [](const cv::Mat& a, const cv::Mat& b, cv::Mat& d) {
            rokiDiv_32fc_C1R(ptr<Rok32fc>(a), step_of(a), ptr<Rok32fc>(b), step_of(b), ptr<Rok32fc>(d), step_of(d), roi_of(a)); },
        [](const cv::Mat& a, const cv::Mat& b, cv::Mat& d) { cv::divSpectrums(b, a, d, 0); });
});

template <class Rok, class Cv>
Case constant_case(int w, int h, int type, double lo, double hi, double tolerance, Rok rok, Cv cvcall) {
    auto a = std::make_shared<cv::Mat>(random_mat(w, h, type, lo, hi));
    auto d1 = std::make_shared<cv::Mat>(h, w, type), d2 = std::make_shared<cv::Mat>(h, w, type);
    Case c;
    c.rok = [=] { rok(*a, *d1); };
    c.cv = [=] { cvcall(*a, *d2); };
    c.bytes = 2 * a->total() * a->elemSize();
    c.same = [=] {
        rok(*a, *d1);
        cvcall(*a, *d2);
        return rokbench::equal_mats(*d1, *d2, tolerance);
    };
    return c;
}

const bool mulc32 = rokbench::add("MulC_32f_C3R", [](int w, int h) {
    return constant_case(w, h, CV_32FC3, -1000, 1000, 0,
        [](const cv::Mat& a, cv::Mat& d) {
            const Rok32f v[3] = {1.5f, -0.25f, 3.0f};
            rokiMulC_32f_C3R(ptr<Rok32f>(a), step_of(a), v, ptr<Rok32f>(d), step_of(d), roi_of(a)); },
        [](const cv::Mat& a, cv::Mat& d) { cv::multiply(a, cv::Scalar(1.5, -0.25, 3.0), d); });
});

// OpenCV divides through floating point; ours is exact, so allow 1.
const bool divc16 = rokbench::add("DivC_16s_C1RSfs", [](int w, int h) {
    return constant_case(w, h, CV_16SC1, -32768, 32768, 1,
        [](const cv::Mat& a, cv::Mat& d) {
            rokiDivC_16s_C1RSfs(ptr<Rok16s>(a), step_of(a), 7, ptr<Rok16s>(d), step_of(d), roi_of(a), 0); },
        [](const cv::Mat& a, cv::Mat& d) { cv::divide(a, cv::Scalar(7), d); });
});

}  // namespace
