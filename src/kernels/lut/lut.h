// Row kernels of the look-up tables and palettes. Integer tables are built by
// the family code over the sample type's whole range; these kernels only
// apply them. Source and destination may be the same row (in-place forms).
#pragma once

#include <cstddef>
#include <cstdint>

#include "frame/generated/roki_types.h"

namespace rok::kernels {

// dst[i] = table[src[i]] for n bytes: sixteen 16-entry byte shuffles and a
// blend tree per 32 samples, no gathers.
void lut_8u(const Rok8u* src, Rok8u* dst, std::size_t n, const Rok8u* table);

// Four-channel pixels: channels 0..2 through table, dst's channel 3 kept.
void lut_8u_ac4(const Rok8u* src, Rok8u* dst, std::size_t pixels, const Rok8u* table);

// Pixels of nc interleaved samples: sample c < processed goes through
// tables[c], indexed by the sample's bits XOR flip (0x8000 moves a signed
// 16-bit range to table indices 0..65535); samples c >= processed are not
// written.
void lut_channels(const std::uint8_t* src, std::uint8_t* dst, std::size_t pixels, int nc, int processed,
                  const std::uint8_t* const* tables, unsigned flip);
void lut_channels(const std::uint16_t* src, std::uint16_t* dst, std::size_t pixels, int nc, int processed,
                  const std::uint16_t* const* tables, unsigned flip);

enum class LutShape { Constant, Linear, Cubic };

// One channel's piecewise curve over float samples. `increasing`: levels
// strictly increase, so at most one interval holds a value and a binary
// search finds it; otherwise the intervals are tried in order.
struct FloatCurve {
    LutShape shape;
    const Rok32f* levels;
    const Rok32f* values;
    int n;
    bool increasing;
};

// Per sample x of channel c < processed: the first interval k (in order) with
// levels[k] <= x < levels[k + 1] gives values[k] (Constant), values[k] +
// s (x - levels[k]) with the piece's slope s (Linear), or the cubic through
// levels j .. j + 3, j = clamp(k - 1, 0, n - 4) (Cubic; Linear where two of
// those levels coincide), evaluated in double and rounded once to float. A
// sample in no interval, NaN included, is copied.
void lut_32f(const Rok32f* src, Rok32f* dst, std::size_t pixels, int nc, int processed, const FloatCurve* curves);

// Palettes: destination sample c = tables[c][source sample c AND mask] for
// c < processed, with channel order reversed when `reverse` (destination c
// from source and table processed - 1 - c). dstNc may exceed srcNc: then the
// destination's last sample gets `alpha` when alpha >= 0 and is left as it
// was otherwise.
template <class S, class D>
void palette(const S* src, D* dst, std::size_t pixels, int srcNc, int dstNc, int processed, const D* const* tables,
             unsigned mask, bool reverse, std::int64_t alpha);

// One-channel palette onto three-byte samples: table entry i is the three
// bytes at table + 3 i.
template <class S>
void palette_24(const S* src, Rok8u* dst, std::size_t pixels, const Rok8u* table, unsigned mask);

}  // namespace rok::kernels
