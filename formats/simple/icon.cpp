// Windows icons: a directory of pictures, each a PNG file or a bitmap without its file header, behind
// whose rows lies a mask of what it hides.
#include <array>

#include "formats/png/png.h"
#include "formats/rows.h"
#include "formats/simple/simple.h"
#include "io/endian.h"
#include "io/stream_window.h"
#include "pixels/colours.h"

namespace tq::simple {
namespace {

using namespace pixels;

constexpr int kDirectoryBytes = 6, kEntryBytes = 16, kInfoBytes = 40;
constexpr int kMostEntries = 1024;
constexpr std::int32_t kLongestSide = 1024, kLongestWrittenSide = 256;
constexpr std::uint32_t kBitFields = 3;
constexpr Rgb kWhite{255, 255, 255, 0};

// A picture of the file, as its own header has it: what the directory says of size and depth is
// often wrong.
struct Picture {
  std::int64_t at = 0;  // in the stream
  std::int32_t width = 0, height = 0;
  int depth = 0;
  int index = 0;  // in the directory
  bool is_png = false;
  // Of a bitmap:
  std::uint32_t compression = 0;
  int colours = 0;
  std::int64_t pixels_at = 0;
  std::int64_t mask_at = -1;  // below 0: nothing is hidden

  std::int64_t stored_row() const { return row_bytes(width, depth); }
  std::int64_t mask_row() const { return row_bytes(width, 1); }
};

// --- Reading ---

// Looks through the directory for pictures that can be.
class Directory {
 public:
  // bad_image when there is none.
  Status open(const formats::DecodeRequest& request) {
    start_ = request.start();
    end_ = find_end(request.stream);
    TQ_TRY(window_.open(request.stream, 512));
    const Bytes head = window_.at(start_, kDirectoryBytes);
    if (std::ssize(head) < kDirectoryBytes) return StatusCode::read_failed;
    const int entries = load_le16(&head[4]);
    if (load_le16(&head[0]) != 0 || load_le16(&head[2]) != 1 || entries == 0)
      return StatusCode::bad_image;
    TQ_TRY(pictures_.allocate(std::min(entries, kMostEntries)));
    for (int i = 0; i < std::ssize(pictures_.pixels()); ++i) {
      Picture picture{.index = i};
      if (read_entry(i, entries, picture)) pictures_[count_++] = picture;
    }
    return count_ > 0 ? StatusCode::ok : StatusCode::bad_image;
  }

  int count() const { return count_; }

  // The largest comes first, of equal ones the deepest, then the first of the directory.
  const Picture& page(int number) {
    const auto found = pictures_.pixels().first(static_cast<std::size_t>(count_));
    std::ranges::sort(found, [](const Picture& a, const Picture& b) {
      const std::int32_t left = a.width * a.height, right = b.width * b.height;
      if (left != right) return left > right;
      return a.depth != b.depth ? a.depth > b.depth : a.index < b.index;
    });
    return found[number];
  }

 private:
  bool read_entry(int i, int entries, Picture& picture) {
    const Bytes entry = window_.at(start_ + kDirectoryBytes + i * kEntryBytes, kEntryBytes);
    if (std::ssize(entry) < kEntryBytes) return false;
    const std::int32_t height = entry[1] == 0 ? 256 : entry[1];
    const std::int64_t bytes = load_le32(&entry[8]), offset = load_le32(&entry[12]);
    picture.at = start_ + offset;
    if (offset < kDirectoryBytes + entries * kEntryBytes || picture.at + bytes > end_) return false;
    const Bytes head = window_.at(picture.at, kInfoBytes);
    if (std::ssize(head) < kInfoBytes) return false;
    picture.is_png = load_be32(head.data()) == 0x89504E47;
    const bool read =
        picture.is_png ? read_png(head, picture) : read_bitmap(head, bytes, height, picture);
    return read && picture.width >= 1 && picture.width <= kLongestSide && picture.height >= 1 &&
           picture.height <= kLongestSide;
  }

