// Vector blocks of the per-pixel interpolation. Each block takes eight
// positions, finds their taps, and goes on only when every tap (and every
// byte its loads read beyond them) lies inside the box, where the rule of
// pixel_rules.h needs no edge treatment; it then computes the same
// operations in the same order as the rule. Taps are gathered (by scalar
// loads): the source positions of a warp or a remap follow no pattern a
// vector load could use.
#include "kernels/geometry/pixel_fast.h"

#include <immintrin.h>

#include <climits>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "kernels/geometry/pixel_rules.h"

namespace rok::kernels::pixel {

namespace {

// How far inside the box a block's integer positions must lie: ix in
// [x0 + left, x1 - right], iy in [y0 + top, y1 - bottom].
struct Margins {
    int left, right, top, bottom;
};

// The source and the inner range, as vectors, for the blocks of one row.
struct Ctx {
    const std::uint8_t* base;  // byte 0 of pixel (0, 0)
    __m256i step;              // bytes from a row to the next
    __m256i lox, hix, loy, hiy;
    std::ptrdiff_t rowBytes;   // the step again
    int boxX1, boxY1;          // the box's last column and row
};

inline bool inner(const Ctx& c, __m256i ix, __m256i iy) {
    const __m256i out = _mm256_or_si256(_mm256_or_si256(_mm256_cmpgt_epi32(c.lox, ix), _mm256_cmpgt_epi32(ix, c.hix)),
                                        _mm256_or_si256(_mm256_cmpgt_epi32(c.loy, iy), _mm256_cmpgt_epi32(iy, c.hiy)));
    return _mm256_testz_si256(out, out);
}

// floor(p) as integers and p - floor(p); a position that is not a number or
// beyond 32-bit integers gives INT_MIN, which no box contains.
inline __m256i floor_split(__m256 p, __m256* t) {
    const __m256 f = _mm256_floor_ps(p);
    *t = _mm256_sub_ps(p, f);
    return _mm256_cvttps_epi32(f);
}

// The nearest pixel: ceil(p - 0.5), the lower one on a tie.
inline __m256i nearest8(__m256 p) { return _mm256_cvttps_epi32(_mm256_ceil_ps(_mm256_sub_ps(p, _mm256_set1_ps(0.5f)))); }

// Whether the block is inner judged by floor(x) and floor(y), which also
// keeps every position inside the box; the nearest pixels then lie in
// [floor, floor + 1].
inline bool inner_nearest(const Ctx& c, __m256 x, __m256 y) {
    __m256 t;
    const __m256i ix = floor_split(x, &t), iy = floor_split(y, &t);
    return inner(c, ix, iy);
}

inline __m256i offsets(const Ctx& c, __m256i ix, __m256i iy, int pixelBytes) {
    return _mm256_add_epi32(_mm256_mullo_epi32(iy, c.step), _mm256_mullo_epi32(ix, _mm256_set1_epi32(pixelBytes)));
}

// The eight dwords at byte offsets off from the base. Eight scalar loads
// put together in a register: on the processors measured they take well
// under half the time of the gather instruction, and the values are the
// same.
inline __m256i gather(const Ctx& c, __m256i off) {
    alignas(32) std::int32_t o[8];
    _mm256_store_si256(reinterpret_cast<__m256i*>(o), off);
    auto at = [&](int k) {
        int v;
        std::memcpy(&v, c.base + o[k], 4);
        return v;
    };
    __m128i lo = _mm_cvtsi32_si128(at(0)), hi = _mm_cvtsi32_si128(at(4));
    lo = _mm_insert_epi32(lo, at(1), 1), hi = _mm_insert_epi32(hi, at(5), 1);
    lo = _mm_insert_epi32(lo, at(2), 2), hi = _mm_insert_epi32(hi, at(6), 2);
    lo = _mm_insert_epi32(lo, at(3), 3), hi = _mm_insert_epi32(hi, at(7), 3);
    return _mm256_inserti128_si256(_mm256_castsi128_si256(lo), hi, 1);
}

// Eight 32-bit results (0..255 or saturated) to eight bytes.
inline void store8(__m256i v, std::uint8_t* d) {
    const __m256i b = _mm256_packus_epi16(_mm256_packus_epi32(v, v), v);
    _mm_storel_epi64(reinterpret_cast<__m128i*>(d),
                     _mm_unpacklo_epi32(_mm256_castsi256_si128(b), _mm256_extracti128_si256(b, 1)));
}

// Lane 0 or lane 7 of v in every lane.
template <bool Up>
[[gnu::always_inline]] inline __m256i least(__m256i v) {
    if constexpr (Up) return _mm256_broadcastd_epi32(_mm256_castsi256_si128(v));
    return _mm256_permutevar8x32_epi32(v, _mm256_set1_epi32(7));
}

// Lanes 0 and 4 or lanes 3 and 7 of v in every lane of their halves.
template <bool Up>
[[gnu::always_inline]] inline __m256i least_in_halves(__m256i v) {
    return _mm256_shuffle_epi32(v, Up ? 0x00 : 0xFF);
}

// Four rows of 16 bytes from byte offsets at0 (pixels 0..3) and at1
// (pixels 4..7), each shuffled by pick.
[[gnu::always_inline]] inline void half_rows(const Ctx& c, std::ptrdiff_t at0, std::ptrdiff_t at1, __m256i pick, __m256i* s) {
    for (int r = 0; r < 4; ++r) {
        const std::uint8_t* row = c.base + r * c.rowBytes;
        s[r] = _mm256_shuffle_epi8(
            _mm256_loadu2_m128i(reinterpret_cast<const __m128i*>(row + at1), reinterpret_cast<const __m128i*>(row + at0)),
            pick);
    }
}

// Eight dwords of 0..255 stored as eight bytes.
inline void store8_bytes(__m256i v, std::uint8_t* d) {
    const __m256i lanes = _mm256_shuffle_epi8(v, _mm256_setr_epi8(0, 4, 8, 12, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,
                                                                  -1, 0, 4, 8, 12, -1, -1, -1, -1, -1, -1, -1, -1, -1,
                                                                  -1, -1, -1));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(d),
                     _mm256_castsi256_si128(_mm256_permutevar8x32_epi32(lanes, _mm256_setr_epi32(0, 4, 1, 1, 1, 1, 1, 1))));
}

// The dword of r[dy] in each lane, dy in 0..N-1.
using Dwords = std::int32_t __attribute__((vector_size(32)));
template <int N>
[[gnu::always_inline]] inline __m256i pick_row(__m256i dy, const __m256i* r) {
    // Selected by whole dwords: a byte blend on the comparisons' masks
    // would have the compiler test each byte's sign again.
    const Dwords d = Dwords(dy);
    Dwords v = Dwords(r[N - 1]);
    for (int k = N - 2; k >= 0; --k) v = d == k ? Dwords(r[k]) : v;
    return __m256i(v);
}

// 8-bit weights of the fixed-point bilinear rule: (16384 - f) | f << 16.
inline __m256i pair_weights(__m256 t) {
    const __m256i f = _mm256_cvtps_epi32(_mm256_mul_ps(t, _mm256_set1_ps(float(kOne))));
    // (16384 - f) + f * 65536 = 16384 + f * 65535.
    return _mm256_add_epi32(_mm256_mullo_epi32(f, _mm256_set1_epi32(0xFFFF)), _mm256_set1_epi32(kOne));
}

// h = (a (16384 - fx) + b fx + 128) >> 8 from 16-bit pairs (a, b).
inline __m256i fixed_across(__m256i pairs, __m256i w) {
    return _mm256_srai_epi32(_mm256_add_epi32(_mm256_madd_epi16(pairs, w), _mm256_set1_epi32(128)), 8);
}
// (h0 (16384 - fy) + h1 fy + 2^19) >> 20.
inline __m256i fixed_down(__m256i h0, __m256i h1, __m256i w) {
    const __m256i pairs = _mm256_or_si256(h0, _mm256_slli_epi32(h1, 16));
    return _mm256_srai_epi32(_mm256_add_epi32(_mm256_madd_epi16(pairs, w), _mm256_set1_epi32(1 << 19)), 20);
}

// ---- 8-bit bilinear ----

// Shuffle indices that put bytes k and k + 1 of a window row (k = ix - xl)
// into the two 16-bit halves of each dword.
[[gnu::always_inline]] inline __m256i pair_pick(__m256i ix, __m256i xl) {
    const __m256i k = _mm256_sub_epi32(ix, xl);
    return _mm256_add_epi32(_mm256_or_si256(k, _mm256_slli_epi32(k, 16)), _mm256_set1_epi32(int(0x80018000u)));
}

// The four 16-byte rows of a window that starts `at` bytes from the base,
// each in both lanes, picked apart by the byte shuffle `pick`.
[[gnu::always_inline]] inline void window_rows(const Ctx& c, std::ptrdiff_t at, __m256i pick, __m256i* s) {
    for (int r = 0; r < 4; ++r)
        s[r] = _mm256_shuffle_epi8(
            _mm256_broadcastsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(c.base + at + r * c.rowBytes))),
            pick);
}

