// The two-dimensional transforms behind one interface for the tests: FFT or
// DFT records, every layout, out of place or in place.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <vector>

#include "guarded.h"
#include "random.h"
#include "dft_reference.h"
#include "roki.h"

namespace rokt::fft2d {

enum class Kind { Fft, Dft };
enum Lay { C1, C3, C4, AC4 };
constexpr int kSamples[] = {1, 3, 4, 4};
constexpr int kProcessed[] = {1, 3, 4, 3};
constexpr const char* kLayNames[] = {"C1", "C3", "C4", "AC4"};

inline int order_of(int n) {
    int k = 0;
    while ((1 << k) < n) ++k;
    return k;
}

using RealFn = RokStatus (*)(const Rok32f*, int, Rok32f*, int, const void*, Rok8u*);
using RealIFn = RokStatus (*)(Rok32f*, int, const void*, Rok8u*);
using CplxFn = RokStatus (*)(const Rok32fc*, int, Rok32fc*, int, const void*, Rok8u*);
using CplxIFn = RokStatus (*)(Rok32fc*, int, const void*, Rok8u*);
using IntFwdFn = RokStatus (*)(const Rok8u*, int, Rok32s*, int, int, const void*, Rok8u*);
using IntInvFn = RokStatus (*)(const Rok32s*, int, Rok8u*, int, int, const void*, Rok8u*);

#define ROKT_REAL(K, T, dir, lay)                                                                       \
    [](const Rok32f* s, int ss, Rok32f* d, int ds, const void* p, Rok8u* b) {                           \
        return roki##K##dir##_32f_##lay##R(s, ss, d, ds, static_cast<const Roki##K##Spec_R_32f*>(p), b); \
    }
#define ROKT_REAL_I(K, T, dir, lay)                                                          \
    [](Rok32f* sd, int st, const void* p, Rok8u* b) {                                        \
        return roki##K##dir##_32f_##lay##IR(sd, st, static_cast<const Roki##K##Spec_R_32f*>(p), b); \
    }
#define ROKT_INT_FWD(K, lay)                                                                            \
    [](const Rok8u* s, int ss, Rok32s* d, int ds, int sf, const void* p, Rok8u* b) {                    \
        return roki##K##Fwd_RToPack_8u32s_##lay##RSfs(s, ss, d, ds, sf, static_cast<const Roki##K##Spec_R_32s*>(p), b); \
    }
#define ROKT_INT_INV(K, lay)                                                                            \
    [](const Rok32s* s, int ss, Rok8u* d, int ds, int sf, const void* p, Rok8u* b) {                    \
        return roki##K##Inv_PackToR_32s8u_##lay##RSfs(s, ss, d, ds, sf, static_cast<const Roki##K##Spec_R_32s*>(p), b); \
    }
#define ROKT_LAYOUTS(M, K, T, dir) \
    { M(K, T, dir, C1), M(K, T, dir, C3), M(K, T, dir, C4), M(K, T, dir, AC4) }
#define ROKT_INT_LAYOUTS(M, K) \
    { M(K, C1), M(K, C3), M(K, C4), M(K, AC4) }

// Real and integer transforms of one kind, by layout.
struct RealOps {
    std::array<RealFn, 4> fwd, inv;
    std::array<RealIFn, 4> fwdI, invI;
    std::array<IntFwdFn, 4> intFwd;
    std::array<IntInvFn, 4> intInv;
    CplxFn cfwd, cinv;
    CplxIFn cfwdI, cinvI;
};

inline const RealOps& ops(Kind k) {
    static const RealOps fft = {
        ROKT_LAYOUTS(ROKT_REAL, FFT, R, Fwd_RToPack),
        ROKT_LAYOUTS(ROKT_REAL, FFT, R, Inv_PackToR),
        ROKT_LAYOUTS(ROKT_REAL_I, FFT, R, Fwd_RToPack),
        ROKT_LAYOUTS(ROKT_REAL_I, FFT, R, Inv_PackToR),
        ROKT_INT_LAYOUTS(ROKT_INT_FWD, FFT),
        ROKT_INT_LAYOUTS(ROKT_INT_INV, FFT),
        [](const Rok32fc* s, int ss, Rok32fc* d, int ds, const void* p, Rok8u* b) {
            return rokiFFTFwd_CToC_32fc_C1R(s, ss, d, ds, static_cast<const RokiFFTSpec_C_32fc*>(p), b);
        },
        [](const Rok32fc* s, int ss, Rok32fc* d, int ds, const void* p, Rok8u* b) {
            return rokiFFTInv_CToC_32fc_C1R(s, ss, d, ds, static_cast<const RokiFFTSpec_C_32fc*>(p), b);
        },
        [](Rok32fc* sd, int st, const void* p, Rok8u* b) {
            return rokiFFTFwd_CToC_32fc_C1IR(sd, st, static_cast<const RokiFFTSpec_C_32fc*>(p), b);
        },
        [](Rok32fc* sd, int st, const void* p, Rok8u* b) {
            return rokiFFTInv_CToC_32fc_C1IR(sd, st, static_cast<const RokiFFTSpec_C_32fc*>(p), b);
        },
    };
    static const RealOps dft = {
        ROKT_LAYOUTS(ROKT_REAL, DFT, R, Fwd_RToPack),
        ROKT_LAYOUTS(ROKT_REAL, DFT, R, Inv_PackToR),
        ROKT_LAYOUTS(ROKT_REAL_I, DFT, R, Fwd_RToPack),
        ROKT_LAYOUTS(ROKT_REAL_I, DFT, R, Inv_PackToR),
        ROKT_INT_LAYOUTS(ROKT_INT_FWD, DFT),
        ROKT_INT_LAYOUTS(ROKT_INT_INV, DFT),
        [](const Rok32fc* s, int ss, Rok32fc* d, int ds, const void* p, Rok8u* b) {
            return rokiDFTFwd_CToC_32fc_C1R(s, ss, d, ds, static_cast<const RokiDFTSpec_C_32fc*>(p), b);
        },
        [](const Rok32fc* s, int ss, Rok32fc* d, int ds, const void* p, Rok8u* b) {
            return rokiDFTInv_CToC_32fc_C1R(s, ss, d, ds, static_cast<const RokiDFTSpec_C_32fc*>(p), b);
        },
        [](Rok32fc* sd, int st, const void* p, Rok8u* b) {
            return rokiDFTFwd_CToC_32fc_C1IR(sd, st, static_cast<const RokiDFTSpec_C_32fc*>(p), b);
        },
        [](Rok32fc* sd, int st, const void* p, Rok8u* b) {
            return rokiDFTInv_CToC_32fc_C1IR(sd, st, static_cast<const RokiDFTSpec_C_32fc*>(p), b);
        },
    };
    return k == Kind::Fft ? fft : dft;
}

enum class Domain { Real, Complex, Integer };

// A record of one kind and domain, made by InitAlloc, released at the end.
class Spec {
public:
    Spec(Kind kind, Domain domain, int w, int h, int flag) : kind_(kind), domain_(domain) {
        const int x = kind == Kind::Fft ? order_of(w) : w, y = kind == Kind::Fft ? order_of(h) : h;
        RokStatus s = rokStatusOk;
        if (kind == Kind::Fft) {
            switch (domain) {
                case Domain::Real: s = rokiFFTInitAlloc_R_32f(reinterpret_cast<RokiFFTSpec_R_32f**>(&p_), x, y, flag, 0); break;
                case Domain::Complex: s = rokiFFTInitAlloc_C_32fc(reinterpret_cast<RokiFFTSpec_C_32fc**>(&p_), x, y, flag, 0); break;
                case Domain::Integer: s = rokiFFTInitAlloc_R_32s(reinterpret_cast<RokiFFTSpec_R_32s**>(&p_), x, y, flag, 0); break;
            }
        } else {
            switch (domain) {
                case Domain::Real: s = rokiDFTInitAlloc_R_32f(reinterpret_cast<RokiDFTSpec_R_32f**>(&p_), x, y, flag, 0); break;
                case Domain::Complex: s = rokiDFTInitAlloc_C_32fc(reinterpret_cast<RokiDFTSpec_C_32fc**>(&p_), x, y, flag, 0); break;
                case Domain::Integer: s = rokiDFTInitAlloc_R_32s(reinterpret_cast<RokiDFTSpec_R_32s**>(&p_), x, y, flag, 0); break;
            }
        }
        EXPECT_EQ(s, rokStatusOk);
    }
    ~Spec() {
        if (!p_) return;
        RokStatus s;
        if (kind_ == Kind::Fft)
            s = domain_ == Domain::Real      ? rokiFFTFree_R_32f(static_cast<RokiFFTSpec_R_32f*>(p_))
                : domain_ == Domain::Complex ? rokiFFTFree_C_32fc(static_cast<RokiFFTSpec_C_32fc*>(p_))
                                             : rokiFFTFree_R_32s(static_cast<RokiFFTSpec_R_32s*>(p_));
        else
            s = domain_ == Domain::Real      ? rokiDFTFree_R_32f(static_cast<RokiDFTSpec_R_32f*>(p_))
                : domain_ == Domain::Complex ? rokiDFTFree_C_32fc(static_cast<RokiDFTSpec_C_32fc*>(p_))
                                             : rokiDFTFree_R_32s(static_cast<RokiDFTSpec_R_32s*>(p_));
        EXPECT_EQ(s, rokStatusOk);
    }
    Spec(const Spec&) = delete;
    Spec& operator=(const Spec&) = delete;

