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

template void logic_bytes<ArithOp::And>(const std::uint8_t*, const std::uint8_t*, std::uint8_t*, std::size_t);
template void logic_bytes<ArithOp::Or>(const std::uint8_t*, const std::uint8_t*, std::uint8_t*, std::size_t);
template void logic_bytes<ArithOp::Xor>(const std::uint8_t*, const std::uint8_t*, std::uint8_t*, std::size_t);

}  // namespace rok::kernels
