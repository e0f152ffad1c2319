// Events go to syslog (facility daemon) under the source as ident, as plain text.
#include "base/eventlog.h"

#include <syslog.h>

#include <mutex>

namespace vx {

namespace {
// openlog/closelog change process-wide state: one report at a time keeps each under its source.
std::mutex g_syslogLock;

int PriorityOf(EventType type) {
    switch (type) {
        case kEventError:
            return LOG_ERR;
        case kEventWarning:
            return LOG_WARNING;
        default:
            return LOG_INFO;
    }
}
}  // namespace

int ReportSystemEvent(const char* source, EventType type, uint16_t /*category*/,
                      uint32_t /*eventId*/, const char* /*insert1*/, const char* /*insert2*/,
                      const char* plainText) {
    if (source == nullptr) return -1;
    std::lock_guard<std::mutex> hold(g_syslogLock);
    openlog(source, LOG_PID, LOG_DAEMON);
    syslog(PriorityOf(type), "%s", plainText != nullptr ? plainText : "");
    closelog();
    return 0;
}

}  // namespace vx
