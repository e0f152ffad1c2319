// The standard streams on POSIX: file descriptors 0 to 2; every read is binary already.
#include "base/console.h"

#include <unistd.h>

namespace vx {

bool StdStreamIsTerminal(StdStream stream) {
    return isatty(static_cast<int>(stream)) == 1;
}

int SetStdInBinary() {
    return 0;
}

}  // namespace vx
