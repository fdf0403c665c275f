// Kernels that move samples between interleaved pixels and single channels:
// planar split and merge, one-channel copies, alpha dropped or added, and
// duplication of one channel. Each has a scalar loop (the statement of what
// it does, and the head and tail) and a vector body.
//
// The vector bodies of the planar and one-channel kernels work on 16-byte
// lanes. A 256-bit register holds two lanes that belong to two consecutive
// runs of N = 16 / sample-bytes pixels; each lane is loaded on its own (and
// stored after a 128-bit permute puts lanes in memory order), so the in-lane
// byte shuffles of AVX2 apply and one table serves both lanes. For three channels a run is three lanes of interleaved samples
// and, since 3 has no common factor with N, the samples of one channel sit
// at distinct positions of the three lanes: two blends and one shuffle
// gather a channel, and the reverse scatters it. For four channels each lane
// is first grouped by channel into 32-bit units, then four lanes are
// transposed as a 4 x 4 matrix of units.
#include <immintrin.h>

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "kernels/copy/copy_move.h"

namespace rok::kernels {

namespace {

using u8 = std::uint8_t;
using i8 = std::int8_t;

inline __m256i both_lanes(const i8* table) {
    return _mm256_broadcastsi128_si256(_mm_load_si128(reinterpret_cast<const __m128i*>(table)));
}
inline __m256i load32(const void* p) { return _mm256_loadu_si256(static_cast<const __m256i*>(p)); }
inline void store32(void* p, __m256i v) { _mm256_storeu_si256(static_cast<__m256i*>(p), v); }

// Shuffle and blend tables for C-channel pixels of E-byte samples, over
// lanes of N samples counted from the start of a pixel.
template <int C, int E>
struct Lanes {
    static constexpr int N = 16 / E;
    // owner[q][k]: bytes of lane q (of the C lanes of a run) that hold
    // channel k.
    alignas(16) i8 owner[C][C][16];
    // Three channels: gather[k] collects channel k from the blend of the
    // three lanes; scatter[k] puts sample i of channel k at the lane position
    // it has in the interleaved run. Four channels: group[] turns a lane of
    // pixels into one 32-bit unit per channel, spread[] turns it back.
    alignas(16) i8 gather[C][16];
    alignas(16) i8 scatter[C][16];
    alignas(16) i8 group[16];
    alignas(16) i8 spread[16];
    constexpr Lanes() : owner{}, gather{}, scatter{}, group{}, spread{} {
        for (int p = 0; p < 16; ++p) {
            const int s = p / E, e = p % E;
            for (int q = 0; q < C; ++q)
                for (int k = 0; k < C; ++k) owner[q][k][p] = (q * N + s) % C == k ? -1 : 0;
            for (int k = 0; k < C; ++k) {
                gather[k][p] = i8(((C * s + k) % N) * E + e);
                for (int i = 0; i < N; ++i)
                    if ((C * i + k) % N == s) scatter[k][p] = i8(i * E + e);
            }
            group[p] = i8(((s % (4 / E)) * 4 + s / (4 / E)) * E + e);
            spread[p] = i8((s % 4) * 4 + (s / 4) * E + e);
        }
    }
};
template <int C, int E>
inline constexpr Lanes<C, E> kLanes{};

// The loop of the kernels that can stream: step(at, false_type) handles R
// pixels from `at` with ordinary stores, step(at, true_type) 2R pixels with
// streaming stores (a whole number of lines), scalar(from, to) single
// pixels. With head >= 0 (the pixels before the first line boundary) the
// streamed steps follow the head and ordinary steps finish; head < 0 means
// ordinary steps only.
template <int R, class Scalar, class Step>
inline void run_steps(int n, int head, Scalar&& scalar, Step&& step) {
    int i = 0;
    if (head >= 0 && head + 2 * R <= n) {
        scalar(0, head);
        for (i = head; i + 2 * R <= n; i += 2 * R) step(i, std::true_type{});
    }
    for (; i + R <= n; i += R) step(i, std::false_type{});
    scalar(i, n);
}

// a, b, c, d as rows of a 4 x 4 matrix of 32-bit units, per lane.
inline void transpose4(__m256i (&v)[4]) {
    const __m256i t0 = _mm256_unpacklo_epi32(v[0], v[1]), t1 = _mm256_unpacklo_epi32(v[2], v[3]);
    const __m256i t2 = _mm256_unpackhi_epi32(v[0], v[1]), t3 = _mm256_unpackhi_epi32(v[2], v[3]);
    v[0] = _mm256_unpacklo_epi64(t0, t1);
    v[1] = _mm256_unpackhi_epi64(t0, t1);
    v[2] = _mm256_unpacklo_epi64(t2, t3);
    v[3] = _mm256_unpackhi_epi64(t2, t3);
}

// The C lanes of two interleaved runs of N pixels, at s and s + C*N
// samples, as C registers: register q holds lane q of the first run and lane
// q of the second. Loading lane by lane measured faster than whole loads and
// permutes; storing is the other way round (store_runs).
template <class U, int C>
inline void load_runs(const U* s, __m256i (&v)[C]) {
    constexpr int N = 16 / int(sizeof(U));
    for (int q = 0; q < C; ++q)
        v[q] = _mm256_inserti128_si256(_mm256_castsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(s + q * N))),
                                       _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + (C + q) * N)), 1);
}

