// The standard streams on Windows: the C runtime's descriptors 0 to 2, which read in text mode
// (CR LF to LF, Ctrl+Z as the end) unless switched to binary.
#include "base/console.h"

#include <fcntl.h>
#include <io.h>

namespace vx {

bool StdStreamIsTerminal(StdStream stream) {
    return _isatty(static_cast<int>(stream)) != 0;
}

int SetStdInBinary() {
    return _setmode(0, _O_BINARY) == -1 ? -1 : 0;
}

}  // namespace vx
