// Targa files, version 2.0: a header, maybe a map of colours, pixels from the bottom up, maybe in
// packets; a footer that leads to what later versions added.
#include <array>
#include <string_view>

#include "formats/rows.h"
#include "formats/simple/simple.h"
#include "io/chunk_reader.h"
#include "io/endian.h"
#include "pixels/colours.h"

namespace tq::simple {
namespace {

using namespace pixels;

enum Type : std::uint8_t { kMapped = 1, kColour = 2, kGrey = 3, kInPackets = 8 };
enum class Alpha : std::uint8_t { none, plain, mixed };

constexpr int kHeaderBytes = 18, kFooterBytes = 26, kExtensionBytes = 495;
constexpr std::string_view kSignature{"TRUEVISION-XFILE.\0", 18};
constexpr int kInterleaved = 0xC0, kTopDown = 0x20, kFromRight = 0x10, kAttributeBits = 0x0F;
constexpr int kLargestSide = 0xFFFF;

struct TargaFile {
  HeaderBlock image;
  formats::StoredRows rows;
  std::int64_t pixels = 0;  // their position
  bool in_packets = false;
  bool from_right = false;
  Alpha alpha = Alpha::none;
  int pixel_bytes() const { return rows.layout->plane_bits / 8; }
};

struct Header {
  std::array<std::uint8_t, kHeaderBytes> bytes;
  std::int64_t start = 0;

  int field(int at) const { return load_le16(&bytes[at]); }
  int type() const { return bytes[2] & ~kInPackets; }
  int entry_bytes() const { return (bytes[7] + 7) / 8; }
  int bits() const { return bytes[16]; }
  int descriptor() const { return bytes[17]; }
  std::int64_t map() const { return start + kHeaderBytes + bytes[0]; }
  std::int64_t pixels() const {
    return map() + (bytes[1] != 0 ? std::int64_t{field(5)} * entry_bytes() : 0);
  }
};

// Null for pixels that there are not.
const RowLayout* choose_layout(int type, int bits, Alpha alpha) {
  const auto one_of = [alpha](Layout none, Layout plain, Layout mixed) {
    return alpha == Alpha::none ? none : alpha == Alpha::plain ? plain : mixed;
  };
  if (type != kColour) {
    if (bits == 8) return find_layout(Layout::bytes, 8);
    if (type == kMapped || bits != 16) return nullptr;
    return find_layout(one_of(Layout::greyx, Layout::grey_alpha, Layout::grey_mixed), 8);
  }
  switch (bits) {
    case 15:
      return find_layout(Layout::rgb555_full, 24);
    case 16:  // of one bit of alpha it is the same whether it is multiplied
      return find_layout(one_of(Layout::rgb555_full, Layout::rgb555_alpha, Layout::rgb555_alpha),
                         24);
    case 24:
      return find_layout(Layout::bgr, 24);
    case 32:
      return find_layout(one_of(Layout::bgrx, Layout::bgra, Layout::bgra_mixed), 24);
    default:
      return nullptr;
  }
}

// The fourth byte, or bit, counts when the header says how many bits of it do, unless the extension
// area says that it is no alpha.
Alpha find_alpha(StreamHandle stream, const Header& header) {
  const bool has_room = header.bits() == 32 || header.bits() == 16;
  if (!has_room || (header.descriptor() & kAttributeBits) == 0) return Alpha::none;
  if (!end_is_known(stream)) return Alpha::plain;
  std::array<std::uint8_t, kFooterBytes> footer{};
  if (seek(stream, -kFooterBytes, Origin::end) < 0 || read_fully(stream, footer) < kFooterBytes ||
      !std::ranges::equal(std::span(footer).subspan(8), kSignature,
                          [](std::uint8_t a, char b) { return a == byte(b); })) {
    return Alpha::plain;
  }
  std::array<std::uint8_t, kExtensionBytes> extension;
  const std::uint32_t area = load_le32(footer.data());
  if (area == 0 || seek_to(stream, header.start + area).failed() ||
      read_fully(stream, extension) < kExtensionBytes ||
      load_le16(extension.data()) < kExtensionBytes) {
    return Alpha::plain;
  }
  constexpr int kPlain = 3, kMixed = 4;
  const int kind = extension[494];
  return kind == kPlain ? Alpha::plain : kind == kMixed ? Alpha::mixed : Alpha::none;
}

// A pixel means an entry from the header's first one on; what lies outside the map is black.
Status read_map(StreamHandle stream, const Header& header, HeaderBlock& image) {
  const int bits = header.bytes[7], first = header.field(3);
  if (bits != 15 && bits != 16 && bits != 24 && bits != 32) return StatusCode::bad_image;
  const int count = std::min(header.field(5), 256 - std::min(first, 256));
  std::array<std::uint8_t, 4 * 256> map{};
  const auto entries = std::span(map).first(count * header.entry_bytes());
  TQ_TRY(seek_to(stream, header.map()));
  if (read_fully(stream, entries) < std::ssize(entries)) return StatusCode::read_failed;
  std::array<std::uint8_t, 3 * 256> colours;
  unpack(*choose_layout(kColour, bits, Alpha::none), entries, count, colours);
  for (int i = 0; i < count; ++i) {
    image.palette[first + i] = {colours[3 * i], colours[3 * i + 1], colours[3 * i + 2], 0};
  }
  return kOk;
}

Status read_header(const formats::DecodeRequest& request, TargaFile& file) {
  TQ_TRY(request.seek_to_start());
  Header header{.bytes{}, .start = request.start()};
  if (read_fully(request.stream, header.bytes) < kHeaderBytes) return StatusCode::read_failed;
  const int type = header.type();
  if (type < kMapped || type > kGrey) return StatusCode::unsupported;
  if ((header.descriptor() & kInterleaved) != 0) return StatusCode::unsupported;
  if (type == kMapped && header.bits() == 16) return StatusCode::unsupported;
  const int map_type = header.bytes[1];
  file.rows.layout = choose_layout(type, header.bits(), Alpha::none);
  if (file.rows.layout == nullptr || map_type > 1 || map_type < (type == kMapped ? 1 : 0)) {
    return StatusCode::bad_image;
  }
  file.image = dib_header(header.field(12), header.field(14), file.rows.layout->bits);
  if (type == kMapped) TQ_TRY(read_map(request.stream, header, file.image));
  if (type == kGrey) file.image.palette = grey_ramp();
  file.rows.line_bytes = stored_bytes(*file.rows.layout, file.image.header.biWidth);
  file.rows.bottom_up = (header.descriptor() & kTopDown) == 0;
  file.from_right = (header.descriptor() & kFromRight) != 0;
  file.in_packets = (header.bytes[2] & kInPackets) != 0;
  file.pixels = header.pixels();
  file.alpha = find_alpha(request.stream, header);
  if (file.alpha != Alpha::none) {
    file.rows.layout = choose_layout(type, header.bits(), file.alpha);
  }
  return kOk;
}

// Lines of pixels, from packets or not. Packets may begin in one line and end in another.
class Lines {
 public:
  Status open(const formats::DecodeRequest& request, const TargaFile& file) {
    file_ = &file;
    pixel_bytes_ = file.pixel_bytes();
    left_ = 0;
    TQ_TRY(seek_to(request.stream, file.pixels));
    return input_.open(request.stream, read_chunk_bytes(file.rows.line_bytes));
  }

