// The fourteen option globals: read once at start-up, afterwards changed only through the option
// pipe (and NoJobRestore forced by the administrative command-line options). Any thread reads them.
#pragma once

#include <atomic>
#include <cstdint>

namespace vx {

class Czelprsrv;

struct OptionGlobals {
    std::atomic<int32_t> ZELUserAsOwner{0};
    std::atomic<int32_t> UseOldTitle{1};
    std::atomic<int32_t> ProcessingMode{1};
    std::atomic<int32_t> ConnectionMode{1};
    std::atomic<int32_t> TestMode{0};
    std::atomic<int32_t> RestartAfterJobs{0};
    std::atomic<int32_t> NoStatus{0};
    std::atomic<int32_t> NoJobRestore{0};
    std::atomic<int32_t> NoLogFileSwitch{0};
    std::atomic<int32_t> IgnoreDCError{0};
    std::atomic<int32_t> UseEnhancedSW{0};
    std::atomic<int32_t> UseNonASCII{1};
    std::atomic<int32_t> KeepJobSequence{0};
    std::atomic<int32_t> LogTimeCheck{0};
};

extern OptionGlobals g_Options;

// How the option pipe may change an option global at run time.
enum OptionChange {
    kChangeNever = 0,       // read at start only
    kChangeGlobal = 1,      // the global changes
    kChangeAndForward = 2,  // the global changes and the print library is told
};

struct OptionGlobalEntry {
    const char* name;
    int32_t defaultValue;
    std::atomic<int32_t> OptionGlobals::*field;
    OptionChange change;
};

// The option globals in the order start-up reads them.
const OptionGlobalEntry* OptionGlobalTable(int* count);

// Reads every option global from the settings store, in table order.
void ReadOptionGlobals(Czelprsrv& settings);

}  // namespace vx
