// Copy: whole pixels, masked pixels, one channel, alpha dropped or added,
// interleaved to planar and back. Copy checks only pointers and the ROI size;
// any step is accepted, zero and negative ones included.
#pragma once

#include "copy/engine.h"
#include "frame/image.h"
#include "kernels/copy/channels.h"
#include "kernels/copy/copy_move.h"
#include "frame/generated/roki_types.h"

namespace rok::copy {

template <class T>
RokStatus check(const void* a, const void* b, RokiSize roi) {
    if (!a || !b) return rokStatusNullPtr;
    if (bad_size(roi)) return rokStatusBadSize;
    return rokStatusOk;
}

// C1R, C3R, C4R, AC4R.
template <class T, Layout L>
RokStatus copy(const T* pSrc, int srcStep, T* pDst, int dstStep, RokiSize roi) {
    if (RokStatus s = check<T>(pSrc, pDst, roi)) return s;
    if constexpr (L == Layout::AC4) {
        for (int y = 0; y < roi.height; ++y)
            kernels::copy_ac4(row(pSrc, srcStep, y), row(pDst, dstStep, y), roi.width, sizeof(T));
    } else {
        copy_plane(pSrc, srcStep, pDst, dstStep, std::size_t(roi.width) * kPixelBytes<T, L>, roi.height);
    }
    return rokStatusOk;
}

// C1MR, C3MR, C4MR, AC4MR: pixels whose mask byte is 0 keep their value.
template <class T, Layout L>
RokStatus copy_masked(const T* pSrc, int srcStep, T* pDst, int dstStep, RokiSize roi, const Rok8u* pMask,
                      int maskStep) {
    if (!pMask) return rokStatusNullPtr;
    if (RokStatus s = check<T>(pSrc, pDst, roi)) return s;
    for (int y = 0; y < roi.height; ++y)
        kernels::copy_masked<kPixelBytes<T, L>, L == Layout::AC4>(bytes(row(pSrc, srcStep, y)), bytes(row(pDst, dstStep, y)),
                                                                   row(pMask, maskStep, y), roi.width);
    return rokStatusOk;
}

// One sample per pixel, SC samples apart in the source and DC apart in the
// destination: C3C1R, C4C1R, C1C3R, C1C4R, C3CR, C4CR. Destination samples
// of other channels are never written.
template <class T, int SC, int DC>
RokStatus copy_channel(const T* pSrc, int srcStep, T* pDst, int dstStep, RokiSize roi) {
    if (RokStatus s = check<T>(pSrc, pDst, roi)) return s;
    for (int y = 0; y < roi.height; ++y)
        kernels::copy_channel<Raw<T>, SC, DC>(raw(row(pSrc, srcStep, y)), raw(row(pDst, dstStep, y)), roi.width);
    return rokStatusOk;
}

// AC4C3R: the alpha position is dropped.
template <class T>
RokStatus copy_ac4_c3(const T* pSrc, int srcStep, T* pDst, int dstStep, RokiSize roi) {
    if (RokStatus s = check<T>(pSrc, pDst, roi)) return s;
    for (int y = 0; y < roi.height; ++y)
        kernels::copy_ac4_to_c3(raw(row(pSrc, srcStep, y)), raw(row(pDst, dstStep, y)), roi.width);
    return rokStatusOk;
}

// C3AC4R: the destination's alpha is left as it was.
template <class T>
RokStatus copy_c3_ac4(const T* pSrc, int srcStep, T* pDst, int dstStep, RokiSize roi) {
    if (RokStatus s = check<T>(pSrc, pDst, roi)) return s;
    for (int y = 0; y < roi.height; ++y)
        kernels::copy_c3_to_ac4(raw(row(pSrc, srcStep, y)), raw(row(pDst, dstStep, y)), roi.width);
    return rokStatusOk;
}

// Every plane pointer is required as well as the array holding them.
template <class P, int C>
bool any_null_plane(P* const* planes) {
    if (!planes) return true;
    for (int c = 0; c < C; ++c)
        if (!planes[c]) return true;
    return false;
}

// The merge streams once the C-sample image it writes no longer fits the
// core's own cache.
template <class T, int C>
bool merge_streams(RokiSize roi) {
    const std::size_t written = std::size_t(roi.width) * std::size_t(roi.height) * C * sizeof(T);
    return outgrows_core_cache(written, 2 * written);
}

// C3P3R, C4P4R: sample k of each pixel goes to plane k.
template <class T, int C>
RokStatus copy_to_planes(const T* pSrc, int srcStep, T* const pDst[], int dstStep, RokiSize roi) {
    if (!pSrc || any_null_plane<T, C>(pDst)) return rokStatusNullPtr;
    if (bad_size(roi)) return rokStatusBadSize;
    // Streaming into several planes at once measured slower than ordinary
    // stores until the images far exceed the cache, so the split keeps the
    // copy engine's rule.
    const RowRun rows = row_run(roi, sizeof(T) * C, srcStep, sizeof(T), dstStep, 2 * C * sizeof(T));
    for (int y = 0; y < rows.height; ++y) {
        Raw<T>* planes[C];
        for (int c = 0; c < C; ++c) planes[c] = raw(row(pDst[c], dstStep, y));
        kernels::split_planes<Raw<T>, C>(raw(row(pSrc, srcStep, y)), planes, rows.width, rows.stream);
    }
    if (rows.stream) kernels::store_fence();
    return rokStatusOk;
}

// P3C3R, P4C4R: plane k becomes sample k of each pixel.
template <class T, int C>
RokStatus copy_from_planes(const T* const pSrc[], int srcStep, T* pDst, int dstStep, RokiSize roi) {
    if (any_null_plane<const T, C>(pSrc) || !pDst) return rokStatusNullPtr;
    if (bad_size(roi)) return rokStatusBadSize;
    RowRun rows = row_run(roi, sizeof(T), srcStep, sizeof(T) * C, dstStep, 2 * C * sizeof(T));
    rows.stream = merge_streams<T, C>(roi);
    for (int y = 0; y < rows.height; ++y) {
        const Raw<T>* planes[C];
        for (int c = 0; c < C; ++c) planes[c] = raw(row(pSrc[c], srcStep, y));
        kernels::merge_planes<Raw<T>, C>(planes, raw(row(pDst, dstStep, y)), rows.width, rows.stream);
    }
    if (rows.stream) kernels::store_fence();
    return rokStatusOk;
}

// CopyManaged (8u C1R): flag bit 2 forces streaming stores (ended by a store
// fence), else bit 1 forces ordinary stores after bringing the destination to
// a 64-byte boundary, else the automatic engine of Copy.
enum : int { kManagedAligned = 1, kManagedStreaming = 2 };

inline RokStatus copy_managed(const Rok8u* pSrc, int srcStep, Rok8u* pDst, int dstStep, RokiSize roi, int flags) {
    if (RokStatus s = check<Rok8u>(pSrc, pDst, roi)) return s;
    const Stores stores = (flags & kManagedStreaming) ? Stores::Streaming
                          : (flags & kManagedAligned) ? Stores::Aligned64
                                                      : Stores::Automatic;
    copy_plane(pSrc, srcStep, pDst, dstStep, std::size_t(roi.width), roi.height, stores);
    return rokStatusOk;
}

}  // namespace rok::copy
