// Pieces out of the filters to rows, or to the decoder that codes the picture.
#include "formats/pdf/image/stored.h"

#include <algorithm>
#include <utility>

#include "formats/coded_picture.h"
#include "pixels/rows.h"

namespace tq::pdf::image {

using objects::File;
using objects::Kind;
using objects::Object;
using objects::Value;

// The bytes in front of what codes the picture.
class StoredPicture::Source {
 public:
  Status open(const StoredPicture& picture) {
    TQ_TRY(chain_.open(picture.form_.filters()));
    if (!picture.is_inline_) {
      TQ_TRY(stream_.open(*picture.file_, picture.object_));
      return chain_.start(PieceSource::of(stream_));
    }
    inline_.bytes = picture.inline_data_;
    return chain_.start(PieceSource::of(inline_));
  }
  PieceSource pieces() { return PieceSource::of(chain_); }
  std::span<const std::uint8_t> next_piece() { return chain_.next_piece(); }
  Status status() const { return stream_.failed() ? StatusCode::read_failed : chain_.status(); }
  // Why there are no more bytes.
  StatusCode end_reason() const {
    return chain_.is_broken() ? StatusCode::bad_image : StatusCode::read_failed;
  }

 private:
  struct OnePiece {
    std::span<const std::uint8_t> bytes{};
    std::span<const std::uint8_t> next_piece() { return std::exchange(bytes, {}); }
  };

