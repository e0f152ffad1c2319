// The PDF product's "pdfprint.dll": only its version matters to the service. Windows carries it
// in the version resource (pdfprint.rc.in); Linux in the file name (libpdfprint.so.<version>).
#include "testlib_export.h"

TESTLIB_EXPORT int PdfPrintVersionCheck(void) {
    return 1;
}
