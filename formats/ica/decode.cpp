// From a page of image objects to rows.
#include <algorithm>
#include <utility>

#include "formats/coded_picture.h"
#include "formats/ica/ica.h"
#include "formats/ica/rows.h"
#include "formats/ica/tiles.h"
#include "formats/jpeg/jpeg.h"
#include "formats/plugin/plugin.h"
#include "io/endian.h"
#include "pixels/colours.h"
#include "pixels/rows.h"

namespace tq::ica {
namespace {

using formats::DecodeRequest;
using formats::RowSink;

constexpr std::int32_t kMostRows = 65535;  // of pictures that do not say how many they have

// --- Pages ---

// Walks image contents by their fields, or image objects of a document.
class Pages {
 public:
  Status open(StreamHandle stream, std::int64_t start, bool in_document) {
    in_document_ = in_document;
    may_go_on_ = end_is_known(stream);
    TQ_TRY(bytes_.open(stream));
    bytes_.go_to({.at = start, .next = start});
    return kOk;
  }
  // Goes to the next page, behind its beginning. page_past_end behind the last; before the first, what
  // is wrong with the file.
  Status next() {
    const Status found = in_document_ ? next_object() : next_content();
    if (found == StatusCode::page_past_end && pages_ == 0) return StatusCode::bad_image;
    if (found.ok()) ++pages_;
    return found;
  }
  // What the page says.
  Status read(Content& content);

 private:
  Status next_content();
  Status next_object();
  void take_descriptor(const StructuredField& field);

  bool in_document_ = false;
  bool may_go_on_ = true;  // behind the end of a segment
  ContentBytes bytes_;
  std::int32_t pages_ = 0;
  std::int64_t at_ = -1;    // of the next structured field; below 0: the start
  bool in_object_ = false;  // whose page has been found
  bool has_old_images_ = false;
  Resolution resolution_{};
};

Status Pages::next_content() {
  constexpr std::int64_t kLongestName = 4;
  Field field;
  bool in_segment = true;
  while (true) {
    const Found found = bytes_.next_field(field);
    const bool is_cut = found == Found::end && pages_ == 0 && in_segment;
    if (is_cut) return StatusCode::read_failed;
    if (found != Found::field) return StatusCode::page_past_end;
    if (field.code == kBeginSegment && field.bytes > kLongestName) return StatusCode::page_past_end;
    bytes_.skip(field.bytes);
    if (field.code == kBeginContent) return kOk;
    in_segment = field.code != kEndSegment;
    if (field.code == kEndSegment && !may_go_on_) return StatusCode::page_past_end;
  }
}

void Pages::take_descriptor(const StructuredField& field) {
  constexpr std::int64_t kBytes = 5;
  const Bytes bytes = bytes_.window().at(field.data, std::min(kBytes, field.data_bytes));
  if (std::ssize(bytes) < kBytes) return;
  resolution_ = resolution_of_units(bytes[0], load_be16(&bytes[1]), load_be16(&bytes[3]));
}

Status Pages::next_object() {
  std::int64_t at = at_ < 0 ? bytes_.place().next : at_;
  StructuredField field;
  bool cut = false;
  while (read_structured(bytes_.window(), at, field, cut)) {
    const std::int64_t here = at;
    at = field.next;
    const bool is_data = field.code == kImageData && !in_object_;
    if (field.code == kImageDescriptor) take_descriptor(field);
    if (field.code == kEndImage) {
      in_object_ = false;
      resolution_ = {};
    }
    has_old_images_ = has_old_images_ || field.code == kBeginRaster || field.code == kRasterData;
    if (field.code == kEndDocument && !may_go_on_) break;
    if (field.code != kBeginImage && !is_data) continue;
    in_object_ = true;
    at_ = at;
    bytes_.go_to({.at = here, .left = 0, .next = is_data ? here : at});
    return kOk;
  }
  if (pages_ == 0 && has_old_images_) return StatusCode::unsupported;
  return pages_ == 0 && cut ? StatusCode::read_failed : StatusCode::page_past_end;
}

Status Pages::read(Content& content) {
  if (in_document_) {
    // Of the object, before its data.
    StructuredField field;
    bool cut = false;
    for (std::int64_t at = bytes_.place().next; read_structured(bytes_.window(), at, field, cut);
         at = field.next) {
      if (field.code == kImageDescriptor) take_descriptor(field);
      if (field.code == kImageData || field.code == kEndImage) break;
    }
    const Status begun = next_content();
    if (begun == StatusCode::page_past_end) return StatusCode::bad_image;
    TQ_TRY(begun);
  }
  TQ_TRY(read_content(bytes_, content));
  if (content.resolution.x == 0 || content.resolution.y == 0) content.resolution = resolution_;
  return kOk;
}

Status count_pages(StreamHandle stream, bool in_document) {
  Pages pages;
  TQ_TRY(pages.open(stream, std::max(position(stream), 0), in_document));
  std::int32_t count = 0;
  while (true) {
    const Status next = pages.next();
    if (next == StatusCode::page_past_end) return Status::from_raw(count);
    TQ_TRY(next);
    ++count;
  }
}

// --- Pictures ---

class Picture {
 public:
  Picture(const DecodeRequest& request, std::int32_t start, const Content& content,
          const img_strip_coder* lzw)
      : request_(request),
        start_(start),
        content_(content),
        about_(content_.description),
        lzw_(lzw) {}

