// Stored rows become rows of an image; alpha, wherever it comes from, lays them on white.
#include "formats/pdf/image/picture.h"

#include <algorithm>

#include "pixels/colours.h"

namespace tq::pdf::image {
namespace {

using formats::DecodeNotes;
using formats::FaxRows;
using formats::RowSink;
using objects::File;
using objects::Kind;
using objects::Object;
using objects::Value;
using pixels::on_white;

constexpr Rgb kWhite = {255, 255, 255, 0};

// Of 255, of 255.
constexpr int part_of(int level, int alpha) {
  return (level * alpha + 127) / 255;
}

// What was mixed with `matte` by alpha, by itself (ISO 32000-1, 11.6.5.3).
std::uint8_t unmixed(int level, int matte, int alpha) {
  if (alpha == 0) return byte(matte);
  const int difference = (level - matte) * 255;
  const int rounding = difference < 0 ? -alpha / 2 : alpha / 2;
  return byte(std::clamp(matte + (difference + rounding) / alpha, 0, 255));
}

}  // namespace

Status AlphaPlane::allocate(std::int32_t width, std::int32_t height, int bits) {
  width_ = width;
  height_ = height;
  bits_ = bits;
  const std::int64_t stride = row_bytes(width, bits);
  TQ_TRY(bytes_.allocate(static_cast<std::uint64_t>(stride) * height));
  stride_ = static_cast<std::ptrdiff_t>(stride);
  std::ranges::fill(bytes_.bytes(), std::uint8_t{255});
  return kOk;
}

Row AlphaPlane::row(std::int32_t y) {
  return {bytes_.data() + y * stride_, static_cast<std::size_t>(stride_)};
}

int AlphaPlane::at(std::int32_t x, std::int32_t y) const {
  const std::uint8_t* const row = bytes_.data() + y * stride_;
  return bits_ == 8 ? row[x] : (row[x / 8] >> (7 - x % 8) & 1) * 255;
}

int AlphaPlane::at(std::int32_t x, std::int32_t y, std::int32_t width, std::int32_t height) const {
  struct Places {
    std::int32_t first, end;
    Places(std::int64_t place, std::int64_t places, std::int64_t own) {
      const bool larger = own > places;
      const std::int64_t from =
          larger ? place * own / places : (2 * place + 1) * own / (2 * places);
      first = static_cast<std::int32_t>(from);
      end = larger ? static_cast<std::int32_t>((place + 1) * own / places) : first + 1;
    }
  };
  const Places across(x, width, width_), down(y, height, height_);
  std::int64_t sum = 0;
  for (std::int32_t j = down.first; j < down.end; ++j) {
    for (std::int32_t i = across.first; i < across.end; ++i) sum += at(i, j);
  }
  const std::int64_t count = std::int64_t{across.end - across.first} * (down.end - down.first);
  return static_cast<int>((sum + count / 2) / count);
}

// --- What it is ---

Status Picture::open(File& file, const content::Painted& painted) {
  TQ_TRY(open_stored(file, painted));
  if (!opened_as_mask_ && !is_mask()) TQ_TRY(read_masks());
  constant_alpha_ = painted.alpha;
  has_alpha_ = constant_alpha_ < 255 || has_key_ || alpha_width_ > 0;
  choose_image();
  return check_geometry(image_.header);
}

Status Picture::open_stored(File& file, const content::Painted& painted) {
  file_ = &file;
  fill_ = {byte(painted.fill), byte(painted.fill >> 8), byte(painted.fill >> 16), 0};
  TQ_TRY(stored_.open(file, painted));
  ColourSpace space;
  Object room, decode_room;
  Value value, decode;
  const Object* owner = nullptr;
  TQ_TRY(stored_.find("ColorSpace", "CS", value, room, owner));
  if (!is_mask() && !value.is(Kind::null)) TQ_TRY(space.read(file, value, *owner));
  // What codes a picture knows better how many samples there are.
  const int coded = stored_.components();
  if (coded != 0 && coded != space.components()) space = ColourSpace::of_components(coded);
  TQ_TRY(stored_.find("Decode", "D", decode, decode_room));
  std::array<double, 2 * Samples::kMostComponents> numbers{};
  std::size_t count = 0;
  for (objects::Items items = decode.items(); count < numbers.size() && items.next();) {
    numbers[count++] = items.value().number();
  }
  const StoredForm form{.width = stored_.width(),
                        .height = stored_.height(),
                        .bits = stored_.bits(),
                        .reversed = coded == 3,
                        .inverted = stored_.is_inverted()};
  if (form.bits == 16 && space.is_indexed()) return StatusCode::bad_image;
  samples_.choose(space, form, std::span(numbers).first(count));
  return check_geometry(samples_.image().header);
}

Status Picture::read_masks() {
  Object soft_room, room;
  Value soft, mask;
  TQ_TRY(stored_.find("SMask", "SMask", soft, soft_room));
  if (soft.is(Kind::dictionary) && soft_room.is_stream()) {
    TQ_TRY(open_mask(soft_room.reference(), false));
    return read_matte(soft);
  }
  TQ_TRY(stored_.find("Mask", "Mask", mask, room));
  if (mask.is(Kind::array)) return read_key(mask);
  const bool is_stencil = mask.is(Kind::dictionary) && room.is_stream();
  return is_stencil ? open_mask(room.reference(), true) : kOk;
}

Status Picture::open_mask(objects::Reference reference, bool is_stencil) {
  content::Painted painted;
  painted.image = reference;
  Picture mask;
  mask.opened_as_mask_ = true;
  const Status opened = mask.open(*file_, painted);
  mask_is_damaged_ = opened == StatusCode::bad_image;
  if (mask_is_damaged_) return kOk;
  TQ_TRY(opened);
  mask_ = reference;
  mask_is_stencil_ = is_stencil;
  alpha_width_ = mask.width();
  alpha_height_ = mask.height();
  alpha_bits_ = mask.image().header.biBitCount == 1 ? 1 : 8;
  return kOk;
}

Status Picture::read_matte(const Value& mask) {
  Object room;
  Value matte = mask["Matte"];
  TQ_TRY(file_->resolve(matte, room));
  const ColourSpace& space = samples_.space();
  std::uint8_t levels[Samples::kMostComponents] = {};
  int count = 0;
  for (objects::Items items = matte.items(); count < space.components() && items.next(); ++count) {
    levels[count] = space.level(count, items.value().number());
  }
  const bool same_size = alpha_width_ == width() && alpha_height_ == height();
  has_matte_ = count == space.components() && same_size && space.components() < 4;
  if (has_matte_) matte_ = space.colour(levels);
  return kOk;
}

Status Picture::read_key(const Value& ranges) {
  objects::Items items = ranges.items();
  for (int i = 0; i < samples_.space().components(); ++i) {
    if (!items.next()) return kOk;
    key_[i].low = items.value().small_integer();
    if (!items.next()) return kOk;
    key_[i].high = items.value().small_integer(-1);
  }
  has_key_ = true;
  return kOk;
}

bool Picture::is_grey() const {
  if (is_mask()) return fill_.red == fill_.green && fill_.red == fill_.blue;
  const int bits = samples_.image().header.biBitCount;
  if (bits > 16) return false;
  return std::ranges::all_of(samples_.image().palette, [](const Rgb& colour) {
    return colour.red == colour.green && colour.red == colour.blue;
  });
}

bool Picture::is_two_levels() const {
  if (constant_alpha_ < 255 || (alpha_width_ > 0 && alpha_bits_ > 1)) return false;
  if (!is_mask()) return samples_.is_two_levels();
  return is_grey() && (fill_.green == 0 || fill_.green == 255);
}

void Picture::choose_image() {
  const HeaderBlock& own = samples_.image();
  image_ = own;
  if (opened_as_mask_ || (!has_alpha_ && !is_mask())) return;
  if (is_mask()) {
    const Rgb seen = {on_white(fill_.blue, constant_alpha_), on_white(fill_.green, constant_alpha_),
                      on_white(fill_.red, constant_alpha_), 0};
    if (seen == Rgb{}) return;
    image_ = dib_header(width(), height(), 4);
    image_.palette[0] = seen;
    image_.palette[1] = kWhite;
    return;
  }
  const int bits = own.header.biBitCount;
  const int seen_bits = bits == 32 ? 32 : is_two_levels() ? 1 : is_grey() ? 8 : 24;
  image_ = dib_header(width(), height(), seen_bits);
  if (seen_bits <= 8) image_.palette = pixels::grey_levels(seen_bits);
}

bool Picture::has_runs() const {
  return stored_.has_runs() && samples_.is_two_levels() && image_.header.biBitCount == 1 &&
         !has_alpha_;
}

// --- Its rows ---

// What happens to a stored row.
struct Picture::Rows {
  enum class Target : std::uint8_t { image, colours };

