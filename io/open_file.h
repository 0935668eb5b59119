// A file that closes itself.
#pragma once

#include "io/byte_stream.h"

namespace tq {

class OpenFile {
 public:
  OpenFile() = default;
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;
  ~OpenFile() { close(); }

  // cannot_open when reading, cannot_create otherwise; a null name likewise.
  Status open(const char* name, OpenMode mode) {
    close();
    const std::int32_t file = name == nullptr ? -1 : open_file(name, mode);
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
