// X window dumps, version 7 (XWDFile.h): what a window was on its screen, with all that says what
// its pixels are: units, orders of bytes and bits, masks of colours.
#include <algorithm>
#include <array>
#include <string_view>

#include "coding/bits.h"
#include "formats/rows.h"
#include "formats/simple/simple.h"
#include "io/chunk_reader.h"
#include "io/endian.h"
#include "pixels/colours.h"

namespace tq::simple {
namespace {

using namespace pixels;
using Colours = std::array<Rgb, 256>;

enum Format : std::uint32_t { kBitmap, kPlanes, kPixels };
enum VisualClass : std::uint32_t { kStaticGrey, kPseudoColour = 3, kTrueColour };

constexpr int kFields = 25, kHeaderBytes = 4 * kFields, kColourBytes = 12;
constexpr std::uint32_t kVersion = 7, kLongestName = 65536;

struct XwdFile {
  std::array<std::uint8_t, kHeaderBytes> header;
  Colours colours{};
  std::int64_t pixels = 0;            // their position
  const RowLayout* layout = nullptr;  // null: by masks

  bool low_byte_first = false;  // the header and the colours

  std::uint32_t u32(const std::uint8_t* at) const {
    return low_byte_first ? load_le32(at) : load_be32(at);
  }
  int u16(const std::uint8_t* at) const { return low_byte_first ? load_le16(at) : load_be16(at); }
  std::uint32_t field(int i) const { return u32(&header[4 * i]); }
  std::uint32_t header_bytes() const { return field(0); }
  std::uint32_t format() const { return field(2); }
  std::uint32_t depth() const { return field(3); }
  std::int32_t width() const { return static_cast<std::int32_t>(field(4)); }
  std::int32_t height() const { return static_cast<std::int32_t>(field(5)); }
  bool high_byte_first() const { return field(7) != 0; }
  int unit() const { return static_cast<int>(field(8)); }
  bool high_bit_first() const { return field(9) != 0; }
  std::int64_t line_bytes() const { return field(12); }
  std::uint32_t visual_class() const { return field(13); }
  ColourMasks masks() const { return {field(14), field(15), field(16)}; }
  std::uint32_t colour_count() const { return field(19); }

  // Planes apart, or pixels of so many bits.
  int planes() const { return format() == kPixels ? 1 : static_cast<int>(depth()); }
  int bits() const { return format() == kPixels ? static_cast<int>(field(11)) : planes(); }
  bool in_bits() const { return format() != kPixels || bits() == 1; }
  bool by_masks() const { return bits() > 8 || (bits() == 8 && visual_class() >= kTrueColour); }
  // Of the pixels, or of one plane.
  std::int64_t used_bytes() const {
    return (std::int64_t{width()} * (in_bits() ? 1 : bits()) + 7) / 8;
  }
};

// What takes no masks to be read; null: masks.
const RowLayout* find_usual_layout(const XwdFile& file) {
  if (file.format() != kPixels || file.bits() < 24) return nullptr;
  const auto [red, green, blue] = file.masks();
  const bool red_high = red == 0xFF0000 && blue == 0xFF,
             blue_high = blue == 0xFF0000 && red == 0xFF;
  if (green != 0xFF00 || (!red_high && !blue_high)) return nullptr;
  const bool red_first = red_high == file.high_byte_first();
  if (file.bits() == 24) return find_layout(red_first ? Layout::rgb : Layout::bgr, 24);
  if (file.high_byte_first()) return find_layout(red_first ? Layout::xrgb : Layout::xbgr, 24);
  return find_layout(red_first ? Layout::rgbx : Layout::bgrx, 24);
}

Status check_header(const XwdFile& file) {
  const auto one_of = [](std::uint32_t value, std::initializer_list<std::uint32_t> values) {
    return std::ranges::find(values, value) != values.end();
  };
  if (file.field(1) != kVersion || file.format() > kPixels || file.header_bytes() < kHeaderBytes ||
      file.header_bytes() > kHeaderBytes + kLongestName || file.width() <= 0 ||
      file.height() <= 0) {
    return StatusCode::bad_image;
  }
  if (file.depth() > 32) return StatusCode::unsupported;
  if (file.format() == kPixels && !one_of(file.field(11), {1, 4, 8, 16, 24, 32})) {
    return StatusCode::unsupported;
  }
  if (file.depth() < 1 || (file.format() == kBitmap && file.depth() != 1))
    return StatusCode::bad_image;
  if (file.in_bits() && !one_of(file.field(8), {8, 16, 32})) return StatusCode::bad_image;
  const auto [red, green, blue] = file.masks();
  if (file.by_masks() && (red | green | blue) == 0) return StatusCode::bad_image;
  return file.line_bytes() >= file.used_bytes() ? StatusCode::ok : StatusCode::bad_image;
}

// The table says for itself which pixels its entries are of.
Status read_colours(StreamHandle stream, XwdFile& file) {
  ChunkReader input;
  TQ_TRY(input.open(stream, read_chunk_bytes(kColourBytes)));
  for (std::uint32_t i = 0; i < file.colour_count(); ++i) {
    const Bytes entry = input.peek(kColourBytes);
    if (entry.size() < kColourBytes) return StatusCode::read_failed;
    const std::uint32_t pixel = file.u32(entry.data());
    const auto level = [&](int at) { return from_16_bits(file.u16(&entry[at])); };
    if (pixel < file.colours.size()) file.colours[pixel] = {level(8), level(6), level(4), 0};
    input.skip(kColourBytes);
  }
  return kOk;
}

// Leaves the colours read; there may be none.
Status read_header(const formats::DecodeRequest& request, XwdFile& file) {
  TQ_TRY(request.seek_to_start());
  const std::int64_t start = request.start();
  if (read_fully(request.stream, file.header) < kHeaderBytes) return StatusCode::read_failed;
  file.low_byte_first = file.field(1) != kVersion && request.options.get(IMG_OPTION_DETECTION) == 1;
  TQ_TRY(check_header(file));
  const std::int64_t colours = start + file.header_bytes();
  file.pixels = colours + kColourBytes * std::int64_t{file.colour_count()};
  if (file.by_masks()) {
    file.layout = find_usual_layout(file);
    return kOk;
  }
  if (file.colour_count() > 0) {
    TQ_TRY(seek_to(request.stream, colours));
    TQ_TRY(read_colours(request.stream, file));
  } else if (file.bits() == 1) {
    const bool black_is_one = file.visual_class() == kStaticGrey || file.format() == kBitmap;
    file.colours = grey_levels(1);
    if (black_is_one) std::swap(file.colours[0], file.colours[1]);
  } else {
    file.colours = grey_levels(file.bits());
  }
  if (file.bits() == 1) {
    file.layout = find_bit_layout(file.colours);
  } else if (file.format() == kPlanes) {
    file.layout = find_plane_layout(file.planes());
  } else {
    file.layout = find_layout(file.bits() == 4 ? Layout::bits_4 : Layout::bytes, file.bits());
  }
  return kOk;
}

HeaderBlock describe(const XwdFile& file) {
  HeaderBlock image =
      dib_header(file.width(), file.height(), file.layout == nullptr ? 24 : file.layout->bits);
  const int bits = image.header.biBitCount;
  if (bits > 8) return image;
  const Colours& colours = bits == 1 ? grey_levels(1) : file.colours;
  std::copy_n(colours.begin(), 1 << bits, image.palette.begin());
  return image;
}

// The rows of the file, wherever their planes lie, with the first pixel in the first byte and in its
// highest bits.
class Lines {
 public:
  Lines(const formats::DecodeRequest& request, const XwdFile& file)
      : stream_(request.stream), sink_(request.sink), file_(file) {}

