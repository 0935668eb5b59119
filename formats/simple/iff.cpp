// IFF pictures (EA IFF 85, ILBM): chunks, the last of them rows of bit planes, or of bytes, maybe
// coded as PackBits.
#include <array>
#include <cstring>

#include "coding/packbits.h"
#include "formats/rows.h"
#include "formats/simple/simple.h"
#include "io/chunk_reader.h"
#include "io/endian.h"
#include "pixels/colours.h"

namespace tq::simple {
namespace {

using namespace pixels;

constexpr std::uint32_t tag(const char (&name)[5]) {
  return std::uint32_t{byte(name[0])} << 24 | byte(name[1]) << 16 | byte(name[2]) << 8 |
         byte(name[3]);
}

enum Masking : std::uint8_t { kNoMask, kMaskPlane, kTransparentColour };
enum Mode : std::uint32_t { kHalfBrite = 0x80, kHoldAndModify = 0x800 };
enum class Pixels : std::uint8_t { indices, modified, colours };

constexpr int kFormBytes = 12, kChunkBytes = 8, kHeaderBytes = 20;
constexpr int kLargestSide = 0xFFFF;

struct IffFile {
  std::array<std::uint8_t, kHeaderBytes> header{};
  std::array<Rgb, 256> colours{};
  int colour_count = 0;
  std::uint32_t modes = 0;
  int x_dpi = 0, y_dpi = 0;
  std::int64_t body = 0, body_bytes = 0;
  bool in_planes = true;  // else a byte for each pixel

