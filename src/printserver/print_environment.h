// The print side of the print-server object: the optional libraries it binds at start and the
// printers installed on the host with their paper bins.
#pragma once

#include <cstdint>

#include "base/dynlib.h"

namespace vx {

// Where an application server's tray number leads on one paper bin of a printer.
struct TrayEntry {
    char binName[256];
    uint16_t trayId;  // the bin to print from: "TrayID" when the bin has a "ZELID", else binId
    uint16_t binId;   // the driver's own identifier of the bin
    uint16_t zelId;   // the application server's number for the bin ("ZELID"), 0 for none
    uint16_t filled;
};

struct InstalledPrinter {
    char name[256];
    int32_t trayCount;
    TrayEntry* trays;  // null until the printer's bins are asked for
};

// The initialisation both the OCR and the bar-code library export: fills a message buffer,
// nonzero when the library is ready.
using LibraryInitFunction = int (*)(char* message, int size);
constexpr int kLibraryMessageSize = 2000;

// The PDF print library of the sibling PDF product ("tolmapdf64.dll").
struct PdfLibrary {
    DynLibrary module;
    void* PrintPDFFile = nullptr;
    void* CreatePDFManager = nullptr;
    void* DeletePDFManager = nullptr;
    void* SavePDFFile = nullptr;
    void* CreatePDFContainer = nullptr;
    bool usable = false;  // every entry point found
};

struct OcrLibrary {
    DynLibrary module;
    void* OCRPrint = nullptr;
    LibraryInitFunction OCRInit = nullptr;
};

struct BarcodeLibrary {
    DynLibrary module;
    void* BarcodePrintW = nullptr;
    void* BarcodePrint = nullptr;
    LibraryInitFunction BarcodeInit = nullptr;
    int wideText = 0;  // 1 when the library prints wide texts ("BarcodePrintW")
};

struct IconLibrary {
    DynLibrary module;
    void* GetZELBitmap = nullptr;
};

struct OptionalLibraries {
    PdfLibrary pdf;
    OcrLibrary ocr;
    BarcodeLibrary barcode;
    IconLibrary icon;
};

}  // namespace vx