  std::ptrdiff_t read(Row line) {
    const std::ptrdiff_t there =
        file_->in_packets ? read_packets(line) : static_cast<std::ptrdiff_t>(input_.read(line));
    if (there == 0 || !file_->from_right) return there;
    std::fill(line.begin() + there, line.end(), std::uint8_t{0});
    mirror(line, file_->pixel_bytes());
    return std::ssize(line);
  }

 private:
  std::ptrdiff_t read_packets(Row line) {
    std::ptrdiff_t filled = 0;
    while (filled < std::ssize(line) && (left_ > 0 || next_packet())) {
      const Row here = line.subspan(filled, std::min(left_, std::ssize(line) - filled));
      if (is_run_) repeat(here);
      const std::size_t there = is_run_ ? here.size() : input_.read(here);
      filled += there;
      left_ -= there;
      if (there < here.size()) break;
    }
    return filled;
  }

  bool next_packet() {
    const int packet = input_.next();
    if (packet < 0) return false;
    const Row pixel = Row(pixel_).first(pixel_bytes_);
    is_run_ = packet >= 128;
    if (is_run_ && input_.read(pixel) < pixel.size()) return false;
    left_ = ((packet & 127) + std::ptrdiff_t{1}) * pixel_bytes_;
    return true;
  }

  // Lines hold whole pixels, so a run goes on with a whole one.
  void repeat(Row here) const {
    std::copy_n(pixel_.begin(), pixel_bytes_, here.begin());
    std::ptrdiff_t done = pixel_bytes_;
    while (done < std::ssize(here)) {
      const std::ptrdiff_t more = std::min(done, std::ssize(here) - done);
      std::copy_n(here.begin(), more, here.begin() + done);
      done += more;
    }
  }

