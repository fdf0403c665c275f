#include "kernels/arith/logic.h"

#include <immintrin.h>

#include <cstdint>

namespace rok::kernels {

namespace {

template <ArithOp Op>
inline std::uint8_t scalar_op(std::uint8_t a, std::uint8_t b) {
    if constexpr (Op == ArithOp::And) return std::uint8_t(a & b);
    else if constexpr (Op == ArithOp::Or) return std::uint8_t(a | b);
    else return std::uint8_t(a ^ b);
}

template <ArithOp Op>
inline __m256i vector_op(__m256i a, __m256i b) {
    if constexpr (Op == ArithOp::And) return _mm256_and_si256(a, b);
    else if constexpr (Op == ArithOp::Or) return _mm256_or_si256(a, b);
    else return _mm256_xor_si256(a, b);
}

inline __m256i load(const std::uint8_t* p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)); }

}  // namespace

template <ArithOp Op>
void logic_bytes(const std::uint8_t* a, const std::uint8_t* b, std::uint8_t* d, std::size_t n) {
    std::size_t i = 0;
    if (n >= 64) {
        const std::size_t head = (32 - (reinterpret_cast<std::uintptr_t>(d) & 31)) & 31;
        for (; i < head; ++i) d[i] = scalar_op<Op>(a[i], b[i]);
        // Two vectors a step, both loaded before either is stored (in place).
        for (; i + 64 <= n; i += 64) {
            const __m256i r0 = vector_op<Op>(load(a + i), load(b + i));
            const __m256i r1 = vector_op<Op>(load(a + i + 32), load(b + i + 32));
            _mm256_store_si256(reinterpret_cast<__m256i*>(d + i), r0);
            _mm256_store_si256(reinterpret_cast<__m256i*>(d + i + 32), r1);
        }
        if (i + 32 <= n) {
            _mm256_store_si256(reinterpret_cast<__m256i*>(d + i), vector_op<Op>(load(a + i), load(b + i)));
            i += 32;
        }
    }
    for (; i < n; ++i) d[i] = scalar_op<Op>(a[i], b[i]);
}

template <ArithOp Op>
void logic_constant_bytes(const std::uint8_t* s, const std::uint8_t* value, int period, std::uint8_t* d,
                          std::size_t n) {
    std::size_t i = 0;
    int c = 0;  // the constant's byte for byte i
    auto scalar = [&](std::size_t to) {
        for (; i < to; ++i, c = c + 1 == period ? 0 : c + 1) d[i] = scalar_op<Op>(s[i], value[c]);
    };
    if (n >= 128) {
        scalar((32 - (reinterpret_cast<std::uintptr_t>(d) & 31)) & 31);
        // Three vectors hold one period of every pixel size (96 bytes is a
        // multiple of each), so the constant stays in registers.
        alignas(32) std::uint8_t lanes[96];
        for (int j = 0, k = c; j < 96; ++j, k = k + 1 == period ? 0 : k + 1) lanes[j] = value[k];
        const __m256i v0 = load(lanes), v1 = load(lanes + 32), v2 = load(lanes + 64);
        for (; i + 96 <= n; i += 96) {
            const __m256i r0 = vector_op<Op>(load(s + i), v0);
            const __m256i r1 = vector_op<Op>(load(s + i + 32), v1);
            const __m256i r2 = vector_op<Op>(load(s + i + 64), v2);
            _mm256_store_si256(reinterpret_cast<__m256i*>(d + i), r0);
            _mm256_store_si256(reinterpret_cast<__m256i*>(d + i + 32), r1);
            _mm256_store_si256(reinterpret_cast<__m256i*>(d + i + 64), r2);
        }
        const __m256i rest[2] = {v0, v1};
        int k = 0;
        for (; i + 32 <= n; i += 32, ++k)
            _mm256_store_si256(reinterpret_cast<__m256i*>(d + i), vector_op<Op>(load(s + i), rest[k]));
        c = int((std::size_t(c) + 32 * std::size_t(k)) % std::size_t(period));
    }
    scalar(n);
}

template void logic_bytes<ArithOp::And>(const std::uint8_t*, const std::uint8_t*, std::uint8_t*, std::size_t);
template void logic_bytes<ArithOp::Or>(const std::uint8_t*, const std::uint8_t*, std::uint8_t*, std::size_t);
template void logic_bytes<ArithOp::Xor>(const std::uint8_t*, const std::uint8_t*, std::uint8_t*, std::size_t);
template void logic_constant_bytes<ArithOp::And>(const std::uint8_t*, const std::uint8_t*, int, std::uint8_t*, std::size_t);
template void logic_constant_bytes<ArithOp::Or>(const std::uint8_t*, const std::uint8_t*, int, std::uint8_t*, std::size_t);
template void logic_constant_bytes<ArithOp::Xor>(const std::uint8_t*, const std::uint8_t*, int, std::uint8_t*, std::size_t);

}  // namespace rok::kernels
