// Reading an image that its owner may change at any row.
#include "process/image_source.h"

#include <algorithm>

#include "core/context.h"
#include "pixels/rows.h"

namespace tq::process {

ImageSource::ImageSource(ImageHandle handle)
    : handle_(handle),
      record_(&image_record(handle)),
      serial_(record_->serial),
      width_(record_->width),
      height_(record_->height),
      bits_(record_->bits),
      in_runs_(record_->in_runs),
      header_(header_of(*record_)) {
  const std::span<const Rgb> stored = palette_of(*record_);
  std::copy_n(stored.begin(), std::min(stored.size(), palette_.size()), palette_.begin());
}

bool ImageSource::is_deep() const {
  return bits_ == 4 || bits_ == 8 || bits_ == 16 || bits_ == 24 || bits_ == 32;
}

Status ImageSource::next_row() {
  TQ_TRY(report_progress(height_));
  const ImageRecord* found = find_image(handle_, serial_);
  const bool same = found != nullptr && found->dib != nullptr && found->width == width_ &&
                    found->height == height_ && found->bits == bits_ && found->in_runs == in_runs_;
  return same ? kOk : Status(StatusCode::bad_handle);
}

std::span<const std::uint8_t> ImageSource::row(std::int32_t y) const {
  const std::span<const std::uint8_t> found = plain_row(*record_, y);
  // The next row lies before this one, which processors do not foresee.
  if (y + 1 < height_) {
    constexpr std::size_t kCacheLine = 64;  // bytes
    const std::uint8_t* next = found.data() - found.size();
    for (std::size_t at = 0; at < found.size(); at += kCacheLine) __builtin_prefetch(next + at);
  }
  return found;
}

void ImageSource::read_colours(std::int32_t y, std::span<Rgb> colours) const {
  pixels::row_to_colours(
      row(y),
      {.width = width_, .bits = bits_, .cmyk = header_.biCompression == 0, .palette = palette()},
      colours);
}

}  // namespace tq::process
