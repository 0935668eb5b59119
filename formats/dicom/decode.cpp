// Frames to the sink: plain and run-length coded ones row by row, JPEG ones through its decoder.
#include <cstring>

#include "formats/coded_picture.h"
#include "formats/dicom/dicom.h"
#include "formats/dicom/values.h"
#include "formats/jpeg/jpeg.h"
#include "formats/plugin/plugin.h"
#include "io/endian.h"

namespace tq::dicom {
namespace {

Status decode_rows(const formats::DecodeRequest& request, Source& source, const DataSet& set,
                   std::int32_t page) {
  HeaderBlock image = Values::image(set);
  TQ_TRY(request.sink.header(image));
  Frame frame;
  TQ_TRY(frame.open(source, set, page));
  Values values;
  TQ_TRY(values.open(set, frame.planes_apart()));
  RowBuffer<std::uint32_t> samples;
  TQ_TRY(samples.allocate(Frame::row_samples(set)));
  RowBuffer<std::uint8_t> row;
  TQ_TRY(row.allocate(row_bytes(set.columns, image.header.biBitCount)));
  if (values.needs_range()) {
    std::ptrdiff_t there = 1;
    for (int y = 0; y < set.rows && there > 0; ++y) {
      there = frame.read_row(samples.pixels());
      values.look_at(samples.pixels().first(there));
    }
    TQ_TRY(frame.rewind());
  }
  values.prepare();
  for (int y = 0; y < set.rows; ++y) {
    if (frame.read_row(samples.pixels()) == 0) break;
    if (frame.was_cut()) request.sink.damaged(StatusCode::read_failed);
    values.convert(samples.pixels(), row.pixels());
    TQ_TRY(request.sink.row(row.pixels(), y));
  }
  return frame.status();
}

// What stands between the JPEG decoder and the sink: grey becomes samples, colours pass.
class JpegRows {
 public:
  JpegRows(DataSet& set, const formats::RowSink& sink) : set_(set), sink_(sink) {}

  formats::RowSink sink() { return {on_header, on_row, this, &notes_}; }
  bool wants_another_pass() const { return is_grey_ && pass_ == 1 && values_.needs_range(); }
  void begin_pass() {
    ++pass_;
    if (pass_ == 2) values_.prepare();
  }

 private:
  static std::int32_t IMG_CB_C on_header(void* block, void* context) {
    return static_cast<JpegRows*>(context)->take_header(*static_cast<HeaderBlock*>(block)).raw();
  }
  static std::int32_t IMG_CB_C on_row(void* row, void* context, std::int32_t y,
                                      std::int32_t bytes) {
    const std::span<const std::uint8_t> pixels{static_cast<const std::uint8_t*>(row),
                                               static_cast<std::size_t>(bytes)};
    return static_cast<JpegRows*>(context)->take_row(pixels, y).raw();
  }

  // The stream is to be believed.
  Status take_header(HeaderBlock& block) {
    if (pass_ > 1) return kOk;
    BitmapInfoHeader& header = block.header;
    header.biXPelsPerMeter = set_.x_dpi;
    header.biYPelsPerMeter = set_.y_dpi;
    is_grey_ = header.biBitCount <= 16;
    if (!is_grey_) return sink_.header(block);
    stored_bits_ = header.biBitCount == 16 ? 12 : 8;
    set_.columns = header.biWidth;
    set_.rows = header.biHeight;
    set_.samples = 1;
    if (set_.photometric != Photometric::white_is_zero &&
        set_.photometric != Photometric::palette) {
      set_.photometric = Photometric::black_is_zero;
    }
    if (!set_.is_signed || set_.stored > stored_bits_) set_.stored = stored_bits_;
    set_.allocated = header.biBitCount;
    set_.high_bit = set_.stored - 1;
    HeaderBlock image = Values::image(set_);
    TQ_TRY(sink_.header(image));
    TQ_TRY(values_.open(set_, false));
    TQ_TRY(samples_.allocate(set_.columns));
    TQ_TRY(row_.allocate(row_bytes(set_.columns, image.header.biBitCount)));
    if (!values_.needs_range()) values_.prepare();
    return kOk;
  }

  Status take_row(std::span<const std::uint8_t> pixels, std::int32_t y) {
    if (!is_grey_) return sink_.row(pixels, y);
    for (std::ptrdiff_t x = 0; x < std::ssize(samples_.pixels()); ++x) {
      // The decoder widens 12 bits to 16.
      samples_[x] = stored_bits_ == 8 ? pixels[x] : ((load_le16(&pixels[2 * x]) >> 4) + 1) & 0xFFF;
    }
    if (values_.needs_range() && pass_ == 1) {
      values_.look_at(samples_.pixels());
      return kOk;
    }
    values_.convert(samples_.pixels(), row_.pixels());
    return sink_.row(row_.pixels(), y);
  }

