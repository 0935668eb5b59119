// Moving the window.
#include "io/stream_window.h"

#include <algorithm>

namespace tq {

std::int64_t find_end(StreamHandle stream) {
  const std::int32_t end = end_is_known(stream) ? seek(stream, 0, Origin::end) : -1;
  return end < 0 ? INT32_MAX : end;
}

Status StreamWindow::open(StreamHandle stream, std::int64_t bytes) {
  stream_ = stream;
  held_ = 0;
  return buffer_.allocate(bytes);
}

std::span<const std::uint8_t> StreamWindow::at(std::int64_t position, std::int64_t bytes) {
  bytes = std::clamp<std::int64_t>(bytes, 0, std::ssize(buffer_.bytes()));
  if (position < start_ || position + bytes > start_ + held_) {
    held_ = 0;
    if (seek_to(stream_, position).failed()) return {};
    if (const std::span<const std::uint8_t> rest = memory_rest(stream_); !rest.empty()) {
      return rest.first(static_cast<std::size_t>(std::min<std::int64_t>(bytes, std::ssize(rest))));
    }
    // Memory that has to be copied may end right behind what is wanted.
    const std::int64_t most = reads_memory(stream_) ? bytes : std::ssize(buffer_.bytes());
    held_ = read_fully(stream_, buffer_.bytes().first(static_cast<std::size_t>(most)));
    start_ = position;
  }
  const std::int64_t there = std::min(bytes, start_ + held_ - position);
  return buffer_.bytes().subspan(static_cast<std::size_t>(position - start_),
                                 static_cast<std::size_t>(there));
}

}  // namespace tq
