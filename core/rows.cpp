// Rows of plain images and of run lists in and out, and whole images from one to the other.
#include "core/rows.h"

#include <algorithm>
#include <cstring>

#include "core/image_create.h"
#include "core/run_storage.h"

namespace tq {
namespace {

Status check_copy(const ImageRecord& image, std::int32_t y, std::int32_t& bytes) {
  if (y < 0 || y >= image.height || bytes < 0) return StatusCode::unsupported;
  if (bytes == 0 || bytes > image.bytes_per_row) bytes = image.bytes_per_row;
  return kOk;
}

Status create_beside(ImageDraft& draft, const ImageRecord& image, bool in_runs) {
  HeaderBlock source{.header = header_of(image)};
  std::copy(palette_of(image).begin(), palette_of(image).end(), source.palette.begin());
  return draft.create(
      source, {.width = image.width, .height = image.height, .bits = 1, .in_runs = in_runs});
}

}  // namespace

Status get_raster(const ImageRecord& image, std::uint8_t* out, std::int32_t y, std::int32_t bytes) {
  TQ_TRY(check_copy(image, y, bytes));
  if (!image.in_runs) {
    std::memcpy(out, plain_row(image, y).data(), bytes);
    return kOk;
  }
  if (bytes == image.bytes_per_row) {
    expand_row(image, y, std::span(out, bytes));
    return kOk;
  }
  RowBuffer<std::uint8_t> row;
  TQ_TRY(row.allocate(image.bytes_per_row));
  expand_row(image, y, row.pixels());
  std::copy_n(row.data(), bytes, out);
  return kOk;
}

Status put_raster(ImageRecord& image, const std::uint8_t* in, std::int32_t y, std::int32_t bytes) {
  TQ_TRY(check_copy(image, y, bytes));
  if (!image.in_runs) {
    std::memcpy(plain_row(image, y).data(), in, bytes);
    return kOk;
  }
  RowBuffer<std::uint8_t> row;
  TQ_TRY(row.allocate(image.bytes_per_row));
  expand_row(image, y, row.pixels());
  std::copy_n(in, bytes, row.data());
  return store_bits(image, y, row.pixels());
}

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
  if (image.in_runs) return list_waiting_rows(image);
  if (!keeps_runs(image.width, image.height)) return kOk;
  ImageDraft runs;
  TQ_TRY(create_beside(runs, image, true));
  for (std::int32_t y = 0; y < image.height; ++y) {
    TQ_TRY(store_listed(runs.record(), y, plain_row(image, y)));
  }
  runs.install(image);
  return kOk;
}

}  // namespace tq
