// rok commands that move pixels: resize, rotate, shear, warps and remap.
#include "rok.h"

namespace rok {

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

namespace {
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
}  // namespace

namespace {
// The output size and shifts that hold the whole transformed image, from the
// library's bound of the map (--expand), or the source's size.
struct Canvas {
    int w, h;
    double xs, ys;
};
}  // namespace

namespace {
Canvas expand(const double bound[2][2]) {
    double x0 = std::floor(bound[0][0] + 1e-9), y0 = std::floor(bound[0][1] + 1e-9);
    double x1 = std::ceil(bound[1][0] - 1e-9), y1 = std::ceil(bound[1][1] - 1e-9);
    if (!(x1 - x0 < 65535 && y1 - y0 < 65535)) throw Error("--expand: the result would be larger than 65535 pixels");
    return {static_cast<int>(x1 - x0) + 1, static_cast<int>(y1 - y0) + 1, -x0, -y0};
}
}  // namespace

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

namespace {
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
}  // namespace

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

}  // namespace rok
