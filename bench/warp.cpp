// Warps and remap beside cv::warpAffine, cv::warpPerspective, cv::remap and
// cv::rotate, on a smooth image (so that kernels that differ still land
// close to each other). Pairings, and where the operations differ:
//   rotation  rokiWarpAffine with the matrix of cv::getRotationMatrix2D (10
//             degrees about the centre) / cv::warpAffine with the same
//             matrix. OpenCV fills the corners outside the rotated image with
//             0 and quantises positions to 1/32 pixel; this library leaves
//             them and keeps the positions in float. The check compares the
//             pixels well inside the rotated image.
//   nearest   rokInterNearest / INTER_NEAREST: ties may pick the other pixel.
//   linear    rokInterLinear / INTER_LINEAR (8u: 14-bit against 5-bit
//             fractions).
//   cubic     rokInterCatmullRom / INTER_CUBIC (a = -0.5 against -0.75).
//   perspective rokiWarpPerspective / cv::warpPerspective, linear.
//   remap     rokiRemap / cv::remap with two float maps of a mild lens
//             distortion inside the image (linear and cubic as above).
//   rotate 90 rokiRotate by 90 degrees with whole shifts (the exact path) /
//             cv::rotate(ROTATE_90_COUNTERCLOCKWISE): the same pixels.
#include <opencv2/imgproc.hpp>

#include <cmath>
#include <memory>

#include "harness.h"

