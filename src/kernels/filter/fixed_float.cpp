// Fixed-filter kernels of float data. The sums must equal the plain
// left-to-right evaluation of each plan lane for lane, so no multiply and
// add may be fused.
#pragma GCC optimize("fp-contract=off")

#include "kernels/filter/fixed_kernel.h"

namespace rok::kernels::fixed {

void select(Fixed f, int size, Strip<Rok32f, Rok32f>& fn) {
    using S = Rok32f;
    using D = Rok32f;
    const bool five = size == 5;
    switch (f) {
        case Fixed::PrewittVert: fn = strip_of<Fixed::PrewittVert, 3, S, D>(); break;
        case Fixed::PrewittHoriz: fn = strip_of<Fixed::PrewittHoriz, 3, S, D>(); break;
        case Fixed::SobelVert: fn = five ? strip_of<Fixed::SobelVert, 5, S, D>() : strip_of<Fixed::SobelVert, 3, S, D>(); break;
        case Fixed::SobelHoriz: fn = five ? strip_of<Fixed::SobelHoriz, 5, S, D>() : strip_of<Fixed::SobelHoriz, 3, S, D>(); break;
        case Fixed::SobelVertSecond:
            fn = five ? strip_of<Fixed::SobelVertSecond, 5, S, D>() : strip_of<Fixed::SobelVertSecond, 3, S, D>();
            break;
        case Fixed::SobelHorizSecond:
            fn = five ? strip_of<Fixed::SobelHorizSecond, 5, S, D>() : strip_of<Fixed::SobelHorizSecond, 3, S, D>();
            break;
        case Fixed::SobelCross: fn = five ? strip_of<Fixed::SobelCross, 5, S, D>() : strip_of<Fixed::SobelCross, 3, S, D>(); break;
        case Fixed::ScharrVert: fn = strip_of<Fixed::ScharrVert, 3, S, D>(); break;
        case Fixed::ScharrHoriz: fn = strip_of<Fixed::ScharrHoriz, 3, S, D>(); break;
        case Fixed::Laplace:
        case Fixed::Hipass:
            if (!five) fn = strip_of<Fixed::Laplace, 3, S, D>();
            else if (f == Fixed::Laplace) fn = strip_of<Fixed::Laplace, 5, S, D>();
            else fn = strip_of<Fixed::Hipass, 5, S, D>();
            break;
        case Fixed::Lowpass: fn = five ? strip_of<Fixed::Lowpass, 5, S, D>() : strip_of<Fixed::Lowpass, 3, S, D>(); break;
        case Fixed::Gauss: fn = five ? strip_of<Fixed::Gauss, 5, S, D>() : strip_of<Fixed::Gauss, 3, S, D>(); break;
        case Fixed::Sharpen: fn = strip_of<Fixed::Sharpen, 3, S, D>(); break;
    }
}

}  // namespace rok::kernels::fixed
