// The loop shared by the conversion kernels: dst[i] = op(i) for i < n, with
// an optional streaming path. Included only by the kernel translation units
// (it carries AVX2 code); each kernel states its rule as a scalar `op` that
// the compiler vectorises, so the readable rule and the fast loop are one.
#pragma once

#include <immintrin.h>

#include <cstdint>

namespace rok::kernels::engine {

// Elements per block of the streaming path: 64 samples is 64 to 256 bytes,
// always a whole number of 32-byte streaming stores.
constexpr int kBlock = 64;

template <class D, class Op>
inline void plain(D* dst, int begin, int end, Op& op) {
    for (int i = begin; i < end; ++i) dst[i] = op(i);
}

// Non-temporal path for outputs far larger than the cache: a scalar head up
// to a 64-byte destination boundary (so that no cache line gets both kinds
// of store, which costs a read of the line and a piecemeal write), then
// blocks computed into an aligned stack block and streamed out, then the
// scalar tail. No fence here: a padded image calls the kernel once per row,
// and a fence drains every pending streaming store, so the family ends its
// whole run of rows with one (store_fence in copy_move.h).
template <class D, class Op>
inline void streamed(D* dst, int n, Op& op) {
    const std::uintptr_t addr = reinterpret_cast<std::uintptr_t>(dst);
    if (addr % sizeof(D) != 0) return plain(dst, 0, n, op);  // can never reach a boundary
    int head = int(((64 - addr % 64) % 64) / sizeof(D));
    if (head > n) head = n;
    plain(dst, 0, head, op);
    int i = head;
    alignas(32) D block[kBlock];
    for (; i + kBlock <= n; i += kBlock) {
        for (int j = 0; j < kBlock; ++j) block[j] = op(i + j);
        const __m256i* from = reinterpret_cast<const __m256i*>(block);
        __m256i* to = reinterpret_cast<__m256i*>(dst + i);
        for (unsigned k = 0; k < kBlock * sizeof(D) / 32; ++k) _mm256_stream_si256(to + k, _mm256_load_si256(from + k));
    }
    plain(dst, i, n, op);
}

template <class D, class Op>
inline void run(D* dst, int n, bool stream, Op op) {
    if (stream)
        streamed(dst, n, op);
    else
        plain(dst, 0, n, op);
}

}  // namespace rok::kernels::engine
