// And, Or, Xor, their constant forms and Not: every export against the bit
// rule over widths 1..70 and wider rows, odd steps, guarded buffers, AC4
// alpha and padding untouched, in place; the check order.
#include <gtest/gtest.h>

#include <functional>
#include <random>
#include <string>
#include <vector>

#include "arith_cases.h"
#include "guarded.h"
#include "pixel_support.h"
#include "roki.h"

namespace rokt::pixel {
namespace {

enum class Bit { And, Or, Xor, Not };

// For constant forms `a` holds the per-channel constants. In-place wrappers
// copy b into d first and run on d.
template <class T>
using LogicFn = std::function<RokStatus(const T* a, int as, const T* b, int bs, T* d, int ds, RokiSize r)>;

template <class T>
struct LogicCase {
    std::string name;
    Bit op;
    int channels;
    bool ac4, constant;
    LogicFn<T> fn;
};

template <class T>
std::vector<LogicCase<T>>& logic_cases() {
    static std::vector<LogicCase<T>> all;
    return all;
}

using rokt::arith::copy_rows;

#define IMG(F, OP, t, L, CH, AC)                                                                                   \
    logic_cases<Rok##t>().push_back({#F "_" #t "_" #L "R", OP, CH, AC, false,                                      \
        [](const Rok##t* a, int as, const Rok##t* b, int bs, Rok##t* d, int ds, RokiSize r) {                    \
            return roki##F##_##t##_##L##R(a, as, b, bs, d, ds, r); }});                                            \
    logic_cases<Rok##t>().push_back({#F "_" #t "_" #L "IR", OP, CH, AC, false,                                     \
        [](const Rok##t* a, int as, const Rok##t* b, int bs, Rok##t* d, int ds, RokiSize r) {                    \
            copy_rows(b, bs, d, ds, r, CH, AC); return roki##F##_##t##_##L##IR(a, as, d, ds, r); }});
#define CON(F, OP, t, L, CH, AC, V)                                                                                \
    logic_cases<Rok##t>().push_back({#F "_" #t "_" #L "R", OP, CH, AC, true,                                       \
        [](const Rok##t* a, int, const Rok##t* b, int bs, Rok##t* d, int ds, RokiSize r) {                        \
            return roki##F##_##t##_##L##R(b, bs, V, d, ds, r); }});                                                \
    logic_cases<Rok##t>().push_back({#F "_" #t "_" #L "IR", OP, CH, AC, true,                                      \
        [](const Rok##t* a, int, const Rok##t* b, int bs, Rok##t* d, int ds, RokiSize r) {                        \
            copy_rows(b, bs, d, ds, r, CH, AC); return roki##F##_##t##_##L##IR(V, d, ds, r); }});
#define NOT(L, CH, AC)                                                                                             \
    logic_cases<Rok8u>().push_back({"Not_8u_" #L "R", Bit::Not, CH, AC, true,                                      \
        [](const Rok8u*, int, const Rok8u* b, int bs, Rok8u* d, int ds, RokiSize r) {                              \
            return rokiNot_8u_##L##R(b, bs, d, ds, r); }});                                                        \
    logic_cases<Rok8u>().push_back({"Not_8u_" #L "IR", Bit::Not, CH, AC, true,                                     \
        [](const Rok8u*, int, const Rok8u* b, int bs, Rok8u* d, int ds, RokiSize r) {                              \
            copy_rows(b, bs, d, ds, r, CH, AC); return rokiNot_8u_##L##IR(d, ds, r); }});
#define LAYOUTS(F, OP, t) IMG(F, OP, t, C1, 1, false) IMG(F, OP, t, C3, 3, false) IMG(F, OP, t, C4, 4, false) IMG(F, OP, t, AC4, 4, true)
#define CLAYOUTS(F, OP, t) CON(F, OP, t, C1, 1, false, a[0]) CON(F, OP, t, C3, 3, false, a) CON(F, OP, t, C4, 4, false, a) CON(F, OP, t, AC4, 4, true, a)
#define TYPES(M, F, OP) M(F, OP, 8u) M(F, OP, 16u) M(F, OP, 32s)

void register_logic() {
    if (!logic_cases<Rok8u>().empty()) return;
    TYPES(LAYOUTS, And, Bit::And) TYPES(LAYOUTS, Or, Bit::Or) TYPES(LAYOUTS, Xor, Bit::Xor)
    TYPES(CLAYOUTS, AndC, Bit::And) TYPES(CLAYOUTS, OrC, Bit::Or) TYPES(CLAYOUTS, XorC, Bit::Xor)
    NOT(C1, 1, false) NOT(C3, 3, false) NOT(C4, 4, false) NOT(AC4, 4, true)
}

template <class T>
T bit_ref(Bit op, T a, T b) {
    return op == Bit::And ? T(a & b) : op == Bit::Or ? T(a | b) : op == Bit::Xor ? T(a ^ b) : T(~b);
}

template <class T>
void run_logic(const LogicCase<T>& c, Roi roi, std::mt19937& rng) {
    const int ch = c.channels;
    GuardedImage<T> a(roi.width, roi.height, ch, 1), b(roi.width, roi.height, ch, 3, Guard::Before),
        d(roi.width, roi.height, ch, 1);
    fill_edgy(a, rng);
    fill_edgy(b, rng);
    d.fill_bytes(0xA5);
    const T values[4] = {edgy<T>(rng), edgy<T>(rng), edgy<T>(rng), edgy<T>(rng)};
    const auto before = d.bytes();
    const RokStatus st = c.fn(c.constant ? values : a.data(), a.step(), b.data(), b.step(), d.data(), d.step(),
                              {roi.width, roi.height});
    ASSERT_EQ(st, rokStatusOk) << c.name;
    ASSERT_TRUE(check_image(d, before, c.ac4, [&](int x, int y, int k) {
        return bit_ref(c.op, c.constant ? values[k] : a.at(x, y, k), b.at(x, y, k));
    })) << c.name << " " << roi.width << "x" << roi.height;
}

template <class T>
void run_every_logic_export() {
    register_logic();
    std::mt19937 rng(41);
    for (const auto& c : logic_cases<T>())
        for (Roi roi : tail_rois()) run_logic(c, roi, rng);
}

TEST(Logic, Every8uExport) { run_every_logic_export<Rok8u>(); }
TEST(Logic, Every16uExport) { run_every_logic_export<Rok16u>(); }
TEST(Logic, Every32sExport) { run_every_logic_export<Rok32s>(); }

TEST(Logic, ExportCount) {
    register_logic();
    EXPECT_EQ(logic_cases<Rok8u>().size() + logic_cases<Rok16u>().size() + logic_cases<Rok32s>().size(), 152u);
}

// Pointers, then steps, then size; nothing written on any error.
TEST(Logic, CheckOrder) {
    Rok8u a[8] = {1, 2, 3, 4, 5, 6, 7, 8}, b[8] = {8, 7, 6, 5, 4, 3, 2, 1}, d[8] = {9, 9, 9, 9, 9, 9, 9, 9};
    const Rok8u v3[3] = {1, 2, 3};
    const RokiSize ok{2, 1}, empty{0, 1};
    struct Row { const char* what; std::function<RokStatus()> call; RokStatus want; };
    const Row rows[] = {
        {"null src1, bad step and size", [&] { return rokiAnd_8u_C1R(nullptr, 0, b, 2, d, 2, empty); }, rokStatusNullPtr},
        {"null dst", [&] { return rokiOr_8u_C1R(a, 2, b, 2, nullptr, 2, ok); }, rokStatusNullPtr},
        {"step 0 with bad size", [&] { return rokiXor_8u_C1R(a, 2, b, 0, d, 2, empty); }, rokStatusBadStep},
        {"negative dst step", [&] { return rokiAnd_8u_C1R(a, 2, b, 2, d, -2, ok); }, rokStatusBadStep},
        {"size", [&] { return rokiAnd_8u_C1R(a, 2, b, 2, d, 2, empty); }, rokStatusBadSize},
        {"in place step 0", [&] { return rokiOr_8u_C1IR(a, 2, d, 0, ok); }, rokStatusBadStep},
        {"const null array", [&] { return rokiAndC_8u_C3R(a, 8, nullptr, d, 8, ok); }, rokStatusNullPtr},
        {"const step before size", [&] { return rokiOrC_8u_C3R(a, 0, v3, d, 8, empty); }, rokStatusBadStep},
        {"const size", [&] { return rokiXorC_8u_C1R(a, 8, 3, d, 8, {1, 0}); }, rokStatusBadSize},
        {"const in place step", [&] { return rokiXorC_8u_C1IR(3, d, -1, ok); }, rokStatusBadStep},
        {"not null", [&] { return rokiNot_8u_C1R(nullptr, 1, d, 1, ok); }, rokStatusNullPtr},
        {"not step before size", [&] { return rokiNot_8u_C1R(a, 0, d, 1, empty); }, rokStatusBadStep},
        {"not in place size", [&] { return rokiNot_8u_AC4IR(d, 8, {0, 0}); }, rokStatusBadSize},
    };
    for (const Row& r : rows) {
        EXPECT_EQ(r.call(), r.want) << r.what;
        for (Rok8u x : d) ASSERT_EQ(x, 9) << r.what << ": written";
    }
}

}  // namespace
}  // namespace rokt::pixel
