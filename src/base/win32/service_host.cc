#include "base/service_host.h"

#include <windows.h>

namespace vx {

namespace {

ServiceEntry g_entry = nullptr;

void WINAPI ServiceTrampoline(DWORD, LPSTR*) {
    if (g_entry != nullptr) g_entry();
}

}  // namespace

int RunServiceDispatcher(const char* serviceName, ServiceEntry entry) {
    g_entry = entry;
    char name[256];
    lstrcpynA(name, serviceName, sizeof name);
    SERVICE_TABLE_ENTRYA table[] = {{name, ServiceTrampoline}, {nullptr, nullptr}};
    return StartServiceCtrlDispatcherA(table) ? 0 : -1;
}

}  // namespace vx
