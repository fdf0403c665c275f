// rok commands that print numbers: statistics, moments, differences.
#include "rok.h"

namespace rok {

// ---- moments ----

namespace {
struct ChannelMoments {
    double m[4][4]{};     // spatial M(p, q), p + q <= 3
    double mu[4][4]{};    // central
    double hu[7]{};
    std::string missing;  // the status when the central moments are undefined (a black channel)
};
}  // namespace

namespace {
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
}  // namespace

namespace {
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
}  // namespace

namespace {
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
}  // namespace

Stats compute_stats(const Image& a, int bins, const double* range, const std::vector<double>* levels) {
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

namespace {
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
}  // namespace

namespace {
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
}  // namespace

// Runs report(file) for every input image (and every image of the folders
// named). With several, one that fails is reported and skipped, and the
// command ends with 1; a single input's error goes to the caller.
template <class Report>
int for_each_report(const Options& o, const char* command, Report report) {
    std::vector<std::string> files = expand_inputs(o.args);
    if (files.empty()) throw Error("no images in " + o.args[0]);
    int failed = 0;
    for (const auto& in : files) {
        try {
            report(in);
        } catch (const Error& e) {
            if (files.size() == 1) throw;
            ++failed;
            std::fprintf(stderr, "rok %s: %s (skipped)\n", command, e.what());
        }
    }
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
    return for_each_report(o, "stats", [&](const std::string& in) {
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
    });
}

int run_moments(const Options& o) {
    if (o.args.empty()) throw Error("moments needs at least one image");
    return for_each_report(o, "moments", [&](const std::string& in) {
        Image a = read_image(in);
        std::fputs(format_moments(in, a, compute_moments(a), o.has("json")).c_str(), stdout);
    });
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

}  // namespace rok
