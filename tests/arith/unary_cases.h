// One-operand exports (Abs, Sqr, Sqrt, Ln, Exp, Complement) wrapped to one
// calling convention: fn(src, srcStep, dst, dstStep, roi, scaleFactor). The
// in-place wrappers copy the source into the destination first (AC4: not the
// alpha, which must stay as the destination had it).
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "arith_cases.h"
#include "roki.h"

namespace rokt::pixel {

enum class Unary { Abs, Sqr, Sqrt, Ln, Exp, Complement };

template <class T>
using UnaryFn = std::function<RokStatus(const T* s, int ss, T* d, int ds, RokiSize r, int sf)>;

template <class T>
struct UnaryCase {
    std::string name;
    Unary op;
    int channels;
    bool ac4, scaled;
    UnaryFn<T> fn;
};

template <class T>
std::vector<UnaryCase<T>>& unary_cases() {
    static std::vector<UnaryCase<T>> all;
    return all;
}

#define ROKT_UNARY(F, OP, t, L, CH, AC)                                                                   \
    rokt::pixel::unary_cases<Rok##t>().push_back({#F "_" #t "_" #L "R", OP, CH, AC, false,                \
        [](const Rok##t* s, int ss, Rok##t* d, int ds, RokiSize r, int) {                                 \
            return roki##F##_##t##_##L##R(s, ss, d, ds, r); }});                                          \
    rokt::pixel::unary_cases<Rok##t>().push_back({#F "_" #t "_" #L "IR", OP, CH, AC, false,               \
        [](const Rok##t* s, int ss, Rok##t* d, int ds, RokiSize r, int) {                                 \
            rokt::arith::copy_rows(s, ss, d, ds, r, CH, AC); return roki##F##_##t##_##L##IR(d, ds, r); }});
#define ROKT_UNARY_IR(F, OP, t, L, CH, AC)                                                                \
    rokt::pixel::unary_cases<Rok##t>().push_back({#F "_" #t "_" #L "IR", OP, CH, AC, false,               \
        [](const Rok##t* s, int ss, Rok##t* d, int ds, RokiSize r, int) {                                 \
            rokt::arith::copy_rows(s, ss, d, ds, r, CH, AC); return roki##F##_##t##_##L##IR(d, ds, r); }});
#define ROKT_UNARY_SFS(F, OP, t, L, CH, AC)                                                               \
    rokt::pixel::unary_cases<Rok##t>().push_back({#F "_" #t "_" #L "RSfs", OP, CH, AC, true,              \
        [](const Rok##t* s, int ss, Rok##t* d, int ds, RokiSize r, int sf) {                              \
            return roki##F##_##t##_##L##RSfs(s, ss, d, ds, r, sf); }});                                   \
    rokt::pixel::unary_cases<Rok##t>().push_back({#F "_" #t "_" #L "IRSfs", OP, CH, AC, true,             \
        [](const Rok##t* s, int ss, Rok##t* d, int ds, RokiSize r, int sf) {                              \
            rokt::arith::copy_rows(s, ss, d, ds, r, CH, AC); return roki##F##_##t##_##L##IRSfs(d, ds, r, sf); }});

}  // namespace rokt::pixel
