// A typed view of a list whose elements are records of one type T: the list store keeps bytes, this
// view gives them back as T, so that users do not cast element pointers themselves. T must be a
// plain record (the store copies elements byte for byte). The lock argument means what it means in
// the list store: nonzero takes the list's own lock for the call, 0 says the caller holds it.
#pragma once

#include <cstdint>
#include <type_traits>

#include "lists/zlplist.h"

namespace vx {

template <typename T>
class TypedList {
    static_assert(std::is_trivially_copyable_v<T>, "list elements are copied byte for byte");

  public:
    explicit TypedList(ListId id) : id_(id) {}
    ListId Id() const { return id_; }

    // Makes a list for elements of T. 0 or -1.
    static int Create(int32_t initialCount, ListId* out, int countMemory) {
        return InitList(initialCount, sizeof(T), out, countMemory);
    }

    int Append(const T& element, int lock) const { return AppendElement(id_, &element, lock); }
    int ReplaceAt(int32_t index, const T& element, int lock) const {
        return ReplaceElementAtIndex(id_, index, &element, lock);
    }

    // The first element in place (valid until it is deleted), or null for an empty list.
    T* First(int lock) const {
        void* data = nullptr;
        if (GetFirstElement(id_, &data, lock) != 0) return nullptr;
        return static_cast<T*>(data);
    }
    // Copies the first element; false for an empty list.
    bool CopyFirst(T* out, int lock) const {
        T* first = First(lock);
        if (first == nullptr) return false;
        *out = *first;
        return true;
    }

    // Visits the elements in order, in place, under the lock the caller holds; visit returns true
    // to stop early.
    template <typename Visit>
    void ForEach(Visit visit) const {
        void* data = nullptr;
        for (int rc = GetFirstElement(id_, &data, 0); rc == 0 && data != nullptr;
             rc = GetNextElement(id_, &data, 0))
            if (visit(*static_cast<T*>(data))) return;
    }

  private:
    ListId id_;
};

}  // namespace vx