  const Picture& picture;
  const RowSink& sink;
  Target target;
  RowBuffer<std::uint8_t> row, seen;  // its own, and as it is seen
  RowBuffer<Rgb> colours;

  Status allocate() {
    const BitmapInfoHeader& own = picture.samples_.image().header;
    TQ_TRY(row.allocate(row_bytes(own.biWidth, own.biBitCount)));
    const bool mixed = picture.has_alpha_ && !picture.is_mask();
    if (mixed || target == Target::colours) TQ_TRY(colours.allocate(own.biWidth));
    const BitmapInfoHeader& image = picture.image_.header;
    return seen.allocate(row_bytes(image.biWidth, image.biBitCount));
  }

  Status take(Bytes stored, std::int32_t y) {
    picture.samples_.convert(stored, row.pixels());
    if (target == Target::colours) {
      picture.fill_colours(stored, row.pixels(), y, colours.pixels());
      return sink.row(
          {reinterpret_cast<const std::uint8_t*>(colours.data()), colours.size() * sizeof(Rgb)}, y);
    }
    const bool as_it_is = picture.opened_as_mask_ || picture.image_.header.biBitCount == 1;
    if (as_it_is && !picture.has_alpha_) {
      return sink.row(row.pixels(), y);
    }
    if (picture.is_mask()) {
      pixels::unpack(*pixels::find_layout(pixels::Layout::bits_1, 4), row.pixels(), picture.width(),
                     seen.pixels());
      return sink.row(seen.pixels(), y);
    }
    if (!picture.has_alpha_) return sink.row(row.pixels(), y);
    picture.flatten(stored, row.pixels(), y, colours.pixels(), seen.pixels());
    return sink.row(seen.pixels(), y);
  }

