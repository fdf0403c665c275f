// The frame shared by every warp: argument checks in their order, the
// transform from its form (coefficients, back coefficients, quadrangles,
// rotation or shear), the singularity test, the small-image rule, the cut of
// the source rectangle, its mapped quadrangle and convexity, the inverse map,
// and the spans of destination pixels that the row engine then writes.
#include "geometry/warp.h"

#include <algorithm>
#include <cfenv>
#include <climits>
#include <cmath>
#include <numbers>

#include "convert/rounding.h"
#include "core/core.h"
#include "geometry/interp.h"
#include "geometry/warp_plan.h"

namespace rok::geometry {

namespace {

bool bad_size(const WarpImages& im) {
    const RokiRect &s = im.srcRoi, &d = im.dstRoi;
    return im.srcSize.width < 1 || im.srcSize.height < 1 || s.x < 0 || s.y < 0 || s.width < 1 || s.height < 1 ||
           d.x < 0 || d.y < 0 || d.width < 1 || d.height < 1;
}

// A source one pixel wide or high can only be sampled at its pixels; cubic
// needs four on a side and falls back to bilinear below that.
int small_image_method(int method, RokiSize s) {
    if (s.width == 1 || s.height == 1) return kNearest;
    if (method == kCubic && (s.width < 4 || s.height < 4)) return kLinear;
    return method;
}

bool whole(double v) { return std::floor(v) == v; }

// A perspective map keeps the rectangle on one side of its vanishing line:
// the denominators at the four corners share a strict sign.
bool one_side(const PlaneMap& m, RokiRect r) {
    double q[4][2];
    rect_corners(r, q);
    int pos = 0, neg = 0;
    for (auto& v : q) {
        const double d = m.c[2][0] * v[0] + m.c[2][1] * v[1] + m.c[2][2];
        pos += d > 0.0;
        neg += d < 0.0;
    }
    return pos == 4 || neg == 4;
}

PlaneMap rotation_map(double c, double s, double xShift, double yShift) {
    const double k[6] = {c, s, xShift, -s, c, yShift};
    return affine_map(k);
}

class SpanTable {
public:
    explicit SpanTable(int rows) {
        const long long bytes = (2LL * rows + 2) * 4;
        if (bytes <= INT_MAX) p_ = static_cast<std::int32_t*>(rokMalloc(int(bytes)));
    }
    ~SpanTable() { rokFree(p_); }
    SpanTable(const SpanTable&) = delete;
    SpanTable& operator=(const SpanTable&) = delete;
    std::int32_t* get() const { return p_; }

private:
    std::int32_t* p_ = nullptr;
};

}  // namespace

void rotation(double angle, double* reduced, double* c, double* s) {
    double a = angle - std::trunc(angle / 360.0) * 360.0;
    if (a < 0.0) a += 360.0;
    if (a >= 360.0) a -= 360.0;
    *reduced = a;
    if (a == 0.0) *c = 1.0, *s = 0.0;
    else if (a == 90.0) *c = 0.0, *s = 1.0;
    else if (a == 180.0) *c = -1.0, *s = 0.0;
    else if (a == 270.0) *c = 0.0, *s = -1.0;
    else *c = std::cos(a * (std::numbers::pi / 180.0)), *s = std::sin(a * (std::numbers::pi / 180.0));
}

RokStatus warp(const WarpImages& im, const WarpRequest& rq, int interpolation) {
    const bool coefficients = rq.form == WarpForm::Forward || rq.form == WarpForm::Back;
    if (!im.srcGiven || !im.dstGiven || (coefficients && !rq.coeffs) ||
        (rq.form == WarpForm::Quad && (!rq.srcQuad || !rq.dstQuad)))
        return rokStatusNullPtr;
    if (bad_size(im)) return rokStatusBadSize;
    int method;
    bool smooth;
    const bool accepted = rq.form == WarpForm::Back
                              ? parse_pixel_interp(interpolation, {kNearest, kLinear, kCubic}, &method, &smooth)
                              : parse_pixel_interp(interpolation, {kNearest, kLinear, kCubic, kCatmullRom}, &method,
                                                   &smooth);
    if (!accepted) return rokStatusBadInterpolation;
    for (int p = 0; p < im.planes; ++p)
        if (!im.src[p] || !im.dst[p]) return rokStatusNullPtr;
    if (im.srcStep < 1 || im.dstStep < 1) return rokStatusBadStep;

    // The transform: forward (source to destination) or back.
    PlaneMap map{};
    bool isBack = false, quadFits = true;
    int quarter = -1;
    double shiftX = 0.0, shiftY = 0.0;
    switch (rq.form) {
        case WarpForm::Rotate:
        case WarpForm::RotateCenter: {
            if (!std::isfinite(rq.p[0]) || !std::isfinite(rq.p[1]) || !std::isfinite(rq.p[2]))
                return rokStatusOutOfRange;
            double a, c, s;
            rotation(rq.p[0], &a, &c, &s);
            shiftX = rq.p[1], shiftY = rq.p[2];
            if (rq.form == WarpForm::RotateCenter) get_rotate_shift(rq.p[1], rq.p[2], rq.p[0], &shiftX, &shiftY);
            map = rotation_map(c, s, shiftX, shiftY);
            // Whole shifts at a quarter turn put every destination centre on a
            // source centre: the pixels are moved, unless the smooth edge asks
            // for a blend.
            if (std::fmod(a, 90.0) == 0.0 && whole(shiftX) && whole(shiftY) && !smooth) quarter = int(a / 90.0);
            break;
        }
        case WarpForm::Shear: {
            const double k[6] = {1.0, rq.p[0], rq.p[2], rq.p[1], 1.0, rq.p[3]};
            map = affine_map(k);
            break;
        }
        case WarpForm::Forward:
        case WarpForm::Back:
            map = rq.kind == MapKind::Affine ? affine_map(rq.coeffs)
                  : rq.kind == MapKind::Perspective ? perspective_map(rq.coeffs)
                                                    : bilinear_map(rq.coeffs);
            isBack = rq.form == WarpForm::Back;
            break;
        case WarpForm::Quad: {
            double s[4][2], d[4][2];
            for (int k = 0; k < 4; ++k)
                for (int j = 0; j < 2; ++j) s[k][j] = rq.srcQuad[2 * k + j], d[k][j] = rq.dstQuad[2 * k + j];
            if (quad_shape(s) != Shape::Convex || quad_shape(d) != Shape::Convex) return rokStatusBadQuad;
            const bool fitted = rq.kind == MapKind::Affine ? affine_fit(s, d, &map, &quadFits)
                                : rq.kind == MapKind::Perspective ? perspective_fit(s, d, &map)
                                                                  : bilinear_fit(s, d, &map);
            if (!fitted) return rokStatusBadQuad;
            break;
        }
    }
    if (singular(map)) return rokStatusBadQuad;

    method = small_image_method(method, im.srcSize);
    if (im.srcRoi.x >= im.srcSize.width || im.srcRoi.y >= im.srcSize.height) return rokStatusNoIntersection;
    const RokiRect rect{im.srcRoi.x, im.srcRoi.y, std::min(im.srcSize.width - im.srcRoi.x, im.srcRoi.width),
                        std::min(im.srcSize.height - im.srcRoi.y, im.srcRoi.height)};
    if (rect.width < 2 || rect.height < 2) return rokStatusBadRect;

    // The quadrangle the source rectangle maps to, and the map back.
    const double dx0 = im.dstRoi.x, dy0 = im.dstRoi.y;
    const double dx1 = dx0 + im.dstRoi.width - 1.0, dy1 = dy0 + im.dstRoi.height - 1.0;
    double q[4][2];
    WarpPlan plan{};
    plan.map = map;
    bool mapped;
    if (!isBack) {
        mapped = (map.kind != MapKind::Perspective || one_side(map, rect)) && map_corners(map, rect, q);
        plan.inverse = map.kind == MapKind::Affine ? Inverse::Affine
                       : map.kind == MapKind::Perspective ? Inverse::Perspective
                                                          : Inverse::BilinearSolve;
    } else if (map.kind == MapKind::Bilinear) {
        // The corners' preimages nearest the destination rectangle.
        double c[4][2];
        rect_corners(rect, c);
        mapped = true;
        for (int k = 0; k < 4 && mapped; ++k)
            mapped = bilinear_preimage(map, c[k][0], c[k][1], dx0, dy0, dx1, dy1, &q[k][0], &q[k][1]);
        plan.inverse = Inverse::Bilinear;
    } else {
        const PlaneMap forward = inverse(map);
        mapped = (map.kind != MapKind::Perspective || one_side(forward, rect)) && map_corners(forward, rect, q);
        plan.inverse = map.kind == MapKind::Affine ? Inverse::Affine : Inverse::Perspective;
    }
    if (!mapped || quad_shape(q) != Shape::Convex) return rokStatusBadQuad;
    if (!isBack) {
        if (map.kind == MapKind::Affine) {
            // From the mapped corners, the quadrangle's edge vectors dividing.
            double c[4][2];
            bool fits;
            rect_corners(rect, c);
            if (!affine_fit(q, c, &plan.map, &fits)) return rokStatusBadQuad;
        } else if (map.kind == MapKind::Perspective) {
            plan.map = inverse(map);
        }
    }

    Cut cut;
    if (!cut_quad(q, dx0, dy0, dx1, dy1, &cut)) return rokStatusWrongIntersectQuad;
    const int rows = cut.lastRow - cut.firstRow + 1;
    // Without room for the spans nothing can be written either.
    const SpanTable spans(rows);
    if (!spans.get()) return rokStatusWrongIntersectQuad;
    fill_spans(cut, im.dstRoi.x, int(dx1), spans.get());

    plan.images = &im;
    plan.method = method;
    plan.smooth = smooth;
    plan.bx0 = rect.x, plan.by0 = rect.y;
    plan.bx1 = rect.x + rect.width - 1, plan.by1 = rect.y + rect.height - 1;
    plan.firstRow = cut.firstRow;
    plan.rows = rows;
    plan.spans = spans.get();
    // The quadrangle met the destination, so the shifts of an exact
    // rotation are within reach of 32-bit coordinates.
    plan.quarter = quarter;
    plan.shiftX = quarter >= 0 ? (long long)shiftX : 0;
    plan.shiftY = quarter >= 0 ? (long long)shiftY : 0;

    // The engines round to nearest; the caller's mode comes back on return.
    convert::RoundingGuard nearest(FE_TONEAREST);
    switch (im.type) {
        case SampleType::U8: run_warp<Rok8u>(plan); break;
        case SampleType::U16: run_warp<Rok16u>(plan); break;
        case SampleType::F32: run_warp<Rok32f>(plan); break;
        default: run_warp<Rok64f>(plan); break;
    }
    return quadFits ? rokStatusOk : rokStatusQuadNotParallelogram;
}

}  // namespace rok::geometry