template <bool Stream>
inline void put32(void* p, __m256i v) {
    if constexpr (Stream) _mm256_stream_si256(static_cast<__m256i*>(p), v);
    else store32(p, v);
}

// The inverse of load_runs. In memory the lanes lie as first-run lanes
// 0..C-1, then second-run lanes 0..C-1, so one 128-bit permute per register
// makes whole 32-byte stores. Streaming needs d on a 32-byte boundary.
template <class U, int C, bool Stream = false>
inline void store_runs(U* d, const __m256i (&v)[C]) {
    constexpr int H = 32 / int(sizeof(U));
    if constexpr (C == 3) {
        put32<Stream>(d, _mm256_permute2x128_si256(v[0], v[1], 0x20));
        put32<Stream>(d + H, _mm256_permute2x128_si256(v[2], v[0], 0x30));
        put32<Stream>(d + 2 * H, _mm256_permute2x128_si256(v[1], v[2], 0x31));
    } else {
        put32<Stream>(d, _mm256_permute2x128_si256(v[0], v[1], 0x20));
        put32<Stream>(d + H, _mm256_permute2x128_si256(v[2], v[3], 0x20));
        put32<Stream>(d + 2 * H, _mm256_permute2x128_si256(v[0], v[1], 0x31));
        put32<Stream>(d + 3 * H, _mm256_permute2x128_si256(v[2], v[3], 0x31));
    }
}

// Streamed rows: pixels to write with ordinary stores before p + h*pixelBytes
// reaches a 64-byte line boundary, or -1 when it never does. Starting the
// streaming stores on a line and ending them on one keeps every line they
// touch free of ordinary stores, which would first read the line from
// memory and then have it written back piecemeal.
inline int pixels_to_line(const void* p, int pixelBytes, int sampleBytes) {
    const std::uintptr_t a = reinterpret_cast<std::uintptr_t>(p);
    if (a % sampleBytes != 0) return -1;
    for (int h = 0; h < 64 / sampleBytes; ++h)
        if ((a + std::uintptr_t(h) * pixelBytes) % 64 == 0) return h;
    return -1;
}

