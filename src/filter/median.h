// Median filters: the general median with a rectangular mask and anchor, the
// fixed one-dimensional and plus-shaped masks, the colour (vector) median,
// the weighted-centre 3x3 median and the median of three planes. The
// templates only describe each export; checks, dispatch and row loops live
// in median.cpp and median_fixed.cpp.
#pragma once

#include <type_traits>

#include "frame/layout.h"
#include "frame/generated/roki_types.h"

namespace rok::filter {

enum class Sample { U8, U16, S16, F32, F64 };

template <class T>
constexpr Sample sample_of() {
    if constexpr (sizeof(T) == 1) return Sample::U8;
    else if constexpr (std::is_same_v<T, Rok16u>) return Sample::U16;
    else if constexpr (std::is_same_v<T, Rok16s>) return Sample::S16;
    else if constexpr (std::is_same_v<T, Rok32f>) return Sample::F32;
    else return Sample::F64;
}

struct MedianCall {
    const void* src;
    int srcStep;
    void* dst;
    int dstStep;
    RokiSize roi;
    Sample sample;
    Layout layout;
    RokiSize mask;
    RokiPoint anchor;
    bool buffered;  // the float forms: a caller work buffer is required
    Rok8u* buffer;
};

RokStatus median(const MedianCall& call);

// rokiFilterMedian_8u/16s/16u.
template <class T, Layout L>
RokStatus median(const T* src, int srcStep, T* dst, int dstStep, RokiSize roi, RokiSize mask, RokiPoint anchor) {
    return median(MedianCall{src, srcStep, dst, dstStep, roi, sample_of<T>(), L, mask, anchor, false, nullptr});
}

// rokiFilterMedian_32f/64f.
template <class T, Layout L>
RokStatus median_buffered(const T* src, int srcStep, T* dst, int dstStep, RokiSize roi, RokiSize mask,
                          RokiPoint anchor, Rok8u* buffer) {
    return median(MedianCall{src, srcStep, dst, dstStep, roi, sample_of<T>(), L, mask, anchor, true, buffer});
}

RokStatus median_buffer_size(Sample sample, RokiSize roi, RokiSize mask, int channels, int* size);

template <class T>
RokStatus median_buffer_size(RokiSize roi, RokiSize mask, int channels, int* size) {
    return median_buffer_size(sample_of<T>(), roi, mask, channels, size);
}

// The fixed masks: Horiz (codes 31, 51), Vert (13, 15), Cross (33, 55).
enum class Fixed { Horiz, Vert, Cross };

struct FixedCall {
    const void* src;
    int srcStep;
    void* dst;
    int dstStep;
    RokiSize roi;
    Sample sample;
    Layout layout;
    int code;
};

RokStatus median_fixed(Fixed shape, const FixedCall& call);
RokStatus median_color(const FixedCall& call);

template <class T, Layout L>
RokStatus median_horiz(const T* src, int srcStep, T* dst, int dstStep, RokiSize roi, int mask) {
    return median_fixed(Fixed::Horiz, FixedCall{src, srcStep, dst, dstStep, roi, sample_of<T>(), L, mask});
}
template <class T, Layout L>
RokStatus median_vert(const T* src, int srcStep, T* dst, int dstStep, RokiSize roi, int mask) {
    return median_fixed(Fixed::Vert, FixedCall{src, srcStep, dst, dstStep, roi, sample_of<T>(), L, mask});
}
template <class T, Layout L>
RokStatus median_cross(const T* src, int srcStep, T* dst, int dstStep, RokiSize roi, int mask) {
    return median_fixed(Fixed::Cross, FixedCall{src, srcStep, dst, dstStep, roi, sample_of<T>(), L, mask});
}
template <class T, Layout L>
RokStatus median_color(const T* src, int srcStep, T* dst, int dstStep, RokiSize roi, int mask) {
    return median_color(FixedCall{src, srcStep, dst, dstStep, roi, sample_of<T>(), L, mask});
}

RokStatus median_weighted_centre(const Rok8u* src, int srcStep, Rok8u* dst, int dstStep, RokiSize roi,
                                 int weight);

RokStatus median_of_planes(const Rok8u* const src[3], int srcStep, Rok8u* dst, int dstStep, RokiSize roi);

}  // namespace rok::filter
