#include "lut/lut.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>
#include <type_traits>

#include "core/core.h"
#include "frame/image.h"
#include "kernels/lut/curves.h"

namespace rok::lut {

namespace {

template <class T>
constexpr std::int64_t kLow = std::numeric_limits<T>::min();
template <class T>
constexpr std::int64_t kHigh = std::numeric_limits<T>::max();

// A curve value as a sample: clamped to the range, then truncated toward zero
// (the caller has added 0.5 where the rule rounds).
template <class T>
T to_sample(double d) {
    if (d < double(kLow<T>)) return T(kLow<T>);
    if (d > double(kHigh<T>)) return T(kHigh<T>);
    return T(std::int64_t(d));
}

template <class V>
bool strictly_increasing(const V* levels, int n) {
    for (int k = 0; k + 1 < n; ++k)
        if (!(levels[k] < levels[k + 1])) return false;
    return true;
}

}  // namespace

template <class T>
void build_table(LutShape shape, const Rok32s* values, const Rok32s* levels, int n, T* table) {
    constexpr std::int64_t lo = kLow<T>, hi = kHigh<T>;
    // Where a level falls inside the table: its ends are lo and hi + 1.
    auto end = [](std::int64_t level) { return std::clamp<std::int64_t>(level, kLow<T>, kHigh<T> + 1); };
    auto entry = [&](std::int64_t v) -> T& { return table[v - lo]; };
    if (shape == LutShape::Cubic && n < 4) shape = LutShape::Linear;

    for (std::int64_t v = lo; v < end(levels[0]); ++v) entry(v) = T(v);
    // Interval by interval, each overwriting what earlier ones wrote.
    for (int k = 0; k + 1 < n; ++k) {
        const std::int64_t a = end(levels[k]), b = end(levels[k + 1]);
        if (a >= b) continue;  // empty, or decreasing levels
        if (shape == LutShape::Constant) {
            const T v = to_sample<T>(values[k]);
            for (std::int64_t x = a; x < b; ++x) entry(x) = v;
            continue;
        }
        kernels::Cubic cubic;
        bool useCubic = false;
        if (shape == LutShape::Cubic) {
            const int j = kernels::cubic_first_level(k, n);
            double xs[4], ys[4];
            for (int i = 0; i < 4; ++i) {
                xs[i] = levels[j + i];
                ys[i] = values[j + i];
            }
            useCubic = cubic.set(xs, ys);
        }
        if (useCubic) {
            for (std::int64_t x = a; x < b; ++x) entry(x) = to_sample<T>(cubic.at(double(x)) + 0.5);
        } else {
            const double s = kernels::piece_slope(levels[k], values[k], levels[k + 1], values[k + 1]);
            const double base = (double(values[k]) + 0.5) - double(levels[k]) * s;
            for (std::int64_t x = a; x < b; ++x) entry(x) = to_sample<T>(base + s * double(x));
        }
    }
    for (std::int64_t v = std::max<std::int64_t>(levels[n - 1], lo); v <= hi; ++v) entry(v) = T(v);
}

template void build_table(LutShape, const Rok32s*, const Rok32s*, int, Rok8u*);
template void build_table(LutShape, const Rok32s*, const Rok32s*, int, Rok16u*);
template void build_table(LutShape, const Rok32s*, const Rok32s*, int, Rok16s*);

template <Layout L>
void apply_8u(const Rok8u* src, int srcStep, Rok8u* dst, int dstStep, RokiSize roi, const Rok8u (*tables)[256]) {
    constexpr int nc = channels(L), outs = processed_channels(L);
    bool same = true;
    for (int c = 1; c < outs; ++c) same = same && std::memcmp(tables[c], tables[0], 256) == 0;
    const std::size_t samples = std::size_t(roi.width) * nc;
    if (same && L != Layout::AC4) {
        if (srcStep == dstStep && std::size_t(srcStep) == samples) {  // packed rows: one run
            kernels::lut_8u(src, dst, samples * std::size_t(roi.height), tables[0]);
            return;
        }
        for (int y = 0; y < roi.height; ++y) kernels::lut_8u(row(src, srcStep, y), row(dst, dstStep, y), samples, tables[0]);
    } else if (same) {
        for (int y = 0; y < roi.height; ++y)
            kernels::lut_8u_ac4(row(src, srcStep, y), row(dst, dstStep, y), std::size_t(roi.width), tables[0]);
    } else {
        const std::uint8_t* t[4] = {tables[0], tables[outs > 1 ? 1 : 0], tables[outs > 2 ? 2 : 0], tables[outs > 3 ? 3 : 0]};
        for (int y = 0; y < roi.height; ++y)
            kernels::lut_channels(row(src, srcStep, y), row(dst, dstStep, y), std::size_t(roi.width), nc, outs, t, 0);
    }
}

template <class T, Layout L>
RokStatus piecewise(LutShape shape, const T* src, int srcStep, T* dst, int dstStep, RokiSize roi,
                    const Level<T>* const* values, const Level<T>* const* levels, const int* nLevels) {
    constexpr int nc = channels(L), outs = processed_channels(L);
    if (any_null(src, dst, values, levels, nLevels)) return rokStatusNullPtr;
    for (int c = 0; c < outs; ++c)
        if (any_null(values[c], levels[c])) return rokStatusNullPtr;
    if (bad_size(roi)) return rokStatusBadSize;
    if (any_step_below_one(srcStep, dstStep)) return rokStatusBadStep;
    for (int c = 0; c < outs; ++c)
        if (nLevels[c] < 2) return rokStatusBadLutLevels;

    if constexpr (std::is_same_v<T, Rok32f>) {
        kernels::FloatCurve curves[4];
        for (int c = 0; c < outs; ++c) {
            const LutShape s = shape == LutShape::Cubic && nLevels[c] < 4 ? LutShape::Linear : shape;
            curves[c] = {s, levels[c], values[c], nLevels[c], strictly_increasing(levels[c], nLevels[c])};
        }
        for (int y = 0; y < roi.height; ++y)
            kernels::lut_32f(row(src, srcStep, y), row(dst, dstStep, y), std::size_t(roi.width), nc, outs, curves);
    } else if constexpr (std::is_same_v<T, Rok8u>) {
        alignas(32) Rok8u tables[4][256];
        for (int c = 0; c < outs; ++c) build_table(shape, values[c], levels[c], nLevels[c], tables[c]);
        apply_8u<L>(src, srcStep, dst, dstStep, roi, tables);
    } else {
        constexpr std::size_t kEntries = 65536;
        auto* mem = static_cast<std::uint16_t*>(rokMalloc(int(outs * kEntries * sizeof(T))));
        if (!mem) return rokStatusNoMemory;
        const std::uint16_t* tables[4];
        for (int c = 0; c < outs; ++c) {
            build_table(shape, values[c], levels[c], nLevels[c], reinterpret_cast<T*>(mem + c * kEntries));
            tables[c] = mem + c * kEntries;
        }
        const unsigned flip = std::is_signed_v<T> ? 0x8000u : 0u;  // entry v - min(T) for sample v
        for (int y = 0; y < roi.height; ++y)
            kernels::lut_channels(reinterpret_cast<const std::uint16_t*>(row(src, srcStep, y)),
                                  reinterpret_cast<std::uint16_t*>(row(dst, dstStep, y)), std::size_t(roi.width), nc,
                                  outs, tables, flip);
        rokFree(mem);
    }
    return rokStatusOk;
}

#define ROK_LUT_LAYOUTS(T)                                                                                        \
    template RokStatus piecewise<T, Layout::C1>(LutShape, const T*, int, T*, int, RokiSize,                      \
                                                const Level<T>* const*, const Level<T>* const*, const int*);     \
    template RokStatus piecewise<T, Layout::C3>(LutShape, const T*, int, T*, int, RokiSize,                      \
                                                const Level<T>* const*, const Level<T>* const*, const int*);     \
    template RokStatus piecewise<T, Layout::C4>(LutShape, const T*, int, T*, int, RokiSize,                      \
                                                const Level<T>* const*, const Level<T>* const*, const int*);     \
    template RokStatus piecewise<T, Layout::AC4>(LutShape, const T*, int, T*, int, RokiSize,                     \
                                                 const Level<T>* const*, const Level<T>* const*, const int*);
ROK_LUT_LAYOUTS(Rok8u)
ROK_LUT_LAYOUTS(Rok16u)
ROK_LUT_LAYOUTS(Rok16s)
ROK_LUT_LAYOUTS(Rok32f)
#undef ROK_LUT_LAYOUTS

template void apply_8u<Layout::C1>(const Rok8u*, int, Rok8u*, int, RokiSize, const Rok8u (*)[256]);
template void apply_8u<Layout::C3>(const Rok8u*, int, Rok8u*, int, RokiSize, const Rok8u (*)[256]);
template void apply_8u<Layout::C4>(const Rok8u*, int, Rok8u*, int, RokiSize, const Rok8u (*)[256]);
template void apply_8u<Layout::AC4>(const Rok8u*, int, Rok8u*, int, RokiSize, const Rok8u (*)[256]);

}  // namespace rok::lut
