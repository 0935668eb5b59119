// Streams of JPEG from where a page has them to its rows.
#include "formats/tiff/jpeg_strips.h"

#include <utility>

namespace tq::tiff {
namespace {

constexpr std::uint8_t kSoi[] = {0xFF, 0xD8};
constexpr int kEoi = 0xD9;

bool begins_stream(const File& file, std::int64_t position) {
  std::array<std::uint8_t, 2> first{};
  return position >= 0 && file.read_at(position, first) &&
         std::equal(first.begin(), first.end(), std::begin(kSoi));
}

jpeg::Components components_of(const Page& page) {
  if (page.planes_apart || page.samples == 1) return jpeg::Components::grey;
  if (page.samples == 4) return jpeg::Components::four;
  return page.photometric == Photometric::ycbcr ? jpeg::Components::ycbcr : jpeg::Components::rgb;
}

// Rows of a frame that belong to the page, and what the page's own sink said to them.
struct Taken {
  const formats::RowSink& sink;
  std::int64_t most_width, most_height, rows;
  Status answer = kOk;

  // A frame far beyond the page is damage, and no memory is taken for it. Some writers round sides
  // up to whole blocks.
  static std::int32_t IMG_CB_C header(void* block, void* context) {
    const Taken& taken = *static_cast<Taken*>(context);
    const BitmapInfoHeader& frame = static_cast<HeaderBlock*>(block)->header;
    const bool fits = frame.biWidth <= taken.most_width && frame.biHeight <= taken.most_height;
    return (fits ? kOk : Status(StatusCode::bad_image)).raw();
  }
  static std::int32_t IMG_CB_C row(void* bytes, void* context, std::int32_t y, std::int32_t count) {
    Taken& taken = *static_cast<Taken*>(context);
    if (y >= taken.rows) return Status(StatusCode::bad_image).raw();
    const Bytes row(static_cast<std::uint8_t*>(bytes), static_cast<std::size_t>(count));
    taken.answer = taken.sink.row(row, y);
    return taken.answer.raw();
  }
};

// A header in memory, as a stream that ends before the data.
struct Header {
  std::array<std::uint8_t, 2048> bytes;
  std::size_t count = 0;
  bool taken = false;

