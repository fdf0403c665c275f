// One-level wavelet transform: the forward and inverse against a
// double-precision statement of their rule, perfect reconstruction with
// orthogonal and biorthogonal banks, statuses and their order, guarded
// buffers, and the row kernels against a plain scalar loop.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "guarded.h"
#include "kernels/transform/wavelet.h"
#include "roki.h"

namespace {

using rokt::Guard;
using rokt::GuardedImage;

struct Filter {
    std::vector<float> taps;
    int anchor;
    int len() const { return int(taps.size()); }
};

struct Bank {
    const char* name;
    Filter low, high;        // analysis
    Filter synLow, synHigh;  // synthesis
};

std::vector<float> reversed(std::vector<float> v) {
    std::reverse(v.begin(), v.end());
    return v;
}

// An orthogonal bank from its low-pass taps: high pass h1[k] = (-1)^k
// h0[L-1-k], synthesis = analysis reversed with the anchor reversed too.
Bank orthogonal(const char* name, std::vector<float> h0, int anchor) {
    const int L = int(h0.size());
    std::vector<float> h1(L);
    for (int k = 0; k < L; ++k) h1[k] = float((k & 1 ? -1.0 : 1.0) * h0[L - 1 - k]);
    return {name, {h0, anchor}, {h1, anchor}, {reversed(h0), L - 1 - anchor}, {reversed(h1), L - 1 - anchor}};
}

std::vector<Bank> banks() {
    const double s2 = std::sqrt(2.0), s3 = std::sqrt(3.0);
    std::vector<float> d4 = {float((1 + s3) / (4 * s2)), float((3 + s3) / (4 * s2)), float((3 - s3) / (4 * s2)),
                             float((1 - s3) / (4 * s2))};
    // CDF 9/7 (the lossy JPEG 2000 pair).
    const std::vector<float> a9 = {0.026748757411f, -0.016864118443f, -0.078223266529f, 0.266864118443f,
                                   0.602949018236f, 0.266864118443f,  -0.078223266529f, -0.016864118443f,
                                   0.026748757411f};
    const std::vector<float> a7 = {0.091271763114f,  -0.057543526229f, -0.591271763114f, 1.11508705f,
                                   -0.591271763114f, -0.057543526229f, 0.091271763114f};
    const std::vector<float> s7 = {-0.091271763114f, -0.057543526229f, 0.591271763114f, 1.11508705f,
                                   0.591271763114f,  -0.057543526229f, -0.091271763114f};
    const std::vector<float> s9 = {0.026748757411f, 0.016864118443f,  -0.078223266529f, -0.266864118443f,
                                   0.602949018236f, -0.266864118443f, -0.078223266529f, 0.016864118443f,
                                   0.026748757411f};
    return {orthogonal("haar", {float(1 / s2), float(1 / s2)}, 0), orthogonal("haar-1", {float(1 / s2), float(1 / s2)}, 1),
            orthogonal("d4", d4, 1), orthogonal("d4-3", d4, 3),
            {"cdf97", {a9, 4}, {a7, 2}, {s7, 3}, {s9, 5}}, {"cdf97-b", {a9, 4}, {a7, 4}, {s7, 3}, {s9, 3}}};
}

// An image with a border of `before` pixels left and above and `after`
// right and below its region; the buffer's last byte (or first, for
// Guard::Before) is the border's corner.
struct Padded {
    Padded(int w, int h, int ch, int before, int after, int pad, Guard g)
        : w(w), h(h), ch(ch), before(before), img(w + before + after, h + before + after, ch, pad, g) {}
    float* roi() { return &img.at(before, before); }
    int step() const { return img.step(); }
    float& at(int x, int y, int c) { return img.at(x + before, y + before, c); }
    int w, h, ch, before;
    GuardedImage<float> img;
};

void fill(Padded& p, std::uint32_t seed) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> d(-1.0f, 1.0f);
    for (int y = 0; y < p.img.height(); ++y)
        for (int i = 0; i < p.img.width() * p.ch; ++i) p.img.row(y)[i] = d(rng);
}

