// Plain rows by their position, run-length coded ones by their segments.
#include "formats/dicom/frames.h"

#include "io/endian.h"

namespace tq::dicom {
namespace {

constexpr std::uint32_t kItem = 0xE000FFFE;  // its tag, as the bytes lie
constexpr int kItemHeader = 8;

// The length of the item there; -1 where there is none.
std::int64_t item_bytes(Source& source, std::int64_t at) {
  std::array<std::uint8_t, kItemHeader> header;
  if (source.read_at(at, header) < kItemHeader || load_le32(header.data()) != kItem) return -1;
  return load_le32(&header[4]);
}

// How many of so many bytes are there.
std::ptrdiff_t part_of(std::ptrdiff_t wanted, std::int64_t left) {
  return static_cast<std::ptrdiff_t>(std::clamp<std::int64_t>(left, 0, wanted));
}

}  // namespace

void Fragments::start(Source& source, std::int64_t first, std::int64_t end, pixels::Row buffer) {
  source_ = &source;
  buffer_ = buffer;
  at_ = first;
  end_ = end;
  left_ = 0;
}

bool Fragments::find_item() {
  while (left_ == 0) {
    if (at_ >= end_) return false;
    const std::int64_t bytes = item_bytes(*source_, at_);
    if (bytes < 0) end_ = at_;
    at_ += kItemHeader;
    left_ = std::max<std::int64_t>(bytes, 0);
  }
  return true;
}

void Fragments::skip(std::int64_t bytes) {
  while (bytes > 0 && find_item()) {
    const std::int64_t here = std::min(bytes, left_);
    at_ += here;
    left_ -= here;
    bytes -= here;
  }
}

std::span<const std::uint8_t> Fragments::next_piece() {
  if (!find_item()) return {};
  const std::ptrdiff_t wanted = part_of(std::ssize(buffer_), left_);
  const std::ptrdiff_t count = source_->read_at(at_, buffer_.first(wanted));
  at_ += count;
  left_ -= count;
  if (count < wanted) end_ = left_ = 0;
  return buffer_.first(count);
}

// As many items as frames are one each. Otherwise the first item says where frames begin, or there
// is but one.
Status find_frame(Source& source, const DataSet& set, std::int32_t frame, FramePlace& place) {
  const std::int64_t table_bytes = item_bytes(source, set.pixels_at);
  if (table_bytes < 0) return StatusCode::bad_image;
  const std::int64_t table = set.pixels_at + kItemHeader;
  const std::int64_t first = table + table_bytes;
  std::int64_t at = first;
  std::int32_t count = 0;
  FramePlace item;
  for (;; ++count) {
    const std::int64_t bytes = item_bytes(source, at);
    if (bytes < 0 || count == set.frames) break;
    if (count == frame) item = {at, at + kItemHeader + bytes};
    at += kItemHeader + bytes;
  }
  if (item_bytes(source, at) < 0) {  // no more than frames
    place = item;
    return kOk;
  }
  place = {first, INT64_MAX};
  if (table_bytes / 4 <= frame) return frame == 0 ? StatusCode::ok : StatusCode::bad_image;
  std::array<std::uint8_t, 8> offsets{};
  const bool has_next = table_bytes / 4 > frame + 1;
  const auto wanted = std::span(offsets).first(has_next ? 8 : 4);
  if (source.read_at(table + std::int64_t{4} * frame, wanted) < std::ssize(wanted)) {
    return StatusCode::bad_image;
  }
  place.first += load_le32(offsets.data());
  if (has_next) place.end = first + load_le32(&offsets[4]);
  return kOk;
}

int Frame::row_samples(const DataSet& set) {
  if (set.photometric == Photometric::ybr_full_422) return (set.columns + 1) / 2 * 4;
  return set.columns * set.samples;
}

Status Frame::open(Source& source, const DataSet& set, std::int32_t frame) {
  set_ = &set;
  frame_ = frame;
  const bool runs = set.coding == Coding::rle;
  const bool halved = set.photometric == Photometric::ybr_full_422;
  planes_ = runs || (set.planes_apart && !halved) ? set.samples : 1;
  const std::int64_t row_bytes = (std::int64_t{row_samples(set)} / planes_ * set.allocated + 7) / 8;
  plane_bytes_ = row_bytes * set.rows;
  TQ_TRY(bytes_.allocate(row_bytes + 2));  // rows may begin within a byte, or a word
  for (int i = 0; i < (runs ? 1 : planes_); ++i) TQ_TRY(sources_[i].open_like(source));
  if (runs) {
    TQ_TRY(pieces_.allocate(kMostSegments * Fragments::kPiece));
    TQ_TRY(find_frame(sources_[0], set, frame, place_));
  }
  return rewind();
}

Status Frame::rewind() {
  y_ = 0;
  if (set_->coding != Coding::rle) return kOk;
  const auto buffer = [&](int i) {
    return pieces_.pixels().subspan(i * Fragments::kPiece, Fragments::kPiece);
  };
  // The number of segments, and where they begin (PS3.5, annex G).
  std::array<std::uint8_t, 64> header{};
  Fragments& start = segments_[0].pieces;
  start.start(sources_[0], place_.first, place_.end, buffer(0));
  const auto piece = start.next_piece();
  std::copy_n(piece.begin(), std::min(piece.size(), header.size()), header.begin());
  segment_count_ = set_->samples * set_->allocated / 8;
  if (!piece.empty() && load_le32(header.data()) != static_cast<std::uint32_t>(segment_count_)) {
    return StatusCode::bad_image;
  }
  for (int i = 0; i < segment_count_; ++i) {
    Segment& segment = segments_[i];
    segment.pieces.start(sources_[0], place_.first, place_.end, buffer(i));
    segment.pieces.skip(load_le32(&header[4 + 4 * i]));
    segment.decoder.start(coding::PieceSource::of(segment.pieces));
  }
  return kOk;
}

Status Frame::status() const {
  for (const Source& source : sources_) TQ_TRY(source.status());
  return kOk;
}

std::ptrdiff_t Frame::read_row(Samples samples) {
  std::ptrdiff_t there = 0;
  std::fill(samples.begin(), samples.end(), 0U);
  if (set_->coding == Coding::rle) {
    there = read_runs(samples);
  } else if (set_->allocated == 1) {
    there = read_bits(samples);
  } else {
    const std::ptrdiff_t wanted = std::ssize(samples) / planes_;
    for (int i = 0; i < planes_; ++i) there += read_plane(i, samples.subspan(i * wanted, wanted));
  }
  ++y_;
  cut_ = cut_ || there < std::ssize(samples);
  return there;
}

std::ptrdiff_t Frame::read_plane(int plane, Samples samples) {
  const int sample_bytes = set_->allocated / 8;
  const std::ptrdiff_t wanted = sample_bytes * std::ssize(samples);
  // What the element does not hold is not the picture's; this many frames may be no number.
  const std::int64_t frame_bytes = plane_bytes_ * planes_;
  if (frame_ > set_->pixel_bytes / frame_bytes) return 0;
  const std::int64_t offset = frame_ * frame_bytes + plane * plane_bytes_ + y_ * wanted;
  // Bytes that are called words lie as words do.
  const bool turned = set_->big_endian && set_->in_words && sample_bytes == 1;
  const int before = turned && offset % 2 != 0 ? 1 : 0;
  const std::ptrdiff_t span = turned ? (before + wanted + 1) / 2 * 2 : wanted;
  const std::int64_t start = offset - before;
  const auto bytes = bytes_.pixels().first(part_of(span, set_->pixel_bytes - start));
  const std::ptrdiff_t read = sources_[plane].read_at(set_->pixels_at + start, bytes);
  const std::ptrdiff_t there = std::clamp<std::ptrdiff_t>(
      (turned ? read & ~1 : read) / sample_bytes - before, 0, std::ssize(samples));
  const std::uint8_t* at = bytes.data() + before;
  for (std::ptrdiff_t i = 0; i < there; ++i, at += sample_bytes) {
    samples[i] = turned              ? bytes[(before + i) ^ 1]
                 : sample_bytes == 1 ? *at
                 : sample_bytes == 2 ? set_->big_endian ? load_be16(at) : load_le16(at)
                 : set_->big_endian ? load_be32(at)
                                     : load_le32(at);
  }
  return there;
}

// Frames and rows lie bit behind bit, from the lowest of a byte on.
std::ptrdiff_t Frame::read_bits(Samples samples) {
  const std::int64_t row = frame_ * set_->rows + y_;
  if (row > std::int64_t{8} * set_->pixel_bytes / set_->columns) return 0;
  const std::int64_t first = row * set_->columns;
  const int skipped = static_cast<int>(first % 8);
  const std::ptrdiff_t wanted = (skipped + std::ssize(samples) + 7) / 8;
  const auto bytes = bytes_.pixels().first(part_of(wanted, set_->pixel_bytes - first / 8));
  // Deflated bytes are not asked for twice.
  const int shared = y_ > 0 && skipped != 0 && !bytes.empty() ? 1 : 0;
  bytes_[0] = last_;
  const std::ptrdiff_t read =
      shared + sources_[0].read_at(set_->pixels_at + first / 8 + shared, bytes.subspan(shared));
  if (read > 0) last_ = bytes[read - 1];
  const auto there = std::clamp<std::ptrdiff_t>(8 * read - skipped, 0, std::ssize(samples));
  for (std::ptrdiff_t i = 0; i < there; ++i) {
    const std::ptrdiff_t bit = skipped + i;
    samples[i] = bytes[bit / 8] >> bit % 8 & 1;
  }
  return there;
}

// A segment holds one byte of all samples of a component, the most significant first.
std::ptrdiff_t Frame::read_runs(Samples samples) {
  const std::ptrdiff_t width = std::ssize(samples) / planes_;
  const int sample_bytes = set_->allocated / 8;
  const auto bytes = bytes_.pixels().first(width);
  std::ptrdiff_t there = 0;
  for (int i = 0; i < segment_count_; ++i) {
    const std::ptrdiff_t count = segments_[i].decoder.read(bytes);
    cut_ = cut_ || count < width;
    const Samples plane = samples.subspan(i / sample_bytes * width, width);
    for (std::ptrdiff_t x = 0; x < width; ++x) {
      plane[x] = plane[x] << 8 | (x < count ? bytes[x] : 0U);
    }
    if (i % sample_bytes == 0) there += count;
  }
  return there;
}

}  // namespace tq::dicom