  DataSet& set_;
  const formats::RowSink& sink_;
  formats::DecodeNotes notes_{.whole = sink_.notes};
  int pass_ = 0;
  bool is_grey_ = false;
  int stored_bits_ = 8;
  Values values_;
  RowBuffer<std::uint32_t> samples_;
  RowBuffer<std::uint8_t> row_;
};

// `decode` gets the frame's pieces from the start, as often as `rows` wants them.
template <class Rows, class Decode>
Status decode_frame(Source& source, DataSet& set, std::int32_t page, Rows& rows, Decode&& decode) {
  FramePlace place;
  TQ_TRY(find_frame(source, set, page, place));
  RowBuffer<std::uint8_t> buffer;
  TQ_TRY(buffer.allocate(Fragments::kPiece));
  do {
    Fragments pieces;
    pieces.start(source, place.first, place.end, buffer.pixels());
    TQ_TRY(decode(PieceSource::of(pieces)));
  } while (rows.wants_another_pass());
  return kOk;
}

Status decode_jpeg_frame(const formats::DecodeRequest& request, Source& source, DataSet& set,
                         std::int32_t page) {
  const bool says_rgb = set.photometric == Photometric::rgb;
  JpegRows rows(set, request.sink);
  return decode_frame(source, set, page, rows, [&](PieceSource data) {
    rows.begin_pass();
    ChunkReader input;
    TQ_TRY(input.open(data, jpeg::PartDecoder::kChunkBytes));
    return jpeg::decode_stream(input, says_rgb, request.options, rows.sink());
  });
}

// What a decoder of JPEG 2000 hands out: samples of any depth, of one or three components.
class Jpeg2000Rows {
 public:
  Jpeg2000Rows(DataSet& set, const formats::RowSink& sink) : set_(set), sink_(sink) {}

  // The stream is to be believed here, too.
  Status begin(const img_samples& samples) {
    if (pass_++ > 0) return kOk;
    if (samples.components != 1 && samples.components != 3) return StatusCode::unsupported;
    set_.columns = samples.width;
    set_.rows = samples.height;
    set_.samples = samples.components;
    const Photometric told = set_.photometric;
    const bool keeps = samples.components == 1
                           ? told == Photometric::white_is_zero || told == Photometric::palette
                           : told == Photometric::ybr_full;
    if (!keeps) {
      set_.photometric = samples.components == 1 ? Photometric::black_is_zero : Photometric::rgb;
    }
    const bool is_shallower = set_.is_signed && set_.stored <= samples.bits;
    if (samples.is_signed != 0) set_.is_signed = true;
    if (samples.is_signed != 0 || !is_shallower) set_.stored = samples.bits;
    set_.allocated = samples.bits > 8 ? 16 : 8;
    set_.high_bit = set_.stored - 1;
    HeaderBlock image = Values::image(set_);
    TQ_TRY(sink_.header(image));
    TQ_TRY(values_.open(set_, false));
    TQ_TRY(samples_.allocate(std::int64_t{set_.columns} * set_.samples));
    TQ_TRY(row_.allocate(row_bytes(set_.columns, image.header.biBitCount)));
    if (!values_.needs_range()) values_.prepare();
    return kOk;
  }
  Status put(std::span<const std::uint8_t> stored, std::int32_t y) {
    const bool wide = set_.allocated == 16;
    const auto samples = samples_.pixels();
    const std::size_t wanted = samples.size() * (wide ? 2 : 1);
    if (y >= set_.rows || stored.size() < wanted) return StatusCode::bad_image;
    for (std::size_t i = 0; i < samples.size(); ++i) {
      std::uint16_t value = 0;
      if (wide) std::memcpy(&value, &stored[2 * i], sizeof value);
      samples[i] = wide ? value : stored[i];
    }
    if (values_.needs_range() && pass_ == 1) {
      values_.look_at(samples);
      return kOk;
    }
    values_.convert(samples, row_.pixels());
    return sink_.row(row_.pixels(), y);
  }
  bool wants_another_pass() {
    const bool wants = pass_ == 1 && values_.needs_range();
    if (wants) values_.prepare();
    return wants;
  }

 private:
  DataSet& set_;
  const formats::RowSink& sink_;
  int pass_ = 0;
  Values values_;
  RowBuffer<std::uint32_t> samples_;
  RowBuffer<std::uint8_t> row_;
};

Status decode_jpeg_2000_frame(const formats::DecodeRequest& request, Source& source, DataSet& set,
                              std::int32_t page) {
  Jpeg2000Rows rows(set, request.sink);
  return decode_frame(source, set, page, rows, [&](PieceSource data) {
    const img_coded_picture picture = formats::coded_picture(IMG_CODED_JPEG_2000, data, rows);
    return plugin::decode_coded(picture, request.options);
  });
}

}  // namespace

Status decode_dicom(const formats::DecodeRequest& request) {
  const std::int64_t start = request.start();
  Source source;
  source.open(request.stream);
  DataSet set;
  set.knows_jpeg_2000 = request.options.get(IMG_OPTION_EXTENDED_FORMATS) == 1;
  TQ_TRY(read_data_set(source, start, set));
  const std::int32_t page = request.has_page() ? request.page : 0;
  if (page >= set.frames) return StatusCode::page_past_end;
  if (set.coding == Coding::jpeg) return decode_jpeg_frame(request, source, set, page);
  if (set.coding == Coding::jpeg_2000) return decode_jpeg_2000_frame(request, source, set, page);
  return decode_rows(request, source, set, page);
}

}  // namespace tq::dicom
