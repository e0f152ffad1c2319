// Printers through CUPS: the destinations are the printers, the CUPS default is the default
// printer, and the print library's built-in file printer is always there besides them.
#include "spooler/spooler.h"

#include <cstdlib>
#include <cstring>
#include <mutex>

#include "base/clock.h"
#include "base/named_slots.h"
#include "base/text.h"
#include "spooler/posix/cups_printer.h"

namespace vx {

namespace {

// A queue found a moment ago is taken as still there: a sender that sends job after job asks
// CUPS once a second, not once a job. A queue removed within that moment refuses the job when it
// prints, as it refuses the jobs already waiting for it.
constexpr uint64_t kQueueFoundValidMs = 1000;

NamedSlots<uint64_t, 16>& QueuesFound() {
    static auto* found = new NamedSlots<uint64_t, 16>;  // when each was found; outlives threads
    return *found;
}

bool FoundOfLate(const char* printer) {
    uint64_t foundMs = 0;
    return QueuesFound().Find(printer, &foundMs) && TickCountMs() - foundMs < kQueueFoundValidMs;
}

void NoteFound(const char* printer) {
    uint64_t now = TickCountMs();
    QueuesFound().Note(printer, [now](uint64_t* foundMs, bool) { *foundMs = now; });
}

// Owns the destination list of cupsGetDests.
class DestList {
  public:
    DestList() {
        HttpPtr http = ConnectToCups();
        if (http != nullptr) count_ = cupsGetDests2(http.get(), &dests_);
    }
    ~DestList() { cupsFreeDests(count_, dests_); }
    DestList(const DestList&) = delete;
    DestList& operator=(const DestList&) = delete;

    int Count() const { return count_; }
    const cups_dest_t& At(int i) const { return dests_[i]; }

  private:
    int count_ = 0;
    cups_dest_t* dests_ = nullptr;
};

// Owns one destination of cupsGetNamedDest.
class NamedDest {
  public:
    explicit NamedDest(const char* name) {
        HttpPtr http = ConnectToCups();
        if (http != nullptr) dest_ = cupsGetNamedDest(http.get(), name, nullptr);
    }
    ~NamedDest() {
        if (dest_ != nullptr) cupsFreeDests(1, dest_);
    }
    NamedDest(const NamedDest&) = delete;
    NamedDest& operator=(const NamedDest&) = delete;

    const cups_dest_t* Get() const { return dest_; }

