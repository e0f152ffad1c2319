// Where Linux hosts keep their font files: the system's and the user's font directories.
#pragma once

#include <string>
#include <vector>

namespace vx {

// /usr/share/fonts, /usr/local/share/fonts and, with a home directory, ~/.local/share/fonts and
// ~/.fonts, in this order.
std::vector<std::string> HostFontDirectories();

}  // namespace vx
