// Files beside their place.
#include "io/new_file.h"

#include <cstring>
#include <utility>

namespace tq {

using platform::FileKind;
using platform::FileMode;

NewFile::~NewFile() {
  if (!is_open()) return;
  close();
  if (replaces_) platform::file_remove({beside_.data(), target_.utf8});
}

void NewFile::close() {
  platform::file_close(std::exchange(file_, -1));
}

Status NewFile::open(platform::FileName name) {
  const FileKind kind = platform::file_kind(name);
  replaces_ = kind != FileKind::other;
  if (replaces_) return create_beside(name);
  file_ = platform::file_open(name, FileMode::create);
  return is_open() ? StatusCode::ok : StatusCode::cannot_create;
}

Status NewFile::create_beside(platform::FileName name) {
  TQ_TRY(target_room_.allocate(platform::kTargetBytes));
  target_ = platform::file_target(name, target_room_.data());
  if (target_.text == nullptr) return StatusCode::cannot_create;
  if (platform::file_kind(target_) != FileKind::none) {
    // What is protected against writing, or in use elsewhere, is not replaced either.
    OpenFile there;
    TQ_TRY(there.open(target_, OpenMode::update));
  }
  TQ_TRY(beside_.allocate(std::int64_t(std::strlen(target_.text)) + platform::kBesideBytes));
  file_ = platform::file_create_beside(target_, beside_.data());
  return is_open() ? StatusCode::ok : StatusCode::cannot_create;
}

Status NewFile::commit() {
  const bool flushed = !replaces_ || platform::file_flush(file_);
  close();
  if (!replaces_) return kOk;
  const platform::FileName beside{beside_.data(), target_.utf8};
  if (flushed && platform::file_replace(beside, target_)) return kOk;
  platform::file_remove(beside);
  return flushed ? StatusCode::cannot_create : StatusCode::write_failed;
}

}  // namespace tq
