// Pages to files: data, then their directory, then the link to it.
#include "coding/differences.h"
#include "formats/jpeg/jpeg.h"
#include "formats/plugin/plugin.h"
#include "formats/rows.h"
#include "formats/stored.h"
#include "formats/tiff/append.h"
#include "formats/tiff/rows.h"
#include "formats/tiff/tiff.h"
#include "pixels/colours.h"

namespace tq::tiff {
namespace {

using formats::EncodeRequest;
using pixels::find_layout;
using pixels::Layout;

constexpr std::int64_t kStripBytes = 65536;  // of samples, about, where no option says more

// How a page is stored.
struct Form {
  Coding coding = kUncoded;
  bool big_endian = false;
  std::int64_t strip_rows = 0;
  std::int32_t g3_k = 0;
  bool g3_fill = false;
  bool modern_jpeg = false;
  Photometric photometric = Photometric::black_is_zero;
  int bits = 1, samples = 1;
  bool differences = false;
  std::span<const Rgb> palette{};
  formats::StoredRows rows{};
  jpeg::StreamForm stream{};
  int orientation = 1;
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
  form.strip_rows = request.image->header.biHeight;
  form.modern_jpeg = request.options.get(IMG_OPTION_TIFF_JPEG) == kJpeg;
  return kOk;
}

Status choose_fax_form(const EncodeRequest& request, Form& form) {
  if (request.image->header.biBitCount != 1) return StatusCode::wrong_depth;
  form.photometric = Photometric::white_is_zero;
  form.strip_rows = request.image->header.biHeight;
  form.g3_k = request.options.get(IMG_OPTION_TIFF_G3_K);
  form.g3_fill = request.options.get(IMG_OPTION_TIFF_G3_FILL) == 1;
  return kOk;
}

Layout choose_layout(const EncodeRequest& request, Form& form) {
  const int depth = request.image->header.biBitCount;
  switch (depth) {
    case 1:
      if (request.options.get(IMG_OPTION_TIFF_PHOTOMETRIC) != 1) return Layout::bits_1;
      form.photometric = Photometric::white_is_zero;
      return Layout::bits_1_black;
    case 4:
    case 8: {
      const auto palette = std::span(request.image->palette).first(std::size_t{1} << depth);
      if (!pixels::is_grey_ramp(palette)) {
        form.photometric = Photometric::palette;
        form.palette = palette;
      }
      return depth == 4 ? Layout::bits_4 : Layout::bytes;
    }
    case 16:
      return form.big_endian ? Layout::grey16_be : Layout::grey16_le;
    default:
      form.photometric = request.cmyk && depth == 32 ? Photometric::separated : Photometric::rgb;
      form.samples = form.photometric == Photometric::separated ? 4 : 3;
      return form.samples == 4 ? Layout::cmyk : Layout::rgb;
  }
}

// wrong_depth, or what the encoder of JPEG says, for what the coding cannot hold.
Status choose_form(const EncodeRequest& request, bool big_endian, Form& form) {
  const BitmapInfoHeader& header = request.image->header;
  form = {.coding = static_cast<Coding>(request.variant()), .big_endian = big_endian};
  if (form.coding == kOldJpeg) return choose_jpeg_form(request, form);
  if (is_fax(form.coding)) return choose_fax_form(request, form);
  form.rows.layout = find_layout(choose_layout(request, form), header.biBitCount);
  if (form.rows.layout == nullptr) return StatusCode::wrong_depth;
  form.rows.line_bytes = stored_bytes(*form.rows.layout, header.biWidth);
  form.bits = header.biBitCount <= 16 ? header.biBitCount : 8;
  form.differences = form.coding == kLzw && form.bits >= 8 && form.palette.empty() &&
                     request.options.get(IMG_OPTION_TIFF_PREDICTOR) == 0;
  const std::int32_t wanted = request.options.get(IMG_OPTION_TIFF_STRIP_BYTES);
  form.strip_rows = std::clamp<std::int64_t>(
      (wanted == 0 ? kStripBytes : wanted) / form.rows.line_bytes, 1, header.biHeight);
  return kOk;
}

// Rows one by one, each strip by itself.
Status write_strips(const EncodeRequest& request, const Form& form, const img_strip_coder* lzw,
                    PageWriter& page, Strips& strips) {
  const BitmapInfoHeader& header = request.image->header;
  const coding::SampleForm samples{form.bits, form.samples, form.big_endian};
  RowBuffer<std::uint8_t> row, line;
  TQ_TRY(row.allocate(row_bytes(header.biWidth, header.biBitCount)));
  TQ_TRY(line.allocate(form.rows.line_bytes));
  GlobalBlock state;
  if (form.coding == kLzw) TQ_TRY(state.allocate(lzw->encoder_bytes));
  StreamWriter& out = page.out();
  const auto write = [&](std::int32_t y, Status /*supplied*/) -> Status {
    const bool ends_strip = (y + 1) % form.strip_rows == 0 || y + 1 == header.biHeight;
    if (y % form.strip_rows == 0) {
      page.align();
      strips.begin(page.offset());
      if (form.coding == kLzw) lzw->begin_encode(state.data());
    }
    pack(*form.rows.layout, row.pixels(), header.biWidth, line.pixels());
    if (form.differences) coding::take_differences(samples, line.pixels());
    if (form.coding == kPackBits) {
      const Row room = out.room(packbits::most_bytes(form.rows.line_bytes));
      if (!room.empty()) out.take(packbits::encode(line.pixels(), room.data()) - room.data());
    } else if (form.coding == kLzw) {
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
    return kOk;
  };
  return request.rows.each(row.pixels(), header.biHeight, write);
}

Status write_fax(const EncodeRequest& request, const Form& form, PageWriter& page, Strips& strips) {
  const BitmapInfoHeader& header = request.image->header;
  formats::FaxStrip strip{.width = header.biWidth, .rows = header.biHeight};
  switch (form.coding) {
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
              const Strips& strips, DirectoryWriter& directory) {
  const BitmapInfoHeader& header = request.image->header;
  const auto number = [](std::int64_t value) { return static_cast<std::uint32_t>(value); };
  const std::array<std::uint16_t, 4> bits = {word(form.bits), word(form.bits), word(form.bits),
                                             word(form.bits)};
  directory.add(kNewSubfileType, IMG_TIFF_LONG, place.is_new() ? 0 : 2);
  directory.add(kImageWidth, IMG_TIFF_LONG, number(header.biWidth));
  directory.add(kImageLength, IMG_TIFF_LONG, number(header.biHeight));
  directory.add_shorts(kBitsPerSample, std::span(bits).first(form.samples));
  directory.add(kCompression, IMG_TIFF_SHORT, form.modern_jpeg ? kJpeg : form.coding);
  directory.add(kPhotometric, IMG_TIFF_SHORT, static_cast<std::uint32_t>(form.photometric));
  if (is_fax(form.coding)) directory.add(kFillOrder, IMG_TIFF_SHORT, 1);
  directory.add_longs(kStripOffsets, strips.offsets());
  directory.add(kOrientation, IMG_TIFF_SHORT, number(form.orientation));
  directory.add(kSamplesPerPixel, IMG_TIFF_SHORT, number(form.samples));
  directory.add(kRowsPerStrip, IMG_TIFF_LONG, number(form.strip_rows));
  directory.add_longs(kStripByteCounts, strips.byte_counts());
  const bool has_resolution = header.biXPelsPerMeter > 0 && header.biYPelsPerMeter > 0;
  if (has_resolution) {  // dots per inch; a unit alone would be taken for a resolution of 1
    const auto add = [&](Tag tag, std::int32_t thousandths, std::int32_t dots) {
      const bool in_parts = request.is_exact() && thousandths % 1000 != 0;
      directory.add_rational(tag, number(in_parts ? thousandths : dots), in_parts ? 1000 : 1);
    };
    add(kXResolution, request.resolution.x, header.biXPelsPerMeter);
    add(kYResolution, request.resolution.y, header.biYPelsPerMeter);
  }
  directory.add(kPlanarConfiguration, IMG_TIFF_SHORT, 1);
  if (form.coding == kGroup3) {
    constexpr std::uint32_t kTwoDimensional = 1, kFillBits = 4;
    directory.add(kT4Options, IMG_TIFF_LONG,
                  (form.g3_k > 1 ? kTwoDimensional : 0) | (form.g3_fill ? kFillBits : 0));
  }
  if (form.coding == kGroup4) directory.add(kT6Options, IMG_TIFF_LONG, 0);
  if (has_resolution) directory.add(kResolutionUnit, IMG_TIFF_SHORT, 2);
  const std::array<std::uint16_t, 2> page = {word(std::min(place.page, 0xFFFF)), 0};
  directory.add_shorts(kPageNumber, page);
  directory.add_text(kSoftware, "Tarnquill");
  if (form.differences) directory.add(kPredictor, IMG_TIFF_SHORT, 2);
  if (!form.palette.empty()) {
    std::array<std::uint16_t, 3 * 256> map;
    std::uint16_t* at = map.data();
    for (const auto channel : {&Rgb::red, &Rgb::green, &Rgb::blue}) {
      for (const Rgb& colour : form.palette) *at++ = word(colour.*channel * 257);
    }
    directory.add_shorts(kColorMap, std::span(map).first(3 * form.palette.size()));
  }
  if (form.samples == 4) directory.add(kInkSet, IMG_TIFF_SHORT, 1);
  if (form.coding == kOldJpeg) {
    constexpr std::uint32_t kBaseline = 1;
    if (!form.modern_jpeg) {
      directory.add(kJpegProc, IMG_TIFF_SHORT, kBaseline);
      directory.add(kJpegInterchangeFormat, IMG_TIFF_LONG, strips.offsets()[0]);
      directory.add(kJpegInterchangeFormatLength, IMG_TIFF_LONG, strips.byte_counts()[0]);
    }
    if (form.samples == 3) {
      const std::array<std::uint16_t, 2> factors = {word(form.stream.h), word(form.stream.v)};
      directory.add_shorts(kYCbCrSubSampling, factors);
    }
  }
}

// The data, by `write(page, strips)`; then what says where they are.
template <class Write>
Status write_page(const EncodeRequest& request, const Place& place, const Form& form,
                  Write&& write) {
  const BitmapInfoHeader& header = request.image->header;
  Strips strips;
  TQ_TRY(strips.open((header.biHeight + form.strip_rows - 1) / form.strip_rows));
  PageWriter page;
  TQ_TRY(page.open(request.stream, place));
  page.align();
  TQ_TRY(write(page, strips));
  DirectoryWriter directory(page);
  describe(request, place, form, strips, directory);
  const std::int64_t offset = directory.finish();
  TQ_TRY(page.out().status());
  if (page.offset() + place.start > INT32_MAX) return StatusCode::write_failed;
  return page.link(offset, request.is_safe());
}

Status encode(const EncodeRequest& request, const img_strip_coder* lzw) {
  TQ_TRY(can_encode_tiff(request));  // before the stream is looked at
  Place place;
  TQ_TRY(find_place(request.stream, request.options, request.place, place));
  Form form;
  TQ_TRY(choose_form(request, place.big_endian, form));
  return write_page(request, place, form, [&](PageWriter& page, Strips& strips) {
    return is_fax(form.coding)       ? write_fax(request, form, page, strips)
           : form.coding == kOldJpeg ? write_jpeg(request, page, strips)
                                     : write_strips(request, form, lzw, page, strips);
  });
}

// What a page of one strip says about data that are coded already.
Status choose_stored_form(const EncodeRequest& request, const formats::StoredPicture& stored,
                          Form& form) {
  form = {.coding = static_cast<Coding>(request.variant()),
          .strip_rows = stored.height,
          .bits = stored.bits,
          .samples = stored.components,
          .stream = {stored.components, stored.h, stored.v},
          .orientation = stored.orientation};
  using Coded = formats::StoredPicture::Coding;
  if (form.coding == kGroup4 && stored.coding == Coded::group4) {
    form.photometric = stored.inverted ? Photometric::black_is_zero : Photometric::white_is_zero;
    return kOk;
  }
  form.modern_jpeg = request.options.get(IMG_OPTION_TIFF_JPEG) == kJpeg;
  // Readers take three components for YCbCr with factors of the first alone; inks may be inverted.
  const bool is_plain = stored.components == 1 || (stored.components == 3 && !stored.is_rgb &&
                                                   stored.h > 0 && stored.h != 3 && stored.v != 3);
  const bool fits = stored.is_baseline || form.modern_jpeg;
  form.photometric = stored.components == 1 ? Photometric::black_is_zero : Photometric::ycbcr;
  const bool is_jpeg = form.coding == kOldJpeg && stored.coding == Coded::jpeg;
  return is_jpeg && is_plain && fits ? StatusCode::ok : StatusCode::unsupported;
}

}  // namespace

Status can_encode_tiff(const EncodeRequest& request) {
  Form form;
  return choose_form(request, false, form);
}

Status can_store_tiff(const EncodeRequest& request, const formats::StoredPicture& stored) {
  Form form;
  return choose_stored_form(request, stored, form);
}

Status encode_stored_tiff(const EncodeRequest& request, const formats::StoredPicture& stored) {
  Place place;
  TQ_TRY(find_place(request.stream, request.options, request.place, place));
  Form form;
  TQ_TRY(choose_stored_form(request, stored, form));
  form.big_endian = place.big_endian;
  return write_page(request, place, form, [&](PageWriter& page, Strips& strips) {
    strips.begin(page.offset());
    TQ_TRY(copy_stored(stored, page.out()));
    strips.end(page.offset());
    return page.offset() > INT32_MAX ? Status(StatusCode::write_failed) : kOk;
  });
}

Status encode_tiff(const EncodeRequest& request) {
  if (request.variant() == kLzw) return plugin::encode_tiff_lzw(request);
  return encode(request, nullptr);
}

Status encode_tiff_with(const EncodeRequest& request, const img_strip_coder& lzw) {
  return encode(request, &lzw);
}

}  // namespace tq::tiff
