// One-dimensional FFT/DFT engines: complex transforms of any length and real
// transforms into (and back from) the packed layout, made once as a plan and
// then run on eight sequences side by side.
//
// Data layout. The engines never see images. A caller gathers eight
// sequences into packets, runs the engine and scatters the packets back:
//   - a real packet (32 bytes) holds sample n of the eight sequences;
//   - a complex packet (64 bytes) holds the eight real parts of element n,
//     then the eight imaginary parts ("split" form).
// Every operation is the same on all eight lanes, so a sequence's result
// never depends on its lane or on what the other lanes hold: a partial batch
// simply leaves lanes unused (zero them, to keep them finite).
//
// Algorithms. Lengths whose prime factors are 2, 3, 5 and 7 run as a
// self-sorting (Stockham) mixed-radix transform with radix-4 stages where
// possible; other lengths run through Bluestein's chirp-z convolution on the
// smallest such length M >= 2N - 1, so every length costs O(N log N). The
// real transform of even length N is a complex transform of length N/2 on
// the pairs (x[2m], x[2m+1]) followed by the split into the spectra of even
// and odd samples; odd lengths transform the real sequence as a complex one.
//
// A plan holds plain pointers into the block it was built in, so the block
// must not move after building.
#pragma once

#include <cstddef>
#include <cstdint>

#include "frame/generated/roki_types.h"

namespace rok::kernels::fft {

constexpr int kLanes = 8;
constexpr int kRealPacketFloats = kLanes;
constexpr int kComplexPacketFloats = 2 * kLanes;

// Longest length an engine accepts: 2^29 (order 30 and above is refused).
constexpr std::int64_t kMaxLength = std::int64_t(1) << 29;

// Bump allocation inside one block. A first pass with a null base only
// counts (every request aligned to 64 bytes); the second pass, given a block
// of at least the counted bytes, hands out the same offsets.
class Arena {
public:
    explicit Arena(void* base = nullptr) : base_(static_cast<char*>(base)) {}
    bool counting() const { return base_ == nullptr; }
    std::size_t used() const { return used_; }
    // 64-byte aligned space for `count` objects of T (null while counting).
    template <class T>
    T* take(std::size_t count) {
        used_ = (used_ + 63) & ~std::size_t(63);
        T* p = counting() ? nullptr : reinterpret_cast<T*>(base_ + used_);
        used_ += count * sizeof(T);
        return p;
    }

private:
    char* base_;
    std::size_t used_ = 0;
};

// The forward and inverse factors of a normalisation flag for length n:
// 1 divides the forward result by n, 2 the inverse one, 4 multiplies both by
// 1/sqrt(n), 8 scales neither. 1/n is 1.0f / n; 1/sqrt(n) is the processor's
// approximate reciprocal square root r of n (as a float) refined by one
// Newton step in single precision: -0.5f * r * ((n * r) * r - 3.0f).
// False for any other flag.
bool flag_scales(int flag, std::int64_t n, float* forward, float* inverse);

struct ComplexPlan;
struct RealPlan;

// What building a plan needs besides its own block.
struct PlanNeeds {
    std::size_t work_bytes = 0;  // per call of the transform
    std::size_t init_bytes = 0;  // scratch while building (Bluestein filters)
};

// Builds (or, while the arena counts, sizes) a plan for length n with the
// factors of `flag`. Returns null while counting. `init` is the scratch of
// needs.init_bytes bytes (ignored while counting). Lengths outside
// 1 .. kMaxLength must be refused by the caller.
const ComplexPlan* build_complex(Arena& arena, std::int64_t n, int flag, PlanNeeds& needs, void* init);
const RealPlan* build_real(Arena& arena, std::int64_t n, int flag, PlanNeeds& needs, void* init);

std::int64_t length(const ComplexPlan* plan);
std::int64_t length(const RealPlan* plan);

// Complex transform of the eight sequences of n complex packets at src
// (packet k at src + k * srcStride floats) into dst (dstStride). src may be
// dst; neither may overlap `work` (needs.work_bytes, 64-byte aligned).
// The inverse is the unnormalised inverse DFT; both apply the plan's factor.
void complex_forward(const ComplexPlan* plan, const float* src, std::ptrdiff_t srcStride, float* dst,
                     std::ptrdiff_t dstStride, float* work);
void complex_inverse(const ComplexPlan* plan, const float* src, std::ptrdiff_t srcStride, float* dst,
                     std::ptrdiff_t dstStride, float* work);

// Real transform in place on n real packets (contiguous): forward replaces
// the samples by their packed spectrum (element 0: Re F(0); elements 2k-1,
// 2k: Re F(k), Im F(k); for even n, element n-1: Re F(n/2)); inverse
// replaces a packed spectrum by its real sequence. Both apply the plan's
// factor.
void real_forward(const RealPlan* plan, float* packets, float* work);
void real_inverse(const RealPlan* plan, float* packets, float* work);

}  // namespace rok::kernels::fft
