// List-store hooks for tests: heap memory that can be told to fail, a count of the blocks still
// held and a record of the error lines written.
#pragma once

#include <cstdlib>
#include <mutex>
#include <string>
#include <vector>

#include "lists/list_hooks.h"

namespace vxtest {

struct RecordingHooks {
    vx::ListHooks hooks{this, &Alloc, &Release, &Error};
    std::mutex mutex;
    int failAt = 0;  // the allocation attempt (1-based, counted from Fail) that returns null
    int attempts = 0;
    int live = 0;  // blocks not yet released
    std::vector<std::string> errors;

    void Fail(int nth) {
        failAt = nth;
        attempts = 0;
    }
    void Forget() { errors.clear(); }

    static void* Alloc(void* context, size_t size, const char*, int, const char*) {
        auto* self = static_cast<RecordingHooks*>(context);
        std::lock_guard<std::mutex> hold(self->mutex);
        if (++self->attempts == self->failAt) return nullptr;
        ++self->live;
        return malloc(size);
    }
    static void Release(void* context, void* block, const char*, int, const char*) {
        auto* self = static_cast<RecordingHooks*>(context);
        std::lock_guard<std::mutex> hold(self->mutex);
        --self->live;
        free(block);
    }
    static void Error(void* context, const char* text) {
        auto* self = static_cast<RecordingHooks*>(context);
        std::lock_guard<std::mutex> hold(self->mutex);
        self->errors.push_back(text);
    }
};

}  // namespace vxtest
