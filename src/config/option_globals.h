// The fourteen option globals: read once at start-up, afterwards changed only through the option
// pipe (and NoJobRestore forced by the administrative command-line options). Any thread reads them.
// Their names, defaults, reading order and run-time change rule are rows of the settings table.
#pragma once

#include <atomic>
#include <cstdint>

#include "printserver/settings_table.h"

namespace vx {

class Czelprsrv;

struct OptionGlobals {
    std::atomic<int32_t> ZELUserAsOwner{BuiltInDefault("ZELUserAsOwner")};
    std::atomic<int32_t> UseOldTitle{BuiltInDefault("UseOldTitle")};
    std::atomic<int32_t> ProcessingMode{BuiltInDefault("ProcessingMode")};
    std::atomic<int32_t> ConnectionMode{BuiltInDefault("ConnectionMode")};
    std::atomic<int32_t> TestMode{BuiltInDefault("TestMode")};
    std::atomic<int32_t> RestartAfterJobs{BuiltInDefault("RestartAfterJobs")};
    std::atomic<int32_t> NoStatus{BuiltInDefault("NoStatus")};
    std::atomic<int32_t> NoJobRestore{BuiltInDefault("NoJobRestore")};
    std::atomic<int32_t> NoLogFileSwitch{BuiltInDefault("NoLogFileSwitch")};
    std::atomic<int32_t> IgnoreDCError{BuiltInDefault("IgnoreDCError")};
    std::atomic<int32_t> UseEnhancedSW{BuiltInDefault("UseEnhancedSW")};
    std::atomic<int32_t> UseNonASCII{BuiltInDefault("UseNonASCII")};
    std::atomic<int32_t> KeepJobSequence{BuiltInDefault("KeepJobSequence")};
    std::atomic<int32_t> LogTimeCheck{BuiltInDefault("LogTimeCheck")};
};

extern OptionGlobals g_Options;

// An option global: its row of the settings table and the global that holds it.
struct OptionGlobalEntry {
    const Setting* setting;
    std::atomic<int32_t> OptionGlobals::*field;
};

// The option globals in the order start-up reads them.
const OptionGlobalEntry* OptionGlobalTable(int* count);

// Reads every option global from the settings store, in table order.
void ReadOptionGlobals(Czelprsrv& settings);

}  // namespace vx
