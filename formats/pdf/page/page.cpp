// One picture is the page, at its own pixels, turned and cut as the page shows it; several are composed.
#include "formats/pdf/page/page.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "formats/pdf/page/compose.h"
#include "formats/pdf/page/strips.h"
#include "pixels/turn.h"

namespace tq::pdf::page {
namespace {

using content::Matrix;
using content::Painted;
using content::Rectangle;
using formats::DecodeNotes;
using formats::FaxRows;
using formats::RowSink;
using objects::File;
using objects::Items;
using objects::Kind;
using objects::Object;
using objects::Value;
using pixels::Bytes;

constexpr Rectangle kUnitSquare = {0, 0, 1, 1};

// From the page to the page as it is shown, clockwise.
Matrix rotation(int degrees) {
  switch (degrees) {
    case 90:
      return {0, -1, 1, 0, 0, 0};
    case 180:
      return {-1, 0, 0, -1, 0, 0};
    case 270:
      return {0, 1, -1, 0, 0, 0};
    default:
      return {};
  }
}

// How a picture lies on the page as it is shown; 0: neither upright nor turned by a multiple of 90 degrees.
int orientation_of(const Matrix& m) {
  const double largest = std::max({std::abs(m.a), std::abs(m.b), std::abs(m.c), std::abs(m.d)});
  const double small = largest * 1e-3;
  if (std::abs(m.b) < small && std::abs(m.c) < small) {
    if (m.a > 0) return m.d > 0 ? 1 : 4;
    return m.d > 0 ? 2 : 3;
  }
  if (std::abs(m.a) < small && std::abs(m.d) < small) {
    if (m.c > 0) return m.b > 0 ? 7 : 6;
    return m.b > 0 ? 8 : 5;
  }
  return 0;
}

std::int32_t thousandths(double per_inch) {
  const bool is_one = per_inch > 0 && per_inch * 1000 < Resolution::kMost;
  return is_one ? static_cast<std::int32_t>(per_inch * 1000 + 0.5) : 0;
}

// Of pixels before they are turned.
struct Cut {
  std::int32_t first = 0, count = 0;
};

// What is left of `pixels` that lie from `start` to `end` where only `from` to `to` is seen; less than half a
// pixel is not cut.
Cut cut(std::int32_t pixels, double start, double end, double from, double to) {
  const double size = (end - start) / pixels;
  const auto whole = [&](double distance) {
    const double count = std::ceil(distance / size - 0.5);
    return static_cast<std::int32_t>(std::clamp<double>(count, 0, pixels - 1));
  };
  const std::int32_t before = whole(from - start);
  return {before, std::max(pixels - before - whole(end - to), 1)};
}

// What of a picture is seen, and how.
struct Placement {
  pixels::Turn turn{};
  Cut x, y;  // of the picture's own columns and rows
  Resolution resolution;
};

Placement place(const Strips& picture, const Page& page, int orientation) {
  const Matrix shown = rotation(page.rotate);
  const Rectangle whole = transformed(kUnitSquare, picture.matrix() * shown);
  const Rectangle seen = intersection(whole, transformed(picture.clip(), shown));
  Placement placement;
  placement.turn = pixels::turn_of(orientation);
  const BitmapInfoHeader& header = picture.image().header;
  std::int32_t columns = header.biWidth, rows = header.biHeight;
  if (placement.turn.swapped) std::swap(columns, rows);
  Cut across = cut(columns, whole.left, whole.right, seen.left, seen.right);
  Cut down = cut(rows, -whole.top, -whole.bottom, -seen.top, -seen.bottom);
  const double inch = 72 / page.user_unit;
  placement.resolution = {thousandths(columns * inch / (whole.right - whole.left)),
                          thousandths(rows * inch / (whole.top - whole.bottom))};
  // From the left of the page to the left of the picture.
  const auto& [swapped, from_right, from_bottom] = placement.turn;
  if (swapped ? from_bottom : from_right) across.first = columns - across.first - across.count;
  if (swapped ? from_right : from_bottom) down.first = rows - down.first - down.count;
  placement.x = swapped ? down : across;
  placement.y = swapped ? across : down;
  return placement;
}

// Between a picture and the sink.
class TurnedPicture {
 public:
  TurnedPicture(Strips& picture, const Placement& placement, const RowSink& sink)
      : picture_(picture), place_(placement), sink_(sink), image_(picture.image()) {}

  Status decode();

 private:
  static std::int32_t IMG_CB_C on_row(void* row, void* self, std::int32_t y, std::int32_t bytes) {
    const std::span taken(static_cast<const std::uint8_t*>(row), bytes);
    return static_cast<TurnedPicture*>(self)->take(taken, y).raw();
  }
  Status take(Bytes row, std::int32_t y);
  Status deliver_turned();
  pixels::Row kept_row(std::int32_t y) const {
    return kept_.pixels().subspan(static_cast<std::size_t>(y * stride_),
                                  static_cast<std::size_t>(stride_));
  }

