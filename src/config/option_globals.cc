#include "config/option_globals.h"

#include "printserver/zelprsrv.h"

namespace vx {

OptionGlobals g_Options;

namespace {

using G = OptionGlobals;

constexpr OptionGlobalEntry kOptionGlobals[] = {
    {"ZELUserAsOwner", 0, &G::ZELUserAsOwner, kChangeGlobal},
    {"UseOldTitle", 1, &G::UseOldTitle, kChangeAndForward},
    {"ProcessingMode", 1, &G::ProcessingMode, kChangeAndForward},
    {"ConnectionMode", 1, &G::ConnectionMode, kChangeGlobal},
    {"TestMode", 0, &G::TestMode, kChangeNever},
    {"RestartAfterJobs", 0, &G::RestartAfterJobs, kChangeAndForward},
    {"NoStatus", 0, &G::NoStatus, kChangeAndForward},
    {"NoJobRestore", 0, &G::NoJobRestore, kChangeAndForward},
    {"NoLogFileSwitch", 0, &G::NoLogFileSwitch, kChangeNever},
    {"IgnoreDCError", 0, &G::IgnoreDCError, kChangeAndForward},
    {"UseEnhancedSW", 0, &G::UseEnhancedSW, kChangeNever},
    {"UseNonASCII", 1, &G::UseNonASCII, kChangeNever},
    {"KeepJobSequence", 0, &G::KeepJobSequence, kChangeGlobal},
    {"LogTimeCheck", 0, &G::LogTimeCheck, kChangeAndForward},
};

}  // namespace

const OptionGlobalEntry* OptionGlobalTable(int* count) {
    *count = static_cast<int>(sizeof kOptionGlobals / sizeof kOptionGlobals[0]);
    return kOptionGlobals;
}

void ReadOptionGlobals(Czelprsrv& settings) {
    for (const OptionGlobalEntry& entry : kOptionGlobals)
        (g_Options.*entry.field).store(settings.GetGlobalInt(entry.name, entry.defaultValue));
}

}  // namespace vx