  Status decode();
  // Whether that came to nothing because the module's coder is wanted.
  bool wants_lzw() const { return wants_lzw_; }

 private:
  Status need_lzw();
  Status decode_jpeg();
  Status decode_jbig2();
  Status decode_black();
  Status decode_colours();
  Status decode_tiles();
  Status count_rows();
  Status begin(int bits, int grey_bits);
  std::int32_t row_of(std::int32_t line) const {
    return about_.bottom_up ? content_.height - 1 - line : line;
  }

  const DecodeRequest& request_;
  std::int32_t start_;  // of the file
  Content content_;
  Description& about_;
  const img_strip_coder* lzw_;
  bool wants_lzw_ = false;
};

Status Picture::need_lzw() {
  wants_lzw_ = lzw_ == nullptr;
  return wants_lzw_ ? StatusCode::no_lzw_module : StatusCode::ok;
}

Status Picture::begin(int bits, int grey_bits) {
  HeaderBlock image = dib_header(content_.width, content_.height, bits);
  if (grey_bits > 0) {
    image.palette = pixels::grey_levels(grey_bits);
    // Of 1 bit the rows are what is inverted.
    if (about_.is_inverted() && grey_bits > 1) {
      std::reverse(image.palette.begin(), image.palette.begin() + (1 << grey_bits));
    }
  }
  const auto dots = [](std::int32_t thousandths) { return (thousandths + 500) / 1000; };
  image.header.biXPelsPerMeter = dots(content_.resolution.x);
  image.header.biYPelsPerMeter = dots(content_.resolution.y);
  request_.sink.resolution(content_.resolution);
  return request_.sink.header(image);
}

// The stream of a JPEG file says all but the resolution.
class JpegSink {
 public:
  JpegSink(const RowSink& to, Resolution resolution) : to_(to), resolution_(resolution) {}
  RowSink sink() { return {on_header, on_row, this, &notes_}; }

 private:
  static std::int32_t IMG_CB_C on_header(void* block, void* context) {
    return static_cast<JpegSink*>(context)->take_header(*static_cast<HeaderBlock*>(block)).raw();
  }
  static std::int32_t IMG_CB_C on_row(void* row, void* context, std::int32_t y,
                                      std::int32_t bytes) {
    const std::span<const std::uint8_t> pixels{static_cast<const std::uint8_t*>(row),
                                               static_cast<std::size_t>(bytes)};
    return static_cast<JpegSink*>(context)->to_.row(pixels, y).raw();
  }
  Status take_header(HeaderBlock& block) {
    if (resolution_.x > 0 && resolution_.y > 0) {
      block.header.biXPelsPerMeter = (resolution_.x + 500) / 1000;
      block.header.biYPelsPerMeter = (resolution_.y + 500) / 1000;
      to_.resolution(resolution_);
    }
    return to_.header(block);
  }

