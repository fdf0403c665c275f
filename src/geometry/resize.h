// Resize with square pixels: the exports' templates, which only describe the
// call (sample type, layout, planes) to the one engine in resize.cpp.
#pragma once

#include "frame/generated/roki_types.h"
#include "frame/layout.h"

namespace rok::geometry {

enum class SampleType { U8, U16, S16, F32, F64 };

template <class T>
constexpr SampleType sample_type_of() {
    if constexpr (sizeof(T) == 1) return SampleType::U8;
    else if constexpr (sizeof(T) == 2 && T(-1) > T(0)) return SampleType::U16;
    else if constexpr (sizeof(T) == 2) return SampleType::S16;
    else if constexpr (sizeof(T) == 4) return SampleType::F32;
    else return SampleType::F64;
}

struct ResizeArgs {
    const void* const* src;  // plane pointers, one for the interleaved layouts
    void* const* dst;
    int planes;
    RokiSize srcSize;
    int srcStep;
    RokiRect srcRoi;
    int dstStep;
    RokiRect dstRoi;
    double xFactor, yFactor, xShift, yShift;
    int interpolation;
    Rok8u* buffer;
    SampleType type;
    int nc;              // samples per pixel in memory (1 per plane for the planar layouts)
    bool ac4;            // the fourth sample of each pixel is left alone
    int bufferChannels;  // the channel count the per-thread slice of the buffer is sized for
};

RokStatus resize_sqr_pixel(const ResizeArgs& args);

template <class T, Layout L>
RokStatus resize_sqr(const T* pSrc, RokiSize srcSize, int srcStep, RokiRect srcRoi, T* pDst, int dstStep,
                     RokiRect dstRoi, double xFactor, double yFactor, double xShift, double yShift,
                     int interpolation, Rok8u* pBuffer) {
    const void* src[1] = {pSrc};
    void* dst[1] = {pDst};
    constexpr int nc = channels(L);
    return resize_sqr_pixel({src, dst, 1, srcSize, srcStep, srcRoi, dstStep, dstRoi, xFactor, yFactor, xShift,
                             yShift, interpolation, pBuffer, sample_type_of<T>(), nc, L == Layout::AC4, nc});
}

// Planar layouts: P planes of one channel each, sharing the steps. The
// planes are resized one after the other, so a slice for one channel serves.
template <class T, int P>
RokStatus resize_sqr_planar(const T* const* pSrc, RokiSize srcSize, int srcStep, RokiRect srcRoi, T* const* pDst,
                            int dstStep, RokiRect dstRoi, double xFactor, double yFactor, double xShift,
                            double yShift, int interpolation, Rok8u* pBuffer) {
    const void* src[P] = {};
    void* dst[P] = {};
    for (int p = 0; p < P; ++p) {
        if (pSrc) src[p] = pSrc[p];
        if (pDst) dst[p] = pDst[p];
    }
    return resize_sqr_pixel({pSrc ? src : nullptr, pDst ? dst : nullptr, P, srcSize, srcStep, srcRoi, dstStep, dstRoi,
                             xFactor, yFactor, xShift, yShift, interpolation, pBuffer, sample_type_of<T>(), 1, false,
                             1});
}

// rokiGetResizeRect: the destination rectangle that srcRoi lands on.
RokStatus get_resize_rect(RokiRect srcRoi, RokiRect* pDstRect, double xFactor, double yFactor, double xShift,
                          double yShift, int interpolation);

// rokiResizeGetBufSize (wide = false) and rokiResizeGetBufSize_64f.
RokStatus get_buffer_size(RokiRect srcRoi, RokiRect dstRoi, Rok32u nChannel, int interpolation, int* pBufSize,
                          bool wide);

template <bool Wide>
RokStatus resize_buffer_size(RokiRect srcRoi, RokiRect dstRoi, Rok32u nChannel, int interpolation, int* pBufSize) {
    return get_buffer_size(srcRoi, dstRoi, nChannel, interpolation, pBufSize, Wide);
}

// The serial buffer size in bytes, +32 included, for a valid interpolation
// code (nChannel 1, 3 or 4); -1 when it would reach 2^31.
long long serial_buffer_size(RokiRect srcRoi, RokiRect dstRoi, int nChannel, int interpolation, bool wide);

}  // namespace rok::geometry
