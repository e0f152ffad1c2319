// Stand-ins for the optional libraries the service binds at start. Each exports what the test
// variant needs, as plain C functions.
#pragma once

#if defined(_WIN32)
#define TESTLIB_EXPORT extern "C" __declspec(dllexport)
#else
#define TESTLIB_EXPORT extern "C" __attribute__((visibility("default")))
#endif