int fwd_before(const Filter& a, const Filter& b) { return std::max(a.len() - a.anchor - 1, b.len() - b.anchor - 1); }
int fwd_after(const Filter& a, const Filter& b) { return std::max({a.anchor - 1, b.anchor - 1, 0}); }
int inv_before(const Filter& a, const Filter& b) { return std::max((a.len() - 1 - a.anchor) / 2, (b.len() - 1 - b.anchor) / 2); }
int inv_after(const Filter& a, const Filter& b) { return std::max((a.anchor + 1) / 2, (b.anchor + 1) / 2); }

template <class Spec>
struct Records {
    RokStatus (*initC1)(Spec**, const Rok32f*, int, int, const Rok32f*, int, int);
    RokStatus (*initC3)(Spec**, const Rok32f*, int, int, const Rok32f*, int, int);
    RokStatus (*freeC1)(Spec*);
    RokStatus (*freeC3)(Spec*);
    RokStatus (*sizeC1)(const Spec*, int*);
    RokStatus (*sizeC3)(const Spec*, int*);
};
const Records<RokiWTFwdSpec_32f> kFwd = {rokiWTFwdInitAlloc_32f_C1R, rokiWTFwdInitAlloc_32f_C3R, rokiWTFwdFree_32f_C1R,
                                         rokiWTFwdFree_32f_C3R,      rokiWTFwdGetBufSize_C1R,    rokiWTFwdGetBufSize_C3R};
const Records<RokiWTInvSpec_32f> kInv = {rokiWTInvInitAlloc_32f_C1R, rokiWTInvInitAlloc_32f_C3R, rokiWTInvFree_32f_C1R,
                                         rokiWTInvFree_32f_C3R,      rokiWTInvGetBufSize_C1R,    rokiWTInvGetBufSize_C3R};

// A record and its buffer, released at the end of the scope.
template <class Spec>
struct Made {
    Made(const Records<Spec>& r, int ch, const Filter& lo, const Filter& hi) : r(r), ch(ch) {
        EXPECT_EQ((ch == 1 ? r.initC1 : r.initC3)(&spec, lo.taps.data(), lo.len(), lo.anchor, hi.taps.data(), hi.len(),
                                                  hi.anchor),
                  rokStatusOk);
        int size = 0;
        EXPECT_EQ((ch == 1 ? r.sizeC1 : r.sizeC3)(spec, &size), rokStatusOk);
        buffer.assign(std::size_t(size), 0xcd);
    }
    ~Made() { (ch == 1 ? r.freeC1 : r.freeC3)(spec); }
    const Records<Spec>& r;
    int ch;
    Spec* spec = nullptr;
    std::vector<Rok8u> buffer;
};

RokStatus forward(int ch, Padded& src, Padded* band[4], RokiSize roi, const RokiWTFwdSpec_32f* spec, Rok8u* buf) {
    auto f = ch == 1 ? rokiWTFwd_32f_C1R : rokiWTFwd_32f_C3R;
    return f(src.roi(), src.step(), band[0]->roi(), band[0]->step(), band[1]->roi(), band[1]->step(), band[2]->roi(),
             band[2]->step(), band[3]->roi(), band[3]->step(), roi, spec, buf);
}
RokStatus inverse(int ch, Padded* band[4], RokiSize roi, Padded& dst, const RokiWTInvSpec_32f* spec, Rok8u* buf) {
    auto f = ch == 1 ? rokiWTInv_32f_C1R : rokiWTInv_32f_C3R;
    return f(band[0]->roi(), band[0]->step(), band[1]->roi(), band[1]->step(), band[2]->roi(), band[2]->step(),
             band[3]->roi(), band[3]->step(), roi, dst.roi(), dst.step(), spec, buf);
}