// One channel: a dword at each tap holds the pair (a, b).
struct Linear8C1 {
    static constexpr bool kWindow = true;
    static constexpr int kWindowReach = 0;  // columns and rows the windows reach past those of the floors
    static Margins margins() { return {0, 3, 0, 1}; }
    template <bool Check>
    [[gnu::always_inline]] static bool block(const Ctx& c, __m256 x, __m256 y, std::uint8_t* d) {
        __m256 tx, ty;
        const __m256i ix = floor_split(x, &tx), iy = floor_split(y, &ty);
        if (Check && !inner(c, ix, iy)) return false;
        const __m256i off = offsets(c, ix, iy, 1);
        const __m256i spread = _mm256_setr_epi8(0, -1, 1, -1, 4, -1, 5, -1, 8, -1, 9, -1, 12, -1, 13, -1, 0, -1, 1, -1,
                                                4, -1, 5, -1, 8, -1, 9, -1, 12, -1, 13, -1);
        finish(tx, ty, _mm256_shuffle_epi8(gather(c, off), spread),
               _mm256_shuffle_epi8(gather(c, _mm256_add_epi32(off, c.step)), spread), d);
        return true;
    }

    // Where a block's window lies and what each pixel takes from it.
    struct Window {
        __m256 tx, ty;
        __m256i pick;  // bytes k and k + 1 of a row into a dword's two 16-bit halves
        __m256i dy;    // the pixel's row less the window's first
        std::ptrdiff_t at;  // bytes from the base to the window's first byte
    };

    template <bool XUp, bool YUp>
    [[gnu::always_inline]] static Window window(const Ctx& c, __m256 x, __m256 y) {
        Window w;
        const __m256i ix = floor_split(x, &w.tx), iy = floor_split(y, &w.ty);
        const __m256i xl = least<XUp>(ix), yl = least<YUp>(iy);
        w.at = std::ptrdiff_t(_mm256_cvtsi256_si32(yl)) * c.rowBytes + _mm256_cvtsi256_si32(xl);
        w.pick = pair_pick(ix, xl);
        w.dy = _mm256_sub_epi32(iy, yl);
        return w;
    }

    [[gnu::always_inline]] static __m256i window_block(const Ctx& c, const Window& w) {
        __m256i s[4];
        window_rows(c, w.at, w.pick, s);
        return fixed(w.tx, w.ty, pick_row<3>(w.dy, s), pick_row<3>(w.dy, s + 1));
    }

    [[gnu::always_inline]] static void finish(__m256 tx, __m256 ty, __m256i r0, __m256i r1, std::uint8_t* d) {
        store8_bytes(fixed(tx, ty, r0, r1), d);
    }

