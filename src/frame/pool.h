// The worker pool under every parallel region of the library (see pool.cpp
// for how a call shares its chunks).
#pragma once

#include "frame/generated/roki_types.h"

namespace rok::pool {

// Runs one contiguous part [begin, end) of a call's range; `slot` (0 for the
// calling thread, below the call's thread count) names the thread's share of
// per-thread scratch. Returns a status (a warning) or rokStatusOk.
using Part = RokStatus (*)(void* ctx, int begin, int end, int slot);

inline constexpr int kMaxThreads = 255;
inline constexpr int kChunksPerThread = 4;
inline constexpr int kMaxChunks = 1024;

// The processors this process may run on.
int processors();

// The most threads one call can run on: the processors, at the time the pool
// was first used.
int max_threads();

// Whether calls count on only the processors that the machine's other
// runnable threads leave free, and first work alone for a few microseconds
// (on unless ROKIP_DYNAMIC is 0, false or no: the tests turn it off, so
// that small calls split too); returns the previous setting.
bool set_dynamic(bool on);

// How the readings of the machine's other runnable threads combine: calls
// that follow each other closely read the count every millisecond, and the
// readings of the last kLoadSettleMs count as their lower median, so that a
// load counts once it has shown in half of them while a thread of the
// system that runs for a few milliseconds (or a reading that misses a busy
// thread for a moment) does not. The previous reading counts too while it
// is at most kLoadWindowMs old, so that the readings of two calls made
// further apart count as the smaller.
inline constexpr int kLoadWindowMs = 100;
inline constexpr int kLoadSettleMs = 20;

class LoadReadings {
public:
    // Adds a reading of `others` taken at `at_us` (microseconds of a steady
    // clock, later than the last) and returns the lower median of it, the
    // reading before it if that is at most kLoadWindowMs older, and every
    // reading less than kLoadSettleMs older.
    int add(long long at_us, int others);
    // Forgets the last reading (a second look taken at once replaces it).
    void drop_last();

private:
    // Room for every reading of kLoadSettleMs: one a millisecond at most (a
    // second look replaces the reading it follows).
    static constexpr int kSize = kLoadSettleMs + 4;
    long long at_[kSize]{};
    int others_[kSize]{};
    int next_ = 0, stored_ = 0;
};

// Whether the machine's runnable threads can be counted here (/proc/loadavg
// readable and the process allowed on every processor).
bool dynamic_available();

// Divides [0, count) into contiguous chunks, in order, and runs them on the
// calling thread and up to threads - 1 workers; returns the first non-zero
// chunk status in range order. With one thread, a range of one, a call made
// from inside a part, or while another call owns the pool, the whole range
// runs as one part on the calling thread. With `soloFirst` (and the load
// count on, see set_dynamic) the calling thread first runs the range alone,
// in a few parts (a 64th of it first), until it is done or a few
// microseconds have passed, and shares only the rest if that is large too:
// for work that may be too small to gain from a second processor. A call
// makes up to `chunksPerThread` chunks a thread of what it shares (at most
// kMaxChunks): more, smaller chunks for work whose items differ in cost, or
// that a late worker should hold up less.
RokStatus run(int count, int threads, Part part, void* ctx, int chunksPerThread = kChunksPerThread,
              bool soloFirst = true);

}  // namespace rok::pool