// Band b is (vertical filter, horizontal filter): approximation (low, low),
// detail X (high, low), detail Y (low, high), detail XY (high, high).
const Filter& vertical_of(int b, const Filter& lo, const Filter& hi) { return b & 1 ? hi : lo; }
const Filter& horizontal_of(int b, const Filter& lo, const Filter& hi) { return b & 2 ? hi : lo; }

// The forward rule in double: band[j][i] = sum fv[kv] fh[kh] x[2j + av - kv][2i + ah - kh].
double forward_ref(Padded& x, const Filter& fv, const Filter& fh, int i, int j, int c) {
    double s = 0;
    for (int kv = 0; kv < fv.len(); ++kv)
        for (int kh = 0; kh < fh.len(); ++kh)
            s += double(fv.taps[kv]) * fh.taps[kh] * x.at(2 * i + fh.anchor - kh, 2 * j + fv.anchor - kv, c);
    return s;
}

// The inverse rule in double: each band upsampled (zeros at odd positions)
// and convolved, output m of an axis meeting up[m + anchor - k].
double inverse_ref(Padded* band[4], const Filter& lo, const Filter& hi, int m, int y, int c) {
    double s = 0;
    for (int b = 0; b < 4; ++b) {
        const Filter& gv = vertical_of(b, lo, hi);
        const Filter& gh = horizontal_of(b, lo, hi);
        for (int kv = 0; kv < gv.len(); ++kv) {
            const int ry = y + gv.anchor - kv;
            if (ry & 1) continue;
            for (int kh = 0; kh < gh.len(); ++kh) {
                const int rx = m + gh.anchor - kh;
                if (rx & 1) continue;
                s += double(gv.taps[kv]) * gh.taps[kh] * band[b]->at(rx / 2, ry / 2, c);
            }
        }
    }
    return s;
}

struct Case {
    int w, h, ch, pad;
    Guard guard;
};

std::vector<Case> cases() {
    std::vector<Case> out;
    for (int w = 1; w <= 70; w += (w < 20 ? 1 : 7)) out.push_back({w, 1 + w % 4, 1 + 2 * (w % 2), w % 3, Guard::After});
    out.push_back({300, 3, 1, 1, Guard::Before});  // two column blocks
    out.push_back({257, 2, 3, 0, Guard::After});
    out.push_back({513, 2, 1, 3, Guard::After});
    return out;
}

