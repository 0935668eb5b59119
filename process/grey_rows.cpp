// Palette images need one look-up per pixel, the others a weighted sum.
#include "process/grey_rows.h"

#include "process/kernels.h"

namespace tq::process {
namespace {

int grey_of(Rgb colour, GreyKind kind, int bits) {
  return kind == GreyKind::luma ? luma(colour) : grey_level(colour, bits);
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
  switch (image_.bits()) {
    case 4:
      for (std::int32_t x = 0; x < width; ++x) {
        out[x] = table_[x % 2 == 0 ? row[x / 2] >> 4 : row[x / 2] & 15];
      }
      break;
    case 8:
      for (std::int32_t x = 0; x < width; ++x) out[x] = table_[row[x]];
      break;
    case 16:
      for (std::int32_t x = 0; x < width; ++x) out[x] = table_[row[2 * x + 1]];
      break;
    case 24:
      (kind_ == GreyKind::luma ? kernels().luma_24 : kernels().brightness_24)(row, out, width);
      break;
    default:
      image_.read_colours(y, colours_.pixels());
      for (std::int32_t x = 0; x < width; ++x) {
        out[x] = static_cast<std::uint8_t>(grey_of(colours_.data()[x], kind_, image_.bits()));
      }
      break;
  }
}

}  // namespace tq::process
