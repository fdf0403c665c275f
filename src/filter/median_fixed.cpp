// The medians with fixed masks: Horiz, Vert, Cross, the colour median, the
// weighted-centre 3x3 median and the median of three planes.
#include "copy/engine.h"
#include "filter/median_loop.h"
#include "kernels/filter/median_general.h"
#include "kernels/filter/median_rows.h"

namespace rok::filter {

namespace {

RokStatus common_checks(const FixedCall& f) {
    if (!f.src || !f.dst) return rokStatusNullPtr;
    if (bad_size(f.roi)) return rokStatusBadSize;
    if (any_step_below_one(f.srcStep, f.dstStep)) return rokStatusBadStep;
    return rokStatusOk;
}

// The number of samples on each side of the centre for a mask code, or 0
// for a code the shape does not take.
int arm_of(Fixed shape, int code) {
    switch (shape) {
        case Fixed::Horiz: return code == rokMskSize3x1 ? 1 : code == rokMskSize5x1 ? 2 : 0;
        case Fixed::Vert: return code == rokMskSize1x3 ? 1 : code == rokMskSize1x5 ? 2 : 0;
        default: return code == rokMskSize3x3 ? 1 : code == rokMskSize5x5 ? 2 : 0;
    }
}

template <class T>
RokStatus fixed(Fixed shape, const FixedCall& f, int arm) {
    const int nc = channels(f.layout);
    const auto* src = static_cast<const T*>(f.src);
    auto* dst = static_cast<T*>(f.dst);
    const std::ptrdiff_t pixel = std::ptrdiff_t(nc) * std::ptrdiff_t(sizeof(T));
    return kernel_rows(src, f.srcStep, dst, f.dstStep, f.roi, f.layout, false, 1, [&](const T* s, T* d, int, int n) {
        if (shape == Fixed::Horiz) kernels::median_line(s, pixel, 2 * arm + 1, d, n);
        else if (shape == Fixed::Vert) kernels::median_line(s, f.srcStep, 2 * arm + 1, d, n);
        else kernels::median_cross(s, f.srcStep, nc, arm, d, n);
    });
}

template <class T>
RokStatus color(const FixedCall& f, int radius) {
    const int nc = channels(f.layout);
    for (int y = 0; y < f.roi.height; ++y)
        kernels::median_color_row(row(static_cast<const T*>(f.src), f.srcStep, y), f.srcStep, nc, radius,
                                  row(static_cast<T*>(f.dst), f.dstStep, y), f.roi.width);
    return rokStatusOk;
}

}  // namespace

RokStatus median_fixed(Fixed shape, const FixedCall& f) {
    if (RokStatus s = common_checks(f)) return s;
    const int arm = arm_of(shape, f.code);
    if (arm == 0) return rokStatusBadMaskSize;
    return with_sample<Rok8u, Rok16u, Rok16s>(f.sample, [&](auto t) { return fixed<decltype(t)>(shape, f, arm); });
}

RokStatus median_color(const FixedCall& f) {
    if (RokStatus s = common_checks(f)) return s;
    const int radius = arm_of(Fixed::Cross, f.code);
    if (radius == 0) return rokStatusBadMaskSize;
    return with_sample<Rok8u, Rok16s, Rok32f>(f.sample, [&](auto t) { return color<decltype(t)>(f, radius); });
}

RokStatus median_weighted_centre(const Rok8u* src, int srcStep, Rok8u* dst, int dstStep, RokiSize roi,
                                 int weight) {
    if (!src || !dst) return rokStatusNullPtr;
    if (bad_size(roi)) return rokStatusBadSize;
    if (any_step_below_one(srcStep, dstStep)) return rokStatusBadStep;
    if (weight < 1) return rokStatusBadWeight;
    const RokStatus status = weight % 2 == 0 ? rokStatusEvenMedianWeight : rokStatusOk;
    if (weight % 2 == 0) --weight;
    if (weight >= 9) {
        // Nine or more copies of the centre outnumber the eight neighbours.
        copy::copy_plane(src, srcStep, dst, dstStep, std::size_t(roi.width), roi.height);
        return status;
    }
    for (int y = 0; y < roi.height; ++y) {
        const Rok8u* s = row(src, srcStep, y);
        Rok8u* d = row(dst, dstStep, y);
        if (weight == 1) kernels::median_square(s, srcStep, 1, 3, d, dstStep, 1, roi.width);
        else kernels::median_weighted_centre(s, srcStep, weight, d, roi.width);
    }
    return status;
}

RokStatus median_of_planes(const Rok8u* const src[3], int srcStep, Rok8u* dst, int dstStep, RokiSize roi) {
    if (!src || !src[0] || !src[1] || !src[2] || !dst) return rokStatusNullPtr;
    if (bad_size(roi)) return rokStatusBadSize;
    if (any_step_below_one(srcStep, dstStep)) return rokStatusBadStep;
    for (int y = 0; y < roi.height; ++y)
        kernels::median_of_three(row(src[0], srcStep, y), row(src[1], srcStep, y), row(src[2], srcStep, y),
                                 row(dst, dstStep, y), roi.width);
    return rokStatusOk;
}

}  // namespace rok::filter
