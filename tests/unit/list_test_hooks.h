// List-store hooks for tests: heap memory that can be told to fail, a record of what was
// allocated (source, label, size) and the error lines written.
#pragma once

#include <cstdlib>
#include <mutex>
#include <string>
#include <vector>

#include "jobs/list_hooks.h"

namespace vxtest {

struct RecordingHooks {
    struct Allocation {
        std::string source;
        std::string label;
        size_t size;
    };

    vx::ListHooks hooks{this, &Alloc, &Release, &Error};
    std::mutex mutex;
    int failAt = 0;    // the allocation attempt (1-based, counted from Fail) that returns null
    int attempts = 0;  // attempts since Fail
    int live = 0;      // blocks not yet released
    std::vector<Allocation> allocations;
    std::vector<std::string> errors;

    void Fail(int nth) {
        std::lock_guard<std::mutex> hold(mutex);
        failAt = nth;
        attempts = 0;
    }
    void Forget() {
        std::lock_guard<std::mutex> hold(mutex);
        allocations.clear();
        errors.clear();
    }

    static void* Alloc(void* context, size_t size, const char* file, int, const char* label) {
        auto* self = static_cast<RecordingHooks*>(context);
        std::lock_guard<std::mutex> hold(self->mutex);
        if (++self->attempts == self->failAt) return nullptr;
        void* block = malloc(size);
        if (block == nullptr) return nullptr;
        ++self->live;
        self->allocations.push_back({file, label, size});
        return block;
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
