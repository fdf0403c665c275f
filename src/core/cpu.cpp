// Load-time processor identification: the initialised flag and the cache sizes
// that the block-copy routines read. Nothing is printed, refused or configured.
#include <cpuid.h>

#include <algorithm>
#include <cstdint>

#include "core/core.h"

namespace rok::core {

int initialised = 0;
int l2_cache_bytes = 0;
int l2_cache_half = 0;

namespace {

int g_max_cache_bytes = 0;

struct Regs {
    unsigned a = 0, b = 0, c = 0, d = 0;
};

Regs cpuid(unsigned leaf, unsigned sub = 0) {
    Regs r;
    __cpuid_count(leaf, sub, r.a, r.b, r.c, r.d);
    return r;
}

bool vendor_is(const Regs& leaf0, const char (&name)[13]) {
    const unsigned* w = reinterpret_cast<const unsigned*>(name);
    unsigned w0 = w[0], w1 = w[1], w2 = w[2];
    return leaf0.b == w0 && leaf0.d == w1 && leaf0.c == w2;
}

// Walks a deterministic cache-parameter leaf (4 on Intel, 0x8000001D on AMD):
// each sub-leaf describes one cache until the type field reads 0.
std::int64_t largest_from_cache_leaf(unsigned leaf) {
    std::int64_t largest = 0;
    for (unsigned sub = 0; sub < 16; ++sub) {
        Regs r = cpuid(leaf, sub);
        if ((r.a & 0x1F) == 0) break;
        std::int64_t ways = ((r.b >> 22) & 0x3FF) + 1;
        std::int64_t partitions = ((r.b >> 12) & 0x3FF) + 1;
        std::int64_t line = (r.b & 0xFFF) + 1;
        std::int64_t sets = std::int64_t(r.c) + 1;
        largest = std::max(largest, ways * partitions * line * sets);
    }
    return largest;
}

// Priority 101 runs before 102: the flag is set before identification.
__attribute__((constructor(101))) void set_initialised_flag() {
    if (initialised == 0) initialised = 1;
}

__attribute__((constructor(102))) void identify_processor() {
    // On x86-64 the identification instruction always exists.
    Regs leaf0 = cpuid(0);
    unsigned max_ext = cpuid(0x80000000u).a;
    std::int64_t l2 = 0, l3 = 0;
    if (max_ext >= 0x80000006u) {
        Regs r = cpuid(0x80000006u);
        l2 = std::int64_t(r.c >> 16) * 1024;
        l3 = std::int64_t(r.d >> 18) * 512 * 1024;
    }
    l2_cache_bytes = int(l2);
    l2_cache_half = int(l2 / 2);

    std::int64_t largest = 0;
    if (vendor_is(leaf0, "GenuineIntel") && leaf0.a >= 4) {
        largest = largest_from_cache_leaf(4);
    } else if (max_ext >= 0x8000001Du) {
        largest = largest_from_cache_leaf(0x8000001Du);
    }
    // The deterministic leaves describe each cache exactly; the legacy leaf's
    // level-3 field is a coarse upper bound, used only when they say nothing.
    if (largest == 0) largest = std::max(l2, l3);
    g_max_cache_bytes = int(std::min<std::int64_t>(largest, 0x7FFFFFFF));
}

}  // namespace

int max_cache_bytes() { return g_max_cache_bytes; }

}  // namespace rok::core
