// Core services used inside the library (not exported).
#pragma once

// The types alone, so that core services do not pull in every export.
#include "frame/generated/roki_types.h"
#include "rokcore.h"

// Thread count for a parallel region, at least 1; asked afresh by every region.
int ownGetNumThreads();

namespace rok::core {

// Level-2 cache size in bytes and half of it, recorded once at load for the
// block-copy routines; 0 when the processor does not report it.
extern int l2_cache_bytes;
extern int l2_cache_half;

// Set to 1 by the first load-time initialiser.
extern int initialised;

// Largest cache size in bytes, recorded at load.
int max_cache_bytes();

}  // namespace rok::core
