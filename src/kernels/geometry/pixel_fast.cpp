// Vector blocks of the per-pixel interpolation (see pixel_rules.h for the
// rule each one reproduces).
#include "kernels/geometry/pixel_fast.h"

#include <immintrin.h>

#include "kernels/geometry/pixel_rules.h"

namespace rok::kernels::pixel {

template <class T, class P>
Block<T, P> fast_block(const PixelSource<T>&, const PixelRule&) {
    return nullptr;
}

template Block<Rok8u, float> fast_block<Rok8u, float>(const PixelSource<Rok8u>&, const PixelRule&);
template Block<Rok16u, float> fast_block<Rok16u, float>(const PixelSource<Rok16u>&, const PixelRule&);
template Block<Rok16s, float> fast_block<Rok16s, float>(const PixelSource<Rok16s>&, const PixelRule&);
template Block<Rok32f, float> fast_block<Rok32f, float>(const PixelSource<Rok32f>&, const PixelRule&);
template Block<Rok64f, double> fast_block<Rok64f, double>(const PixelSource<Rok64f>&, const PixelRule&);

}  // namespace rok::kernels::pixel