  void put(int value) { bytes[count++] = byte(value); }
  void put16(int value) {
    put(value >> 8);
    put(value);
  }
  void put_marker(int marker, int length) {
    put(0xFF);
    put(marker);
    put16(length);
  }
  std::span<std::uint8_t> room(std::size_t size) {
    count += size;
    return std::span(bytes).subspan(count - size, size);
  }
  std::span<const std::uint8_t> next_piece() {
    return std::exchange(taken, true) ? Bytes() : std::span(bytes).first(count);
  }
};

bool put_huffman_table(const File& file, std::uint64_t offset, int kind_and_slot, Header& header) {
  std::array<std::uint8_t, 16> counts{};
  const std::int64_t position = file.position_of(offset);
  if (position < 0 || !file.read_at(position, counts)) return false;
  int size = 0;
  for (const int count : counts) size += count;
  if (size > 256) return false;
  header.put_marker(0xC4, 2 + 1 + 16 + size);
  header.put(kind_and_slot);
  std::copy(counts.begin(), counts.end(), header.room(counts.size()).begin());
  return file.read_at(position + 16, header.room(static_cast<std::size_t>(size)));
}

}  // namespace

Status JpegStrips::open(const File& file, Page& page, const Options& options) {
  file_ = &file;
  page_ = &page;
  options_ = options;
  components_ = components_of(page);
  TQ_TRY(decoder_.open(options_));
  TQ_TRY(pieces_.open(file, false));
  if (page.coding == kOldJpeg) return find_old_layout();
  if (!page.jpeg_tables.exists()) return kOk;
  TQ_TRY(start({page.jpeg_tables.position, static_cast<std::int64_t>(std::min<std::uint64_t>(
                                               page.jpeg_tables.count, INT32_MAX))}));
  decoder_.read_common(input_);
  return kOk;
}

Status JpegStrips::start(const Chunk& chunk) {
  pieces_.start(chunk);
  strip_count_ = 0;
  return input_.open(PieceSource::of(*this), jpeg::PartDecoder::kChunkBytes);
}

std::span<const std::uint8_t> JpegStrips::next_piece() {
  while (true) {
    const Bytes piece = pieces_.next_piece();
    if (!piece.empty() || next_strip_ >= strip_count_) return piece;
    const Chunk next = find_chunk(*file_, *page_, next_strip_++, 0);
    if (next.position < 0) strip_count_ = 0;
    pieces_.start(next);
  }
}

Status JpegStrips::find_old_layout() {
  Page& page = *page_;
  const bool together = !page.chunks.tiled && !page.planes_apart;
  const Chunk first = find_chunk(*file_, page, 0, 0);
  if (begins_stream(*file_, first.position)) {
    if (!together || page.chunks.down == 1) return kOk;
    TQ_TRY(start(first));
    decoder_.read_common(input_);
    if (decoder_.common_height() > page.chunks.height) become_one(Kind::all_strips);
    return decoder_.open(options_);  // each stream has tables of its own
  }
  Numbers stream(*file_, page.old_jpeg.stream), bytes(*file_, page.old_jpeg.stream_bytes);
  stream_.position = file_->position_of(stream.at(0));
  if (begins_stream(*file_, stream_.position)) {
    stream_.bytes = static_cast<std::int64_t>(std::min<std::uint64_t>(bytes.at(0), INT32_MAX));
    if (stream_.bytes == 0) {
      const bool before = first.position > stream_.position;
      stream_.bytes = (before ? first.position : INT32_MAX) - stream_.position;
    }
    TQ_TRY(start(stream_));
    const bool found_scan = decoder_.read_common(input_);
    const Bytes behind = input_.peek(2);
    const bool ends = behind.size() < 2 || (behind[0] == 0xFF && behind[1] == kEoi);
    if (found_scan && !ends && !page.planes_apart) {
      become_one(Kind::one_stream);
      return kOk;
    }
    if (decoder_.common_height() > 0) {
      kind_ = Kind::bare_data;
      return kOk;
    }
  }
  return build_header();
}

void JpegStrips::become_one(Kind kind) {
  kind_ = kind;
  Chunks& chunks = page_->chunks;
  chunks.tiled = false;
  chunks.width = page_->width;
  chunks.height = page_->height;
  chunks.across = chunks.down = 1;
}

// Tables by the offsets that the page has of them, one for each component.
Status JpegStrips::build_header() {
  kind_ = Kind::nothing;
  const Page& page = *page_;
  constexpr int kMostTables = 3;
  const int count = page.planes_apart ? 1 : page.samples;
  if (count > kMostTables) return kOk;
  Numbers quantisation(*file_, page.old_jpeg.quantisation), dc(*file_, page.old_jpeg.dc),
      ac(*file_, page.old_jpeg.ac), restarts(*file_, page.old_jpeg.restart_interval),
      factors(*file_, page.old_jpeg.subsampling);
  Header header;
  for (const int value : kSoi) header.put(value);
  for (int i = 0; i < count; ++i) {
    header.put_marker(0xDB, 2 + 1 + 64);
    header.put(i);
    const std::int64_t position = file_->position_of(quantisation.at(i));
    if (position < 0 || !file_->read_at(position, header.room(64))) return kOk;
    if (!put_huffman_table(*file_, dc.at(i), i, header)) return kOk;
    if (!put_huffman_table(*file_, ac.at(i), 0x10 | i, header)) return kOk;
  }
  header.put_marker(0xDD, 4);
  header.put16(static_cast<int>(restarts.at(0) & 0xFFFF));
  header.put_marker(0xC0, 8 + 3 * count);
  header.put(8);
  header.put16(1);  // strips and tiles have sides of their own
  header.put16(1);
  header.put(count);
  const bool subsampled = components_ == jpeg::Components::ycbcr;
  const auto factor = [&](int i) { return static_cast<int>(factors.at(i, 2) & 15); };
  for (int i = 0; i < count; ++i) {
    header.put(i + 1);
    header.put(i == 0 && subsampled ? factor(0) << 4 | factor(1) : 0x11);
    header.put(i);
  }
  header.put_marker(0xDA, 6 + 2 * count);
  header.put(count);
  for (int i = 0; i < count; ++i) {
    header.put(i + 1);
    header.put(i << 4 | i);
  }
  header.put(0);
  header.put(63);
  header.put(0);
  TQ_TRY(input_.open(PieceSource::of(header), jpeg::PartDecoder::kChunkBytes));
  if (decoder_.read_common(input_)) kind_ = Kind::bare_data;
  return kOk;
}

Status JpegStrips::decode(std::uint64_t index, std::int64_t rows, const formats::RowSink& sink) {
  constexpr std::int64_t kRounding = 64;
  const Chunks& chunks = page_->chunks;
  const Chunk chunk = kind_ == Kind::one_stream ? stream_ : find_chunk(*file_, *page_, index, 0);
  if (kind_ == Kind::nothing || chunk.position < 0) {
    sink.damaged(StatusCode::read_failed);
    return kOk;
  }
  TQ_TRY(start(chunk));
  if (kind_ == Kind::all_strips) {
    next_strip_ = 1;
    strip_count_ = chunks.offsets.count();
  }
  Taken taken{sink, std::max<std::int64_t>(chunks.width, page_->width) + kRounding,
              std::max<std::int64_t>(chunks.height, page_->height) + kRounding, rows};
  formats::DecodeNotes notes{.whole = sink.notes};
  const formats::RowSink own{Taken::header, Taken::row, &taken, &notes};
  const Status decoded =
      kind_ == Kind::bare_data
          ? decoder_.decode_data(input_, chunks.width, chunks.tiled ? chunks.height : rows,
                                 components_, own)
          : decoder_.decode(input_, components_, own);
  TQ_TRY(taken.answer);
  if (notes.rows < rows)
    sink.damaged(decoded.failed() ? StatusCode::bad_image : StatusCode::read_failed);
  return decoded == StatusCode::out_of_memory ? decoded : kOk;
}

}  // namespace tq::tiff
