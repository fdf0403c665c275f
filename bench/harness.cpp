#include "harness.h"

#include <benchmark/benchmark.h>
#include <opencv2/core/utility.hpp>

#include <chrono>
#include <cmath>
#include <memory>
#include <thread>
#include <vector>

#include "rokcore.h"

namespace rokbench {

namespace {

constexpr Size kSizes[] = {{1920, 1080}, {3840, 2160}};

void run_timed(benchmark::State& state, const std::function<void()>& fn, int threads, std::size_t bytes) {
    rokSetNumThreads(threads);
    cv::setNumThreads(threads);
    fn();  // warm the caches and page in the images
    // Let pool threads left spinning by the previous case (OpenMP's or
    // OpenCV's) go to sleep, so they take no issue slots from this one.
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    for (auto _ : state) fn();
    state.SetBytesProcessed(std::int64_t(state.iterations()) * std::int64_t(bytes));
}

}  // namespace

void register_case(const std::string& name, CaseFactory make, std::vector<Size> sizes) {
    const int all = int(std::thread::hardware_concurrency());
    std::vector<int> threadCounts = {1};
    if (all > 1) threadCounts.push_back(all);
    if (sizes.empty()) sizes.assign(std::begin(kSizes), std::end(kSizes));
    for (Size size : sizes) {
        // Built on first use so that unselected cases allocate nothing.
        auto shared = std::make_shared<std::unique_ptr<Case>>();
        auto get = [shared, make, size]() -> Case& {
            if (!*shared) *shared = std::make_unique<Case>(make(size.width, size.height));
            return **shared;
        };
        for (int t : threadCounts) {
            const std::string base =
                name + "/" + std::to_string(size.width) + "x" + std::to_string(size.height) + "/t" + std::to_string(t);
            benchmark::RegisterBenchmark((base + "/rok").c_str(), [get, t](benchmark::State& s) {
                Case& c = get();
                if (!c.same()) {
                    s.SkipWithError("rokIP and OpenCV outputs differ");
                    return;
                }
                run_timed(s, c.rok, t, c.bytes);
            })->UseRealTime()->Unit(benchmark::kMicrosecond);
            benchmark::RegisterBenchmark((base + "/cv").c_str(), [get, t](benchmark::State& s) {
                Case& c = get();
                run_timed(s, c.cv, t, c.bytes);
            })->UseRealTime()->Unit(benchmark::kMicrosecond);
            if (t == 1) {
                benchmark::RegisterBenchmark((base + "/memcpy").c_str(), [get](benchmark::State& s) {
                    const std::size_t half = get().bytes / 2;
                    std::vector<char> from(half, 1), to(half, 0);
                    auto copy = [&] {
                        std::memcpy(to.data(), from.data(), half);
                        benchmark::DoNotOptimize(to.data());
                    };
                    run_timed(s, copy, 1, get().bytes);
                })->UseRealTime()->Unit(benchmark::kMicrosecond);
            }
        }
    }
}

cv::Mat random_mat(int width, int height, int cvType, double lo, double hi) {
    cv::Mat m(height, width, cvType);
    cv::RNG rng(12345);
    rng.fill(m, cv::RNG::UNIFORM, lo, hi);
    return m;
}

cv::Mat smooth_mat(int width, int height, int cvType) {
    const int nc = CV_MAT_CN(cvType);
    cv::Mat m(height, width, cvType);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            for (int c = 0; c < nc; ++c) {
                const double v = 127.5 + 60 * std::sin(x * 0.05 + y * 0.031 + c) + 50 * std::cos(x * 0.013 - y * 0.07);
                if (CV_MAT_DEPTH(cvType) == CV_8U)
                    m.ptr<Rok8u>(y)[x * nc + c] = Rok8u(v);
                else
                    m.ptr<Rok32f>(y)[x * nc + c] = Rok32f(v);
            }
    return m;
}

bool equal_mats(const cv::Mat& a, const cv::Mat& b, double tolerance) {
    if (a.size() != b.size() || a.type() != b.type()) return false;
    return cv::norm(a, b, cv::NORM_INF) <= tolerance;
}

}  // namespace rokbench