TEST(Wavelet, ForwardAndInverseFollowTheirRule) {
    std::mt19937 rng(7);
    for (const Case& k : cases()) {
        // Random filters with every anchor position over the cases.
        std::uniform_int_distribution<int> len(2, 9);
        std::uniform_real_distribution<float> tap(-1.0f, 1.0f);
        Filter f[2];
        for (Filter& fi : f) {
            fi.taps.resize(std::size_t(len(rng)));
            for (float& t : fi.taps) t = tap(rng);
            fi.anchor = std::uniform_int_distribution<int>(0, fi.len() - 1)(rng);
        }
        SCOPED_TRACE(::testing::Message() << k.w << "x" << k.h << " ch " << k.ch << " lens " << f[0].len() << ","
                                          << f[1].len() << " anchors " << f[0].anchor << "," << f[1].anchor);
        const RokiSize roi{k.w, k.h};
        {  // forward
            Padded src(2 * k.w, 2 * k.h, k.ch, fwd_before(f[0], f[1]), fwd_after(f[0], f[1]), k.pad, k.guard);
            fill(src, 11);
            Padded b0(k.w, k.h, k.ch, 0, 0, k.pad, k.guard), b1(k.w, k.h, k.ch, 0, 0, 0, k.guard),
                b2(k.w, k.h, k.ch, 0, 0, 1, k.guard), b3(k.w, k.h, k.ch, 0, 0, 2, k.guard);
            Padded* band[4] = {&b0, &b1, &b2, &b3};
            Made<RokiWTFwdSpec_32f> rec(kFwd, k.ch, f[0], f[1]);
            ASSERT_EQ(forward(k.ch, src, band, roi, rec.spec, rec.buffer.data()), rokStatusOk);
            for (int b = 0; b < 4; ++b)
                for (int j = 0; j < k.h; ++j)
                    for (int i = 0; i < k.w; ++i)
                        for (int c = 0; c < k.ch; ++c) {
                            const double want = forward_ref(src, vertical_of(b, f[0], f[1]), horizontal_of(b, f[0], f[1]), i, j, c);
                            ASSERT_NEAR(band[b]->at(i, j, c), want, 2e-5 * (1 + std::abs(want))) << "band " << b << " at " << i << "," << j;
                        }
        }
        {  // inverse
            const int before = inv_before(f[0], f[1]), after = inv_after(f[0], f[1]);
            Padded b0(k.w, k.h, k.ch, before, after, k.pad, k.guard), b1(k.w, k.h, k.ch, before, after, 0, k.guard),
                b2(k.w, k.h, k.ch, before, after, 1, k.guard), b3(k.w, k.h, k.ch, before, after, 2, k.guard);
            Padded* band[4] = {&b0, &b1, &b2, &b3};
            for (int b = 0; b < 4; ++b) fill(*band[b], 20 + b);
            Padded dst(2 * k.w, 2 * k.h, k.ch, 0, 0, k.pad, k.guard);
            Made<RokiWTInvSpec_32f> rec(kInv, k.ch, f[0], f[1]);
            ASSERT_EQ(inverse(k.ch, band, roi, dst, rec.spec, rec.buffer.data()), rokStatusOk);
            for (int y = 0; y < 2 * k.h; ++y)
                for (int m = 0; m < 2 * k.w; ++m)
                    for (int c = 0; c < k.ch; ++c) {
                        const double want = inverse_ref(band, f[0], f[1], m, y, c);
                        ASSERT_NEAR(dst.at(m, y, c), want, 2e-5 * (1 + std::abs(want))) << "at " << m << "," << y;
                    }
        }
    }
}

// Periodic extension on both sides: the inverse of the forward gives the
// image back for every perfect-reconstruction bank.
TEST(Wavelet, InverseReconstructsTheForwardsInput) {
    for (const Bank& bank : banks()) {
        for (const Case& k : {Case{16, 8, 1, 0, Guard::After}, Case{37, 5, 3, 1, Guard::After}, Case{300, 4, 1, 0, Guard::Before}}) {
            SCOPED_TRACE(::testing::Message() << bank.name << " " << k.w << "x" << k.h << " ch " << k.ch);
            const int W = 2 * k.w, H = 2 * k.h;
            Padded x(W, H, k.ch, 0, 0, 0, Guard::After);
            fill(x, 5);
            auto wrap = [](int v, int n) { return ((v % n) + n) % n; };
            Padded src(W, H, k.ch, fwd_before(bank.low, bank.high), fwd_after(bank.low, bank.high), k.pad, k.guard);
            const int fb = src.before;
            for (int y = -fb; y < H + src.img.height() - H - fb; ++y)
                for (int m = -fb; m < W + src.img.width() - W - fb; ++m)
                    for (int c = 0; c < k.ch; ++c) src.at(m, y, c) = x.at(wrap(m, W), wrap(y, H), c);
            const int before = inv_before(bank.synLow, bank.synHigh), after = inv_after(bank.synLow, bank.synHigh);
            Padded b0(k.w, k.h, k.ch, before, after, k.pad, k.guard), b1(k.w, k.h, k.ch, before, after, 1, k.guard),
                b2(k.w, k.h, k.ch, before, after, 0, k.guard), b3(k.w, k.h, k.ch, before, after, 2, k.guard);
            Padded* band[4] = {&b0, &b1, &b2, &b3};
            const RokiSize roi{k.w, k.h};
            {
                Made<RokiWTFwdSpec_32f> rec(kFwd, k.ch, bank.low, bank.high);
                ASSERT_EQ(forward(k.ch, src, band, roi, rec.spec, rec.buffer.data()), rokStatusOk);
            }
            for (Padded* b : band)  // the bands' own periodic border
                for (int y = -before; y < k.h + after; ++y)
                    for (int m = -before; m < k.w + after; ++m)
                        for (int c = 0; c < k.ch; ++c) b->at(m, y, c) = b->at(wrap(m, k.w), wrap(y, k.h), c);
            Padded out(W, H, k.ch, 0, 0, k.pad, k.guard);
            Made<RokiWTInvSpec_32f> rec(kInv, k.ch, bank.synLow, bank.synHigh);
            ASSERT_EQ(inverse(k.ch, band, roi, out, rec.spec, rec.buffer.data()), rokStatusOk);
            for (int y = 0; y < H; ++y)
                for (int m = 0; m < W; ++m)
                    for (int c = 0; c < k.ch; ++c) ASSERT_NEAR(out.at(m, y, c), x.at(m, y, c), 2e-6) << m << "," << y;
        }
    }
}

