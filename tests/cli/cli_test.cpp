// The rok tool run as a user runs it: its outputs against the library called
// directly on the same pixels, and every way a bad argument or file must fail
// (exit code 2, one line naming the problem, no output file).
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "rokcore.h"
#include "roki.h"

namespace {

struct Img {
    int w = 0, h = 0, c = 1, bytes = 1;  // bytes per sample: 1, 2 or 4 (float)
    std::vector<std::uint8_t> d;
    int step() const { return w * c * bytes; }
    std::uint8_t* at(int y, int x) { return d.data() + static_cast<std::size_t>(y) * step() + x * c * bytes; }
};

Img make(int w, int h, int c, int bytes, unsigned seed) {
    Img m{w, h, c, bytes, {}};
    m.d.resize(static_cast<std::size_t>(w) * h * c * bytes);
    unsigned s = seed;
    for (auto& v : m.d) {
        s = s * 1103515245u + 12345u;
        v = static_cast<std::uint8_t>(s >> 16);
    }
    if (bytes == 4)  // floats in [0, 256) rather than arbitrary bit patterns
        for (std::size_t i = 0; i < m.d.size(); i += 4) {
            float f = static_cast<float>(m.d[i] + m.d[i + 1] / 256.0);
            std::memcpy(&m.d[i], &f, 4);
        }
    return m;
}

Img like(const Img& a, int w, int h) {
    Img m{w, h, a.c, a.bytes, {}};
    m.d.assign(static_cast<std::size_t>(w) * h * a.c * a.bytes, 0);
    return m;
}

// Netpbm written and read here, independently of the tool's own code.
void write_pnm(const Img& m, const std::string& path) {
    std::ofstream f(path, std::ios::binary);
    f << (m.c == 1 ? "P5" : "P6") << "\n" << m.w << " " << m.h << "\n" << (m.bytes == 2 ? 65535 : 255) << "\n";
    std::vector<std::uint8_t> d = m.d;
    if (m.bytes == 2)
        for (std::size_t i = 0; i < d.size(); i += 2) std::swap(d[i], d[i + 1]);
    f.write(reinterpret_cast<const char*>(d.data()), static_cast<std::streamsize>(d.size()));
}

void write_pfm(const Img& m, const std::string& path) {  // grey, little-endian, bottom row first
    std::ofstream f(path, std::ios::binary);
    f << "Pf\n" << m.w << " " << m.h << "\n-1.0\n";
    for (int y = m.h - 1; y >= 0; --y) f.write(reinterpret_cast<const char*>(m.d.data()) + static_cast<std::size_t>(y) * m.step(), m.step());
}

Img read_pnm(const std::string& path) {
    std::ifstream f(path, std::ios::binary);
    std::string magic;
    Img m;
    double maxval = 0;
    f >> magic >> m.w >> m.h >> maxval;
    f.get();
    m.c = (magic == "P5" || magic == "Pf") ? 1 : 3;
    m.bytes = magic[1] == 'f' || magic[1] == 'F' ? 4 : maxval > 255 ? 2 : 1;
    m.d.resize(static_cast<std::size_t>(m.w) * m.h * m.c * m.bytes);
    if (m.bytes == 4) {  // little-endian (negative scale), bottom row first
        for (int y = m.h - 1; y >= 0; --y) f.read(reinterpret_cast<char*>(m.at(y, 0)), m.step());
    } else {
        f.read(reinterpret_cast<char*>(m.d.data()), static_cast<std::streamsize>(m.d.size()));
        if (m.bytes == 2)
            for (std::size_t i = 0; i < m.d.size(); i += 2) std::swap(m.d[i], m.d[i + 1]);
    }
    if (!f) m.w = m.h = 0;
    return m;
}

bool exists(const std::string& p) {
    struct stat st;
    return stat(p.c_str(), &st) == 0;
}

struct Result {
    int code;
    std::string out, err;
};

class Cli : public ::testing::Test {
protected:
    std::string dir;
    void SetUp() override {
        char t[] = "/tmp/rok-cli-XXXXXX";
        ASSERT_NE(mkdtemp(t), nullptr);
        dir = t;
    }
    void TearDown() override { std::system(("rm -rf " + dir).c_str()); }
    std::string p(const std::string& name) const { return dir + "/" + name; }

