// ELF files carry no version resource: the Linux build compiles its version texts in instead.
#include "base/version_resource.h"

namespace vx {

int ReadFileVersion(const char* /*path*/, char* fileVersion, size_t fileCap, char* productVersion,
                    size_t productCap) {
    if (fileVersion != nullptr && fileCap > 0) fileVersion[0] = '\0';
    if (productVersion != nullptr && productCap > 0) productVersion[0] = '\0';
    return -1;
}

}  // namespace vx
