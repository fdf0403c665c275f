// The general two-dimensional DCT of any size, driven by a record that holds
// the one-dimensional engines for the row and column lengths.
#pragma once

#include <cstdint>

#include "frame/generated/roki_types.h"
#include "frame/layout.h"

namespace rok::transform {

template <class Spec>
inline constexpr std::int32_t kDctId = 0;
template <>
inline constexpr std::int32_t kDctId<RokiDCTFwdSpec_32f> = rokIdDctFwd;
template <>
inline constexpr std::int32_t kDctId<RokiDCTInvSpec_32f> = rokIdDctInv;

RokStatus dct_record_init_alloc(void** out, std::int32_t id, RokiSize roi, int hint);
RokStatus dct_record_free(void* spec, std::int32_t id);
RokStatus dct_record_buf_size(const void* spec, std::int32_t id, int* size);
RokStatus dct_transform(const Rok32f* src, int srcStep, Rok32f* dst, int dstStep, int stride, int channels,
                        const void* spec, std::int32_t id, Rok8u* buffer);

template <class Spec>
RokStatus dct_init_alloc(Spec** out, RokiSize roi, int hint) {
    return dct_record_init_alloc(reinterpret_cast<void**>(out), kDctId<Spec>, roi, hint);
}
template <class Spec>
RokStatus dct_free(Spec* spec) {
    return dct_record_free(spec, kDctId<Spec>);
}
template <class Spec>
RokStatus dct_buf_size(const Spec* spec, int* size) {
    return dct_record_buf_size(spec, kDctId<Spec>, size);
}
template <Layout L, class Spec>
RokStatus dct(const Rok32f* src, int srcStep, Rok32f* dst, int dstStep, const Spec* spec, Rok8u* buffer) {
    return dct_transform(src, srcStep, dst, dstStep, channels(L), processed_channels(L), spec, kDctId<Spec>,
                         buffer);
}

}  // namespace rok::transform
