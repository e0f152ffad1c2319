// The bar-code library. BARCODE_NARROW_ONLY leaves out the wide-text entry point;
// BARCODE_INIT_FAILS makes the initialisation fail. The initialisation's message is what the
// service writes to its log.
#include <cstdio>

#include "testlib_export.h"

TESTLIB_EXPORT int BarcodeInit(char* message, int size) {
#if defined(BARCODE_INIT_FAILS)
    const char* text = "Barcode licence missing\n";
    int rc = 0;
#else
    const char* text = "Barcode library ready\n";
    int rc = 1;
#endif
    if (message != nullptr && size > 0) snprintf(message, static_cast<size_t>(size), "%s", text);
    return rc;
}

TESTLIB_EXPORT int BarcodePrint(void) {
    return 0;
}

#if !defined(BARCODE_NARROW_ONLY)
TESTLIB_EXPORT int BarcodePrintW(void) {
    return 0;
}
#endif
