// Sets the floating-point rounding control for the lifetime of a conversion
// call and gives the caller's mode back on every way out of it.
#pragma once

#include <cfenv>

namespace rok::convert {

class RoundingGuard {
public:
    // feMode is FE_TOWARDZERO, FE_TONEAREST...; kKeep leaves the mode alone.
    static constexpr int kKeep = -1;
    explicit RoundingGuard(int feMode) : saved_(std::fegetround()) {
        changed_ = feMode != kKeep && feMode != saved_;
        if (changed_) std::fesetround(feMode);
    }
    ~RoundingGuard() {
        if (changed_) std::fesetround(saved_);
    }
    RoundingGuard(const RoundingGuard&) = delete;
    RoundingGuard& operator=(const RoundingGuard&) = delete;

private:
    int saved_;
    bool changed_;
};

// The rounding control that a conversion's mode argument asks for: 0
// truncation, 1 nearest-even; any other mode rounds in software (ties away
// from zero) and needs no change.
inline int fe_mode_for(int roundMode) {
    return roundMode == 0 ? FE_TOWARDZERO : (roundMode == 1 ? FE_TONEAREST : RoundingGuard::kKeep);
}

}  // namespace rok::convert