// Blends in from b the bytes of lane q (of a three-lane run) that hold
// channel k, the rest from a. Byte samples need a mask register; wider
// samples take the mask as an immediate, one bit per 16- or 32-bit unit and
// the same for both lanes, which costs one simple operation where the
// variable blend costs two or three.
template <int E, int Q, int K>
inline __m256i take_channel(__m256i a, __m256i b) {
    constexpr auto& owner = kLanes<3, E>.owner[Q][K];
    if constexpr (E == 1) {
        return _mm256_blendv_epi8(a, b, both_lanes(owner));
    } else if constexpr (E == 2) {
        constexpr int imm = [] {
            int m = 0;
            for (int u = 0; u < 8; ++u) m |= owner[2 * u] ? 1 << u : 0;
            return m;
        }();
        return _mm256_blend_epi16(a, b, imm);
    } else {
        constexpr int imm = [] {
            int m = 0;
            for (int u = 0; u < 4; ++u) m |= owner[4 * u] ? 0x11 << u : 0;
            return m;
        }();
        return _mm256_blend_epi32(a, b, imm);
    }
}

// Channel k of three interleaved lanes, gathered in sample order.
template <int E, int K>
inline __m256i gather_channel(const __m256i (&v)[3]) {
    const __m256i m = take_channel<E, 2, K>(take_channel<E, 1, K>(v[0], v[1]), v[2]);
    return _mm256_shuffle_epi8(m, both_lanes(kLanes<3, E>.gather[K]));
}

// Lane q of three interleaved lanes from the scattered channels p[].
template <int E, int Q>
inline __m256i lane_of(const __m256i (&p)[3]) {
    return take_channel<E, Q, 2>(take_channel<E, Q, 1>(p[0], p[1]), p[2]);
}

// Interleaved runs to one vector per channel (2N samples each).
template <class U, int C>
inline void deinterleave(__m256i (&v)[C]) {
    constexpr int E = int(sizeof(U));
    const auto& t = kLanes<C, E>;
    if constexpr (C == 3) {
        const __m256i c0 = gather_channel<E, 0>(v), c1 = gather_channel<E, 1>(v), c2 = gather_channel<E, 2>(v);
        v[0] = c0;
        v[1] = c1;
        v[2] = c2;
    } else {
        if constexpr (E < 4)
            for (int q = 0; q < 4; ++q) v[q] = _mm256_shuffle_epi8(v[q], both_lanes(t.group));
        transpose4(v);
    }
}

// The inverse: one vector per channel to interleaved runs.
template <class U, int C>
inline void interleave(__m256i (&v)[C]) {
    constexpr int E = int(sizeof(U));
    const auto& t = kLanes<C, E>;
    if constexpr (C == 3) {
        __m256i p[3];
        for (int k = 0; k < 3; ++k) p[k] = _mm256_shuffle_epi8(v[k], both_lanes(t.scatter[k]));
        v[0] = lane_of<E, 0>(p);
        v[1] = lane_of<E, 1>(p);
        v[2] = lane_of<E, 2>(p);
    } else {
        transpose4(v);
        if constexpr (E < 4)
            for (int q = 0; q < 4; ++q) v[q] = _mm256_shuffle_epi8(v[q], both_lanes(t.spread));
    }
}

template <class U>
constexpr int kRunPixels = 32 / int(sizeof(U));  // two lanes' runs

// Pixels of 4 samples of U that fill one 256-bit register.
template <class U>
constexpr int kQuadPixels = 8 / int(sizeof(U));

}  // namespace

template <class U, int C>
void split_planes(const U* src, U* const* planes, int n, bool stream) {
    U* p[C];
    for (int c = 0; c < C; ++c) p[c] = planes[c];
    constexpr int R = kRunPixels<U>;
    constexpr int E = int(sizeof(U));
    auto scalar = [&](int from, int to) {
        for (int i = from; i < to; ++i)
            for (int c = 0; c < C; ++c) p[c][i] = src[C * std::size_t(i) + c];
    };
    auto step = [&](int at, auto streamed) {
        if constexpr (decltype(streamed)::value) {
            // Both halves of each plane's line are gathered first, so that
            // the line is written by two stores in a row.
            __m256i v[C], w[C];
            load_runs<U, C>(src + std::size_t(at) * C, v);
            load_runs<U, C>(src + std::size_t(at + R) * C, w);
            deinterleave<U, C>(v);
            deinterleave<U, C>(w);
            for (int c = 0; c < C; ++c) {
                put32<true>(p[c] + at, v[c]);
                put32<true>(p[c] + at + R, w[c]);
            }
        } else {
            __m256i v[C];
            load_runs<U, C>(src + std::size_t(at) * C, v);
            deinterleave<U, C>(v);
            for (int c = 0; c < C; ++c) store32(p[c] + at, v[c]);
        }
    };
    // A streamed step writes two registers, one line, to each plane; planes on
    // different line offsets cannot all stream whole lines.
    int head = stream ? pixels_to_line(p[0], E, E) : -1;
    for (int c = 1; c < C; ++c)
        if ((reinterpret_cast<std::uintptr_t>(p[c]) - reinterpret_cast<std::uintptr_t>(p[0])) % 64 != 0) head = -1;
    run_steps<R>(n, head, scalar, step);
}