  Status open() {
    const std::int64_t unit = file_.in_bits() ? file_.unit() / 8 : 1;
    const std::int64_t line_bytes = (file_.used_bytes() + unit - 1) / unit * unit;
    TQ_TRY(line_.allocate(line_bytes));
    if (file_.layout != nullptr || file_.format() == kPixels) return kOk;
    TQ_TRY(planes_.allocate(kMostPlanes * file_.used_bytes()));
    TQ_TRY(levels_.allocate(row_bytes(file_.width(), 8)));
    return numbers_.allocate(kNumberBytes * std::int64_t{file_.width()});
  }

  // Of the layout, or blue, green and red; how many bytes there were.
  std::ptrdiff_t read(Row row) {
    const std::int32_t y = y_++;
    if (file_.layout != nullptr) return read_row(y, row);
    const int bytes = file_.bits() / 8;
    if (file_.format() == kPixels) {
      const std::ptrdiff_t there = read_line(file_.pixels + y * file_.line_bytes());
      const Row line = line_.pixels().first(std::size_t(there));
      unpack_masked(file_.masks(), line, bytes, file_.high_byte_first(), file_.width(), row);
      return there == 0 ? 0 : std::ssize(row);
    }
    const std::ptrdiff_t used = std::ssize(planes_.pixels()) / kMostPlanes;
    if (read_row(y, planes_.pixels().first(file_.planes() * used)) == 0) return 0;
    for (int i = 0; i < kNumberBytes; ++i) {
      unpack(*find_plane_layout(8), planes_.pixels().subspan(8 * i * used, 8 * used), file_.width(),
             levels_.pixels());
      for (int x = 0; x < file_.width(); ++x) numbers_[kNumberBytes * x + i] = levels_[x];
    }
    unpack_masked(file_.masks(), numbers_.pixels(), kNumberBytes, false, file_.width(), row);
    return std::ssize(row);
  }

 private:
  static constexpr int kMostPlanes = 32, kNumberBytes = 4;

  // Planes become one behind the other, that of the lowest bits first.
  std::ptrdiff_t read_row(std::int32_t y, Row row) {
    const int planes = file_.planes();
    const std::ptrdiff_t bytes = std::ssize(row) / planes;
    std::ptrdiff_t most = 0;
    for (int i = 0; i < planes; ++i) {
      const std::int64_t line = std::int64_t{planes - 1 - i} * file_.height() + y;
      most = std::max(most, read_line(file_.pixels + line * file_.line_bytes()));
      std::copy_n(line_.data(), bytes, row.begin() + i * bytes);
    }
    return most == 0 ? 0 : std::ssize(row);
  }