    Result rok(const std::string& args) const {
        std::string cmd = "cd " + dir + " && " + std::string(ROK_EXE) + " " + args + " >" + p("stdout.txt") + " 2>" + p("stderr.txt") + " </dev/null";
        int st = std::system(cmd.c_str());
        Result r{WIFEXITED(st) ? WEXITSTATUS(st) : -1, slurp(p("stdout.txt")), slurp(p("stderr.txt"))};
        return r;
    }
    static std::string slurp(const std::string& path) {
        std::ifstream f(path);
        std::stringstream s;
        s << f.rdbuf();
        return s.str();
    }
};

// The library's call on the image padded by replicated edges, as the tool
// must make it for filters that read around each pixel.
Img padded(const Img& a, int r) {
    Img q = like(a, a.w + 2 * r, a.h + 2 * r);
    EXPECT_EQ(a.c, 1);
    EXPECT_EQ(rokiCopyReplicateBorder_8u_C1R(a.d.data(), a.step(), {a.w, a.h}, q.d.data(), q.step(), {q.w, q.h}, r, r), 0);
    return q;
}

TEST_F(Cli, OutputsMatchTheLibraryCalledDirectly) {
    const Img a = make(37, 23, 1, 1, 1), b = make(37, 23, 1, 1, 2), c3 = make(37, 23, 3, 1, 3);
    write_pnm(a, p("a.pgm"));
    write_pnm(b, p("b.pgm"));
    write_pnm(c3, p("c.ppm"));
    // remap's maps: source positions a little outside the image at the edges
    Img mx{30, 20, 1, 4, {}}, my{30, 20, 1, 4, {}};
    mx.d.resize(30 * 20 * 4), my.d.resize(30 * 20 * 4);
    for (int y = 0; y < 20; ++y)
        for (int x = 0; x < 30; ++x) {
            float fx = 1.3f * x - 1.7f + 0.05f * y, fy = 1.2f * y - 0.6f;
            std::memcpy(mx.at(y, x), &fx, 4), std::memcpy(my.at(y, x), &fy, 4);
        }
    write_pfm(mx, p("mx.pfm"));
    write_pfm(my, p("my.pfm"));
    const Img g = make(13, 6, 1, 4, 11);
    write_pfm(g, p("g.pfm"));
    Img flat = like(a, 8, 6);
    std::fill(flat.d.begin(), flat.d.end(), 9);
    write_pnm(flat, p("flat.pgm"));
    struct Case {
        const char* args;
        const char* out;
        std::function<Img()> expect;
    };
    std::vector<Case> cases = {
        {"add a.pgm b.pgm o.pgm --scale 1", "o.pgm", [&] {
             Img o = like(a, a.w, a.h);
             rokiAdd_8u_C1RSfs(a.d.data(), a.step(), b.d.data(), b.step(), o.d.data(), o.step(), {a.w, a.h}, 1);
             return o;
         }},
        // a - b: the library subtracts its first operand from its second
        {"sub a.pgm b.pgm o.pgm", "o.pgm", [&] {
             Img o = like(a, a.w, a.h);
             rokiSub_8u_C1RSfs(b.d.data(), b.step(), a.d.data(), a.step(), o.d.data(), o.step(), {a.w, a.h}, 0);
             return o;
         }},
        {"div a.pgm b.pgm o.pgm --scale -3", "o.pgm", [&] {  // a / b
             Img o = like(a, a.w, a.h);
             rokiDiv_8u_C1RSfs(b.d.data(), b.step(), a.d.data(), a.step(), o.d.data(), o.step(), {a.w, a.h}, -3);
             return o;
         }},
        {"xor c.ppm c.ppm o.ppm", "o.ppm", [&] { return like(c3, c3.w, c3.h); }},
        {"compare c.ppm c.ppm o.pgm --op ge", "o.pgm", [&] {
             Img o = like(a, a.w, a.h);
             std::fill(o.d.begin(), o.d.end(), 255);
             return o;
         }},
        {"compare a.pgm b.pgm o.pgm --op lt", "o.pgm", [&] {
             Img o = like(a, a.w, a.h);
             rokiCompare_8u_C1R(a.d.data(), a.step(), b.d.data(), b.step(), o.d.data(), o.step(), {a.w, a.h}, rokCompareLess);
             return o;
         }},
        {"median a.pgm o.pgm --mask 5x3", "o.pgm", [&] {
             Img q = padded(a, 2), o = like(a, a.w, a.h);
             rokiFilterMedian_8u_C1R(q.at(2, 2), q.step(), o.d.data(), o.step(), {a.w, a.h}, {5, 3}, {2, 1});
             return o;
         }},
        {"filter a.pgm o.pgm --gauss 5", "o.pgm", [&] {
             Img q = padded(a, 2), o = like(a, a.w, a.h);
             rokiFilterGauss_8u_C1R(q.at(2, 2), q.step(), o.d.data(), o.step(), {a.w, a.h}, rokMskSize5x5);
             return o;
         }},
        {"filter a.pgm o.pgm --box --kernel 4x4", "o.pgm", [&] {
             Img q = padded(a, 2), o = like(a, a.w, a.h);
             rokiFilterBox_8u_C1R(q.at(2, 2), q.step(), o.d.data(), o.step(), {a.w, a.h}, {4, 4}, {2, 2});
             return o;
         }},
        {"dilate a.pgm o.pgm", "o.pgm", [&] {
             Img q = padded(a, 1), o = like(a, a.w, a.h);
             rokiDilate3x3_8u_C1R(q.at(1, 1), q.step(), o.d.data(), o.step(), {a.w, a.h});
             return o;
         }},
        {"resize c.ppm o.ppm --scale 0.5 --method lanczos", "o.ppm", [&] {
             Img o = like(c3, 19, 12);  // 37 * 0.5 and 23 * 0.5 rounded half away
             int size = 0;
             rokiResizeGetBufSize({0, 0, 37, 23}, {0, 0, 19, 12}, 3, rokInterLanczos, &size);
             std::vector<Rok8u> buf(static_cast<std::size_t>(size) + 1);
             rokiResizeSqrPixel_8u_C3R(c3.d.data(), {37, 23}, c3.step(), {0, 0, 37, 23}, o.d.data(), o.step(), {0, 0, 19, 12}, 0.5,
                                       0.5, 0, 0, rokInterLanczos, buf.data());
             return o;
         }},
        {"mirror c.ppm o.ppm --flip v", "o.ppm", [&] {
             Img o = like(c3, c3.w, c3.h);
             rokiMirror_8u_C3R(c3.d.data(), c3.step(), o.d.data(), o.step(), {c3.w, c3.h}, rokFlipAboutHorizontal);
             return o;
         }},
        {"rotate a.pgm o.pgm --angle 90 --method nearest", "o.pgm", [&] {
             Img o = like(a, a.w, a.h);
             double cx = 18, cy = 11;  // centre kept: x' = y + xs, y' = -x + ys
             rokiRotate_8u_C1R(a.d.data(), {a.w, a.h}, a.step(), {0, 0, a.w, a.h}, o.d.data(), o.step(), {0, 0, a.w, a.h}, 90,
                               cx - cy, cy + cx, rokInterNearest);
             return o;
         }},
        {"warp c.ppm o.ppm --matrix 0.9,0.2,1.5,-0.1,1.1,-2 --method cubic", "o.ppm", [&] {
             Img o = like(c3, c3.w, c3.h);
             const double m[2][3] = {{0.9, 0.2, 1.5}, {-0.1, 1.1, -2}};
             rokiWarpAffine_8u_C3R(c3.d.data(), {c3.w, c3.h}, c3.step(), {0, 0, c3.w, c3.h}, o.d.data(), o.step(),
                                   {0, 0, c3.w, c3.h}, m, rokInterCubic);
             return o;
         }},
        {"convert c.ppm o.pfm --to 32f", "o.pfm", [&] {
             Img o{c3.w, c3.h, 3, 4, {}};
             o.d.resize(static_cast<std::size_t>(o.w) * o.h * 12);
             rokiConvert_8u32f_C3R(c3.d.data(), c3.step(), reinterpret_cast<Rok32f*>(o.d.data()), o.step(), {o.w, o.h});
             return o;
         }},
        {"threshold a.pgm o.pgm --level 100 --op lt", "o.pgm", [&] {
             Img o = like(a, a.w, a.h);
             rokiThreshold_8u_C1R(a.d.data(), a.step(), o.d.data(), o.step(), {a.w, a.h}, 100, rokCompareLess);
             return o;
         }},
        // curves: the last point's X takes its Y; values outside the points are kept
        {"lut a.pgm o.pgm --points 10:100,20:0 --interp step", "o.pgm", [&] {
             Img o = a;
             for (auto& v : o.d) v = v >= 10 && v < 20 ? 100 : v == 20 ? 0 : v;
             return o;
         }},
        {"lut a.pgm o.pgm --points 0:255,255:0", "o.pgm", [&] {
             Img o = a;
             for (auto& v : o.d) v = static_cast<std::uint8_t>(255 - v);
             return o;
         }},
        {"lut a.pgm o.pgm --gamma 2", "o.pgm", [&] {
             Img o = a;
             for (auto& v : o.d) v = static_cast<std::uint8_t>(std::floor(255 * std::sqrt(v / 255.0) + 0.5));
             return o;
         }},
        {"math a.pgm o.pgm --op sqrt --scale -2", "o.pgm", [&] {
             Img o = like(a, a.w, a.h);
             rokiSqrt_8u_C1RSfs(a.d.data(), a.step(), o.d.data(), o.step(), {a.w, a.h}, -2);
             return o;
         }},
        // a kernel that is not symmetric, anchored in a corner: the tool pads
        // kw-1-ax columns left and kh-1-ay rows above
        {"filter a.pgm o.pgm --kernel '1 0 2;3 -1 1' --anchor 0,0", "o.pgm", [&] {
             Img q = padded(a, 2), o = like(a, a.w, a.h);
             const Rok32s k[] = {1, 0, 2, 3, -1, 1};
             rokiFilter_8u_C1R(q.at(2, 2), q.step(), o.d.data(), o.step(), {a.w, a.h}, k, {3, 2}, {0, 0}, 6);
             return o;
         }},
        {"filter c.ppm o.ppm --kernel '0.25 0.5 0.125'", "o.ppm", [&] {
             Img q = like(c3, c3.w + 2, c3.h), o = like(c3, c3.w, c3.h);
             rokiCopyReplicateBorder_8u_C3R(c3.d.data(), c3.step(), {c3.w, c3.h}, q.d.data(), q.step(), {q.w, q.h}, 0, 1);
             const Rok32f k[] = {0.25f, 0.5f, 0.125f};
             rokiFilter32f_8u_C3R(q.at(0, 1), q.step(), o.d.data(), o.step(), {c3.w, c3.h}, k, {3, 1}, {1, 0});
             return o;
         }},
        {"min a.pgm o.pgm --mask 5x3", "o.pgm", [&] {
             Img q = padded(a, 2), o = like(a, a.w, a.h);
             rokiFilterMin_8u_C1R(q.at(2, 2), q.step(), o.d.data(), o.step(), {a.w, a.h}, {5, 3}, {2, 1});
             return o;
         }},
        {"dilate a.pgm o.pgm --mask 5x3 --shape cross", "o.pgm", [&] {
             Img q = padded(a, 2), o = like(a, a.w, a.h);
             const Rok8u m[] = {0, 0, 1, 0, 0, 1, 1, 1, 1, 1, 0, 0, 1, 0, 0};
             rokiDilate_8u_C1R(q.at(2, 2), q.step(), o.d.data(), o.step(), {a.w, a.h}, m, {5, 3}, {2, 1});
             return o;
         }},
        {"warp c.ppm o.ppm --matrix 0.9,0.2,1.5,-0.1,1.1,-2,0.001,0.002,1", "o.ppm", [&] {
             Img o = like(c3, c3.w, c3.h);
             const double m[3][3] = {{0.9, 0.2, 1.5}, {-0.1, 1.1, -2}, {0.001, 0.002, 1}};
             rokiWarpPerspective_8u_C3R(c3.d.data(), {c3.w, c3.h}, c3.step(), {0, 0, c3.w, c3.h}, o.d.data(), o.step(),
                                        {0, 0, c3.w, c3.h}, m, rokInterLinear);
             return o;
         }},
        {"remap c.ppm o.ppm --xmap mx.pfm --ymap my.pfm --method cubic", "o.ppm", [&] {
             Img o = like(c3, 30, 20);
             rokiRemap_8u_C3R(c3.d.data(), {c3.w, c3.h}, c3.step(), {0, 0, c3.w, c3.h}, reinterpret_cast<const Rok32f*>(mx.d.data()),
                              mx.step(), reinterpret_cast<const Rok32f*>(my.d.data()), my.step(), o.d.data(), o.step(), {30, 20},
                              rokInterCubic);
             return o;
         }},
        {"dct a.pgm o.pfm", "o.pfm", [&] {
             Img f{a.w, a.h, 1, 4, {}}, o{a.w, a.h, 1, 4, {}};
             f.d.resize(static_cast<std::size_t>(a.w) * a.h * 4);
             o.d = f.d;
             rokiConvert_8u32f_C1R(a.d.data(), a.step(), reinterpret_cast<Rok32f*>(f.d.data()), f.step(), {a.w, a.h});
             RokiDCTFwdSpec_32f* spec = nullptr;
             rokiDCTFwdInitAlloc_32f(&spec, {a.w, a.h}, rokHintDefault);
             int size = 0;
             rokiDCTFwdGetBufSize_32f(spec, &size);
             std::vector<Rok8u> buf(static_cast<std::size_t>(size) + 1);
             rokiDCTFwd_32f_C1R(reinterpret_cast<Rok32f*>(f.d.data()), f.step(), reinterpret_cast<Rok32f*>(o.d.data()), o.step(), spec,
                                buf.data());
             rokiDCTFwdFree_32f(spec);
             return o;
         }},
        // an image and a constant: sub is image - value, saturated
        {"sub a.pgm o.pgm --value 50", "o.pgm", [&] {
             Img o = a;
             for (auto& v : o.d) v = static_cast<std::uint8_t>(std::max(0, v - 50));
             return o;
         }},
        {"add c.ppm o.ppm --value 10,20,30 --scale 1", "o.ppm", [&] {
             Img o = like(c3, c3.w, c3.h);
             const Rok8u k[3] = {10, 20, 30};
             rokiAddC_8u_C3RSfs(c3.d.data(), c3.step(), k, o.d.data(), o.step(), {c3.w, c3.h}, 1);
             return o;
         }},
        {"mul a.pgm b.pgm o.pgm --full-range", "o.pgm", [&] {
             Img o = like(a, a.w, a.h);
             rokiMulScale_8u_C1R(a.d.data(), a.step(), b.d.data(), b.step(), o.d.data(), o.step(), {a.w, a.h});
             return o;
         }},
        {"compare c.ppm o.pgm --value 100,50,20 --op ge", "o.pgm", [&] {
             Img o = like(a, a.w, a.h);
             const Rok8u k[3] = {100, 50, 20};
             rokiCompareC_8u_C3R(c3.d.data(), c3.step(), k, o.d.data(), o.step(), {c3.w, c3.h}, rokCompareGreaterEq);
             return o;
         }},
        {"threshold c.ppm o.ppm --level 100,50,20 --value 7 --op lt", "o.ppm", [&] {
             Img o = c3;
             const int lv[3] = {100, 50, 20};
             for (std::size_t i = 0; i < o.d.size(); ++i) o.d[i] = o.d[i] < lv[i % 3] ? 7 : o.d[i];
             return o;
         }},
        {"threshold a.pgm o.pgm --otsu --binary", "o.pgm", [&] {
             Rok8u level = 0;
             rokiComputeThreshold_Otsu_8u_C1R(a.d.data(), a.step(), {a.w, a.h}, &level);
             Img o = a;
             for (auto& v : o.d) v = v > level ? 255 : 0;
             return o;
         }},
        {"shift a.pgm o.pgm --right 3", "o.pgm", [&] {
             Img o = a;
             for (auto& v : o.d) v = static_cast<std::uint8_t>(v >> 3);
             return o;
         }},
        {"channels c.ppm o.ppm --order 2,0,1", "o.ppm", [&] {
             Img o = c3;
             for (std::size_t i = 0; i < o.d.size(); i += 3) o.d[i] = c3.d[i + 2], o.d[i + 1] = c3.d[i], o.d[i + 2] = c3.d[i + 1];
             return o;
         }},
        {"channels c.ppm o.pgm --take 2", "o.pgm", [&] {
             Img o = like(a, a.w, a.h);
             for (std::size_t i = 0; i < o.d.size(); ++i) o.d[i] = c3.d[3 * i + 2];
             return o;
         }},
        {"transpose c.ppm o.ppm", "o.ppm", [&] {
             Img o = like(c3, c3.h, c3.w);
             for (int y = 0; y < c3.h; ++y)
                 for (int x = 0; x < c3.w; ++x) std::memcpy(o.at(x, y), const_cast<Img&>(c3).at(y, x), 3);
             return o;
         }},
        {"border g.pfm o.pfm --wrap 2", "o.pfm", [&] {
             Img o = like(g, g.w + 4, g.h + 4);
             for (int y = 0; y < o.h; ++y)
                 for (int x = 0; x < o.w; ++x)
                     std::memcpy(o.at(y, x), const_cast<Img&>(g).at((y - 2 + g.h) % g.h, (x - 2 + g.w) % g.w), 4);
             return o;
         }},
        {"filter a.pgm o.pgm --prewitt v", "o.pgm", [&] {
             Img q = padded(a, 1), o = like(a, a.w, a.h);
             rokiFilterPrewittVert_8u_C1R(q.at(1, 1), q.step(), o.d.data(), o.step(), {a.w, a.h});
             return o;
         }},
        {"median a.pgm o.pgm --cross 5", "o.pgm", [&] {
             Img q = padded(a, 2), o = like(a, a.w, a.h);
             rokiFilterMedianCross_8u_C1R(q.at(2, 2), q.step(), o.d.data(), o.step(), {a.w, a.h}, rokMskSize5x5);
             return o;
         }},
        {"median a.pgm o.pgm --horiz 3", "o.pgm", [&] {
             Img q = padded(a, 1), o = like(a, a.w, a.h);
             rokiFilterMedianHoriz_8u_C1R(q.at(1, 1), q.step(), o.d.data(), o.step(), {a.w, a.h}, rokMskSize3x1);
             return o;
         }},
        {"warp c.ppm o.ppm --quad 3,1,35,4,30,22,0,19", "o.ppm", [&] {  // the corners of the image go to the quad
             Img o = like(c3, c3.w, c3.h);
             const double from[4][2] = {{0, 0}, {36, 0}, {36, 22}, {0, 22}}, to[4][2] = {{3, 1}, {35, 4}, {30, 22}, {0, 19}};
             rokiWarpPerspectiveQuad_8u_C3R(c3.d.data(), {c3.w, c3.h}, c3.step(), {0, 0, c3.w, c3.h}, o.d.data(), o.step(),
                                            {0, 0, c3.w, c3.h}, from, to, rokInterLinear);
             return o;
         }},
        {"convert a.pgm o.pgm --to 16u --full-range", "o.pgm", [&] {
             Img o{a.w, a.h, 1, 2, {}};
             o.d.resize(static_cast<std::size_t>(a.w) * a.h * 2);
             rokiScale_8u16u_C1R(a.d.data(), a.step(), reinterpret_cast<Rok16u*>(o.d.data()), o.step(), {a.w, a.h});
             return o;
         }},
        // separable: the row pass over the rows the column pass reads, each pass divided by its kernel's sum
        {"filter a.pgm o.pgm --row '1 2 3 1'", "o.pgm", [&] {
             Img q = padded(a, 2), o = like(a, a.w, a.h);
             const Rok32s k[] = {1, 2, 3, 1};
             rokiFilterRow_8u_C1R(q.at(2, 2), q.step(), o.d.data(), o.step(), {a.w, a.h}, k, 4, 2, 7);
             return o;
         }},
        {"filter a.pgm o.pgm --row '1 2 1' --column '1 0 3'", "o.pgm", [&] {
             Img q = padded(a, 1), mid = like(a, a.w, a.h + 2), o = like(a, a.w, a.h);
             const Rok32s kr[] = {1, 2, 1}, kc[] = {1, 0, 3};
             rokiFilterRow_8u_C1R(q.at(0, 1), q.step(), mid.d.data(), mid.step(), {a.w, a.h + 2}, kr, 3, 1, 4);
             rokiFilterColumn_8u_C1R(mid.at(1, 0), mid.step(), o.d.data(), o.step(), {a.w, a.h}, kc, 3, 1, 4);
             return o;
         }},
        {"div a.pgm b.pgm o.pgm --round away --scale 1", "o.pgm", [&] {  // a / b
             Img o = like(a, a.w, a.h);
             rokiDiv_Round_8u_C1RSfs(b.d.data(), b.step(), a.d.data(), a.step(), o.d.data(), o.step(), {a.w, a.h}, rokRoundHalfAway, 1);
             return o;
         }},
        {"threshold a.pgm o.pgm --below 50:7 --above 200:250", "o.pgm", [&] {
             Img o = a;
             for (auto& v : o.d) v = v < 50 ? 7 : v > 200 ? 250 : v;
             return o;
         }},
        {"premultiply c.ppm o.ppm --by 128", "o.ppm", [&] {
             Img o = like(c3, c3.w, c3.h);
             rokiAlphaPremulC_8u_C3R(c3.d.data(), c3.step(), 128, o.d.data(), o.step(), {c3.w, c3.h});
             return o;
         }},
        {"compare g.pfm o.pgm --value 100 --eps 20", "o.pgm", [&] {
             Img o = like(a, g.w, g.h);
             for (std::size_t i = 0; i < o.d.size(); ++i) {
                 float v;
                 std::memcpy(&v, &g.d[4 * i], 4);
                 o.d[i] = std::fabs(v - 100.0f) <= 20.0f ? 255 : 0;
             }
             return o;
         }},
        {"fft flat.pgm o.pgm --phase", "o.pgm", [&] {  // a constant image: every phase 0, shown as 128
             Img o = like(a, 8, 6);
             std::fill(o.d.begin(), o.d.end(), 128);
             return o;
         }},
        {"palette a.pgm o.ppm --map grey --bits 2", "o.ppm", [&] {  // the top 2 bits pick one of 4 greys
             Img o = like(c3, a.w, a.h);
             for (std::size_t i = 0; i < a.d.size(); ++i) o.d[3 * i] = o.d[3 * i + 1] = o.d[3 * i + 2] = static_cast<std::uint8_t>((a.d[i] >> 6) * 85);
             return o;
         }},
        {"dct a.pgm o.pgm --blocks 1", "o.pgm", [&] {  // 8x8 blocks, the image's edges replicated to 40x24
             Img q = like(a, 40, 24), o = like(a, 40, 24);
             rokiCopyReplicateBorder_8u_C1R(a.d.data(), a.step(), {a.w, a.h}, q.d.data(), q.step(), {40, 24}, 0, 0);
             for (int by = 0; by < 24; by += 8)
                 for (int bx = 0; bx < 40; bx += 8) {
                     Rok16s blk[64];
                     rokiDCT8x8Fwd_8u16s_C1R(q.at(by, bx), q.step(), blk);
                     std::fill(blk + 1, blk + 64, Rok16s{0});  // the lowest 1x1: the mean alone
                     rokiDCT8x8Inv_16s8u_C1R(blk, o.at(by, bx), o.step());
                 }
             Img r = like(a, a.w, a.h);
             for (int y = 0; y < a.h; ++y) std::memcpy(r.at(y, 0), o.at(y, 0), static_cast<std::size_t>(a.w));
             return r;
         }},
        // --expand: a quarter turn counter-clockwise gives the transposed image flipped top to bottom
        {"rotate a.pgm o.pgm --angle 90 --expand --method nearest", "o.pgm", [&] {
             Img o = like(a, a.h, a.w);
             for (int y = 0; y < a.h; ++y)
                 for (int x = 0; x < a.w; ++x) *o.at(a.w - 1 - x, y) = const_cast<Img&>(a).at(y, x)[0];
             return o;
         }},
        {"shear a.pgm o.pgm --x 1 --expand --method nearest --background 9", "o.pgm", [&] {  // row y moves y pixels right
             Img o = like(a, a.w + a.h - 1, a.h);
             std::fill(o.d.begin(), o.d.end(), 9);
             for (int y = 0; y < a.h; ++y)
                 for (int x = 0; x < a.w; ++x) *o.at(y, x + y) = const_cast<Img&>(a).at(y, x)[0];
             return o;
         }},
        {"rotate c.ppm o.ppm --angle 20 --about 3,4 --method cubic", "o.ppm", [&] {
             Img o = like(c3, c3.w, c3.h);
             rokiRotateCenter_8u_C3R(c3.d.data(), {c3.w, c3.h}, c3.step(), {0, 0, c3.w, c3.h}, o.d.data(), o.step(), {0, 0, c3.w, c3.h}, 20,
                                     3, 4, rokInterCubic);
             return o;
         }},
        {"warp c.ppm o.ppm --matrix 0.9,0.2,1.5,-0.1,1.1,-2 --inverse", "o.ppm", [&] {
             Img o = like(c3, c3.w, c3.h);
             const double m[2][3] = {{0.9, 0.2, 1.5}, {-0.1, 1.1, -2}};
             rokiWarpAffineBack_8u_C3R(c3.d.data(), {c3.w, c3.h}, c3.step(), {0, 0, c3.w, c3.h}, o.d.data(), o.step(), {0, 0, c3.w, c3.h}, m,
                                       rokInterLinear);
             return o;
         }},
        {"median a.pgm o.pgm --weighted 3", "o.pgm", [&] {
             Img q = padded(a, 1), o = like(a, a.w, a.h);
             rokiFilterMedianWeightedCenter3x3_8u_C1R(q.at(1, 1), q.step(), o.d.data(), o.step(), {a.w, a.h}, 3);
             return o;
         }},
        {"max a.pgm b.pgm o.pgm", "o.pgm", [&] {  // two images: the larger of each pair
             Img o = a;
             for (std::size_t i = 0; i < o.d.size(); ++i) o.d[i] = std::max(a.d[i], b.d[i]);
             return o;
         }},
        {"filter a.pgm o.pfm --scharr v", "o.pfm", [&] {  // signed results, as 32f
             Img q = padded(a, 1), o{a.w, a.h, 1, 4, {}};
             std::vector<Rok16s> d(static_cast<std::size_t>(a.w) * a.h);
             rokiFilterScharrVert_8u16s_C1R(q.at(1, 1), q.step(), d.data(), a.w * 2, {a.w, a.h});
             o.d.resize(d.size() * 4);
             for (std::size_t i = 0; i < d.size(); ++i) {
                 float v = d[i];
                 std::memcpy(&o.d[4 * i], &v, 4);
             }
             return o;
         }},
        {"border a.pgm o.pgm --const 3 --value 7", "o.pgm", [&] {
             Img o = like(a, a.w + 6, a.h + 6);
             rokiCopyConstBorder_8u_C1R(a.d.data(), a.step(), {a.w, a.h}, o.d.data(), o.step(), {o.w, o.h}, 3, 3, 7);
             return o;
         }},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.args);
        for (const char* threads : {"1", "3"}) {
            std::remove(p(c.out).c_str());
            Result r = rok(std::string(c.args) + " --threads " + threads);
            ASSERT_EQ(r.code, 0) << r.err;
            Img got = read_pnm(p(c.out)), want = c.expect();
            ASSERT_EQ(got.w, want.w);
            ASSERT_EQ(got.h, want.h);
            ASSERT_EQ(got.c, want.c);
            EXPECT_TRUE(got.d == want.d);
        }
    }
}

