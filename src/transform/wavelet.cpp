#include "transform/wavelet.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "frame/record.h"
#include "kernels/transform/wavelet.h"

namespace rok::transform {

namespace {

namespace kw = rok::kernels::wavelet;

// Output columns per block (the forward reads twice as many source columns
// plus the borders, the inverse writes twice as many).
constexpr int kBlock = 256;
// Longest filter a record accepts: keeps every buffer size within an int.
constexpr int kMaxTaps = 1 << 20;

// One filter: its taps in order, and the same taps split by the parity of
// their index (the horizontal filters run each parity over one phase of a
// row split into even and odd pixels).
struct WtFilter {
    std::int32_t length;
    std::int32_t anchor;
    std::int32_t before;  // length - anchor - 1: samples read before the output's own
    std::int32_t after;   // anchor - 1: samples read past the region's last
    const float* taps;
    const float* evenTaps;  // taps 0, 2, 4, ...
    const float* oddTaps;   // taps 1, 3, 5, ...
};

struct WtRecord {
    std::int32_t id;
    std::int32_t channels;
    const WtFilter* low;
    const WtFilter* high;
    // Border the transform reads round its source region: before (left and
    // top) and after (right and bottom), in pixels of the source.
    std::int32_t borderBefore, borderAfter;
};

int even_count(int length) { return (length + 1) / 2; }
int odd_count(int length) { return length / 2; }

// Forward: output j is centred on source sample 2j and reads 2j + anchor -
// (length - 1) .. 2j + anchor. Inverse: coefficient rows (and columns)
// floor((length - 1 - anchor) / 2) before the first and floor((anchor + 1) /
// 2) after the last.
int border_before(std::int32_t id, const WtFilter& f) {
    return id == rokIdWtFwd ? f.length - f.anchor - 1 : (f.length - 1 - f.anchor) / 2;
}
int border_after(std::int32_t id, const WtFilter& f) {
    return id == rokIdWtFwd ? std::max(f.anchor - 1, 0) : (f.anchor + 1) / 2;
}

bool filter_consistent(const WtFilter* f) {
    return f && f->taps && f->evenTaps && f->oddTaps && f->length >= 2 && f->length <= kMaxTaps &&
           f->anchor >= 0 && f->anchor < f->length && f->before == f->length - f->anchor - 1 &&
           f->after == f->anchor - 1;
}

// The record's kind, layout and filters agree with what the caller names.
RokStatus check_wt(const WtRecord* rec, std::int32_t id, int channels) {
    if (RokStatus s = check_record(rec, id); s != rokStatusOk) return s;
    if (rec->channels != channels || !filter_consistent(rec->low) || !filter_consistent(rec->high))
        return rokStatusBadContext;
    const int before = std::max(border_before(id, *rec->low), border_before(id, *rec->high));
    const int after = std::max(border_after(id, *rec->low), border_after(id, *rec->high));
    return rec->borderBefore == before && rec->borderAfter == after ? rokStatusOk : rokStatusBadContext;
}

std::size_t round16(std::size_t floats) { return (floats + 15) & ~std::size_t(15); }

// Floats of one work row: the forward's rows span the block's source
// columns and borders; the inverse's the block's coefficient columns and
// borders, plus the even and odd output halves.
std::size_t work_row_floats(const WtRecord& rec) {
    const int cols = rec.id == rokIdWtFwd ? 2 * kBlock : kBlock;
    return round16(std::size_t(cols + rec.borderBefore + rec.borderAfter) * rec.channels);
}

// Floats of one phase (the even or the odd pixels) of a split work row: the
// forward splits its filtered rows, the inverse assembles even and odd
// output pixels.
std::size_t phase_floats(const WtRecord& rec) {
    const int pixels = rec.id == rokIdWtFwd ? kBlock + (rec.borderBefore + rec.borderAfter + 1) / 2 : kBlock;
    return round16(std::size_t(pixels) * rec.channels);
}

// Two work rows and four phases (forward), or two phases (inverse), and the
// slack to align the first on 64 bytes.
std::size_t buffer_bytes(const WtRecord& rec) {
    const std::size_t floats = 2 * work_row_floats(rec) + (rec.id == rokIdWtFwd ? 4 : 2) * phase_floats(rec);
    return floats * sizeof(float) + 64;
}

float* align64(Rok8u* p) {
    return reinterpret_cast<float*>((reinterpret_cast<std::uintptr_t>(p) + 63) & ~std::uintptr_t(63));
}

template <class T>
T* at(T* base, int step, std::ptrdiff_t row, std::ptrdiff_t floats) {
    using Byte = std::conditional_t<std::is_const_v<T>, const char, char>;
    return reinterpret_cast<T*>(reinterpret_cast<Byte*>(base) + row * step) + floats;
}

// The taps of parity q of `f` over a phase of a split row: output i of the
// filter reads pixel i + offset - t of the phase for the t-th tap of that
// parity, so the taps walk back one pixel each.
void phase_taps(const float* phase, int offset, const WtFilter& f, int q, int ch, float* dst, int n, bool accumulate) {
    kw::weighted_rows_32f(phase + std::ptrdiff_t(offset) * ch, -std::ptrdiff_t(ch) * std::ptrdiff_t(sizeof(float)),
                          q ? f.oddTaps : f.evenTaps, q ? odd_count(f.length) : even_count(f.length), dst, n,
                          accumulate);
}

// Horizontal decimating filter of a split row: out[i] = sum_k taps[k] *
// row[2i + anchor - k + before] (row index in pixels from the row's start).
void decimate_row(const float* even, const float* odd, int before, const WtFilter& f, int ch, float* out, int n) {
    for (int q = 0; q < 2; ++q) {
        const int shift = f.anchor + before - q;  // >= 0: `before` covers the filter's reach
        const int p = shift & 1;
        phase_taps(p ? odd : even, (shift - p) / 2, f, q, ch, out, n, q == 1);
    }
}

}  // namespace

RokStatus wt_record_init_alloc(void** out, std::int32_t id, int channels, const Rok32f* tapsLow, int lenLow,
                               int anchorLow, const Rok32f* tapsHigh, int lenHigh, int anchorHigh) {
    if (!out || !tapsLow || !tapsHigh) return rokStatusNullPtr;
    if (lenLow < 2 || lenHigh < 2 || lenLow > kMaxTaps || lenHigh > kMaxTaps) return rokStatusBadSize;
    if (anchorLow < 0 || anchorLow >= lenLow || anchorHigh < 0 || anchorHigh >= lenHigh) return rokStatusBadAnchor;
    const std::size_t floats = 2 * std::size_t(lenLow + lenHigh);
    WtRecord* rec = alloc_record<WtRecord>(id, 2 * sizeof(WtFilter) + floats * sizeof(float));
    if (!rec) return rokStatusNoMemory;
    WtFilter* filters = reinterpret_cast<WtFilter*>(rec + 1);
    float* taps = reinterpret_cast<float*>(filters + 2);
    const Rok32f* given[2] = {tapsLow, tapsHigh};
    const int lens[2] = {lenLow, lenHigh}, anchors[2] = {anchorLow, anchorHigh};
    for (int f = 0; f < 2; ++f) {
        const int len = lens[f];
        std::memcpy(taps, given[f], std::size_t(len) * sizeof(float));
        float* even = taps + len;
        float* odd = even + even_count(len);
        for (int k = 0; k < len; k += 2) even[k / 2] = taps[k];
        for (int k = 1; k < len; k += 2) odd[k / 2] = taps[k];
        filters[f] = WtFilter{len, anchors[f], len - anchors[f] - 1, anchors[f] - 1, taps, even, odd};
        taps += 2 * len;
    }
    rec->channels = channels;
    rec->low = &filters[0];
    rec->high = &filters[1];
    rec->borderBefore = std::max(border_before(id, filters[0]), border_before(id, filters[1]));
    rec->borderAfter = std::max(border_after(id, filters[0]), border_after(id, filters[1]));
    *out = rec;
    return rokStatusOk;
}

RokStatus wt_record_free(void* spec, std::int32_t id, int channels) {
    WtRecord* rec = static_cast<WtRecord*>(spec);
    if (RokStatus s = check_wt(rec, id, channels); s != rokStatusOk) return s;
    return free_record(rec, id);
}

RokStatus wt_record_buf_size(const void* spec, std::int32_t id, int channels, int* size) {
    const WtRecord* rec = static_cast<const WtRecord*>(spec);
    if (!rec || !size) return rokStatusNullPtr;
    if (RokStatus s = check_wt(rec, id, channels); s != rokStatusOk) return s;
    *size = int(buffer_bytes(*rec));
    return rokStatusOk;
}

RokStatus wt_forward(const Rok32f* src, int srcStep, Rok32f* approx, int approxStep, Rok32f* detailX,
                     int detailXStep, Rok32f* detailY, int detailYStep, Rok32f* detailXY, int detailXYStep,
                     RokiSize dstRoi, const void* spec, int ch, Rok8u* buffer) {
    const WtRecord* rec = static_cast<const WtRecord*>(spec);
    if (!rec) return rokStatusNullPtr;
    if (RokStatus s = check_wt(rec, rokIdWtFwd, ch); s != rokStatusOk) return s;
    if (!src || !approx || !detailX || !detailY || !detailXY || !buffer) return rokStatusNullPtr;
    if (dstRoi.width < 1 || dstRoi.height < 1) return rokStatusBadSize;
    if (srcStep < 1 || approxStep < 1 || detailXStep < 1 || detailYStep < 1 || detailXYStep < 1)
        return rokStatusBadStep;

    const WtFilter& lo = *rec->low;
    const WtFilter& hi = *rec->high;
    const int before = rec->borderBefore;
    const std::size_t row = work_row_floats(*rec);
    float* colLow = align64(buffer);
    float* colHigh = colLow + row;
    const std::size_t half = phase_floats(*rec);
    float* splitLow = colHigh + row;  // even pixels, then the odd ones from half on
    float* splitHigh = splitLow + 2 * half;

    for (int j = 0; j < dstRoi.height; ++j) {
        for (int c0 = 0; c0 < dstRoi.width; c0 += kBlock) {
            const int n = std::min(kBlock, dstRoi.width - c0);
            const int cols = 2 * n + rec->borderBefore + rec->borderAfter;
            const std::ptrdiff_t firstCol = std::ptrdiff_t(2 * c0 - before) * ch;
            // Vertical filters, decimating: each tap one source row further up.
            kw::weighted_rows_32f(at(src, srcStep, 2 * j + lo.anchor, firstCol), -std::ptrdiff_t(srcStep), lo.taps,
                                  lo.length, colLow, cols * ch, false);
            kw::weighted_rows_32f(at(src, srcStep, 2 * j + hi.anchor, firstCol), -std::ptrdiff_t(srcStep), hi.taps,
                                  hi.length, colHigh, cols * ch, false);
            kw::split_32f(colLow, cols, ch, splitLow, splitLow + half);
            kw::split_32f(colHigh, cols, ch, splitHigh, splitHigh + half);
            // Horizontal filters, decimating, into the four bands.
            const std::ptrdiff_t o = std::ptrdiff_t(c0) * ch;
            decimate_row(splitLow, splitLow + half, before, lo, ch, at(approx, approxStep, j, o), n * ch);
            decimate_row(splitHigh, splitHigh + half, before, lo, ch, at(detailX, detailXStep, j, o), n * ch);
            decimate_row(splitLow, splitLow + half, before, hi, ch, at(detailY, detailYStep, j, o), n * ch);
            decimate_row(splitHigh, splitHigh + half, before, hi, ch, at(detailXY, detailXYStep, j, o), n * ch);
        }
    }
    return rokStatusOk;
}

RokStatus wt_inverse(const Rok32f* approx, int approxStep, const Rok32f* detailX, int detailXStep,
                     const Rok32f* detailY, int detailYStep, const Rok32f* detailXY, int detailXYStep,
                     RokiSize srcRoi, Rok32f* dst, int dstStep, const void* spec, int ch, Rok8u* buffer) {
    const WtRecord* rec = static_cast<const WtRecord*>(spec);
    if (!rec) return rokStatusNullPtr;
    if (RokStatus s = check_wt(rec, rokIdWtInv, ch); s != rokStatusOk) return s;
    if (!approx || !detailX || !detailY || !detailXY || !dst || !buffer) return rokStatusNullPtr;
    if (srcRoi.width < 1 || srcRoi.height < 1) return rokStatusBadSize;
    if (approxStep < 1 || detailXStep < 1 || detailYStep < 1 || detailXYStep < 1 || dstStep < 1)
        return rokStatusBadStep;

    const WtFilter& lo = *rec->low;
    const WtFilter& hi = *rec->high;
    const int before = rec->borderBefore;
    const std::size_t row = work_row_floats(*rec);
    const std::size_t halfOut = phase_floats(*rec);
    float* rowsLow = align64(buffer);  // vertical synthesis of the horizontally low bands
    float* rowsHigh = rowsLow + row;   // ... and of the horizontally high ones
    float* even = rowsHigh + row;
    float* odd = even + halfOut;

    // Vertical synthesis of output row y from one low and one high band:
    // the taps of one parity meet coefficient rows (y + anchor - k) / 2.
    auto vertical = [&](const Rok32f* low, int lowStep, const Rok32f* high, int highStep, int y,
                        std::ptrdiff_t firstCol, float* out, int n) {
        const WtFilter* fs[2] = {&lo, &hi};
        const Rok32f* bands[2] = {low, high};
        const int steps[2] = {lowStep, highStep};
        for (int b = 0; b < 2; ++b) {
            const WtFilter& f = *fs[b];
            const int q = (y + f.anchor) & 1;
            const int count = q ? odd_count(f.length) : even_count(f.length);
            kw::weighted_rows_32f(at(bands[b], steps[b], (y + f.anchor - q) / 2, firstCol),
                                  -std::ptrdiff_t(steps[b]), q ? f.oddTaps : f.evenTaps, count, out, n, b == 1);
        }
    };
    // Horizontal synthesis: output pixel 2i + r meets coefficient columns
    // i + (r + anchor - k) / 2 for the taps k of the parity of r + anchor.
    auto horizontal = [&](int r, float* out, int n) {
        const WtFilter* fs[2] = {&lo, &hi};
        const float* rows[2] = {rowsLow, rowsHigh};
        for (int b = 0; b < 2; ++b) {
            const WtFilter& f = *fs[b];
            const int q = (r + f.anchor) & 1;
            phase_taps(rows[b], before + (r + f.anchor - q) / 2, f, q, ch, out, n, b == 1);
        }
    };

    for (int y = 0; y < 2 * srcRoi.height; ++y) {
        for (int c0 = 0; c0 < srcRoi.width; c0 += kBlock) {
            const int n = std::min(kBlock, srcRoi.width - c0);
            const int cols = n + rec->borderBefore + rec->borderAfter;
            const std::ptrdiff_t firstCol = std::ptrdiff_t(c0 - before) * ch;
            vertical(approx, approxStep, detailX, detailXStep, y, firstCol, rowsLow, cols * ch);
            vertical(detailY, detailYStep, detailXY, detailXYStep, y, firstCol, rowsHigh, cols * ch);
            horizontal(0, even, n * ch);
            horizontal(1, odd, n * ch);
            kw::merge_32f(even, odd, n, ch, at(dst, dstStep, y, std::ptrdiff_t(2 * c0) * ch));
        }
    }
    return rokStatusOk;
}

}  // namespace rok::transform