  std::ptrdiff_t read_line(std::int64_t at) {
    const Row line = line_.pixels();
    const auto wanted = std::min<std::int64_t>(file_.line_bytes(), std::ssize(line));
    const Row used = line.first(static_cast<std::size_t>(wanted));
    const int there = seek_to(stream_, at).ok() ? read_fully(stream_, used) : 0;
    if (there < wanted) sink_.damaged(StatusCode::read_failed);
    // Of pixels that are in part there nothing is.
    const int pixel = file_.by_masks() && !file_.in_bits() ? file_.bits() / 8 : 1;
    std::fill(line.begin() + there / pixel * pixel, line.end(), std::uint8_t{0});
    if (file_.in_bits()) put_in_order(line);
    if (file_.bits() == 4 && !file_.high_byte_first()) {
      for (std::uint8_t& pair : line) pair = byte(pair << 4 | pair >> 4);
    }
    return there;
  }

  void put_in_order(Row line) const {
    const std::ptrdiff_t unit = file_.unit() / 8;
    if (file_.high_byte_first() != file_.high_bit_first()) {
      for (auto at = line.begin(); at != line.end(); at += unit) std::reverse(at, at + unit);
    }
    if (!file_.high_bit_first()) coding::reverse_bits(line);
  }

  StreamHandle stream_;
  const formats::RowSink& sink_;
  const XwdFile& file_;
  std::int32_t y_ = 0;
  RowBuffer<std::uint8_t> line_;                       // of one plane
  RowBuffer<std::uint8_t> planes_, levels_, numbers_;  // of more than eight
};

}  // namespace

Status decode_xwd(const formats::DecodeRequest& request) {
  XwdFile file;
  TQ_TRY(read_header(request, file));
  HeaderBlock image = describe(file);
  TQ_TRY(request.sink.header(image));
  const RowLayout& layout = file.layout != nullptr ? *file.layout : *find_layout(Layout::bgr, 24);
  Lines lines(request, file);
  TQ_TRY(lines.open());
  return formats::deliver_rows({&layout, stored_bytes(layout, file.width())}, image.header,
                               request.sink, [&](Row row) { return lines.read(row); });
}

// --- Writing ---

namespace {

constexpr std::string_view kName{"image\0", 6};

formats::StoredRows saved_rows(const HeaderBlock& image) {
  const int bits = image.header.biBitCount;
  const Layout kind = bits > 8 ? Layout::xrgb : bits > 1 ? Layout::bytes : Layout::bits_1;
  const RowLayout* const layout = find_layout(kind, bits);
  return {layout, (stored_bytes(*layout, image.header.biWidth) + 3) & ~std::int64_t{3}};
}

void write_header(const HeaderBlock& image, const formats::StoredRows& rows, StreamWriter& out) {
  const auto width = static_cast<std::uint32_t>(image.header.biWidth);
  const auto height = static_cast<std::uint32_t>(image.header.biHeight);
  const int bits = image.header.biBitCount;
  const bool full = bits > 8;
  const std::uint32_t pixel_bits = static_cast<std::uint32_t>(rows.layout->plane_bits);
  const std::uint32_t colours = full ? 0 : 1u << pixel_bits;
  constexpr std::uint32_t kHighFirst = 1, kUnit = 32;
  const std::uint32_t fields[kFields] = {
      static_cast<std::uint32_t>(kHeaderBytes + kName.size()),
      kVersion,
      kPixels,
      full ? 24 : pixel_bits,
      width,
      height,
      0,
      kHighFirst,  // of bytes
      kUnit,
      kHighFirst,  // of bits
      kUnit,
      pixel_bits,
      static_cast<std::uint32_t>(rows.line_bytes),
      full ? kTrueColour : kPseudoColour,
      full ? 0xFF0000u : 0,
      full ? 0xFF00u : 0,
      full ? 0xFFu : 0,
      8,  // bits of a level
      full ? 256 : colours,
      colours,
      width,
      height,
  };
  for (const std::uint32_t field : fields) out.put_be32(field);
  out.put(kName);
  for (std::uint32_t i = 0; i < colours; ++i) {
    const Rgb colour = i < 1u << bits ? image.palette[i] : Rgb{};
    out.put_be32(i);
    for (const auto channel : {&Rgb::red, &Rgb::green, &Rgb::blue})
      out.put_be16(colour.*channel * 257);
    out.put8(7);  // all three count
    out.put8(0);
  }
}

}  // namespace

Status can_encode_xwd(const formats::EncodeRequest& request) {
  return formats::check_plain(request, INT32_MAX);
}

Status encode_xwd(const formats::EncodeRequest& request) {
  TQ_TRY(can_encode_xwd(request));
  const formats::StoredRows rows = saved_rows(*request.image);
  StreamWriter out;
  TQ_TRY(out.open(request.stream));
  write_header(*request.image, rows, out);
  TQ_TRY(formats::write_rows(rows, request, out));
  return out.flush();
}

}  // namespace tq::simple
