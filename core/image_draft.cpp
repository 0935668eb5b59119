// The exchange of an image's pixels.
#include "core/image_draft.h"

#include <utility>

#include "core/image_table.h"

namespace tq {

ImageDraft::~ImageDraft() {
  free_block(record_.dib);
  free_block(record_.run_table);
}

Status ImageDraft::create(const HeaderBlock& source, const ImageShape& shape) {
  return create_pixels(record_, source, shape);
}

void ImageDraft::install(ImageRecord& image) {
  replace_dib(image, std::exchange(record_.dib, nullptr));
  image.width = record_.width;
  image.height = record_.height;
  image.bits = record_.bits;
  image.bytes_per_row = record_.bytes_per_row;
  image.dib_size = record_.dib_size;
  image.in_runs = record_.in_runs;
  image.run_table = std::exchange(record_.run_table, nullptr);
  image.runs_end = record_.runs_end;
  image.runs_dead = record_.runs_dead;
}

}  // namespace tq
