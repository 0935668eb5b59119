// Reading, writing and seeking: the caller's functions first, then memory or a file.
#include "io/byte_stream.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "core/numbers.h"
#include "platform/memory.h"

namespace tq {
namespace {

constexpr std::int32_t kUnknownLimit = 0x70000000;

StreamState& streams() {
  return context().streams;
}

std::int32_t count_of(std::span<const std::uint8_t> bytes) {
  return static_cast<std::int32_t>(std::min<std::size_t>(bytes.size(), INT32_MAX));
}

// Functions of the system answer -1 on an error, those of a caller may answer anything.
std::int32_t trusted(std::int32_t answer, std::int32_t count) {
  return std::clamp(answer, 0, count);
}

void scramble(std::uint8_t* bytes, std::int32_t count) {
  const std::uint8_t key = streams().key;
  for (std::int32_t i = 0; i < count; ++i) bytes[i] ^= key;
}

// How many bytes there are from the memory stream's position to its limit.
std::int32_t memory_left() {
  const auto& memory = streams().memory;
  if (memory.position < 0 || memory.position >= memory.limit) return 0;
  return memory.limit - memory.position;
}

ReadAhead* read_ahead_of(StreamHandle stream) {
  ReadAhead* const ahead = streams().ahead;
  if (ahead == nullptr || !ahead->is_active_for(stream)) return nullptr;
  if (!caller_io_installed()) return ahead;
  ahead->stop();
  return nullptr;
}

std::int32_t seek_memory(std::int32_t offset, Origin origin) {
  auto& memory = streams().memory;
  std::int64_t position = memory.position;
  if (origin == Origin::start) position = offset;
  if (origin == Origin::current) position += offset;
  if (origin == Origin::end) position = std::int64_t{memory.limit} + offset;
  memory.position = static_cast<std::int32_t>(position);  // wraps, as 32-bit sums do
  return memory.position;
}

std::int32_t read_memory(std::uint8_t* bytes, std::int32_t count) {
  auto& memory = streams().memory;
  const std::int32_t taken = std::min(count, memory_left());
  if (taken == 0) return 0;
  std::memmove(bytes, memory.block + memory.position, taken);
  memory.position += taken;
  return taken;
}

std::int32_t write_memory(const std::uint8_t* bytes, std::int32_t count) {
  auto& memory = streams().memory;
  const std::int32_t put = std::min(count, memory_left());
  if (put == 0) return 0;
  std::memmove(memory.block + memory.position, bytes, put);
  memory.position += put;
  return put;
}

void open_memory(void* block, std::uint64_t limit, bool limit_is_known) {
  auto& memory = streams().memory;
  memory.block = static_cast<std::uint8_t*>(block);
  memory.position = 0;
  memory.limit =
      block == nullptr ? 0 : static_cast<std::int32_t>(std::min<std::uint64_t>(limit, INT32_MAX));
  memory.limit_is_known = limit_is_known;
  ++memory.openings;
}

std::int32_t read_file(StreamHandle stream, std::span<std::uint8_t> bytes) {
  if (ReadAhead* const ahead = read_ahead_of(stream)) return ahead->read(bytes);
  return platform::file_read(static_cast<std::int32_t>(stream), bytes.data(), count_of(bytes));
}

}  // namespace

ReadAhead::ReadAhead(StreamHandle file)
    : file_(file), before_(std::exchange(streams().ahead, this)) {}

ReadAhead::~ReadAhead() {
  streams().ahead = before_;
}

void ReadAhead::stop() {
  active_ = false;
  platform::file_seek(static_cast<std::int32_t>(file_), position_, 0);
}

std::int32_t ReadAhead::seek(std::int32_t offset, Origin origin) {
  const std::int64_t from = origin == Origin::current ? position_ : 0;
  const bool is_position = from + offset >= 0 && from + offset <= INT32_MAX;
  if ((origin == Origin::start || origin == Origin::current) && is_position) {
    return position_ = static_cast<std::int32_t>(from + offset);
  }
  stop();
  return tq::seek(file_, offset, origin);
}

std::int32_t ReadAhead::read(std::span<std::uint8_t> bytes) {
  const auto file = static_cast<std::int32_t>(file_);
  if (count_ < 0) count_ = platform::file_read_at(file, bytes_, kBytes, 0);
  const std::int32_t left = std::max(count_ - position_, 0);
  const bool ends = count_ >= 0 && count_ < kBytes;
  if (!ends && std::ssize(bytes) > left) {
    stop();
    return tq::read_file(file_, bytes);
  }
  const std::int32_t taken = std::min(left, count_of(bytes));
  if (taken > 0) std::copy_n(bytes_ + position_, taken, bytes.data());
  position_ += taken;
  return taken;
}

std::int32_t seek(StreamHandle stream, std::int32_t offset, Origin origin) {
  const auto handle = static_cast<std::int32_t>(stream);
  if (const auto caller = streams().seek; caller != nullptr) {
    return caller(handle, offset, static_cast<std::int32_t>(origin));
  }
  if (stream == kMemoryStream) return seek_memory(offset, origin);
  if (ReadAhead* const ahead = read_ahead_of(stream)) return ahead->seek(offset, origin);
  return platform::file_seek(handle, offset, static_cast<std::int32_t>(origin));
}

Status seek_to(StreamHandle stream, std::int64_t position) {
  const bool there = position >= 0 && position <= INT32_MAX &&
                     seek(stream, static_cast<std::int32_t>(position), Origin::start) >= 0;
  return there ? StatusCode::ok : StatusCode::read_failed;
}

std::int32_t position(StreamHandle stream) {
  return seek(stream, 0, Origin::current);
}

std::int32_t read(StreamHandle stream, std::span<std::uint8_t> bytes) {
  const auto handle = static_cast<std::int32_t>(stream);
  const std::int32_t count = count_of(bytes);
  if (count == 0) return 0;
  if (const auto caller = streams().read; caller != nullptr) {
    return trusted(caller(handle, bytes.data(), count), count);
  }
  const std::int32_t taken =
      stream == kMemoryStream
          ? read_memory(bytes.data(), count)
          : trusted(read_file(stream, bytes.first(static_cast<std::size_t>(count))), count);
  if (streams().scrambled) scramble(bytes.data(), taken);
  return taken;
}

std::int32_t read_fully(StreamHandle stream, std::span<std::uint8_t> bytes) {
  bytes = bytes.first(count_of(bytes));
  std::int32_t done = 0;
  for (std::int32_t got = 1; got > 0 && done < std::ssize(bytes); done += got) {
    got = read(stream, bytes.subspan(done));
  }
  return done;
}

std::int32_t write(StreamHandle stream, std::span<std::uint8_t> bytes) {
  const auto handle = static_cast<std::int32_t>(stream);
  const std::int32_t count = count_of(bytes);
  if (count == 0) return 0;  // a file would be cut off here on some systems
  if (const auto caller = streams().write; caller != nullptr) {
    return trusted(caller(handle, bytes.data(), count), count);
  }
  const bool scrambled = streams().scrambled;
  if (scrambled) scramble(bytes.data(), count);
  const std::int32_t put = stream == kMemoryStream
                               ? write_memory(bytes.data(), count)
                               : trusted(platform::file_write(handle, bytes.data(), count), count);
  if (scrambled) scramble(bytes.data(), put);
  return put;
}

std::int32_t stream_size(StreamHandle stream) {
  if (stream == kMemoryStream) return streams().memory.position;
  const std::int32_t before = position(stream);
  const std::int32_t size = seek(stream, 0, Origin::end);
  seek(stream, before, Origin::start);
  return size;
}

platform::FileName file_name(const char* name) {
  return {name, context().options.get(IMG_OPTION_UTF8_NAMES) == 1};
}

std::int32_t open_file(platform::FileName name, OpenMode mode) {
  const auto raw = static_cast<std::int32_t>(mode);
  if (raw < 0 || raw > static_cast<std::int32_t>(OpenMode::exists)) return raw;
  if (name.text == nullptr) return -1;
  if (mode == OpenMode::exists) return platform::file_exists(name) ? 0 : -1;
  return platform::file_open(name, static_cast<platform::FileMode>(raw));
}

void close_file(StreamHandle stream) {
  platform::file_close(static_cast<std::int32_t>(stream));
}

void cut_file(StreamHandle stream, std::int32_t bytes) {
  if (stream == kMemoryStream || caller_io_installed() || bytes < 0) return;
  platform::file_cut(static_cast<std::int32_t>(stream), bytes);
}

bool remove_file(platform::FileName name) {
  return name.text != nullptr && platform::file_remove(name);
}

Status flush_to_disk(StreamHandle stream) {
  if (stream == kMemoryStream || caller_io_installed()) return kOk;
  const bool flushed = platform::file_flush(static_cast<std::int32_t>(stream));
  return flushed ? StatusCode::ok : StatusCode::write_failed;
}

void open_memory_stream(void* block) {
  const std::size_t size = platform::block_size(block);
  open_memory(block, size == 0 ? kUnknownLimit : size, size != 0);
}

void open_memory_stream(void* block, std::size_t size) {
  open_memory(block, size, true);
}

std::int32_t memory_position() {
  return streams().memory.position;
}

void set_memory_position(std::int32_t position) {
  streams().memory.position = position;
}

std::uint32_t memory_openings() {
  return streams().memory.openings;
}

StreamWork::StreamWork() : before_(streams().memory) {
  ++streams().works;
}

StreamWork::~StreamWork() {
  StreamState& state = streams();
  // The outermost work leaves the stream open; callers rely on it.
  if (--state.works > 0) state.memory = before_;
}

OwnFile::OwnFile(StreamHandle file)
    : before_(std::exchange(streams().own_file, static_cast<std::int32_t>(file))) {}

OwnFile::~OwnFile() {
  streams().own_file = before_;
}

bool is_own_file(StreamHandle stream) {
  return streams().own_file == static_cast<std::int32_t>(stream) && stream != kMemoryStream &&
         !caller_io_installed();
}

bool takes_bytes_as_they_are(StreamHandle stream) {
  const bool own = stream == kMemoryStream ? !caller_io_installed() : is_own_file(stream);
  return own && !streams().scrambled;
}

void set_caller_io(img_read_fn read, img_write_fn write, img_seek_fn seek) {
  StreamState& state = streams();
  state.read = read;
  state.write = write;
  state.seek = seek;
}

bool caller_io_installed() {
  const StreamState& state = streams();
  return state.read != nullptr || state.write != nullptr || state.seek != nullptr;
}

void set_scrambling(bool on, std::uint32_t key) {
  const std::uint8_t sum = byte(key + (key >> 8) + (key >> 16) + (key >> 24));
  streams().scrambled = on;
  streams().key = sum == 0 ? std::uint8_t{0xAA} : sum;  // 0 would leave the bytes as they are
}

std::span<const std::uint8_t> memory_rest(StreamHandle stream) {
  const StreamState& state = streams();
  const bool as_it_lies = reads_memory(stream) && state.seek == nullptr && !state.scrambled;
  const std::int32_t left = as_it_lies ? memory_left() : 0;
  if (left == 0) return {};
  return std::span(state.memory.block + state.memory.position, left);
}

bool end_is_known(StreamHandle stream) {
  return !reads_memory(stream) || streams().memory.limit_is_known;
}

bool reads_memory(StreamHandle stream) {
  return stream == kMemoryStream && streams().read == nullptr;
}

}  // namespace tq