  static bool read_png(Bytes head, Picture& picture) {
    constexpr int kChannels[] = {1, 1, 3, 1, 2, 1, 4};  // by the type of colour
    const int type = std::min<int>(head[25], 6);
    picture.width = static_cast<std::int32_t>(load_be32(&head[16]));
    picture.height = static_cast<std::int32_t>(load_be32(&head[20]));
    picture.depth = head[24] * kChannels[type];
    return true;
  }

  // `bytes` and `height` are the directory's.
  bool read_bitmap(Bytes head, std::int64_t bytes, std::int32_t height, Picture& picture) const {
    constexpr std::uint32_t kLargestHeader = 124;
    const std::uint32_t header_bytes = load_le32(head.data());
    picture.width = static_cast<std::int32_t>(load_le32(&head[4]));
    const auto both = static_cast<std::int32_t>(load_le32(&head[8]));
    picture.depth = load_le16(&head[14]);
    picture.compression = load_le32(&head[16]);
    std::uint32_t colours = load_le32(&head[32]);
    if (colours == 0 && picture.depth <= 8) colours = 1u << picture.depth;
    if (header_bytes < kInfoBytes || header_bytes > kLargestHeader || colours > 256 ||
        picture.width < 1 || picture.width > kLongestSide || both < 1) {
      return false;
    }
    const bool masks = picture.compression == kBitFields && header_bytes == kInfoBytes;
    picture.colours = static_cast<int>(colours);
    picture.pixels_at = picture.at + header_bytes + (masks ? 12 : 0) + 4 * picture.colours;
    find_mask(picture.at + bytes, both, height, picture);
    return true;
  }

  // The header's height is that of picture and mask together, unless there are data for one of them
  // only.
  void find_mask(std::int64_t end, std::int32_t both, std::int32_t height, Picture& picture) const {
    const std::int64_t row = picture.stored_row(), mask_row = picture.mask_row();
    picture.height = both / 2;
    if (picture.pixels_at + picture.height * row > end) end = end_;  // the size is wrong
    const std::int64_t there = end - picture.pixels_at;
    const bool alone = height == both && picture.depth > 1 && there >= both * row &&
                       there < both * (row + mask_row);
    if (alone || both % 2 != 0) {
      picture.height = both;
    } else if (there >= picture.height * (row + mask_row)) {
      picture.mask_at = picture.pixels_at + picture.height * row;
    }
  }

  StreamWindow window_;
  std::int64_t start_ = 0, end_ = 0;
  RowBuffer<Picture> pictures_;
  int count_ = 0;
};

// A bitmap's rows from the bottom, and what is hidden of them.
class Bitmap {
 public:
  Status open(StreamHandle stream, const Picture& picture) {
    picture_ = picture;
    TQ_TRY(check());
    TQ_TRY(pixels_.open(stream, std::max<std::int64_t>(picture.stored_row(), 1024)));
    TQ_TRY(mask_.open(stream, picture.mask_row()));
    read_colours();
    const bool has_alpha = picture.depth == 32 && any_alpha();
    if (has_alpha) picture_.mask_at = -1;
    masked_ = picture_.mask_at >= 0 && any_hidden();
    layout_ = choose_layout(has_alpha);
    image_ = dib_header(picture.width, picture.height, masked_ ? 24 : layout_->bits);
    if (!masked_ && layout_->bits == 1) image_.palette = grey_levels(1);
    if (!masked_ && (layout_->bits == 4 || layout_->bits == 8)) image_.palette = colours_;
    return kOk;
  }

  Status deliver(const formats::RowSink& sink) {
    TQ_TRY(sink.header(image_));
    RowBuffer<std::uint8_t> row, laid;
    RowBuffer<Rgb> colours;
    TQ_TRY(row.allocate(row_bytes(picture_.width, layout_->bits)));
    if (masked_) {
      TQ_TRY(colours.allocate(picture_.width));
      TQ_TRY(laid.allocate(row_bytes(picture_.width, 24)));
    }
    for (int line = 0; line < picture_.height; ++line) {
      const Bytes stored = stored_row(line);
      if (stored.empty()) break;
      unpack(*layout_, stored, picture_.width, row.pixels());
      if (masked_) lay_on_white(row.pixels(), line, colours.pixels(), laid.pixels());
      const std::int32_t y = picture_.height - 1 - line;
      TQ_TRY(sink.row(masked_ ? laid.pixels() : row.pixels(), y));
    }
    return kOk;
  }

