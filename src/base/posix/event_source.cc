// Syslog takes plain text under any ident: no source to register, no message table to read.
#include "base/eventlog.h"

namespace vx {

int RegisterEventSourceEntry(const char* /*logName*/, const char* /*source*/,
                             const char* /*messageFile*/, uint32_t /*categoryCount*/) {
    return 0;
}

int FormatMessageFileText(const char* /*messageFile*/, uint32_t /*messageId*/,
                          const char* /*insert1*/, const char* /*insert2*/, char* out, size_t cap) {
    if (out != nullptr && cap > 0) out[0] = '\0';
    return -1;
}

}  // namespace vx
