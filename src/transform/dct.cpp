#include "transform/dct.h"

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdint>

#include "core/core.h"
#include "frame/image.h"
#include "frame/parallel.h"
#include "frame/record.h"
#include "kernels/transform/dct8x8.h"
#include "kernels/transform/dct_engine.h"
#include "kernels/transform/packets.h"

namespace rok::transform {

namespace {

namespace fk = rok::kernels::fft;
namespace kd = rok::kernels::dct;

constexpr int kLanes = fk::kLanes;
constexpr std::size_t kPacketBytes = fk::kRealPacketFloats * sizeof(float);
// Both sides at least this long share the work among the library's threads.
constexpr int kThreadFrom = 256;

std::size_t round64(std::size_t b) { return (b + 63) & ~std::size_t(63); }

struct DctRecord {
    std::int32_t id;
    std::int32_t width, height;
    std::int32_t hint;
    std::int32_t work_bytes;  // per thread, a multiple of 64
    std::int32_t threads;
    std::int32_t is8x8;
    const kd::DctPlan* rows;     // length width
    const kd::DctPlan* columns;  // length height (the row plan when equal)
};

struct Sizes {
    std::size_t record_bytes, init_bytes, work_bytes;
};

DctRecord* build(fk::Arena& arena, int w, int h, void* init, Sizes& lay) {
    DctRecord* rec = arena.take<DctRecord>(1);
    if (w == 8 && h == 8) {
        lay = {arena.used(), 0, std::size_t(16 * w * h)};
        return rec;
    }
    fk::PlanNeeds rowNeeds, colNeeds;
    const kd::DctPlan* rows = kd::build_dct(arena, w, rowNeeds, init);
    const kd::DctPlan* cols = rows;
    colNeeds = rowNeeds;
    if (h != w) cols = kd::build_dct(arena, h, colNeeds, init);
    // A batch of eight sequences and the engine's scratch.
    const std::size_t work = std::max(round64(h * kPacketBytes) + kd::dct_work_bytes(h, colNeeds),
                                      round64(w * kPacketBytes) + kd::dct_work_bytes(w, rowNeeds));
    lay = {arena.used(), std::max(rowNeeds.init_bytes, colNeeds.init_bytes), round64(work)};
    if (rec) {
        rec->rows = rows;
        rec->columns = cols;
    }
    return rec;
}

float* slice(Rok8u* buffer, int workBytes, int t) {
    const std::uintptr_t base = (reinterpret_cast<std::uintptr_t>(buffer) + 63) & ~std::uintptr_t(63);
    return reinterpret_cast<float*>(base + std::size_t(workBytes) * t);
}

std::int64_t buffer_bytes(const DctRecord* rec) { return (std::int64_t(rec->work_bytes) + 4) * rec->threads + 64; }

// A call with threads is large (threads_for_passes): the workers start at
// once.
template <class Fn>
void for_items(int count, int threads, Fn&& fn) {
    parallel_for(
        count, std::min(threads, ownGetNumThreads()),
        [&](int begin, int end, int slot) {
            for (int i = begin; i < end; ++i) fn(i, slot);
            return rokStatusOk;
        },
        pool::kChunksPerThread, false);
}

void blocks8x8(bool forward, const Rok32f* src, int ss, Rok32f* dst, int ds, int stride, int channels) {
    const auto kind = forward ? kd::Block8::Fwd32f : kd::Block8::Inv32f;
    if (stride == 1) {
        kd::block_32f(src, ss, dst, ds, kind);
        return;
    }
    alignas(32) float blk[64];
    for (int c = 0; c < channels; ++c) {
        for (int y = 0; y < 8; ++y)
            for (int x = 0; x < 8; ++x) blk[y * 8 + x] = row(src, ss, y)[x * stride + c];
        kd::block_32f(blk, 32, blk, 32, kind);
        for (int y = 0; y < 8; ++y)
            for (int x = 0; x < 8; ++x) row(dst, ds, y)[x * stride + c] = blk[y * 8 + x];
    }
}

}  // namespace

RokStatus dct_record_init_alloc(void** out, std::int32_t id, RokiSize roi, int hint) {
    if (!out) return rokStatusNullPtr;
    if (roi.width < 1 || roi.height < 1) return rokStatusBadSize;
    if (roi.width > fk::kMaxLength || roi.height > fk::kMaxLength) return rokStatusNoMemory;
    const int w = roi.width, h = roi.height;
    fk::Arena counter;
    Sizes lay{};
    build(counter, w, h, nullptr, lay);
    const int threads = (w >= kThreadFrom && h >= kThreadFrom) ? ownGetNumThreads() : 1;
    if (lay.record_bytes > INT_MAX || lay.init_bytes > INT_MAX || lay.work_bytes > INT_MAX / 2 ||
        (std::int64_t(lay.work_bytes) + 4) * threads + 64 > INT_MAX)
        return rokStatusNoMemory;
    DctRecord* rec = alloc_record<DctRecord>(id, lay.record_bytes + 64 - sizeof(DctRecord));
    if (!rec) return rokStatusNoMemory;
    void* init = nullptr;
    if (lay.init_bytes) {
        init = rokMalloc(int(lay.init_bytes + 64));
        if (!init) {
            rokFree(rec);
            return rokStatusNoMemory;
        }
    }
    void* base = reinterpret_cast<void*>((reinterpret_cast<std::uintptr_t>(rec) + 63) & ~std::uintptr_t(63));
    void* initAligned =
        init ? reinterpret_cast<void*>((reinterpret_cast<std::uintptr_t>(init) + 63) & ~std::uintptr_t(63)) : nullptr;
    // The engines follow in an arena of their own (its first record slot
    // stays unused when the block is not 64-byte aligned).
    fk::Arena arena(base);
    const DctRecord* inner = build(arena, w, h, initAligned, lay);
    rokFree(init);
    // The header lives where the caller's handle points.
    const DctRecord header{id, w, h, hint, std::int32_t(lay.work_bytes), threads, w == 8 && h == 8, inner->rows,
                           inner->columns};
    *rec = header;
    *out = rec;
    return rokStatusOk;
}

RokStatus dct_record_free(void* spec, std::int32_t id) {
    return free_record(static_cast<DctRecord*>(spec), id);
}

RokStatus dct_record_buf_size(const void* spec, std::int32_t id, int* size) {
    const auto* rec = static_cast<const DctRecord*>(spec);
    if (!rec || !size) return rokStatusNullPtr;
    if (RokStatus s = check_record(rec, id); s != rokStatusOk) return s;
    *size = int(buffer_bytes(rec));
    return rokStatusOk;
}

RokStatus dct_transform(const Rok32f* src, int ss, Rok32f* dst, int ds, int stride, int channels, const void* spec,
                        std::int32_t id, Rok8u* buffer) {
    const auto* rec = static_cast<const DctRecord*>(spec);
    if (!src || !dst || !rec) return rokStatusNullPtr;
    if (RokStatus s = check_record(rec, id); s != rokStatusOk) return s;
    if (ss < 1 || ds < 1) return rokStatusBadStep;
    const bool forward = id == rokIdDctFwd;
    if (rec->is8x8) {
        blocks8x8(forward, src, ss, dst, ds, stride, channels);
        return rokStatusOk;
    }
    Rok8u* own = nullptr;
    if (!buffer) {
        own = static_cast<Rok8u*>(rokMalloc(int(buffer_bytes(rec))));
        if (!own) return rokStatusNoMemory;
        buffer = own;
    }
    const int w = rec->width, h = rec->height;
    // A sample costs about four times what it costs in a real FFT.
    const int threads = threads_for_passes(rec->threads, 4 * std::int64_t(w) * h * channels);
    auto run = [&](const kd::DctPlan* plan, float* g, float* work) {
        if (forward)
            kd::dct_forward(plan, g, work);
        else
            kd::dct_inverse(plan, g, work);
    };
    // Rows: eight at a time per channel, from src into dst.
    const int rowBlocks = (h + kLanes - 1) / kLanes;
    for_items(rowBlocks * channels, threads, [&](int item, int t) {
        const int y0 = item / channels * kLanes, c = item % channels;
        const int rows = std::min(kLanes, h - y0);
        float* g = slice(buffer, rec->work_bytes, t);
        float* work = g + round64(w * kPacketBytes) / sizeof(float);
        fk::gather_rows(row(src, ss, y0) + c, ss, rows, w, stride, g);
        run(rec->rows, g, work);
        fk::scatter_rows(g, row(dst, ds, y0) + c, ds, rows, w, stride);
    });
    // Columns of dst, eight at a time per channel, in place.
    const int colBlocks = (w + kLanes - 1) / kLanes;
    for_items(colBlocks * channels, threads, [&](int item, int t) {
        const int x0 = item / channels * kLanes, c = item % channels;
        int offsets[kLanes];
        for (int l = 0; l < kLanes; ++l) offsets[l] = x0 + l < w ? (x0 + l) * stride + c : -1;
        float* g = slice(buffer, rec->work_bytes, t);
        float* work = g + round64(h * kPacketBytes) / sizeof(float);
        fk::gather_columns(dst, ds, h, offsets, g, fk::kRealPacketFloats, 0);
        run(rec->columns, g, work);
        fk::scatter_columns(g, fk::kRealPacketFloats, 0, dst, ds, h, offsets);
    });
    rokFree(own);
    return rokStatusOk;
}

}  // namespace rok::transform
