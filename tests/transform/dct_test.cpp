// The general DCT against a direct double-precision DCT of the definition,
// in both directions, over lengths that take every engine path (1, 2, odd,
// smooth, prime), every layout, in place, and at several thread counts.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "guarded.h"
#include "roki.h"
#include "threads.h"

namespace {

double basis(int n, int k, int x) {
    const double pi = 3.14159265358979323846;
    return std::sqrt((k == 0 ? 1.0 : 2.0) / n) * std::cos((2 * x + 1) * k * pi / (2.0 * n));
}

// One channel, w x h, row-major.
std::vector<double> dct2_ref(const std::vector<double>& f, int w, int h, bool forward) {
    std::vector<double> t(f.size()), out(f.size());
    for (int y = 0; y < h; ++y)
        for (int u = 0; u < w; ++u) {
            double s = 0;
            for (int x = 0; x < w; ++x) s += f[y * w + x] * (forward ? basis(w, u, x) : basis(w, x, u));
            t[y * w + u] = s;
        }
    for (int v = 0; v < h; ++v)
        for (int u = 0; u < w; ++u) {
            double s = 0;
            for (int y = 0; y < h; ++y) s += t[y * w + u] * (forward ? basis(h, v, y) : basis(h, y, v));
            out[v * w + u] = s;
        }
    return out;
}

template <class Spec>
struct Api;
template <>
struct Api<RokiDCTFwdSpec_32f> {
    static constexpr auto init = rokiDCTFwdInitAlloc_32f;
    static constexpr auto release = rokiDCTFwdFree_32f;
    static constexpr auto bufsize = rokiDCTFwdGetBufSize_32f;
    static constexpr RokStatus (*run[4])(const Rok32f*, int, Rok32f*, int, const RokiDCTFwdSpec_32f*, Rok8u*) = {
        rokiDCTFwd_32f_C1R, rokiDCTFwd_32f_C3R, rokiDCTFwd_32f_C4R, rokiDCTFwd_32f_AC4R};
};
template <>
struct Api<RokiDCTInvSpec_32f> {
    static constexpr auto init = rokiDCTInvInitAlloc_32f;
    static constexpr auto release = rokiDCTInvFree_32f;
    static constexpr auto bufsize = rokiDCTInvGetBufSize_32f;
    static constexpr RokStatus (*run[4])(const Rok32f*, int, Rok32f*, int, const RokiDCTInvSpec_32f*, Rok8u*) = {
        rokiDCTInv_32f_C1R, rokiDCTInv_32f_C3R, rokiDCTInv_32f_C4R, rokiDCTInv_32f_AC4R};
};

// Largest error over the RMS of the reference, for every layout.
template <class Spec>
double check_size(int w, int h, std::mt19937& rng, bool nullBuffer) {
    constexpr bool forward = std::is_same_v<Spec, RokiDCTFwdSpec_32f>;
    Spec* spec = nullptr;
    EXPECT_EQ(Api<Spec>::init(&spec, RokiSize{w, h}, 0), rokStatusOk);
    int bytes = 0;
    EXPECT_EQ(Api<Spec>::bufsize(spec, &bytes), rokStatusOk);
    std::vector<Rok8u> buffer(bytes);
    const int chans[4] = {1, 3, 4, 4};
    double worst = 0;
    std::uniform_real_distribution<double> d(-100, 100);
    for (int layout = 0; layout < 4; ++layout) {
        const int ch = chans[layout];
        rokt::GuardedImage<Rok32f> src(w, h, ch, 1), dst(w, h, ch, 3);
        for (int y = 0; y < h; ++y)
            for (int i = 0; i < w * ch; ++i) src.row(y)[i] = Rok32f(d(rng)), dst.row(y)[i] = -7.0f;
        EXPECT_EQ(Api<Spec>::run[layout](src.data(), src.step(), dst.data(), dst.step(), spec,
                                          nullBuffer ? nullptr : buffer.data()),
                  rokStatusOk);
        const int processed = layout == 3 ? 3 : ch;
        for (int c = 0; c < ch; ++c) {
            if (c >= processed) {
                for (int y = 0; y < h; ++y)
                    for (int x = 0; x < w; ++x) EXPECT_EQ(dst.at(x, y, c), -7.0f);  // alpha stays
                continue;
            }
            std::vector<double> f(std::size_t(w) * h);
            for (int y = 0; y < h; ++y)
                for (int x = 0; x < w; ++x) f[y * w + x] = src.at(x, y, c);
            const auto ref = dct2_ref(f, w, h, forward);
            double rms = 0;
            for (double r : ref) rms += r * r;
            rms = std::sqrt(rms / ref.size());
            for (int y = 0; y < h; ++y)
                for (int x = 0; x < w; ++x) worst = std::max(worst, std::fabs(dst.at(x, y, c) - ref[y * w + x]) / rms);
        }
        if (layout == 0) {  // in place equals out of place
            EXPECT_EQ(Api<Spec>::run[0](src.data(), src.step(), src.data(), src.step(), spec, buffer.data()),
                      rokStatusOk);
            for (int y = 0; y < h; ++y)
                for (int x = 0; x < w; ++x) EXPECT_EQ(src.at(x, y), dst.at(x, y));
        }
    }
    EXPECT_EQ(Api<Spec>::release(spec), rokStatusOk);
    return worst;
}

TEST(Dct, MatchesTheDirectTransformForEverySize) {
    std::mt19937 rng(21);
    const RokiSize sizes[] = {{1, 1}, {2, 2}, {3, 3}, {7, 7}, {8, 8}, {16, 16}, {100, 100}, {1, 9},
                              {13, 2}, {8, 5}, {30, 64}, {97, 12}, {1000, 3}, {2, 1000}};
    double worst = 0;
    for (RokiSize s : sizes) {
        const double f = check_size<RokiDCTFwdSpec_32f>(s.width, s.height, rng, s.width == 7);
        const double i = check_size<RokiDCTInvSpec_32f>(s.width, s.height, rng, s.width == 13);
        EXPECT_LT(std::max(f, i), 2e-6) << s.width << "x" << s.height;
        worst = std::max({worst, f, i});
    }
    RecordProperty("worst_error_over_rms", std::to_string(worst * 1e6) + "e-6");
}

TEST(Dct, EightByEightIsTheBlockTransformAndRoundTrips) {
    std::mt19937 rng(4);
    std::uniform_real_distribution<float> d(-255, 255);
    std::vector<Rok32f> src(64), viaGeneral(64), viaBlock(64), back(64);
    for (auto& v : src) v = d(rng);
    RokiDCTFwdSpec_32f* fwd = nullptr;
    RokiDCTInvSpec_32f* inv = nullptr;
    ASSERT_EQ(rokiDCTFwdInitAlloc_32f(&fwd, RokiSize{8, 8}, 0), rokStatusOk);
    ASSERT_EQ(rokiDCTInvInitAlloc_32f(&inv, RokiSize{8, 8}, 0), rokStatusOk);
    ASSERT_EQ(rokiDCTFwd_32f_C1R(src.data(), 32, viaGeneral.data(), 32, fwd, nullptr), rokStatusOk);
    ASSERT_EQ(rokiDCT8x8Fwd_32f_C1(src.data(), viaBlock.data()), rokStatusOk);
    EXPECT_EQ(viaGeneral, viaBlock);
    ASSERT_EQ(rokiDCTInv_32f_C1R(viaGeneral.data(), 32, back.data(), 32, inv, nullptr), rokStatusOk);
    for (int i = 0; i < 64; ++i) EXPECT_NEAR(back[i], src[i], 1e-3);
    rokiDCTFwdFree_32f(fwd);
    rokiDCTInvFree_32f(inv);
}

// Large enough (2^18 samples) for the threads to share the work.
TEST(Dct, ResultsDoNotDependOnTheThreadCount) {
    const int w = 520, h = 510;
    std::mt19937 rng(9);
    std::uniform_real_distribution<float> d(-1, 1);
    std::vector<Rok32f> src(std::size_t(w) * h);
    for (auto& v : src) v = d(rng);
    std::vector<Rok32f> first;
    for (int threads : {1, 2, 7}) {
        rokt::WithThreads scope(threads);
        RokiDCTFwdSpec_32f* spec = nullptr;
        ASSERT_EQ(rokiDCTFwdInitAlloc_32f(&spec, RokiSize{w, h}, 0), rokStatusOk);
        std::vector<Rok32f> dst(src.size());
        ASSERT_EQ(rokiDCTFwd_32f_C1R(src.data(), w * 4, dst.data(), w * 4, spec, nullptr), rokStatusOk);
        if (first.empty())
            first = dst;
        else
            EXPECT_EQ(dst, first) << threads;
        rokiDCTFwdFree_32f(spec);
    }
}

TEST(Dct, StatusesAndRecordChecks) {
    RokiDCTFwdSpec_32f* fwd = nullptr;
    RokiDCTInvSpec_32f* inv = nullptr;
    EXPECT_EQ(rokiDCTFwdInitAlloc_32f(nullptr, RokiSize{4, 4}, 0), rokStatusNullPtr);
    EXPECT_EQ(rokiDCTFwdInitAlloc_32f(&fwd, RokiSize{0, 4}, 0), rokStatusBadSize);
    EXPECT_EQ(rokiDCTInvInitAlloc_32f(&inv, RokiSize{4, -1}, 0), rokStatusBadSize);
    EXPECT_EQ(fwd, nullptr);
    ASSERT_EQ(rokiDCTFwdInitAlloc_32f(&fwd, RokiSize{5, 3}, 0), rokStatusOk);
    ASSERT_EQ(rokiDCTInvInitAlloc_32f(&inv, RokiSize{5, 3}, 0), rokStatusOk);
    int size = 0;
    EXPECT_EQ(rokiDCTFwdGetBufSize_32f(fwd, nullptr), rokStatusNullPtr);
    // A record of the other direction is refused.
    EXPECT_EQ(rokiDCTFwdGetBufSize_32f(reinterpret_cast<const RokiDCTFwdSpec_32f*>(inv), &size), rokStatusBadContext);
    std::vector<Rok32f> img(15, 1.0f), out(15, 3.0f);
    const auto out0 = out;
    EXPECT_EQ(rokiDCTFwd_32f_C1R(nullptr, 20, out.data(), 20, fwd, nullptr), rokStatusNullPtr);
    EXPECT_EQ(rokiDCTFwd_32f_C1R(img.data(), 20, out.data(), 20, nullptr, nullptr), rokStatusNullPtr);
    EXPECT_EQ(rokiDCTFwd_32f_C1R(img.data(), 20, out.data(), 20, reinterpret_cast<const RokiDCTFwdSpec_32f*>(inv),
                                 nullptr),
              rokStatusBadContext);
    EXPECT_EQ(rokiDCTFwd_32f_C1R(img.data(), 0, out.data(), 20, fwd, nullptr), rokStatusBadStep);
    EXPECT_EQ(rokiDCTInv_32f_C3R(img.data(), 20, out.data(), -1, inv, nullptr), rokStatusBadStep);
    EXPECT_EQ(out, out0);
    EXPECT_EQ(rokiDCTFwdFree_32f(fwd), rokStatusOk);
    EXPECT_EQ(rokiDCTInvFree_32f(nullptr), rokStatusNullPtr);
    EXPECT_EQ(rokiDCTInvFree_32f(inv), rokStatusOk);
}

}  // namespace
