// Locks, auto-reset events and threads.
#pragma once

#include <cstdint>
#include <mutex>

namespace vx {

// A re-entrant lock: the same thread may enter it again (the critical section of the lists,
// the trace lock and the process-wide locks).
class RecursiveLock {
  public:
    RecursiveLock() = default;
    RecursiveLock(const RecursiveLock&) = delete;
    RecursiveLock& operator=(const RecursiveLock&) = delete;

    void Enter() { mutex_.lock(); }
    void Leave() { mutex_.unlock(); }

  private:
    std::recursive_mutex mutex_;
};

// Holds a RecursiveLock for the lifetime of a scope.
class LockHold {
  public:
    explicit LockHold(RecursiveLock& lock) : lock_(lock) { lock_.Enter(); }
    ~LockHold() { lock_.Leave(); }
    LockHold(const LockHold&) = delete;
    LockHold& operator=(const LockHold&) = delete;

  private:
    RecursiveLock& lock_;
};

// Auto-reset events. A named event is shared by every creator of the same name (within the
// process on Linux, system-wide on Windows). Create, set, wait and close are echoed to the API
// trace as "CreateEvent(..,%s) = %p", "SetEvent(%p)", "WaitForSingleObject(%p)", "CloseHandle(%p)".
using EventHandle = void*;

constexpr uint32_t kWaitInfinite = 0xFFFFFFFFu;
enum WaitResult { kWaitSignaled = 0, kWaitTimeout = 1, kWaitFailed = -1 };

// Returns null on failure. A null or empty name makes an unnamed event.
EventHandle EvCreate(const char* name);
int EvSet(EventHandle event);
// Waits until the event is set (and resets it) or the time-out in milliseconds passes.
WaitResult EvWait(EventHandle event, uint32_t timeoutMs);
int EvClose(EventHandle event);

// Owns one event handle; closes it on destruction.
class AutoEvent {
  public:
    AutoEvent() = default;
    explicit AutoEvent(const char* name) : handle_(EvCreate(name)) {}
    ~AutoEvent() { Reset(); }
    AutoEvent(const AutoEvent&) = delete;
    AutoEvent& operator=(const AutoEvent&) = delete;
    AutoEvent(AutoEvent&& other) noexcept : handle_(other.handle_) { other.handle_ = nullptr; }
    AutoEvent& operator=(AutoEvent&& other) noexcept {
        if (this != &other) {
            Reset();
            handle_ = other.handle_;
            other.handle_ = nullptr;
        }
        return *this;
    }

    bool Valid() const { return handle_ != nullptr; }
    EventHandle Get() const { return handle_; }
    int Set() { return EvSet(handle_); }
    WaitResult Wait(uint32_t timeoutMs) { return EvWait(handle_, timeoutMs); }
    void Reset() {
        if (handle_ != nullptr) EvClose(handle_);
        handle_ = nullptr;
    }

  private:
    EventHandle handle_ = nullptr;
};

// The operating system's id of the calling thread (as shown in every trace line).
uint32_t CurrentThreadId();

void SleepMs(uint32_t ms);
// The same in microseconds, for waits shorter than a few milliseconds; where the system sleeps
// only whole milliseconds, it sleeps at least as long as asked.
void SleepUs(uint64_t us);

}  // namespace vx
