// Row loops, serial and parallel, and the two-thread switch of the threaded
// one-dimensional kernels, on the library's worker pool (frame/pool.h).
// Results never depend on the thread count: every row is computed exactly as
// on one thread, and warnings are combined in row order.
#pragma once

#include <algorithm>
#include <cstdint>
#include <type_traits>

#include "core/core.h"
#include "frame/generated/roki_types.h"
#include "frame/pool.h"

namespace rok {

namespace detail {
template <class Fn>
inline RokStatus call_row(Fn& fn, int y) {
    if constexpr (std::is_void_v<decltype(fn(y))>) {
        fn(y);
        return rokStatusOk;
    } else {
        return fn(y);
    }
}
}  // namespace detail

// Runs fn(y) for y = 0 .. height-1 on the calling thread; returns the first
// non-zero row status (a warning), or rokStatusOk.
template <class Fn>
RokStatus serial_rows(int height, Fn&& fn) {
    RokStatus first = rokStatusOk;
    for (int y = 0; y < height; ++y) {
        RokStatus s = detail::call_row(fn, y);
        if (s != rokStatusOk && first == rokStatusOk) first = s;
    }
    return first;
}

namespace detail {
template <class Fn>
RokStatus call_part(void* ctx, int begin, int end, int slot) {
    Fn& fn = *static_cast<Fn*>(ctx);
    if constexpr (std::is_void_v<decltype(fn(begin, end, slot))>) {
        fn(begin, end, slot);
        return rokStatusOk;
    } else {
        return fn(begin, end, slot);
    }
}
}  // namespace detail

// Shares [0, count) among up to `threads` threads of the library's pool in
// contiguous, ascending parts: part(begin, end, slot) with 0 <= slot <
// threads naming the thread's scratch. The first non-zero status in range
// order is returned, the same status a serial loop returns. Fewer threads
// than asked may run (never more than the processors); results must not
// depend on how the range is divided. Every part runs in the caller's
// floating-point controls (rounding, flush-to-zero, denormals-are-zero).
// `chunksPerThread` sets how finely the range is divided; `soloFirst` false
// skips the calling thread's first few microseconds alone, for work known
// to be large (see pool::run).
template <class Fn>
RokStatus parallel_for(int count, int threads, Fn&& part, int chunksPerThread = pool::kChunksPerThread,
                       bool soloFirst = true) {
    using F = std::remove_reference_t<Fn>;
    return pool::run(count, threads, &detail::call_part<F>, const_cast<void*>(static_cast<const void*>(&part)),
                     chunksPerThread, soloFirst);
}

// Shares the rows among ownGetNumThreads() threads, asked afresh by every
// call; each row runs exactly as on one thread.
template <class Fn>
RokStatus parallel_rows(int height, Fn&& fn) {
    const int team = ownGetNumThreads();
    if (team <= 1 || height <= 1) return serial_rows(height, fn);
    return parallel_for(height, team, [&](int begin, int end, int) {
        RokStatus first = rokStatusOk;
        for (int y = begin; y < end; ++y) {
            RokStatus s = detail::call_row(fn, y);
            if (s != rokStatusOk && first == rokStatusOk) first = s;
        }
        return first;
    });
}

template <class Fn>
RokStatus for_rows(bool threaded, int height, Fn&& fn) {
    return threaded ? parallel_rows(height, fn) : serial_rows(height, fn);
}

// Threads for a call made of passes that each read what the pass before
// wrote (the row and column passes of a transform). Every such pass fetches
// about half of its data from the caches of the other threads, a line at a
// time down the columns, and where processors are far apart that costs more
// than the second thread saves until the call is large: on a two-processor
// cloud machine whose processors hand a cache line over in about 230 ns, a
// 512x512 real FFT took 1.1 times as long on two threads as on one
// and a 256x256 one 1.3 to 1.5 times, while 2048x2048 took 0.65. `work`
// counts the call's samples weighted by the family's cost per sample (one
// for a real FFT); below kPassWorkFrom the call runs on one thread.
inline constexpr std::int64_t kPassWorkFrom = std::int64_t(1) << 20;
inline int threads_for_passes(int threads, std::int64_t work) { return work >= kPassWorkFrom ? threads : 1; }

// One-dimensional kernel with a threaded variant: below `threshold` elements,
// with one thread, or with fewer elements than threads it runs part(0, n) on
// the calling thread; otherwise at most two threads share the vector, each
// running part(offset, count) over contiguous pieces. The first warning in
// vector order is returned.
template <class Part>
RokStatus threaded_1d(int n, int threshold, Part&& part) {
    const int threads = n >= threshold ? ownGetNumThreads() : 1;
    if (threads <= 1 || n < threads) return part(0, n);
    return parallel_for(n, std::min(threads, 2), [&](int begin, int end, int) { return part(begin, end - begin); });
}

}  // namespace rok
