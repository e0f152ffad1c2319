// The built-in default of every integer setting, as the settings table gives it: what a missing
// registry value means, and what the environment report shows beside each value.
#include <string_view>

#include "printserver/settings_table.h"
#include "printserver/zelprsrv.h"

namespace vx {

namespace {

constexpr bool SettingNamesAreUnique() {
    for (const Setting& a : kSettings) {
        int seen = 0;
        for (const Setting& b : kSettings) {
            if (std::string_view(a.name) == b.name) ++seen;
        }
        if (seen != 1) return false;
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
