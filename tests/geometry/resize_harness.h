// Runs rokiResizeSqrPixel for any sample type and layout on guarded images
// and a guarded work buffer of exactly the reported size, and checks every
// destination sample against the reference.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "guarded.h"
#include "random.h"
#include "resize_reference.h"
#include "roki.h"
#include "threads.h"

namespace rtest {

enum class Lay { C1, C3, C4, AC4, P3, P4 };
constexpr Lay kLayouts[] = {Lay::C1, Lay::C3, Lay::C4, Lay::AC4, Lay::P3, Lay::P4};

inline int planes_of(Lay l) { return l == Lay::P3 ? 3 : l == Lay::P4 ? 4 : 1; }
inline int samples_of(Lay l) { return l == Lay::C3 ? 3 : (l == Lay::C4 || l == Lay::AC4) ? 4 : 1; }
// The nChannel a caller passes: one channel is enough for the planar forms.
inline int buffer_channels(Lay l) { return planes_of(l) > 1 ? 1 : samples_of(l); }
inline const char* name_of(Lay l) {
    static const char* names[] = {"C1", "C3", "C4", "AC4", "P3", "P4"};
    return names[int(l)];
}

template <class T>
using Interleaved = RokStatus (*)(const T*, RokiSize, int, RokiRect, T*, int, RokiRect, double, double, double,
                                  double, int, Rok8u*);
template <class T>
using Planes = RokStatus (*)(const T* const*, RokiSize, int, RokiRect, T* const*, int, RokiRect, double, double,
                             double, double, int, Rok8u*);

template <class T>
struct Exports;
#define RTEST_EXPORTS(S, T)                                                                                        \
    template <>                                                                                                    \
    struct Exports<T> {                                                                                            \
        static constexpr Interleaved<T> interleaved[4] = {rokiResizeSqrPixel_##S##_C1R, rokiResizeSqrPixel_##S##_C3R, \
                                                          rokiResizeSqrPixel_##S##_C4R,                            \
                                                          rokiResizeSqrPixel_##S##_AC4R};                          \
        static RokStatus planar(Lay l, const T* const* s, RokiSize ss, int sst, RokiRect sr, T* const* d, int dst,  \
                                RokiRect dr, double xf, double yf, double xs, double ys, int ip, Rok8u* b) {        \
            return l == Lay::P3 ? rokiResizeSqrPixel_##S##_P3R(s, ss, sst, sr, d, dst, dr, xf, yf, xs, ys, ip, b)   \
                                : rokiResizeSqrPixel_##S##_P4R(s, ss, sst, sr, d, dst, dr, xf, yf, xs, ys, ip, b);  \
        }                                                                                                          \
    };
RTEST_EXPORTS(8u, Rok8u)
RTEST_EXPORTS(16u, Rok16u)
RTEST_EXPORTS(16s, Rok16s)
RTEST_EXPORTS(32f, Rok32f)
RTEST_EXPORTS(64f, Rok64f)
#undef RTEST_EXPORTS

inline std::string describe(const rref::Call& c) {
    char buf[256];
    std::snprintf(buf, sizeof buf, "src %dx%d rect {%d,%d,%d,%d} dst {%d,%d,%d,%d} f %.17g %.17g shift %.17g %.17g",
                  c.srcW, c.srcH, c.src.x, c.src.y, c.src.w, c.src.h, c.dst.x, c.dst.y, c.dst.w, c.dst.h, c.xf, c.yf,
                  c.xs, c.ys);
    return buf;
}

inline int code_of(const rref::Call& c) {
    std::uint32_t code = std::uint32_t(c.method);
    if (c.smooth) code |= 0x80000000u;
    if (c.subpixel) code |= 0x40000000u;
    if (c.antialias) code |= 0x20000000u;
    return int(code);
}

inline int buffer_size(const rref::Call& c, Lay l, bool wide) {
    int size = -1;
    const RokiRect s{c.src.x, c.src.y, c.src.w, c.src.h}, d{c.dst.x, c.dst.y, c.dst.w, c.dst.h};
    const RokStatus st = wide ? rokiResizeGetBufSize_64f(s, d, Rok32u(buffer_channels(l)), code_of(c), &size)
                              : rokiResizeGetBufSize(s, d, Rok32u(buffer_channels(l)), code_of(c), &size);
    EXPECT_EQ(st, rokStatusOk);
    return size;
}

// One call: a random source of srcW x srcH, a destination image just large
// enough for dstRoi filled with a pattern, a work buffer of the reported
// size whose last byte abuts a protected page.
template <class T>
class ResizeRun {
public:
    ResizeRun(Lay lay, const rref::Call& call, int pad = 0, std::uint32_t seed = 1) : lay_(lay), call_(call) {
        const int np = planes_of(lay), nc = samples_of(lay);
        const int dw = call.dst.x + call.dst.w, dh = call.dst.y + call.dst.h;
        for (int p = 0; p < np; ++p) {
            src_.push_back(std::make_unique<rokt::GuardedImage<T>>(call.srcW, call.srcH, nc, pad));
            if constexpr (std::is_floating_point_v<T>)
                rokt::fill_random(*src_.back(), seed + p);
            else
                rokt::fill_random(*src_.back(), seed + p, std::numeric_limits<T>::min(), std::numeric_limits<T>::max());
            dst_.push_back(std::make_unique<rokt::GuardedImage<T>>(dw, dh, nc, pad + 1));
            fill_pattern(*dst_.back(), 7 + p);
            before_.push_back(dst_.back()->bytes());
        }
    }