  private:
    cups_dest_t* dest_ = nullptr;
};

const char* Option(const cups_dest_t& dest, const char* name) {
    const char* value = cupsGetOption(name, dest.num_options, dest.options);
    return value != nullptr ? value : "";
}

void FillFilePrinter(SpoolerPrinterInfo* out) {
    *out = SpoolerPrinterInfo{};
    CopyText(out->name, kFilePrinterName);
    CopyText(out->port, kFilePrinterPort);
    CopyText(out->driver, kFilePrinterDriver);
    CopyText(out->comment, "Writes every job into the output directory");
}

// A printer from the options cupsGetDests delivers with each destination. The port is the device
// URI; a queue on another server shows its printer URI instead.
void FillFromDest(const cups_dest_t& dest, SpoolerPrinterInfo* out) {
    *out = SpoolerPrinterInfo{};
    CopyText(out->name, dest.name);
    const char* deviceUri = Option(dest, "device-uri");
    CopyText(out->port, deviceUri[0] != '\0' ? deviceUri : Option(dest, "printer-uri-supported"));
    CopyText(out->driver, Option(dest, "printer-make-and-model"));
    CopyText(out->location, Option(dest, "printer-location"));
    CopyText(out->comment, Option(dest, "printer-info"));
    out->status =
        StatusFromCups(atoi(Option(dest, "printer-state")), Option(dest, "printer-state-reasons"));
}

// The keywords of a multi-valued attribute joined with commas.
void JoinKeywords(ipp_t* response, const char* name, char* out, size_t cap) {
    out[0] = '\0';
    ipp_attribute_t* attribute = ippFindAttribute(response, name, IPP_TAG_ZERO);
    for (int i = 0; attribute != nullptr && i < ippGetCount(attribute); ++i) {
        const char* keyword = ippGetString(attribute, i, nullptr);
        if (keyword == nullptr) continue;
        if (out[0] != '\0') AppendText(out, cap, ",");
        AppendText(out, cap, keyword);
    }
}

}  // namespace

const char* BuiltInPrinterName() {
    return kFilePrinterName;
}

int SpoolerEnumPrinters(SpoolerPrinterVisitor visit, void* context) {
    SpoolerPrinterInfo info;
    FillFilePrinter(&info);
    int visited = 1;
    if (visit != nullptr && visit(context, info) != 0) return visited;
    // Without a reachable CUPS server the file printer is the only printer: not a failure.
    DestList dests;
    for (int i = 0; i < dests.Count(); ++i) {
        const cups_dest_t& dest = dests.At(i);
        // Instances are option sets of a printer, not printers; the file printer keeps its name.
        if (dest.instance != nullptr || IsFilePrinter(dest.name)) continue;
        FillFromDest(dest, &info);
        ++visited;
        if (visit != nullptr && visit(context, info) != 0) break;
    }
    return visited;
}

int SpoolerGetDefaultPrinter(char* out, size_t cap) {
    if (out == nullptr || cap == 0) return kSpoolerFailed;
    NamedDest dest(nullptr);  // no name: the default destination
    CopyText(out, cap, dest.Get() != nullptr ? dest.Get()->name : kFilePrinterName);
    return kSpoolerOk;
}

bool SpoolerCanOpenPrinter(const char* printer) {
    if (printer == nullptr || printer[0] == '\0') return false;
    if (IsFilePrinter(printer)) return true;
    if (FoundOfLate(printer)) return true;
    // One question at a time: senders that start together wait for the first answer instead of
    // each opening a connection of its own (and keeping its buffers) to ask the same.
    static std::mutex asking;
    std::lock_guard<std::mutex> hold(asking);
    if (FoundOfLate(printer)) return true;
    static const char* const kName[] = {"printer-name"};
    IppMessage response;
    if (!QueryPrinterAttributes(printer, kName, 1, &response)) return false;
    NoteFound(printer);
    return true;
}

int SpoolerGetPrinter(const char* printer, SpoolerPrinterInfo* out) {
    if (out == nullptr) return kSpoolerFailed;
    *out = SpoolerPrinterInfo{};
    if (printer == nullptr || printer[0] == '\0') return kSpoolerFailed;
    if (IsFilePrinter(printer)) {
        FillFilePrinter(out);
        return kSpoolerOk;
    }
    static const char* const kAttributes[] = {
        "printer-name",     "device-uri",   "printer-uri-supported", "printer-make-and-model",
        "printer-location", "printer-info", "printer-state",         "printer-state-reasons",
    };
    IppMessage response;
    if (!QueryPrinterAttributes(printer, kAttributes, sizeof kAttributes / sizeof kAttributes[0],
                                &response))
        return kSpoolerFailed;
    ipp_t* ipp = response.Get();
    const char* name = AttributeText(ipp, "printer-name");
    CopyText(out->name, name[0] != '\0' ? name : printer);
    const char* deviceUri = AttributeText(ipp, "device-uri");
    CopyText(out->port,
             deviceUri[0] != '\0' ? deviceUri : AttributeText(ipp, "printer-uri-supported"));
    CopyText(out->driver, AttributeText(ipp, "printer-make-and-model"));
    CopyText(out->location, AttributeText(ipp, "printer-location"));
    CopyText(out->comment, AttributeText(ipp, "printer-info"));
    char reasons[1024];
    JoinKeywords(ipp, "printer-state-reasons", reasons, sizeof reasons);
    ipp_attribute_t* state = ippFindAttribute(ipp, "printer-state", IPP_TAG_ENUM);
    out->status = StatusFromCups(state != nullptr ? ippGetInteger(state, 0) : 0, reasons);
    return kSpoolerOk;
}

}  // namespace vx
