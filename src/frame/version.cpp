#include "frame/version.h"

namespace rok::frame {

namespace {
// The build identity is fixed so that every build reports the same record.
constexpr RokLibraryVersion kVersion = {
    7, 1, 1, 37466, {'k', '3', '\0', '\0'}, "rokIP V256 (k3)", "7.1.1 (r37466)", "Sep 24 2012",
};
}  // namespace

const RokLibraryVersion* lib_version() { return &kVersion; }

}  // namespace rok::frame
