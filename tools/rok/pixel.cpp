// rok commands on the values of each pixel: arithmetic, logic, compare,
// conversion, borders, threshold, curves, channels.
#include "rok.h"

namespace rok {

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

Image run_mirror(const Command& c, const Options& o, const Image& a, const Image*) {
    std::string axis = o.get("flip", "h");
    int flip = axis == "v" ? rokFlipAboutHorizontal : axis == "h" ? rokFlipAboutVertical : axis == "both" ? rokFlipBoth : -1;
    if (flip < 0) throw Error("--flip takes h (left-right), v (top-bottom) or both, not '" + axis + "'");
    auto f = find_export(c.family, depth_name(a.depth), layout_of(a), {"R"}, c.name);
    Image out = like(a);
    check(reinterpret_cast<FnUnaryInt>(f.fn)(a.data.data(), a.step(), out.data.data(), out.step(), roi_of(a), flip), f.name);
    return out;
}

namespace {
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
}  // namespace

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

namespace {
// The curve of rok lut as level/value points. For integer images --gamma
// and --invert give one level per sample value, so the table holds the curve
// rounded at every value; --points are joined by the chosen interpolation.
struct Curve {
    std::vector<double> levels, values;
    std::string family = "LUT_Linear";
};
}  // namespace

namespace {
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
}  // namespace

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

namespace {
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
}  // namespace

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

}  // namespace rok
