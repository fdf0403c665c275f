// The extrema row kernels against plain scalar extremes: every length 1..70,
// every destination offset within a vector, the channel distances of C1, C3
// and C4, rows whose last (or first) byte touches a protected page, and the
// in-place doubling pass (destination = first source, second source ahead).
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <memory>
#include <random>
#include <vector>

#include "guarded.h"
#include "kernels/morph/extrema.h"
#include "random.h"

namespace {

using rok::kernels::Extremum;
using rokt::Guard;
using rokt::GuardedBuffer;

template <class T>
T pick(Extremum e, T a, T b) {
    return e == Extremum::Max ? std::max(a, b) : std::min(a, b);
}

// A row of n samples in its own guarded buffer, random over the type's range.
template <class T>
struct Row {
    Row(int n, Guard g, std::mt19937& rng) : buf(std::size_t(n) * sizeof(T), g) {
        for (int i = 0; i < n; ++i) data()[i] = rokt::random_value<T>(rng);
    }
    T* data() { return reinterpret_cast<T*>(buf.data()); }
    GuardedBuffer buf;
};

template <class T, Extremum E>
void rows_kernel() {
    std::mt19937 rng(7);
    constexpr int kLanes = 32 / int(sizeof(T));
    for (int count : {1, 2, 3, 5, 9})
        for (int n = 1; n <= 70; ++n)
            for (int offset : {0, 1, kLanes - 1}) {
                const Guard g = (n + offset) % 2 ? Guard::After : Guard::Before;
                std::vector<std::unique_ptr<Row<T>>> rows;
                std::vector<const T*> src;
                for (int k = 0; k < count; ++k) {
                    rows.push_back(std::make_unique<Row<T>>(n, g, rng));
                    src.push_back(rows.back()->data());
                }
                GuardedBuffer out((std::size_t(n) + offset) * sizeof(T), g);
                T* dst = reinterpret_cast<T*>(out.data()) + offset;
                // Streaming stores (count 2) on aligned and unaligned rows.
                rok::kernels::extrema_rows<T, E>(src.data(), count, dst, n, offset != 1);
                for (int i = 0; i < n; ++i) {
                    T want = src[0][i];
                    for (int k = 1; k < count; ++k) want = pick(E, want, src[std::size_t(k)][i]);
                    ASSERT_EQ(dst[i], want) << "count " << count << " n " << n << " offset " << offset << " i " << i;
                }
            }
    // Two results over shared sources and sources of their own.
    for (int ns : {1, 3})
        for (int own : {0, 1, 2})
            for (int n = 1; n <= 70; ++n) {
                const int other = own == 2 ? 1 : own;  // the second result's own sources
                std::vector<std::unique_ptr<Row<T>>> rows;
                std::vector<const T*> src;
                for (int k = 0; k < ns + own + other; ++k) {
                    rows.push_back(std::make_unique<Row<T>>(n, n % 2 ? Guard::After : Guard::Before, rng));
                    src.push_back(rows.back()->data());
                }
                GuardedBuffer out0(std::size_t(n + 1) * sizeof(T), Guard::After), out1(std::size_t(n) * sizeof(T), Guard::Before);
                T* d0 = reinterpret_cast<T*>(out0.data()) + 1;
                T* d1 = reinterpret_cast<T*>(out1.data());
                const T* const* shared = src.data();
                const T* const* first = shared + ns;
                const T* const* second = first + own;
                rok::kernels::extrema_rows_shared<T, E>(shared, ns, first, own, second, other, d0, d1, n);
                for (int i = 0; i < n; ++i) {
                    T mid = shared[0][i];
                    for (int k = 1; k < ns; ++k) mid = pick(E, mid, shared[k][i]);
                    T a = mid, b = mid;
                    for (int k = 0; k < own; ++k) a = pick(E, a, first[k][i]);
                    for (int k = 0; k < other; ++k) b = pick(E, b, second[k][i]);
                    ASSERT_EQ(d0[i], a) << "shared " << ns << " own " << own << " n " << n << " i " << i;
                    ASSERT_EQ(d1[i], b) << "shared " << ns << " own " << own << " n " << n << " i " << i;
                }
            }
    // In place, the second source d samples ahead: the doubling pass.
    for (int d : {1, 3, 4, 8, 33})
        for (int n = 1; n <= 70; ++n) {
            Row<T> row(n + d, Guard::After, rng);
            const std::vector<T> before(row.data(), row.data() + n + d);
            const T* src[2] = {row.data(), row.data() + d};
            rok::kernels::extrema_rows<T, E>(src, 2, row.data(), n);
            for (int i = 0; i < n; ++i)
                ASSERT_EQ(row.data()[i], pick(E, before[std::size_t(i)], before[std::size_t(i + d)]))
                    << "in place, distance " << d << " n " << n << " i " << i;
            for (int i = n; i < n + d; ++i) ASSERT_EQ(row.data()[i], before[std::size_t(i)]);
        }
}

// Lengths 1..70 and past three vectors of bytes, where one channel's
// samples stream through the registers.
std::vector<int> lengths() {
    std::vector<int> n;
    for (int i = 1; i <= 70; ++i) n.push_back(i);
    for (int i : {95, 96, 97, 100, 113, 127, 128, 129, 150, 161, 190, 200, 257}) n.push_back(i);
    return n;
}

template <class T, Extremum E>
void doubling_kernel() {
    std::mt19937 rng(13);
    for (int levels = 1; levels <= 3; ++levels)
        for (int n : lengths()) {
            const int span = 1 << levels;
            Row<T> v(n + span - 1, n % 2 ? Guard::After : Guard::Before, rng);
            GuardedBuffer out(std::size_t(n) * sizeof(T), n % 2 ? Guard::Before : Guard::After);
            T* d = reinterpret_cast<T*>(out.data());
            rok::kernels::extrema_doubling<T, E>(v.data(), d, n, levels);
            for (int i = 0; i < n; ++i) {
                T want = v.data()[i];
                for (int t = 1; t < span; ++t) want = pick(E, want, v.data()[i + t]);
                ASSERT_EQ(d[i], want) << "doubling, levels " << levels << " n " << n << " i " << i;
            }
        }
}

// The fused rectangle row: every doubling level with every rest the kernel
// takes, the running extremum written apart, in place over its row or not
// at all.
template <class T, Extremum E>
void rect_kernel() {
    std::mt19937 rng(17);
    for (int levels = 1; levels <= (sizeof(T) <= 4 ? 4 : 3); ++levels)
        for (int rest = 0; rest <= (1 << levels) && rest * int(sizeof(T)) <= 32; ++rest)
            for (int n : lengths()) {
                    const int keep = (n + rest) % 3;  // mOut: none, its own row, b itself
                    const int width = (1 << levels) + rest, samples = n + width - 1;
                    const Guard g = (n + rest) % 2 ? Guard::After : Guard::Before;
                    Row<T> a(samples, g, rng), b(samples, g, rng), c(samples, g, rng);
                    GuardedBuffer mBuf(std::size_t(samples) * sizeof(T), g);
                    GuardedBuffer out(std::size_t(n) * sizeof(T), g == Guard::After ? Guard::Before : Guard::After);
                    std::vector<T> m(static_cast<std::size_t>(samples)), col(m.size());
                    for (int i = 0; i < samples; ++i) {
                        m[std::size_t(i)] = pick(E, b.data()[i], c.data()[i]);
                        col[std::size_t(i)] = pick(E, a.data()[i], m[std::size_t(i)]);
                    }
                    T* mOut = keep == 0 ? nullptr : keep == 1 ? reinterpret_cast<T*>(mBuf.data()) : b.data();
                    T* d = reinterpret_cast<T*>(out.data());
                    const bool stream = n % 4 < 2;
                    rok::kernels::extrema_rect_row<T, E>(a.data(), b.data(), c.data(), mOut, d, n, levels, rest, stream,
                                                         n % 3 == 0);
                    for (int i = 0; i < n; ++i) {
                        T want = col[std::size_t(i)];
                        for (int t = 1; t < width; ++t) want = pick(E, want, col[std::size_t(i + t)]);
                        ASSERT_EQ(d[i], want) << "rect, width " << width << " keep " << keep << " stream " << stream
                                              << " n " << n << " i " << i;
                    }
                    for (int i = 0; i < samples && mOut != nullptr; ++i)
                        ASSERT_EQ(mOut[i], m[std::size_t(i)]) << "rect running, width " << width << " n " << n;
                }
}

// Two rectangle rows in one pass: row 1's running extremum chained to row
// 0's or its own, written apart, over row 0's b or over row 1's b, or not.
template <class T, Extremum E>
void rect_pair_kernel() {
    if constexpr (sizeof(T) <= 4) {
        std::mt19937 rng(23);
        for (int levels = 1; levels <= 4; ++levels)
            for (int rest = 0; rest <= (1 << levels); ++rest) {
                if ((1 << (levels - 1)) * int(sizeof(T)) > 16) continue;
                for (int n : lengths()) {
                    const int width = (1 << levels) + rest, samples = n + width - 1;
                    const bool chain = (n + rest) % 2 == 0;
                    const int keep = (n / 2 + rest) % 4;  // mOut: none, its own row, b0, b1
                    const Guard g = (n + levels) % 2 ? Guard::After : Guard::Before;
                    std::vector<std::unique_ptr<Row<T>>> rows;
                    for (int k = 0; k < 6; ++k) rows.push_back(std::make_unique<Row<T>>(samples, g, rng));
                    T *a0 = rows[0]->data(), *b0 = rows[1]->data(), *c0 = rows[2]->data();
                    T *a1 = rows[3]->data(), *b1 = rows[4]->data(), *c1 = rows[5]->data();
                    std::vector<T> col0(static_cast<std::size_t>(samples)), col1(col0.size()), m1(col0.size());
                    for (std::size_t i = 0; i < col0.size(); ++i) {
                        const T m0 = pick(E, b0[i], c0[i]);
                        m1[i] = pick(E, chain ? m0 : b1[i], c1[i]);
                        col0[i] = pick(E, a0[i], m0);
                        col1[i] = pick(E, a1[i], m1[i]);
                    }
                    GuardedBuffer mBuf(std::size_t(samples) * sizeof(T), g);
                    GuardedBuffer out0(std::size_t(n) * sizeof(T), g), out1((std::size_t(n) + 1) * sizeof(T), g);
                    T* mOut = keep == 0 ? nullptr : keep == 1 ? reinterpret_cast<T*>(mBuf.data()) : keep == 2 ? b0 : b1;
                    T* d0 = reinterpret_cast<T*>(out0.data());
                    // Streaming stores where the rows are aligned for them: row 1
                    // one sample off, or row 0 as well.
                    const bool stream = n % 4 < 2;
                    T* d1 = reinterpret_cast<T*>(out1.data()) + (n % 8 < 4 ? 1 : 0);
                    // Bytes of odd lengths keep their runs in scratch rows
                    // (guarded: n + rest samples are all they may touch).
                    const bool runs = sizeof(T) == 1 && n % 2 == 1;
                    GuardedBuffer s0(runs ? std::size_t(n + rest) * sizeof(T) : 1, g),
                        s1(runs ? std::size_t(n + rest) * sizeof(T) : 1, g);
                    rok::kernels::extrema_rect_pair<T, E>(a0, b0, c0, a1, b1, c1, chain, mOut, d0, d1, n, levels, rest,
                                                          stream, runs ? reinterpret_cast<T*>(s0.data()) : nullptr,
                                                          runs ? reinterpret_cast<T*>(s1.data()) : nullptr);
                    for (int i = 0; i < n; ++i) {
                        T w0 = col0[std::size_t(i)], w1 = col1[std::size_t(i)];
                        for (int t = 1; t < width; ++t) {
                            w0 = pick(E, w0, col0[std::size_t(i + t)]);
                            w1 = pick(E, w1, col1[std::size_t(i + t)]);
                        }
                        ASSERT_EQ(d0[i], w0) << "pair row 0, width " << width << " chain " << chain << " keep " << keep
                                             << " stream " << stream << " runs " << runs << " n " << n << " i " << i;
                        ASSERT_EQ(d1[i], w1) << "pair row 1, width " << width << " chain " << chain << " keep " << keep << " n " << n << " i " << i;
                    }
                    for (int i = 0; i < samples && mOut != nullptr; ++i)
                        ASSERT_EQ(mOut[i], m1[std::size_t(i)]) << "pair running, width " << width << " keep " << keep << " n " << n;
                }
            }
    }
}

// Float pairs against two passes of the one-row kernel, bit for bit, over
// samples full of NaNs of both signs and zeros of both signs: the pair must
// resolve them by the same pairs in the same operand order.
template <Extremum E>
void rect_pair_matches_rows() {
    std::mt19937 rng(29);
    const float pool[] = {std::numeric_limits<float>::quiet_NaN(), -std::numeric_limits<float>::quiet_NaN(), 0.0f, -0.0f,
                          1.0f, -1.0f};
    for (int levels = 1; levels <= 3; ++levels)
        for (int rest = 0; rest <= (1 << levels); ++rest)
            for (int n : lengths())
                for (bool chain : {false, true}) {
                    const int width = (1 << levels) + rest, samples = n + width - 1;
                    std::vector<std::vector<float>> r(6, std::vector<float>(std::size_t(samples)));
                    for (auto& row : r)
                        for (float& v : row) v = pool[rng() % 6];
                    std::vector<float> pairM(r[1]), rowM(r[1]), d0(static_cast<std::size_t>(n)), d1(d0), e0(d0), e1(d0);
                    // Row 1 extends row 0's running extremum (kept in place in
                    // b0's copy), or reads a b of its own with nothing kept.
                    rok::kernels::extrema_rect_pair<Rok32f, E>(r[0].data(), chain ? pairM.data() : r[1].data(), r[2].data(),
                                                              r[3].data(), r[4].data(), r[5].data(), chain,
                                                              chain ? pairM.data() : nullptr, d0.data(), d1.data(), n,
                                                              levels, rest);
                    float* keep = chain ? rowM.data() : nullptr;
                    rok::kernels::extrema_rect_row<Rok32f, E>(r[0].data(), chain ? rowM.data() : r[1].data(), r[2].data(),
                                                             keep, e0.data(), n, levels, rest);
                    rok::kernels::extrema_rect_row<Rok32f, E>(r[3].data(), chain ? rowM.data() : r[4].data(), r[5].data(),
                                                             keep, e1.data(), n, levels, rest);
                    const auto same = [](const std::vector<float>& a, const std::vector<float>& b) {
                        return std::memcmp(a.data(), b.data(), a.size() * sizeof(float)) == 0;
                    };
                    ASSERT_TRUE(same(d0, e0) && same(d1, e1) && same(pairM, rowM))
                        << "levels " << levels << " rest " << rest << " n " << n << " chain " << chain;
                }
}

// Running extrema up a stack of rows, the results at a shared offset.
template <class T, Extremum E>
void suffix_kernel() {
    std::mt19937 rng(19);
    constexpr int kLanes = 32 / int(sizeof(T));
    for (int count : {1, 3, 13})
        for (int n : lengths()) {
            const int offset = n % 3 == 0 ? 0 : n % 3 == 1 ? 1 : kLanes - 1;
            const Guard g = n % 2 ? Guard::After : Guard::Before;
            std::vector<std::unique_ptr<Row<T>>> rows;
            std::vector<std::unique_ptr<GuardedBuffer>> outs;
            std::vector<const T*> src;
            std::vector<T*> dst;
            for (int k = 0; k <= count; ++k) {
                rows.push_back(std::make_unique<Row<T>>(n, g, rng));
                src.push_back(rows.back()->data());
            }
            for (int k = 0; k < count; ++k) {
                outs.push_back(std::make_unique<GuardedBuffer>((std::size_t(n) + offset) * sizeof(T), g));
                dst.push_back(reinterpret_cast<T*>(outs.back()->data()) + offset);
            }
            rok::kernels::extrema_suffixes<T, E>(src.data(), count, dst.data(), n);
            for (int i = 0; i < n; ++i) {
                T want = src[std::size_t(count)][i];
                for (int k = count - 1; k >= 0; --k) {
                    want = pick(E, want, src[std::size_t(k)][i]);
                    ASSERT_EQ(dst[std::size_t(k)][i], want) << "suffix, count " << count << " n " << n << " k " << k;
                }
            }
        }
}

template <class T>
T nine(Extremum e, const T* const* r, int i, int s) {
    T v = r[0][i - s];
    for (int k = 0; k < 3; ++k)
        for (int d = -1; d <= 1; ++d) v = pick(e, v, r[k][i + d * s]);
    return v;
}

template <class T, Extremum E>
void square_kernels() {
    std::mt19937 rng(11);
    constexpr int kLanes = 32 / int(sizeof(T));
    for (int s : {1, 3, 4})
        for (int n : lengths()) {
            const int samples = n * s;
            for (int offset : {0, 1, kLanes / 2}) {
                const Guard g = (n + offset) % 2 ? Guard::After : Guard::Before;
                std::vector<std::unique_ptr<Row<T>>> rows;
                const T* r[4];
                for (int k = 0; k < 4; ++k) {
                    rows.push_back(std::make_unique<Row<T>>(samples + 2 * s, g, rng));
                    r[k] = rows.back()->data() + s;
                }
                GuardedBuffer out0((std::size_t(samples) + offset) * sizeof(T), g);
                GuardedBuffer out1((std::size_t(samples) + 1) * sizeof(T), g);
                T* d0 = reinterpret_cast<T*>(out0.data()) + offset;
                T* d1 = reinterpret_cast<T*>(out1.data()) + 1;
                rok::kernels::extrema_3x3<T, E>(r[0], r[1], r[2], d0, samples, s);
                for (int i = 0; i < samples; ++i)
                    ASSERT_EQ(d0[i], nine(E, r, i, s)) << "single, distance " << s << " n " << n << " i " << i;
                // Streaming stores where both rows are aligned for them.
                if (offset != 1) d1 -= 1;
                rok::kernels::extrema_3x3_pair<T, E>(r[0], r[1], r[2], r[3], d0, d1, samples, s, n % 2 == 0);
                for (int i = 0; i < samples; ++i) {
                    ASSERT_EQ(d0[i], nine(E, r, i, s)) << "pair top, distance " << s << " n " << n << " i " << i;
                    ASSERT_EQ(d1[i], nine(E, r + 1, i, s)) << "pair bottom, distance " << s << " n " << n << " i " << i;
                }
            }
        }
}

template <class T>
void both() {
    rows_kernel<T, Extremum::Min>();
    rows_kernel<T, Extremum::Max>();
    square_kernels<T, Extremum::Min>();
    square_kernels<T, Extremum::Max>();
    doubling_kernel<T, Extremum::Min>();
    doubling_kernel<T, Extremum::Max>();
    rect_kernel<T, Extremum::Min>();
    rect_kernel<T, Extremum::Max>();
    suffix_kernel<T, Extremum::Min>();
    suffix_kernel<T, Extremum::Max>();
    rect_pair_kernel<T, Extremum::Min>();
    rect_pair_kernel<T, Extremum::Max>();
}

TEST(ExtremaKernels, EveryTypeLengthOffsetAndDistance) {
    both<Rok8u>();
    both<Rok16u>();
    both<Rok16s>();
    both<Rok32f>();
    both<Rok64f>();
    rect_pair_matches_rows<Extremum::Min>();
    rect_pair_matches_rows<Extremum::Max>();
}

}  // namespace
