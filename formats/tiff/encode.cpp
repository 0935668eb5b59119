// Pages to files: data, then their directory, then the link to it.
#include "core/context.h"
#include "formats/jpeg/jpeg.h"
#include "formats/plugin/plugin.h"
#include "formats/rows.h"
#include "formats/tiff/rows.h"
#include "formats/tiff/tiff.h"
#include "pixels/colours.h"

namespace tq::tiff {
namespace {

using formats::EncodeRequest;
using pixels::find_layout;
using pixels::Layout;

constexpr std::int64_t kStripBytes = 65536;  // of samples, about, where no option says more

std::int32_t option(std::int32_t number) {
  return context().options.get(number);
}

// Where a page goes.
struct Place {
  std::int32_t start = 0;  // of the file
  std::int64_t link = 0;   // to its directory
  std::int64_t end = 0;    // of the bytes that are there
  std::int32_t page = 0;
  bool big_endian = false;

  bool is_new() const { return page == 0; }
};

// What an existing file says; a new one otherwise.
Status find_place(StreamHandle stream, Place& place) {
  place = {.start = position(stream)};
  if (place.start < 0) return StatusCode::write_failed;
  place.link = std::int64_t{place.start} + 4;
  place.end = place.start;
  place.big_endian = option(IMG_OPTION_TIFF_BYTE_ORDER) == 1;
  if (stream == kMemoryStream) return kOk;  // where it ends is not known
  File file;
  const Status opened = file.open(stream, place.start);
  if (opened == StatusCode::read_failed) return opened;
  if (opened.failed()) return seek_to(stream, place.start);
  if (file.is_big()) return StatusCode::unsupported;
  TQ_TRY(file.find_last_link(place.link, place.page));
  place.big_endian = file.big_endian();
  place.end = seek(stream, 0, Origin::end);
  return place.end < 0 ? StatusCode::write_failed : StatusCode::ok;
}

// How rows are stored.
struct Form {
  // As the caller's options say now; a callback may change them.
  std::int64_t strip_bytes = kStripBytes;
  std::int32_t g3_k = 0;
  bool g3_fill = false;
  bool modern_jpeg = false;
  Photometric photometric = Photometric::black_is_zero;
  int bits = 1, samples = 1;
  bool differences = false;
  std::span<const Rgb> palette{};
  formats::StoredRows rows;
  jpeg::StreamForm stream;
};

// What the encoder of JPEG is given: of 32 bits without the fourth byte.
class JpegPicture {
 public:
  explicit JpegPicture(const EncodeRequest& request) : request_(request), image_(*request.image) {
    if (image_.header.biBitCount == 32) {
      image_.header = dib_header(image_.header.biWidth, image_.header.biHeight, 24).header;
      image_.header.biXPelsPerMeter = request.image->header.biXPelsPerMeter;
      image_.header.biYPelsPerMeter = request.image->header.biYPelsPerMeter;
    }
  }
  EncodeRequest request() {
    const bool same = request_.image->header.biBitCount != 32;
    return {.stream = request_.stream,
            .image = &image_,
            .rows = same ? request_.rows : formats::RowSupplier{supply, this}};
  }
  Status write() {
    const BitmapInfoHeader& header = request_.image->header;
    TQ_TRY(row_.allocate(row_bytes(header.biWidth, header.biBitCount)));
    return jpeg::encode_jpeg(request());
  }

 private:
  static std::int32_t IMG_CB_C supply(void* context, void* bytes, std::int32_t y,
                                      std::int32_t count) {
    const JpegPicture& picture = *static_cast<JpegPicture*>(context);
    const Status got = picture.request_.rows.row(picture.row_.pixels(), y);
    if (got.failed()) return got.raw();
    const Row row(static_cast<std::uint8_t*>(bytes), static_cast<std::size_t>(count));
    pack(*find_layout(Layout::bgr, 32), picture.row_.pixels(), picture.image_.header.biWidth, row);
    return 0;
  }

