// All state that belongs to a caller: what stays from one call of the interface to the next. What
// is the process's own (the table of contexts, the register of live blocks, loaded modules, the
// processor's features, the licence check) stands elsewhere.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

#include "core/image_record.h"
#include "core/options.h"
#include "core/texts.h"
#include "include/tarnquill.h"
#include "platform/thread.h"

namespace tq {

inline constexpr int kSwitches = 67;

constexpr std::array<bool, kSwitches> all_but_text() {
  std::array<bool, kSwitches> on{};
  on.fill(true);
  on[IMG_TYPE_TEXT] = false;  // almost any ten printable bytes would pass
  on[66] = false;
  return on;
}

// What JPEG saves use.
struct JpegSettings {
  std::int32_t quality = 0;   // 1 to 100; 0: none has been set
  std::int32_t h = 2, v = 1;  // sampling factors of luminance
};

struct Settings {
  struct {
    img_progress_fn call = nullptr;
    std::intptr_t context = 0;
    bool on = false;
  } progress;
  std::int32_t decomp_reduction = 0;
  Size decomp_size;
  Rect decomp_rect;
  std::int32_t dither_mode = 1;
  std::array<bool, kSwitches> auto_detect = all_but_text();  // by file type code
  std::int32_t read_budget = 30000;                          // bytes that a decoder reads at a time
  JpegSettings jpeg;
  std::array<std::intptr_t, 2> display_functions{};  // kept, and never called
  struct {
    img_display_fn call = nullptr;
    std::intptr_t context = 0;
  } display;
  std::int32_t auto_color = 0, alias = 1, alias_quality = 1;
  std::int32_t wipe_delay = 10;  // milliseconds
};

// Where the memory stream stands.
struct MemoryStreamState {
  std::uint8_t* block = nullptr;
  std::int32_t position = 0;  // as callers set it: maybe negative or behind the limit
  std::int32_t limit = 0;
  bool limit_is_known = true;
  std::uint32_t openings = 0;
};

class ReadAhead;

struct StreamState {
  static constexpr std::int32_t kNoFile = INT32_MIN;

  img_read_fn read = nullptr;  // the caller's own functions, or null
  img_write_fn write = nullptr;
  img_seek_fn seek = nullptr;
  MemoryStreamState memory;
  std::int32_t own_file = kNoFile;  // written to by nobody but the library
  ReadAhead* ahead = nullptr;       // of the file that is read
  int works = 0;                    // of exports on streams, one inside the other
  bool scrambled = false;
  std::uint8_t key = 0;
};

struct ImageTable {
  ImageRecord** records = nullptr;  // a block while there are images
  std::int32_t in_use = 0;          // one past the highest handle that is given out
  std::int32_t first_free = 0;      // below it all are in use
  std::uint64_t next_serial = 1;
  std::int32_t adopted = 0;  // images whose pixels came from a caller
};

struct MemoryState {
  struct KeptBlock {
    void* block = nullptr;
    std::size_t size = 0;
  };
  // Every operation replaces an image by one of the same size, so the same sizes come and go. Two
  // blocks cover an image and its successor.
  std::array<KeptBlock, 2> kept;
  std::int64_t live = 0, tracked = 0;
  std::int64_t live_bytes = 0;
  std::int64_t refuse_after = -1;
  bool refused = false;
  std::uint64_t largest = kLargestBlock;
  int fill = -1;
};

struct Context {
  std::int32_t number = 0;
  bool taken = false;                         // by a thread; never the first
  std::atomic<const void*> inside = nullptr;  // the token of a thread inside of an export
  Settings settings;
  Options options;
  Texts texts;
  Damage last_damage;  // of the last decode
  StreamState streams;
  const void* module_request = nullptr;  // that a module's entry was called for, while it runs
  ImageTable images;
  MemoryState memory;
  platform::RecursiveLock lock;  // taken only where a caller wants that
};

// What every thread begins with. Threads that share it take care of each other themselves.
extern constinit Context the_context;

// The calling thread's.
inline Context& context() {
  void* const own = platform::thread_value();
  return own == nullptr ? the_context : *static_cast<Context*>(own);
}

// The calling thread is inside of an export, for the scope: it may be called back.
class Inside {
 public:
  Inside() : outermost_(context().inside.load(std::memory_order_relaxed) == nullptr) {
    if (outermost_) context().inside.store(platform::thread_token(), std::memory_order_relaxed);
  }
  ~Inside() {
    if (outermost_) context().inside.store(nullptr, std::memory_order_relaxed);
  }
  Inside(const Inside&) = delete;
  Inside& operator=(const Inside&) = delete;

 private:
  bool outermost_;
};

// Other threads on the same context wait until the end of the scope, with SERIALISE. Callbacks may come
// back in: it is recursive.
class Serialised {
 public:
  Serialised() {
    if (context().options.get<IMG_OPTION_SERIALISE>() == 1) lock_ = &context().lock;
    if (lock_ != nullptr) lock_->lock();
  }
  ~Serialised() {
    if (lock_ != nullptr) lock_->unlock();
  }
  Serialised(const Serialised&) = delete;
  Serialised& operator=(const Serialised&) = delete;

 private:
  platform::RecursiveLock* lock_ = nullptr;
};

// Tells the caller's progress callback, if there is one and reporting is on. Its negative answer is
// the result.
Status report_progress(std::int32_t value);

// Tells the caller's display callback, if there is one, that an image was made or changed, or is about
// to go; it may do anything. For an image whose number is a handle.
enum class ImageEvent : std::int32_t { made = 1, changed = 2, going = 3 };
void report_image(std::int32_t image, ImageEvent event);

}  // namespace tq