TEST_F(Cli, FilesKeepTheirSamplesThroughEveryFormat) {
    // grey and RGB, 8 and 16 bits: PNM -> PNG -> PNM is exact; 32f through PFM.
    struct Case { int c, bytes; const char* ext; };
    for (Case k : {Case{1, 1, "pgm"}, Case{3, 1, "ppm"}, Case{1, 2, "pgm"}, Case{3, 2, "ppm"}}) {
        SCOPED_TRACE(std::to_string(k.c) + " channel(s), " + std::to_string(8 * k.bytes) + " bits");
        Img a = make(1 + 13 * k.c, 5 + k.bytes, k.c, k.bytes, 9);
        std::string in = p(std::string("in.") + k.ext), back = p(std::string("back.") + k.ext);
        write_pnm(a, in);
        ASSERT_EQ(rok("mirror " + in + " " + p("m.png") + " --flip both").code, 0);
        ASSERT_EQ(rok("mirror " + p("m.png") + " " + back + " --flip both").code, 0);
        EXPECT_TRUE(read_pnm(back).d == a.d);
    }
    Img f = make(11, 4, 1, 4, 5);
    {   // a PFM written here, read by the tool and written back
        std::ofstream o(p("f.pfm"), std::ios::binary);
        o << "Pf\n11 4\n-1.0\n";
        for (int y = 3; y >= 0; --y) o.write(reinterpret_cast<const char*>(f.at(y, 0)), f.step());
    }
    ASSERT_EQ(rok("mirror " + p("f.pfm") + " " + p("g.pfm") + " --flip both").code, 0);
    ASSERT_EQ(rok("mirror " + p("g.pfm") + " " + p("h.pfm") + " --flip both").code, 0);
    EXPECT_TRUE(read_pnm(p("h.pfm")).d == f.d);
    // JPEG is lossy: an 8-bit grey image comes back close to what went in.
    Img g = like(make(1, 1, 1, 1, 0), 40, 24);
    for (int y = 0; y < 24; ++y)
        for (int x = 0; x < 40; ++x) *g.at(y, x) = static_cast<std::uint8_t>(4 * x + 2 * y);
    write_pnm(g, p("g.pgm"));
    ASSERT_EQ(rok("mirror " + p("g.pgm") + " " + p("g.jpg") + " --flip both").code, 0);
    ASSERT_EQ(rok("mirror " + p("g.jpg") + " " + p("g2.pgm") + " --flip both").code, 0);
    Img back = read_pnm(p("g2.pgm"));
    ASSERT_EQ(back.d.size(), g.d.size());
    int worst = 0;
    for (std::size_t i = 0; i < g.d.size(); ++i) worst = std::max(worst, std::abs(int(back.d[i]) - int(g.d[i])));
    EXPECT_LE(worst, 8);
}

