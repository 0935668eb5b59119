// A result on its way to its destination. It is written under a name of its own beside the
// destination and moved there when it is whole, so that a failing conversion leaves no half file
// and an existing file as it was.
#pragma once

#include <cstdint>
#include <string>

namespace tool {

class Output {
 public:
  // `name` "-" is standard output. `append`: an existing file's bytes come first. Throws Failure.
  Output(const std::string& name, bool append);
  ~Output();
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;

  const std::string& label() const { return label_; }  // for messages
  std::int32_t stream() const { return stream_; }      // to read, write and seek
  void commit();                                       // throws Failure

 private:
  void create_temporary(const std::string& folder);
  void close();
  void copy_contents(std::FILE* to) const;

  std::string label_;
  std::string destination_;  // empty: copied to standard output
  bool replaces_ = false;    // moved to the destination, not copied into it
  std::string temporary_;
  std::int32_t stream_ = -1;
};

// "a/b/" of "a/b/c.bmp", "" of "c.bmp".
std::string folder_of(const std::string& name);

// "c" of "a/b/c.bmp".
std::string stem_of(const std::string& name);

}  // namespace tool
