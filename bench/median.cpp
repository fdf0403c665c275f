// Median filters beside cv::medianBlur. Our source is the inner ROI of a
// bordered image (the caller supplies the border); OpenCV builds its own
// replicated border, so the two agree on every pixel whose neighbourhood
// lies inside the ROI, which is what `same` compares.
#include <opencv2/imgproc.hpp>

#include "harness.h"

namespace {

using rokbench::Case;

template <int Channels>
Case median_blur(int w, int h, int k) {
    const int r = k / 2;
    auto big = std::make_shared<cv::Mat>(rokbench::random_mat(w + k - 1, h + k - 1, CV_8UC(Channels)));
    auto src = std::make_shared<cv::Mat>((*big)(cv::Rect(r, r, w, h)));
    auto ours = std::make_shared<cv::Mat>(h, w, CV_8UC(Channels));
    auto theirs = std::make_shared<cv::Mat>(h, w, CV_8UC(Channels));
    Case c;
    c.rok = [=] {
        auto fn = Channels == 1 ? rokiFilterMedian_8u_C1R : rokiFilterMedian_8u_C3R;
        fn(src->ptr<Rok8u>(), rokbench::step_of(*src), ours->ptr<Rok8u>(), rokbench::step_of(*ours), {w, h}, {k, k},
           {r, r});
    };
    c.cv = [=] { cv::medianBlur(*src, *theirs, k); };
    c.bytes = src->total() * src->elemSize() * 2;
    c.same = [=] {
        c.rok();
        c.cv();
        const cv::Rect inner(r, r, w - 2 * r, h - 2 * r);
        return rokbench::equal_mats((*ours)(inner), (*theirs)(inner));
    };
    return c;
}

const bool added = [] {
    rokbench::add("FilterMedian_8u_C1R_3x3", [](int w, int h) { return median_blur<1>(w, h, 3); });
    rokbench::add("FilterMedian_8u_C1R_5x5", [](int w, int h) { return median_blur<1>(w, h, 5); });
    rokbench::add("FilterMedian_8u_C1R_7x7", [](int w, int h) { return median_blur<1>(w, h, 7); });
    rokbench::add("FilterMedian_8u_C3R_3x3", [](int w, int h) { return median_blur<3>(w, h, 3); });
    rokbench::add("FilterMedian_8u_C3R_5x5", [](int w, int h) { return median_blur<3>(w, h, 5); });
    return true;
}();

}  // namespace
