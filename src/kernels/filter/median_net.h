// Comparator networks for the median kernels, built and checked at compile
// time. A network is written as a plan (sort these wires, merge these sorted
// lists) and then trimmed for the ranks the kernel actually wants:
//
//   * the plan's inputs are declared as sorted groups (a free wire is a group
//     of one), and the network is run on every 0/1 input that respects them;
//     by the 0-1 principle a comparator whose two wires are already in order
//     on every such input does nothing on any real input and is dropped, and
//     one whose wires are always reversed becomes a renaming of the wires;
//   * working back from the wanted outputs, a comparator whose minimum (or
//     maximum) nobody reads keeps only the half that is read.
//
// The same 0/1 run then proves that each wanted output holds its rank for
// every input (checked by static_assert where the network is declared), so
// a wrong plan fails to compile instead of producing a wrong median.
#pragma once

#include <cstdint>
#include <utility>

namespace rok::kernels::net {

constexpr int kMaxWires = 32;
constexpr int kMaxComparators = 192;
constexpr int kMaxPatterns = 1024;
constexpr int kPatternWords = kMaxPatterns / 64;

// After the comparator wire lo holds the smaller value and hi the larger;
// keep says which of the two is computed (1 min, 2 max, 3 both).
struct Comparator {
    std::uint8_t lo, hi, keep;
};

// An ordered list of wires (ascending values once sorted).
struct Wires {
    std::uint8_t w[kMaxWires]{};
    int n = 0;
    constexpr void add(int wire) { w[n++] = std::uint8_t(wire); }
    constexpr std::uint8_t operator[](int i) const { return w[i]; }
};

constexpr Wires range(int first, int count) {
    Wires r;
    for (int i = 0; i < count; ++i) r.add(first + i);
    return r;
}

// A plan in the making: comparators in order, and the sorted input groups.
struct Plan {
    int wires = 0;
    Comparator c[kMaxComparators]{};
    int size = 0;
    Wires groups[kMaxWires]{};
    int ngroups = 0;

