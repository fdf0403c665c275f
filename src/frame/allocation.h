// Image allocation with 64-byte row steps.
#pragma once

#include <cstdint>

#include "core/core.h"
#include "frame/layout.h"

namespace rok::frame {

template <class T, Layout L>
T* allocate_image(int widthPixels, int heightPixels, int* pStepBytes) {
    if (!pStepBytes) return nullptr;
    if (widthPixels < 1 || heightPixels < 1) {
        *pStepBytes = 0;
        return nullptr;
    }
    // Plain 32-bit products, wrapping as unsigned arithmetic does: callers of
    // absurd sizes get what the 32-bit formula gives, never a check.
    std::uint32_t rowBytes = std::uint32_t(widthPixels) * std::uint32_t(channels(L)) * std::uint32_t(sizeof(T));
    std::uint32_t step = (rowBytes + 63u) & ~63u;
    *pStepBytes = std::int32_t(step);
    return static_cast<T*>(rokMalloc(std::int32_t(std::uint32_t(heightPixels) * step)));
}

}  // namespace rok::frame