TEST(Wavelet, HaarOfAConstantImageIsItsMeanAndNoDetail) {
    const Filter lo{{0.5f, 0.5f}, 0}, hi{{0.5f, -0.5f}, 0};
    Padded src(10, 6, 3, 1, 0, 0, Guard::After);
    for (int y = -1; y < 6; ++y)
        for (int m = -1; m < 10; ++m)
            for (int c = 0; c < 3; ++c) src.at(m, y, c) = 3.25f + c;
    Padded b0(5, 3, 3, 0, 0, 0, Guard::After), b1(5, 3, 3, 0, 0, 0, Guard::After), b2(5, 3, 3, 0, 0, 0, Guard::After),
        b3(5, 3, 3, 0, 0, 0, Guard::After);
    Padded* band[4] = {&b0, &b1, &b2, &b3};
    Made<RokiWTFwdSpec_32f> rec(kFwd, 3, lo, hi);
    ASSERT_EQ(forward(3, src, band, {5, 3}, rec.spec, rec.buffer.data()), rokStatusOk);
    for (int j = 0; j < 3; ++j)
        for (int i = 0; i < 5; ++i)
            for (int c = 0; c < 3; ++c) {
                EXPECT_EQ(b0.at(i, j, c), 3.25f + c);
                for (int b = 1; b < 4; ++b) EXPECT_EQ(band[b]->at(i, j, c), 0.0f);
            }
}

