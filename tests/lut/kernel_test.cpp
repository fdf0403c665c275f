// The byte shuffle kernels against plain indexing: every length up to 300,
// every start offset within a register, in place and not, with the buffers'
// far ends against protected pages.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "guarded.h"
#include "kernels/lut/lut.h"

namespace {

using rokt::Guard;
using rokt::GuardedBuffer;

TEST(LutKernel, BytesMatchIndexing) {
    std::mt19937 rng(3);
    Rok8u table[256];
    for (auto& t : table) t = Rok8u(rng());
    for (std::size_t n = 1; n <= 300; ++n) {
        for (std::size_t offset : {0u, 1u, 13u, 31u}) {
            GuardedBuffer src(n + offset, Guard::After), dst(n + offset, Guard::Before);
            for (std::size_t i = 0; i < src.size(); ++i) src.data()[i] = Rok8u(rng());
            std::memset(dst.data(), 0x5A, dst.size());
            rok::kernels::lut_8u(src.data() + offset, dst.data() + offset, n, table);
            for (std::size_t i = 0; i < offset; ++i) ASSERT_EQ(dst.data()[i], 0x5A);
            for (std::size_t i = 0; i < n; ++i)
                ASSERT_EQ(dst.data()[offset + i], table[src.data()[offset + i]]) << "n=" << n << " offset=" << offset;
            // In place over the same bytes.
            std::vector<Rok8u> want(n);
            for (std::size_t i = 0; i < n; ++i) want[i] = table[src.data()[offset + i]];
            rok::kernels::lut_8u(src.data() + offset, src.data() + offset, n, table);
            ASSERT_EQ(std::memcmp(src.data() + offset, want.data(), n), 0) << "in place n=" << n;
        }
    }
}

// Every value at every byte of a register: a lane or bit-select slip in the
// vector path shows up as a wrong entry for some value at some position.
TEST(LutKernel, EveryEntryAtEveryPosition) {
    std::mt19937 rng(5);
    Rok8u table[256];
    for (auto& t : table) t = Rok8u(rng());
    const std::size_t n = 256 * 32 + 37;
    for (std::size_t offset : {0u, 7u}) {
        GuardedBuffer src(n + offset, Guard::After), dst(n + offset, Guard::After);
        for (std::size_t i = 0; i < n; ++i) src.data()[offset + i] = Rok8u(i / 32 + 8 * (i % 32));
        rok::kernels::lut_8u(src.data() + offset, dst.data() + offset, n, table);
        for (std::size_t i = 0; i < n; ++i)
            ASSERT_EQ(dst.data()[offset + i], table[src.data()[offset + i]]) << "i=" << i << " offset=" << offset;
    }
}

TEST(LutKernel, AlphaKeepingBytesMatchIndexing) {
    std::mt19937 rng(4);
    Rok8u table[256];
    for (auto& t : table) t = Rok8u(rng());
    for (std::size_t pixels = 1; pixels <= 80; ++pixels) {
        for (std::size_t offset : {0u, 4u, 5u, 30u}) {
            const std::size_t n = 4 * pixels;
            GuardedBuffer src(n + offset, Guard::Before), dst(n + offset, Guard::After);
            for (std::size_t i = 0; i < n + offset; ++i) {
                src.data()[i] = Rok8u(rng());
                dst.data()[i] = Rok8u(rng());
            }
            std::vector<Rok8u> want(dst.data(), dst.data() + n + offset);
            for (std::size_t i = 0; i < n; ++i)
                if (i % 4 != 3) want[offset + i] = table[src.data()[offset + i]];
            rok::kernels::lut_8u_ac4(src.data() + offset, dst.data() + offset, pixels, table);
            ASSERT_EQ(std::memcmp(dst.data(), want.data(), n + offset), 0) << "pixels=" << pixels << " offset=" << offset;
        }
    }
}

}  // namespace

namespace {

// Per-channel tables on three- and four-channel pixels: every pixel count up
// to 70 and a long row (every period split and tail), odd start offsets,
// in place and not, the channel beyond `processed` never written.
TEST(LutKernel, ChannelTablesMatchIndexing) {
    std::mt19937 rng(6);
    Rok8u tables[4][256];
    for (auto& t : tables)
        for (auto& v : t) v = Rok8u(rng());
    const std::uint8_t* tp[4] = {tables[0], tables[1], tables[2], tables[3]};
    struct Shape {
        int nc, processed;
    };
    for (const Shape s : {Shape{3, 3}, Shape{4, 4}, Shape{4, 3}}) {
        std::vector<std::size_t> counts;
        for (std::size_t p = 1; p <= 70; ++p) counts.push_back(p);
        counts.push_back(1001);
        for (const std::size_t pixels : counts) {
            for (const std::size_t offset : {0u, 3u}) {
                const std::size_t n = pixels * std::size_t(s.nc);
                GuardedBuffer src(n + offset, Guard::After), dst(n + offset, Guard::After);
                for (std::size_t i = 0; i < n + offset; ++i) {
                    src.data()[i] = Rok8u(rng());
                    dst.data()[i] = Rok8u(rng());
                }
                std::vector<Rok8u> want(dst.data(), dst.data() + n + offset);
                for (std::size_t i = 0; i < n; ++i) {
                    const int c = int(i % std::size_t(s.nc));
                    if (c < s.processed) want[offset + i] = tables[c][src.data()[offset + i]];
                }
                rok::kernels::lut_channels(src.data() + offset, dst.data() + offset, pixels, s.nc, s.processed, tp, 0);
                ASSERT_EQ(std::memcmp(dst.data(), want.data(), n + offset), 0)
                    << "nc=" << s.nc << " processed=" << s.processed << " pixels=" << pixels << " offset=" << offset;
                // In place: the source row becomes the result.
                std::memcpy(want.data(), src.data(), n + offset);
                for (std::size_t i = 0; i < n; ++i) {
                    const int c = int(i % std::size_t(s.nc));
                    if (c < s.processed) want[offset + i] = tables[c][src.data()[offset + i]];
                }
                rok::kernels::lut_channels(src.data() + offset, src.data() + offset, pixels, s.nc, s.processed, tp, 0);
                ASSERT_EQ(std::memcmp(src.data(), want.data(), n + offset), 0)
                    << "in place nc=" << s.nc << " processed=" << s.processed << " pixels=" << pixels;
            }
        }
    }
}

}  // namespace
