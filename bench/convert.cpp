// Depth conversion and scaling beside OpenCV convertTo (with and without a
// scale) and memcpy of the same bytes.
#include <opencv2/core.hpp>

#include "harness.h"

namespace {

using rokbench::Case;
using rokbench::roi_of;
using rokbench::step_of;

// A case whose OpenCV side is src.convertTo(dst, dstType, alpha, beta).
template <class Rok>
Case convert_case(int w, int h, int srcType, int dstType, double lo, double hi, double alpha, double beta,
                  double tolerance, Rok rok) {
    auto src = std::make_shared<cv::Mat>(rokbench::random_mat(w, h, srcType, lo, hi));
    auto ours = std::make_shared<cv::Mat>(h, w, dstType);
    auto theirs = std::make_shared<cv::Mat>(h, w, dstType);
    Case c;
    c.rok = [=] { rok(*src, *ours); };
    c.cv = [=] { src->convertTo(*theirs, dstType, alpha, beta); };
    c.bytes = src->total() * src->elemSize() + ours->total() * ours->elemSize();
    c.same = [=, c1 = c.rok, c2 = c.cv] {
        c1();
        c2();
        return rokbench::equal_mats(*ours, *theirs, tolerance);
    };
    return c;
}

#define ROK_ARGS(S, D) s.ptr<S>(), step_of(s), d.ptr<D>(), step_of(d), roi_of(s)

const bool added = [] {
    rokbench::add("Convert_8u32f_C1R", [](int w, int h) {
        return convert_case(w, h, CV_8UC1, CV_32FC1, 0, 256, 1, 0, 0,
                            [](cv::Mat& s, cv::Mat& d) { rokiConvert_8u32f_C1R(ROK_ARGS(Rok8u, Rok32f)); });
    });
    rokbench::add("Convert_8u32f_C3R", [](int w, int h) {
        return convert_case(w, h, CV_8UC3, CV_32FC3, 0, 256, 1, 0, 0, [](cv::Mat& s, cv::Mat& d) {
            rokiConvert_8u32f_C3R(s.ptr<Rok8u>(), step_of(s), d.ptr<Rok32f>(), step_of(d), roi_of(s));
        });
    });
    rokbench::add("Convert_32f8u_C1R", [](int w, int h) {
        return convert_case(w, h, CV_32FC1, CV_8UC1, -20, 280, 1, 0, 0, [](cv::Mat& s, cv::Mat& d) {
            rokiConvert_32f8u_C1R(ROK_ARGS(Rok32f, Rok8u), rokRoundNearestEven);
        });
    });
    rokbench::add("Convert_32f16s_C1R", [](int w, int h) {
        return convert_case(w, h, CV_32FC1, CV_16SC1, -40000, 40000, 1, 0, 0, [](cv::Mat& s, cv::Mat& d) {
            rokiConvert_32f16s_C1R(ROK_ARGS(Rok32f, Rok16s), rokRoundNearestEven);
        });
    });
    rokbench::add("Convert_8u16s_C1R", [](int w, int h) {
        return convert_case(w, h, CV_8UC1, CV_16SC1, 0, 256, 1, 0, 0,
                            [](cv::Mat& s, cv::Mat& d) { rokiConvert_8u16s_C1R(ROK_ARGS(Rok8u, Rok16s)); });
    });
    rokbench::add("Convert_16s32f_C1R", [](int w, int h) {
        return convert_case(w, h, CV_16SC1, CV_32FC1, -32768, 32768, 1, 0, 0,
                            [](cv::Mat& s, cv::Mat& d) { rokiConvert_16s32f_C1R(ROK_ARGS(Rok16s, Rok32f)); });
    });
    rokbench::add("Convert_16u8u_C1R", [](int w, int h) {
        return convert_case(w, h, CV_16UC1, CV_8UC1, 0, 65536, 1, 0, 0,
                            [](cv::Mat& s, cv::Mat& d) { rokiConvert_16u8u_C1R(ROK_ARGS(Rok16u, Rok8u)); });
    });
    rokbench::add("Convert_16s8u_C1R", [](int w, int h) {
        return convert_case(w, h, CV_16SC1, CV_8UC1, -32768, 32768, 1, 0, 0,
                            [](cv::Mat& s, cv::Mat& d) { rokiConvert_16s8u_C1R(ROK_ARGS(Rok16s, Rok8u)); });
    });
    // Scaled: OpenCV's alpha/beta form of the same linear maps.
    rokbench::add("Scale_8u32f_C1R", [](int w, int h) {
        return convert_case(w, h, CV_8UC1, CV_32FC1, 0, 256, 1.0 / 255, 0, 1e-6, [](cv::Mat& s, cv::Mat& d) {
            rokiScale_8u32f_C1R(ROK_ARGS(Rok8u, Rok32f), 0.0f, 1.0f);
        });
    });
    rokbench::add("Scale_32f8u_C1R", [](int w, int h) {
        return convert_case(w, h, CV_32FC1, CV_8UC1, 0, 1, 255, 0, 0, [](cv::Mat& s, cv::Mat& d) {
            rokiScale_32f8u_C1R(ROK_ARGS(Rok32f, Rok8u), 0.0f, 1.0f);
        });
    });
    rokbench::add("Scale_8u16u_C1R", [](int w, int h) {
        return convert_case(w, h, CV_8UC1, CV_16UC1, 0, 256, 257, 0, 0,
                            [](cv::Mat& s, cv::Mat& d) { rokiScale_8u16u_C1R(ROK_ARGS(Rok8u, Rok16u)); });
    });
    rokbench::add("Scale_16u8u_C1R_fast", [](int w, int h) {
        return convert_case(w, h, CV_16UC1, CV_8UC1, 0, 65536, 255.0 / 65535, 0, 1, [](cv::Mat& s, cv::Mat& d) {
            rokiScale_16u8u_C1R(ROK_ARGS(Rok16u, Rok8u), rokHintFast);
        });
    });
    rokbench::add("Scale_16u8u_C1R_accurate", [](int w, int h) {
        return convert_case(w, h, CV_16UC1, CV_8UC1, 0, 65536, 255.0 / 65535, 0, 1, [](cv::Mat& s, cv::Mat& d) {
            rokiScale_16u8u_C1R(ROK_ARGS(Rok16u, Rok8u), rokHintAccurate);
        });
    });
    return true;
}();

}  // namespace
