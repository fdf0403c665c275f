// One-level wavelet transform of a 1920x1080 float image with the CDF 9/7
// pair. OpenCV has no wavelet; the "cv" side is a plain separable scalar
// loop of the same rule (columns, then rows), as the scale reference, and
// memcpy of the same bytes is the bound. Outputs agree within 1e-4.
#include <opencv2/core.hpp>

#include <algorithm>
#include <memory>
#include <vector>

#include "harness.h"

namespace {

using rokbench::Case;

const std::vector<float> kLow = {0.026748757411f, -0.016864118443f, -0.078223266529f, 0.266864118443f,
                                 0.602949018236f, 0.266864118443f,  -0.078223266529f, -0.016864118443f,
                                 0.026748757411f};
const std::vector<float> kHigh = {0.091271763114f,  -0.057543526229f, -0.591271763114f, 1.11508705f,
                                  -0.591271763114f, -0.057543526229f, 0.091271763114f};
const std::vector<float> kSynLow = {-0.091271763114f, -0.057543526229f, 0.591271763114f, 1.11508705f,
                                    0.591271763114f,  -0.057543526229f, -0.091271763114f};
const std::vector<float> kSynHigh = {0.026748757411f, 0.016864118443f,  -0.078223266529f, -0.266864118443f,
                                     0.602949018236f, -0.266864118443f, -0.078223266529f, 0.016864118443f,
                                     0.026748757411f};
constexpr int kAnchorLow = 4, kAnchorHigh = 2, kSynAnchorLow = 3, kSynAnchorHigh = 5;

// A float image with a border of `pad` pixels all round.
struct Padded {
    Padded(int w, int h, int pad) : pad(pad), m(rokbench::random_mat(w + 2 * pad, h + 2 * pad, CV_32F, -1, 1)) {}
    float* at(int x, int y) { return m.ptr<float>(y + pad) + x + pad; }
    int step() const { return rokbench::step_of(m); }
    int pad;
    cv::Mat m;
};

// out[i] = sum_k taps[k] * in(factor * i + anchor - k): the rule along one
// axis (factor 2: decimating; the inverse's upsampling reads in only at even
// positions).
template <class In>
float tap_sum(const std::vector<float>& taps, int anchor, int pos, In in) {
    float s = 0;
    for (int k = 0; k < int(taps.size()); ++k) s += taps[std::size_t(k)] * in(pos + anchor - k);
    return s;
}

Case forward(int w, int h) {
    const int bw = w / 2, bh = h / 2;
    auto src = std::make_shared<Padded>(w, h, 8);
    auto bands = std::make_shared<std::vector<Padded>>();
    auto refs = std::make_shared<std::vector<Padded>>();
    for (int b = 0; b < 4; ++b) {
        bands->emplace_back(bw, bh, 0);
        refs->emplace_back(bw, bh, 0);
    }
    RokiWTFwdSpec_32f* spec = nullptr;
    rokiWTFwdInitAlloc_32f_C1R(&spec, kLow.data(), 9, kAnchorLow, kHigh.data(), 7, kAnchorHigh);
    int size = 0;
    rokiWTFwdGetBufSize_C1R(spec, &size);
    auto buffer = std::make_shared<std::vector<Rok8u>>(std::size_t(size));
    std::shared_ptr<RokiWTFwdSpec_32f> owner(spec, [](RokiWTFwdSpec_32f* s) { rokiWTFwdFree_32f_C1R(s); });
    Case c;
    c.rok = [=] {
        auto& d = *bands;
        rokiWTFwd_32f_C1R(src->at(0, 0), src->step(), d[0].at(0, 0), d[0].step(), d[1].at(0, 0), d[1].step(),
                          d[2].at(0, 0), d[2].step(), d[3].at(0, 0), d[3].step(), RokiSize{bw, bh}, owner.get(),
                          buffer->data());
    };
    c.cv = [=] {
        std::vector<float> lo(std::size_t(w + 16)), hi(std::size_t(w + 16));
        for (int j = 0; j < bh; ++j) {
            for (int x = -8; x < w + 8; ++x) {
                auto col = [&](int y) { return src->at(x, y)[0]; };
                lo[std::size_t(x + 8)] = tap_sum(kLow, kAnchorLow, 2 * j, col);
                hi[std::size_t(x + 8)] = tap_sum(kHigh, kAnchorHigh, 2 * j, col);
            }
            auto& r = *refs;
            for (int i = 0; i < bw; ++i) {
                auto l = [&](int x) { return lo[std::size_t(x + 8)]; };
                auto g = [&](int x) { return hi[std::size_t(x + 8)]; };
                r[0].at(i, j)[0] = tap_sum(kLow, kAnchorLow, 2 * i, l);
                r[1].at(i, j)[0] = tap_sum(kLow, kAnchorLow, 2 * i, g);
                r[2].at(i, j)[0] = tap_sum(kHigh, kAnchorHigh, 2 * i, l);
                r[3].at(i, j)[0] = tap_sum(kHigh, kAnchorHigh, 2 * i, g);
            }
        }
    };
    c.bytes = 2 * std::size_t(w) * h * sizeof(float);
    c.same = [=] {
        c.rok();
        c.cv();
        for (int b = 0; b < 4; ++b)
            if (!rokbench::equal_mats((*bands)[std::size_t(b)].m, (*refs)[std::size_t(b)].m, 1e-4)) return false;
        return true;
    };
    return c;
}

Case inverse(int w, int h) {
    const int bw = w / 2, bh = h / 2;
    auto bands = std::make_shared<std::vector<Padded>>();
    for (int b = 0; b < 4; ++b) bands->emplace_back(bw, bh, 8);
    auto ours = std::make_shared<Padded>(w, h, 0), ref = std::make_shared<Padded>(w, h, 0);
    RokiWTInvSpec_32f* spec = nullptr;
    rokiWTInvInitAlloc_32f_C1R(&spec, kSynLow.data(), 7, kSynAnchorLow, kSynHigh.data(), 9, kSynAnchorHigh);
    int size = 0;
    rokiWTInvGetBufSize_C1R(spec, &size);
    auto buffer = std::make_shared<std::vector<Rok8u>>(std::size_t(size));
    std::shared_ptr<RokiWTInvSpec_32f> owner(spec, [](RokiWTInvSpec_32f* s) { rokiWTInvFree_32f_C1R(s); });
    Case c;
    c.rok = [=] {
        auto& d = *bands;
        rokiWTInv_32f_C1R(d[0].at(0, 0), d[0].step(), d[1].at(0, 0), d[1].step(), d[2].at(0, 0), d[2].step(),
                          d[3].at(0, 0), d[3].step(), RokiSize{bw, bh}, ours->at(0, 0), ours->step(), owner.get(),
                          buffer->data());
    };
    c.cv = [=] {
        // Upsampled band rows read only at even positions (odd ones are 0).
        std::vector<float> lo(std::size_t(bw + 16)), hi(std::size_t(bw + 16));
        auto& d = *bands;
        for (int y = 0; y < h; ++y) {
            for (int i = -8; i < bw + 8; ++i) {
                auto up = [&](int b) {
                    return [&, b, i](int r) { return (r & 1) ? 0.0f : d[std::size_t(b)].at(i, r / 2)[0]; };
                };
                lo[std::size_t(i + 8)] = tap_sum(kSynLow, kSynAnchorLow, y, up(0)) + tap_sum(kSynHigh, kSynAnchorHigh, y, up(1));
                hi[std::size_t(i + 8)] = tap_sum(kSynLow, kSynAnchorLow, y, up(2)) + tap_sum(kSynHigh, kSynAnchorHigh, y, up(3));
            }
            auto l = [&](int x) { return (x & 1) ? 0.0f : lo[std::size_t(x / 2 + 8)]; };
            auto g = [&](int x) { return (x & 1) ? 0.0f : hi[std::size_t(x / 2 + 8)]; };
            for (int m = 0; m < w; ++m)
                ref->at(m, y)[0] = tap_sum(kSynLow, kSynAnchorLow, m, l) + tap_sum(kSynHigh, kSynAnchorHigh, m, g);
        }
    };
    c.bytes = 2 * std::size_t(w) * h * sizeof(float);
    c.same = [=] {
        c.rok();
        c.cv();
        return rokbench::equal_mats(ours->m, ref->m, 1e-4);
    };
    return c;
}

const std::vector<rokbench::Size> kFrame = {{1920, 1080}};

const bool added = rokbench::add("WTFwd_32f_C1R_cdf97_vs_plain_loop", forward, kFrame) &&
                   rokbench::add("WTInv_32f_C1R_cdf97_vs_plain_loop", inverse, kFrame);

}  // namespace
