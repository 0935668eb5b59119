// Strips are read row by row, one beside the other when planes are apart; tiles, and planes of JPEG,
// a band at a time.
#include "formats/tiff/rows.h"

namespace tq::tiff {
namespace {

// Copies `bits` bits to bit `first` of `to`, whose bits from there on are 0.
void put_bits(Bytes from, std::int64_t bits, std::int64_t first, Row to) {
  const int shift = static_cast<int>(first % 8);
  std::uint8_t* at = to.data() + first / 8;
  if (shift == 0 && bits % 8 == 0) {
    std::copy_n(from.data(), bits / 8, at);
    return;
  }
  for (std::int64_t i = 0; i < bits; i += 8, ++at) {
    const std::int64_t left = bits - i;
    const int value = from[static_cast<std::size_t>(i / 8)] & (left < 8 ? 0xFF00 >> left : 0xFF);
    at[0] = byte(at[0] | value >> shift);
    if (shift + left > 8 && shift > 0) at[1] = byte(value << (8 - shift));
  }
}

ccitt::Coding fax_coding(const Page& page) {
  constexpr std::uint32_t kTwoDimensional = 1;
  if (page.coding == kHuffman) return {.scheme = ccitt::Scheme::huffman};
  if (page.coding == kGroup4) return {.scheme = ccitt::Scheme::group4};
  const bool both = (page.t4_options & kTwoDimensional) != 0;
  return {.scheme = both ? ccitt::Scheme::group3_2d : ccitt::Scheme::group3_1d};
}

}  // namespace

Status open_fax(const Page& page, formats::FaxRows delivery, formats::FaxDecoder& decoder) {
  const auto width =
      static_cast<std::int32_t>(std::min<std::int64_t>(page.chunks.width, INT32_MAX));
  const bool black_is_zero = page.photometric != Photometric::white_is_zero;
  const bool inverted = black_is_zero == (delivery == formats::FaxRows::runs);
  return decoder.open(fax_coding(page), width, delivery, inverted);
}

RowShape::RowShape(const Page& page) : h(page.h), v(page.v) {
  const bool subsampled = h * v > 1;
  planes = page.planes_apart ? page.colours + (page.alpha != Alpha::none ? 1 : 0) : 1;
  unit_bits = subsampled          ? (h * v + 2) * page.bits
              : page.planes_apart ? page.bits
                                  : page.bits * page.samples;
  plane_bytes = bytes_for(page.width);
}

Status PageRows::open(const File& file, Page& page, const img_strip_coder* lzw, JpegStrips* jpeg,
                      const formats::RowSink& sink) {
  file_ = &file;
  page_ = &page;
  sink_ = &sink;
  jpeg_ = jpeg;
  shape_ = RowShape(page);
  samples_ = {page.bits, page.planes_apart ? 1 : page.samples, file.big_endian()};
  const Chunks& chunks = page.chunks;
  in_bands_ = chunks.tiled || page.is_jpeg();
  const std::int64_t rows = in_bands_ ? std::min<std::int64_t>(chunks.height, page.height) : 1;
  const std::int64_t row = shape_.plane_bytes * shape_.planes;
  if (row > INT32_MAX) return StatusCode::out_of_memory;
  TQ_TRY(rows_.allocate(row * shape_.rows(rows)));
  if (page.is_fax()) TQ_TRY(open_fax(page, formats::FaxRows::bits, fax_));
  const int coders = page.is_jpeg() ? 0 : chunks.tiled ? 1 : shape_.planes;
  for (int i = 0; i < coders; ++i) {
    TQ_TRY(planes_[i].open(file, page, shape_.plane_bytes, lzw));
  }
  return kOk;
}

std::uint64_t PageRows::index(std::int64_t across, int plane) const {
  const Chunks& chunks = page_->chunks;
  const std::int64_t of_plane = chunks.across * chunks.down;  // below 2^62
  return static_cast<std::uint64_t>(of_plane) * plane + down_ * chunks.across + across;
}

Chunk PageRows::chunk(std::int64_t across, int plane) {
  const Chunks& chunks = page_->chunks;
  const std::int64_t bytes = shape_.bytes_for(chunks.width);
  // A chunk that is too large for this is taken as it is.
  const std::int64_t whole =
      bytes < INT32_MAX ? bytes * std::min<std::int64_t>(chunks.height, INT32_MAX) : 0;
  return find_chunk(*file_, *page_, index(across, plane), whole);
}

Row PageRows::row_at(std::int64_t row, int plane) const {
  const std::int64_t at = (row * shape_.planes + plane) * shape_.plane_bytes;
  return rows_.pixels().subspan(static_cast<std::size_t>(at),
                                static_cast<std::size_t>(shape_.plane_bytes));
}

Status PageRows::start_strip() {
  for (int i = 0; i < shape_.planes; ++i) TQ_TRY(planes_[i].start(chunk(0, i)));
  return kOk;
}

// Empty when no plane has anything of it.
Status PageRows::read_strip_row() {
  strip_row_ = {};
  for (int i = 0; i < shape_.planes; ++i) {
    const Bytes read = planes_[i].read(static_cast<std::ptrdiff_t>(shape_.plane_bytes));
    if (shape_.planes == 1 && std::ssize(read) == shape_.plane_bytes && !page_->differences) {
      strip_row_ = read;
      return kOk;
    }
    if (std::ssize(read) < shape_.plane_bytes) sink_->damaged(StatusCode::read_failed);
    const Row row = row_at(0, i);
    std::copy(read.begin(), read.end(), row.begin());
    std::fill(row.begin() + std::ssize(read), row.end(), std::uint8_t{0});
    if (page_->differences) coding::add_differences(samples_, row.first(read.size()));
    TQ_TRY(planes_[i].status());
    if (!read.empty()) strip_row_ = rows_.pixels();
  }
  return kOk;
}

Status PageRows::load_tile(std::int64_t across, int plane) {
  const Chunks& chunks = page_->chunks;
  const std::int64_t first = across * shape_.units(chunks.width) * shape_.unit_bits;
  const std::int64_t pixels = std::min(chunks.width, page_->width - across * chunks.width);
  const std::int64_t bits = shape_.units(pixels) * shape_.unit_bits;
  const std::int64_t rows =
      shape_.rows(std::min(chunks.height, page_->height - down_ * chunks.height));
  if (page_->is_fax() || page_->is_jpeg()) {
    struct Place {
      PageRows* rows;
      std::int64_t first, bits;
      int plane;
      static std::int32_t IMG_CB_C put(void* row, void* context, std::int32_t y,
                                       std::int32_t bytes) {
        const Place& place = *static_cast<Place*>(context);
        const Bytes from(static_cast<std::uint8_t*>(row), static_cast<std::size_t>(bytes));
        const std::int64_t there = std::min<std::int64_t>(place.bits, 8 * std::ssize(from));
        put_bits(from, there, place.first, place.rows->row_at(y, place.plane));
        place.rows->there_ = std::max<std::int64_t>(place.rows->there_, y + 1);
        return 0;
      }
    } place{this, first, bits, plane};
    formats::DecodeNotes notes{.whole = sink_->notes};
    const formats::RowSink sink{nullptr, Place::put, &place, &notes};
    if (page_->is_jpeg()) return jpeg_->decode(index(across, plane), rows, sink);
    CodedPieces& pieces = planes_[0].pieces();
    pieces.start(chunk(across, plane));
    const Status read =
        fax_.decode(coding::PieceSource::of(pieces), 0, static_cast<std::int32_t>(rows), sink);
    return read.failed() ? read : kOk;
  }
  CodedBytes& coded = planes_[0];
  TQ_TRY(coded.start(chunk(across, plane)));
  const std::int64_t used = (bits + 7) / 8;
  for (std::int64_t y = 0; y < rows; ++y) {
    const Bytes read = coded.read(static_cast<std::ptrdiff_t>(used));
    if (std::ssize(read) < used) sink_->damaged(StatusCode::read_failed);
    if (read.empty()) break;
    there_ = std::max(there_, y + 1);
    const Row row = row_at(y, plane);
    put_bits(read, std::min<std::int64_t>(bits, 8 * std::ssize(read)), first, row);
    if (page_->differences) {
      coding::add_differences(samples_,
                              row.subspan(static_cast<std::size_t>(first / 8), read.size()));
    }
    if (!coded.skip(shape_.bytes_for(chunks.width) - used)) break;
  }
  return coded.status();
}

Status PageRows::load_band() {
  const Chunks& chunks = page_->chunks;
  std::fill(rows_.pixels().begin(), rows_.pixels().end(), std::uint8_t{0});
  for (int plane = 0; plane < shape_.planes; ++plane) {
    const std::int64_t first = (chunks.down * plane + down_) * chunks.across;
    for (std::int64_t across = 0; across < chunks.across; ++across) {
      // A few bytes may claim any number of tiles.
      if (static_cast<std::uint64_t>(first + across) >= chunks.offsets.count()) {
        sink_->damaged(StatusCode::read_failed);
        return kOk;
      }
      TQ_TRY(load_tile(across, plane));
    }
  }
  return kOk;
}

Status PageRows::next(Bytes& row, std::int64_t& y, std::int64_t& lines) {
  const Chunks& chunks = page_->chunks;
  row = {};
  while (true) {
    if (row_ < there_ && !in_bands_) TQ_TRY(read_strip_row());
    if (row_ < there_ && (in_bands_ || !strip_row_.empty())) break;
    if (++down_ >= chunks.down) return kOk;
    // A few bytes may claim any number of strips.
    const auto first = static_cast<std::uint64_t>(down_ * chunks.across);
    if (first >= chunks.offsets.count()) return kOk;
    row_ = there_ = 0;
    if (in_bands_) {
      TQ_TRY(load_band());
    } else {
      TQ_TRY(start_strip());
      there_ = shape_.rows(std::min(chunks.height, page_->height - down_ * chunks.height));
    }
  }
  y = down_ * chunks.height + row_ * shape_.v;
  lines = std::min({std::int64_t{shape_.v}, chunks.height - row_ * shape_.v, page_->height - y});
  const std::int64_t bytes = shape_.planes * shape_.plane_bytes;
  row = in_bands_ ? rows_.pixels().subspan(static_cast<std::size_t>(row_ * bytes),
                                           static_cast<std::size_t>(bytes))
                  : strip_row_;
  ++row_;
  return kOk;
}

}  // namespace tq::tiff
