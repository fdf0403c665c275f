// Border extension and general linear filters beside OpenCV. The filters
// read real pixels round the ROI on both sides: the source is a bordered
// image and each side gets the inner ROI (OpenCV reads outside a
// sub-matrix's ROI where the parent image has pixels). OpenCV's filter2D
// correlates, so it gets the kernel flipped; it rounds its own way, so 8u
// results may differ by 1.
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <vector>

#include "harness.h"

namespace {

using rokbench::Case;

constexpr int kBorder = 4;

Case replicate_border(int w, int h) {
    auto src = std::make_shared<cv::Mat>(rokbench::random_mat(w, h, CV_8UC1));
    auto ours = std::make_shared<cv::Mat>(h + 2 * kBorder, w + 2 * kBorder, CV_8UC1);
    auto theirs = std::make_shared<cv::Mat>(h + 2 * kBorder, w + 2 * kBorder, CV_8UC1);
    Case c;
    c.rok = [=] {
        rokiCopyReplicateBorder_8u_C1R(src->ptr<Rok8u>(), rokbench::step_of(*src), rokbench::roi_of(*src),
                                       ours->ptr<Rok8u>(), rokbench::step_of(*ours), rokbench::roi_of(*ours), kBorder,
                                       kBorder);
    };
    c.cv = [=] { cv::copyMakeBorder(*src, *theirs, kBorder, kBorder, kBorder, kBorder, cv::BORDER_REPLICATE); };
    c.bytes = src->total() + ours->total();
    c.same = [=] {
        c.rok();
        c.cv();
        return rokbench::equal_mats(*ours, *theirs);
    };
    return c;
}

// A smoothing kernel of size n x n (integer weights from a binomial row,
// divisor their sum), deliberately asymmetric in one coefficient so that a
// missing flip would show.
std::vector<int> binomial(int n) {
    std::vector<int> row(std::size_t(n), 1);
    for (int i = 1; i < n; ++i)
        for (int j = i - 1; j > 0; --j) row[std::size_t(j)] += row[std::size_t(j - 1)];
    return row;
}

template <int Depth>
Case filter2d(int w, int h, int n) {
    using T = std::conditional_t<Depth == CV_8U, Rok8u, Rok32f>;
    const int a = n / 2;
    auto big = std::make_shared<cv::Mat>(rokbench::random_mat(w + n - 1, h + n - 1, Depth));
    auto src = std::make_shared<cv::Mat>((*big)(cv::Rect(a, a, w, h)));
    auto ours = std::make_shared<cv::Mat>(h, w, Depth);
    auto theirs = std::make_shared<cv::Mat>(h, w, Depth);
    const std::vector<int> row = binomial(n);
    auto ik = std::make_shared<std::vector<Rok32s>>();
    auto fk = std::make_shared<std::vector<Rok32f>>();
    int sum = 0;
    for (int j = 0; j < n; ++j)
        for (int i = 0; i < n; ++i) {
            int v = row[std::size_t(i)] * row[std::size_t(j)];
            if (i == n - 1 && j == 0) v += 1;  // asymmetric
            ik->push_back(v);
            sum += v;
        }
    for (Rok32s v : *ik) fk->push_back(Rok32f(v) / Rok32f(sum));
    cv::Mat flipped(n, n, CV_32F);
    for (int j = 0; j < n; ++j)
        for (int i = 0; i < n; ++i) flipped.at<float>(n - 1 - j, n - 1 - i) = (*fk)[std::size_t(j * n + i)];
    auto cvKernel = std::make_shared<cv::Mat>(flipped);
    Case c;
    c.rok = [=] {
        const T* s = src->ptr<T>();
        if constexpr (Depth == CV_8U)
            rokiFilter_8u_C1R(s, rokbench::step_of(*src), ours->ptr<T>(), rokbench::step_of(*ours), {w, h}, ik->data(),
                              {n, n}, {a, a}, sum);
        else
            rokiFilter_32f_C1R(s, rokbench::step_of(*src), ours->ptr<T>(), rokbench::step_of(*ours), {w, h}, fk->data(),
                               {n, n}, {a, a});
    };
    c.cv = [=] { cv::filter2D(*src, *theirs, Depth, *cvKernel, cv::Point(a, a), 0, cv::BORDER_REPLICATE); };
    c.bytes = src->total() * src->elemSize() + ours->total() * ours->elemSize();
    c.same = [=] {
        c.rok();
        c.cv();
        return rokbench::equal_mats(*ours, *theirs, Depth == CV_8U ? 1.0 : 1e-3);
    };
    return c;
}

// Seven-tap separable smoothing of 32f data: our column filter into a
// temporary as wide as the neighbourhood, then the row filter, in bands of
// 32 rows so that the temporary stays in the cache (as sepFilter2D keeps its
// own rows), against sepFilter2D.
Case separable7(int w, int h) {
    constexpr int n = 7, a = 3, band = 32;
    auto big = std::make_shared<cv::Mat>(rokbench::random_mat(w + n - 1, h + n - 1, CV_32F));
    auto src = std::make_shared<cv::Mat>((*big)(cv::Rect(a, a, w, h)));
    auto tmp = std::make_shared<cv::Mat>(band, w + n - 1, CV_32F);
    auto ours = std::make_shared<cv::Mat>(h, w, CV_32F);
    auto theirs = std::make_shared<cv::Mat>(h, w, CV_32F);
    auto k = std::make_shared<std::vector<Rok32f>>(std::vector<Rok32f>{1, 6, 15, 20, 15, 6, 1});
    for (Rok32f& v : *k) v /= 64.0f;
    (*k)[0] += 0.01f;  // asymmetric
    auto flipped = std::make_shared<cv::Mat>(1, n, CV_32F);
    for (int i = 0; i < n; ++i) flipped->at<float>(0, i) = (*k)[std::size_t(n - 1 - i)];
    Case c;
    c.rok = [=] {
        for (int y = 0; y < h; y += band) {
            const int rows = std::min(band, h - y);
            const Rok32f* left = big->ptr<Rok32f>(a + y);
            rokiFilterColumn_32f_C1R(left, rokbench::step_of(*big), tmp->ptr<Rok32f>(), rokbench::step_of(*tmp),
                                     {w + n - 1, rows}, k->data(), n, a);
            rokiFilterRow_32f_C1R(tmp->ptr<Rok32f>() + a, rokbench::step_of(*tmp), ours->ptr<Rok32f>(y),
                                  rokbench::step_of(*ours), {w, rows}, k->data(), n, a);
        }
    };
    c.cv = [=] {
        cv::sepFilter2D(*src, *theirs, CV_32F, *flipped, *flipped, cv::Point(a, a), 0, cv::BORDER_REPLICATE);
    };
    c.bytes = src->total() * 4 * 2;
    c.same = [=] {
        c.rok();
        c.cv();
        return rokbench::equal_mats(*ours, *theirs, 1e-3);
    };
    return c;
}

const bool added = rokbench::add("CopyReplicateBorder_8u_C1R", replicate_border) &&
                   rokbench::add("Filter_8u_C1R_3x3", [](int w, int h) { return filter2d<CV_8U>(w, h, 3); }) &&
                   rokbench::add("Filter_8u_C1R_5x5", [](int w, int h) { return filter2d<CV_8U>(w, h, 5); }) &&
                   rokbench::add("Filter_32f_C1R_3x3", [](int w, int h) { return filter2d<CV_32F>(w, h, 3); }) &&
                   rokbench::add("Filter_32f_C1R_5x5", [](int w, int h) { return filter2d<CV_32F>(w, h, 5); }) &&
                   rokbench::add("FilterColumnRow_32f_C1R_7", separable7);

}  // namespace
