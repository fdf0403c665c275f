// The rok tool's shared parts: options, the export table generated from the
// manifest, image helpers, and the commands, each defined in the file of its
// kind (pixel.cpp, filters.cpp, geometry.cpp, transforms.cpp, numbers.cpp;
// the table of commands, help, batches and the demo in rok.cpp).
#pragma once
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

// ---- the library ----

// A status the library gave: errors stop the file, warnings are reported.
struct LibraryError : Error {
    using Error::Error;
};

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

// The export of a family for this image, trying the forms in order.
struct Found {
    AnyFn fn;
    std::string name;
    std::string suffix;
};

using Roi = RokiSize;

using FnUnary = RokStatus (*)(const void*, int, void*, int, Roi);

using FnUnaryInt = RokStatus (*)(const void*, int, void*, int, Roi, int);

using FnBinary = RokStatus (*)(const void*, int, const void*, int, void*, int, Roi);

using FnBinarySfs = RokStatus (*)(const void*, int, const void*, int, void*, int, Roi, int);

using FnMask = RokStatus (*)(const void*, int, void*, int, Roi, RokiSize, RokiPoint);

using FnMaskBuf = RokStatus (*)(const void*, int, void*, int, Roi, RokiSize, RokiPoint, Rok8u*);

inline int pixel_bytes(const Image& img) { return img.channels * depth_bytes(img.depth); }
inline Roi roi_of(const Image& img) { return {img.width, img.height}; }

// The image with rows and columns replicated around it, for the
// neighbourhood operations, which read beyond the pixels they write.
struct Padded {
    Image img;
    int top = 0, left = 0;
    const std::uint8_t* origin() const { return img.row(top) + static_cast<std::size_t>(left) * pixel_bytes(img); }
};

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

// ---- the library: status checks and the generated export table ----

std::string status_text(RokStatus s);
// Errors stop the file (LibraryError, with the status's name); warnings are reported.
void check(RokStatus s, const std::string& fn);
inline std::string layout_of(const Image& img) { return "C" + std::to_string(img.channels); }

struct ExportRange {
    const Entry* first;
    const Entry* last;
    const Entry* begin() const { return first; }
    const Entry* end() const { return last; }
};
ExportRange all_exports();
// "8u 16u 32f with 1, 3 channel(s)": what a family takes.
std::string takes(const std::string& family);
Found find_export(const std::string& family, const std::string& types, const std::string& layout,
                  const std::vector<std::string>& suffixes, const std::string& command);

// ---- images ----

Image like(const Image& img);
Image blank(const Image& img);
Padded pad(const Image& in, int top, int left, int bottom, int right);
Image to_f32(const Image& a);
Image log_view(const Image& f32, bool centre);

// ---- arguments ----

RokiSize parse_size(const std::string& s, const std::string& what);
std::string json_escape(const std::string& s);
std::vector<double> parse_values(const Options& o, const std::string& key, Depth d, int channels);
std::string colour_layout(const std::string& family, const Image& a);
int parse_cmp(const std::string& op);
Depth parse_depth(const std::string& s);
int parse_method(const std::string& m);

// ---- shared runners ----

Image run_mask(const std::string& family, const char* cmd, RokiSize mask, const Image& a);
Image run_fixed(const std::string& family, const char* cmd, int radius, int arg, bool has_arg, const Image& a);
Image run_signed(const std::string& family, const char* cmd, int arg, bool has_arg, const Image& a);

// ---- the commands, by file ----

// pixel.cpp: values of each pixel
Image run_const(const Command& c, const Options& o, const Image& a, const std::string& base);
Image run_binary(const Command& c, const Options& o, const Image& a, const Image* b, bool swap);
Image run_compare(const Command& c, const Options& o, const Image& a, const Image* b);
Image run_convert(const Command& c, const Options& o, const Image& a, const Image*);
Image run_border(const Command& c, const Options& o, const Image& a, const Image*);
Image run_mirror(const Command& c, const Options& o, const Image& a, const Image*);
Image run_threshold(const Command& c, const Options& o, const Image& a, const Image*);
Image run_lut(const Command& c, const Options& o, const Image& a, const Image*);
Image run_palette(const Command& c, const Options& o, const Image& a, const Image*);
Image run_math(const Command& c, const Options& o, const Image& a, const Image*);
Image run_shift(const Command& c, const Options& o, const Image& a, const Image*);
Image run_premultiply(const Command& c, const Options& o, const Image& a, const Image*);
Image run_channels(const Command& c, const Options& o, const Image& a, const Image*);
Image run_transpose(const Command& c, const Options&, const Image& a, const Image*);
// filters.cpp: neighbourhoods
Image run_filter(const Command& c, const Options& o, const Image& a, const Image*);
Image run_median(const Command& c, const Options& o, const Image& a, const Image*);
Image run_user_kernel(const Command& c, const Options& o, const Image& a);
Image run_separable(const Command& c, const Options& o, const Image& a);
Image run_minmax(const Command& c, const Options& o, const Image& a, const Image* b);
Image run_morph(const Command& c, const Options& o, const Image& a, const Image*);
// geometry.cpp
Image run_resize(const Command& c, const Options& o, const Image& a, const Image*);
Image run_rotate(const Command& c, const Options& o, const Image& a, const Image*);
Image run_shear(const Command& c, const Options& o, const Image& a, const Image*);
Image run_warp(const Command& c, const Options& o, const Image& a, const Image*);
Image run_remap(const Command& c, const Options& o, const Image& a, const Image*);
// transforms.cpp
Image run_fft(const Command&, const Options& o, const Image& a, const Image*);
Image run_dct(const Command& c, const Options& o, const Image& a, const Image*);
Image run_wavelet(const Command& c, const Options& o, const Image& a, const Image*);
// numbers.cpp: commands that print
Stats compute_stats(const Image& a, int bins, const double* range = nullptr, const std::vector<double>* levels = nullptr);
int run_stats(const Options& o);
int run_moments(const Options& o);
int run_diff(const Options& o);
// rok.cpp
const Command* find_command(const std::string& name);
std::vector<std::string> expand_inputs(const std::vector<std::string>& args);
double now();

}  // namespace rok
