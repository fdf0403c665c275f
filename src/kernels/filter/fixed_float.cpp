// Fixed-filter kernels of float data. The sums must equal the plain
// left-to-right evaluation of each plan lane for lane, so no multiply and
// add may be fused.
#pragma GCC optimize("fp-contract=off")

#include "kernels/filter/fixed_kernel.h"

namespace rok::kernels::fixed {

void select(Fixed f, int size, Strip<Rok32f, Rok32f>& fn) {
    fn = derivative<Rok32f, Rok32f>(f, size);
    if (fn == nullptr) fn = same_type<Rok32f, Rok32f>(f, size);
}

}  // namespace rok::kernels::fixed
