// Remap against the reference: every export on maps whose positions fall
// on, inside and outside the box's edges; the edge cases of the box and the
// small-image rule; every map width from 1 to 70; the statuses in order.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <memory>
#include <random>
#include <vector>

#include "guarded.h"
#include "random.h"
#include "resize_harness.h"
#include "threads.h"
#include "roki.h"
#include "warp_reference.h"

namespace {

using rtest::Lay;
using rtest::planes_of;
using rtest::samples_of;

template <class T>
using Map = std::conditional_t<std::is_same_v<T, Rok64f>, Rok64f, Rok32f>;

template <class T>
struct Exports {
    using M = Map<T>;
    RokStatus (*i[4])(const T*, RokiSize, int, RokiRect, const M*, int, const M*, int, T*, int, RokiSize, int);
    RokStatus (*p3)(const T* const*, RokiSize, int, RokiRect, const M*, int, const M*, int, T* const*, int, RokiSize,
                    int);
    RokStatus (*p4)(const T* const*, RokiSize, int, RokiRect, const M*, int, const M*, int, T* const*, int, RokiSize,
                    int);
};
#define RT_EXPORTS(S, T)                                                                                         \
    Exports<T> exports_of(T*) {                                                                                  \
        return {{rokiRemap_##S##_C1R, rokiRemap_##S##_C3R, rokiRemap_##S##_C4R, rokiRemap_##S##_AC4R},           \
                rokiRemap_##S##_P3R, rokiRemap_##S##_P4R};                                                       \
    }
RT_EXPORTS(8u, Rok8u)
RT_EXPORTS(16u, Rok16u)
RT_EXPORTS(16s, Rok16s)
RT_EXPORTS(32f, Rok32f)
RT_EXPORTS(64f, Rok64f)

struct Case {
    int srcW, srcH;
    wref::Rect srcRoi;
    int w, h;  // destination and maps
    int method;
    bool smooth = false;
};

// Guarded source, maps and destination of one call.
template <class T>
class RemapRun {
public:
    using M = Map<T>;
    RemapRun(Lay lay, const Case& c, int pad = 0, std::uint32_t seed = 1)
        : lay_(lay), c_(c), xm_(c.w, c.h, 1, pad), ym_(c.w, c.h, 1, pad + 1) {
        const int np = planes_of(lay), nc = samples_of(lay);
        for (int p = 0; p < np; ++p) {
            src_.push_back(std::make_unique<rokt::GuardedImage<T>>(c.srcW, c.srcH, nc, pad));
            dst_.push_back(std::make_unique<rokt::GuardedImage<T>>(c.w, c.h, nc, pad + 2));
            fill(*src_.back(), seed + p);
            fill(*dst_.back(), seed + 50 + p);
            before_.push_back(dst_.back()->bytes());
        }
    }

    // Positions that hit the box's edges, just outside them, whole and half
    // pixels, points between, and values that are not numbers or far away.
    void draw_positions(std::uint32_t seed) {
        std::mt19937 rng(seed);
        const int x0 = c_.srcRoi.x, y0 = c_.srcRoi.y, x1 = box_x1(), y1 = box_y1();
        auto pick = [&](int lo, int hi) -> M {
            const M inf = std::numeric_limits<M>::infinity();
            switch (rng() % 12) {
                case 0: return M(lo);
                case 1: return M(hi);
                case 2: return std::nextafter(M(hi), inf);
                case 3: return std::nextafter(M(lo), -inf);
                case 4: return M(lo + int(rng() % (hi - lo + 1))) + M(0.5);
                case 5: return M(lo + int(rng() % (hi - lo + 1)));
                case 6: return rng() % 2 ? std::numeric_limits<M>::quiet_NaN() : M(-1e30);
                case 7: return M(hi) - M(1e-3);
                default: return M(std::uniform_real_distribution<double>(lo - 1.5, hi + 1.5)(rng));
            }
        };
        for (int y = 0; y < c_.h; ++y)
            for (int x = 0; x < c_.w; ++x) xm_.at(x, y) = pick(x0, x1), ym_.at(x, y) = pick(y0, y1);
    }
    // Every position inside the box, away from its edges (vector blocks).
    void draw_inner(std::uint32_t seed) {
        std::mt19937 rng(seed);
        std::uniform_real_distribution<double> u(0.0, 1.0);
        for (int y = 0; y < c_.h; ++y)
            for (int x = 0; x < c_.w; ++x) {
                xm_.at(x, y) = M(c_.srcRoi.x + 2 + u(rng) * (box_x1() - c_.srcRoi.x - 5));
                ym_.at(x, y) = M(c_.srcRoi.y + 2 + u(rng) * (box_y1() - c_.srcRoi.y - 5));
            }
    }
    rokt::GuardedImage<M>& xmap() { return xm_; }
    rokt::GuardedImage<M>& ymap() { return ym_; }

    RokStatus run(int interpolation) {
        const auto e = exports_of(static_cast<T*>(nullptr));
        const RokiSize ss{c_.srcW, c_.srcH}, ds{c_.w, c_.h};
        const RokiRect sr{c_.srcRoi.x, c_.srcRoi.y, c_.srcRoi.w, c_.srcRoi.h};
        const T* sp[4];
        T* dp[4];
        for (std::size_t p = 0; p < src_.size(); ++p) sp[p] = src_[p]->data(), dp[p] = dst_[p]->data();
        const int sst = src_[0]->step(), dst = dst_[0]->step();
        if (lay_ == Lay::P3)
            return e.p3(sp, ss, sst, sr, xm_.data(), xm_.step(), ym_.data(), ym_.step(), dp, dst, ds, interpolation);
        if (lay_ == Lay::P4)
            return e.p4(sp, ss, sst, sr, xm_.data(), xm_.step(), ym_.data(), ym_.step(), dp, dst, ds, interpolation);
        return e.i[int(lay_)](sp[0], ss, sst, sr, xm_.data(), xm_.step(), ym_.data(), ym_.step(), dp[0], dst, ds,
                              interpolation);
    }
    RokStatus run() { return run(int(std::uint32_t(c_.method) | (c_.smooth ? 0x80000000u : 0u))); }

    bool untouched() const {
        for (std::size_t p = 0; p < dst_.size(); ++p)
            if (dst_[p]->bytes() != before_[p]) return false;
        return true;
    }

    // Every destination sample against the reference; returns the pixels
    // whose positions lie in the box.
    long long check(const std::string& what) const {
        const int x0 = c_.srcRoi.x, y0 = c_.srcRoi.y, x1 = box_x1(), y1 = box_y1();
        const int method = effective_method();
        const int nc = samples_of(lay_);
        long long inside = 0, bad = 0;
        for (std::size_t p = 0; p < dst_.size(); ++p) {
            const wref::Image<T> img{src_[p]->data(), src_[p]->step(), nc, x0, y0, x1, y1};
            const auto* old = reinterpret_cast<const T*>(before_[p].data());
            const auto& d = *dst_[p];
            for (int y = 0; y < c_.h; ++y)
                for (int x = 0; x < c_.w; ++x) {
                    const M px = xm_.at(x, y), py = ym_.at(x, y);
                    const bool in = px >= M(x0) && px <= M(x1) && py >= M(y0) && py <= M(y1);
                    inside += in;
                    const std::size_t at = std::size_t(y) * d.step() / sizeof(T) + std::size_t(x) * nc;
                    for (int ch = 0; ch < nc; ++ch) {
                        const T got = d.data()[at + ch], was = old[at + ch];
                        if (!in || (lay_ == Lay::AC4 && ch == 3)) {
                            if (std::memcmp(&got, &was, sizeof(T)) != 0 && bad++ < 5)
                                ADD_FAILURE() << what << ": written at " << x << "," << y << "," << ch << " ("
                                              << double(px) << ", " << double(py) << ")";
                            continue;
                        }
                        double slack;
                        double v = wref::value(img, method, px, py, ch, &slack);
                        const double cov = wref::cover(px, py, x0, y0, x1, y1);
                        if (c_.smooth && cov < 1) {
                            v = v * cov + double(was) * (1 - cov);
                            slack += (std::fabs(v) + std::fabs(double(was))) * 1e-6;
                        }
                        if (!wref::matches(got, v, slack) && bad++ < 5)
                            ADD_FAILURE() << what << " method " << method << ": at " << x << "," << y << "," << ch
                                          << " (" << double(px) << ", " << double(py) << ") got " << double(got)
                                          << " want " << v << " slack " << slack;
                    }
                }
        }
        return inside;
    }

    const rokt::GuardedImage<T>& dst(int p = 0) const { return *dst_[p]; }
    rokt::GuardedImage<T>& src(int p = 0) { return *src_[p]; }

private:
    int box_x1() const { return c_.srcRoi.x + std::min(c_.srcW - c_.srcRoi.x, c_.srcRoi.w) - 1; }
    int box_y1() const { return c_.srcRoi.y + std::min(c_.srcH - c_.srcRoi.y, c_.srcRoi.h) - 1; }
    int effective_method() const {
        const int side = std::min(c_.srcW, c_.srcH);
        if (side == 1) return 1;
        if (side < 4 && (c_.method == 4 || c_.method == 6 || c_.method == 16)) return 2;
        if (side < 6 && c_.method == 16) return 4;
        return c_.method;
    }
    static void fill(rokt::GuardedImage<T>& img, std::uint32_t seed) {
        if constexpr (std::is_floating_point_v<T>)
            rokt::fill_random(img, seed);
        else
            rokt::fill_random(img, seed, std::numeric_limits<T>::min(), std::numeric_limits<T>::max());
    }

    Lay lay_;
    Case c_;
    std::vector<std::unique_ptr<rokt::GuardedImage<T>>> src_, dst_;
    std::vector<std::vector<std::uint8_t>> before_;
    rokt::GuardedImage<M> xm_, ym_;
};

template <class T>
void every_layout_and_method() {
    const int methods[] = {1, 2, 4, 6, 16};
    int n = 0;
    for (Lay lay : rtest::kLayouts)
        for (int method : methods)
            for (bool smooth : {false, true}) {
                const Case c{13 + n % 5, 9 + n % 4, {1 + n % 2, 2, 11, 12}, 17 + n % 9, 5, method, smooth};
                RemapRun<T> run(lay, c, n % 3, 5 + n);
                run.draw_positions(100 + n++);
                ASSERT_EQ(run.run(), rokStatusOk);
                EXPECT_GT(run.check(std::string("remap ") + rtest::name_of(lay)), 10);
            }
}

TEST(Remap, EveryExportMatchesTheReference) {
    every_layout_and_method<Rok8u>();
    every_layout_and_method<Rok16u>();
    every_layout_and_method<Rok16s>();
    every_layout_and_method<Rok32f>();
    every_layout_and_method<Rok64f>();
}

// Map widths 1 to 70 with every position inside (the vector blocks), and
// again with a few positions outside between them.
template <class T>
void map_widths(Lay lay) {
    for (int w = 1; w <= 70; ++w)
        for (int method : {1, 2, 4, 6}) {
            const Case c{24, 20, {0, 0, 24, 20}, w, 3, method, false};
            RemapRun<T> run(lay, c, w % 3, w);
            run.draw_inner(w * 7 + method);
            if (w % 2) run.xmap().at(w / 2, 1) = -1, run.ymap().at(w - 1, 2) = 19.5f;
            ASSERT_EQ(run.run(), rokStatusOk);
            run.check("width " + std::to_string(w));
        }
}

TEST(Remap, EveryMapWidth) {
    map_widths<Rok8u>(Lay::C1);
    map_widths<Rok8u>(Lay::C3);
    map_widths<Rok8u>(Lay::C4);
    map_widths<Rok8u>(Lay::AC4);
    map_widths<Rok32f>(Lay::C1);
    map_widths<Rok16s>(Lay::C3);
}

// The same positions through the vector blocks (row 0) and through the rule
// one pixel at a time (row 1, where one position outside the box in each
// block of eight sends the block there) give the same bits.
template <class T>
void vector_equals_rule(Lay lay) {
    for (int method : {1, 2, 4, 6})
        for (bool smooth : {false, true}) {
            const Case c{40, 30, {0, 0, 40, 30}, 64, 2, method, smooth};
            RemapRun<T> run(lay, c, 1, 77);
            run.draw_inner(method);
            for (int x = 0; x < 64; ++x) {
                const bool out = x % 8 == 7;
                run.xmap().at(x, 1) = out ? -5.0f : run.xmap().at(x, 0);
                run.ymap().at(x, 1) = run.ymap().at(x, 0);
            }
            ASSERT_EQ(run.run(), rokStatusOk);
            const int nc = lay == Lay::AC4 ? 3 : samples_of(lay);  // alpha stays as it was
            for (int x = 0; x < 64; ++x) {
                if (x % 8 == 7) continue;
                for (int ch = 0; ch < nc; ++ch)
                    ASSERT_EQ(std::memcmp(&run.dst().at(x, 0, ch), &run.dst().at(x, 1, ch), sizeof(T)), 0)
                        << rtest::name_of(lay) << " method " << method << " pixel " << x << " channel " << ch;
            }
            run.check("vector against rule");
        }
}

TEST(Remap, VectorBlocksGiveTheRulesBits) {
    for (Lay lay : {Lay::C1, Lay::C3, Lay::C4, Lay::AC4}) {
        vector_equals_rule<Rok8u>(lay);
        vector_equals_rule<Rok32f>(lay);
    }
}

TEST(Remap, BoxEdges) {
    // A 6 x 5 source, box columns 1..4 and rows 1..3.
    const Case c{6, 5, {1, 1, 4, 3}, 6, 1, 2, false};
    RemapRun<Rok8u> run(Lay::C1, c);
    for (int y = 0; y < 5; ++y)
        for (int x = 0; x < 6; ++x) run.src().at(x, y) = Rok8u(10 * y + x);
    const float xs[6] = {4, std::nextafter(4.0f, 5.0f), -2, 1, 3.75f, 2.5f};
    const float ys[6] = {3, 2, 2, std::nextafter(1.0f, 0.0f), 3, 1};
    for (int i = 0; i < 6; ++i) run.xmap().at(i, 0) = xs[i], run.ymap().at(i, 0) = ys[i];
    const Rok8u was[6] = {run.dst().at(0, 0), run.dst().at(1, 0), run.dst().at(2, 0), run.dst().at(3, 0),
                          run.dst().at(4, 0), run.dst().at(5, 0)};
    ASSERT_EQ(run.run(), rokStatusOk);
    EXPECT_EQ(run.dst().at(0, 0), 34);      // the box's last column and row: fraction 1 on both
    EXPECT_EQ(run.dst().at(1, 0), was[1]);  // a hair beyond the last column
    EXPECT_EQ(run.dst().at(2, 0), was[2]);  // negative
    EXPECT_EQ(run.dst().at(3, 0), was[3]);  // a hair above the first row
    EXPECT_EQ(run.dst().at(4, 0), 34);      // 33.75 on the last row rounds to 34
    EXPECT_EQ(run.dst().at(5, 0), 13);      // 12.5, a tie, which the fixed point rounds up
    run.check("box edges");
}

TEST(Remap, SmallImagesChangeTheMethod) {
    // The rule reads the whole image's size: a 5 x 5 image takes cubic for
    // Lanczos, a 3 x 9 image bilinear for Catmull-Rom, a 1 x 8 image nearest
    // neighbour for anything; the reference applies the same rule.
    const Case cases[] = {{5, 5, {0, 0, 5, 5}, 12, 4, 16, true},  {3, 9, {0, 0, 3, 9}, 12, 4, 6, false},
                          {1, 8, {0, 0, 1, 8}, 12, 4, 4, false}, {8, 1, {0, 0, 8, 1}, 12, 4, 16, false},
                          {7, 6, {0, 0, 7, 6}, 12, 4, 16, false}};
    int n = 0;
    for (const Case& c : cases) {
        RemapRun<Rok32f> run(Lay::C1, c, 0, ++n);
        run.draw_positions(n);
        ASSERT_EQ(run.run(), rokStatusOk);
        run.check("small image " + std::to_string(n));
    }
    // 5 x 5 Lanczos and 5 x 5 cubic give the same bits.
    const Case l{5, 5, {0, 0, 5, 5}, 9, 3, 16, false}, k{5, 5, {0, 0, 5, 5}, 9, 3, 4, false};
    RemapRun<Rok32f> a(Lay::C1, l, 0, 9), b(Lay::C1, k, 0, 9);
    a.draw_inner(3), b.draw_inner(3);
    ASSERT_EQ(a.run(), rokStatusOk);
    ASSERT_EQ(b.run(), rokStatusOk);
    EXPECT_EQ(a.dst().bytes(), b.dst().bytes());
}

TEST(Remap, ChecksInOrderWriteNothing) {
    struct Args {
        bool nullSrc = false, nullDst = false, nullX = false, nullY = false, nullPlane = false;
        RokiSize srcSize{10, 8}, dstSize{6, 4};
        RokiRect srcRoi{0, 0, 10, 8};
        int srcStep = 10, dstStep = 6, xStep = 24, yStep = 24;
        int interpolation = rokInterLinear;
    };
    struct Row {
        const char* what;
        std::function<void(Args&)> change;
        RokStatus want;
    };
    const Row rows[] = {
        {"null source", [](Args& a) { a.nullSrc = true; a.srcSize.width = 0; }, rokStatusNullPtr},
        {"null destination", [](Args& a) { a.nullDst = true; }, rokStatusNullPtr},
        {"null x map", [](Args& a) { a.nullX = true; a.interpolation = 3; }, rokStatusNullPtr},
        {"null y map", [](Args& a) { a.nullY = true; a.srcStep = 0; }, rokStatusNullPtr},
        {"null plane", [](Args& a) { a.nullPlane = true; a.dstSize.height = 0; }, rokStatusNullPtr},
        {"source width 0", [](Args& a) { a.srcSize.width = 0; a.interpolation = 3; }, rokStatusBadSize},
        {"source height -1", [](Args& a) { a.srcSize.height = -1; }, rokStatusBadSize},
        {"srcRoi.x -1", [](Args& a) { a.srcRoi.x = -1; }, rokStatusBadSize},
        {"srcRoi.y -1", [](Args& a) { a.srcRoi.y = -1; }, rokStatusBadSize},
        {"srcRoi width 0", [](Args& a) { a.srcRoi.width = 0; }, rokStatusBadSize},
        {"srcRoi height 0", [](Args& a) { a.srcRoi.height = 0; }, rokStatusBadSize},
        {"destination width 0", [](Args& a) { a.dstSize.width = 0; }, rokStatusBadSize},
        {"destination height -1", [](Args& a) { a.dstSize.height = -1; a.srcStep = 0; }, rokStatusBadSize},
        {"method 8", [](Args& a) { a.interpolation = rokInterSuper; a.srcStep = 0; }, rokStatusBadInterpolation},
        {"method 5", [](Args& a) { a.interpolation = rokInterBSpline; }, rokStatusBadInterpolation},
        {"sub-pixel edge", [](Args& a) { a.interpolation = rokInterLinear | rokEdgeSubpixel; }, rokStatusBadInterpolation},
        {"source step 0", [](Args& a) { a.srcStep = 0; a.srcRoi.x = 10; }, rokStatusBadStep},
        {"destination step -6", [](Args& a) { a.dstStep = -6; }, rokStatusBadStep},
        {"x map step 0", [](Args& a) { a.xStep = 0; }, rokStatusBadStep},
        {"y map step -4", [](Args& a) { a.yStep = -4; }, rokStatusBadStep},
        {"start outside", [](Args& a) { a.srcRoi.x = 10; }, rokStatusNoIntersection},
        {"start below", [](Args& a) { a.srcRoi.y = 8; a.srcRoi.height = 1; }, rokStatusNoIntersection},
    };
    for (const Row& r : rows) {
        Args a;
        r.change(a);
        std::vector<Rok8u> src(3 * 80, 1), dst(3 * 24, 2);
        std::vector<float> xm(24, 2.5f), ym(24, 1.5f);
        const Rok8u* sp[3] = {src.data(), src.data() + 80, src.data() + 160};
        Rok8u* dp[3] = {dst.data(), dst.data() + 24, dst.data() + 48};
        if (a.nullPlane) dp[2] = nullptr;
        const auto before = dst;
        EXPECT_EQ(rokiRemap_8u_P3R(a.nullSrc ? nullptr : sp, a.srcSize, a.srcStep, a.srcRoi,
                                   a.nullX ? nullptr : xm.data(), a.xStep, a.nullY ? nullptr : ym.data(), a.yStep,
                                   a.nullDst ? nullptr : dp, a.dstStep, a.dstSize, a.interpolation),
                  r.want)
            << r.what;
        EXPECT_EQ(dst, before) << r.what;
    }
}

// Rows shared among threads give the bits of one thread, on maps that mix
// positions inside, on and outside the box, with and without the smooth edge.
TEST(Remap, ResultsDoNotDependOnTheThreadCount) {
    for (int method : {2, 4, 16})
        for (bool smooth : {false, true}) {
            const Case c{90, 70, {3, 2, 80, 66}, 150, 130, method, smooth};
            std::vector<std::uint8_t> first;
            for (int threads : {1, 2, 7}) {
                RemapRun<Rok8u> run(Lay::C3, c, 1, 9);
                run.draw_positions(31 + method);
                rokt::WithThreads t(threads);
                ASSERT_EQ(run.run(), rokStatusOk);
                if (threads == 1) {
                    EXPECT_GT(run.check("one thread"), 1000);
                    first = run.dst().bytes();
                } else {
                    EXPECT_EQ(run.dst().bytes(), first) << threads << " threads, method " << method;
                }
            }
        }
}

}  // namespace
