#include "copy/engine.h"

#include <climits>
#include <cstdlib>

#include "core/core.h"
#include "frame/image.h"
#include "kernels/copy/copy_move.h"

namespace rok::copy {

bool exceeds_cache(std::size_t total) {
    if (total < kCacheQueryBytes) return false;
    const std::size_t cache = std::size_t(core::max_cache_bytes());
    return cache > 0 && total >= cache / 2;
}

bool outgrows_core_cache(std::size_t written, std::size_t moved) {
    const int l2 = core::l2_cache_bytes;
    return l2 > 0 ? written >= std::size_t(l2) : exceeds_cache(moved);
}

RowRun row_run(RokiSize roi, std::size_t srcPixelBytes, int srcStep, std::size_t dstPixelBytes, int dstStep,
               std::size_t movedPerPixel) {
    const std::size_t pixels = std::size_t(roi.width) * std::size_t(roi.height);
    const bool endToEnd = std::size_t(srcStep) == std::size_t(roi.width) * srcPixelBytes &&
                          std::size_t(dstStep) == std::size_t(roi.width) * dstPixelBytes && pixels <= std::size_t(INT_MAX);
    return {endToEnd ? int(pixels) : roi.width, endToEnd ? 1 : roi.height,
            exceeds_cache(pixels * movedPerPixel)};
}

namespace {

void copy_rows(const std::uint8_t* s, int srcStep, std::uint8_t* d, int dstStep, std::size_t rowBytes, int height,
               Stores stores) {
    switch (stores) {
        case Stores::Streaming:
            for (int y = 0; y < height; ++y) kernels::copy_bytes_streaming(row(s, srcStep, y), row(d, dstStep, y), rowBytes);
            kernels::store_fence();
            return;
        case Stores::Aligned64:
            for (int y = 0; y < height; ++y) kernels::copy_bytes_aligned64(row(s, srcStep, y), row(d, dstStep, y), rowBytes);
            return;
        default:
            for (int y = 0; y < height; ++y) kernels::copy_bytes(row(s, srcStep, y), row(d, dstStep, y), rowBytes);
    }
}

}  // namespace

void copy_plane(const void* src, int srcStep, void* dst, int dstStep, std::size_t rowBytes, int height,
                Stores stores) {
    const auto* s = static_cast<const std::uint8_t*>(src);
    auto* d = static_cast<std::uint8_t*>(dst);
    const std::size_t total = rowBytes * std::size_t(height);
    if (std::size_t(srcStep) == rowBytes && std::size_t(dstStep) == rowBytes && total <= std::size_t(INT_MAX)) {
        rowBytes = total;
        height = 1;
    }
    if (stores == Stores::Automatic)
        stores = exceeds_cache(total) ? Stores::Streaming : Stores::Ordinary;
    copy_rows(s, srcStep, d, dstStep, rowBytes, height, stores);
}

void copy_plane_flipped(const void* src, int srcStep, void* dst, int dstStep, std::size_t rowBytes, int height) {
    constexpr std::size_t kStreamBytes = 2097152;
    const std::size_t span = std::size_t(std::llabs(srcStep)) * std::size_t(height);
    const auto* last = row(static_cast<const std::uint8_t*>(src), srcStep, height - 1);
    // Walking the source bottom-up with a negated step turns the flip into a
    // plain row copy.
    copy_rows(last, -srcStep, static_cast<std::uint8_t*>(dst), dstStep, rowBytes, height,
              span > kStreamBytes ? Stores::Streaming : Stores::Ordinary);
}

}  // namespace rok::copy
