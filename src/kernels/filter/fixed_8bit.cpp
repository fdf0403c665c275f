// Fixed-filter kernels of 8-bit sources.
#include "kernels/filter/fixed_kernel.h"

namespace rok::kernels::fixed {

void select(Fixed f, int size, Strip<Rok8u, Rok8u>& fn) { fn = same_type<Rok8u, Rok8u>(f, size); }
void select(Fixed f, int size, Strip<Rok8u, Rok16s>& fn) { fn = derivative<Rok8u, Rok16s>(f, size); }
void select(Fixed f, int size, Strip<Rok8s, Rok16s>& fn) { fn = derivative<Rok8s, Rok16s>(f, size); }

}  // namespace rok::kernels::fixed
