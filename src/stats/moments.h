// Image moments: raw moments up to order 3 accumulated into a state record,
// then spatial, central, normalised and Hu moments read from it.
#pragma once

#include <cstdint>

#include "frame/generated/roki_types.h"
#include "frame/layout.h"

// The records behind the public header's opaque names: identifier, hint,
// channels of the last computation (-1 before one), then 3 channels of 16
// moments, entry 4n + m holding M(m, n) (entries with m + n > 3 stay 0).
struct RokiMomentState_64f {
    std::int32_t id;
    std::int32_t hint;
    std::int32_t channels;
    std::int32_t reserved;
    double m[3][16];
};
struct RokiMomentState_64s {
    std::int32_t id;
    std::int32_t hint;
    std::int32_t channels;
    std::int32_t reserved;
    std::int64_t m[3][16];
};
static_assert(sizeof(RokiMomentState_64f) == 400 && sizeof(RokiMomentState_64s) == 400);

namespace rok::stats {

constexpr int kMomentStateBytes = 400;

RokStatus moment_init_alloc_64f(RokiMomentState_64f** state, int hint);
RokStatus moment_init_alloc_64s(RokiMomentState_64s** state, int hint);
RokStatus moment_free_64f(RokiMomentState_64f* state);
RokStatus moment_free_64s(RokiMomentState_64s* state);
RokStatus moment_state_size_64s(int hint, int* size);
RokStatus moment_init_64s(RokiMomentState_64s* state, int hint);

template <class T, Layout L>
RokStatus moments_64f(const T* src, int step, RokiSize roi, RokiMomentState_64f* state);
template <class T, Layout L>
RokStatus moments_64s(const T* src, int step, RokiSize roi, RokiMomentState_64s* state);

RokStatus spatial_64f(const RokiMomentState_64f* s, int mOrd, int nOrd, int channel, RokiPoint offset, Rok64f* value);
RokStatus central_64f(const RokiMomentState_64f* s, int mOrd, int nOrd, int channel, Rok64f* value);
RokStatus normalized_spatial_64f(const RokiMomentState_64f* s, int mOrd, int nOrd, int channel, RokiPoint offset,
                                 Rok64f* value);
RokStatus normalized_central_64f(const RokiMomentState_64f* s, int mOrd, int nOrd, int channel, Rok64f* value);
RokStatus hu_64f(const RokiMomentState_64f* s, int channel, Rok64f* hu);

RokStatus spatial_64s(const RokiMomentState_64s* s, int mOrd, int nOrd, int channel, RokiPoint offset, Rok64s* value,
                      int scaleFactor);
RokStatus central_64s(const RokiMomentState_64s* s, int mOrd, int nOrd, int channel, Rok64s* value, int scaleFactor);
RokStatus normalized_spatial_64s(const RokiMomentState_64s* s, int mOrd, int nOrd, int channel, RokiPoint offset,
                                 Rok64s* value, int scaleFactor);
RokStatus normalized_central_64s(const RokiMomentState_64s* s, int mOrd, int nOrd, int channel, Rok64s* value,
                                 int scaleFactor);
RokStatus hu_64s(const RokiMomentState_64s* s, int channel, Rok64s* hu, int scaleFactor);

}  // namespace rok::stats
