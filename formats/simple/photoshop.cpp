// Photoshop documents (the file format specification of 2019): of what they hold the merged picture,
// which lies at the end, channel behind channel.
#include <array>

#include "coding/packbits.h"
#include "formats/rows.h"
#include "formats/simple/simple.h"
#include "io/endian.h"
#include "io/stream_window.h"
#include "pixels/colours.h"

namespace tq::simple {
namespace {

using namespace pixels;

enum Mode : int { kBitmap, kGrey, kIndexed, kRgb, kCmyk, kMultichannel = 7, kDuotone, kLab };
enum Coding : int { kPlain, kPackBits, kDeflated, kDeflatedDifferences };
enum Resource : int { kResolution = 1005, kTransparentIndex = 1047 };

constexpr int kHeaderBytes = 26;
constexpr int kMostChannels = 56, kMostUsed = 4;
constexpr std::uint32_t kLongestSide = 30000, kLongestLargeSide = 300000;
constexpr std::int64_t kColourBytes = 3 * 256;
constexpr int kWindowBytes = 4096;  // of headers and of row lengths
constexpr int kDataBytes = 65536;

struct Document {
  HeaderBlock image;
  formats::StoredRows rows;  // of the channels in use, 8 bits a sample
  int mode = 0, depth = 0, channels = 0;
  bool large = false;     // the second version: longer fields
  bool packed = false;    // else plain
  std::int64_t data = 0;  // where the channels begin, or the lengths of their rows

  int used() const { return rows.layout->planes; }
  std::int64_t stored_row() const { return rows.line_bytes / used() * (depth == 16 ? 2 : 1); }
};

struct Kind {
  int mode, bits;  // of a pixel of the library
  Layout layout;
};
constexpr Kind kKinds[] = {{kBitmap, 1, Layout::bits_1_black}, {kGrey, 8, Layout::bytes},
                           {kDuotone, 8, Layout::bytes},       {kIndexed, 8, Layout::bytes},
                           {kRgb, 24, Layout::rgb_planes},     {kCmyk, 32, Layout::ink_planes}};

// --- Reading ---

Status choose_layout(Document& document) {
  if (document.mode == kMultichannel || document.mode == kLab) return StatusCode::unsupported;
  const auto* const kind = std::ranges::find(kKinds, document.mode, &Kind::mode);
  if (kind == std::end(kKinds)) return StatusCode::bad_image;
  if (document.depth == 32) return StatusCode::unsupported;
  const bool narrow = document.depth == (document.mode == kBitmap ? 1 : 8);
  const bool wide = document.depth == 16 && document.mode != kBitmap && document.mode != kIndexed;
  document.rows.layout = find_layout(kind->layout, kind->bits);
  const bool enough = document.channels >= document.used();
  return (narrow || wide) && enough ? StatusCode::ok : StatusCode::bad_image;
}

// The sections before the picture, one behind the other.
class Sections {
 public:
  Status open(StreamHandle stream, std::int64_t start) {
    at_ = start;
    end_ = find_end(stream);
    return window_.open(stream, kWindowBytes);
  }

  // The next bytes; read_failed where the file is cut off.
  Status take(std::ptrdiff_t bytes, Bytes& taken) {
    taken = window_.at(at_, bytes);
    at_ += bytes;
    return std::ssize(taken) == bytes ? StatusCode::ok : StatusCode::read_failed;
  }

  // Leaves the beginning of a section behind its length, and gives its end.
  Status enter(bool long_length, std::int64_t& end) {
    Bytes length;
    TQ_TRY(take(long_length ? 8 : 4, length));
    if (long_length && load_be32(length.data()) != 0) return StatusCode::bad_image;
    end = at_ + load_be32(length.last(4).data());
    return end <= end_ ? StatusCode::ok : StatusCode::bad_image;
  }

  std::int64_t position() const { return at_; }
  void go_to(std::int64_t position) { at_ = position; }