  int width() const { return load_be16(&header[0]); }
  int height() const { return load_be16(&header[2]); }
  int planes() const { return header[8]; }
  int masking() const { return header[9]; }
  int compression() const { return header[10]; }
  // Of a row in one plane: whole 16-bit units.
  std::int64_t line_bytes() const {
    return in_planes ? (width() + 15) / 16 * 2 : (width() + 1) & ~1;
  }
  // Two bits of a pixel say which of its colours the others replace.
  bool is_modified() const {
    return in_planes && (planes() == 6 || planes() == 8) && (modes & kHoldAndModify) != 0;
  }
  Pixels pixels() const {
    return is_modified() ? Pixels::modified : planes() > 8 ? Pixels::colours : Pixels::indices;
  }
};

// --- Reading ---

void take_colours(Bytes map, IffFile& file) {
  file.colour_count = static_cast<int>(map.size() / 3);
  for (int i = 0; i < file.colour_count; ++i) {
    file.colours[i] = {map[3 * i + 2], map[3 * i + 1], map[3 * i], 0};
  }
}

// Of a chunk that is shorter, or cut off, the rest is 0.
Status take_chunk(StreamHandle stream, std::uint32_t name, std::uint32_t size, IffFile& file) {
  std::array<std::uint8_t, 3 * 256> bytes{};
  const auto wanted = std::span(bytes).first(std::min<std::size_t>(size, bytes.size()));
  const int count = read_fully(stream, wanted);
  switch (name) {
    case tag("BMHD"):
      if (count < kHeaderBytes) return StatusCode::read_failed;
      std::copy_n(bytes.begin(), kHeaderBytes, file.header.begin());
      break;
    case tag("CMAP"):
      take_colours(wanted.first(count), file);
      break;
    case tag("CAMG"):
      file.modes = load_be32(bytes.data());
      break;
    default:
      file.x_dpi = load_be16(&bytes[0]);
      file.y_dpi = load_be16(&bytes[2]);
      break;
  }
  return kOk;
}

// Up to the pixels.
Status read_chunks(const formats::DecodeRequest& request, IffFile& file) {
  TQ_TRY(request.seek_to_start());
  std::int64_t at = request.start();
  std::array<std::uint8_t, kFormBytes> form;
  if (read_fully(request.stream, form) < kFormBytes) return StatusCode::read_failed;
  if (load_be32(&form[0]) != tag("FORM")) return StatusCode::bad_image;
  const std::uint32_t type = load_be32(&form[8]);
  file.in_planes = type == tag("ILBM");
  if (!file.in_planes && type != tag("PBM ")) return StatusCode::unsupported;
  for (at += kFormBytes;;) {
    std::array<std::uint8_t, kChunkBytes> chunk;
    if (seek_to(request.stream, at).failed() || read_fully(request.stream, chunk) < kChunkBytes) {
      return StatusCode::bad_image;  // there are no pixels
    }
    const std::uint32_t name = load_be32(&chunk[0]), size = load_be32(&chunk[4]);
    at += kChunkBytes;
    if (name == tag("BODY")) {
      file.body = at;
      file.body_bytes = size;
      return kOk;
    }
    if (name == tag("BMHD") || name == tag("CMAP") || name == tag("CAMG") || name == tag("DPI ")) {
      TQ_TRY(take_chunk(request.stream, name, size, file));
    }
    at += size + std::int64_t{size & 1};
  }
}

// The second half of the colours is the first at half its light.
void add_halves(std::array<Rgb, 256>& colours) {
  for (int i = 0; i < 32; ++i) {
    const Rgb& full = colours[i];
    colours[32 + i] = {byte(full.blue / 2), byte(full.green / 2), byte(full.red / 2), 0};
  }
}

Status check_header(const IffFile& file) {
  const int planes = file.planes();
  const bool known = planes >= 1 && (planes <= 8 || planes == 24 || planes == 32);
  if (!known || (!file.in_planes && planes != 8)) return StatusCode::bad_image;
  return file.compression() <= 1 ? StatusCode::ok : StatusCode::unsupported;
}

// What arrives of the rows; those of indices lie in the file like that.
formats::StoredRows describe(IffFile& file, HeaderBlock& image) {
  const int planes = file.planes();
  if (file.colour_count == 0 && !file.is_modified())
    file.colours = grey_levels(std::min(planes, 8));
  if (planes == 6 && ((file.modes & kHalfBrite) != 0 || file.colour_count == 32)) {
    add_halves(file.colours);
  }
  formats::StoredRows rows{find_layout(Layout::bytes, 8), file.line_bytes()};
  if (file.pixels() == Pixels::modified) {
    rows = {find_layout(Layout::bgr, 24), 3 * std::int64_t{file.width()}};
  } else if (file.pixels() == Pixels::colours) {
    rows = {find_layout(Layout::rgb_planes, 24), 3 * 8 * file.line_bytes()};
  } else if (file.in_planes) {
    rows = {planes == 1 ? find_bit_layout(file.colours) : find_plane_layout(planes),
            planes * file.line_bytes()};
  }
  image = dib_header(file.width(), file.height(), rows.layout->bits);
  image.header.biXPelsPerMeter = file.x_dpi;
  image.header.biYPelsPerMeter = file.y_dpi;
  if (rows.layout->bits > 8) return rows;
  const bool one_bit = rows.layout->bits == 1;
  const auto& colours = one_bit ? grey_levels(1) : file.colours;
  std::copy_n(colours.begin(), 1 << rows.layout->bits, image.palette.begin());
  const int transparent = load_be16(&file.header[12]);
  if (file.masking() == kTransparentColour && transparent < 1 << planes) {
    const bool turned = one_bit && rows.layout->layout == Layout::bits_1_black;
    image.header.biClrUsed = kTransparent | (turned ? 1 - transparent : transparent);
  }
  return rows;
}

// The bytes of rows in the order of the file.
class Body {
 public:
  Body(const formats::DecodeRequest& request, const IffFile& file)
      : file_(file), request_(request), pieces_(input_, file.body_bytes), left_(file.body_bytes) {}

  Status open() {
    TQ_TRY(mask_.allocate(file_.line_bytes()));
    TQ_TRY(planes_.allocate(file_.planes() * file_.line_bytes()));
    TQ_TRY(indices_.allocate(8 * file_.line_bytes()));
    TQ_TRY(seek_to(request_.stream, file_.body));
    packbits_.start(PieceSource::of(pieces_));
    return input_.open(request_.stream, read_chunk_bytes(kChunk));
  }

  // A row; how many bytes there were.
  std::ptrdiff_t read(Row row) {
    switch (file_.pixels()) {
      case Pixels::modified:
        return read_modified(row);
      case Pixels::colours:
        return read_colours(row);
      default:
        return read_planes(row);
    }
  }

 private:
  static constexpr std::int64_t kChunk = 65536;