 private:
  Status check() const {
    const bool fields = picture_.compression == kBitFields && picture_.depth == 32;
    if (picture_.compression != 0 && !fields) return StatusCode::unsupported;
    constexpr int kDepths[] = {1, 4, 8, 16, 24, 32};
    const bool known = std::ranges::find(kDepths, picture_.depth) != std::end(kDepths);
    return known ? StatusCode::ok : StatusCode::bad_image;
  }

  void read_colours() {
    const Bytes map = pixels_.at(picture_.pixels_at - 4 * picture_.colours, 4 * picture_.colours);
    for (int i = 0; i < std::ssize(map) / 4; ++i) {
      colours_[i] = {map[4 * i], map[4 * i + 1], map[4 * i + 2], 0};
    }
  }

  const RowLayout* choose_layout(bool has_alpha) const {
    switch (picture_.depth) {
      case 1:
        return find_bit_layout(colours_);
      case 4:
        return find_layout(Layout::bits_4, 4);
      case 8:
        return find_layout(Layout::bytes, 8);
      case 16:
        return find_layout(Layout::rgb555_full, 24);
      case 24:
        return find_layout(Layout::bgr, 24);
      default:
        return find_layout(has_alpha ? Layout::bgra : Layout::bgrx, 24);
    }
  }

  Bytes stored_row(int line) {
    return pixels_.at(picture_.pixels_at + line * picture_.stored_row(), picture_.stored_row());
  }

  // Calls `see(x)` for the pixels of a line that the mask hides.
  template <class See>
  void for_each_hidden(int line, See&& see) {
    const Bytes bits = mask_.at(picture_.mask_at + line * picture_.mask_row(), picture_.mask_row());
    if (std::ssize(bits) < picture_.mask_row()) return;
    for_each_index(bits.data(), 1, picture_.width, [&](int x, int hidden) {
      if (hidden != 0) see(x);
    });
  }

  bool any_hidden() {
    bool any = false;
    for (int line = 0; line < picture_.height && !any; ++line) {
      for_each_hidden(line, [&](int) { any = true; });
    }
    return any;
  }

  // Writers that know no alpha leave it 0 everywhere.
  bool any_alpha() {
    for (int line = 0; line < picture_.height; ++line) {
      const Bytes row = stored_row(line);
      for (std::ptrdiff_t i = 3; i < std::ssize(row); i += 4) {
        if (row[i] != 0) return true;
      }
    }
    return false;
  }

  void lay_on_white(Bytes row, int line, std::span<Rgb> colours, Row laid) {
    row_to_colours(row, {picture_.width, layout_->bits, false, shown_colours()}, colours);
    for_each_hidden(line, [&](int x) { colours[x] = kWhite; });
    const Bytes four(reinterpret_cast<const std::uint8_t*>(colours.data()), 4 * colours.size());
    pack(*find_layout(Layout::bgr, 32), four, picture_.width, laid);
  }

  // Of a row in the library's layout: black and white where it has one bit.
  std::span<const Rgb> shown_colours() const {
    return layout_->bits == 1 ? std::span<const Rgb>(black_and_white()) : colours_;
  }

