// From stored rows to rows of an image.
#pragma once

#include "formats/tiff/rows.h"
#include "pixels/lab.h"
#include "pixels/rows.h"

namespace tq::tiff {

// What a page becomes, and how.
class Samples {
 public:
  void choose(const File& file, const Page& page);
  const HeaderBlock& image() const { return image_; }
  Status allocate();

  // Pixel row `y` of a stored row's, from 0, to a row of the image.
  void convert(Bytes stored, int y, Row row);

 private:
  using Plane = RowBuffer<std::uint16_t>;
  enum class Kind : std::uint8_t { levels, indices, colours, inks, ycbcr, lab };

  const pixels::RowLayout* choose_layout() const;
  std::uint32_t sample(Bytes stored, std::int64_t x, int i) const;
  void load(Bytes stored, int i, int top, Plane& plane);
  void load_units(Bytes stored, int y);
  void lay_on_white(int colours);
  void load_all(Bytes stored);
  void look_up_colours();
  void thin_inks();
  void put_levels(Row row) const;
  void put_colours(Row row) const;
  void put_inks(Row row) const;
  void mix_ycbcr();
  void mix_lab();
  void read_ycbcr(const File& file);

  const Page* page_ = nullptr;
  RowShape shape_;
  bool big_endian_ = false;
  Kind kind_ = Kind::levels;
  const pixels::RowLayout* layout_ = nullptr;
  HeaderBlock image_;
  int top_ = 255;                   // of levels
  std::array<Rgb, 256> colours_{};  // of a palette
  std::array<Plane, kMostPlanes> planes_;

  // Y, Cb and Cr as the levels that they mean, and what they add to red, green and blue.
  struct {
    std::array<double, 256> luma, chroma_b, chroma_r;
    double red = 0, green = 0, blue = 0;  // of luma
  } ycbcr_;
  pixels::LabColours lab_;
};

}  // namespace tq::tiff
