#pragma once

#include <vector>

// One row per export: its name and, unless the export has no null-pointer
// check, a call with every pointer argument null and the status it must give.
struct ExportProbe {
    const char* name;
    int (*call)();
    int expected;
};

const std::vector<ExportProbe>& export_probes();
