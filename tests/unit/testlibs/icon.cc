// The icon library; ICON_WITHOUT_BITMAP leaves out its entry point.
#include "testlib_export.h"

#if !defined(ICON_WITHOUT_BITMAP)
TESTLIB_EXPORT int GetZELBitmap(void) {
    return 0;
}
#else
TESTLIB_EXPORT int IconLibraryVersion(void) {
    return 1;
}
#endif
