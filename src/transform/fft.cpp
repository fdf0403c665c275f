// Two-dimensional transforms on the one-dimensional engines. A real image
// goes row by row into the packed layout, then column 0 (and, for even
// width, column W-1) along y through the real engine and the inner column
// pairs (2u-1, 2u) as complex columns through the complex engine; the
// inverse runs the same steps backwards. Rows travel eight at a time
// through register transposes, columns eight at a time as they lie in the
// rows, so every engine call serves eight sequences.
#include "transform/fft.h"

#include <algorithm>
#include <cfenv>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "convert/rounding.h"
#include "core/core.h"
#include "frame/ac4.h"
#include "frame/image.h"
#include "frame/parallel.h"
#include "frame/record.h"
#include "kernels/convert/convert.h"
#include "kernels/transform/fft_engine.h"
#include "kernels/transform/packets.h"

namespace rok::transform {

namespace {

namespace fk = rok::kernels::fft;
constexpr int kLanes = fk::kLanes;
// Blocks of eight complex columns that one column item transforms: eight
// (a sweep down the rows reads 512 bytes of each) where the image has
// columns for eight such items, else four, so that narrow images still
// divide into enough items for the threads. Longer runs of each row make
// fewer trips to memory and to the other threads' caches: at 2048x2048,
// 4.5 ms against 5.4 on two threads and 6.9 against 7.9 on one. The
// decision depends on the width alone, so that the buffer can be sized for
// it.
constexpr int kMaxColumnBlocks = 8;
// The complex columns of a one-channel image of width w are w (complex
// transforms) or (w - 1) / 2.
int column_item_blocks(bool complex, int w) {
    return (complex ? w : (w - 1) / 2) >= 8 * kMaxColumnBlocks * fk::kLanes - 1 ? 8 : 4;
}

// Chunks a pass is divided into per thread (items permitting).
constexpr int kItemChunksPerThread = 64;

// Sizes from which a transform splits its rows and columns among threads.
constexpr int kRealThreadFrom = 141;
constexpr int kComplexThreadFrom = 240;

// The identifier that every record starts with, for the shared record
// checks (frame/record.h).
struct Header {
    std::int32_t id;
};

struct Record2d {
    std::int32_t id;
    std::int32_t sizeX, sizeY;  // orders (FFT) or width and height (DFT)
    std::int32_t hint;
    std::int32_t work_bytes;  // per thread
    std::int32_t threads;
    // [0]: columns (length H); [1]: rows of a complex transform (length W).
    const fk::ComplexPlan* complex_plan[2];
    const fk::RealPlan* row_plan;     // real rows, length W
    const fk::RealPlan* column_plan;  // real columns 0 and W-1 when H != W
    std::int32_t width, height;
    std::int32_t caller_memory;
};

// Integer data: a float record of the same sizes and the room that a float
// copy of the image takes in the buffer.
struct IntRecord {
    std::int32_t id;
    std::int32_t image_bytes;
    std::int32_t caller_memory;
    Record2d* real;
};

bool is_fft(std::int32_t id) { return id == rokIdFftC || id == rokIdFftR || id == rokIdFftR32s; }
bool is_complex(std::int32_t id) { return id == rokIdFftC || id == rokIdDftC; }
bool is_integer(std::int32_t id) { return id == rokIdFftR32s || id == rokIdDftR32s; }
std::int32_t float_id(std::int32_t id) {
    return id == rokIdFftR32s ? rokIdFftR : (id == rokIdDftR32s ? rokIdDftR : id);
}
bool good_flag(int flag) {
    return flag == rokFftDivFwd || flag == rokFftDivInv || flag == rokFftDivSqrt || flag == rokFftNoDiv;
}

constexpr std::size_t round64(std::size_t bytes) { return (bytes + 63) & ~std::size_t(63); }
constexpr std::size_t kRealPacket = fk::kRealPacketFloats * sizeof(float);
constexpr std::size_t kComplexPacket = fk::kComplexPacketFloats * sizeof(float);

// The per-thread work size is the largest of: a real column of H
// (16 bytes an element) with the column engine's buffer, a complex column
// of H (64 bytes an element) with the complex engine's buffer, a real row
// of W (16 bytes an element) with the row engine's buffer. An engine's
// buffer is what one call on its batch needs beyond that line: the rest of
// its packet of lines, its own scratch, and room to start the slice on a
// 64-byte boundary.
std::size_t engine_buffer(std::size_t batchBytes, std::size_t lineBytes, const fk::PlanNeeds& needs) {
    return round64(batchBytes) - lineBytes + needs.work_bytes + 64;
}

// Everything a record's sizes decide, without building it.
struct Layout2d {
    std::size_t record_bytes = 0;
    std::size_t init_bytes = 0;
    std::size_t work_bytes = 0;  // per thread
    std::size_t image_bytes = 0;  // integer records
};

// Lays out (arena counting) or builds a float record and its engines.
Record2d* build_float(fk::Arena& arena, std::int32_t id, int sizeX, int sizeY, int w, int h, int flag, int hint,
                      void* init, Layout2d& out) {
    Record2d* rec = arena.take<Record2d>(1);
    fk::PlanNeeds rows, cols, inner;
    const fk::ComplexPlan* complexPlan[2] = {nullptr, nullptr};
    const fk::RealPlan* rowPlan = nullptr;
    const fk::RealPlan* columnPlan = nullptr;
    std::size_t work;
    const std::size_t W = std::size_t(w), H = std::size_t(h);
    const std::size_t blocks = std::size_t(column_item_blocks(is_complex(id), w));
    if (is_complex(id)) {
        complexPlan[0] = fk::build_complex(arena, h, flag, inner, init);
        rows = inner;
        complexPlan[1] = w == h ? complexPlan[0] : fk::build_complex(arena, w, flag, rows, init);
        work = std::max(64 * H + engine_buffer(blocks * H * kComplexPacket, 64 * H, inner),
                        64 * W + engine_buffer(W * kComplexPacket, 64 * W, rows));
        out.init_bytes = std::max(inner.init_bytes, rows.init_bytes);
    } else {
        rowPlan = fk::build_real(arena, w, flag, rows, init);
        cols = rows;
        if (h != w) columnPlan = fk::build_real(arena, h, flag, cols, init);
        complexPlan[0] = fk::build_complex(arena, h, flag, inner, init);
        work = std::max({16 * H + engine_buffer(H * kRealPacket, 16 * H, cols),
                         64 * H + engine_buffer(blocks * H * kComplexPacket, 64 * H, inner),
                         16 * W + engine_buffer(W * kRealPacket, 16 * W, rows)});
        out.init_bytes = std::max({rows.init_bytes, cols.init_bytes, inner.init_bytes});
    }
    const int threshold = is_complex(id) ? kComplexThreadFrom : kRealThreadFrom;
    const int threads = (w >= threshold && h >= threshold) ? ownGetNumThreads() : 1;
    // Threaded records keep every thread's slice on a 16-byte multiple.
    out.work_bytes = threads > 1 ? (work + 15) & ~std::size_t(15) : work;
    if (rec) {
        rec->sizeX = sizeX;
        rec->sizeY = sizeY;
        rec->hint = hint;
        rec->work_bytes = std::int32_t(out.work_bytes);
        rec->threads = threads;
        rec->complex_plan[0] = complexPlan[0];
        rec->complex_plan[1] = complexPlan[1];
        rec->row_plan = rowPlan;
        rec->column_plan = columnPlan;
        rec->width = w;
        rec->height = h;
    }
    return rec;
}

// Bytes of the buffer a transform with this record takes.
std::int64_t float_buffer_bytes(std::int64_t work, std::int64_t threads) { return (work + 4) * threads + 16; }
std::int64_t int_buffer_bytes(std::int64_t image, std::int64_t floatBuffer) { return image + floatBuffer + 16; }

// The checks of InitAlloc, GetSize and Init, then the layout. Statuses:
// bad order -15, bad size -6, bad flag -16, sizes past 2^31 - 1 bytes -9.
RokStatus plan_sizes(std::int32_t id, int sizeX, int sizeY, int flag, int hint, int* w, int* h, Layout2d& lay,
                     std::int64_t* bufferBytes) {
    if (is_fft(id)) {
        // Orders of 31 and more are refused outright; the engines accept
        // lengths below 2^30 only.
        if (sizeX < 0 || sizeY < 0 || sizeX >= 30 || sizeY >= 30) return rokStatusBadFftOrder;
        *w = 1 << sizeX;
        *h = 1 << sizeY;
    } else {
        if (sizeX < 1 || sizeY < 1) return rokStatusBadSize;
        *w = sizeX;
        *h = sizeY;
    }
    if (!good_flag(flag)) return rokStatusBadFftFlag;
    if (*w > fk::kMaxLength || *h > fk::kMaxLength) return rokStatusNoMemory;
    fk::Arena counter;
    if (is_integer(id)) counter.take<IntRecord>(1);
    build_float(counter, float_id(id), sizeX, sizeY, *w, *h, flag, hint, nullptr, lay);
    lay.record_bytes = counter.used();
    const int threshold = is_complex(id) ? kComplexThreadFrom : kRealThreadFrom;
    const std::int64_t threads = (*w >= threshold && *h >= threshold) ? ownGetNumThreads() : 1;
    std::int64_t bytes = float_buffer_bytes(std::int64_t(lay.work_bytes), threads);
    if (is_integer(id)) {
        lay.image_bytes = std::size_t((16 * std::int64_t(*h) + 4) * *w);
        bytes = int_buffer_bytes(std::int64_t(lay.image_bytes), bytes);
    }
    if (lay.record_bytes > INT_MAX || lay.init_bytes > INT_MAX - 64 || lay.work_bytes > INT_MAX ||
        lay.image_bytes > INT_MAX || bytes > INT_MAX)
        return rokStatusNoMemory;
    *bufferBytes = bytes;
    return rokStatusOk;
}

// Builds the record in `mem` (record_bytes, zeroed by the caller) with the
// init scratch `init`.
void build_record(void* mem, std::int32_t id, int sizeX, int sizeY, int w, int h, int flag, int hint, void* init,
                  bool callerMemory) {
    fk::Arena arena(mem);
    Layout2d lay;
    if (is_integer(id)) {
        IntRecord* rec = arena.take<IntRecord>(1);
        Record2d* inner = build_float(arena, float_id(id), sizeX, sizeY, w, h, flag, hint, init, lay);
        inner->id = float_id(id);
        rec->id = id;
        rec->image_bytes = std::int32_t((16 * std::int64_t(h) + 4) * w);
        rec->caller_memory = callerMemory;
        rec->real = inner;
    } else {
        Record2d* rec = build_float(arena, id, sizeX, sizeY, w, h, flag, hint, init, lay);
        rec->id = id;
        rec->caller_memory = callerMemory;
    }
}

template <class Rec>
Rec* as(void* spec) {
    return static_cast<Rec*>(spec);
}
template <class Rec>
const Rec* as(const void* spec) {
    return static_cast<const Rec*>(spec);
}

std::int32_t identifier(const void* spec) { return static_cast<const Header*>(spec)->id; }

// Null: rokStatusNullPtr; another kind, or a freed record: rokStatusBadContext.
RokStatus check(const void* spec, std::int32_t id) { return check_record(static_cast<const Header*>(spec), id); }

std::int64_t record_buffer_bytes(const void* spec) {
    if (is_integer(identifier(spec))) {
        const IntRecord* rec = as<IntRecord>(spec);
        return int_buffer_bytes(rec->image_bytes, float_buffer_bytes(rec->real->work_bytes, rec->real->threads));
    }
    const Record2d* rec = as<Record2d>(spec);
    return float_buffer_bytes(rec->work_bytes, rec->threads);
}

template <class T>
T* align_up(T* p, std::uintptr_t a) {
    return reinterpret_cast<T*>((reinterpret_cast<std::uintptr_t>(p) + a - 1) & ~(a - 1));
}

// The threads of a call (at most the record's) and their slices of (work +
// 4) bytes after the buffer is aligned to 16 bytes; each slice is used from
// its first 64-byte boundary.
class Slices {
public:
    Slices(Rok8u* buffer, const Record2d* rec, int threads)
        : base_(align_up(buffer, 16)), slice_(rec->work_bytes + 4), threads_(threads) {}
    float* at(int thread) const { return align_up(reinterpret_cast<float*>(base_ + slice_ * thread), 64); }
    int threads() const { return threads_; }

private:
    Rok8u* base_;
    std::ptrdiff_t slice_;
    int threads_;
};

// The threads a transform with this record runs on: the record's, unless
// the image is too small to gain from them (see threads_for_passes; a
// complex sample costs about twice a real one).
int call_threads(const Record2d* rec, int channels) {
    const std::int64_t samples = std::int64_t(rec->width) * rec->height * channels;
    return threads_for_passes(rec->threads, is_complex(rec->id) ? 2 * samples : samples);
}

// Runs body(buffer) with the caller's buffer, or with one of `bytes` from
// the core library for the call.
template <class Body>
RokStatus with_buffer(Rok8u* buffer, std::int64_t bytes, Body&& body) {
    Rok8u* own = nullptr;
    if (!buffer) {
        own = static_cast<Rok8u*>(rokMalloc(int(bytes)));
        if (!own) return rokStatusNoMemory;
        buffer = own;
    }
    body(buffer);
    rokFree(own);
    return rokStatusOk;
}

constexpr std::ptrdiff_t kRealFloats = fk::kRealPacketFloats;
constexpr std::ptrdiff_t kComplexFloats = fk::kComplexPacketFloats;

float* after(float* p, std::size_t bytes) { return p + round64(bytes) / sizeof(float); }

// Shares [0, count) among up to `threads` threads (and no more than the
// library's thread count now) as part(begin, end, slot); slot picks the
// scratch slice. (Every thread computes in the caller's rounding mode: the
// pool sees to that.) A call with threads is large (call_threads), so the
// workers start at once.
template <class Fn>
void share(int count, int threads, int chunksPerThread, Fn&& part) {
    parallel_for(count, std::min(threads, ownGetNumThreads()), part, chunksPerThread, false);
}

// Runs fn(item, slot) for every item. The pool hands the items out a few at
// a time (one column item, four rows of eight at 4096 wide), so that the
// threads finish a pass within one small item of each other, and a worker
// that starts late or is held up elsewhere leaves less for the others to
// wait on.
template <class Fn>
void for_items(int count, int threads, Fn&& fn) {
    share(count, threads, kItemChunksPerThread, [&](int begin, int end, int slot) {
        for (int i = begin; i < end; ++i) fn(i, slot);
    });
}

// Runs fn(begin, end) on contiguous ranges of the h rows: the conversions
// of the integer transforms.
template <class Fn>
void for_row_ranges(int h, int threads, Fn&& fn) {
    share(h, threads, pool::kChunksPerThread, [&](int begin, int end, int) { fn(begin, end); });
}

// Rows of a real image, eight at a time per channel: src rows into the
// packed layout in dst (forward), or packed dst rows back to samples.
void real_rows(bool forward, const Record2d* rec, const float* src, int ss, float* dst, int ds, Pixels px,
               const Slices& slices) {
    const int w = rec->width, h = rec->height;
    const int blocks = (h + kLanes - 1) / kLanes;
    for_items(blocks * px.channels, slices.threads(), [&](int item, int t) {
        const int y0 = item / px.channels * kLanes, c = item % px.channels;
        const int rows = std::min(kLanes, h - y0);
        float* g = slices.at(t);
        float* work = after(g, w * kRealPacket);
        kernels::fft::gather_rows(row(src, ss, y0) + c, ss, rows, w, px.stride, g);
        if (forward)
            fk::real_forward(rec->row_plan, g, work);
        else
            fk::real_inverse(rec->row_plan, g, work);
        kernels::fft::scatter_rows(g, row(dst, ds, y0) + c, ds, rows, w, px.stride);
    });
}

// Complex columns along y: column q has Re at float offset re(q) and Im at
// im(q) of every row. Items are `itemBlocks` blocks of eight columns, so
// one sweep down the rows reads and writes the cache lines of all of them;
// with `interleaved`, column q is the pair at floats first + 2q, first +
// 2q + 1, and whole blocks move with vector loads. The first `extra` items
// run extraItem(item, slot) instead, in the same pass, so that no part of
// the pass runs on one thread alone.
template <class Offsets, class Extra>
void column_blocks(bool forward, const fk::ComplexPlan* plan, int h, int columns, int itemBlocks, bool interleaved,
                   int first, Offsets offsets, const float* src, int ss, float* dst, int ds, const Slices& slices,
                   int extra, Extra&& extraItem) {
    const int itemColumns = itemBlocks * kLanes, threads = slices.threads();
    const int items = (columns + itemColumns - 1) / itemColumns;
    // A short last item moves lane by lane, slower than the others: it runs
    // first, so that threads that finish early are not left waiting on it.
    const bool shortFirst = interleaved && columns % itemColumns != 0 && items > 1;
    const int lead = int(shortFirst) + extra;
    // The other items go out in bands, one a thread, taken in turn: items
    // that run at the same time lie far apart. Neighbouring items share a
    // cache line in every row, and two threads sweeping down neighbours
    // side by side pass it back and forth (the pass took twice as long).
    const int full = items - int(shortFirst);
    const int bands = std::max(1, std::min({threads, ownGetNumThreads(), full}));
    const int perBand = (full + bands - 1) / bands;
    for_items(lead + bands * perBand, threads, [&](int index, int t) {
        int item;
        if (shortFirst && index == 0) {
            item = items - 1;
        } else if (index < lead) {
            extraItem(index - int(shortFirst), t);
            return;
        } else {
            const int p = index - lead;
            item = p % bands * perBand + p / bands;
            if (item >= full) return;
        }
        float* g = slices.at(t);
        float* work = after(g, itemBlocks * h * kComplexPacket);
        const int q0 = item * itemColumns, blocks = std::min(itemBlocks, (columns - q0 + kLanes - 1) / kLanes);
        // Blocks of eight columns that move as vectors.
        const int whole = interleaved ? std::min(itemBlocks, (columns - q0) / kLanes) : 0;
        int re[kMaxColumnBlocks][kLanes], im[kMaxColumnBlocks][kLanes];
        auto packets = [&](int b) { return g + std::ptrdiff_t(b) * h * kComplexFloats; };
        if (whole) kernels::fft::gather_pairs(src, ss, h, first + 2 * q0, g, whole);
        for (int b = whole; b < blocks; ++b) {
            for (int l = 0; l < kLanes; ++l) {
                const int q = q0 + b * kLanes + l;
                re[b][l] = q < columns ? offsets(q).first : -1;
                im[b][l] = q < columns ? offsets(q).second : -1;
            }
            kernels::fft::gather_columns(src, ss, h, re[b], packets(b), kComplexFloats, 0);
            kernels::fft::gather_columns(src, ss, h, im[b], packets(b), kComplexFloats, kLanes);
        }
        for (int b = 0; b < blocks; ++b) {
            if (forward)
                fk::complex_forward(plan, packets(b), kComplexFloats, packets(b), kComplexFloats, work);
            else
                fk::complex_inverse(plan, packets(b), kComplexFloats, packets(b), kComplexFloats, work);
        }
        if (whole) kernels::fft::scatter_pairs(g, dst, ds, h, first + 2 * q0, whole);
        for (int b = whole; b < blocks; ++b) {
            kernels::fft::scatter_columns(packets(b), kComplexFloats, 0, dst, ds, h, re[b]);
            kernels::fft::scatter_columns(packets(b), kComplexFloats, kLanes, dst, ds, h, im[b]);
        }
    });
}

// Columns of a packed image: the real columns 0 and (even W) W-1 of every
// channel along y in one batch, then the complex columns (2u-1, 2u).
void real_columns(bool forward, const Record2d* rec, const float* src, int ss, float* dst, int ds, Pixels px,
                  const Slices& slices) {
    const int w = rec->width, h = rec->height, nc = px.channels, stride = px.stride;
    const fk::RealPlan* columnPlan = rec->column_plan ? rec->column_plan : rec->row_plan;
    int lanes[kLanes];
    std::fill(lanes, lanes + kLanes, -1);
    for (int c = 0; c < nc; ++c) {
        lanes[c] = c;
        if (w % 2 == 0) lanes[nc + c] = (w - 1) * stride + c;
    }
    // The real batch is the pass's first item; the complex columns never
    // touch its columns.
    auto realBatch = [&](int, int t) {
        float* g = slices.at(t);
        kernels::fft::gather_columns(src, ss, h, lanes, g, kRealFloats, 0);
        if (forward)
            fk::real_forward(columnPlan, g, after(g, h * kRealPacket));
        else
            fk::real_inverse(columnPlan, g, after(g, h * kRealPacket));
        kernels::fft::scatter_columns(g, kRealFloats, 0, dst, ds, h, lanes);
    };
    // Column q is pair u = q / nc + 1 of channel q % nc.
    column_blocks(forward, rec->complex_plan[0], h, (w - 1) / 2 * nc, column_item_blocks(false, w),
                  stride == 1, 1,
                  [&](int q) {
                      const int u = q / nc + 1, c = q % nc;
                      return std::pair{(2 * u - 1) * stride + c, 2 * u * stride + c};
                  },
                  src, ss, dst, ds, slices, 1, realBatch);
}

void complex_rows(bool forward, const Record2d* rec, const float* src, int ss, float* dst, int ds,
                  const Slices& slices) {
    const int w = rec->width, h = rec->height;
    for_items((h + kLanes - 1) / kLanes, slices.threads(), [&](int item, int t) {
        const int y0 = item * kLanes, rows = std::min(kLanes, h - y0);
        float* g = slices.at(t);
        float* work = after(g, w * kComplexPacket);
        kernels::fft::gather_rows(row(src, ss, y0), ss, rows, 2 * w, 1, g);
        if (forward)
            fk::complex_forward(rec->complex_plan[1], g, kComplexFloats, g, kComplexFloats, work);
        else
            fk::complex_inverse(rec->complex_plan[1], g, kComplexFloats, g, kComplexFloats, work);
        kernels::fft::scatter_rows(g, row(dst, ds, y0), ds, rows, 2 * w, 1);
    });
}

void complex_columns(bool forward, const Record2d* rec, const float* src, int ss, float* dst, int ds,
                     const Slices& slices) {
    column_blocks(forward, rec->complex_plan[0], rec->height, rec->width,
                  column_item_blocks(true, rec->width), true, 0,
                  [](int q) { return std::pair{2 * q, 2 * q + 1}; }, src, ss, dst, ds, slices, 0, [](int, int) {});
}

// The float transform of a real image with a checked record.
void run_real(bool forward, const Record2d* rec, const float* src, int ss, float* dst, int ds, Pixels px,
              Rok8u* buffer, int threads) {
    const Slices slices(buffer, rec, threads);
    if (forward) {
        real_rows(true, rec, src, ss, dst, ds, px, slices);
        real_columns(true, rec, dst, ds, dst, ds, px, slices);
    } else {
        real_columns(false, rec, src, ss, dst, ds, px, slices);
        real_rows(false, rec, dst, ds, dst, ds, px, slices);
    }
}

}  // namespace

RokStatus record_init_alloc(void** out, std::int32_t id, int sizeX, int sizeY, int flag, int hint) {
    if (!out) return rokStatusNullPtr;
    int w = 0, h = 0;
    Layout2d lay;
    std::int64_t bufferBytes = 0;
    if (RokStatus s = plan_sizes(id, sizeX, sizeY, flag, hint, &w, &h, lay, &bufferBytes); s != rokStatusOk)
        return s;
    Header* mem = alloc_record<Header>(id, lay.record_bytes - sizeof(Header));
    if (!mem) return rokStatusNoMemory;
    void* init = nullptr;
    if (lay.init_bytes) {
        init = rokMalloc(int(lay.init_bytes));
        if (!init) {
            free_record(mem, id);
            return rokStatusNoMemory;
        }
    }
    build_record(mem, id, sizeX, sizeY, w, h, flag, hint, init, false);
    rokFree(init);
    *out = mem;
    return rokStatusOk;
}

RokStatus record_get_size(std::int32_t id, int width, int height, int flag, int hint, int* specSize,
                          int* initSize, int* bufSize) {
    if (any_null(specSize, initSize, bufSize)) return rokStatusNullPtr;
    int w = 0, h = 0;
    Layout2d lay;
    std::int64_t bufferBytes = 0;
    if (RokStatus s = plan_sizes(id, width, height, flag, hint, &w, &h, lay, &bufferBytes); s != rokStatusOk)
        return s;
    *specSize = int(lay.record_bytes);
    // Room to align the caller's block for the double-precision scratch.
    *initSize = lay.init_bytes ? int(lay.init_bytes + 64) : 0;
    *bufSize = int(bufferBytes);
    return rokStatusOk;
}

RokStatus record_init(std::int32_t id, int width, int height, int flag, int hint, void* spec, Rok8u* initBuffer) {
    if (!spec) return rokStatusNullPtr;
    int w = 0, h = 0;
    Layout2d lay;
    std::int64_t bufferBytes = 0;
    if (RokStatus s = plan_sizes(id, width, height, flag, hint, &w, &h, lay, &bufferBytes); s != rokStatusOk)
        return s;
    // The record holds pointers; memory from any allocator is aligned enough.
    if (reinterpret_cast<std::uintptr_t>(spec) % alignof(Record2d)) return rokStatusNoMemory;
    void* own = nullptr;
    void* init = nullptr;
    if (lay.init_bytes) {
        if (initBuffer) {
            init = align_up(initBuffer, 64);
        } else {
            own = rokMalloc(int(lay.init_bytes));
            if (!own) return rokStatusNoMemory;
            init = own;
        }
    }
    place_record<Header>(spec, lay.record_bytes, id);
    build_record(spec, id, width, height, w, h, flag, hint, init, true);
    rokFree(own);
    return rokStatusOk;
}

RokStatus record_free(void* spec, std::int32_t id) {
    if (RokStatus s = check(spec, id); s != rokStatusOk) return s;
    bool callerMemory;
    if (is_integer(id)) {
        IntRecord* rec = as<IntRecord>(spec);
        callerMemory = rec->caller_memory;
        rec->real->id = 0;
    } else {
        callerMemory = as<Record2d>(spec)->caller_memory;
    }
    Header* rec = as<Header>(spec);
    return callerMemory ? clear_record(rec, id) : free_record(rec, id);
}

RokStatus record_buf_size(const void* spec, std::int32_t id, int* size) {
    if (!size) return rokStatusNullPtr;
    if (RokStatus s = check(spec, id); s != rokStatusOk) return s;
    *size = int(record_buffer_bytes(spec));
    return rokStatusOk;
}

RokStatus real_transform(bool forward, const Rok32f* src, int srcStep, Rok32f* dst, int dstStep, Pixels px,
                         const void* spec, std::int32_t id, Rok8u* buffer) {
    if (any_null(src, dst)) return rokStatusNullPtr;
    if (RokStatus s = check(spec, id); s != rokStatusOk) return s;
    if (any_step_below_one(srcStep, dstStep)) return rokStatusBadStep;
    const Record2d* rec = as<Record2d>(spec);
    return with_buffer(buffer, record_buffer_bytes(spec), [&](Rok8u* buf) {
        run_real(forward, rec, src, srcStep, dst, dstStep, px, buf, call_threads(rec, px.channels));
    });
}

RokStatus complex_transform(bool forward, const Rok32fc* src, int srcStep, Rok32fc* dst, int dstStep,
                            const void* spec, std::int32_t id, Rok8u* buffer) {
    if (any_null(src, dst)) return rokStatusNullPtr;
    if (RokStatus s = check(spec, id); s != rokStatusOk) return s;
    if (any_step_below_one(srcStep, dstStep)) return rokStatusBadStep;
    const Record2d* rec = as<Record2d>(spec);
    const float* s = reinterpret_cast<const float*>(src);
    float* d = reinterpret_cast<float*>(dst);
    return with_buffer(buffer, record_buffer_bytes(spec), [&](Rok8u* buf) {
        const Slices slices(buf, rec, call_threads(rec, 1));
        if (forward) {
            complex_rows(true, rec, s, srcStep, d, dstStep, slices);
            complex_columns(true, rec, d, dstStep, d, dstStep, slices);
        } else {
            complex_columns(false, rec, s, srcStep, d, dstStep, slices);
            complex_rows(false, rec, d, dstStep, d, dstStep, slices);
        }
    });
}

// Integer data: the image as floats in the buffer, the float transform in
// place there, and the result scaled by 2^-scaleFactor, rounded to nearest
// (ties to even) and saturated.
RokStatus integer_forward(const Rok8u* src, int srcStep, Rok32s* dst, int dstStep, Pixels px, int scaleFactor,
                          const void* spec, std::int32_t id, Rok8u* buffer) {
    if (any_null(src, dst)) return rokStatusNullPtr;
    if (RokStatus s = check(spec, id); s != rokStatusOk) return s;
    if (any_step_below_one(srcStep, dstStep)) return rokStatusBadStep;
    const IntRecord* rec = as<IntRecord>(spec);
    const Record2d* real = rec->real;
    const int w = real->width, h = real->height, samples = w * px.stride, threads = call_threads(real, px.channels);
    return with_buffer(buffer, record_buffer_bytes(spec), [&](Rok8u* buf) {
        float* image = align_up(reinterpret_cast<float*>(buf), 16);
        const int step = samples * int(sizeof(float));
        Rok8u* floatBuffer = reinterpret_cast<Rok8u*>(image) + rec->image_bytes;
        for_row_ranges(h, threads, [&](int begin, int end) {
            for (int y = begin; y < end; ++y)
                kernels::convert_value(row(src, srcStep, y), row(image, step, y), samples, false);
        });
        run_real(true, real, image, step, image, step, px, floatBuffer, threads);
        // The rounding control is each thread's own.
        for_row_ranges(h, threads, [&](int begin, int end) {
            convert::RoundingGuard nearest(FE_TONEAREST);
            for (int y = begin; y < end; ++y) {
                float* from = row(image, step, y);
                Rok32s* to = row(dst, dstStep, y);
                if (px.channels == px.stride) {
                    kernels::convert_float_sfs(from, to, samples, 1, scaleFactor);
                } else {
                    Rok32s* converted = reinterpret_cast<Rok32s*>(from);
                    kernels::convert_float_sfs(from, converted, samples, 1, scaleFactor);
                    ac4_row(to, w, [&](Rok32s* block, int x, int n) {
                        std::memcpy(block, converted + 4 * x, std::size_t(n) * 4 * sizeof(Rok32s));
                    });
                }
            }
        });
    });
}

RokStatus integer_inverse(const Rok32s* src, int srcStep, Rok8u* dst, int dstStep, Pixels px, int scaleFactor,
                          const void* spec, std::int32_t id, Rok8u* buffer) {
    if (any_null(src, dst)) return rokStatusNullPtr;
    if (RokStatus s = check(spec, id); s != rokStatusOk) return s;
    if (any_step_below_one(srcStep, dstStep)) return rokStatusBadStep;
    const IntRecord* rec = as<IntRecord>(spec);
    const Record2d* real = rec->real;
    const int w = real->width, h = real->height, samples = w * px.stride, threads = call_threads(real, px.channels);
    return with_buffer(buffer, record_buffer_bytes(spec), [&](Rok8u* buf) {
        float* image = align_up(reinterpret_cast<float*>(buf), 16);
        const int step = samples * int(sizeof(float));
        Rok8u* floatBuffer = reinterpret_cast<Rok8u*>(image) + rec->image_bytes;
        for_row_ranges(h, threads, [&](int begin, int end) {
            for (int y = begin; y < end; ++y)
                kernels::convert_value(row(src, srcStep, y), row(image, step, y), samples, false);
        });
        run_real(false, real, image, step, image, step, px, floatBuffer, threads);
        for_row_ranges(h, threads, [&](int begin, int end) {
            convert::RoundingGuard nearest(FE_TONEAREST);
            for (int y = begin; y < end; ++y) {
                const float* from = row(image, step, y);
                Rok8u* to = row(dst, dstStep, y);
                if (px.channels == px.stride)
                    kernels::convert_float_sfs(from, to, samples, 1, scaleFactor);
                else
                    ac4_row(to, w, [&](Rok8u* block, int x, int n) {
                        kernels::convert_float_sfs(from + 4 * x, block, 4 * n, 1, scaleFactor);
                    });
            }
        });
    });
}

}  // namespace rok::transform
