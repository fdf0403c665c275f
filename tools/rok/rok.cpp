// rok: the library's image-processing functions over image files.
//
// Every subcommand is one line of the command table below: its name, the
// options it takes, an example, and the library family it calls. The export
// for an image is looked up in a table generated from the manifest by family,
// the image's sample type, its channel layout and the form (Add, 8u, C3,
// RSfs), so a family that takes one of the call shapes here needs only a
// command line and its option parsing.
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "image_io.h"
#include "rokcore.h"
#include "roki.h"

namespace rok {
namespace {

// ---- options ----

struct Options {
    std::vector<std::string> args;          // positional arguments
    std::map<std::string, std::string> kv;  // --name value, and --flag as "1"
    bool has(const std::string& k) const { return kv.count(k) != 0; }
    std::string get(const std::string& k, const std::string& def = "") const {
        auto it = kv.find(k);
        return it == kv.end() ? def : it->second;
    }
    double number(const std::string& k, double def, double lo, double hi) const {
        if (!has(k)) return def;
        const std::string& s = kv.at(k);
        char* end = nullptr;
        double v = std::strtod(s.c_str(), &end);
        if (s.empty() || *end || !std::isfinite(v) || v < lo || v > hi)
            throw Error("--" + k + " takes a number from " + fmt_num(lo) + " to " + fmt_num(hi) + ", not '" + s + "'");
        return v;
    }
    int integer(const std::string& k, int def, int lo, int hi) const {
        double v = number(k, def, lo, hi);
        if (v != std::floor(v)) throw Error("--" + k + " takes a whole number, not '" + kv.at(k) + "'");
        return static_cast<int>(v);
    }
    static std::string fmt_num(double v) {
        char b[32];
        std::snprintf(b, sizeof b, "%g", v);
        return b;
    }
};

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

// ---- the library ----

// A status the library gave: errors stop the file, warnings are reported.
struct LibraryError : Error {
    using Error::Error;
};

std::string status_text(RokStatus s) { return rokGetStatusString(s); }

void check(RokStatus s, const std::string& fn) {
    if (s < 0) throw LibraryError(fn + " refused the image: " + status_text(s));
    if (s > 0) std::fprintf(stderr, "rok: warning from %s: %s\n", fn.c_str(), status_text(s).c_str());
}

std::string layout_of(const Image& img) { return "C" + std::to_string(img.channels); }

// Every export over an interleaved image, generated from the manifest: a
// subcommand finds the function for an image's sample type and channels here.
using AnyFn = void (*)();
struct Entry {
    const char* family;
    const char* types;   // "8u", or source and destination ("8u32f")
    const char* layout;  // C1, C3, C4, AC4; the channel moves C3C1, C4C1, C3AC4, C4C, C1C3
    const char* form;    // R, IR, RSfs ...
    const char* shape;   // the call shape of the manifest
    AnyFn fn;
};
const Entry kExports[] = {
#include "generated/dispatch.inc"
};

// The export of a family for this image, trying the forms in order.
struct Found {
    AnyFn fn;
    std::string name;
    std::string suffix;
};

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

using Roi = RokiSize;
using FnUnary = RokStatus (*)(const void*, int, void*, int, Roi);
using FnUnaryInt = RokStatus (*)(const void*, int, void*, int, Roi, int);
using FnBinary = RokStatus (*)(const void*, int, const void*, int, void*, int, Roi);
using FnBinarySfs = RokStatus (*)(const void*, int, const void*, int, void*, int, Roi, int);
using FnMask = RokStatus (*)(const void*, int, void*, int, Roi, RokiSize, RokiPoint);
using FnMaskBuf = RokStatus (*)(const void*, int, void*, int, Roi, RokiSize, RokiPoint, Rok8u*);

int pixel_bytes(const Image& img) { return img.channels * depth_bytes(img.depth); }
Roi roi_of(const Image& img) { return {img.width, img.height}; }
// The output of an operation that keeps the image's size and type: a copy of
// the source, so that forms that leave alpha alone (AC4) keep its alpha.
Image like(const Image& img) { return img; }
// A zeroed image of the same size and type: the background of the warps.
Image blank(const Image& img) {
    Image out;
    out.allocate(img.width, img.height, img.channels, img.depth);
    return out;
}

// The image with rows and columns replicated around it, for the
// neighbourhood operations, which read beyond the pixels they write.
struct Padded {
    Image img;
    int top = 0, left = 0;
    const std::uint8_t* origin() const { return img.row(top) + static_cast<std::size_t>(left) * pixel_bytes(img); }
};

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

// ---- the commands ----

struct Command;
using Run = std::function<Image(const Command&, const Options&, const Image&, const Image*)>;

struct Command {
    const char* name;
    const char* summary;
    const char* usage;    // after "rok <name> "
    const char* options;  // one option a line, "--name V  what it does"
    const char* example;
    const char* family;   // library family, for the message when a type is not taken
    int inputs;           // images read per output (1 or 2); 0 for commands that print
    Run run;
    bool pairs = false;   // also takes two images (A B OUT) instead of one
};

// ---- constants and typed samples ----

// Calls f with a value of the image's sample type, so that one body serves
// 8u, 16u and 32f.
template <class F>
auto with_type(Depth d, F&& f) {
    if (d == Depth::u8) return f(Rok8u{});
    if (d == Depth::u16) return f(Rok16u{});
    return f(Rok32f{});
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

Image run_const(const Command& c, const Options& o, const Image& a, const std::string& base);

// Element-wise arithmetic of two images: rokiAdd, rokiSub, rokiMul; with
// --value, of the image and a constant.
Image run_binary(const Command& c, const Options& o, const Image& a, const Image* b, bool swap) {
    if (!b) return run_const(c, o, a, c.family);
    if (b->width != a.width || b->height != a.height || b->channels != a.channels || b->depth != a.depth)
        throw Error(std::string(c.name) + ": the two images differ in size, channels or sample type");
    int sf = o.integer("scale", 0, -31, 31);
    if (o.has("full-range")) {  // a b / max, rounded
        if (std::string(c.name) != "mul") throw Error(std::string(c.name) + ": --full-range applies to mul");
        if (sf != 0) throw Error("mul: --full-range takes no --scale");
        auto f = find_export("MulScale", depth_name(a.depth), colour_layout("MulScale", a), {"R"}, c.name);
        Image out = like(a);
        check(reinterpret_cast<FnBinary>(f.fn)(a.data.data(), a.step(), b->data.data(), b->step(), out.data.data(), out.step(),
                                               roi_of(a)),
              f.name);
        return out;
    }
    if (o.has("round")) {  // the quotient rounded as asked, then scaled
        if (std::string(c.name) != "div") throw Error(std::string(c.name) + ": --round applies to div");
        std::string r = o.get("round");
        int mode = r == "zero" ? rokRoundTruncate : r == "even" ? rokRoundNearestEven : r == "away" ? rokRoundHalfAway : -1;
        if (mode < 0) throw Error("--round takes zero, even or away, not '" + r + "'");
        auto f = find_export("Div_Round", depth_name(a.depth), colour_layout("Div_Round", a), {"RSfs"}, c.name);
        Image out = like(a);
        using Fn = RokStatus (*)(const void*, int, const void*, int, void*, int, Roi, int, int);
        check(reinterpret_cast<Fn>(f.fn)(b->data.data(), b->step(), a.data.data(), a.step(), out.data.data(), out.step(), roi_of(a), mode,
                                         sf),
              f.name);
        return out;
    }
    auto f = find_export(c.family, depth_name(a.depth), colour_layout(c.family, a), {"RSfs", "R"}, c.name);
    Image out = like(a);
    // The library's subtraction and division take their first operand as the
    // one subtracted or divided by; "rok sub a b" means a - b.
    const Image& s1 = swap ? *b : a;
    const Image& s2 = swap ? a : *b;
    RokStatus s;
    if (f.suffix == "RSfs")
        s = reinterpret_cast<FnBinarySfs>(f.fn)(s1.data.data(), s1.step(), s2.data.data(), s2.step(), out.data.data(),
                                                out.step(), roi_of(a), sf);
    else {
        if (sf != 0) throw Error(std::string(c.name) + ": --scale applies to integer images only");
        s = reinterpret_cast<FnBinary>(f.fn)(s1.data.data(), s1.step(), s2.data.data(), s2.step(), out.data.data(),
                                             out.step(), roi_of(a));
    }
    check(s, f.name);
    return out;
}

int parse_cmp(const std::string& op) {
    static const std::map<std::string, int> ops = {{"lt", rokCompareLess}, {"le", rokCompareLessEq}, {"eq", rokCompareEq},
                                                   {"ge", rokCompareGreaterEq}, {"gt", rokCompareGreater}};
    auto it = ops.find(op);
    if (it == ops.end()) throw Error("--op takes lt, le, eq, ge or gt, not '" + op + "'");
    return it->second;
}

// A grey 8-bit mask: 255 where the comparison of A with B holds, else 0.
Image run_compare(const Command& c, const Options& o, const Image& a, const Image* b) {
    if (!b) return run_const(c, o, a, "Compare");
    if (b->width != a.width || b->height != a.height || b->channels != a.channels || b->depth != a.depth)
        throw Error(std::string(c.name) + ": the two images differ in size, channels or sample type");
    Image out;
    out.allocate(a.width, a.height, 1, Depth::u8);
    if (o.has("eps")) {  // 255 where |a - b| <= eps
        if (o.has("op")) throw Error("compare: --eps compares for equality and takes no --op");
        double eps = o.number("eps", 0, 0, 3.4e38);
        auto f = find_export("CompareEqualEps", depth_name(a.depth), colour_layout("CompareEqualEps", a), {"R"}, c.name);
        using Fn = RokStatus (*)(const void*, int, const void*, int, void*, int, Roi, Rok32f);
        check(reinterpret_cast<Fn>(f.fn)(a.data.data(), a.step(), b->data.data(), b->step(), out.data.data(), out.step(), roi_of(a),
                                         static_cast<Rok32f>(eps)),
              f.name);
        return out;
    }
    int cmp = parse_cmp(o.get("op", "gt"));
    auto f = find_export(c.family, depth_name(a.depth), colour_layout(c.family, a), {"R"}, c.name);
    using Fn = RokStatus (*)(const void*, int, const void*, int, void*, int, Roi, int);
    check(reinterpret_cast<Fn>(f.fn)(a.data.data(), a.step(), b->data.data(), b->step(), out.data.data(), out.step(), roi_of(a), cmp),
          f.name);
    return out;
}

Depth parse_depth(const std::string& s) {
    if (s == "8u") return Depth::u8;
    if (s == "16u") return Depth::u16;
    if (s == "32f") return Depth::f32;
    throw Error("--to takes 8u, 16u or 32f, not '" + s + "'");
}

Image run_convert(const Command& c, const Options& o, const Image& a, const Image*) {
    if (!o.has("to")) throw Error("convert needs --to 8u, 16u or 32f");
    Depth to = parse_depth(o.get("to"));
    if (to == a.depth) return a;
    std::string types = std::string(depth_name(a.depth)) + depth_name(to);
    Image out;
    out.allocate(a.width, a.height, a.channels, to);
    if (o.has("full-range") || o.has("range")) {
        // The whole range of one type onto the other's: 0..255 <-> 0..65535,
        // or a range of 32f values (default 0 to 1) <-> 0..255.
        auto f = find_export("Scale", types, layout_of(a), {"R"}, c.name);
        RokStatus s;
        if (a.depth == Depth::f32 || to == Depth::f32) {
            double lo = 0, hi = 1;
            char extra = 0;
            if (o.has("range") && std::sscanf(o.get("range").c_str(), "%lf,%lf%c", &lo, &hi, &extra) != 2)
                throw Error("--range takes LO,HI, not '" + o.get("range") + "'");
            using Fn = RokStatus (*)(const void*, int, void*, int, Roi, Rok32f, Rok32f);
            s = reinterpret_cast<Fn>(f.fn)(a.data.data(), a.step(), out.data.data(), out.step(), roi_of(a), static_cast<Rok32f>(lo),
                                           static_cast<Rok32f>(hi));
        } else if (o.has("range")) {
            throw Error("--range applies to conversions to and from 32f");
        } else if (to == Depth::u8) {
            s = reinterpret_cast<FnUnaryInt>(f.fn)(a.data.data(), a.step(), out.data.data(), out.step(), roi_of(a), rokHintAccurate);
        } else {
            s = reinterpret_cast<FnUnary>(f.fn)(a.data.data(), a.step(), out.data.data(), out.step(), roi_of(a));
        }
        check(s, f.name);
        return out;
    }
    auto f = find_export(c.family, types, layout_of(a), {"R"}, c.name);
    RokStatus s;
    if (a.depth == Depth::f32)  // rounds to nearest, ties to even; saturates
        s = reinterpret_cast<FnUnaryInt>(f.fn)(a.data.data(), a.step(), out.data.data(), out.step(), roi_of(a),
                                               rokRoundNearestEven);
    else
        s = reinterpret_cast<FnUnary>(f.fn)(a.data.data(), a.step(), out.data.data(), out.step(), roi_of(a));
    check(s, f.name);
    return out;
}

Image run_border(const Command& c, const Options& o, const Image& a, const Image*) {
    int n = 0;
    std::string kind;
    for (const char* k : {"replicate", "const", "wrap"})
        if (o.has(k)) {
            if (!kind.empty()) throw Error("border takes one of --replicate, --const, --wrap");
            kind = k;
            n = o.integer(k, 0, 0, 4096);
        }
    if (kind.empty()) throw Error("border needs --replicate N, --const N or --wrap N");
    if (kind == "wrap") {  // the image repeated around itself (32f grey)
        if (n > a.width || n > a.height) throw Error("--wrap takes at most the image's width and height");
        auto f = find_export("CopyWrapBorder", depth_name(a.depth), layout_of(a), {"R"}, c.name);
        Image out;
        out.allocate(a.width + 2 * n, a.height + 2 * n, a.channels, a.depth);
        using Fn = RokStatus (*)(const void*, int, Roi, void*, int, Roi, int, int);
        check(reinterpret_cast<Fn>(f.fn)(a.data.data(), a.step(), roi_of(a), out.data.data(), out.step(), roi_of(out), n, n), f.name);
        return out;
    }
    Image out;
    out.allocate(a.width + 2 * n, a.height + 2 * n, a.channels, a.depth);
    std::string fam = kind == "replicate" ? "CopyReplicateBorder" : "CopyConstBorder";
    auto f = find_export(fam, depth_name(a.depth), layout_of(a), {"R"}, c.name);
    RokStatus s;
    if (kind == "const") {
        double v = o.number("value", 0, a.depth == Depth::f32 ? -3.4e38 : 0,
                            a.depth == Depth::u8 ? 255 : a.depth == Depth::u16 ? 65535 : 3.4e38);
        // One value for every channel: by value for grey images, as an array otherwise.
        alignas(8) std::uint8_t fill[16] = {};
        for (int k = 0; k < a.channels && k < 4; ++k) {
            if (a.depth == Depth::u8) fill[k] = static_cast<Rok8u>(v);
            else if (a.depth == Depth::u16) { Rok16u x = static_cast<Rok16u>(v); std::memcpy(fill + 2 * k, &x, 2); }
            else { Rok32f x = static_cast<Rok32f>(v); std::memcpy(fill + 4 * k, &x, 4); }
        }
        if (a.channels > 1) {
            using Fn = RokStatus (*)(const void*, int, Roi, void*, int, Roi, int, int, const void*);
            s = reinterpret_cast<Fn>(f.fn)(a.data.data(), a.step(), roi_of(a), out.data.data(), out.step(), roi_of(out), n, n, fill);
        } else if (a.depth == Depth::u8) {
            using Fn = RokStatus (*)(const void*, int, Roi, void*, int, Roi, int, int, Rok8u);
            s = reinterpret_cast<Fn>(f.fn)(a.data.data(), a.step(), roi_of(a), out.data.data(), out.step(), roi_of(out), n, n, fill[0]);
        } else if (a.depth == Depth::u16) {
            using Fn = RokStatus (*)(const void*, int, Roi, void*, int, Roi, int, int, Rok16u);
            s = reinterpret_cast<Fn>(f.fn)(a.data.data(), a.step(), roi_of(a), out.data.data(), out.step(), roi_of(out), n, n,
                                           static_cast<Rok16u>(v));
        } else {
            using Fn = RokStatus (*)(const void*, int, Roi, void*, int, Roi, int, int, Rok32f);
            s = reinterpret_cast<Fn>(f.fn)(a.data.data(), a.step(), roi_of(a), out.data.data(), out.step(), roi_of(out), n, n,
                                           static_cast<Rok32f>(v));
        }
    } else {
        using Fn = RokStatus (*)(const void*, int, Roi, void*, int, Roi, int, int);
        s = reinterpret_cast<Fn>(f.fn)(a.data.data(), a.step(), roi_of(a), out.data.data(), out.step(), roi_of(out), n, n);
    }
    check(s, f.name);
    return out;
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

Image run_user_kernel(const Command& c, const Options& o, const Image& a);
Image run_separable(const Command& c, const Options& o, const Image& a);

Image run_filter(const Command& c, const Options& o, const Image& a, const Image*) {
    int chosen = o.has("box") + o.has("sobel") + o.has("gauss") + o.has("sharpen") + o.has("laplace") + o.has("sobel-vert") +
                 o.has("prewitt") + o.has("roberts") + o.has("hipass") + o.has("lowpass") + o.has("scharr") + o.has("sobel-second") +
                 o.has("sobel-cross");
    bool user = !o.has("box") && (o.has("kernel") || o.has("kernel-file"));
    bool separable = o.has("row") || o.has("column");
    if (separable && chosen == 0 && !user) return run_separable(c, o, a);
    if (user && chosen == 0 && !separable && o.has("kernel") + o.has("kernel-file") == 1) return run_user_kernel(c, o, a);
    if (chosen != 1 || user || separable)
        throw Error("filter takes one of --kernel \"K\", --kernel-file F, --row/--column K, --box, --sobel, --sobel-vert, --prewitt h|v, "
                    "--scharr h|v, --sobel-second h|v, --sobel-cross, "
                    "--roberts down|up, --gauss N, --lowpass N, --hipass N, --sharpen, --laplace N");
    if (o.has("sobel-vert")) return run_fixed("FilterSobelVert", c.name, 1, 0, false, a);
    for (const char* k : {"scharr", "sobel-second"})
        if (o.has(k)) {
            std::string d = o.get(k);
            if (d != "h" && d != "v") throw Error(std::string("--") + k + " takes h (horizontal edges) or v (vertical edges)");
            if (k[1] == 'c') return run_signed(d == "h" ? "FilterScharrHoriz" : "FilterScharrVert", c.name, 0, false, a);
            return run_signed(d == "h" ? "FilterSobelHorizSecond" : "FilterSobelVertSecond", c.name, rokMskSize3x3, true, a);
        }
    if (o.has("sobel-cross")) return run_signed("FilterSobelCross", c.name, rokMskSize3x3, true, a);
    if (o.has("prewitt")) {
        std::string d = o.get("prewitt");
        if (d != "h" && d != "v") throw Error("--prewitt takes h (horizontal edges) or v (vertical edges)");
        return run_fixed(d == "h" ? "FilterPrewittHoriz" : "FilterPrewittVert", c.name, 1, 0, false, a);
    }
    if (o.has("roberts")) {
        std::string d = o.get("roberts");
        if (d != "down" && d != "up") throw Error("--roberts takes down or up");
        return run_fixed(d == "down" ? "FilterRobertsDown" : "FilterRobertsUp", c.name, 1, 0, false, a);
    }
    for (const char* k : {"hipass", "lowpass"})
        if (o.has(k)) {
            int n = o.integer(k, 3, 3, 5);
            if (n != 3 && n != 5) throw Error(std::string("--") + k + " takes 3 or 5");
            return run_fixed(k[0] == 'h' ? "FilterHipass" : "FilterLowpass", c.name, n / 2, n == 3 ? rokMskSize3x3 : rokMskSize5x5, true, a);
        }
    if (o.has("box")) {
        RokiSize k = parse_size(o.get("kernel", "3x3"), "kernel");
        return run_mask("FilterBox", c.name, k, a);
    }
    if (o.has("sobel")) return run_fixed("FilterSobelHoriz", c.name, 1, 0, false, a);
    if (o.has("sharpen")) return run_fixed("FilterSharpen", c.name, 1, 0, false, a);
    if (o.has("gauss")) {
        int n = o.integer("gauss", 3, 3, 5);
        if (n != 3 && n != 5) throw Error("--gauss takes 3 or 5");
        return run_fixed("FilterGauss", c.name, n / 2, n == 3 ? rokMskSize3x3 : rokMskSize5x5, true, a);
    }
    int n = o.integer("laplace", 3, 3, 5);
    if (n != 3 && n != 5) throw Error("--laplace takes 3 or 5");
    return run_fixed("FilterLaplace", c.name, n / 2, n == 3 ? rokMskSize3x3 : rokMskSize5x5, true, a);
}

// The rectangular median, or the fixed masks: a cross, a row or a column of
// 3 or 5, or the colour median (the pixel nearest the others in RGB).
Image run_median(const Command& c, const Options& o, const Image& a, const Image*) {
    if (o.has("weighted")) {  // 3x3, the centre counted W times
        if (o.has("mask") || o.has("cross") || o.has("horiz") || o.has("vert") || o.has("color"))
            throw Error("median takes one of --mask WxH, --cross N, --horiz N, --vert N, --color N, --weighted W");
        return run_fixed("FilterMedianWeightedCenter3x3", c.name, 1, o.integer("weighted", 3, 1, 99), true, a);
    }
    static const char* shapes[] = {"cross", "horiz", "vert", "color"};
    int chosen = o.has("mask");
    for (const char* k : shapes) chosen += o.has(k);
    if (chosen > 1) throw Error("median takes one of --mask WxH, --cross N, --horiz N, --vert N, --color N");
    for (const char* k : shapes)
        if (o.has(k)) {
            int n = o.integer(k, 3, 3, 5);
            if (n != 3 && n != 5) throw Error(std::string("--") + k + " takes 3 or 5");
            std::string key = k;
            int code = key == "horiz" ? (n == 3 ? rokMskSize3x1 : rokMskSize5x1)
                       : key == "vert" ? (n == 3 ? rokMskSize1x3 : rokMskSize1x5)
                                       : (n == 3 ? rokMskSize3x3 : rokMskSize5x5);
            std::string fam = key == "cross" ? "FilterMedianCross" : key == "horiz" ? "FilterMedianHoriz"
                              : key == "vert" ? "FilterMedianVert" : "FilterMedianColor";
            if (key == "color" && a.channels == 1) throw Error("--color takes RGB or RGBA images");
            Image in = a;
            if (a.channels == 4 && (key == "cross" || key == "color")) {  // these take RGBA as AC4: alpha copied through
                auto f = find_export(fam, depth_name(a.depth), "AC4", {"R"}, c.name);
                Padded p = pad(a, n / 2, n / 2, n / 2, n / 2);
                Image out = a;
                check(reinterpret_cast<FnUnaryInt>(f.fn)(p.origin(), p.img.step(), out.data.data(), out.step(), roi_of(a), code), f.name);
                return out;
            }
            return run_fixed(fam, c.name, n / 2, code, true, in);
        }
    return run_mask("FilterMedian", c.name, parse_size(o.get("mask", "3x3"), "mask"), a);
}


int parse_method(const std::string& m) {
    static const std::map<std::string, int> methods = {
        {"nearest", rokInterNearest}, {"linear", rokInterLinear}, {"cubic", rokInterCubic},
        {"lanczos", rokInterLanczos}, {"super", rokInterSuper}};
    auto it = methods.find(m);
    if (it == methods.end()) throw Error("--method takes nearest, linear, cubic, lanczos or super, not '" + m + "'");
    return it->second;
}

Image run_resize(const Command& c, const Options& o, const Image& a, const Image*) {
    double sx = o.number("scale", 0.5, 1e-4, 1e4), sy = sx;
    int w = 0, h = 0;
    if (o.has("size")) {
        RokiSize s{};
        char extra = 0;
        if (std::sscanf(o.get("size").c_str(), "%dx%d%c", &s.width, &s.height, &extra) != 2 || s.width < 1 || s.height < 1 ||
            s.width > 65535 || s.height > 65535)
            throw Error("--size takes WIDTHxHEIGHT, not '" + o.get("size") + "'");
        w = s.width, h = s.height;
        sx = static_cast<double>(w) / a.width;
        sy = static_cast<double>(h) / a.height;
    } else {
        w = static_cast<int>(std::lround(a.width * sx));
        h = static_cast<int>(std::lround(a.height * sy));
        if (w < 1 || h < 1 || w > 65535 || h > 65535) throw Error("resize: --scale gives a size out of range");
    }
    int method = parse_method(o.get("method", "linear"));
    auto f = find_export("ResizeSqrPixel", depth_name(a.depth), layout_of(a), {"R"}, c.name);
    Image out;
    out.allocate(w, h, a.channels, a.depth);
    RokiRect src{0, 0, a.width, a.height}, dst{0, 0, w, h};
    int size = 0;
    check(rokiResizeGetBufSize(src, dst, static_cast<Rok32u>(a.channels), method, &size), "rokiResizeGetBufSize");
    std::vector<Rok8u> buf(static_cast<std::size_t>(std::max(size, 1)));
    using Fn = RokStatus (*)(const void*, RokiSize, int, RokiRect, void*, int, RokiRect, double, double, double, double, int, Rok8u*);
    check(reinterpret_cast<Fn>(f.fn)(a.data.data(), roi_of(a), a.step(), src, out.data.data(), out.step(), dst, sx, sy, 0, 0,
                                     method, buf.data()),
          f.name);
    return out;
}

// The background of the geometric commands: --background V in every
// channel (default 0), a sample of the image's type.
Image background(const Options& o, const Image& a, int w, int h) {
    Image out;
    out.allocate(w, h, a.channels, a.depth);
    if (o.has("background")) {
        double v = parse_values(o, "background", a.depth, 1)[0];
        with_type(a.depth, [&](auto tag) {
            using T = decltype(tag);
            T* p = reinterpret_cast<T*>(out.data.data());
            std::fill(p, p + out.data.size() / sizeof(T), static_cast<T>(v));
            return 0;
        });
    }
    return out;
}

// The output size and shifts that hold the whole transformed image, from the
// library's bound of the map (--expand), or the source's size.
struct Canvas {
    int w, h;
    double xs, ys;
};

Canvas expand(const double bound[2][2]) {
    double x0 = std::floor(bound[0][0] + 1e-9), y0 = std::floor(bound[0][1] + 1e-9);
    double x1 = std::ceil(bound[1][0] - 1e-9), y1 = std::ceil(bound[1][1] - 1e-9);
    if (!(x1 - x0 < 65535 && y1 - y0 < 65535)) throw Error("--expand: the result would be larger than 65535 pixels");
    return {static_cast<int>(x1 - x0) + 1, static_cast<int>(y1 - y0) + 1, -x0, -y0};
}

Image run_rotate(const Command& c, const Options& o, const Image& a, const Image*) {
    double angle = o.number("angle", 0, -1e6, 1e6);
    int method = parse_method(o.get("method", "linear"));
    RokiRect src{0, 0, a.width, a.height};
    if (o.has("about")) {  // about a point of the source, keeping the size
        if (o.has("expand")) throw Error("rotate: --about keeps the size and takes no --expand");
        double px = 0, py = 0;
        char extra = 0;
        if (std::sscanf(o.get("about").c_str(), "%lf,%lf%c", &px, &py, &extra) != 2 || !std::isfinite(px) || !std::isfinite(py))
            throw Error("--about takes X,Y, not '" + o.get("about") + "'");
        auto f = find_export("RotateCenter", depth_name(a.depth), layout_of(a), {"R"}, c.name);
        Image out = background(o, a, a.width, a.height);
        using Fn = RokStatus (*)(const void*, RokiSize, int, RokiRect, void*, int, RokiRect, double, double, double, int);
        check(reinterpret_cast<Fn>(f.fn)(a.data.data(), roi_of(a), a.step(), src, out.data.data(), out.step(), src, angle, px, py, method),
              f.name);
        return out;
    }
    auto f = find_export("Rotate", depth_name(a.depth), layout_of(a), {"R"}, c.name);
    // Without --expand the destination has the source's size and the centre
    // stays where it is. Pixel (x, y) goes to (x cos + y sin + xs, -x sin + y cos + ys).
    double r = angle * 3.14159265358979323846 / 180.0, cs = std::cos(r), sn = std::sin(r);
    double cx = (a.width - 1) / 2.0, cy = (a.height - 1) / 2.0;
    Canvas cv{a.width, a.height, cx - (cx * cs + cy * sn), cy - (-cx * sn + cy * cs)};
    if (o.has("expand")) {
        double bound[2][2];
        check(rokiGetRotateBound(src, bound, angle, 0, 0), "rokiGetRotateBound");
        cv = expand(bound);
    }
    Image out = background(o, a, cv.w, cv.h);
    RokiRect dst{0, 0, cv.w, cv.h};
    using Fn = RokStatus (*)(const void*, RokiSize, int, RokiRect, void*, int, RokiRect, double, double, double, int);
    check(reinterpret_cast<Fn>(f.fn)(a.data.data(), roi_of(a), a.step(), src, out.data.data(), out.step(), dst, angle, cv.xs, cv.ys,
                                     method),
          f.name);
    return out;
}

// x' = x + sx y + xs, y' = sy x + y + ys; without --expand the size is kept
// and the centre stays where it is.
Image run_shear(const Command& c, const Options& o, const Image& a, const Image*) {
    double sx = o.number("x", 0, -100, 100), sy = o.number("y", 0, -100, 100);
    int method = parse_method(o.get("method", "linear"));
    auto f = find_export("Shear", depth_name(a.depth), layout_of(a), {"R"}, c.name);
    RokiRect src{0, 0, a.width, a.height};
    double cx = (a.width - 1) / 2.0, cy = (a.height - 1) / 2.0;
    Canvas cv{a.width, a.height, -sx * cy, -sy * cx};
    if (o.has("expand")) {
        double bound[2][2];
        check(rokiGetShearBound(src, bound, sx, sy, 0, 0), "rokiGetShearBound");
        cv = expand(bound);
    }
    Image out = background(o, a, cv.w, cv.h);
    RokiRect dst{0, 0, cv.w, cv.h};
    using Fn = RokStatus (*)(const void*, RokiSize, int, RokiRect, void*, int, RokiRect, double, double, double, double, int);
    check(reinterpret_cast<Fn>(f.fn)(a.data.data(), roi_of(a), a.step(), src, out.data.data(), out.step(), dst, sx, sy, cv.xs, cv.ys,
                                     method),
          f.name);
    return out;
}

// An affine map of source pixel positions to destination ones, x' = a x + b y + c,
// y' = d x + e y + f, or with nine coefficients a perspective one,
// x' = (a x + b y + c) / (g x + h y + i), y' = (d x + e y + f) / (g x + h y + i).
// The destination has the source's size.
Image run_warp_quad(const Command& c, const Options& o, const Image& a) {
    double q[4][2];
    char extra = 0;
    if (std::sscanf(o.get("quad").c_str(), "%lf,%lf,%lf,%lf,%lf,%lf,%lf,%lf%c", &q[0][0], &q[0][1], &q[1][0], &q[1][1], &q[2][0],
                    &q[2][1], &q[3][0], &q[3][1], &extra) != 8)
        throw Error("--quad takes eight numbers x0,y0,x1,y1,x2,y2,x3,y3, not '" + o.get("quad") + "'");
    std::string model = o.get("model", "perspective");
    std::string fam = model == "perspective" ? "WarpPerspectiveQuad" : model == "affine" ? "WarpAffineQuad"
                      : model == "bilinear" ? "WarpBilinearQuad" : "";
    if (fam.empty()) throw Error("--model takes perspective, affine or bilinear, not '" + model + "'");
    int method = parse_method(o.get("method", "linear"));
    auto f = find_export(fam, depth_name(a.depth), layout_of(a), {"R"}, c.name);
    double w = a.width - 1, h = a.height - 1;
    const double corners[4][2] = {{0, 0}, {w, 0}, {w, h}, {0, h}};
    Image out = blank(a);
    RokiRect r{0, 0, a.width, a.height};
    using Fn = RokStatus (*)(const void*, RokiSize, int, RokiRect, void*, int, RokiRect, const double (*)[2], const double (*)[2], int);
    check(reinterpret_cast<Fn>(f.fn)(a.data.data(), roi_of(a), a.step(), r, out.data.data(), out.step(), r, corners, q, method), f.name);
    return out;
}

Image run_warp(const Command& c, const Options& o, const Image& a, const Image*) {
    if (o.has("quad")) {
        if (o.has("matrix")) throw Error("warp takes --matrix or --quad, not both");
        return run_warp_quad(c, o, a);
    }
    if (o.has("model")) throw Error("--model applies to --quad");
    if (!o.has("matrix")) throw Error("warp needs --matrix a,b,c,d,e,f (or nine numbers for a perspective warp)");
    double m[3][3] = {};
    char extra = 0;
    int n = std::sscanf(o.get("matrix").c_str(), "%lf,%lf,%lf,%lf,%lf,%lf,%lf,%lf,%lf%c", &m[0][0], &m[0][1], &m[0][2],
                        &m[1][0], &m[1][1], &m[1][2], &m[2][0], &m[2][1], &m[2][2], &extra);
    if (n != 6 && n != 9)
        throw Error("--matrix takes six numbers a,b,c,d,e,f or nine for a perspective warp, not '" + o.get("matrix") + "'");
    int method = parse_method(o.get("method", "linear"));
    // --inverse: the matrix maps output positions to source ones
    std::string fam = std::string(n == 6 ? "WarpAffine" : "WarpPerspective") + (o.has("inverse") ? "Back" : "");
    auto f = find_export(fam, depth_name(a.depth), layout_of(a), {"R"}, c.name);
    Image out = blank(a);
    RokiRect r{0, 0, a.width, a.height};
    using Fn = RokStatus (*)(const void*, RokiSize, int, RokiRect, void*, int, RokiRect, const double (*)[3], int);
    check(reinterpret_cast<Fn>(f.fn)(a.data.data(), roi_of(a), a.step(), r, out.data.data(), out.step(), r, m, method), f.name);
    return out;
}

Image run_mirror(const Command& c, const Options& o, const Image& a, const Image*) {
    std::string axis = o.get("flip", "h");
    int flip = axis == "v" ? rokFlipAboutHorizontal : axis == "h" ? rokFlipAboutVertical : axis == "both" ? rokFlipBoth : -1;
    if (flip < 0) throw Error("--flip takes h (left-right), v (top-bottom) or both, not '" + axis + "'");
    auto f = find_export(c.family, depth_name(a.depth), layout_of(a), {"R"}, c.name);
    Image out = like(a);
    check(reinterpret_cast<FnUnaryInt>(f.fn)(a.data.data(), a.step(), out.data.data(), out.step(), roi_of(a), flip), f.name);
    return out;
}

// --below L:V sets values under L to V, --above L:V values over L to V
// (either defaults to a level that no value passes).
Image run_threshold_both(const Command& c, const Options& o, const Image& a) {
    double top = a.depth == Depth::u8 ? 255 : a.depth == Depth::u16 ? 65535 : 3.4e38, bottom = a.depth == Depth::f32 ? -3.4e38 : 0;
    double lv[2] = {bottom, top}, vv[2] = {bottom, top};
    const char* keys[2] = {"below", "above"};
    for (int k = 0; k < 2; ++k) {
        if (!o.has(keys[k])) continue;
        char extra = 0;
        std::string t = o.get(keys[k]);
        if (std::sscanf(t.c_str(), "%lf:%lf%c", &lv[k], &vv[k], &extra) != 2 || !(lv[k] >= bottom && lv[k] <= top) ||
            !(vv[k] >= bottom && vv[k] <= top) || (a.depth != Depth::f32 && (lv[k] != std::floor(lv[k]) || vv[k] != std::floor(vv[k]))))
            throw Error(std::string("--") + keys[k] + " takes LEVEL:VALUE, samples of the image's type, not '" + t + "'");
    }
    std::string lay = colour_layout("Threshold_LTValGTVal", a);
    int n = lay == "AC4" ? 3 : a.channels;
    auto f = find_export("Threshold_LTValGTVal", depth_name(a.depth), lay, {"R"}, c.name);
    Image out = a;
    RokStatus s = with_type(a.depth, [&](auto tag) {
        using T = decltype(tag);
        T t[2][4], v[2][4];
        for (int k = 0; k < 2; ++k)
            for (int i = 0; i < 4; ++i) t[k][i] = static_cast<T>(lv[k]), v[k][i] = static_cast<T>(vv[k]);
        if (n == 1)
            return reinterpret_cast<RokStatus (*)(const void*, int, void*, int, Roi, T, T, T, T)>(f.fn)(
                a.data.data(), a.step(), out.data.data(), out.step(), roi_of(a), t[0][0], v[0][0], t[1][0], v[1][0]);
        return reinterpret_cast<RokStatus (*)(const void*, int, void*, int, Roi, const T*, const T*, const T*, const T*)>(f.fn)(
            a.data.data(), a.step(), out.data.data(), out.step(), roi_of(a), t[0], v[0], t[1], v[1]);
    });
    check(s, f.name);
    return out;
}

// Values beyond a level clamped to it, or set to --value; --binary gives a
// grey mask instead; --otsu chooses the level of an 8-bit grey image.
Image run_threshold(const Command& c, const Options& o, const Image& a, const Image*) {
    std::string op = o.get("op", "gt");
    int cmp = op == "lt" ? rokCompareLess : op == "gt" ? rokCompareGreater : -1;
    if (cmp < 0) throw Error("--op takes lt (values below the level) or gt (values above it)");
    Options lo = o;  // the level as the constant of the comparison
    if (o.has("otsu")) {
        if (o.has("level")) throw Error("threshold takes --level or --otsu, not both");
        if (a.depth != Depth::u8 || a.channels != 1) throw Error("--otsu takes 8-bit grey images");
        Rok8u level = 0;
        check(rokiComputeThreshold_Otsu_8u_C1R(a.data.data(), a.step(), roi_of(a), &level), "rokiComputeThreshold_Otsu_8u_C1R");
        lo.kv["level"] = std::to_string(level);
    }
    if (!lo.has("level")) lo.kv["level"] = "128";
    if (o.has("binary")) {
        if (o.has("value")) throw Error("threshold: --binary takes no --value");
        lo.kv["value"] = lo.get("level");
        lo.kv["op"] = op;
        return run_const(c, lo, a, "Compare");
    }
    if (o.has("below") || o.has("above")) {  // both sides at once: L:V pairs
        if (o.has("level") || o.has("otsu") || o.has("value") || o.has("op"))
            throw Error("threshold: --below and --above take no --level, --otsu, --value or --op");
        return run_threshold_both(c, o, a);
    }
    std::string fam = o.has("value") ? "Threshold_Val" : "Threshold";
    std::string lay = colour_layout(fam, a);
    int n = lay == "AC4" ? 3 : a.channels;
    std::vector<double> lv = parse_values(lo, "level", a.depth, n);
    std::vector<double> vv = o.has("value") ? parse_values(o, "value", a.depth, n) : lv;
    auto f = find_export(fam, depth_name(a.depth), lay, {"R"}, c.name);
    Image out = a;  // AC4 keeps the source's alpha
    RokStatus s = with_type(a.depth, [&](auto tag) {
        using T = decltype(tag);
        T t[4] = {}, v[4] = {};
        for (int i = 0; i < n; ++i) t[i] = static_cast<T>(lv[static_cast<std::size_t>(i)]), v[i] = static_cast<T>(vv[static_cast<std::size_t>(i)]);
        const void* src = a.data.data();
        void* dst = out.data.data();
        Roi roi = roi_of(a);
        if (fam == "Threshold") {
            if (n == 1) return reinterpret_cast<RokStatus (*)(const void*, int, void*, int, Roi, T, int)>(f.fn)(src, a.step(), dst, out.step(), roi, t[0], cmp);
            return reinterpret_cast<RokStatus (*)(const void*, int, void*, int, Roi, const T*, int)>(f.fn)(src, a.step(), dst, out.step(), roi, t, cmp);
        }
        if (n == 1) return reinterpret_cast<RokStatus (*)(const void*, int, void*, int, Roi, T, T, int)>(f.fn)(src, a.step(), dst, out.step(), roi, t[0], v[0], cmp);
        return reinterpret_cast<RokStatus (*)(const void*, int, void*, int, Roi, const T*, const T*, int)>(f.fn)(src, a.step(), dst, out.step(), roi, t, v, cmp);
    });
    check(s, f.name);
    return out;
}

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

// ---- look-up tables ----

// The image's samples as 32f, converted by the library.
Image to_f32(const Image& a) {
    if (a.depth == Depth::f32) return a;
    auto f = find_export("Convert", std::string(depth_name(a.depth)) + "32f", layout_of(a), {"R"}, "convert");
    Image out;
    out.allocate(a.width, a.height, a.channels, Depth::f32);
    check(reinterpret_cast<FnUnary>(f.fn)(a.data.data(), a.step(), out.data.data(), out.step(), roi_of(a)), f.name);
    return out;
}

// The curve of rok lut as level/value points. For integer images --gamma
// and --invert give one level per sample value, so the table holds the curve
// rounded at every value; --points are joined by the chosen interpolation.
struct Curve {
    std::vector<double> levels, values;
    std::string family = "LUT_Linear";
};

Curve parse_curve(const Options& o, Depth d) {
    int chosen = o.has("gamma") + o.has("invert") + o.has("points");
    if (chosen != 1) throw Error("lut takes one of --gamma G, --invert, --points X:Y,X:Y...");
    Curve c;
    const double top = d == Depth::u8 ? 255 : d == Depth::u16 ? 65535 : 1;
    if (o.has("points")) {
        std::string s = o.get("points");
        std::size_t p = 0;
        while (p <= s.size()) {
            std::size_t e = s.find(',', p);
            if (e == std::string::npos) e = s.size();
            std::string item = s.substr(p, e - p);
            double x = 0, y = 0;
            char extra = 0;
            if (std::sscanf(item.c_str(), "%lf:%lf%c", &x, &y, &extra) != 2 || !std::isfinite(x) || !std::isfinite(y))
                throw Error("--points takes X:Y pairs separated by commas, not '" + item + "'");
            if (!c.levels.empty() && x <= c.levels.back()) throw Error("--points: the X values must increase");
            c.levels.push_back(x);
            c.values.push_back(y);
            p = e + 1;
        }
        if (c.levels.size() < 2) throw Error("--points needs at least two points");
        std::string interp = o.get("interp", "linear");
        if (interp == "linear") c.family = "LUT_Linear";
        else if (interp == "cubic") c.family = "LUT_Cubic";
        else if (interp == "step") c.family = "LUT";
        else throw Error("--interp takes linear, cubic or step, not '" + interp + "'");
        // The library's pieces end before their last level; the curve is held
        // one sample further, so that the last point's X takes its Y.
        double after = d == Depth::f32 ? std::nextafter(static_cast<float>(c.levels.back()), HUGE_VALF) : c.levels.back() + 1;
        c.levels.push_back(after);
        c.values.push_back(c.values.back());
        return c;
    }
    double g = o.has("gamma") ? o.number("gamma", 1, 0.01, 100) : 1;
    auto f = [&](double x) { return o.has("invert") ? top - x : top * std::pow(x / top, 1.0 / g); };
    if (d == Depth::f32) {  // 1024 linear pieces over 0..1; values outside it are kept
        for (int k = 0; k <= 1024; ++k) c.levels.push_back(k / 1024.0), c.values.push_back(f(k / 1024.0));
        c.levels.back() = std::nextafter(1.0f, 2.0f);  // 1.0 itself is inside the last piece
        c.family = "LUT_Linear";
    } else {  // one step per sample value, the curve rounded to nearest
        for (int k = 0; k <= static_cast<int>(top) + 1; ++k) {
            c.levels.push_back(k);
            c.values.push_back(std::floor(f(std::min<double>(k, top)) + 0.5));
        }
        c.family = "LUT";
    }
    return c;
}

Image run_lut(const Command& c, const Options& o, const Image& a, const Image*) {
    Curve cv = parse_curve(o, a.depth);
    std::string lay = a.channels == 4 && !o.has("alpha") ? "AC4" : layout_of(a);
    auto f = find_export(cv.family, depth_name(a.depth), lay, {"R"}, c.name);
    Image out = a;  // AC4 keeps the source's alpha
    int n = static_cast<int>(cv.levels.size());
    int chans = lay == "AC4" ? 3 : a.channels;
    RokStatus s;
    if (a.depth == Depth::f32) {
        std::vector<Rok32f> lv(cv.levels.begin(), cv.levels.end()), vl(cv.values.begin(), cv.values.end());
        if (chans == 1) {
            using Fn = RokStatus (*)(const void*, int, void*, int, Roi, const Rok32f*, const Rok32f*, int);
            s = reinterpret_cast<Fn>(f.fn)(a.data.data(), a.step(), out.data.data(), out.step(), roi_of(a), vl.data(), lv.data(), n);
        } else {
            const Rok32f* vp[4] = {vl.data(), vl.data(), vl.data(), vl.data()};
            const Rok32f* lp[4] = {lv.data(), lv.data(), lv.data(), lv.data()};
            int ns[4] = {n, n, n, n};
            using Fn = RokStatus (*)(const void*, int, void*, int, Roi, const Rok32f* const*, const Rok32f* const*, const int*);
            s = reinterpret_cast<Fn>(f.fn)(a.data.data(), a.step(), out.data.data(), out.step(), roi_of(a), vp, lp, ns);
        }
    } else {
        std::vector<Rok32s> lv, vl;
        for (double v : cv.levels) lv.push_back(static_cast<Rok32s>(std::clamp(v, -2e9, 2e9)));
        for (double v : cv.values) vl.push_back(static_cast<Rok32s>(std::clamp(v, -2e9, 2e9)));
        if (chans == 1) {
            using Fn = RokStatus (*)(const void*, int, void*, int, Roi, const Rok32s*, const Rok32s*, int);
            s = reinterpret_cast<Fn>(f.fn)(a.data.data(), a.step(), out.data.data(), out.step(), roi_of(a), vl.data(), lv.data(), n);
        } else {
            const Rok32s* vp[4] = {vl.data(), vl.data(), vl.data(), vl.data()};
            const Rok32s* lp[4] = {lv.data(), lv.data(), lv.data(), lv.data()};
            int ns[4] = {n, n, n, n};
            using Fn = RokStatus (*)(const void*, int, void*, int, Roi, const Rok32s* const*, const Rok32s* const*, const int*);
            s = reinterpret_cast<Fn>(f.fn)(a.data.data(), a.step(), out.data.data(), out.step(), roi_of(a), vp, lp, ns);
        }
    }
    check(s, f.name);
    return out;
}

// ---- false colour ----

// A colour map of 256 entries, red, green and blue, from a few stops.
std::vector<std::array<double, 3>> colour_map(const std::string& name) {
    std::vector<std::array<double, 3>> stops;
    if (name == "heat") stops = {{0, 0, 0}, {0.6, 0, 0}, {1, 0.5, 0}, {1, 1, 0}, {1, 1, 1}};
    else if (name == "rainbow") stops = {{0.5, 0, 1}, {0, 0, 1}, {0, 1, 1}, {0, 1, 0}, {1, 1, 0}, {1, 0.5, 0}, {1, 0, 0}};
    else if (name == "ice") stops = {{0, 0, 0}, {0, 0, 0.5}, {0, 0.5, 1}, {0.6, 1, 1}, {1, 1, 1}};
    else if (name == "grey") stops = {{0, 0, 0}, {1, 1, 1}};
    else throw Error("--map takes heat, rainbow, ice or grey, not '" + name + "'");
    std::vector<std::array<double, 3>> m(256);
    for (int i = 0; i < 256; ++i) {
        double t = i / 255.0 * static_cast<double>(stops.size() - 1);
        std::size_t k = std::min(static_cast<std::size_t>(t), stops.size() - 2);
        double f = t - static_cast<double>(k);
        for (int c = 0; c < 3; ++c) m[static_cast<std::size_t>(i)][static_cast<std::size_t>(c)] = stops[k][static_cast<std::size_t>(c)] * (1 - f) + stops[k + 1][static_cast<std::size_t>(c)] * f;
    }
    return m;
}

// An 8-bit grey image to RGB through a colour map: the grey value (its top
// --bits bits, default 8) indexes the map.
Image run_palette(const Command& c, const Options& o, const Image& a, const Image*) {
    if (a.depth != Depth::u8 || a.channels != 1) throw Error("palette takes 8-bit grey images (rok channels --take 1 makes one)");
    int bits = o.integer("bits", 8, 1, 8);
    auto m = colour_map(o.get("map", "heat"));
    std::size_t entries = std::size_t{1} << bits;
    std::vector<Rok8u> table[3];
    for (int ch = 0; ch < 3; ++ch)
        for (std::size_t i = 0; i < entries; ++i)
            table[ch].push_back(static_cast<Rok8u>(std::lround(255 * m[i * 255 / std::max<std::size_t>(entries - 1, 1)][static_cast<std::size_t>(ch)])));
    // the grey value in every channel, its top bits moved down to index the tables
    Image rgb;
    rgb.allocate(a.width, a.height, 3, Depth::u8);
    auto dup = find_export("Dup", "8u", "C1C3", {"R"}, c.name);
    check(reinterpret_cast<FnUnary>(dup.fn)(a.data.data(), a.step(), rgb.data.data(), rgb.step(), roi_of(a)), dup.name);
    if (bits < 8) {
        auto sh = find_export("RShiftC", "8u", "C3", {"R"}, c.name);
        const Rok32u k[3] = {Rok32u(8 - bits), Rok32u(8 - bits), Rok32u(8 - bits)};
        check(reinterpret_cast<RokStatus (*)(const void*, int, const Rok32u*, void*, int, Roi)>(sh.fn)(rgb.data.data(), rgb.step(), k,
                                                                                                      rgb.data.data(), rgb.step(), roi_of(a)),
              sh.name);
    }
    auto f = find_export("LUTPalette", "8u", "C3", {"R"}, c.name);
    const Rok8u* tables[3] = {table[0].data(), table[1].data(), table[2].data()};
    Image out = like(rgb);
    using Fn = RokStatus (*)(const void*, int, void*, int, Roi, const Rok8u* const*, int);
    check(reinterpret_cast<Fn>(f.fn)(rgb.data.data(), rgb.step(), out.data.data(), out.step(), roi_of(a), tables, bits), f.name);
    return out;
}

// ---- unary math ----

Image run_math(const Command& c, const Options& o, const Image& a, const Image*) {
    static const std::map<std::string, std::string> ops = {{"sqrt", "Sqrt"}, {"ln", "Ln"}, {"exp", "Exp"},
                                                           {"sqr", "Sqr"},   {"abs", "Abs"}, {"not", "Not"}};
    auto it = ops.find(o.get("op"));
    if (it == ops.end()) throw Error("math needs --op sqrt, ln, exp, sqr, abs or not");
    int sf = o.integer("scale", 0, -31, 31);
    auto f = find_export(it->second, depth_name(a.depth), colour_layout(it->second, a), {"RSfs", "R"}, c.name);
    if (f.suffix == "R" && sf != 0) throw Error("math: --scale applies to integer results only");
    Image out = like(a);
    RokStatus s = f.suffix == "RSfs"
                      ? reinterpret_cast<FnUnaryInt>(f.fn)(a.data.data(), a.step(), out.data.data(), out.step(), roi_of(a), sf)
                      : reinterpret_cast<FnUnary>(f.fn)(a.data.data(), a.step(), out.data.data(), out.step(), roi_of(a));
    check(s, f.name);
    return out;
}

// ---- general filter with the user's kernel ----

// "1 2 1; 2 4 2; 1 2 1": rows separated by ';' or new lines, coefficients by
// spaces or commas.
std::vector<std::vector<double>> parse_kernel(const std::string& text) {
    std::vector<std::vector<double>> rows;
    std::string row;
    auto flush = [&] {
        std::vector<double> r;
        std::string t = row;
        for (char& ch : t)
            if (ch == ',' || ch == '\t' || ch == '\r') ch = ' ';
        const char* p = t.c_str();
        while (*p) {
            while (*p == ' ') ++p;
            if (!*p) break;
            char* end = nullptr;
            double v = std::strtod(p, &end);
            if (end == p || !std::isfinite(v)) throw Error("--kernel: '" + row + "' is not a row of numbers");
            r.push_back(v);
            p = end;
        }
        if (!r.empty()) rows.push_back(r);
        row.clear();
    };
    for (char ch : text) {
        if (ch == ';' || ch == '\n') flush();
        else row += ch;
    }
    flush();
    if (rows.empty()) throw Error("--kernel holds no coefficients");
    for (const auto& r : rows)
        if (r.size() != rows[0].size()) throw Error("--kernel: every row needs the same number of coefficients");
    if (rows.size() > 255 || rows[0].size() > 255) throw Error("--kernel: at most 255x255 coefficients");
    return rows;
}

std::string read_text(const std::string& path) {
    FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) throw Error(path + ": cannot open the kernel file");
    std::string s;
    char buf[4096];
    for (std::size_t n; (n = std::fread(buf, 1, sizeof buf, f)) > 0;) s.append(buf, n);
    std::fclose(f);
    return s;
}

// One pass of a separable filter: --row or --column, "1 2 1". Integer
// images take whole-number kernels with their sum as divisor (or 1), each
// pass rounding its result; real kernels go through the float engine.
struct Pass {
    std::vector<double> k;
    bool whole = true;
    int divisor = 1;
};

Pass parse_pass(const Options& o, const std::string& key) {
    auto rows = parse_kernel(o.get(key));
    if (rows.size() != 1) throw Error("--" + key + " takes one row of coefficients");
    Pass p;
    p.k = rows[0];
    double sum = 0;
    for (double v : p.k) {
        sum += v;
        if (v != std::floor(v) || std::fabs(v) > 1e6) p.whole = false;
    }
    p.divisor = p.whole && sum != 0 ? static_cast<int>(sum) : 1;
    return p;
}

// dst (w x h) from src read from (0, 0) of a buffer whose rows or columns
// extend by the kernel's reach.
void run_pass(const Pass& p, bool row, const Image& src, const std::uint8_t* origin, Image& dst, const char* cmd) {
    int n = static_cast<int>(p.k.size()), anchor = n / 2;
    std::string types = depth_name(src.depth), lay = layout_of(src);
    RokStatus s;
    if (src.depth != Depth::f32 && p.whole) {
        auto f = find_export(row ? "FilterRow" : "FilterColumn", types, lay, {"R"}, cmd);
        std::vector<Rok32s> k(p.k.begin(), p.k.end());
        using Fn = RokStatus (*)(const void*, int, void*, int, Roi, const Rok32s*, int, int, int);
        s = reinterpret_cast<Fn>(f.fn)(origin, src.step(), dst.data.data(), dst.step(), roi_of(dst), k.data(), n, anchor, p.divisor);
        check(s, f.name);
    } else {
        auto f = find_export(src.depth == Depth::f32 ? (row ? "FilterRow" : "FilterColumn") : (row ? "FilterRow32f" : "FilterColumn32f"),
                             types, lay, {"R"}, cmd);
        std::vector<Rok32f> k(p.k.begin(), p.k.end());
        using Fn = RokStatus (*)(const void*, int, void*, int, Roi, const Rok32f*, int, int);
        s = reinterpret_cast<Fn>(f.fn)(origin, src.step(), dst.data.data(), dst.step(), roi_of(dst), k.data(), n, anchor);
        check(s, f.name);
    }
}

Image run_separable(const Command& c, const Options& o, const Image& a) {
    Pass rp, cp;
    bool has_row = o.has("row"), has_col = o.has("column");
    if (has_row) rp = parse_pass(o, "row");
    if (has_col) cp = parse_pass(o, "column");
    int rn = has_row ? static_cast<int>(rp.k.size()) : 1, cn = has_col ? static_cast<int>(cp.k.size()) : 1;
    // the kernel's reach: n - 1 - anchor before the pixel, anchor after
    Padded p = pad(a, cn - 1 - cn / 2, rn - 1 - rn / 2, cn / 2, rn / 2);
    Image mid = p.img;
    if (has_row) {  // every padded row, so that the column pass has its margins
        mid.allocate(a.width, p.img.height, a.channels, a.depth);
        run_pass(rp, true, p.img, p.img.row(0) + static_cast<std::size_t>(p.left) * pixel_bytes(a), mid, c.name);
    }
    Image out = like(a);
    const std::uint8_t* origin = has_row ? mid.row(p.top) : p.origin();
    if (has_col) {
        run_pass(cp, false, mid, origin, out, c.name);
    } else {
        for (int y = 0; y < a.height; ++y) std::memcpy(out.row(y), origin + static_cast<std::size_t>(y) * mid.step(), out.step());
    }
    return out;
}

// Convolution with the kernel as written (flipped over the image, as the
// library's general filter does); integer images take integer kernels with
// a divisor (default: the kernel's sum, or 1 when it sums to 0), or any real
// kernel through the float engine. The anchor defaults to the centre.
Image run_user_kernel(const Command& c, const Options& o, const Image& a) {
    auto rows = parse_kernel(o.has("kernel-file") ? read_text(o.get("kernel-file")) : o.get("kernel"));
    int kw = static_cast<int>(rows[0].size()), kh = static_cast<int>(rows.size());
    RokiPoint anchor{kw / 2, kh / 2};
    if (o.has("anchor")) {
        char extra = 0;
        if (std::sscanf(o.get("anchor").c_str(), "%d,%d%c", &anchor.x, &anchor.y, &extra) != 2 || anchor.x < 0 ||
            anchor.y < 0 || anchor.x >= kw || anchor.y >= kh)
            throw Error("--anchor takes X,Y inside the kernel, not '" + o.get("anchor") + "'");
    }
    bool whole = true;
    double sum = 0;
    std::vector<double> k;
    for (const auto& r : rows)
        for (double v : r) {
            k.push_back(v);
            sum += v;
            if (v != std::floor(v) || std::fabs(v) > 1e6) whole = false;
        }
    if (o.has("divisor") && !whole) throw Error("--divisor applies to kernels of whole numbers");
    Padded p = pad(a, kh - 1 - anchor.y, kw - 1 - anchor.x, anchor.y, anchor.x);
    Image out = like(a);
    RokiSize ks{kw, kh};
    RokStatus s;
    if (a.depth != Depth::f32 && whole) {
        int div = o.has("divisor") ? o.integer("divisor", 1, -1000000000, 1000000000)
                                   : (sum != 0 ? static_cast<int>(sum) : 1);
        if (div == 0) throw Error("--divisor must not be 0");
        std::vector<Rok32s> ki(k.begin(), k.end());
        auto f = find_export("Filter", depth_name(a.depth), layout_of(a), {"R"}, c.name);
        using Fn = RokStatus (*)(const void*, int, void*, int, Roi, const Rok32s*, RokiSize, RokiPoint, int);
        s = reinterpret_cast<Fn>(f.fn)(p.origin(), p.img.step(), out.data.data(), out.step(), roi_of(a), ki.data(), ks, anchor, div);
        check(s, f.name);
    } else {
        std::vector<Rok32f> kf(k.begin(), k.end());
        auto f = find_export(a.depth == Depth::f32 ? "Filter" : "Filter32f", depth_name(a.depth), layout_of(a), {"R"}, c.name);
        using Fn = RokStatus (*)(const void*, int, void*, int, Roi, const Rok32f*, RokiSize, RokiPoint);
        s = reinterpret_cast<Fn>(f.fn)(p.origin(), p.img.step(), out.data.data(), out.step(), roi_of(a), kf.data(), ks, anchor);
        check(s, f.name);
    }
    return out;
}

// ---- minimum and maximum filters, morphology with a shaped mask ----

// The window minimum or maximum of one image, or with two images the
// smaller or larger of each pair of samples.
Image run_minmax(const Command& c, const Options& o, const Image& a, const Image* b) {
    if (!b) return run_mask(c.family, c.name, parse_size(o.get("mask", "3x3"), "mask"), a);
    if (o.has("mask")) throw Error(std::string(c.name) + " of two images takes no --mask");
    if (b->width != a.width || b->height != a.height || b->channels != a.channels || b->depth != a.depth)
        throw Error(std::string(c.name) + ": the two images differ in size, channels or sample type");
    auto f = find_export(c.name[1] == 'i' ? "MinEvery" : "MaxEvery", depth_name(a.depth), layout_of(a), {"IR"}, c.name);
    Image out = a;
    check(reinterpret_cast<FnUnary>(f.fn)(b->data.data(), b->step(), out.data.data(), out.step(), roi_of(a)), f.name);
    return out;
}

// dilate/erode: the 3x3 square by default; --mask WxH with --shape rect,
// cross or disc (the ellipse inscribed in the rectangle) otherwise.
Image run_morph(const Command& c, const Options& o, const Image& a, const Image*) {
    bool dilate = std::string(c.name) == "dilate";
    if (!o.has("mask") && !o.has("shape")) return run_fixed(dilate ? "Dilate3x3" : "Erode3x3", c.name, 1, 0, false, a);
    RokiSize m = parse_size(o.get("mask", "3x3"), "mask");
    std::string shape = o.get("shape", "rect");
    std::vector<Rok8u> mask(static_cast<std::size_t>(m.width) * m.height);
    double cx = (m.width - 1) / 2.0, cy = (m.height - 1) / 2.0;
    for (int y = 0; y < m.height; ++y)
        for (int x = 0; x < m.width; ++x) {
            bool on;
            if (shape == "rect") on = true;
            else if (shape == "cross") on = x == m.width / 2 || y == m.height / 2;
            else if (shape == "disc") {
                double dx = (x - cx) / std::max(cx + 0.5, 0.5), dy = (y - cy) / std::max(cy + 0.5, 0.5);
                on = dx * dx + dy * dy <= 1.0;
            } else throw Error("--shape takes rect, cross or disc, not '" + shape + "'");
            mask[static_cast<std::size_t>(y) * m.width + x] = on ? 1 : 0;
        }
    RokiPoint anchor{m.width / 2, m.height / 2};
    auto f = find_export(dilate ? "Dilate" : "Erode", depth_name(a.depth), layout_of(a), {"R"}, c.name);
    Padded p = pad(a, anchor.y, anchor.x, m.height - 1 - anchor.y, m.width - 1 - anchor.x);
    Image out = like(a);
    using Fn = RokStatus (*)(const void*, int, void*, int, Roi, const Rok8u*, RokiSize, RokiPoint);
    check(reinterpret_cast<Fn>(f.fn)(p.origin(), p.img.step(), out.data.data(), out.step(), roi_of(a), mask.data(), m, anchor),
          f.name);
    return out;
}

// ---- remap ----

// Destination pixel (x, y) takes the source at (xmap(x, y), ymap(x, y)); the
// maps are 32f grey images (PFM) of the destination's size.
Image run_remap(const Command& c, const Options& o, const Image& a, const Image*) {
    if (!o.has("xmap") || !o.has("ymap")) throw Error("remap needs --xmap X.pfm and --ymap Y.pfm");
    Image mx = read_image(o.get("xmap")), my = read_image(o.get("ymap"));
    for (const Image* m : {&mx, &my})
        if (m->depth != Depth::f32 || m->channels != 1) throw Error("remap: the maps must be 32f grey images (.pfm)");
    if (mx.width != my.width || mx.height != my.height) throw Error("remap: the two maps differ in size");
    int method = parse_method(o.get("method", "linear"));
    auto f = find_export("Remap", depth_name(a.depth), layout_of(a), {"R"}, c.name);
    Image out;
    out.allocate(mx.width, mx.height, a.channels, a.depth);
    RokiRect src{0, 0, a.width, a.height};
    using Fn = RokStatus (*)(const void*, RokiSize, int, RokiRect, const Rok32f*, int, const Rok32f*, int, void*, int, RokiSize, int);
    check(reinterpret_cast<Fn>(f.fn)(a.data.data(), roi_of(a), a.step(), src, reinterpret_cast<const Rok32f*>(mx.data.data()),
                                     mx.step(), reinterpret_cast<const Rok32f*>(my.data.data()), my.step(), out.data.data(),
                                     out.step(), roi_of(out), method),
          f.name);
    return out;
}

// ---- DCT ----

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

// ---- moments ----

struct ChannelMoments {
    double m[4][4]{};     // spatial M(p, q), p + q <= 3
    double mu[4][4]{};    // central
    double hu[7]{};
    std::string missing;  // the status when the central moments are undefined (a black channel)
};

std::vector<ChannelMoments> compute_moments(const Image& a) {
    // 4-channel images: the colour channels, alpha left out
    std::string lay = a.channels == 4 ? "AC4" : layout_of(a);
    auto f = find_export("Moments64f", depth_name(a.depth), lay, {"R"}, "moments");
    RokiMomentState_64f* st = nullptr;
    check(rokiMomentInitAlloc_64f(&st, rokHintAccurate), "rokiMomentInitAlloc_64f");
    std::unique_ptr<RokiMomentState_64f, RokStatus (*)(RokiMomentState_64f*)> hold(st, rokiMomentFree_64f);
    using Fn = RokStatus (*)(const void*, int, Roi, RokiMomentState_64f*);
    check(reinterpret_cast<Fn>(f.fn)(a.data.data(), a.step(), roi_of(a), st), f.name);
    int nc = a.channels == 1 ? 1 : 3;
    std::vector<ChannelMoments> r(static_cast<std::size_t>(nc));
    for (int k = 0; k < nc; ++k) {
        ChannelMoments& cm = r[static_cast<std::size_t>(k)];
        for (int p = 0; p <= 3; ++p)
            for (int q = 0; p + q <= 3; ++q) check(rokiGetSpatialMoment_64f(st, p, q, k, {0, 0}, &cm.m[p][q]), "rokiGetSpatialMoment_64f");
        RokStatus s = rokiGetHuMoments_64f(st, k, cm.hu);
        if (s < 0) {
            cm.missing = status_text(s);
            continue;
        }
        for (int p = 0; p <= 3; ++p)
            for (int q = 0; p + q <= 3; ++q) check(rokiGetCentralMoment_64f(st, p, q, k, &cm.mu[p][q]), "rokiGetCentralMoment_64f");
    }
    return r;
}

std::string format_moments(const std::string& path, const Image& a, const std::vector<ChannelMoments>& ms, bool json) {
    auto num = [](double v) {
        char b[40];
        std::snprintf(b, sizeof b, "%.17g", v);
        return std::string(b);
    };
    static const char* names[] = {"00", "01", "02", "03", "10", "11", "12", "20", "21", "30"};
    std::string s;
    if (json) {
        s += "{\"file\": \"" + json_escape(path) + "\", \"width\": " + std::to_string(a.width) + ", \"height\": " + std::to_string(a.height) +
             ", \"channels\": [";
        for (std::size_t k = 0; k < ms.size(); ++k) {
            const auto& cm = ms[k];
            s += k ? ", {" : "{";
            s += "\"spatial\": {";
            for (int i = 0; i < 10; ++i)
                s += std::string(i ? ", " : "") + "\"m" + names[i] + "\": " + num(cm.m[names[i][0] - '0'][names[i][1] - '0']);
            s += "}";
            if (!cm.missing.empty()) {
                s += ", \"central\": null, \"centroid\": null, \"hu\": null, \"status\": \"" + cm.missing + "\"}";
                continue;
            }
            s += ", \"centroid\": [" + num(cm.m[1][0] / cm.m[0][0]) + ", " + num(cm.m[0][1] / cm.m[0][0]) + "], \"central\": {";
            for (int i = 2; i < 10; ++i)  // mu00 is m00, mu01 = mu10 = 0
                if (i != 4) s += std::string(i > 2 ? ", " : "") + "\"mu" + names[i] + "\": " + num(cm.mu[names[i][0] - '0'][names[i][1] - '0']);
            s += "}, \"hu\": [";
            for (int i = 0; i < 7; ++i) s += (i ? ", " : "") + num(cm.hu[i]);
            s += "]}";
        }
        return s + "]}\n";
    }
    s += path + ": " + std::to_string(a.width) + "x" + std::to_string(a.height) + ", " + std::to_string(ms.size()) +
         " channel(s), " + depth_name(a.depth) + "\n";
    for (std::size_t k = 0; k < ms.size(); ++k) {
        const auto& cm = ms[k];
        s += "  channel " + std::to_string(k) + "\n    spatial ";
        for (int i = 0; i < 10; ++i) s += " m" + std::string(names[i]) + "=" + num(cm.m[names[i][0] - '0'][names[i][1] - '0']);
        if (!cm.missing.empty()) {
            s += "\n    central and Hu moments undefined: " + cm.missing + "\n";
            continue;
        }
        s += "\n    centroid " + num(cm.m[1][0] / cm.m[0][0]) + " " + num(cm.m[0][1] / cm.m[0][0]) + "\n    central ";
        for (int i = 2; i < 10; ++i)
            if (i != 4) s += " mu" + std::string(names[i]) + "=" + num(cm.mu[names[i][0] - '0'][names[i][1] - '0']);
        s += "\n    hu      ";
        for (int i = 0; i < 7; ++i) s += " " + num(cm.hu[i]);
        s += "\n";
    }
    return s;
}

// Image and constant: rokiAddC, rokiSubC (image - value), rokiMulC, rokiDivC
// (image / value), the logic and the comparison with a constant.
Image run_const(const Command& c, const Options& o, const Image& a, const std::string& base) {
    std::string fam = base + (o.has("full-range") ? "CScale" : "C");
    if (o.has("full-range") && fam != "MulCScale") throw Error(std::string(c.name) + ": --full-range applies to mul");
    std::string lay = colour_layout(fam, a);
    int n = lay == "AC4" ? 3 : a.channels;
    bool eps = fam == "CompareC" && o.has("eps");  // 255 where |image - value| <= eps
    if (eps) {
        if (o.has("op")) throw Error("compare: --eps compares for equality and takes no --op");
        fam = "CompareEqualEpsC";
        lay = colour_layout(fam, a);
        n = lay == "AC4" ? 3 : a.channels;
    }
    std::vector<double> v = parse_values(o, "value", a.depth, n);
    float tol = eps ? static_cast<float>(o.number("eps", 0, 0, 3.4e38)) : 0;
    bool cmp = fam == "CompareC";
    int op = cmp ? parse_cmp(o.get("op", "gt")) : 0;
    int sf = o.integer("scale", 0, -31, 31);
    auto f = find_export(fam, depth_name(a.depth), lay, {"RSfs", "R"}, c.name);
    if (f.suffix == "R" && sf != 0) throw Error(std::string(c.name) + ": --scale applies to integer results only");
    Image out = a;  // AC4 keeps the source's alpha
    if (cmp || eps) out.allocate(a.width, a.height, 1, Depth::u8);
    RokStatus s = with_type(a.depth, [&](auto tag) {
        using T = decltype(tag);
        T k[4] = {};
        for (int i = 0; i < n; ++i) k[i] = static_cast<T>(v[static_cast<std::size_t>(i)]);
        const void* src = a.data.data();
        void* dst = out.data.data();
        Roi roi = roi_of(a);
        if (eps && n == 1)
            return reinterpret_cast<RokStatus (*)(const void*, int, T, void*, int, Roi, Rok32f)>(f.fn)(src, a.step(), k[0], dst, out.step(), roi, tol);
        if (eps)
            return reinterpret_cast<RokStatus (*)(const void*, int, const T*, void*, int, Roi, Rok32f)>(f.fn)(src, a.step(), k, dst, out.step(), roi, tol);
        if (n == 1) {
            if (cmp) return reinterpret_cast<RokStatus (*)(const void*, int, T, void*, int, Roi, int)>(f.fn)(src, a.step(), k[0], dst, out.step(), roi, op);
            if (f.suffix == "RSfs") return reinterpret_cast<RokStatus (*)(const void*, int, T, void*, int, Roi, int)>(f.fn)(src, a.step(), k[0], dst, out.step(), roi, sf);
            return reinterpret_cast<RokStatus (*)(const void*, int, T, void*, int, Roi)>(f.fn)(src, a.step(), k[0], dst, out.step(), roi);
        }
        if (cmp) return reinterpret_cast<RokStatus (*)(const void*, int, const T*, void*, int, Roi, int)>(f.fn)(src, a.step(), k, dst, out.step(), roi, op);
        if (f.suffix == "RSfs") return reinterpret_cast<RokStatus (*)(const void*, int, const T*, void*, int, Roi, int)>(f.fn)(src, a.step(), k, dst, out.step(), roi, sf);
        return reinterpret_cast<RokStatus (*)(const void*, int, const T*, void*, int, Roi)>(f.fn)(src, a.step(), k, dst, out.step(), roi);
    });
    check(s, f.name);
    return out;
}

// ---- shifts ----

Image run_shift(const Command& c, const Options& o, const Image& a, const Image*) {
    if (o.has("left") == o.has("right")) throw Error("shift takes one of --left N, --right N");
    bool left = o.has("left");
    int bits = o.integer(left ? "left" : "right", 0, 0, 31);
    std::string fam = left ? "LShiftC" : "RShiftC";
    std::string lay = colour_layout(fam, a);
    auto f = find_export(fam, depth_name(a.depth), lay, {"R"}, c.name);
    Image out = a;
    Rok32u k[4] = {Rok32u(bits), Rok32u(bits), Rok32u(bits), Rok32u(bits)};
    RokStatus s = lay == "C1"
                      ? reinterpret_cast<RokStatus (*)(const void*, int, Rok32u, void*, int, Roi)>(f.fn)(a.data.data(), a.step(), k[0], out.data.data(), out.step(), roi_of(a))
                      : reinterpret_cast<RokStatus (*)(const void*, int, const Rok32u*, void*, int, Roi)>(f.fn)(a.data.data(), a.step(), k, out.data.data(), out.step(), roi_of(a));
    check(s, f.name);
    return out;
}

// ---- alpha ----

Image run_premultiply(const Command& c, const Options& o, const Image& a, const Image*) {
    if (o.has("by")) {  // every sample times a constant alpha: v * alpha / max
        std::string lay = colour_layout("AlphaPremulC", a);
        double v = parse_values(o, "by", a.depth, 1)[0];
        auto f = find_export("AlphaPremulC", depth_name(a.depth), lay, {"R"}, c.name);
        Image out = a;
        RokStatus s = with_type(a.depth, [&](auto tag) {
            using T = decltype(tag);
            return reinterpret_cast<RokStatus (*)(const void*, int, T, void*, int, Roi)>(f.fn)(a.data.data(), a.step(), static_cast<T>(v),
                                                                                            out.data.data(), out.step(), roi_of(a));
        });
        check(s, f.name);
        return out;
    }
    if (a.channels != 4) throw Error("premultiply takes RGBA images (or --by ALPHA for any image)");
    auto f = find_export("AlphaPremul", depth_name(a.depth), "AC4", {"R"}, c.name);
    Image out = a;  // the alpha channel stays as it was
    check(reinterpret_cast<FnUnary>(f.fn)(a.data.data(), a.step(), out.data.data(), out.step(), roi_of(a)), f.name);
    return out;
}

// ---- channels and transposition ----

Image run_channels(const Command& c, const Options& o, const Image& a, const Image*) {
    if (o.has("order") + o.has("take") + o.has("set-alpha") != 1)
        throw Error("channels takes one of --order I,J,K, --take K or --set-alpha V");
    if (o.has("set-alpha")) {  // RGB to RGBA, or a new alpha for RGBA: every pixel's alpha V
        if (a.channels < 3) throw Error("--set-alpha takes RGB or RGBA images");
        double v = parse_values(o, "set-alpha", a.depth, 1)[0];
        Image out = a;
        if (a.channels == 3) {
            out.allocate(a.width, a.height, 4, a.depth);
            auto f = find_export("Copy", depth_name(a.depth), "C3AC4", {"R"}, c.name);
            check(reinterpret_cast<FnUnary>(f.fn)(a.data.data(), a.step(), out.data.data(), out.step(), roi_of(a)), f.name);
        }
        auto f = find_export("Set", depth_name(a.depth), "C4C", {"R"}, c.name);
        std::uint8_t* alpha = out.data.data() + 3 * depth_bytes(a.depth);
        RokStatus s = with_type(a.depth, [&](auto tag) {
            using T = decltype(tag);
            return reinterpret_cast<RokStatus (*)(T, void*, int, Roi)>(f.fn)(static_cast<T>(v), alpha, out.step(), roi_of(a));
        });
        check(s, f.name);
        return out;
    }
    if (o.has("take")) {
        int k = o.integer("take", 0, 0, 3);
        if (k >= a.channels) throw Error("--take: the image has " + std::to_string(a.channels) + " channel(s)");
        if (a.channels == 1) return a;
        auto f = find_export("Copy", depth_name(a.depth), "C" + std::to_string(a.channels) + "C1", {"R"}, c.name);
        Image out;
        out.allocate(a.width, a.height, 1, a.depth);
        check(reinterpret_cast<FnUnary>(f.fn)(a.data.data() + static_cast<std::size_t>(k) * depth_bytes(a.depth), a.step(),
                                              out.data.data(), out.step(), roi_of(a)),
              f.name);
        return out;
    }
    if (a.channels < 3) throw Error("--order takes RGB or RGBA images");
    int order[3];
    char extra = 0;
    if (std::sscanf(o.get("order").c_str(), "%d,%d,%d%c", &order[0], &order[1], &order[2], &extra) != 3)
        throw Error("--order takes three channel numbers such as 2,1,0, not '" + o.get("order") + "'");
    for (int k : order)
        if (k < 0 || k > 2) throw Error("--order takes channel numbers 0 to 2");
    std::string lay = a.channels == 4 ? "AC4" : "C3";
    auto f = find_export("SwapChannels", depth_name(a.depth), lay, {"R"}, c.name);
    Image out = a;  // alpha kept
    using Fn = RokStatus (*)(const void*, int, void*, int, Roi, const int*);
    check(reinterpret_cast<Fn>(f.fn)(a.data.data(), a.step(), out.data.data(), out.step(), roi_of(a), order), f.name);
    return out;
}

Image run_transpose(const Command& c, const Options&, const Image& a, const Image*) {
    auto f = find_export("Transpose", depth_name(a.depth), layout_of(a), {"R"}, c.name);
    Image out;
    out.allocate(a.height, a.width, a.channels, a.depth);
    check(reinterpret_cast<FnUnary>(f.fn)(a.data.data(), a.step(), out.data.data(), out.step(), roi_of(a)), f.name);
    return out;
}

// ---- stats ----

struct Stats {
    int channels = 0;
    double sum[4]{}, mean[4]{}, min[4]{}, max[4]{}, inf[4]{}, l1[4]{}, l2[4]{};
    int min_at[2][4]{}, max_at[2][4]{};  // x and y of the first extremum of each channel (row by row)
    bool counted = false;
    double in_range[4]{};  // pixels with lo <= value <= hi, for --range
    std::vector<std::vector<int>> by_levels;  // counts between the --levels given, per channel
    std::vector<std::vector<int>> hist;  // 8u: 256 bins, 16u: 256 bins of 256 values
};

void stat64(const char* family, const Image& a, double* out, bool hint) {
    auto f = find_export(family, depth_name(a.depth), layout_of(a), {"R"}, "stats");
    RokStatus s;
    if (hint) {
        using Fn = RokStatus (*)(const void*, int, Roi, Rok64f*, int);
        s = reinterpret_cast<Fn>(f.fn)(a.data.data(), a.step(), roi_of(a), out, rokHintAccurate);
    } else {
        using Fn = RokStatus (*)(const void*, int, Roi, Rok64f*);
        s = reinterpret_cast<Fn>(f.fn)(a.data.data(), a.step(), roi_of(a), out);
    }
    check(s, f.name);
}

Stats compute_stats(const Image& a, int bins, const double* range = nullptr, const std::vector<double>* levels = nullptr) {
    Stats st;
    if (levels) {  // counts of level[k] <= v < level[k + 1]
        std::string lay = colour_layout("HistogramRange", a);
        int n = lay == "AC4" ? 3 : a.channels, nl = static_cast<int>(levels->size());
        auto f = find_export("HistogramRange", depth_name(a.depth), lay, {"R"}, "stats");
        st.by_levels.assign(static_cast<std::size_t>(n), std::vector<int>(levels->size() - 1));
        std::vector<Rok32s> li(levels->begin(), levels->end());
        std::vector<Rok32f> lf(levels->begin(), levels->end());
        const void* lp = a.depth == Depth::f32 ? static_cast<const void*>(lf.data()) : static_cast<const void*>(li.data());
        RokStatus s;
        if (n == 1) {
            using Fn = RokStatus (*)(const void*, int, Roi, Rok32s*, const void*, int);
            s = reinterpret_cast<Fn>(f.fn)(a.data.data(), a.step(), roi_of(a), st.by_levels[0].data(), lp, nl);
        } else {
            Rok32s* hp[4];
            const void* lps[4] = {lp, lp, lp, lp};
            int ns[4] = {nl, nl, nl, nl};
            for (int k = 0; k < n; ++k) hp[k] = st.by_levels[static_cast<std::size_t>(k)].data();
            using Fn = RokStatus (*)(const void*, int, Roi, Rok32s* const*, const void* const*, const int*);
            s = reinterpret_cast<Fn>(f.fn)(a.data.data(), a.step(), roi_of(a), hp, lps, ns);
        }
        check(s, f.name);
    }
    if (range) {
        std::string lay = colour_layout("CountInRange", a);
        int n = lay == "AC4" ? 3 : a.channels;
        auto f = find_export("CountInRange", depth_name(a.depth), lay, {"R"}, "stats");
        int counts[4] = {};
        RokStatus s = with_type(a.depth, [&](auto tag) {
            using T = decltype(tag);
            T lo[4], hi[4];
            for (int k = 0; k < 4; ++k) lo[k] = static_cast<T>(range[0]), hi[k] = static_cast<T>(range[1]);
            if (n == 1)
                return reinterpret_cast<RokStatus (*)(const void*, int, Roi, int*, T, T)>(f.fn)(a.data.data(), a.step(), roi_of(a), counts,
                                                                                                 lo[0], hi[0]);
            return reinterpret_cast<RokStatus (*)(const void*, int, Roi, int*, const T*, const T*)>(f.fn)(a.data.data(), a.step(), roi_of(a),
                                                                                                       counts, lo, hi);
        });
        check(s, f.name);
        st.counted = true;
        for (int k = 0; k < n; ++k) st.in_range[k] = counts[k];
    }
    st.channels = a.channels;
    bool f32 = a.depth == Depth::f32;
    stat64("Sum", a, st.sum, f32);
    stat64("Mean", a, st.mean, f32);
    stat64("Norm_Inf", a, st.inf, false);
    stat64("Norm_L1", a, st.l1, f32);
    stat64("Norm_L2", a, st.l2, f32);
    auto f = find_export("MinMax", depth_name(a.depth), layout_of(a), {"R"}, "stats");
    std::uint8_t lo[16], hi[16];
    using Fn = RokStatus (*)(const void*, int, Roi, void*, void*);
    check(reinterpret_cast<Fn>(f.fn)(a.data.data(), a.step(), roi_of(a), lo, hi), f.name);
    for (int k = 0; k < a.channels; ++k) {
        if (a.depth == Depth::u8) st.min[k] = lo[k], st.max[k] = hi[k];
        else if (a.depth == Depth::u16) {
            std::uint16_t l, h;
            std::memcpy(&l, lo + 2 * k, 2), std::memcpy(&h, hi + 2 * k, 2);
            st.min[k] = l, st.max[k] = h;
        } else {
            float l, h;
            std::memcpy(&l, lo + 4 * k, 4), std::memcpy(&h, hi + 4 * k, 4);
            st.min[k] = l, st.max[k] = h;
        }
    }
    for (const char* fam : {"MinIndx", "MaxIndx"}) {
        auto fi = find_export(fam, depth_name(a.depth), layout_of(a), {"R"}, "stats");
        int(*at)[4] = fam[1] == 'i' ? st.min_at : st.max_at;
        std::uint8_t value[16];
        using Fn = RokStatus (*)(const void*, int, Roi, void*, int*, int*);
        check(reinterpret_cast<Fn>(fi.fn)(a.data.data(), a.step(), roi_of(a), value, at[0], at[1]), fi.name);
    }
    if (bins > 0 && a.depth != Depth::f32 && a.channels != 3) {
        int upper = a.depth == Depth::u8 ? 256 : 65536;
        st.hist.assign(static_cast<std::size_t>(a.channels), std::vector<int>(static_cast<std::size_t>(bins)));
        std::vector<std::vector<Rok32s>> levels(static_cast<std::size_t>(a.channels), std::vector<Rok32s>(static_cast<std::size_t>(bins) + 1));
        auto h = find_export("HistogramEven", depth_name(a.depth), layout_of(a), {"R"}, "stats");
        RokStatus s;
        if (a.channels == 1) {
            using Fn = RokStatus (*)(const void*, int, Roi, Rok32s*, Rok32s*, int, Rok32s, Rok32s);
            s = reinterpret_cast<Fn>(h.fn)(a.data.data(), a.step(), roi_of(a), st.hist[0].data(), levels[0].data(), bins + 1, 0, upper);
        } else {
            Rok32s* hp[4];
            Rok32s* lp[4];
            int n[4];
            Rok32s lower[4], up[4];
            for (int k = 0; k < 4; ++k) hp[k] = st.hist[k].data(), lp[k] = levels[k].data(), n[k] = bins + 1, lower[k] = 0, up[k] = upper;
            using Fn = RokStatus (*)(const void*, int, Roi, Rok32s* const*, Rok32s* const*, const int*, const Rok32s*, const Rok32s*);
            s = reinterpret_cast<Fn>(h.fn)(a.data.data(), a.step(), roi_of(a), hp, lp, n, lower, up);
        }
        check(s, h.name);
    }
    return st;
}

std::string list(const double* v, int n, bool json) {
    std::string s = json ? "[" : "";
    char b[64];
    for (int k = 0; k < n; ++k) {
        std::snprintf(b, sizeof b, "%.17g", v[k]);
        if (k) s.append(json ? ", " : " ");
        s.append(b);
    }
    if (json) s.push_back(']');
    return s;
}

std::string format_stats(const std::string& path, const Image& a, const Stats& st, bool json) {
    int n = st.channels;
    std::string s;
    if (json) {
        s += "{\"file\": \"" + json_escape(path) + "\", \"width\": " + std::to_string(a.width) + ", \"height\": " + std::to_string(a.height) +
             ", \"channels\": " + std::to_string(n) + ", \"type\": \"" + depth_name(a.depth) + "\"";
        s += ", \"sum\": " + list(st.sum, n, true) + ", \"mean\": " + list(st.mean, n, true) + ", \"min\": " + list(st.min, n, true) +
             ", \"max\": " + list(st.max, n, true) + ", \"norm_inf\": " + list(st.inf, n, true) + ", \"norm_l1\": " +
             list(st.l1, n, true) + ", \"norm_l2\": " + list(st.l2, n, true);
        if (st.counted) s += ", \"in_range\": " + list(st.in_range, a.channels == 4 ? 3 : n, true);
        if (!st.by_levels.empty()) {
            s += ", \"by_levels\": [";
            for (std::size_t k = 0; k < st.by_levels.size(); ++k) {
                s += k ? ", [" : "[";
                for (std::size_t i = 0; i < st.by_levels[k].size(); ++i) s += (i ? ", " : "") + std::to_string(st.by_levels[k][i]);
                s += "]";
            }
            s += "]";
        }
        for (int m = 0; m < 2; ++m) {
            s += m ? ", \"argmax\": [" : ", \"argmin\": [";
            for (int k = 0; k < n; ++k) {
                const int(*at)[4] = m ? st.max_at : st.min_at;
                s += (k ? ", [" : "[") + std::to_string(at[0][k]) + ", " + std::to_string(at[1][k]) + "]";
            }
            s += "]";
        }
        if (!st.hist.empty()) {
            s += ", \"histogram\": [";
            for (std::size_t k = 0; k < st.hist.size(); ++k) {
                s += k ? ", [" : "[";
                for (std::size_t i = 0; i < st.hist[k].size(); ++i) s += (i ? ", " : "") + std::to_string(st.hist[k][i]);
                s += "]";
            }
            s += "]";
        }
        return s + "}\n";
    }
    s += path + ": " + std::to_string(a.width) + "x" + std::to_string(a.height) + ", " + std::to_string(n) + " channel(s), " +
         depth_name(a.depth) + "\n";
    s += "  sum      " + list(st.sum, n, false) + "\n  mean     " + list(st.mean, n, false) + "\n  min      " +
         list(st.min, n, false) + "\n  max      " + list(st.max, n, false) + "\n  norm_inf " + list(st.inf, n, false) +
         "\n  norm_l1  " + list(st.l1, n, false) + "\n  norm_l2  " + list(st.l2, n, false) + "\n";
    if (st.counted) s += "  in_range " + list(st.in_range, a.channels == 4 ? 3 : n, false) + "\n";
    for (std::size_t k = 0; k < st.by_levels.size(); ++k) {
        s += "  by_levels[" + std::to_string(k) + "]";
        for (int v : st.by_levels[k]) s += " " + std::to_string(v);
        s += "\n";
    }
    for (int m = 0; m < 2; ++m) {
        s += m ? "  argmax  " : "  argmin  ";
        for (int k = 0; k < n; ++k) {
            const int(*at)[4] = m ? st.max_at : st.min_at;
            s += " " + std::to_string(at[0][k]) + "," + std::to_string(at[1][k]);
        }
        s += "\n";
    }
    for (std::size_t k = 0; k < st.hist.size(); ++k) {
        s += "  histogram[" + std::to_string(k) + "]";
        for (int v : st.hist[k]) s += " " + std::to_string(v);
        s += "\n";
    }
    return s;
}

// ---- the table ----

const char* const kArithOptions =
    "--value V      an image and a constant: one number, or one per channel\n"
    "--scale N      scale factor of integer results (default 0)";
const char* const kMulOptions =
    "--value V      an image and a constant: one number, or one per channel\n"
    "--scale N      scale factor of integer results (default 0)\n"
    "--full-range   8u and 16u: a b / 255 (or / 65535), so that full scale times x is x";
const char* const kDivOptions =
    "--value V      an image and a constant: one number, or one per channel\n"
    "--scale N      scale factor of integer results (default 0)\n"
    "--round R      two integer images: the quotient rounded toward zero, half to even or half away from zero";
const char* const kValueOption = "--value V      an image and a constant: one number, or one per channel";

const std::vector<Command>& commands() {
    static const std::vector<Command> table = {
        {"add", "add two images, or an image and --value (integer results scaled by 2^-scale, saturated)",
         "A B OUT | IN OUT --value V [--scale N]", kArithOptions, "rok add a.png b.png out.png --scale 1", "Add", 2,
         [](const Command& c, const Options& o, const Image& a, const Image* b) { return run_binary(c, o, a, b, false); }},
        {"sub", "subtract the second image (or --value) from the first", "A B OUT | IN OUT --value V [--scale N]",
         kArithOptions, "rok sub a.png b.png diff.png", "Sub", 2,
         [](const Command& c, const Options& o, const Image& a, const Image* b) { return run_binary(c, o, a, b, true); }},
        {"mul", "multiply two images, or an image by --value", "A B OUT | IN OUT --value V [--scale N | --full-range]",
         kMulOptions,
         "rok mul a.png mask.png out.png --full-range", "Mul", 2,
         [](const Command& c, const Options& o, const Image& a, const Image* b) { return run_binary(c, o, a, b, false); }},
        {"div", "divide the first image by the second (a zero divisor warns) or by --value",
         "A B OUT [--round zero|even|away] | IN OUT --value V [--scale N]", kDivOptions, "rok div a.png b.png ratio.png --scale -4", "Div", 2,
         [](const Command& c, const Options& o, const Image& a, const Image* b) { return run_binary(c, o, a, b, true); }},
        {"and", "bitwise AND of two integer images, or of an image and --value", "A B OUT | IN OUT --value V", kValueOption,
         "rok and in.png out.png --value 0xF0", "And", 2,
         [](const Command& c, const Options& o, const Image& a, const Image* b) { return run_binary(c, o, a, b, false); }},
        {"or", "bitwise OR of two integer images, or of an image and --value", "A B OUT | IN OUT --value V", kValueOption,
         "rok or a.png b.png out.png", "Or", 2,
         [](const Command& c, const Options& o, const Image& a, const Image* b) { return run_binary(c, o, a, b, false); }},
        {"xor", "bitwise XOR of two integer images, or of an image and --value", "A B OUT | IN OUT --value V", kValueOption,
         "rok xor a.png b.png out.png", "Xor", 2,
         [](const Command& c, const Options& o, const Image& a, const Image* b) { return run_binary(c, o, a, b, false); }},
        {"compare", "grey mask, 255 where A op B (or A op --value) holds for every channel of the pixel",
         "A B OUT [--op lt|le|eq|ge|gt | --eps E] | IN OUT --value V [--op OP]",
         "--op OP        lt, le, eq, ge or gt (default gt)\n--eps E        32f: 255 where |A - B| <= E\n"
         "--value V      compare with a constant instead of B: one number, or one per channel",
         "rok compare a.png b.png mask.png --op ge", "Compare", 2, run_compare},
        {"convert", "change the sample type (values kept; 32f rounds to nearest even and saturates)",
         "IN OUT --to 8u|16u|32f [--full-range | --range LO,HI]",
         "--to T         8u, 16u or 32f\n"
         "--full-range   map the whole range instead: 8u 0..255 <-> 16u 0..65535, 8u <-> 32f 0..1\n"
         "--range LO,HI  8u <-> 32f: the 32f values that map to 0 and 255", "rok convert in.png out.pfm --to 32f", "Convert", 1, run_convert},
        {"border", "add a border around the image", "IN OUT --replicate N | --const N [--value V] | --wrap N",
         "--replicate N  repeat the edge pixels N times\n--wrap N       32f grey: the image repeated around itself\n"
         "--const N      fill N pixels with --value\n--value V      the fill value, every channel (default 0)",
         "rok border in.png out.png --replicate 8", "CopyReplicateBorder", 1, run_border},
        {"filter", "linear filters; edges are replicated", "IN OUT --kernel K | --kernel-file F | --box [--kernel WxH] | --sobel | --gauss 3|5 | ... (see options)",
         "--kernel K     your kernel, rows separated by ';' (\"1 2 1; 2 4 2; 1 2 1\"), applied as a convolution\n"
         "--kernel-file F the kernel from a text file, one row a line\n"
         "--divisor N    integer images, whole-number kernels: results divided by N (default: the kernel's sum, or 1)\n"
         "--anchor X,Y   the kernel element over the output pixel (default: the centre)\n"         "--row K        a separable filter: this row kernel, then --column K (either alone is fine);\n"
         "               integer images: each pass divided by its kernel's sum and rounded\n"
         "--column K     the column kernel of a separable filter\n"
         "--box          mean over --kernel WxH (default 3x3)\n--sobel        horizontal-edge Sobel 3x3\n"
         "--sobel-vert   vertical-edge Sobel 3x3\n--prewitt h|v  Prewitt 3x3, horizontal or vertical edges\n"
         "--roberts down|up  Roberts cross, either diagonal\n"         "--scharr h|v   Scharr 3x3, signed: 8-bit grey gives 32f (write .pfm)\n"
         "--sobel-second h|v  second derivative 3x3, signed as --scharr\n--sobel-cross  mixed second derivative 3x3, signed as --scharr\n"
         "--gauss N      Gaussian 3x3 or 5x5\n--lowpass N    mean 3x3 or 5x5\n--hipass N     high-pass 3x3 or 5x5\n"
         "--sharpen      3x3 sharpening\n--laplace N    Laplacian 3x3 or 5x5",
         "rok filter in.png out.png --kernel \"1 2 1; 2 4 2; 1 2 1\"", "FilterBox", 1, run_filter},
        {"median", "median filter; edges are replicated", "IN OUT [--mask WxH | --cross N | --horiz N | --vert N | --color N | --weighted W]",
         "--mask WxH     the window (default 3x3)\n--cross N      the cross of a 3x3 or 5x5 square\n"
         "--horiz N      a row of 3 or 5\n--vert N       a column of 3 or 5\n"
         "--color N      RGB: the pixel of the 3x3 or 5x5 square nearest the others\n"
         "--weighted W   8-bit grey: 3x3, the centre pixel counted W times (an odd number)",
         "rok median in.png out.png --mask 5x5", "FilterMedian", 1, run_median},
        {"dilate", "maximum over a 3x3 square or a shaped mask; edges are replicated", "IN OUT [--mask WxH] [--shape S]",
         "--mask WxH     the mask's size (default: the 3x3 square)\n--shape S      rect (default), cross or disc",
         "rok dilate in.png out.png --mask 7x7 --shape disc", "Dilate", 1, run_morph},
        {"erode", "minimum over a 3x3 square or a shaped mask; edges are replicated", "IN OUT [--mask WxH] [--shape S]",
         "--mask WxH     the mask's size (default: the 3x3 square)\n--shape S      rect (default), cross or disc",
         "rok erode in.png out.png --mask 5x5 --shape cross", "Erode", 1, run_morph},
        {"min", "minimum over a rectangle (edges replicated), or of two images pixel by pixel", "IN OUT [--mask WxH] | A B OUT",
         "--mask WxH     the window (default 3x3)", "rok min in.png out.png --mask 5x5", "FilterMin", 1, run_minmax, true},
        {"max", "maximum over a rectangle (edges replicated), or of two images pixel by pixel", "IN OUT [--mask WxH] | A B OUT",
         "--mask WxH     the window (default 3x3)", "rok max a.png b.png out.png", "FilterMax", 1, run_minmax, true},
        {"resize", "resize by a factor or to a size", "IN OUT [--scale F | --size WxH] [--method M]",
         "--scale F      factor for both axes (default 0.5)\n--size WxH     the output size\n"
         "--method M     nearest, linear (default), cubic, lanczos or super",
         "rok resize in.png out.png --scale 0.5 --method lanczos", "ResizeSqrPixel", 1, run_resize},
        {"rotate", "rotate about the centre (or a point), keeping the size or growing to hold it all",
         "IN OUT --angle DEG [--about X,Y | --expand] [--method M] [--background V]",
         "--angle DEG    degrees, counter-clockwise on screen\n--about X,Y    about this source position instead of the centre\n"
         "--expand       an output large enough for the whole rotated image\n"
         "--method M     nearest, linear (default), cubic\n"
         "--background V value of the pixels no source pixel reaches (default 0)",
         "rok rotate in.png out.png --angle 30", "Rotate", 1, run_rotate},
        {"shear", "shear: x' = x + X y, y' = Y x + y, about the centre", "IN OUT [--x X] [--y Y] [--expand] [--method M] [--background V]",
         "--x X          horizontal shear (default 0)\n--y Y          vertical shear (default 0)\n"
         "--expand       an output large enough for the whole sheared image\n--method M     nearest, linear (default), cubic\n"
         "--background V value of the pixels no source pixel reaches (default 0)",
         "rok shear in.png out.png --x 0.3 --expand", "Shear", 1, run_shear},
        {"warp", "affine or perspective warp of pixel positions", "IN OUT --matrix a,b,c,d,e,f[,g,h,i] | --quad Q [--model M] [--method M]",
         "--matrix M     six coefficients: x' = a x + b y + c, y' = d x + e y + f;\n"
         "               nine: x' = (a x + b y + c) / (g x + h y + i), y' = (d x + e y + f) / (g x + h y + i)\n"
         "--quad Q       x0,y0,...,x3,y3: where the image's corners go (top left, top right, bottom right, bottom left)\n"
         "--model M      the map of --quad: perspective (default), affine (the first three corners) or bilinear\n"         "--inverse      the matrix maps output positions to source positions\n"
         "--method M     nearest, linear (default), cubic",
         "rok warp in.png out.png --matrix 1,0.2,0,0,1,0", "WarpAffine", 1, run_warp},
        {"remap", "take each output pixel from the source position that two maps give", "IN OUT --xmap X.pfm --ymap Y.pfm [--method M]",
         "--xmap F       32f grey image (PFM): source x of each output pixel; its size is the output's\n"
         "--ymap F       the same for y\n--method M     nearest, linear (default), cubic",
         "rok remap in.png out.png --xmap mx.pfm --ymap my.pfm", "Remap", 1, run_remap},
        {"mirror", "flip the image", "IN OUT [--flip h|v|both]", "--flip A       h: left-right (default), v: top-bottom, both",
         "rok mirror in.png out.png --flip v", "Mirror", 1, run_mirror},
        {"threshold", "values beyond a level clamped to it or set to a value, or a binary mask",
         "IN OUT [--level V | --otsu] [--op lt|gt] [--value V | --binary] | --below L:V --above H:W",
         "--level V      the level (default 128); one number, or one per channel\n"
         "--otsu         8-bit grey: the level that best splits the histogram in two (Otsu)\n"
         "--op lt|gt     lt: values below the level, gt (default): values above it\n"
         "--value V      set those values to V instead of the level\n"
         "--binary       a grey mask instead: 255 where the value is beyond the level in every channel, else 0\n"
         "--below L:V    values under L become V\n--above H:W    values over H become W (with --below: both sides in one pass)",
         "rok threshold in.png out.png --otsu --binary", "Threshold", 1, run_threshold},
        {"shift", "shift the bits of integer samples", "IN OUT --left N | --right N", "--left N       shift left by N bits (0 to 31)\n"
         "--right N      shift right by N bits", "rok shift in.png out.png --right 4", "RShiftC", 1, run_shift},
        {"premultiply", "multiply the colour of RGBA images by their alpha, or any image by a constant alpha", "IN OUT [--by ALPHA]",
         "--by ALPHA     a constant alpha for every pixel (0 to 255, or 65535 for 16u): v * ALPHA / max",
         "rok premultiply in.png out.png", "AlphaPremul", 1, run_premultiply},
        {"channels", "reorder the colour channels, take one as a grey image, or set an alpha channel",
         "IN OUT --order I,J,K | --take K | --set-alpha V",
         "--order I,J,K  output channel n is input channel (I, J, K)[n]: 2,1,0 swaps red and blue (alpha kept)\n"
         "--take K       channel K (0 first) as a grey image\n"
         "--set-alpha V  RGB to RGBA (or RGBA with a new alpha): alpha V everywhere",
         "rok channels in.png out.png --order 2,1,0", "SwapChannels", 1, run_channels},
        {"transpose", "swap rows and columns", "IN OUT", "", "rok transpose in.png out.png", "Transpose", 1, run_transpose},
        {"lut", "map sample values through a curve", "IN OUT --gamma G | --invert | --points X:Y,... [--interp I] [--alpha]",
         "--gamma G      out = max (in / max)^(1/G), max 255, 65535, or 1 for 32f (values above 1 kept)\n"
         "--invert       out = max - in\n"
         "--points P     curve through X:Y points; values outside the first..last X are kept\n"
         "--interp I     linear (default), cubic or step (each point's Y up to the next X)\n"
         "--alpha        map the alpha channel of RGBA images too (default: kept)",
         "rok lut in.png out.png --gamma 2.2", "LUT", 1, run_lut},
        {"palette", "false colour: an 8-bit grey image to RGB through a colour map", "IN OUT [--map M] [--bits N]",
         "--map M        heat (default), rainbow, ice or grey\n--bits N       the top N bits of each value pick the colour (1 to 8, default 8)",
         "rok palette depth.png coloured.png --map rainbow", "LUTPalette", 1, run_palette},
        {"math", "square root, logarithm, exponential, square, absolute value or bitwise NOT of each sample",
         "IN OUT --op sqrt|ln|exp|sqr|abs|not [--scale N]",
         "--op OP        sqrt, ln, exp, sqr, abs (32f) or not (8u)\n--scale N      scale factor of integer results (default 0)",
         "rok math in.png out.png --op sqrt --scale -4", "Sqrt", 1, run_math},
        {"dct", "2-D discrete cosine transform (coefficients as 32f; --view for a picture)", "IN OUT [--inverse | --view | --blocks K]",
         "--inverse      coefficients (32f, .pfm) back to samples (32f)\n"
         "--view         write the log magnitude of the coefficients scaled to 8 bits\n"
         "--blocks K     8-bit grey: the 8x8 block transform, keeping the lowest KxK frequencies of each block (1 to 8)",
         "rok dct in.png coefficients.pfm && rok dct coefficients.pfm back.pfm --inverse", "DCTFwd", 1, run_dct},
        {"fft", "log magnitude (or phase) of the 2-D Fourier transform, centred", "IN OUT [--phase]",
         "--phase        the phase instead, -pi..pi as 0..255",
         "rok fft in.png spectrum.png", "DFTFwd_RToPack", 1, run_fft},
        {"stats", "sum, mean, extrema and where they are, norms and histogram (text or --json)", "IN... [--json] [--bins N] [--range LO,HI] [--levels L,...]",
         "--range LO,HI  also count the pixels with LO <= value <= HI, per channel (8u and 32f; RGBA: colour channels)\n"         "--levels L,... also count the pixels between each pair of levels (L0 <= value < L1, ...), per channel\n"
         "--bins N       histogram bins over the full range (default 16, 0 for none; 8u and 16u, not RGB)\n--json         one JSON object a file",
         "rok stats in.png --json", "Sum", 0, nullptr},
        {"diff", "norms of the difference of two images, absolute and relative to B, and their dot product (text or --json)", "A B [--json]",
         "--json         one JSON object (relative norms are null, in text inf, when B is all zero)", "rok diff a.png b.png --json", "NormDiff_L2", 0, nullptr},
        {"moments", "spatial and central moments, centroid and the seven Hu invariants (text or --json)", "IN... [--json]",
         "--json         one JSON object a file", "rok moments shape.png --json", "Moments64f", 0, nullptr},
        {"demo", "run a pipeline on a built-in image; outputs and a contact sheet in a folder", "[DIR]", "",
         "rok demo rok-demo", "", 0, nullptr},
    };
    return table;
}

const Command* find_command(const std::string& name) {
    for (const auto& c : commands())
        if (name == c.name) return &c;
    return nullptr;
}

const char* kCommonHelp =
    "common options:\n"
    "  --threads N    library threads (default: every processor)\n"
    "  --time         run the operation repeatedly and print the median time\n"
    "  --repeat N     runs for --time (default 9)\n"
    "  --json         machine-readable output\n"
    "  --out DIR      batch: every argument (or folder) is an input, outputs go to DIR\n"    "  --ext EXT      batch: write the outputs in this format (png, jpg, pgm, ppm, pfm)\n"
    "  --quiet        batch: no progress bar\n"
    "  --help         this help\n";

void print_usage() {
    std::printf("rok: image processing with rokIP\n\nusage: rok COMMAND ARGS [OPTIONS]\n\ncommands:\n");
    for (const auto& c : commands()) std::printf("  %-12s %s\n", c.name, c.summary);
    std::printf("\n%s\nexample: rok demo   (then: rok COMMAND --help)\nformats: PNG, JPEG, PGM, PPM (8/16-bit) and PFM (32f)\n"
                "exit codes: 0 done, 1 some files of a batch failed, 2 bad arguments, unreadable input or a refused image\n",
                kCommonHelp);
}

void print_help(const Command& c) {
    std::printf("rok %s: %s\n\nusage: rok %s %s\n", c.name, c.summary, c.name, c.usage);
    if (*c.options) {
        std::printf("\noptions:\n");
        std::string opts = c.options;
        std::size_t p = 0;
        while (p < opts.size()) {
            std::size_t e = opts.find('\n', p);
            if (e == std::string::npos) e = opts.size();
            std::printf("  %s\n", opts.substr(p, e - p).c_str());
            p = e + 1;
        }
    }
    // what the library takes, from the generated table
    bool listed = false;
    for (const Entry& e : kExports) listed = listed || std::strcmp(e.family, c.family) == 0;
    if (listed) std::printf("\nimages: roki%s takes %s; files give 8u, 16u or 32f\n", c.family, takes(c.family).c_str());
    std::printf("\n%s\nexample:\n  %s\n", kCommonHelp, c.example);
}

// Options without a value; every other --name takes the next argument.
bool is_flag(const std::string& k) {
    static const char* flags[] = {"time", "json", "help", "box", "sobel", "sharpen", "quiet", "invert", "alpha", "inverse", "view",
                                  "full-range", "otsu", "binary", "sobel-vert", "phase", "expand", "sobel-cross"};
    for (const char* f : flags)
        if (k == f) return true;
    return false;
}

Options parse(int argc, char** argv, int first) {
    Options o;
    for (int i = first; i < argc; ++i) {
        std::string a = argv[i];
        if (a.size() > 2 && a.compare(0, 2, "--") == 0) {
            std::string k = a.substr(2), v = "1";
            auto eq = k.find('=');
            if (eq != std::string::npos) v = k.substr(eq + 1), k = k.substr(0, eq);
            else if (!is_flag(k)) {
                if (i + 1 >= argc) throw Error("--" + k + " needs a value");
                v = argv[++i];
            }
            o.kv[k] = v;
        } else if (a == "-h") {
            o.kv["help"] = "1";
        } else {
            o.args.push_back(a);
        }
    }
    return o;
}

double now() {
    using namespace std::chrono;
    return duration<double>(steady_clock::now().time_since_epoch()).count();
}

// Runs the operation once, or --repeat times for --time, giving the median in ms.
Image timed(const Command& c, const Options& o, const Image& a, const Image* b, double* ms) {
    int reps = o.has("time") ? o.integer("repeat", 9, 1, 10000) : 1;
    std::vector<double> t;
    Image out;
    for (int r = 0; r < reps; ++r) {
        double t0 = now();
        out = c.run(c, o, a, b);
        t.push_back(1e3 * (now() - t0));
    }
    std::sort(t.begin(), t.end());
    *ms = t[t.size() / 2];
    return out;
}

std::string base_name(const std::string& p) {
    auto s = p.find_last_of('/');
    return s == std::string::npos ? p : p.substr(s + 1);
}

bool is_dir(const std::string& p) {
    struct stat st;
    return stat(p.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

std::vector<std::string> expand_inputs(const std::vector<std::string>& args) {
    std::vector<std::string> files;
    for (const auto& a : args) {
        if (!is_dir(a)) {
            files.push_back(a);
            continue;
        }
        std::vector<std::string> found;
        if (DIR* d = opendir(a.c_str())) {
            while (dirent* e = readdir(d)) {
                std::string n = e->d_name;
                if (n[0] != '.' && !format_of(n).empty() && n.find(".rok-") == std::string::npos) found.push_back(a + "/" + n);
            }
            closedir(d);
        }
        std::sort(found.begin(), found.end());
        files.insert(files.end(), found.begin(), found.end());
    }
    return files;
}


void report(const Options& o, const std::string& in, const std::string& out, const Image& img, double ms) {
    if (o.has("json"))
        std::printf("{\"input\": \"%s\", \"output\": \"%s\", \"width\": %d, \"height\": %d, \"channels\": %d, \"type\": \"%s\"%s}\n",
                    json_escape(in).c_str(), json_escape(out).c_str(), img.width, img.height, img.channels, depth_name(img.depth),
                    o.has("time") ? (", \"ms\": " + Options::fmt_num(ms)).c_str() : "");
    else if (o.has("time"))
        std::printf("%s: %.3f ms (median of %d)\n", out.c_str(), ms, o.integer("repeat", 9, 1, 10000));
}

// Several inputs into --out DIR, a few files at a time. The library keeps one
// pool of workers for the process, and a call that finds it busy runs on its
// own thread, so files in flight plus the pool never exceed the processors.
int run_batch(const Command& c, const Options& o) {
    std::string dir = o.get("out");
    if (!is_dir(dir) && mkdir(dir.c_str(), 0777) != 0) throw Error(dir + ": cannot make the folder");
    std::vector<std::string> files = expand_inputs(o.args);
    if (files.empty()) throw Error(std::string(c.name) + ": no input files");
    std::string ext = o.get("ext");
    unsigned procs = std::max(1u, std::thread::hardware_concurrency());
    unsigned workers = std::min<unsigned>(static_cast<unsigned>(files.size()), std::max(1u, procs / 2));
    bool bar = isatty(2) && !o.has("quiet");
    std::atomic<std::size_t> next{0}, done{0}, failed{0};
    std::mutex io;
    double t0 = now();
    auto work = [&] {
        for (std::size_t i; (i = next++) < files.size();) {
            const std::string& in = files[i];
            std::string name = base_name(in);
            if (!ext.empty()) name = name.substr(0, name.find_last_of('.')) + "." + ext;
            std::string out = dir + "/" + name;
            try {
                Image a = read_image(in);
                double ms = 0;
                Image r = timed(c, o, a, nullptr, &ms);
                write_image(r, out);
                std::lock_guard<std::mutex> l(io);
                if (bar) std::fprintf(stderr, "\r\033[K");
                report(o, in, out, r, ms);
            } catch (const std::exception& e) {
                ++failed;
                std::lock_guard<std::mutex> l(io);
                if (bar) std::fprintf(stderr, "\r\033[K");
                std::fprintf(stderr, "rok %s: %s (skipped)\n", c.name, e.what());
            }
            std::size_t n = ++done;
            if (bar) {
                std::lock_guard<std::mutex> l(io);
                int filled = static_cast<int>(30 * n / files.size());
                std::fprintf(stderr, "\r[%.*s%*s] %zu/%zu", filled, "##############################", 30 - filled, "", n,
                             files.size());
                std::fflush(stderr);
            }
        }
    };
    std::vector<std::thread> pool;
    for (unsigned k = 1; k < workers; ++k) pool.emplace_back(work);
    work();
    for (auto& t : pool) t.join();
    if (bar) std::fprintf(stderr, "\r\033[K");
    std::fprintf(stderr, "rok %s: %zu file(s), %zu written, %zu failed, %.2f s\n", c.name, files.size(),
                 files.size() - failed.load(), failed.load(), now() - t0);
    return failed ? 1 : 0;
}

int run_stats(const Options& o) {
    if (o.args.empty()) throw Error("stats needs at least one image");
    int bins = o.integer("bins", 16, 0, 65536);
    std::vector<double> levels;
    if (o.has("levels")) {
        std::string t = o.get("levels");
        std::size_t p = 0;
        while (p <= t.size()) {
            std::size_t e = t.find(',', p);
            if (e == std::string::npos) e = t.size();
            std::string item = t.substr(p, e - p);
            char* end = nullptr;
            double v = std::strtod(item.c_str(), &end);
            if (item.empty() || *end || !std::isfinite(v) || std::fabs(v) > 2e9 || (!levels.empty() && v <= levels.back()))
                throw Error("--levels takes increasing numbers separated by commas, not '" + t + "'");
            levels.push_back(v);
            p = e + 1;
        }
        if (levels.size() < 2) throw Error("--levels needs at least two levels");
    }
    double range[2] = {0, 0};
    if (o.has("range")) {
        char extra = 0;
        if (std::sscanf(o.get("range").c_str(), "%lf,%lf%c", &range[0], &range[1], &extra) != 2 || !std::isfinite(range[0]) ||
            !std::isfinite(range[1]))
            throw Error("--range takes LO,HI, not '" + o.get("range") + "'");
    }
    int failed = 0;
    std::vector<std::string> files = expand_inputs(o.args);
    if (files.empty()) throw Error("no images in " + o.args[0]);
    for (const auto& in : files) {
        try {
            Image a = read_image(in);
            Stats st;
            int reps = o.has("time") ? o.integer("repeat", 9, 1, 10000) : 1;
            std::vector<double> t;
            for (int r = 0; r < reps; ++r) {
                double t0 = now();
                if (o.has("range") && a.depth != Depth::f32 &&
                    (range[0] < 0 || range[1] > (a.depth == Depth::u8 ? 255 : 65535) || range[0] != std::floor(range[0]) ||
                     range[1] != std::floor(range[1])))
                    throw Error("--range takes whole numbers within the image's sample range");
                if (!levels.empty() && a.depth != Depth::f32)
                    for (double v : levels)
                        if (v != std::floor(v)) throw Error("--levels takes whole numbers for integer images");
                st = compute_stats(a, bins, o.has("range") ? range : nullptr, levels.empty() ? nullptr : &levels);
                t.push_back(1e3 * (now() - t0));
            }
            std::fputs(format_stats(in, a, st, o.has("json")).c_str(), stdout);
            if (o.has("time")) {
                std::sort(t.begin(), t.end());
                std::fprintf(o.has("json") ? stderr : stdout, "  time     %.3f ms (median of %d)\n", t[t.size() / 2], reps);
            }
        } catch (const Error& e) {
            if (files.size() == 1) throw;
            ++failed;
            std::fprintf(stderr, "rok stats: %s (skipped)\n", e.what());
        }
    }
    return failed ? 1 : 0;
}

int run_moments(const Options& o) {
    if (o.args.empty()) throw Error("moments needs at least one image");
    int failed = 0;
    std::vector<std::string> files = expand_inputs(o.args);
    if (files.empty()) throw Error("no images in " + o.args[0]);
    for (const auto& in : files) {
        try {
            Image a = read_image(in);
            std::fputs(format_moments(in, a, compute_moments(a), o.has("json")).c_str(), stdout);
        } catch (const Error& e) {
            if (files.size() == 1) throw;
            ++failed;
            std::fprintf(stderr, "rok moments: %s (skipped)\n", e.what());
        }
    }
    return failed ? 1 : 0;
}

// ---- differences of two images ----

int run_diff(const Options& o) {
    if (o.args.size() != 2) throw Error("diff takes two images (A B); rok diff --help");
    Image a = read_image(o.args[0]), b = read_image(o.args[1]);
    if (b.width != a.width || b.height != a.height || b.channels != a.channels || b.depth != a.depth)
        throw Error("diff: the two images differ in size, channels or sample type");
    int n = a.channels;
    struct Row { const char* key; const char* family; double v[4]; };
    Row rows[] = {{"diff_inf", "NormDiff_Inf", {}}, {"diff_l1", "NormDiff_L1", {}}, {"diff_l2", "NormDiff_L2", {}},
                  {"rel_inf", "NormRel_Inf", {}},   {"rel_l1", "NormRel_L1", {}},   {"rel_l2", "NormRel_L2", {}},
                  {"dot", "DotProd", {}}};
    for (Row& r : rows) {
        bool dot = std::strcmp(r.family, "DotProd") == 0;  // sum of a b, in double precision
        auto f = find_export(r.family, std::string(depth_name(a.depth)) + (dot ? "64f" : ""), layout_of(a), {"R"}, "diff");
        // the floating-point L1 and L2 forms take the accuracy hint
        bool hint = a.depth == Depth::f32 && (std::strstr(r.family, "_L1") || std::strstr(r.family, "_L2"));
        using Fn = RokStatus (*)(const void*, int, const void*, int, Roi, Rok64f*);
        using FnHint = RokStatus (*)(const void*, int, const void*, int, Roi, Rok64f*, int);
        RokStatus s = hint ? reinterpret_cast<FnHint>(f.fn)(a.data.data(), a.step(), b.data.data(), b.step(), roi_of(a), r.v, rokHintAccurate)
                           : reinterpret_cast<Fn>(f.fn)(a.data.data(), a.step(), b.data.data(), b.step(), roi_of(a), r.v);
        if (s == rokStatusDivByZero && std::strncmp(r.key, "rel", 3) == 0) {  // B all zero: no relative norm
            for (double& x : r.v) x = HUGE_VAL;
            continue;
        }
        check(s, f.name);
    }
    bool json = o.has("json");
    std::string out = json ? "{\"a\": \"" + json_escape(o.args[0]) + "\", \"b\": \"" + json_escape(o.args[1]) + "\"" : o.args[0] + " vs " + o.args[1] + "\n";
    for (const Row& r : rows) {
        std::string vals = list(r.v, n, json);
        if (json) {
            for (std::size_t p; (p = vals.find("inf")) != std::string::npos;) vals.replace(p, 3, "null");
            out += std::string(", \"") + r.key + "\": " + vals;
        } else {
            char pad[16];
            std::snprintf(pad, sizeof pad, "  %-9s", r.key);
            out += pad + vals + "\n";
        }
    }
    std::fputs((out + (json ? "}\n" : "")).c_str(), stdout);
    return 0;
}

// ---- demo ----

Image demo_image(int w, int h) {
    Image img;
    img.allocate(w, h, 3, Depth::u8);
    for (int y = 0; y < h; ++y) {
        std::uint8_t* r = img.row(y);
        for (int x = 0; x < w; ++x) {
            double dx = x - w * 0.5, dy = y - h * 0.5, rr = std::sqrt(dx * dx + dy * dy);
            int ring = static_cast<int>(127.5 + 127.5 * std::cos(rr * rr / (w * 3.0)));
            int checker = ((x / 32) + (y / 32)) % 2 ? 200 : 40;
            bool disc = rr < h * 0.22;
            r[3 * x + 0] = static_cast<std::uint8_t>(disc ? 230 : x * 255 / w);
            r[3 * x + 1] = static_cast<std::uint8_t>(disc ? ring : checker);
            r[3 * x + 2] = static_cast<std::uint8_t>(disc ? 60 : ring);
            if (((x * 7 + y * 13) % 97) == 0) r[3 * x + 1] = 255;  // sparse specks for the median filter
        }
    }
    return img;
}

int run_demo(const Options& o) {
    std::string dir = o.args.empty() ? "rok-demo" : o.args[0];
    if (!is_dir(dir) && mkdir(dir.c_str(), 0777) != 0) throw Error(dir + ": cannot make the folder");
    int threads = 0;
    rokGetNumThreads(&threads);
    const RokLibraryVersion* v = rokiGetLibVersion();
    std::printf("%s %s, %d thread(s); writing into %s/\n", v->Name, v->Version, threads, dir.c_str());
    Image src = demo_image(1024, 768);
    Image grey;
    {   // the green channel as a grey image, for the grey-only steps
        grey.allocate(src.width, src.height, 1, Depth::u8);
        for (std::size_t i = 0; i < grey.data.size(); ++i) grey.data[i] = src.data[3 * i + 1];
    }
    struct Step {
        const char* label;
        const char* cmd;
        std::vector<std::pair<std::string, std::string>> opts;
        bool use_grey;
    };
    std::vector<Step> steps = {
        {"median 5x5", "median", {{"mask", "5x5"}}, false},
        {"box 9x9", "filter", {{"box", "1"}, {"kernel", "9x9"}}, false},
        {"gauss 5x5", "filter", {{"gauss", "5"}}, false},
        {"sobel", "filter", {{"sobel", "1"}}, true},
        {"sharpen", "filter", {{"sharpen", "1"}}, false},
        {"dilate", "dilate", {}, false},
        {"erode", "erode", {}, false},
        {"rotate 30", "rotate", {{"angle", "30"}, {"method", "cubic"}}, false},
        {"mirror", "mirror", {{"flip", "h"}}, false},
        {"threshold", "threshold", {{"level", "100"}, {"op", "gt"}}, true},
        {"resize x0.5 lanczos", "resize", {{"scale", "0.5"}, {"method", "lanczos"}}, false},
        {"fft", "fft", {}, true},
        {"dct", "dct", {{"view", "1"}}, true},
        {"lut gamma 2.2", "lut", {{"gamma", "2.2"}}, false},
        {"warp quad", "warp", {{"quad", "80,40,980,0,1023,767,0,720"}}, false},
    };
    std::vector<std::pair<std::string, Image>> outs = {{"input", src}};
    write_image(src, dir + "/input.png");
    for (const auto& s : steps) {
        const Command* c = find_command(s.cmd);
        Options so;
        for (const auto& kv : s.opts) so.kv[kv.first] = kv.second;
        so.kv["time"] = "1";
        so.kv["repeat"] = "5";
        double ms = 0;
        Image r = timed(*c, so, s.use_grey ? grey : src, nullptr, &ms);
        std::string file = std::string(s.label);
        for (char& ch : file) if (ch == ' ' || ch == '.') ch = '_';
        write_image(r, dir + "/" + file + ".png");
        std::printf("  %-22s %8.3f ms   %s/%s.png\n", s.label, ms, dir.c_str(), file.c_str());
        outs.emplace_back(s.label, r);
    }
    {
        Options so;
        double ms = 0, t0 = now();
        Stats st = compute_stats(src, 16);
        ms = 1e3 * (now() - t0);
        std::printf("  %-22s %8.3f ms   mean %.2f %.2f %.2f\n", "stats", ms, st.mean[0], st.mean[1], st.mean[2]);
    }
    // The contact sheet: every output as a 256x192 RGB tile (resized by the library).
    const int tw = 256, th = 192, cols = 4;
    int rows = static_cast<int>((outs.size() + cols - 1) / cols);
    Image sheet;
    sheet.allocate(cols * tw + (cols + 1) * 8, rows * th + (rows + 1) * 8, 3, Depth::u8);
    std::fill(sheet.data.begin(), sheet.data.end(), 32);
    const Command* rs = find_command("resize");
    for (std::size_t i = 0; i < outs.size(); ++i) {
        Image t = outs[i].second;
        if (t.channels == 1) {
            Image c3;
            c3.allocate(t.width, t.height, 3, Depth::u8);
            for (std::size_t p = 0; p < t.data.size(); ++p) c3.data[3 * p] = c3.data[3 * p + 1] = c3.data[3 * p + 2] = t.data[p];
            t = c3;
        }
        Options so;
        so.kv["size"] = std::to_string(tw) + "x" + std::to_string(th);
        so.kv["method"] = "super";
        Image tile = rs->run(*rs, so, t, nullptr);
        int ox = 8 + static_cast<int>(i % cols) * (tw + 8), oy = 8 + static_cast<int>(i / cols) * (th + 8);
        for (int y = 0; y < th; ++y) std::memcpy(sheet.row(oy + y) + 3 * ox, tile.row(y), 3 * tw);
    }
    write_image(sheet, dir + "/contact_sheet.png");
    std::printf("contact sheet: %s/contact_sheet.png (in reading order: ", dir.c_str());
    for (std::size_t i = 0; i < outs.size(); ++i) std::printf("%s%s", i ? ", " : "", outs[i].first.c_str());
    std::printf(")\n");
    return 0;
}

int main_checked(int argc, char** argv) {
    if (argc < 2 || std::string(argv[1]) == "--help" || std::string(argv[1]) == "-h" || std::string(argv[1]) == "help") {
        print_usage();
        return argc < 2 ? 2 : 0;
    }
    std::string name = argv[1];
    const Command* c = find_command(name);
    if (!c) throw Error("unknown command '" + name + "' (rok --help lists them)");
    Options o = parse(argc, argv, 2);
    if (o.has("help")) {
        print_help(*c);
        return 0;
    }
    // An option the command does not know is a mistake (a typo would
    // otherwise be ignored and the default used): the options are those its
    // help names, and the common ones.
    std::string known = std::string(c->usage) + " " + c->options + " " + kCommonHelp;
    for (const auto& kv : o.kv) {
        std::string opt = "--" + kv.first;
        std::size_t at = known.find(opt);
        bool found = false;
        for (; at != std::string::npos && !found; at = known.find(opt, at + 1)) {
            char next = at + opt.size() < known.size() ? known[at + opt.size()] : ' ';
            found = !(std::isalnum(static_cast<unsigned char>(next)) || next == '-');
        }
        if (!found) throw Error("unknown option " + opt + " (rok " + name + " --help lists its options)");
    }
    if (o.has("threads")) check(rokSetNumThreads(o.integer("threads", 0, 1, 1024)), "rokSetNumThreads");
    if (name == "demo") return run_demo(o);
    if (name == "stats") return run_stats(o);
    if (name == "moments") return run_moments(o);
    if (name == "diff") return run_diff(o);
    // two-image commands take a constant instead of the second image
    int inputs = c->inputs == 2 && o.has("value") ? 1 : c->inputs;
    if (c->pairs && o.args.size() == 3 && !o.has("out")) inputs = 2;
    if (o.has("out")) {
        if (inputs != 1) throw Error(std::string("--out takes commands of one input, not ") + c->name);
        return run_batch(*c, o);
    }
    std::size_t want = static_cast<std::size_t>(inputs) + 1;
    if (o.args.size() != want)
        throw Error(std::string(c->name) + " takes " + std::to_string(want) + " file names (" + c->usage + "); rok " + c->name + " --help");
    const std::string& out = o.args.back();
    if (format_of(out).empty()) throw Error(out + ": unknown output format (use .png, .jpg, .pgm, .ppm or .pfm)");
    Image a = read_image(o.args[0]);
    Image b;
    if (inputs == 2) b = read_image(o.args[1]);
    double ms = 0;
    Image r = timed(*c, o, a, inputs == 2 ? &b : nullptr, &ms);
    write_image(r, out);
    report(o, o.args[0], out, r, ms);
    return 0;
}

}  // namespace
}  // namespace rok

int main(int argc, char** argv) {
    std::string cmd = argc > 1 ? argv[1] : "";
    try {
        return rok::main_checked(argc, argv);
    } catch (const std::bad_alloc&) {
        std::fprintf(stderr, "rok%s%s: not enough memory for the images\n", cmd.empty() || cmd[0] == '-' ? "" : " ", cmd[0] == '-' ? "" : cmd.c_str());
        return 2;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "rok%s%s: %s\n", cmd.empty() || cmd[0] == '-' ? "" : " ", cmd[0] == '-' ? "" : cmd.c_str(), e.what());
        return 2;
    }
}
