// Detection walks the table; the first format that is switched on and passes its test is the one.
#include <algorithm>

#include "core/context.h"
#include "core/licence.h"
#include "dispatch/dispatch.h"
#include "dispatch/signatures.h"

namespace tq::dispatch {
namespace {

bool switched_on(const FileType& type) {
  const bool has_switch = (type.traits & formats::kExtended) == 0;
  return !has_switch || context().settings.auto_detect[switch_of(type)];
}

using Test = bool (*)(const Probe& probe);

const FileType* find_type(const Probe& probe, Test FileType::*test, int traits = 0) {
  for (const FileType& type : file_types()) {
    if ((type.traits & traits) != traits || type.*test == nullptr) continue;
    if (switched_on(type) && (type.*test)(probe)) return &type;
  }
  return nullptr;
}

// Whatever else is asked, the tests find the stream as if it had not been.
void stand_behind(const Probe& probe) {
  (void)seek_to(probe.stream, std::int64_t{probe.start} + Probe::kBytes);
}

const FileType* find_confirmed_type(const Probe& probe) {
  for (const FileType& type : file_types()) {
    if (type.test == nullptr || !switched_on(type) || !type.test(probe)) continue;
    const bool confirmed = type.confirms == nullptr || type.confirms(probe);
    if (confirmed) return &type;
    stand_behind(probe);
  }
  return nullptr;
}

const FileType* find_type_widely(Probe& probe) {
  probe.start = std::max(position(probe.stream), Probe::kBytes) - Probe::kBytes;
  // Cursors are like icons, but nothing here reads them.
  if (is_cursor(probe)) return nullptr;
  const FileType* found = find_type(probe, &FileType::first_test);
  stand_behind(probe);
  if (found == nullptr) found = find_confirmed_type(probe);
  return found != nullptr ? found : find_type(probe, &FileType::last_test);
}

}  // namespace

Status detect(StreamHandle stream, const FileType*& found) {
  found = nullptr;
  TQ_TRY(check_licence());
  Probe probe{.bytes = {}, .stream = stream};
  const bool is_short = read_fully(stream, probe.bytes) < Probe::kBytes;
  const bool widely = context().options.get(IMG_OPTION_DETECTION) == 1;
  if (is_short) {
    found = find_type(probe, &FileType::test, formats::kShort);
    if (found == nullptr) return kOk;
  } else {
    if (context().options.get(IMG_OPTION_EXTENDED_FORMATS) == 1) {
      probe.start = std::max(position(stream), Probe::kBytes) - Probe::kBytes;
    }
    found = widely ? find_type_widely(probe) : find_type(probe, &FileType::test);
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
  if (found == nullptr) return StatusCode::unsupported;
  // Some files have no code although they are decoded: only this option gives them theirs.
  const bool widely = context().options.get(IMG_OPTION_DETECTION) == 1;
  const bool named = widely && found->decode != nullptr;
  const Status unnamed = named ? Status::from_raw(found->code) : StatusCode::unsupported;
  if ((found->traits & formats::kUnreported) != 0) return unnamed;
  if (found->find_variant == nullptr) return Status::from_raw(found->code);
  const Status variant = found->find_variant(stream);
  seek(stream, start, Origin::start);
  TQ_TRY(variant);
  const FileType* type = find_variant(*found, variant.raw());
  return type == nullptr ? unnamed : Status::from_raw(type->code);
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
