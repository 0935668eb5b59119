// 1 bit becomes Group 4; the rest JPEG, or, without loss, filtered rows in a deflate stream.
#include "formats/pdf/writing/picture.h"

#include <algorithm>

#include "coding/deflate.h"
#include "coding/row_filters.h"
#include "formats/fax.h"
#include "formats/jpeg/jpeg.h"
#include "pixels/colours.h"
#include "pixels/rows.h"

namespace tq::pdf::writing {
namespace {

using formats::EncodeRequest;

constexpr int kDeflateLevel = 6;

bool same_colour(const Rgb& a, const Rgb& b) {
  return a.red == b.red && a.green == b.green && a.blue == b.blue;
}

// Palettes that nobody has filled are taken for black and white.
void choose_two_colours(const HeaderBlock& image, Form& form) {
  const std::span<const Rgb> colours = std::span(image.palette).first(2);
  const auto& [black, white] = pixels::black_and_white();
  form.space = Space::grey;
  if (same_colour(colours[0], colours[1])) return;
  if (same_colour(colours[0], black) && same_colour(colours[1], white)) return;
  form.inverted = same_colour(colours[0], white) && same_colour(colours[1], black);
  if (form.inverted) return;
  form.space = Space::indexed;
  form.palette = colours;
}

void choose_palette(const HeaderBlock& image, Form& form) {
  const std::span<const Rgb> colours = std::span(image.palette).first(std::size_t{1} << form.bits);
  form.space = pixels::is_grey_ramp(colours) ? Space::grey : Space::indexed;
  if (form.space == Space::indexed) form.palette = colours;
}

// What a JPEG coder is asked for. Pictures of 4 bits become ones of 8.
class JpegRequest {
 public:
  explicit JpegRequest(const EncodeRequest& request) : image_(*request.image), request_(request) {
    request_.image = &image_;
    request_.options.set(IMG_OPTION_JPEG_WRITING, 1);
    if (image_.header.biBitCount != 4) return;
    image_.header.biBitCount = 8;
    std::fill(image_.palette.begin() + 16, image_.palette.end(), Rgb{});
    rows_ = request.rows;
    request_.rows = {widen, this};
  }
  JpegRequest(const JpegRequest&) = delete;
  JpegRequest& operator=(const JpegRequest&) = delete;

  Status open() {
    return rows_.on_row == nullptr ? kOk : narrow_.allocate(row_bytes(image_.header.biWidth, 4));
  }
  const EncodeRequest& request() const { return request_; }

 private:
  static std::int32_t IMG_CB_C widen(void* context, void* dest, std::int32_t y,
                                     std::int32_t /*bytes*/) {
    const auto& self = *static_cast<JpegRequest*>(context);
    const Status given = self.rows_.row(self.narrow_.pixels(), y);
    if (given.failed()) return given.raw();
    auto* const row = static_cast<std::uint8_t*>(dest);
    pixels::for_each_index(self.narrow_.data(), 4, self.image_.header.biWidth,
                           [row](int x, int index) { row[x] = byte(index); });
    return 0;
  }

  HeaderBlock image_;
  EncodeRequest request_;
  formats::RowSupplier rows_;  // of 4 bits
  RowBuffer<std::uint8_t> narrow_;
};

Status choose_jpeg(const EncodeRequest& request, Form& form) {
  jpeg::StreamForm stream;
  TQ_TRY(jpeg::find_stream_form(JpegRequest(request).request(), stream));
  form.coding = Coding::jpeg;
  form.bits = 8;
  form.space = stream.components == 1   ? Space::grey
               : stream.components == 3 ? Space::rgb
                                        : Space::cmyk;
  form.inverted = form.space == Space::cmyk;
  return kOk;
}

Status write_jpeg(const EncodeRequest& request, StreamWriter& out, std::int64_t& beside) {
  JpegRequest jpeg(request);
  TQ_TRY(jpeg.open());
  TQ_TRY(out.flush());
  const std::int64_t start = position(request.stream);
  TQ_TRY(jpeg::encode_jpeg(jpeg.request()));
  beside = position(request.stream) - start;
  return start < 0 || beside < 0 ? StatusCode::write_failed : StatusCode::ok;
}

Status write_group4(const EncodeRequest& request, StreamWriter& out) {
  const BitmapInfoHeader& header = request.image->header;
  const formats::FaxStrip strip{
      .coding = {.end_of_block = true}, .width = header.biWidth, .rows = header.biHeight};
  return encode_fax_strip(out, strip, request.rows);
}

Status write_deflated(deflate::Encoder& coder, std::span<const std::uint8_t> bytes, bool last,
                      StreamWriter& out) {
  constexpr std::int64_t kRoom = 16384;
  do {
    const std::span<std::uint8_t> room = out.room(kRoom);
    TQ_TRY(out.status());
    out.take(coder.write(bytes, last, room));
  } while (!bytes.empty() || (last && !coder.has_ended()));
  return kOk;
}

Status write_png_rows(const EncodeRequest& request, const Form& form, StreamWriter& out) {
  const BitmapInfoHeader& header = request.image->header;
  const auto* const layout = pixels::find_layout(pixels::Layout::rgb, header.biBitCount);
  const std::int64_t stored_bytes =
      (std::int64_t{header.biWidth} * form.bits * form.components() + 7) / 8;
  RowBuffer<std::uint8_t> row, packed;
  TQ_TRY(row.allocate(row_bytes(header.biWidth, header.biBitCount)));
  if (layout != nullptr) TQ_TRY(packed.allocate(stored_bytes));
  coding::RowFilter filter;
  TQ_TRY(
      filter.open(stored_bytes, form.components(), form.space != Space::indexed && form.bits >= 8));
  deflate::Encoder coder;
  TQ_TRY(coder.start(kDeflateLevel));
  for (std::int32_t y = 0; y < header.biHeight; ++y) {
    TQ_TRY(request.rows.row(row.pixels(), y));
    if (layout != nullptr) pixels::pack(*layout, row.pixels(), header.biWidth, packed.pixels());
    const auto stored = layout != nullptr ? packed.pixels() : row.pixels();
    TQ_TRY(write_deflated(coder, filter.filter(stored), false, out));
  }
  return write_deflated(coder, {}, true, out);
}

}  // namespace

Status choose_form(const EncodeRequest& request, Form& form) {
  const BitmapInfoHeader& header = request.image->header;
  const int bits = header.biBitCount;
  const bool lossless = request.options.get(IMG_OPTION_PDF_LOSSLESS) == 1;
  form = {.width = header.biWidth, .height = header.biHeight, .bits = bits};
  if (bits == 1) {
    form.coding = Coding::group4;
    choose_two_colours(*request.image, form);
    return kOk;
  }
  if (!lossless || (bits == 32 && request.cmyk)) return choose_jpeg(request, form);
  form.coding = Coding::png_rows;
  switch (bits) {
    case 4:
    case 8:
      choose_palette(*request.image, form);
      break;
    case 24:
    case 32:
      form.bits = 8;
      form.space = Space::rgb;
      break;
    default:
      return StatusCode::wrong_depth;
  }
  return deflate::is_available();
}

Status write_data(const EncodeRequest& request, const Form& form, StreamWriter& out,
                  std::int64_t& beside) {
  beside = 0;
  switch (form.coding) {
    case Coding::group4:
      return write_group4(request, out);
    case Coding::jpeg:
      return write_jpeg(request, out, beside);
    case Coding::png_rows:
      break;
  }
  return write_png_rows(request, form, out);
}

}  // namespace tq::pdf::writing
