// The library's worker pool. A call divides its rows into contiguous chunks
// and takes them one by one from a shared ticket; the calling thread takes
// chunks too, from the first one on. A worker that is asleep, descheduled by
// another process or busy elsewhere simply finds no chunk left when it gets
// round to looking, so a call never waits for a thread that has not started
// its share: it waits only for chunks that some thread has already taken.
//
// A thread that has taken a chunk can still be pushed off its processor by
// another process (or by another runtime's spinning pool) before it finishes,
// and then the call waits for it. When the calling thread waits for such a
// chunk long enough to lose much of what the threads saved (longer than its
// own work times half the other threads), the machine is oversubscribed:
// the next calls run on the calling thread alone for a while, a while that
// doubles as long as probing calls keep finding the workers late and shrinks
// again once they are on time. Results never depend on this (every part is
// computed the same way on any thread).
//
// A call first runs alone on the calling thread, in a few batches of rows,
// until it is done or kSoloWork has passed, and only the rows left then go
// to the workers, if they are worth twice kSoloWork more. Handing rows to
// another processor costs a few microseconds (the ticket, the counts and
// the rows' cache lines all travel between the processors), more than a
// small call gains from it, so a call of less than kSoloWork never leaves
// its thread; a large one starts its workers once its first batch, a 64th
// of its rows, is done.
//
// Before a call hands out chunks, the pool also looks at how many threads
// the whole machine has ready to run (the kernel's count of runnable
// threads, read at most once a millisecond): processors that other work
// already keeps busy are not counted on, so a call beside busy processes
// asks only for the processors left free, and none when there are none.
// This is skipped when the process may not run on every processor (a
// machine-wide count says nothing about its own share) and can be turned
// off with ROKIP_DYNAMIC=0 (for example to force the threads in tests).
//
// One call owns the pool at a time. Another call that arrives meanwhile
// (another application thread, or a call made from inside a chunk) runs on
// its own thread, so the library never runs more threads than processors
// however many threads call it.
#include "frame/pool.h"

#include <fcntl.h>
#include <linux/futex.h>
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <immintrin.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <climits>
#include <cstdint>
#include <mutex>
#include <thread>
#include <vector>

namespace rok::pool {

namespace {

using Clock = std::chrono::steady_clock;

// How long a worker keeps looking for the next call before it sleeps, and
// how long a caller spins for chunks in flight before it sleeps. Short: a
// spinning thread takes processor time from whatever else the machine runs.
constexpr auto kWorkerSpin = std::chrono::microseconds(50);
constexpr auto kOwnerSpin = std::chrono::microseconds(20);
// A wait for late chunks longer than this, and long enough to cost the call
// half of what its threads saved it (see Pool::run), counts as late workers;
// the serial spell that follows starts at the first and doubles up to the
// second.
constexpr auto kLateWait = std::chrono::microseconds(200);
// How long a call works alone before it shares what is left. On a
// two-processor machine whose processors pass a cache line in about 230 ns,
// two threads made a 96x72 8u Add take 2.1 us against 0.2, a 512x384 one
// 7.7 against 4.0 and a 128x96 5x5 filter 5.4 against 3.5; a 256x192
// filter (14 us) took 0.79 of its time on one thread.
constexpr auto kSoloWork = std::chrono::microseconds(8);
constexpr auto kFirstSpell = std::chrono::milliseconds(4);
constexpr auto kLongestSpell = std::chrono::milliseconds(256);

void futex_wait(std::atomic<std::uint32_t>& word, std::uint32_t expected) {
    syscall(SYS_futex, reinterpret_cast<std::uint32_t*>(&word), FUTEX_WAIT_PRIVATE, expected, nullptr, nullptr, 0);
}

// Worker i waits on the shared wake word under bit i % 32, so that one
// system call wakes just the workers a call asks for (past 32 workers a
// bit stands for several, and a worker woken for nothing sleeps again).
std::uint32_t wake_bit(int worker) { return 1u << (worker % 32); }

void futex_wait_bit(std::atomic<std::uint32_t>& word, std::uint32_t expected, std::uint32_t bit) {
    syscall(SYS_futex, reinterpret_cast<std::uint32_t*>(&word), FUTEX_WAIT_BITSET_PRIVATE, expected, nullptr, nullptr,
            bit);
}

void futex_wake_bits(std::atomic<std::uint32_t>& word, std::uint32_t bits) {
    syscall(SYS_futex, reinterpret_cast<std::uint32_t*>(&word), FUTEX_WAKE_BITSET_PRIVATE, INT_MAX, nullptr, nullptr,
            bits);
}

void futex_wake_all(std::atomic<std::uint32_t>& word) {
    syscall(SYS_futex, reinterpret_cast<std::uint32_t*>(&word), FUTEX_WAKE_PRIVATE, INT_MAX, nullptr, nullptr, 0);
}

// The ticket packs the call's generation, how many threads may take part,
// the next chunk to take and the number of chunks, so that one compare-and-
// swap both checks that a chunk belongs to the current call and takes it.
struct Ticket {
    std::uint32_t generation;
    std::uint32_t threads, next, chunks;