template <class U, int C>
void merge_planes(const U* const* planes, U* dst, int n, bool stream) {
    const U* p[C];
    for (int c = 0; c < C; ++c) p[c] = planes[c];
    constexpr int R = kRunPixels<U>;
    constexpr int E = int(sizeof(U));
    auto scalar = [&](int from, int to) {
        for (int i = from; i < to; ++i)
            for (int c = 0; c < C; ++c) dst[C * std::size_t(i) + c] = p[c][i];
    };
    auto step = [&](int at, auto streamed) {
        constexpr bool S = decltype(streamed)::value;
        for (int k = 0; k < (S ? 2 : 1); ++k, at += R) {
            __m256i v[C];
            for (int c = 0; c < C; ++c) v[c] = load32(p[c] + at);
            interleave<U, C>(v);
            store_runs<U, C, S>(dst + std::size_t(at) * C, v);
        }
    };
    // A streamed step writes 2 * C registers: a whole number of lines.
    run_steps<R>(n, stream ? pixels_to_line(dst, C * E, E) : -1, scalar, step);
}

namespace {
// 32-bit samples, 8 pixels a step. Gathering one channel: register q of the
// SS consecutive source registers holds sample SS*p of pixel p at position
// SS*p - 8q when that lies in 0..7. Scattering: position j of destination
// register q is channel 0 of pixel (8q + j) / DS when (8q + j) % DS == 0.
template <int SS, int Q>
constexpr int gather_bits() {
    int m = 0;
    for (int p = 0; p < 8; ++p) m |= (SS * p >= 8 * Q && SS * p < 8 * Q + 8) << p;
    return m;
}
template <int DS, int Q>
constexpr int scatter_bits() {
    int m = 0;
    for (int j = 0; j < 8; ++j) m |= ((8 * Q + j) % DS == 0) << j;
    return m;
}
template <int SS, int Q>
inline __m256i gather_index() {
    alignas(32) int idx[8];
    for (int p = 0; p < 8; ++p) idx[p] = (SS * p - 8 * Q) & 7;
    return load32(idx);
}
template <int DS, int Q>
inline __m256i scatter_index() {
    alignas(32) int idx[8];
    for (int j = 0; j < 8; ++j) idx[j] = (8 * Q + j) / DS;
    return load32(idx);
}

template <int SS, int Q = 0>
inline __m256i gather_dwords(const std::uint32_t* s, __m256i acc) {
    if constexpr (Q == SS) {
        return acc;
    } else {
        const __m256i v = _mm256_permutevar8x32_epi32(load32(s + 8 * Q), gather_index<SS, Q>());
        return gather_dwords<SS, Q + 1>(s, _mm256_blend_epi32(acc, v, (gather_bits<SS, Q>())));
    }
}

template <int DS, int Q = 0>
inline void scatter_dwords(__m256i v, std::uint32_t* d) {
    if constexpr (Q < DS) {
        const __m256i placed = _mm256_permutevar8x32_epi32(v, scatter_index<DS, Q>());
        store32(d + 8 * Q, _mm256_blend_epi32(load32(d + 8 * Q), placed, (scatter_bits<DS, Q>())));
        scatter_dwords<DS, Q + 1>(v, d);
    }
}
}  // namespace