  const EncodeRequest& request_;
  HeaderBlock image_;
  RowBuffer<std::uint8_t> row_;
};

Status choose_jpeg_form(const EncodeRequest& request, Form& form) {
  if (request.cmyk && request.image->header.biBitCount == 32) return StatusCode::wrong_depth;
  JpegPicture picture(request);
  TQ_TRY(jpeg::find_stream_form(picture.request(), form.stream));
  form.samples = form.stream.components;
  form.bits = 8;
  form.photometric = form.samples == 1 ? Photometric::black_is_zero : Photometric::ycbcr;
  return kOk;
}

Form preferred_form() {
  Form form;
  if (const std::int32_t bytes = option(IMG_OPTION_TIFF_STRIP_BYTES); bytes != 0) {
    form.strip_bytes = bytes;
  }
  form.g3_k = option(IMG_OPTION_TIFF_G3_K);
  form.g3_fill = option(IMG_OPTION_TIFF_G3_FILL) == 1;
  form.modern_jpeg = option(IMG_OPTION_TIFF_JPEG) == kJpeg;
  return form;
}

Form choose_form(const EncodeRequest& request, bool big_endian) {
  const BitmapInfoHeader& header = request.image->header;
  const auto coding = static_cast<Coding>(request.variant());
  const int depth = header.biBitCount;
  Form form = preferred_form();
  Layout layout = Layout::bits_1;
  switch (depth) {
    case 1:
      if (coding != kUncoded && coding != kLzw && coding != kPackBits) {
        form.photometric = Photometric::white_is_zero;
      } else if (option(IMG_OPTION_TIFF_PHOTOMETRIC) == 1) {
        form.photometric = Photometric::white_is_zero;
        layout = Layout::bits_1_black;
      }
      break;
    case 4:
    case 8: {
      const auto palette = std::span(request.image->palette).first(std::size_t{1} << depth);
      layout = depth == 4 ? Layout::bits_4 : Layout::bytes;
      if (!pixels::is_grey_ramp(palette)) {
        form.photometric = Photometric::palette;
        form.palette = palette;
      }
      break;
    }
    case 16:
      layout = big_endian ? Layout::grey16_be : Layout::grey16_le;
      break;
    default:
      form.photometric = request.cmyk && depth == 32 ? Photometric::separated : Photometric::rgb;
      form.samples = form.photometric == Photometric::separated ? 4 : 3;
      layout = form.samples == 4 ? Layout::cmyk : Layout::rgb;
      break;
  }
  form.bits = depth <= 16 ? depth : 8;
  form.differences = coding == kLzw && form.bits >= 8 && form.palette.empty() &&
                     option(IMG_OPTION_TIFF_PREDICTOR) == 0;
  form.rows.layout = find_layout(layout, depth);
  if (form.rows.layout != nullptr) {
    form.rows.line_bytes = stored_bytes(*form.rows.layout, header.biWidth);
  }
  return form;
}

// Strips as they are written.
class Strips {
 public:
  Status open(std::int64_t count) {
    TQ_TRY(offsets_.allocate(count));
    return bytes_.allocate(count);
  }
  void begin(std::int64_t offset) { offsets_[count_] = static_cast<std::uint32_t>(offset); }
  void end(std::int64_t offset) {
    bytes_[count_] = static_cast<std::uint32_t>(offset - offsets_[count_]);
    ++count_;
  }
  std::span<const std::uint32_t> offsets() const { return offsets_.pixels(); }
  std::span<const std::uint32_t> byte_counts() const { return bytes_.pixels(); }

 private:
  RowBuffer<std::uint32_t> offsets_, bytes_;
  std::ptrdiff_t count_ = 0;
};

// Fields in the file's order, at offsets that count from its start.
class PageWriter {
 public:
  Status open(StreamHandle stream, const Place& place) {
    place_ = place;
    stream_ = stream;
    TQ_TRY(out_.open(stream));
    if (place.is_new()) {
      out_.put(place.big_endian ? "MM" : "II");
      put16(42);
      put32(0);
      place_.end = place.start;
    } else {
      TQ_TRY(seek_to(stream, place.end));
    }
    return out_.status();
  }
  StreamWriter& out() { return out_; }
  // For what is written by somebody else, from here to where the stream then stands.
  Status give_stream() { return out_.flush(); }
  Status take_stream() {
    const std::int32_t end = position(stream_);
    if (end < 0) return StatusCode::write_failed;
    place_.end = end - out_.count();
    return kOk;
  }
  std::int64_t offset() const { return place_.end - place_.start + out_.count(); }
  // Fields and strips begin at even offsets.
  void align() {
    if (offset() % 2 != 0) out_.put8(0);
  }
  void put16(std::uint32_t value) {
    place_.big_endian ? out_.put_be16(value) : out_.put_le16(value);
  }
  void put32(std::uint32_t value) {
    place_.big_endian ? out_.put_be32(value) : out_.put_le32(value);
  }
  // The last thing that is written: from now on the page is there. A link that was written in part
  // is taken back.
  Status link(std::int64_t directory) {
    std::array<std::uint8_t, 4> bytes;
    const auto offset = static_cast<std::uint32_t>(directory);
    place_.big_endian ? store_be32(bytes.data(), offset) : store_le32(bytes.data(), offset);
    TQ_TRY(out_.flush());
    const Status linked = out_.patch(static_cast<std::int32_t>(place_.link), bytes);
    if (linked.failed() && seek_to(stream_, place_.link).ok()) {
      bytes = {};
      (void)write(stream_, bytes);
    }
    return linked;
  }