  static std::int32_t IMG_CB_C put(void* stored, void* context, std::int32_t y,
                                   std::int32_t bytes) {
    const Bytes row(static_cast<std::uint8_t*>(stored), static_cast<std::size_t>(bytes));
    return static_cast<Rows*>(context)->take(row, y).raw();
  }
};

Status Picture::decode(const RowSink& sink, FaxRows fax) {
  if (has_runs() && fax == FaxRows::runs) {
    const bool inverted = stored_.black_is_1() != samples_.is_inverted();
    // Through the sink, which counts them.
    const auto put = [](void* row, void* context, std::int32_t y, std::int32_t bytes) {
      const Bytes list(static_cast<std::uint8_t*>(row), static_cast<std::size_t>(bytes));
      return static_cast<const RowSink*>(context)->row(list, y).raw();
    };
    return stored_.decode_fax(fax, inverted, sink.notes,
                              {nullptr, put, const_cast<RowSink*>(&sink)});
  }
  TQ_TRY(load_alpha(sink.notes));
  Rows rows{*this, sink, Rows::Target::image, {}, {}, {}};
  return decode_rows(rows, FaxRows::bits);
}

Status Picture::decode_colours(const RowSink& sink) {
  Rows rows{*this, sink, Rows::Target::colours, {}, {}, {}};
  return decode_rows(rows, FaxRows::bits);
}

Status Picture::decode_rows(Rows& rows, FaxRows fax) {
  TQ_TRY(rows.allocate());
  const RowSink stored{nullptr, Rows::put, &rows};
  if (!stored_.is_fax()) {
    return stored_.decode(samples_.space().components(), rows.sink.notes, stored);
  }
  return stored_.decode_fax(fax, stored_.black_is_1(), rows.sink.notes, stored);
}

Status Picture::load_alpha(DecodeNotes* whole) {
  if (mask_is_damaged_ && whole != nullptr) whole->damaged(StatusCode::bad_image);
  if (alpha_width_ == 0 || !alpha_.is_empty()) return kOk;
  TQ_TRY(alpha_.allocate(alpha_width_, alpha_height_, alpha_bits_));
  content::Painted painted;
  painted.image = mask_;
  Picture mask;
  mask.opened_as_mask_ = true;
  TQ_TRY(mask.open(*file_, painted));
  struct Loader {
    const Picture& mask;
    AlphaPlane& alpha;
    bool inverted;
    RowBuffer<Rgb> colours;

    void take(Bytes row, std::int32_t y) {
      const Row out = alpha.row(y);
      const BitmapInfoHeader& header = mask.image().header;
      if (header.biBitCount == 1) {
        std::copy_n(row.begin(), std::min(row.size(), out.size()), out.begin());
      } else {
        pixels::row_to_colours(row, {header.biWidth, header.biBitCount, true, mask.image().palette},
                               colours.pixels());
        for (std::int32_t x = 0; x < header.biWidth; ++x) out[x] = colours[x].green;
      }
      if (inverted) pixels::invert(out, out);
    }
    static std::int32_t IMG_CB_C put(void* row, void* context, std::int32_t y, std::int32_t bytes) {
      const Bytes from(static_cast<std::uint8_t*>(row), static_cast<std::size_t>(bytes));
      static_cast<Loader*>(context)->take(from, y);
      return 0;
    }
  } loader{mask, alpha_, mask_is_stencil_, {}};
  TQ_TRY(loader.colours.allocate(alpha_width_));
  DecodeNotes notes{.whole = whole};
  return mask.decode({nullptr, Loader::put, &loader, &notes}, FaxRows::bits);
}

bool Picture::is_key(Bytes stored, std::int64_t x) const {
  for (int i = 0; i < samples_.space().components(); ++i) {
    const int sample = samples_.sample(stored, x, i);
    if (sample < key_[i].low || sample > key_[i].high) return false;
  }
  return true;
}

// `row` is what became of the stored one.
void Picture::fill_colours(Bytes stored, Bytes row, std::int32_t y, std::span<Rgb> colours) const {
  const HeaderBlock& own = samples_.image();
  if (is_mask()) {
    for (std::int32_t x = 0; x < width(); ++x) {
      colours[x] = fill_;
      colours[x].reserved = (row[x / 8] >> (7 - x % 8) & 1) != 0 ? 0 : 255;
    }
    return;
  }
  if (own.header.biBitCount < 32) {
    pixels::row_to_colours(row, {own.header.biWidth, own.header.biBitCount, false, own.palette},
                           colours);
  }
  for (std::int32_t x = 0; x < width(); ++x) {
    Rgb& colour = colours[x];
    if (own.header.biBitCount == 32) colour = samples_.space().colour(&row[4 * x]);
    colour.reserved = has_key_ && is_key(stored, x) ? 0 : 255;
    if (!has_matte_) continue;
    const int alpha = alpha_.at(x, y);
    colour = {unmixed(colour.blue, matte_.blue, alpha), unmixed(colour.green, matte_.green, alpha),
              unmixed(colour.red, matte_.red, alpha), colour.reserved};
  }
}

void Picture::flatten(Bytes stored, Bytes row, std::int32_t y, std::span<Rgb> colours,
                      Row out) const {
  fill_colours(stored, row, y, colours);
  std::ranges::fill(out, std::uint8_t{0});
  const bool same_size = alpha_width_ == width() && alpha_height_ == height();
  for (std::int32_t x = 0; x < width(); ++x) {
    const Rgb colour = colours[x];
    int alpha = part_of(colour.reserved, constant_alpha_);
    if (alpha_width_ > 0) {
      const int apart = same_size ? alpha_.at(x, y) : alpha_.at(x, y, width(), height());
      alpha = part_of(alpha, apart);
    }
    switch (image_.header.biBitCount) {
      case 1:
        if (alpha < 128 || colour.green != 0) out[x / 8] |= byte(128 >> x % 8);
        break;
      case 8:
        out[x] = on_white(colour.green, alpha);
        break;
      case 24:
        out[3 * x] = on_white(colour.blue, alpha);
        out[3 * x + 1] = on_white(colour.green, alpha);
        out[3 * x + 2] = on_white(colour.red, alpha);
        break;
      default:  // less ink
        for (int i = 0; i < 4; ++i) out[4 * x + i] = byte(part_of(row[4 * x + i], alpha));
        break;
    }
  }
}

}  // namespace tq::pdf::image