  const RowSink& to_;
  Resolution resolution_;
  formats::DecodeNotes notes_{.whole = to_.notes};
};

Status Picture::decode_jpeg() {
  DataPieces pieces;
  TQ_TRY(pieces.open(request_.stream, about_.lsb_first));
  pieces.start(about_.data, about_.in_bands ? 1 : 0);
  ChunkReader input;
  TQ_TRY(input.open(PieceSource::of(pieces), jpeg::PartDecoder::kChunkBytes));
  JpegSink sink(request_.sink, content_.resolution);
  return jpeg::decode_stream(input, about_.model == kRgb, request_.options, sink.sink());
}

// The data know how high the picture is, if nobody else does.
Status Picture::decode_jbig2() {
  struct Rows {
    Picture& picture;
    RowBuffer<std::uint8_t> row;

    Status begin(const img_samples& form) {
      if (picture.content_.height == 0) picture.content_.height = form.height;
      TQ_TRY(picture.begin(1, 1));
      return row.allocate(row_bytes(picture.content_.width, 1));
    }
    Status put(Bytes bits, std::int32_t y) {
      if (y >= picture.content_.height) return kOk;
      const auto out = row.pixels();
      const auto end = std::copy_n(bits.begin(), std::min(bits.size(), out.size()), out.begin());
      std::fill(end, out.end(), std::uint8_t{0});
      pixels::invert(out, out);
      return picture.request_.sink.row(out, picture.row_of(y));
    }
  } rows{.picture = *this, .row = {}};
  DataPieces pieces;
  TQ_TRY(pieces.open(request_.stream, about_.lsb_first));
  pieces.start(about_.data, about_.in_bands ? 1 : 0);
  PieceSource data = PieceSource::of(pieces);
  img_coded_picture picture = formats::coded_picture(IMG_CODED_JBIG2, data, rows);
  picture.width = content_.width;
  picture.height = content_.height;
  const Status decoded = plugin::decode_coded(picture, request_.options);
  if (decoded.raw() > 0) request_.sink.damaged(StatusCode::bad_image);
  return decoded.failed() ? decoded : kOk;
}

Status Picture::count_rows() {
  BlackRows rows;
  TQ_TRY(rows.open(request_.stream, about_, lzw_, content_.width));
  rows.start(about_.data, 0);
  while (content_.height < kMostRows && rows.next_row()) ++content_.height;
  return content_.height == 0 ? StatusCode::bad_image : StatusCode::ok;
}

Status Picture::decode_black() {
  const bool tells_height = about_.is_fax() ? about_.coding != kHuffman : about_.coding == kPlain;
  if (content_.height == 0) {
    if (!tells_height) return StatusCode::bad_image;
    TQ_TRY(count_rows());
  }
  TQ_TRY(begin(1, 1));
  BlackRows rows;
  TQ_TRY(rows.open(request_.stream, about_, lzw_, content_.width));
  formats::FaxRowDelivery delivery;
  TQ_TRY(delivery.open(content_.width, formats::FaxRows::runs, false));
  rows.start(about_.data, content_.height);
  for (std::int32_t line = 0; line < content_.height; ++line) {
    if (!rows.next_row()) {
      request_.sink.damaged(rows.at_end() ? StatusCode::read_failed : StatusCode::bad_image);
      break;
    }
    if (!rows.row_is_good()) request_.sink.damaged(StatusCode::bad_image);
    TQ_TRY(delivery.deliver(rows.row(), request_.sink, row_of(line)));
  }
  return kOk;
}

// Grey of any number of bits to indices of 4 or 8.
void unpack_grey(Bytes line, int bits, int width, pixels::Row row) {
  coding::BitReader<coding::BitOrder::msb_first> reader(line);
  const auto next = [&] {
    reader.fill();
    const auto value = static_cast<int>(reader.peek(bits));
    reader.skip(bits);
    return value;
  };
  if (bits <= 4) return pixels::pack_nibbles(row.data(), width, [&](int /*x*/) { return next(); });
  for (int x = 0; x < width; ++x) row[x] = byte(next());
}

// Lines of several components, all of a pixel together, whether the file has them so or not.
class ColourLines {
 public:
  Status open(StreamHandle stream, const Description& about, const img_strip_coder* lzw,
              std::int32_t width, int bits) {
    bands_ = about.in_bands ? std::max(about.bands, 1) : 1;
    for (int i = 0; i < bands_; ++i) {
      TQ_TRY(lines_[i].open(stream, about, lzw, std::int64_t{width} * bits / bands_));
      lines_[i].start(about.data, about.in_bands ? i + 1 : 0);
    }
    return bands_ > 1 ? band_.allocate(width) : kOk;
  }
  // How many bytes there were in the shortest band.
  std::ptrdiff_t read(pixels::Row line) {
    if (bands_ == 1) return lines_[0].read(line);
    std::ptrdiff_t least = std::ssize(line);
    for (int i = 0; i < bands_; ++i) {
      const std::ptrdiff_t there = lines_[i].read(band_.pixels());
      for (std::ptrdiff_t x = 0; x < there; ++x) line[bands_ * x + i] = band_[x];
      least = std::min(least, bands_ * there);
    }
    return least;
  }

