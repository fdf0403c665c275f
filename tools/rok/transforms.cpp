// rok commands for the frequency transforms: Fourier spectrum and DCT.
#include "rok.h"

namespace rok {

// Log magnitude of the 2-D discrete Fourier transform, zero frequency in the
// centre, scaled to 0..255. Colour images are averaged to grey first.
Image run_fft(const Command&, const Options& o, const Image& a, const Image*) {
    int w = a.width, h = a.height;
    Image grey;
    grey.allocate(w, h, 1, Depth::f32);
    auto* g = reinterpret_cast<float*>(grey.data.data());
    int colours = std::min(a.channels, 3);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            double sum = 0;
            for (int k = 0; k < colours; ++k) {
                std::size_t i = (static_cast<std::size_t>(y) * w + x) * a.channels + k;
                sum += a.depth == Depth::u8 ? a.data[i]
                       : a.depth == Depth::u16 ? reinterpret_cast<const std::uint16_t*>(a.data.data())[i]
                                               : reinterpret_cast<const float*>(a.data.data())[i];
            }
            g[static_cast<std::size_t>(y) * w + x] = static_cast<float>(sum / colours);
        }
    RokiDFTSpec_R_32f* spec = nullptr;
    check(rokiDFTInitAlloc_R_32f(&spec, w, h, rokFftNoDiv, rokHintDefault), "rokiDFTInitAlloc_R_32f");
    std::unique_ptr<RokiDFTSpec_R_32f, RokStatus (*)(RokiDFTSpec_R_32f*)> hold(spec, rokiDFTFree_R_32f);
    int size = 0;
    check(rokiDFTGetBufSize_R_32f(spec, &size), "rokiDFTGetBufSize_R_32f");
    std::vector<Rok8u> buf(static_cast<std::size_t>(std::max(size, 1)));
    Image pack = like(grey), mag = like(grey);
    check(rokiDFTFwd_RToPack_32f_C1R(g, grey.step(), reinterpret_cast<Rok32f*>(pack.data.data()), pack.step(), spec, buf.data()),
          "rokiDFTFwd_RToPack_32f_C1R");
    const float* m = reinterpret_cast<const float*>(mag.data.data());
    if (o.has("phase")) {  // -pi .. pi onto 0 .. 255, zero frequency centred
        check(rokiPhasePack_32f_C1R(reinterpret_cast<Rok32f*>(pack.data.data()), pack.step(), reinterpret_cast<Rok32f*>(mag.data.data()),
                                    mag.step(), roi_of(a)),
              "rokiPhasePack_32f_C1R");
        Image out;
        out.allocate(w, h, 1, Depth::u8);
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) {
                double v = (m[static_cast<std::size_t>(y) * w + x] + 3.14159265358979323846) / (2 * 3.14159265358979323846) * 255.0;
                out.row((y + h / 2) % h)[(x + w / 2) % w] = static_cast<std::uint8_t>(std::lround(std::clamp(v, 0.0, 255.0)));
            }
        return out;
    }
    check(rokiMagnitudePack_32f_C1R(reinterpret_cast<Rok32f*>(pack.data.data()), pack.step(),
                                    reinterpret_cast<Rok32f*>(mag.data.data()), mag.step(), roi_of(a)),
          "rokiMagnitudePack_32f_C1R");
    // Scaled between the smallest value and the largest away from zero
    // frequency, which would otherwise leave the rest of the spectrum dark.
    double top = 0, bottom = HUGE_VAL;
    std::vector<double> lg(static_cast<std::size_t>(w) * h);
    for (std::size_t i = 0; i < lg.size(); ++i) {
        lg[i] = std::log1p(static_cast<double>(m[i]));
        if (i) top = std::max(top, lg[i]);
        bottom = std::min(bottom, lg[i]);
    }
    Image out;
    out.allocate(w, h, 1, Depth::u8);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            double v = top > bottom ? (lg[static_cast<std::size_t>(y) * w + x] - bottom) / (top - bottom) * 255.0 : 0;
            v = std::min(v, 255.0);
            out.row((y + h / 2) % h)[(x + w / 2) % w] = static_cast<std::uint8_t>(std::lround(v));
        }
    return out;
}