 private:
  StreamWindow window_;
  std::int64_t at_ = 0, end_ = 0;
};

Status read_header(Sections& sections, Document& document) {
  Bytes bytes;
  TQ_TRY(sections.take(kHeaderBytes, bytes));
  const auto field = [&](int at) { return load_be16(&bytes[at]); };
  const int version = field(4);
  const std::uint32_t height = load_be32(&bytes[14]), width = load_be32(&bytes[18]);
  document.large = version == 2;
  document.channels = field(12);
  document.depth = field(22);
  document.mode = field(24);
  const std::uint32_t longest = document.large ? kLongestLargeSide : kLongestSide;
  if (load_be32(bytes.data()) != 0x38425053 || (version != 1 && version != 2) ||
      document.channels < 1 || document.channels > kMostChannels || width > longest ||
      height > longest) {
    return StatusCode::bad_image;
  }
  TQ_TRY(choose_layout(document));
  document.rows.line_bytes = stored_bytes(*document.rows.layout, width);
  document.image = dib_header(static_cast<std::int32_t>(width), static_cast<std::int32_t>(height),
                              document.rows.layout->bits);
  return kOk;
}

// Reds, greens, blues; other modes keep data of their own here.
Status read_colours(Sections& sections, Document& document) {
  std::int64_t end = 0;
  TQ_TRY(sections.enter(false, end));
  const int bits = document.rows.layout->bits;
  if (bits <= 8) document.image.palette = grey_levels(bits);
  if (document.mode == kIndexed) {
    Bytes map;
    if (end - sections.position() < kColourBytes) return StatusCode::bad_image;
    TQ_TRY(sections.take(kColourBytes, map));
    for (int i = 0; i < 256; ++i) {
      document.image.palette[i] = {map[512 + i], map[256 + i], map[i], 0};
    }
  }
  sections.go_to(end);
  return kOk;
}

Status read_resources(Sections& sections, Document& document) {
  constexpr int kResolutionBytes = 16;
  std::int64_t end = 0;
  TQ_TRY(sections.enter(false, end));
  while (end - sections.position() >= 12) {
    Bytes head;
    TQ_TRY(sections.take(7, head));
    if (load_be32(head.data()) != 0x3842494D) break;
    const int id = load_be16(&head[4]);
    sections.go_to(sections.position() + (head[6] | 1));  // name and length are even together
    TQ_TRY(sections.take(4, head));
    const std::int64_t bytes = load_be32(head.data());
    const std::int64_t next = sections.position() + bytes + (bytes & 1);
    if (next > end + 1) break;
    BitmapInfoHeader& header = document.image.header;
    if (id == kResolution && bytes >= kResolutionBytes) {
      TQ_TRY(sections.take(kResolutionBytes, head));
      header.biXPelsPerMeter = formats::dots_of_fixed(load_be32(&head[0]));
      header.biYPelsPerMeter = formats::dots_of_fixed(load_be32(&head[8]));
    }
    if (id == kTransparentIndex && bytes >= 2 && document.mode == kIndexed) {
      TQ_TRY(sections.take(2, head));
      const int index = load_be16(head.data());
      if (index < 256) header.biClrUsed = kTransparent | index;
    }
    sections.go_to(next);
  }
  sections.go_to(end);
  return kOk;
}

Status read_document(const formats::DecodeRequest& request, Document& document) {
  Sections sections;
  TQ_TRY(sections.open(request.stream, request.start()));
  TQ_TRY(read_header(sections, document));
  TQ_TRY(read_colours(sections, document));
  TQ_TRY(read_resources(sections, document));
  std::int64_t end = 0;
  TQ_TRY(sections.enter(document.large, end));  // layers and masks
  sections.go_to(end);
  Bytes coding;
  TQ_TRY(sections.take(2, coding));
  const int number = load_be16(coding.data());
  if (number > kDeflatedDifferences) return StatusCode::bad_image;
  if (number > kPackBits) return StatusCode::unsupported;
  document.packed = number == kPackBits;
  document.data = sections.position();
  return kOk;
}

// The rows of a channel, wherever they lie.
class Channel {
 public:
  Status open(const Document& document, StreamHandle stream, int index) {
    packed_ = document.packed;
    stored_row_ = document.stored_row();
    at_ = document.data + index * stored_row_ * document.image.header.biHeight;
    const std::int64_t most_coded = packed_ ? 2 * stored_row_ : stored_row_;
    TQ_TRY(data_.open(stream, std::max<std::int64_t>(most_coded, kDataBytes)));
    return packed_ ? open_lengths(document, stream, index) : kOk;
  }