 private:
  Place place_;
  StreamHandle stream_{-1};
  StreamWriter out_;
};

// Entries in ascending order, values of more than four bytes before them.
class DirectoryWriter {
 public:
  explicit DirectoryWriter(PageWriter& out) : out_(out) {}

  void add(Tag tag, Type type, std::uint32_t value) { put(tag, type, 1, value); }
  void add_shorts(Tag tag, std::span<const std::uint16_t> values) {
    if (values.size() == 1) return add(tag, kShort, values[0]);
    if (values.size() == 2) return put(tag, kShort, 2, values[0] | values[1] << 16);
    put_far(tag, kShort, values.size());
    for (const std::uint16_t value : values) out_.put16(value);
  }
  void add_longs(Tag tag, std::span<const std::uint32_t> values) {
    if (values.size() == 1) return add(tag, kLong, values[0]);
    put_far(tag, kLong, values.size());
    for (const std::uint32_t value : values) out_.put32(value);
  }
  void add_whole_rational(Tag tag, std::uint32_t value) {
    put_far(tag, kRational, 1);
    out_.put32(value);
    out_.put32(1);
  }
  void add_text(Tag tag, std::string_view text) {
    put_far(tag, kAscii, text.size() + 1);
    out_.out().put(text);
    out_.out().put8(0);
  }

  // The directory's offset.
  std::int64_t finish() {
    out_.align();
    const std::int64_t offset = out_.offset();
    out_.put16(static_cast<std::uint32_t>(count_));
    for (const Field& field : std::span(fields_).first(count_)) {
      out_.put16(field.tag);
      out_.put16(field.type);
      out_.put32(field.count);
      if (field.type == kShort && field.count <= 2) {  // in the first bytes of the field
        out_.put16(field.value & 0xFFFF);
        out_.put16(field.value >> 16);
      } else {
        out_.put32(field.value);
      }
    }
    out_.put32(0);
    return offset;
  }

 private:
  struct Field {
    Tag tag;
    Type type;
    std::uint32_t count, value;
  };

  void put(Tag tag, Type type, std::size_t count, std::uint32_t value) {
    fields_[count_++] = {tag, type, static_cast<std::uint32_t>(count), value};
  }
  void put_far(Tag tag, Type type, std::size_t count) {
    out_.align();
    put(tag, type, count, static_cast<std::uint32_t>(out_.offset()));
  }

