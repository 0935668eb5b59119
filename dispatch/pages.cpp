// Page counts: detection, then the format's own count.
#include "dispatch/pages.h"

#include "dispatch/detect.h"

namespace tq::dispatch {
namespace {

bool counted(const FileType& type, PageQuery query) {
  if (type.type == "mca") return query == PageQuery::by_name;
  if (type.type == "mag") return query != PageQuery::in_memory;
  return true;
}

}  // namespace

Status count_pages(StreamHandle stream, PageQuery query) {
  const FileType* found = nullptr;
  TQ_TRY(detect(stream, found));
  if (found == nullptr || found->count_pages == nullptr || !counted(*found, query)) {
    return Status::from_raw(1);
  }
  return found->count_pages(stream);
}

}  // namespace tq::dispatch
