#include "arith_cases.h"

namespace rokt::arith {
namespace {

#define ROKT_ARGS const T *a, int as, const T *b, int bs, T *d, int ds, RokiSize r, int sf, int m
#define ROKT_UNUSED (void)sf, (void)m, (void)as

template <class T>
void add(const char* name, Op op, int ch, bool ac4, bool constant, bool scaled, Fn<T> fn) {
    cases<T>().push_back({name, op, ch, ac4, constant, scaled, std::move(fn)});
}

// Two images, scaled integer forms.
#define BIN_SFS(F, OP, t, L, CH, AC)                                                                   \
    {                                                                                                    \
        add<Rok##t>(#F "_" #t "_" #L "RSfs", OP, CH, AC, false, true, [](const Rok##t* a, int as, const Rok##t* b, int bs, Rok##t* d, int ds, RokiSize r, int sf, int m) { \
            (void)m; return roki##F##_##t##_##L##RSfs(a, as, b, bs, d, ds, r, sf); });                   \
        add<Rok##t>(#F "_" #t "_" #L "IRSfs", OP, CH, AC, false, true, [](const Rok##t* a, int as, const Rok##t* b, int bs, Rok##t* d, int ds, RokiSize r, int sf, int m) { \
            (void)m; copy_rows(b, bs, d, ds, r, CH, AC); return roki##F##_##t##_##L##IRSfs(a, as, d, ds, r, sf); }); \
    }
#define BIN_F(F, OP, t, L, CH, AC)                                                                      \
    add<Rok##t>(#F "_" #t "_" #L "R", OP, CH, AC, false, false, [](const Rok##t* a, int as, const Rok##t* b, int bs, Rok##t* d, int ds, RokiSize r, int, int) { \
        return roki##F##_##t##_##L##R(a, as, b, bs, d, ds, r); });                                         \
    add<Rok##t>(#F "_" #t "_" #L "IR", OP, CH, AC, false, false, [](const Rok##t* a, int as, const Rok##t* b, int bs, Rok##t* d, int ds, RokiSize r, int, int) { \
        copy_rows(b, bs, d, ds, r, CH, AC); return roki##F##_##t##_##L##IR(a, as, d, ds, r); });
// Image and constant; C1 takes the constant by value.
#define CON_SFS(F, OP, t, L, CH, AC, V)                                                                 \
    add<Rok##t>(#F "_" #t "_" #L "RSfs", OP, CH, AC, true, true, [](const Rok##t* a, int, const Rok##t* b, int bs, Rok##t* d, int ds, RokiSize r, int sf, int) { \
        return roki##F##_##t##_##L##RSfs(b, bs, V, d, ds, r, sf); });                                      \
    add<Rok##t>(#F "_" #t "_" #L "IRSfs", OP, CH, AC, true, true, [](const Rok##t* a, int, const Rok##t* b, int bs, Rok##t* d, int ds, RokiSize r, int sf, int) { \
        copy_rows(b, bs, d, ds, r, CH, AC); return roki##F##_##t##_##L##IRSfs(V, d, ds, r, sf); });
#define CON_F(F, OP, t, L, CH, AC, V)                                                                   \
    add<Rok##t>(#F "_" #t "_" #L "R", OP, CH, AC, true, false, [](const Rok##t* a, int, const Rok##t* b, int bs, Rok##t* d, int ds, RokiSize r, int, int) { \
        return roki##F##_##t##_##L##R(b, bs, V, d, ds, r); });                                             \
    add<Rok##t>(#F "_" #t "_" #L "IR", OP, CH, AC, true, false, [](const Rok##t* a, int, const Rok##t* b, int bs, Rok##t* d, int ds, RokiSize r, int, int) { \
        copy_rows(b, bs, d, ds, r, CH, AC); return roki##F##_##t##_##L##IR(V, d, ds, r); });
#define DIVR(t, L, CH, AC)                                                                              \
    add<Rok##t>("Div_Round_" #t "_" #L "RSfs", Op::DivRound, CH, AC, false, true, [](const Rok##t* a, int as, const Rok##t* b, int bs, Rok##t* d, int ds, RokiSize r, int sf, int m) { \
        return rokiDiv_Round_##t##_##L##RSfs(a, as, b, bs, d, ds, r, m, sf); });                           \
    add<Rok##t>("Div_Round_" #t "_" #L "IRSfs", Op::DivRound, CH, AC, false, true, [](const Rok##t* a, int as, const Rok##t* b, int bs, Rok##t* d, int ds, RokiSize r, int sf, int m) { \
        copy_rows(b, bs, d, ds, r, CH, AC); return rokiDiv_Round_##t##_##L##IRSfs(a, as, d, ds, r, m, sf); });

#define INT_LAYOUTS(M, F, OP, t)  M(F, OP, t, C1, 1, false) M(F, OP, t, C3, 3, false) M(F, OP, t, C4, 4, false) M(F, OP, t, AC4, 4, true)
#define CPLX_LAYOUTS(M, F, OP, t) M(F, OP, t, C1, 1, false) M(F, OP, t, C3, 3, false) M(F, OP, t, AC4, 4, true)
#define CON_INT_LAYOUTS(M, F, OP, t) M(F, OP, t, C1, 1, false, a[0]) M(F, OP, t, C3, 3, false, a) M(F, OP, t, C4, 4, false, a) M(F, OP, t, AC4, 4, true, a)
#define CON_CPLX_LAYOUTS(M, F, OP, t) M(F, OP, t, C1, 1, false, a[0]) M(F, OP, t, C3, 3, false, a) M(F, OP, t, AC4, 4, true, a)

#define BIN_FAMILY(F, OP)                                                                              \
    INT_LAYOUTS(BIN_SFS, F, OP, 8u) INT_LAYOUTS(BIN_SFS, F, OP, 16u) INT_LAYOUTS(BIN_SFS, F, OP, 16s) \
    CPLX_LAYOUTS(BIN_SFS, F, OP, 16sc) CPLX_LAYOUTS(BIN_SFS, F, OP, 32sc)                              \
    INT_LAYOUTS(BIN_F, F, OP, 32f) CPLX_LAYOUTS(BIN_F, F, OP, 32fc)
#define CON_FAMILY(F, OP)                                                                              \
    CON_INT_LAYOUTS(CON_SFS, F, OP, 8u) CON_INT_LAYOUTS(CON_SFS, F, OP, 16u) CON_INT_LAYOUTS(CON_SFS, F, OP, 16s) \
    CON_CPLX_LAYOUTS(CON_SFS, F, OP, 16sc) CON_CPLX_LAYOUTS(CON_SFS, F, OP, 32sc)                      \
    CON_INT_LAYOUTS(CON_F, F, OP, 32f) CON_CPLX_LAYOUTS(CON_F, F, OP, 32fc)

}  // namespace

void register_all() {
    if (!cases<Rok8u>().empty()) return;
    BIN_FAMILY(Add, Op::Add)
    BIN_FAMILY(Sub, Op::Sub)
    BIN_FAMILY(Mul, Op::Mul)
    BIN_FAMILY(Div, Op::Div)
    CON_FAMILY(AddC, Op::Add)
    CON_FAMILY(SubC, Op::Sub)
    CON_FAMILY(MulC, Op::Mul)
    CON_FAMILY(DivC, Op::Div)
    DIVR(8u, C1, 1, false) DIVR(8u, C3, 3, false) DIVR(8u, C4, 4, false) DIVR(8u, AC4, 4, true)
    DIVR(16u, C1, 1, false) DIVR(16u, C3, 3, false) DIVR(16u, C4, 4, false) DIVR(16u, AC4, 4, true)
    DIVR(16s, C1, 1, false) DIVR(16s, C3, 3, false) DIVR(16s, C4, 4, false) DIVR(16s, AC4, 4, true)
    INT_LAYOUTS(BIN_F, MulScale, Op::MulScale, 8u) INT_LAYOUTS(BIN_F, MulScale, Op::MulScale, 16u)
    CON_INT_LAYOUTS(CON_F, MulCScale, Op::MulScale, 8u) CON_INT_LAYOUTS(CON_F, MulCScale, Op::MulScale, 16u)
}

}  // namespace rokt::arith
