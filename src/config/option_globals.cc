#include "config/option_globals.h"

#include <array>
#include <string_view>

#include "printserver/zelprsrv.h"

namespace vx {

OptionGlobals g_Options;

namespace {

using G = OptionGlobals;

struct FieldOfSetting {
    const char* name;
    std::atomic<int32_t> G::*field;
};

// Which global holds which setting; the settings table says in which order they are read.
constexpr FieldOfSetting kFields[] = {
    {"ZELUserAsOwner", &G::ZELUserAsOwner},
    {"UseOldTitle", &G::UseOldTitle},
    {"ProcessingMode", &G::ProcessingMode},
    {"ConnectionMode", &G::ConnectionMode},
    {"TestMode", &G::TestMode},
    {"RestartAfterJobs", &G::RestartAfterJobs},
    {"NoStatus", &G::NoStatus},
    {"NoJobRestore", &G::NoJobRestore},
    {"NoLogFileSwitch", &G::NoLogFileSwitch},
    {"IgnoreDCError", &G::IgnoreDCError},
    {"UseEnhancedSW", &G::UseEnhancedSW},
    {"UseNonASCII", &G::UseNonASCII},
    {"KeepJobSequence", &G::KeepJobSequence},
    {"LogTimeCheck", &G::LogTimeCheck},
};
constexpr size_t kCount = sizeof kFields / sizeof kFields[0];

constexpr std::array<OptionGlobalEntry, kCount> InReadingOrder() {
    std::array<OptionGlobalEntry, kCount> entries{};
    for (const Setting& setting : kSettings) {
        if (setting.startOrder == 0 || setting.startOrder > kCount) continue;
        for (const FieldOfSetting& f : kFields) {
            if (std::string_view(f.name) == setting.name)
                entries[setting.startOrder - 1] = {&setting, f.field};
        }
    }
    return entries;
}

constexpr std::array<OptionGlobalEntry, kCount> kOptionGlobals = InReadingOrder();

// Every global has its row, every reading position one global, and no other row has one. Names
// are compared, not the table's pointers: GCC cannot compare those with null at compile time in a
// sanitizer build.
constexpr bool EveryGlobalHasItsPlace() {
    for (size_t place = 1; place <= kCount; ++place) {
        int rows = 0;
        for (const Setting& setting : kSettings) {
            if (setting.startOrder != place) continue;
            ++rows;
            bool hasGlobal = false;
            for (const FieldOfSetting& f : kFields)
                hasGlobal = hasGlobal || std::string_view(f.name) == setting.name;
            if (!hasGlobal) return false;
        }
        if (rows != 1) return false;
    }
    size_t withPlace = 0;
    for (const Setting& setting : kSettings) {
        if (setting.startOrder != 0) ++withPlace;
    }
    return withPlace == kCount;
}
static_assert(EveryGlobalHasItsPlace(), "option globals and settings table disagree");

}  // namespace

const OptionGlobalEntry* OptionGlobalTable(int* count) {
    *count = static_cast<int>(kOptionGlobals.size());
    return kOptionGlobals.data();
}

void ReadOptionGlobals(Czelprsrv& settings) {
    for (const OptionGlobalEntry& entry : kOptionGlobals) {
        const Setting& s = *entry.setting;
        (g_Options.*entry.field).store(settings.GetGlobalInt(s.name, s.defaultValue));
    }
}

}  // namespace vx