 private:
  int bands_ = 1;
  StoredLines lines_[kMostBands];
  RowBuffer<std::uint8_t> band_;
};

Status Picture::decode_colours() {
  const Colours colours = about_.colours();
  const bool is_grey = colours == Colours::grey;
  const int stored_bits = is_grey ? (about_.bands == 1 ? about_.band_bits[0] : about_.bits)
                                  : (colours == Colours::inks ? 32 : 24);
  const int bits = !is_grey ? stored_bits : stored_bits <= 4 ? 4 : 8;
  const bool coded = about_.coding == kPackBits || about_.coding == kLzw;
  if (!coded && about_.coding != kPlain) return StatusCode::unsupported;
  if (content_.height == 0) return StatusCode::bad_image;
  TQ_TRY(begin(bits, is_grey ? stored_bits : 0));
  const std::int32_t width = content_.width;
  ColourLines lines;
  TQ_TRY(lines.open(request_.stream, about_, lzw_, width, stored_bits));
  RowBuffer<std::uint8_t> line, row;
  TQ_TRY(line.allocate((std::int64_t{width} * stored_bits + 7) / 8));
  TQ_TRY(row.allocate(row_bytes(width, bits)));
  const pixels::Layout order =
      colours == Colours::inks ? pixels::Layout::cmyk : pixels::Layout::rgb;
  const pixels::RowLayout* const layout = is_grey ? nullptr : pixels::find_layout(order, bits);
  for (std::int32_t y = 0; y < content_.height; ++y) {
    const std::ptrdiff_t there = lines.read(line.pixels());
    if (there == 0) break;
    if (there < std::ssize(line.pixels())) request_.sink.damaged(StatusCode::read_failed);
    std::fill(line.pixels().begin() + there, line.pixels().end(), std::uint8_t{0});
    if (is_grey) {
      unpack_grey(line.pixels(), stored_bits, width, row.pixels());
    } else {
      pixels::unpack(*layout, line.pixels(), width, row.pixels());
    }
    if (colours == Colours::luma_first) {
      const bool swapped = about_.model == kYCrCb;
      for (std::ptrdiff_t x = 0; swapped && x < width; ++x) std::swap(row[3 * x], row[3 * x + 1]);
      pixels::mix_luma_and_chroma(row.pixels(), width);
    }
    TQ_TRY(request_.sink.row(row.pixels(), row_of(y)));
  }
  return kOk;
}

// Of black and white, whatever the description of all says.
Status Picture::decode_tiles() {
  Tiles tiles;
  TQ_TRY(tiles.open(request_.stream, content_));
  TQ_TRY(tiles.measure());
  content_.width = tiles.width();
  content_.height = tiles.height();
  if (tiles.wants_lzw()) TQ_TRY(need_lzw());
  TQ_TRY(begin(1, 1));
  return tiles.deliver(request_, lzw_);
}

Status Picture::decode() {
  if (content_.tiled) return decode_tiles();
  if (about_.coding == kJpeg) return decode_jpeg();
  if (about_.coding == kAbic || about_.coding == kAbicJoined) {
    TQ_TRY(seek_to(request_.stream, start_));
    return plugin::decode_abic(request_);
  }
  if (content_.width == 0) return StatusCode::bad_image;
  if (about_.coding == kLzw) TQ_TRY(need_lzw());
  const Colours colours = about_.colours();
  if (colours == Colours::unknown) return StatusCode::unsupported;
  if (colours != Colours::black) return decode_colours();
  if (about_.coding == kJbig2) return decode_jbig2();
  return is_of_rows(about_) ? decode_black() : StatusCode::unsupported;
}

Status decode_page(const DecodeRequest& request, bool in_document, const img_strip_coder* lzw);

Status decode_ica_with(const DecodeRequest& request, const img_strip_coder& lzw) {
  return decode_page(request, false, &lzw);
}
Status decode_mca_with(const DecodeRequest& request, const img_strip_coder& lzw) {
  return decode_page(request, true, &lzw);
}

Status decode_page(const DecodeRequest& request, bool in_document, const img_strip_coder* lzw) {
  const std::int32_t start = request.start();
  Pages pages;
  TQ_TRY(pages.open(request.stream, start, in_document));
  for (std::int32_t page = -1; page < std::max(request.page, 0); ++page) TQ_TRY(pages.next());
  Content content;
  TQ_TRY(pages.read(content));
  Picture picture(request, start, content, lzw);
  const Status decoded = picture.decode();
  if (!picture.wants_lzw()) return decoded;
  TQ_TRY(seek_to(request.stream, start));
  return plugin::decode_with_lzw(request, in_document ? decode_mca_with : decode_ica_with);
}

}  // namespace

Status decode_ica(const DecodeRequest& request) {
  return decode_page(request, false, nullptr);
}
Status decode_mca(const DecodeRequest& request) {
  return decode_page(request, true, nullptr);
}

Status count_ica_pages(StreamHandle stream) {
  return count_pages(stream, false);
}
Status count_mca_pages(StreamHandle stream) {
  return count_pages(stream, true);
}

}  // namespace tq::ica
