// The built-in default of every integer setting, as the settings table gives it: what a missing
// registry value means, and what the environment report shows beside each value.
#include <cstddef>

#include "printserver/settings_table.h"
#include "printserver/zelprsrv.h"

namespace vx {

namespace {

// Stops at the first differing character, so that comparing every pair of the table stays
// within the compilers' limits for constant evaluation.
constexpr bool SameName(const char* a, const char* b) {
    while (*a != '\0' && *a == *b) {
        ++a;
        ++b;
    }
    return *a == *b;
}

constexpr bool SettingNamesAreUnique() {
    constexpr size_t count = sizeof kSettings / sizeof kSettings[0];
    for (size_t i = 0; i < count; ++i) {
        for (size_t j = i + 1; j < count; ++j) {
            if (SameName(kSettings[i].name, kSettings[j].name)) return false;
        }
    }
    return true;
}
static_assert(SettingNamesAreUnique(), "a setting name stands twice in the settings table");

}  // namespace

int32_t Czelprsrv::GetDefaultValue(const char* name) const {
    const Setting* setting = FindSetting(name);
    // Names the table does not know, and text settings, show 0.
    if (setting == nullptr || setting->type != kSettingInteger) return 0;
    if ((setting->flags & kSettingDefaultNotListed) != 0) return 0;
    // Whether PDF can go to the printer unchanged depends on the PDF print library found.
    if ((setting->flags & kSettingComputedDefault) != 0) return pdfLibraryCompatible_;
    return setting->defaultValue;
}

int32_t Czelprsrv::GetSetting(IntSettingName setting) {
    return GetGlobalInt(setting.setting->name, setting.setting->defaultValue);
}

}  // namespace vx
