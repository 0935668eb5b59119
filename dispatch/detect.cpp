// Detection walks the table; the first format that is switched on and passes its test is the one.
#include "dispatch/detect.h"

#include "core/context.h"
#include "core/licence.h"
#include "dispatch/refine.h"

namespace tq::dispatch {
namespace {

bool switched_on(const FileType& type) {
  return context().settings.auto_detect[static_cast<std::size_t>(type.detect_switch)];
}

// The variant of a base format; other codes stay as they are.
Status refine(StreamHandle stream, std::int32_t code) {
  switch (code) {
    case IMG_TYPE_TIFF:
      return refine_tiff(stream);
    case IMG_TYPE_BMP:
      return refine_bmp(stream);
    case IMG_TYPE_GIF:
      return refine_gif(stream);
    default:
      return Status::from_raw(code);
  }
}

}  // namespace

Status detect(StreamHandle stream, const FileType*& found) {
  found = nullptr;
  TQ_TRY(check_licence());
  Probe probe{.bytes = {}, .stream = stream};
  if (read(stream, probe.bytes) < kProbeBytes) return kOk;
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
  if (found == nullptr || (found->traits & kUnreported) != 0) return StatusCode::unsupported;
  const Status code = refine(stream, found->code);
  seek(stream, start, Origin::start);
  return code;
}

}  // namespace tq::dispatch