// The pointers address one sample of a pixel, not its start, so a vector
// step may only reach samples up to the last one addressed: the bodies stop
// one pixel early ("i + R < n") and leave the rest to the scalar loop.
template <class U, int SS, int DS>
void copy_channel(const U* src, U* dst, int n) {
    constexpr int R = kRunPixels<U>;
    constexpr int E = int(sizeof(U));
    int i = 0;
    if constexpr (SS == DS) {
        // The same channel of two images: plain registers, one blend each,
        // the other channels written back as they were read.
        alignas(32) u8 mine[DS][32];
        for (int q = 0; q < DS; ++q)
            for (int b = 0; b < 32; ++b) mine[q][b] = (32 * q + b) / E % DS == 0 ? 0xFF : 0x00;
        __m256i m[DS];
        for (int q = 0; q < DS; ++q) m[q] = load32(mine[q]);
        for (; i + R < n; i += R)
            for (int q = 0; q < DS; ++q) {
                U* d = dst + std::size_t(i) * DS + q * R;
                store32(d, _mm256_blendv_epi8(load32(d), load32(src + std::size_t(i) * SS + q * R), m[q]));
            }
    } else if constexpr (E == 4 && DS == 1) {
        for (; i + R < n; i += R) store32(dst + i, gather_dwords<SS>(src + std::size_t(i) * SS, _mm256_setzero_si256()));
    } else if constexpr (E == 4) {
        for (; i + R < n; i += R) scatter_dwords<DS>(load32(src + i), dst + std::size_t(i) * DS);
    } else if constexpr (DS == 1) {
        for (; i + R < n; i += R) {
            __m256i v[SS];
            load_runs<U, SS>(src + std::size_t(i) * SS, v);
            deinterleave<U, SS>(v);
            store32(dst + i, v[0]);
        }
    } else {
        // One channel into C3/C4 (SS == 1): channel 0 of each destination
        // lane is replaced; the other samples are stored back as they were read.
        for (; i + R < n; i += R) {
            __m256i s[DS], d[DS];
            load_runs<U, DS>(dst + std::size_t(i) * DS, d);
            for (int c = 0; c < DS; ++c) s[c] = load32(src + i);
            interleave<U, DS>(s);
            for (int q = 0; q < DS; ++q) d[q] = _mm256_blendv_epi8(d[q], s[q], both_lanes(kLanes<DS, E>.owner[q][0]));
            store_runs<U, DS>(dst + std::size_t(i) * DS, d);
        }
    }
    for (; i < n; ++i) dst[std::size_t(i) * DS] = src[std::size_t(i) * SS];
}

template <class U, int SC, int DC, int NP>
int reorder_runs(const U* src, U* dst, int n, const int* order, U fill) {
    constexpr int R = kRunPixels<U>;
    constexpr int E = int(sizeof(U));
    if (n < R) return 0;
    // Destination samples that keep their value (channels past NP, actions
    // above SC) are taken back from the destination by a blend.
    __m256i keep[DC];
    bool anyKept = false;
    for (int q = 0; q < DC; ++q) {
        keep[q] = _mm256_setzero_si256();
        for (int k = 0; k < DC; ++k)
            if (k >= NP || order[k] > SC) {
                keep[q] = _mm256_or_si256(keep[q], both_lanes(kLanes<DC, E>.owner[q][k]));
                anyKept = true;
            }
    }
    __m256i filled;
    if constexpr (E == 1) filled = _mm256_set1_epi8(char(fill));
    else if constexpr (E == 2) filled = _mm256_set1_epi16(short(fill));
    else filled = _mm256_set1_epi32(int(fill));
    int i = 0;
    for (; i + R <= n; i += R) {
        __m256i in[SC], out[DC];
        load_runs<U, SC>(src + std::size_t(i) * SC, in);
        deinterleave<U, SC>(in);
        for (int k = 0; k < DC; ++k) out[k] = k < NP && order[k] < SC ? in[order[k]] : filled;
        interleave<U, DC>(out);
        if (anyKept) {
            __m256i old[DC];
            load_runs<U, DC>(dst + std::size_t(i) * DC, old);
            for (int q = 0; q < DC; ++q) out[q] = _mm256_blendv_epi8(out[q], old[q], keep[q]);
        }
        store_runs<U, DC>(dst + std::size_t(i) * DC, out);
    }
    return i;
}

