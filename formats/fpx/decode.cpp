// What the picture is, and its tiles.
#include <algorithm>

#include "formats/fpx/fpx.h"
#include "formats/fpx/storage.h"
#include "formats/jpeg/jpeg.h"
#include "io/endian.h"
#include "pixels/colours.h"

namespace tq::fpx {
namespace {

using formats::DecodeRequest;
using formats::RowSink;
using pixels::Row;

constexpr int kSide = 64, kTilePixels = kSide * kSide;

enum class Colours : std::uint8_t { grey, photo_ycc, rgb };

// Values by their number, in the one section that a set of properties has.
class Properties {
 public:
  Properties(Storage& storage, const Chain& chain) : storage_(storage), chain_(chain) {
    constexpr int kSection = 44;
    section_ = number(kSection);
    const std::int64_t most = (chain.bytes() - section_) / 8;
    count_ = std::clamp<std::int64_t>(number(section_ + 4), 0, std::max<std::int64_t>(most, 0));
  }

  std::uint32_t number(std::int64_t at) const {
    std::array<std::uint8_t, 4> bytes{};
    return storage_.read(chain_, at, bytes) < 4 ? 0 : load_le32(bytes.data());
  }
  // Where the bytes of a value begin, and how many there are; 0: there is no such value.
  struct Blob {
    std::int64_t at = 0, bytes = 0;
  };
  Blob find(std::uint32_t id) const {
    constexpr std::uint32_t kBlob = 65;
    for (std::int64_t i = 0; i < count_; ++i) {
      const std::int64_t entry = section_ + 8 + 8 * i;
      if (number(entry) != id) continue;
      const std::int64_t value = section_ + number(entry + 4);
      if (number(value) != kBlob) return {};
      return {value + 8, number(value + 4)};
    }
    return {};
  }

 private:
  Storage& storage_;
  const Chain& chain_;
  std::int64_t section_ = 0, count_ = 0;
};

struct Tile {
  enum Coding : std::uint32_t { kPlain = 0, kOneColour = 1, kJpeg = 2, kNone = 0xFFFFFFFF };

  std::int64_t at = 0, bytes = 0;
  std::uint32_t coding = kNone;
  std::array<std::uint8_t, 4> more{};  // a colour, or what a JPEG stream is
  bool is_converted() const { return more[2] == 1; }
  int table() const { return more[3]; }
};

// Bytes of a tile from where they lie.
struct Pieces {
  Storage* storage = nullptr;
  const Chain* chain = nullptr;
  std::int64_t at = 0, end = 0;
  std::array<std::uint8_t, 2048> buffer{};

  std::span<const std::uint8_t> next_piece() {
    const std::int64_t wanted = std::min<std::int64_t>(std::ssize(buffer), end - at);
    if (wanted <= 0) return {};
    const std::int64_t count =
        storage->read(*chain, at, Row(buffer).first(static_cast<std::size_t>(wanted)));
    at += count;
    return Row(buffer).first(static_cast<std::size_t>(count));
  }
};

class Picture {
 public:
  explicit Picture(const DecodeRequest& request) : request_(request) {}

  Status open();
  Status decode();

 private:
  Status read_colours();
  Status read_head();
  bool read_tile(std::int64_t index, Tile& tile);
  Status decode_tile(const Tile& tile, bool& is_white, bool& is_damaged);
  Status decode_jpeg(const Tile& tile, bool& is_damaged);
  Status take_table(int table);
  void store_tile(std::int64_t left, bool is_white);
  Status decode_band(std::int64_t index);

  static std::int32_t IMG_CB_C on_header(void* block, void*) {
    const BitmapInfoHeader& header = static_cast<HeaderBlock*>(block)->header;
    const bool fits = header.biWidth <= kSide && header.biHeight <= kSide;
    return Status(fits ? StatusCode::ok : StatusCode::bad_image).raw();
  }
  static std::int32_t IMG_CB_C on_row(void* row, void* context, std::int32_t y,
                                      std::int32_t bytes) {
    static_cast<Picture*>(context)->take_row(
        {static_cast<std::uint8_t*>(row), static_cast<std::size_t>(bytes)}, y);
    return 0;
  }
  void take_row(pixels::Bytes row, std::int32_t y);