    // Declares count new wires that arrive sorted (count 1: a free wire).
    constexpr Wires input(int count) {
        Wires g = range(wires, count);
        wires += count;
        groups[ngroups++] = g;
        return g;
    }
    constexpr void compare(int lo, int hi) { c[size++] = Comparator{std::uint8_t(lo), std::uint8_t(hi), 3}; }
};

// Batcher's odd-even merge of two sorted lists of any lengths. Each list is
// padded to a power of two with values above everything; a comparator that
// would move a real value below a pad is a renaming, so no pad wire exists.
constexpr Wires merge(Plan& p, const Wires& a, const Wires& b) {
    int half = 1;
    while (half < a.n || half < b.n) half *= 2;
    int slot[2 * kMaxWires]{};  // wire at each position, -1 for a pad
    for (int i = 0; i < half; ++i) {
        slot[i] = i < a.n ? a[i] : -1;
        slot[half + i] = i < b.n ? b[i] : -1;
    }
    auto cmp = [&](int i, int j) {
        if (slot[i] >= 0 && slot[j] >= 0) p.compare(slot[i], slot[j]);
        else if (slot[i] < 0 && slot[j] >= 0) std::swap(slot[i], slot[j]);
    };
    // Distance k halves each round; at distance k the comparators join
    // positions j+i and j+i+k for j = k, 3k, 5k ... (j = 0 in the first round).
    const int total = 2 * half;
    for (int k = half; k >= 1; k /= 2)
        for (int j = k % half; j + k < total; j += 2 * k)
            for (int i = 0; i < k && i + j + k < total; ++i) cmp(i + j, i + j + k);
    Wires out;
    for (int i = 0; i < 2 * half; ++i)
        if (slot[i] >= 0) out.add(slot[i]);
    return out;
}

// Sorts a list: the known smallest networks up to five wires, merges above.
constexpr Wires sort(Plan& p, const Wires& in) {
    constexpr std::uint8_t k3[][2] = {{0, 1}, {1, 2}, {0, 1}};
    constexpr std::uint8_t k4[][2] = {{0, 1}, {2, 3}, {0, 2}, {1, 3}, {1, 2}};
    constexpr std::uint8_t k5[][2] = {{0, 1}, {3, 4}, {2, 4}, {2, 3}, {0, 3}, {0, 2}, {1, 4}, {1, 3}, {1, 2}};
    auto emit = [&](const auto& pairs) {
        for (const auto& q : pairs) p.compare(in[q[0]], in[q[1]]);
    };
    if (in.n <= 1) return in;
    if (in.n == 2) p.compare(in[0], in[1]);
    else if (in.n == 3) emit(k3);
    else if (in.n == 4) emit(k4);
    else if (in.n == 5) emit(k5);
    else {
        Wires a, b;
        for (int i = 0; i < in.n; ++i) (i < in.n / 2 ? a : b).add(in[i]);
        return merge(p, sort(p, a), sort(p, b));
    }
    return in;
}

// A trimmed network and the wire that holds each wanted output.
struct Network {
    int wires = 0;
    Comparator c[kMaxComparators]{};
    int size = 0;
    std::uint8_t out[kMaxWires]{};
    int outs = 0;
    bool proven = false;  // every output held its rank on every 0/1 input
};

namespace detail {

struct Bits {
    std::uint64_t w[kPatternWords]{};
};

// The value of every wire on every 0/1 input that respects the groups:
// pattern k gives each group a number of zeros (mixed radix over the groups),
// and a sorted group holds its zeros on its first wires.
struct Patterns {
    Bits v[kMaxWires]{};
    int count = 1;
    int zeros[kMaxPatterns]{};  // zeros in the whole input, per pattern
};

constexpr Patterns patterns(const Plan& p) {
    Patterns s;
    for (int g = 0; g < p.ngroups; ++g) {
        s.count *= p.groups[g].n + 1;
        if (s.count > kMaxPatterns) return s;  // too many to enumerate: trim refuses
    }
    for (int k = 0; k < s.count; ++k) {
        int rest = k;
        for (int g = 0; g < p.ngroups; ++g) {
            const Wires& grp = p.groups[g];
            const int z = rest % (grp.n + 1);
            rest /= grp.n + 1;
            s.zeros[k] += z;
            for (int i = z; i < grp.n; ++i) s.v[grp[i]].w[k / 64] |= std::uint64_t(1) << (k % 64);
        }
    }
    return s;
}

constexpr bool never_above(const Bits& a, const Bits& b) {  // a <= b on every pattern
    for (int i = 0; i < kPatternWords; ++i)
        if (a.w[i] & ~b.w[i]) return false;
    return true;
}

}  // namespace detail

// Trims plan p for the outputs at ranks[0..nranks) (0-based positions in
// ascending order of all p.wires values), which `at` names as logical wires.
constexpr Network trim(const Plan& p, const Wires& at, const int* ranks, int nranks) {
    detail::Patterns s = detail::patterns(p);
    if (s.count > kMaxPatterns) return Network{};  // not proven
    // Forward: drop comparators already in order, rename where reversed.
    int phys[kMaxWires]{};
    for (int i = 0; i < kMaxWires; ++i) phys[i] = i;
    Comparator kept[kMaxComparators]{};
    int nkept = 0;
    for (int i = 0; i < p.size; ++i) {
        const int a = p.c[i].lo, b = p.c[i].hi;
        detail::Bits& va = s.v[a];
        detail::Bits& vb = s.v[b];
        if (detail::never_above(va, vb)) continue;
        if (detail::never_above(vb, va)) {
            std::swap(phys[a], phys[b]);
            std::swap(va, vb);
            continue;
        }
        for (int w = 0; w < kPatternWords; ++w) {
            const std::uint64_t lo = va.w[w] & vb.w[w], hi = va.w[w] | vb.w[w];
            va.w[w] = lo;
            vb.w[w] = hi;
        }
        kept[nkept++] = Comparator{std::uint8_t(phys[a]), std::uint8_t(phys[b]), 3};
    }
    Network n;
    n.wires = p.wires;
    bool needed[kMaxWires]{};
    for (int r = 0; r < nranks; ++r) {
        n.out[n.outs++] = std::uint8_t(phys[at[r]]);
        needed[phys[at[r]]] = true;
    }
    // Backward: keep only the halves that a later step or an output reads.
    Comparator rev[kMaxComparators]{};
    int nrev = 0;
    for (int i = nkept - 1; i >= 0; --i) {
        const Comparator c = kept[i];
        const int keep = (needed[c.lo] ? 1 : 0) | (needed[c.hi] ? 2 : 0);
        if (keep == 0) continue;
        rev[nrev++] = Comparator{c.lo, c.hi, std::uint8_t(keep)};
        needed[c.lo] = needed[c.hi] = true;
    }
    for (int i = 0; i < nrev; ++i) n.c[i] = rev[nrev - 1 - i];
    n.size = nrev;

    // Proof: run the trimmed network on every pattern (physical wires start
    // with their own inputs) and compare each output with its rank.
    detail::Patterns t = detail::patterns(p);
    for (int i = 0; i < n.size; ++i) {
        const Comparator c = n.c[i];
        detail::Bits a = t.v[c.lo], b = t.v[c.hi];
        for (int w = 0; w < kPatternWords; ++w) {
            if (c.keep & 1) t.v[c.lo].w[w] = a.w[w] & b.w[w];
            if (c.keep & 2) t.v[c.hi].w[w] = a.w[w] | b.w[w];
        }
    }
    n.proven = true;
    for (int r = 0; r < nranks; ++r)
        for (int k = 0; k < s.count; ++k) {
            // The value of rank ranks[r] is 1 exactly when fewer zeros exist.
            const bool one = (t.v[n.out[r]].w[k / 64] >> (k % 64)) & 1;
            if (one != (t.zeros[k] <= ranks[r])) n.proven = false;
        }
    return n;
}

// Applies network N to the values v[0..N.wires) with the lane operations O
// (O::min, O::max and O::sort2(a, b) leaving min in a and max in b). Every
// index is a constant, so the values stay in registers.
template <class O, const Network& N, class V, std::size_t... I>
inline void run(V* v, std::index_sequence<I...>) {
    auto step = [&](auto ci) {
        constexpr Comparator c = N.c[decltype(ci)::value];
        if constexpr (c.keep == 3) O::sort2(v[c.lo], v[c.hi]);
        else if constexpr (c.keep == 1) v[c.lo] = O::min(v[c.lo], v[c.hi]);
        else v[c.hi] = O::max(v[c.lo], v[c.hi]);
    };
    (step(std::integral_constant<std::size_t, I>{}), ...);
}

template <class O, const Network& N, class V>
inline void run(V* v) {
    run<O, N>(v, std::make_index_sequence<std::size_t(N.size)>{});
}

}  // namespace rok::kernels::net
