// The image that an operation reads.
#pragma once

#include <array>

#include "core/image_table.h"
#include "core/rows.h"

namespace tq::process {

// Holds what must stay the same while an operation runs. Between two rows the caller's progress
// callback may do anything, so rows are found anew each time.
class ImageSource {
 public:
  explicit ImageSource(ImageHandle handle);  // a valid one, of an image that has pixels

  ImageRecord& record() const { return *record_; }
  std::int32_t width() const { return width_; }
  std::int32_t height() const { return height_; }
  int bits() const { return bits_; }
  bool in_runs() const { return in_runs_; }
  const BitmapInfoHeader& header() const { return header_; }
  std::span<const Rgb> palette() const {
    return {palette_.data(), static_cast<std::size_t>(palette_bytes(bits_) / 4)};
  }

  // 4, 8, 16, 24 or 32: what all reductions and dithers take.
  bool is_deep() const;

  // Reports one more row to the caller: its negative answer, or bad_handle when the image is gone
  // or has got pixels of another kind.
  Status next_row();

  // Row y as it is stored. Not for run lists.
  std::span<const std::uint8_t> row(std::int32_t y) const;

  // Row y as colours; 32-bit pixels as the image's marker says.
  void read_colours(std::int32_t y, std::span<Rgb> colours) const;

 private:
  ImageHandle handle_;
  ImageRecord* record_;
  std::uint64_t serial_;
  std::int32_t width_, height_;
  int bits_;
  bool in_runs_;
  BitmapInfoHeader header_;
  std::array<Rgb, 256> palette_{};
};

}  // namespace tq::process
