// The libraries the service binds and where the product's own libraries are installed.
//
// Callers name libraries by their Windows file names ("OCR.DLL", "tolmapdf64.dll");
// LibraryFileName turns such a name into the file this platform looks for, so that the code that
// binds them stays the same on both targets.
#pragma once

#include <cstddef>

namespace vx {

// The Windows name as it stands on Windows; on Linux the shared object of the same library
// ("OCR.DLL" is "libocr.so"). Names the table does not know are returned unchanged.
const char* LibraryFileName(const char* windowsName);

// The system-wide directory searched for the product's libraries after the program's own: the
// Windows directory on Windows, "/usr/lib/vorlix" on Linux. -1 when there is none.
int ProductLibraryDirectory(char* out, size_t cap);

}  // namespace vx
