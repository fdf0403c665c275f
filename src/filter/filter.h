// General linear filters: two-dimensional, row and column kernels with an
// integer divisor, float kernels on integer data, float data, and the forms
// with a rounding mode and a caller work buffer. One engine serves them all:
// the kernel becomes a list of taps (byte offset, coefficient) in summing
// order, a row kernel forms the sums of one ROI row, and a finishing kernel
// turns them into samples. The templates here only describe each export to
// the engine; the checks, scratch and threading live in filter.cpp.
#pragma once

#include <cstdint>
#include <type_traits>

#include "frame/layout.h"
#include "frame/generated/roki_types.h"

namespace rok::filter {

enum class Coef { I16, I32, F32, F64 };

struct RowJob;
using RowFn = void (*)(const RowJob&, int y, void* scratch);

struct FilterCall {
    const void* src;
    int srcStep;
    void* dst;
    int dstStep;
    RokiSize roi;
    const void* kernel;
    Coef coef;
    RokiSize kernelSize;
    RokiPoint anchor;
    Layout layout;
    int srcBytes, dstBytes;  // bytes per sample
    int accBytes;            // bytes per sum in scratch; 0 when the sums go straight to dst
    bool packable;           // 8u source with integer sums: two taps per multiply-add
    bool hasDivisor = false;
    int divisor = 1;
    bool rounding = false;  // the _Round forms: mode and work buffer
    int mode = 1;
    void* buffer = nullptr;
    long long bufferPerThread = 0;
    RowFn row = nullptr;
};

RokStatus run(const FilterCall& call);

// Forms the sums of ROI row y and finishes them into the destination row.
template <class S, class D, class A>
void filter_row(const RowJob& job, int y, void* scratch);

template <class K>
constexpr Coef coef_of() {
    if constexpr (std::is_same_v<K, Rok16s>) return Coef::I16;
    else if constexpr (std::is_same_v<K, Rok32s>) return Coef::I32;
    else if constexpr (std::is_same_v<K, Rok32f>) return Coef::F32;
    else return Coef::F64;
}

// S source, D destination, K stored coefficient type.
template <class S, class D, class K, Layout L>
FilterCall describe(const S* src, int srcStep, D* dst, int dstStep, RokiSize roi, const K* kernel, RokiSize ks,
               RokiPoint anchor) {
    using A = std::conditional_t<std::is_same_v<K, Rok64f>, double,
                                 std::conditional_t<std::is_floating_point_v<K>, float, std::int32_t>>;
    constexpr bool direct = std::is_floating_point_v<D> && L != Layout::AC4;
    FilterCall s{src,  srcStep, dst, dstStep, roi, kernel, coef_of<K>(), ks, anchor, L, int(sizeof(S)), int(sizeof(D)),
           direct ? 0 : int(sizeof(A)), std::is_same_v<S, Rok8u> && std::is_same_v<A, std::int32_t>};
    s.row = &filter_row<S, D, A>;
    return s;
}

// rokiFilter_8u/16s/16u: integer kernel and divisor.
template <class T, Layout L>
RokStatus filter_div(const T* src, int srcStep, T* dst, int dstStep, RokiSize roi, const Rok32s* kernel,
                     RokiSize ks, RokiPoint anchor, int divisor) {
    FilterCall s = describe<T, T, Rok32s, L>(src, srcStep, dst, dstStep, roi, kernel, ks, anchor);
    s.hasDivisor = true;
    s.divisor = divisor;
    return run(s);
}

// rokiFilter_32f/64f and rokiFilter32f: float kernel, no divisor.
template <class S, class D, class K, Layout L>
RokStatus filter_plain(const S* src, int srcStep, D* dst, int dstStep, RokiSize roi, const K* kernel,
                       RokiSize ks, RokiPoint anchor) {
    return run(describe<S, D, K, L>(src, srcStep, dst, dstStep, roi, kernel, ks, anchor));
}

// Per-thread bytes of the _Round work buffers.
enum class RoundBuf { S16, S32, F32 };
long long round_buffer_per_thread(RoundBuf kind, Layout layout, long long kernelArea, long long width);
RokStatus round_buffer_size(RoundBuf kind, Layout layout, RokiSize ks, int roiWidth, int* pSize);

template <RoundBuf B, Layout L>
RokStatus round_buffer_size(RokiSize ks, int roiWidth, int* pSize) {
    return round_buffer_size(B, L, ks, roiWidth, pSize);
}
RokStatus zero_buffer_size(RokiSize ks, int roiWidth, int* pSize);

// rokiFilter_Round16s/32s (integer kernel K, divisor) and _Round32f (float
// kernel, divisor unused): rounding mode and work buffer.
template <RoundBuf B, class T, class K, Layout L>
RokStatus filter_round(const T* src, int srcStep, T* dst, int dstStep, RokiSize roi, const K* kernel, RokiSize ks,
                       RokiPoint anchor, int divisor, int mode, Rok8u* buffer) {
    FilterCall s = describe<T, T, K, L>(src, srcStep, dst, dstStep, roi, kernel, ks, anchor);
    s.hasDivisor = B != RoundBuf::F32;
    s.divisor = divisor;
    s.rounding = true;
    s.mode = mode;
    s.buffer = buffer;
    s.bufferPerThread = round_buffer_per_thread(B, L, (long long)ks.width * ks.height, roi.width);
    return run(s);
}
template <RoundBuf B, class T, class K, Layout L>
RokStatus filter_round_div(const T* src, int srcStep, T* dst, int dstStep, RokiSize roi, const K* kernel,
                           RokiSize ks, RokiPoint anchor, int divisor, int mode, Rok8u* buffer) {
    return filter_round<B, T, K, L>(src, srcStep, dst, dstStep, roi, kernel, ks, anchor, divisor, mode, buffer);
}
template <class T, Layout L>
RokStatus filter_round_float(const T* src, int srcStep, T* dst, int dstStep, RokiSize roi, const Rok32f* kernel,
                             RokiSize ks, RokiPoint anchor, int mode, Rok8u* buffer) {
    return filter_round<RoundBuf::F32, T, Rok32f, L>(src, srcStep, dst, dstStep, roi, kernel, ks, anchor, 1, mode,
                                                     buffer);
}

// Row (kernel height 1) and column (kernel width 1) forms.
template <class T, Layout L>
RokStatus row_div(const T* src, int srcStep, T* dst, int dstStep, RokiSize roi, const Rok32s* kernel, int size,
                  int xAnchor, int divisor) {
    return filter_div<T, L>(src, srcStep, dst, dstStep, roi, kernel, RokiSize{size, 1}, RokiPoint{xAnchor, 0},
                            divisor);
}
template <class T, Layout L>
RokStatus column_div(const T* src, int srcStep, T* dst, int dstStep, RokiSize roi, const Rok32s* kernel, int size,
                     int yAnchor, int divisor) {
    return filter_div<T, L>(src, srcStep, dst, dstStep, roi, kernel, RokiSize{1, size}, RokiPoint{0, yAnchor},
                            divisor);
}
template <class T, class K, Layout L>
RokStatus row_plain(const T* src, int srcStep, T* dst, int dstStep, RokiSize roi, const K* kernel, int size,
                    int xAnchor) {
    return filter_plain<T, T, K, L>(src, srcStep, dst, dstStep, roi, kernel, RokiSize{size, 1},
                                    RokiPoint{xAnchor, 0});
}
template <class T, class K, Layout L>
RokStatus column_plain(const T* src, int srcStep, T* dst, int dstStep, RokiSize roi, const K* kernel, int size,
                       int yAnchor) {
    return filter_plain<T, T, K, L>(src, srcStep, dst, dstStep, roi, kernel, RokiSize{1, size},
                                    RokiPoint{0, yAnchor});
}

// Row (rows = true) or column filter with an integer kernel and divisor that
// keeps every factor-th result: output (x, y) is the filtered pixel at
// source column x * factor (row form) or source row y * factor (column form).
RokStatus decimate(const Rok8u* src, int srcStep, RokiSize srcRoi, Rok8u* dst, int dstStep, const Rok32s* kernel,
                   int kernelSize, int anchor, int divisor, int factor, bool rows);

inline RokStatus decimate_row(const Rok8u* src, int srcStep, RokiSize srcRoi, Rok8u* dst, int dstStep,
                              const Rok32s* kernel, int kernelSize, int xAnchor, int divisor, int factor) {
    return decimate(src, srcStep, srcRoi, dst, dstStep, kernel, kernelSize, xAnchor, divisor, factor, true);
}
inline RokStatus decimate_column(const Rok8u* src, int srcStep, RokiSize srcRoi, Rok8u* dst, int dstStep,
                                 const Rok32s* kernel, int kernelSize, int yAnchor, int divisor, int factor) {
    return decimate(src, srcStep, srcRoi, dst, dstStep, kernel, kernelSize, yAnchor, divisor, factor, false);
}

}  // namespace rok::filter
