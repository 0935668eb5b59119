// Palette images need one look-up per pixel, the others a weighted sum.
#include "process/grey_rows.h"

#include "pixels/colours.h"
#include "pixels/kernels.h"
#include "pixels/rows.h"

namespace tq::process {
namespace {

// The grey of an image's depth in a conversion to 8-bit grey.
int grey_level(Rgb c, int bits) {
  if (bits == 4) return pixels::wrapped_brightness(c);
  return bits <= 16 ? pixels::intensity(c) : pixels::brightness(c);
}

int grey_of(Rgb colour, GreyKind kind, int bits) {
  return kind == GreyKind::luma ? pixels::luma(colour) : grey_level(colour, bits);
}

}  // namespace

GreyRows::GreyRows(const ImageSource& image, GreyKind kind)
    : image_(image), kind_(kind), table_{}, bytes_are_greys_(image.bits() == 8) {
  for (std::size_t i = 0; i < image.palette().size(); ++i) {
    table_[i] = static_cast<std::uint8_t>(grey_of(image.palette()[i], kind, image.bits()));
    if (table_[i] != i) bytes_are_greys_ = false;
  }
}

Status GreyRows::allocate() {
  if (image_.bits() == 32) TQ_TRY(colours_.allocate(image_.width()));
  return bytes_are_greys_ ? kOk : levels_.allocate(image_.width());
}

std::span<const std::uint8_t> GreyRows::read(std::int32_t y) {
  const auto width = static_cast<std::size_t>(image_.width());
  if (bytes_are_greys_) return image_.row(y).first(width);
  read(y, levels_.data());
  return levels_.pixels();
}

void GreyRows::read(std::int32_t y, std::uint8_t* out) const {
  const std::uint8_t* row = image_.row(y).data();
  const std::int32_t width = image_.width();
  const int bits = image_.bits();
  if (bits == 24) {
    const pixels::Kernels& kernels = pixels::kernels();
    (kind_ == GreyKind::luma ? kernels.luma_24 : kernels.brightness_24)(row, out, width);
  } else if (bits == 32) {
    image_.read_colours(y, colours_.pixels());
    for (std::int32_t x = 0; x < width; ++x) {
      out[x] = static_cast<std::uint8_t>(grey_of(colours_.data()[x], kind_, bits));
    }
  } else {
    pixels::for_each_index(row, bits, width,
                           [&](std::int32_t x, int index) { out[x] = table_[index]; });
  }
}

}  // namespace tq::process
