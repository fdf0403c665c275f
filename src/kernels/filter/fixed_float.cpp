// Fixed-filter kernels of float data. The sums must equal the plain
// left-to-right evaluation of each plan lane for lane, so no multiply and
// add may be fused.
#pragma GCC optimize("fp-contract=off")

#include "kernels/filter/fixed_kernel.h"

namespace rok::kernels::fixed {

// Every float filter makes its rows straight from the source: the
// one-channel rows form each mid once per block whatever the mask; the
// others form a mid again for each offset that reads it, which still costs
// less than writing and reading back mid rows (a 1920x1080 Gauss 5x5 C3
// took a fifth of the time).
void select_rows(Fixed f, int size, Rows<Rok32f, Rok32f>& fn) {
    fn = nullptr;
    if (size != 3) {
        switch (f) {
            case Fixed::SobelVert: fn = fused_of<Fixed::SobelVert, 5>(); break;
            case Fixed::SobelHoriz: fn = fused_of<Fixed::SobelHoriz, 5>(); break;
            case Fixed::SobelVertSecond: fn = fused_of<Fixed::SobelVertSecond, 5>(); break;
            case Fixed::SobelHorizSecond: fn = fused_of<Fixed::SobelHorizSecond, 5>(); break;
            case Fixed::SobelCross: fn = fused_of<Fixed::SobelCross, 5>(); break;
            case Fixed::Laplace: fn = fused_of<Fixed::Laplace, 5>(); break;
            case Fixed::Hipass: fn = fused_of<Fixed::Hipass, 5>(); break;
            case Fixed::Lowpass: fn = fused_of<Fixed::Lowpass, 5>(); break;
            case Fixed::Gauss: fn = fused_of<Fixed::Gauss, 5>(); break;
            default: break;
        }
        return;
    }
    switch (f) {
        case Fixed::PrewittVert: fn = fused_of<Fixed::PrewittVert, 3>(); break;
        case Fixed::PrewittHoriz: fn = fused_of<Fixed::PrewittHoriz, 3>(); break;
        case Fixed::SobelVert: fn = fused_of<Fixed::SobelVert, 3>(); break;
        case Fixed::SobelHoriz: fn = fused_of<Fixed::SobelHoriz, 3>(); break;
        case Fixed::SobelVertSecond: fn = fused_of<Fixed::SobelVertSecond, 3>(); break;
        case Fixed::SobelHorizSecond: fn = fused_of<Fixed::SobelHorizSecond, 3>(); break;
        case Fixed::SobelCross: fn = fused_of<Fixed::SobelCross, 3>(); break;
        case Fixed::ScharrVert: fn = fused_of<Fixed::ScharrVert, 3>(); break;
        case Fixed::ScharrHoriz: fn = fused_of<Fixed::ScharrHoriz, 3>(); break;
        case Fixed::Laplace:
        case Fixed::Hipass: fn = fused_of<Fixed::Laplace, 3>(); break;  // the same mask at 3x3
        case Fixed::Lowpass: fn = fused_of<Fixed::Lowpass, 3>(); break;
        case Fixed::Gauss: fn = fused_of<Fixed::Gauss, 3>(); break;
        case Fixed::Sharpen: fn = fused_of<Fixed::Sharpen, 3>(); break;
    }
}

}  // namespace rok::kernels::fixed
