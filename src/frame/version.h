#pragma once

#include "roki.h"

namespace rok::frame {
const RokLibraryVersion* lib_version();
}