// The Haar wavelet mosaic against the transform written out here, and back.
TEST_F(Cli, WaveletBandsAndBack) {
    const Img a = make(37, 23, 1, 1, 21);  // odd: the last row and column are left out
    write_pnm(a, p("a.pgm"));
    ASSERT_EQ(rok("wavelet a.pgm bands.pfm").code, 0);
    ASSERT_EQ(rok("wavelet bands.pfm back.pfm --inverse").code, 0);
    Img bands = read_pnm(p("bands.pfm")), back = read_pnm(p("back.pfm"));
    ASSERT_EQ(bands.w, 36);
    ASSERT_EQ(bands.h, 22);
    auto f = [](Img& m, int y, int x) { float v; std::memcpy(&v, m.at(y, x), 4); return static_cast<double>(v); };
    auto s = [&](int y, int x) { return static_cast<double>(const_cast<Img&>(a).at(y, x)[0]); };
    double worst = 0;
    for (int y = 0; y < 11; ++y)
        for (int x = 0; x < 18; ++x) {
            double p00 = s(2 * y, 2 * x), p01 = s(2 * y, 2 * x + 1), p10 = s(2 * y + 1, 2 * x), p11 = s(2 * y + 1, 2 * x + 1);
            const double want[4] = {(p00 + p01 + p10 + p11) / 2, (p01 - p00 + p11 - p10) / 2,  // approximation, high along rows
                                    (p10 - p00 + p11 - p01) / 2, (p11 - p10 - p01 + p00) / 2};  // high along columns, both
            const int at[4][2] = {{0, 0}, {0, 18}, {11, 0}, {11, 18}};
            for (int k = 0; k < 4; ++k) worst = std::max(worst, std::fabs(f(bands, at[k][0] + y, at[k][1] + x) - want[k]));
            for (int dy = 0; dy < 2; ++dy)
                for (int dx = 0; dx < 2; ++dx) worst = std::max(worst, std::fabs(f(back, 2 * y + dy, 2 * x + dx) - s(2 * y + dy, 2 * x + dx)));
        }
    EXPECT_LT(worst, 1e-3);
}

