// Threaded calls beside other work. Each case is timed call by call at one
// thread and at every processor under five conditions: an idle machine; k
// busy processes beside it (k = 1 and k = processors); OpenCV's pool running
// between calls in the same process; and 2 or 4 application threads calling
// at once. It prints per condition the mean and the worst call at every
// processor against the mean at one thread under the same condition, the
// ratio of the medians, and the most threads the process held. The two thread counts take turns,
// a few calls at a time, so that both see the same machine.
//
// Usage: rokload [calls per measurement, default 200] [case name filter] [thread counts]
// With a list of thread counts (say 1,2,4,8,16) it measures only the idle
// machine, at each count in turns, and prints each mean against one thread's.
#include <dirent.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <opencv2/core.hpp>
#include <opencv2/core/utility.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "roki.h"
#include "rokcore.h"

namespace {

using Clock = std::chrono::steady_clock;

// Calls a turn at one thread count before the other count's turn.
constexpr int kTurnCalls = 10;

// One threaded call on images the case owns; a case makes one per caller.
struct Work {
    std::function<void()> call;
};

struct CaseDef {
    std::string name;
    std::function<std::unique_ptr<Work>(int w, int h)> make;
};

template <class T>
std::vector<T> random_vec(std::size_t n, unsigned seed) {
    std::vector<T> v(n);
    unsigned x = seed * 2654435761u + 1;
    for (auto& e : v) {
        x = x * 1664525u + 1013904223u;
        e = T(x >> 24);
    }
    return v;
}

struct AddWork : Work {
    std::vector<Rok8u> a, b, d;
    AddWork(int w, int h) : a(random_vec<Rok8u>(std::size_t(w) * h, 1)), b(random_vec<Rok8u>(std::size_t(w) * h, 2)), d(a.size()) {
        call = [this, w, h] { rokiAdd_8u_C1RSfs(a.data(), w, b.data(), w, d.data(), w, RokiSize{w, h}, 1); };
    }
};

struct AddC3Work : Work {
    std::vector<Rok8u> a, d;
    AddC3Work(int w, int h) : a(random_vec<Rok8u>(std::size_t(w) * h * 3, 3)), d(a.size()) {
        call = [this, w, h] {
            const Rok8u v[3] = {5, 6, 7};
            rokiAddC_8u_C3RSfs(a.data(), 3 * w, v, d.data(), 3 * w, RokiSize{w, h}, 0);
        };
    }
};

// A 5x5 convolution reads two pixels round the ROI.
struct FilterWork : Work {
    std::vector<Rok8u> a, d;
    FilterWork(int w, int h) : a(random_vec<Rok8u>(std::size_t(w + 4) * (h + 4), 4)), d(std::size_t(w) * h) {
        call = [this, w, h] {
            static const Rok32s k[25] = {1, 2, 3, 2, 1, 2, 4, 6, 4, 2, 3, 6, 9, 6, 3, 2, 4, 6, 4, 2, 1, 2, 3, 2, 1};
            rokiFilter_8u_C1R(a.data() + 2 * (w + 4) + 2, w + 4, d.data(), w, RokiSize{w, h}, k, RokiSize{5, 5},
                              RokiPoint{2, 2}, 81);
        };
    }
};

// Cubic resize of 8u RGB by 1.5 in both directions, into a buffer sized for
// the thread count in force (the work object is made after it is set).
struct ResizeWork : Work {
    std::vector<Rok8u> a, d, buf;
    ResizeWork(int w, int h) : a(random_vec<Rok8u>(std::size_t(w) * h * 3, 5)) {
        const int ow = w * 3 / 2, oh = h * 3 / 2;
        d.resize(std::size_t(ow) * oh * 3);
        int bytes = 0;
        rokiResizeGetBufSize(RokiRect{0, 0, w, h}, RokiRect{0, 0, ow, oh}, 3, rokInterCubic, &bytes);
        buf.resize(std::size_t(bytes));
        call = [this, w, h, ow, oh] {
            rokiResizeSqrPixel_8u_C3R(a.data(), RokiSize{w, h}, 3 * w, RokiRect{0, 0, w, h}, d.data(), 3 * ow,
                                      RokiRect{0, 0, ow, oh}, 1.5, 1.5, 0, 0, rokInterCubic, buf.data());
        };
    }
};

// Bilinear rotation by 10 degrees about the centre.
struct WarpWork : Work {
    std::vector<Rok8u> a, d;
    WarpWork(int w, int h) : a(random_vec<Rok8u>(std::size_t(w) * h, 6)), d(a.size()) {
        call = [this, w, h] {
            const double c = 0.984807753, s = 0.173648178;
            const double k[2][3] = {{c, -s, w / 2.0 - c * w / 2.0 + s * h / 2.0},
                                    {s, c, h / 2.0 - s * w / 2.0 - c * h / 2.0}};
            rokiWarpAffine_8u_C1R(a.data(), RokiSize{w, h}, w, RokiRect{0, 0, w, h}, d.data(), w,
                                  RokiRect{0, 0, w, h}, k, rokInterLinear);
        };
    }
};

// Forward real FFT of the power-of-two image at least as large; the record
// takes its thread count when it is made.
struct FftWork : Work {
    std::vector<Rok32f> a, d;
    std::vector<Rok8u> buf;
    RokiFFTSpec_R_32f* spec = nullptr;
    FftWork(int w, int h) {
        int ox = 0, oy = 0;
        while ((1 << ox) < w) ++ox;
        while ((1 << oy) < h) ++oy;
        const int W = 1 << ox, H = 1 << oy;
        a.resize(std::size_t(W) * H);
        for (std::size_t i = 0; i < a.size(); ++i) a[i] = float(i % 251);
        d.resize(a.size());
        rokiFFTInitAlloc_R_32f(&spec, ox, oy, rokFftDivInv, 0);
        int bytes = 0;
        rokiFFTGetBufSize_R_32f(spec, &bytes);
        buf.resize(std::size_t(bytes) + 1);
        call = [this, W] {
            rokiFFTFwd_RToPack_32f_C1R(a.data(), W * 4, d.data(), W * 4, spec, buf.data());
        };
    }
    ~FftWork() { rokiFFTFree_R_32f(spec); }
};

std::vector<CaseDef> cases() {
    return {
        {"Add_8u_C1RSfs", [](int w, int h) { return std::make_unique<AddWork>(w, h); }},
        {"AddC_8u_C3RSfs", [](int w, int h) { return std::make_unique<AddC3Work>(w, h); }},
        {"Filter_8u_C1R_5x5", [](int w, int h) { return std::make_unique<FilterWork>(w, h); }},
        {"Resize_8u_C3_cubic", [](int w, int h) { return std::make_unique<ResizeWork>(w, h); }},
        {"WarpAffine_8u_C1", [](int w, int h) { return std::make_unique<WarpWork>(w, h); }},
        {"FFTFwd_R_32f_pow2", [](int w, int h) { return std::make_unique<FftWork>(w, h); }},
    };
}

int process_threads() {
    int n = 0;
    if (DIR* d = opendir("/proc/self/task")) {
        while (dirent* e = readdir(d))
            if (e->d_name[0] != '.') ++n;
        closedir(d);
    }
    return n;
}

struct Stats {
    double mean_us = 0, worst_us = 0, median_us = 0;
};

Stats summarise(std::vector<double>& us) {
    Stats s;
    for (double t : us) {
        s.mean_us += t;
        s.worst_us = std::max(s.worst_us, t);
    }
    s.mean_us /= double(us.size());
    std::vector<double> sorted = us;
    std::sort(sorted.begin(), sorted.end());
    s.median_us = sorted[sorted.size() / 2];
    return s;
}

double time_us(const std::function<void()>& fn) {
    auto t0 = Clock::now();
    fn();
    return std::chrono::duration<double, std::micro>(Clock::now() - t0).count();
}

// Processes that spin until killed.
class BusyProcesses {
public:
    explicit BusyProcesses(int k) {
        for (int i = 0; i < k; ++i) {
            pid_t p = fork();
            if (p == 0) {
                volatile unsigned long x = 0;
                for (;;) x = x + 1;
            }
            if (p > 0) pids_.push_back(p);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    ~BusyProcesses() {
        for (pid_t p : pids_) kill(p, SIGKILL);
        for (pid_t p : pids_) waitpid(p, nullptr, 0);
    }

private:
    std::vector<pid_t> pids_;
};

// OpenCV's own pool does a small parallel job before every call.
struct OpenCvBetween {
    cv::Mat src = cv::Mat(512, 512, CV_8UC1, cv::Scalar(7)), dst;
    void operator()() { cv::GaussianBlur(src, dst, cv::Size(5, 5), 0); }
};

// Application threads that call the library in turns, one work each. They
// last for a whole measurement, so that a calling thread keeps its processor
// from turn to turn, and sleep between turns; a watcher counts the process's
// threads meanwhile.
class Callers {
public:
    explicit Callers(int n) : times_(std::size_t(n)) {
        for (int i = 0; i < n; ++i) threads_.emplace_back([this, i] { serve(i); });
        watch_ = std::thread([this] {
            std::unique_lock<std::mutex> lock(m_);
            while (!quit_) {
                lock.unlock();
                // Every 10 ms: a look costs about 8 us of system calls, and
                // the watcher must not take much of a processor from the
                // calls it watches. The library's threads last, so they are
                // not missed.
                const int n = process_threads();
                lock.lock();
                maxThreads_ = std::max(maxThreads_, n);
                looked_ = true;
                done_.notify_all();
                done_.wait_for(lock, std::chrono::milliseconds(10), [this] { return quit_; });
            }
        });
        std::unique_lock<std::mutex> lock(m_);
        done_.wait(lock, [this] { return looked_; });
    }
    ~Callers() {
        {
            std::lock_guard<std::mutex> lock(m_);
            quit_ = true;
        }
        start_.notify_all();
        done_.notify_all();
        for (auto& t : threads_) t.join();
        watch_.join();
    }
    // Every caller makes one untimed call (the first call after a change of
    // thread count wakes workers that slept through the other count's turn,
    // which is not what is measured) and then `calls` timed ones, each after
    // `between`; the times are added to `all`. This thread sleeps meanwhile:
    // the library counts the machine's runnable threads, and the harness's
    // own must not show among them.
    void turn(std::vector<std::unique_ptr<Work>>& work, int calls, const std::function<void()>& between,
              std::vector<double>& all) {
        std::unique_lock<std::mutex> lock(m_);
        work_ = &work;
        calls_ = calls;
        between_ = &between;
        finished_ = 0;
        ++generation_;
        start_.notify_all();
        done_.wait(lock, [this] { return finished_ == int(threads_.size()); });
        for (auto& v : times_) {
            all.insert(all.end(), v.begin(), v.end());
            v.clear();
        }
    }
    int max_threads() {
        std::lock_guard<std::mutex> lock(m_);
        return maxThreads_;
    }

private:
    void serve(int i) {
        int seen = 0;
        std::unique_lock<std::mutex> lock(m_);
        for (;;) {
            start_.wait(lock, [&] { return quit_ || generation_ != seen; });
            if (quit_) return;
            seen = generation_;
            Work& w = *(*work_)[std::size_t(i)];
            const int calls = calls_;
            const std::function<void()>& between = *between_;
            lock.unlock();
            if (between) between();
            w.call();
            for (int k = 0; k < calls; ++k) {
                if (between) between();
                times_[std::size_t(i)].push_back(time_us(w.call));
            }
            lock.lock();
            if (++finished_ == int(threads_.size())) done_.notify_all();
        }
    }

    std::mutex m_;
    std::condition_variable start_, done_;
    std::vector<std::vector<double>> times_;
    std::vector<std::thread> threads_;
    std::thread watch_;
    std::vector<std::unique_ptr<Work>>* work_ = nullptr;
    const std::function<void()>* between_ = nullptr;
    int calls_ = 0, generation_ = 0, finished_ = 0, maxThreads_ = 0;
    bool quit_ = false, looked_ = false;
};

// One work per caller, made and called once while `threads` is in force
// (buffers and records are sized for the thread count).
std::vector<std::unique_ptr<Work>> make_works(const CaseDef& c, int w, int h, int threads, int callers) {
    rokSetNumThreads(threads);
    std::vector<std::unique_ptr<Work>> works;
    for (int k = 0; k < callers; ++k) works.push_back(c.make(w, h));
    for (auto& wk : works) wk->call();  // warm
    return works;
}

// The idle machine at several thread counts: the counts take turns, an
// eighth of the calls at a time, and each mean is set against the first's.
void scale(const CaseDef& c, int w, int h, int calls, const std::vector<int>& counts) {
    const std::size_t n = counts.size();
    std::vector<std::vector<std::unique_ptr<Work>>> work(n);
    for (std::size_t i = 0; i < n; ++i) work[i] = make_works(c, w, h, counts[i], 1);
    std::vector<std::vector<double>> us(n);
    Callers callers(1);
    for (int turn = 0; turn < 8; ++turn) {
        for (std::size_t k = 0; k < n; ++k) {
            // Forwards on even turns, backwards on odd ones.
            const std::size_t i = turn % 2 ? n - 1 - k : k;
            rokSetNumThreads(counts[i]);
            callers.turn(work[i], (calls + 7) / 8, {}, us[i]);
        }
    }
    const int maxThreads = callers.max_threads();
    std::vector<Stats> st(n);
    for (std::size_t i = 0; i < n; ++i) st[i] = summarise(us[i]);
    std::printf("%-20s %5dx%-5d", c.name.c_str(), w, h);
    for (std::size_t i = 0; i < n; ++i) std::printf(" %9.1f", st[i].mean_us);
    std::printf("  |");
    for (std::size_t i = 1; i < n; ++i) std::printf(" %6.2f", st[0].mean_us / st[i].mean_us);
    std::printf("  | %d\n", maxThreads);
    std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
    const int calls = argc > 1 ? std::max(1, std::atoi(argv[1])) : 200;
    const std::string filter = argc > 2 ? argv[2] : "";
    const int procs = int(std::thread::hardware_concurrency());
    cv::setNumThreads(procs);
    struct Size {
        int w, h;
    };
    const Size sizes[] = {{1920, 1080}, {3840, 2160}};
    if (argc > 3) {
        std::vector<int> counts;
        for (const char* p = argv[3]; *p;) {
            char* end = nullptr;
            counts.push_back(std::max(1, int(std::strtol(p, &end, 10))));
            p = *end ? end + 1 : end;
        }
        std::printf("%d processors, idle, %d calls per figure; mean us at each thread count, then the speed-up over\n"
                    "the first count, then the most threads the process held\n%-32s",
                    procs, calls, "case");
        for (int t : counts) std::printf(" %8dT", t);
        std::printf("\n");
        for (const CaseDef& c : cases()) {
            if (!filter.empty() && c.name.find(filter) == std::string::npos) continue;
            for (Size sz : sizes) scale(c, sz.w, sz.h, calls, counts);
        }
        return 0;
    }
    OpenCvBetween opencv;
    struct Condition {
        std::string name;
        int busy, callers;
        bool opencv;
    };
    std::vector<Condition> conditions = {{"idle", 0, 1, false},
                                         {"busy 1", 1, 1, false},
                                         {"busy " + std::to_string(procs), procs, 1, false},
                                         {"opencv pool", 0, 1, true},
                                         {"2 callers", 0, 2, false},
                                         {"4 callers", 0, 4, false}};
    std::printf("%d processors, %d calls per figure; times in us; ratio = mean at %d threads / mean at 1 thread,\n"
                "worst = worst call at %d threads / mean at 1 thread, median = the medians' ratio (a call or two\n"
                "pushed off its processor by another process moves the means, not the medians)\n",
                procs, calls, procs, procs);
    std::printf("%-20s %-10s %-12s %9s %9s %9s %9s %7s %7s %7s %8s\n", "case", "size", "condition", "t1 mean",
                "t1 worst", "tN mean", "tN worst", "ratio", "worst", "median", "threads");
    for (const CaseDef& c : cases()) {
        if (!filter.empty() && c.name.find(filter) == std::string::npos) continue;
        for (Size sz : sizes) {
            for (const Condition& cond : conditions) {
                BusyProcesses busy(cond.busy);
                std::function<void()> between;
                if (cond.opencv) between = [&] { opencv(); };
                const int counts[2] = {1, procs};
                // Each thread count has works of its own.
                std::vector<std::unique_ptr<Work>> work[2];
                for (int i = 0; i < 2; ++i) work[i] = make_works(c, sz.w, sz.h, counts[i], cond.callers);
                // The calls at one thread and at every processor go in turns
                // (1, N, N, 1, ...) of about kTurnCalls calls, so that a change
                // in the machine's other load while the case runs weighs on
                // both means alike.
                const int turns = std::max(8, (2 * calls / kTurnCalls + 3) / 4 * 4);
                const int perTurn = (2 * calls + turns - 1) / turns;
                std::vector<double> us[2];
                Callers callers(cond.callers);
                for (int turn = 0; turn < turns; ++turn) {
                    const int i = (turn + turn / 2) % 2;
                    rokSetNumThreads(counts[i]);
                    callers.turn(work[i], perTurn, between, us[i]);
                }
                const int maxThreads = callers.max_threads();
                Stats st[2] = {summarise(us[0]), summarise(us[1])};
                char size[16];
                std::snprintf(size, sizeof size, "%dx%d", sz.w, sz.h);
                std::printf("%-20s %-10s %-12s %9.1f %9.1f %9.1f %9.1f %7.2f %7.2f %7.2f %8d\n", c.name.c_str(), size,
                            cond.name.c_str(), st[0].mean_us, st[0].worst_us, st[1].mean_us, st[1].worst_us,
                            st[1].mean_us / st[0].mean_us, st[1].worst_us / st[0].mean_us,
                            st[1].median_us / st[0].median_us, maxThreads);
                std::fflush(stdout);
            }
        }
    }
    return 0;
}
