// POSIX threads.
#include "platform/thread.h"

#include <pthread.h>

#include <cstring>
#include <new>

namespace tq::platform {

thread_local constinit void* own_thread_value [[gnu::tls_model("initial-exec")]] = nullptr;

namespace {

static_assert(sizeof(pthread_mutex_t) <= sizeof(Lock));

pthread_mutex_t* mutex_in(unsigned char* room) {
  return std::launder(reinterpret_cast<pthread_mutex_t*>(room));
}

// One more value for each thread, which tells of the thread's end.
struct EndNotice {
  Lock lock;
  bool exists = false;
  pthread_key_t key{};
  std::atomic<void (*)(void*)> action = nullptr;
};
constinit EndNotice notice;

void tell_end(void* value) {
  own_thread_value = nullptr;
  if (void (*const action)(void*) = notice.action.load(); action != nullptr) action(value);
}

bool make_key() {
  const Locked locked(notice.lock);
  if (!notice.exists) notice.exists = pthread_key_create(&notice.key, tell_end) == 0;
  return notice.exists;
}

// The code that a thread would call at its end goes away.
__attribute__((destructor)) void delete_key() {
  if (notice.exists) pthread_key_delete(notice.key);
  notice.exists = false;
}

}  // namespace

void Lock::lock() {
  pthread_mutex_lock(mutex_in(room_));
}
void Lock::unlock() {
  pthread_mutex_unlock(mutex_in(room_));
}

const void* thread_token() {
  return &own_thread_value;
}

bool set_thread_value(void* value) {
  if (!make_key() || pthread_setspecific(notice.key, value) != 0) return false;
  own_thread_value = value;
  return true;
}

void at_thread_end(void (*action)(void* value)) {
  notice.action = action;
}

}  // namespace tq::platform