template <class U, int DS>
void set_channel(U value, U* dst, int n) {
    // As copy_channel: the pointer addresses the channel, so the body stops
    // a pixel early.
    constexpr int R = kRunPixels<U>;
    constexpr int E = int(sizeof(U));
    __m256i filled;
    if constexpr (E == 1) filled = _mm256_set1_epi8(char(value));
    else if constexpr (E == 2) filled = _mm256_set1_epi16(short(value));
    else filled = _mm256_set1_epi32(int(value));
    int i = 0;
    for (; i + R < n; i += R) {
        __m256i d[DS];
        load_runs<U, DS>(dst + std::size_t(i) * DS, d);
        for (int q = 0; q < DS; ++q) d[q] = _mm256_blendv_epi8(d[q], filled, both_lanes(kLanes<DS, E>.owner[q][0]));
        store_runs<U, DS>(dst + std::size_t(i) * DS, d);
    }
    for (; i < n; ++i) dst[std::size_t(i) * DS] = value;
}

namespace {
// Colour bytes of the 4-sample pixels of one lane packed into its first 12
// bytes (drop), and back (add; alpha positions zero).
template <int E>
struct AlphaTables {
    alignas(16) i8 drop[16];
    alignas(16) i8 add[16];
    constexpr AlphaTables() : drop{}, add{} {
        for (int p = 0; p < 16; ++p) {
            const int s = p / E, e = p % E;
            drop[p] = p < 12 ? i8(((s / 3) * 4 + s % 3) * E + e) : i8(-128);
            add[p] = s % 4 < 3 ? i8(((s / 4) * 3 + s % 4) * E + e) : i8(-128);
        }
    }
};
template <int E>
inline constexpr AlphaTables<E> kAlpha{};
}  // namespace

template <class U>
void copy_ac4_to_c3(const U* src, U* dst, int n) {
    // One register of pixels gives 24 bytes; the 32-byte store spills 8
    // bytes into pixels that the next step (or the tail) writes again, so it
    // runs only while those bytes lie inside the row.
    constexpr int Q = kQuadPixels<U>;
    constexpr std::size_t E = sizeof(U);
    const __m256i drop = both_lanes(kAlpha<int(E)>.drop);
    const __m256i pack = _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 3, 7);
    int i = 0;
    for (; (std::size_t(i) + Q) * 3 * E + 8 <= std::size_t(n) * 3 * E; i += Q) {
        const __m256i v = _mm256_shuffle_epi8(load32(src + 4 * std::size_t(i)), drop);
        store32(dst + 3 * std::size_t(i), _mm256_permutevar8x32_epi32(v, pack));
    }
    for (; i < n; ++i)
        for (int c = 0; c < 3; ++c) dst[3 * std::size_t(i) + c] = src[4 * std::size_t(i) + c];
}

template <class U>
void copy_c3_to_ac4(const U* src, U* dst, int n) {
    // 32 bytes are read for the 24 used, so the body stops while those lie
    // inside the source row.
    constexpr int Q = kQuadPixels<U>;
    constexpr std::size_t E = sizeof(U);
    const __m256i add = both_lanes(kAlpha<int(E)>.add);
    const __m256i unpack = _mm256_setr_epi32(0, 1, 2, 2, 3, 4, 5, 5);
    alignas(32) u8 colour[32];
    for (int b = 0; b < 32; ++b) colour[b] = b % (4 * E) < 3 * E ? 0xFF : 0x00;
    const __m256i keep = load32(colour);
    int i = 0;
    for (; std::size_t(i) * 3 * E + 32 <= std::size_t(n) * 3 * E; i += Q) {
        const __m256i v = _mm256_permutevar8x32_epi32(load32(src + 3 * std::size_t(i)), unpack);
        U* d = dst + 4 * std::size_t(i);
        store32(d, _mm256_blendv_epi8(load32(d), _mm256_shuffle_epi8(v, add), keep));
    }
    for (; i < n; ++i)
        for (int c = 0; c < 3; ++c) dst[4 * std::size_t(i) + c] = src[3 * std::size_t(i) + c];
}

