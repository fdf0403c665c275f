// Row addressing and the common argument checks of the family code.
#pragma once

#include <cstddef>
#include <type_traits>

#include "frame/generated/roki_types.h"

namespace rok {

// Row y of an image: base + y * step bytes. Steps may be zero or negative.
template <class T>
inline T* row(T* base, int step, int y) {
    using Byte = std::conditional_t<std::is_const_v<T>, const char, char>;
    return reinterpret_cast<T*>(reinterpret_cast<Byte*>(base) + std::ptrdiff_t(step) * y);
}

inline bool bad_size(RokiSize roi) { return roi.width < 1 || roi.height < 1; }

template <class... P>
inline bool any_null(const P*... p) {
    return ((p == nullptr) || ...);
}

template <class... S>
inline bool any_step_below_one(S... steps) {
    return ((steps < 1) || ...);
}

// Whether rows of rowBytes laid at `step` form one contiguous run, so a row
// loop can treat the whole ROI as a single row.
inline bool contiguous(int step, int rowBytes) { return step == rowBytes; }

}  // namespace rok