    static Ticket unpack(std::uint64_t v) {
        return {std::uint32_t(v >> 32), std::uint32_t(v >> 24) & 0xff, std::uint32_t(v >> 12) & 0xfff,
                std::uint32_t(v) & 0xfff};
    }
    std::uint64_t pack() const {
        return std::uint64_t(generation) << 32 | std::uint64_t(threads) << 24 | std::uint64_t(next) << 12 | chunks;
    }
};

thread_local bool t_inside_call = false;

// The number of runnable threads on the machine, from /proc/loadavg (its
// fourth field is "runnable/total"), or -1 where it cannot be read.
class RunnableCount {
public:
    RunnableCount() {
        const char* dynamic = std::getenv("ROKIP_DYNAMIC");
        on_ = !(dynamic && std::strchr("0fFnN", dynamic[0]) && dynamic[0]);
        cpu_set_t set;
        const long online = sysconf(_SC_NPROCESSORS_ONLN);
        if (sched_getaffinity(0, sizeof set, &set) != 0 || CPU_COUNT(&set) != online) return;
        fd_ = open("/proc/loadavg", O_RDONLY | O_CLOEXEC);
    }
    bool available() const { return fd_ >= 0; }
    bool set(bool on) { return on_.exchange(on); }
    bool on() const { return on_.load(std::memory_order_relaxed); }
    // A reading taken now, whatever the time since the last, in place of
    // the last one.
    int reread(int ours) {
        readings_.drop_last();
        next_ = {};
        return read(ours);
    }
    // Whether the last read() read the count afresh.
    bool fresh() const { return fresh_; }
    // The runnable threads other than `ours` (the caller's own that are
    // runnable now), combined with the earlier readings (LoadReadings); read
    // afresh at most once a millisecond, and only by the pool's owner.
    //
    // Even on an idle machine a reading shows a second runnable thread now
    // and then (a tenth of them in a tight loop, and it often lasts past 300
    // us), more while a large transform keeps the memory busy. With the
    // smaller of two readings up to 4 ms apart, which calls of more than 4
    // ms never fell within, one pass in 6 to 15 of a 4096x4096 FFT ran on
    // one thread on an idle machine. Calls that follow each other closely
    // read it every millisecond, and beside a 3840x2160 filter on two
    // threads about a tenth of those readings showed another thread, often
    // in two to four readings in a row: with the smaller of the last two
    // readings, 9 to 24 calls in 200 ran on one thread.
    int read(int ours) {
        fresh_ = false;
        if (fd_ < 0 || !on_.load(std::memory_order_relaxed)) return -1;
        const auto now = Clock::now();
        if (now < next_) return last_;
        fresh_ = true;
        next_ = now + std::chrono::milliseconds(1);
        char text[128];
        const ssize_t n = pread(fd_, text, sizeof text - 1, 0);
        int count = -1;
        if (n > 0) {
            text[n] = 0;
            const char* p = text;
            for (int field = 0; field < 3 && p; ++field) {
                p = std::strchr(p, ' ');
                if (p) ++p;
            }
            if (p) count = std::atoi(p);
        }
        if (count < 0) return last_ = -1;
        const long long at = std::chrono::duration_cast<std::chrono::microseconds>(now.time_since_epoch()).count();
        return last_ = readings_.add(at, std::max(0, count - ours));
    }

private:
    int fd_ = -1;
    std::atomic<bool> on_{true};
    LoadReadings readings_;
    Clock::time_point next_{};
    int last_ = -1;
    bool fresh_ = false;
};

// The status flags of MXCSR; the rest (rounding, flush-to-zero,
// denormals-are-zero, exception masks) is the control a thread computes in.
constexpr unsigned kCsrFlags = 0x3F;

// A thread's floating-point controls: MXCSR less its flags for SSE and AVX
// code, and the x87 control word, which is where the C library reads the
// rounding mode back from.
struct FpControls {
    unsigned csr = 0;
    std::uint16_t x87 = 0;

