// Compare, threshold, logic, shifts, unary math and alpha premultiplication
// beside the OpenCV calls that do the same work. OpenCV has no image shifts:
// those cases time OpenCV's copy of the same image in the cv column and check
// our result against the shift written out, so only the memcpy ratio means
// anything there.
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <cstring>
#include <memory>

#include "harness.h"

namespace {

using rokbench::Case;
using rokbench::random_mat;
using rokbench::roi_of;
using rokbench::step_of;

template <class T>
const T* ptr(const cv::Mat& m) { return m.ptr<T>(); }
template <class T>
T* ptr(cv::Mat& m) { return m.ptr<T>(); }

// One source (values lo..hi), one destination of type dstType for each side;
// `bytes` counts the source and the destination.
template <class Rok, class Cv>
Case unary_case(int w, int h, int type, double lo, double hi, int dstType, double tolerance, Rok rok, Cv cvcall) {
    auto a = std::make_shared<cv::Mat>(random_mat(w, h, type, lo, hi));
    auto d1 = std::make_shared<cv::Mat>(h, w, dstType), d2 = std::make_shared<cv::Mat>(h, w, dstType);
    Case c;
    c.rok = [=] { rok(*a, *d1); };
    c.cv = [=] { cvcall(*a, *d2); };
    c.bytes = a->total() * a->elemSize() + d1->total() * d1->elemSize();
    c.same = [=] {
        rok(*a, *d1);
        cvcall(*a, *d2);
        return rokbench::equal_mats(*d1, *d2, tolerance);
    };
    return c;
}

// Two sources, one destination of type dstType.
template <class Rok, class Cv>
Case binary_case(int w, int h, int type, double lo, double hi, int dstType, Rok rok, Cv cvcall) {
    auto a = std::make_shared<cv::Mat>(random_mat(w, h, type, lo, hi));
    auto b = std::make_shared<cv::Mat>(h, w, type);
    cv::randu(*b, lo, hi);
    auto d1 = std::make_shared<cv::Mat>(h, w, dstType), d2 = std::make_shared<cv::Mat>(h, w, dstType);
    Case c;
    c.rok = [=] { rok(*a, *b, *d1); };
    c.cv = [=] { cvcall(*a, *b, *d2); };
    c.bytes = 2 * a->total() * a->elemSize() + d1->total() * d1->elemSize();
    c.same = [=] {
        rok(*a, *b, *d1);
        cvcall(*a, *b, *d2);
        return rokbench::equal_mats(*d1, *d2, 0);
    };
    return c;
}

// ---- compare ---------------------------------------------------------------

const bool cmp8 = rokbench::add("Compare_8u_C1R_lt", [](int w, int h) {
    return binary_case(w, h, CV_8UC1, 0, 256, CV_8UC1,
        [](const cv::Mat& a, const cv::Mat& b, cv::Mat& d) {
            rokiCompare_8u_C1R(ptr<Rok8u>(a), step_of(a), ptr<Rok8u>(b), step_of(b), ptr<Rok8u>(d), step_of(d), roi_of(a), rokCompareLess); },
        [](const cv::Mat& a, const cv::Mat& b, cv::Mat& d) { cv::compare(a, b, d, cv::CMP_LT); });
});

const bool cmp32 = rokbench::add("Compare_32f_C1R_ge", [](int w, int h) {
    return binary_case(w, h, CV_32FC1, -10, 10, CV_8UC1,
        [](const cv::Mat& a, const cv::Mat& b, cv::Mat& d) {
            rokiCompare_32f_C1R(ptr<Rok32f>(a), step_of(a), ptr<Rok32f>(b), step_of(b), ptr<Rok8u>(d), step_of(d), roi_of(a), rokCompareGreaterEq); },
        [](const cv::Mat& a, const cv::Mat& b, cv::Mat& d) { cv::compare(a, b, d, cv::CMP_GE); });
});

const bool cmpc16 = rokbench::add("CompareC_16s_C1R_eq", [](int w, int h) {
    return unary_case(w, h, CV_16SC1, -4, 4, CV_8UC1, 0,
        [](const cv::Mat& a, cv::Mat& d) {
            rokiCompareC_16s_C1R(ptr<Rok16s>(a), step_of(a), 1, ptr<Rok8u>(d), step_of(d), roi_of(a), rokCompareEq); },
        [](const cv::Mat& a, cv::Mat& d) { cv::compare(a, cv::Scalar(1), d, cv::CMP_EQ); });
});

// ---- threshold -------------------------------------------------------------

// THRESH_TRUNC: values above the threshold become it.
const bool trunc8 = rokbench::add("Threshold_GT_8u_C1R_trunc", [](int w, int h) {
    return unary_case(w, h, CV_8UC1, 0, 256, CV_8UC1, 0,
        [](const cv::Mat& a, cv::Mat& d) {
            rokiThreshold_GT_8u_C1R(ptr<Rok8u>(a), step_of(a), ptr<Rok8u>(d), step_of(d), roi_of(a), 100); },
        [](const cv::Mat& a, cv::Mat& d) { cv::threshold(a, d, 100, 255, cv::THRESH_TRUNC); });
});

// The threaded 16u member, cmpOp 4 (greater): THRESH_TRUNC.
const bool trunc16 = rokbench::add("Threshold_16u_C1R_trunc", [](int w, int h) {
    return unary_case(w, h, CV_16UC1, 0, 65536, CV_16UC1, 0,
        [](const cv::Mat& a, cv::Mat& d) {
            rokiThreshold_16u_C1R(ptr<Rok16u>(a), step_of(a), ptr<Rok16u>(d), step_of(d), roi_of(a), 30000, rokCompareGreater); },
        [](const cv::Mat& a, cv::Mat& d) { cv::threshold(a, d, 30000, 65535, cv::THRESH_TRUNC); });
});

// THRESH_TOZERO: values at or below the threshold become 0, which for
// integers is LTVal with threshold + 1.
const bool tozero8 = rokbench::add("Threshold_LTVal_8u_C1R_tozero", [](int w, int h) {
    return unary_case(w, h, CV_8UC1, 0, 256, CV_8UC1, 0,
        [](const cv::Mat& a, cv::Mat& d) {
            rokiThreshold_LTVal_8u_C1R(ptr<Rok8u>(a), step_of(a), ptr<Rok8u>(d), step_of(d), roi_of(a), 101, 0); },
        [](const cv::Mat& a, cv::Mat& d) { cv::threshold(a, d, 100, 255, cv::THRESH_TOZERO); });
});

// THRESH_BINARY on floats: 0 below the threshold, 1 above (random floats
// never equal it, where LTValGTVal would keep the sample).
const bool binary32 = rokbench::add("Threshold_LTValGTVal_32f_C1R_binary", [](int w, int h) {
    return unary_case(w, h, CV_32FC1, -1, 1, CV_32FC1, 0,
        [](const cv::Mat& a, cv::Mat& d) {
            rokiThreshold_LTValGTVal_32f_C1R(ptr<Rok32f>(a), step_of(a), ptr<Rok32f>(d), step_of(d), roi_of(a), 0.25f, 0.0f, 0.25f, 1.0f); },
        [](const cv::Mat& a, cv::Mat& d) { cv::threshold(a, d, 0.25, 1.0, cv::THRESH_BINARY); });
});

// Otsu's level and the binary image it gives (255 above the level).
const bool otsu8 = rokbench::add("ComputeThreshold_Otsu_8u_C1R_binary", [](int w, int h) {
    auto rok = [](const cv::Mat& a, cv::Mat& d) {
        Rok8u level = 0;
        rokiComputeThreshold_Otsu_8u_C1R(ptr<Rok8u>(a), step_of(a), roi_of(a), &level);
        rokiCompareC_8u_C1R(ptr<Rok8u>(a), step_of(a), level, ptr<Rok8u>(d), step_of(d), roi_of(a), rokCompareGreater);
    };
    auto cvcall = [](const cv::Mat& a, cv::Mat& d) { cv::threshold(a, d, 0, 255, cv::THRESH_BINARY | cv::THRESH_OTSU); };
    return unary_case(w, h, CV_8UC1, 0, 256, CV_8UC1, 0, rok, cvcall);
});

// ---- logic -----------------------------------------------------------------

const bool and8 = rokbench::add("And_8u_C1R", [](int w, int h) {
    return binary_case(w, h, CV_8UC1, 0, 256, CV_8UC1,
        [](const cv::Mat& a, const cv::Mat& b, cv::Mat& d) {
            rokiAnd_8u_C1R(ptr<Rok8u>(a), step_of(a), ptr<Rok8u>(b), step_of(b), ptr<Rok8u>(d), step_of(d), roi_of(a)); },
        [](const cv::Mat& a, const cv::Mat& b, cv::Mat& d) { cv::bitwise_and(a, b, d); });
});

const bool xor8c3 = rokbench::add("Xor_8u_C3R", [](int w, int h) {
    return binary_case(w, h, CV_8UC3, 0, 256, CV_8UC3,
        [](const cv::Mat& a, const cv::Mat& b, cv::Mat& d) {
            rokiXor_8u_C3R(ptr<Rok8u>(a), step_of(a), ptr<Rok8u>(b), step_of(b), ptr<Rok8u>(d), step_of(d), roi_of(a)); },
        [](const cv::Mat& a, const cv::Mat& b, cv::Mat& d) { cv::bitwise_xor(a, b, d); });
});

const bool andc8c3 = rokbench::add("AndC_8u_C3R", [](int w, int h) {
    return unary_case(w, h, CV_8UC3, 0, 256, CV_8UC3, 0,
        [](const cv::Mat& a, cv::Mat& d) {
            const Rok8u v[3] = {0x0F, 0xF0, 0x3C};
            rokiAndC_8u_C3R(ptr<Rok8u>(a), step_of(a), v, ptr<Rok8u>(d), step_of(d), roi_of(a)); },
        [](const cv::Mat& a, cv::Mat& d) { cv::bitwise_and(a, cv::Scalar(0x0F, 0xF0, 0x3C), d); });
});

const bool not8 = rokbench::add("Not_8u_C1R", [](int w, int h) {
    return unary_case(w, h, CV_8UC1, 0, 256, CV_8UC1, 0,
        [](const cv::Mat& a, cv::Mat& d) { rokiNot_8u_C1R(ptr<Rok8u>(a), step_of(a), ptr<Rok8u>(d), step_of(d), roi_of(a)); },
        [](const cv::Mat& a, cv::Mat& d) { cv::bitwise_not(a, d); });
});

// ---- shifts (cv column: OpenCV's copy of the same image) ---------------------

template <class T, class Rok, class Want>
Case shift_case(int w, int h, int type, Rok rok, Want want) {
    auto a = std::make_shared<cv::Mat>(random_mat(w, h, type, 0, type == CV_8UC1 ? 256 : 65536));
    auto d1 = std::make_shared<cv::Mat>(h, w, type), d2 = std::make_shared<cv::Mat>(h, w, type);
    Case c;
    c.rok = [=] { rok(*a, *d1); };
    c.cv = [=] { a->copyTo(*d2); };
    c.bytes = 2 * a->total() * a->elemSize();
    c.same = [=] {
        rok(*a, *d1);
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x)
                if (d1->at<T>(y, x) != want(a->at<T>(y, x))) return false;
        return true;
    };
    return c;
}

