#include "printserver/library_names.h"

#include "base/dynlib.h"
#include "base/text.h"

namespace vx {

namespace {

struct LibraryName {
    const char* windowsName;
    const char* sharedObjectName;
};
constexpr LibraryName kLibraryNames[] = {
    {"zelwin64.dll", "libzelwin.so"},     {"tolmapdf64.dll", "libtolmapdf64.so"},
    {"pdfprint.dll", "libpdfprint.so"},   {"OCR.DLL", "libocr.so"},
    {"barcode64.dll", "libbarcode64.so"}, {"zelbtmp64.dll", "libzelbtmp64.so"},
    {"vorlixsnc.dll", "libvorlixsnc.so"},
};

constexpr const char kSharedObjectDirectory[] = "/usr/lib/vorlix";

}  // namespace

const char* LibraryFileName(const char* windowsName) {
    if (windowsName == nullptr) return "";
    if (!kSharedObjectNames) return windowsName;
    for (const LibraryName& entry : kLibraryNames)
        if (EqualsNoCase(entry.windowsName, windowsName)) return entry.sharedObjectName;
    return windowsName;
}

int ProductLibraryDirectory(char* out, size_t cap) {
    if (!kSharedObjectNames) return GetWindowsDirectoryPath(out, cap);
    if (out == nullptr || cap == 0) return -1;
    return CopyText(out, cap, kSharedObjectDirectory) == sizeof kSharedObjectDirectory - 1 ? 0 : -1;
}

}  // namespace vx
