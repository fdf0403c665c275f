// Palettes of every type pair and layout against direct indexing, with each
// table exactly 2^nBitSize entries long against a protected page.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "guarded.h"
#include "random.h"
#include "roki.h"

namespace {

using rokt::Guard;
using rokt::GuardedBuffer;
using rokt::GuardedImage;

enum class Kind { Plain, AlphaZero, Swap, Bytes24 };

template <class S, class D>
struct Palette {
    std::string name;
    Kind kind;
    int srcNc, dstNc, processed;
    // Swap members get the alpha value through `alpha`.
    std::function<RokStatus(const S*, int, D*, int, RokiSize, const D* const*, int, int alpha)> fn;
};

template <class S, class D, class F>
auto single(F f) {
    return [f](const S* s, int ss, D* d, int ds, RokiSize r, const D* const* t, int bits, int) {
        return f(s, ss, d, ds, r, t[0], bits);
    };
}
template <class S, class D, class F>
auto multi(F f) {
    return [f](const S* s, int ss, D* d, int ds, RokiSize r, const D* const* t, int bits, int) {
        return f(s, ss, d, ds, r, t, bits);
    };
}
template <class S, class D, class F>
auto swapped(F f) {
    return [f](const S* s, int ss, D* d, int ds, RokiSize r, const D* const* t, int bits, int alpha) {
        return f(s, ss, alpha, d, ds, r, t, bits);
    };
}

#define ROK_SAME_TYPE(t, T)                                                                          \
    {"LUTPalette_" #t "_C1R", Kind::Plain, 1, 1, 1, single<T, T>(rokiLUTPalette_##t##_C1R)},         \
    {"LUTPalette_" #t "_C3R", Kind::Plain, 3, 3, 3, multi<T, T>(rokiLUTPalette_##t##_C3R)},          \
    {"LUTPalette_" #t "_C4R", Kind::Plain, 4, 4, 4, multi<T, T>(rokiLUTPalette_##t##_C4R)},          \
    {"LUTPalette_" #t "_AC4R", Kind::Plain, 4, 4, 3, multi<T, T>(rokiLUTPalette_##t##_AC4R)},        \
    {"LUTPalette_" #t "_C3A0C4R", Kind::AlphaZero, 3, 4, 3, multi<T, T>(rokiLUTPalette_##t##_C3A0C4R)}, \
    {"LUTPaletteSwap_" #t "_C3A0C4R", Kind::Swap, 3, 4, 3, swapped<T, T>(rokiLUTPaletteSwap_##t##_C3A0C4R)}

template <class S, class D>
std::vector<Palette<S, D>> palettes();
template <>
std::vector<Palette<Rok8u, Rok8u>> palettes() {
    return {ROK_SAME_TYPE(8u, Rok8u),
            {"LUTPalette_8u24u_C1R", Kind::Bytes24, 1, 3, 1, single<Rok8u, Rok8u>(rokiLUTPalette_8u24u_C1R)}};
}
template <>
std::vector<Palette<Rok16u, Rok16u>> palettes() { return {ROK_SAME_TYPE(16u, Rok16u)}; }
template <>
std::vector<Palette<Rok8u, Rok32u>> palettes() {
    return {{"LUTPalette_8u32u_C1R", Kind::Plain, 1, 1, 1, single<Rok8u, Rok32u>(rokiLUTPalette_8u32u_C1R)}};
}
template <>
std::vector<Palette<Rok16u, Rok8u>> palettes() {
    return {{"LUTPalette_16u8u_C1R", Kind::Plain, 1, 1, 1, single<Rok16u, Rok8u>(rokiLUTPalette_16u8u_C1R)},
            {"LUTPalette_16u24u_C1R", Kind::Bytes24, 1, 3, 1, single<Rok16u, Rok8u>(rokiLUTPalette_16u24u_C1R)}};
}
template <>
std::vector<Palette<Rok16u, Rok32u>> palettes() {
    return {{"LUTPalette_16u32u_C1R", Kind::Plain, 1, 1, 1, single<Rok16u, Rok32u>(rokiLUTPalette_16u32u_C1R)}};
}
#undef ROK_SAME_TYPE

template <class S, class D>
void check_palette(const Palette<S, D>& p, int bits, int w, int h, int alpha, std::uint32_t seed) {
    const int entryBytes = p.kind == Kind::Bytes24 ? 3 : int(sizeof(D));
    std::vector<std::unique_ptr<GuardedBuffer>> tables;
    std::vector<const D*> tablePtrs;
    std::mt19937 rng(seed);
    for (int c = 0; c < p.processed; ++c) {
        tables.push_back(std::make_unique<GuardedBuffer>(std::size_t(entryBytes) << bits, Guard::After));
        for (std::size_t i = 0; i < tables.back()->size(); ++i) tables.back()->data()[i] = std::uint8_t(rng());
        tablePtrs.push_back(reinterpret_cast<const D*>(tables.back()->data()));
    }
    GuardedImage<S> src(w, h, p.srcNc, w % 2, seed % 2 ? Guard::After : Guard::Before);
    GuardedImage<D> dst(w, h, p.dstNc, 1);
    rokt::fill_random(src, seed);
    rokt::fill_random(dst, seed + 1);
    auto expected = dst.bytes();
    const unsigned mask = (1u << bits) - 1u;
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            std::uint8_t* px = expected.data() + std::size_t(dst.step()) * y + std::size_t(x) * p.dstNc * sizeof(D);
            for (int c = 0; c < p.processed; ++c) {
                const int from = p.kind == Kind::Swap ? 2 - c : c;
                const std::size_t index = src.at(x, y, from) & mask;
                const int bytes = p.kind == Kind::Bytes24 ? 3 : int(sizeof(D));
                std::memcpy(px + c * sizeof(D), tables[std::size_t(from)]->data() + index * entryBytes, bytes);
            }
            const bool inRange = alpha >= 0 && std::uint64_t(alpha) <= std::numeric_limits<D>::max();
            if (p.kind == Kind::AlphaZero || (p.kind == Kind::Swap && inRange)) {
                const D a = p.kind == Kind::AlphaZero ? D(0) : D(alpha);
                std::memcpy(px + 3 * sizeof(D), &a, sizeof(D));
            }
        }
    ASSERT_EQ(p.fn(src.data(), src.step(), dst.data(), dst.step(), {w, h}, tablePtrs.data(), bits, alpha), rokStatusOk)
        << p.name;
    EXPECT_EQ(dst.bytes(), expected) << p.name << " bits " << bits << " width " << w << " alpha " << alpha;
}

template <class S, class D>
void check_all(std::uint32_t seed) {
    for (const auto& p : palettes<S, D>())
        for (int bits : {1, 3, 8})
            for (int w : {1, 2, 7, 31, 32, 33, 64, 70}) {
                const std::vector<int> alphas = p.kind == Kind::Swap
                                                    ? std::vector<int>{0, 200, 255, 256, 65535, 65536, -1}
                                                    : std::vector<int>{0};
                for (int a : alphas) check_palette(p, bits, w, 3, a, seed + std::uint32_t(w * 7 + bits));
            }
}

TEST(Palette, EveryMemberMatchesDirectIndexing) {
    check_all<Rok8u, Rok8u>(1);
    check_all<Rok16u, Rok16u>(2);
    check_all<Rok8u, Rok32u>(3);
    check_all<Rok16u, Rok8u>(4);
    check_all<Rok16u, Rok32u>(5);
}

// Steps are not checked: a negative source step reads bottom-up.
TEST(Palette, StepsAreNotChecked) {
    const Rok8u src[2][4] = {{0, 1, 2, 3}, {3, 2, 1, 0}};
    const Rok8u table[2] = {10, 20};
    Rok8u dst[2][4] = {};
    ASSERT_EQ(rokiLUTPalette_8u_C1R(src[1], -4, &dst[0][0], 4, {4, 2}, table, 1), rokStatusOk);
    const Rok8u want[2][4] = {{20, 10, 20, 10}, {10, 20, 10, 20}};
    EXPECT_EQ(std::memcmp(dst, want, sizeof dst), 0);
}

TEST(Palette, OrderOfChecks) {
    Rok8u src[16] = {}, dst[64];
    std::memset(dst, 0xA5, sizeof dst);
    const Rok8u t8[256] = {};
    const Rok16u t16[256] = {};
    const Rok8u* tables[3] = {t8, t8, t8};
    const Rok8u* holes[3] = {t8, t8, nullptr};
    const Rok16u src16[4] = {};
    const RokiSize ok{2, 2}, bad{0, 2};
    struct Row {
        const char* what;
        RokStatus got, want;
    };
    const Row rows[] = {
        {"null table", rokiLUTPalette_8u_C1R(src, 2, dst, 2, bad, nullptr, 0), rokStatusNullPtr},
        {"null table array", rokiLUTPalette_8u_C3R(src, 6, dst, 6, ok, nullptr, 0), rokStatusNullPtr},
        {"null third table", rokiLUTPaletteSwap_8u_C3A0C4R(src, 6, 0, dst, 8, ok, holes, 0), rokStatusNullPtr},
        {"null destination", rokiLUTPalette_16u8u_C1R(src16, 4, nullptr, 2, ok, t8, 8), rokStatusNullPtr},
        {"size before bit size", rokiLUTPalette_8u_C1R(src, 2, dst, 2, bad, t8, 0), rokStatusBadSize},
        {"bit size 0", rokiLUTPalette_8u_C1R(src, 2, dst, 2, ok, t8, 0), rokStatusOutOfRange},
        {"bit size 9", rokiLUTPalette_16u_C1R(src16, 4, reinterpret_cast<Rok16u*>(dst), 4, ok, t16, 9),
         rokStatusOutOfRange},
        {"bit size -1", rokiLUTPalette_8u_C3A0C4R(src, 6, dst, 8, ok, tables, -1), rokStatusOutOfRange},
        {"zero step is no error", rokiLUTPalette_8u24u_C1R(src, 0, dst + 32, 0, ok, t8, 1), rokStatusOk},
    };
    for (const auto& r : rows) EXPECT_EQ(r.got, r.want) << r.what;
    for (int i = 0; i < 32; ++i) ASSERT_EQ(dst[i], 0xA5) << i;
}

}  // namespace
