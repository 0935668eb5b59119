// One sample a pixel is looked up in tables; several go through the layouts of pixels/, or one by one.
#include "formats/pdf/image/samples.h"

#include <algorithm>
#include <bit>
#include <cmath>

#include "io/endian.h"
#include "pixels/colours.h"

namespace tq::pdf::image {
namespace {

using pixels::Layout;

bool is_level(const Rgb& colour, int level) {
  return colour.red == level && colour.green == level && colour.blue == level;
}
bool is_grey(const Rgb& colour) {
  return is_level(colour, colour.green);
}

// Whether codes mean even levels from black to white, or from white to black.
bool is_ramp(std::span<const Rgb> colours, bool from_white) {
  const int top = static_cast<int>(colours.size()) - 1;
  for (int i = 0; i <= top; ++i) {
    if (!is_level(colours[i], (from_white ? top - i : i) * 255 / top)) return false;
  }
  return true;
}

template <int kXor>
bool is_plain(const std::array<std::uint8_t, 256>& levels) {
  for (int i = 0; i < 256; ++i) {
    if (levels[i] != (i ^ kXor)) return false;
  }
  return true;
}

}  // namespace

void Samples::set_image(int bits) {
  image_ = dib_header(form_.width, form_.height, bits);
}
void Samples::set_layout(Layout layout) {
  layout_ = pixels::find_layout(layout, image_.header.biBitCount);
  way_ = Way::unpack;
}

void Samples::choose(const ColourSpace& space, const StoredForm& form,
                     std::span<const double> decode) {
  space_ = space;
  form_ = form;
  inverted_ = false;
  set_levels(decode);
  if (space.components() > 1) return choose_several();
  if (form.bits == 16 && space.is_grey()) return choose_grey_16(decode);
  choose_single();
}

// Samples of 16 bits are cut to 8 before they are looked up.
void Samples::set_levels(std::span<const double> decode) {
  const int codes = form_.bits < 8 ? 1 << form_.bits : 256, top = codes - 1;
  for (int c = 0; c < space_.components(); ++c) {
    const bool told = std::ssize(decode) >= 2 * space_.components();
    const double low = told ? decode[2 * c] : space_.lowest(c);
    const double usual = space_.is_indexed() ? top : space_.highest(c);
    const double high = told ? decode[2 * c + 1] : usual;
    for (int code = 0; code < codes; ++code) {
      const int place = form_.inverted ? top - code : code;
      levels_[c][code] = space_.level(c, low + place * (high - low) / top);
    }
  }
}

void Samples::choose_indexed(std::span<const Rgb> colours) {
  const int bits = form_.bits == 1   ? pixels::find_bit_layout(colours)->bits
                   : form_.bits <= 4 ? 4
                                     : 8;
  set_image(bits);
  std::ranges::copy(colours, image_.palette.begin());
  if (bits == 1) {
    image_.palette = pixels::grey_levels(1);
    inverted_ = is_level(colours[0], 255);
    return set_layout(inverted_ ? Layout::bits_1_black : Layout::bits_1);
  }
  constexpr Layout kLayouts[] = {Layout::bits_1, Layout::bits_2, Layout::bits_4, Layout::bytes};
  set_layout(kLayouts[std::countr_zero(static_cast<unsigned>(form_.bits))]);
}

void Samples::choose_grey_levels(std::span<const Rgb> colours) {
  if (form_.bits == 1) return choose_indexed(colours);
  const bool rising = is_ramp(colours, false), falling = is_ramp(colours, true);
  const int top = static_cast<int>(colours.size()) - 1;
  set_image(form_.bits == 8 ? 8 : 4);
  if (form_.bits < 8 && !rising && !falling) return choose_indexed(colours);
  if (rising) choose_indexed(colours);
  image_.palette = pixels::grey_levels(form_.bits);
  if (rising) return;
  way_ = falling && form_.bits == 8 ? Way::invert : Way::map;
  for (int i = 0; i <= top; ++i) {
    indices_[i] = form_.bits == 8 ? colours[i].green : byte(top - i);
  }
}

void Samples::choose_single() {
  const int codes = form_.bits < 8 ? 1 << form_.bits : 256;
  std::array<Rgb, 256> table{};
  for (int code = 0; code < codes; ++code) table[code] = space_.colour(&levels_[0][code]);
  const auto colours = std::span(table).first(static_cast<std::size_t>(codes));
  if (form_.bits <= 8 && space_.is_indexed()) return choose_indexed(colours);
  if (form_.bits <= 8 && std::ranges::all_of(colours, is_grey)) return choose_grey_levels(colours);
  if (form_.bits <= 4) return choose_indexed(colours);
  set_image(24);
  way_ = Way::levels;
}

void Samples::choose_grey_16(std::span<const double> decode) {
  set_image(16);
  image_.palette = pixels::grey_ramp();
  const bool told = decode.size() >= 2;
  low_ = told ? decode[0] : 0;
  high_ = told ? decode[1] : 1;
  if (space_.kind() == ColourSpace::Kind::black) {
    low_ = 1 - low_;
    high_ = 1 - high_;
  }
  way_ = Way::levels;
  if (low_ == 0 && high_ == 1) set_layout(Layout::grey16_be);
}

void Samples::choose_several() {
  const bool inks = space_.kind() == ColourSpace::Kind::cmyk;
  set_image(inks ? 32 : 24);
  way_ = Way::levels;
  if (form_.bits != 8 || !space_.is_plain()) return;
  const auto tables = std::span(levels_).first(space_.components());
  if (std::ranges::all_of(tables, is_plain<0>)) {
    set_layout(inks ? Layout::cmyk : form_.reversed ? Layout::bgr : Layout::rgb);
  } else if (std::ranges::all_of(tables, is_plain<255>) && inks) {
    way_ = Way::invert;
  }
}

int Samples::sample(Bytes stored, std::int64_t x, int component) const {
  const int components = space_.components();
  const int place = form_.reversed && components == 3 ? 2 - component : component;
  const std::int64_t index = x * components + place;
  if (form_.bits == 16) return load_be16(stored.data() + 2 * index);
  const std::int64_t bit = index * form_.bits;
  const int shift = static_cast<int>(8 - form_.bits - bit % 8);
  return stored[static_cast<std::size_t>(bit / 8)] >> shift & ((1 << form_.bits) - 1);
}

void Samples::map_indices(Bytes stored, Row row) const {
  if (image_.header.biBitCount == 8) {
    for (std::int32_t x = 0; x < form_.width; ++x) row[x] = indices_[stored[x]];
    return;
  }
  pixels::pack_nibbles(row.data(), form_.width,
                       [&](int x) { return indices_[sample(stored, x, 0)]; });
}

void Samples::put_grey_16(Bytes stored, Row row) const {
  for (std::int32_t x = 0; x < form_.width; ++x) {
    const double share = low_ + sample(stored, x, 0) * (high_ - low_) / 65535;
    const double level = std::floor(65535 * std::clamp(share, 0.0, 1.0) + 0.5);
    store_le16(&row[2 * x], word(static_cast<int>(level)));
  }
}

void Samples::put_levels(Bytes stored, Row row) const {
  if (image_.header.biBitCount == 16) return put_grey_16(stored, row);
  const int components = space_.components();
  for (std::int32_t x = 0; x < form_.width; ++x) {
    std::uint8_t levels[kMostComponents];
    for (int c = 0; c < components; ++c) {
      const int code = sample(stored, x, c);
      levels[c] = levels_[c][form_.bits == 16 ? pixels::from_16_bits(code) : code];
    }
    if (components == 4) {
      std::copy_n(levels, 4, &row[4 * x]);
      continue;
    }
    const Rgb colour = space_.colour(levels);
    row[3 * x] = colour.blue;
    row[3 * x + 1] = colour.green;
    row[3 * x + 2] = colour.red;
  }
}

void Samples::convert(Bytes stored, Row row) const {
  if (way_ == Way::unpack) return pixels::unpack(*layout_, stored, form_.width, row);
  const std::int64_t used = (std::int64_t{form_.width} * image_.header.biBitCount + 7) / 8;
  const auto pixels = row.first(static_cast<std::size_t>(used));
  std::fill(row.begin() + std::ssize(pixels), row.end(), std::uint8_t{0});
  switch (way_) {
    case Way::invert:
      return pixels::invert(stored.first(pixels.size()), pixels);
    case Way::map:
      return map_indices(stored, pixels);
    default:
      return put_levels(stored, pixels);
  }
}

}  // namespace tq::pdf::image
