#pragma once

#include "frame/generated/roki_types.h"

namespace rok::frame {
const RokLibraryVersion* lib_version();
}
