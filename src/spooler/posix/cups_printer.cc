#include "spooler/posix/cups_printer.h"

#include <cstring>
#include <mutex>
#include <vector>

#include "base/clock.h"
#include "base/text.h"
#include "spooler/spooler.h"

namespace vx {

namespace {

// printer-state-reasons keywords (without their "-report", "-warning" or "-error" suffix) and the
// status bit each stands for.
struct ReasonStatus {
    const char* keyword;
    uint32_t status;
};
constexpr ReasonStatus kReasonStatus[] = {
    {"paused", kPrinterPaused},
    {"offline", kPrinterOffline},
    {"shutdown", kPrinterNotAvailable},
    {"toner-empty", kPrinterNoToner},
    {"marker-supply-empty", kPrinterNoToner},
    {"media-jam", kPrinterPaperJam},
    {"media-empty", kPrinterPaperOut},
    {"media-needed", kPrinterPaperOut},
    {"input-tray-missing", kPrinterPaperProblem},
    {"output-area-full", kPrinterOutputBinFull},
    {"spool-area-full", kPrinterOutOfMemory},
    {"door-open", kPrinterUserIntervention},
    {"cover-open", kPrinterUserIntervention},
    {"interlock-open", kPrinterUserIntervention},
};

constexpr int kPrinterStateStopped = 5;

// A kept connection idle for longer may have been closed by cupsd; a fresh one is made instead.
constexpr uint64_t kKeptConnectionIdleMs = 30000;
// Idle connections kept at most: one per printer that prints at the same time is plenty.
constexpr size_t kKeptConnections = 8;

struct KeptConnection {
    HttpPtr http;
    uint64_t lastUsedMs = 0;
};
struct ConnectionPool {
    std::mutex lock;
    std::vector<KeptConnection> idle;
};

ConnectionPool& Pool() {
    static ConnectionPool* pool = new ConnectionPool;  // outlives the threads that print
    return *pool;
}

// One reason keyword: its status bit, or kPrinterError for an otherwise unknown error.
uint32_t StatusOfReason(const char* reason, size_t length) {
    static const char* const kSuffixes[] = {"-report", "-warning", "-error"};
    bool isError = false;
    for (const char* suffix : kSuffixes) {
        size_t suffixLength = strlen(suffix);
        if (length > suffixLength &&
            strncmp(reason + length - suffixLength, suffix, suffixLength) == 0) {
            isError = strcmp(suffix, "-error") == 0;
            length -= suffixLength;
            break;
        }
    }
    for (const ReasonStatus& entry : kReasonStatus)
        if (strlen(entry.keyword) == length && strncmp(entry.keyword, reason, length) == 0)
            return entry.status;
    return isError ? kPrinterError : 0;
}

}  // namespace

bool IsFilePrinter(const char* printer) {
    return printer != nullptr && strcmp(printer, kFilePrinterName) == 0;
}

HttpPtr ConnectToCups(int timeoutMs) {
    return HttpPtr(httpConnect2(cupsServer(), ippPort(), nullptr, AF_UNSPEC, cupsEncryption(), 1,
                                timeoutMs, nullptr));
}

HttpPtr TakeCupsConnection(bool* reused) {
    uint64_t now = TickCountMs();
    HttpPtr taken;
    {
        ConnectionPool& pool = Pool();
        std::lock_guard<std::mutex> hold(pool.lock);
        while (!pool.idle.empty() && taken == nullptr) {
            KeptConnection kept = std::move(pool.idle.back());
            pool.idle.pop_back();
            if (now - kept.lastUsedMs <= kKeptConnectionIdleMs) taken = std::move(kept.http);
        }
    }
    if (reused != nullptr) *reused = taken != nullptr;
    return taken != nullptr ? std::move(taken) : ConnectToCups();
}

void KeepCupsConnection(HttpPtr http) {
    if (http == nullptr) return;
    ConnectionPool& pool = Pool();
    std::lock_guard<std::mutex> hold(pool.lock);
    if (pool.idle.size() < kKeptConnections)
        pool.idle.push_back(KeptConnection{std::move(http), TickCountMs()});
}

ipp_t* DoIppRequest(http_t* http, ipp_t* request, const char* resource) {
    if (http != nullptr && request != nullptr) {
        httpClearFields(http);
        httpSetField(http, HTTP_FIELD_CONTENT_TYPE, "application/ipp");
        httpSetLength(http, ippLength(request));
        bool sent = httpPost(http, resource) == 0;
        ippSetState(request, IPP_STATE_IDLE);
        for (ipp_state_t state = IPP_STATE_IDLE; sent && state != IPP_STATE_DATA;) {
            state = ippWrite(http, request);
            if (state == IPP_STATE_ERROR) sent = false;
        }
        ipp_t* response = sent ? cupsGetResponse(http, resource) : nullptr;
        if (response != nullptr) {
            ippDelete(request);
            return response;
        }
    }
    // No IPP answer (a connection cupsd closed, a server that asks who we are or wants TLS):
    // libcups's own request call reconnects, authenticates and asks again.
    return cupsDoRequest(http, request, resource);
}

bool QueryPrinterAttributes(const char* printer, const char* const* attributes, int count,
                            IppMessage* response) {
    if (printer == nullptr || printer[0] == '\0' || response == nullptr) return false;
    char uri[1024];
    if (httpAssembleURIf(HTTP_URI_CODING_ALL, uri, sizeof uri, "ipp", nullptr, "localhost",
                         ippPort(), "/printers/%s", printer) != HTTP_URI_STATUS_OK)
        return false;
    HttpPtr http = TakeCupsConnection(nullptr);
    if (http == nullptr) return false;
    ipp_t* request = ippNewRequest(IPP_OP_GET_PRINTER_ATTRIBUTES);
    if (request == nullptr) return false;
    ippAddString(request, IPP_TAG_OPERATION, IPP_TAG_URI, "printer-uri", nullptr, uri);
    ippAddStrings(request, IPP_TAG_OPERATION, IPP_TAG_KEYWORD, "requested-attributes", count,
                  nullptr, attributes);
    // The request is taken over, also on failure.
    response->Reset(DoIppRequest(http.get(), request, "/"));
    if (response->Get() == nullptr) return false;  // the connection is not used again
    KeepCupsConnection(std::move(http));
    if (cupsLastError() > IPP_STATUS_OK_EVENTS_COMPLETE) {
        response->Reset(nullptr);
        return false;
    }
    return true;
}

const char* AttributeText(ipp_t* response, const char* name) {
    if (response == nullptr) return "";
    ipp_attribute_t* attribute = ippFindAttribute(response, name, IPP_TAG_ZERO);
    const char* text = attribute != nullptr ? ippGetString(attribute, 0, nullptr) : nullptr;
    return text != nullptr ? text : "";
}

uint32_t StatusFromCups(int state, const char* reasons) {
    uint32_t status = state == kPrinterStateStopped ? kPrinterPaused : 0;
    if (reasons == nullptr) return status;
    const char* cursor = reasons;
    while (*cursor != '\0') {
        const char* end = strchr(cursor, ',');
        size_t length = end != nullptr ? static_cast<size_t>(end - cursor) : strlen(cursor);
        status |= StatusOfReason(cursor, length);
        if (end == nullptr) break;
        cursor = end + 1;
    }
    return status;
}

}  // namespace vx
