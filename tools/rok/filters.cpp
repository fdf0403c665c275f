// rok commands over neighbourhoods: linear filters, median, morphology, minimum
// and maximum.
#include "rok.h"

namespace rok {

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

// ---- general filter with the user's kernel ----

namespace {
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
}  // namespace

namespace {
std::string read_text(const std::string& path) {
    FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) throw Error(path + ": cannot open the kernel file");
    std::string s;
    char buf[4096];
    for (std::size_t n; (n = std::fread(buf, 1, sizeof buf, f)) > 0;) s.append(buf, n);
    std::fclose(f);
    return s;
}
}  // namespace

namespace {
// One pass of a separable filter: --row or --column, "1 2 1". Integer
// images take whole-number kernels with their sum as divisor (or 1), each
// pass rounding its result; real kernels go through the float engine.
struct Pass {
    std::vector<double> k;
    bool whole = true;
    int divisor = 1;
};
}  // namespace

namespace {
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
}  // namespace

namespace {
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
}  // namespace

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

}  // namespace rok
