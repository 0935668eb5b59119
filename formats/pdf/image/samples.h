// From a stored row to a row of an image: what depth it has, and what happens to each sample.
#pragma once

#include "formats/pdf/image/colours.h"
#include "pixels/rows.h"

namespace tq::pdf::image {

using pixels::Bytes;
using pixels::Row;

// What a stored row holds.
struct StoredForm {
  std::int32_t width = 0, height = 0;
  int bits = 8;
  bool reversed = false;  // three samples are blue, green, red
  bool inverted = false;  // each sample
};

class Samples {
 public:
  static constexpr int kMostComponents = 4;

  // `decode`: two numbers for each component, or nothing. The space is kept.
  void choose(const ColourSpace& space, const StoredForm& form, std::span<const double> decode);
  const HeaderBlock& image() const { return image_; }
  const ColourSpace& space() const { return space_; }

  // One bit, 0 being black or, inverted, white; nothing else has to be done.
  bool is_two_levels() const { return image_.header.biBitCount == 1; }
  bool is_inverted() const { return inverted_; }

  void convert(Bytes stored, Row row) const;

  // Of a pixel, as it is stored.
  int sample(Bytes stored, std::int64_t x, int component) const;

 private:
  // How a row comes about: by a layout, each bit the other way round, each index by another, sample by
  // sample.
  enum class Way : std::uint8_t { unpack, invert, map, levels };

  void set_levels(std::span<const double> decode);
  void choose_indexed(std::span<const Rgb> colours);
  void choose_grey_levels(std::span<const Rgb> colours);
  void choose_single();
  void choose_grey_16(std::span<const double> decode);
  void choose_several();
  void set_image(int bits);
  void set_layout(pixels::Layout layout);
  void map_indices(Bytes stored, Row row) const;
  void put_grey_16(Bytes stored, Row row) const;
  void put_levels(Bytes stored, Row row) const;

  ColourSpace space_;
  StoredForm form_;
  HeaderBlock image_;
  Way way_ = Way::unpack;
  bool inverted_ = false;  // of two levels
  const pixels::RowLayout* layout_ = nullptr;
  std::array<std::array<std::uint8_t, 256>, kMostComponents> levels_;  // of codes of 8 bits at most
  std::array<std::uint8_t, 256> indices_{};
  double low_ = 0, high_ = 1;  // of 16 bits
};

}  // namespace tq::pdf::image