  Strips& picture_;
  const Placement& place_;
  const RowSink& sink_;
  HeaderBlock image_;
  int bits_ = 0;
  bool is_whole_ = false;  // in its columns
  std::int64_t stride_ = 0;
  RowBuffer<std::uint8_t> row_, kept_;  // kept: all rows, until columns can become rows
};

Status TurnedPicture::decode() {
  const auto& [turn, x, y, resolution] = place_;
  bits_ = image_.header.biBitCount;
  is_whole_ = x.count == image_.header.biWidth;
  HeaderBlock header = image_;
  header.header =
      dib_header(turn.swapped ? y.count : x.count, turn.swapped ? x.count : y.count, bits_).header;
  header.header.biCompression = image_.header.biCompression;
  header.header.biClrUsed = image_.header.biClrUsed;
  const auto dots = [](std::int32_t exact) { return (exact + 500) / 1000; };
  header.header.biXPelsPerMeter = dots(resolution.x);
  header.header.biYPelsPerMeter = dots(resolution.y);
  sink_.resolution(resolution);
  TQ_TRY(sink_.header(header));

  stride_ = row_bytes(x.count, bits_);
  TQ_TRY(row_.allocate(stride_));
  if (turn.swapped) {
    TQ_TRY(kept_.allocate(stride_ * y.count));
    // What is missing at the end is white.
    std::ranges::fill(kept_.pixels(), byte(bits_ == 32 ? 0 : 255));
  }
  DecodeNotes notes;
  notes.whole = sink_.notes;
  const bool may_be_runs = is_whole_ && !turn.swapped && !turn.from_right;
  const RowSink rows{.on_row = on_row, .context = this, .notes = &notes};
  TQ_TRY(picture_.decode(rows, may_be_runs ? FaxRows::runs : FaxRows::bits));
  return turn.swapped ? deliver_turned() : kOk;
}

Status TurnedPicture::take(Bytes row, std::int32_t y) {
  const std::int32_t line = y - place_.y.first;
  if (line < 0 || line >= place_.y.count) return kOk;
  const std::int32_t shown = place_.turn.from_bottom ? place_.y.count - 1 - line : line;
  const bool as_it_is = is_whole_ && !place_.turn.from_right && !place_.turn.swapped;
  if (as_it_is) return sink_.row(row, shown);
  const pixels::Row out = place_.turn.swapped ? kept_row(line) : row_.pixels();
  if (is_whole_) {
    std::memcpy(out.data(), row.data(), std::min(out.size(), row.size()));
  } else {
    pixels::cut_row(row, image_.header.biWidth, bits_, place_.x.first, out, place_.x.count);
  }
  if (place_.turn.swapped) return kOk;
  if (place_.turn.from_right) pixels::mirror_row(out, place_.x.count, bits_);
  return sink_.row(out, shown);
}

Status TurnedPicture::deliver_turned() {
  const auto read = [](const void* self, std::int32_t y, pixels::Row row) {
    const Bytes kept = static_cast<const TurnedPicture*>(self)->kept_row(y);
    std::memcpy(row.data(), kept.data(), std::min(row.size(), kept.size()));
  };
  pixels::TurnedRows rows;
  TQ_TRY(rows.open({read, this, place_.x.count, place_.y.count, bits_}, place_.turn));
  for (std::int32_t y = 0; y < rows.height(); ++y) TQ_TRY(sink_.row(rows.row(y), y));
  return kOk;
}

// How much of the page the pictures are, at most 1.
double coverage(std::span<const Painted> pictures, const Rectangle& box) {
  double area = 0;
  for (const Painted& picture : pictures) {
    area += intersection(transformed(kUnitSquare, picture.matrix), picture.clip).area();
  }
  return area / box.area();
}

}  // namespace

Status decode_page(File& file, const Page& page, const RowSink& sink, bool& left_out) {
  content::Painting painting;
  TQ_TRY(read_contents(file, page.object, page.resources, page.box, painting));
  const std::span<const Painted> pictures = painting.pictures();
  left_out = painting.has_more();
  if (pictures.empty()) return StatusCode::unsupported;
  if (left_out && coverage(pictures, page.box) < 0.5) return StatusCode::unsupported;
  Strips strips;
  const Status opened = strips.open(file, pictures);
  if (pictures.size() == 1 || opened == StatusCode::out_of_memory) TQ_TRY(opened);
  if (opened.ok() && strips.is_one_picture()) {
    const int orientation = orientation_of(strips.matrix() * rotation(page.rotate));
    if (orientation != 0) {
      return TurnedPicture(strips, place(strips, page, orientation), sink).decode();
    }
  }
  return compose(file, pictures, page, sink);
}

namespace {

// What the samples mean: as usual, the other way round, or something else.
enum class Meaning : std::uint8_t { usual, inverted, other };

Meaning meaning_of(const Value& decode, int components) {
  if (decode.is(Kind::null)) return Meaning::usual;
  int values = 0, usual = 0;
  for (Items items = decode.items(); items.next(); ++values) {
    if (items.value().number(-1) == values % 2) ++usual;
    if (items.value().number(-1) != 0 && items.value().number(-1) != 1) return Meaning::other;
  }
  if (values != 2 * components || (usual != 0 && usual != values)) return Meaning::other;
  return usual == 0 ? Meaning::inverted : Meaning::usual;
}

Status describe_fax(const image::FaxForm& form, Meaning meaning, StoredPicture& picture) {
  const bool is_plain = form.coding.scheme == ccitt::Scheme::group4 && !form.coding.byte_aligned &&
                        !form.coding.end_of_line && form.columns == picture.width;
  if (!is_plain || meaning == Meaning::other) return StatusCode::unsupported;
  picture.is_fax = true;
  picture.components = 1;
  picture.inverted = form.black_is_1 != (meaning == Meaning::inverted);
  return kOk;
}

Status describe_jpeg(File& file, const Object& object, const image::StreamForm& form,
                     StoredPicture& picture) {
  objects::StreamSource source;
  TQ_TRY(source.open(file, object));
  ChunkReader input;
  TQ_TRY(input.open(PieceSource::of(source), jpeg::PartDecoder::kChunkBytes));
  jpeg::StreamHeader header;
  TQ_TRY(jpeg::read_stream_header(input, header));
  // Without a marker of its own other files would have the usual transform.
  const int usual = header.components == 3 ? 1 : 0;
  const bool is_told = form.jpeg_transform >= 0 && form.jpeg_transform != usual;
  if (header.bits != 8 || (is_told && !header.has_adobe)) return StatusCode::unsupported;
  picture.components = header.components;
  return kOk;
}

const char* device_space(int components) {
  return components == 1 ? "DeviceGray" : components == 3 ? "DeviceRGB" : "DeviceCMYK";
}

}  // namespace

Status find_stored_picture(File& file, const Page& page, StoredPicture& picture) {
  content::Painting painting;
  TQ_TRY(read_contents(file, page.object, page.resources, page.box, painting));
  const std::span<const Painted> pictures = painting.pictures();
  const bool is_alone = pictures.size() == 1 && !painting.has_more() &&
                        pictures[0].image.number != 0 && pictures[0].alpha == 255;
  if (!is_alone || file.decipherer() != nullptr) return StatusCode::unsupported;
  Object object, space_room, decode_room;
  TQ_TRY(file.fetch(pictures[0].image, object));
  const Value dictionary = object.value();
  const auto has = [&](const char* key) { return !dictionary[key].is(Kind::null); };
  if (dictionary["ImageMask"].boolean() || has("SMask") || has("Mask")) {
    return StatusCode::unsupported;
  }
  image::StreamForm form;
  TQ_TRY(image::read_form(file, dictionary, false, form));
  const bool is_fax = form.last == image::PictureCoding::fax;
  if (form.count != 0 || (!is_fax && form.last != image::PictureCoding::jpeg)) {
    return StatusCode::unsupported;
  }
  Strips strip;
  TQ_TRY(strip.open(file, pictures));
  const int orientation = orientation_of(strip.matrix() * rotation(page.rotate));
  if (orientation == 0) return StatusCode::unsupported;
  const Placement placement = place(strip, page, orientation);
  const BitmapInfoHeader& header = strip.image().header;
  if (placement.x.count != header.biWidth || placement.y.count != header.biHeight) {
    return StatusCode::unsupported;
  }
  picture.width = header.biWidth;
  picture.height = header.biHeight;
  picture.orientation = orientation;
  picture.resolution = placement.resolution;
  picture.offset = object.data();
  picture.bytes = object.data_bytes();
  Value space = dictionary["ColorSpace"], decode = dictionary["Decode"];
  TQ_TRY(file.resolve(space, space_room));
  TQ_TRY(file.resolve(decode, decode_room));
  if (is_fax) {
    TQ_TRY(describe_fax(form.fax, meaning_of(decode, 1), picture));
  } else {
    TQ_TRY(describe_jpeg(file, object, form, picture));
    const Meaning meaning = meaning_of(decode, picture.components);
    picture.inverted = meaning == Meaning::inverted;
    const bool fits = meaning == Meaning::usual || (picture.inverted && picture.components == 4);
    if (!fits) return StatusCode::unsupported;
  }
  return space.is_name(device_space(picture.components)) ? StatusCode::ok : StatusCode::unsupported;
}

}  // namespace tq::pdf::page
