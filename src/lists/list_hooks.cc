#include "lists/list_hooks.h"

#include <cstdlib>

namespace vx {

namespace {
void* PlainAlloc(void*, size_t size, const char*, int, const char*) {
    return calloc(1, size);
}
void PlainRelease(void*, void* block, const char*, int, const char*) {
    free(block);
}
void NoTrace(void*, const char*) {}
const ListHooks kPlainHooks = {nullptr, PlainAlloc, PlainRelease, NoTrace};
}  // namespace

const ListHooks* PlainListHooks() {
    return &kPlainHooks;
}

}  // namespace vx
