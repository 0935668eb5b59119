// A whole 1-bit image from run lists to plain pixels and back.
#include <algorithm>

#include "core/image_draft.h"
#include "core/run_storage.h"

namespace tq {
namespace {

Status create_beside(ImageDraft& draft, const ImageRecord& image, bool in_runs) {
  HeaderBlock source{.header = header_of(image)};
  std::copy(palette_of(image).begin(), palette_of(image).end(), source.palette.begin());
  return draft.create(
      source, {.width = image.width, .height = image.height, .bits = 1, .in_runs = in_runs});
}

}  // namespace

Status runs_to_dib(ImageRecord& image) {
  if (!image.in_runs) return kOk;
  ImageDraft plain;
  TQ_TRY(create_beside(plain, image, false));
  for (std::int32_t y = 0; y < image.height; ++y)
    expand_row(image, y, plain_row(plain.record(), y));
  plain.install(image);
  return kOk;
}

Status dib_to_runs(ImageRecord& image) {
  if (image.bits != 1) return StatusCode::wrong_depth;
  if (image.in_runs || !keeps_runs(image.width, image.height)) return kOk;
  ImageDraft runs;
  TQ_TRY(create_beside(runs, image, true));
  for (std::int32_t y = 0; y < image.height; ++y) {
    TQ_TRY(store_bits(runs.record(), y, plain_row(image, y)));
  }
  runs.install(image);
  return kOk;
}

}  // namespace tq
