// The status codes rokGetStatusString knows (generated from the status
// enumeration), for tests that walk the whole table.
#pragma once

#include "frame/generated/roki_types.h"

namespace rok::core {

struct StatusName {
    RokStatus code;
    const char* name;
};

extern const StatusName status_names[];
extern const int status_count;

}  // namespace rok::core
