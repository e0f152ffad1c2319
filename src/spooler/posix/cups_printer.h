// Helpers shared by the CUPS implementation of the spooler layer: the built-in file printer, IPP
// printer attribute requests and the mapping of CUPS printer states to the spooler's status bits.
#pragma once

#include <cups/cups.h>

#include <cstddef>
#include <cstdint>
#include <memory>

#include "spooler/spool_job.h"

namespace vx {

// The printer the print library provides itself (kFilePrinterName): it writes every job into the
// output directory.
constexpr const char* kFilePrinterPort = "FILE:";
constexpr const char* kFilePrinterDriver = "Vorlix file printer";

bool IsFilePrinter(const char* printer);

// A connection to a CUPS server, closed on destruction.
struct HttpCloser {
    void operator()(http_t* http) const {
        if (http != nullptr) httpClose(http);
    }
};
using HttpPtr = std::unique_ptr<http_t, HttpCloser>;

// A connection of the caller's own to the configured CUPS server (null when it cannot be reached
// within timeoutMs). Every request goes over one and closes it: libcups's per-thread default
// connection would stay open as long as the thread lives, and a connection thread that waits for
// a silent sender would hold one of the few clients cupsd serves at once.
constexpr int kCupsConnectTimeoutMs = 30000;
HttpPtr ConnectToCups(int timeoutMs = kCupsConnectTimeoutMs);

// Requests that follow each other (a job after a job, the queue check of each received job)
// reuse connections: a caller takes one, kept from an earlier request while it is fresh, else a
// new one (*reused, when given, tells which; null when CUPS cannot be reached), and gives it back
// when its request ended cleanly. A few are kept; libcups connections serve one thread at a time.
HttpPtr TakeCupsConnection(bool* reused);
void KeepCupsConnection(HttpPtr http);

// One IPP request without a document over the caller's connection, as cupsDoRequest (which it
// falls back to for authentication): takes the request over, returns the response or null, and
// leaves the outcome in cupsLastError. libcups's own request calls announce every request with
// "Expect: 100-continue" and wait for the interim answer, a round trip more per request.
ipp_t* DoIppRequest(http_t* http, ipp_t* request, const char* resource);

// One IPP message, deleted on destruction.
class IppMessage {
  public:
    IppMessage() = default;
    ~IppMessage() { Reset(nullptr); }
    IppMessage(const IppMessage&) = delete;
    IppMessage& operator=(const IppMessage&) = delete;

    ipp_t* Get() const { return ipp_; }
    void Reset(ipp_t* ipp) {
        if (ipp_ != nullptr) ippDelete(ipp_);
        ipp_ = ipp;
    }

  private:
    ipp_t* ipp_ = nullptr;
};

// Asks the CUPS server for attributes of one of its printers or classes (Get-Printer-Attributes).
// False when the server cannot be reached or does not know the printer.
bool QueryPrinterAttributes(const char* printer, const char* const* attributes, int count,
                            IppMessage* response);

// The first text value of an attribute, or "" when the response has none.
const char* AttributeText(ipp_t* response, const char* name);

// The spooler's status bits for a CUPS printer-state (3 idle, 4 processing, 5 stopped) and its
// printer-state-reasons keywords, separated by commas.
uint32_t StatusFromCups(int state, const char* reasons);

}  // namespace vx
