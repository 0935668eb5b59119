// The file that a save by name writes to: whole, or as it was.
#pragma once

#include "dispatch/file_types.h"
#include "io/byte_stream.h"
#include "io/new_file.h"

namespace tq::dispatch {

class Output {
 public:
  // `safe`: what fails leaves the file as it was, instead of none.
  Output(platform::FileName name, bool safe) : name_(name), safe_(safe) {}

  // What cannot take a page is found out before it is opened for writing, and left alone.
  Status open(const FileType& type, formats::AppendPlace& place);
  StreamHandle handle() const { return new_file_.is_open() ? new_file_.handle() : file_.handle(); }
  Status close(Status saved);

 private:
  bool takes_pages() const;
  Status open_copy(const FileType& type);

  platform::FileName name_;
  bool safe_;
  bool adds_ = false;            // a page to what is there
  std::int32_t old_bytes_ = -1;  // of what is there, if it can be cut off behind them
  OpenFile file_;
  NewFile new_file_;  // or this one
};

}  // namespace tq::dispatch