  PageWriter& out_;
  std::array<Field, 32> fields_;
  std::size_t count_ = 0;
};

// The differences to the pixel before, from the last one on.
template <int kBytes>
void subtract_samples(bool big_endian, Row row, int samples) {
  for (std::ptrdiff_t i = std::ssize(row) - kBytes; i >= samples * kBytes; i -= kBytes) {
    std::uint8_t* const at = &row[i];
    const std::uint8_t* const before = at - samples * kBytes;
    if constexpr (kBytes == 1) {
      *at = byte(*at - *before);
    } else if (big_endian) {
      store_be16(at, word(load_be16(at) - load_be16(before)));
    } else {
      store_le16(at, word(load_le16(at) - load_le16(before)));
    }
  }
}

// Rows one by one, each strip by itself.
Status write_strips(const EncodeRequest& request, const Form& form, bool big_endian,
                    std::int64_t rows_per_strip, const img_strip_coder* lzw, PageWriter& page,
                    Strips& strips) {
  const BitmapInfoHeader& header = request.image->header;
  const auto coding = static_cast<Coding>(request.variant());
  RowBuffer<std::uint8_t> row, line;
  TQ_TRY(row.allocate(row_bytes(header.biWidth, header.biBitCount)));
  TQ_TRY(line.allocate(form.rows.line_bytes));
  GlobalBlock state;
  if (coding == kLzw) TQ_TRY(state.allocate(lzw->encoder_bytes));
  StreamWriter& out = page.out();
  for (std::int32_t y = 0; y < header.biHeight; ++y) {
    const bool ends_strip = (y + 1) % rows_per_strip == 0 || y + 1 == header.biHeight;
    if (y % rows_per_strip == 0) {
      page.align();
      strips.begin(page.offset());
      if (coding == kLzw) lzw->begin_encode(state.data());
    }
    TQ_TRY(request.rows.row(row.pixels(), y));
    pack(*form.rows.layout, row.pixels(), header.biWidth, line.pixels());
    if (form.differences && form.bits == 8) {
      subtract_samples<1>(big_endian, line.pixels(), form.samples);
    } else if (form.differences) {
      subtract_samples<2>(big_endian, line.pixels(), form.samples);
    }
    if (coding == kPackBits) {
      const Row room = out.room(packbits::most_bytes(form.rows.line_bytes));
      if (!room.empty()) out.take(packbits::encode(line.pixels(), room.data()) - room.data());
    } else if (coding == kLzw) {
      const auto bytes = static_cast<std::int32_t>(line.size());
      const Row room = out.room(2 * form.rows.line_bytes + 64);
      TQ_TRY(out.status());
      std::int32_t coded = lzw->encode(state.data(), line.data(), bytes, room.data());
      if (ends_strip) coded += lzw->end_encode(state.data(), room.data() + coded);
      out.take(coded);
    } else {
      out.put(line.pixels());
    }
    TQ_TRY(out.status());
    if (page.offset() > INT32_MAX) return StatusCode::write_failed;
    if (ends_strip) strips.end(page.offset());
  }
  return kOk;
}

Status write_fax(const EncodeRequest& request, const Form& form, PageWriter& page, Strips& strips) {
  const BitmapInfoHeader& header = request.image->header;
  formats::FaxStrip strip{.width = header.biWidth, .rows = header.biHeight};
  switch (request.variant()) {
    case kHuffman:
      strip.coding = {.scheme = ccitt::Scheme::huffman};
      break;
    case kGroup3:
      strip.coding = {.scheme = ccitt::Scheme::group3_1d, .byte_aligned = form.g3_fill};
      if (form.g3_k > 1) {
        strip.coding.scheme = ccitt::Scheme::group3_2d;
        strip.coding.k = form.g3_k;
      }
      break;
    default:
      strip.coding = {.scheme = ccitt::Scheme::group4, .end_of_block = true};
      break;
  }
  strips.begin(page.offset());
  TQ_TRY(formats::encode_fax_strip(page.out(), strip, request.rows));
  strips.end(page.offset());
  return kOk;
}

// A whole stream, which is the only strip.
Status write_jpeg(const EncodeRequest& request, PageWriter& page, Strips& strips) {
  JpegPicture picture(request);
  strips.begin(page.offset());
  TQ_TRY(page.give_stream());
  TQ_TRY(picture.write());
  TQ_TRY(page.take_stream());
  strips.end(page.offset());
  return kOk;
}

void describe(const EncodeRequest& request, const Place& place, const Form& form,
              std::int64_t rows_per_strip, const Strips& strips, DirectoryWriter& directory) {
  const BitmapInfoHeader& header = request.image->header;
  const auto coding = static_cast<Coding>(request.variant());
  const auto number = [](std::int64_t value) { return static_cast<std::uint32_t>(value); };
  const std::array<std::uint16_t, 4> bits = {word(form.bits), word(form.bits), word(form.bits),
                                             word(form.bits)};
  directory.add(kNewSubfileType, kLong, place.is_new() ? 0 : 2);
  directory.add(kImageWidth, kLong, number(header.biWidth));
  directory.add(kImageLength, kLong, number(header.biHeight));
  directory.add_shorts(kBitsPerSample, std::span(bits).first(form.samples));
  const bool modern = coding == kOldJpeg && form.modern_jpeg;
  directory.add(kCompression, kShort, modern ? kJpeg : coding);
  directory.add(kPhotometric, kShort, static_cast<std::uint32_t>(form.photometric));
  const bool fax = coding >= kHuffman && coding <= kGroup4;
  if (fax) directory.add(kFillOrder, kShort, 1);
  directory.add_longs(kStripOffsets, strips.offsets());
  directory.add(kOrientation, kShort, 1);
  directory.add(kSamplesPerPixel, kShort, number(form.samples));
  directory.add(kRowsPerStrip, kLong, number(rows_per_strip));
  directory.add_longs(kStripByteCounts, strips.byte_counts());
  const bool has_resolution = header.biXPelsPerMeter > 0 && header.biYPelsPerMeter > 0;
  if (has_resolution) {  // dots per inch; a unit alone would be taken for a resolution of 1
    directory.add_whole_rational(kXResolution, number(header.biXPelsPerMeter));
    directory.add_whole_rational(kYResolution, number(header.biYPelsPerMeter));
  }
  directory.add(kPlanarConfiguration, kShort, 1);
  if (coding == kGroup3) {
    constexpr std::uint32_t kTwoDimensional = 1, kFillBits = 4;
    directory.add(kT4Options, kLong,
                  (form.g3_k > 1 ? kTwoDimensional : 0) | (form.g3_fill ? kFillBits : 0));
  }
  if (coding == kGroup4) directory.add(kT6Options, kLong, 0);
  if (has_resolution) directory.add(kResolutionUnit, kShort, 2);
  const std::array<std::uint16_t, 2> page = {word(std::min(place.page, 0xFFFF)), 0};
  directory.add_shorts(kPageNumber, page);
  directory.add_text(kSoftware, "Tarnquill");
  if (form.differences) directory.add(kPredictor, kShort, 2);
  if (!form.palette.empty()) {
    std::array<std::uint16_t, 3 * 256> map;
    std::uint16_t* at = map.data();
    for (const auto channel : {&Rgb::red, &Rgb::green, &Rgb::blue}) {
      for (const Rgb& colour : form.palette) *at++ = word(colour.*channel * 257);
    }
    directory.add_shorts(kColorMap, std::span(map).first(3 * form.palette.size()));
  }
  if (form.samples == 4) directory.add(kInkSet, kShort, 1);
  if (coding == kOldJpeg) {
    constexpr std::uint32_t kBaseline = 1;
    if (!modern) {
      directory.add(kJpegProc, kShort, kBaseline);
      directory.add(kJpegInterchangeFormat, kLong, strips.offsets()[0]);
      directory.add(kJpegInterchangeFormatLength, kLong, strips.byte_counts()[0]);
    }
    if (form.samples == 3) {
      const std::array<std::uint16_t, 2> factors = {word(form.stream.h), word(form.stream.v)};
      directory.add_shorts(kYCbCrSubSampling, factors);
    }
  }
}

Status encode(const EncodeRequest& request, const img_strip_coder* lzw) {
  TQ_TRY(can_encode_tiff(request));
  Place place;
  TQ_TRY(find_place(request.stream, place));
  const BitmapInfoHeader& header = request.image->header;
  const auto coding = static_cast<Coding>(request.variant());
  const bool fax = coding >= kHuffman && coding <= kGroup4, in_jpeg = coding == kOldJpeg;
  Form form = preferred_form();
  if (in_jpeg) {
    TQ_TRY(choose_jpeg_form(request, form));
  } else {
    form = choose_form(request, place.big_endian);
  }
  const std::int64_t rows_per_strip =
      fax || in_jpeg
          ? header.biHeight
          : std::clamp<std::int64_t>(form.strip_bytes / form.rows.line_bytes, 1, header.biHeight);
  Strips strips;
  TQ_TRY(strips.open((header.biHeight + rows_per_strip - 1) / rows_per_strip));
  PageWriter page;
  TQ_TRY(page.open(request.stream, place));
  page.align();
  TQ_TRY(fax ? write_fax(request, form, page, strips)
         : in_jpeg
             ? write_jpeg(request, page, strips)
             : write_strips(request, form, place.big_endian, rows_per_strip, lzw, page, strips));
  DirectoryWriter directory(page);
  describe(request, place, form, rows_per_strip, strips, directory);
  const std::int64_t offset = directory.finish();
  TQ_TRY(page.out().status());
  if (page.offset() + place.start > INT32_MAX) return StatusCode::write_failed;
  return page.link(offset);
}

}  // namespace

Status can_encode_tiff(const EncodeRequest& request) {
  const int depth = request.image->header.biBitCount;
  const auto coding = static_cast<Coding>(request.variant());
  if (coding >= kHuffman && coding <= kGroup4) {
    return depth == 1 ? StatusCode::ok : StatusCode::wrong_depth;
  }
  if (coding == kOldJpeg) {
    Form form;
    return choose_jpeg_form(request, form);
  }
  return choose_form(request, false).rows.layout != nullptr ? StatusCode::ok
                                                            : StatusCode::wrong_depth;
}

Status can_append_tiff(StreamHandle stream) {
  const std::int32_t start = position(stream);
  Place place;
  const Status found = find_place(stream, place);
  const bool empty = place.is_new() && seek(stream, 0, Origin::end) == start;
  TQ_TRY(seek_to(stream, start));
  TQ_TRY(found);
  return !place.is_new() || empty ? StatusCode::ok : StatusCode::bad_image;
}

Status encode_tiff(const EncodeRequest& request) {
  if (request.variant() == kLzw) return plugin::encode_tiff_lzw(request);
  return encode(request, nullptr);
}

Status encode_tiff_with(const EncodeRequest& request, const img_strip_coder& lzw) {
  return encode(request, &lzw);
}

}  // namespace tq::tiff
