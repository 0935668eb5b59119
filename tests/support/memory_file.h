// A file in a vector, behind the caller's I/O functions. It answers as a file would, or worse.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "io/byte_stream.h"

namespace tq::test {

using Bytes = std::vector<std::uint8_t>;

class MemoryFile {
 public:
  static constexpr StreamHandle kHandle{4711};

  // Installs all three functions; whatever the handle, this file answers.
  explicit MemoryFile(Bytes content = {});
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;
  ~MemoryFile();  // brings the library's own functions back

  void install(bool read, bool write, bool seek);

  Bytes bytes;
  std::int64_t position = 0;
  std::int64_t hole_at = INT64_MAX, hole = 0;  // so many bytes pretend to be there, too
  std::int32_t most_per_call = INT32_MAX;      // bytes, as a pipe would hand them out
  std::optional<std::int32_t> answer;          // of reads and writes, instead of the true count
  int calls = 0;                               // of reads, writes and seeks
  int failing_call = -1;                       // of these, from 0
  std::int32_t failure = -1;          // its answer; of a transfer always less than asked for
  bool seeks_lie = false;             // by that answer; else a seek that fails says so
  std::function<void()> during_call;  // what else the caller does in a read or write
  std::vector<std::int32_t> handles;  // as the functions were given them
  std::vector<std::int32_t> counts;   // of bytes asked for by reads and writes

 private:
  static std::int32_t IMG_CB_C on_read(std::int32_t stream, void* buffer, std::int32_t count);
  static std::int32_t IMG_CB_C on_write(std::int32_t stream, void* buffer, std::int32_t count);
  static std::int32_t IMG_CB_C on_seek(std::int32_t stream, std::int32_t offset,
                                       std::int32_t origin);
  std::int32_t start_transfer(std::int32_t stream, std::int32_t count);
  std::int64_t index() const { return position < hole_at ? position : position - hole; }
};

}  // namespace tq::test
