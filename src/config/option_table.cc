#include "config/option_table.h"

#include <cstring>

#include "printserver/settings_table.h"
#include "printserver/zelprsrv.h"

namespace vx {

namespace {

constexpr int CountSettings(uint8_t flag) {
    int count = 0;
    for (const Setting& setting : kSettings) {
        if ((setting.flags & flag) != 0) ++count;
    }
    return count;
}

// The reset list is the known list and three names the command line cannot set
// ("AbortAfterErrors", "ClusterResource", "ForceChanges"); administrators' scripts rely on both.
constexpr bool KnownSettingsAreReset() {
    for (const Setting& setting : kSettings) {
        if ((setting.flags & kSettingKnown) != 0 && (setting.flags & kSettingReset) == 0)
            return false;
    }
    return true;
}
static_assert(KnownSettingsAreReset());
static_assert(CountSettings(kSettingKnown) == 104);
static_assert(CountSettings(kSettingReset) == 107);

}  // namespace

bool IsKnownOption(const char* name) {
    if (name == nullptr) return false;
    if (strncmp(name, "Auth", 4) == 0) return true;
    if (strstr(name, "COL") != nullptr) return true;
    const Setting* setting = FindSetting(name);
    return setting != nullptr && (setting->flags & kSettingKnown) != 0;
}

void ResetOptions(Czelprsrv& settings) {
    for (const Setting& setting : kSettings) {
        if ((setting.flags & kSettingReset) != 0) settings.DeleteGlobalValue(setting.name);
    }
}

}  // namespace vx
