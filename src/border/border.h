// Border extension: copies a source ROI into a larger image and fills the
// border round it by replicating the edge pixels, with a constant, or by
// wrapping the image periodically. Values are only moved, so the work is done
// on pixels as bytes; the templates only give each export its pixel size.
#pragma once

#include "frame/layout.h"
#include "frame/generated/roki_types.h"

namespace rok::border {

enum class Fill { Replicate, Constant, Wrap };

struct Geometry {
    int pixelBytes;  // stored bytes per pixel
    int writeBytes;  // bytes of each pixel the function writes (AC4: no alpha)
};

// src null with inPlace: dst is the source ROI inside the destination image.
RokStatus extend(Fill fill, const void* src, int srcStep, RokiSize srcSize, void* dst, int dstStep,
                 RokiSize dstSize, int top, int left, const void* value, Geometry g, bool inPlace);

template <class T, Layout L>
constexpr Geometry geometry() {
    return {int(sizeof(T)) * channels(L), int(sizeof(T)) * processed_channels(L)};
}

template <class T, Layout L>
RokStatus replicate_inplace(T* p, int step, RokiSize srcSize, RokiSize dstSize, int top, int left) {
    return extend(Fill::Replicate, nullptr, step, srcSize, p, step, dstSize, top, left, nullptr,
                  geometry<T, L>(), true);
}

template <class T, Layout L>
RokStatus replicate(const T* src, int srcStep, RokiSize srcSize, T* dst, int dstStep, RokiSize dstSize, int top,
                    int left) {
    // The same pointer for both means the source already lies in place.
    if (static_cast<const void*>(src) == static_cast<const void*>(dst))
        return replicate_inplace<T, L>(dst, dstStep, srcSize, dstSize, top, left);
    return extend(Fill::Replicate, src, srcStep, srcSize, dst, dstStep, dstSize, top, left, nullptr,
                  geometry<T, L>(), false);
}

template <class T, Layout L>
RokStatus constant(const T* src, int srcStep, RokiSize srcSize, T* dst, int dstStep, RokiSize dstSize, int top,
                   int left, const T* value) {
    return extend(Fill::Constant, src, srcStep, srcSize, dst, dstStep, dstSize, top, left, value,
                  geometry<T, L>(), false);
}

// C1: the value comes by value.
template <class T, Layout L>
RokStatus constant_value(const T* src, int srcStep, RokiSize srcSize, T* dst, int dstStep, RokiSize dstSize,
                         int top, int left, T value) {
    return constant<T, L>(src, srcStep, srcSize, dst, dstStep, dstSize, top, left, &value);
}

template <class T, Layout L>
RokStatus wrap(const T* src, int srcStep, RokiSize srcSize, T* dst, int dstStep, RokiSize dstSize, int top,
               int left) {
    return extend(Fill::Wrap, src, srcStep, srcSize, dst, dstStep, dstSize, top, left, nullptr, geometry<T, L>(),
                  false);
}

template <class T, Layout L>
RokStatus wrap_inplace(T* p, int step, RokiSize srcSize, RokiSize dstSize, int top, int left) {
    return extend(Fill::Wrap, nullptr, step, srcSize, p, step, dstSize, top, left, nullptr, geometry<T, L>(),
                  true);
}

}  // namespace rok::border