namespace {
// Forward: the coefficients as 32f (write .pfm), or their log magnitude
// (--view) as 8-bit. --inverse takes coefficients back to samples (32f).
// The 8x8 block transform as an image codec would use it: every block of an
// 8-bit grey image to coefficients, all but the lowest KxK frequencies
// dropped, and back. The edges are replicated up to whole blocks.
Image run_dct_blocks(const Options& o, const Image& a) {
    if (a.depth != Depth::u8 || a.channels != 1) throw Error("--blocks takes 8-bit grey images (rok channels --take 1 makes one)");
    if (o.has("inverse") || o.has("view")) throw Error("--blocks takes no --inverse or --view");
    int keep = o.integer("blocks", 8, 1, 8);
    int w8 = (a.width + 7) / 8 * 8, h8 = (a.height + 7) / 8 * 8;
    Padded p = pad(a, 0, 0, h8 - a.height, w8 - a.width);
    Image out = like(a), whole = p.img;
    alignas(32) Rok16s block[64];
    for (int by = 0; by < h8; by += 8)
        for (int bx = 0; bx < w8; bx += 8) {
            check(rokiDCT8x8Fwd_8u16s_C1R(p.img.row(by) + bx, p.img.step(), block), "rokiDCT8x8Fwd_8u16s_C1R");
            for (int v = 0; v < 8; ++v)
                for (int u = 0; u < 8; ++u)
                    if (u >= keep || v >= keep) block[8 * v + u] = 0;
            check(rokiDCT8x8Inv_16s8u_C1R(block, whole.row(by) + bx, whole.step()), "rokiDCT8x8Inv_16s8u_C1R");
        }
    for (int y = 0; y < a.height; ++y) std::memcpy(out.row(y), whole.row(y), static_cast<std::size_t>(a.width));
    return out;
}
}  // namespace

Image run_dct(const Command& c, const Options& o, const Image& a, const Image*) {
    if (o.has("blocks")) return run_dct_blocks(o, a);
    bool inv = o.has("inverse");
    if (inv && a.depth != Depth::f32) throw Error("dct --inverse takes 32f coefficients (a .pfm written by rok dct)");
    Image in = to_f32(a);
    Image out = like(in);
    RokiSize roi = roi_of(in);
    int size = 0;
    auto f = find_export(inv ? "DCTInv" : "DCTFwd", "32f", layout_of(in), {"R"}, c.name);
    using Fn = RokStatus (*)(const Rok32f*, int, Rok32f*, int, const void*, Rok8u*);
    auto* src = reinterpret_cast<const Rok32f*>(in.data.data());
    auto* dst = reinterpret_cast<Rok32f*>(out.data.data());
    if (inv) {
        RokiDCTInvSpec_32f* spec = nullptr;
        check(rokiDCTInvInitAlloc_32f(&spec, roi, rokHintDefault), "rokiDCTInvInitAlloc_32f");
        std::unique_ptr<RokiDCTInvSpec_32f, RokStatus (*)(RokiDCTInvSpec_32f*)> hold(spec, rokiDCTInvFree_32f);
        check(rokiDCTInvGetBufSize_32f(spec, &size), "rokiDCTInvGetBufSize_32f");
        std::vector<Rok8u> buf(static_cast<std::size_t>(std::max(size, 1)));
        check(reinterpret_cast<Fn>(f.fn)(src, in.step(), dst, out.step(), spec, buf.data()), f.name);
        return out;
    }
    RokiDCTFwdSpec_32f* spec = nullptr;
    check(rokiDCTFwdInitAlloc_32f(&spec, roi, rokHintDefault), "rokiDCTFwdInitAlloc_32f");
    std::unique_ptr<RokiDCTFwdSpec_32f, RokStatus (*)(RokiDCTFwdSpec_32f*)> hold(spec, rokiDCTFwdFree_32f);
    check(rokiDCTFwdGetBufSize_32f(spec, &size), "rokiDCTFwdGetBufSize_32f");
    std::vector<Rok8u> buf(static_cast<std::size_t>(std::max(size, 1)));
    check(reinterpret_cast<Fn>(f.fn)(src, in.step(), dst, out.step(), spec, buf.data()), f.name);
    return o.has("view") ? log_view(out, false) : out;
}

