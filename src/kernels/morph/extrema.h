// Row kernels of the neighbourhood-extrema engine (dilation, erosion, the
// minimum and maximum filters): the per-sample maximum (or minimum) of several
// rows, and the fused 3x3 neighbourhood of one or two output rows.
//
// Every extremum is formed by the pairwise rule acc = better(acc, x), with
// better(a, b) = a > b ? a : b for the maximum and a < b ? a : b for the
// minimum, in a fixed order per kernel. On integers the order is immaterial;
// on floats it fixes which operand a NaN or a +0/-0 tie gives, the same in
// the vector lanes (the instructions follow the same rule) as in the scalar
// head and tail.
#pragma once

#include "frame/generated/roki_types.h"

namespace rok::kernels {

enum class Extremum { Min, Max };

template <Extremum E, class T>
inline T better(T a, T b) {
    if constexpr (E == Extremum::Max)
        return a > b ? a : b;
    else
        return a < b ? a : b;
}

// dst[i] = better(...better(better(src[0][i], src[1][i]), src[2][i])..., src[count-1][i])
// for i in 0..n-1, count >= 1 (count 1 copies). dst may be one of the
// sources, and a source may overlap dst from a later start (the samples go
// forward); then the head and tail go one sample at a time, otherwise they
// are vectors that overlap the body.
//
// `stream` (here and below), for images larger than the caches, where
// memory bounds the pass: the body reaches dst by streaming stores (the
// caller fences; here and in the 3x3 pair its whole 64-byte lines, in the
// rectangle passes its aligned vectors), and the fused passes (samples of
// four bytes or more) prefetch the source rows new to them. The results are
// the same. Here it serves count 2 only.
template <class T, Extremum E>
void extrema_rows(const T* const* src, int count, T* dst, int n, bool stream = false);

// Two results that share sources: with mid = the extremum of shared[0] ..
// shared[ns-1] in order (ns >= 1), d0 is mid folded with first[0 .. n0-1]
// and d1 mid folded with second[0 .. n1-1], each in order (acc =
// better(acc, x)). The shared sources are read once for both. d0 and d1
// must not overlap each other or a source.
template <class T, Extremum E>
void extrema_rows_shared(const T* const* shared, int ns, const T* const* first, int n0, const T* const* second,
                         int n1, T* d0, T* d1, int n);

// One channel, a run of 2^levels samples, levels 1 to 3:
//     d[i] = extremum of v[i .. i + 2^levels - 1], i in 0..n-1,
// formed by doubling (pairs, then pairs of pairs) with every level held in
// registers. Reads v[0 .. n + 2^levels - 2]; d must not overlap v.
template <class T, Extremum E>
void extrema_doubling(const T* v, T* d, int n, int levels);

// Running extrema from the last source up: dst[k][i] = better(src[k][i],
// next(k)[i]) for k = count - 1 down to 0, i in 0..n-1, where next(k) is
// dst[k + 1] and, for the last, src[count] (count >= 1). Each source is read
// and each result stored once; no destination may overlap a source or
// another destination, and the destinations share their alignment.
template <class T, Extremum E>
void extrema_suffixes(const T* const* src, int count, T* const* dst, int n);

// One channel, the column and row passes of a rectangle fused into one pass
// over a row, for masks with running extrema in height:
//     m[i]   = better(b[i], c[i])          (written to mOut when not null)
//     col[i] = better(a[i], m[i])           i in 0 .. n + width - 2
//     d[i]   = extremum of col[i .. i + width - 1], i in 0 .. n - 1
// with width = 2^levels + rest, levels 1 to 3 (to 4 where sizeof(T) <= 4),
// 0 <= rest <= 2^levels and rest * sizeof(T) <= 32. The run of 2^levels is
// formed by doubling in registers, the same pairs wherever a sample lies,
// and a rest joins it as better(run at i, run at i + rest). mOut may be b (a
// running extremum kept in place: b is read at each sample before it is
// replaced, and a sample formed twice comes out the same); no other
// argument may overlap d or mOut. `fetch` prefetches c (the row new to the
// pass) as `stream` does, for a pass whose results go to scratch rather
// than to the destination.
template <class T, Extremum E>
void extrema_rect_row(const T* a, const T* b, const T* c, T* mOut, T* d, int n, int levels, int rest,
                      bool stream = false, bool fetch = false);

// Two rows of extrema_rect_row at once, for samples of up to four bytes:
// row 0 from a0, b0, c0 and row 1 from a1, (chain ? row 0's m : b1), c1,
// with row 1's m written to mOut when not null (mOut may be b0 or b1; row
// 0's m is not written). The two rows share each vector, one in each
// 16-byte half, so that the doublings shift within the halves. Takes levels
// with 2^(levels-1) * sizeof(T) <= 16 (and any rest up to 2^levels); the
// results equal extrema_rect_row's for each row, bit for bit (the same pairs
// in the same operand order, so a NaN or a signed-zero tie is resolved
// alike). s0 and s1, where not null, are two scratch rows of n + rest
// samples or more, apart from everything else: one-byte rows with a rest and
// 3 levels or more (rectangles 9 or more wide) then keep their runs of
// 2^levels there and write each result once, by streaming stores over the
// whole lines of d0 and d1 (the caller fences); otherwise they are not used.
template <class T, Extremum E>
void extrema_rect_pair(const T* a0, const T* b0, const T* c0, const T* a1, const T* b1, const T* c1, bool chain,
                       T* mOut, T* d0, T* d1, int n, int levels, int rest, bool stream = false, T* s0 = nullptr,
                       T* s1 = nullptr);

// The 3x3 neighbourhood: with col(r, d) = better(r0[i+d], better(r1[i+d], r2[i+d])),
// dst[i] = better(better(col(-s), col(0)), col(+s)) for i in 0..n-1, where s
// is the sample distance of horizontal neighbours (the channel count). Reads
// r*[-s .. n-1+s].
template <class T, Extremum E>
void extrema_3x3(const T* r0, const T* r1, const T* r2, T* dst, int n, int s);

// Two consecutive output rows at once, the first from r0, r1, r2 and the
// second from r1, r2, r3: the rows in the middle are combined once for both.
// Each result equals what extrema_3x3 gives for its three rows only where the
// samples are integers or ordered floats (a NaN or a signed-zero tie may be
// resolved differently), so a caller chooses the pairing of rows by their
// position, never by the thread count or the in-place form. The rows new
// to a pair (r2, r3) are prefetched, for 8- and 16-bit samples whatever
// `stream`.
template <class T, Extremum E>
void extrema_3x3_pair(const T* r0, const T* r1, const T* r2, const T* r3, T* d0, T* d1, int n, int s,
                      bool stream = false);

}  // namespace rok::kernels
