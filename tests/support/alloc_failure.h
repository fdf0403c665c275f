// Makes the library's allocations fail for a scope, to reach the paths that
// report rokStatusNoMemory. It replaces aligned_alloc (what rokMalloc uses)
// in the test program that links it; outside a scope every call goes to the
// C library's.
#pragma once

#include <cstddef>

namespace rokt {

class FailAllocations {
public:
    // Allocations of at least minBytes return null while this object lives.
    explicit FailAllocations(std::size_t minBytes);
    ~FailAllocations();
    FailAllocations(const FailAllocations&) = delete;
    FailAllocations& operator=(const FailAllocations&) = delete;
};

}  // namespace rokt
