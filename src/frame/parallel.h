// Row loops, serial and parallel, and the two-thread switch of the threaded
// one-dimensional kernels. Results never depend on the thread count: every
// row is computed exactly as on one thread, and warnings are combined after
// the region in row order.
#pragma once

#include <omp.h>

#include <algorithm>
#include <type_traits>

#include "core/core.h"
#include "frame/generated/roki_types.h"

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

// Opens one region of ownGetNumThreads() threads and shares the rows by a
// static schedule. Each thread gets one contiguous, ascending block of rows,
// so the first non-zero status of the lowest-numbered thread that has one is
// the first in row order, the same status a serial loop returns.
template <class Fn>
RokStatus parallel_rows(int height, Fn&& fn) {
    const int team = ownGetNumThreads();
    if (team <= 1 || height <= 1) return serial_rows(height, fn);
    constexpr int kMaxTeam = 1024;
    RokStatus firsts[kMaxTeam];
    const int size = std::min(team, kMaxTeam);
    std::fill(firsts, firsts + size, rokStatusOk);
#pragma omp parallel num_threads(size)
    {
        const int t = omp_get_thread_num();
        RokStatus mine = rokStatusOk;
#pragma omp for schedule(static)
        for (int y = 0; y < height; ++y) {
            RokStatus s = detail::call_row(fn, y);
            if (s != rokStatusOk && mine == rokStatusOk) mine = s;
        }
        firsts[t] = mine;
    }
    for (int t = 0; t < size; ++t)
        if (firsts[t] != rokStatusOk) return firsts[t];
    return rokStatusOk;
}

template <class Fn>
RokStatus for_rows(bool threaded, int height, Fn&& fn) {
    return threaded ? parallel_rows(height, fn) : serial_rows(height, fn);
}

// One-dimensional kernel with a threaded variant: below `threshold` elements,
// with one thread, or with fewer elements than threads it runs part(0, n) on
// the calling thread; otherwise a team of at most two threads each runs
// part(offset, count) over one half. The warning of either half is returned.
template <class Part>
RokStatus threaded_1d(int n, int threshold, Part&& part) {
    const int threads = n >= threshold ? ownGetNumThreads() : 1;
    if (threads <= 1 || n < threads) return part(0, n);
    RokStatus halves[2] = {rokStatusOk, rokStatusOk};
    const int team = std::min(threads, 2);
#pragma omp parallel num_threads(team)
    {
        const int t = omp_get_thread_num();
        const int size = omp_get_num_threads();
        const int chunk = (n + size - 1) / size;
        const int begin = std::min(n, t * chunk);
        const int count = std::min(n - begin, chunk);
        if (count > 0) halves[t] = part(begin, count);
    }
    return halves[0] != rokStatusOk ? halves[0] : halves[1];
}

// Runs fn(item, thread) for item = 0 .. count-1 on a team of at most
// maxTeam threads (and at most ownGetNumThreads()), sharing the items by a
// static schedule. `thread` (0 .. team-1) picks per-thread scratch; items
// never depend on which thread runs them.
template <class Fn>
void parallel_items(int count, int maxTeam, Fn&& fn) {
    const int team = std::min({maxTeam, ownGetNumThreads(), count});
    if (team <= 1) {
        for (int i = 0; i < count; ++i) fn(i, 0);
        return;
    }
#pragma omp parallel num_threads(team)
    {
        const int t = omp_get_thread_num();
#pragma omp for schedule(static)
        for (int i = 0; i < count; ++i) fn(i, t);
    }
}

}  // namespace rok
