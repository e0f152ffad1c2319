// The system event log: the Windows event log (source with a message table) or syslog.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vx {

enum EventType { kEventError = 1, kEventWarning = 2, kEventInformation = 4 };

// Reports one event under the given source with two insertion strings. The Windows event log
// words it from the source's message table; logs without one (syslog) take plainText, the
// caller's wording of the same event. 0 or -1.
int ReportSystemEvent(const char* source, EventType type, uint16_t category, uint32_t eventId,
                      const char* insert1, const char* insert2, const char* plainText);

// Registers an event source so that the system log words its events from messageFile's message
// table: on Windows the key "SYSTEM\\CurrentControlSet\\Services\\EventLog\\<log>\\<source>"
// under HKEY_LOCAL_MACHINE with "EventMessageFile", "TypesSupported" (error, warning,
// information), "CategoryMessageFile" and "CategoryCount", written in that order. 0 when all four
// are written, 1 at the first failure. Syslog needs no registration: 0 on Linux.
int RegisterEventSourceEntry(const char* logName, const char* source, const char* messageFile,
                             uint32_t categoryCount);

// The text of message messageId in messageFile's message table with the two insertion strings,
// as the table stores it (each text ends with CR LF), cut at cap. -1 when the file cannot be
// read or holds no such message; always -1 on Linux, where no file carries a message table.
int FormatMessageFileText(const char* messageFile, uint32_t messageId, const char* insert1,
                          const char* insert2, char* out, size_t cap);

}  // namespace vx