// RGBA through PNG: commands whose family leaves alpha alone (AC4) must give
// back the input's alpha, and the colour as the library computes it.
TEST_F(Cli, RgbaKeepsItsAlpha) {
    const Img c3 = make(23, 9, 3, 1, 12);
    write_pnm(c3, p("c.ppm"));
    ASSERT_EQ(rok("channels c.ppm rgba.png --set-alpha 200").code, 0);
    Img rgba = like(c3, c3.w, c3.h);
    rgba.c = 4;
    rgba.d.assign(static_cast<std::size_t>(c3.w) * c3.h * 4, 200);
    for (std::size_t i = 0; i < c3.d.size() / 3; ++i) std::memcpy(&rgba.d[4 * i], &c3.d[3 * i], 3);
    Img premul = rgba, red = like(make(1, 1, 1, 1, 0), c3.w, c3.h);
    rokiAlphaPremul_8u_AC4R(rgba.d.data(), rgba.step(), premul.d.data(), premul.step(), {c3.w, c3.h});
    struct Case { const char* args; std::function<int(std::size_t)> red; };
    std::vector<Case> cases = {
        {"lut rgba.png o.png --invert", [&](std::size_t i) { return 255 - c3.d[3 * i]; }},
        {"premultiply rgba.png o.png", [&](std::size_t i) { return premul.d[4 * i]; }},
        {"math rgba.png o.png --op not", [&](std::size_t i) { return 255 - c3.d[3 * i]; }},
        {"add rgba.png o.png --value 300", nullptr},  // refused: nothing to check but the status
        {"threshold rgba.png o.png --level 100 --value 0", [&](std::size_t i) { return c3.d[3 * i] > 100 ? 0 : c3.d[3 * i]; }},
        {"filter rgba.png o.png --lowpass 3", nullptr},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.args);
        std::remove(p("o.png").c_str());
        Result r = rok(c.args);
        if (std::string(c.args).find("300") != std::string::npos) {
            EXPECT_EQ(r.code, 2);
            continue;
        }
        ASSERT_EQ(r.code, 0) << r.err;
        ASSERT_EQ(rok("channels o.png alpha.pgm --take 3").code, 0);
        Img alpha = read_pnm(p("alpha.pgm"));
        ASSERT_EQ(alpha.d.size(), red.d.size());
        EXPECT_TRUE(std::all_of(alpha.d.begin(), alpha.d.end(), [](std::uint8_t v) { return v == 200; }));
        if (!c.red) continue;
        ASSERT_EQ(rok("channels o.png red.pgm --take 0").code, 0);
        Img got = read_pnm(p("red.pgm"));
        for (std::size_t i = 0; i < red.d.size(); ++i) red.d[i] = static_cast<std::uint8_t>(c.red(i));
        EXPECT_TRUE(got.d == red.d);
    }
}

