// The one-dimensional engines against the direct DFT in double precision:
// every length from 1 to 70 (every tail of every radix), smooth and
// Bluestein lengths up to 4096, eight different sequences side by side.
#include <gtest/gtest.h>
#include <immintrin.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <random>

#include "kernels/transform/fft_engine.h"
#include "dft_reference.h"

namespace {

namespace fk = rok::kernels::fft;
using rokt::dft::cd;

constexpr int kLanes = fk::kLanes;

struct Free {
    void operator()(void* p) const { std::free(p); }
};
using Block = std::unique_ptr<float, Free>;
Block aligned_block(std::size_t bytes) {
    return Block(static_cast<float*>(std::aligned_alloc(64, (std::max<std::size_t>(bytes, 64) + 63) / 64 * 64)));
}

// A plan built the way the records build it: count, then build in a block.
template <class Plan, class BuildFn>
struct Engine {
    Block block, work;
    const Plan* plan = nullptr;
    Engine(int n, int flag, BuildFn build) {
        fk::Arena counter;
        fk::PlanNeeds needs;
        build(counter, n, flag, needs, nullptr);
        block = aligned_block(counter.used());
        Block init = aligned_block(needs.init_bytes);
        fk::Arena arena(block.get());
        plan = build(arena, n, flag, needs, init.get());
        work = aligned_block(needs.work_bytes);
    }
};
using ComplexEngine = Engine<fk::ComplexPlan, decltype(&fk::build_complex)>;
using RealEngine = Engine<fk::RealPlan, decltype(&fk::build_real)>;

std::vector<int> lengths() {
    std::vector<int> n;
    for (int i = 1; i <= 70; ++i) n.push_back(i);
    for (int i : {96, 100, 121, 127, 128, 243, 343, 625, 1000, 1009, 1024, 2048, 2310, 4096}) n.push_back(i);
    return n;
}

// Eight random sequences, lane l of element k at k * packetFloats + l (real
// parts) and + 8 + l (imaginary parts of complex packets).
std::vector<std::vector<cd>> random_lanes(int n, bool complex, unsigned seed) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<double> d(-1.0, 1.0);
    std::vector<std::vector<cd>> lanes(kLanes, std::vector<cd>(std::size_t(n)));
    for (auto& lane : lanes)
        for (cd& c : lane) c = cd(float(d(rng)), complex ? float(d(rng)) : 0.0f);
    return lanes;
}

// The lanes checked against the direct DFT: all of them for short
// lengths, three (first, middle, last) for long ones.
bool checked(int lane, int n) { return n <= 256 || lane == 0 || lane == 3 || lane == 7; }

// Largest error of lane spectra against their references, over the
// references' RMS (lanes without a reference are skipped).
double relative_error(const std::vector<std::vector<cd>>& got, const std::vector<std::vector<cd>>& want) {
    double err = 0, sum = 0;
    std::size_t count = 0;
    for (std::size_t l = 0; l < got.size(); ++l)
        for (std::size_t k = 0; k < want[l].size(); ++k) {
            err = std::max(err, std::abs(got[l][k] - want[l][k]));
            sum += std::norm(want[l][k]);
            ++count;
        }
    return err / std::sqrt(sum / double(count));
}

TEST(ComplexEngine, MatchesTheDirectDftInBothDirections) {
    for (int n : lengths()) {
        ComplexEngine e(n, rokFftNoDiv, &fk::build_complex);
        const auto x = random_lanes(n, true, unsigned(n));
        // Source packets with a gap between them (stride 24 floats), so the
        // stride is honoured; the destination is dense.
        constexpr int kStride = 24;
        Block src = aligned_block(std::size_t(n) * kStride * sizeof(float));
        Block dst = aligned_block(std::size_t(n) * 16 * sizeof(float));
        for (int dir = 0; dir < 2; ++dir) {
            for (int l = 0; l < kLanes; ++l)
                for (int k = 0; k < n; ++k) {
                    src.get()[k * kStride + l] = float(x[l][k].real());
                    src.get()[k * kStride + 8 + l] = float(x[l][k].imag());
                }
            if (dir == 0)
                fk::complex_forward(e.plan, src.get(), kStride, dst.get(), 16, e.work.get());
            else
                fk::complex_inverse(e.plan, src.get(), kStride, dst.get(), 16, e.work.get());
            std::vector<std::vector<cd>> got(kLanes), want(kLanes);
            for (int l = 0; l < kLanes; ++l) {
                if (checked(l, n)) want[l] = rokt::dft::direct(x[l], dir == 0 ? -1 : 1);
                for (int k = 0; k < n; ++k) got[l].push_back(cd(dst.get()[k * 16 + l], dst.get()[k * 16 + 8 + l]));
            }
            EXPECT_LT(relative_error(got, want), 2e-6) << "n " << n << (dir ? " inverse" : " forward");
        }
        // In place gives the same bits as out of place.
        std::vector<float> outOfPlace(dst.get(), dst.get() + n * 16);
        for (int l = 0; l < kLanes; ++l)
            for (int k = 0; k < n; ++k) {
                dst.get()[k * 16 + l] = float(x[l][k].real());
                dst.get()[k * 16 + 8 + l] = float(x[l][k].imag());
            }
        fk::complex_inverse(e.plan, dst.get(), 16, dst.get(), 16, e.work.get());
        EXPECT_TRUE(std::equal(outOfPlace.begin(), outOfPlace.end(), dst.get())) << "n " << n << " in place";
    }
}

