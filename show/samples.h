// Stored rows as channels of bytes that can be averaged: what an image's pixels look like.
#pragma once

#include "core/image_record.h"
#include "core/memory.h"

namespace tq::show {

// How images are looked at.
struct Look {
  bool see_through = true;  // a transparent colour counts
  bool colour = false;      // grey palettes have three channels, too
  bool levels = false;      // of 1 bit: 0 and 255, whatever their colours
};

// Channels of a pixel: 1 grey; 3 blue, green, red; 4 the same and 255, or four zeros where the image is
// transparent.
class Samples {
 public:
  Samples(const ImageRecord& image, const Look& look);

  // Of columns `first` .. `end` - 1.
  Status open(std::int32_t first, std::int32_t end);

  int channels() const { return channels_; }
  std::int32_t base() const { return base_; }  // the column where rows that are read begin
  std::int32_t columns() const { return columns_; }

  // Room in bytes for a row that is read; none where rows are read where they lie.
  std::int64_t room() const { return in_place_ ? 0 : std::int64_t{columns_} * channels_; }

  // Row y, in the image itself or in `room`.
  const std::uint8_t* read(std::int32_t y, std::uint8_t* room) const;

 private:
  static constexpr std::int32_t kAligned = 8;  // columns begin at whole bytes

  const ImageRecord& image_;
  int channels_ = 3;
  bool has_inks_ = false, in_place_ = false;
  std::int32_t base_ = 0, columns_ = 0;
  std::uint8_t table_[256][4] = {};  // channels by index
  RowBuffer<std::uint8_t> bits_;     // of run lists
};

}  // namespace tq::show
