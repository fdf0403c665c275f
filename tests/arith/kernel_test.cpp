// The vector bodies of the row kernels against the rules, at every length
// 1..70 and every destination offset within a vector, in place included.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "kernels/arith.h"
#include "reference.h"

namespace {

using rok::kernels::ArithOp;
using rok::kernels::arith_row;

TEST(ArithKernels, ScaledProducts8uEveryLengthOffsetAndScale) {
    std::mt19937 rng(7);
    std::vector<Rok8u> a(160), b(160), d(160), in_place(160);
    for (auto& v : a) v = Rok8u(rng());
    for (auto& v : b) v = Rok8u(rng());
    for (int sf = 0; sf <= 9; ++sf)
        for (int off = 0; off < 32; off += 3)
            for (int n = 1; n <= 70; ++n) {
                arith_row<ArithOp::Mul, Rok8u>(a.data() + 1, b.data() + 2, d.data() + off, n, sf, 1);
                in_place = b;
                arith_row<ArithOp::Mul, Rok8u>(a.data() + 1, in_place.data() + 2, in_place.data() + 2, n, sf, 1);
                for (int i = 0; i < n; ++i) {
                    const Rok8u want = rokt::ref::scale<Rok8u>(rokt::ref::Wide(a[1 + i]) * b[2 + i], sf);
                    ASSERT_EQ(d[off + i], want) << "sf " << sf << " off " << off << " n " << n << " i " << i;
                    ASSERT_EQ(in_place[2 + i], want) << "in place, sf " << sf << " n " << n << " i " << i;
                }
            }
}

TEST(ArithKernels, SaturatingAddSub8uAnd16sEveryLength) {
    std::mt19937 rng(9);
    std::vector<Rok8u> a(100), b(100), d(100);
    std::vector<Rok16s> p(100), q(100), r(100);
    for (int i = 0; i < 100; ++i) a[i] = Rok8u(rng()), b[i] = Rok8u(rng()), p[i] = Rok16s(rng()), q[i] = Rok16s(rng());
    for (int off = 0; off < 17; ++off)
        for (int n = 1; n <= 70; ++n) {
            arith_row<ArithOp::Sub, Rok8u>(a.data(), b.data() + 3, d.data() + off, n, 0, 1);
            arith_row<ArithOp::Add, Rok16s>(p.data() + 1, q.data(), r.data() + off / 2, n, 0, 1);
            for (int i = 0; i < n; ++i) {
                ASSERT_EQ(d[off + i], rokt::ref::saturate<Rok8u>(int(b[3 + i]) - a[i])) << n;
                ASSERT_EQ(r[off / 2 + i], rokt::ref::saturate<Rok16s>(int(p[1 + i]) + q[i])) << n;
            }
        }
}

}  // namespace
