// Border extension against a reference built pixel by pixel from the rule:
// every destination pixel names the source pixel (or constant) it must hold.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <vector>

#include "guarded.h"
#include "random.h"
#include "roki.h"

namespace {

using rokt::GuardedImage;

enum class Kind { Replicate, Constant, Wrap };

struct Geometry {
    int srcW, srcH, dstW, dstH, top, left;
};

int clampi(int v, int lo, int hi) { return v < lo ? lo : v > hi ? hi : v; }
int modp(int a, int m) { return ((a % m) + m) % m; }

// Expected destination bytes: start from the canary-filled image, then put
// the rule's value into every processed channel of every pixel.
template <class T>
std::vector<std::uint8_t> expected(const GuardedImage<T>& src, const GuardedImage<T>& dst, Kind kind, Geometry g,
                                   const T* value, int processed) {
    GuardedImage<T> out(dst.width(), dst.height(), dst.channels(), dst.step() / int(sizeof(T)) - dst.width() * dst.channels());
    std::vector<std::uint8_t> bytes = dst.bytes();
    std::memcpy(out.data(), bytes.data(), bytes.size());
    for (int Y = 0; Y < g.dstH; ++Y)
        for (int X = 0; X < g.dstW; ++X) {
            const int x = X - g.left, y = Y - g.top;
            const bool inside = x >= 0 && x < g.srcW && y >= 0 && y < g.srcH;
            for (int c = 0; c < processed; ++c) {
                T v;
                if (kind == Kind::Constant && !inside)
                    v = value[c];
                else if (kind == Kind::Wrap)
                    v = src.at(modp(x, g.srcW), modp(y, g.srcH), c);
                else
                    v = src.at(clampi(x, 0, g.srcW - 1), clampi(y, 0, g.srcH - 1), c);
                out.at(X, Y, c) = v;
            }
        }
    return out.bytes();
}

using RFn = std::function<RokStatus(const void*, int, RokiSize, void*, int, RokiSize, int, int, const void*)>;
using IRFn = std::function<RokStatus(void*, int, RokiSize, RokiSize, int, int)>;

template <class T>
struct BorderCase {
    const char* name;
    Kind kind;
    int channels, processed;
    RFn r;
    IRFn ir;  // may be empty
};

#define R_FN(fn, T) \
    [](const void* s, int ss, RokiSize sr, void* d, int ds, RokiSize dr, int t, int l, const void*) { \
        return fn(static_cast<const T*>(s), ss, sr, static_cast<T*>(d), ds, dr, t, l); }
#define CONST1_FN(fn, T) \
    [](const void* s, int ss, RokiSize sr, void* d, int ds, RokiSize dr, int t, int l, const void* v) { \
        return fn(static_cast<const T*>(s), ss, sr, static_cast<T*>(d), ds, dr, t, l, *static_cast<const T*>(v)); }
#define CONSTN_FN(fn, T) \
    [](const void* s, int ss, RokiSize sr, void* d, int ds, RokiSize dr, int t, int l, const void* v) { \
        return fn(static_cast<const T*>(s), ss, sr, static_cast<T*>(d), ds, dr, t, l, static_cast<const T*>(v)); }
#define IR_FN(fn, T) \
    [](void* p, int st, RokiSize sr, RokiSize dr, int t, int l) { return fn(static_cast<T*>(p), st, sr, dr, t, l); }

const Geometry kGeometries[] = {
    {1, 1, 1, 1, 0, 0},   {5, 3, 5, 3, 0, 0},    {1, 1, 7, 5, 2, 3},    {7, 4, 12, 9, 2, 3},
    {33, 5, 40, 8, 1, 6}, {20, 2, 64, 7, 3, 21}, {3, 2, 20, 11, 5, 7}, {70, 3, 75, 6, 0, 5},
};

template <class T>
void run_cases(const std::vector<BorderCase<T>>& cases) {
    for (const auto& bc : cases) {
        for (const Geometry& g : kGeometries) {
            SCOPED_TRACE(testing::Message() << bc.name << " src " << g.srcW << "x" << g.srcH << " dst " << g.dstW
                                            << "x" << g.dstH << " top " << g.top << " left " << g.left);
            GuardedImage<T> src(g.srcW, g.srcH, bc.channels, 3);
            rokt::fill_random(src, 7u + unsigned(g.srcW));
            GuardedImage<T> dst(g.dstW, g.dstH, bc.channels, 1);
            dst.fill_bytes(0xA5);
            const T value[4] = {T(11), T(22), T(33), T(44)};
            const auto want = expected(src, dst, bc.kind, g, value, bc.processed);
            ASSERT_EQ(bc.r(src.data(), src.step(), {g.srcW, g.srcH}, dst.data(), dst.step(), {g.dstW, g.dstH},
                           g.top, g.left, value),
                      rokStatusOk);
            EXPECT_EQ(dst.bytes(), want);
            if (!bc.ir) continue;
            // In place: the source sits inside the destination image already.
            GuardedImage<T> buf(g.dstW, g.dstH, bc.channels, 1);
            buf.fill_bytes(0xA5);
            for (int y = 0; y < g.srcH; ++y)
                std::memcpy(&buf.at(g.left, g.top + y), src.row(y), std::size_t(g.srcW) * bc.channels * sizeof(T));
            auto wantIR = want;
            if (bc.processed != bc.channels) {  // AC4: the source's own alpha stays in place
                GuardedImage<T> tmp(g.dstW, g.dstH, bc.channels, 1);
                std::memcpy(tmp.data(), want.data(), want.size());
                for (int y = 0; y < g.srcH; ++y)
                    for (int x = 0; x < g.srcW; ++x) tmp.at(g.left + x, g.top + y, 3) = src.at(x, y, 3);
                wantIR = tmp.bytes();
            }
            ASSERT_EQ(bc.ir(&buf.at(g.left, g.top), buf.step(), {g.srcW, g.srcH}, {g.dstW, g.dstH}, g.top, g.left),
                      rokStatusOk);
            EXPECT_EQ(buf.bytes(), wantIR);
        }
    }
}

TEST(Border, WrapMembers) {
    run_cases<Rok32s>({{"Wrap 32s C1", Kind::Wrap, 1, 1, R_FN(rokiCopyWrapBorder_32s_C1R, Rok32s),
                        IR_FN(rokiCopyWrapBorder_32s_C1IR, Rok32s)}});
    run_cases<Rok32f>({{"Wrap 32f C1", Kind::Wrap, 1, 1, R_FN(rokiCopyWrapBorder_32f_C1R, Rok32f),
                        IR_FN(rokiCopyWrapBorder_32f_C1IR, Rok32f)}});
}

#define REPLICATE4(T, S)                                                                                          \
    {"Replicate " #T " C1", Kind::Replicate, 1, 1, R_FN(rokiCopyReplicateBorder_##T##_C1R, S),                       \
     IR_FN(rokiCopyReplicateBorder_##T##_C1IR, S)},                                                                 \
        {"Replicate " #T " C3", Kind::Replicate, 3, 3, R_FN(rokiCopyReplicateBorder_##T##_C3R, S),                   \
         IR_FN(rokiCopyReplicateBorder_##T##_C3IR, S)},                                                             \
        {"Replicate " #T " C4", Kind::Replicate, 4, 4, R_FN(rokiCopyReplicateBorder_##T##_C4R, S),                   \
         IR_FN(rokiCopyReplicateBorder_##T##_C4IR, S)},                                                             \
        {"Replicate " #T " AC4", Kind::Replicate, 4, 3, R_FN(rokiCopyReplicateBorder_##T##_AC4R, S),                 \
         IR_FN(rokiCopyReplicateBorder_##T##_AC4IR, S)},                                                            \
        {"Const " #T " C1", Kind::Constant, 1, 1, CONST1_FN(rokiCopyConstBorder_##T##_C1R, S), {}},                  \
        {"Const " #T " C3", Kind::Constant, 3, 3, CONSTN_FN(rokiCopyConstBorder_##T##_C3R, S), {}},                  \
        {"Const " #T " C4", Kind::Constant, 4, 4, CONSTN_FN(rokiCopyConstBorder_##T##_C4R, S), {}},                  \
    {                                                                                                               \
        "Const " #T " AC4", Kind::Constant, 4, 3, CONSTN_FN(rokiCopyConstBorder_##T##_AC4R, S), {}                   \
    }

// Every replicate and constant member of every type.
TEST(Border, EveryMemberOfEveryType) {
    run_cases<Rok8u>({REPLICATE4(8u, Rok8u)});
    run_cases<Rok16s>({REPLICATE4(16s, Rok16s)});
    run_cases<Rok16u>({REPLICATE4(16u, Rok16u)});
    run_cases<Rok32s>({REPLICATE4(32s, Rok32s)});
    run_cases<Rok32f>({REPLICATE4(32f, Rok32f)});
}

TEST(Border, WrapLeftBorderWiderThanTwoSources) {
    const Rok32s src[3] = {1, 2, 3};
    Rok32s dst[10] = {};
    ASSERT_EQ(rokiCopyWrapBorder_32s_C1R(src, 12, {3, 1}, dst, 40, {10, 1}, 0, 7), rokStatusOk);
    const Rok32s want[10] = {3, 1, 2, 3, 1, 2, 3, 1, 2, 3};
    for (int i = 0; i < 10; ++i) EXPECT_EQ(dst[i], want[i]) << i;
}

TEST(Border, ReplicateWithEqualPointersActsInPlaceWithTheDestinationStep) {
    // 2x2 source at (1, 1) of a 4x4 image with step 4; the source step given
    // (1) is not the one used.
    Rok8u img[16] = {0, 0, 0, 0, 0, 1, 2, 0, 0, 3, 4, 0, 0, 0, 0, 0};
    ASSERT_EQ(rokiCopyReplicateBorder_8u_C1R(img + 5, 1, {2, 2}, img + 5, 4, {4, 4}, 1, 1), rokStatusOk);
    const Rok8u want[16] = {1, 1, 2, 2, 1, 1, 2, 2, 3, 3, 4, 4, 3, 3, 4, 4};
    for (int i = 0; i < 16; ++i) EXPECT_EQ(img[i], want[i]) << i;
}

TEST(Border, ChecksInOrderWriteNothing) {
    GuardedImage<Rok8u> src(4, 4, 3);
    GuardedImage<Rok8u> dst(8, 8, 3);
    dst.fill_bytes(0x5A);
    const auto before = dst.bytes();
    const Rok8u v[3] = {1, 2, 3};
    struct Check {
        RokStatus want;
        RokStatus got;
    };
    const Rok8u* s = src.data();
    Rok8u* d = dst.data();
    const int ss = src.step(), ds = dst.step();
    const Check checks[] = {
        {rokStatusNullPtr, rokiCopyReplicateBorder_8u_C3R(nullptr, 0, {0, 0}, d, ds, {8, 8}, 1, 1)},
        {rokStatusBadStep, rokiCopyReplicateBorder_8u_C3R(s, 0, {0, 4}, d, ds, {8, 8}, 1, 1)},
        {rokStatusBadSize, rokiCopyReplicateBorder_8u_C3R(s, ss, {0, 4}, d, ds, {8, 8}, 1, 1)},
        {rokStatusBadSize, rokiCopyReplicateBorder_8u_C3R(s, ss, {4, 4}, d, ds, {8, 8}, -1, 1)},
        {rokStatusBadSize, rokiCopyReplicateBorder_8u_C3R(s, ss, {4, 4}, d, ds, {4 + 2 - 1, 8}, 1, 2)},
        {rokStatusBadSize, rokiCopyReplicateBorder_8u_C3R(s, ss, {4, 4}, d, ds, {8, 4}, 1, 2)},
        {rokStatusBadStep, rokiCopyReplicateBorder_8u_C3IR(d, 0, {4, 4}, {8, 8}, 1, 1)},
        {rokStatusNullPtr, rokiCopyReplicateBorder_8u_C3IR(nullptr, ds, {4, 4}, {8, 8}, 1, 1)},
        {rokStatusBadSize, rokiCopyConstBorder_8u_C3R(s, ss, {4, 4}, d, ds, {8, 8}, 5, 1, nullptr)},
        {rokStatusNullPtr, rokiCopyConstBorder_8u_C3R(s, ss, {4, 4}, d, ds, {8, 8}, 1, 1, nullptr)},
        {rokStatusBadStep, rokiCopyConstBorder_8u_C3R(s, -3, {4, 4}, d, ds, {8, 8}, 1, 1, v)},
        {rokStatusNullPtr, rokiCopyConstBorder_8u_C1R(s, ss, {4, 4}, nullptr, ds, {8, 8}, 1, 1, 0)},
        {rokStatusBadSize, rokiCopyWrapBorder_32s_C1R(reinterpret_cast<const Rok32s*>(s), ss, {4, 4},
                                                      reinterpret_cast<Rok32s*>(d), ds, {4, 4}, 0, 1)},
    };
    for (std::size_t i = 0; i < std::size(checks); ++i) EXPECT_EQ(checks[i].got, checks[i].want) << "check " << i;
    EXPECT_EQ(dst.bytes(), before);
}

}  // namespace
