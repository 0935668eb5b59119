// A whole 1-bit image from run lists to plain pixels and back.
#include <algorithm>

#include "core/image_create.h"
#include "core/image_table.h"
#include "core/run_storage.h"

namespace tq {
namespace {

// The image that is being built beside the present one. Vanishes unless it is installed.
class Draft {
 public:
  explicit Draft(const ImageRecord& image) : record_(image) {
    record_.dib = nullptr;
    record_.run_table = nullptr;
    record_.caller_owned = false;
  }
  Draft(const Draft&) = delete;
  Draft& operator=(const Draft&) = delete;
  ~Draft() {
    free_block(record_.dib);
    free_block(record_.run_table);
  }

  Status create(const ImageRecord& image, bool in_runs) {
    HeaderBlock source{.header = header_of(image)};
    std::copy(palette_of(image).begin(), palette_of(image).end(), source.palette.begin());
    return create_pixels(
        record_, source,
        {.width = image.width, .height = image.height, .bits = 1, .in_runs = in_runs});
  }
  ImageRecord& record() { return record_; }

  void install(ImageRecord& image) {
    replace_dib(image, record_.dib);
    image.in_runs = record_.in_runs;
    image.run_table = record_.run_table;
    image.runs_end = record_.runs_end;
    image.runs_dead = record_.runs_dead;
    image.dib_size = record_.dib_size;
    record_.dib = nullptr;
    record_.run_table = nullptr;
  }

 private:
  ImageRecord record_;
};

}  // namespace

Status runs_to_dib(ImageRecord& image) {
  if (!image.in_runs) return kOk;
  Draft plain(image);
  TQ_TRY(plain.create(image, false));
  for (std::int32_t y = 0; y < image.height; ++y)
    expand_row(image, y, plain_row(plain.record(), y));
  plain.install(image);
  return kOk;
}

Status dib_to_runs(ImageRecord& image) {
  if (image.bits != 1) return StatusCode::wrong_depth;
  if (image.in_runs || image.width > kWidestRuns) return kOk;
  Draft runs(image);
  TQ_TRY(runs.create(image, true));
  for (std::int32_t y = 0; y < image.height; ++y) {
    TQ_TRY(store_bits(runs.record(), y, plain_row(image, y)));
  }
  runs.install(image);
  return kOk;
}

}  // namespace tq