namespace {
// Duplication: output register q of a 32-byte source block takes source
// bytes (32q + p) / C; they lie in a 16-byte window starting at window[q],
// broadcast to both lanes.
template <int C>
struct DupTables {
    int window[C];
    alignas(32) i8 idx[C][32];
    constexpr DupTables() : window{}, idx{} {
        for (int q = 0; q < C; ++q) {
            const int first = 32 * q / C / 8 * 8;
            window[q] = first < 16 ? first : 16;
            for (int p = 0; p < 32; ++p) idx[q][p] = i8((32 * q + p) / C - window[q]);
        }
    }
};
template <int C>
inline constexpr DupTables<C> kDup{};
}  // namespace

template <int C>
void dup_channel(const u8* src, u8* dst, int n, bool stream) {
    const auto& t = kDup<C>;
    auto scalar = [&](int from, int to) {
        for (int i = from; i < to; ++i)
            for (int c = 0; c < C; ++c) dst[C * std::size_t(i) + c] = src[i];
    };
    auto step = [&](int at, auto streamed) {
        constexpr bool S = decltype(streamed)::value;
        for (int k = 0; k < (S ? 2 : 1); ++k, at += 32)
            for (int q = 0; q < C; ++q) {
                const __m128i w = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + at + t.window[q]));
                const __m256i v = _mm256_shuffle_epi8(_mm256_broadcastsi128_si256(w), load32(t.idx[q]));
                put32<S>(dst + C * std::size_t(at) + 32 * q, v);
            }
    };
    // A streamed step writes 2 * C registers: whole lines.
    run_steps<32>(n, stream ? pixels_to_line(dst, C, 1) : -1, scalar, step);
}

#define ROK_LANE_KERNELS(U)                                                     \
    template void set_channel<U, 3>(U, U*, int);                                \
    template void set_channel<U, 4>(U, U*, int);                                \
    template int reorder_runs<U, 3, 3, 3>(const U*, U*, int, const int*, U);   \
    template int reorder_runs<U, 4, 4, 3>(const U*, U*, int, const int*, U);   \
    template int reorder_runs<U, 4, 4, 4>(const U*, U*, int, const int*, U);   \
    template int reorder_runs<U, 3, 4, 4>(const U*, U*, int, const int*, U);   \
    template int reorder_runs<U, 4, 3, 3>(const U*, U*, int, const int*, U);   \
    template void copy_channel<U, 3, 1>(const U*, U*, int);                    \
    template void copy_channel<U, 4, 1>(const U*, U*, int);                    \
    template void copy_channel<U, 1, 3>(const U*, U*, int);                    \
    template void copy_channel<U, 1, 4>(const U*, U*, int);                    \
    template void copy_channel<U, 3, 3>(const U*, U*, int);                    \
    template void copy_channel<U, 4, 4>(const U*, U*, int);                    \
    template void copy_ac4_to_c3<U>(const U*, U*, int);                        \
    template void copy_c3_to_ac4<U>(const U*, U*, int);                        \
    template void split_planes<U, 3>(const U*, U* const*, int, bool);          \
    template void split_planes<U, 4>(const U*, U* const*, int, bool);          \
    template void merge_planes<U, 3>(const U* const*, U*, int, bool);          \
    template void merge_planes<U, 4>(const U* const*, U*, int, bool);
ROK_LANE_KERNELS(std::uint8_t)
ROK_LANE_KERNELS(std::uint16_t)
ROK_LANE_KERNELS(std::uint32_t)

template void dup_channel<3>(const u8*, u8*, int, bool);
template void dup_channel<4>(const u8*, u8*, int, bool);

}  // namespace rok::kernels
