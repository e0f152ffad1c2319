// A few values kept by name (a printer's), shared by threads: a name not among them takes the
// slot of the oldest name taken in. Small and fixed, for facts worth remembering but not worth
// keeping for every name there is.
#pragma once

#include <cstddef>
#include <cstring>
#include <mutex>

#include "base/text.h"

namespace vx {

template <typename Value, size_t kSlots>
class NamedSlots {
  public:
    // The value kept for name; false when there is none.
    bool Find(const char* name, Value* out) {
        std::lock_guard<std::mutex> hold(lock_);
        const Slot* slot = SlotOf(name);
        if (slot == nullptr) return false;
        *out = slot->value;
        return true;
    }

    // Sets the value of name to update(&value, known): known tells whether a value was kept.
    template <typename Update>
    void Note(const char* name, Update update) {
        std::lock_guard<std::mutex> hold(lock_);
        Slot* slot = SlotOf(name);
        bool known = slot != nullptr;
        if (!known) {
            slot = &slots_[next_];
            next_ = (next_ + 1) % kSlots;
            CopyText(slot->name, name);
        }
        update(&slot->value, known);
    }

  private:
    struct Slot {
        char name[256] = {};
        Value value{};
    };

    Slot* SlotOf(const char* name) {
        for (Slot& slot : slots_)
            if (slot.name[0] != '\0' && strcmp(slot.name, name) == 0) return &slot;
        return nullptr;
    }

    std::mutex lock_;
    Slot slots_[kSlots];
    size_t next_ = 0;  // the slot a new name takes
};

}  // namespace vx
