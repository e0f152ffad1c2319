#include "printserver/version_text.h"

#include "base/fileops.h"
#include "base/process.h"
#include "base/text.h"
#include "base/version_resource.h"
#include "vorlix_version.h"

namespace vx {

void GetVorlixVersionText(char* out, size_t cap) {
    char path[kMaxPath];
    char fileVersion[64];
    char productVersion[64];
    if (GetExecutablePath(path, sizeof path) == 0 &&
        ReadFileVersion(path, fileVersion, sizeof fileVersion, productVersion,
                        sizeof productVersion) == 0 &&
        fileVersion[0] != '\0') {
        FormatText(out, cap, "%s.%s", productVersion, fileVersion);
        return;
    }
    // No version resource (Linux, or a test program): the same texts, compiled in.
    FormatText(out, cap, "%s.%s", VORLIX_PRODUCT_VERSION, VORLIX_FILE_VERSION);
}

}  // namespace vx