    // Windows per half block, for rows that climb or fall faster: pixels
    // 0..3 read 16 columns of four rows whose least column and row are
    // those of pixel 0 or 3, pixels 4..7 those of pixel 4 or 7.
    struct Halves {
        struct Window {
            __m256 tx, ty;
            __m256i pick, dy;
            std::ptrdiff_t at0, at1;  // bytes from the base to the two windows
        };
        template <bool XUp, bool YUp>
        [[gnu::always_inline]] static Window window(const Ctx& c, __m256 x, __m256 y) {
            Window w;
            const __m256i ix = floor_split(x, &w.tx), iy = floor_split(y, &w.ty);
            const __m256i xl = least_in_halves<XUp>(ix), yl = least_in_halves<YUp>(iy);
            // Inside the box these fit 32 bits (addressable); past the run
            // they are never read.
            const __m256i at = _mm256_add_epi32(_mm256_mullo_epi32(yl, c.step), xl);
            w.at0 = _mm256_cvtsi256_si32(at), w.at1 = _mm256_extract_epi32(at, 4);
            w.pick = pair_pick(ix, xl);
            w.dy = _mm256_sub_epi32(iy, yl);
            return w;
        }
        [[gnu::always_inline]] static __m256i window_block(const Ctx& c, const Window& w) {
            __m256i s[4];
            half_rows(c, w.at0, w.at1, w.pick, s);
            return fixed(w.tx, w.ty, pick_row<3>(w.dy, s), pick_row<3>(w.dy, s + 1));
        }
    };

    // fixed_down(fixed_across(r0, wx), fixed_across(r1, wx), wy) in fewer
    // operations: no sum is negative, and the results lie in 0..255.
    [[gnu::always_inline]] static __m256i fixed(__m256 tx, __m256 ty, __m256i r0, __m256i r1) {
        const __m256i wx = pair_weights(tx), round = _mm256_set1_epi32(128);
        const __m256i a0 = _mm256_add_epi32(_mm256_madd_epi16(r0, wx), round);
        const __m256i a1 = _mm256_add_epi32(_mm256_madd_epi16(r1, wx), round);
        // Both sums lie below 2^22: h0 in the low halves, h1 in the high.
        const __m256i pairs = _mm256_blend_epi16(_mm256_srli_epi32(a0, 8), _mm256_slli_epi32(a1, 8), 0xAA);
        return _mm256_srli_epi32(
            _mm256_add_epi32(_mm256_madd_epi16(pairs, pair_weights(ty)), _mm256_set1_epi32(1 << 19)), 20);
    }
};

// Three or four channels: the pixels' channels paired with their right
// neighbours' and weighed two pixels per register.
template <int NC>
struct Linear8 {
    static Margins margins() { return {0, NC == 3 ? 2 : 1, 0, 1}; }
    template <bool Check>
    [[gnu::always_inline]] static bool block(const Ctx& c, __m256 x, __m256 y, std::uint8_t* d) {
        __m256 tx, ty;
        const __m256i ix = floor_split(x, &tx), iy = floor_split(y, &ty);
        if (Check && !inner(c, ix, iy)) return false;
        // Each tap pixel and its right neighbour in one 8-byte load, pixels
        // 0, 1 | 4, 5 and 2, 3 | 6, 7 in two registers per row; a byte
        // shuffle spreads a pixel's channels with their neighbours' into
        // 16-bit pairs, pixel k in lane 0 and pixel k + 4 in lane 1.
        alignas(32) std::int32_t o[8];
        _mm256_store_si256(reinterpret_cast<__m256i*>(o), offsets(c, ix, iy, NC));
        auto load2 = [&](int j, int k, std::ptrdiff_t at) {
            const __m128i lo = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(c.base + o[j] + at));
            return _mm_castpd_si128(
                _mm_loadh_pd(_mm_castsi128_pd(lo), reinterpret_cast<const double*>(c.base + o[k] + at)));
        };
        auto spread = [](int half) {
            const int b = 8 * half;
            const int z = NC == 3 ? -1 : b + 3, zb = NC == 3 ? -1 : b + 7;
            return _mm256_setr_epi8(b, -1, b + NC, -1, b + 1, -1, b + 1 + NC, -1, b + 2, -1, b + 2 + NC, -1, z, -1,
                                    zb, -1, b, -1, b + NC, -1, b + 1, -1, b + 1 + NC, -1, b + 2, -1, b + 2 + NC, -1,
                                    z, -1, zb, -1);
        };
        const __m256i first = spread(0), second = spread(1);
        __m256i top[4], bot[4];
        for (int r = 0; r < 2; ++r) {
            const std::ptrdiff_t at = r * c.rowBytes;
            const __m256i p = _mm256_setr_m128i(load2(0, 1, at), load2(4, 5, at));
            const __m256i q = _mm256_setr_m128i(load2(2, 3, at), load2(6, 7, at));
            __m256i* out = r == 0 ? top : bot;
            out[0] = _mm256_shuffle_epi8(p, first), out[1] = _mm256_shuffle_epi8(p, second);
            out[2] = _mm256_shuffle_epi8(q, first), out[3] = _mm256_shuffle_epi8(q, second);
        }
        const __m256i wx = pair_weights(tx), wy = pair_weights(ty);
        __m256i v[4];
        for (int k = 0; k < 4; ++k) {
            const __m256i sel = _mm256_setr_epi32(k, k, k, k, k + 4, k + 4, k + 4, k + 4);
            const __m256i w = _mm256_permutevar8x32_epi32(wx, sel);
            v[k] = fixed_down(fixed_across(top[k], w), fixed_across(bot[k], w), _mm256_permutevar8x32_epi32(wy, sel));
        }
        // Pixels 0..3 in lane 0 and 4..7 in lane 1, four bytes each.
        const __m256i px = _mm256_packus_epi16(_mm256_packus_epi32(v[0], v[1]), _mm256_packus_epi32(v[2], v[3]));
        store_pixels(px, d);
        return true;
    }
    static void store_pixels(__m256i px, std::uint8_t* d) {
        if constexpr (NC == 4) {
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(d), px);
        } else {
            const __m256i drop = _mm256_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1, 0, 1, 2, 4, 5, 6,
                                                  8, 9, 10, 12, 13, 14, -1, -1, -1, -1);
            const __m256i packed =
                _mm256_permutevar8x32_epi32(_mm256_shuffle_epi8(px, drop), _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 3, 7));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(d), _mm256_castsi256_si128(packed));
            _mm_storel_epi64(reinterpret_cast<__m128i*>(d + 16), _mm256_extracti128_si256(packed, 1));
        }
    }
};

