#include "transform/dct8x8.h"

#include <cstring>

#include "kernels/transform/dct8x8.h"

namespace rok::transform {

namespace k = rok::kernels::dct;
using k::Block8;

namespace {
constexpr int kRow16 = 8 * sizeof(Rok16s);
constexpr int kRow32 = 8 * sizeof(Rok32f);
}  // namespace

RokStatus dct8x8_fwd_32f(const Rok32f* src, Rok32f* dst) {
    if (!src || !dst) return rokStatusNullPtr;
    k::block_32f(src, kRow32, dst, kRow32, Block8::Fwd32f);
    return rokStatusOk;
}
RokStatus dct8x8_inv_32f(const Rok32f* src, Rok32f* dst) {
    if (!src || !dst) return rokStatusNullPtr;
    k::block_32f(src, kRow32, dst, kRow32, Block8::Inv32f);
    return rokStatusOk;
}
RokStatus dct8x8_fwd_16s(const Rok16s* src, Rok16s* dst) {
    if (!src || !dst) return rokStatusNullPtr;
    k::block_16s(src, kRow16, dst, kRow16, Block8::Fwd16s);
    return rokStatusOk;
}
RokStatus dct8x8_inv_16s(const Rok16s* src, Rok16s* dst) {
    if (!src || !dst) return rokStatusNullPtr;
    k::block_16s(src, kRow16, dst, kRow16, Block8::Inv16s);
    return rokStatusOk;
}
RokStatus dct8x8_inv_a10_16s(const Rok16s* src, Rok16s* dst) {
    if (!src || !dst) return rokStatusNullPtr;
    k::block_16s(src, kRow16, dst, kRow16, Block8::InvExact);
    return rokStatusOk;
}

RokStatus dct8x8_fwd_16s_r(const Rok16s* src, int srcStep, Rok16s* dst) {
    if (!src || !dst) return rokStatusNullPtr;
    if (srcStep < 1) return rokStatusBadStep;
    k::block_16s(src, srcStep, dst, kRow16, Block8::Fwd16s);
    return rokStatusOk;
}
RokStatus dct8x8_fwd_8u16s_r(const Rok8u* src, int srcStep, Rok16s* dst) {
    return dct8x8_fwd_ls(src, srcStep, dst, 0);
}
RokStatus dct8x8_inv_16s_r(const Rok16s* src, Rok16s* dst, int dstStep) {
    if (!src || !dst) return rokStatusNullPtr;
    if (dstStep < 1) return rokStatusBadStep;
    k::block_16s(src, kRow16, dst, dstStep, Block8::Inv16s);
    return rokStatusOk;
}
RokStatus dct8x8_inv_16s8u_r(const Rok16s* src, Rok8u* dst, int dstStep) {
    return dct8x8_inv_ls_clip(src, dst, dstStep, 0, 0, 255);
}
RokStatus dct8x8_fwd_ls(const Rok8u* src, int srcStep, Rok16s* dst, Rok16s addVal) {
    if (!src || !dst) return rokStatusNullPtr;
    if (srcStep < 1) return rokStatusBadStep;
    k::fwd_8u16s(src, srcStep, dst, addVal);
    return rokStatusOk;
}
RokStatus dct8x8_inv_ls_clip(const Rok16s* src, Rok8u* dst, int dstStep, Rok16s addVal, Rok8u clipDown,
                             Rok8u clipUp) {
    if (!src || !dst) return rokStatusNullPtr;
    if (dstStep < 1) return rokStatusBadStep;
    k::inv_16s8u(src, dst, dstStep, addVal, clipDown, clipUp);
    return rokStatusOk;
}

template <int N>
RokStatus dct8x8_inv_corner(const Rok16s* src, Rok16s* dst) {
    if (!src || !dst) return rokStatusNullPtr;
    k::inv_corner_16s(src, dst, N);
    return rokStatusOk;
}
template <int N>
RokStatus dct8x8_inv_reduced(const Rok16s* src, Rok16s* dst) {
    if (!src || !dst) return rokStatusNullPtr;
    k::inv_reduced_16s(src, dst, N);
    return rokStatusOk;
}
template RokStatus dct8x8_inv_corner<2>(const Rok16s*, Rok16s*);
template RokStatus dct8x8_inv_corner<4>(const Rok16s*, Rok16s*);
template RokStatus dct8x8_inv_reduced<2>(const Rok16s*, Rok16s*);
template RokStatus dct8x8_inv_reduced<4>(const Rok16s*, Rok16s*);

// Through a copy, so that a block reordered onto itself reads every
// coefficient before any is overwritten.
RokStatus zigzag_fwd(const Rok16s* src, Rok16s* dst) {
    if (!src || !dst) return rokStatusNullPtr;
    Rok16s in[64];
    std::memcpy(in, src, sizeof in);
    for (int z = 0; z < 64; ++z) dst[z] = in[k::kZigzagRaster[z]];
    return rokStatusOk;
}
RokStatus zigzag_inv(const Rok16s* src, Rok16s* dst) {
    if (!src || !dst) return rokStatusNullPtr;
    Rok16s in[64];
    std::memcpy(in, src, sizeof in);
    for (int p = 0; p < 64; ++p) dst[p] = in[k::kZigzagNumber[p]];
    return rokStatusOk;
}

}  // namespace rok::transform
