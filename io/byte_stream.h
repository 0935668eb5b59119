// Byte streams: files, the one memory stream, and the caller's own input and output, all behind a
// 32-bit handle.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "core/context.h"
#include "core/status.h"
#include "include/tarnquill.h"
#include "platform/file.h"

namespace tq {

enum class StreamHandle : std::int32_t {};
inline constexpr StreamHandle kMemoryStream{IMG_MEMORY_STREAM};

enum class Origin : std::int32_t { start = 0, current = 1, end = 2 };
enum class OpenMode : std::int32_t { read = 0, update = 1, create = 2, exists = 3 };

// The new position; negative on failure. Positions of the memory stream are stored unchecked.
std::int32_t seek(StreamHandle stream, std::int32_t offset, Origin origin);
std::int32_t position(StreamHandle stream);

// The same for what a file says; read_failed for what is no position.
Status seek_to(StreamHandle stream, std::int64_t position);

// Bytes read, never negative; fewer than asked at the end, on an error, or because a caller's
// function hands out as many as it has.
std::int32_t read(StreamHandle stream, std::span<std::uint8_t> bytes);

// Reads until all of them are there; fewer only at the end or on an error. For everything that has
// a size: headers, tables, palettes.
std::int32_t read_fully(StreamHandle stream, std::span<std::uint8_t> bytes);

// Bytes written. While scrambling is on, `bytes` is changed during the call, and what could not be
// written stays changed: never pass constant data.
std::int32_t write(StreamHandle stream, std::span<std::uint8_t> bytes);

// The file's size; of the memory stream its position, callers rely on this.
std::int32_t stream_size(StreamHandle stream);

// A name as a caller gives it, coded as the context's options say at this moment.
platform::FileName file_name(const char* name);

// The handle, or a negative value; OpenMode::exists answers 0 or negative and opens nothing. A mode
// outside the four is answered by itself.
std::int32_t open_file(platform::FileName name, OpenMode mode);
void close_file(StreamHandle stream);
bool remove_file(platform::FileName name);
// Takes what lies behind so many bytes from a file; a caller's own keeps it.
void cut_file(StreamHandle stream, std::int32_t bytes);
// What has been written to a file stays when the system fails: write_failed. What else a caller's
// own functions write to is theirs to keep.
Status flush_to_disk(StreamHandle stream);

// Makes the memory stream read and write `block` from its start. Its limit is the block's size if
// it is a global memory block, else 0x70000000: as much as the data say.
void open_memory_stream(void* block);
void open_memory_stream(void* block, std::size_t size);
std::int32_t memory_position();
void set_memory_position(std::int32_t position);
std::uint32_t memory_openings();  // how often the stream was opened: whether it still is the same

// Takes the start of a file that only the library reads in one go, so that headers cost one call of the
// system; a caller's functions read for themselves.
class ReadAhead {
 public:
  explicit ReadAhead(StreamHandle file);
  ReadAhead(const ReadAhead&) = delete;
  ReadAhead& operator=(const ReadAhead&) = delete;
  ~ReadAhead();

  // What the functions of the platform answer.
  std::int32_t seek(std::int32_t offset, Origin origin);
  std::int32_t read(std::span<std::uint8_t> bytes);

  bool is_active_for(StreamHandle file) const { return active_ && file == file_; }
  void stop();  // from now on the file stands where it seems to

 private:
  static constexpr std::int32_t kBytes = 4096;

  StreamHandle file_;
  ReadAhead* before_;
  bool active_ = true;
  std::int32_t position_ = 0;
  std::int32_t count_ = -1;  // of bytes; -1: not read yet
  std::uint8_t bytes_[kBytes];
};

// Work of an export on streams. Work that a callback of other work begins leaves the memory stream
// as it found it: the other one goes on reading and writing its own block. Without it, rows would
// be saved into whatever block a callback has looked at, or has freed since.
class StreamWork {
 public:
  StreamWork();
  StreamWork(const StreamWork&) = delete;
  StreamWork& operator=(const StreamWork&) = delete;
  ~StreamWork();

 private:
  Inside inside_;
  MemoryStreamState before_;
};

// A file that only the library writes to while this lives: how many writes it takes is seen by nobody.
class OwnFile {
 public:
  explicit OwnFile(StreamHandle file);
  OwnFile(const OwnFile&) = delete;
  OwnFile& operator=(const OwnFile&) = delete;
  ~OwnFile();

 private:
  std::int32_t before_;
};
bool is_own_file(StreamHandle stream);  // not if a caller's functions write it
// The same, or memory, and neither changes what is written.
bool takes_bytes_as_they_are(StreamHandle stream);

void set_caller_io(img_read_fn read, img_write_fn write, img_seek_fn seek);
bool caller_io_installed();  // any of the three
void set_scrambling(bool on, std::uint32_t key);

// The rest of the memory stream as it lies in memory, for readers that take it without a copy.
// Empty unless `stream` is the memory stream, read and positioned by the library itself without
// scrambling. The span may be longer than what the caller owns, even longer than the address space
// behind its start: touch only what the format says is there and never form its end.
std::span<const std::uint8_t> memory_rest(StreamHandle stream);

// False for the memory stream over a block whose size nobody has told: what a format allows to be
// missing must not be looked for there.
bool end_is_known(StreamHandle stream);

// Whether bytes come from memory whose end is not known to be beyond what the format needs.
bool reads_memory(StreamHandle stream);

// A file that closes itself.
class OpenFile {
 public:
  OpenFile() = default;
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;
  ~OpenFile() { close(); }

  // cannot_open when reading, cannot_create otherwise; a null name likewise.
  Status open(const char* name, OpenMode mode) { return open(file_name(name), mode); }
  Status open(platform::FileName name, OpenMode mode) {
    close();
    const std::int32_t file = name.text == nullptr ? -1 : open_file(name, mode);
    if (file < 0) {
      return mode == OpenMode::read ? StatusCode::cannot_open : StatusCode::cannot_create;
    }
    handle_ = StreamHandle{file};
    open_ = true;
    return kOk;
  }
  void close() {
    if (open_) close_file(handle_);
    open_ = false;
  }
  StreamHandle handle() const { return handle_; }

 private:
  StreamHandle handle_{-1};
  bool open_ = false;
};

}  // namespace tq