// ---- 8-bit nearest neighbour ----

// Margins one wider than the bytes a nearest pixel's load reads, for the
// floor the inner test takes.
template <int NC>
struct Nearest8 {
    static Margins margins() { return {0, NC == 1 ? 4 : NC == 3 ? 2 : 1, 0, 1}; }
    template <bool Check>
    [[gnu::always_inline]] static bool block(const Ctx& c, __m256 x, __m256 y, std::uint8_t* d) {
        if (Check && !inner_nearest(c, x, y)) return false;
        const __m256i g = gather(c, offsets(c, nearest8(x), nearest8(y), NC));
        if constexpr (NC == 1) {
            store8(_mm256_and_si256(g, _mm256_set1_epi32(0xFF)), d);
        } else {
            Linear8<NC>::store_pixels(g, d);
        }
        return true;
    }
};

// One channel, with windows of 16 columns and four rows whose least column
// and row are the nearest pixel of pixel 0 or 7: a nearest pixel lies at
// most one column and row past its floor, so the window reaches one column
// and row further than the floors' windows.
struct Nearest8C1 : Nearest8<1> {
    static constexpr bool kWindow = true;
    static constexpr int kWindowReach = 1;
    struct Window {
        __m256i pick;  // the pixel's byte of a row into the low byte of a dword
        __m256i dy;    // the pixel's row less the window's first
        std::ptrdiff_t at;  // bytes from the base to the window's first byte
    };
    template <bool XUp, bool YUp>
    [[gnu::always_inline]] static Window window(const Ctx& c, __m256 x, __m256 y) {
        Window w;
        const __m256i nx = nearest8(x), ny = nearest8(y);
        const __m256i xl = least<XUp>(nx), yl = least<YUp>(ny);
        w.at = std::ptrdiff_t(_mm256_cvtsi256_si32(yl)) * c.rowBytes + _mm256_cvtsi256_si32(xl);
        w.pick = _mm256_add_epi32(_mm256_sub_epi32(nx, xl), _mm256_set1_epi32(int(0x80808000u)));
        w.dy = _mm256_sub_epi32(ny, yl);
        return w;
    }
    [[gnu::always_inline]] static __m256i window_block(const Ctx& c, const Window& w) {
        __m256i s[4];
        window_rows(c, w.at, w.pick, s);
        return pick_row<4>(w.dy, s);
    }

    // Windows per half block, as Linear8C1::Halves.
    struct Halves {
        struct Window {
            __m256i pick, dy;
            std::ptrdiff_t at0, at1;
        };
        template <bool XUp, bool YUp>
        [[gnu::always_inline]] static Window window(const Ctx& c, __m256 x, __m256 y) {
            Window w;
            const __m256i nx = nearest8(x), ny = nearest8(y);
            const __m256i xl = least_in_halves<XUp>(nx), yl = least_in_halves<YUp>(ny);
            const __m256i at = _mm256_add_epi32(_mm256_mullo_epi32(yl, c.step), xl);
            w.at0 = _mm256_cvtsi256_si32(at), w.at1 = _mm256_extract_epi32(at, 4);
            w.pick = _mm256_add_epi32(_mm256_sub_epi32(nx, xl), _mm256_set1_epi32(int(0x80808000u)));
            w.dy = _mm256_sub_epi32(ny, yl);
            return w;
        }
        [[gnu::always_inline]] static __m256i window_block(const Ctx& c, const Window& w) {
            __m256i s[4];
            half_rows(c, w.at0, w.at1, w.pick, s);
            return pick_row<4>(w.dy, s);
        }
    };
};

// ---- 8-bit cubic and Catmull-Rom, one channel ----

template <class V>
inline void cubic_weights8(int method, V t, V* w);

// The weights of cubic_weights, the same operations on eight lanes.
template <>
inline void cubic_weights8<__m256>(int method, __m256 t, __m256* w) {
    auto mul = _mm256_mul_ps;
    auto add = _mm256_add_ps;
    auto sub = _mm256_sub_ps;
    auto k = _mm256_set1_ps;
    if (method == rok::geometry::kCubic) {
        const __m256 a = add(t, k(1)), b = sub(t, k(1)), c = sub(t, k(2));
        const __m256 sixth = k(float(1.0 / 6.0)), half = k(0.5f), sign = k(-0.0f);
        w[0] = mul(_mm256_xor_ps(mul(mul(t, b), c), sign), sixth);
        w[1] = mul(mul(mul(a, b), c), half);
        w[2] = mul(_mm256_xor_ps(mul(mul(a, t), c), sign), half);
        w[3] = mul(mul(mul(a, t), b), sixth);
    } else {
        const __m256 s = sub(k(1), t);
        w[0] = mul(mul(mul(k(-0.5f), t), s), s);
        w[1] = add(mul(mul(sub(mul(k(1.5f), t), k(2.5f)), t), t), k(1));
        w[2] = mul(add(mul(add(mul(k(-1.5f), t), k(2)), t), k(0.5f)), t);
        w[3] = mul(mul(mul(k(-0.5f), t), t), s);
    }
}

// A row of four taps: ((w0 s0 + w1 s1) + w2 s2) + w3 s3.
inline __m256 across4(const __m256* w, __m256 s0, __m256 s1, __m256 s2, __m256 s3) {
    __m256 h = _mm256_mul_ps(w[0], s0);
    h = _mm256_add_ps(h, _mm256_mul_ps(w[1], s1));
    h = _mm256_add_ps(h, _mm256_mul_ps(w[2], s2));
    return _mm256_add_ps(h, _mm256_mul_ps(w[3], s3));
}