namespace {

using rokbench::Case;
using rokbench::smooth_mat;

enum class Kind { Nearest, Linear, Cubic };

// A coefficient array that lambdas capture by value.
template <int R, int C>
struct Coeffs {
    double c[R][C];
};

int rok_code(Kind k) { return k == Kind::Nearest ? rokInterNearest : k == Kind::Linear ? rokInterLinear : rokInterCatmullRom; }
int cv_code(Kind k) { return k == Kind::Nearest ? cv::INTER_NEAREST : k == Kind::Linear ? cv::INTER_LINEAR : cv::INTER_CUBIC; }
double tolerance(Kind k, bool bytes) {
    return k == Kind::Nearest ? 8 : bytes ? (k == Kind::Linear ? 2 : 4) : (k == Kind::Linear ? 0.3 : 4);
}

// The pixels of the middle half of both images agree within the tolerance.
bool middles_agree(const cv::Mat& a, const cv::Mat& b, double tolerance) {
    const cv::Rect r(a.cols / 4, a.rows / 4, a.cols / 2, a.rows / 2);
    return rokbench::equal_mats(a(r), b(r), tolerance);
}

// Calls the export of the image's type and channels.
template <class F8C1, class F8C3, class F32>
void by_type(const cv::Mat& m, F8C1 f8c1, F8C3 f8c3, F32 f32) {
    if (m.type() == CV_8UC1) f8c1();
    else if (m.type() == CV_8UC3) f8c3();
    else f32();
}

Case affine_case(int w, int h, int cvType, Kind kind) {
    auto src = std::make_shared<cv::Mat>(smooth_mat(w, h, cvType));
    auto ours = std::make_shared<cv::Mat>(h, w, cvType, cv::Scalar::all(0));
    auto theirs = std::make_shared<cv::Mat>(h, w, cvType, cv::Scalar::all(0));
    const cv::Mat m = cv::getRotationMatrix2D(cv::Point2f(w / 2.0f, h / 2.0f), 10, 1);
    Coeffs<2, 3> coeffs;
    for (int r = 0; r < 2; ++r)
        for (int k = 0; k < 3; ++k) coeffs.c[r][k] = m.at<double>(r, k);
    Case c;
    c.rok = [=] {
        const RokiRect roi{0, 0, w, h};
        const int ss = rokbench::step_of(*src), ds = rokbench::step_of(*ours), code = rok_code(kind);
        by_type(
            *src, [&] { rokiWarpAffine_8u_C1R(src->ptr<Rok8u>(), {w, h}, ss, roi, ours->ptr<Rok8u>(), ds, roi, coeffs.c, code); },
            [&] { rokiWarpAffine_8u_C3R(src->ptr<Rok8u>(), {w, h}, ss, roi, ours->ptr<Rok8u>(), ds, roi, coeffs.c, code); },
            [&] { rokiWarpAffine_32f_C1R(src->ptr<Rok32f>(), {w, h}, ss, roi, ours->ptr<Rok32f>(), ds, roi, coeffs.c, code); });
    };
    c.cv = [=] { cv::warpAffine(*src, *theirs, m, theirs->size(), cv_code(kind)); };
    c.bytes = 2 * src->total() * src->elemSize();
    c.same = [=] {
        c.rok();
        c.cv();
        return middles_agree(*ours, *theirs, tolerance(kind, CV_MAT_DEPTH(cvType) == CV_8U));
    };
    return c;
}

Case perspective_case(int w, int h, int cvType) {
    auto src = std::make_shared<cv::Mat>(smooth_mat(w, h, cvType));
    auto ours = std::make_shared<cv::Mat>(h, w, cvType, cv::Scalar::all(0));
    auto theirs = std::make_shared<cv::Mat>(h, w, cvType, cv::Scalar::all(0));
    // The image's corners pulled in a little, unevenly.
    const cv::Point2f from[4] = {{0, 0}, {float(w - 1), 0}, {float(w - 1), float(h - 1)}, {0, float(h - 1)}};
    const cv::Point2f to[4] = {{0.05f * w, 0.02f * h}, {0.97f * w, 0.08f * h}, {0.9f * w, 0.95f * h}, {0.02f * w, 0.9f * h}};
    const cv::Mat m = cv::getPerspectiveTransform(from, to);
    Coeffs<3, 3> coeffs;
    for (int r = 0; r < 3; ++r)
        for (int k = 0; k < 3; ++k) coeffs.c[r][k] = m.at<double>(r, k);
    Case c;
    c.rok = [=] {
        const RokiRect roi{0, 0, w, h};
        const int ss = rokbench::step_of(*src), ds = rokbench::step_of(*ours);
        by_type(
            *src, [&] { rokiWarpPerspective_8u_C1R(src->ptr<Rok8u>(), {w, h}, ss, roi, ours->ptr<Rok8u>(), ds, roi, coeffs.c, rokInterLinear); },
            [&] { rokiWarpPerspective_8u_C3R(src->ptr<Rok8u>(), {w, h}, ss, roi, ours->ptr<Rok8u>(), ds, roi, coeffs.c, rokInterLinear); },
            [&] { rokiWarpPerspective_32f_C1R(src->ptr<Rok32f>(), {w, h}, ss, roi, ours->ptr<Rok32f>(), ds, roi, coeffs.c, rokInterLinear); });
    };
    c.cv = [=] { cv::warpPerspective(*src, *theirs, m, theirs->size(), cv::INTER_LINEAR); };
    c.bytes = 2 * src->total() * src->elemSize();
    c.same = [=] {
        c.rok();
        c.cv();
        return middles_agree(*ours, *theirs, tolerance(Kind::Linear, CV_MAT_DEPTH(cvType) == CV_8U));
    };
    return c;
}

Case remap_case(int w, int h, int cvType, Kind kind) {
    auto src = std::make_shared<cv::Mat>(smooth_mat(w, h, cvType));
    auto ours = std::make_shared<cv::Mat>(h, w, cvType, cv::Scalar::all(0));
    auto theirs = std::make_shared<cv::Mat>(h, w, cvType, cv::Scalar::all(0));
    auto xmap = std::make_shared<cv::Mat>(h, w, CV_32FC1), ymap = std::make_shared<cv::Mat>(h, w, CV_32FC1);
    // A barrel distortion that stays inside the image.
    const double cx = (w - 1) / 2.0, cy = (h - 1) / 2.0, r2 = cx * cx + cy * cy;
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const double dx = x - cx, dy = y - cy, k = 0.9 + 0.1 * (dx * dx + dy * dy) / r2;
            xmap->at<float>(y, x) = float(cx + dx * k);
            ymap->at<float>(y, x) = float(cy + dy * k);
        }
    Case c;
    c.rok = [=] {
        const int ss = rokbench::step_of(*src), ds = rokbench::step_of(*ours), ms = rokbench::step_of(*xmap);
        const RokiRect roi{0, 0, w, h};
        const int code = rok_code(kind);
        const float *xs = xmap->ptr<float>(), *ys = ymap->ptr<float>();
        by_type(
            *src, [&] { rokiRemap_8u_C1R(src->ptr<Rok8u>(), {w, h}, ss, roi, xs, ms, ys, ms, ours->ptr<Rok8u>(), ds, {w, h}, code); },
            [&] { rokiRemap_8u_C3R(src->ptr<Rok8u>(), {w, h}, ss, roi, xs, ms, ys, ms, ours->ptr<Rok8u>(), ds, {w, h}, code); },
            [&] { rokiRemap_32f_C1R(src->ptr<Rok32f>(), {w, h}, ss, roi, xs, ms, ys, ms, ours->ptr<Rok32f>(), ds, {w, h}, code); });
    };
    c.cv = [=] { cv::remap(*src, *theirs, *xmap, *ymap, cv_code(kind)); };
    c.bytes = 2 * src->total() * src->elemSize() + 2 * xmap->total() * sizeof(float);
    c.same = [=] {
        c.rok();
        c.cv();
        return middles_agree(*ours, *theirs, tolerance(kind, CV_MAT_DEPTH(cvType) == CV_8U));
    };
    return c;
}

