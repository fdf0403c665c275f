// Two-dimensional FFT (power-of-two sizes given by their orders) and DFT (any
// size): records, buffer queries and the transforms between real images and
// the packed layout, and between complex images.
#pragma once

#include <cstdint>

#include "frame/generated/roki_types.h"
#include "frame/layout.h"

namespace rok::transform {

template <class Spec>
inline constexpr std::int32_t kSpecId = 0;
template <>
inline constexpr std::int32_t kSpecId<RokiFFTSpec_C_32fc> = rokIdFftC;
template <>
inline constexpr std::int32_t kSpecId<RokiFFTSpec_R_32f> = rokIdFftR;
template <>
inline constexpr std::int32_t kSpecId<RokiFFTSpec_R_32s> = rokIdFftR32s;
template <>
inline constexpr std::int32_t kSpecId<RokiDFTSpec_C_32fc> = rokIdDftC;
template <>
inline constexpr std::int32_t kSpecId<RokiDFTSpec_R_32f> = rokIdDftR;
template <>
inline constexpr std::int32_t kSpecId<RokiDFTSpec_R_32s> = rokIdDftR32s;

// Samples per pixel and channels transformed (AC4: 4 and 3).
struct Pixels {
    int stride;
    int channels;
};

RokStatus record_init_alloc(void** out, std::int32_t id, int sizeX, int sizeY, int flag, int hint);
RokStatus record_free(void* spec, std::int32_t id);
RokStatus record_buf_size(const void* spec, std::int32_t id, int* size);
RokStatus record_get_size(std::int32_t id, int width, int height, int flag, int hint, int* specSize,
                          int* initSize, int* bufSize);
RokStatus record_init(std::int32_t id, int width, int height, int flag, int hint, void* spec, Rok8u* init);

RokStatus real_transform(bool forward, const Rok32f* src, int srcStep, Rok32f* dst, int dstStep, Pixels px,
                         const void* spec, std::int32_t id, Rok8u* buffer);
RokStatus complex_transform(bool forward, const Rok32fc* src, int srcStep, Rok32fc* dst, int dstStep,
                            const void* spec, std::int32_t id, Rok8u* buffer);
RokStatus integer_forward(const Rok8u* src, int srcStep, Rok32s* dst, int dstStep, Pixels px, int scaleFactor,
                          const void* spec, std::int32_t id, Rok8u* buffer);
RokStatus integer_inverse(const Rok32s* src, int srcStep, Rok8u* dst, int dstStep, Pixels px, int scaleFactor,
                          const void* spec, std::int32_t id, Rok8u* buffer);

// Entry points, by the record's handle type.
template <class Spec>
RokStatus init_alloc(Spec** out, int sizeX, int sizeY, int flag, int hint) {
    return record_init_alloc(reinterpret_cast<void**>(out), kSpecId<Spec>, sizeX, sizeY, flag, hint);
}
template <class Spec>
RokStatus free_spec(Spec* spec) {
    return record_free(spec, kSpecId<Spec>);
}
template <class Spec>
RokStatus buf_size(const Spec* spec, int* size) {
    return record_buf_size(spec, kSpecId<Spec>, size);
}
template <class Spec>
RokStatus get_size(int width, int height, int flag, int hint, int* specSize, int* initSize, int* bufSize) {
    return record_get_size(kSpecId<Spec>, width, height, flag, hint, specSize, initSize, bufSize);
}
template <class Spec>
RokStatus init(int width, int height, int flag, int hint, Spec* spec, Rok8u* initBuffer) {
    return record_init(kSpecId<Spec>, width, height, flag, hint, spec, initBuffer);
}

template <Layout L, bool Forward, class Spec>
RokStatus real(const Rok32f* src, int srcStep, Rok32f* dst, int dstStep, const Spec* spec, Rok8u* buffer) {
    return real_transform(Forward, src, srcStep, dst, dstStep, Pixels{channels(L), processed_channels(L)}, spec,
                          kSpecId<Spec>, buffer);
}
template <bool Forward, class Spec>
RokStatus cplx(const Rok32fc* src, int srcStep, Rok32fc* dst, int dstStep, const Spec* spec, Rok8u* buffer) {
    return complex_transform(Forward, src, srcStep, dst, dstStep, spec, kSpecId<Spec>, buffer);
}
template <Layout L, class Spec>
RokStatus int_fwd(const Rok8u* src, int srcStep, Rok32s* dst, int dstStep, int scaleFactor, const Spec* spec,
                  Rok8u* buffer) {
    return integer_forward(src, srcStep, dst, dstStep, Pixels{channels(L), processed_channels(L)}, scaleFactor,
                           spec, kSpecId<Spec>, buffer);
}
template <Layout L, class Spec>
RokStatus int_inv(const Rok32s* src, int srcStep, Rok8u* dst, int dstStep, int scaleFactor, const Spec* spec,
                  Rok8u* buffer) {
    return integer_inverse(src, srcStep, dst, dstStep, Pixels{channels(L), processed_channels(L)}, scaleFactor,
                           spec, kSpecId<Spec>, buffer);
}

}  // namespace rok::transform