template <int Method>
struct Cubic8C1 {
    static Margins margins() { return {1, 2, 1, 2}; }
    template <bool Check>
    [[gnu::always_inline]] static bool block(const Ctx& c, __m256 x, __m256 y, std::uint8_t* d) {
        __m256 tx, ty;
        const __m256i ix = floor_split(x, &tx), iy = floor_split(y, &ty);
        if (Check && !inner(c, ix, iy)) return false;
        __m256 wx[4], wy[4];
        cubic_weights8(Method, tx, wx);
        cubic_weights8(Method, ty, wy);
        __m256i off = offsets(c, _mm256_sub_epi32(ix, _mm256_set1_epi32(1)), _mm256_sub_epi32(iy, _mm256_set1_epi32(1)), 1);
        const __m256i byte = _mm256_set1_epi32(0xFF);
        __m256 v = _mm256_setzero_ps();
        for (int r = 0; r < 4; ++r, off = _mm256_add_epi32(off, c.step)) {
            const __m256i g = gather(c, off);
            const __m256 h = across4(wx, _mm256_cvtepi32_ps(_mm256_and_si256(g, byte)),
                                     _mm256_cvtepi32_ps(_mm256_and_si256(_mm256_srli_epi32(g, 8), byte)),
                                     _mm256_cvtepi32_ps(_mm256_and_si256(_mm256_srli_epi32(g, 16), byte)),
                                     _mm256_cvtepi32_ps(_mm256_srli_epi32(g, 24)));
            v = r == 0 ? _mm256_mul_ps(wy[0], h) : _mm256_add_ps(v, _mm256_mul_ps(wy[r], h));
        }
        store8(_mm256_cvtps_epi32(v), d);
        return true;
    }
};

// Three or four channels: a dword per tap pixel (three channels and the next
// pixel's first byte, or four), each channel weighed across eight pixels at
// once; the results are packed back into pixels.
template <int Method, int NC>
struct Cubic8 {
    static Margins margins() { return {1, NC == 3 ? 3 : 2, 1, 2}; }
    template <bool Check>
    [[gnu::always_inline]] static bool block(const Ctx& c, __m256 x, __m256 y, std::uint8_t* d) {
        __m256 tx, ty;
        const __m256i ix = floor_split(x, &tx), iy = floor_split(y, &ty);
        if (Check && !inner(c, ix, iy)) return false;
        __m256 wx[4], wy[4];
        cubic_weights8(Method, tx, wx);
        cubic_weights8(Method, ty, wy);
        __m256i off = offsets(c, _mm256_sub_epi32(ix, _mm256_set1_epi32(1)), _mm256_sub_epi32(iy, _mm256_set1_epi32(1)), NC);
        const __m256i byte = _mm256_set1_epi32(0xFF);
        __m256 v[4] = {};
        for (int r = 0; r < 4; ++r, off = _mm256_add_epi32(off, c.step)) {
            __m256i g[4];
            for (int k = 0; k < 4; ++k) g[k] = gather(c, _mm256_add_epi32(off, _mm256_set1_epi32(k * NC)));
            for (int ch = 0; ch < NC; ++ch) {
                __m256 s[4];
                for (int k = 0; k < 4; ++k) s[k] = _mm256_cvtepi32_ps(_mm256_and_si256(_mm256_srli_epi32(g[k], 8 * ch), byte));
                const __m256 h = across4(wx, s[0], s[1], s[2], s[3]);
                v[ch] = r == 0 ? _mm256_mul_ps(wy[0], h) : _mm256_add_ps(v[ch], _mm256_mul_ps(wy[r], h));
            }
        }
        // Rounded, saturated and put together as one dword per pixel.
        const __m256i lo = _mm256_setzero_si256(), hi = _mm256_set1_epi32(255);
        __m256i px = _mm256_setzero_si256();
        for (int ch = 0; ch < NC; ++ch) {
            const __m256i q = _mm256_min_epi32(_mm256_max_epi32(_mm256_cvtps_epi32(v[ch]), lo), hi);
            px = _mm256_or_si256(px, _mm256_slli_epi32(q, 8 * ch));
        }
        Linear8<NC>::store_pixels(px, d);
        return true;
    }
};

// ---- 32-bit float, one channel ----

inline __m256 gatherf(const Ctx& c, __m256i off) { return _mm256_castsi256_ps(gather(c, off)); }

// Byte offsets of a block's pixels, for scalar loads.
struct Offsets {
    alignas(32) std::int32_t o[8];
    explicit Offsets(__m256i off) { _mm256_store_si256(reinterpret_cast<__m256i*>(o), off); }
};

// The two floats at byte offsets o[j] and o[k] (plus `extra`) side by side:
// (a_j, b_j, a_k, b_k).
inline __m128 pairs(const std::uint8_t* base, const Offsets& f, int j, int k, std::ptrdiff_t extra) {
    const __m128 lo = _mm_castsi128_ps(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(base + f.o[j] + extra)));
    return _mm_loadh_pi(lo, reinterpret_cast<const __m64*>(base + f.o[k] + extra));
}

struct LinearF {
    static Margins margins() { return {0, 1, 0, 1}; }
    template <bool Check>
    [[gnu::always_inline]] static bool block(const Ctx& c, __m256 x, __m256 y, float* d) {
        __m256 tx, ty;
        const __m256i ix = floor_split(x, &tx), iy = floor_split(y, &ty);
        if (Check && !inner(c, ix, iy)) return false;
        // Each tap and its right neighbour in one 8-byte load; the pairs
        // of pixels 0, 1, 4, 5 and 2, 3, 6, 7 are split into the left and
        // right samples of pixels 0..7 in order.
        const Offsets f(offsets(c, ix, iy, 4));
        auto row = [&](std::ptrdiff_t at, __m256* left, __m256* right) {
            const __m256 p = _mm256_set_m128(pairs(c.base, f, 4, 5, at), pairs(c.base, f, 0, 1, at));
            const __m256 q = _mm256_set_m128(pairs(c.base, f, 6, 7, at), pairs(c.base, f, 2, 3, at));
            *left = _mm256_shuffle_ps(p, q, 0x88), *right = _mm256_shuffle_ps(p, q, 0xDD);
        };
        __m256 a, b, e, g;
        row(0, &a, &b);
        row(c.rowBytes, &e, &g);
        const __m256 h0 = _mm256_add_ps(a, _mm256_mul_ps(_mm256_sub_ps(b, a), tx));
        const __m256 h1 = _mm256_add_ps(e, _mm256_mul_ps(_mm256_sub_ps(g, e), tx));
        _mm256_storeu_ps(d, _mm256_add_ps(h0, _mm256_mul_ps(_mm256_sub_ps(h1, h0), ty)));
        return true;
    }
};

