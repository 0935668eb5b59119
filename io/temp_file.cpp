// Temporary files.
#include "io/temp_file.h"

#include <algorithm>

namespace tq {
namespace {

std::int32_t count_of(std::span<const std::uint8_t> bytes) {
  return static_cast<std::int32_t>(std::min<std::size_t>(bytes.size(), INT32_MAX));
}

}  // namespace

TempFile::~TempFile() {
  remove();
}

void TempFile::remove() {
  if (file_ < 0) return;
  platform::file_close(file_);
  platform::file_remove({name_, true});
  file_ = -1;
}

Status TempFile::create() {
  remove();
  file_ = platform::file_create_temporary(name_);
  return file_ < 0 ? StatusCode::cannot_create : StatusCode::ok;
}

std::int32_t TempFile::seek(std::int32_t offset, std::int32_t origin) {
  return platform::file_seek(file_, offset, origin);
}

std::int32_t TempFile::read(std::span<std::uint8_t> bytes) {
  const std::int32_t count = count_of(bytes);
  return count == 0 ? 0 : std::max(platform::file_read(file_, bytes.data(), count), 0);
}

std::int32_t TempFile::write(std::span<const std::uint8_t> bytes) {
  const std::int32_t count = count_of(bytes);
  return count == 0 ? 0 : std::max(platform::file_write(file_, bytes.data(), count), 0);
}

}  // namespace tq
