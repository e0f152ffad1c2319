// What a Windows driver's device capabilities tell, from a CUPS printer's IPP attributes:
// media-source for the paper bins (cupsd derives it from the PPD's InputSlot for PPD queues),
// media-type, media-ready, document-format-supported, copies-supported, sides-supported,
// color-supported, media-size-supported and pages-per-minute. The built-in file printer answers
// from a fixed description.
#include <cstring>

#include "base/text.h"
#include "spooler/posix/cups_printer.h"
#include "spooler/spooler.h"

namespace vx {

namespace {

// Windows' device settings bits, which the facts report.
constexpr uint32_t kFieldPaperSize = 0x2;
constexpr uint32_t kFieldCopies = 0x100;
constexpr uint32_t kFieldDefaultSource = 0x200;
constexpr uint32_t kFieldColor = 0x800;
constexpr uint32_t kFieldDuplex = 0x1000;
constexpr uint32_t kFieldMediaType = 0x2000000;

// Identifiers of keywords that Windows has its own numbers for; every other keyword gets
// kFirstOwnId + its position, as drivers number their own bins and media types.
struct KeywordId {
    const char* keyword;
    int32_t id;
};
constexpr KeywordId kBinIds[] = {
    {"top", 1},      {"bottom", 2}, {"middle", 3},          {"manual", 4},
    {"envelope", 5}, {"auto", 7},   {"large-capacity", 11},
};
constexpr KeywordId kMediaTypeIds[] = {
    {"stationery", 1},
    {"transparency", 2},
    {"photographic-glossy", 3},
};
constexpr int32_t kFirstOwnId = 256;

// The built-in file printer: one bin, the job's data unchanged (raw or PDF), any number of copies.
constexpr int32_t kFileBinId = 7;
constexpr const char* kFileBinName = "Automatically Select";
constexpr const char* kFileLanguages[] = {"application/octet-stream", "application/pdf"};
constexpr int32_t kFileMaxCopies = 999;

template <size_t N>
int32_t IdOf(const KeywordId (&table)[N], const char* keyword, int position) {
    for (const KeywordId& entry : table)
        if (strcmp(entry.keyword, keyword) == 0) return entry.id;
    return kFirstOwnId + position;
}

const char* AttributeOf(SpoolerDeviceList list) {
    switch (list) {
        case kDeviceBins:
            return "media-source-supported";
        case kDeviceMediaTypes:
            return "media-type-supported";
        case kDeviceMediaReady:
            return "media-ready";
        case kDeviceDependentFiles:
            return nullptr;  // a CUPS queue's driver files are the server's business
        case kDeviceLanguages:
            return "document-format-supported";
    }
    return nullptr;
}

void FillItem(SpoolerDeviceList list, const char* keyword, int position, SpoolerDeviceItem* item) {
    *item = SpoolerDeviceItem{};
    size_t width = list == kDeviceBins ? kBinNameLength : sizeof item->name - 1;
    CopyTextN(item->name, sizeof item->name, keyword, width);
    if (list == kDeviceBins) item->id = IdOf(kBinIds, keyword, position);
    if (list == kDeviceMediaTypes) item->id = IdOf(kMediaTypeIds, keyword, position);
}

int FileDeviceList(SpoolerDeviceList list, SpoolerDeviceItem* out, int capacity) {
    int count = 0;
    if (list == kDeviceBins) count = 1;
    if (list == kDeviceLanguages) count = sizeof kFileLanguages / sizeof kFileLanguages[0];
    if (out == nullptr) return count;
    int filled = count < capacity ? count : capacity;
    for (int i = 0; i < filled; ++i) {
        out[i] = SpoolerDeviceItem{};
        if (list == kDeviceBins) {
            CopyText(out[i].name, kFileBinName);
            out[i].id = kFileBinId;
        } else {
            CopyText(out[i].name, kFileLanguages[i]);
        }
    }
    return filled;
}

// True when a value equal to the keyword comes before position.
bool IsRepeated(ipp_attribute_t* attribute, int position, const char* keyword) {
    for (int i = 0; i < position; ++i) {
        const char* earlier = ippGetString(attribute, i, nullptr);
        if (earlier != nullptr && strcmp(earlier, keyword) == 0) return true;
    }
    return false;
}

bool HasKeyword(ipp_t* response, const char* name, const char* keyword) {
    ipp_attribute_t* attribute = ippFindAttribute(response, name, IPP_TAG_ZERO);
    return attribute != nullptr && ippContainsString(attribute, keyword) != 0;
}

// A dimension of a media-size collection (hundredths of a millimetre): a number, or for custom
// sizes a range; lower and upper are the smallest and largest value it allows.
bool Dimension(ipp_t* size, const char* name, int* lower, int* upper) {
    ipp_attribute_t* attribute = ippFindAttribute(size, name, IPP_TAG_ZERO);
    if (attribute == nullptr) return false;
    if (ippGetValueTag(attribute) == IPP_TAG_RANGE) {
        *lower = ippGetRange(attribute, 0, upper);
        return true;
    }
    *lower = *upper = ippGetInteger(attribute, 0);
    return true;
}

// The largest and smallest paper of media-size-supported, in tenths of a millimetre.
void PaperExtents(ipp_t* response, SpoolerDeviceFacts* out) {
    ipp_attribute_t* sizes =
        ippFindAttribute(response, "media-size-supported", IPP_TAG_BEGIN_COLLECTION);
    for (int i = 0; sizes != nullptr && i < ippGetCount(sizes); ++i) {
        ipp_t* size = ippGetCollection(sizes, i);
        int minWidth = 0, maxWidth = 0, minHeight = 0, maxHeight = 0;
        if (!Dimension(size, "x-dimension", &minWidth, &maxWidth) ||
            !Dimension(size, "y-dimension", &minHeight, &maxHeight))
            continue;
        if (maxWidth / 10 > out->maxPaperWidth) out->maxPaperWidth = maxWidth / 10;
        if (maxHeight / 10 > out->maxPaperHeight) out->maxPaperHeight = maxHeight / 10;
        if (out->minPaperWidth == 0 || minWidth / 10 < out->minPaperWidth)
            out->minPaperWidth = minWidth / 10;
        if (out->minPaperHeight == 0 || minHeight / 10 < out->minPaperHeight)
            out->minPaperHeight = minHeight / 10;
    }
}

}  // namespace

int SpoolerGetDeviceList(const char* printer, const char*, SpoolerDeviceList list,
                         SpoolerDeviceItem* out, int capacity) {
    if (printer == nullptr) return kSpoolerFailed;
    if (IsFilePrinter(printer)) return FileDeviceList(list, out, capacity);
    const char* attributeName = AttributeOf(list);
    const char* requested[] = {attributeName != nullptr ? attributeName : "printer-name"};
    IppMessage response;
    if (!QueryPrinterAttributes(printer, requested, 1, &response)) return kSpoolerFailed;
    if (attributeName == nullptr) return 0;

    ipp_attribute_t* attribute = ippFindAttribute(response.Get(), attributeName, IPP_TAG_ZERO);
    int values = attribute != nullptr ? ippGetCount(attribute) : 0;
    int count = 0;
    for (int i = 0; i < values; ++i) {
        const char* keyword = ippGetString(attribute, i, nullptr);
        // "none" stands for an empty list (media-ready of a printer without sensors); a PPD
        // queue may name a keyword twice ("auto" for the default and for the automatic bin).
        if (keyword == nullptr || strcmp(keyword, "none") == 0 || IsRepeated(attribute, i, keyword))
            continue;
        if (out != nullptr) {
            if (count >= capacity) break;
            FillItem(list, keyword, i, &out[count]);
        }
        ++count;
    }
    return count;
}

int SpoolerGetDeviceFacts(const char* printer, const char*, SpoolerDeviceFacts* out) {
    if (out == nullptr) return kSpoolerFailed;
    *out = SpoolerDeviceFacts{};
    if (printer == nullptr) return kSpoolerFailed;
    if (IsFilePrinter(printer)) {
        out->color = 1;
        out->maxCopies = kFileMaxCopies;
        out->fields = kFieldCopies | kFieldDefaultSource;
        return kSpoolerOk;
    }
    static const char* const kAttributes[] = {
        "color-supported",      "copies-supported",       "sides-supported",
        "media-size-supported", "media-source-supported", "media-type-supported",
        "pages-per-minute",
    };
    IppMessage response;
    if (!QueryPrinterAttributes(printer, kAttributes, sizeof kAttributes / sizeof kAttributes[0],
                                &response))
        return kSpoolerFailed;
    ipp_t* ipp = response.Get();

    ipp_attribute_t* color = ippFindAttribute(ipp, "color-supported", IPP_TAG_BOOLEAN);
    out->color = color != nullptr && ippGetBoolean(color, 0) ? 1 : 0;
    ipp_attribute_t* copies = ippFindAttribute(ipp, "copies-supported", IPP_TAG_ZERO);
    if (copies != nullptr && ippGetValueTag(copies) == IPP_TAG_RANGE)
        ippGetRange(copies, 0, &out->maxCopies);
    else if (copies != nullptr)
        out->maxCopies = ippGetInteger(copies, 0);
    out->duplex = HasKeyword(ipp, "sides-supported", "two-sided-long-edge") ||
                          HasKeyword(ipp, "sides-supported", "two-sided-short-edge")
                      ? 1
                      : 0;
    PaperExtents(ipp, out);
    ipp_attribute_t* ppm = ippFindAttribute(ipp, "pages-per-minute", IPP_TAG_INTEGER);
    if (ppm != nullptr) {
        out->pagesPerMinute = ippGetInteger(ppm, 0);
        out->printRate = out->pagesPerMinute;
        out->printRateUnit = kRatePagesPerMinute;
    }
    // CUPS takes copies with every job; the rest as the printer describes itself.
    out->fields = kFieldCopies;
    if (out->color != 0) out->fields |= kFieldColor;
    if (out->duplex != 0) out->fields |= kFieldDuplex;
    if (out->maxPaperWidth != 0) out->fields |= kFieldPaperSize;
    if (ippFindAttribute(ipp, "media-source-supported", IPP_TAG_ZERO) != nullptr)
        out->fields |= kFieldDefaultSource;
    if (ippFindAttribute(ipp, "media-type-supported", IPP_TAG_ZERO) != nullptr)
        out->fields |= kFieldMediaType;
    return kSpoolerOk;
}

int SpoolerGetDriverInfo(const char* printer, SpoolerDriverInfo* out) {
    if (out == nullptr) return kSpoolerFailed;
    *out = SpoolerDriverInfo{};
    if (printer == nullptr) return kSpoolerFailed;
    CopyText(out->environment, "Linux CUPS");
    if (IsFilePrinter(printer)) {
        CopyText(out->name, kFilePrinterDriver);
        CopyText(out->defaultDataType, "application/octet-stream");
        return kSpoolerOk;
    }
    static const char* const kAttributes[] = {"printer-make-and-model", "document-format-default"};
    IppMessage response;
    if (!QueryPrinterAttributes(printer, kAttributes, 2, &response)) return kSpoolerFailed;
    CopyText(out->name, AttributeText(response.Get(), "printer-make-and-model"));
    CopyText(out->defaultDataType, AttributeText(response.Get(), "document-format-default"));
    return kSpoolerOk;
}

}  // namespace vx
