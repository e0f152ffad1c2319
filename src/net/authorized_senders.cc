#include "net/authorized_senders.h"

#include <atomic>
#include <cstring>
#include <mutex>

#include "base/text.h"
#include "printserver/trace.h"
#include "printserver/zelprsrv.h"

namespace vx {

namespace {

// The tool functions of the protocol side own the list's memory in the memory report.
constexpr const char* kSourceFile = "zlptool";
constexpr const char* kNodeTag = "authorization";
constexpr const char* kNameTag = "authorization name";

AuthorizedSender* g_head = nullptr;
std::atomic<bool> g_validationOff{false};

std::mutex g_lastUnauthorizedLock;
char g_lastUnauthorized[kSenderNameSize] = {};

void Release(Czelprsrv* p, AuthorizedSender* node) {
    if (p == nullptr) return;
    p->TrackedFree(node->name, kSourceFile, __LINE__, kNameTag, 0);
    p->TrackedFree(node, kSourceFile, __LINE__, kNodeTag, 0);
}

}  // namespace

const AuthorizedSender* AuthorizedSenders() {
    return g_head;
}

bool IsAuthorizedSender(const char* name) {
    if (name == nullptr) return false;
    for (const AuthorizedSender* node = g_head; node != nullptr; node = node->next)
        if (strcmp(node->name, name) == 0) return true;
    return false;
}

bool AddAuthorizedSender(const char* name) {
    Czelprsrv* p = g_prsrv;
    if (name == nullptr || p == nullptr) return false;
    Trace(kTraceNotable, "Adding authorization for sender '%s'\n", name);
    auto* node = static_cast<AuthorizedSender*>(
        p->TrackedAlloc(sizeof(AuthorizedSender), kSourceFile, __LINE__, kNodeTag, 0));
    if (node == nullptr) return false;
    size_t size = strlen(name) + 1;
    node->name = static_cast<char*>(p->TrackedAlloc(size, kSourceFile, __LINE__, kNameTag, 0));
    if (node->name == nullptr) {
        p->TrackedFree(node, kSourceFile, __LINE__, kNodeTag, 0);
        return false;
    }
    memcpy(node->name, name, size);
    node->next = g_head;
    g_head = node;
    return true;
}

bool DeleteAuthorizedSender(const char* name) {
    if (name == nullptr) return false;
    Trace(kTraceNotable, "Deleting authorization for sender '%s'\n", name);
    for (AuthorizedSender** link = &g_head; *link != nullptr; link = &(*link)->next) {
        AuthorizedSender* node = *link;
        if (strcmp(node->name, name) != 0) continue;
        *link = node->next;
        Release(g_prsrv, node);
        return true;
    }
    return false;
}

void ClearAuthorizedSenders() {
    while (g_head != nullptr) {
        AuthorizedSender* node = g_head;
        g_head = node->next;
        Release(g_prsrv, node);
    }
}

void LoadAuthorizedSenders() {
    Czelprsrv* p = g_prsrv;
    if (p == nullptr) return;
    int32_t count = p->GetGlobalInt("NumAuth", 0);
    // From the last to the first, so that "Auth1" ends up at the head of the list.
    for (int32_t n = count; n >= 1; --n) {
        char setting[32];
        FormatText(setting, sizeof setting, "Auth%d", static_cast<int>(n));
        char name[kSenderNameSize] = {};
        p->GetGlobalString(setting, "", name, sizeof name);
        if (name[0] != '\0') AddAuthorizedSender(name);
    }
    g_validationOff = p->GetGlobalInt("conn_aa", 0) != 0;
}

bool SenderValidationOff() {
    return g_validationOff;
}

void SetLastUnauthorizedSender(const char* name) {
    std::lock_guard<std::mutex> hold(g_lastUnauthorizedLock);
    CopyText(g_lastUnauthorized, name != nullptr ? name : "");
}

void GetLastUnauthorizedSender(char* out, size_t cap) {
    std::lock_guard<std::mutex> hold(g_lastUnauthorizedLock);
    CopyText(out, cap, g_lastUnauthorized);
}

}  // namespace vx
