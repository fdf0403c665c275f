// Set: a value (or one value per channel) written into every pixel of a ROI,
// into one channel, or into the pixels a mask selects. The value comes first
// in the argument list; only the destination and the ROI size are checked.
#pragma once

#include <climits>
#include <cstdint>
#include <cstring>

#include "copy/engine.h"
#include "frame/image.h"
#include "kernels/copy/copy_move.h"
#include "frame/generated/roki_types.h"

namespace rok::copy {

// The bytes of one pixel holding values[0 .. processed channels - 1]; the
// alpha sample of AC4 is a placeholder that is never stored.
template <class T, Layout L>
struct PixelValue {
    std::uint8_t bytes[kPixelBytes<T, L>] = {};
    explicit PixelValue(const T* values) {
        std::memcpy(bytes, values, processed_channels(L) * sizeof(T));
    }
};

// C1R (values points at the one value), C3R, C4R, AC4R.
template <class T, Layout L>
RokStatus set(const T* values, T* pDst, int dstStep, RokiSize roi) {
    if (!values || !pDst) return rokStatusNullPtr;
    if (bad_size(roi)) return rokStatusBadSize;
    const PixelValue<T, L> pixel(values);
    // Rows laid end to end are filled as one run; fills too large for the
    // cache are streamed past it, as whole-image copies are.
    const RowRun rows = row_run(roi, kPixelBytes<T, L>, dstStep, kPixelBytes<T, L>, dstStep, kPixelBytes<T, L>);
    const bool stream = L != Layout::AC4 && rows.stream;
    for (int y = 0; y < rows.height; ++y)
        kernels::set_pixels<kPixelBytes<T, L>, L == Layout::AC4>(pixel.bytes, bytes(row(pDst, dstStep, y)), rows.width,
                                                                 stream);
    if (stream) kernels::store_fence();
    return rokStatusOk;
}

// C1MR, C3MR, C4MR, AC4MR: only pixels whose mask byte is non-zero are set.
template <class T, Layout L>
RokStatus set_masked(const T* values, T* pDst, int dstStep, RokiSize roi, const Rok8u* pMask, int maskStep) {
    if (!values || !pDst || !pMask) return rokStatusNullPtr;
    if (bad_size(roi)) return rokStatusBadSize;
    const PixelValue<T, L> pixel(values);
    for (int y = 0; y < roi.height; ++y)
        kernels::set_masked<kPixelBytes<T, L>, L == Layout::AC4>(pixel.bytes, bytes(row(pDst, dstStep, y)),
                                                                 row(pMask, maskStep, y), roi.width);
    return rokStatusOk;
}

// C3CR, C4CR: the value goes into the addressed channel of each pixel.
template <class T, int C>
RokStatus set_channel(T value, T* pDst, int dstStep, RokiSize roi) {
    if (!pDst) return rokStatusNullPtr;
    if (bad_size(roi)) return rokStatusBadSize;
    Raw<T> v;
    std::memcpy(&v, &value, sizeof v);
    for (int y = 0; y < roi.height; ++y) kernels::set_channel<Raw<T>, C>(v, raw(row(pDst, dstStep, y)), roi.width);
    return rokStatusOk;
}

}  // namespace rok::copy
