// Holds a list's own lock for the lifetime of a scope (LockList / UnlockList of the list store).
#pragma once

#include "lists/zlplist.h"

namespace vx {

class ListLockHold {
  public:
    explicit ListLockHold(ListId id) : id_(id), held_(LockList(id) == 0) {}
    ~ListLockHold() { Release(); }
    ListLockHold(const ListLockHold&) = delete;
    ListLockHold& operator=(const ListLockHold&) = delete;

    // False when the handle names no list (nothing is held then).
    bool Held() const { return held_; }
    void Release() {
        if (held_) UnlockList(id_);
        held_ = false;
    }

  private:
    ListId id_;
    bool held_;
};

}  // namespace vx