    RokStatus run() {
        const int size = buffer_size(call_, lay_, sizeof(T) == 8);
        buffer_ = std::make_unique<rokt::GuardedBuffer>(std::size_t(size > 0 ? size : 1), rokt::Guard::After);
        return call_with(buffer_->data());
    }

    RokStatus call_with(Rok8u* buffer, int srcStep = 0, int dstStep = 0) {
        const rref::Call& c = call_;
        const RokiSize ss{c.srcW, c.srcH};
        const RokiRect sr{c.src.x, c.src.y, c.src.w, c.src.h}, dr{c.dst.x, c.dst.y, c.dst.w, c.dst.h};
        const int sst = srcStep ? srcStep : src_[0]->step(), dst = dstStep ? dstStep : dst_[0]->step();
        if (planes_of(lay_) == 1)
            return Exports<T>::interleaved[int(lay_)](src_[0]->data(), ss, sst, sr, dst_[0]->data(), dst, dr, c.xf,
                                                      c.yf, c.xs, c.ys, code_of(c), buffer);
        const T* sp[4];
        T* dp[4];
        for (std::size_t p = 0; p < src_.size(); ++p) sp[p] = src_[p]->data(), dp[p] = dst_[p]->data();
        return Exports<T>::planar(lay_, sp, ss, sst, sr, dp, dst, dr, c.xf, c.yf, c.xs, c.ys, code_of(c), buffer);
    }

    bool untouched() const {
        for (std::size_t p = 0; p < dst_.size(); ++p)
            if (dst_[p]->bytes() != before_[p]) return false;
        return true;
    }

