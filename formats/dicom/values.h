// From samples to rows of an image.
#pragma once

#include "formats/dicom/frames.h"

namespace tq::dicom {

class Values {
 public:
  // What the pictures of these data become.
  static HeaderBlock image(const DataSet& set);

  // The data set outlives it.
  Status open(const DataSet& set, bool planes_apart);

  // Whether a frame has to be looked at before its rows can be converted: by its darkest and
  // brightest samples.
  bool needs_range() const { return needs_range_; }
  void look_at(std::span<const std::uint32_t> samples);
  void prepare();

  void convert(Samples samples, pixels::Row row);

 private:
  std::int64_t stored(std::uint32_t value) const;
  double meaning(std::int64_t value) const;
  std::uint8_t level(std::uint32_t value) const;
  std::uint8_t inverted(int level) const {
    return byte(set_->photometric == Photometric::white_is_zero ? 255 - level : level);
  }
  void convert_colours(Samples samples, pixels::Row row);

  const DataSet* set_ = nullptr;
  bool planes_apart_ = false, needs_range_ = false;
  bool has_window_ = false;
  bool is_plain_ = false;  // values are levels
  std::int64_t least_ = INT64_MAX, most_ = INT64_MIN;
  std::uint32_t mask_ = 0;
  RowBuffer<std::uint8_t> levels_;  // or indices, of all values of at most 16 bits
  RowBuffer<Rgb> colours_;          // of a palette of more than 256 entries
  RowBuffer<std::uint8_t> line_;
};

}  // namespace tq::dicom