TEST_F(Cli, StatsReportTheLibrarysResults) {
    Img a = make(29, 7, 1, 1, 4);
    write_pnm(a, p("a.pgm"));
    Result r = rok("stats " + p("a.pgm") + " --json --bins 4 --range 40,90 --levels 0,10,100,256");
    ASSERT_EQ(r.code, 0) << r.err;
    double sum = 0, l2 = 0;
    rokiSum_8u_C1R(a.d.data(), a.step(), {a.w, a.h}, &sum);
    rokiNorm_L2_8u_C1R(a.d.data(), a.step(), {a.w, a.h}, &l2);
    Rok32s hist[4], levels[5];
    rokiHistogramEven_8u_C1R(a.d.data(), a.step(), {a.w, a.h}, hist, levels, 5, 0, 256);
    char want[256];
    std::snprintf(want, sizeof want, "\"sum\": [%.17g]", sum);
    EXPECT_NE(r.out.find(want), std::string::npos) << r.out;
    std::snprintf(want, sizeof want, "\"norm_l2\": [%.17g]", l2);
    EXPECT_NE(r.out.find(want), std::string::npos) << r.out;
    std::snprintf(want, sizeof want, "\"histogram\": [[%d, %d, %d, %d]]", hist[0], hist[1], hist[2], hist[3]);
    EXPECT_NE(r.out.find(want), std::string::npos) << r.out;
    std::snprintf(want, sizeof want, "\"in_range\": [%d]", static_cast<int>(std::count_if(a.d.begin(), a.d.end(), [](int v) { return v >= 40 && v <= 90; })));
    EXPECT_NE(r.out.find(want), std::string::npos) << r.out;
    int below10 = 0, below100 = 0;
    for (int v : a.d) below10 += v < 10, below100 += v < 100;
    std::snprintf(want, sizeof want, "\"by_levels\": [[%d, %d, %d]]", below10, below100 - below10, static_cast<int>(a.d.size()) - below100);
    EXPECT_NE(r.out.find(want), std::string::npos) << r.out;
    Rok8u lo = 0, hi = 0;
    int lx = -1, ly = -1, hx = -1, hy = -1;
    rokiMinIndx_8u_C1R(a.d.data(), a.step(), {a.w, a.h}, &lo, &lx, &ly);
    rokiMaxIndx_8u_C1R(a.d.data(), a.step(), {a.w, a.h}, &hi, &hx, &hy);
    std::snprintf(want, sizeof want, "\"argmin\": [[%d, %d]], \"argmax\": [[%d, %d]]", lx, ly, hx, hy);
    EXPECT_NE(r.out.find(want), std::string::npos) << r.out;
    EXPECT_EQ(std::count(r.out.begin(), r.out.end(), '\n'), 1);
    // moments: the state accumulated by the library, read back through its getters
    Result m = rok("moments " + p("a.pgm") + " --json");
    ASSERT_EQ(m.code, 0) << m.err;
    RokiMomentState_64f* st = nullptr;
    ASSERT_EQ(rokiMomentInitAlloc_64f(&st, rokHintAccurate), 0);
    ASSERT_EQ(rokiMoments64f_8u_C1R(a.d.data(), a.step(), {a.w, a.h}, st), 0);
    double hu[7], m21 = 0, mu12 = 0;
    rokiGetHuMoments_64f(st, 0, hu);
    rokiGetSpatialMoment_64f(st, 2, 1, 0, {0, 0}, &m21);
    rokiGetCentralMoment_64f(st, 1, 2, 0, &mu12);
    rokiMomentFree_64f(st);
    std::snprintf(want, sizeof want, "\"hu\": [%.17g, %.17g, %.17g, %.17g, %.17g, %.17g, %.17g]", hu[0], hu[1], hu[2], hu[3], hu[4], hu[5], hu[6]);
    EXPECT_NE(m.out.find(want), std::string::npos) << m.out;
    std::snprintf(want, sizeof want, "\"m21\": %.17g", m21);
    EXPECT_NE(m.out.find(want), std::string::npos) << m.out;
    std::snprintf(want, sizeof want, "\"mu12\": %.17g", mu12);
    EXPECT_NE(m.out.find(want), std::string::npos) << m.out;
    // diff: the library's norms of the difference; relative to an all-zero B there is none
    Img b = make(29, 7, 1, 1, 5);
    write_pnm(b, p("b.pgm"));
    double l2d = 0;
    rokiNormDiff_L2_8u_C1R(a.d.data(), a.step(), b.d.data(), b.step(), {a.w, a.h}, &l2d);
    Result d = rok("diff " + p("a.pgm") + " " + p("b.pgm") + " --json");
    ASSERT_EQ(d.code, 0) << d.err;
    std::snprintf(want, sizeof want, "\"diff_l2\": [%.17g]", l2d);
    EXPECT_NE(d.out.find(want), std::string::npos) << d.out;
    double dot = 0;
    rokiDotProd_8u64f_C1R(a.d.data(), a.step(), b.d.data(), b.step(), {a.w, a.h}, &dot);
    std::snprintf(want, sizeof want, "\"dot\": [%.17g]", dot);
    EXPECT_NE(d.out.find(want), std::string::npos) << d.out;
    write_pnm(like(a, a.w, a.h), p("black.pgm"));
    d = rok("diff " + p("a.pgm") + " " + p("black.pgm") + " --json");
    ASSERT_EQ(d.code, 0) << d.err;
    EXPECT_NE(d.out.find("\"rel_l2\": [null]"), std::string::npos) << d.out;
    // a black image has no centroid: reported, not an error
    Result k = rok("moments " + p("black.pgm"));
    EXPECT_EQ(k.code, 0) << k.err;
    EXPECT_NE(k.out.find("undefined: rokStatusMomentTooSmall"), std::string::npos) << k.out;
}