const bool lshift8 = rokbench::add("LShiftC_8u_C1R_vs_copy", [](int w, int h) {
    return shift_case<Rok8u>(w, h, CV_8UC1,
        [](const cv::Mat& a, cv::Mat& d) { rokiLShiftC_8u_C1R(ptr<Rok8u>(a), step_of(a), 3, ptr<Rok8u>(d), step_of(d), roi_of(a)); },
        [](Rok8u x) { return Rok8u(x << 3); });
});

const bool rshift16 = rokbench::add("RShiftC_16u_C1R_vs_copy", [](int w, int h) {
    return shift_case<Rok16u>(w, h, CV_16UC1,
        [](const cv::Mat& a, cv::Mat& d) { rokiRShiftC_16u_C1R(ptr<Rok16u>(a), step_of(a), 5, ptr<Rok16u>(d), step_of(d), roi_of(a)); },
        [](Rok16u x) { return Rok16u(x >> 5); });
});

// ---- unary math -------------------------------------------------------------

const bool abs16 = rokbench::add("Abs_16s_C1R", [](int w, int h) {
    return unary_case(w, h, CV_16SC1, -32768, 32768, CV_16SC1, 0,
        [](const cv::Mat& a, cv::Mat& d) { rokiAbs_16s_C1R(ptr<Rok16s>(a), step_of(a), ptr<Rok16s>(d), step_of(d), roi_of(a)); },
        [](const cv::Mat& a, cv::Mat& d) { d = cv::abs(a); });
});