  // Of one plane. What a run has beyond it is lost.
  std::ptrdiff_t read_line(Row line) {
    if (file_.compression() != 0) {
      const std::ptrdiff_t there = packbits_.read(line);
      packbits_.cut_run();
      return there;
    }
    const std::int64_t wanted = std::min<std::int64_t>(left_, std::ssize(line));
    left_ -= wanted;
    return static_cast<std::ptrdiff_t>(input_.read(line.first(static_cast<std::size_t>(wanted))));
  }

  std::ptrdiff_t read_planes(Row planes) {
    const std::ptrdiff_t bytes = std::ssize(mask_.pixels());
    std::ptrdiff_t filled = 0;
    for (; filled < std::ssize(planes); filled += bytes) {
      const std::ptrdiff_t there = read_line(planes.subspan(filled, bytes));
      if (there < bytes) return filled + there;
    }
    if (file_.in_planes && file_.masking() == kMaskPlane) read_line(mask_.pixels());
    return filled;
  }

  // Whether there is anything of the next row.
  bool next_planes() {
    const Row planes = planes_.pixels();
    const std::ptrdiff_t there = read_planes(planes);
    if (there < std::ssize(planes)) request_.sink.damaged(StatusCode::read_failed);
    std::fill(planes.begin() + there, planes.end(), std::uint8_t{0});
    return there != 0;
  }

  // Eight bits of each colour.
  std::ptrdiff_t read_colours(Row channels) {
    if (!next_planes()) return 0;
    const std::ptrdiff_t from = std::ssize(planes_.pixels()) / file_.planes() * 8;
    const std::ptrdiff_t to = std::ssize(channels) / 3;
    for (int i = 0; i < 3; ++i) {
      unpack(*find_plane_layout(8), planes_.pixels().subspan(i * from, from), file_.width(),
             channels.subspan(i * to, to));
    }
    return std::ssize(channels);
  }

  // The top bits say what the others are: an index, or the new blue, red or green of the colour
  // before, which at first is that of index 0.
  std::ptrdiff_t read_modified(Row colours) {
    if (!next_planes()) return 0;
    unpack(*find_plane_layout(file_.planes()), planes_.pixels(), file_.width(), indices_.pixels());
    const int bits = file_.planes() - 2;
    Rgb colour = file_.colours[0];
    for (int x = 0; x < file_.width(); ++x) {
      const int value = indices_[x] & ((1 << bits) - 1);
      const std::uint8_t level = bits == 4 ? byte(value * 17) : byte(value << 2 | value >> 4);
      switch (indices_[x] >> bits) {
        case 0:
          colour = file_.colours[value];
          break;
        case 1:
          colour.blue = level;
          break;
        case 2:
          colour.red = level;
          break;
        default:
          colour.green = level;
          break;
      }
      std::memcpy(&colours[3 * x], &colour, 3);
    }
    return std::ssize(colours);
  }

  const IffFile& file_;
  const formats::DecodeRequest& request_;
  ChunkReader input_;
  ReaderPieces pieces_;
  packbits::Decoder packbits_;
  std::int64_t left_;  // bytes of plain rows
  RowBuffer<std::uint8_t> mask_, planes_, indices_;
};

}  // namespace

Status decode_iff(const formats::DecodeRequest& request) {
  IffFile file;
  TQ_TRY(read_chunks(request, file));
  TQ_TRY(check_header(file));
  HeaderBlock image;
  const formats::StoredRows rows = describe(file, image);
  TQ_TRY(request.sink.header(image));
  Body body(request, file);
  TQ_TRY(body.open());
  return formats::deliver_rows(rows, image.header, request.sink,
                               [&](Row row) { return body.read(row); });
}

// --- Writing ---

namespace {

struct SavedPlanes {
  explicit SavedPlanes(const BitmapInfoHeader& header)
      : count(header.biBitCount > 8 ? 24 : header.biBitCount),
        bytes((std::int64_t{header.biWidth} + 15) / 16 * 2),
        layout(count == 1 ? find_layout(Layout::bits_1, 1)
                          : find_plane_layout(std::min(count, 8))) {}

