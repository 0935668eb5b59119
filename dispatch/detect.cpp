// Detection walks the table; the first format that is switched on and passes its test is the one.
#include "core/context.h"
#include "core/licence.h"
#include "dispatch/dispatch.h"

namespace tq::dispatch {
namespace {

bool switched_on(const FileType& type) {
  return context().settings.auto_detect[switch_of(type)];
}

}  // namespace

Status detect(StreamHandle stream, const FileType*& found) {
  found = nullptr;
  TQ_TRY(check_licence());
  Probe probe{.bytes = {}, .stream = stream};
  if (read_fully(stream, probe.bytes) < Probe::kBytes) return kOk;
  for (const FileType& type : file_types()) {
    if (type.test == nullptr || !switched_on(type) || !type.test(probe)) continue;
    found = &type;
    break;
  }
  seek(stream, 0, Origin::start);
  return kOk;
}

Status file_type_code(StreamHandle stream) {
  const std::int32_t start = position(stream);
  const FileType* found = nullptr;
  const Status detected = detect(stream, found);
  seek(stream, start, Origin::start);
  TQ_TRY(detected);
  if (found == nullptr || (found->traits & formats::kUnreported) != 0) {
    return StatusCode::unsupported;
  }
  if (found->find_variant == nullptr) return Status::from_raw(found->code);
  const Status variant = found->find_variant(stream);
  seek(stream, start, Origin::start);
  TQ_TRY(variant);
  const FileType* type = find_variant(*found, variant.raw());
  return type == nullptr ? StatusCode::unsupported : Status::from_raw(type->code);
}

Status count_pages(StreamHandle stream, formats::PageQuery query) {
  const FileType* found = nullptr;
  TQ_TRY(detect(stream, found));
  if (found == nullptr || found->count_pages == nullptr || (found->uncounted & query) != 0) {
    return Status::from_raw(1);
  }
  const Status pages = found->count_pages(stream);
  const std::int64_t most = context().options.limit(IMG_OPTION_MAX_PAGES, INT32_MAX);
  return pages.raw() > most ? Status::from_raw(static_cast<std::int32_t>(most)) : pages;
}

}  // namespace tq::dispatch