TEST_F(Cli, BadInputFailsWithOneLineAndNoFile) {
    write_pnm(make(16, 8, 1, 1, 1), p("a.pgm"));
    write_pnm(make(17, 8, 1, 1, 1), p("wide.pgm"));
    write_pnm(make(16, 8, 3, 1, 1), p("c.ppm"));
    ASSERT_EQ(rok("mirror " + p("a.pgm") + " " + p("a.png")).code, 0);
    {   // a PNG cut short, a PGM whose pixels stop early, and text
        std::string png = slurp(p("a.png")), pgm = slurp(p("a.pgm"));
        std::ofstream(p("cut.png"), std::ios::binary) << png.substr(0, png.size() / 2);
        std::ofstream(p("cut.pgm"), std::ios::binary) << pgm.substr(0, pgm.size() - 5);
        std::ofstream(p("text.png")) << "hello";
        std::ofstream(p("empty.pgm"));
        std::ofstream(p("badhdr.pgm")) << "P5\n-3 4\n255\n";
        std::ofstream(p("f.pfm"), std::ios::binary) << "Pf\n1 1\n-1.0\n" << std::string(4, '\0');
    }
    mkdir(p("nothing").c_str(), 0777);
    const std::string A = p("a.pgm");
    struct Case { std::string args, message; };
    std::vector<Case> cases = {
        {"median " + p("none.png") + " OUT", "No such file"},
        {"median " + p("cut.png") + " OUT", "bad PNG file"},
        {"median " + p("cut.pgm") + " OUT", "truncated"},
        {"median " + p("text.png") + " OUT", "not a PNG, JPEG"},
        {"median " + p("empty.pgm") + " OUT", "empty file"},
        {"median " + p("badhdr.pgm") + " OUT", "bad netpbm header"},
        {"frobnicate " + A + " OUT", "unknown command"},
        {"convert " + A + " OUT", "--to"},
        {"convert " + A + " OUT --to 12q", "--to takes"},
        {"median " + A + " OUT --mask 0x3", "--mask takes"},
        {"median " + A + " OUT --mask", "needs a value"},
        {"resize " + A + " OUT --scale abc", "--scale takes"},
        {"resize " + A + " OUT --method sinc", "--method takes"},
        {"add " + A + " OUT", "takes 3 file names"},
        {"add " + A + " " + p("wide.pgm") + " OUT", "differ in size"},
        {"add " + A + " " + p("c.ppm") + " OUT", "differ in size"},
        {"threshold " + p("c.ppm") + " OUT", "grey images"},
        {"median " + A + " " + p("out.bmp"), "unknown output format"},
        {"median " + p("c.ppm") + " " + p("OUT.pgm"), "PGM holds grey"},
        {"convert " + A + " " + p("OUT.png") + " --to 32f", "PNG holds no 32f"},
        {"median " + A + " " + p("nodir/OUT.pgm"), "cannot write"},
        // a size the library refuses: the message carries the status's name
        {"resize " + A + " OUT --scale 2 --method super", "rokStatusBadResizeFactor"},
        {"filter " + A + " OUT --box --laplace 3", "one of"},
        {"median " + A + " OUT --threads 0", "--threads takes"},
        {"compare " + A + " " + A + " OUT --op ne", "--op takes"},
        {"warp " + A + " OUT --matrix 1,2,3", "six numbers"},
        {"warp " + A + " OUT --matrix 0,0,0,0,0,0", "rokStatus"},  // a singular map, refused by the library
        {"and " + p("f.pfm") + " " + p("f.pfm") + " OUT", "does not take 32f"},
        {"lut " + A + " OUT", "one of"},
        {"lut " + A + " OUT --points 5:1", "at least two"},
        {"lut " + A + " OUT --points 5:1,3:2", "must increase"},
        {"lut " + A + " OUT --gamma 0", "--gamma takes"},
        {"filter " + A + " OUT --kernel '1 2;3'", "same number"},
        {"filter " + A + " OUT --kernel '1 x 1'", "not a row of numbers"},
        {"filter " + A + " OUT --kernel '1 0 1' --divisor 0", "must not be 0"},
        {"filter " + A + " OUT --kernel 1 --kernel-file " + A, "one of"},
        {"filter " + A + " OUT --kernel-file " + p("none.txt"), "cannot open"},
        {"math " + A + " OUT --op abs", "does not take 8u images with 1 channel(s) (it takes 16s 32f"},
        {"math " + A + " OUT --op cbrt", "--op"},
        {"dct " + A + " OUT --inverse", "takes 32f"},
        {"remap " + A + " OUT --xmap " + A + " --ymap " + A, "32f grey"},
        {"remap " + A + " OUT", "needs --xmap"},
        {"dilate " + A + " OUT --mask 3x3 --shape star", "--shape takes"},
        {"moments " + p("none.png"), "No such file"},
        {"warp " + A + " OUT --matrix 1,0,0,0,1,0,0,0", "nine"},
        {"add " + A + " OUT --value 300", "--value takes whole numbers from 0 to 255"},
        {"add " + p("c.ppm") + " OUT --value 1,2", "one per channel"},
        {"div " + A + " OUT --value 0", "rokStatusDivByZeroErr"},
        {"mul " + A + " " + A + " OUT --full-range --scale 1", "takes no --scale"},
        {"threshold " + A + " OUT --otsu --level 3", "not both"},
        {"threshold " + p("c.ppm") + " OUT --otsu", "8-bit grey"},
        {"shift " + A + " OUT", "one of"},
        {"channels " + A + " OUT --take 1", "1 channel(s)"},
        {"channels " + p("c.ppm") + " OUT --order 3,1,0", "0 to 2"},
        {"premultiply " + A + " OUT", "RGBA"},
        {"border " + A + " OUT --wrap 2", "does not take 8u"},
        {"median " + A + " OUT --cross 4", "3 or 5"},
        {"median " + A + " OUT --color 3", "RGB or RGBA"},
        {"filter " + A + " OUT --prewitt x", "h (horizontal"},
        {"compare " + A + " " + A + " OUT --eps 1", "does not take 8u"},
        {"diff " + A, "two images"},
        {"wavelet " + A + " OUT --inverse", "takes a 32f mosaic"},
        {"stats " + A + " --levels 5,3", "increasing numbers"},
        {"filter " + A + " OUT --scharr x", "--scharr takes h"},
        {"min " + A + " " + A + " OUT --mask 3x3", "takes no --mask"},
        {"rotate " + A + " OUT --angle 10 --about 1", "--about takes X,Y"},
        {"rotate " + A + " OUT --angle 10 --about 1,1 --expand", "no --expand"},
        {"rotate " + A + " OUT --angle 10 --background 256", "whole numbers from 0 to 255"},
        {"shear " + A + " OUT --x 1000", "--x takes"},
        {"median " + A + " OUT --weighted 3 --cross 3", "one of"},
        {"dct " + p("c.ppm") + " OUT --blocks 4", "8-bit grey"},
        {"palette " + p("c.ppm") + " OUT", "8-bit grey"},
        {"palette " + A + " OUT --map sepia", "--map takes"},
        {"palette " + A + " OUT --bits 9", "--bits takes"},
        {"stats " + p("nothing"), "no images in"},
        {"div " + A + " " + A + " OUT --round up", "--round takes"},
        {"threshold " + A + " OUT --below 50", "LEVEL:VALUE"},
        {"threshold " + A + " OUT --below 5:1 --level 3", "take no"},
        {"stats " + A + " --range 1", "--range takes LO,HI"},
        {"premultiply " + A + " OUT --by 300", "whole numbers from 0 to 255"},
        {"filter " + A + " OUT --row '1 2;3 4'", "one row"},
        {"filter " + A + " OUT --row 1 --kernel 1", "one of"},
        {"median " + A + " OUT --msk 5x5", "unknown option --msk"},
        {"filter " + A + " OUT --gauss 3 --kernel-files k.txt", "unknown option --kernel-files"},
        {"warp " + A + " OUT --quad 1,2,3", "eight numbers"},
        {"warp " + A + " OUT --quad 0,0,9,0,9,9,0,9 --model conic", "--model takes"},
        {"convert " + A + " OUT --to 16u --range 0,1", "to and from 32f"},
        {"diff " + A + " " + p("wide.pgm"), "differ in size"},
    };
    for (const auto& c : cases) {
        std::string args = c.args;
        auto at = args.find(" OUT");
        if (at != std::string::npos) args.replace(at, 4, " " + p("OUT.pgm"));
        SCOPED_TRACE(args);
        Result r = rok(args);
        EXPECT_EQ(r.code, 2);
        EXPECT_NE(r.err.find(c.message), std::string::npos) << r.err;
        EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
        EXPECT_EQ(r.err.rfind("rok", 0), 0u) << r.err;
        EXPECT_FALSE(exists(p("OUT.pgm")));
        EXPECT_FALSE(exists(p("OUT.png")));
        EXPECT_FALSE(exists(p("out.bmp")));
    }
    // nothing half-written was left beside the targets either
    EXPECT_EQ(std::system(("ls " + dir + " | grep -q rok-").c_str()) == 0, false);
}