TEST(RealEngine, ForwardGivesThePackedSpectrumAndInverseUndoesIt) {
    for (int n : lengths()) {
        RealEngine e(n, rokFftNoDiv, &fk::build_real);
        const auto x = random_lanes(n, false, unsigned(n) + 7);
        Block packets = aligned_block(std::size_t(n) * kLanes * sizeof(float));
        float* p = packets.get();
        for (int l = 0; l < kLanes; ++l)
            for (int k = 0; k < n; ++k) p[k * kLanes + l] = float(x[l][k].real());
        fk::real_forward(e.plan, p, e.work.get());
        // Unpack by the layout rule and compare with the direct spectrum.
        std::vector<std::vector<cd>> got(kLanes), want(kLanes);
        for (int l = 0; l < kLanes; ++l) {
            if (!checked(l, n)) continue;
            const auto full = rokt::dft::direct(x[l]);
            for (int k = 0; 2 * k <= n; ++k) {
                want[l].push_back(full[std::size_t(k)]);
                double re, im = 0;
                if (k == 0) {
                    re = p[l];
                } else if (2 * k == n) {
                    re = p[(n - 1) * kLanes + l];
                } else {
                    re = p[(2 * k - 1) * kLanes + l];
                    im = p[2 * k * kLanes + l];
                }
                got[l].push_back(cd(re, im));
            }
        }
        EXPECT_LT(relative_error(got, want), 2e-6) << "n " << n;
        fk::real_inverse(e.plan, p, e.work.get());
        double err = 0;
        for (int l = 0; l < kLanes; ++l)
            for (int k = 0; k < n; ++k) err = std::max(err, std::abs(p[k * kLanes + l] / n - x[l][k].real()));
        EXPECT_LT(err, 1e-6) << "n " << n << " round trip";
    }
}

// The reciprocal square root that the flag asks for, from the rule.
float refined_rsqrt(float n) {
    const float r = _mm_cvtss_f32(_mm_rsqrt_ss(_mm_set_ss(n)));
    return -0.5f * r * ((n * r) * r - 3.0f);
}

TEST(Flags, GiveTheStatedFactors) {
    struct Case {
        int flag;
        bool ok;
    };
    for (std::int64_t n : {1, 2, 3, 1000, 1024, 1 << 20}) {
        const float nf = float(n), inv = 1.0f / nf, root = refined_rsqrt(nf);
        const struct {
            int flag;
            bool ok;
            float fwd, inv;
        } cases[] = {{rokFftDivFwd, true, inv, 1.0f},  {rokFftDivInv, true, 1.0f, inv}, {rokFftDivSqrt, true, root, root},
                     {rokFftNoDiv, true, 1.0f, 1.0f}, {0, false, 0, 0},               {3, false, 0, 0},
                     {16, false, 0, 0},               {-1, false, 0, 0}};
        for (const auto& c : cases) {
            float f = 0, i = 0;
            ASSERT_EQ(fk::flag_scales(c.flag, n, &f, &i), c.ok) << c.flag;
            if (!c.ok) continue;
            EXPECT_EQ(f, c.fwd) << "flag " << c.flag << " n " << n;
            EXPECT_EQ(i, c.inv) << "flag " << c.flag << " n " << n;
        }
        EXPECT_NEAR(root, 1.0 / std::sqrt(double(n)), 2e-7 / std::sqrt(double(n)));
    }
}

}  // namespace
