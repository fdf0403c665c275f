#include <gtest/gtest.h>
#include <omp.h>

#include <atomic>
#include <vector>

#include "core/core.h"
#include "frame/parallel.h"
#include "threads.h"

namespace {

using rokt::WithThreads;

TEST(Threading, ParallelRowsCoverEveryRowOnceAndUseTheTeamSize) {
    for (int threads : {1, 2, 7}) {
        WithThreads with(threads);
        for (int height : {1, 2, 3, 7, 8, 100}) {
            std::vector<std::atomic<int>> visits(height);
            std::atomic<int> team{0};
            rok::parallel_rows(height, [&](int y) {
                visits[y]++;
                team = omp_get_num_threads();
            });
            for (int y = 0; y < height; ++y) EXPECT_EQ(visits[y], 1) << threads << " threads, row " << y;
            if (height > 1) {
                EXPECT_EQ(team, threads);
            }
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
        int threads, n, threshold, expectParts, expectTeam;
    };
    const Case cases[] = {
        {4, 4095, 4096, 1, 1},  // below the threshold: calling thread
        {4, 4096, 4096, 2, 2},  // at the threshold: two halves, team of at most 2
        {1, 9000, 4096, 1, 1},  // one thread: serial
        {7, 5, 2, 1, 1},        // fewer elements than threads: serial
        {2, 1024, 1024, 2, 2},
    };
    for (const auto& c : cases) {
        WithThreads with(c.threads);
        std::atomic<int> parts{0}, covered{0}, team{0};
        RokStatus s = rok::threaded_1d(c.n, c.threshold, [&](int begin, int count) -> RokStatus {
            parts++;
            covered += count;
            team = omp_get_num_threads();
            return begin > 0 ? rokStatusDivByZero : rokStatusOk;
        });
        EXPECT_EQ(parts, c.expectParts) << c.n;
        EXPECT_EQ(covered, c.n);
        EXPECT_EQ(team, c.expectTeam);
        EXPECT_EQ(s, c.expectParts == 2 ? rokStatusDivByZero : rokStatusOk) << "second half's warning is returned";
    }
}

TEST(Threading, EveryRegionAsksTheThreadCountAfresh) {
    WithThreads with(2);
    std::atomic<int> team{0};
    rok::parallel_rows(10, [&](int) { team = omp_get_num_threads(); });
    EXPECT_EQ(team, 2);
    rokSetNumThreads(3);
    rok::parallel_rows(10, [&](int) { team = omp_get_num_threads(); });
    EXPECT_EQ(team, 3);
}

}  // namespace