const bool sqrt32 = rokbench::add("Sqrt_32f_C1R", [](int w, int h) {
    return unary_case(w, h, CV_32FC1, 0, 1000, CV_32FC1, 0,
        [](const cv::Mat& a, cv::Mat& d) { rokiSqrt_32f_C1R(ptr<Rok32f>(a), step_of(a), ptr<Rok32f>(d), step_of(d), roi_of(a)); },
        [](const cv::Mat& a, cv::Mat& d) { cv::sqrt(a, d); });
});

// Both are approximations: values up to 7 agree within 1e-5.
const bool ln32 = rokbench::add("Ln_32f_C1R", [](int w, int h) {
    return unary_case(w, h, CV_32FC1, 0.01, 1000, CV_32FC1, 1e-5,
        [](const cv::Mat& a, cv::Mat& d) { rokiLn_32f_C1R(ptr<Rok32f>(a), step_of(a), ptr<Rok32f>(d), step_of(d), roi_of(a)); },
        [](const cv::Mat& a, cv::Mat& d) { cv::log(a, d); });
});

// Values up to e^5 = 148 agree within 1e-4.
const bool exp32 = rokbench::add("Exp_32f_C1R", [](int w, int h) {
    return unary_case(w, h, CV_32FC1, -5, 5, CV_32FC1, 1e-4,
        [](const cv::Mat& a, cv::Mat& d) { rokiExp_32f_C1R(ptr<Rok32f>(a), step_of(a), ptr<Rok32f>(d), step_of(d), roi_of(a)); },
        [](const cv::Mat& a, cv::Mat& d) { cv::exp(a, d); });
});

// ---- alpha premultiplication ------------------------------------------------

// OpenCV rounds c * a / 255 to nearest; ours is the (t + 1 + (t >> 8)) >> 8
// rule, which differs by at most 1.
const bool premul8 = rokbench::add("AlphaPremul_8u_AC4R", [](int w, int h) {
    return unary_case(w, h, CV_8UC4, 0, 256, CV_8UC4, 1,
        [](const cv::Mat& a, cv::Mat& d) { rokiAlphaPremul_8u_AC4R(ptr<Rok8u>(a), step_of(a), ptr<Rok8u>(d), step_of(d), roi_of(a)); },
        [](const cv::Mat& a, cv::Mat& d) { cv::cvtColor(a, d, cv::COLOR_RGBA2mRGBA); });
});

}  // namespace
