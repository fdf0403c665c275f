// Fixed-kernel filters beside OpenCV. Both sides filter the inner ROI of a
// bordered image, reading the real pixels round it (OpenCV reads outside a
// sub-matrix where the parent image has pixels). Where OpenCV's operation
// is the same mask (Sobel, Scharr, 3x3 Gauss) the outputs are compared
// directly, with our vertical Sobel being OpenCV's x derivative negated;
// where its mask differs (Laplacian, the 5x5 Gauss) it is timed as the
// comparable operation and our output is checked against cv::filter2D with
// our mask instead.
#include <opencv2/imgproc.hpp>

#include <functional>
#include <vector>

#include "harness.h"

namespace {

using rokbench::Case;

constexpr int kBorder = 2;

struct Images {
    cv::Mat big, src, ours, theirs;
};

std::shared_ptr<Images> images(int w, int h, int srcType, int dstType) {
    auto m = std::make_shared<Images>();
    m->big = rokbench::random_mat(w + 2 * kBorder, h + 2 * kBorder, srcType);
    m->src = m->big(cv::Rect(kBorder, kBorder, w, h));
    m->ours = cv::Mat(h, w, dstType);
    m->theirs = cv::Mat(h, w, dstType);
    return m;
}

template <class S, class D>
using Ours = std::function<RokStatus(const S*, int, D*, int, RokiSize)>;

// `cv` is the comparable OpenCV call; `check` produces from m->src what our
// output must equal within `tolerance` (by default the cv output, negated
// when `negate`).
template <class S, class D>
Case fixed(int w, int h, int srcType, int dstType, Ours<S, D> ours, std::function<void(Images&)> cv,
           double tolerance, bool negate = false, std::function<void(Images&)> check = nullptr) {
    auto m = images(w, h, srcType, dstType);
    Case c;
    c.rok = [=] {
        ours(m->src.ptr<S>(), rokbench::step_of(m->src), m->ours.ptr<D>(), rokbench::step_of(m->ours), {w, h});
    };
    c.cv = [=] { cv(*m); };
    c.bytes = m->src.total() * m->src.elemSize() + m->ours.total() * m->ours.elemSize();
    c.same = [=] {
        c.rok();
        if (check) check(*m);
        else c.cv();
        cv::Mat want = negate ? cv::Mat(-m->theirs) : m->theirs;
        return rokbench::equal_mats(m->ours, want, tolerance);
    };
    return c;
}

// cv::filter2D with our neighbourhood mask (correlation, not flipped) over
// the bordered parent, into m.theirs.
std::function<void(Images&)> with_mask(std::vector<float> mask, int size, int ddepth) {
    return [=](Images& m) {
        cv::Mat k(size, size, CV_32F, const_cast<float*>(mask.data()));
        cv::filter2D(m.src, m.theirs, ddepth, k.clone(), cv::Point(-1, -1), 0, cv::BORDER_REPLICATE);
    };
}

std::vector<float> scaled(std::vector<float> v, float d) {
    for (float& x : v) x /= d;
    return v;
}

const std::vector<float> kLaplace3 = {-1, -1, -1, -1, 8, -1, -1, -1, -1};
const std::vector<float> kGauss5 = {2,  7,  12, 7,  2,  7,  31, 52, 31, 7,  12, 52, 127,
                                    52, 12, 7,  31, 52, 31, 7,  2,  7,  12, 7,  2};

#define OURS(S, D, call) Ours<S, D>([](const S* s, int ss, D* d, int ds, RokiSize r) { return call; })

const bool added =
    rokbench::add("FilterSobelVert_8u16s_C1R_3x3",
                  [](int w, int h) {
                      return fixed<Rok8u, Rok16s>(
                          w, h, CV_8U, CV_16S, OURS(Rok8u, Rok16s, rokiFilterSobelVert_8u16s_C1R(s, ss, d, ds, r, 33)),
                          [](Images& m) { cv::Sobel(m.src, m.theirs, CV_16S, 1, 0, 3); }, 0, true);
                  }) &&
    rokbench::add("FilterSobelHoriz_8u16s_C1R_3x3",
                  [](int w, int h) {
                      return fixed<Rok8u, Rok16s>(
                          w, h, CV_8U, CV_16S, OURS(Rok8u, Rok16s, rokiFilterSobelHoriz_8u16s_C1R(s, ss, d, ds, r, 33)),
                          [](Images& m) { cv::Sobel(m.src, m.theirs, CV_16S, 0, 1, 3); }, 0);
                  }) &&
    rokbench::add("FilterSobelVert_32f_C1R_3x3",
                  [](int w, int h) {
                      return fixed<Rok32f, Rok32f>(
                          w, h, CV_32F, CV_32F, OURS(Rok32f, Rok32f, rokiFilterSobelVert_32f_C1R(s, ss, d, ds, r)),
                          [](Images& m) { cv::Sobel(m.src, m.theirs, CV_32F, 1, 0, 3); }, 1e-3, true);
                  }) &&
    rokbench::add("FilterSobelHoriz_32f_C1R_3x3",
                  [](int w, int h) {
                      return fixed<Rok32f, Rok32f>(
                          w, h, CV_32F, CV_32F, OURS(Rok32f, Rok32f, rokiFilterSobelHoriz_32f_C1R(s, ss, d, ds, r)),
                          [](Images& m) { cv::Sobel(m.src, m.theirs, CV_32F, 0, 1, 3); }, 1e-3);
                  }) &&
    rokbench::add("FilterScharrVert_8u16s_C1R",
                  [](int w, int h) {
                      return fixed<Rok8u, Rok16s>(
                          w, h, CV_8U, CV_16S, OURS(Rok8u, Rok16s, rokiFilterScharrVert_8u16s_C1R(s, ss, d, ds, r)),
                          [](Images& m) { cv::Scharr(m.src, m.theirs, CV_16S, 1, 0); }, 0);
                  }) &&
    rokbench::add("FilterLaplace_8u16s_C1R_3x3",
                  [](int w, int h) {
                      return fixed<Rok8u, Rok16s>(
                          w, h, CV_8U, CV_16S, OURS(Rok8u, Rok16s, rokiFilterLaplace_8u16s_C1R(s, ss, d, ds, r, 33)),
                          [](Images& m) { cv::Laplacian(m.src, m.theirs, CV_16S, 3); }, 0, false,
                          with_mask(kLaplace3, 3, CV_16S));
                  }) &&
    rokbench::add("FilterGauss_8u_C1R_3x3",
                  [](int w, int h) {
                      return fixed<Rok8u, Rok8u>(
                          w, h, CV_8U, CV_8U, OURS(Rok8u, Rok8u, rokiFilterGauss_8u_C1R(s, ss, d, ds, r, 33)),
                          [](Images& m) { cv::GaussianBlur(m.src, m.theirs, cv::Size(3, 3), 0); }, 1);
                  }) &&
    rokbench::add("FilterGauss_8u_C1R_5x5",
                  [](int w, int h) {
                      return fixed<Rok8u, Rok8u>(
                          w, h, CV_8U, CV_8U, OURS(Rok8u, Rok8u, rokiFilterGauss_8u_C1R(s, ss, d, ds, r, 55)),
                          [](Images& m) { cv::GaussianBlur(m.src, m.theirs, cv::Size(5, 5), 0); }, 1, false,
                          with_mask(scaled(kGauss5, 571), 5, CV_8U));
                  });

}  // namespace
