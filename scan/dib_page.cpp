// DIBs and files from a source become images.
#include "scan/dib_page.h"

#include <cstring>

#include "core/context.h"
#include "core/licence.h"
#include "dispatch/dispatch.h"
#include "scan/page_builder.h"

namespace tq::scan {
namespace {

// The page is decoded as others show it, whatever the caller has set for his own files; he hears
// nothing of it, so that he finds his settings when he is called.
class OwnDecoding {
 public:
  OwnDecoding()
      : settings_(context().settings), options_(context().options), streams_(context().streams) {
    Settings& settings = context().settings;
    settings.progress.on = false;
    settings.decomp_reduction = 0;
    settings.decomp_size = {};
    settings.decomp_rect = {};
    context().options.set(IMG_OPTION_READING, 1);
    context().options.set(IMG_OPTION_DETECTION, 1);  // headers of every length
    context().options.set(IMG_OPTION_ORIENTATION, 0);
    context().options.set(IMG_OPTION_STRICT, 0);
    StreamState& streams = context().streams;
    streams.read = nullptr;
    streams.write = nullptr;
    streams.seek = nullptr;
    streams.scrambled = false;
  }
  ~OwnDecoding() {
    context().settings = settings_;
    context().options = options_;
    context().streams = streams_;
  }
  OwnDecoding(const OwnDecoding&) = delete;
  OwnDecoding& operator=(const OwnDecoding&) = delete;

 private:
  Settings settings_;
  Options options_;
  StreamState streams_;
};

std::int32_t dots_per_inch(std::int32_t per_metre) {
  return (resolution_of_metres(per_metre, 0).x + 500) / 1000;
}

bool is_lighter(Rgb a, Rgb b) {
  return a.red + a.green + a.blue > b.red + b.green + b.blue;
}

// Rows of 1 bit into run lists.
Status build_mono(const std::uint8_t* dib, std::size_t size, const BitmapInfoHeader& header,
                  Resolution resolution) {
  const std::int64_t height = std::abs(std::int64_t{header.biHeight});
  const std::int64_t stride = row_bytes(header.biWidth, 1);
  const std::uint64_t start = std::uint64_t{header.biSize} + 8;
  if (header.biWidth < 1 || height < 1 || height > INT32_MAX) return StatusCode::bad_image;
  if (size != 0 && size < start + std::uint64_t(stride) * std::uint64_t(height)) {
    return StatusCode::bad_image;
  }
  Rgb colours[2];
  std::memcpy(colours, dib + header.biSize, sizeof colours);
  if (resolution.x == 0) {
    resolution = resolution_of_metres(header.biXPelsPerMeter, header.biYPelsPerMeter);
  }
  PageBuilder page;
  TQ_TRY(page.begin(
      {.samples = is_lighter(colours[0], colours[1]) ? Samples::black_bits : Samples::white_bits,
       .width = header.biWidth,
       .height = static_cast<std::int32_t>(height),
       .resolution = resolution}));
  for (std::int32_t y = 0; y < height; ++y) {
    const std::int64_t row = header.biHeight > 0 ? height - 1 - y : y;
    const std::uint8_t* const at = dib + start + static_cast<std::size_t>(row * stride);
    TQ_TRY(page.put_row(y, {at, static_cast<std::size_t>(stride)}));
  }
  return page.finish();
}

Status with_resolution(Status decoded, Resolution resolution) {
  if (decoded.ok()) set_page_resolution(image_record(ImageHandle{decoded.raw()}), resolution);
  return decoded;
}

}  // namespace

void set_page_resolution(ImageRecord& image, Resolution resolution) {
  if (resolution.x <= 0 || resolution.y <= 0) return;
  BitmapInfoHeader header = header_of(image);
  header.biXPelsPerMeter = (resolution.x + 500) / 1000;
  header.biYPelsPerMeter = (resolution.y + 500) / 1000;
  set_header(image, header);
  remember_resolution(image, resolution);
}

bool is_plain_dib(const void* dib, std::size_t size) {
  BitmapInfoHeader header;
  if (size < sizeof header) return false;
  std::memcpy(&header, dib, sizeof header);
  const int bits = header.biBitCount;
  const bool whole_palette = header.biClrUsed == 0 || header.biClrUsed == 256;
  return header.biSize == kDibHeaderBytes && header.biCompression == 0 &&
         (bits == 24 ? header.biClrUsed == 0 : bits == 8 && whole_palette) &&
         check_geometry(header).ok() && size >= dib_bytes(header.biWidth, header.biHeight, bits);
}

Status adopt_page(void* block, Resolution resolution) {
  TQ_TRY(check_licence());
  BitmapInfoHeader header;
  std::memcpy(&header, block, sizeof header);
  if (resolution.x == 0) {
    resolution = resolution_of_metres(header.biXPelsPerMeter, header.biYPelsPerMeter);
  }
  ImageSlot slot;
  TQ_TRY(slot.allocate());
  TQ_TRY(take_dib(slot.record(), block));
  header.biPlanes = 1;
  header.biClrUsed = 0;
  header.biSizeImage = image_bytes(header.biWidth, header.biHeight, header.biBitCount);
  header.biXPelsPerMeter = dots_per_inch(header.biXPelsPerMeter);
  header.biYPelsPerMeter = dots_per_inch(header.biYPelsPerMeter);
  set_header(slot.record(), header);
  set_page_resolution(slot.record(), resolution);
  return slot.keep();
}

Status decode_dib(const void* dib, std::size_t size, Resolution resolution) {
  BitmapInfoHeader header;
  if (dib == nullptr || (size != 0 && size < sizeof header)) return StatusCode::bad_image;
  std::memcpy(&header, dib, sizeof header);
  const bool is_mono = header.biBitCount == 1 && header.biCompression == 0 &&
                       header.biSize >= kDibHeaderBytes && header.biSize <= 124;
  if (is_mono) return build_mono(static_cast<const std::uint8_t*>(dib), size, header, resolution);
  const OwnDecoding decoding;
  const StreamWork work;
  if (size == 0) {
    open_memory_stream(const_cast<void*>(dib));
  } else {
    open_memory_stream(const_cast<void*>(dib), size);
  }
  return with_resolution(dispatch::decode_image(kMemoryStream, 0, 0), resolution);
}

Status decode_page_file(platform::FileName name, Resolution resolution) {
  const OwnDecoding decoding;
  OpenFile file;
  if (file.open(name, OpenMode::read).failed()) return StatusCode::read_failed;
  return with_resolution(dispatch::decode_image(file.handle(), 0, 0), resolution);
}

}  // namespace tq::scan
