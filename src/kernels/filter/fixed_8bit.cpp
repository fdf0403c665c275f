// Fixed-filter kernels of 8-bit sources.
#include "kernels/filter/fixed_kernel.h"

namespace rok::kernels::fixed {

void select(Fixed f, int size, Strip<Rok8u, Rok8u>& fn) {
    using S = Rok8u;
    using D = Rok8u;
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

// The derivative filters with the full signed result.
template <class S>
Strip<S, Rok16s> derivative(Fixed f, int size) {
    using D = Rok16s;
    const bool five = size == 5;
    switch (f) {
        case Fixed::SobelVert: return five ? strip_of<Fixed::SobelVert, 5, S, D>() : strip_of<Fixed::SobelVert, 3, S, D>();
        case Fixed::SobelHoriz: return five ? strip_of<Fixed::SobelHoriz, 5, S, D>() : strip_of<Fixed::SobelHoriz, 3, S, D>();
        case Fixed::SobelVertSecond:
            return five ? strip_of<Fixed::SobelVertSecond, 5, S, D>() : strip_of<Fixed::SobelVertSecond, 3, S, D>();
        case Fixed::SobelHorizSecond:
            return five ? strip_of<Fixed::SobelHorizSecond, 5, S, D>() : strip_of<Fixed::SobelHorizSecond, 3, S, D>();
        case Fixed::SobelCross: return five ? strip_of<Fixed::SobelCross, 5, S, D>() : strip_of<Fixed::SobelCross, 3, S, D>();
        case Fixed::ScharrVert: return strip_of<Fixed::ScharrVert, 3, S, D>();
        case Fixed::ScharrHoriz: return strip_of<Fixed::ScharrHoriz, 3, S, D>();
        case Fixed::Laplace: return five ? strip_of<Fixed::Laplace, 5, S, D>() : strip_of<Fixed::Laplace, 3, S, D>();
        default: return nullptr;
    }
}

void select(Fixed f, int size, Strip<Rok8u, Rok16s>& fn) { fn = derivative<Rok8u>(f, size); }
void select(Fixed f, int size, Strip<Rok8s, Rok16s>& fn) { fn = derivative<Rok8s>(f, size); }

}  // namespace rok::kernels::fixed
