// Texts the program prints on request: usage, change history, version banner.
#pragma once

#include <cstddef>

namespace vx {

void PrintUsage();
void PrintHistory();
void PrintVersion();

}  // namespace vx