  int count;
  std::int64_t bytes;       // of a row in each
  const RowLayout* layout;  // of indices, or of the levels of one colour
};

void put_chunk(const char (&name)[5], std::uint32_t size, StreamWriter& out) {
  out.put_be32(tag(name));
  out.put_be32(size);
}

// The sizes of the whole and of its last chunk are filled in later.
void write_header(const HeaderBlock& image, int planes, StreamWriter& out) {
  const BitmapInfoHeader& header = image.header;
  const bool transparent = planes <= 8 && (header.biClrUsed & kTransparent) != 0;
  put_chunk("FORM", 0, out);
  out.put_be32(tag("ILBM"));
  put_chunk("BMHD", kHeaderBytes, out);
  out.put_be16(header.biWidth);
  out.put_be16(header.biHeight);
  out.put_be32(0);  // left, top
  out.put8(planes);
  out.put8(transparent ? kTransparentColour : kNoMask);
  out.put8(1);  // PackBits
  out.put8(0);
  out.put_be16(transparent ? header.biClrUsed & 0xFF : 0);
  out.put8(1);  // square pixels
  out.put8(1);
  out.put_be16(header.biWidth);
  out.put_be16(header.biHeight);
  if (planes <= 8) {
    put_chunk("CMAP", 3u << planes, out);
    for (const Rgb& colour : std::span(image.palette).first(std::size_t{1} << planes)) {
      for (const auto channel : {&Rgb::red, &Rgb::green, &Rgb::blue}) out.put8(colour.*channel);
    }
  }
  const auto is_known = [](std::int32_t dpi) { return dpi > 0 && dpi <= 0xFFFF; };
  if (is_known(header.biXPelsPerMeter) && is_known(header.biYPelsPerMeter)) {
    put_chunk("DPI ", 4, out);
    out.put_be16(header.biXPelsPerMeter);
    out.put_be16(header.biYPelsPerMeter);
  }
  put_chunk("BODY", 0, out);
}

Status write_planes(Bytes planes, std::int64_t bytes, StreamWriter& out) {
  const auto line_bytes = static_cast<std::size_t>(bytes);
  for (; !planes.empty(); planes = planes.subspan(line_bytes)) {
    const Row room = out.room(packbits::most_bytes(bytes));
    TQ_TRY(out.status());
    out.take(packbits::encode(planes.first(line_bytes), room.data()) - room.data());
  }
  return out.status();
}

Status write_body(const formats::EncodeRequest& request, const SavedPlanes& planes,
                  StreamWriter& out) {
  if (planes.count <= 8) {
    return formats::supply_rows({planes.layout, planes.count * planes.bytes}, request,
                                [&](Bytes row) { return write_planes(row, planes.bytes, out); });
  }
  const BitmapInfoHeader& header = request.image->header;
  const std::int64_t channel_bytes = 8 * planes.bytes;  // as levels and as planes
  RowBuffer<std::uint8_t> split;
  TQ_TRY(split.allocate(channel_bytes));
  const auto write = [&](Bytes channels) {
    for (; !channels.empty(); channels = channels.subspan(split.size())) {
      pack(*planes.layout, channels.first(split.size()), header.biWidth, split.pixels());
      TQ_TRY(write_planes(split.pixels(), planes.bytes, out));
    }
    return kOk;
  };
  const RowLayout* const layout = find_layout(Layout::rgb_planes, header.biBitCount);
  return formats::supply_rows({layout, 3 * channel_bytes}, request, write);
}

Status patch_size(std::int64_t at, std::int64_t size, StreamWriter& out) {
  std::array<std::uint8_t, 4> field;
  store_be32(field.data(), static_cast<std::uint32_t>(size));
  return out.patch_put(at, field);
}

}  // namespace

Status can_encode_iff(const formats::EncodeRequest& request) {
  return formats::check_plain(request, kLargestSide);
}

Status encode_iff(const formats::EncodeRequest& request) {
  TQ_TRY(can_encode_iff(request));
  const SavedPlanes planes(request.image->header);
  StreamWriter out;
  TQ_TRY(out.open(request.stream));
  write_header(*request.image, planes.count, out);
  const std::int64_t body = out.count();
  TQ_TRY(write_body(request, planes, out));
  const std::int64_t end = out.count();
  out.fill(end & 1, 0);
  TQ_TRY(patch_size(body - 4, end - body, out));
  TQ_TRY(patch_size(4, out.count() - kChunkBytes, out));
  return out.flush();
}

}  // namespace tq::simple
