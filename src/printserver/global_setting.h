// A setting of the settings table read through the print-server object, or its built-in default
// while there is none.
#pragma once

#include <cstdint>

#include "printserver/settings_table.h"
#include "printserver/zelprsrv.h"

namespace vx {

inline int32_t GlobalSetting(IntSettingName name) {
    return g_prsrv != nullptr ? g_prsrv->GetSetting(name) : name.setting->defaultValue;
}

}  // namespace vx