TEST(Wavelet, RecordStatusesAndTheirOrder) {
    const float taps[3] = {0.5f, 0.5f, 0.25f};
    RokiWTFwdSpec_32f* f = nullptr;
    struct InitCase {
        bool nullOut, nullLow, nullHigh;
        int lenLow, anchorLow, lenHigh, anchorHigh;
        RokStatus want;
    } table[] = {
        {true, false, false, 2, 0, 2, 0, rokStatusNullPtr},    {false, true, false, 1, 0, 2, 0, rokStatusNullPtr},
        {false, false, true, 2, 5, 2, 0, rokStatusNullPtr},    {false, false, false, 1, 0, 2, 0, rokStatusBadSize},
        {false, false, false, 2, 0, 0, 9, rokStatusBadSize},   {false, false, false, 2, 2, 2, 0, rokStatusBadAnchor},
        {false, false, false, 3, 0, 2, -1, rokStatusBadAnchor}, {false, false, false, 3, 2, 2, 1, rokStatusOk},
    };
    for (const InitCase& c : table) {
        for (auto init : {kFwd.initC1, kFwd.initC3}) {
            f = nullptr;
            EXPECT_EQ(init(c.nullOut ? nullptr : &f, c.nullLow ? nullptr : taps, c.lenLow, c.anchorLow,
                           c.nullHigh ? nullptr : taps, c.lenHigh, c.anchorHigh),
                      c.want);
            EXPECT_EQ(f == nullptr, c.want != rokStatusOk);
            if (f) {
                EXPECT_TRUE(rokiWTFwdFree_32f_C1R(f) == rokStatusOk || rokiWTFwdFree_32f_C3R(f) == rokStatusOk);
            }
        }
        RokiWTInvSpec_32f* v = nullptr;
        EXPECT_EQ(rokiWTInvInitAlloc_32f_C1R(c.nullOut ? nullptr : &v, c.nullLow ? nullptr : taps, c.lenLow, c.anchorLow,
                                             c.nullHigh ? nullptr : taps, c.lenHigh, c.anchorHigh),
                  c.want);
        if (v) {
            EXPECT_EQ(rokiWTInvFree_32f_C1R(v), rokStatusOk);
        }
    }

    // A record of the other direction or layout is refused by every user.
    RokiWTFwdSpec_32f* c1 = nullptr;
    RokiWTInvSpec_32f* inv = nullptr;
    ASSERT_EQ(rokiWTFwdInitAlloc_32f_C1R(&c1, taps, 2, 0, taps, 2, 1), rokStatusOk);
    ASSERT_EQ(rokiWTInvInitAlloc_32f_C1R(&inv, taps, 2, 0, taps, 2, 1), rokStatusOk);
    auto* invAsFwd = reinterpret_cast<RokiWTFwdSpec_32f*>(inv);
    int size = -1;
    EXPECT_EQ(rokiWTFwdGetBufSize_C3R(c1, &size), rokStatusBadContext);
    EXPECT_EQ(rokiWTFwdGetBufSize_C1R(invAsFwd, &size), rokStatusBadContext);
    EXPECT_EQ(rokiWTFwdGetBufSize_C1R(nullptr, &size), rokStatusNullPtr);
    EXPECT_EQ(rokiWTFwdGetBufSize_C1R(c1, nullptr), rokStatusNullPtr);
    EXPECT_EQ(size, -1);
    EXPECT_EQ(rokiWTFwdFree_32f_C3R(c1), rokStatusBadContext);
    EXPECT_EQ(rokiWTFwdFree_32f_C1R(invAsFwd), rokStatusBadContext);
    EXPECT_EQ(rokiWTFwdFree_32f_C1R(nullptr), rokStatusNullPtr);

    // The transform's order: record (null -8, wrong -17), pointers (-8),
    // size (-6), steps (-14); nothing written on any error.
    ASSERT_EQ(rokiWTFwdGetBufSize_C1R(c1, &size), rokStatusOk);
    std::vector<Rok8u> buf(static_cast<std::size_t>(size));
    std::vector<float> src(64, 1.0f), dst(16, -7.0f);
    float* d = dst.data();
    const float* s = src.data() + 8;
    enum Spec { None, Wrong, Right };
    struct Call {
        Spec spec;
        bool nullIn, nullOut, nullBuf;
        RokiSize roi;
        int step;
        RokStatus want;
    } calls[] = {
        {None, true, false, false, {0, 1}, 0, rokStatusNullPtr},
        {Wrong, true, false, false, {0, 1}, 0, rokStatusBadContext},
        {Right, true, false, false, {0, 1}, 0, rokStatusNullPtr},
        {Right, false, true, false, {1, 1}, 0, rokStatusNullPtr},
        {Right, false, false, true, {1, 1}, 0, rokStatusNullPtr},
        {Right, false, false, false, {0, 1}, 0, rokStatusBadSize},
        {Right, false, false, false, {1, -1}, 0, rokStatusBadSize},
        {Right, false, false, false, {1, 1}, 0, rokStatusBadStep},
        {Right, false, false, false, {1, 1}, -4, rokStatusBadStep},
    };
    for (const Call& c : calls) {
        const float* in = c.nullIn ? nullptr : s;
        float* out = c.nullOut ? nullptr : d;
        Rok8u* b = c.nullBuf ? nullptr : buf.data();
        const RokiWTFwdSpec_32f* fs = c.spec == None ? nullptr : c.spec == Wrong ? invAsFwd : c1;
        const RokiWTInvSpec_32f* is =
            c.spec == None ? nullptr : c.spec == Wrong ? reinterpret_cast<const RokiWTInvSpec_32f*>(c1) : inv;
        EXPECT_EQ(rokiWTFwd_32f_C1R(in, 16, out, 16, d + 4, 16, d + 8, c.step, d + 12, 16, c.roi, fs, b), c.want);
        EXPECT_EQ(rokiWTInv_32f_C1R(s, 16, in, 16, s, c.step, s, 16, c.roi, out, 16, is, b), c.want);
    }
    for (float v : dst) EXPECT_EQ(v, -7.0f);
    EXPECT_EQ(rokiWTFwdFree_32f_C1R(c1), rokStatusOk);
    EXPECT_EQ(rokiWTInvFree_32f_C1R(inv), rokStatusOk);
}

