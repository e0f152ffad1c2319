// The PDF product's print library; PDF_WITHOUT_SAVE leaves out "SavePDFFile".
#include "testlib_export.h"

TESTLIB_EXPORT int PrintPDFFile(void) {
    return 0;
}
TESTLIB_EXPORT int CreatePDFManager(void) {
    return 0;
}
TESTLIB_EXPORT int DeletePDFManager(void) {
    return 0;
}
#if !defined(PDF_WITHOUT_SAVE)
TESTLIB_EXPORT int SavePDFFile(void) {
    return 0;
}
#endif
TESTLIB_EXPORT int CreatePDFContainer(void) {
    return 0;
}
