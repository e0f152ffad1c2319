// The installed printers for the extended protocol: a small dialogue in which the sender
// acknowledges every text with "OK".
#include <cstdint>
#include <cstring>

#include "base/codepage.h"
#include "base/text.h"
#include "printserver/zelprsrv.h"
#include "protocol/status_query.h"
#include "protocol/status_spooler.h"
#include "spooler/spool_job.h"

namespace vx {

namespace {

constexpr const char* kSourceFile = "installed_printers.cc";
constexpr size_t kReplySize = 2000;
constexpr size_t kUtf8TextSize = 3 * kSpoolerTextSize + 1;
constexpr int kListSlack = 8;  // printers installed between counting and listing

struct PrinterList {
    SpoolerPrinterInfo* printers;
    int capacity;
    int count;
};

int CollectPrinter(void* context, const SpoolerPrinterInfo& printer) {
    auto* list = static_cast<PrinterList*>(context);
    if (list->count >= list->capacity) return 1;
    list->printers[list->count++] = printer;
    return 0;
}

// Printer texts come in the code page of the spooler's printer names.
void ToUtf8(const char* text, char* out, size_t cap) {
    char16_t wide[kSpoolerTextSize + 1];
    int units =
        CodePageToUtf16(text, SIZE_MAX, kPrinterNameCodePage, wide, sizeof wide / sizeof wide[0]);
    if (units < 0 || Utf16ToCodePage(wide, static_cast<size_t>(units), kCodePageUtf8, out, cap) < 0)
        CopyText(out, cap, text);
}

// Sends the text in UTF-8 with its NUL ("" goes as a single blank) and reads the sender's reply.
// True when the reply contains "OK"; reply receives what came.
bool SendAndAwaitOk(NetSocket& socket, const char* text, char* reply, size_t replyCap) {
    char utf8[kUtf8TextSize];
    ToUtf8(text[0] != '\0' ? text : " ", utf8, sizeof utf8);
    reply[0] = '\0';
    SocketWrite(socket, utf8, static_cast<int32_t>(strlen(utf8) + 1));
    int32_t got = SocketRead(socket, reply, static_cast<int32_t>(replyCap - 1));
    if (got <= 0) return false;
    reply[got] = '\0';
    // The reply may carry its own NUL: look at every byte that came.
    for (int32_t i = 0; i + 1 < got; ++i)
        if (reply[i] == 'O' && reply[i + 1] == 'K') return true;
    return false;
}

bool SendAcknowledged(NetSocket& socket, const char* text) {
    char reply[kReplySize + 1];
    if (SendAndAwaitOk(socket, text, reply, sizeof reply)) return true;
    TraceError("GetInstalledPrinters: Protocol error: %s\n", reply);
    return false;
}

bool SendPrinters(NetSocket& socket, const PrinterList& list) {
    Trace(kTraceNormal, "Found %i printers:\n", list.count);
    char count[16];
    FormatText(count, sizeof count, "%d\n", list.count);
    if (!SendAcknowledged(socket, count)) return false;
    for (int i = 0; i < list.count; ++i) {
        const SpoolerPrinterInfo& printer = list.printers[i];
        if (!SendAcknowledged(socket, printer.name) ||
            !SendAcknowledged(socket, printer.location) ||
            !SendAcknowledged(socket, printer.driver))
            return false;
    }
    char reply[kReplySize + 1];
    if (!SendAndAwaitOk(socket, "QP finished", reply, sizeof reply))
        TraceError("GetInstalledPrinters: Protocol error in last transmission: %s\n", reply);
    return true;
}

}  // namespace

bool GetInstalledPrinters(NetSocket* socket) {
    if (socket == nullptr || g_prsrv == nullptr) return false;
    const StatusSpooler& spooler = StatusSpoolerInUse();
    int counted = spooler.EnumPrinters(nullptr, nullptr);
    if (counted < 0) {
        TraceError(counted == kSpoolerNoMemory ? "GetInstalledPrinters: LocalAlloc failed\n"
                                               : "GetInstalledPrinters: EnumPrinters failed\n");
        return false;
    }
    PrinterList list{nullptr, counted + kListSlack, 0};
    size_t bytes = static_cast<size_t>(list.capacity) * sizeof(SpoolerPrinterInfo);
    list.printers = static_cast<SpoolerPrinterInfo*>(
        g_prsrv->TrackedAlloc(bytes, kSourceFile, __LINE__, "GetInstalledPrinters", 0));
    if (list.printers == nullptr) {
        TraceError("GetInstalledPrinters: LocalAlloc failed\n");
        return false;
    }
    bool answered = false;
    int listed = spooler.EnumPrinters(CollectPrinter, &list);
    if (listed < 0)
        TraceError(listed == kSpoolerNoMemory ? "GetInstalledPrinters: LocalAlloc failed\n"
                                              : "GetInstalledPrinters: EnumPrinters failed\n");
    else
        answered = SendPrinters(*socket, list);
    g_prsrv->TrackedFree(list.printers, kSourceFile, __LINE__, "GetInstalledPrinters", 0);
    return answered;
}

}  // namespace vx