// The row kernels against the plain loop they vectorise: every tail, odd
// offsets, both stride signs, accumulation.
TEST(Wavelet, RowKernelsMatchTheScalarLoop) {
    namespace kw = rok::kernels::wavelet;
    std::mt19937 rng(3);
    std::uniform_real_distribution<float> d(-2.0f, 2.0f);
    std::vector<float> rows(8 * 96), w(7);
    for (float& v : rows) v = d(rng);
    for (float& v : w) v = d(rng);
    for (int n = 1; n <= 80; ++n)
        for (int off = 0; off < 3; ++off)
            for (int taps = 1; taps <= 7; taps += 3)
                for (int sign : {1, -1})
                    for (bool acc : {false, true}) {
                        const std::ptrdiff_t stride = sign * std::ptrdiff_t(96 * sizeof(float));
                        const float* first = rows.data() + (sign > 0 ? 0 : 7 * 96) + off;
                        rokt::GuardedBuffer out((n + off) * sizeof(float), Guard::After);
                        float* dst = reinterpret_cast<float*>(out.data()) + off;
                        std::vector<float> want(static_cast<std::size_t>(n));
                        for (int i = 0; i < n; ++i) {
                            dst[i] = want[std::size_t(i)] = float(i) * 0.5f;
                            float a = acc ? want[std::size_t(i)] : 0.0f;
                            for (int k = 0; k < taps; ++k) a = std::fma(w[std::size_t(k)], first[sign * k * 96 + i], a);
                            want[std::size_t(i)] = a;
                        }
                        kw::weighted_rows_32f(first, stride, w.data(), taps, dst, n, acc);
                        for (int i = 0; i < n; ++i) ASSERT_EQ(dst[i], want[std::size_t(i)]) << n << " " << i;
                    }
    for (int ch : {1, 3})
        for (int pixels = 1; pixels <= 70; ++pixels) {
            std::vector<float> row(std::size_t(pixels) * ch), even(std::size_t(pixels + 1) / 2 * ch),
                odd(std::size_t(pixels) / 2 * ch + 1), back(row.size() + ch, 99.0f);
            for (float& v : row) v = d(rng);
            kw::split_32f(row.data(), pixels, ch, even.data(), odd.data());
            for (int p = 0; p < pixels; ++p)
                for (int c = 0; c < ch; ++c)
                    ASSERT_EQ(((p & 1) ? odd : even)[std::size_t(p / 2 * ch + c)], row[std::size_t(p * ch + c)]);
            kw::merge_32f(even.data(), odd.data(), pixels / 2, ch, back.data());
            for (int i = 0; i < pixels / 2 * 2 * ch; ++i) ASSERT_EQ(back[std::size_t(i)], row[std::size_t(i)]);
            EXPECT_EQ(back[std::size_t(pixels / 2 * 2 * ch)], 99.0f);
        }
}

}  // namespace
