// Fixed-filter kernels of 16-bit sources.
#include "kernels/filter/fixed_kernel.h"

namespace rok::kernels::fixed {

void select(Fixed f, int size, Strip<Rok16s, Rok16s>& fn) { fn = same_type<Rok16s, Rok16s>(f, size); }

// 16u has Lowpass and Gauss alone.
void select(Fixed f, int size, Strip<Rok16u, Rok16u>& fn) {
    using T = Rok16u;
    const bool five = size == 5;
    if (f == Fixed::Lowpass) fn = five ? strip_of<Fixed::Lowpass, 5, T, T>() : strip_of<Fixed::Lowpass, 3, T, T>();
    else if (f == Fixed::Gauss) fn = five ? strip_of<Fixed::Gauss, 5, T, T>() : strip_of<Fixed::Gauss, 3, T, T>();
    else fn = nullptr;
}

}  // namespace rok::kernels::fixed
