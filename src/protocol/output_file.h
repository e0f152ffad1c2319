// The "OPT:FILE:name" title option: the job's data goes into a file of that name in the output
// directory instead of to the printer.
#pragma once

#include <cstddef>

namespace vx {

// Copies the data file into the output directory (the temporary directory where there is none)
// under name, made safe so that it never leaves the directory. An existing file is never
// overwritten: the copy is then "name_<n>" (before the extension) with the first free n. A copy
// that fails is removed. 0 and the copy's path in written, or -1 after an "Error: " line.
int WriteJobToOutputFile(const char* dataFile, const char* name, char* written, size_t cap);

}  // namespace vx
