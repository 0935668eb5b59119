// What every module's entries begin with: the host's streams, and a state of their own.
#pragma once

#include "core/context.h"
#include "formats/codec.h"
#include "tarnquill_plugin.h"

namespace tq::modules {

struct Host {
  img_read_fn read = nullptr;
  img_write_fn write = nullptr;
  img_seek_fn seek = nullptr;
  img_tiff_helper_fn tiff = nullptr;

  // Without a function that it needs a codec reads nothing.
  bool can_read() const { return read != nullptr && seek != nullptr; }
};

// The calling thread's state while an entry runs over the host's streams: nothing stays behind it.
class EntryScope {
 public:
  explicit EntryScope(const Host& host) : before_(platform::thread_value()) {
    own_.streams.read = host.read;
    own_.streams.write = host.write;
    own_.streams.seek = host.seek;
    entered_ = platform::set_thread_value(&own_);
  }
  ~EntryScope() {
    if (!entered_) return;
    release_kept_blocks();
    platform::set_thread_value(before_);
  }
  EntryScope(const EntryScope&) = delete;
  EntryScope& operator=(const EntryScope&) = delete;

  bool entered() const { return entered_; }

 private:
  Context own_;
  void* before_;
  bool entered_;
};

inline constexpr std::uint32_t kPage = 0x80000000;  // a page number, not an offset

inline formats::DecodeRequest decode_request(StreamHandle stream, std::uint32_t offset_or_page,
                                             const formats::RowSink& sink) {
  formats::DecodeRequest request{.stream = stream, .sink = sink};
  if (offset_or_page >= kPage) {
    request.page = offset_or_page - kPage;
  } else {
    request.offset = offset_or_page;
  }
  return request;
}

}  // namespace tq::modules
