// What a list store needs from its owner: tracked memory and a place for its error lines.
// The print-server object supplies these; tests supply their own.
#pragma once

#include <cstddef>

namespace vx {

struct ListHooks {
    void* context;
    // Returns a block of size bytes, or null. label names the list part ("ListHeader.StartOfData").
    void* (*alloc)(void* context, size_t size, const char* file, int line, const char* label);
    void (*release)(void* context, void* block, const char* file, int line, const char* label);
    // One error line; the text ends with "\n" and does not carry the "Error: " prefix.
    void (*error)(void* context, const char* text);
};

// Plain heap memory and no trace: what a store uses before its owner installs hooks.
const ListHooks* PlainListHooks();

}  // namespace vx
