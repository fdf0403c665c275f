// Bitwise logic of two images or of an image and a constant, and Not. Two
// images run on the arithmetic row loop; only the checks differ: pointers,
// then steps, then size.
#pragma once

#include <cstddef>
#include <cstdint>

#include "arith/arith.h"
#include "kernels/arith/logic.h"

namespace rok::arith {

// And, Or, Xor: null -8, any of the three steps below 1 -14, size -6. The
// last argument is the scale-factor slot of the arithmetic shapes; logic has
// no scaling and ignores it.
template <ArithOp Op, class T, Layout L, bool InPlace>
RokStatus logic(const T* s1, int s1Step, const T* s2, int s2Step, T* d, int dStep, RokiSize roi) {
    if (any_null(s1, s2, d)) return rokStatusNullPtr;
    if (any_step_below_one(s1Step, s2Step, dStep)) return rokStatusBadStep;
    if (bad_size(roi)) return rokStatusBadSize;
    return run<Op, Source::Image, T, L, InPlace>(s1, s1Step, s2, s2Step, d, dStep, roi, 0, 0);
}

template <class T, Layout L, bool I = false>
RokStatus logic_and(const T* a, int as, const T* b, int bs, T* d, int ds, RokiSize roi, int) {
    return logic<ArithOp::And, T, L, I>(a, as, b, bs, d, ds, roi);
}
template <class T, Layout L, bool I = false>
RokStatus logic_or(const T* a, int as, const T* b, int bs, T* d, int ds, RokiSize roi, int) {
    return logic<ArithOp::Or, T, L, I>(a, as, b, bs, d, ds, roi);
}
template <class T, Layout L, bool I = false>
RokStatus logic_xor(const T* a, int as, const T* b, int bs, T* d, int ds, RokiSize roi, int) {
    return logic<ArithOp::Xor, T, L, I>(a, as, b, bs, d, ds, roi);
}

// AndC, OrC, XorC: null -8 (the constant array too), step -14, size -6.
// The constant's bytes for one pixel stay in the kernel's registers; rows
// laid end to end run as one.
template <ArithOp Op, class T, Layout L, bool InPlace>
RokStatus logic_constant(const T* s, int ss, const T* v, T* d, int ds, RokiSize roi) {
    if (any_null(s, v, d)) return rokStatusNullPtr;
    if (any_step_below_one(ss, ds)) return rokStatusBadStep;
    if (bad_size(roi)) return rokStatusBadSize;
    constexpr int ch = channels(L);
    T pixel[4] = {};
    for (int c = 0; c < processed_channels(L); ++c) pixel[c] = v[c];  // AC4: the alpha result is not kept
    const auto* value = reinterpret_cast<const std::uint8_t*>(pixel);
    constexpr int period = ch * int(sizeof(T));
    auto bytes = [](const T* p) { return reinterpret_cast<const std::uint8_t*>(p); };
    auto out = [](T* p) { return reinterpret_cast<std::uint8_t*>(p); };
    if constexpr (L == Layout::AC4) {
        for (int y = 0; y < roi.height; ++y) {
            const T* src = row(s, ss, y);
            ac4_row(row(d, ds, y), roi.width, [&](T* block, int first, int n) {
                kernels::logic_constant_bytes<Op>(bytes(src + 4 * first), value, period, out(block), std::size_t(n) * period);
            });
        }
    } else {
        const std::size_t row_bytes = std::size_t(roi.width) * period;
        if (ss == ds && std::size_t(ss) == row_bytes) {
            kernels::logic_constant_bytes<Op>(bytes(s), value, period, out(d), row_bytes * std::size_t(roi.height));
            return rokStatusOk;
        }
        for (int y = 0; y < roi.height; ++y)
            kernels::logic_constant_bytes<Op>(bytes(row(s, ss, y)), value, period, out(row(d, ds, y)), row_bytes);
    }
    return rokStatusOk;
}

template <class T, Layout L, bool I = false>
RokStatus logic_and_c(const T* s, int ss, const T* v, T* d, int ds, RokiSize roi, int) {
    return logic_constant<ArithOp::And, T, L, I>(s, ss, v, d, ds, roi);
}
template <class T, Layout L, bool I = false>
RokStatus logic_or_c(const T* s, int ss, const T* v, T* d, int ds, RokiSize roi, int) {
    return logic_constant<ArithOp::Or, T, L, I>(s, ss, v, d, ds, roi);
}
template <class T, Layout L, bool I = false>
RokStatus logic_xor_c(const T* s, int ss, const T* v, T* d, int ds, RokiSize roi, int) {
    return logic_constant<ArithOp::Xor, T, L, I>(s, ss, v, d, ds, roi);
}

// Not is XorC with 255 in every channel: same checks, same kernel.
template <class T, Layout L, bool I = false>
RokStatus logic_not(const T* s, int ss, T* d, int ds, RokiSize roi, int) {
    static constexpr T kAllOnes[4] = {T(255), T(255), T(255), T(255)};
    return logic_constant<ArithOp::Xor, T, L, I>(s, ss, kAllOnes, d, ds, roi);
}

}  // namespace rok::arith