  // How many bytes there were. The lengths lead to the next row whatever the codes of this one say.
  std::ptrdiff_t read(Row row) {
    if (packed_) {
      const std::int64_t coded = next_length();
      if (coded < 0) return 0;
      const Bytes bytes = data_.at(at_, coded);
      at_ += coded;
      return packbits::decode(bytes, row);
    }
    const Bytes bytes = data_.at(at_, stored_row_);
    at_ += stored_row_;
    std::ranges::copy(bytes, row.begin());
    return std::ssize(bytes);
  }

 private:
  // The lengths of the rows of channels before say where this one's begin.
  Status open_lengths(const Document& document, StreamHandle stream, int index) {
    const std::int64_t rows = document.image.header.biHeight;
    length_bytes_ = document.large ? 4 : 2;
    TQ_TRY(lengths_.open(stream, kWindowBytes));
    length_at_ = document.data;
    at_ = document.data + document.channels * rows * length_bytes_;
    for (std::int64_t i = 0; i < index * rows; ++i) {
      const std::int64_t length = next_length();
      if (length < 0) break;
      at_ += length;
    }
    return kOk;
  }

  // Below 0 where there is none.
  std::int64_t next_length() {
    const Bytes length = lengths_.at(length_at_, length_bytes_);
    length_at_ += length_bytes_;
    if (std::ssize(length) < length_bytes_) return -1;
    return length_bytes_ == 4 ? load_be32(length.data()) : load_be16(length.data());
  }

