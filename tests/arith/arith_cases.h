// Every arithmetic export, wrapped to one calling convention so that one
// table-driven test runs them all against the scalar references.
#pragma once

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "roki.h"

namespace rokt::arith {

enum class Op { Add, Sub, Mul, Div, DivRound, MulScale };

// s1 is the first operand: an image, or for constant forms the constants
// (s1[c] for channel c). In-place wrappers copy s2 into d first.
template <class T>
using Fn = std::function<RokStatus(const T* s1, int s1Step, const T* s2, int s2Step, T* d, int dStep,
                                   RokiSize roi, int sf, int mode)>;

template <class T>
struct Case {
    std::string name;
    Op op;
    int channels;
    bool ac4, constant, scaled;
    Fn<T> fn;
};

template <class T>
std::vector<Case<T>>& cases() {
    static std::vector<Case<T>> all;
    return all;
}

template <class T>
void copy_rows(const T* s, int ss, T* d, int ds, RokiSize r, int ch, bool ac4) {
    for (int y = 0; y < r.height; ++y) {
        const T* sr = reinterpret_cast<const T*>(reinterpret_cast<const char*>(s) + std::ptrdiff_t(ss) * y);
        T* dr = reinterpret_cast<T*>(reinterpret_cast<char*>(d) + std::ptrdiff_t(ds) * y);
        for (int i = 0; i < r.width * ch; ++i)
            if (!ac4 || i % 4 != 3) dr[i] = sr[i];  // AC4: the alpha of srcDst stays what it was
    }
}

void register_all();

}  // namespace rokt::arith
