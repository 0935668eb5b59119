// Continuous tone pictures of prepress systems: a separation's row behind the other's.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <string_view>

#include "formats/rows.h"
#include "formats/simple/simple.h"
#include "io/chunk_reader.h"
#include "io/endian.h"
#include "pixels/colours.h"
#include "platform/text.h"

namespace tq::simple {
namespace {

using formats::EncodeRequest;
using pixels::Layout;

constexpr int kHeaderBytes = 2048;
constexpr int kKindField = 80, kUnitField = 1024, kSeparationsField = 1025, kMaskField = 1026;
constexpr int kHeightField = 1028, kWidthField = 1042, kSideBytes = 14;  // in units
constexpr int kRowsField = 1056, kColumnsField = 1068, kCountBytes = 12;
constexpr int kInches = 1;  // of the unit; else millimetres
constexpr double kMillimetresPerInch = 25.4;
constexpr int kGreyMask = 8, kRgbMask = 7, kInkMask = 15;
constexpr std::int32_t kLargestSide = 65535;

using Header = std::array<std::uint8_t, kHeaderBytes>;

std::string_view text_at(const Header& header, int at, int bytes) {
  return std::string_view(reinterpret_cast<const char*>(&header[at]), bytes);
}

// A number with a sign, a point and an exponent, whatever the locale; 0 for what is none.
double number_of(std::string_view text) {
  constexpr int kMostExponent = 30;
  std::size_t at = std::min(text.find_first_not_of(" +"), text.size());
  const auto digit = [&] { return at < text.size() && text[at] >= '0' && text[at] <= '9'; };
  double value = 0, unit = 1;
  for (; digit(); ++at) value = 10 * value + (text[at] - '0');
  if (at < text.size() && text[at] == '.') {
    for (++at; digit(); ++at) value += (text[at] - '0') * (unit /= 10);
  }
  if (at < text.size() && text[at] == 'E') {
    ++at;
    const bool negative = at < text.size() && text[at] == '-';
    at += at < text.size() && (negative || text[at] == '+') ? 1 : 0;
    int exponent = 0;
    for (; digit(); ++at) exponent = std::min(10 * exponent + (text[at] - '0'), kMostExponent);
    value *= std::pow(10.0, negative ? -exponent : exponent);
  }
  return value;
}

// Thousandths of a dot per inch.
std::int32_t resolution_of(std::int32_t pixels, double side, int unit) {
  const double inches = unit == kInches ? side : side / kMillimetresPerInch;
  const double thousandths = inches > 0 ? 1000.0 * pixels / inches : 0;
  return thousandths < 65535500 ? static_cast<std::int32_t>(thousandths + 0.5) : 0;
}

struct Picture {
  Layout layout = Layout::bytes;
  int bits = 8;
  HeaderBlock image;
  Resolution resolution{};
};

Status read_header(const Header& header, Picture& picture) {
  const std::string_view kind = text_at(header, kKindField, 2);
  if (kind == "LW" || kind == "BM" || kind == "PG" || kind == "TX") return StatusCode::unsupported;
  if (kind != "CT") return StatusCode::bad_image;
  const int separations = header[kSeparationsField], mask = load_be16(&header[kMaskField]);
  if (separations == 3 && mask == kRgbMask) {
    picture.layout = Layout::rgb_planes;
    picture.bits = 24;
  } else if (separations == 4 && mask == kInkMask) {
    picture.layout = Layout::ink_planes;
    picture.bits = 32;
  } else if (separations != 1) {
    return StatusCode::unsupported;
  }
  const double rows = number_of(text_at(header, kRowsField, kCountBytes));
  const double columns = number_of(text_at(header, kColumnsField, kCountBytes));
  const auto is_side = [](double value) { return value >= 1 && value <= INT32_MAX; };
  if (!is_side(rows) || !is_side(columns)) return StatusCode::bad_image;
  const auto width = static_cast<std::int32_t>(columns), height = static_cast<std::int32_t>(rows);
  picture.image = dib_header(width, height, picture.bits);
  if (picture.bits == 8) picture.image.palette = pixels::grey_ramp();
  const auto dots = [&](std::int32_t pixels, int at) {
    return resolution_of(pixels, number_of(text_at(header, at, kSideBytes)), header[kUnitField]);
  };
  picture.resolution = {dots(width, kWidthField), dots(height, kHeightField)};
  BitmapInfoHeader& dib = picture.image.header;
  dib.biXPelsPerMeter = std::min((picture.resolution.x + 500) / 1000, 65535);
  dib.biYPelsPerMeter = std::min((picture.resolution.y + 500) / 1000, 65535);
  return kOk;
}

// Bytes of all separations of a row: an even number of each.
std::int64_t line_bytes(const pixels::RowLayout& layout, std::int64_t width) {
  return layout.planes * ((width + 1) & ~std::int64_t{1});
}

// --- Writing ---

struct Form {
  Layout layout = Layout::rgb_planes;
  int mask = kRgbMask, separations = 3;
  int bits = 24;       // of rows between
  bool greys = false;  // of a palette
};

Form choose(const EncodeRequest& request) {
  const HeaderBlock& image = *request.image;
  const int bits = image.header.biBitCount;
  if (request.cmyk) return {Layout::ink_planes, kInkMask, 4, 32};
  if (bits > 8) return {.bits = bits};
  const auto colours = std::span(image.palette).first(std::size_t{1} << bits);
  const bool greys =
      std::ranges::all_of(colours, [](Rgb c) { return c.red == c.green && c.red == c.blue; });
  if (greys) return {Layout::bytes, kGreyMask, 1, 8, true};
  return {.bits = 32};
}

// As "+1.566667E-01", whatever the locale.
void put_number(double value, std::uint8_t* at) {
  int exponent = 0;
  for (; value >= 10; value /= 10) ++exponent;
  for (; value > 0 && value < 1; value *= 10) --exponent;
  auto mantissa = static_cast<int>(value * 1'000'000 + 0.5);
  if (mantissa == 10'000'000) {
    mantissa = 1'000'000;
    ++exponent;
  }
  char text[kSideBytes + 20];
  platform::print_text(text, "+%d.%06dE%c%02d", mantissa / 1'000'000, mantissa % 1'000'000,
                       exponent < 0 ? '-' : '+', std::abs(exponent));
  std::memcpy(at, text, kSideBytes - 1);
}

void put_count(std::int32_t value, std::uint8_t* at) {
  char text[kCountBytes + 20];
  platform::print_text(text, "+%011d", static_cast<int>(value));
  std::memcpy(at, text, kCountBytes);
}

Header header_of(const EncodeRequest& request, const Form& form) {
  const BitmapInfoHeader& dib = request.image->header;
  const auto side = [](std::int32_t pixels, std::int32_t exact, std::int32_t dots) {
    const double thousandths = exact > 0 ? exact : 1000.0 * std::max(dots, 0);
    return thousandths > 0 ? 1000.0 * pixels / thousandths : 0;
  };
  Header header{};
  header[kKindField] = 'C';
  header[kKindField + 1] = 'T';
  header[kUnitField] = kInches;
  header[kSeparationsField] = byte(form.separations);
  store_be16(&header[kMaskField], word(form.mask));
  put_number(side(dib.biHeight, request.resolution.y, dib.biYPelsPerMeter), &header[kHeightField]);
  put_number(side(dib.biWidth, request.resolution.x, dib.biXPelsPerMeter), &header[kWidthField]);
  put_count(dib.biHeight, &header[kRowsField]);
  put_count(dib.biWidth, &header[kColumnsField]);
  return header;
}

// A row in the form that its layout takes.
class Rows {
 public:
  Status open(const EncodeRequest& request, const Form& form) {
    const BitmapInfoHeader& header = request.image->header;
    format_ = {
        .width = header.biWidth, .bits = header.biBitCount, .palette = request.image->palette};
    greys_ = form.greys;
    as_it_is_ = header.biBitCount > 8;
    if (as_it_is_) return kOk;
    return greys_ ? levels_.allocate(row_bytes(header.biWidth, 8))
                  : colours_.allocate(header.biWidth);
  }
  pixels::Bytes convert(pixels::Bytes row) {
    if (as_it_is_) return row;
    if (greys_) {
      pixels::for_each_index(row.data(), format_.bits, format_.width,
                             [&](int x, int i) { levels_[x] = format_.palette[i].red; });
      return levels_.pixels();
    }
    pixels::row_to_colours(row, format_, colours_.pixels());
    return {reinterpret_cast<const std::uint8_t*>(colours_.data()), 4 * colours_.size()};
  }