  const DecodeRequest& request_;
  Storage storage_;
  Chain contents_, head_, data_;
  std::uint32_t number_ = 0;  // of the resolution
  Colours colours_ = Colours::rgb;
  int channels_ = 3;
  std::int64_t width_ = 0, height_ = 0, across_ = 0;
  std::int64_t tile_count_ = 0, table_at_ = 0, entry_bytes_ = 16;
  jpeg::PartDecoder decoder_;
  int decoder_table_ = -1;
  bool has_turned_colours_ = false;  // of a JPEG tile: Y Cb Cr that come with opacity
  int rows_there_ = 0;
  RowBuffer<std::uint8_t> tile_, band_;  // channels as stored; rows of the picture
  std::int64_t band_row_bytes_ = 0;
};

Status Picture::open() {
  constexpr std::string_view kContents("\005Image Contents", 15);
  TQ_TRY(storage_.open(request_.stream, request_.start()));
  const std::int64_t store = storage_.find(Storage::kRoot, "Data Object Store 000001");
  const std::int64_t resolution = storage_.find_last(store, "Resolution ", number_);
  TQ_TRY(storage_.open_chain(storage_.find(resolution, "Subimage 0000 Header"), head_));
  TQ_TRY(storage_.open_chain(storage_.find(resolution, "Subimage 0000 Data"), data_));
  TQ_TRY(storage_.open_chain(storage_.find(store, kContents), contents_));
  TQ_TRY(read_head());
  return read_colours();
}

Status Picture::read_head() {
  constexpr int kPrefix = 28, kFields = 9;
  std::array<std::uint8_t, 4 * kFields> bytes{};
  if (storage_.read(head_, kPrefix, bytes) < std::ssize(bytes)) return StatusCode::read_failed;
  const auto field = [&](int i) { return load_le32(&bytes[4 * static_cast<std::size_t>(i)]); };
  width_ = field(1);
  height_ = field(2);
  tile_count_ = field(3);
  if (field(4) != kSide || field(5) != kSide) return StatusCode::unsupported;
  channels_ = static_cast<int>(std::min<std::uint32_t>(field(6), INT16_MAX));
  table_at_ = kPrefix + std::int64_t{field(7)};
  entry_bytes_ = field(8);
  if (width_ < 1 || height_ < 1 || width_ > INT32_MAX || height_ > INT32_MAX)
    return StatusCode::bad_image;
  across_ = (width_ + kSide - 1) / kSide;
  return entry_bytes_ < 16 ? StatusCode::bad_image : StatusCode::ok;
}

// Of the resolution: the number of channels, and what each is.
Status Picture::read_colours() {
  constexpr std::uint32_t kColours = 0x02000002, kOpacity = 0x7FFE, kWhich = 0x7FFF;
  enum Space : std::uint32_t { kGrey = 1, kPhotoYcc = 2, kRgb = 3 };
  const Properties properties(storage_, contents_);
  const Properties::Blob blob = properties.find(kColours | number_ << 16);
  bool has_opacity = channels_ == 4;
  std::uint32_t space = channels_ == 1 ? kGrey : kRgb;
  if (blob.bytes >= 8) {
    channels_ =
        static_cast<int>(std::min<std::uint32_t>(properties.number(blob.at + 4), INT16_MAX));
    space = properties.number(blob.at + 8) >> 16 & kWhich;
    if (channels_ == 4) has_opacity = (properties.number(blob.at + 20) & kWhich) == kOpacity;
  }
  colours_ = space == kGrey       ? Colours::grey
             : space == kPhotoYcc ? Colours::photo_ycc
                                  : Colours::rgb;
  const bool known = channels_ == 1 ? space <= kGrey
                                    : (channels_ == 3 || (channels_ == 4 && has_opacity)) &&
                                          (space == kPhotoYcc || space == kRgb);
  return known ? StatusCode::ok : StatusCode::unsupported;
}

bool Picture::read_tile(std::int64_t index, Tile& tile) {
  constexpr int kPrefix = 28;
  std::array<std::uint8_t, 16> bytes{};
  if (index >= tile_count_) return false;
  if (storage_.read(head_, table_at_ + index * entry_bytes_, bytes) < std::ssize(bytes))
    return false;
  tile = {.at = kPrefix + std::int64_t{load_le32(&bytes[0])},
          .bytes = load_le32(&bytes[4]),
          .coding = load_le32(&bytes[8])};
  std::copy_n(bytes.begin() + 12, 4, tile.more.begin());
  return true;
}

// Tables of the picture are a stream that ends before any data.
Status Picture::take_table(int table) {
  constexpr std::uint32_t kTables = 0x03000001;
  constexpr std::int64_t kMostBytes = 4096;
  if (decoder_table_ == table) return kOk;
  decoder_table_ = table;
  TQ_TRY(decoder_.open(request_.options));
  if (table == 0) return kOk;
  const Properties::Blob blob =
      Properties(storage_, contents_).find(kTables | static_cast<std::uint32_t>(table) << 16);
  Pieces pieces{&storage_, &contents_, blob.at, blob.at + std::min(blob.bytes, kMostBytes)};
  ChunkReader input;
  TQ_TRY(input.open(PieceSource::of(pieces), jpeg::PartDecoder::kChunkBytes));
  decoder_.read_common(input);
  return kOk;
}

Status Picture::decode_jpeg(const Tile& tile, bool& is_damaged) {
  TQ_TRY(take_table(tile.table()));
  Pieces pieces{&storage_, &data_, tile.at, tile.at + tile.bytes};
  ChunkReader input;
  TQ_TRY(input.open(PieceSource::of(pieces), jpeg::PartDecoder::kChunkBytes));
  const bool converted = tile.is_converted();
  has_turned_colours_ = converted && channels_ == 4;
  const jpeg::Components components = channels_ == 1   ? jpeg::Components::grey
                                      : channels_ == 4 ? jpeg::Components::four
                                      : converted      ? jpeg::Components::ycbcr
                                                       : jpeg::Components::rgb;
  rows_there_ = 0;
  formats::DecodeNotes notes;
  const Status status = decoder_.decode(input, components, {on_header, on_row, this, &notes});
  is_damaged = status.failed() || rows_there_ < kSide || notes.damage != StatusCode::ok;
  return status == StatusCode::out_of_memory ? status : kOk;
}

// Of a JPEG tile: blue, green, red become channels again.
void Picture::take_row(pixels::Bytes row, std::int32_t y) {
  if (y < 0 || y >= kSide) return;
  ++rows_there_;
  std::uint8_t* out = tile_.pixels().data() + std::ptrdiff_t{y} * kSide * channels_;
  const std::ptrdiff_t pixels = std::min<std::ptrdiff_t>(std::ssize(row) / channels_, kSide);
  for (std::ptrdiff_t x = 0; x < pixels; ++x, out += channels_) {
    const std::uint8_t* const in = &row[static_cast<std::size_t>(x * channels_)];
    for (int i = 0; i < channels_; ++i) out[i] = in[channels_ == 3 ? 2 - i : i];
    if (!has_turned_colours_) continue;
    std::uint8_t mixed[] = {out[2], out[1], out[0]};
    pixels::mix_luma_and_chroma(mixed, 1);
    for (int i = 0; i < 3; ++i) out[i] = mixed[2 - i];
  }
}

Status Picture::decode_tile(const Tile& tile, bool& is_white, bool& is_damaged) {
  const Row channels = tile_.pixels();
  is_white = tile.coding == Tile::kNone;
  switch (tile.coding) {
    case Tile::kNone:
      break;
    case Tile::kPlain:
      is_damaged = tile.bytes < std::ssize(channels) ||
                   storage_.read(data_, tile.at, channels) < std::ssize(channels);
      break;
    case Tile::kOneColour:
      for (std::size_t i = 0; i < channels.size(); ++i)
        channels[i] = tile.more[i % static_cast<std::size_t>(channels_)];
      break;
    case Tile::kJpeg:
      TQ_TRY(decode_jpeg(tile, is_damaged));
      break;
    default:
      is_damaged = true;
      break;
  }
  is_white = is_white || is_damaged;
  return kOk;
}

// The tile's channels to rows of the band.
void Picture::store_tile(std::int64_t left, bool is_white) {
  const int width = static_cast<int>(std::min<std::int64_t>(kSide, width_ - left));
  const int bits = channels_ == 1 ? 8 : 24;
  const pixels::Layout layout = channels_ == 1   ? pixels::Layout::bytes
                                : channels_ == 3 ? pixels::Layout::rgb
                                                 : pixels::Layout::rgba;
  const pixels::RowLayout& rows = *pixels::find_layout(layout, bits);
  for (int y = 0; y < kSide; ++y) {
    const std::int64_t from = band_row_bytes_ * y + left * bits / 8;
    const Row out = band_.pixels().subspan(static_cast<std::size_t>(from),
                                           static_cast<std::size_t>(row_bytes(width, bits)));
    if (is_white) {
      std::fill_n(out.begin(), width * bits / 8, std::uint8_t{255});
      continue;
    }
    const auto line_bytes = static_cast<std::size_t>(kSide * channels_);
    const Row line = tile_.pixels().subspan(static_cast<std::size_t>(y) * line_bytes, line_bytes);
    for (int x = 0; x < kSide && colours_ == Colours::photo_ycc; ++x) {
      std::uint8_t* const at = &line[static_cast<std::size_t>(x * channels_)];
      const Rgb colour = pixels::colour_of_photo_ycc(at[0], at[1], at[2]);
      at[0] = colour.red;
      at[1] = colour.green;
      at[2] = colour.blue;
    }
    pixels::unpack(rows, line, width, out);
  }
}

// Tiles from `index` on, as a row of them. read_failed behind the last that the file lists.
Status Picture::decode_band(std::int64_t index) {
  bool is_whole = true;
  for (std::int64_t column = 0; column < across_; ++column) {
    Tile tile;
    bool is_white = true, is_damaged = !read_tile(index + column, tile);
    if (is_damaged && column == 0) return StatusCode::read_failed;
    if (!is_damaged) TQ_TRY(decode_tile(tile, is_white, is_damaged));
    store_tile(column * kSide, is_white);
    is_whole = is_whole && !is_damaged;
  }
  if (!is_whole) request_.sink.damaged(StatusCode::bad_image);
  return kOk;
}

Status Picture::decode() {
  const int bits = channels_ == 1 ? 8 : 24;
  HeaderBlock image =
      dib_header(static_cast<std::int32_t>(width_), static_cast<std::int32_t>(height_), bits);
  if (bits == 8) std::ranges::copy(pixels::grey_ramp(), std::begin(image.palette));
  TQ_TRY(request_.sink.header(image));
  band_row_bytes_ = row_bytes(static_cast<std::int32_t>(width_), bits);
  TQ_TRY(band_.allocate(band_row_bytes_ * kSide));
  TQ_TRY(tile_.allocate(kTilePixels * channels_));
  std::ranges::fill(band_.pixels(), std::uint8_t{0});
  for (std::int64_t top = 0, index = 0; top < height_; top += kSide, index += across_) {
    const Status band = decode_band(index);
    if (band == StatusCode::read_failed) break;
    TQ_TRY(band);
    const std::int64_t rows = std::min<std::int64_t>(kSide, height_ - top);
    for (std::int64_t y = 0; y < rows; ++y) {
      const Row row = band_.pixels().subspan(static_cast<std::size_t>(band_row_bytes_ * y),
                                             static_cast<std::size_t>(band_row_bytes_));
      TQ_TRY(request_.sink.row(row, static_cast<std::int32_t>(top + y)));
    }
  }
  return kOk;
}

}  // namespace

Status decode_fpx(const DecodeRequest& request) {
  Picture picture(request);
  TQ_TRY(picture.open());
  return picture.decode();
}

}  // namespace tq::fpx