  const TargaFile* file_ = nullptr;
  ChunkReader input_;
  std::ptrdiff_t pixel_bytes_ = 0;
  std::ptrdiff_t left_ = 0;  // bytes of the packet
  bool is_run_ = false;
  std::array<std::uint8_t, 4> pixel_{};
};

// Some writers leave all alpha 0 and mean that nothing is transparent.
Status look_for_alpha(const formats::DecodeRequest& request, TargaFile& file) {
  Lines lines;
  TQ_TRY(lines.open(request, file));
  RowBuffer<std::uint8_t> line;
  TQ_TRY(line.allocate(file.rows.line_bytes));
  const std::ptrdiff_t step = file.pixel_bytes();
  const bool is_bit = file.rows.layout->layout == Layout::rgb555_alpha;
  for (std::int32_t y = 0; y < file.image.header.biHeight; ++y) {
    const std::ptrdiff_t there = lines.read(line.pixels());
    if (there == 0) break;
    for (std::ptrdiff_t i = step - 1; i < there; i += step) {
      if (line[i] >= (is_bit ? 128 : 1)) return kOk;
    }
  }
  const RowLayout& layout = *file.rows.layout;
  file.rows.layout =
      choose_layout(layout.bits == 8 ? kGrey : kColour, layout.plane_bits, Alpha::none);
  return kOk;
}

}  // namespace

Status decode_targa(const formats::DecodeRequest& request) {
  TargaFile file;
  TQ_TRY(read_header(request, file));
  TQ_TRY(request.sink.header(file.image));
  if (file.alpha != Alpha::none) TQ_TRY(look_for_alpha(request, file));
  Lines lines;
  TQ_TRY(lines.open(request, file));
  return formats::deliver_rows(file.rows, file.image.header, request.sink,
                               [&](Row line) { return lines.read(line); });
}

namespace {

// How an image is saved: with a byte for each index or level, or with colours.
formats::StoredRows saved_rows(const HeaderBlock& image) {
  const int bits = image.header.biBitCount;
  const RowLayout* const layout = find_layout(bits > 8 ? Layout::bgr : Layout::bytes, bits);
  return {layout, stored_bytes(*layout, image.header.biWidth), true};
}

void write_header(const HeaderBlock& image, StreamWriter& out) {
  const int bits = image.header.biBitCount;
  const bool mapped = bits < 8 || (bits == 8 && !is_grey_ramp(image.palette));
  out.put8(0);  // bytes of identification
  out.put8(mapped ? 1 : 0);
  out.put8((mapped ? kMapped : bits > 8 ? kColour : kGrey) | kInPackets);
  out.put_le16(0);  // first entry
  out.put_le16(mapped ? 256 : 0);
  out.put8(mapped ? 24 : 0);
  out.fill(4, 0);  // origin
  out.put_le16(static_cast<std::uint32_t>(image.header.biWidth));
  out.put_le16(static_cast<std::uint32_t>(image.header.biHeight));
  out.put8(bits > 8 ? 24 : 8);
  out.put8(0);
  for (int i = 0; mapped && i < 256; ++i) {
    const Rgb colour = i < 1 << bits ? image.palette[i] : Rgb{};
    for (const auto channel : {&Rgb::blue, &Rgb::green, &Rgb::red}) out.put8(colour.*channel);
  }
}

// Packets for a line; the end of the coded bytes. Each pixel takes at most a byte more.
template <int kBytes>
std::uint8_t* code_line(Bytes line, std::uint8_t* out) {
  constexpr std::ptrdiff_t kMost = 128;
  const std::ptrdiff_t pixels = std::ssize(line) / kBytes;
  const std::uint8_t* const from = line.data();
  const auto same_as_next = [&](std::ptrdiff_t x) {
    return x + 1 < pixels &&
           std::equal(from + x * kBytes, from + (x + 1) * kBytes, from + (x + 1) * kBytes);
  };
  for (std::ptrdiff_t x = 0; x < pixels;) {
    std::ptrdiff_t behind = x + 1;
    if (same_as_next(x)) {
      while (behind < x + kMost && same_as_next(behind - 1)) ++behind;
      *out++ = byte(127 + behind - x);
      out = std::copy_n(from + x * kBytes, kBytes, out);
    } else {
      while (behind < std::min(x + kMost, pixels) && !same_as_next(behind)) ++behind;
      *out++ = byte(behind - x - 1);
      out = std::copy_n(from + x * kBytes, (behind - x) * kBytes, out);
    }
    x = behind;
  }
  return out;
}

}  // namespace

Status can_encode_targa(const formats::EncodeRequest& request) {
  return formats::check_plain(request, kLargestSide);
}

Status encode_targa(const formats::EncodeRequest& request) {
  TQ_TRY(can_encode_targa(request));
  const HeaderBlock& image = *request.image;
  const formats::StoredRows rows = saved_rows(image);
  StreamWriter out;
  TQ_TRY(out.open(request.stream));
  write_header(image, out);
  const auto code = rows.layout->layout == Layout::bytes ? code_line<1> : code_line<3>;
  const auto write = [&](Bytes line) {
    const Row room = out.room(rows.line_bytes + image.header.biWidth);
    if (out.status().ok()) out.take(code(line, room.data()) - room.data());
    return out.status();
  };
  TQ_TRY(formats::supply_rows(rows, request, write));
  out.fill(8, 0);  // neither an extension area nor a developer directory
  out.put(kSignature);
  return out.flush();
}

}  // namespace tq::simple
