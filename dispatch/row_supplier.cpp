// Rows of the crop rectangle: as pixels, or as transition lists for 1-bit codecs.
#include "dispatch/row_supplier.h"

#include <algorithm>

#include "core/context.h"
#include "core/image_table.h"
#include "core/run_storage.h"
#include "io/byte_stream.h"
#include "io/endian.h"
#include "pixels/rows.h"
#include "pixels/tone_table.h"

namespace tq::dispatch {
namespace {

// Where the crop rectangle begins in a stored row. 1- and 4-bit rows begin at the next whole byte;
// callers rely on it.
std::int64_t crop_byte(std::int32_t x, int bits) {
  const std::int64_t wide = x;
  switch (bits) {
    case 1:
      return (wide + 7) / 8;
    case 4:
      return (wide + 1) / 2;
    case 16:
      return 2 * wide;
    case 24:
      return 3 * wide;
    case 32:
      return 4 * wide;
    default:
      return wide;
  }
}

// Writes 32-bit words as far as there is room.
class WordWriter {
 public:
  explicit WordWriter(std::span<std::uint8_t> dest) : dest_(dest) {}
  void put(std::uint32_t word) {
    if (dest_.size() - bytes_ >= 4)
      store_le32(dest_.data() + bytes_, word);
    else
      complete_ = false;
    bytes_ += complete_ ? 4 : 0;
  }
  bool complete() const { return complete_; }
  std::int32_t bytes() const { return static_cast<std::int32_t>(bytes_); }

 private:
  std::span<std::uint8_t> dest_;
  std::size_t bytes_ = 0;
  bool complete_ = true;
};

}  // namespace

// Word 0 is 0; then ascending positions inside the crop rectangle where the colour changes, white
// first; then its width three times and its width + 2 three times.
Status list_transitions(std::span<const std::uint16_t> row, std::int32_t left, std::int32_t width,
                        std::span<std::uint8_t> dest) {
  std::size_t i = 0;
  while (i < row.size() && row[i] < left) ++i;
  WordWriter list(dest);
  list.put(0);
  if (i % 2 != 0) list.put(0);  // the rectangle begins inside a black run
  for (; i < row.size() && row[i] < left + width; ++i) list.put(row[i] - left);
  for (int closer = 0; closer < 3; ++closer) list.put(width);
  for (int closer = 0; closer < 3; ++closer) list.put(width + 2);
  return list.complete() ? Status::from_raw(list.bytes()) : kOk;
}

ImageSupplier::ImageSupplier(ImageHandle handle, const ImageRecord& image, Supplier kind)
    : handle_(handle),
      serial_(image.serial),
      kind_(kind),
      width_(image.width),
      height_(image.height),
      bits_(image.bits),
      crop_(image.crop),
      progress_value_(header_of(image).biHeight & 0xFFFF),  // 16 bits; callers rely on it
      fill_(image.bits == 1 ? 0xFF : 0),
      has_tone_(image.bits >= 24 && (image.brightness != 0 || image.contrast != 0)) {
  if (!has_tone_) return;
  tone_ = pixels::tone_table(image.brightness, image.contrast, 100);
  // Of inks more is darker.
  if (image.bits != 32 || header_of(image).biCompression == kRgb32) return;
  std::reverse(tone_.begin(), tone_.end());
  for (std::uint8_t& level : tone_) level = byte(255 - level);
}

Status ImageSupplier::allocate() {
  if (bits_ != 1) return kOk;
  TQ_TRY(expanded_.allocate(row_bytes(width_, 1)));
  if (kind_ == Supplier::transitions && width_ <= kWidestRuns) {
    TQ_TRY(transitions_.allocate(most_transitions(width_)));
  }
  return kOk;
}

std::int32_t IMG_CB_C ImageSupplier::on_row(void* supplier, void* dest, std::int32_t y,
                                            std::int32_t bytes) {
  if (bytes < 0) return static_cast<std::int32_t>(StatusCode::write_failed);
  return static_cast<ImageSupplier*>(supplier)
      ->row(std::span(static_cast<std::uint8_t*>(dest), bytes), y)
      .raw();
}

// The image, unless a callback has deleted it or given it other pixels.
const ImageRecord* ImageSupplier::image() const {
  const ImageRecord* record = find_image(handle_, serial_);
  if (record == nullptr || record->dib == nullptr) return nullptr;
  const bool same = record->width == width_ && record->height == height_ && record->bits == bits_;
  return same ? record : nullptr;
}

std::span<const std::uint8_t> ImageSupplier::stored_rows() const {
  const ImageRecord* record = image();
  const bool followed = context().settings.progress.on || caller_io_installed();
  const bool whole =
      crop_.x == 0 && crop_.y == 0 && crop_.width == width_ && crop_.height == height_;
  if (record == nullptr || followed || !whole || record->in_runs || has_tone_) return {};
  const std::int64_t bytes = std::int64_t{record->bytes_per_row} * height_;
  return {pixels_of(*record), static_cast<std::size_t>(bytes)};
}

Status ImageSupplier::row(std::span<std::uint8_t> dest, std::int32_t y) {
  TQ_TRY(report_progress(progress_value_));
  const ImageRecord* record = image();
  if (record == nullptr) return StatusCode::bad_handle;
  if (y < 0 || y >= crop_.height || y >= height_ - crop_.y) return StatusCode::write_failed;
  const std::int32_t image_y = crop_.y + y;
  if (!record->in_runs) {
    copy_plain(*record, image_y, dest);
    for (std::uint8_t& level : has_tone_ ? dest : std::span<std::uint8_t>()) level = tone_[level];
    return kOk;
  }
  if (kind_ == Supplier::transitions) {
    const std::int32_t count = row_transitions(*record, image_y, transitions_.pixels());
    const Status listed =
        list_transitions(transitions_.pixels().first(count), crop_.x, crop_.width, dest);
    if (listed.raw() > 0) return listed;
  }
  copy_runs(*record, image_y, dest);
  return kOk;
}

void ImageSupplier::copy_plain(const ImageRecord& record, std::int32_t y,
                               std::span<std::uint8_t> dest) const {
  std::span<const std::uint8_t> from = plain_row(record, y);
  const std::int64_t first = crop_byte(crop_.x, bits_);
  from =
      from.subspan(static_cast<std::size_t>(std::min<std::int64_t>(first, record.bytes_per_row)));
  const std::size_t there = std::min(from.size(), dest.size());
  std::copy_n(from.begin(), there, dest.begin());
  std::fill(dest.begin() + there, dest.end(), fill_);
}

void ImageSupplier::copy_runs(const ImageRecord& record, std::int32_t y,
                              std::span<std::uint8_t> dest) {
  expand_row(record, y, expanded_.pixels());
  if (crop_.width == width_) {
    const std::size_t there = std::min(expanded_.size(), dest.size());
    std::copy_n(expanded_.data(), there, dest.begin());
    std::fill(dest.begin() + there, dest.end(), fill_);
    return;
  }
  // Run lists are cut at the pixel, not at the byte.
  std::fill(dest.begin(), dest.end(), fill_);
  const auto room = static_cast<std::int64_t>(dest.size()) * 8;
  const auto count = std::min<std::int64_t>(crop_.width, room);
  pixels::copy_bits(expanded_.pixels(), crop_.x, static_cast<std::int32_t>(count), dest);
}

}  // namespace tq::dispatch