 private:
  pixels::RowFormat format_;
  bool greys_ = false, as_it_is_ = false;
  RowBuffer<std::uint8_t> levels_;
  RowBuffer<Rgb> colours_;
};

}  // namespace

Status decode_sct(const formats::DecodeRequest& request) {
  TQ_TRY(request.seek_to_start());
  Header header;
  if (read_fully(request.stream, header) < kHeaderBytes) return StatusCode::read_failed;
  Picture picture;
  TQ_TRY(read_header(header, picture));
  request.sink.resolution(picture.resolution);
  TQ_TRY(request.sink.header(picture.image));
  const pixels::RowLayout* const layout = pixels::find_layout(picture.layout, picture.bits);
  const formats::StoredRows stored{.layout = layout,
                                   .line_bytes = line_bytes(*layout, picture.image.header.biWidth)};
  ChunkReader input;
  TQ_TRY(input.open(request.stream, read_chunk_bytes(stored.line_bytes)));
  return formats::deliver_rows(stored, picture.image.header, request.sink, [&](pixels::Row line) {
    const auto there = static_cast<std::ptrdiff_t>(input.read(line));
    // Here 255 is all of an ink, in the layout it is none.
    const auto inks = line.first(static_cast<std::size_t>(there));
    if (picture.bits == 32) pixels::invert(inks, inks);
    return there;
  });
}

Status can_encode_sct(const EncodeRequest& request) {
  const BitmapInfoHeader& header = request.image->header;
  const int bits = header.biBitCount;
  if (bits == 16) return StatusCode::wrong_depth;
  const bool fits = header.biWidth <= kLargestSide && header.biHeight <= kLargestSide;
  return fits ? StatusCode::ok : StatusCode::unsupported;
}

Status encode_sct(const EncodeRequest& request) {
  TQ_TRY(can_encode_sct(request));
  const BitmapInfoHeader& dib = request.image->header;
  const Form form = choose(request);
  const pixels::RowLayout* const layout = pixels::find_layout(form.layout, form.bits);
  RowBuffer<std::uint8_t> row, line;
  TQ_TRY(row.allocate(row_bytes(dib.biWidth, dib.biBitCount)));
  TQ_TRY(line.allocate(line_bytes(*layout, dib.biWidth)));
  Rows rows;
  TQ_TRY(rows.open(request, form));
  StreamWriter out;
  TQ_TRY(out.open(request.stream));
  out.put(header_of(request, form));
  for (std::int32_t y = 0; y < dib.biHeight; ++y) {
    TQ_TRY(request.rows.row(row.pixels(), y));
    pixels::pack(*layout, rows.convert(row.pixels()), dib.biWidth, line.pixels());
    if (request.cmyk) pixels::invert(line.pixels(), line.pixels());
    out.put(line.pixels());
    TQ_TRY(out.status());
  }
  return out.flush();
}

}  // namespace tq::simple
