// Bytes on their way to a stream: gathered, then written in pieces of one size.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "core/memory.h"
#include "core/numbers.h"
#include "io/byte_stream.h"
#include "io/temp_file.h"
#include "platform/text.h"

namespace tq {

// Fewer bytes taken than given is write_failed. A failure stays, and nothing is written after it: a
// header puts its fields and asks for the status once; rows ask row by row, so that no caller is
// asked for rows that go nowhere. The stream is handed the writer's own copy, because a write
// function may change what it gets.
class StreamWriter {
 public:
  static constexpr std::int32_t kPieceBytes = 32768;
  static constexpr std::int32_t kLongestPrint = 3000;  // bytes

  StreamWriter() = default;
  StreamWriter(const StreamWriter&) = delete;
  StreamWriter& operator=(const StreamWriter&) = delete;

  // Bytes go to the stream's present position. out_of_memory.
  Status open(StreamHandle stream, std::int32_t piece_bytes = kPieceBytes);
  // The same for a file, or for whatever else has write(bytes), which answers how many it took; it
  // has nothing to patch and outlives the writer.
  Status open(TempFile& file) { return open_to(file); }
  template <class Owner>
  Status open_to(Owner& owner);

  void put8(int value) {
    if (std::uint8_t* at = place(1); at != nullptr) at[0] = byte(value);
  }
  void put_le16(std::uint32_t value);
  void put_le32(std::uint32_t value);
  void put_be16(std::uint32_t value);
  void put_be32(std::uint32_t value);
  void put(std::span<const std::uint8_t> bytes);
  void put(std::string_view text);
  void fill(std::int64_t count, int value);

  // At most kLongestPrint bytes; write_failed beyond.
  [[gnu::format(printf, 2, 3)]] void print(const char* format, ...);

  // For coders that know how much they need at most: `bytes` bytes in one place, more than a piece
  // if need be; empty after a failure. take() keeps the first of them.
  std::span<std::uint8_t> room(std::int64_t bytes);
  void take(std::ptrdiff_t bytes) { used_ += bytes; }

  // What is large and lies there whole, in one write; false, and nothing is put, where that would be seen
  // or change the bytes.
  bool put_whole(std::span<const std::uint8_t> bytes);

  // Writes what has been gathered.
  Status flush();
  // The same for what is a write of its own to whoever watches the stream: not to an own file.
  Status end_write() { return gathers_ ? status_ : flush(); }

  // Replaces bytes at an earlier position of the stream. What has been gathered is written first;
  // afterwards the stream stands where it stood.
  Status patch(std::int32_t position, std::span<const std::uint8_t> bytes);
  // The same for bytes that were put when count() was `count`.
  Status patch_put(std::int64_t count, std::span<const std::uint8_t> bytes);

  Status status() const { return status_; }
  bool gathers() const { return gathers_; }  // nobody sees how large the pieces are

  // Bytes put since the writer was opened.
  std::int64_t count() const { return written_ + used_; }

 private:
  // Room for a field, below a piece; null after a failure.
  std::uint8_t* place(std::ptrdiff_t bytes) {
    if (bytes > piece_ - used_) make_room();
    if (status_.failed()) return nullptr;
    std::uint8_t* at = buffer_.data() + used_;
    used_ += bytes;
    return at;
  }

  void make_room();  // in the piece, by a write
  Status write_first(std::ptrdiff_t count);

  using OwnerWrite = std::int32_t (*)(void* owner, std::span<const std::uint8_t> bytes);

  StreamHandle stream_{-1};
  void* owner_ = nullptr;  // of what is written to instead of the stream
  OwnerWrite write_to_owner_ = nullptr;
  bool gathers_ = false;  // in an own file: larger pieces than asked for, in room for two
  GlobalBlock buffer_;
  std::ptrdiff_t piece_ = 0;
  std::ptrdiff_t used_ = 0;  // beyond a piece after take()
  std::int64_t written_ = 0;
  Status status_ = kOk;
};

template <class Owner>
Status StreamWriter::open_to(Owner& owner) {
  TQ_TRY(open(StreamHandle{-1}));
  owner_ = &owner;
  write_to_owner_ = [](void* to, std::span<const std::uint8_t> bytes) {
    return static_cast<Owner*>(to)->write(bytes);
  };
  return kOk;
}

// Here, so that only who prints links the system's.
inline void StreamWriter::print(const char* format, ...) {
  const std::span<std::uint8_t> text = room(kLongestPrint + 1);
  if (text.empty()) return;
  va_list values;
  va_start(values, format);
  const int bytes =
      platform::format_text({reinterpret_cast<char*>(text.data()), text.size()}, format, values);
  va_end(values);
  if (bytes < 0) {
    status_ = StatusCode::write_failed;
    return;
  }
  take(bytes);
}

}  // namespace tq
