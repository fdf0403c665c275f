// Sets the library's thread count for a scope and restores the caller's.
#pragma once

#include "rokcore.h"

namespace rokt {

class WithThreads {
public:
    explicit WithThreads(int n) {
        rokGetNumThreads(&saved_);
        rokSetNumThreads(n);
    }
    ~WithThreads() { rokSetNumThreads(saved_); }
    WithThreads(const WithThreads&) = delete;
    WithThreads& operator=(const WithThreads&) = delete;

private:
    int saved_ = 1;
};

}  // namespace rokt
