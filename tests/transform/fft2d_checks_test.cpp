// Records, statuses, the order of checks, buffer sizes, caller-memory
// records and the integer forms of the two-dimensional transforms.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "fft2d_harness.h"
#include "dft_reference.h"
#include "threads.h"

namespace {

using namespace rokt::fft2d;
using rokt::GuardedImage;

TEST(Fft2dRecords, InitAllocChecksInTheirOrder) {
    const struct {
        int x, y, flag;
        RokStatus fft, dft;
    } cases[] = {
        {0, 0, rokFftNoDiv, rokStatusOk, rokStatusBadSize},
        {1, 1, rokFftDivSqrt, rokStatusOk, rokStatusOk},
        {-1, 2, rokFftNoDiv, rokStatusBadFftOrder, rokStatusBadSize},
        {2, -1, rokFftNoDiv, rokStatusBadFftOrder, rokStatusBadSize},
        {31, 2, rokFftNoDiv, rokStatusBadFftOrder, rokStatusOk},
        {2, 31, 0, rokStatusBadFftOrder, rokStatusBadFftFlag},
        {30, 0, rokFftNoDiv, rokStatusBadFftOrder, rokStatusBadSize},
        {0, 30, rokFftNoDiv, rokStatusBadFftOrder, rokStatusBadSize},
        {29, 1, rokFftNoDiv, rokStatusNoMemory, rokStatusOk},
        {1, 1, 0, rokStatusBadFftFlag, rokStatusBadFftFlag},
        {1, 1, 3, rokStatusBadFftFlag, rokStatusBadFftFlag},
        {1, 1, 16, rokStatusBadFftFlag, rokStatusBadFftFlag},
        {1, 1, -1, rokStatusBadFftFlag, rokStatusBadFftFlag},
        {0, 1, 3, rokStatusBadFftFlag, rokStatusBadSize},
        {1 << 30, 1, rokFftNoDiv, rokStatusBadFftOrder, rokStatusNoMemory},
    };
    for (const auto& c : cases) {
        RokiFFTSpec_R_32f* fr = reinterpret_cast<RokiFFTSpec_R_32f*>(&fr);
        RokiFFTSpec_C_32fc* fc = reinterpret_cast<RokiFFTSpec_C_32fc*>(&fc);
        RokiFFTSpec_R_32s* fi = reinterpret_cast<RokiFFTSpec_R_32s*>(&fi);
        RokiDFTSpec_R_32f* dr = reinterpret_cast<RokiDFTSpec_R_32f*>(&dr);
        RokiDFTSpec_C_32fc* dc = reinterpret_cast<RokiDFTSpec_C_32fc*>(&dc);
        RokiDFTSpec_R_32s* di = reinterpret_cast<RokiDFTSpec_R_32s*>(&di);
        void* const canaries[] = {fr, fc, fi, dr, dc, di};
        EXPECT_EQ(rokiFFTInitAlloc_R_32f(&fr, c.x, c.y, c.flag, 0), c.fft) << c.x << " " << c.y << " " << c.flag;
        EXPECT_EQ(rokiFFTInitAlloc_C_32fc(&fc, c.x, c.y, c.flag, 0), c.fft);
        EXPECT_EQ(rokiFFTInitAlloc_R_32s(&fi, c.x, c.y, c.flag, 0), c.fft);
        // DFT records of 31 x 2 and 29 x 1 are cheap; larger ones are not made.
        if (c.x < 64 && c.y < 64) {
            EXPECT_EQ(rokiDFTInitAlloc_R_32f(&dr, c.x, c.y, c.flag, 0), c.dft) << c.x << " " << c.y << " " << c.flag;
            EXPECT_EQ(rokiDFTInitAlloc_C_32fc(&dc, c.x, c.y, c.flag, 0), c.dft);
            EXPECT_EQ(rokiDFTInitAlloc_R_32s(&di, c.x, c.y, c.flag, 0), c.dft);
        } else {
            EXPECT_EQ(rokiDFTInitAlloc_R_32f(&dr, c.x, c.y, c.flag, 0), c.dft);
        }
        void* const after[] = {fr, fc, fi, dr, dc, di};
        for (int i = 0; i < 6; ++i) {
            const RokStatus want = i < 3 ? c.fft : c.dft;
            if (want != rokStatusOk) {
                EXPECT_EQ(after[i], canaries[i]) << "written on error, record " << i;
            }
        }
        if (c.fft == rokStatusOk) {
            EXPECT_EQ(rokiFFTFree_R_32f(fr), rokStatusOk);
            EXPECT_EQ(rokiFFTFree_C_32fc(fc), rokStatusOk);
            EXPECT_EQ(rokiFFTFree_R_32s(fi), rokStatusOk);
        }
        if (c.dft == rokStatusOk) {
            EXPECT_EQ(rokiDFTFree_R_32f(dr), rokStatusOk);
            if (c.x < 64 && c.y < 64) {
                EXPECT_EQ(rokiDFTFree_C_32fc(dc), rokStatusOk);
                EXPECT_EQ(rokiDFTFree_R_32s(di), rokStatusOk);
            }
        }
    }
    EXPECT_EQ(rokiFFTInitAlloc_R_32f(nullptr, 31, 0, 0, 0), rokStatusNullPtr);
    EXPECT_EQ(rokiDFTInitAlloc_C_32fc(nullptr, 0, 0, 0, 0), rokStatusNullPtr);
}

// Every user of a record checks its identifier: another kind, a record whose
// identifier was cleared by Free, and the order null, identifier, step.
TEST(Fft2dRecords, TransformsCheckPointersThenIdentifierThenSteps) {
    Spec real(Kind::Dft, Domain::Real, 4, 3, rokFftNoDiv);
    Spec complex(Kind::Dft, Domain::Complex, 4, 3, rokFftNoDiv);
    Spec fftReal(Kind::Fft, Domain::Real, 4, 4, rokFftNoDiv);
    GuardedImage<float> src(4, 3, 1), dst(4, 3, 1);
    dst.fill_bytes(0xa5);
    const auto before = dst.bytes();
    const auto& o = ops(Kind::Dft);
    const int s = src.step();
    const struct {
        const float* src;
        float* dst;
        const void* spec;
        int ss, ds;
        RokStatus want;
    } cases[] = {
        {nullptr, dst.data(), complex.get(), 0, 0, rokStatusNullPtr},
        {src.data(), nullptr, real.get(), s, s, rokStatusNullPtr},
        {src.data(), dst.data(), nullptr, s, s, rokStatusNullPtr},
        {src.data(), dst.data(), complex.get(), 0, s, rokStatusBadContext},
        {src.data(), dst.data(), fftReal.get(), s, s, rokStatusBadContext},
        {src.data(), dst.data(), real.get(), 0, s, rokStatusBadStep},
        {src.data(), dst.data(), real.get(), s, -s, rokStatusBadStep},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(o.fwd[C1](c.src, c.ss, c.dst, c.ds, c.spec, nullptr), c.want);
        EXPECT_EQ(o.inv[AC4](c.src, c.ss, c.dst, c.ds, c.spec, nullptr), c.want);
        EXPECT_EQ(o.cfwd(reinterpret_cast<const Rok32fc*>(c.src), c.ss, reinterpret_cast<Rok32fc*>(c.dst), c.ds,
                         c.spec == real.get() ? complex.get() : (c.spec == complex.get() ? real.get() : c.spec), nullptr),
                  c.want);
        EXPECT_EQ(o.intFwd[C3](reinterpret_cast<const Rok8u*>(c.src), c.ss, reinterpret_cast<Rok32s*>(c.dst), c.ds, 0,
                               c.spec, nullptr),
                  c.want == rokStatusBadStep ? rokStatusBadContext : c.want);
    }
    EXPECT_EQ(o.fwdI[C3](nullptr, s, real.get(), nullptr), rokStatusNullPtr);
    EXPECT_EQ(o.fwdI[C3](dst.data(), s, complex.get(), nullptr), rokStatusBadContext);
    EXPECT_EQ(o.fwdI[C3](dst.data(), 0, real.get(), nullptr), rokStatusBadStep);
    EXPECT_TRUE(dst.bytes() == before) << "written on error";
}

TEST(Fft2dRecords, FreeAndBufferQueriesCheckTheirRecord) {
    RokiDFTSpec_R_32f* spec = nullptr;
    ASSERT_EQ(rokiDFTInitAlloc_R_32f(&spec, 5, 6, rokFftNoDiv, 0), rokStatusOk);
    int size = -1;
    EXPECT_EQ(rokiDFTGetBufSize_R_32f(nullptr, &size), rokStatusNullPtr);
    EXPECT_EQ(rokiDFTGetBufSize_R_32f(spec, nullptr), rokStatusNullPtr);
    EXPECT_EQ(rokiDFTGetBufSize_C_32fc(reinterpret_cast<RokiDFTSpec_C_32fc*>(spec), &size), rokStatusBadContext);
    EXPECT_EQ(rokiFFTGetBufSize_R_32f(reinterpret_cast<RokiFFTSpec_R_32f*>(spec), &size), rokStatusBadContext);
    EXPECT_EQ(size, -1);
    EXPECT_EQ(rokiDFTFree_R_32f(nullptr), rokStatusNullPtr);
    EXPECT_EQ(rokiDFTFree_R_32s(reinterpret_cast<RokiDFTSpec_R_32s*>(spec)), rokStatusBadContext);
    EXPECT_EQ(rokiFFTFree_R_32f(reinterpret_cast<RokiFFTSpec_R_32f*>(spec)), rokStatusBadContext);
    EXPECT_EQ(*reinterpret_cast<std::int32_t*>(spec), rokIdDftR) << "a refused Free changed the record";
    EXPECT_EQ(rokiDFTFree_R_32f(spec), rokStatusOk);
    EXPECT_EQ(rokiFFTFree_C_32fc(nullptr), rokStatusNullPtr);
}

// Buffer sizes: (work + 4) x threads + 16, threads from the size
// thresholds; the integer records add (16 H + 4) W for a float image.
TEST(Fft2dRecords, BufferSizesFollowThreadsAndThresholds) {
    const struct {
        Domain domain;
        int w, h;
        bool threaded;
    } cases[] = {{Domain::Real, 141, 141, true},     {Domain::Real, 140, 300, false}, {Domain::Real, 300, 140, false},
                 {Domain::Complex, 240, 240, true},  {Domain::Complex, 239, 300, false},
                 {Domain::Complex, 141, 141, false}, {Domain::Integer, 141, 150, true}};
    for (const auto& c : cases) {
        int one, three;
        {
            rokt::WithThreads t(1);
            Spec spec(Kind::Dft, c.domain, c.w, c.h, rokFftNoDiv);
            one = spec.buffer_size();
        }
        {
            rokt::WithThreads t(3);
            Spec spec(Kind::Dft, c.domain, c.w, c.h, rokFftNoDiv);
            three = spec.buffer_size();
        }
        const int image = c.domain == Domain::Integer ? (16 * c.h + 4) * c.w + 16 : 0;
        // The work holds at least a complex column and a row.
        EXPECT_GT(one - image - 20, std::max(64 * c.h, 16 * c.w)) << c.w << "x" << c.h;
        if (c.threaded) {
            EXPECT_EQ(three - image - 16, 3 * (one - image - 16)) << c.w << "x" << c.h;
            EXPECT_EQ((one - image - 16 - 4) % 16, 0);
        } else {
            EXPECT_EQ(three, one) << c.w << "x" << c.h;
        }
    }
    // The integer record's size is the float record's plus the image.
    Spec i(Kind::Fft, Domain::Integer, 64, 32, rokFftNoDiv), f(Kind::Fft, Domain::Real, 64, 32, rokFftNoDiv);
    EXPECT_EQ(i.buffer_size(), f.buffer_size() + (16 * 32 + 4) * 64 + 16);
}

struct FreeMem {
    void operator()(void* p) const { std::free(p); }
};

// Records in caller memory: GetSize, Init, the same results as InitAlloc,
// and a Free that only clears the identifier.
TEST(Fft2dRecords, InitBuildsInCallerMemory) {
    for (const auto& s : {std::pair{16, 9}, std::pair{1009, 2}, std::pair{13, 1}}) {
        int specSize = -1, initSize = -1, bufSize = -1;
        EXPECT_EQ(rokiDFTGetSize_R_32f(s.first, s.second, rokFftDivFwd, 0, nullptr, &initSize, &bufSize), rokStatusNullPtr);
        EXPECT_EQ(rokiDFTGetSize_R_32f(0, s.second, 77, 0, &specSize, &initSize, &bufSize), rokStatusBadSize);
        EXPECT_EQ(rokiDFTGetSize_R_32f(s.first, s.second, 77, 0, &specSize, &initSize, &bufSize), rokStatusBadFftFlag);
        EXPECT_EQ(specSize, -1);
        ASSERT_EQ(rokiDFTGetSize_R_32f(s.first, s.second, rokFftDivFwd, 0, &specSize, &initSize, &bufSize), rokStatusOk);
        // Bluestein lengths need scratch while building, smooth ones none.
        EXPECT_EQ(initSize > 0, s.first == 1009 || s.first == 13) << s.first;
        std::unique_ptr<Rok8u, FreeMem> block(static_cast<Rok8u*>(std::malloc(std::size_t(specSize) + 8)));
        std::unique_ptr<Rok8u, FreeMem> init(static_cast<Rok8u*>(std::malloc(std::size_t(initSize) + 1)));
        auto* spec = reinterpret_cast<RokiDFTSpec_R_32f*>(block.get());
        // Refused calls leave the block as it was.
        std::memset(block.get(), 0x6b, std::size_t(specSize) + 8);
        const std::vector<Rok8u> untouched(block.get(), block.get() + specSize + 8);
        EXPECT_EQ(rokiDFTInit_R_32f(s.first, s.second, rokFftDivFwd, 0, nullptr, init.get()), rokStatusNullPtr);
        EXPECT_EQ(rokiDFTInit_R_32f(s.first, s.second, rokFftDivFwd, 0,
                                    reinterpret_cast<RokiDFTSpec_R_32f*>(block.get() + 4), init.get()),
                  rokStatusNoMemory);
        EXPECT_EQ(rokiDFTInit_R_32f(0, s.second, rokFftDivFwd, 0, spec, init.get()), rokStatusBadSize);
        EXPECT_EQ(rokiDFTInit_R_32f(s.first, -1, rokFftDivFwd, 0, spec, init.get()), rokStatusBadSize);
        EXPECT_EQ(rokiDFTInit_R_32f(s.first, s.second, 0, 0, spec, init.get()), rokStatusBadFftFlag);
        EXPECT_TRUE(std::equal(untouched.begin(), untouched.end(), block.get())) << "written on error";
        ASSERT_EQ(rokiDFTInit_R_32f(s.first, s.second, rokFftDivFwd, 0, spec, init.get()), rokStatusOk);
        int reported = -1;
        ASSERT_EQ(rokiDFTGetBufSize_R_32f(spec, &reported), rokStatusOk);
        EXPECT_EQ(reported, bufSize);
        // Same bits as a record from InitAlloc; then Free only clears it.
        Spec alloc(Kind::Dft, Domain::Real, s.first, s.second, rokFftDivFwd);
        GuardedImage<float> src(s.first, s.second, 1), a(s.first, s.second, 1), b(s.first, s.second, 1);
        rokt::fill_random(src, 8);
        ASSERT_EQ(rokiDFTFwd_RToPack_32f_C1R(src.data(), src.step(), a.data(), a.step(), spec, nullptr), 0);
        ASSERT_EQ(ops(Kind::Dft).fwd[C1](src.data(), src.step(), b.data(), b.step(), alloc.get(), nullptr), 0);
        EXPECT_TRUE(a.bytes() == b.bytes());
        // Without an init buffer the scratch comes from the core library.
        ASSERT_EQ(rokiDFTInit_R_32f(s.first, s.second, rokFftDivFwd, 0, spec, nullptr), rokStatusOk);
        ASSERT_EQ(rokiDFTFwd_RToPack_32f_C1R(src.data(), src.step(), a.data(), a.step(), spec, nullptr), 0);
        EXPECT_TRUE(a.bytes() == b.bytes());
        EXPECT_EQ(rokiDFTFree_R_32f(spec), rokStatusOk);
        EXPECT_EQ(rokiDFTFree_R_32f(spec), rokStatusBadContext);
        EXPECT_EQ(rokiDFTFwd_RToPack_32f_C1R(src.data(), src.step(), a.data(), a.step(), spec, nullptr),
                  rokStatusBadContext);
    }
    int sizes[3];
    EXPECT_EQ(rokiDFTGetSize_C_32fc(5, 5, rokFftNoDiv, 0, sizes, sizes + 1, sizes + 2), rokStatusOk);
    std::unique_ptr<Rok8u, FreeMem> block(static_cast<Rok8u*>(std::malloc(std::size_t(sizes[0]))));
    auto* spec = reinterpret_cast<RokiDFTSpec_C_32fc*>(block.get());
    EXPECT_EQ(rokiDFTInit_C_32fc(5, 5, rokFftNoDiv, 0, spec, nullptr), rokStatusOk);
    EXPECT_EQ(rokiDFTFree_C_32fc(spec), rokStatusOk);
    EXPECT_EQ(rokiDFTFree_C_32fc(spec), rokStatusBadContext);
}

// A null buffer is allocated for the call: the same bits as a caller buffer.
TEST(Fft2dRecords, NullBufferGivesTheSameResult) {
    Spec spec(Kind::Fft, Domain::Real, 32, 16, rokFftDivSqrt);
    GuardedImage<float> src(32, 16, 4), a(32, 16, 4), b(32, 16, 4);
    rokt::fill_random(src, 4);
    std::vector<Rok8u> buffer(std::size_t(spec.buffer_size()));
    ASSERT_EQ(ops(Kind::Fft).fwd[AC4](src.data(), src.step(), a.data(), a.step(), spec.get(), nullptr), 0);
    ASSERT_EQ(ops(Kind::Fft).fwd[AC4](src.data(), src.step(), b.data(), b.step(), spec.get(), buffer.data() + 1), 0);
    EXPECT_TRUE(a.bytes() == b.bytes());
}

// round(x * 2^-sf), ties to even, saturated to T.
template <class T>
T scaled(double x, int sf) {
    const double v = std::nearbyint(std::ldexp(x, -sf));
    if (!(v >= double(std::numeric_limits<T>::min()))) return std::numeric_limits<T>::min();
    if (v > double(std::numeric_limits<T>::max())) return std::numeric_limits<T>::max();
    return T(v);
}

// The integer forms: the float transform of the converted image, scaled,
// rounded half to even and saturated; AC4 alpha untouched.
TEST(Fft2dInteger, ScaleRoundAndSaturateTheFloatResult) {
    for (Kind kind : {Kind::Fft, Kind::Dft})
        for (int lay : {C1, C3, C4, AC4})
            for (int sf : {0, 1, 3, -2, 40, -40}) {
                const int w = kind == Kind::Fft ? 8 : 17, h = kind == Kind::Fft ? 16 : 6, nc = kSamples[lay];
                Spec ispec(kind, Domain::Integer, w, h, rokFftDivInv), fspec(kind, Domain::Real, w, h, rokFftDivInv);
                GuardedImage<Rok8u> src(w, h, nc, 1), back(w, h, nc, 3);
                GuardedImage<Rok32s> packed(w, h, nc, 2);
                GuardedImage<float> asFloat(w, h, nc), spectrum(w, h, nc), image(w, h, nc);
                rokt::fill_random(src, unsigned(sf + 50));
                packed.fill_bytes(0x11);
                back.fill_bytes(0x22);
                for (int y = 0; y < h; ++y)
                    for (int i = 0; i < w * nc; ++i) asFloat.row(y)[i] = src.row(y)[i];
                const auto& o = ops(kind);
                ASSERT_EQ(o.intFwd[lay](src.data(), src.step(), packed.data(), packed.step(), sf, ispec.get(), nullptr), 0);
                ASSERT_EQ(o.fwd[lay](asFloat.data(), asFloat.step(), spectrum.data(), spectrum.step(), fspec.get(), nullptr), 0);
                ASSERT_EQ(o.intInv[lay](packed.data(), packed.step(), back.data(), back.step(), sf, ispec.get(), nullptr), 0);
                for (int y = 0; y < h; ++y)
                    for (int i = 0; i < w * nc; ++i) image.row(y)[i] = float(packed.row(y)[i]);
                ASSERT_EQ(o.inv[lay](image.data(), image.step(), image.data(), image.step(), fspec.get(), nullptr), 0);
                for (int y = 0; y < h; ++y)
                    for (int x = 0; x < w; ++x)
                        for (int c = 0; c < nc; ++c) {
                            if (c == kProcessed[lay]) {
                                ASSERT_EQ(packed.at(x, y, c), 0x11111111) << "alpha written";
                                ASSERT_EQ(back.at(x, y, c), 0x22) << "alpha written";
                                continue;
                            }
                            ASSERT_EQ(packed.at(x, y, c), scaled<Rok32s>(spectrum.at(x, y, c), sf))
                                << kLayNames[lay] << " sf " << sf << " at " << x << "," << y;
                            ASSERT_EQ(back.at(x, y, c), scaled<Rok8u>(image.at(x, y, c), sf))
                                << kLayNames[lay] << " sf " << sf << " at " << x << "," << y;
                        }
            }
}

}  // namespace
