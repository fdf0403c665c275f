// Fixed-filter kernels of 16-bit sources.
#include "kernels/filter/fixed_kernel.h"

namespace rok::kernels::fixed {

void select(Fixed f, int size, Strip<Rok16s, Rok16s>& fn) {
    using S = Rok16s;
    using D = Rok16s;
    const bool five = size == 5;
    switch (f) {
        case Fixed::PrewittVert: fn = strip_of<Fixed::PrewittVert, 3, S, D>(); break;
        case Fixed::PrewittHoriz: fn = strip_of<Fixed::PrewittHoriz, 3, S, D>(); break;
        case Fixed::SobelVert: fn = strip_of<Fixed::SobelVert, 3, S, D>(); break;
        case Fixed::SobelHoriz: fn = strip_of<Fixed::SobelHoriz, 3, S, D>(); break;
        case Fixed::Laplace:
        case Fixed::Hipass:
            if (!five) fn = strip_of<Fixed::Laplace, 3, S, D>();
            else if (f == Fixed::Laplace) fn = strip_of<Fixed::Laplace, 5, S, D>();
            else fn = strip_of<Fixed::Hipass, 5, S, D>();
            break;
        case Fixed::Lowpass: fn = five ? strip_of<Fixed::Lowpass, 5, S, D>() : strip_of<Fixed::Lowpass, 3, S, D>(); break;
        case Fixed::Gauss: fn = five ? strip_of<Fixed::Gauss, 5, S, D>() : strip_of<Fixed::Gauss, 3, S, D>(); break;
        case Fixed::Sharpen: fn = strip_of<Fixed::Sharpen, 3, S, D>(); break;
        default: fn = nullptr;
    }
}

void select(Fixed f, int size, Strip<Rok16u, Rok16u>& fn) {
    using S = Rok16u;
    using D = Rok16u;
    const bool five = size == 5;
    switch (f) {
        case Fixed::Lowpass: fn = five ? strip_of<Fixed::Lowpass, 5, S, D>() : strip_of<Fixed::Lowpass, 3, S, D>(); break;
        case Fixed::Gauss: fn = five ? strip_of<Fixed::Gauss, 5, S, D>() : strip_of<Fixed::Gauss, 3, S, D>(); break;
        default: fn = nullptr;
    }
}

}  // namespace rok::kernels::fixed
