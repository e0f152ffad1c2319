// Binding the optional libraries at start: the PDF print library of the sibling PDF product, the
// OCR, bar-code and icon libraries. Each may be missing; the service then runs without the
// feature and says so in the trace. Also the file versions shown in the banner and the PDF
// library compatibility check behind the default of "PDFasRAW".
#include <cstring>

#include "base/dynlib.h"
#include "base/eventlog.h"
#include "base/fileops.h"
#include "base/process.h"
#include "base/version_resource.h"
#include "printserver/library_names.h"
#include "printserver/zelprsrv.h"
#include "vorlix_version.h"

namespace vx {

namespace {

constexpr const char* kSourceFile = "zelprsrv";

constexpr const char* kPdfLibraryName = "tolmapdf64.dll";
constexpr const char* kPdfPrintName = "pdfprint.dll";
constexpr const char* kOcrLibraryName = "OCR.DLL";
constexpr const char* kBarcodeLibraryName = "barcode64.dll";
constexpr const char* kIconLibraryName = "zelbtmp64.dll";
constexpr const char* kPdfProductName = "TOLMAPDF (64bit)";

// The versions of the PDF product's "pdfprint.dll" that the PDF library binding works with.
constexpr const char* kCompatiblePdfVersions[] = {
    "3.6.14085.0",
    "3.6.14126.0",
    "3.6.15124.0",
    "3.6.16064.0",
};

bool IsCompatiblePdfVersion(const char* version) {
    for (const char* accepted : kCompatiblePdfVersions)
        if (strcmp(version, accepted) == 0) return true;
    return false;
}

// Cuts a path after its directory part (no trailing separator); "" for a bare name.
void StripFileName(char* path) {
    char* last = nullptr;
    for (char* p = path; *p != '\0'; ++p)
        if (IsPathSeparator(*p)) last = p;
    if (last != nullptr)
        *last = '\0';
    else
        path[0] = '\0';
}

void StripTrailingSeparator(char* path) {
    size_t length = strlen(path);
    while (length > 1 && IsPathSeparator(path[length - 1])) path[--length] = '\0';
}

}  // namespace

void Czelprsrv::ResolvePrintEnvironment(const PrsrvConfig& config) {
    GetExecutablePath(executablePath_, sizeof executablePath_);
    if (config.libraryDirectory != nullptr)
        CopyText(libraryDir_, config.libraryDirectory);
    else
        GetExecutableDirectory(libraryDir_, sizeof libraryDir_);
    StripTrailingSeparator(libraryDir_);

    // The print library is linked at build time: its path is where the loader found it.
    DynLibPathOf(reinterpret_cast<const void*>(&::PrintFile), printLibraryPath_,
                 sizeof printLibraryPath_);
    char zelwinVersion[64] = "";
    char productVersion[64];
    if (printLibraryPath_[0] == '\0' ||
        ReadFileVersion(printLibraryPath_, zelwinVersion, sizeof zelwinVersion, productVersion,
                        sizeof productVersion) != 0) {
        zelwinVersion[0] = '\0';
        // A shared object carries no version resource; the print library the program is linked
        // with is built and installed with it, so it is of the program's own version.
        if (kSharedObjectNames) CopyText(zelwinVersion, VORLIX_FILE_VERSION);
    }
    char pdfVersion[64] = "";
    ResolvePdfProduct(pdfVersion, sizeof pdfVersion);
    SetLibraryVersions(zelwinVersion, pdfVersion);
}

// The PDF product's directory ("InstallationPath" of its key, else where "tolmapdf64.dll" is
// found) and whether its "pdfprint.dll" is one the binding works with. version: the accepted
// version of "pdfprint.dll", "" when none.
void Czelprsrv::ResolvePdfProduct(char* version, size_t cap) {
    version[0] = '\0';
    pdfProductDir_[0] = '\0';
    pdfLibraryCompatible_ = 0;
    char installationPath[kRegistryTextSize] = "";
    if (pdfKey_.Valid()) {
        uint32_t size = sizeof installationPath;
        long rc = RegQueryText(pdfKey_.Get(), "InstallationPath", installationPath, &size);
        TraceApi("RegQueryValueEx(%p, %s, ..) = %i\n", pdfKey_.Get(), "InstallationPath",
                 static_cast<int>(rc));
        if (rc != kRegOk) installationPath[0] = '\0';
    }
    // A product key without an installation path (left behind by an uninstall) counts as none.
    if (installationPath[0] != '\0') {
        CopyText(pdfProductDir_, installationPath);
        StripTrailingSeparator(pdfProductDir_);
    } else if (FindLibraryFile(kPdfLibraryName, pdfProductDir_, sizeof pdfProductDir_)) {
        StripFileName(pdfProductDir_);
    }

    char fileVersion[64] = "";
    char productVersion[64];
    char path[kMaxPath];
    if (installationPath[0] != '\0') {
        FormatText(path, sizeof path, "%s%c%s", pdfProductDir_, kPathSeparator,
                   LibraryFileName(kPdfPrintName));
        ReadFileVersion(path, fileVersion, sizeof fileVersion, productVersion,
                        sizeof productVersion);
        if (IsCompatiblePdfVersion(fileVersion)) {
            pdfLibraryCompatible_ = 1;
            CopyText(version, cap, fileVersion);
        } else {
            // Reported once the log is open; the product counts as not installed.
            pdfVersionRefused_ = true;
            CopyText(pdfRefusedVersion_, fileVersion);
            pdfProductDir_[0] = '\0';
        }
    } else if (FindLibraryFile(kPdfPrintName, path, sizeof path)) {
        pdfLibraryCompatible_ = 1;
        if (ReadFileVersion(path, fileVersion, sizeof fileVersion, productVersion,
                            sizeof productVersion) == 0)
            CopyText(version, cap, fileVersion);
    }
}

void Czelprsrv::ReportPdfLibraryCheck() {
    if (pdfVersionRefused_)
        TraceError("Version %s of %s is not compatible.\n", pdfRefusedVersion_, kPdfPrintName);
}

int Czelprsrv::ReadFileVersion(const char* path, char* fileVersion, size_t fileCap,
                               char* productVersion, size_t productCap) {
    struct VersionTexts {
        char file[64];
        char product[64];
    };
    if (fileVersion != nullptr && fileCap > 0) fileVersion[0] = '\0';
    if (productVersion != nullptr && productCap > 0) productVersion[0] = '\0';
    auto* texts = static_cast<VersionTexts*>(
        TrackedAlloc(sizeof(VersionTexts), kSourceFile, __LINE__, "VersionInfo", 0));
    if (texts == nullptr) return -1;
    int rc = vx::ReadFileVersion(path, texts->file, sizeof texts->file, texts->product,
                                 sizeof texts->product);
    // A shared object says its version in its file name; that names the product's version too.
    if (rc != 0 && SharedObjectVersion(path, texts->file, sizeof texts->file) == 0) {
        CopyText(texts->product, texts->file);
        rc = 0;
    }
    if (fileVersion != nullptr) CopyText(fileVersion, fileCap, texts->file);
    if (productVersion != nullptr) CopyText(productVersion, productCap, texts->product);
    TrackedFree(texts, kSourceFile, __LINE__, "VersionInfo", 0);
    return rc;
}

bool Czelprsrv::FindInDirectory(const char* directory, const char* fileName, char* path,
                                size_t size) {
    if (directory == nullptr || directory[0] == '\0') return false;
    char candidate[kMaxPath];
    FormatText(candidate, sizeof candidate, "%s%c%s", directory, kPathSeparator,
               LibraryFileName(fileName));
    Trace(kTraceNotable, "Looking for file %s\n", candidate);
    if (!FsExists(candidate) || FsIsDirectory(candidate)) return false;
    CopyText(path, size, candidate);
    return true;
}

bool Czelprsrv::FindLibraryFile(const char* fileName, char* path, size_t size) {
    if (path == nullptr || size == 0) return false;
    path[0] = '\0';
    if (fileName == nullptr) return false;

    char printLibraryDir[kMaxPath];
    CopyText(printLibraryDir, printLibraryPath_);
    StripFileName(printLibraryDir);
    char productDir[kMaxPath] = "";
    ProductLibraryDirectory(productDir, sizeof productDir);
    char systemDir[kMaxPath] = "";
    GetSystemDirectoryPath(systemDir, sizeof systemDir);
    char parentDir[kMaxPath];
    CopyText(parentDir, libraryDir_);
    StripFileName(parentDir);

    const char* candidates[] = {
        libraryDir_, strcmp(printLibraryDir, libraryDir_) != 0 ? printLibraryDir : nullptr,
        productDir,  systemDir,
        parentDir,
    };
    for (const char* directory : candidates)
        if (directory != nullptr && FindInDirectory(directory, fileName, path, size)) return true;
    path[0] = '\0';
    return false;
}

DynLibHandle Czelprsrv::LoadOptionalLibrary(const char* fileName, bool reportFailure) {
    if (fileName == nullptr) return nullptr;
    char path[kMaxPath];
    bool found = false;
    if (EqualsNoCase(fileName, kPdfLibraryName)) {
        if (pdfProductDir_[0] == '\0' || pdfLibraryCompatible_ == 0) return nullptr;
        // The PDF library loads parts of its product later: they are found in its directory.
        DynLibSetSearchDirectory(pdfProductDir_);
        pdfSearchDirectorySet_ = true;
        TraceApi("SetDllDirectory(%s)\n", pdfProductDir_);
        found = FindInDirectory(pdfProductDir_, fileName, path, sizeof path);
    }
    if (!found && !FindLibraryFile(fileName, path, sizeof path)) return nullptr;

    Trace(kTraceDetail, "Testing library %s\n", path);
    DynLibHandle module = DynLibLoad(path);
    if (module == nullptr && reportFailure)
        ReportLastError("LoadLibrary", kEventWarning);
    else
        Trace(kTraceNotable, "File %s loaded.\n", path);
    TraceApi("LoadLibraryEx(%s) = %p\n", path, module);
    return module;
}

void Czelprsrv::LoadPdfLibrary() {
    PdfLibrary& pdf = libs_.pdf;
    pdf.module.Adopt(LoadOptionalLibrary(kPdfLibraryName, false));
    if (!pdf.module.Loaded()) {
        pdfProductDir_[0] = '\0';
        tolmapdfVersion_[0] = '\0';  // the banner from now on says "not installed"
        Trace(kTraceNotable, "%s not installed.\n", kPdfProductName);
        return;
    }
    Trace(kTraceNotable, "%s loaded.\n", kPdfLibraryName);
    struct EntryPoint {
        const char* name;
        void** slot;
    };
    const EntryPoint entryPoints[] = {
        {"PrintPDFFile", &pdf.PrintPDFFile},
        {"CreatePDFManager", &pdf.CreatePDFManager},
        {"DeletePDFManager", &pdf.DeletePDFManager},
        {"SavePDFFile", &pdf.SavePDFFile},
        {"CreatePDFContainer", &pdf.CreatePDFContainer},
    };
    pdf.usable = true;
    for (const EntryPoint& entry : entryPoints) {
        *entry.slot = pdf.module.Symbol(entry.name);
        if (*entry.slot != nullptr) continue;
        ReportLastError("GetProcAddress", kEventWarning);
        Trace(kTraceNotable, "%s not useable: '%s' not found.\n", kPdfLibraryName, entry.name);
        pdf.usable = false;
        break;
    }
    // Half a PDF library is none: nobody may call the entry points that were found.
    if (!pdf.usable)
        for (const EntryPoint& entry : entryPoints) *entry.slot = nullptr;
}

void Czelprsrv::LoadOcrLibrary() {
    OcrLibrary& ocr = libs_.ocr;
    ocr.module.Adopt(LoadOptionalLibrary(kOcrLibraryName, false));
    if (!ocr.module.Loaded()) {
        Trace(kTraceNotable, "No optional OCR DLL detected.\n");
        return;
    }
    Trace(kTraceNotable, "OCR DLL loaded.\n");
    ocr.OCRPrint = ocr.module.Symbol("OCRPrint");
    ocr.OCRInit = reinterpret_cast<LibraryInitFunction>(ocr.module.Symbol("OCRInit"));
    const char* missing = ocr.OCRPrint == nullptr  ? "OCRPrint"
                          : ocr.OCRInit == nullptr ? "OCRInit"
                                                   : nullptr;
    if (missing != nullptr) {
        Trace(kTraceNotable, "%s not useable: '%s' not found.\n", kOcrLibraryName, missing);
        ocr.OCRPrint = nullptr;
        ocr.OCRInit = nullptr;
        return;
    }
    char message[kLibraryMessageSize] = {};
    if (ocr.OCRInit(message, kLibraryMessageSize) == 0)
        Trace(kTraceBanner, "%s can not be initialized (rc=%d)\n", kOcrLibraryName, 0);
}

void Czelprsrv::LoadBarcodeLibrary() {
    BarcodeLibrary& barcode = libs_.barcode;
    barcode.module.Adopt(LoadOptionalLibrary(kBarcodeLibraryName, false));
    if (!barcode.module.Loaded()) {
        Trace(kTraceNotable, "No optional %s detected.\n", kBarcodeLibraryName);
        return;
    }
    Trace(kTraceNotable, "%s loaded.\n", kBarcodeLibraryName);
    barcode.BarcodePrintW = barcode.module.Symbol("BarcodePrintW");
    barcode.wideText = barcode.BarcodePrintW != nullptr ? 1 : 0;
    if (barcode.BarcodePrintW == nullptr)
        Trace(kTraceNotable, "'%s' not found.\n", "BarcodePrintW");
    barcode.BarcodePrint = barcode.module.Symbol("BarcodePrint");
    barcode.BarcodeInit =
        reinterpret_cast<LibraryInitFunction>(barcode.module.Symbol("BarcodeInit"));
    const char* missing = barcode.BarcodePrint == nullptr  ? "BarcodePrint"
                          : barcode.BarcodeInit == nullptr ? "BarcodeInit"
                                                           : nullptr;
    bool ready = missing == nullptr;
    if (!ready) {
        Trace(kTraceNotable, "%s not useable: '%s' not found.\n", kBarcodeLibraryName, missing);
    } else {
        LockHold hold(libraryLock_);
        char message[kLibraryMessageSize] = {};
        ready = barcode.BarcodeInit(message, kLibraryMessageSize) != 0;
        message[kLibraryMessageSize - 1] = '\0';
        if (!ready)
            Trace(kTraceBanner, "%s can not be initialized (rc=%d)\n", kBarcodeLibraryName, 0);
        if (message[0] != '\0') Trace(kTraceBanner, "%s", message);
    }
    if (!ready) {
        barcode.BarcodePrintW = nullptr;
        barcode.BarcodePrint = nullptr;
        barcode.BarcodeInit = nullptr;
        barcode.wideText = 0;
    }
}

void Czelprsrv::LoadIconLibrary() {
    IconLibrary& icon = libs_.icon;
    icon.module.Adopt(LoadOptionalLibrary(kIconLibraryName, true));
    if (!icon.module.Loaded()) {
        TraceError("No icon DLL loaded, please install %s.\n", kIconLibraryName);
        return;
    }
    Trace(kTraceNotable, "Icon DLL loaded.\n");
    icon.GetZELBitmap = icon.module.Symbol("GetZELBitmap");
    if (icon.GetZELBitmap == nullptr) Trace(kTraceNotable, "Can not get address of GetZELBitmap\n");
}

void Czelprsrv::LoadLibraries() {
    LoadPdfLibrary();
    pdfAsRaw_ = GetGlobalInt("PDFasRAW", libs_.pdf.usable ? 0 : 1);
    LoadOcrLibrary();
    LoadBarcodeLibrary();
    LoadIconLibrary();
    Trace(kTraceNotable, "MainLoadDLLs completed successfully.\n");
    Trace(kTraceNotable, "\n");
}

void Czelprsrv::ReleaseLibraries() {
    DynLibrary* modules[] = {&libs_.icon.module, &libs_.barcode.module, &libs_.ocr.module,
                             &libs_.pdf.module};
    for (DynLibrary* module : modules) {
        DynLibHandle released = module->Free();
        if (released != nullptr) TraceApi("FreeLibrary(%p)\n", released);
    }
    if (pdfSearchDirectorySet_) DynLibSetSearchDirectory(nullptr);
    pdfSearchDirectorySet_ = false;
}

}  // namespace vx
