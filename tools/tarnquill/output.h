// A result on its way to its destination. It is written under a name of its own beside the
// destination and moved there when it is whole, so that a failing conversion leaves no half file
// and an existing file as it was.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "system.h"

namespace tool {

// Saves an image to a stream; the library's status.
using SavePage = std::function<std::int32_t(std::int32_t stream)>;

class Output {
 public:
  // `name` "-" is standard output. Throws Failure, as all that follows.
  explicit Output(const std::string& name);

  // The result begins with what the file holds already. Whether `page` can be added to that is
  // found out before it is copied.
  Output(const std::string& name, const SavePage& page);

  ~Output();
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;

  const std::string& label() const { return label_; }  // for messages
  void save(const SavePage& page);

  // False, and nothing done, when the file that the result begins with has changed meanwhile: all
  // is to be done again.
  [[nodiscard]] bool commit();

 private:
  void create_temporary();
  void close();
  void copy_contents(std::FILE* to);

  std::string label_;
  std::string destination_;  // empty: copied to standard output
  bool replaces_ = false;    // moved to the destination, not copied into it
  bool appends_ = false;
  FileState before_;    // of the destination, when appending
  std::string folder_;  // of the temporary file, with a separator
  std::string temporary_;
  std::int32_t stream_ = -1;
};

// "a/b/" of "a/b/c.bmp", "" of "c.bmp".
std::string folder_of(const std::string& name);

// "c" of "a/b/c.bmp".
std::string stem_of(const std::string& name);

}  // namespace tool
