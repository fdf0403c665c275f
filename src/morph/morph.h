// Dilation and erosion (3x3 and caller masks) and the minimum and maximum
// filters over a rectangle: the argument checks of each family in its own
// order, then the neighbourhood-extrema engine.
#pragma once

#include <type_traits>

#include "copy/copy.h"
#include "frame/image.h"
#include "frame/layout.h"
#include "morph/extrema.h"

namespace rok::morph {

constexpr Extremum Max = Extremum::Max;
constexpr Extremum Min = Extremum::Min;

template <class T, Layout L>
constexpr long long kPixelBytes = channels(L) * (long long)sizeof(T);

template <class T, Layout L>
Frame frame(const T* src, int srcStep, T* dst, int dstStep, RokiSize roi) {
    return Frame{src, srcStep, dst, dstStep, roi, channels(L), L == Layout::AC4};
}

// Whether a source step holds a row of the ROI plus the neighbourhood's
// extra columns, and a destination step a row of the ROI.
template <class T, Layout L>
bool steps_hold(int srcStep, int dstStep, RokiSize roi, int maskWidth) {
    return srcStep >= ((long long)roi.width + maskWidth - 1) * kPixelBytes<T, L> &&
           dstStep >= roi.width * kPixelBytes<T, L>;
}

inline bool anchor_outside(RokiPoint a, RokiSize mask) {
    return a.x < 0 || a.y < 0 || a.x >= mask.width || a.y >= mask.height;
}

inline const Neighbourhood kSquare3x3{nullptr, {3, 3}, {1, 1}};

// ---- Dilate3x3, Erode3x3 ----------------------------------------------------

// The 3x3 checks, steps before size; the in-place form passes its one image
// and step twice.
template <class T, Layout L>
RokStatus check3x3(const T* src, int srcStep, const T* dst, int dstStep, RokiSize roi) {
    if (src == nullptr || dst == nullptr) return rokStatusNullPtr;
    if (srcStep < 1 || dstStep < 1) return rokStatusBadStep;
    if (bad_size(roi)) return rokStatusBadSize;
    if (!steps_hold<T, L>(srcStep, dstStep, roi, 3)) return rokStatusStepTooShort;
    return rokStatusOk;
}

template <Extremum E, class T, Layout L>
RokStatus extrema3x3(T* img, int step, RokiSize roi) {
    if (RokStatus s = check3x3<T, L>(img, step, img, step, roi)) return s;
    return extrema<T, E>(frame<T, L>(img, step, img, step, roi), kSquare3x3, false);
}

template <Extremum E, class T, Layout L>
RokStatus extrema3x3(const T* src, int srcStep, T* dst, int dstStep, RokiSize roi) {
    if (src == dst && srcStep == dstStep) return extrema3x3<E, T, L>(dst, dstStep, roi);
    if (RokStatus s = check3x3<T, L>(src, srcStep, dst, dstStep, roi)) return s;
    return extrema<T, E>(frame<T, L>(src, srcStep, dst, dstStep, roi), kSquare3x3, std::is_same_v<T, Rok64f>);
}

// ---- Dilate, Erode with a caller mask ---------------------------------------

template <class T, Layout L>
RokStatus check_mask(const T* src, int srcStep, const T* dst, int dstStep, RokiSize roi, const Rok8u* mask,
                     RokiSize maskSize, RokiPoint anchor) {
    if (src == nullptr || dst == nullptr || mask == nullptr) return rokStatusNullPtr;
    if (srcStep < 1 || dstStep < 1) return rokStatusBadStep;
    if (bad_size(roi)) return rokStatusBadSize;
    if (bad_size(maskSize)) return rokStatusBadMaskSize;
    if (all_zero(mask, maskSize)) return rokStatusZeroMask;
    if (anchor_outside(anchor, maskSize)) return rokStatusBadAnchor;
    if (!steps_hold<T, L>(srcStep, dstStep, roi, maskSize.width)) return rokStatusStepTooShort;
    return rokStatusOk;
}

template <Extremum E, class T, Layout L>
RokStatus extrema_mask(T* img, int step, RokiSize roi, const Rok8u* mask, RokiSize maskSize, RokiPoint anchor) {
    if (RokStatus s = check_mask<T, L>(img, step, img, step, roi, mask, maskSize, anchor)) return s;
    return extrema<T, E>(frame<T, L>(img, step, img, step, roi), Neighbourhood{mask, maskSize, anchor}, false);
}

template <Extremum E, class T, Layout L>
RokStatus extrema_mask(const T* src, int srcStep, T* dst, int dstStep, RokiSize roi, const Rok8u* mask,
                       RokiSize maskSize, RokiPoint anchor) {
    // Equal images go to the in-place form, whose checks, in the same order,
    // find what these would.
    if (src == dst && srcStep == dstStep) return extrema_mask<E, T, L>(dst, dstStep, roi, mask, maskSize, anchor);
    if (RokStatus s = check_mask<T, L>(src, srcStep, dst, dstStep, roi, mask, maskSize, anchor)) return s;
    return extrema<T, E>(frame<T, L>(src, srcStep, dst, dstStep, roi), Neighbourhood{mask, maskSize, anchor}, false);
}

// ---- FilterMin, FilterMax ---------------------------------------------------

template <Extremum E, class T, Layout L>
RokStatus filter_extrema(const T* src, int srcStep, T* dst, int dstStep, RokiSize roi, RokiSize maskSize,
                         RokiPoint anchor) {
    if (src == nullptr || dst == nullptr) return rokStatusNullPtr;
    if (bad_size(roi)) return rokStatusBadSize;
    if (srcStep < 1 || dstStep < 1) return rokStatusBadStep;
    if (bad_size(maskSize)) return rokStatusBadMaskSize;
    if (anchor_outside(anchor, maskSize)) return rokStatusBadAnchor;
    if (!steps_hold<T, L>(srcStep, dstStep, roi, maskSize.width)) return rokStatusBadStep;
    if (maskSize.width == 1 && maskSize.height == 1) {
        if (src == dst && srcStep == dstStep) return rokStatusOk;
        return copy::copy<T, L>(src, srcStep, dst, dstStep, roi);
    }
    return extrema<T, E>(frame<T, L>(src, srcStep, dst, dstStep, roi), Neighbourhood{nullptr, maskSize, anchor},
                         false);
}

}  // namespace rok::morph
