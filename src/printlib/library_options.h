// The settings the print library reads: the host's, except where the service forwarded a
// run-time change with ChangeOptionEx, which holds from then on.
#pragma once

#include <cstdint>

#include "printlib/zelwin.h"

namespace zel {

// The effective integer setting for a printer (printer may be null).
int32_t OptionValue(const ZelHost* host, const char* printer, const char* name, int32_t def);

// Records a changed value (decimal text) for a setting name.
void SetOptionOverride(const char* name, const char* value);

}  // namespace zel
