// One level of the separable two-dimensional wavelet transform with the
// caller's filters: the forward transform splits an image into four
// half-size bands, the inverse synthesises it back from them.
#pragma once

#include <cstdint>

#include "frame/generated/roki_types.h"
#include "frame/layout.h"

namespace rok::transform {

RokStatus wt_record_init_alloc(void** out, std::int32_t id, int channels, const Rok32f* tapsLow, int lenLow,
                               int anchorLow, const Rok32f* tapsHigh, int lenHigh, int anchorHigh);
RokStatus wt_record_free(void* spec, std::int32_t id, int channels);
RokStatus wt_record_buf_size(const void* spec, std::int32_t id, int channels, int* size);
RokStatus wt_forward(const Rok32f* src, int srcStep, Rok32f* approx, int approxStep, Rok32f* detailX,
                     int detailXStep, Rok32f* detailY, int detailYStep, Rok32f* detailXY, int detailXYStep,
                     RokiSize dstRoi, const void* spec, int channels, Rok8u* buffer);
RokStatus wt_inverse(const Rok32f* approx, int approxStep, const Rok32f* detailX, int detailXStep,
                     const Rok32f* detailY, int detailYStep, const Rok32f* detailXY, int detailXYStep,
                     RokiSize srcRoi, Rok32f* dst, int dstStep, const void* spec, int channels, Rok8u* buffer);

template <Layout L>
RokStatus wt_fwd_init_alloc(RokiWTFwdSpec_32f** out, const Rok32f* tapsLow, int lenLow, int anchorLow,
                            const Rok32f* tapsHigh, int lenHigh, int anchorHigh) {
    return wt_record_init_alloc(reinterpret_cast<void**>(out), rokIdWtFwd, channels(L), tapsLow, lenLow, anchorLow, tapsHigh,
                                lenHigh, anchorHigh);
}
template <Layout L>
RokStatus wt_inv_init_alloc(RokiWTInvSpec_32f** out, const Rok32f* tapsLow, int lenLow, int anchorLow,
                            const Rok32f* tapsHigh, int lenHigh, int anchorHigh) {
    return wt_record_init_alloc(reinterpret_cast<void**>(out), rokIdWtInv, channels(L), tapsLow, lenLow, anchorLow, tapsHigh,
                                lenHigh, anchorHigh);
}
template <Layout L>
RokStatus wt_fwd_free(RokiWTFwdSpec_32f* spec) {
    return wt_record_free(spec, rokIdWtFwd, channels(L));
}
template <Layout L>
RokStatus wt_inv_free(RokiWTInvSpec_32f* spec) {
    return wt_record_free(spec, rokIdWtInv, channels(L));
}
template <Layout L>
RokStatus wt_fwd_buf_size(const RokiWTFwdSpec_32f* spec, int* size) {
    return wt_record_buf_size(spec, rokIdWtFwd, channels(L), size);
}
template <Layout L>
RokStatus wt_inv_buf_size(const RokiWTInvSpec_32f* spec, int* size) {
    return wt_record_buf_size(spec, rokIdWtInv, channels(L), size);
}
template <Layout L>
RokStatus wt_fwd(const Rok32f* src, int srcStep, Rok32f* approx, int approxStep, Rok32f* detailX, int detailXStep,
                 Rok32f* detailY, int detailYStep, Rok32f* detailXY, int detailXYStep, RokiSize dstRoi,
                 const RokiWTFwdSpec_32f* spec, Rok8u* buffer) {
    return wt_forward(src, srcStep, approx, approxStep, detailX, detailXStep, detailY, detailYStep, detailXY,
                      detailXYStep, dstRoi, spec, channels(L), buffer);
}
template <Layout L>
RokStatus wt_inv(const Rok32f* approx, int approxStep, const Rok32f* detailX, int detailXStep, const Rok32f* detailY,
                 int detailYStep, const Rok32f* detailXY, int detailXYStep, RokiSize srcRoi, Rok32f* dst, int dstStep,
                 const RokiWTInvSpec_32f* spec, Rok8u* buffer) {
    return wt_inverse(approx, approxStep, detailX, detailXStep, detailY, detailYStep, detailXY, detailXYStep, srcRoi,
                      dst, dstStep, spec, channels(L), buffer);
}

}  // namespace rok::transform