struct NearestF {
    static Margins margins() { return {0, 1, 0, 1}; }
    template <bool Check>
    [[gnu::always_inline]] static bool block(const Ctx& c, __m256 x, __m256 y, float* d) {
        if (Check && !inner_nearest(c, x, y)) return false;
        _mm256_storeu_ps(d, gatherf(c, offsets(c, nearest8(x), nearest8(y), 4)));
        return true;
    }
};

template <int Method>
struct CubicF {
    static Margins margins() { return {1, 2, 1, 2}; }
    template <bool Check>
    [[gnu::always_inline]] static bool block(const Ctx& c, __m256 x, __m256 y, float* d) {
        __m256 tx, ty;
        const __m256i ix = floor_split(x, &tx), iy = floor_split(y, &ty);
        if (Check && !inner(c, ix, iy)) return false;
        __m256 wx[4], wy[4];
        cubic_weights8(Method, tx, wx);
        cubic_weights8(Method, ty, wy);
        // Each pixel's four taps of a row in one 16-byte load, pixels j and
        // j + 4 in the two lanes, transposed into the taps of pixels 0..7.
        const Offsets f(
            offsets(c, _mm256_sub_epi32(ix, _mm256_set1_epi32(1)), _mm256_sub_epi32(iy, _mm256_set1_epi32(1)), 4));
        __m256 v = _mm256_setzero_ps();
        for (int r = 0; r < 4; ++r) {
            const std::uint8_t* p = c.base + r * c.rowBytes;
            __m256 t[4];
            for (int j = 0; j < 4; ++j)
                t[j] = _mm256_loadu2_m128(reinterpret_cast<const float*>(p + f.o[j + 4]),
                                          reinterpret_cast<const float*>(p + f.o[j]));
            const __m256 u0 = _mm256_unpacklo_ps(t[0], t[1]), u1 = _mm256_unpackhi_ps(t[0], t[1]);
            const __m256 u2 = _mm256_unpacklo_ps(t[2], t[3]), u3 = _mm256_unpackhi_ps(t[2], t[3]);
            const __m256 h = across4(wx, _mm256_shuffle_ps(u0, u2, 0x44), _mm256_shuffle_ps(u0, u2, 0xEE),
                                     _mm256_shuffle_ps(u1, u3, 0x44), _mm256_shuffle_ps(u1, u3, 0xEE));
            v = r == 0 ? _mm256_mul_ps(wy[0], h) : _mm256_add_ps(v, _mm256_mul_ps(wy[r], h));
        }
        _mm256_storeu_ps(d, v);
        return true;
    }
};

// Positions read from two arrays (remap, and warps whose map has no
// closed form along a row).
struct ArrayPositions {
    static constexpr bool kMonotone = false;
    const float* xs;
    const float* ys;
    [[gnu::always_inline]] void block(int i, __m256* x, __m256* y) const {
        *x = _mm256_loadu_ps(xs + i), *y = _mm256_loadu_ps(ys + i);
    }
    void at(int i, float* x, float* y) const { *x = xs[i], *y = ys[i]; }
};

// Positions of a warp's map along a row, generated in the registers, the
// operations of map_position.
template <bool Perspective>
class RowPositions {
public:
    // An affine row's positions, correctly rounded from a linear function,
    // never turn back: the blocks whose taps lie inside form one run.
    static constexpr bool kMonotone = !Perspective;

    RowPositions(const RowMap& m, int x)
        : m_(m), x_(x), base_(_mm256_add_pd(_mm256_set1_pd(double(x)), _mm256_setr_pd(0, 1, 2, 3))),
          ax_(_mm256_set1_pd(m.nx[0])), bx_(_mm256_set1_pd(m.nx[1])), ay_(_mm256_set1_pd(m.ny[0])),
          by_(_mm256_set1_pd(m.ny[1])), ad_(_mm256_set1_pd(m.den[0])), bd_(_mm256_set1_pd(m.den[1])) {}

    [[gnu::always_inline]] void block(int i, __m256* px, __m256* py) const {
        const __m256d u0 = start(i);
        if constexpr (Perspective) {
            const __m256d u1 = _mm256_add_pd(u0, _mm256_set1_pd(4.0));
            const __m256d one = _mm256_set1_pd(1.0);
            const __m256d r0 = _mm256_div_pd(one, _mm256_fmadd_pd(ad_, u0, bd_));
            const __m256d r1 = _mm256_div_pd(one, _mm256_fmadd_pd(ad_, u1, bd_));
            *px = _mm256_set_m128(coordinate(ax_, bx_, u1, r1), coordinate(ax_, bx_, u0, r0));
            *py = _mm256_set_m128(coordinate(ay_, by_, u1, r1), coordinate(ay_, by_, u0, r0));
        } else {
            block_at(u0, px, py);
        }
    }
    // The map's arguments (x + i .. x + i + 3) of block i, and an affine
    // block from them: a run of blocks steps them by 8 instead of converting
    // i each time.
    [[gnu::always_inline]] __m256d start(int i) const { return _mm256_add_pd(base_, _mm256_set1_pd(double(i))); }
    [[gnu::always_inline]] void block_at(__m256d u0, __m256* px, __m256* py) const {
        static_assert(!Perspective);
        const __m256d u1 = _mm256_add_pd(u0, _mm256_set1_pd(4.0));
        *px = _mm256_set_m128(coordinate(ax_, bx_, u1), coordinate(ax_, bx_, u0));
        *py = _mm256_set_m128(coordinate(ay_, by_, u1), coordinate(ay_, by_, u0));
    }
    double slope_x() const { return m_.nx[0]; }
    double slope_y() const { return m_.ny[0]; }
    void at(int i, float* px, float* py) const {
        map_position(m_, double(x_) + i, px, py);
    }

private:
    static __m128 coordinate(__m256d a, __m256d b, __m256d u) { return _mm256_cvtpd_ps(_mm256_fmadd_pd(a, u, b)); }
    static __m128 coordinate(__m256d a, __m256d b, __m256d u, __m256d r) {
        return _mm256_cvtpd_ps(_mm256_mul_pd(_mm256_fmadd_pd(a, u, b), r));
    }

