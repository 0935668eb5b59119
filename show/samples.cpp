// From every depth to grey or colours.
#include "show/samples.h"

#include <algorithm>

#include "core/run_storage.h"
#include "pixels/colours.h"
#include "pixels/rows.h"

namespace tq::show {
namespace {

bool has_indices(int bits) {
  return bits == 1 || bits == 4 || bits == 8 || bits == 16;
}

std::ptrdiff_t bytes_before(std::int32_t column, int bits) {
  return static_cast<std::ptrdiff_t>(std::int64_t{column} * bits / 8);
}

template <int kChannels>
void look_up(const std::uint8_t* row, int bits, int width, const std::uint8_t (*table)[4],
             std::uint8_t* out) {
  pixels::for_each_index(row, bits, width, [=](int x, int index) {
    std::memcpy(out + std::ptrdiff_t{kChannels} * x, table[index], kChannels);
  });
}

}  // namespace

Samples::Samples(const ImageRecord& image, const Look& look) : image_(image) {
  const int bits = image.bits;
  if (!has_indices(bits)) {
    if (bits != 24 && bits != 32) channels_ = 1;  // nobody knows what it holds: black
    has_inks_ = bits == 32 && header_of(image).biCompression != kRgb32;
    in_place_ = bits == 24;
    return;
  }
  if (look.levels && bits == 1) {
    channels_ = 1;
    table_[1][0] = 255;
    return;
  }
  const std::span<const Rgb> palette = palette_of(image);
  const int transparent =
      bits <= 8 && look.see_through && image.has_transparent ? image.transparent_colour & 255 : -1;
  bool grey = !look.colour, ramp = bits == 8;
  for (int i = 0; i < std::ssize(palette); ++i) {
    const Rgb shown = palette[i];
    const std::uint8_t channels[4] = {shown.blue, shown.green, shown.red, 255};
    if (i != transparent) std::memcpy(table_[i], channels, sizeof channels);
    grey = grey && shown.blue == shown.green && shown.green == shown.red;
    ramp = ramp && shown.blue == i;
  }
  const bool seen_through = transparent >= 0 && transparent < std::ssize(palette);
  if (seen_through) {
    channels_ = 4;
  } else if (grey) {
    channels_ = 1;
    in_place_ = ramp;
  }
}

Status Samples::open(std::int32_t first, std::int32_t end) {
  base_ = first & -kAligned;
  columns_ = end - base_;
  return image_.in_runs ? bits_.allocate(image_.bytes_per_row) : kOk;
}

const std::uint8_t* Samples::read(std::int32_t y, std::uint8_t* room) const {
  if (!has_indices(image_.bits) && channels_ == 1) {
    std::fill_n(room, columns_, std::uint8_t{0});
    return room;
  }
  const std::uint8_t* row = bits_.data();
  if (image_.in_runs) {
    expand_row(image_, y, bits_.pixels());
  } else {
    row = plain_row(image_, y).data();
  }
  row += bytes_before(base_, image_.bits);
  if (in_place_) return row;
  if (has_inks_) {
    const std::size_t columns = columns_;
    pixels::inks_to_colours({row, 4 * columns}, columns_, {room, 3 * columns});
  } else if (image_.bits == 32) {
    for (std::ptrdiff_t x = 0; x < columns_; ++x) std::memcpy(room + 3 * x, row + 4 * x, 3);
  } else if (channels_ == 1) {
    look_up<1>(row, image_.bits, columns_, table_, room);
  } else if (channels_ == 3) {
    look_up<3>(row, image_.bits, columns_, table_, room);
  } else {
    look_up<4>(row, image_.bits, columns_, table_, room);
  }
  return room;
}

}  // namespace tq::show