  objects::StreamSource stream_;
  OnePiece inline_;
  coding::FilterChain chain_;
};

Status StoredPicture::open(File& file, const content::Painted& painted) {
  file_ = &file;
  is_inline_ = painted.image.number == 0;
  if (is_inline_) {
    dictionary_ = painted.dictionary;
    inline_data_ = painted.data;
  } else {
    TQ_TRY(file.fetch(painted.image, object_));
    if (!object_.is_stream()) return StatusCode::bad_image;
    dictionary_ = object_.value();
  }
  TQ_TRY(read_form(file, dictionary_, is_inline_, form_));
  const bool is_jbig2 = form_.last == PictureCoding::jbig2;
  if (is_jbig2 || form_.last == PictureCoding::jpeg2000) {
    const std::int32_t coding = is_jbig2 ? IMG_CODED_JBIG2 : IMG_CODED_JPEG_2000;
    TQ_TRY(file.decode_picture(formats::coded_question(coding)));
  }
  return read_sizes();
}

Status StoredPicture::find(const char* key, const char* abbreviation, Value& value, Object& room,
                           const Object*& owner) const {
  value = dictionary_[key];
  if (is_inline_ && value.is(Kind::null)) value = dictionary_[abbreviation];
  owner = &object_;
  if (!value.is(Kind::reference)) return kOk;
  owner = &room;
  return file_->resolve(value, room);
}

Status StoredPicture::read_sizes() {
  Object room;
  Value value;
  TQ_TRY(find("ImageMask", "IM", value, room));
  is_mask_ = value.boolean();
  if (form_.last == PictureCoding::jpeg) return read_jpeg();
  if (form_.last == PictureCoding::jpeg2000) return read_jpeg_2000();
  TQ_TRY(find("Width", "W", value, room));
  width_ = value.small_integer();
  TQ_TRY(find("Height", "H", value, room));
  height_ = value.small_integer();
  TQ_TRY(find("BitsPerComponent", "BPC", value, room));
  const bool is_black = is_fax() || form_.last == PictureCoding::jbig2;
  bits_ = is_mask_ || is_black ? 1 : value.small_integer(8);
  const bool known = bits_ == 1 || bits_ == 2 || bits_ == 4 || bits_ == 8 || bits_ == 16;
  const bool usable = known && width_ > 0 && height_ > 0;
  return usable ? StatusCode::ok : StatusCode::bad_image;
}

// Its frame says what it is, whatever the dictionary says.
Status StoredPicture::read_jpeg() {
  Source source;
  TQ_TRY(source.open(*this));
  ChunkReader input;
  TQ_TRY(input.open(source.pieces(), jpeg::PartDecoder::kChunkBytes));
  const Status read = jpeg::read_stream_header(input, jpeg_);
  TQ_TRY(source.status());
  TQ_TRY(read);
  if (jpeg_.bits != 8) return StatusCode::unsupported;
  components_ = jpeg_.components;
  converted_inks_ = jpeg_components() == jpeg::Components::ycck;
  width_ = jpeg_.width;
  height_ = jpeg_.height;
  bits_ = 8;
  return width_ > 0 && height_ > 0 ? StatusCode::ok : StatusCode::bad_image;
}

template <class Rows>
Status StoredPicture::decode_jpeg_2000_to(Rows& rows) const {
  Source source;
  TQ_TRY(source.open(*this));
  PieceSource data = source.pieces();
  img_coded_picture picture = formats::coded_picture(IMG_CODED_JPEG_2000, data, rows);
  picture.sample_bits = 8;
  const Status decoded = file_->decode_picture(picture);
  TQ_TRY(source.status());
  return decoded;
}

// Its stream says what it is, too. Samples are wanted in 8 bits, whatever they have there.
Status StoredPicture::read_jpeg_2000() {
  struct Header {
    img_samples samples{};
    Status begin(const img_samples& form) {
      samples = form;
      return StatusCode::stop_after_header;
    }
    Status put(std::span<const std::uint8_t> /*row*/, std::int32_t /*y*/) { return kOk; }
  } header;
  const Status read = decode_jpeg_2000_to(header);
  if (read != StatusCode::stop_after_header) return read.failed() ? read : StatusCode::bad_image;
  width_ = header.samples.width;
  height_ = header.samples.height;
  components_ = header.samples.components;
  bits_ = 8;
  const bool known = components_ == 1 || components_ == 3 || components_ == 4;
  return known ? StatusCode::ok : StatusCode::unsupported;
}

jpeg::Components StoredPicture::jpeg_components() const {
  const int usual = jpeg_.components == 3 ? 1 : 0;
  const int told = form_.jpeg_transform >= 0 ? form_.jpeg_transform : usual;
  const bool transformed = (jpeg_.has_adobe ? jpeg_.adobe_transform : told) != 0;
  switch (jpeg_.components) {
    case 1:
      return jpeg::Components::grey;
    case 3:
      return transformed ? jpeg::Components::ycbcr : jpeg::Components::rgb;
    default:
      return transformed ? jpeg::Components::ycck : jpeg::Components::four;
  }
}

Status StoredPicture::decode(int components, formats::DecodeNotes* whole,
                             formats::RowSink sink) const {
  formats::DecodeNotes notes{.whole = whole};
  sink.notes = &notes;
  if (form_.last == PictureCoding::jpeg2000) return decode_jpeg_2000(sink);
  if (form_.last == PictureCoding::jbig2) return decode_jbig2(sink);
  Source source;
  TQ_TRY(source.open(*this));
  if (form_.last != PictureCoding::jpeg) return decode_plain(source, components, sink);
  ChunkReader input;
  TQ_TRY(input.open(source.pieces(), jpeg::PartDecoder::kChunkBytes));
  TQ_TRY(jpeg::decode_known_stream(input, jpeg_components(), sink));
  return source.status();
}

Status StoredPicture::decode_jpeg_2000(const formats::RowSink& sink) const {
  struct Rows {
    const formats::RowSink& sink;
    int components;
    RowBuffer<std::uint8_t> row;
    std::int32_t width, height;

    Status begin(const img_samples& form) {
      if (form.components != components || form.width != width) return StatusCode::bad_image;
      return row.allocate(std::int64_t{width} * components);
    }
    Status put(std::span<const std::uint8_t> samples, std::int32_t y) {
      if (y >= height || samples.size() < row.size()) return StatusCode::bad_image;
      if (components != 3) return sink.row(samples, y);
      for (std::ptrdiff_t x = 0; x < 3 * std::ptrdiff_t{width}; x += 3) {
        row[x] = samples[x + 2];
        row[x + 1] = samples[x + 1];
        row[x + 2] = samples[x];
      }
      return sink.row(row.pixels(), y);
    }
  } rows{sink, components_, {}, width_, height_};
  TQ_TRY(decode_jpeg_2000_to(rows));
  return kOk;
}

// What is coded as black is 0 here. Rows of another width are cut, or go on in white.
Status StoredPicture::decode_jbig2(const formats::RowSink& sink) const {
  struct Rows {
    const formats::RowSink& sink;
    std::int32_t height;
    RowBuffer<std::uint8_t> row;

    Status begin(const img_samples& /*form*/) { return kOk; }
    Status put(std::span<const std::uint8_t> bits, std::int32_t y) {
      if (y >= height) return kOk;
      const auto out = row.pixels();
      const auto end = std::copy_n(bits.begin(), std::min(bits.size(), out.size()), out.begin());
      std::fill(end, out.end(), std::uint8_t{0});
      pixels::invert(out, out);
      return sink.row(out, y);
    }
  } rows{sink, height_, {}};
  TQ_TRY(rows.row.allocate(row_bytes(width_, 1)));
  Source source;
  TQ_TRY(source.open(*this));
  Filters globals;
  Object globals_stream;
  const bool has_globals = form_.jbig2_globals.number != 0;
  if (has_globals) {
    TQ_TRY(file_->fetch(form_.jbig2_globals, globals_stream));
    if (!globals_stream.is_stream()) return StatusCode::bad_image;
    TQ_TRY(globals.open(*file_, globals_stream));
  }
  PieceSource data = source.pieces(), shared = PieceSource::of(globals);
  img_coded_picture picture = formats::coded_picture(IMG_CODED_JBIG2, data, rows);
  picture.width = width_;
  picture.height = height_;
  picture.globals = has_globals ? &shared : nullptr;
  const Status decoded = file_->decode_picture(picture);
  TQ_TRY(source.status());
  if (has_globals) TQ_TRY(globals.status());
  const bool is_damaged = decoded == StatusCode::bad_image || decoded == StatusCode::read_failed;
  if (is_damaged || decoded.raw() > 0) sink.damaged(StatusCode::bad_image);
  return decoded.failed() && !is_damaged ? decoded : kOk;
}

// A row of which a part is missing has zeros there.
Status StoredPicture::decode_plain(Source& source, int components,
                                   const formats::RowSink& sink) const {
  const std::int64_t bytes = (std::int64_t{width_} * components * bits_ + 7) / 8;
  RowBuffer<std::uint8_t> room;
  TQ_TRY(room.allocate(bytes));
  const std::ptrdiff_t row_bytes = std::ssize(room.pixels());
  std::span<const std::uint8_t> piece{};
  for (std::int32_t y = 0; y < height_; ++y) {
    if (piece.empty()) piece = source.next_piece();
    if (std::ssize(piece) >= row_bytes) {
      TQ_TRY(sink.row(piece.first(room.size()), y));
      piece = piece.subspan(room.size());
      continue;
    }
    std::ptrdiff_t filled = 0;
    while (filled < row_bytes) {
      if (piece.empty()) piece = source.next_piece();
      if (piece.empty()) break;
      const std::ptrdiff_t here = std::min(std::ssize(piece), row_bytes - filled);
      std::copy_n(piece.begin(), here, room.data() + filled);
      piece = piece.subspan(static_cast<std::size_t>(here));
      filled += here;
    }
    if (filled < row_bytes) {
      TQ_TRY(source.status());
      sink.damaged(source.end_reason());
      if (filled == 0) break;
    }
    std::fill(room.pixels().begin() + filled, room.pixels().end(), std::uint8_t{0});
    TQ_TRY(sink.row(room.pixels(), y));
  }
  return kOk;
}

Status StoredPicture::decode_fax(formats::FaxRows rows, bool inverted, formats::DecodeNotes* whole,
                                 formats::RowSink sink) const {
  constexpr std::int32_t kMostColumns = 1 << 20;
  const std::int32_t columns = form_.fax.columns;
  if (columns < 1 || columns > kMostColumns) return StatusCode::bad_image;
  formats::DecodeNotes notes{.whole = whole};
  // Rows of another width are cut, or go on in white.
  struct Fitted {
    formats::RowSink sink;
    std::int32_t columns = 0, width = 0;
    std::uint8_t white = 0;
    RowBuffer<std::uint8_t> row;
    static std::int32_t IMG_CB_C put(void* bits, void* context, std::int32_t y,
                                     std::int32_t bytes) {
      const Fitted& fitted = *static_cast<Fitted*>(context);
      const auto out = fitted.row.pixels();
      std::fill(out.begin(), out.end(), fitted.white);
      const std::span from(static_cast<const std::uint8_t*>(bits), static_cast<std::size_t>(bytes));
      pixels::copy_bits(from, 0, std::min(fitted.columns, fitted.width), out);
      return fitted.sink.row(out, y).raw();
    }
  } fitted;
  if (columns != width_) {
    TQ_TRY(fitted.row.allocate(row_bytes(width_, 1)));
    fitted.sink = {nullptr, sink.on_row, sink.context};
    fitted.columns = columns;
    fitted.width = width_;
    fitted.white = inverted ? 0 : 0xFF;
    sink = {nullptr, Fitted::put, &fitted};
    rows = formats::FaxRows::bits;
  }
  sink.notes = &notes;
  Source source;
  TQ_TRY(source.open(*this));
  formats::FaxDecoder decoder;
  TQ_TRY(decoder.open(form_.fax.coding, columns, rows, inverted));
  TQ_TRY(decoder.decode(source.pieces(), 0, height_, sink));
  return source.status();
}

}  // namespace tq::pdf::image
