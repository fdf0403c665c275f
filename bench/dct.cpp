// Cosine transforms beside cv::dct: 8x8 blocks over a 1920x1080 image (the
// image held as consecutive 64-sample blocks, as a block codec keeps its
// coefficients, each block transformed by one call on both sides) and the
// general transform of a whole image. The 16s blocks have no OpenCV
// counterpart; their "cv" side is a plain double-precision loop of the
// definition, rounded, as the scale reference. Outputs are compared within
// 1e-4 of the largest magnitude (floats) or 1 (16s).
#include <opencv2/core.hpp>

#include <cmath>
#include <memory>
#include <thread>
#include <vector>

#include "harness.h"
#include "rokcore.h"

namespace {

using rokbench::Case;

bool close(const cv::Mat& ours, const cv::Mat& theirs, double rel) {
    const double scale = cv::norm(theirs, cv::NORM_INF);
    return ours.size() == theirs.size() && cv::norm(ours, theirs, cv::NORM_INF) <= rel * scale;
}

Case blocks_32f(int w, int h) {
    const int blocks = (w / 8) * (h / 8);
    auto src = std::make_shared<cv::Mat>(rokbench::random_mat(64, blocks, CV_32F, -128, 128));
    auto ours = std::make_shared<cv::Mat>(blocks, 64, CV_32F), theirs = std::make_shared<cv::Mat>(blocks, 64, CV_32F);
    Case c;
    c.rok = [=] {
        for (int b = 0; b < blocks; ++b) rokiDCT8x8Fwd_32f_C1(src->ptr<Rok32f>(b), ours->ptr<Rok32f>(b));
    };
    c.cv = [=] {
        for (int b = 0; b < blocks; ++b) {
            const cv::Mat in(8, 8, CV_32F, src->ptr<float>(b));
            cv::Mat out(8, 8, CV_32F, theirs->ptr<float>(b));
            cv::dct(in, out);
        }
    };
    c.bytes = 2 * src->total() * sizeof(float);
    c.same = [=] {
        c.rok();
        c.cv();
        return close(*ours, *theirs, 1e-5);
    };
    return c;
}

Case blocks_16s(int w, int h) {
    const int blocks = (w / 8) * (h / 8);
    auto src = std::make_shared<cv::Mat>(rokbench::random_mat(64, blocks, CV_16S, -256, 256));
    auto ours = std::make_shared<cv::Mat>(blocks, 64, CV_16S), theirs = std::make_shared<cv::Mat>(blocks, 64, CV_16S);
    auto cosines = std::make_shared<std::vector<double>>(64);
    for (int u = 0; u < 8; ++u)
        for (int x = 0; x < 8; ++x)
            (*cosines)[u * 8 + x] = (u ? 0.5 : std::sqrt(0.125)) * std::cos((2 * x + 1) * u * M_PI / 16);
    Case c;
    c.rok = [=] {
        for (int b = 0; b < blocks; ++b) rokiDCT8x8Fwd_16s_C1(src->ptr<Rok16s>(b), ours->ptr<Rok16s>(b));
    };
    c.cv = [=] {
        const double* k = cosines->data();
        for (int b = 0; b < blocks; ++b) {
            const short* f = src->ptr<short>(b);
            short* out = theirs->ptr<short>(b);
            double t[64];
            for (int y = 0; y < 8; ++y)
                for (int u = 0; u < 8; ++u) {
                    double s = 0;
                    for (int x = 0; x < 8; ++x) s += f[y * 8 + x] * k[u * 8 + x];
                    t[y * 8 + u] = s;
                }
            for (int v = 0; v < 8; ++v)
                for (int u = 0; u < 8; ++u) {
                    double s = 0;
                    for (int y = 0; y < 8; ++y) s += t[y * 8 + u] * k[v * 8 + y];
                    out[v * 8 + u] = cv::saturate_cast<short>(std::nearbyint(s));
                }
        }
    };
    c.bytes = 2 * src->total() * sizeof(short);
    c.same = [=] {
        c.rok();
        c.cv();
        return cv::norm(*ours, *theirs, cv::NORM_INF) <= 1;
    };
    return c;
}

template <bool Forward>
Case general(int w, int h) {
    struct Spec {
        RokiDCTFwdSpec_32f* fwd = nullptr;
        RokiDCTInvSpec_32f* inv = nullptr;
        std::vector<Rok8u> buffer;
        ~Spec() {
            if (fwd) rokiDCTFwdFree_32f(fwd);
            if (inv) rokiDCTInvFree_32f(inv);
        }
    };
    int saved = 1;
    rokGetNumThreads(&saved);
    rokSetNumThreads(int(std::thread::hardware_concurrency()));
    auto spec = std::make_shared<Spec>();
    int size = 0;
    if (Forward) {
        rokiDCTFwdInitAlloc_32f(&spec->fwd, RokiSize{w, h}, 0);
        rokiDCTFwdGetBufSize_32f(spec->fwd, &size);
    } else {
        rokiDCTInvInitAlloc_32f(&spec->inv, RokiSize{w, h}, 0);
        rokiDCTInvGetBufSize_32f(spec->inv, &size);
    }
    rokSetNumThreads(saved);
    spec->buffer.resize(std::size_t(size));
    auto src = std::make_shared<cv::Mat>(rokbench::random_mat(w, h, CV_32F, -1, 1));
    auto ours = std::make_shared<cv::Mat>(h, w, CV_32F), theirs = std::make_shared<cv::Mat>(h, w, CV_32F);
    Case c;
    c.rok = [=] {
        if (Forward)
            rokiDCTFwd_32f_C1R(src->ptr<Rok32f>(), rokbench::step_of(*src), ours->ptr<Rok32f>(),
                               rokbench::step_of(*ours), spec->fwd, spec->buffer.data());
        else
            rokiDCTInv_32f_C1R(src->ptr<Rok32f>(), rokbench::step_of(*src), ours->ptr<Rok32f>(),
                               rokbench::step_of(*ours), spec->inv, spec->buffer.data());
    };
    c.cv = [=] { cv::dct(*src, *theirs, Forward ? 0 : cv::DCT_INVERSE); };
    c.bytes = 2 * src->total() * sizeof(float);
    c.same = [=] {
        c.rok();
        c.cv();
        return close(*ours, *theirs, 1e-4);
    };
    return c;
}

const std::vector<rokbench::Size> kFrame = {{1920, 1080}};
const std::vector<rokbench::Size> kGeneral = {{512, 512}, {1000, 1000}};

const bool added = rokbench::add("DCT8x8Fwd_32f_C1_blocks", blocks_32f, kFrame) &&
                   rokbench::add("DCT8x8Fwd_16s_C1_blocks_vs_double_loop", blocks_16s, kFrame) &&
                   rokbench::add("DCTFwd_32f_C1R", general<true>, kGeneral) &&
                   rokbench::add("DCTInv_32f_C1R", general<false>, kGeneral);

}  // namespace
