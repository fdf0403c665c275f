// Resize with square pixels: argument checks, the small-image rule, the
// region computation, buffer sizes and rokiGetResizeRect. The row engines
// that do the work are in resize_engine.cpp.
#include "geometry/resize.h"

#include <algorithm>
#include <cfenv>
#include <climits>
#include <cmath>

#include "convert/rounding.h"
#include "core/core.h"
#include "geometry/interp.h"
#include "geometry/resize_plan.h"

namespace rok::geometry {

namespace {

// Small sources cannot feed the wide kernels: below 4 pixels on a side the
// cubic and Lanczos methods fall back to bilinear, below 6 Lanczos falls back
// to cubic. Decided on the whole source image, not on the rectangle.
int small_image_method(int method, RokiSize srcSize) {
    if (srcSize.width >= 6 && srcSize.height >= 6) return method;
    if (srcSize.width < 4 || srcSize.height < 4) return (is_cubic(method) || method == kLanczos) ? kLinear : method;
    return method == kLanczos ? kCubic : method;
}

// A factor whose reciprocal overflows (below about 5.6e-309) cannot map back.
bool good_factor(double f) { return std::isfinite(f) && f > 0.0 && std::isfinite(1.0 / f); }

long long ceil_div(long long a, long long b) { return (a + b - 1) / b; }
long long round_up(long long a, long long m) { return ceil_div(a, m) * m; }

// Bytes per thread before the +32, in 32-bit floats (wide = false) or with
// every float table and row doubled for the 64f members.
long long slice_bytes(RokiRect srcRoi, RokiRect dstRoi, long long n, int method, bool antialias, bool wide) {
    const long long W = dstRoi.width, H = dstRoi.height;
    if (method == kSuper) {
        const long long s = ceil_div(srcRoi.width, 16) * 128 * n;
        return wide ? 2 * s : s;
    }
    const long long base = (ceil_div(W, 16) + ceil_div(H, 16)) * 64;
    long long rest;
    if (method == kNearest) {
        rest = 0;
    } else if (antialias) {
        // Anti-aliasing engine: per column a start, a count and a weight
        // offset, the column weights (at most max(2R W, (2R + 2)
        // srcRoi.width) of them for support radius R), and 2R + 2 rows of W
        // intermediates per channel.
        const long long r = support_radius(method);
        const long long weights = std::max(2 * r * W, (2 * r + 2) * (long long)srcRoi.width);
        const long long floats = ceil_div(weights, 16) * 64 + (2 * r + 2) * round_up(W, 16) * 4 * n;
        return 3 * ceil_div(W, 16) * 64 + (wide ? 2 * floats : floats);
    } else if (method == kLinear) {
        rest = (round_up(W, 64) + round_up(H, 64)) * 4 + ((8 * W + 508) & ~255LL) * n;
    } else if (method == kLanczos) {
        const long long L = (6 * W + 191) & ~31LL;
        rest = (round_up(W, 32) + round_up(H, 32)) * 4 + L * 4 + ((6 * H + 191) / 32) * 128 + L * 4 * n;
    } else {
        rest = ((4 * W + 127) / 32) * 128 + (round_up(W, 32) + round_up(H, 32)) * 4 + ((16 * H + 508) & ~127LL) +
               ((4 * W + 255) / 64) * 256 * n;
    }
    return base + (wide ? 2 * rest : rest);
}

}  // namespace

long long serial_buffer_size(RokiRect srcRoi, RokiRect dstRoi, int nChannel, int interpolation, bool wide) {
    Interp ip;
    parse_interp(interpolation, &ip);
    const bool antialias = ip.antialias && ip.method != kNearest && ip.method != kSuper;
    const long long s = slice_bytes(srcRoi, dstRoi, nChannel, ip.method, antialias, wide) + 32;
    return s > INT_MAX ? -1 : s;
}

RokStatus get_buffer_size(RokiRect srcRoi, RokiRect dstRoi, Rok32u nChannel, int interpolation, int* pBufSize,
                          bool wide) {
    if (pBufSize == nullptr) return rokStatusNullPtr;
    if (srcRoi.x < 0 || srcRoi.y < 0 || srcRoi.width <= 0 || srcRoi.height <= 0 || dstRoi.x < 0 || dstRoi.y < 0 ||
        dstRoi.width <= 0 || dstRoi.height <= 0)
        return rokStatusBadSize;
    if (nChannel != 1 && nChannel != 3 && nChannel != 4) return rokStatusBadChannelCount;
    Interp ip;
    if (!parse_interp(interpolation, &ip)) return rokStatusBadInterpolation;
    const long long s = serial_buffer_size(srcRoi, dstRoi, nChannel, interpolation, wide);
    if (s < 0) {
        *pBufSize = 0;
        return rokStatusBadSize;
    }
    const long long m = std::min<long long>(INT_MAX / s, ownGetNumThreads());
    *pBufSize = int(s * m);
    return rokStatusOk;
}

RokStatus get_resize_rect(RokiRect srcRoi, RokiRect* pDstRect, double xFactor, double yFactor, double xShift,
                          double yShift, int interpolation) {
    if (pDstRect == nullptr) return rokStatusNullPtr;
    if (srcRoi.x < 0 || srcRoi.y < 0 || srcRoi.width <= 0 || srcRoi.height <= 0) return rokStatusBadSize;
    if (!good_factor(xFactor) || !good_factor(yFactor)) return rokStatusBadResizeFactor;
    Interp ip;
    if (!parse_interp(interpolation, &ip)) return rokStatusBadInterpolation;
    if (!std::isfinite(xShift) || !std::isfinite(yShift)) return 1;  // lands nowhere
    const double l = double(srcRoi.x) * xFactor + xShift, t = double(srcRoi.y) * yFactor + yShift;
    const double r = double(srcRoi.x + (long long)srcRoi.width) * xFactor + xShift;
    const double b = double(srcRoi.y + (long long)srcRoi.height) * yFactor + yShift;
    double left, top, right, bottom;
    if (ip.smooth || ip.subpixel) {
        // Every pixel the rectangle touches.
        left = std::max(std::floor(l + 1e-10), 0.0);
        top = std::floor(t + 1e-10);
        right = std::ceil(r - 1e-10);
        bottom = std::ceil(b - 1e-10);
    } else {
        // Every pixel whose centre it covers.
        left = std::trunc(l + 0.4999999999);
        top = std::trunc(t + 0.4999999999);
        right = std::trunc(r + 0.5000000001);
        bottom = std::trunc(b + 0.5000000001);
    }
    top = std::max(top, 0.0);
    right = std::max(right, 0.0);
    bottom = std::max(bottom, 0.0);
    if (left >= right || top >= bottom) return 1;
    const double lim = double(INT_MAX);
    if (left < -lim - 1 || right > lim || bottom > lim || right - left > lim || bottom - top > lim)
        return rokStatusBadSize;
    *pDstRect = RokiRect{int(left), int(top), int(right - left), int(bottom - top)};
    return rokStatusOk;
}

RokStatus resize_sqr_pixel(const ResizeArgs& a) {
    if (a.src == nullptr || a.dst == nullptr || a.buffer == nullptr) return rokStatusNullPtr;
    for (int p = 0; p < a.planes; ++p)
        if (a.src[p] == nullptr || a.dst[p] == nullptr) return rokStatusNullPtr;
    if (a.srcSize.width <= 0 || a.srcSize.height <= 0 || a.srcRoi.x < 0 || a.srcRoi.y < 0 || a.srcRoi.width <= 0 ||
        a.srcRoi.height <= 0 || a.dstRoi.x < 0 || a.dstRoi.y < 0 || a.dstRoi.width <= 0 || a.dstRoi.height <= 0)
        return rokStatusBadSize;
    if (!good_factor(a.xFactor) || !good_factor(a.yFactor)) return rokStatusBadResizeFactor;
    Interp ip;
    if (!parse_interp(a.interpolation, &ip)) return rokStatusBadInterpolation;
    if (ip.method == kSuper && (a.xFactor > 1.0 || a.yFactor > 1.0)) return rokStatusBadResizeFactor;

    ResizePlan p{};
    ResizeRecord& rec = p.rec;
    rec.method = std::uint32_t(small_image_method(ip.method, a.srcSize));
    rec.smooth = std::uint32_t(a.interpolation) & 0x80000000u;
    rec.subpixel = std::uint32_t(a.interpolation) & 0x40000000u;
    rec.antialias = std::uint32_t(a.interpolation) & 0x20000000u;
    rec.invX = 1.0 / a.xFactor;
    rec.invY = 1.0 / a.yFactor;
    rec.offX = -a.xShift / a.xFactor;
    rec.offY = -a.yShift / a.yFactor;
    rec.area = ip.method == kSuper ? a.xFactor * a.yFactor : 0.0;

    if (a.srcRoi.x >= a.srcSize.width || a.srcRoi.y >= a.srcSize.height) return rokStatusNoIntersection;

    // The source rectangle cut to the image, mapped forward on pixel edges
    // and cut to the destination rectangle.
    const int w = std::min(a.srcSize.width - a.srcRoi.x, a.srcRoi.width);
    const int h = std::min(a.srcSize.height - a.srcRoi.y, a.srcRoi.height);
    if (!std::isfinite(a.xShift) || !std::isfinite(a.yShift)) return 1;  // lands nowhere
    rec.x0 = std::max(double(a.srcRoi.x) * a.xFactor + a.xShift, double(a.dstRoi.x));
    rec.x1 = std::min(double(a.srcRoi.x + w) * a.xFactor + a.xShift, double(a.dstRoi.x) + a.dstRoi.width);
    rec.y0 = std::max(double(a.srcRoi.y) * a.yFactor + a.yShift, double(a.dstRoi.y));
    rec.y1 = std::min(double(a.srcRoi.y + h) * a.yFactor + a.yShift, double(a.dstRoi.y) + a.dstRoi.height);
    double X0, X1, Y0, Y1;
    const bool edges = ip.smooth || ip.subpixel;
    if (edges) {
        // Only pixels the source covers entirely.
        X0 = std::ceil(rec.x0 - 1e-10);
        Y0 = std::ceil(rec.y0 - 1e-10);
        X1 = std::floor(rec.x1 + 1e-10);
        Y1 = std::floor(rec.y1 + 1e-10);
    } else {
        // Pixels whose centres it covers; a bound within 1e-10 of a centre
        // takes that pixel at either end.
        X0 = std::trunc(rec.x0 + 0.4999999999);
        Y0 = std::trunc(rec.y0 + 0.4999999999);
        X1 = std::trunc(rec.x1 + 0.5000000001);
        Y1 = std::trunc(rec.y1 + 0.5000000001);
    }
    if (!(X0 < X1) || !(Y0 < Y1)) return 1;
    if (X1 >= INT_MAX || Y1 >= INT_MAX) return rokStatusBadSize;  // beyond 32-bit coordinates
    rec.x = int(X0);
    rec.y = int(Y0);
    rec.width = int(X1 - X0);
    rec.height = int(Y1 - Y0);

    if (a.srcStep < 1 || a.dstStep < 1) return rokStatusBadStep;

    // The partly covered pixels round the region, blended or weighted by
    // the covered fraction.
    p.ox = rec.x;
    p.oy = rec.y;
    p.ow = rec.width;
    p.oh = rec.height;
    if (edges) {
        const double l = X0 - rec.x0, r = rec.x1 - X1, t = Y0 - rec.y0, b = rec.y1 - Y1;
        if (l > 1e-10) p.covLeft = float(l), p.ox -= 1, p.ow += 1;
        if (r > 1e-10) p.covRight = float(r), p.ow += 1;
        if (t > 1e-10) p.covTop = float(t), p.oy -= 1, p.oh += 1;
        if (b > 1e-10) p.covBottom = float(b), p.oh += 1;
    }
    p.sx0 = a.srcRoi.x;
    p.sx1 = a.srcRoi.x + w;
    p.sy0 = a.srcRoi.y;
    p.sy1 = a.srcRoi.y + h;
    if ((long long)p.sx1 * a.nc > INT_MAX / 2) return rokStatusBadSize;

    const bool wide = a.type == SampleType::F64;
    const long long slice = serial_buffer_size(a.srcRoi, a.dstRoi, a.bufferChannels, a.interpolation, wide);
    if (slice < 0) return rokStatusBadSize;
    p.sliceBytes = std::size_t(slice);
    const int threads = int(std::min<long long>(INT_MAX / slice, ownGetNumThreads()));
    p.team = (p.ow >= 64 && p.oh >= 64 && threads > 1) ? threads : 1;
    p.args = &a;

    // The row engines round to nearest; the caller's mode comes back on return.
    convert::RoundingGuard nearest(FE_TONEAREST);
    switch (a.type) {
        case SampleType::U8: return run_resize<Rok8u>(p);
        case SampleType::U16: return run_resize<Rok16u>(p);
        case SampleType::S16: return run_resize<Rok16s>(p);
        case SampleType::F32: return run_resize<Rok32f>(p);
        default: return run_resize<Rok64f>(p);
    }
}

}  // namespace rok::geometry