  Picture picture_;
  StreamWindow pixels_, mask_;
  std::array<Rgb, 256> colours_{};
  const RowLayout* layout_ = nullptr;
  bool masked_ = false;
  HeaderBlock image_;
};

}  // namespace

Status decode_icon(const formats::DecodeRequest& request) {
  Directory directory;
  TQ_TRY(directory.open(request));
  const std::int32_t page = request.has_page() ? request.page : 0;
  if (page >= directory.count()) return StatusCode::page_past_end;
  const Picture& picture = directory.page(page);
  if (picture.is_png) {
    return png::decode_png({.stream = request.stream,
                            .offset = static_cast<std::int32_t>(picture.at),
                            .sink = request.sink});
  }
  Bitmap bitmap;
  TQ_TRY(bitmap.open(request.stream, picture));
  return bitmap.deliver(request.sink);
}

Status count_icon_pages(StreamHandle stream) {
  Directory directory;
  TQ_TRY(directory.open({.stream = stream, .offset = position(stream), .sink{}}));
  return Status::from_raw(directory.count());
}

// --- Writing ---

namespace {

Status choose(const formats::EncodeRequest& request, formats::StoredRows& rows) {
  const BitmapInfoHeader& header = request.image->header;
  const int bits = header.biBitCount;
  constexpr Layout kLayouts[] = {Layout::bits_1, Layout::bits_4, Layout::bytes, Layout::bgr};
  for (const Layout layout : kLayouts) {
    const RowLayout* const found = find_layout(layout, bits);
    if (found != nullptr && found->pack != nullptr && rows.layout == nullptr) rows.layout = found;
  }
  if (rows.layout == nullptr || request.cmyk) return StatusCode::wrong_depth;
  rows.line_bytes = row_bytes(header.biWidth, rows.layout->plane_bits);
  rows.bottom_up = true;
  const bool fits = header.biWidth <= kLongestWrittenSide && header.biHeight <= kLongestWrittenSide;
  return fits ? StatusCode::ok : StatusCode::unsupported;
}

void write_headers(const HeaderBlock& image, const formats::StoredRows& rows, std::int64_t mask_row,
                   StreamWriter& out) {
  const BitmapInfoHeader& header = image.header;
  const int bits = rows.layout->plane_bits;
  const int colours = bits <= 8 ? 1 << bits : 0;
  const std::int64_t data = (rows.line_bytes + mask_row) * header.biHeight;
  out.put_le16(0);
  out.put_le16(1);
  out.put_le16(1);
  out.put8(header.biWidth);  // 256 becomes 0
  out.put8(header.biHeight);
  out.put8(colours);
  out.put8(0);
  out.put_le16(1);
  out.put_le16(bits);
  out.put_le32(static_cast<std::uint32_t>(kInfoBytes + 4 * colours + data));
  out.put_le32(kDirectoryBytes + kEntryBytes);
  out.put_le32(kInfoBytes);
  out.put_le32(static_cast<std::uint32_t>(header.biWidth));
  out.put_le32(static_cast<std::uint32_t>(2 * header.biHeight));
  out.put_le16(1);
  out.put_le16(bits);
  out.put_le32(0);
  out.put_le32(static_cast<std::uint32_t>(data));
  out.fill(16, 0);  // an icon has no resolution
  for (int i = 0; i < colours; ++i) {
    const Rgb& colour = image.palette[i];
    for (const int level : {colour.blue, colour.green, colour.red, std::uint8_t{0}})
      out.put8(level);
  }
}

}  // namespace

Status can_encode_icon(const formats::EncodeRequest& request) {
  formats::StoredRows rows;
  return choose(request, rows);
}

Status encode_icon(const formats::EncodeRequest& request) {
  formats::StoredRows rows;
  TQ_TRY(choose(request, rows));
  const BitmapInfoHeader& header = request.image->header;
  const std::int64_t mask_row = row_bytes(header.biWidth, 1);
  StreamWriter out;
  RowBuffer<std::uint8_t> mask;
  TQ_TRY(mask.allocate(mask_row * header.biHeight));
  TQ_TRY(out.open(request.stream));
  write_headers(*request.image, rows, mask_row, out);
  const int bits = rows.layout->plane_bits;
  const bool marked = bits <= 8 && (header.biClrUsed & kTransparent) != 0;
  const int transparent = header.biClrUsed & 0xFF;
  std::uint8_t* hides = mask.data();
  TQ_TRY(formats::supply_rows(rows, request, [&](Bytes line) {
    out.put(line);
    if (marked) {
      for_each_index(line.data(), bits, header.biWidth, [&](int x, int index) {
        if (index == transparent) hides[x / 8] |= byte(0x80 >> x % 8);
      });
    }
    hides += mask_row;
    return out.status();
  }));
  out.put(mask.pixels());
  return out.flush();
}

}  // namespace tq::simple
