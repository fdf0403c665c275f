// The 8x8 block cosine transforms, their level-shift and clamping forms, the
// reduced inverses and the zigzag reordering. Block functions keep no state:
// they check their pointers (-8) and then any step (-14), and transform.
#pragma once

#include "frame/generated/roki_types.h"

namespace rok::transform {

RokStatus dct8x8_fwd_32f(const Rok32f* src, Rok32f* dst);
RokStatus dct8x8_inv_32f(const Rok32f* src, Rok32f* dst);
RokStatus dct8x8_fwd_16s(const Rok16s* src, Rok16s* dst);
RokStatus dct8x8_inv_16s(const Rok16s* src, Rok16s* dst);
RokStatus dct8x8_inv_a10_16s(const Rok16s* src, Rok16s* dst);

RokStatus dct8x8_fwd_16s_r(const Rok16s* src, int srcStep, Rok16s* dst);
RokStatus dct8x8_fwd_8u16s_r(const Rok8u* src, int srcStep, Rok16s* dst);
RokStatus dct8x8_inv_16s_r(const Rok16s* src, Rok16s* dst, int dstStep);
RokStatus dct8x8_inv_16s8u_r(const Rok16s* src, Rok8u* dst, int dstStep);
RokStatus dct8x8_fwd_ls(const Rok8u* src, int srcStep, Rok16s* dst, Rok16s addVal);
RokStatus dct8x8_inv_ls_clip(const Rok16s* src, Rok8u* dst, int dstStep, Rok16s addVal, Rok8u clipDown,
                             Rok8u clipUp);

template <int N>
RokStatus dct8x8_inv_corner(const Rok16s* src, Rok16s* dst);
template <int N>
RokStatus dct8x8_inv_reduced(const Rok16s* src, Rok16s* dst);

RokStatus zigzag_fwd(const Rok16s* src, Rok16s* dst);
RokStatus zigzag_inv(const Rok16s* src, Rok16s* dst);

// In-place forms: the same call with one block as source and destination.
template <RokStatus (*F)(const Rok16s*, Rok16s*)>
RokStatus in_place(Rok16s* srcDst) {
    return F(srcDst, srcDst);
}
template <RokStatus (*F)(const Rok32f*, Rok32f*)>
RokStatus in_place(Rok32f* srcDst) {
    return F(srcDst, srcDst);
}

}  // namespace rok::transform
