// Bytes anywhere in a stream, for formats whose rows lie apart, or not in the order of the picture.
#pragma once

#include <cstdint>
#include <span>

#include "core/memory.h"
#include "io/byte_stream.h"

namespace tq {

// Where the stream ends, as far as anybody knows: INT32_MAX for memory that does not say. The
// position is lost.
std::int64_t find_end(StreamHandle stream);

// Looks at a stream through a buffer that is filled when it has to move; at memory in place.
class StreamWindow {
 public:
  Status open(StreamHandle stream, std::int64_t bytes);  // out_of_memory

  // The bytes at a position, at most as many as the window holds; fewer only at the end of the
  // stream. Valid until the next call.
  std::span<const std::uint8_t> at(std::int64_t position, std::int64_t bytes);

 private:
  StreamHandle stream_{-1};
  GlobalBlock buffer_;
  std::int64_t start_ = 0;
  std::int32_t held_ = 0;
};

}  // namespace tq
