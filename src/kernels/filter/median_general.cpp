#include "kernels/filter/median_general.h"

#include <algorithm>
#include <cstring>
#include <type_traits>

#include "kernels/filter/median_lanes.h"

namespace rok::kernels {

namespace {

using median::offset;

// ---- 16-bit sliding histogram ------------------------------------------------

constexpr int kFine = 65536, kMid = 4096, kCoarse = 256;

struct Hist16 {
    std::uint32_t* fine;
    std::uint32_t* mid;
    std::uint32_t* coarse;
    int top = 0;              // coarse bin that held the median last time
    std::uint32_t below = 0;  // samples in the coarse bins under `top`

    void add(unsigned v) {
        ++fine[v];
        ++mid[v >> 4];
        ++coarse[v >> 8];
        if (int(v >> 8) < top) ++below;
    }
    void remove(unsigned v) {
        --fine[v];
        --mid[v >> 4];
        --coarse[v >> 8];
        if (int(v >> 8) < top) --below;
    }
    // The value of 1-based rank `rank` (at most the number of samples held).
    unsigned select(std::uint32_t rank) {
        while (below + coarse[top] < rank) below += coarse[top++];
        while (below >= rank) below -= coarse[--top];
        std::uint32_t need = rank - below;
        unsigned m = unsigned(top) * 16;
        while (mid[m] < need) need -= mid[m++];
        unsigned f = m * 16;
        while (fine[f] < need) need -= fine[f++];
        return f;
    }
};

// 16-bit samples as unsigned keys in the same order.
inline unsigned key16(Rok16u v) { return v; }
inline unsigned key16(Rok16s v) { return unsigned(std::uint16_t(v)) ^ 0x8000u; }
template <class T>
T from_key16(unsigned k) {
    if constexpr (std::is_same_v<T, Rok16s>) return T(std::uint16_t(k ^ 0x8000u));
    else return T(k);
}

template <class T>
void hist16(const T* topLeft, std::ptrdiff_t step, const MaskGeometry& m, T* dst, std::ptrdiff_t dstStep,
            RokiSize roi, void* work) {
    Hist16 h[4];
    auto* counts = static_cast<std::uint32_t*>(work);
    std::memset(work, 0, hist16_bytes(m.channels));
    for (int c = 0; c < m.channels; ++c) {
        std::uint32_t* base = counts + std::size_t(c) * (kFine + kMid + kCoarse);
        h[c].fine = base;
        h[c].mid = base + kFine;
        h[c].coarse = base + kFine + kMid;
    }
    auto at = [&](int x, int y) { return offset(topLeft, y * step) + std::ptrdiff_t(x) * m.stride; };
    // Adds (+1) or removes (-1) the samples of columns x0..x1 in rows y0..y1.
    auto apply = [&](int x0, int x1, int y0, int y1, int sign) {
        for (int y = y0; y <= y1; ++y)
            for (int x = x0; x <= x1; ++x) {
                const T* p = at(x, y);
                for (int c = 0; c < m.channels; ++c) {
                    if (sign > 0) h[c].add(key16(p[c]));
                    else h[c].remove(key16(p[c]));
                }
            }
    };
    const int mw = m.width, mh = m.height;
    apply(0, mw - 1, 0, mh - 1, +1);
    int x = 0;
    for (int y = 0; y < roi.height; ++y) {
        if (y > 0) {
            apply(x, x + mw - 1, y - 1, y - 1, -1);
            apply(x, x + mw - 1, y + mh - 1, y + mh - 1, +1);
        }
        const int dir = y % 2 == 0 ? 1 : -1;
        T* out = offset(dst, y * dstStep);
        for (;;) {
            for (int c = 0; c < m.channels; ++c)
                out[std::size_t(x) * m.stride + c] = from_key16<T>(h[c].select(m.rank + 1));
            if ((dir > 0 && x == roi.width - 1) || (dir < 0 && x == 0)) break;
            if (dir > 0) {
                apply(x, x, y, y + mh - 1, -1);
                apply(x + mw, x + mw, y, y + mh - 1, +1);
            } else {
                apply(x + mw - 1, x + mw - 1, y, y + mh - 1, -1);
                apply(x - 1, x - 1, y, y + mh - 1, +1);
            }
            x += dir;
        }
    }
}

// ---- float selection ---------------------------------------------------------

// A key stored at any alignment in the caller's work buffer.
template <class K>
struct Unaligned {
    unsigned char bytes[sizeof(K)];
    K get() const {
        K k;
        std::memcpy(&k, bytes, sizeof k);
        return k;
    }
    void set(K k) { std::memcpy(bytes, &k, sizeof k); }
};

template <class T>
void select_row(const T* topLeft, std::ptrdiff_t step, const MaskGeometry& m, T* dst, int width, void* work) {
    using K = median::Key<T>;
    auto* keys = static_cast<Unaligned<K>*>(work);
    const std::size_t count = std::size_t(m.width) * std::size_t(m.height);
    auto less = [](const Unaligned<K>& a, const Unaligned<K>& b) { return a.get() < b.get(); };
    for (int x = 0; x < width; ++x)
        for (int c = 0; c < m.channels; ++c) {
            std::size_t i = 0;
            for (int r = 0; r < m.height; ++r) {
                const T* p = offset(topLeft, r * step) + std::size_t(x) * m.stride + c;
                for (int j = 0; j < m.width; ++j) keys[i++].set(median::to_key(p[std::size_t(j) * m.stride]));
            }
            std::nth_element(keys, keys + m.rank, keys + count, less);
            dst[std::size_t(x) * m.stride + c] = median::from_key<T>(keys[m.rank].get());
        }
}

}  // namespace

std::size_t hist16_bytes(int channels) { return std::size_t(channels) * (kFine + kMid + kCoarse) * 4; }

void median_hist16(const Rok16u* t, std::ptrdiff_t step, const MaskGeometry& m, Rok16u* d, std::ptrdiff_t ds,
                   RokiSize roi, void* work) {
    hist16(t, step, m, d, ds, roi, work);
}
void median_hist16(const Rok16s* t, std::ptrdiff_t step, const MaskGeometry& m, Rok16s* d, std::ptrdiff_t ds,
                   RokiSize roi, void* work) {
    hist16(t, step, m, d, ds, roi, work);
}

void median_select_row(const Rok32f* t, std::ptrdiff_t step, const MaskGeometry& m, Rok32f* d, int w, void* work) {
    select_row(t, step, m, d, w, work);
}
void median_select_row(const Rok64f* t, std::ptrdiff_t step, const MaskGeometry& m, Rok64f* d, int w, void* work) {
    select_row(t, step, m, d, w, work);
}

}  // namespace rok::kernels
