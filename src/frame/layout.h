// Channel layouts as template arguments of the family code.
#pragma once

namespace rok {

enum class Layout { C1, C2, C3, C4, AC4 };

// Samples stored per pixel.
constexpr int channels(Layout l) {
    switch (l) {
        case Layout::C1: return 1;
        case Layout::C2: return 2;
        case Layout::C3: return 3;
        default: return 4;
    }
}

// Samples computed per pixel: AC4 leaves its alpha sample alone.
constexpr int processed_channels(Layout l) { return l == Layout::AC4 ? 3 : channels(l); }

}  // namespace rok
