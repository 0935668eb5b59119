// A picture of a page: its rows as they look by themselves, or with the alpha that lets others through.
#pragma once

#include "formats/pdf/image/samples.h"
#include "formats/pdf/image/stored.h"

namespace tq::pdf::image {

// How much of a picture covers what is under it: 255 is all. Where nothing was put, it does.
class AlphaPlane {
 public:
  // 1 or 8 bits.
  Status allocate(std::int32_t width, std::int32_t height, int bits);
  bool is_empty() const { return width_ == 0; }
  std::int32_t width() const { return width_; }
  std::int32_t height() const { return height_; }

  Row row(std::int32_t y);
  int at(std::int32_t x, std::int32_t y) const;
  // In a picture of another size: the mean of what lies in a pixel, or what lies in its middle.
  int at(std::int32_t x, std::int32_t y, std::int32_t width, std::int32_t height) const;

 private:
  std::int32_t width_ = 0, height_ = 0;
  int bits_ = 8;
  std::ptrdiff_t stride_ = 0;
  GlobalBlock bytes_;
};

class Picture {
 public:
  Picture() = default;
  Picture(const Picture&) = delete;
  Picture& operator=(const Picture&) = delete;

  // Nothing is decoded yet. unsupported, bad_image, out_of_memory, read_failed.
  Status open(objects::File& file, const content::Painted& painted);

  // As it looks on white, alone: size, depth, palette.
  const HeaderBlock& image() const { return image_; }
  // Whether rows may come as run lists.
  bool has_runs() const;
  // All rows, from y = 0 on; the sink's header is not called.
  Status decode(const formats::RowSink& sink, formats::FaxRows fax);

  // For those who lay it over others: the same in colours, `reserved` being the alpha of each pixel. What
  // is kept apart, at a size of its own, is to be loaded before.
  bool is_grey() const;        // all of its colours
  bool is_two_levels() const;  // black, white and nothing between
  bool is_opaque() const { return !has_alpha_ && !is_mask(); }
  bool is_mask() const { return stored_.is_mask(); }
  std::int32_t width() const { return stored_.width(); }
  std::int32_t height() const { return stored_.height(); }
  std::int32_t alpha_width() const { return alpha_width_; }  // 0: there is none apart
  std::int32_t alpha_height() const { return alpha_height_; }
  int constant_alpha() const { return constant_alpha_; }
  Status load_alpha(formats::DecodeNotes* whole);
  const AlphaPlane& alpha() const { return alpha_; }
  Status decode_colours(const formats::RowSink& sink);

 private:
  struct Rows;
  struct KeyRange {
    std::int32_t low = 0, high = -1;
  };

  Status open_stored(objects::File& file, const content::Painted& painted);
  Status read_masks();
  Status open_mask(objects::Reference reference, bool is_stencil);
  Status read_matte(const objects::Value& mask);
  Status read_key(const objects::Value& ranges);
  void choose_image();
  formats::FaxRows fax_rows(formats::FaxRows wanted) const;
  Status decode_stored(formats::FaxRows fax, const formats::RowSink& rows,
                       formats::DecodeNotes* whole);
  Status decode_rows(Rows& rows, formats::FaxRows fax);
  bool is_key(Bytes stored, std::int64_t x) const;
  void fill_colours(Bytes stored, Bytes row, std::int32_t y, std::span<Rgb> colours) const;
  void flatten(Bytes stored, Bytes row, std::int32_t y, std::span<Rgb> colours, Row out) const;

  objects::File* file_ = nullptr;
  StoredPicture stored_;
  Samples samples_;
  HeaderBlock image_;
  bool opened_as_mask_ = false;
  Rgb fill_{};  // of a mask
  int constant_alpha_ = 255;
  bool has_alpha_ = false, has_key_ = false, has_matte_ = false, mask_is_stencil_ = false;
  bool mask_is_damaged_ = false;
  std::array<KeyRange, Samples::kMostComponents> key_{};
  Rgb matte_{};
  objects::Reference mask_{};
  std::int32_t alpha_width_ = 0, alpha_height_ = 0;
  int alpha_bits_ = 8;
  AlphaPlane alpha_;
};

}  // namespace tq::pdf::image
