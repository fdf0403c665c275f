#include "kernels/channels.h"

#include <cstdint>
#include <cstring>

namespace rok::kernels {

namespace {
template <class U>
void copy_ac4_as(const void* src, void* dst, int n) {
    const U* s = static_cast<const U*>(src);
    U* d = static_cast<U*>(dst);
    for (int i = 0; i < n; ++i) {
        d[4 * i + 0] = s[4 * i + 0];
        d[4 * i + 1] = s[4 * i + 1];
        d[4 * i + 2] = s[4 * i + 2];
    }
}
}  // namespace

void copy_ac4(const void* src, void* dst, int n, std::size_t sampleBytes) {
    switch (sampleBytes) {
        case 1: return copy_ac4_as<std::uint8_t>(src, dst, n);
        case 2: return copy_ac4_as<std::uint16_t>(src, dst, n);
        case 4: return copy_ac4_as<std::uint32_t>(src, dst, n);
        default: return copy_ac4_as<std::uint64_t>(src, dst, n);
    }
}

}  // namespace rok::kernels
