#include "spooler/posix/font_directories.h"

#include <cstdlib>

namespace vx {

std::vector<std::string> HostFontDirectories() {
    std::vector<std::string> roots = {"/usr/share/fonts", "/usr/local/share/fonts"};
    const char* home = getenv("HOME");
    if (home != nullptr && home[0] != '\0') {
        roots.push_back(std::string(home) + "/.local/share/fonts");
        roots.push_back(std::string(home) + "/.fonts");
    }
    return roots;
}

}  // namespace vx
