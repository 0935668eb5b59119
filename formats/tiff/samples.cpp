// The common layouts go through the table of pixels/; all others sample by sample.
#include "formats/tiff/samples.h"

#include <cmath>

#include "pixels/colours.h"

namespace tq::tiff {
namespace {

using pixels::find_layout;
using pixels::Layout;

// Of a sample of so many bits.
constexpr std::uint32_t top_of(int bits) {
  return static_cast<std::uint32_t>((std::uint64_t{1} << bits) - 1);
}

// From 0 .. from_top to 0 .. to_top, rounded.
constexpr std::uint32_t scale(std::uint64_t value, std::uint64_t from_top, std::uint64_t to_top) {
  return static_cast<std::uint32_t>((2 * to_top * value + from_top) / (2 * from_top));
}

std::uint8_t clamp(double level) {
  return byte(static_cast<int>(std::floor(std::clamp(level, 0.0, 255.0) + 0.5)));
}

bool is_grey(Photometric photometric) {
  return photometric == Photometric::white_is_zero || photometric == Photometric::black_is_zero ||
         photometric == Photometric::mask;
}

// Some writers fill 16-bit entries with 8-bit values, in the low byte or in the high one.
void read_palette(const File& file, const Page& page, std::array<Rgb, 256>& colours) {
  Numbers map(file, page.color_map);
  const int entries = 1 << page.bits;
  std::array<std::uint16_t, 3 * 256> values{};
  for (int i = 0; i < 3 * entries; ++i) values[i] = word(map.at(i));
  const bool small = std::ranges::all_of(values, [](int value) { return value < 256; });
  const bool shifted = std::ranges::all_of(values, [](int value) { return value % 256 == 0; });
  const auto level = [&](int i) {
    return byte(small ? values[i] : shifted ? values[i] >> 8 : (values[i] + 128) / 257);
  };
  for (int i = 0; i < entries; ++i) {
    colours[i] = {level(2 * entries + i), level(entries + i), level(i), 0};
  }
}

}  // namespace

void Samples::choose(const File& file, const Page& page) {
  page_ = &page;
  shape_ = RowShape(page);
  big_endian_ = file.big_endian();
  if (page.photometric == Photometric::palette) read_palette(file, page, colours_);
  layout_ = choose_layout();
  int bits = 24;
  if (is_grey(page.photometric)) {
    kind_ = Kind::levels;
    bits = page.alpha != Alpha::none ? 8
           : page.bits == 1          ? 1
           : page.bits <= 4          ? 4
           : page.bits <= 8          ? 8
                                     : 16;
  } else if (page.photometric == Photometric::palette) {
    kind_ = page.alpha != Alpha::none ? Kind::colours : Kind::indices;
    const int index_bits = page.bits > 4    ? 8
                           : page.bits == 1 ? pixels::find_bit_layout(colours_)->bits
                                            : 4;
    bits = kind_ == Kind::indices ? index_bits : 24;
  } else if (page.photometric == Photometric::separated) {
    kind_ = Kind::inks;
    bits = 32;
  } else {
    kind_ = page.photometric == Photometric::ycbcr ? Kind::ycbcr
            : page.photometric == Photometric::lab ? Kind::lab
                                                   : Kind::colours;
  }
  const bool small = kind_ == Kind::levels && page.bits <= 4 && page.alpha == Alpha::none;
  top_ = bits == 16 ? 0xFFFF : small ? static_cast<int>(top_of(page.bits)) : 255;
  if (kind_ == Kind::ycbcr) read_ycbcr(file);
  if (kind_ == Kind::lab) lab_.prepare();

  image_ = dib_header(page.width, page.height, bits);
  image_.header.biXPelsPerMeter = page.x_dpi;
  image_.header.biYPelsPerMeter = page.y_dpi;
  if (bits == 1) {
    image_.palette = pixels::grey_levels(1);
  } else if (kind_ == Kind::indices) {
    image_.palette = colours_;
  } else if (bits == 4) {
    const int top = (1 << page.bits) - 1;
    for (int i = 0; i <= top; ++i) {
      const std::uint8_t level = byte(scale(i, top, 255));
      image_.palette[i] = {level, level, level, 0};
    }
  } else if (bits <= 16) {
    image_.palette = pixels::grey_ramp();
  }
}

// Null where samples have to be looked at one by one.
const pixels::RowLayout* Samples::choose_layout() const {
  const Page& page = *page_;
  const int bits = page.bits;
  if (page.is_fax()) return find_layout(Layout::bits_1_black, 1);
  const bool alone = page.samples == 1;
  switch (page.photometric) {
    case Photometric::white_is_zero:
      return alone && bits == 1 ? find_layout(Layout::bits_1_black, 1) : nullptr;
    case Photometric::black_is_zero:
    case Photometric::mask:
      if (!alone) return nullptr;
      if (bits == 1) return find_layout(Layout::bits_1, 1);
      if (bits == 4) return find_layout(Layout::bits_4, 4);
      if (bits == 8) return find_layout(Layout::bytes, 8);
      return bits == 16 ? find_layout(big_endian_ ? Layout::grey16_be : Layout::grey16_le, 16)
                        : nullptr;
    case Photometric::palette:
      if (!alone) return nullptr;
      if (bits == 1) return pixels::find_bit_layout(colours_);
      if (bits == 2) return find_layout(Layout::bits_2, 4);
      if (bits == 4) return find_layout(Layout::bits_4, 4);
      return bits == 8 ? find_layout(Layout::bytes, 8) : nullptr;
    case Photometric::ycbcr:
      return page.is_jpeg() && !page.planes_apart ? find_layout(Layout::bgr, 24) : nullptr;
    case Photometric::rgb:
      if (bits != 8) return nullptr;
      if (page.planes_apart) {
        return page.alpha == Alpha::none ? find_layout(Layout::rgb_planes, 24) : nullptr;
      }
      if (page.samples == 3) return find_layout(page.is_jpeg() ? Layout::bgr : Layout::rgb, 24);
      if (page.samples != 4 || page.alpha == Alpha::associated) return nullptr;
      return find_layout(page.alpha == Alpha::none ? Layout::rgbx : Layout::rgba, 24);
    case Photometric::separated:
      return bits == 8 && page.samples == 4 && !page.planes_apart ? find_layout(Layout::cmyk, 32)
                                                                  : nullptr;
    default:
      return nullptr;
  }
}

Status Samples::allocate() {
  if (layout_ != nullptr) return kOk;
  const int samples = page_->colours + (page_->alpha != Alpha::none ? 1 : 0);
  const int planes = kind_ == Kind::colours ? 4 : samples;  // of a palette as well
  for (int i = 0; i < std::max(planes, samples); ++i) TQ_TRY(planes_[i].allocate(page_->width));
  return kOk;
}

std::uint32_t Samples::sample(Bytes stored, std::int64_t x, int i) const {
  const Page& page = *page_;
  const std::int64_t index = page.planes_apart ? x : x * page.samples + i;
  const std::uint8_t* const plane =
      stored.data() + (page.planes_apart ? i * shape_.plane_bytes : 0);
  const std::uint8_t* at = plane + index * page.bits / 8;
  switch (page.bits) {
    case 8:
      return *at;
    case 16:
      return big_endian_ ? load_be16(at) : load_le16(at);
    case 24:
      return big_endian_ ? at[0] << 16 | at[1] << 8 | at[2] : at[2] << 16 | at[1] << 8 | at[0];
    case 32:
      return big_endian_ ? load_be32(at) : load_le32(at);
    default:
      break;
  }
  std::uint64_t bits = 0;
  const int first = static_cast<int>(index * page.bits % 8), last = first + page.bits;
  for (int read = 0; read < last; read += 8) bits = bits << 8 | *at++;
  return static_cast<std::uint32_t>(bits >> (-last & 7)) & top_of(page.bits);
}

// Sample `i` of every pixel, scaled to 0 .. top.
void Samples::load(Bytes stored, int i, int top, Plane& plane) {
  const Page& page = *page_;
  const std::uint32_t own_top = top_of(page.bits);
  const bool inverted = page.photometric == Photometric::white_is_zero && i == 0;
  for (std::int32_t x = 0; x < page.width; ++x) {
    std::uint32_t value = sample(stored, x, i);
    if (inverted) value = own_top - value;
    if (own_top == 0xFFFF && top == 255) {
      value = (value + 128) / 257;
    } else if (own_top != static_cast<std::uint32_t>(top)) {
      value = scale(value, own_top, top);
    }
    plane[x] = word(value);
  }
}

// Luma lies in blocks of pixels, and behind each of these the chrominance that they share.
void Samples::load_units(Bytes stored, int y) {
  const int h = shape_.h, of_block = h * shape_.v;
  const std::uint8_t* block = stored.data();
  for (std::int32_t x = 0; x < page_->width; ++x) {
    planes_[0][x] = block[y * h + x % h];
    planes_[1][x] = block[of_block];
    planes_[2][x] = block[of_block + 1];
    if ((x + 1) % h == 0) block += of_block + 2;
  }
}

// Colours that are multiplied by alpha already have the rest of white added.
void Samples::lay_on_white(int colours) {
  const Plane& alpha = planes_[colours];
  for (int i = 0; i < colours; ++i) {
    for (std::int32_t x = 0; x < page_->width; ++x) {
      const int level = planes_[i][x], cover = alpha[x];
      planes_[i][x] = page_->alpha == Alpha::associated ? word(std::min(level + 255 - cover, 255))
                                                        : pixels::on_white(level, cover);
    }
  }
}

void Samples::put_levels(Row row) const {
  const Plane& levels = planes_[0];
  const std::int32_t width = page_->width;
  switch (image_.header.biBitCount) {
    case 1:
      for (std::int32_t x = 0; x < width; ++x) row[x / 8] |= byte(levels[x] << (7 - x % 8));
      break;
    case 4:
      pixels::pack_nibbles(row.data(), width, [&](int x) { return levels[x]; });
      break;
    case 8:
      for (std::int32_t x = 0; x < width; ++x) row[x] = byte(levels[x]);
      break;
    default:
      for (std::int32_t x = 0; x < width; ++x) store_le16(&row[2 * x], levels[x]);
      break;
  }
}

// Ink that something shows through is less ink.
void Samples::thin_inks() {
  if (page_->alpha != Alpha::unassociated) return;
  for (int i = 0; i < 4; ++i) {
    for (std::int32_t x = 0; x < page_->width; ++x) {
      planes_[i][x] = word((planes_[i][x] * planes_[4][x] + 127) / 255);
    }
  }
}

// Indices to the planes of red, green and blue.
void Samples::look_up_colours() {
  for (std::int32_t x = 0; x < page_->width; ++x) {
    const Rgb colour = colours_[planes_[0][x]];
    planes_[0][x] = colour.red;
    planes_[1][x] = colour.green;
    planes_[2][x] = colour.blue;
  }
}

void Samples::load_all(Bytes stored) {
  const bool paletted = page_->photometric == Photometric::palette;
  const int top = paletted ? static_cast<int>(top_of(page_->bits)) : top_;
  for (int i = 0; i < page_->colours; ++i) load(stored, i, top, planes_[i]);
  if (page_->alpha == Alpha::none) return;
  load(stored, page_->colours, 255, planes_[paletted ? 3 : page_->colours]);
  if (paletted) look_up_colours();
}

void Samples::put_colours(Row row) const {
  for (std::int32_t x = 0; x < page_->width; ++x) {
    for (int i = 0; i < 3; ++i) row[3 * x + 2 - i] = byte(planes_[i][x]);
  }
}

void Samples::put_inks(Row row) const {
  for (std::int32_t x = 0; x < page_->width; ++x) {
    for (int i = 0; i < 4; ++i) row[4 * x + i] = byte(planes_[i][x]);
  }
}

void Samples::convert(Bytes stored, int y, Row row) {
  if (layout_ != nullptr) {
    pixels::unpack(*layout_, stored, page_->width, row);
    return;
  }
  std::fill(row.begin(), row.end(), std::uint8_t{0});
  if (page_->h * page_->v > 1) {
    load_units(stored, y);
  } else {
    load_all(stored);
  }
  const bool alpha = page_->alpha != Alpha::none;
  switch (kind_) {
    case Kind::levels:
    case Kind::indices:
      if (alpha) lay_on_white(1);
      return put_levels(row);
    case Kind::inks:
      if (alpha) thin_inks();
      return put_inks(row);
    case Kind::ycbcr:
      mix_ycbcr();
      break;
    case Kind::lab:
      mix_lab();
      break;
    case Kind::colours:
      break;
  }
  if (alpha) lay_on_white(3);
  put_colours(row);
}

// TIFF 6.0, section 20 and 21.
void Samples::read_ycbcr(const File& file) {
  Numbers coefficients(file, page_->coefficients), reference(file, page_->reference_levels);
  const auto real = [](Numbers& numbers, int i, double fallback) {
    return numbers.exist() && numbers.count() >= 3 ? numbers.real_at(i) : fallback;
  };
  ycbcr_.red = real(coefficients, 0, 0.299);
  ycbcr_.green = real(coefficients, 1, 0.587);
  ycbcr_.blue = real(coefficients, 2, 0.114);
  if (!(ycbcr_.green > 0)) ycbcr_.green = 0.587;
  std::array<double, 6> levels = {0, 255, 128, 255, 128, 255};
  if (reference.count() >= levels.size()) {
    for (int i = 0; i < 6; ++i) levels[i] = reference.real_at(i);
  }
  const auto fill = [&](std::array<double, 256>& table, int i, double span) {
    const double range = levels[i + 1] - levels[i];
    for (int code = 0; code < 256; ++code) {
      table[code] = range == 0 ? 0 : (code - levels[i]) * span / range;
    }
  };
  fill(ycbcr_.luma, 0, 255);
  fill(ycbcr_.chroma_b, 2, 127);
  fill(ycbcr_.chroma_r, 4, 127);
}

void Samples::mix_ycbcr() {
  for (std::int32_t x = 0; x < page_->width; ++x) {
    const double luma = ycbcr_.luma[planes_[0][x]];
    const double red = luma + (2 - 2 * ycbcr_.red) * ycbcr_.chroma_r[planes_[2][x]];
    const double blue = luma + (2 - 2 * ycbcr_.blue) * ycbcr_.chroma_b[planes_[1][x]];
    const double green = (luma - ycbcr_.red * red - ycbcr_.blue * blue) / ycbcr_.green;
    planes_[0][x] = clamp(red);
    planes_[1][x] = clamp(green);
    planes_[2][x] = clamp(blue);
  }
}

void Samples::mix_lab() {
  const auto signed_byte = [](int value) { return value < 128 ? value : value - 256; };
  for (std::int32_t x = 0; x < page_->width; ++x) {
    const Rgb colour = lab_.mix(planes_[0][x] * 100 / 255.0, signed_byte(planes_[1][x]),
                                signed_byte(planes_[2][x]));
    planes_[0][x] = colour.red;
    planes_[1][x] = colour.green;
    planes_[2][x] = colour.blue;
  }
}

}  // namespace tq::tiff