TEST_F(Cli, BatchSkipsFailedFilesAndWritesTheRest) {
    mkdir(p("in").c_str(), 0777);
    Img a = make(21, 9, 1, 1, 7);
    write_pnm(a, p("in/one.pgm"));
    write_pnm(make(21, 9, 3, 1, 8), p("in/two.ppm"));
    std::ofstream(p("in/three.pgm")) << "P5\n21 9\n255\nshort";
    Result r = rok("erode " + p("in") + " --out " + p("out") + " --json");
    EXPECT_EQ(r.code, 1);
    EXPECT_TRUE(exists(p("out/one.pgm")));
    EXPECT_TRUE(exists(p("out/two.ppm")));
    EXPECT_FALSE(exists(p("out/three.pgm")));
    EXPECT_NE(r.err.find("three.pgm: truncated file (skipped)"), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("3 file(s), 2 written, 1 failed"), std::string::npos) << r.err;
    EXPECT_EQ(r.err.find('\r'), std::string::npos) << "no progress bar when stderr is not a terminal";
    EXPECT_EQ(std::count(r.out.begin(), r.out.end(), '\n'), 2) << r.out;
    Img q = padded(a, 1), want = like(a, a.w, a.h);
    rokiErode3x3_8u_C1R(q.at(1, 1), q.step(), want.d.data(), want.step(), {a.w, a.h});
    EXPECT_TRUE(read_pnm(p("out/one.pgm")).d == want.d);
    // every file good: exit 0
    std::remove(p("in/three.pgm").c_str());
    EXPECT_EQ(rok(p("in/one.pgm") + " " + p("in/two.ppm") + " --out " + p("out2")).code, 2) << "the command comes first";
    EXPECT_EQ(rok("erode " + p("in/one.pgm") + " " + p("in/two.ppm") + " --out " + p("out2") + " --ext png").code, 0);
    EXPECT_TRUE(exists(p("out2/one.png")));
}

TEST_F(Cli, HelpForEveryCommandAndTheDemo) {
    Result top = rok("--help");
    ASSERT_EQ(top.code, 0);
    // every command that rok --help lists has its own help with an example,
    // and a line in the README's tour
    std::string readme = slurp(ROK_README);
    std::istringstream lines(top.out.substr(top.out.find("commands:\n") + 10));
    int count = 0;
    for (std::string line; std::getline(lines, line) && !line.empty(); ++count) {
        std::string n = line.substr(2, line.find(' ', 2) - 2);
        SCOPED_TRACE(n);
        Result h = rok(n + " --help");
        EXPECT_EQ(h.code, 0);
        EXPECT_NE(h.out.find("example:\n  rok " + n), std::string::npos) << h.out;
        EXPECT_NE(readme.find("\nrok " + n + " "), std::string::npos);
    }
    EXPECT_GE(count, 34);
    EXPECT_EQ(rok("").code, 2);
    Result d = rok("demo " + p("demo") + " --threads 2");
    ASSERT_EQ(d.code, 0) << d.err;
    EXPECT_TRUE(exists(p("demo/contact_sheet.png")));
    EXPECT_TRUE(exists(p("demo/fft.png")));
    EXPECT_NE(d.out.find(" ms "), std::string::npos);
}

}  // namespace
