// Temporary files that become results.
#include "output.h"

#include <cstdio>
#include <memory>
#include <random>
#include <vector>

#include "errors.h"
#include "tarnquill.h"

namespace tool {
namespace {

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

class Stream {
 public:
  explicit Stream(std::int32_t stream) : stream_(stream) {}
  ~Stream() {
    if (stream_ >= 0) close_stream(stream_);
  }
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;
  operator std::int32_t() const { return stream_; }

 private:
  std::int32_t stream_;
};

std::string temporary_name(const std::string& folder) {
  std::random_device random;
  char name[32];
  std::snprintf(name, sizeof name, ".tarnquill-%08x.tmp", static_cast<unsigned>(random()));
  return folder + name;
}

std::string temporary_label(const std::string& folder) {
  return "a temporary file in " + folder;
}

// Hands the bytes of `from`, from its start, to `write`, which takes all or answers false.
template <class Write>
void copy_bytes(std::int32_t from, const std::string& from_label, const std::string& to_label,
                Write&& write) {
  std::vector<char> chunk(1 << 16);
  rewind_stream(from);
  for (;;) {
    const std::int32_t got =
        read_stream(from, chunk.data(), static_cast<std::int32_t>(chunk.size()));
    if (interrupted() != 0) throw Failure(to_label, kInterrupted);
    if (got < 0) throw Failure(from_label, IMG_READ_FAILED);
    if (got == 0) return;
    if (!write(chunk.data(), got)) throw Failure(to_label, IMG_WRITE_FAILED);
  }
}

// ---- Whether a page can be added ----

constexpr std::int64_t kNothingWritten = -1;
std::int64_t first_write = kNothingWritten;  // its position

std::int32_t IMG_CB_C take_nothing(std::int32_t stream, void* /*bytes*/, std::int32_t /*count*/) {
  if (first_write == kNothingWritten) first_write = position_of(stream);
  return 0;
}

// By saving it there up to its first byte, which is not written: what the library refuses it
// refuses before. A save that begins at the start of the file takes what is there for nothing.
void check_can_append(std::int32_t original, const SavePage& page, const std::string& label) {
  first_write = kNothingWritten;
  IMGLOW_set_fileio(nullptr, take_nothing, nullptr);
  const std::int32_t status = page(original);
  IMGLOW_set_fileio(nullptr, nullptr, nullptr);
  if (first_write == kNothingWritten) check(label, status);
  if (first_write == 0) throw Failure(label, IMG_BAD_IMAGE);
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

Output::Output(const std::string& name) : label_(name == "-" ? "standard output" : name) {
  const PathKind kind = name == "-" ? PathKind::other : path_kind(name);
  if (kind == PathKind::folder) throw Failure(label_, IMG_CANNOT_CREATE);
  if (name != "-") destination_ = kind == PathKind::file ? resolve_links(name) : name;
  replaces_ = kind != PathKind::other;  // a pipe or a device stays what it is
  folder_ = replaces_ ? folder_of(destination_) : temporary_folder();
  // One disk for all that becomes the result: a full one is that of the name in the message.
  set_library_temporary_folder(folder_);
  create_temporary();
  if (kind == PathKind::file) copy_permissions(destination_, temporary_);
}

Output::Output(const std::string& name, const SavePage& page) : Output(name) {
  appends_ = replaces_;
  if (!appends_) return;
  take_turn(destination_);
  if (interrupted() != 0) throw Failure(label_, kInterrupted);
  before_ = state_of(destination_);
  if (before_ == FileState{}) return;
  const Stream original(open_to_read(destination_));
  if (original < 0) throw Failure(label_, IMG_CANNOT_OPEN);
  if (before_.bytes != 0) check_can_append(original, page, label_);
  copy_bytes(original, label_, label_, [&](const char* bytes, std::int32_t count) {
    return write_stream(stream_, bytes, count);
  });
}

Output::~Output() {
  close();
  if (!temporary_.empty()) remove_file(temporary_);
}

void Output::create_temporary() {
  constexpr int kAttempts = 10;  // another process may have taken the name
  for (int i = 0; i < kAttempts && stream_ < 0; ++i) {
    temporary_ = temporary_name(folder_);
    stream_ = create_new(temporary_);
  }
  if (stream_ >= 0) return;
  temporary_.clear();
  throw Failure(replaces_ ? label_ : temporary_label(folder_), IMG_CANNOT_CREATE);
}

void Output::close() {
  if (stream_ >= 0) close_stream(stream_);
  stream_ = -1;
}

void Output::save(const SavePage& page) {
  rewind_stream(stream_);  // documents begin there, also when a page is added
  const std::int32_t status = page(stream_);
  const bool disk = status == IMG_WRITE_FAILED || status == IMG_CANNOT_CREATE;
  check(disk && !replaces_ ? temporary_label(folder_) : label_, status);
}

void Output::copy_contents(std::FILE* to) {
  copy_bytes(stream_, temporary_label(folder_), label_, [&](const char* bytes, std::int32_t count) {
    const auto wanted = static_cast<std::size_t>(count);
    return std::fwrite(bytes, 1, wanted, to) == wanted;
  });
  if (std::fflush(to) != 0) throw Failure(label_, IMG_WRITE_FAILED);
}

bool Output::commit() {
  if (interrupted() != 0) throw Failure(label_, kInterrupted);
  if (replaces_) {
    close();
    if (appends_ && state_of(destination_) != before_) return false;
    const bool named = appends_ && before_ == FileState{} && name_file(temporary_, destination_);
    if (!named) {
      // Somebody was quicker to make the file.
      if (appends_ && state_of(destination_) != before_) return false;
      if (!replace_file(temporary_, destination_)) throw Failure(label_, IMG_CANNOT_CREATE);
    }
    temporary_.clear();
  } else if (destination_.empty()) {
    set_binary(stdout);
    copy_contents(stdout);
  } else {
    const File to(open_file(destination_, "wb"));
    if (to == nullptr) throw Failure(label_, IMG_CANNOT_CREATE);
    copy_contents(to.get());
  }
  return true;
}

}  // namespace tool
