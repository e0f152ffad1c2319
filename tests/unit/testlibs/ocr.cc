// The OCR library: its initialisation succeeds unless OCR_INIT_FAILS is defined.
#include <cstdio>

#include "testlib_export.h"

TESTLIB_EXPORT int OCRInit(char* message, int size) {
    if (message != nullptr && size > 0)
        snprintf(message, static_cast<size_t>(size), "%s", "OCR ready");
#if defined(OCR_INIT_FAILS)
    return 0;
#else
    return 1;
#endif
}

TESTLIB_EXPORT int OCRPrint(void) {
    return 0;
}
