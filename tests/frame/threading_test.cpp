#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <immintrin.h>

#include "core/core.h"
#include "frame/parallel.h"
#include "threads.h"

namespace {

using rokt::WithThreads;

// What one parallel call did: every row's visits, the slots and the distinct
// threads that ran parts, and the most parts running at one time.
struct Trace {
    explicit Trace(int height) : visits(height) {}
    std::vector<std::atomic<int>> visits;
    std::mutex m;
    std::set<int> slots;
    std::set<std::thread::id> threads;
    std::atomic<int> running{0}, most{0};

    void enter(int slot) {
        {
            std::lock_guard<std::mutex> lock(m);
            slots.insert(slot);
            threads.insert(std::this_thread::get_id());
        }
        const int now = ++running;
        int seen = most;
        while (now > seen && !most.compare_exchange_weak(seen, now)) {
        }
    }
    void leave() { --running; }
};

// Also with the chunks per thread a caller may ask for, from one to more
// than the pool's most chunks.
TEST(Threading, ParallelForCoversTheRangeOnceInAscendingPartsWithSlotsBelowTheTeam) {
    const int procs = rok::pool::max_threads();
    const struct {
        int chunksPerThread;
        std::vector<int> heights;
    } runs[] = {{rok::pool::kChunksPerThread, {1, 2, 3, 7, 8, 100, 5000}}, {1, {3, 100}}, {64, {7, 100, 5000}},
                {5000, {100, 5000}}};
    for (const auto& run : runs)
        for (int threads : {1, 2, 3, 7}) {
            for (int height : run.heights) {
                Trace trace(height);
                std::atomic<int> parts{0};
                rok::parallel_for(
                    height, threads,
                    [&](int begin, int end, int slot) {
                        trace.enter(slot);
                        parts++;
                        EXPECT_LT(begin, end);
                        for (int y = begin; y < end; ++y) trace.visits[y]++;
                        // Long enough that the workers have time to take parts.
                        std::this_thread::sleep_for(std::chrono::microseconds(200));
                        trace.leave();
                    },
                    run.chunksPerThread);
                // One more where the caller's first rows run alone (when the
                // load count is on).
                const int mostParts = std::min({height, threads * run.chunksPerThread, rok::pool::kMaxChunks}) + 1;
                EXPECT_LE(parts.load(), mostParts) << threads << " threads, " << run.chunksPerThread << " a thread";
                for (int y = 0; y < height; ++y) ASSERT_EQ(trace.visits[y], 1) << threads << " threads, row " << y;
                for (int slot : trace.slots) EXPECT_TRUE(slot >= 0 && slot < threads) << slot;
                EXPECT_LE(int(trace.threads.size()), std::min(threads, procs)) << "never more threads than processors";
                EXPECT_LE(trace.most.load(), std::min(threads, procs));
            }
        }
}

TEST(Threading, WarningIsTheFirstInRowOrderWhateverTheThreadCount) {
    for (int threads : {1, 2, 7}) {
        WithThreads with(threads);
        // Row 90 warns 6, row 95 warns 7: the call reports the earlier row.
        RokStatus s = rok::parallel_rows(100, [](int y) -> RokStatus {
            if (y == 90) return rokStatusDivByZero;
            if (y == 95) return rokStatusLnZeroArg;
            return rokStatusOk;
        });
        EXPECT_EQ(s, rokStatusDivByZero) << threads;
        s = rok::parallel_rows(100, [](int y) -> RokStatus { return y == 3 ? rokStatusLnNegArg : rokStatusOk; });
        EXPECT_EQ(s, rokStatusLnNegArg) << threads;
        s = rok::parallel_rows(100, [](int) -> RokStatus { return rokStatusOk; });
        EXPECT_EQ(s, rokStatusOk) << threads;
    }
}

TEST(Threading, OneDimensionalKernelSwitch) {
    struct Case {
        int threads, n, threshold;
        bool split;
    };
    const Case cases[] = {
        {4, 4095, 4096, false},  // below the threshold: calling thread
        {4, 4096, 4096, true},   // at the threshold: shared by at most 2 threads
        {1, 9000, 4096, false},  // one thread: serial
        {7, 5, 2, false},        // fewer elements than threads: serial
        {2, 1024, 1024, true},
    };
    const bool canSplit = rok::pool::max_threads() > 1;
    for (const auto& c : cases) {
        WithThreads with(c.threads);
        std::mutex m;
        std::vector<std::pair<int, int>> parts;
        std::set<std::thread::id> threads;
        RokStatus s = rok::threaded_1d(c.n, c.threshold, [&](int begin, int count) -> RokStatus {
            std::lock_guard<std::mutex> lock(m);
            parts.emplace_back(begin, count);
            threads.insert(std::this_thread::get_id());
            return begin > 0 ? rokStatusDivByZero : rokStatusOk;
        });
        std::sort(parts.begin(), parts.end());
        int covered = 0;
        for (auto [begin, count] : parts) {
            EXPECT_EQ(begin, covered) << "contiguous pieces";
            covered += count;
        }
        EXPECT_EQ(covered, c.n);
        EXPECT_LE(threads.size(), 2u);
        if (!c.split || !canSplit) {
            EXPECT_EQ(parts.size(), 1u) << c.n;
        }
        EXPECT_EQ(s, parts.size() > 1 ? rokStatusDivByZero : rokStatusOk) << "a later piece's warning is returned";
    }
}

// Application threads calling at once share the pool: one call owns it and
// the others run on their own threads, so the library adds at most
// processors - 1 threads however many threads call it.
TEST(Threading, ConcurrentCallersNeverExceedTheProcessors) {
    const int procs = rok::pool::max_threads();
    WithThreads with(procs);
    std::mutex m;
    std::set<std::thread::id> callers, all;
    std::vector<std::thread> apps;
    std::atomic<int> wrong{0};
    for (int a = 0; a < 4; ++a) {
        apps.emplace_back([&] {
            {
                std::lock_guard<std::mutex> lock(m);
                callers.insert(std::this_thread::get_id());
            }
            for (int k = 0; k < 20; ++k) {
                std::vector<std::atomic<int>> visits(64);
                rok::parallel_rows(64, [&](int y) {
                    visits[y]++;
                    std::lock_guard<std::mutex> lock(m);
                    all.insert(std::this_thread::get_id());
                });
                for (auto& v : visits) wrong += v != 1;
            }
        });
    }
    for (auto& t : apps) t.join();
    EXPECT_EQ(wrong, 0);
    std::set<std::thread::id> pool;
    for (auto id : all)
        if (!callers.count(id)) pool.insert(id);
    EXPECT_LE(int(pool.size()), procs - 1);
}

TEST(Threading, EveryCallAsksTheThreadCountAfresh) {
    WithThreads with(2);
    for (int threads : {1, 2, 1}) {
        rokSetNumThreads(threads);
        std::mutex m;
        std::set<std::thread::id> ran;
        rok::parallel_rows(64, [&](int) {
            std::this_thread::sleep_for(std::chrono::microseconds(100));
            std::lock_guard<std::mutex> lock(m);
            ran.insert(std::this_thread::get_id());
        });
        if (threads == 1) {
            ASSERT_EQ(ran.size(), 1u);
            EXPECT_EQ(*ran.begin(), std::this_thread::get_id());
        } else {
            EXPECT_LE(ran.size(), 2u);
        }
    }
}

// A call made from inside a part runs on that thread, whole.
// Workers compute in the caller's floating-point controls (rounding,
// flush-to-zero, denormals-are-zero) and get their own back afterwards: a
// float result must not depend on which thread ran its rows.
TEST(Threading, PartsRunInTheCallersFloatingPointControls) {
    WithThreads with(2);
    // Workers must take part whatever else the machine runs (under ctest -j
    // another test may keep a processor busy, and the count of runnable
    // threads would then send every call to the calling thread).
    const bool dynamic = rok::pool::set_dynamic(false);
    constexpr unsigned kFlags = 0x3F, kRounding = 0x6000, kFtzDaz = 0x8040;
    const unsigned initial = _mm_getcsr();
    const unsigned controls[] = {(initial & ~kRounding) | 0x4000 /* up */, (initial & ~kRounding) | 0x6000 /* to zero */,
                                 initial | kFtzDaz, initial & ~kFlags};
    for (unsigned control : controls) {
        for (unsigned want : {control & ~kFlags, initial & ~kFlags}) {  // then the workers' own again
            // On a loaded machine a call may run on the calling thread alone
            // (a worker that does not wake in time, a serial spell after a
            // late one): it is repeated until a worker has taken part, and
            // every attempt must see the caller's controls.
            std::set<std::thread::id> threads;
            for (int attempt = 0; attempt < 200 && threads.size() < 2; ++attempt) {
                _mm_setcsr(want);
                std::mutex m;
                std::set<unsigned> seen;
                threads.clear();
                rok::parallel_for(16, 2, [&](int, int, int) {
                    std::this_thread::sleep_for(std::chrono::milliseconds(1));
                    std::lock_guard<std::mutex> lock(m);
                    seen.insert(_mm_getcsr() & ~kFlags);
                    threads.insert(std::this_thread::get_id());
                });
                _mm_setcsr(initial);
                EXPECT_EQ(seen, std::set<unsigned>{want}) << std::hex << want;
                if (rok::pool::max_threads() < 2) break;
            }
            if (rok::pool::max_threads() > 1) {
                EXPECT_EQ(threads.size(), 2u) << std::hex << want;
            }
        }
    }
    rok::pool::set_dynamic(dynamic);
}

TEST(Threading, NestedCallsRunOnTheirThread) {
    WithThreads with(4);
    std::atomic<int> rows{0}, foreign{0};
    rok::parallel_rows(8, [&](int) {
        const auto outer = std::this_thread::get_id();
        rok::parallel_rows(16, [&](int) {
            rows++;
            foreign += std::this_thread::get_id() != outer;
        });
    });
    EXPECT_EQ(rows, 8 * 16);
    EXPECT_EQ(foreign, 0);
}

// A worker that keeps the caller waiting (here it sleeps, as one pushed off
// its processor by another process would) sends the next calls to the
// calling thread alone for a while; their results are the same either way.
TEST(Threading, LateWorkersSendTheNextCallsToTheCallingThread) {
    if (rok::pool::max_threads() < 2) GTEST_SKIP() << "one processor";
    for (int attempt = 0; attempt < 100; ++attempt) {
        std::atomic<bool> stalled{false};
        rok::parallel_for(8, 2, [&](int, int, int slot) {
            if (slot != 0 && !stalled.exchange(true))
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
            else if (slot == 0)
                std::this_thread::sleep_for(std::chrono::microseconds(200));  // room for the worker to wake
        });
        if (!stalled) continue;  // the worker did not wake in time to take a part
        std::mutex m;
        std::set<int> slots;
        std::vector<std::atomic<int>> visits(64);
        rok::parallel_for(64, 2, [&](int begin, int end, int slot) {
            for (int y = begin; y < end; ++y) visits[y]++;
            std::this_thread::sleep_for(std::chrono::microseconds(200));  // time for a worker to join in
            std::lock_guard<std::mutex> lock(m);
            slots.insert(slot);
        });
        EXPECT_EQ(slots, std::set<int>{0}) << slots.size() << " attempt " << attempt;
        for (auto& v : visits) EXPECT_EQ(v, 1);
        return;
    }
    GTEST_SKIP() << "no worker took a part in time";
}

// How readings of the machine's other runnable threads combine. Readings
// every millisecond ('.' none, '1' one, '2' two), and what each one gives:
// a thread that shows in a few readings in a row does not count, nor does a
// reading that misses a lasting load for a moment; a load counts once it
// fills half of the settling time (and stops counting likewise).
// With the load count on, a call first works alone for a few microseconds
// and shares only what is left. A short call stays on the calling thread
// even with the workers spinning for it; a long one still covers every row
// once, in ascending parts, and reports the first warning in row order,
// whether it falls in the rows done alone or in those shared.
TEST(Threading, CallsWorkAloneFirstAndShareWhatIsLeft) {
    if (rok::pool::max_threads() < 2) GTEST_SKIP() << "one processor";
    using Clock = std::chrono::steady_clock;
    auto spin = [](std::chrono::nanoseconds t) {
        for (const auto until = Clock::now() + t; Clock::now() < until;) {
        }
    };
    const bool before = rok::pool::set_dynamic(true);
    int alone = 0;
    for (int attempt = 0; attempt < 20; ++attempt) {
        // Workers that took part in a call just now spin for the next one.
        rok::pool::set_dynamic(false);
        rok::parallel_for(16, 2, [&](int, int, int) { spin(std::chrono::microseconds(20)); });
        rok::pool::set_dynamic(true);
        // 64 rows of 0.1 us in at most two chunks: alone, the caller starts
        // on one row (a 64th) and carries on in a few larger parts.
        std::mutex m;
        std::vector<std::pair<int, int>> parts;
        std::set<std::thread::id> threads;
        rok::parallel_for(
            64, 2,
            [&](int begin, int end, int) {
                spin(std::chrono::nanoseconds(100) * (end - begin));
                std::lock_guard<std::mutex> lock(m);
                parts.emplace_back(begin, end);
                threads.insert(std::this_thread::get_id());
            },
            1);
        ASSERT_FALSE(parts.empty());
        std::sort(parts.begin(), parts.end());
        EXPECT_EQ(parts.front(), std::make_pair(0, 1)) << "the first row alone";
        alone += threads == std::set<std::thread::id>{std::this_thread::get_id()};
    }
    EXPECT_GE(alone, 15) << "calls of 6.4 us that stayed on the calling thread, of 20";
    const struct {
        int height, warnAt, laterWarnAt;
    } cases[] = {{2, 1, 1}, {7, 5, 6}, {3000, 2, 2500}, {3000, 1500, 2500}, {3000, 2999, 2999}};
    for (const auto& c : cases) {
        std::vector<std::atomic<int>> visits(c.height);
        std::atomic<int> lastEnd{0};
        const RokStatus s = rok::parallel_for(c.height, 2, [&](int begin, int end, int) -> RokStatus {
            RokStatus first = rokStatusOk;
            for (int y = begin; y < end; ++y) {
                visits[y]++;
                spin(std::chrono::microseconds(2));
                if (first == rokStatusOk && y == c.warnAt) first = rokStatusDivByZero;
                if (first == rokStatusOk && y == c.laterWarnAt) first = rokStatusLnZeroArg;
            }
            lastEnd = std::max(lastEnd.load(), end);
            return first;
        });
        EXPECT_EQ(s, rokStatusDivByZero) << c.height << " rows";
        EXPECT_EQ(lastEnd.load(), c.height);
        for (int y = 0; y < c.height; ++y) ASSERT_EQ(visits[y], 1) << c.height << " rows, row " << y;
    }
    rok::pool::set_dynamic(before);
}

TEST(Threading, LoadReadingsCountALoadOnceItLasts) {
    static_assert(rok::pool::kLoadSettleMs == 20, "the patterns below assume 20 ms");
    struct Case {
        const char* readings;
        const char* expected;
    } cases[] = {
        {"..........1111..........1.1.1.1.", "................................"},
        {"..........11111111111111111111111", "....................1111111111111"},
        {"1111111111111111111111.111111.1111", "1111111111111111111111111111111111"},
        {"11111111111111111111..........", "11111111111111111111111111111."},
        {"2222222222222222222211111111111111", "2222222222222222222222222222211111"},
        {"..........1212121212121212", "....................111111"},
    };
    for (const Case& c : cases) {
        rok::pool::LoadReadings r;
        std::string got;
        for (int i = 0; c.readings[i]; ++i) {
            const int n = r.add(1000LL * (1000 + i), c.readings[i] == '.' ? 0 : c.readings[i] - '0');
            got += n == 0 ? '.' : char('0' + n);
        }
        EXPECT_EQ(got, c.expected) << c.readings;
    }
    // Calls further apart: the smaller of the last two readings while they
    // are at most the window apart, else the last alone.
    const int window = rok::pool::kLoadWindowMs;
    struct Sparse {
        int gap_ms, first, second, expected;
    } sparse[] = {{window / 2, 1, 1, 1}, {window / 2, 0, 1, 0}, {window / 2, 1, 0, 0}, {window, 0, 1, 0},
                  {window + 1, 0, 1, 1}, {window + 1, 1, 0, 0}};
    for (const Sparse& s : sparse) {
        rok::pool::LoadReadings r;
        r.add(0, s.first);
        EXPECT_EQ(r.add(1000LL * s.gap_ms, s.second), s.expected) << s.gap_ms << " " << s.first << s.second;
    }
    // A second look replaces the reading it follows.
    rok::pool::LoadReadings r;
    r.add(0, 1);
    EXPECT_EQ(r.add(50000, 0), 0);
    r.drop_last();
    EXPECT_EQ(r.add(50010, 1), 1);
}

// With every processor kept busy by other runnable threads (here threads of
// this process that spin), calls count on no worker and run on the calling
// thread; with the count turned off they use the workers again.
TEST(Threading, BusyMachineKeepsCallsOnTheCallingThread) {
    const int procs = rok::pool::max_threads();
    if (procs < 2 || !rok::pool::dynamic_available()) GTEST_SKIP() << "runnable threads cannot be counted here";
    std::atomic<bool> stop{false};
    std::vector<std::thread> spinners;
    for (int i = 0; i < procs; ++i)
        spinners.emplace_back([&] {
            while (!stop.load(std::memory_order_relaxed)) {
            }
        });
    auto slots_used = [](bool dynamic) {
        const bool before = rok::pool::set_dynamic(dynamic);
        // Past the window within which a reading from before the spinners
        // started would still count.
        std::this_thread::sleep_for(std::chrono::milliseconds(dynamic ? rok::pool::kLoadWindowMs + 5 : 3));
        std::mutex m;
        std::set<int> slots;
        rok::parallel_for(64, 2, [&](int, int, int slot) {
            // Long enough for a woken worker to get a processor among the spinners.
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
            std::lock_guard<std::mutex> lock(m);
            slots.insert(slot);
        });
        rok::pool::set_dynamic(before);
        return slots;
    };
    const std::set<int> busy = slots_used(true);
    stop = true;
    for (auto& t : spinners) t.join();
    EXPECT_EQ(busy, std::set<int>{0});
    // The same call does reach the workers otherwise (given time for a
    // serial spell left by late workers to run out).
    bool joined = false;
    for (int attempt = 0; attempt < 100 && !joined; ++attempt) {
        joined = slots_used(false).size() > 1;
        if (!joined) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    EXPECT_TRUE(joined) << "with the count off, the worker takes part";
}

}  // namespace
