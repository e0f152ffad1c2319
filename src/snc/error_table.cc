#include "snc/error_table.h"

#include "snc/vorlixsnc.h"

namespace vx::snc {

namespace {

struct ErrorEntry {
    int code;
    const char* name;
    const char* description;
};

constexpr ErrorEntry kErrors[] = {
    {SNC_OK, "SNC_OK", "No error"},
    {SNC_ERR_NI, "SNC_ERR_NI", "The network layer below the secured session failed"},
    {SNC_ERR_PROFILE, "SNC_ERR_PROFILE",
     "The profile, a certificate or a key named in it cannot be read"},
    {SNC_ERR_HANDSHAKE, "SNC_ERR_HANDSHAKE",
     "The peer's hand-shake failed or its certificate was refused"},
    {SNC_ERR_STATE, "SNC_ERR_STATE", "The call does not fit the state of the library or session"},
    {SNC_ERR_ARGUMENT, "SNC_ERR_ARGUMENT", "A null or out-of-range argument"},
    {SNC_ERR_PROTOCOL, "SNC_ERR_PROTOCOL", "The secured stream is broken"},
    {SNC_ERR_MEMORY, "SNC_ERR_MEMORY", "Out of memory"},
};

const ErrorEntry* Find(int code) {
    for (const ErrorEntry& entry : kErrors)
        if (entry.code == code) return &entry;
    return nullptr;
}

}  // namespace

const char* ErrorName(int code) {
    const ErrorEntry* entry = Find(code);
    return entry != nullptr ? entry->name : nullptr;
}

const char* ErrorDescription(int code) {
    const ErrorEntry* entry = Find(code);
    return entry != nullptr ? entry->description : "Unknown error code";
}

}  // namespace vx::snc
