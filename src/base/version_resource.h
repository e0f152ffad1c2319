// The version texts a Windows executable carries in its version resource.
#pragma once

#include <cstddef>

namespace vx {

// Reads "FileVersion" and "ProductVersion" from the version resource of the file at path. Every
// language and code page the resource lists is read; the last one that holds a text wins. Each
// text is cut to its buffer and "" when absent. 0 when the file has a version resource, -1 when
// it has none (always on Linux: ELF files carry no version resource).
int ReadFileVersion(const char* path, char* fileVersion, size_t fileCap, char* productVersion,
                    size_t productCap);

}  // namespace vx
