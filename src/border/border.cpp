#include "border/border.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "frame/image.h"
#include "kernels/border/border_fill.h"
#include "kernels/copy/channels.h"

namespace rok::border {

namespace {

using Byte = unsigned char;

// Copies n pixels; AC4 moves channels 0..2 only. Rows may overlap when a
// caller's step is shorter than a row; then the copy goes through memmove.
void copy_pixels(Byte* dst, const Byte* src, int n, Geometry g) {
    if (n <= 0 || dst == src) return;
    const std::size_t bytes = std::size_t(n) * g.pixelBytes;
    if (g.writeBytes == g.pixelBytes) {
        const auto d = reinterpret_cast<std::uintptr_t>(dst), s = reinterpret_cast<std::uintptr_t>(src);
        if (d + bytes <= s || s + bytes <= d)
            kernels::copy_row_bytes(dst, src, bytes);
        else
            std::memmove(dst, src, bytes);
    } else {
        kernels::copy_ac4(src, dst, n, std::size_t(g.pixelBytes / 4));
    }
}

int positive_mod(long long a, int m) {
    long long r = a % m;
    return int(r < 0 ? r + m : r);
}

// Fills `count` pixels at `d` (destination column firstX) with the periodic
// extension of the row whose source part starts at `srcPart`.
void wrap_run(Byte* d, int firstX, int count, const Byte* srcPart, int left, int srcW, Geometry g) {
    int sx = positive_mod((long long)firstX - left, srcW);
    while (count > 0) {
        const int n = count < srcW - sx ? count : srcW - sx;
        copy_pixels(d, srcPart + std::size_t(sx) * g.pixelBytes, n, g);
        d += std::size_t(n) * g.pixelBytes;
        count -= n;
        sx = 0;
    }
}

}  // namespace

RokStatus extend(Fill fill, const void* src, int srcStep, RokiSize srcSize, void* dst, int dstStep,
                 RokiSize dstSize, int top, int left, const void* value, Geometry g, bool inPlace) {
    if (dst == nullptr || (!inPlace && src == nullptr)) return rokStatusNullPtr;
    if (srcStep < 1 || dstStep < 1) return rokStatusBadStep;
    if (bad_size(srcSize) || bad_size(dstSize) || top < 0 || left < 0 ||
        (long long)dstSize.width < (long long)srcSize.width + left ||
        (long long)dstSize.height < (long long)srcSize.height + top)
        return rokStatusBadSize;
    if (fill == Fill::Constant && value == nullptr) return rokStatusNullPtr;

    const int right = dstSize.width - srcSize.width - left;
    const int bottom = dstSize.height - srcSize.height - top;
    const std::size_t ps = std::size_t(g.pixelBytes);
    // In place, the destination image begins top rows up and left pixels
    // to the left of the pointer given.
    Byte* image = static_cast<Byte*>(dst);
    if (inPlace) image = row(image, dstStep, -top) - std::size_t(left) * ps;
    auto dstRow = [&](int y) { return row(image, dstStep, y); };

    // Top and bottom rows copy completed middle rows (or take the constant),
    // so no border pixel is read before it has been written.
    auto outer_row = [&](int y) {
        Byte* d = dstRow(y);
        if (fill == Fill::Constant) {
            kernels::fill_pixels(d, value, g.pixelBytes, g.writeBytes, dstSize.width);
            return;
        }
        const int from = fill == Fill::Replicate ? (y < top ? top : top + srcSize.height - 1)
                                                 : top + positive_mod((long long)y - top, srcSize.height);
        copy_pixels(d, dstRow(from), dstSize.width, g);
    };
    // Rows are written top to bottom where the rule allows: constant top
    // rows first; replicated top rows right after the first middle row,
    // while it is still in cache; wrapped ones once every middle row is done.
    if (fill == Fill::Constant)
        for (int y = 0; y < top; ++y) outer_row(y);
    // Middle rows: the source part, then its left and right borders, which
    // read only the source part of the same row.
    for (int y = 0; y < srcSize.height; ++y) {
        Byte* d = dstRow(top + y);
        if (fill == Fill::Replicate && g.writeBytes == g.pixelBytes) {
            kernels::replicate_row(d, inPlace ? nullptr : row(static_cast<const Byte*>(src), srcStep, y), left,
                                   srcSize.width, right, g.pixelBytes);
            if (y == 0)
                for (int t = 0; t < top; ++t) outer_row(t);
            continue;
        }
        Byte* part = d + std::size_t(left) * ps;
        if (!inPlace) copy_pixels(part, row(static_cast<const Byte*>(src), srcStep, y), srcSize.width, g);
        Byte* rightPart = part + std::size_t(srcSize.width) * ps;
        switch (fill) {
            case Fill::Replicate:
                kernels::fill_pixels(d, part, g.pixelBytes, g.writeBytes, left);
                kernels::fill_pixels(rightPart, rightPart - ps, g.pixelBytes, g.writeBytes, right);
                break;
            case Fill::Constant:
                kernels::fill_pixels(d, value, g.pixelBytes, g.writeBytes, left);
                kernels::fill_pixels(rightPart, value, g.pixelBytes, g.writeBytes, right);
                break;
            case Fill::Wrap:
                wrap_run(d, 0, left, part, left, srcSize.width, g);
                wrap_run(rightPart, left + srcSize.width, right, part, left, srcSize.width, g);
                break;
        }
        if (y == 0 && fill == Fill::Replicate)
            for (int t = 0; t < top; ++t) outer_row(t);
    }

    if (fill == Fill::Wrap)
        for (int y = 0; y < top; ++y) outer_row(y);
    for (int y = top + srcSize.height; y < top + srcSize.height + bottom; ++y) outer_row(y);
    return rokStatusOk;
}

}  // namespace rok::border