    const void* get() const { return p_; }
    int buffer_size() const {
        int size = -1;
        if (kind_ == Kind::Fft)
            domain_ == Domain::Real      ? rokiFFTGetBufSize_R_32f(static_cast<RokiFFTSpec_R_32f*>(p_), &size)
            : domain_ == Domain::Complex ? rokiFFTGetBufSize_C_32fc(static_cast<RokiFFTSpec_C_32fc*>(p_), &size)
                                         : rokiFFTGetBufSize_R_32s(static_cast<RokiFFTSpec_R_32s*>(p_), &size);
        else
            domain_ == Domain::Real      ? rokiDFTGetBufSize_R_32f(static_cast<RokiDFTSpec_R_32f*>(p_), &size)
            : domain_ == Domain::Complex ? rokiDFTGetBufSize_C_32fc(static_cast<RokiDFTSpec_C_32fc*>(p_), &size)
                                         : rokiDFTGetBufSize_R_32s(static_cast<RokiDFTSpec_R_32s*>(p_), &size);
        return size;
    }

private:
    Kind kind_;
    Domain domain_;
    void* p_ = nullptr;
};

// Channel c of a float image as a complex W x H array.
inline dft::Spectrum channel(const GuardedImage<float>& img, int c) {
    dft::Spectrum s{img.width(), img.height(), {}};
    for (int y = 0; y < img.height(); ++y)
        for (int x = 0; x < img.width(); ++x) s.data.push_back(img.at(x, y, c));
    return s;
}

// Largest |got - want| over channel c, relative to `scale`.
inline double packed_error(const GuardedImage<float>& got, int c, const std::vector<double>& want, double scale) {
    double err = 0;
    for (int y = 0; y < got.height(); ++y)
        for (int x = 0; x < got.width(); ++x)
            err = std::max(err, std::abs(got.at(x, y, c) - want[std::size_t(y) * got.width() + x]));
    return err / scale;
}

}  // namespace rokt::fft2d
