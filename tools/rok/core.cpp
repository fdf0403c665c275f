// Shared parts of rok: argument parsing, status checks, the export table and
// the helpers that several commands use.
#include "rok.h"

namespace rok {

// "5x5" or "5" -> {5, 5}
RokiSize parse_size(const std::string& s, const std::string& what) {
    int w = 0, h = 0;
    char extra = 0;
    int n = std::sscanf(s.c_str(), "%dx%d%c", &w, &h, &extra);
    if (n == 1) h = w;
    if (n < 1 || n > 2 || w < 1 || h < 1 || w > 255 || h > 255)
        throw Error("--" + what + " takes a size such as 5x5 (1 to 255), not '" + s + "'");
    return {w, h};
}

std::string json_escape(const std::string& s) {
    std::string r;
    for (char ch : s) {
        if (ch == '"' || ch == '\\') r += '\\';
        if (static_cast<unsigned char>(ch) < 0x20) { r += ' '; continue; }
        r += ch;
    }
    return r;
}

std::string status_text(RokStatus s) { return rokGetStatusString(s); }

void check(RokStatus s, const std::string& fn) {
    if (s < 0) throw LibraryError(fn + " refused the image: " + status_text(s));
    if (s > 0) std::fprintf(stderr, "rok: warning from %s: %s\n", fn.c_str(), status_text(s).c_str());
}

namespace {
const Entry kExports[] = {
#include "generated/dispatch.inc"
};
}  // namespace

ExportRange all_exports() { return {std::begin(kExports), std::end(kExports)}; }

// "8u 16u 32f with 1, 3 channel(s)": what a family takes, for the message
// when an image does not fit.
std::string takes(const std::string& family) {
    std::vector<std::string> types, chans;
    auto add = [](std::vector<std::string>& v, const std::string& s) {
        if (std::find(v.begin(), v.end(), s) == v.end()) v.push_back(s);
    };
    for (const Entry& e : kExports)
        if (family == e.family) {
            add(types, e.types);
            if (std::strcmp(e.layout, "AC4") != 0 && std::strlen(e.layout) == 2) add(chans, e.layout + 1);
        }
    std::string s;
    for (const auto& t : types) s += (s.empty() ? "" : " ") + t;
    s += " with ";
    for (std::size_t i = 0; i < chans.size(); ++i) s += (i ? ", " : "") + chans[i];
    return s + " channel(s)";
}

// An RGBA image goes to the C4 form, or to the AC4 form where the family has
// no C4 one: the outputs start as copies of the source (see like()), so
// AC4 leaves them the source's alpha.
Found find_export(const std::string& family, const std::string& types, const std::string& layout,
                  const std::vector<std::string>& suffixes, const std::string& command) {
    for (const std::string& lay : {layout, std::string(layout == "C4" ? "AC4" : "")})
        for (const auto& suf : suffixes)
            for (const Entry& e : kExports)
                if (family == e.family && types == e.types && lay == e.layout && suf == e.form)
                    return {e.fn, "roki" + family + "_" + types + "_" + lay + suf, suf};
    throw Error(command + " does not take " + types + " images with " + (layout == "AC4" ? "4" : layout.substr(1)) +
                " channel(s) (it takes " + takes(family) + ")");
}

// The output of an operation that keeps the image's size and type: a copy of
// the source, so that forms that leave alpha alone (AC4) keep its alpha.
Image like(const Image& img) { return img; }

// A zeroed image of the same size and type: the background of the warps.
Image blank(const Image& img) {
    Image out;
    out.allocate(img.width, img.height, img.channels, img.depth);
    return out;
}

Padded pad(const Image& in, int top, int left, int bottom, int right) {
    Padded p;
    p.top = top;
    p.left = left;
    p.img.allocate(in.width + left + right, in.height + top + bottom, in.channels, in.depth);
    auto f = find_export("CopyReplicateBorder", depth_name(in.depth), layout_of(in), {"R"}, "border");
    using Fn = RokStatus (*)(const void*, int, Roi, void*, int, Roi, int, int);
    check(reinterpret_cast<Fn>(f.fn)(in.data.data(), in.step(), roi_of(in), p.img.data.data(), p.img.step(),
                                     roi_of(p.img), top, left),
          f.name);
    return p;
}

// "--value 7" or "--value 10,20,30": one number for every channel or one per
// channel, each a sample of the image's type.
std::vector<double> parse_values(const Options& o, const std::string& key, Depth d, int channels) {
    std::string s = o.get(key);
    std::vector<double> v;
    std::size_t p = 0;
    double top = d == Depth::u8 ? 255 : d == Depth::u16 ? 65535 : 3.4e38, bottom = d == Depth::f32 ? -3.4e38 : 0;
    while (p <= s.size()) {
        std::size_t e = s.find(',', p);
        if (e == std::string::npos) e = s.size();
        std::string item = s.substr(p, e - p);
        char* end = nullptr;
        double x = std::strtod(item.c_str(), &end);
        if (item.empty() || *end || !std::isfinite(x) || x < bottom || x > top || (d != Depth::f32 && x != std::floor(x)))
            throw Error("--" + key + " takes " + (d == Depth::f32 ? std::string("numbers") : "whole numbers from 0 to " + Options::fmt_num(top)) +
                        " for " + depth_name(d) + " images, one or one per channel, not '" + s + "'");
        v.push_back(x);
        p = e + 1;
    }
    if (v.size() == 1) v.assign(static_cast<std::size_t>(channels), v[0]);
    if (v.size() != static_cast<std::size_t>(channels))
        throw Error("--" + key + " takes one number or " + std::to_string(channels) + ", one per channel");
    return v;
}

// The layout of the pixel-value operations (arithmetic, logic, compare,
// threshold, shifts, math, curves): RGBA images as AC4, alpha kept, where the
// family has it, else C4. Filters and geometry treat alpha as a fourth
// channel.
std::string colour_layout(const std::string& family, const Image& a) {
    if (a.channels != 4) return layout_of(a);
    for (const Entry& e : kExports)
        if (family == e.family && std::strcmp(e.layout, "AC4") == 0) return "AC4";
    return "C4";
}

int parse_cmp(const std::string& op) {
    static const std::map<std::string, int> ops = {{"lt", rokCompareLess}, {"le", rokCompareLessEq}, {"eq", rokCompareEq},
                                                   {"ge", rokCompareGreaterEq}, {"gt", rokCompareGreater}};
    auto it = ops.find(op);
    if (it == ops.end()) throw Error("--op takes lt, le, eq, ge or gt, not '" + op + "'");
    return it->second;
}

Depth parse_depth(const std::string& s) {
    if (s == "8u") return Depth::u8;
    if (s == "16u") return Depth::u16;
    if (s == "32f") return Depth::f32;
    throw Error("--to takes 8u, 16u or 32f, not '" + s + "'");
}

// Filters with a rectangular mask centred on the pixel: box and median.
Image run_mask(const std::string& family, const char* cmd, RokiSize mask, const Image& a) {
    RokiPoint anchor{mask.width / 2, mask.height / 2};
    auto f = find_export(family, depth_name(a.depth), layout_of(a), {"R"}, cmd);
    Padded p = pad(a, anchor.y, anchor.x, mask.height - 1 - anchor.y, mask.width - 1 - anchor.x);
    Image out = like(a);
    RokStatus s;
    if (family == "FilterMedian" && a.depth == Depth::f32) {
        int size = 0;
        check(rokiFilterMedianGetBufferSize_32f(roi_of(a), mask, a.channels, &size), "rokiFilterMedianGetBufferSize_32f");
        std::vector<Rok8u> buf(static_cast<std::size_t>(std::max(size, 1)));
        s = reinterpret_cast<FnMaskBuf>(f.fn)(p.origin(), p.img.step(), out.data.data(), out.step(), roi_of(a), mask, anchor,
                                              buf.data());
    } else {
        s = reinterpret_cast<FnMask>(f.fn)(p.origin(), p.img.step(), out.data.data(), out.step(), roi_of(a), mask, anchor);
    }
    check(s, f.name);
    return out;
}

// Fixed 3x3 or 5x5 kernels: the source is padded by the kernel's radius.
Image run_fixed(const std::string& family, const char* cmd, int radius, int arg, bool has_arg, const Image& a) {
    auto f = find_export(family, depth_name(a.depth), layout_of(a), {"R"}, cmd);
    Padded p = pad(a, radius, radius, radius, radius);
    Image out = like(a);
    RokStatus s = has_arg ? reinterpret_cast<FnUnaryInt>(f.fn)(p.origin(), p.img.step(), out.data.data(), out.step(), roi_of(a), arg)
                          : reinterpret_cast<FnUnary>(f.fn)(p.origin(), p.img.step(), out.data.data(), out.step(), roi_of(a));
    check(s, f.name);
    return out;
}

// Edge filters whose results are signed: 8-bit grey images give 16s
// samples, converted to 32f for the file (.pfm); 32f images stay 32f.
Image run_signed(const std::string& family, const char* cmd, int arg, bool has_arg, const Image& a) {
    if (a.depth == Depth::f32) return run_fixed(family, cmd, 1, arg, has_arg, a);
    auto f = find_export(family, std::string(depth_name(a.depth)) + "16s", layout_of(a), {"R"}, cmd);
    Padded p = pad(a, 1, 1, 1, 1);
    std::vector<Rok16s> d(static_cast<std::size_t>(a.width) * a.height);
    int dstep = a.width * 2;
    RokStatus s = has_arg ? reinterpret_cast<FnUnaryInt>(f.fn)(p.origin(), p.img.step(), d.data(), dstep, roi_of(a), arg)
                          : reinterpret_cast<FnUnary>(f.fn)(p.origin(), p.img.step(), d.data(), dstep, roi_of(a));
    check(s, f.name);
    Image out;
    out.allocate(a.width, a.height, 1, Depth::f32);
    check(rokiConvert_16s32f_C1R(d.data(), dstep, reinterpret_cast<Rok32f*>(out.data.data()), out.step(), roi_of(a)),
          "rokiConvert_16s32f_C1R");
    return out;
}

int parse_method(const std::string& m) {
    static const std::map<std::string, int> methods = {
        {"nearest", rokInterNearest}, {"linear", rokInterLinear}, {"cubic", rokInterCubic},
        {"lanczos", rokInterLanczos}, {"super", rokInterSuper}};
    auto it = methods.find(m);
    if (it == methods.end()) throw Error("--method takes nearest, linear, cubic, lanczos or super, not '" + m + "'");
    return it->second;
}

// ---- conversions and views that several commands use ----

// The image's samples as 32f, converted by the library.
Image to_f32(const Image& a) {
    if (a.depth == Depth::f32) return a;
    auto f = find_export("Convert", std::string(depth_name(a.depth)) + "32f", layout_of(a), {"R"}, "convert");
    Image out;
    out.allocate(a.width, a.height, a.channels, Depth::f32);
    check(reinterpret_cast<FnUnary>(f.fn)(a.data.data(), a.step(), out.data.data(), out.step(), roi_of(a)), f.name);
    return out;
}

// Log magnitude scaled to 0..255 per channel, for viewing a spectrum.
Image log_view(const Image& f32, bool centre) {
    int w = f32.width, h = f32.height, nc = f32.channels;
    const float* m = reinterpret_cast<const float*>(f32.data.data());
    Image out;
    out.allocate(w, h, nc, Depth::u8);
    for (int k = 0; k < nc; ++k) {
        // Scaled between the smallest value and the largest away from the
        // zero-frequency term, which would otherwise leave the rest dark.
        double top = 0, bottom = HUGE_VAL;
        std::vector<double> lg(static_cast<std::size_t>(w) * h);
        for (std::size_t i = 0; i < lg.size(); ++i) {
            lg[i] = std::log1p(std::fabs(static_cast<double>(m[i * nc + k])));
            if (i) top = std::max(top, lg[i]);
            bottom = std::min(bottom, lg[i]);
        }
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) {
                double v = top > bottom ? (lg[static_cast<std::size_t>(y) * w + x] - bottom) / (top - bottom) * 255.0 : 0;
                int oy = centre ? (y + h / 2) % h : y, ox = centre ? (x + w / 2) % w : x;
                out.row(oy)[static_cast<std::size_t>(ox) * nc + k] = static_cast<std::uint8_t>(std::lround(std::min(v, 255.0)));
            }
    }
    return out;
}

}  // namespace rok
