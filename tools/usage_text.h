// The texts of --help and --version.
#pragma once

#include <cstdio>

namespace vx {

void PrintSendHelp(FILE* out);
void PrintSendVersion(FILE* out);

}  // namespace vx
