// Resize beside cv::resize, 2:1 down and 1.5:1 up, on a smooth image (so
// that methods whose kernels differ still land close to each other).
// Pairings, and where the operations differ:
//   nearest   rokInterNearest   / INTER_NEAREST: both take floor-like picks;
//             ties (1.5x up) go to the lower pixel here and may not in
//             OpenCV, so the check compares the columns and rows where both
//             pick the same source pixel.
//   linear    rokInterLinear    / INTER_LINEAR: same positions; OpenCV 8u
//             uses 11-bit fixed-point weights (differences of 1).
//   cubic     rokInterCatmullRom / INTER_CUBIC: both Keys cubics, a = -0.5
//             here and -0.75 in OpenCV.
//   area      rokInterSuper     / INTER_AREA: the 2x2 mean; OpenCV rounds
//             ties up, this rounds them to even (2:1 down only: super-
//             sampling does not enlarge).
//   Lanczos   rokInterLanczos   / INTER_LANCZOS4: radius 3 (6 taps) here,
//             radius 4 (8 taps) in OpenCV.
#include <opencv2/imgproc.hpp>

#include <cmath>
#include <memory>
#include <thread>
#include <vector>

#include "harness.h"
#include "rokcore.h"

namespace {

using rokbench::Case;
using rokbench::smooth_mat;

enum class Kind { Nearest, Linear, Cubic, Area, Lanczos };

int rok_code(Kind k) {
    switch (k) {
        case Kind::Nearest: return rokInterNearest;
        case Kind::Linear: return rokInterLinear;
        case Kind::Cubic: return rokInterCatmullRom;
        case Kind::Area: return rokInterSuper;
        default: return rokInterLanczos;
    }
}
int cv_code(Kind k) {
    switch (k) {
        case Kind::Nearest: return cv::INTER_NEAREST;
        case Kind::Linear: return cv::INTER_LINEAR;
        case Kind::Cubic: return cv::INTER_CUBIC;
        case Kind::Area: return cv::INTER_AREA;
        default: return cv::INTER_LANCZOS4;
    }
}

// Nearest neighbour: compares only the rows and columns where the pick of
// this library (the closer centre, the lower one on a tie) and OpenCV's
// (floor(x * source / destination)) name the same source pixel.
bool nearest_agrees(const cv::Mat& ours, const cv::Mat& theirs, int srcW, int srcH) {
    auto same = [](int n, int srcN) {
        std::vector<bool> v;
        v.resize(std::size_t(n));
        const double inv = double(srcN) / n;
        for (int i = 0; i < n; ++i) {
            const long long mine = std::min<long long>(srcN - 1, (long long)std::ceil((i + 0.5) * inv - 1.0));
            const long long cvs = std::min<long long>(srcN - 1, (long long)std::floor(i * inv));
            v[std::size_t(i)] = mine == cvs;
        }
        return v;
    };
    const auto cols = same(ours.cols, srcW), rows = same(ours.rows, srcH);
    const std::size_t pixel = ours.elemSize();
    for (int y = 0; y < ours.rows; ++y) {
        if (!rows[std::size_t(y)]) continue;
        for (int x = 0; x < ours.cols; ++x)
            if (cols[std::size_t(x)] && std::memcmp(ours.ptr(y) + x * pixel, theirs.ptr(y) + x * pixel, pixel) != 0)
                return false;
    }
    return true;
}

template <class T>
Case resize_case(int w, int h, int cvType, Kind kind, double factor) {
    auto src = std::make_shared<cv::Mat>(smooth_mat(w, h, cvType));
    const int dw = int(std::lround(w * factor)), dh = int(std::lround(h * factor));
    auto ours = std::make_shared<cv::Mat>(dh, dw, cvType, cv::Scalar::all(0));
    auto theirs = std::make_shared<cv::Mat>(dh, dw, cvType, cv::Scalar::all(0));
    const int nc = CV_MAT_CN(cvType);
    const RokiRect srcRoi{0, 0, w, h}, dstRoi{0, 0, dw, dh};
    // The buffer for every thread the machine has: the cases run at 1 and
    // at all threads.
    int size = 0;
    rokSetNumThreads(int(std::max(1u, std::thread::hardware_concurrency())));
    if (sizeof(T) == 8)
        rokiResizeGetBufSize_64f(srcRoi, dstRoi, Rok32u(nc), rok_code(kind), &size);
    else
        rokiResizeGetBufSize(srcRoi, dstRoi, Rok32u(nc), rok_code(kind), &size);
    auto buffer = std::make_shared<std::vector<Rok8u>>(std::size_t(size));
    Case c;
    c.rok = [=] {
        const T* s = src->ptr<T>();
        T* d = ours->ptr<T>();
        const int ss = rokbench::step_of(*src), ds = rokbench::step_of(*ours), code = rok_code(kind);
        if constexpr (std::is_same_v<T, Rok8u>) {
            if (nc == 1)
                rokiResizeSqrPixel_8u_C1R(s, {w, h}, ss, srcRoi, d, ds, dstRoi, factor, factor, 0, 0, code,
                                          buffer->data());
            else
                rokiResizeSqrPixel_8u_C3R(s, {w, h}, ss, srcRoi, d, ds, dstRoi, factor, factor, 0, 0, code,
                                          buffer->data());
        } else {
            rokiResizeSqrPixel_32f_C1R(s, {w, h}, ss, srcRoi, d, ds, dstRoi, factor, factor, 0, 0, code,
                                       buffer->data());
        }
    };
    c.cv = [=] { cv::resize(*src, *theirs, cv::Size(dw, dh), 0, 0, cv_code(kind)); };
    c.bytes = src->total() * src->elemSize() + ours->total() * ours->elemSize();
    c.same = [=] {
        c.rok();
        c.cv();
        if (kind == Kind::Nearest) return nearest_agrees(*ours, *theirs, w, h);
        const bool bytes = CV_MAT_DEPTH(cvType) == CV_8U;
        const double tolerance = (kind == Kind::Linear || kind == Kind::Area) ? (bytes ? 1.0 : 1e-3) : 3.0;
        return rokbench::equal_mats(*ours, *theirs, tolerance);
    };
    return c;
}

bool add_all() {
    struct Type {
        const char* name;
        int cvType;
    };
    const Type types[] = {{"8u_C1R", CV_8UC1}, {"8u_C3R", CV_8UC3}, {"32f_C1R", CV_32FC1}};
    const std::pair<Kind, const char*> kinds[] = {{Kind::Nearest, "nearest"},
                                                  {Kind::Linear, "linear"},
                                                  {Kind::Cubic, "cubic"},
                                                  {Kind::Area, "area"},
                                                  {Kind::Lanczos, "lanczos"}};
    for (const auto& [kind, kname] : kinds)
        for (const Type& t : types)
            for (double factor : {0.5, 1.5}) {
                if (kind == Kind::Area && factor > 1) continue;
                const std::string name = std::string("ResizeSqrPixel_") + t.name + "_" + kname +
                                         (factor < 1 ? "_down2" : "_up1.5");
                const int cvType = t.cvType;
                const Kind k = kind;
                rokbench::add(name, [=](int w, int h) {
                    return CV_MAT_DEPTH(cvType) == CV_8U ? resize_case<Rok8u>(w, h, cvType, k, factor)
                                                         : resize_case<Rok32f>(w, h, cvType, k, factor);
                });
            }
    return true;
}

const bool added = add_all();

}  // namespace