    static FpControls now() {
        FpControls c;
        c.csr = _mm_getcsr() & ~kCsrFlags;
        asm volatile("fnstcw %0" : "=m"(c.x87));
        return c;
    }
    bool operator==(const FpControls&) const = default;
    void set() const {
        _mm_setcsr(csr | (_mm_getcsr() & kCsrFlags));
        asm volatile("fldcw %0" : : "m"(x87));
    }
};

class Pool {
public:
    static Pool& instance() {
        // Never destroyed: workers may still sleep in it while the process exits.
        static Pool* pool = new Pool;
        return *pool;
    }

    int capacity() const { return workers_ + 1; }
    bool try_own() { return !owned_.test_and_set(std::memory_order_acquire); }
    // Whether calls should stay on their own thread for now (late workers).
    bool serial_spell() const {
        return Clock::now().time_since_epoch().count() < serial_until_.load(std::memory_order_relaxed);
    }
    void release() { owned_.clear(std::memory_order_release); }
    RunnableCount& runnable() { return runnable_; }
    // How many threads a call may use now, at most `threads`: the processors
    // that runnable threads other than this caller and the pool's spinning
    // workers leave free, and at least one. Only the owner calls it.
    int free_threads(int threads) {
        // This caller and the workers still spinning after the last call
        // are runnable and ours. A worker that falls asleep during the
        // reading counts as ours (it may have been counted).
        auto ours = [this] { return 1 + std::max(0, workers_ - int(sleepers_.load(std::memory_order_relaxed))); };
        int others = runnable_.read(ours());
        if (others < 0) return threads;
        // Others seen in a fresh reading: a second look at once, so that a
        // thread caught in the moment of falling asleep or waking does not
        // cost the call its threads (a busy process is still there a
        // microsecond later). Once a millisecond at most, like the first.
        if (others > 0 && runnable_.fresh()) others = runnable_.reread(ours());
        return std::clamp(capacity() - others, 1, threads);
    }

    // Shares rows [first, count) as `chunks` chunks.
    RokStatus run(int first, int count, int threads, int chunks, Part part, void* ctx, RokStatus* statuses);

private:
    Pool() : workers_(std::clamp(processors() - 1, 0, kMaxThreads - 1)) {}

    void start_workers();
    void worker(unsigned index, std::uint32_t seen);
    // Takes and runs chunks of the current call while any are left.
    void take_chunks(std::uint32_t generation, unsigned slot);

    const int workers_;
    std::once_flag started_;
    std::atomic_flag owned_ = ATOMIC_FLAG_INIT;