    // Every destination sample: the reference inside the region written,
    // the pattern outside it and in every alpha sample. Returns the number
    // of samples written.
    long long expect_reference(const std::string& what) const {
        const rref::Call& c = call_;
        const rref::Region r = rref::region(c);
        if (r.status != 0) {
            EXPECT_TRUE(untouched()) << what;
            return 0;
        }
        // The region and, for the edge modes, the partly covered frame.
        int x0 = r.x0, x1 = r.x1, y0 = r.y0, y1 = r.y1;
        double cl = 0, cr = 0, ct = 0, cb = 0;
        if (c.smooth || c.subpixel) {
            cl = r.x0 - r.fx0, cr = r.fx1 - r.x1, ct = r.y0 - r.fy0, cb = r.fy1 - r.y1;
            if (cl > 1e-10) --x0; else cl = 0;
            if (cr > 1e-10) ++x1; else cr = 0;
            if (ct > 1e-10) --y0; else ct = 0;
            if (cb > 1e-10) ++y1; else cb = 0;
        }
        const int nc = samples_of(lay_);
        long long written = 0, bad = 0;
        for (std::size_t p = 0; p < dst_.size(); ++p) {
            const auto& d = *dst_[p];
            const rref::Image<T> img{src_[p]->data(), src_[p]->step(), nc};
            const auto* old = reinterpret_cast<const T*>(before_[p].data());
            for (int y = 0; y < d.height(); ++y)
                for (int x = 0; x < d.width(); ++x)
                    for (int ch = 0; ch < nc; ++ch) {
                        const std::size_t at = std::size_t(y) * d.step() / sizeof(T) + std::size_t(x) * nc + ch;
                        const T got = d.data()[at], was = old[at];
                        const bool inside = x >= x0 && x < x1 && y >= y0 && y < y1;
                        if (!inside || (lay_ == Lay::AC4 && ch == 3)) {
                            if (std::memcmp(&got, &was, sizeof(T)) != 0 && bad++ < 5)
                                ADD_FAILURE() << what << ": written outside at " << x << "," << y << "," << ch;
                            continue;
                        }
                        ++written;
                        double slack;
                        double v = rref::value(c, img, x, y, ch, &slack);
                        const double cx = x < r.x0 ? cl : x >= r.x1 ? cr : 1, cy = y < r.y0 ? ct : y >= r.y1 ? cb : 1;
                        if (cx < 1 || cy < 1) {
                            const double cov = double(float(cy) * float(cx));
                            slack += (std::fabs(v) + std::fabs(double(was))) * 1e-6;
                            v = c.smooth ? v * cov + double(was) * (1 - cov) : v * cov;
                        }
                        if (!close(got, v, slack) && bad++ < 5)
                            ADD_FAILURE() << what << " " << describe(c) << ": at " << x << "," << y << "," << ch << " got " << double(got)
                                          << " want " << v << " (slack " << slack << ")";
                    }
        }
        return written;
    }

    const rokt::GuardedImage<T>& dst(int p = 0) const { return *dst_[p]; }
    rokt::GuardedImage<T>& src(int p = 0) { return *src_[p]; }

private:
    static void fill_pattern(rokt::GuardedImage<T>& img, int seed) {
        if constexpr (std::is_floating_point_v<T>)
            rokt::fill_random(img, std::uint32_t(seed));
        else
            rokt::fill_random(img, std::uint32_t(seed), std::numeric_limits<T>::min(), std::numeric_limits<T>::max());
    }

    static bool close(T got, double want, double slack) {
        if constexpr (std::is_floating_point_v<T>) {
            return std::fabs(double(got) - want) <= slack + 1e-300;
        } else {
            // Rounded to nearest, ties to even, then saturated; where the
            // library's float arithmetic is not exact (slack > 0) a value
            // within that error of a tie may go either way.
            auto sat = [](double v) {
                return std::min(std::max(v, double(std::numeric_limits<T>::min())), double(std::numeric_limits<T>::max()));
            };
            if (double(got) == sat(std::nearbyint(want))) return true;
            const double f = std::floor(want);
            return slack > 0 && std::fabs(want - (f + 0.5)) <= slack &&
                   (double(got) == sat(f) || double(got) == sat(f + 1));
        }
    }

    Lay lay_;
    rref::Call call_;
    std::vector<std::unique_ptr<rokt::GuardedImage<T>>> src_, dst_;
    std::vector<std::vector<std::uint8_t>> before_;
    std::unique_ptr<rokt::GuardedBuffer> buffer_;
};

}  // namespace rtest
