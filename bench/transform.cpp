// Two-dimensional FFT/DFT and packed-spectrum products beside cv::dft and
// cv::mulSpectrums. OpenCV's real transform writes the same packed layout
// (its CCS format), so outputs are compared directly, within 1e-5 of the
// spectrum's RMS value (the transforms round differently; the data is
// zero-mean so that no single large term decides the comparison). Records are made
// once per size for every processor; the 1-thread runs use one of them.
#include <opencv2/core.hpp>

#include <cmath>
#include <memory>
#include <thread>
#include <vector>

#include "harness.h"
#include "rokcore.h"

namespace {

using rokbench::Case;

const std::vector<rokbench::Size> kPowerOfTwo = {{512, 512}, {1024, 1024}};
const std::vector<rokbench::Size> kOther = {{1000, 1000}, {1920, 1080}};

bool close_spectra(const cv::Mat& ours, const cv::Mat& theirs) {
    const double rms = cv::norm(theirs, cv::NORM_L2) / std::sqrt(double(theirs.total() * theirs.channels()));
    return ours.size() == theirs.size() && cv::norm(ours, theirs, cv::NORM_INF) <= 1e-5 * rms;
}

// Builds a record with every processor's thread count in force.
template <class Make>
auto with_all_threads(Make make) {
    int saved = 1;
    rokGetNumThreads(&saved);
    rokSetNumThreads(int(std::thread::hardware_concurrency()));
    auto spec = make();
    rokSetNumThreads(saved);
    return spec;
}

// A real record (FFT for power-of-two sizes, DFT otherwise) with its buffer.
struct RealSpec {
    RokiFFTSpec_R_32f* fft = nullptr;
    RokiDFTSpec_R_32f* dft = nullptr;
    std::vector<Rok8u> buffer;
    RealSpec(int w, int h, int flag) {
        int size = 0;
        if ((w & (w - 1)) == 0 && (h & (h - 1)) == 0) {
            rokiFFTInitAlloc_R_32f(&fft, int(std::log2(w)), int(std::log2(h)), flag, rokHintDefault);
            rokiFFTGetBufSize_R_32f(fft, &size);
        } else {
            rokiDFTInitAlloc_R_32f(&dft, w, h, flag, rokHintDefault);
            rokiDFTGetBufSize_R_32f(dft, &size);
        }
        buffer.resize(std::size_t(size));
    }
    ~RealSpec() {
        if (fft) rokiFFTFree_R_32f(fft);
        if (dft) rokiDFTFree_R_32f(dft);
    }
    void forward(const cv::Mat& src, cv::Mat& dst) {
        if (fft)
            rokiFFTFwd_RToPack_32f_C1R(src.ptr<Rok32f>(), rokbench::step_of(src), dst.ptr<Rok32f>(),
                                       rokbench::step_of(dst), fft, buffer.data());
        else
            rokiDFTFwd_RToPack_32f_C1R(src.ptr<Rok32f>(), rokbench::step_of(src), dst.ptr<Rok32f>(),
                                       rokbench::step_of(dst), dft, buffer.data());
    }
    void inverse(const cv::Mat& src, cv::Mat& dst) {
        if (fft)
            rokiFFTInv_PackToR_32f_C1R(src.ptr<Rok32f>(), rokbench::step_of(src), dst.ptr<Rok32f>(),
                                       rokbench::step_of(dst), fft, buffer.data());
        else
            rokiDFTInv_PackToR_32f_C1R(src.ptr<Rok32f>(), rokbench::step_of(src), dst.ptr<Rok32f>(),
                                       rokbench::step_of(dst), dft, buffer.data());
    }
};

Case real_forward(int w, int h) {
    auto spec = with_all_threads([&] { return std::make_shared<RealSpec>(w, h, rokFftNoDiv); });
    auto src = std::make_shared<cv::Mat>(rokbench::random_mat(w, h, CV_32F, -1, 1));
    auto ours = std::make_shared<cv::Mat>(h, w, CV_32F), theirs = std::make_shared<cv::Mat>(h, w, CV_32F);
    Case c;
    c.rok = [=] { spec->forward(*src, *ours); };
    c.cv = [=] { cv::dft(*src, *theirs); };
    c.bytes = 2 * src->total() * sizeof(float);
    c.same = [=] {
        c.rok();
        c.cv();
        return close_spectra(*ours, *theirs);
    };
    return c;
}

Case real_inverse(int w, int h) {
    auto spec = with_all_threads([&] { return std::make_shared<RealSpec>(w, h, rokFftDivInv); });
    auto packed = std::make_shared<cv::Mat>();
    cv::dft(rokbench::random_mat(w, h, CV_32F, -1, 1), *packed);
    auto ours = std::make_shared<cv::Mat>(h, w, CV_32F), theirs = std::make_shared<cv::Mat>(h, w, CV_32F);
    Case c;
    c.rok = [=] { spec->inverse(*packed, *ours); };
    c.cv = [=] { cv::dft(*packed, *theirs, cv::DFT_INVERSE | cv::DFT_REAL_OUTPUT | cv::DFT_SCALE); };
    c.bytes = 2 * packed->total() * sizeof(float);
    c.same = [=] {
        c.rok();
        c.cv();
        return close_spectra(*ours, *theirs);
    };
    return c;
}

Case complex_forward(int w, int h) {
    struct Spec {
        RokiFFTSpec_C_32fc* p = nullptr;
        std::vector<Rok8u> buffer;
        ~Spec() { rokiFFTFree_C_32fc(p); }
    };
    auto spec = with_all_threads([&] {
        auto s = std::make_shared<Spec>();
        rokiFFTInitAlloc_C_32fc(&s->p, int(std::log2(w)), int(std::log2(h)), rokFftNoDiv, rokHintDefault);
        int size = 0;
        rokiFFTGetBufSize_C_32fc(s->p, &size);
        s->buffer.resize(std::size_t(size));
        return s;
    });
    auto src = std::make_shared<cv::Mat>(rokbench::random_mat(w, h, CV_32FC2, -1, 1));
    auto ours = std::make_shared<cv::Mat>(h, w, CV_32FC2), theirs = std::make_shared<cv::Mat>(h, w, CV_32FC2);
    Case c;
    c.rok = [=] {
        rokiFFTFwd_CToC_32fc_C1R(src->ptr<Rok32fc>(), rokbench::step_of(*src), ours->ptr<Rok32fc>(),
                                 rokbench::step_of(*ours), spec->p, spec->buffer.data());
    };
    c.cv = [=] { cv::dft(*src, *theirs); };
    c.bytes = 2 * src->total() * sizeof(Rok32fc);
    c.same = [=] {
        c.rok();
        c.cv();
        return close_spectra(*ours, *theirs);
    };
    return c;
}

Case mul_pack(int w, int h) {
    auto a = std::make_shared<cv::Mat>(), b = std::make_shared<cv::Mat>();
    cv::dft(rokbench::random_mat(w, h, CV_32F, -1, 1), *a);
    cv::dft(rokbench::random_mat(w, h, CV_32F, -1, 1), *b);
    auto ours = std::make_shared<cv::Mat>(h, w, CV_32F), theirs = std::make_shared<cv::Mat>(h, w, CV_32F);
    Case c;
    c.rok = [=] {
        rokiMulPack_32f_C1R(a->ptr<Rok32f>(), rokbench::step_of(*a), b->ptr<Rok32f>(), rokbench::step_of(*b),
                            ours->ptr<Rok32f>(), rokbench::step_of(*ours), rokbench::roi_of(*ours));
    };
    c.cv = [=] { cv::mulSpectrums(*a, *b, *theirs, 0); };
    c.bytes = 3 * a->total() * sizeof(float);
    c.same = [=] {
        c.rok();
        c.cv();
        return close_spectra(*ours, *theirs);
    };
    return c;
}

const bool added = rokbench::add("FFTFwd_RToPack_32f_C1R", real_forward, kPowerOfTwo) &&
                   rokbench::add("DFTFwd_RToPack_32f_C1R", real_forward, kOther) &&
                   rokbench::add("FFTInv_PackToR_32f_C1R", real_inverse, kPowerOfTwo) &&
                   rokbench::add("DFTInv_PackToR_32f_C1R", real_inverse, kOther) &&
                   rokbench::add("FFTFwd_CToC_32fc_C1R", complex_forward, {{1024, 1024}}) &&
                   rokbench::add("MulPack_32f_C1R", mul_pack, {{1024, 1024}, {1920, 1080}});

}  // namespace
