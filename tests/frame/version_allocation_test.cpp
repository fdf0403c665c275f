#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

#include "rokcore.h"
#include "roki.h"

namespace {

TEST(Version, RecordFieldsAndStrings) {
    const RokLibraryVersion* v = rokiGetLibVersion();
    ASSERT_NE(v, nullptr);
    EXPECT_EQ(v, rokiGetLibVersion());
    EXPECT_EQ(v->major, 7);
    EXPECT_EQ(v->minor, 1);
    EXPECT_EQ(v->majorBuild, 1);
    EXPECT_EQ(v->build, 37466);
    EXPECT_EQ(std::memcmp(v->targetCpu, "k3\0\0", 4), 0);
    EXPECT_STREQ(v->Name, "rokIP V256 (k3)");
    EXPECT_STREQ(v->Version, "7.1.1 (r37466)");
    EXPECT_STREQ(v->BuildDate, "Sep 24 2012");
}

using MallocFn = void* (*)(int, int, int*);
struct MallocCase {
    const char* name;
    MallocFn fn;
    int pixelBytes;
};

#define ROK_MALLOC_CASE(t, l, bytes) \
    MallocCase { #t "_" #l, [](int w, int h, int* s) -> void* { return rokiMalloc_##t##_##l(w, h, s); }, bytes }
#define ROK_MALLOC_TYPE(t, sample)                                                                   \
    ROK_MALLOC_CASE(t, C1, sample), ROK_MALLOC_CASE(t, C2, 2 * sample), ROK_MALLOC_CASE(t, C3, 3 * sample), \
        ROK_MALLOC_CASE(t, C4, 4 * sample), ROK_MALLOC_CASE(t, AC4, 4 * sample)

const MallocCase kMallocCases[] = {
    ROK_MALLOC_TYPE(8u, 1),  ROK_MALLOC_TYPE(16u, 2),  ROK_MALLOC_TYPE(16s, 2),  ROK_MALLOC_TYPE(32s, 4),
    ROK_MALLOC_TYPE(32f, 4), ROK_MALLOC_TYPE(32sc, 8), ROK_MALLOC_TYPE(32fc, 8),
};

TEST(Malloc, StepIsRowBytesRoundedUpTo64ForAll35) {
    ASSERT_EQ(std::size(kMallocCases), 35u);
    for (const auto& c : kMallocCases) {
        for (int w : {1, 2, 3, 7, 16, 63, 64, 65, 200}) {
            int step = -1;
            void* p = c.fn(w, 3, &step);
            ASSERT_NE(p, nullptr) << c.name;
            const int rowBytes = w * c.pixelBytes;
            EXPECT_EQ(step, (rowBytes + 63) / 64 * 64) << c.name << " w=" << w;
            EXPECT_EQ(reinterpret_cast<std::uintptr_t>(p) % 64, 0u) << c.name;
            // Every byte of the last row is ours to write.
            std::memset(static_cast<char*>(p) + 2 * step, 0x5A, step);
            rokiFree(p);
        }
    }
}

TEST(Malloc, DocumentedSteps) {
    int step = 0;
    void* p = rokiMalloc_8u_C1(1, 1, &step);
    EXPECT_EQ(step, 64);
    rokiFree(p);
    p = rokiMalloc_8u_C1(64, 2, &step);
    EXPECT_EQ(step, 64);
    rokiFree(p);
    p = rokiMalloc_8u_C1(65, 1, &step);
    EXPECT_EQ(step, 128);
    rokiFree(p);
    p = rokiMalloc_32fc_C3(3, 1, &step);
    EXPECT_EQ(step, 128);
    rokiFree(p);
    int stepAc4 = 0, stepC4 = 0;
    p = rokiMalloc_16s_AC4(37, 2, &stepAc4);
    rokiFree(p);
    p = rokiMalloc_16s_C4(37, 2, &stepC4);
    rokiFree(p);
    EXPECT_EQ(stepAc4, stepC4);
}

TEST(Malloc, NullAndEmptyCases) {
    for (const auto& c : kMallocCases) {
        EXPECT_EQ(c.fn(4, 4, nullptr), nullptr) << c.name;
        for (auto [w, h] : {std::pair{0, 5}, {5, 0}, {-1, 5}, {5, -3}, {0, 0}}) {
            int step = 12345;
            EXPECT_EQ(c.fn(w, h, &step), nullptr) << c.name;
            EXPECT_EQ(step, 0) << c.name;
        }
    }
}

TEST(Malloc, FailedAllocationStillWritesTheStep) {
    // 65536 rows of 64 KiB wrap the 32-bit byte count to 0: rokMalloc refuses it.
    int step = 0;
    EXPECT_EQ(rokiMalloc_8u_C1(65536, 65536, &step), nullptr);
    EXPECT_EQ(step, 65536);
    // A row count whose product goes negative in 32 bits is refused likewise.
    step = 0;
    EXPECT_EQ(rokiMalloc_8u_C1(64, 40000000, &step), nullptr);
    EXPECT_EQ(step, 64);
}

TEST(Free, AcceptsNull) { rokiFree(nullptr); }

TEST(Core, MallocAlignmentAndLimits) {
    EXPECT_EQ(rokMalloc(0), nullptr);
    EXPECT_EQ(rokMalloc(-5), nullptr);
    for (int len : {1, 63, 64, 65, 4097}) {
        void* p = rokMalloc(len);
        ASSERT_NE(p, nullptr);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(p) % 64, 0u);
        std::memset(p, 1, len);
        rokFree(p);
    }
    rokFree(nullptr);
}

TEST(Core, ThreadCountAndCache) {
    int n = 0;
    EXPECT_EQ(rokGetNumThreads(nullptr), rokStatusNullPtr);
    ASSERT_EQ(rokGetNumThreads(&n), rokStatusOk);
    EXPECT_GE(n, 1);
    EXPECT_EQ(rokSetNumThreads(0), rokStatusBadArg);
    EXPECT_EQ(rokSetNumThreads(-3), rokStatusBadArg);
    int unchanged = 0;
    rokGetNumThreads(&unchanged);
    EXPECT_EQ(unchanged, n);
    EXPECT_EQ(rokSetNumThreads(5), rokStatusOk);
    rokGetNumThreads(&unchanged);
    EXPECT_EQ(unchanged, 5);
    rokSetNumThreads(n);

    int cache = -1;
    EXPECT_EQ(rokGetMaxCacheSizeB(nullptr), rokStatusNullPtr);
    EXPECT_EQ(rokGetMaxCacheSizeB(&cache), rokStatusOk);
    EXPECT_GT(cache, 0);
}

}  // namespace
