// Core services: aligned memory and the thread count.
#include <atomic>
#include <cstdlib>

#include "core/core.h"
#include "frame/pool.h"

namespace {

constexpr int kAlignment = 64;

// 0 until the first query or setting; then the count that every parallel
// region of the library uses.
std::atomic<int> g_thread_count{0};

}  // namespace

extern "C" ROKI_API void* rokMalloc(int len) {
    if (len < 1) return nullptr;
    // aligned_alloc wants a size that is a multiple of the alignment.
    std::size_t bytes = (std::size_t(len) + kAlignment - 1) & ~std::size_t(kAlignment - 1);
    return std::aligned_alloc(kAlignment, bytes);
}

extern "C" ROKI_API void rokFree(void* ptr) { std::free(ptr); }

extern "C" ROKI_API RokStatus rokSetNumThreads(int n) {
    if (n < 1) return rokStatusBadArg;
    g_thread_count.store(n, std::memory_order_relaxed);
    return rokStatusOk;
}

int ownGetNumThreads() {
    int n = g_thread_count.load(std::memory_order_relaxed);
    if (n > 0) return n;
    n = rok::pool::processors();
    int expected = 0;
    // A concurrent rokSetNumThreads wins over the default.
    if (!g_thread_count.compare_exchange_strong(expected, n, std::memory_order_relaxed)) return expected;
    return n;
}

extern "C" ROKI_API RokStatus rokGetNumThreads(int* pN) {
    if (!pN) return rokStatusNullPtr;
    *pN = ownGetNumThreads();
    return rokStatusOk;
}

extern "C" ROKI_API RokStatus rokGetMaxCacheSizeB(int* pSize) {
    if (!pSize) return rokStatusNullPtr;
    *pSize = rok::core::max_cache_bytes();
    return rokStatusOk;
}
