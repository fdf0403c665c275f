// Depth-conversion row kernels: n samples from src to dst. Explicitly
// instantiated for the pairs the conversion families export; family code
// calls them without compiling any vector code itself.
#pragma once

#include <cstdint>

namespace rok::kernels {

// Value-keeping conversion: exact when D holds every S value, otherwise the
// value saturated to D's range (negative to 0 for unsigned D). `stream` asks
// for non-temporal stores (outputs much larger than the cache); as for every
// `stream` below, the caller ends its run of rows with store_fence().
template <class S, class D>
void convert_value(const S* src, D* dst, int n, bool stream);

// Float to integer. mode 0 and 1 convert with the processor's current
// rounding (the caller sets truncation or nearest-even), then saturate; any
// other mode saturates first and rounds ties away from zero. NaN gives D's
// minimum, as -infinity does.
template <class D>
void convert_float(const float* src, D* dst, int n, int mode);

// Float times 2^-scaleFactor (computed exactly in double), then as
// convert_float. src may equal dst when D is 32 bits wide.
template <class D>
void convert_float_sfs(const float* src, D* dst, int n, int mode, int scaleFactor);

// Integer x times 2^-scaleFactor: for a positive factor the magnitude is
// shifted with mode's rounding (0 toward zero, 1 ties to even, other ties
// away from zero) and the sign restored; a negative factor shifts left. The
// result saturates to D.
template <class S, class D>
void convert_int_sfs(const S* src, D* dst, int n, int mode, int scaleFactor);

// Bits to bytes, most significant bit first, starting bitOffset bits into
// src: a set bit gives 255, a clear one 0.
void convert_bits(const std::uint8_t* src, int bitOffset, std::uint8_t* dst, int n);

}  // namespace rok::kernels

namespace rok::kernels {

// Scale up from 8u over the destination's whole range: 8u16u x*257, 8u16s
// x*257-32768, 8u32s the byte replicated into all four bytes, top bit inverted.
template <class D>
void scale_up(const std::uint8_t* src, D* dst, int n, bool stream);

// vMin + x * step (one multiply, one add, in single precision).
void scale_up_float(const std::uint8_t* src, float* dst, int n, float vMin, float step, bool stream);

// Scale down to 8u, accurate: nearest-even (with the rounding control set to
// nearest by the caller) of the exact linear map, single precision for the
// 16-bit sources and double for 32s.
template <class S>
void scale_down_accurate(const S* src, std::uint8_t* dst, int n);

// Scale down to 8u, fast fixed-point form: ((x - (x >> 8)) >> 8) + 128 for 16s
// (16u first offset by -32768), ((x - (x >> 8)) >> 24) + 128 for 32s.
template <class S>
void scale_down_fast(const S* src, std::uint8_t* dst, int n, bool stream);

// Each value clamped to vMax, then to vMin, then nearest-even of x*k + b
// (rounding control set to nearest by the caller). NaN gives 0, as -infinity
// does.
void scale_down_float(const float* src, std::uint8_t* dst, int n, float vMin, float vMax, float k, float b);

}  // namespace rok::kernels
