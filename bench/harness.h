// Side-by-side cases: each registers rokIP, OpenCV and memcpy timings of the
// same work under one name, at the standard sizes and thread counts.
#pragma once

#include <opencv2/core.hpp>

#include <cstddef>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "roki.h"

namespace rokbench {

// One case at one size. rok and cv do the same work on images the case owns;
// `bytes` counts every byte read and written, and the memcpy bound copies
// half of it (memcpy reads and writes each byte it moves). `same` runs both
// once and tells whether their outputs agree, so a fast wrong kernel cannot
// produce a figure.
struct Case {
    std::function<void()> rok;
    std::function<void()> cv;
    std::size_t bytes = 0;
    std::function<bool()> same;
};

using CaseFactory = std::function<Case(int width, int height)>;

struct Size {
    int width, height;
};

// Registers <name>/<W>x<H>/t<threads>/{rok,cv,memcpy} for each size (by
// default 1920x1080 and 3840x2160) at 1 thread and at every processor.
void register_case(const std::string& name, CaseFactory make, std::vector<Size> sizes = {});

// Registers at file scope: static const bool added = rokbench::add("Add_8u_C1RSfs", factory);
inline bool add(const std::string& name, CaseFactory make, std::vector<Size> sizes = {}) {
    register_case(name, std::move(make), std::move(sizes));
    return true;
}

// Mat with a random fill of its whole range (fixed seed).
cv::Mat random_mat(int width, int height, int cvType, double lo = 0, double hi = 256);

// 8u or 32f Mat of a smooth pattern (sums of sines, 0..255): interpolating
// work sees realistic neighbours rather than noise.
cv::Mat smooth_mat(int width, int height, int cvType);

// Whether two images agree sample for sample within `tolerance`.
bool equal_mats(const cv::Mat& a, const cv::Mat& b, double tolerance = 0);

inline RokiSize roi_of(const cv::Mat& m) { return RokiSize{m.cols, m.rows}; }
inline int step_of(const cv::Mat& m) { return int(m.step[0]); }

}  // namespace rokbench