// ---- wavelets ----

namespace {
const float kHaar = 0.70710678118654752f;
}  // namespace

// One level of the Haar wavelet transform, laid out as a mosaic of the four
// half-size bands: approximation top left, high along rows top right, high
// along columns bottom left, high along both bottom right. Forward: 32f
// coefficients (.pfm), or with --view each band scaled to 8 bits; --inverse
// takes such a 32f mosaic back to the image. An odd last row or column is
// left out of the forward transform.
Image run_wavelet(const Command& c, const Options& o, const Image& src, const Image*) {
    bool inv = o.has("inverse");
    if (inv && src.depth != Depth::f32) throw Error("wavelet --inverse takes a 32f mosaic (a .pfm written by rok wavelet)");
    if (inv && o.has("view")) throw Error("wavelet: --view applies to the forward transform");
    Image a = to_f32(src);
    if (a.channels == 4) throw Error("wavelet takes grey or RGB images");
    int hw = a.width / 2, hh = a.height / 2;
    if (hw < 1 || hh < 1) throw Error("wavelet needs an image of at least 2x2 pixels");
    if (inv && (a.width % 2 || a.height % 2)) throw Error("wavelet --inverse takes a mosaic of even width and height");
    const std::string lay = layout_of(a);
    const std::size_t px = static_cast<std::size_t>(a.channels) * 4;  // bytes of a pixel
    Image out;
    out.allocate(2 * hw, 2 * hh, a.channels, Depth::f32);
    // the four bands inside the mosaic: (x, y) of each quarter
    const int at[4][2] = {{0, 0}, {hw, 0}, {0, hh}, {hw, hh}};
    auto quarter = [&](Image& m, int k) { return reinterpret_cast<Rok32f*>(m.row(at[k][1]) + at[k][0] * px); };
    int size = 0;
    if (!inv) {
        // analysis: band j = taps[0] src[2j + 1] + taps[1] src[2j] (anchor 1)
        const Rok32f low[2] = {kHaar, kHaar}, high[2] = {kHaar, -kHaar};
        auto init = find_export("WTFwdInitAlloc", "32f", lay, {"R"}, c.name);
        auto run = find_export("WTFwd", "32f", lay, {"R"}, c.name);
        void* spec = nullptr;
        using Init = RokStatus (*)(void**, const Rok32f*, int, int, const Rok32f*, int, int);
        check(reinterpret_cast<Init>(init.fn)(&spec, low, 2, 1, high, 2, 1), init.name);
        auto fr = find_export("WTFwdFree", "32f", lay, {"R"}, c.name);
        std::unique_ptr<void, RokStatus (*)(void*)> hold(spec, reinterpret_cast<RokStatus (*)(void*)>(fr.fn));
        auto* fs = static_cast<const RokiWTFwdSpec_32f*>(spec);
        check(a.channels == 1 ? rokiWTFwdGetBufSize_C1R(fs, &size) : rokiWTFwdGetBufSize_C3R(fs, &size), "rokiWTFwdGetBufSize");
        std::vector<Rok8u> buf(static_cast<std::size_t>(std::max(size, 1)));
        using Fwd = RokStatus (*)(const Rok32f*, int, Rok32f*, int, Rok32f*, int, Rok32f*, int, Rok32f*, int, RokiSize, const void*, Rok8u*);
        // approximation, high along columns, high along rows, high along both
        check(reinterpret_cast<Fwd>(run.fn)(reinterpret_cast<const Rok32f*>(a.data.data()), a.step(), quarter(out, 0), out.step(),
                                            quarter(out, 2), out.step(), quarter(out, 1), out.step(), quarter(out, 3), out.step(),
                                            {hw, hh}, spec, buf.data()),
              run.name);
        if (!o.has("view")) return out;
        // each band scaled on its own: the approximation from its range, the details from their largest magnitude
        Image view;
        view.allocate(out.width, out.height, out.channels, Depth::u8);
        for (int k = 0; k < 4; ++k) {
            double lo = HUGE_VAL, hi = -HUGE_VAL;
            for (int y = 0; y < hh; ++y)
                for (int i = 0; i < hw * a.channels; ++i) {
                    double v = quarter(out, k)[static_cast<std::size_t>(y) * out.width * a.channels + i];
                    if (k) v = std::fabs(v);
                    lo = std::min(lo, v), hi = std::max(hi, v);
                }
            if (k) lo = 0;
            for (int y = 0; y < hh; ++y)
                for (int i = 0; i < hw * a.channels; ++i) {
                    double v = quarter(out, k)[static_cast<std::size_t>(y) * out.width * a.channels + i];
                    if (k) v = std::fabs(v);
                    double g = hi > lo ? (v - lo) / (hi - lo) * 255.0 : 0;
                    view.row(at[k][1] + y)[static_cast<std::size_t>(at[k][0]) * a.channels + i] = static_cast<std::uint8_t>(std::lround(g));
                }
        }
        return view;
    }
    // synthesis: the analysis taps reversed, anchor 0
    const Rok32f low[2] = {kHaar, kHaar}, high[2] = {-kHaar, kHaar};
    auto init = find_export("WTInvInitAlloc", "32f", lay, {"R"}, c.name);
    auto run = find_export("WTInv", "32f", lay, {"R"}, c.name);
    void* spec = nullptr;
    using Init = RokStatus (*)(void**, const Rok32f*, int, int, const Rok32f*, int, int);
    check(reinterpret_cast<Init>(init.fn)(&spec, low, 2, 0, high, 2, 0), init.name);
    auto fr = find_export("WTInvFree", "32f", lay, {"R"}, c.name);
    std::unique_ptr<void, RokStatus (*)(void*)> hold(spec, reinterpret_cast<RokStatus (*)(void*)>(fr.fn));
    auto* is = static_cast<const RokiWTInvSpec_32f*>(spec);
    check(a.channels == 1 ? rokiWTInvGetBufSize_C1R(is, &size) : rokiWTInvGetBufSize_C3R(is, &size), "rokiWTInvGetBufSize");
    std::vector<Rok8u> buf(static_cast<std::size_t>(std::max(size, 1)));
    // the bands read one pixel past their region: each band copied into a buffer with a zero border
    std::vector<Image> band(4);
    for (int k = 0; k < 4; ++k) {
        band[static_cast<std::size_t>(k)].allocate(hw + 2, hh + 2, a.channels, Depth::f32);
        for (int y = 0; y < hh; ++y)
            std::memcpy(band[static_cast<std::size_t>(k)].row(y + 1) + px, a.row(at[k][1] + y) + at[k][0] * px, static_cast<std::size_t>(hw) * px);
    }
    auto origin = [&](int k) { return reinterpret_cast<const Rok32f*>(band[static_cast<std::size_t>(k)].row(1) + px); };
    int bstep = band[0].step();
    using Inv = RokStatus (*)(const Rok32f*, int, const Rok32f*, int, const Rok32f*, int, const Rok32f*, int, RokiSize, Rok32f*, int, const void*, Rok8u*);
    check(reinterpret_cast<Inv>(run.fn)(origin(0), bstep, origin(2), bstep, origin(1), bstep, origin(3), bstep, {hw, hh},
                                        reinterpret_cast<Rok32f*>(out.data.data()), out.step(), spec, buf.data()),
          run.name);
    return out;
}

}  // namespace rok
