// What threads share and what each has for itself.
#pragma once

#include <atomic>

namespace tq::platform {

// A lock that needs no clearing away.
class Lock {
 public:
  void lock();
  void unlock();

 private:
  alignas(8) unsigned char room_[48] = {};  // zeros are an open lock
};

class Locked {
 public:
  explicit Locked(Lock& lock) : lock_(lock) { lock_.lock(); }
  ~Locked() { lock_.unlock(); }
  Locked(const Locked&) = delete;
  Locked& operator=(const Locked&) = delete;

 private:
  Lock& lock_;
};

// Something of the calling thread's that no other thread has at the same time.
const void* thread_token();

// The same, for a thread that may come back while it holds it.
class RecursiveLock {
 public:
  void lock() {
    const void* const self = thread_token();
    if (owner_.load(std::memory_order_relaxed) != self) {
      lock_.lock();
      owner_.store(self, std::memory_order_relaxed);
    }
    ++depth_;
  }
  void unlock() {
    if (--depth_ > 0) return;
    owner_.store(nullptr, std::memory_order_relaxed);
    lock_.unlock();
  }

 private:
  Lock lock_;
  std::atomic<const void*> owner_ = nullptr;
  int depth_ = 0;
};

// A pointer that each thread has for itself; null at first.
#ifdef _WIN32
void* thread_value();
#else
extern thread_local constinit void* own_thread_value [[gnu::tls_model("initial-exec")]];
inline void* thread_value() {
  return own_thread_value;
}
#endif

// False when the system has no room for it; it then stays what it was.
bool set_thread_value(void* value);

// What is done with the value of a thread that ends, unless it is null. The last one given counts.
void at_thread_end(void (*action)(void* value));

}  // namespace tq::platform
