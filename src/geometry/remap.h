// Remap: every destination pixel interpolated at the source position its
// two maps give. The exports' templates describe the call to remap.cpp.
#pragma once

#include <type_traits>

#include "frame/generated/roki_types.h"
#include "frame/layout.h"
#include "geometry/resize.h"

namespace rok::geometry {

struct RemapArgs {
    const void* src[4];
    void* dst[4];
    bool srcGiven, dstGiven;
    int planes;
    RokiSize srcSize;
    int srcStep;
    RokiRect srcRoi;
    const void* xMap;  // Rok32f, or Rok64f for the 64f members
    int xMapStep;
    const void* yMap;
    int yMapStep;
    int dstStep;
    RokiSize dstSize;
    SampleType type;
    int nc;
    bool ac4;
};

RokStatus remap(const RemapArgs& args, int interpolation);

// Maps of 64-bit floats for the 64f members, 32-bit floats for the others.
template <class T>
using MapOf = std::conditional_t<std::is_same_v<T, Rok64f>, Rok64f, Rok32f>;

template <class T, Layout L>
RokStatus remap_interleaved(const T* pSrc, RokiSize srcSize, int srcStep, RokiRect srcRoi, const MapOf<T>* xMap,
                            int xMapStep, const MapOf<T>* yMap, int yMapStep, T* pDst, int dstStep,
                            RokiSize dstRoiSize, int interpolation) {
    return remap({{pSrc}, {pDst}, pSrc != nullptr, pDst != nullptr, 1, srcSize, srcStep, srcRoi, xMap, xMapStep, yMap,
                  yMapStep, dstStep, dstRoiSize, sample_type_of<T>(), channels(L), L == Layout::AC4},
                 interpolation);
}

template <class T, int P>
RokStatus remap_planar(const T* const* pSrc, RokiSize srcSize, int srcStep, RokiRect srcRoi, const MapOf<T>* xMap,
                       int xMapStep, const MapOf<T>* yMap, int yMapStep, T* const* pDst, int dstStep,
                       RokiSize dstRoiSize, int interpolation) {
    RemapArgs a{{}, {}, pSrc != nullptr, pDst != nullptr, P, srcSize, srcStep, srcRoi, xMap, xMapStep, yMap, yMapStep,
                dstStep, dstRoiSize, sample_type_of<T>(), 1, false};
    for (int p = 0; p < P; ++p) {
        if (pSrc) a.src[p] = pSrc[p];
        if (pDst) a.dst[p] = pDst[p];
    }
    return remap(a, interpolation);
}

}  // namespace rok::geometry
