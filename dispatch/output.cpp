// New files and files that get a page.
#include "dispatch/output.h"

namespace tq::dispatch {

// Instead of an empty one a new file is made, which is never seen half.
bool Output::takes_pages() const {
  if (open_file(name_, OpenMode::exists) < 0) return false;
  return !safe_ || platform::file_kind(name_) != platform::FileKind::empty;
}

Status Output::open(const FileType& type, formats::AppendPlace& place) {
  adds_ = (type.traits & formats::kMultiPage) != 0 && takes_pages();
  if (!adds_ && safe_) return new_file_.open(name_);
  if (adds_ && type.can_append != nullptr) {
    TQ_TRY(file_.open(name_, OpenMode::update));
    const Status taken = type.can_append(file_.handle(), place);
    // A caller's own functions may know of one file only.
    const bool may_copy = safe_ && type.make_room != nullptr && !caller_io_installed();
    if (taken == StatusCode::unsupported && may_copy) return open_copy(type);
    TQ_TRY(taken);
  }
  TQ_TRY(file_.open(name_, adds_ ? OpenMode::update : OpenMode::create));
  if (!adds_ || !safe_) return kOk;
  old_bytes_ = seek(file_.handle(), 0, Origin::end);
  return seek_to(file_.handle(), 0);
}

Status Output::open_copy(const FileType& type) {
  file_.close();
  TQ_TRY(new_file_.open(name_));
  TQ_TRY(file_.open(name_, OpenMode::read));
  const Status copied = type.make_room(file_.handle(), new_file_.handle());
  file_.close();
  TQ_TRY(copied);
  return seek_to(new_file_.handle(), 0);
}

Status Output::close(Status saved) {
  if (new_file_.is_open()) return saved.ok() ? new_file_.commit() : saved;
  if (adds_ && safe_) {
    if (saved.ok()) return flush_to_disk(file_.handle());
    if (seek(file_.handle(), 0, Origin::end) > old_bytes_) cut_file(file_.handle(), old_bytes_);
    return saved;
  }
  file_.close();
  if (saved.failed()) remove_file(name_);
  return saved;
}

}  // namespace tq::dispatch
