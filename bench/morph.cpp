// Dilation, erosion and the minimum and maximum filters beside cv::dilate
// and cv::erode. Both sides read real pixels round the ROI: the source is a
// bordered image and each side gets the inner ROI (OpenCV reads outside a
// sub-matrix's ROI where the parent image has pixels), so the outputs agree
// exactly.
#include <opencv2/imgproc.hpp>

#include <vector>

#include "harness.h"

namespace {

using rokbench::Case;

// ours(src, srcStep, dst, dstStep, roi, mask, maskSize, anchor) runs the rokIP
// form; the element is given to both sides as it is.
template <class T, class Ours>
Case morph(int w, int h, int depth, int channels, cv::Mat element, bool dilate, Ours ours) {
    const int mw = element.cols, mh = element.rows, ax = mw / 2, ay = mh / 2;
    const int type = CV_MAKETYPE(depth, channels);
    auto big = std::make_shared<cv::Mat>(rokbench::random_mat(w + mw - 1, h + mh - 1, type));
    auto src = std::make_shared<cv::Mat>((*big)(cv::Rect(ax, ay, w, h)));
    auto mine = std::make_shared<cv::Mat>(h, w, type);
    auto theirs = std::make_shared<cv::Mat>(h, w, type);
    auto mask = std::make_shared<cv::Mat>(element);
    Case c;
    c.rok = [=] {
        ours(src->ptr<T>(), rokbench::step_of(*src), mine->ptr<T>(), rokbench::step_of(*mine), RokiSize{w, h},
             mask->ptr<Rok8u>(), RokiSize{mw, mh}, RokiPoint{ax, ay});
    };
    c.cv = [=] {
        if (dilate)
            cv::dilate(*src, *theirs, *mask, cv::Point(ax, ay));
        else
            cv::erode(*src, *theirs, *mask, cv::Point(ax, ay));
    };
    c.bytes = src->total() * src->elemSize() * 2;
    c.same = [=] {
        c.rok();
        c.cv();
        return rokbench::equal_mats(*mine, *theirs);
    };
    return c;
}

cv::Mat rect(int n) { return cv::getStructuringElement(cv::MORPH_RECT, {n, n}); }

#define SQUARE(f) [](auto s, int ss, auto d, int ds, RokiSize r, const Rok8u*, RokiSize, RokiPoint) { f(s, ss, d, ds, r); }
#define MASK(f) [](auto s, int ss, auto d, int ds, RokiSize r, const Rok8u* m, RokiSize ms, RokiPoint a) { f(s, ss, d, ds, r, m, ms, a); }
#define RECT(f) [](auto s, int ss, auto d, int ds, RokiSize r, const Rok8u*, RokiSize ms, RokiPoint a) { f(s, ss, d, ds, r, ms, a); }

const bool added =
    rokbench::add("Dilate3x3_8u_C1R",
                  [](int w, int h) { return morph<Rok8u>(w, h, CV_8U, 1, rect(3), true, SQUARE(rokiDilate3x3_8u_C1R)); }) &&
    rokbench::add("Erode3x3_8u_C1R",
                  [](int w, int h) { return morph<Rok8u>(w, h, CV_8U, 1, rect(3), false, SQUARE(rokiErode3x3_8u_C1R)); }) &&
    rokbench::add("Dilate3x3_8u_C3R",
                  [](int w, int h) { return morph<Rok8u>(w, h, CV_8U, 3, rect(3), true, SQUARE(rokiDilate3x3_8u_C3R)); }) &&
    rokbench::add("Dilate3x3_32f_C1R",
                  [](int w, int h) { return morph<Rok32f>(w, h, CV_32F, 1, rect(3), true, SQUARE(rokiDilate3x3_32f_C1R)); }) &&
    rokbench::add("Erode3x3_32f_C1R",
                  [](int w, int h) { return morph<Rok32f>(w, h, CV_32F, 1, rect(3), false, SQUARE(rokiErode3x3_32f_C1R)); }) &&
    rokbench::add("Dilate_8u_C1R_cross5x5",
                  [](int w, int h) {
                      return morph<Rok8u>(w, h, CV_8U, 1, cv::getStructuringElement(cv::MORPH_CROSS, {5, 5}), true,
                                          MASK(rokiDilate_8u_C1R));
                  }) &&
    rokbench::add("Erode_8u_C1R_ellipse7x7",
                  [](int w, int h) {
                      return morph<Rok8u>(w, h, CV_8U, 1, cv::getStructuringElement(cv::MORPH_ELLIPSE, {7, 7}), false,
                                          MASK(rokiErode_8u_C1R));
                  }) &&
    rokbench::add("Dilate_32f_C1R_cross5x5",
                  [](int w, int h) {
                      return morph<Rok32f>(w, h, CV_32F, 1, cv::getStructuringElement(cv::MORPH_CROSS, {5, 5}), true,
                                           MASK(rokiDilate_32f_C1R));
                  }) &&
    rokbench::add("Erode_32f_C1R_ellipse7x7",
                  [](int w, int h) {
                      return morph<Rok32f>(w, h, CV_32F, 1, cv::getStructuringElement(cv::MORPH_ELLIPSE, {7, 7}), false,
                                           MASK(rokiErode_32f_C1R));
                  }) &&
    rokbench::add("FilterMin_8u_C1R_3x3",
                  [](int w, int h) { return morph<Rok8u>(w, h, CV_8U, 1, rect(3), false, RECT(rokiFilterMin_8u_C1R)); }) &&
    rokbench::add("FilterMax_8u_C1R_15x15",
                  [](int w, int h) { return morph<Rok8u>(w, h, CV_8U, 1, rect(15), true, RECT(rokiFilterMax_8u_C1R)); }) &&
    rokbench::add("FilterMin_32f_C1R_3x3",
                  [](int w, int h) { return morph<Rok32f>(w, h, CV_32F, 1, rect(3), false, RECT(rokiFilterMin_32f_C1R)); }) &&
    rokbench::add("FilterMax_32f_C1R_15x15",
                  [](int w, int h) { return morph<Rok32f>(w, h, CV_32F, 1, rect(15), true, RECT(rokiFilterMax_32f_C1R)); }) &&
    rokbench::add("FilterMin_8u_C1R_11x11",
                  [](int w, int h) { return morph<Rok8u>(w, h, CV_8U, 1, rect(11), false, RECT(rokiFilterMin_8u_C1R)); }) &&
    rokbench::add("FilterMax_8u_C1R_31x31",
                  [](int w, int h) { return morph<Rok8u>(w, h, CV_8U, 1, rect(31), true, RECT(rokiFilterMax_8u_C1R)); }) &&
    rokbench::add("FilterMin_32f_C1R_31x31",
                  [](int w, int h) { return morph<Rok32f>(w, h, CV_32F, 1, rect(31), false, RECT(rokiFilterMin_32f_C1R)); });

}  // namespace
