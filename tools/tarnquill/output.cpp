// Temporary files that become results.
#include "output.h"

#include <cstdio>
#include <memory>
#include <random>
#include <vector>

#include "errors.h"
#include "system.h"

namespace tool {
namespace {

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

std::string temporary_name(const std::string& folder) {
  std::random_device random;
  char name[32];
  std::snprintf(name, sizeof name, ".tarnquill-%08x.tmp", static_cast<unsigned>(random()));
  return folder + name;
}

void copy_bytes(std::FILE* from, std::FILE* to, const std::string& label) {
  std::vector<char> chunk(1 << 16);
  for (;;) {
    const std::size_t got = std::fread(chunk.data(), 1, chunk.size(), from);
    if (interrupted() != 0) throw Failure(label, kInterrupted);
    if (std::ferror(from) != 0) throw Failure(label, IMG_READ_FAILED);
    if (got == 0) return;
    if (std::fwrite(chunk.data(), 1, got, to) != got) throw Failure(label, IMG_WRITE_FAILED);
  }
}

std::size_t start_of_base(const std::string& name) {
  std::size_t at = name.size();
  while (at > 0 && !is_separator(name[at - 1])) --at;
  return at;
}

}  // namespace

std::string folder_of(const std::string& name) {
  return name.substr(0, start_of_base(name));
}

std::string stem_of(const std::string& name) {
  const std::string base = name.substr(start_of_base(name));
  const std::size_t dot = base.rfind('.');
  return dot == std::string::npos || dot == 0 ? base : base.substr(0, dot);
}

Output::Output(const std::string& name, bool append)
    : label_(name == "-" ? "standard output" : name) {
  const PathKind kind = name == "-" ? PathKind::other : path_kind(name);
  if (kind == PathKind::folder) throw Failure(label_, IMG_CANNOT_CREATE);
  if (name != "-") destination_ = kind == PathKind::file ? resolve_links(name) : name;
  replaces_ = kind != PathKind::other;  // a pipe or a device stays what it is
  create_temporary(replaces_ ? folder_of(destination_) : temporary_folder() + "/");
  if (kind != PathKind::file) return;
  copy_permissions(destination_, temporary_);
  if (!append) return;
  close();
  try {
    const File from(std::fopen(destination_.c_str(), "rb"));
    const File to(std::fopen(temporary_.c_str(), "wb"));
    if (from == nullptr || to == nullptr) throw Failure(label_, IMG_CANNOT_OPEN);
    copy_bytes(from.get(), to.get(), label_);
  } catch (...) {
    remove_file(temporary_);
    throw;
  }
  stream_ = open_to_update(temporary_);
}

Output::~Output() {
  close();
  if (!temporary_.empty()) remove_file(temporary_);
}

void Output::create_temporary(const std::string& folder) {
  constexpr int kAttempts = 10;  // another process may have taken the name
  for (int i = 0; i < kAttempts && stream_ < 0; ++i) {
    temporary_ = temporary_name(folder);
    stream_ = create_new(temporary_);
  }
  if (stream_ >= 0) return;
  temporary_.clear();
  throw Failure(label_, IMG_CANNOT_CREATE);
}

void Output::close() {
  if (stream_ >= 0) close_stream(stream_);
  stream_ = -1;
}

void Output::copy_contents(std::FILE* to) const {
  const File from(std::fopen(temporary_.c_str(), "rb"));
  if (from == nullptr) throw Failure(label_, IMG_READ_FAILED);
  copy_bytes(from.get(), to, label_);
  if (std::fflush(to) != 0) throw Failure(label_, IMG_WRITE_FAILED);
}

void Output::commit() {
  close();
  if (interrupted() != 0) throw Failure(label_, kInterrupted);
  if (replaces_) {
    if (!replace_file(temporary_, destination_)) throw Failure(label_, IMG_CANNOT_CREATE);
    temporary_.clear();
  } else if (destination_.empty()) {
    set_binary(stdout);
    copy_contents(stdout);
  } else {
    const File to(std::fopen(destination_.c_str(), "wb"));
    if (to == nullptr) throw Failure(label_, IMG_CANNOT_CREATE);
    copy_contents(to.get());
  }
}

}  // namespace tool
