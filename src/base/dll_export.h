/* How a shared library of the project marks its exported entry points: dllexport/dllimport on
   Windows, default visibility elsewhere. Plain C so that C interfaces can use it. */
#ifndef VORLIX_DLL_EXPORT_H
#define VORLIX_DLL_EXPORT_H

#if defined(_WIN32)
#define VX_DLL_EXPORT __declspec(dllexport)
#define VX_DLL_IMPORT __declspec(dllimport)
#else
#define VX_DLL_EXPORT __attribute__((visibility("default")))
#define VX_DLL_IMPORT
#endif

#endif