  StreamWindow data_, lengths_;
  bool packed_ = false;
  std::int64_t stored_row_ = 0;
  std::int64_t at_ = 0;         // the next row
  std::int64_t length_at_ = 0;  // and its length
  int length_bytes_ = 0;
};

Status deliver(const formats::DecodeRequest& request, const Document& document) {
  std::array<Channel, kMostUsed> channels;
  for (int i = 0; i < document.used(); ++i) {
    TQ_TRY(channels[i].open(document, request.stream, i));
  }
  RowBuffer<std::uint8_t> stored;
  TQ_TRY(stored.allocate(document.stored_row()));
  const auto read = [&](Row line) -> std::ptrdiff_t {
    const std::ptrdiff_t plane_bytes = std::ssize(line) / document.used();
    std::ptrdiff_t any = 0;
    for (int i = 0; i < document.used(); ++i) {
      const Row plane = line.subspan(i * plane_bytes, plane_bytes);
      const Row bytes = document.depth == 16 ? stored.pixels() : plane;
      const std::ptrdiff_t there = channels[i].read(bytes);
      if (there < std::ssize(bytes)) request.sink.damaged(StatusCode::read_failed);
      std::fill(bytes.begin() + there, bytes.end(), std::uint8_t{0});
      if (document.depth == 16) narrow_samples(bytes, plane);
      any |= there;
    }
    return any == 0 ? 0 : std::ssize(line);
  };
  return formats::deliver_rows(document.rows, document.image.header, request.sink, read);
}

}  // namespace

Status decode_photoshop(const formats::DecodeRequest& request) {
  Document document;
  TQ_TRY(read_document(request, document));
  TQ_TRY(request.sink.header(document.image));
  return deliver(request, document);
}

// --- Writing ---

namespace {

Status choose(const formats::EncodeRequest& request, Document& document) {
  const HeaderBlock& image = *request.image;
  const int bits = image.header.biBitCount;
  const auto colours = std::span(image.palette);
  const bool white_first = brightness(colours[0]) > brightness(colours[1]);
  switch (bits) {
    case 1:
      document.mode = kBitmap;
      document.rows.layout = find_layout(white_first ? Layout::bits_1 : Layout::bits_1_black, 1);
      break;
    case 4:
    case 8:
      document.mode = bits == 8 && is_grey_ramp(colours) ? kGrey : kIndexed;
      document.rows.layout = find_layout(Layout::bytes, bits);
      break;
    case 24:
    case 32:
      document.mode = request.cmyk ? kCmyk : kRgb;
      document.rows.layout =
          find_layout(request.cmyk ? Layout::ink_planes : Layout::rgb_planes, bits);
      break;
    default:
      return StatusCode::wrong_depth;
  }
  document.depth = bits == 1 ? 1 : 8;
  document.rows.line_bytes = stored_bytes(*document.rows.layout, image.header.biWidth);
  constexpr int kLongest = kLongestSide;
  const bool fits = image.header.biWidth <= kLongest && image.header.biHeight <= kLongest;
  return fits ? StatusCode::ok : StatusCode::unsupported;
}

void write_resolution(const BitmapInfoHeader& header, StreamWriter& out) {
  const auto is_usable = [](std::int32_t dots) { return dots > 0 && dots <= 65535; };
  if (!is_usable(header.biXPelsPerMeter) || !is_usable(header.biYPelsPerMeter)) {
    return out.put_be32(0);
  }
  out.put_be32(28);
  out.put("8BIM");
  out.put_be16(kResolution);
  out.put_be16(0);  // no name
  out.put_be32(16);
  for (const std::int32_t dots : {header.biXPelsPerMeter, header.biYPelsPerMeter}) {
    out.put_be16(static_cast<std::uint32_t>(dots));
    out.put_be16(0);
    out.put_be16(1);  // shown per inch
    out.put_be16(1);  // and sides in inches
  }
}

void write_header(const HeaderBlock& image, const Document& document, StreamWriter& out) {
  out.put("8BPS");
  out.put_be16(1);
  out.fill(6, 0);
  out.put_be16(document.used());
  out.put_be32(static_cast<std::uint32_t>(image.header.biHeight));
  out.put_be32(static_cast<std::uint32_t>(image.header.biWidth));
  out.put_be16(document.depth);
  out.put_be16(document.mode);
  out.put_be32(document.mode == kIndexed ? kColourBytes : 0);
  const int entries = 1 << std::min<int>(image.header.biBitCount, 8);
  for (const auto channel : {&Rgb::red, &Rgb::green, &Rgb::blue}) {
    for (int i = 0; i < 256 && document.mode == kIndexed; ++i) {
      out.put8(i < entries ? image.palette[i].*channel : 0);
    }
  }
  write_resolution(image.header, out);
  out.put_be32(0);  // no layers
  out.put_be16(kPackBits);
}

// The rows are asked for once for each channel. How long they are stands before all of them.
Status write_channels(const formats::EncodeRequest& request, const Document& document,
                      std::int64_t lengths_at, StreamWriter& out) {
  const BitmapInfoHeader& header = request.image->header;
  const auto plane_bytes = static_cast<std::ptrdiff_t>(document.rows.line_bytes / document.used());
  RowBuffer<std::uint8_t> row, line, lengths;
  TQ_TRY(row.allocate(row_bytes(header.biWidth, header.biBitCount)));
  TQ_TRY(line.allocate(document.rows.line_bytes));
  TQ_TRY(lengths.allocate(2 * std::int64_t{header.biHeight}));
  out.fill(document.used() * std::ssize(lengths.pixels()), 0);
  for (int i = 0; i < document.used(); ++i) {
    for (std::int32_t y = 0; y < header.biHeight; ++y) {
      TQ_TRY(request.rows.row(row.pixels(), y));
      pack(*document.rows.layout, row.pixels(), header.biWidth, line.pixels());
      const Row coded = out.room(packbits::most_bytes(plane_bytes));
      if (coded.empty()) return out.status();
      const std::uint8_t* const end =
          packbits::encode(line.pixels().subspan(i * plane_bytes, plane_bytes), coded.data());
      store_be16(&lengths.pixels()[2 * y], word(end - coded.data()));
      out.take(end - coded.data());
    }
    const std::int64_t at = lengths_at + i * std::ssize(lengths.pixels());
    TQ_TRY(out.patch_put(at, lengths.pixels()));
  }
  return out.flush();
}

}  // namespace

Status can_encode_photoshop(const formats::EncodeRequest& request) {
  Document document;
  return choose(request, document);
}

Status encode_photoshop(const formats::EncodeRequest& request) {
  Document document;
  TQ_TRY(choose(request, document));
  StreamWriter out;
  TQ_TRY(out.open(request.stream));
  write_header(*request.image, document, out);
  return write_channels(request, document, out.count(), out);
}

}  // namespace tq::simple
