// Box filter beside cv::boxFilter (normalised, anchor at the centre). Both
// read the real pixels round the inner ROI of a bordered image; OpenCV
// rounds its mean its own way, so results may differ by 1.
#include <opencv2/imgproc.hpp>

#include "harness.h"

namespace {

using rokbench::Case;

Case box(int w, int h, int n) {
    const int a = n / 2;
    auto big = std::make_shared<cv::Mat>(rokbench::random_mat(w + n - 1, h + n - 1, CV_8U));
    auto src = std::make_shared<cv::Mat>((*big)(cv::Rect(a, a, w, h)));
    auto ours = std::make_shared<cv::Mat>(h, w, CV_8U);
    auto theirs = std::make_shared<cv::Mat>(h, w, CV_8U);
    Case c;
    c.rok = [=] {
        rokiFilterBox_8u_C1R(src->ptr<Rok8u>(), rokbench::step_of(*src), ours->ptr<Rok8u>(), rokbench::step_of(*ours),
                             {w, h}, {n, n}, {a, a});
    };
    c.cv = [=] { cv::boxFilter(*src, *theirs, CV_8U, cv::Size(n, n), cv::Point(a, a), true, cv::BORDER_REPLICATE); };
    c.bytes = src->total() + ours->total();
    c.same = [=] {
        c.rok();
        c.cv();
        return rokbench::equal_mats(*ours, *theirs, 1);
    };
    return c;
}

const bool added = rokbench::add("FilterBox_8u_C1R_3x3", [](int w, int h) { return box(w, h, 3); }) &&
                   rokbench::add("FilterBox_8u_C1R_5x5", [](int w, int h) { return box(w, h, 5); }) &&
                   rokbench::add("FilterBox_8u_C1R_11x11", [](int w, int h) { return box(w, h, 11); }) &&
                   rokbench::add("FilterBox_8u_C1R_31x31", [](int w, int h) { return box(w, h, 31); });

}  // namespace
