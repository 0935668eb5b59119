// A temporary file of the library's own, deleted at the end of its scope. It is read and written
// past the caller's functions and without scrambling, because only the library ever sees it.
#pragma once

#include <cstdint>
#include <span>

#include "core/status.h"
#include "platform/file.h"

namespace tq {

class TempFile {
 public:
  TempFile() = default;
  TempFile(const TempFile&) = delete;
  TempFile& operator=(const TempFile&) = delete;
  ~TempFile();

  Status create();  // cannot_create
  std::int32_t seek(std::int32_t offset, std::int32_t origin);
  std::int32_t read(std::span<std::uint8_t> bytes);
  std::int32_t write(std::span<const std::uint8_t> bytes);

 private:
  void remove();

  std::int32_t file_ = -1;
  char name_[platform::kTempNameBytes] = {};
};

}  // namespace tq
