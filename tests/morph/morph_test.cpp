// Dilation, erosion and the minimum and maximum filters against a brute-force
// reference: the extremum over every selected mask entry of every output
// pixel, channel by channel. The source image holds exactly the pixels the
// neighbourhood may read, against a protected page on one side; the
// destination starts as a canary, so alpha samples and padding that change
// show; the in-place forms must give the out-of-place result and leave every
// pixel outside the ROI as it was.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <random>
#include <vector>

#include "guarded.h"
#include "random.h"
#include "roki.h"
#include "threads.h"

namespace {

using rokt::Guard;
using rokt::GuardedImage;

enum class Op { Min, Max };

template <class T>
using RFn = std::function<RokStatus(const T*, int, T*, int, RokiSize, const Rok8u*, RokiSize, RokiPoint)>;
template <class T>
using IRFn = std::function<RokStatus(T*, int, RokiSize, const Rok8u*, RokiSize, RokiPoint)>;

template <class T>
struct Form {
    const char* name;
    int channels, processed;
    Op op;
    RFn<T> r;
    IRFn<T> ir;  // empty: the form has none; R with equal images still runs in place
};

#define SQUARE_R(f) [](auto s, int ss, auto d, int ds, RokiSize r, const Rok8u*, RokiSize, RokiPoint) { return f(s, ss, d, ds, r); }
#define SQUARE_IR(f) [](auto p, int st, RokiSize r, const Rok8u*, RokiSize, RokiPoint) { return f(p, st, r); }
#define MASK_R(f) [](auto s, int ss, auto d, int ds, RokiSize r, const Rok8u* m, RokiSize ms, RokiPoint a) { return f(s, ss, d, ds, r, m, ms, a); }
#define MASK_IR(f) [](auto p, int st, RokiSize r, const Rok8u* m, RokiSize ms, RokiPoint a) { return f(p, st, r, m, ms, a); }
#define RECT_R(f) [](auto s, int ss, auto d, int ds, RokiSize r, const Rok8u*, RokiSize ms, RokiPoint a) { return f(s, ss, d, ds, r, ms, a); }

// A neighbourhood: mask bytes (row after row), its size and anchor.
struct Shape {
    std::vector<Rok8u> mask;
    RokiSize size;
    RokiPoint anchor;
};

Shape rect(int w, int h, int ax, int ay) { return {std::vector<Rok8u>(std::size_t(w) * h, 1), {w, h}, {ax, ay}}; }

Shape from_rows(std::vector<const char*> rows, int ax, int ay) {
    Shape s{{}, {int(std::strlen(rows[0])), int(rows.size())}, {ax, ay}};
    for (const char* r : rows)
        for (const char* c = r; *c; ++c) s.mask.push_back(*c == '.' ? 0 : Rok8u(*c == 'x' ? 1 : 200));
    return s;
}

template <class T>
void fill(GuardedImage<T>& img, std::uint32_t seed) {
    if constexpr (sizeof(T) == 1)
        rokt::fill_random(img, seed);
    else if constexpr (std::is_integral_v<T>)
        // A narrower range makes ties between neighbours common.
        rokt::fill_random(img, seed, std::is_signed_v<T> ? -40 : 65500, std::is_signed_v<T> ? 40 : 65535);
    else
        rokt::fill_random(img, seed);
}

template <class T>
T reference(const GuardedImage<T>& src, const Shape& s, Op op, int x, int y, int ch) {
    bool first = true;
    T v{};
    for (int j = 0; j < s.size.height; ++j)
        for (int i = 0; i < s.size.width; ++i) {
            if (s.mask[std::size_t(j) * s.size.width + i] == 0) continue;
            const T u = src.at(x + i, y + j, ch);  // the image starts at the neighbourhood of pixel (0, 0)
            v = first ? u : op == Op::Max ? std::max(v, u) : std::min(v, u);
            first = false;
        }
    return v;
}

template <class T>
bool same_bytes(const GuardedImage<T>& a, const GuardedImage<T>& b) {
    return a.bytes() == b.bytes();
}

// Runs the R form out of place, then in place (the IR form when there is
// one, and R with equal images), against the reference.
template <class T>
void check(const Form<T>& f, int w, int h, const Shape& s, std::uint32_t seed, Guard guard = Guard::After) {
    SCOPED_TRACE(testing::Message() << f.name << " roi " << w << "x" << h << " mask " << s.size.width << "x"
                                    << s.size.height << " anchor " << s.anchor.x << "," << s.anchor.y);
    const int C = f.channels;
    GuardedImage<T> src(w + s.size.width - 1, h + s.size.height - 1, C, 1, guard);
    fill(src, seed);
    const std::ptrdiff_t roiOffset = std::ptrdiff_t(s.anchor.y) * src.step() + std::ptrdiff_t(s.anchor.x) * C * sizeof(T);
    auto roi_of = [&](GuardedImage<T>& img) { return reinterpret_cast<T*>(reinterpret_cast<char*>(img.data()) + roiOffset); };

    GuardedImage<T> want(w, h, C, 3);
    want.fill_bytes(0xA5);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            for (int ch = 0; ch < f.processed; ++ch) want.at(x, y, ch) = reference(src, s, f.op, x, y, ch);

    GuardedImage<T> dst(w, h, C, 3, guard);
    dst.fill_bytes(0xA5);
    ASSERT_EQ(f.r(roi_of(src), src.step(), dst.data(), dst.step(), {w, h}, s.mask.data(), s.size, s.anchor), rokStatusOk);
    ASSERT_TRUE(same_bytes(dst, want)) << "out of place";

    // In place: inside the ROI the result (alpha as it was), outside it the
    // source untouched.
    GuardedImage<T> inPlaceWant(src.width(), src.height(), C, 1, guard);
    std::memcpy(inPlaceWant.data(), src.data(), src.bytes().size());
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            for (int ch = 0; ch < f.processed; ++ch)
                inPlaceWant.at(x + s.anchor.x, y + s.anchor.y, ch) = want.at(x, y, ch);
    for (int form = 0; form < 2; ++form) {
        if (form == 0 && !f.ir) continue;
        GuardedImage<T> img(src.width(), src.height(), C, 1, guard);
        std::memcpy(img.data(), src.data(), src.bytes().size());
        T* p = roi_of(img);
        const RokStatus st = form == 0 ? f.ir(p, img.step(), {w, h}, s.mask.data(), s.size, s.anchor)
                                       : f.r(p, img.step(), p, img.step(), {w, h}, s.mask.data(), s.size, s.anchor);
        ASSERT_EQ(st, rokStatusOk) << (form == 0 ? "IR" : "R in place");
        ASSERT_TRUE(same_bytes(img, inPlaceWant)) << (form == 0 ? "IR" : "R in place");
    }
}

// ---- neighbourhoods ----------------------------------------------------------

// Masks whose plans take every path: rectangles (direct, nested, van
// Herk/Gil-Werman rows, doubled columns), holes, single entries of any
// value, crosses, discs, random masks above 32 entries, zero rows above and
// below, anchors at every corner.
std::vector<Shape> masks() {
    std::vector<Shape> m;
    m.push_back(rect(1, 1, 0, 0));
    m.push_back(from_rows({"x.x"}, 1, 0));
    m.push_back(from_rows({"...", ".o.", "..."}, 0, 0));  // one entry: a shift
    m.push_back(from_rows({"....", "....", "...o"}, 3, 2));
    m.push_back(from_rows({"..x..", "..x..", "xxxxx", "..x..", "..x.."}, 2, 2));
    m.push_back(from_rows({"..x....", ".xxxxx.", "xxxxxxx", "xxxxxxx", "xxxxxxx", ".xxxxx.", "..x...."}, 3, 3));
    m.push_back(from_rows({"xxx", "x.x", "xxx"}, 2, 0));
    m.push_back(from_rows({".....", ".xxx.", ".xxx.", ".xxx.", "....."}, 4, 4));  // a 3x3 block inside zeros
    m.push_back(from_rows({"....", "xx..", "xx..", "...."}, 0, 3));
    m.push_back(from_rows({"x...", ".x..", "..x.", "...x", "x..x"}, 3, 0));
    m.push_back(from_rows({"xxxxxxxxxxxxx", "x...........x", "xxxxxxxxxxxxx"}, 6, 1));
    // Tall columns: nested runs and running extrema in a general mask.
    m.push_back(from_rows({"x.x", "x.x", "xxx", "xxx", "xxx", "xxx", "xxx", "xxx", "xxx", "xxx", "x.x", ".x."}, 1, 11));
    // A tall run formed by running extrema, and a taller one extending it.
    m.push_back(from_rows({"xx.", "xx.", "xx.", "xx.", "xx.", "xxo", "xx.", "xx.", "xx.", "xx.", "xx.", "xx.", ".x."},
                          2, 12));
    // More column runs than the plan keeps on the stack.
    m.push_back(from_rows({"x.x.x.x.x", ".x.x.x.x.", "x.x.x.x.x", ".x.x.x.x.", "x.x.x.x.x", ".x.x.x.x.", "x.x.x.x.x",
                           ".x.x.x.x.", "x.x.x.x.x"},
                          8, 0));
    std::mt19937 rng(5);
    for (int k = 0; k < 4; ++k) {
        const int w = 2 + int(rng() % 8), h = 2 + int(rng() % 8);
        Shape s{std::vector<Rok8u>(std::size_t(w) * h), {w, h}, {int(rng() % unsigned(w)), int(rng() % unsigned(h))}};
        for (auto& b : s.mask) b = rng() % 3 ? Rok8u(rng() % 255 + 1) : 0;
        s.mask[rng() % s.mask.size()] = 7;
        m.push_back(s);
    }
    return m;
}

std::vector<Shape> rectangles() {
    std::vector<Shape> m;
    for (int h = 1; h <= 4; ++h)
        for (int w = 1; w <= 5; ++w) {
            m.push_back(rect(w, h, 0, 0));
            m.push_back(rect(w, h, w - 1, h - 1));
        }
    m.push_back(rect(3, 3, 0, 2));
    m.push_back(rect(3, 3, 2, 0));
    m.push_back(rect(15, 15, 7, 7));
    m.push_back(rect(9, 12, 8, 0));
    m.push_back(rect(31, 1, 30, 0));
    m.push_back(rect(1, 25, 0, 3));
    m.push_back(rect(6, 10, 1, 9));
    return m;
}

// ---- sweeps ------------------------------------------------------------------

template <class T>
void sweep_masks(const Form<T>& f) {
    std::uint32_t seed = 1;
    for (const Shape& s : masks()) {
        check(f, 1 + int(seed * 13 % 37), 1 + int(seed % 7), s, seed, seed % 2 ? Guard::After : Guard::Before);
        ++seed;
    }
    // A tall mask over more rows than one block of running extrema.
    check(f, 9, 30, rect(2, 10, 1, 4), seed++);
}

template <class T>
void sweep_rectangles(const Form<T>& f) {
    std::uint32_t seed = 100;
    for (const Shape& s : rectangles()) {
        check(f, 1 + int(seed * 11 % 41), 1 + int(seed % 9), s, seed, seed % 2 ? Guard::After : Guard::Before);
        ++seed;
    }
    check(f, 23, 40, rect(5, 17, 2, 16), seed++);
}

// Widths 1..70 and a few past the widest vector blocks.
template <class T>
void sweep_widths(const Form<T>& f, const Shape& s) {
    for (int w = 1; w <= 70; ++w) check(f, w, 1 + w % 4, s, unsigned(w), w % 2 ? Guard::After : Guard::Before);
    for (int w : {129, 200}) check(f, w, 3, s, unsigned(w), w % 2 ? Guard::After : Guard::Before);
}

#define FORM(T, name, C, P, op, r, ir) Form<T>{name, C, P, op, r, ir}

TEST(Morph, Dilate3x3AndErode3x3EveryWidthAndLayout) {
    const Shape sq = rect(3, 3, 1, 1);
    sweep_widths(FORM(Rok8u, "Dilate3x3 8u C1", 1, 1, Op::Max, SQUARE_R(rokiDilate3x3_8u_C1R), SQUARE_IR(rokiDilate3x3_8u_C1IR)), sq);
    sweep_widths(FORM(Rok8u, "Erode3x3 8u C3", 3, 3, Op::Min, SQUARE_R(rokiErode3x3_8u_C3R), SQUARE_IR(rokiErode3x3_8u_C3IR)), sq);
    sweep_widths(FORM(Rok16u, "Dilate3x3 16u AC4", 4, 3, Op::Max, SQUARE_R(rokiDilate3x3_16u_AC4R), SQUARE_IR(rokiDilate3x3_16u_AC4IR)), sq);
    sweep_widths(FORM(Rok32f, "Erode3x3 32f C4", 4, 4, Op::Min, SQUARE_R(rokiErode3x3_32f_C4R), SQUARE_IR(rokiErode3x3_32f_C4IR)), sq);
    sweep_widths(FORM(Rok64f, "Dilate3x3 64f C1", 1, 1, Op::Max, SQUARE_R(rokiDilate3x3_64f_C1R), nullptr), sq);
    sweep_widths(FORM(Rok64f, "Erode3x3 64f C1", 1, 1, Op::Min, SQUARE_R(rokiErode3x3_64f_C1R), nullptr), sq);
}

TEST(Morph, MaskShapesAgainstBruteForce) {
    sweep_masks(FORM(Rok8u, "Dilate 8u C1", 1, 1, Op::Max, MASK_R(rokiDilate_8u_C1R), MASK_IR(rokiDilate_8u_C1IR)));
    sweep_masks(FORM(Rok8u, "Erode 8u AC4", 4, 3, Op::Min, MASK_R(rokiErode_8u_AC4R), MASK_IR(rokiErode_8u_AC4IR)));
    sweep_masks(FORM(Rok16u, "Erode 16u C3", 3, 3, Op::Min, MASK_R(rokiErode_16u_C3R), MASK_IR(rokiErode_16u_C3IR)));
    sweep_masks(FORM(Rok32f, "Dilate 32f C4", 4, 4, Op::Max, MASK_R(rokiDilate_32f_C4R), nullptr));
    sweep_masks(FORM(Rok32f, "Erode 32f C1", 1, 1, Op::Min, MASK_R(rokiErode_32f_C1R), MASK_IR(rokiErode_32f_C1IR)));
}

TEST(Morph, MaskFormsEveryWidth) {
    sweep_widths(FORM(Rok8u, "Dilate 8u C1 cross", 1, 1, Op::Max, MASK_R(rokiDilate_8u_C1R), MASK_IR(rokiDilate_8u_C1IR)),
                 masks()[4]);
    sweep_widths(FORM(Rok16u, "Erode 16u C3 ring", 3, 3, Op::Min, MASK_R(rokiErode_16u_C3R), MASK_IR(rokiErode_16u_C3IR)),
                 masks()[6]);
}

TEST(FilterMinMax, RectanglesAgainstBruteForce) {
    sweep_rectangles(FORM(Rok8u, "FilterMin 8u C1", 1, 1, Op::Min, RECT_R(rokiFilterMin_8u_C1R), nullptr));
    sweep_rectangles(FORM(Rok16s, "FilterMax 16s C3", 3, 3, Op::Max, RECT_R(rokiFilterMax_16s_C3R), nullptr));
    sweep_rectangles(FORM(Rok16u, "FilterMin 16u AC4", 4, 3, Op::Min, RECT_R(rokiFilterMin_16u_AC4R), nullptr));
    sweep_rectangles(FORM(Rok32f, "FilterMax 32f C4", 4, 4, Op::Max, RECT_R(rokiFilterMax_32f_C4R), nullptr));
    sweep_widths(FORM(Rok8u, "FilterMax 8u C3", 3, 3, Op::Max, RECT_R(rokiFilterMax_8u_C3R), nullptr), rect(15, 11, 3, 9));
    sweep_widths(FORM(Rok32f, "FilterMin 32f AC4", 4, 3, Op::Min, RECT_R(rokiFilterMin_32f_AC4R), nullptr), rect(3, 3, 0, 0));
}

// One channel under masks tall enough for running extrema in height: widths
// round every doubling level with every rest, anchors at the corners, ROIs
// over several blocks of rows and widths over every vector tail.
TEST(FilterMinMax, TallOneChannelRectangles) {
    const int sizes[][2] = {{2, 10}, {3, 11}, {4, 12}, {5, 10}, {7, 13}, {8, 10}, {9, 15}, {11, 11}, {12, 14},
                            {15, 15}, {16, 10}, {17, 12}, {24, 11}, {32, 10}, {33, 12}, {40, 10}, {1, 16}, {15, 40}};
    std::uint32_t seed = 300;
    for (const auto& wh : sizes) {
        const int mw = wh[0], mh = wh[1];
        for (int corner = 0; corner < 4; ++corner) {
            const Shape s = rect(mw, mh, corner % 2 ? mw - 1 : 0, corner / 2 ? mh - 1 : 0);
            const int w = 1 + int(seed * 7 % 70), h = 2 * mh + int(seed % 5);
            const Guard g = seed % 2 ? Guard::After : Guard::Before;
            switch (corner) {
                case 0: check(FORM(Rok8u, "FilterMax 8u C1", 1, 1, Op::Max, RECT_R(rokiFilterMax_8u_C1R), nullptr), w, h, s, seed, g); break;
                case 1: check(FORM(Rok16u, "FilterMin 16u C1", 1, 1, Op::Min, RECT_R(rokiFilterMin_16u_C1R), nullptr), w, h, s, seed, g); break;
                case 2: check(FORM(Rok16s, "FilterMax 16s C1", 1, 1, Op::Max, RECT_R(rokiFilterMax_16s_C1R), nullptr), w, h, s, seed, g); break;
                default: check(FORM(Rok32f, "FilterMin 32f C1", 1, 1, Op::Min, RECT_R(rokiFilterMin_32f_C1R), nullptr), w, h, s, seed, g); break;
            }
            ++seed;
        }
    }
    sweep_widths(FORM(Rok32f, "FilterMax 32f C1", 1, 1, Op::Max, RECT_R(rokiFilterMax_32f_C1R), nullptr), rect(15, 11, 14, 3));
    sweep_widths(FORM(Rok8u, "Dilate 8u C1", 1, 1, Op::Max, MASK_R(rokiDilate_8u_C1R), MASK_IR(rokiDilate_8u_C1IR)),
                 rect(13, 12, 6, 11));
}

// Byte rectangles 8 or more wide under running extrema in height: blocks
// of 4 rows and up, odd and even (short ones take running extrema only for
// rows beyond the first-level cache), images of several blocks whose pairs
// of rows start at odd and even rows of a block, of odd height (a last row
// alone), anchors at the corners, rows short of the pair kernel's wide
// stream and long enough for it.
TEST(FilterMinMax, TallByteRectangles) {
    struct Case {
        int mw, mh, w, h;
    };
    const Case cases[] = {{8, 10, 37, 31},   {11, 11, 129, 34}, {11, 11, 70, 35},  {16, 12, 200, 37}, {9, 13, 100, 40},
                          {23, 10, 161, 33}, {31, 11, 130, 23}, {32, 14, 96, 29},  {15, 15, 257, 47}, {12, 17, 65, 52},
                          {8, 4, 3300, 9},   {13, 5, 3400, 12}, {10, 6, 3290, 13}, {15, 7, 3310, 16}, {11, 9, 3350, 21}};
    std::uint32_t seed = 400;
    for (const Case& c : cases)
        for (int corner = 0; corner < 4; ++corner) {
            if (c.w > 1000 && corner % 3 != 0) continue;
            const Shape s = rect(c.mw, c.mh, corner % 2 ? c.mw - 1 : 0, corner / 2 ? c.mh - 1 : 0);
            const Guard g = seed % 2 ? Guard::After : Guard::Before;
            if (corner % 2 == 0)
                check(FORM(Rok8u, "FilterMin 8u C1", 1, 1, Op::Min, RECT_R(rokiFilterMin_8u_C1R), nullptr), c.w, c.h, s,
                      seed, g);
            else
                check(FORM(Rok8u, "Dilate 8u C1", 1, 1, Op::Max, MASK_R(rokiDilate_8u_C1R), MASK_IR(rokiDilate_8u_C1IR)),
                      c.w, c.h, s, seed, g);
            ++seed;
        }
}

// Rows wider than the plan's rows have ever been in the sweeps, in place and
// out of place.
TEST(Morph, WideRows) {
    check(FORM(Rok8u, "FilterMax 8u C1", 1, 1, Op::Max, RECT_R(rokiFilterMax_8u_C1R), nullptr), 3300, 3,
          rect(7, 4, 2, 3), 21);
    check(FORM(Rok32f, "FilterMin 32f C4", 4, 4, Op::Min, RECT_R(rokiFilterMin_32f_C4R), nullptr), 301, 4,
          rect(5, 12, 4, 0), 22);
    check(FORM(Rok16u, "Dilate 16u AC4", 4, 3, Op::Max, MASK_R(rokiDilate_16u_AC4R), MASK_IR(rokiDilate_16u_AC4IR)), 450,
          3, masks()[5], 23, Guard::Before);
    check(FORM(Rok32f, "Erode 32f C1", 1, 1, Op::Min, MASK_R(rokiErode_32f_C1R), MASK_IR(rokiErode_32f_C1IR)), 1200, 2,
          masks()[4], 24);
}

// Images larger than the last-level cache of the usual machine (70 MB of
// floats between source and destination; bytes stream from a quarter of
// it), where the rectangle passes and the 3x3 block write the destination by
// streaming stores: the result equals the in-place one (formed through a
// ring of rows by ordinary stores) and, on a few rows, the brute-force
// extremum; at one and two threads.
template <class T>
void beyond_the_caches(int w, int h, int mask, Op op, RokStatus (*fn)(const T*, int, T*, int, RokiSize, RokiSize, RokiPoint),
                       std::mt19937& rng) {
    std::uniform_real_distribution<float> value(-100.0f, 100.0f);
    const int bw = w + mask - 1, bh = h + mask - 1, a = mask / 2, step = bw * int(sizeof(T));
    std::vector<T> big(std::size_t(bw) * bh);
    for (T& v : big) v = sizeof(T) == 1 ? T(rng() % 256) : T(value(rng));
    std::vector<T> inPlace(big);
    const RokiSize roi{w, h}, size{mask, mask};
    const RokiPoint anchor{a, a};
    T* at = inPlace.data() + std::size_t(a) * bw + a;
    ASSERT_EQ(fn(at, step, at, step, roi, size, anchor), rokStatusOk);
    for (int t : {1, 2}) {
        rokt::WithThreads with(t);
        std::vector<T> out(std::size_t(w) * h, T(1));
        ASSERT_EQ(fn(big.data() + std::size_t(a) * bw + a, step, out.data(), w * int(sizeof(T)), roi, size, anchor),
                  rokStatusOk);
        for (int y = 0; y < h; ++y)
            ASSERT_EQ(std::memcmp(&out[std::size_t(y) * w], at + std::size_t(y) * bw, std::size_t(w) * sizeof(T)), 0)
                << mask << "x" << mask << ", " << t << " threads, row " << y;
        for (int y : {0, 1, h / 2 + 1, h - 1})
            for (int x = 0; x < w; ++x) {
                T want = big[std::size_t(y) * bw + x];
                for (int j = 0; j < mask; ++j)
                    for (int i = 0; i < mask; ++i) {
                        const T v = big[std::size_t(y + j) * bw + x + i];
                        want = op == Op::Max ? std::max(want, v) : std::min(want, v);
                    }
                ASSERT_EQ(out[std::size_t(y) * w + x], want) << mask << "x" << mask << " at " << x << "," << y;
            }
    }
}

TEST(Morph, ImagesBeyondTheCaches) {
    std::mt19937 rng(31);
    // 3x3: the fused block; 15: two rows a pass; 31: the pass leaves a
    // doubling row, and the last combination streams.
    beyond_the_caches<Rok32f>(4096, 2100, 3, Op::Min, rokiFilterMin_32f_C1R, rng);
    beyond_the_caches<Rok32f>(4096, 2100, 15, Op::Max, rokiFilterMax_32f_C1R, rng);
    beyond_the_caches<Rok32f>(4096, 2100, 31, Op::Min, rokiFilterMin_32f_C1R, rng);
    // Bytes, two rows a pass, the runs kept in scratch rows and each result
    // streamed once (rows of an odd width: their lines start anywhere).
    beyond_the_caches<Rok8u>(4099, 2101, 11, Op::Max, rokiFilterMax_8u_C1R, rng);
}

// ---- every member --------------------------------------------------------------

enum class Kind { Square, Mask, Rect };

template <class T>
void small_cases(const Form<T>& f, Kind kind) {
    if (kind == Kind::Square) {
        check(f, 35, 3, rect(3, 3, 1, 1), 3);
        return;
    }
    check(f, 35, 3, kind == Kind::Mask ? masks()[5] : rect(7, 5, 3, 1), 4);
    check(f, 19, 2, rect(2, 3, 1, 2), 5, Guard::Before);
}

#define SQ_FORMS(fam, T, S, op)                                                                                        \
    small_cases(FORM(S, #fam " " #T " C1", 1, 1, op, SQUARE_R(roki##fam##_##T##_C1R), SQUARE_IR(roki##fam##_##T##_C1IR)), Kind::Square); \
    small_cases(FORM(S, #fam " " #T " C3", 3, 3, op, SQUARE_R(roki##fam##_##T##_C3R), SQUARE_IR(roki##fam##_##T##_C3IR)), Kind::Square); \
    small_cases(FORM(S, #fam " " #T " C4", 4, 4, op, SQUARE_R(roki##fam##_##T##_C4R), SQUARE_IR(roki##fam##_##T##_C4IR)), Kind::Square); \
    small_cases(FORM(S, #fam " " #T " AC4", 4, 3, op, SQUARE_R(roki##fam##_##T##_AC4R), SQUARE_IR(roki##fam##_##T##_AC4IR)), Kind::Square)
#define MASK_FORMS(fam, T, S, op)                                                                                    \
    small_cases(FORM(S, #fam " " #T " C1", 1, 1, op, MASK_R(roki##fam##_##T##_C1R), MASK_IR(roki##fam##_##T##_C1IR)), Kind::Mask); \
    small_cases(FORM(S, #fam " " #T " C3", 3, 3, op, MASK_R(roki##fam##_##T##_C3R), MASK_IR(roki##fam##_##T##_C3IR)), Kind::Mask); \
    small_cases(FORM(S, #fam " " #T " C4", 4, 4, op, MASK_R(roki##fam##_##T##_C4R), nullptr), Kind::Mask);                        \
    small_cases(FORM(S, #fam " " #T " AC4", 4, 3, op, MASK_R(roki##fam##_##T##_AC4R), MASK_IR(roki##fam##_##T##_AC4IR)), Kind::Mask)
#define RECT_FORMS(fam, T, S, op)                                                               \
    small_cases(FORM(S, #fam " " #T " C1", 1, 1, op, RECT_R(roki##fam##_##T##_C1R), nullptr), Kind::Rect); \
    small_cases(FORM(S, #fam " " #T " C3", 3, 3, op, RECT_R(roki##fam##_##T##_C3R), nullptr), Kind::Rect); \
    small_cases(FORM(S, #fam " " #T " C4", 4, 4, op, RECT_R(roki##fam##_##T##_C4R), nullptr), Kind::Rect); \
    small_cases(FORM(S, #fam " " #T " AC4", 4, 3, op, RECT_R(roki##fam##_##T##_AC4R), nullptr), Kind::Rect)

TEST(Morph, EveryMemberOnASmallCase) {
    SQ_FORMS(Dilate3x3, 8u, Rok8u, Op::Max);
    SQ_FORMS(Dilate3x3, 16u, Rok16u, Op::Max);
    SQ_FORMS(Dilate3x3, 32f, Rok32f, Op::Max);
    SQ_FORMS(Erode3x3, 8u, Rok8u, Op::Min);
    SQ_FORMS(Erode3x3, 16u, Rok16u, Op::Min);
    SQ_FORMS(Erode3x3, 32f, Rok32f, Op::Min);
    small_cases(FORM(Rok64f, "Dilate3x3 64f C1", 1, 1, Op::Max, SQUARE_R(rokiDilate3x3_64f_C1R), nullptr), Kind::Square);
    small_cases(FORM(Rok64f, "Erode3x3 64f C1", 1, 1, Op::Min, SQUARE_R(rokiErode3x3_64f_C1R), nullptr), Kind::Square);
    MASK_FORMS(Dilate, 8u, Rok8u, Op::Max);
    MASK_FORMS(Dilate, 16u, Rok16u, Op::Max);
    MASK_FORMS(Dilate, 32f, Rok32f, Op::Max);
    MASK_FORMS(Erode, 8u, Rok8u, Op::Min);
    MASK_FORMS(Erode, 16u, Rok16u, Op::Min);
    MASK_FORMS(Erode, 32f, Rok32f, Op::Min);
    RECT_FORMS(FilterMin, 8u, Rok8u, Op::Min);
    RECT_FORMS(FilterMin, 16s, Rok16s, Op::Min);
    RECT_FORMS(FilterMin, 16u, Rok16u, Op::Min);
    RECT_FORMS(FilterMin, 32f, Rok32f, Op::Min);
    RECT_FORMS(FilterMax, 8u, Rok8u, Op::Max);
    RECT_FORMS(FilterMax, 16s, Rok16s, Op::Max);
    RECT_FORMS(FilterMax, 16u, Rok16u, Op::Max);
    RECT_FORMS(FilterMax, 32f, Rok32f, Op::Max);
}

// ---- threads -------------------------------------------------------------------

TEST(Morph, SameResultsAtOneTwoAndThreeThreads) {
    // The 64f 3x3 forms share their rows among threads; odd heights leave
    // a last row of its own.
    for (int h : {64, 65, 131}) {
        GuardedImage<Rok64f> src(102, h + 2, 1, 1);
        rokt::fill_random(src, unsigned(h));
        std::vector<std::uint8_t> first;
        for (int t = 1; t <= 3; ++t) {
            rokt::WithThreads with(t);
            GuardedImage<Rok64f> dst(100, h, 1);
            ASSERT_EQ(rokiErode3x3_64f_C1R(&src.at(1, 1), src.step(), dst.data(), dst.step(), {100, h}), rokStatusOk);
            if (t == 1) {
                for (int y = 0; y < h; ++y)
                    for (int x = 0; x < 100; ++x) {
                        Rok64f v = src.at(x, y);
                        for (int j = 0; j < 3; ++j)
                            for (int i = 0; i < 3; ++i) v = std::min(v, src.at(x + i, y + j));
                        ASSERT_EQ(dst.at(x, y), v) << x << "," << y;
                    }
                first = dst.bytes();
            } else {
                EXPECT_EQ(dst.bytes(), first) << t << " threads, height " << h;
            }
        }
    }
    rokt::WithThreads two(2);
    check(FORM(Rok64f, "Dilate3x3 64f C1", 1, 1, Op::Max, SQUARE_R(rokiDilate3x3_64f_C1R), nullptr), 70, 67,
          rect(3, 3, 1, 1), 9);
    check(FORM(Rok8u, "Dilate 8u C3", 3, 3, Op::Max, MASK_R(rokiDilate_8u_C3R), MASK_IR(rokiDilate_8u_C3IR)), 70, 66,
          masks()[5], 10);
    check(FORM(Rok16s, "FilterMin 16s C1", 1, 1, Op::Min, RECT_R(rokiFilterMin_16s_C1R), nullptr), 80, 70,
          rect(15, 15, 7, 7), 11);
}

}  // namespace
