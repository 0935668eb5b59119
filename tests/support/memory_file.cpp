#include "tests/support/memory_file.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace tq::test {
namespace {

MemoryFile* installed = nullptr;  // the caller's functions carry no context

}  // namespace

MemoryFile::MemoryFile(Bytes content) : bytes(std::move(content)) {
  installed = this;
  install(true, true, true);
}

MemoryFile::~MemoryFile() {
  set_caller_io(nullptr, nullptr, nullptr);
  installed = nullptr;
}

void MemoryFile::install(bool read, bool write, bool seek) {
  set_caller_io(read ? on_read : nullptr, write ? on_write : nullptr, seek ? on_seek : nullptr);
}

// How many bytes to move; below 0: the answer.
std::int32_t MemoryFile::start_transfer(std::int32_t stream, std::int32_t count) {
  handles.push_back(stream);
  counts.push_back(count);
  if (during_call) during_call();
  return std::min(count, calls++ == failing_call ? std::min(failure, count - 1) : most_per_call);
}

std::int32_t IMG_CB_C MemoryFile::on_read(std::int32_t stream, void* buffer, std::int32_t count) {
  MemoryFile& file = *installed;
  const std::int64_t wanted = file.start_transfer(stream, count);
  if (wanted < 0) return static_cast<std::int32_t>(wanted);
  const auto size = static_cast<std::int64_t>(file.bytes.size());
  const std::int64_t got = std::clamp<std::int64_t>(size - file.index(), 0, wanted);
  if (got > 0) {
    std::memcpy(buffer, file.bytes.data() + file.index(), static_cast<std::size_t>(got));
  }
  file.position += got;
  return file.answer.value_or(static_cast<std::int32_t>(got));
}

std::int32_t IMG_CB_C MemoryFile::on_write(std::int32_t stream, void* buffer, std::int32_t count) {
  MemoryFile& file = *installed;
  const std::int32_t put = file.start_transfer(stream, count);
  if (put < 0) return put;
  const auto end = static_cast<std::size_t>(file.index() + put);
  if (file.bytes.size() < end) file.bytes.resize(end);
  if (put > 0) {
    std::memcpy(file.bytes.data() + file.index(), buffer, static_cast<std::size_t>(put));
    std::memset(buffer, 0x99, static_cast<std::size_t>(put));  // a caller may change it
  }
  file.position += put;
  return file.answer.value_or(put);
}

std::int32_t IMG_CB_C MemoryFile::on_seek(std::int32_t stream, std::int32_t offset,
                                          std::int32_t origin) {
  MemoryFile& file = *installed;
  if (file.calls++ == file.failing_call) return file.seeks_lie ? file.failure : -1;
  file.handles.push_back(stream);
  std::int64_t target = offset;
  if (origin == 1) target += file.position;
  if (origin == 2) target += static_cast<std::int64_t>(file.bytes.size()) + file.hole;
  if (target < 0 || target > INT32_MAX) return -1;
  file.position = target;
  return static_cast<std::int32_t>(target);
}

}  // namespace tq::test