    alignas(64) std::atomic<std::uint64_t> ticket_{0};
    alignas(64) std::atomic<std::uint32_t> wake_{0};
    // The workers asleep or about to sleep, and which ones; a worker's flag
    // is cleared by whichever of it and the owner wakes it first.
    std::atomic<std::uint32_t> sleepers_{0};
    std::atomic<bool> asleep_[kMaxThreads]{};
    alignas(64) std::atomic<std::uint32_t> done_{0};
    std::atomic<std::uint32_t> owner_sleeps_{0};

    // The end of the current serial spell (steady clock ticks) and its length;
    // the length is only touched by the pool's owner.
    std::atomic<Clock::rep> serial_until_{0};
    Clock::duration spell_{0};
    RunnableCount runnable_;

    // The current call, written by its owner before the ticket is published.
    alignas(64) Part part_ = nullptr;
    void* ctx_ = nullptr;
    FpControls control_;  // the caller's
    RokStatus* statuses_ = nullptr;
    int first_ = 0, count_ = 0;
};

void Pool::start_workers() {
    std::call_once(started_, [this] {
        // Started before the first call is published, so that a worker that
        // gets going late still takes part in it.
        const std::uint32_t seen = Ticket::unpack(ticket_.load(std::memory_order_acquire)).generation;
        for (int i = 1; i <= workers_; ++i) std::thread([this, i, seen] { worker(unsigned(i), seen); }).detach();
    });
}


void Pool::take_chunks(std::uint32_t generation, unsigned slot) {
    std::uint64_t raw = ticket_.load(std::memory_order_acquire);
    // A worker computes its chunks in the caller's rounding and denormal
    // modes, so that the bits of a float result never depend on which
    // thread ran which rows; its own controls come back when it is done.
    FpControls own;
    bool switched = false, checked = slot == 0;
    for (;;) {
        Ticket t = Ticket::unpack(raw);
        if (t.generation != generation || t.next >= t.chunks) break;
        Ticket taken = t;
        taken.next++;
        if (!ticket_.compare_exchange_weak(raw, taken.pack(), std::memory_order_acq_rel, std::memory_order_acquire))
            continue;
        if (!checked) {
            checked = true;
            own = FpControls::now();
            switched = !(own == control_);
            if (switched) control_.set();
        }
        // The call cannot end before this chunk is counted done, so its
        // description stays valid while the chunk runs.
        const int begin = first_ + int((std::int64_t(count_ - first_) * t.next) / t.chunks);
        const int end = first_ + int((std::int64_t(count_ - first_) * (t.next + 1)) / t.chunks);
        statuses_[t.next] = part_(ctx_, begin, end, int(slot));
        const std::uint32_t finished = done_.fetch_add(1, std::memory_order_acq_rel) + 1;
        if (finished == t.chunks && owner_sleeps_.load(std::memory_order_seq_cst)) futex_wake_all(done_);
        raw = ticket_.load(std::memory_order_acquire);
    }
    if (switched) own.set();
}

void Pool::worker(unsigned index, std::uint32_t seen) {
    t_inside_call = true;
    // The end of the current spin. Calls this worker has no part in (a call
    // of fewer threads) do not extend it: the worker sleeps on time and
    // leaves its processor to other work.
    Clock::time_point until{};
    bool extend = true;
    for (;;) {
        Ticket t = Ticket::unpack(ticket_.load(std::memory_order_acquire));
        if (t.generation == seen) {
            if (extend) until = Clock::now() + kWorkerSpin;
            do {
                _mm_pause();
                t = Ticket::unpack(ticket_.load(std::memory_order_acquire));
            } while (t.generation == seen && Clock::now() < until);
        }
        if (t.generation == seen) {
            const std::uint32_t w = wake_.load(std::memory_order_seq_cst);
            // Counted first, flagged second, so that the count never falls
            // below the flags set (the owner clears flags and counts down).
            sleepers_.fetch_add(1, std::memory_order_seq_cst);
            asleep_[index].store(true, std::memory_order_seq_cst);
            if (Ticket::unpack(ticket_.load(std::memory_order_seq_cst)).generation == seen)
                futex_wait_bit(wake_, w, wake_bit(int(index)));
            if (asleep_[index].exchange(false, std::memory_order_seq_cst))
                sleepers_.fetch_sub(1, std::memory_order_seq_cst);
            extend = true;
            continue;
        }
        seen = t.generation;
        extend = index < t.threads;
        if (extend) take_chunks(seen, index);
    }
}

RokStatus Pool::run(int first, int count, int threads, int chunks, Part part, void* ctx, RokStatus* statuses) {
    start_workers();
    part_ = part;
    ctx_ = ctx;
    control_ = FpControls::now();
    statuses_ = statuses;
    first_ = first;
    count_ = count;
    done_.store(0, std::memory_order_relaxed);
    Ticket t = Ticket::unpack(ticket_.load(std::memory_order_relaxed));
    t.generation++;
    t.threads = std::uint32_t(threads);
    t.next = 0;
    t.chunks = std::uint32_t(chunks);
    ticket_.store(t.pack(), std::memory_order_seq_cst);
    // Only the workers that may take part are woken: the others would spin
    // for nothing, on processors that the load count or the caller's thread
    // count left to other work. A woken worker is runnable, and ours, from
    // now on, though it may take a while to run.
    if (sleepers_.load(std::memory_order_seq_cst) > 0) {
        std::uint32_t bits = 0;
        for (int i = 1; i < threads; ++i)
            if (asleep_[i].exchange(false, std::memory_order_seq_cst)) {
                sleepers_.fetch_sub(1, std::memory_order_seq_cst);
                bits |= wake_bit(i);
            }
        if (bits) {
            wake_.fetch_add(1, std::memory_order_seq_cst);
            futex_wake_bits(wake_, bits);
        }
    }

    const auto started = Clock::now();
    t_inside_call = true;
    take_chunks(t.generation, 0);
    t_inside_call = false;
    const auto own_done = Clock::now();

    // Every chunk is taken; wait for those that other threads still run.
    const std::uint32_t all = std::uint32_t(chunks);
    std::uint32_t finished = done_.load(std::memory_order_acquire);
    bool late = false;
    if (finished < all) {
        const auto until = Clock::now() + kOwnerSpin;
        while ((finished = done_.load(std::memory_order_acquire)) < all && Clock::now() < until) _mm_pause();
        // Sleeping leaves this processor to the thread that holds the last
        // chunk, should another process have pushed it off its own.
        while (finished < all) {
            owner_sleeps_.store(1, std::memory_order_seq_cst);
            finished = done_.load(std::memory_order_seq_cst);
            if (finished < all) futex_wait(done_, finished);
            owner_sleeps_.store(0, std::memory_order_relaxed);
            finished = done_.load(std::memory_order_acquire);
        }
        // The caller ran about one thread's share, so the call alone would
        // have taken about `threads` times its own time, and threading lost
        // only once the wait passes (threads - 1) times it. A wait of half
        // that counts as late workers: on two threads half the caller's own
        // time. With half the caller's time at any count, on an idle
        // 16-processor machine a worker pushed off its processor for a moment
        // by some system thread sent whole FFT passes to one thread: a
        // 4096x4096 FFT at 16 threads took 14.7-21.9 ms on average against
        // 11.6-13.2 at 8, and 5.9 with this rule (67 on one thread).
        const auto end = Clock::now();
        const auto waited = end - own_done;
        late = waited > kLateWait && waited > (own_done - started) * (threads - 1) / 2;
        if (late) {
            spell_ = spell_.count() ? std::min<Clock::duration>(spell_ * 2, kLongestSpell) : kFirstSpell;
            serial_until_.store((end + spell_).time_since_epoch().count(), std::memory_order_relaxed);
        }
    }
    // On time (or the caller ran every chunk itself): a later spell starts
    // shorter.
    if (!late) spell_ = spell_ > kFirstSpell ? spell_ / 2 : Clock::duration(0);
    for (int i = 0; i < chunks; ++i)
        if (statuses[i] != rokStatusOk) return statuses[i];
    return rokStatusOk;
}

}  // namespace

int LoadReadings::add(long long at_us, int others) {
    int recent[kSize + 1];
    int k = 0;
    recent[k++] = others;
    for (int i = 0; i < stored_; ++i) {
        const int j = (next_ - 1 - i + kSize) % kSize;
        const long long age = at_us - at_[j];
        if (age >= 1000LL * kLoadSettleMs && !(i == 0 && age <= 1000LL * kLoadWindowMs)) break;
        recent[k++] = others_[j];
    }
    std::nth_element(recent, recent + (k - 1) / 2, recent + k);
    at_[next_] = at_us;
    others_[next_] = others;
    next_ = (next_ + 1) % kSize;
    stored_ = std::min(stored_ + 1, kSize);
    return recent[(k - 1) / 2];
}

void LoadReadings::drop_last() {
    if (stored_ == 0) return;
    next_ = (next_ - 1 + kSize) % kSize;
    --stored_;
}

int processors() {
    cpu_set_t set;
    if (sched_getaffinity(0, sizeof set, &set) == 0) return std::max(1, CPU_COUNT(&set));
    return std::max(1, int(std::thread::hardware_concurrency()));
}

int max_threads() { return Pool::instance().capacity(); }

bool set_dynamic(bool on) { return Pool::instance().runnable().set(on); }

bool dynamic_available() { return Pool::instance().runnable().available(); }

RokStatus run(int count, int threads, Part part, void* ctx, int chunksPerThread, bool soloFirst) {
    Pool& pool = Pool::instance();
    threads = std::min(threads, pool.capacity());
    // Nested calls, and calls while another call owns the pool, run here.
    if (threads <= 1 || count <= 1 || t_inside_call) return part(ctx, 0, count, 0);
    // The rows [0, first) run here alone, their first warning in `status`.
    int first = 0;
    RokStatus status = rokStatusOk;
    auto rest = [&] {
        const RokStatus s = part(ctx, first, count, 0);
        return status != rokStatusOk ? status : s;
    };
    if (soloFirst && pool.runnable().on()) {
        // A 64th of the range (one row of a small image), then as many as
        // the time left seems to allow at the pace so far (a part may cost
        // more than its rows: a filter or a resize reads rows round it), but
        // at most eight times the last batch, in case the first rows were
        // cheap.
        const auto start = Clock::now();
        int batch = std::max(1, count / 64);
        for (;;) {
            const int end = count - first <= batch ? count : first + batch;
            const RokStatus s = part(ctx, first, end, 0);
            if (status == rokStatusOk) status = s;
            first = end;
            if (first == count) return status;
            const std::int64_t spent = std::max<std::int64_t>(1, (Clock::now() - start).count());
            const std::int64_t solo = Clock::duration(kSoloWork).count();
            if (spent >= solo) {
                // What is left is worth sharing only if it is large too:
                // sharing it costs a few microseconds more on every thread.
                if (spent * (count - first) / first < 2 * solo) return rest();
                break;
            }
            batch = int(std::clamp<std::int64_t>(first * (solo - spent) / spent, batch, 8 * std::int64_t(batch)));
        }
    }
    if (pool.serial_spell() || !pool.try_own()) return rest();
    threads = pool.free_threads(threads);
    if (threads <= 1) {
        pool.release();
        return rest();
    }
    // A few chunks per thread let the threads that are running take over
    // the share of one that is late.
    const int chunks =
        std::min({count - first, threads * std::clamp(chunksPerThread, 1, kMaxChunks), int(kMaxChunks)});
    RokStatus statuses[kMaxChunks];
    const RokStatus s = pool.run(first, count, threads, chunks, part, ctx, statuses);
    pool.release();
    return status != rokStatusOk ? status : s;
}

}  // namespace rok::pool
