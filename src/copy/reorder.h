// Mirror, transpose, channel swaps and duplication: families that move
// samples to other positions. Mirror, Transpose and Dup check only pointers
// and sizes (and their own arguments); SwapChannels checks steps in some
// forms, in the order each form states.
#pragma once

#include <algorithm>
#include <cstring>

#include "copy/engine.h"
#include "core/core.h"
#include "frame/image.h"
#include "kernels/copy/channels.h"
#include "kernels/copy/copy_move.h"
#include "kernels/copy/copy_order.h"
#include "frame/generated/roki_types.h"

namespace rok::copy {

// ---- Mirror ----------------------------------------------------------------

// Axis code first, then the sizes that axis needs: two rows to swap for the
// horizontal axis, two columns for the vertical one.
inline RokStatus check_mirror(RokiSize roi, int axis) {
    if (bad_size(roi)) return rokStatusBadSize;
    if (axis < rokFlipAboutHorizontal || axis > rokFlipBoth) return rokStatusBadMirrorAxis;
    if (axis != rokFlipAboutVertical && roi.height < 2) return rokStatusBadSize;
    if (axis != rokFlipAboutHorizontal && roi.width < 2) return rokStatusBadSize;
    return rokStatusOk;
}

template <class T, Layout L>
RokStatus mirror_inplace(T* pSrcDst, int step, RokiSize roi, int axis) {
    if (!pSrcDst) return rokStatusNullPtr;
    if (RokStatus s = check_mirror(roi, axis)) return s;
    constexpr int PB = kPixelBytes<T, L>;
    constexpr bool KA = L == Layout::AC4;
    const int w = roi.width, h = roi.height;
    if (axis == rokFlipAboutVertical) {
        for (int y = 0; y < h; ++y) kernels::reverse_pixels_inplace<PB, KA>(bytes(row(pSrcDst, step, y)), w);
        return rokStatusOk;
    }
    for (int y = 0; y < h / 2; ++y) {
        std::uint8_t* a = bytes(row(pSrcDst, step, y));
        std::uint8_t* b = bytes(row(pSrcDst, step, h - 1 - y));
        if (axis == rokFlipBoth) kernels::swap_rows_reversed<PB, KA>(a, b, w);
        else kernels::swap_rows<PB, KA>(a, b, w);
    }
    if (axis == rokFlipBoth && h % 2) kernels::reverse_pixels_inplace<PB, KA>(bytes(row(pSrcDst, step, h / 2)), w);
    return rokStatusOk;
}

template <class T, Layout L>
RokStatus mirror(const T* pSrc, int srcStep, T* pDst, int dstStep, RokiSize roi, int axis) {
    if (!pSrc || !pDst) return rokStatusNullPtr;
    if (pSrc == pDst && srcStep == dstStep) return mirror_inplace<T, L>(pDst, dstStep, roi, axis);
    if (RokStatus s = check_mirror(roi, axis)) return s;
    constexpr int PB = kPixelBytes<T, L>;
    constexpr bool KA = L == Layout::AC4;
    const int w = roi.width, h = roi.height;
    if (axis == rokFlipAboutHorizontal) {
        if constexpr (KA) {
            for (int y = 0; y < h; ++y) kernels::copy_ac4(row(pSrc, srcStep, h - 1 - y), row(pDst, dstStep, y), w, sizeof(T));
        } else {
            copy_plane_flipped(pSrc, srcStep, pDst, dstStep, std::size_t(w) * PB, h);
        }
        return rokStatusOk;
    }
    for (int y = 0; y < h; ++y) {
        const int sy = axis == rokFlipBoth ? h - 1 - y : y;
        kernels::reverse_pixels<PB, KA>(bytes(row(pSrc, srcStep, sy)), bytes(row(pDst, dstStep, y)), w);
    }
    return rokStatusOk;
}

// ---- Transpose -------------------------------------------------------------

// In place: a square ROI, done in bands of up to 32 rows; each pair of
// blocks across the diagonal is exchanged, diagonal blocks turn in place.
template <class T, Layout L>
RokStatus transpose_inplace(T* pSrcDst, int step, RokiSize roi) {
    if (!pSrcDst) return rokStatusNullPtr;
    if (bad_size(roi) || roi.width != roi.height) return rokStatusBadSize;
    constexpr int PB = kPixelBytes<T, L>;
    constexpr int kBand = 32;
    const int n = roi.width;
    auto at = [&](int y, int x) { return bytes(row(pSrcDst, step, y)) + std::size_t(x) * PB; };
    for (int by = 0; by < n; by += kBand) {
        const int rows = std::min(kBand, n - by);
        kernels::transpose_swap_blocks<PB>(at(by, by), at(by, by), step, rows, rows);
        for (int bx = by + kBand; bx < n; bx += kBand)
            kernels::transpose_swap_blocks<PB>(at(by, bx), at(bx, by), step, rows, std::min(kBand, n - bx));
    }
    return rokStatusOk;
}

template <class T, Layout L>
RokStatus transpose(const T* pSrc, int srcStep, T* pDst, int dstStep, RokiSize roi) {
    if (!pSrc || !pDst) return rokStatusNullPtr;
    if (pSrc == pDst && srcStep == dstStep) return transpose_inplace<T, L>(pDst, dstStep, roi);
    if (bad_size(roi)) return rokStatusBadSize;
    constexpr int PB = kPixelBytes<T, L>;
    const int w = roi.width, h = roi.height;
    const auto* s = bytes(pSrc);
    auto* d = bytes(pDst);
    // Large aligned images that overflow the cache go by recursive halving,
    // which keeps both the rows read and the rows written in cache at every
    // level without knowing its size.
    const std::size_t image = 2 * std::size_t(w) * std::size_t(h) * PB;
    const std::size_t cache = std::size_t(core::max_cache_bytes());
    if (w > 1024 && w % 64 == 0 && h % 64 == 0 && reinterpret_cast<std::uintptr_t>(pSrc) % 16 == 0 && srcStep % 16 == 0 &&
        reinterpret_cast<std::uintptr_t>(pDst) % 64 == 0 && dstStep % 64 == 0 && cache > 0 && image > cache) {
        kernels::transpose_recursive<PB>(s, srcStep, d, dstStep, w, h);
        return rokStatusOk;
    }
    // Blocks go strip by strip of source columns: each strip fills its
    // destination rows completely while they are still in cache.
    const int block = std::min({w, h, 64});
    for (int x = 0; x < w; x += block) {
        const std::size_t pieceBytes = std::size_t(std::min(block, w - x)) * PB;
        for (int y = 0; y < h; y += block) {
            // The next block down the strip reads a short piece of each of
            // its rows, each on another page, where the hardware prefetcher
            // does not follow; asking for those lines now hides their latency
            // behind this block's work.
            for (int r = y + block; r < std::min(h, y + 2 * block); ++r) {
                const std::uint8_t* piece = s + std::ptrdiff_t(r) * srcStep + std::size_t(x) * PB;
                for (std::size_t b = 0; b < pieceBytes; b += 64) __builtin_prefetch(piece + b);
                __builtin_prefetch(piece + pieceBytes - 1);
            }
            kernels::transpose_block<PB>(s + std::ptrdiff_t(y) * srcStep + std::size_t(x) * PB, srcStep,
                                         d + std::ptrdiff_t(x) * dstStep + std::size_t(y) * PB, dstStep,
                                         std::min(block, w - x), std::min(block, h - y));
        }
    }
    return rokStatusOk;
}

// ---- Dup -------------------------------------------------------------------

template <int C>
RokStatus dup(const Rok8u* pSrc, int srcStep, Rok8u* pDst, int dstStep, RokiSize roi) {
    if (!pSrc || !pDst) return rokStatusNullPtr;
    if (bad_size(roi)) return rokStatusBadSize;
    RowRun rows = row_run(roi, 1, srcStep, C, dstStep, 1 + C);
    // Like the planar merge, Dup writes C bytes for every byte it reads, so it
    // streams once the image it writes no longer fits the core's own cache.
    const std::size_t written = std::size_t(roi.width) * std::size_t(roi.height) * C;
    rows.stream = outgrows_core_cache(written, written + written / C);
    for (int y = 0; y < rows.height; ++y)
        kernels::dup_channel<C>(row(pSrc, srcStep, y), row(pDst, dstStep, y), rows.width, rows.stream);
    if (rows.stream) kernels::store_fence();
    return rokStatusOk;
}

// ---- SwapChannels ----------------------------------------------------------

inline bool order_within(const int* order, int n, int limit) {
    for (int k = 0; k < n; ++k)
        if (order[k] < 0 || order[k] >= limit) return false;
    return true;
}

// Runs the reorder kernel over every row; SC/DC samples per pixel, NP
// destination channels written.
template <class T, int SC, int DC, int NP>
void reorder_rows(const T* pSrc, int srcStep, T* pDst, int dstStep, RokiSize roi, const int* order, T fill = T()) {
    Raw<T> f;
    std::memcpy(&f, &fill, sizeof f);
    for (int y = 0; y < roi.height; ++y)
        kernels::reorder_channels<Raw<T>, SC, DC, NP>(raw(row(pSrc, srcStep, y)), raw(row(pDst, dstStep, y)), roi.width,
                                                      order, f);
}

// C3R and AC4R: pointers, size, steps, order (each entry 0..2). C3R with the
// source equal to the destination runs in place.
template <class T, Layout L>
RokStatus swap_channels(const T* pSrc, int srcStep, T* pDst, int dstStep, RokiSize roi, const int* order) {
    if (!pSrc || !pDst || !order) return rokStatusNullPtr;
    if (bad_size(roi)) return rokStatusBadSize;
    if (any_step_below_one(srcStep, dstStep)) return rokStatusBadStep;
    if (!order_within(order, 3, 3)) return rokStatusBadChannelOrder;
    constexpr int C = channels(L);
    reorder_rows<T, C, C, 3>(pSrc, srcStep, pDst, dstStep, roi, order);
    return rokStatusOk;
}

// C3IR (8u): pointers, size, step, order 0..2.
inline RokStatus swap_channels_c3_inplace(Rok8u* p, int step, RokiSize roi, const int* order) {
    if (!p || !order) return rokStatusNullPtr;
    if (bad_size(roi)) return rokStatusBadSize;
    if (step < 1) return rokStatusBadStep;
    if (!order_within(order, 3, 3)) return rokStatusBadChannelOrder;
    reorder_rows<Rok8u, 3, 3, 3>(p, step, p, step, roi, order);
    return rokStatusOk;
}

// C4IR (8u): pointers, step, size, order 0..3.
inline RokStatus swap_channels_c4_inplace(Rok8u* p, int step, RokiSize roi, const int* order) {
    if (!p || !order) return rokStatusNullPtr;
    if (step < 1) return rokStatusBadStep;
    if (bad_size(roi)) return rokStatusBadSize;
    if (!order_within(order, 4, 4)) return rokStatusBadChannelOrder;
    reorder_rows<Rok8u, 4, 4, 4>(p, step, p, step, roi, order);
    return rokStatusOk;
}

// C4C3R: pointers, size, order 0..3; steps are not checked.
template <class T>
RokStatus swap_channels_c4c3(const T* pSrc, int srcStep, T* pDst, int dstStep, RokiSize roi, const int* order) {
    if (!pSrc || !pDst || !order) return rokStatusNullPtr;
    if (bad_size(roi)) return rokStatusBadSize;
    if (!order_within(order, 3, 4)) return rokStatusBadChannelOrder;
    reorder_rows<T, 4, 3, 3>(pSrc, srcStep, pDst, dstStep, roi, order);
    return rokStatusOk;
}

// C3C4R: pointers, size, then any negative order entry; 0..2 copies that
// source channel, 3 writes `val`, above 3 leaves the channel unchanged.
template <class T>
RokStatus swap_channels_c3c4(const T* pSrc, int srcStep, T* pDst, int dstStep, RokiSize roi, const int* order, T val) {
    if (!pSrc || !pDst || !order) return rokStatusNullPtr;
    if (bad_size(roi)) return rokStatusBadSize;
    for (int k = 0; k < 4; ++k)
        if (order[k] < 0) return rokStatusBadChannelOrder;
    reorder_rows<T, 3, 4, 4>(pSrc, srcStep, pDst, dstStep, roi, order, val);
    return rokStatusOk;
}

}  // namespace rok::copy
