// Threads of Windows. The compiler's own thread-local variables would need a lock and a heap block
// for each thread.
#include "platform/thread.h"

#define WIN32_LEAN_AND_MEAN
#include <windows.h>

#include <cstdint>

namespace tq::platform {
namespace {

static_assert(sizeof(SRWLOCK) <= sizeof(Lock));

std::atomic<void (*)(void*)> end_action = nullptr;

void WINAPI tell_end(void* value) {
  void (*const action)(void*) = end_action.load();
  if (action != nullptr && value != nullptr) action(value);
}

// One slot from the first value on, as long as this code is loaded.
constexpr DWORD kNone = FLS_OUT_OF_INDEXES;
constinit Lock slot_lock;
constinit std::atomic<DWORD> slot = kNone;

DWORD make_slot() {
  const Locked locked(slot_lock);
  if (slot == kNone) slot = FlsAlloc(tell_end);
  return slot;
}

__attribute__((destructor)) void free_slot() {
  if (slot != kNone) FlsFree(slot.exchange(kNone));
}

}  // namespace

void Lock::lock() {
  AcquireSRWLockExclusive(reinterpret_cast<SRWLOCK*>(room_));
}
void Lock::unlock() {
  ReleaseSRWLockExclusive(reinterpret_cast<SRWLOCK*>(room_));
}

const void* thread_token() {
  return reinterpret_cast<const void*>(std::uintptr_t{GetCurrentThreadId()});
}

void* thread_value() {
  const DWORD index = slot.load(std::memory_order_relaxed);
  return index == kNone ? nullptr : FlsGetValue(index);
}

bool set_thread_value(void* value) {
  const DWORD index = make_slot();
  return index != kNone && FlsSetValue(index, value) != 0;
}

void at_thread_end(void (*action)(void* value)) {
  end_action = action;
}

}  // namespace tq::platform
