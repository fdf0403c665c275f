#include "alloc_failure.h"

#include <dlfcn.h>

#include <atomic>
#include <cstdint>

namespace {

std::atomic<std::size_t> g_failFrom{SIZE_MAX};

using AlignedAlloc = void* (*)(std::size_t, std::size_t);

AlignedAlloc next_aligned_alloc() {
    static const AlignedAlloc next = reinterpret_cast<AlignedAlloc>(dlsym(RTLD_NEXT, "aligned_alloc"));
    return next;
}

}  // namespace

extern "C" void* aligned_alloc(std::size_t alignment, std::size_t bytes) {
    if (bytes >= g_failFrom.load(std::memory_order_relaxed)) return nullptr;
    return next_aligned_alloc()(alignment, bytes);
}

namespace rokt {

FailAllocations::FailAllocations(std::size_t minBytes) {
    next_aligned_alloc();  // resolved before any call has to fail
    g_failFrom.store(minBytes, std::memory_order_relaxed);
}

FailAllocations::~FailAllocations() { g_failFrom.store(SIZE_MAX, std::memory_order_relaxed); }

}  // namespace rokt
