// A file that takes the place of another one when it is whole, and leaves it as it was otherwise.
#pragma once

#include <cstdint>

#include "core/memory.h"
#include "io/byte_stream.h"

namespace tq {

class NewFile {
 public:
  NewFile() = default;
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;
  ~NewFile();  // what has not taken its place goes

  // cannot_create, also where the file that is there cannot be written; out_of_memory. What is no
  // regular file, a device or a pipe, is written directly. `name` is kept.
  Status open(platform::FileName name);
  bool is_open() const { return file_ >= 0; }
  StreamHandle handle() const { return StreamHandle{file_}; }

  Status commit();  // write_failed, cannot_create

 private:
  Status create_beside(platform::FileName name);
  void close();

  RowBuffer<char> target_room_, beside_;
  platform::FileName target_;
  std::int32_t file_ = -1;
  bool replaces_ = false;
};

}  // namespace tq