    const RowMap& m_;
    int x_;
    __m256d base_, ax_, bx_, ay_, by_, ad_, bd_;
};

// The blocks [k0, k1) of an affine row whose every block reads at most 16
// columns of four rows inside the box, the least column and row those of
// pixel 0 (XUp, YUp) or pixel 7: K's pixels come from each row's 16 bytes,
// picked apart by byte shuffles, the right row chosen per pixel, without
// gathers. Blocks go in pairs, the results (K::window_block: dwords in
// 0..255) stored as 16 bytes; the positions and offsets of the next
// blocks are worked out before the current ones' loads and arithmetic, so
// that their loads need not wait for them (the blocks just past the run
// are worked out too, never read).
template <class K, bool XUp, bool YUp, class Positions>
void windowed(const Ctx& c, const Positions& pos, int k0, int k1, std::uint8_t* dst) {
    if (k0 >= k1) return;
    __m256d u = pos.start(8 * k0);
    __m256 x, y;
    pos.block_at(u, &x, &y);
    typename K::Window w = K::template window<XUp, YUp>(c, x, y);
    int k = k0;
    for (; k + 1 < k1; k += 2) {
        u = _mm256_add_pd(u, _mm256_set1_pd(8.0));
        pos.block_at(u, &x, &y);
        const typename K::Window w1 = K::template window<XUp, YUp>(c, x, y);
        u = _mm256_add_pd(u, _mm256_set1_pd(8.0));
        pos.block_at(u, &x, &y);
        const typename K::Window next = K::template window<XUp, YUp>(c, x, y);
        const __m256i a = K::window_block(c, w), b = K::window_block(c, w1);
        const __m256i words = _mm256_packus_epi32(a, b), bytes = _mm256_packus_epi16(words, words);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + std::ptrdiff_t(8) * k),
                         _mm256_castsi256_si128(_mm256_permutevar8x32_epi32(bytes, _mm256_setr_epi32(0, 4, 1, 5, 0, 0, 0, 0))));
        w = next;
    }
    if (k < k1) store8_bytes(K::window_block(c, w), dst + std::ptrdiff_t(8) * k);
}

// Runs the blocks of kernel K over the pixels, the rule where a block is not
// inner and for the tail.
template <class K, class T, class Positions>
void blocks(const PixelSource<T>& src, const PixelRule& rule, const Positions& pos, int n, T* dst) {
    Margins m = K::margins();
    if (rule.smooth) {
        // Inner pixels then lie half a pixel inside every edge, where the
        // smooth edge leaves them as they are.
        m.left = m.left > 1 ? m.left : 1, m.top = m.top > 1 ? m.top : 1;
        m.right = m.right > 2 ? m.right : 2, m.bottom = m.bottom > 2 ? m.bottom : 2;
    }
    const Ctx c{reinterpret_cast<const std::uint8_t*>(src.origin),
                _mm256_set1_epi32(int(src.step)),
                _mm256_set1_epi32(src.x0 + m.left),
                _mm256_set1_epi32(src.x1 - m.right),
                _mm256_set1_epi32(src.y0 + m.top),
                _mm256_set1_epi32(src.y1 - m.bottom),
                src.step,
                src.x1,
                src.y1};
    const int nc = src.nc;
    auto one = [&](int j) {
        float x, y;
        pos.at(j, &x, &y);
        pixel(src, rule, x, y, dst + std::ptrdiff_t(j) * nc);
    };
    auto checked = [&](int i) {
        __m256 x, y;
        pos.block(i, &x, &y);
        if (!K::template block<true>(c, x, y, dst + std::ptrdiff_t(i) * nc))
            for (int j = i; j < i + 8; ++j) one(j);
    };
    const int count = n / 8;
    // Blocks [first, last) known to be inner: where both end pixels of each
    // are, on a row whose positions never turn back.
    int first = 0, last = 0;
    if constexpr (Positions::kMonotone) {
        const float lox = float(src.x0 + m.left), hix = float(src.x1 - m.right + 1);
        const float loy = float(src.y0 + m.top), hiy = float(src.y1 - m.bottom + 1);
        auto in = [&](int j) {
            float x, y;
            pos.at(j, &x, &y);
            return x >= lox && x < hix && y >= loy && y < hiy;  // floor(x) in [x0 + left, x1 - right], ...
        };
        if (src.x1 < (1 << 24) && src.y1 < (1 << 24)) {
            last = count;
            while (first < last && !(in(8 * first) && in(8 * first + 7))) ++first;
            while (last > first && !(in(8 * last - 8) && in(8 * last - 1))) --last;
        }
    }
    auto known = [&](int k0, int k1) {
        for (int k = k0; k < k1; ++k) {
            __m256 x, y;
            pos.block(8 * k, &x, &y);
            K::template block<false>(c, x, y, dst + std::ptrdiff_t(8 * k) * nc);
        }
    };
    for (int k = 0; k < first; ++k) checked(8 * k);
    if constexpr (Positions::kMonotone && requires { K::kWindow; }) {
        // Blocks whose windows of 16 columns and four rows lie inside: a
        // row advancing less than 2 columns and 0.27 rows a pixel spans at
        // most 14 columns and 2 rows in a block; a kernel's windows may
        // start kWindowReach past the floors.
        const float hix = float(src.x1 - 15 - K::kWindowReach + 1), hiy = float(src.y1 - 3 - K::kWindowReach + 1);
        auto below = [&](int j) {
            float x, y;
            pos.at(j, &x, &y);
            return x < hix && y < hiy;
        };
        int wfirst = first, wlast = first;
        // Half blocks span less than 14 columns and 2 rows up to 4.6
        // columns and 0.66 rows a pixel.
        const double sx = std::fabs(pos.slope_x()), sy = std::fabs(pos.slope_y());
        bool halves = false;
        if constexpr (requires { typename K::Halves; }) halves = sx <= 4.6 && sy <= 0.66 && !(sx <= 1.9 && sy <= 0.27);
        if ((sx <= 1.9 && sy <= 0.27) || halves) {
            wlast = last;
            while (wfirst < wlast && !(below(8 * wfirst) && below(8 * wfirst + 7))) ++wfirst;
            while (wlast > wfirst && !(below(8 * wlast - 8) && below(8 * wlast - 1))) --wlast;
        }
        const bool xUp = pos.slope_x() >= 0, yUp = pos.slope_y() >= 0;
        known(first, wfirst);
        auto run = [&]<class W>() {
            if (xUp && yUp) windowed<W, true, true>(c, pos, wfirst, wlast, dst);
            else if (xUp) windowed<W, true, false>(c, pos, wfirst, wlast, dst);
            else if (yUp) windowed<W, false, true>(c, pos, wfirst, wlast, dst);
            else windowed<W, false, false>(c, pos, wfirst, wlast, dst);
        };
        if constexpr (requires { typename K::Halves; }) {
            if (halves) run.template operator()<typename K::Halves>();
            else run.template operator()<K>();
        } else {
            run.template operator()<K>();
        }
        known(wlast, last);
    } else {
        known(first, last);
    }
    for (int k = last; k < count; ++k) checked(8 * k);
    for (int i = 8 * count; i < n; ++i) one(i);
}