Case rotate90_case(int w, int h, int cvType) {
    auto src = std::make_shared<cv::Mat>(rokbench::random_mat(w, h, cvType));
    auto ours = std::make_shared<cv::Mat>(w, h, cvType, cv::Scalar::all(0));
    auto theirs = std::make_shared<cv::Mat>(w, h, cvType, cv::Scalar::all(0));
    Case c;
    c.rok = [=] {
        // x' = y, y' = w - 1 - x: the source's top row becomes the left column.
        const int ss = rokbench::step_of(*src), ds = rokbench::step_of(*ours);
        const RokiRect sr{0, 0, w, h}, dr{0, 0, h, w};
        by_type(
            *src, [&] { rokiRotate_8u_C1R(src->ptr<Rok8u>(), {w, h}, ss, sr, ours->ptr<Rok8u>(), ds, dr, 90, 0, w - 1, rokInterLinear); },
            [&] { rokiRotate_8u_C3R(src->ptr<Rok8u>(), {w, h}, ss, sr, ours->ptr<Rok8u>(), ds, dr, 90, 0, w - 1, rokInterLinear); },
            [&] { rokiRotate_32f_C1R(src->ptr<Rok32f>(), {w, h}, ss, sr, ours->ptr<Rok32f>(), ds, dr, 90, 0, w - 1, rokInterLinear); });
    };
    c.cv = [=] { cv::rotate(*src, *theirs, cv::ROTATE_90_COUNTERCLOCKWISE); };
    c.bytes = 2 * src->total() * src->elemSize();
    c.same = [=] {
        c.rok();
        c.cv();
        return rokbench::equal_mats(*ours, *theirs, 0);
    };
    return c;
}

bool add_all() {
    const std::pair<const char*, int> types[] = {{"8u_C1R", CV_8UC1}, {"8u_C3R", CV_8UC3}, {"32f_C1R", CV_32FC1}};
    const std::pair<Kind, const char*> kinds[] = {{Kind::Nearest, "nearest"}, {Kind::Linear, "linear"}, {Kind::Cubic, "cubic"}};
    for (const auto& [type, cvType] : types) {
        const int t = cvType;
        for (const auto& [kind, kname] : kinds) {
            const Kind k = kind;
            rokbench::add(std::string("WarpAffine_") + type + "_rotate10_" + kname,
                          [=](int w, int h) { return affine_case(w, h, t, k); });
            if (k != Kind::Nearest)
                rokbench::add(std::string("Remap_") + type + "_" + kname, [=](int w, int h) { return remap_case(w, h, t, k); });
        }
        rokbench::add(std::string("WarpPerspective_") + type + "_linear", [=](int w, int h) { return perspective_case(w, h, t); });
        rokbench::add(std::string("Rotate_") + type + "_90", [=](int w, int h) { return rotate90_case(w, h, t); });
    }
    return true;
}

const bool added = add_all();

}  // namespace