// Byte offsets of the box's far corner (plus the widest read) fit 32 bits.
template <class T>
bool addressable(const PixelSource<T>& s) {
    return s.step > 0 && (long long)(s.y1 + 3) * s.step + (long long)(s.x1 + 4) * s.nc * sizeof(T) < INT_MAX;
}


// The kernel for the sample type, channels and method, run over pos.
template <class T, class Positions>
bool dispatch(const PixelSource<T>& src, const PixelRule& rule, const Positions& pos, int n, T* dst) {
    if (!addressable(src)) return false;
    const int m = rule.method, nc = src.nc;
    if constexpr (std::is_same_v<T, Rok8u>) {
        if (m == rok::geometry::kLinear)
            return nc == 1 ? (blocks<Linear8C1>(src, rule, pos, n, dst), true)
                   : nc == 3 ? (blocks<Linear8<3>>(src, rule, pos, n, dst), true)
                             : (blocks<Linear8<4>>(src, rule, pos, n, dst), true);
        if (m == rok::geometry::kNearest)
            return nc == 1 ? (blocks<Nearest8C1>(src, rule, pos, n, dst), true)
                   : nc == 3 ? (blocks<Nearest8<3>>(src, rule, pos, n, dst), true)
                             : (blocks<Nearest8<4>>(src, rule, pos, n, dst), true);
        if (m == rok::geometry::kCubic)
            return nc == 1 ? (blocks<Cubic8C1<4>>(src, rule, pos, n, dst), true)
                   : nc == 3 ? (blocks<Cubic8<4, 3>>(src, rule, pos, n, dst), true)
                             : (blocks<Cubic8<4, 4>>(src, rule, pos, n, dst), true);
        if (m == rok::geometry::kCatmullRom)
            return nc == 1 ? (blocks<Cubic8C1<6>>(src, rule, pos, n, dst), true)
                   : nc == 3 ? (blocks<Cubic8<6, 3>>(src, rule, pos, n, dst), true)
                             : (blocks<Cubic8<6, 4>>(src, rule, pos, n, dst), true);
    } else if (nc == 1) {
        if (m == rok::geometry::kLinear) return blocks<LinearF>(src, rule, pos, n, dst), true;
        if (m == rok::geometry::kNearest) return blocks<NearestF>(src, rule, pos, n, dst), true;
        if (m == rok::geometry::kCubic) return blocks<CubicF<4>>(src, rule, pos, n, dst), true;
        if (m == rok::geometry::kCatmullRom) return blocks<CubicF<6>>(src, rule, pos, n, dst), true;
    }
    return false;
}

}  // namespace

template <class T, class P>
bool fast_row(const PixelSource<T>& src, const PixelRule& rule, const P* xs, const P* ys, int n, T* dst) {
    if constexpr (std::is_same_v<P, float> && (std::is_same_v<T, Rok8u> || std::is_same_v<T, Rok32f>))
        return dispatch(src, rule, ArrayPositions{xs, ys}, n, dst);
    return false;
}

template <class T>
bool fast_map_row(const PixelSource<T>& src, const PixelRule& rule, const RowMap& map, int x, int n, T* dst) {
    if constexpr (std::is_same_v<T, Rok8u> || std::is_same_v<T, Rok32f>) {
        if (map.perspective) return dispatch(src, rule, RowPositions<true>(map, x), n, dst);
        return dispatch(src, rule, RowPositions<false>(map, x), n, dst);
    }
    return false;
}

template bool fast_row<Rok8u, float>(const PixelSource<Rok8u>&, const PixelRule&, const float*, const float*, int,
                                     Rok8u*);
template bool fast_row<Rok16u, float>(const PixelSource<Rok16u>&, const PixelRule&, const float*, const float*, int,
                                      Rok16u*);
template bool fast_row<Rok16s, float>(const PixelSource<Rok16s>&, const PixelRule&, const float*, const float*, int,
                                      Rok16s*);
template bool fast_row<Rok32f, float>(const PixelSource<Rok32f>&, const PixelRule&, const float*, const float*, int,
                                      Rok32f*);
template bool fast_row<Rok64f, double>(const PixelSource<Rok64f>&, const PixelRule&, const double*, const double*,
                                       int, Rok64f*);
template bool fast_map_row<Rok8u>(const PixelSource<Rok8u>&, const PixelRule&, const RowMap&, int, int, Rok8u*);
template bool fast_map_row<Rok16u>(const PixelSource<Rok16u>&, const PixelRule&, const RowMap&, int, int, Rok16u*);
template bool fast_map_row<Rok32f>(const PixelSource<Rok32f>&, const PixelRule&, const RowMap&, int, int, Rok32f*);
template bool fast_map_row<Rok64f>(const PixelSource<Rok64f>&, const PixelRule&, const RowMap&, int, int, Rok64f*);

}  // namespace rok::kernels::pixel
