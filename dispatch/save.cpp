// From an image and a file type code to an encoder, and a file that is whole or not there.
#include <algorithm>

#include "core/context.h"
#include "core/numbers.h"
#include "dispatch/dispatch.h"
#include "dispatch/output.h"
#include "dispatch/row_supplier.h"
#include "io/byte_stream.h"
#include "pixels/tone_table.h"

namespace tq::dispatch {
namespace {

constexpr StreamHandle kNoFileYet{-1};

// The row of a code that can be saved now: unsupported, or a missing module's status.
Status find_encoder(std::int32_t code, const FileType*& type) {
  type = find_code(code);
  if (type == nullptr || type->encode == nullptr) return StatusCode::unsupported;
  return type->available == nullptr ? kOk : type->available();
}

bool is_cmyk(const BitmapInfoHeader& header) {
  return header.biBitCount == 32 && header.biCompression != kRgb32;
}

// What the encoder is told: the crop rectangle's geometry, the image's palette and transparency.
HeaderBlock header_for(const ImageRecord& image) {
  HeaderBlock block{.header = header_of(image)};
  const std::span<const Rgb> palette = palette_of(image);
  std::copy(palette.begin(), palette.end(), block.palette.begin());
  if (image.brightness != 0 || image.contrast != 0) {
    const auto tone = pixels::tone_table(image.brightness, image.contrast, 100);
    for (Rgb& entry : std::span(block.palette).first(palette.size())) {
      entry = {tone[entry.blue], tone[entry.green], tone[entry.red], entry.reserved};
    }
  }
  block.header.biBitCount = word(image.bits);
  block.header.biWidth = image.crop.width;
  block.header.biHeight = image.crop.height;
  if (image.has_transparent) {
    block.header.biClrUsed = kTransparent | byte(image.transparent_colour);
  }
  return block;
}

// Everything that can be refused before a file is touched; the header that the encoder is told.
Status check_image(const ImageRecord& image, StreamHandle stream, const FileType& type,
                   const Options& options, HeaderBlock& header) {
  if (image.dib == nullptr) return StatusCode::out_of_memory;
  if (image.crop.width < 1 || image.crop.height < 1) return StatusCode::bad_image;
  header = header_for(image);
  if (type.can_encode == nullptr) return kOk;
  return type.can_encode({stream, &header, {}, &type, is_cmyk(header.header), {}, options});
}

// What has been checked.
Status encode_image(ImageHandle handle, StreamHandle stream, const FileType& type,
                    HeaderBlock& header, const Options& options,
                    const formats::AppendPlace& place = {}) {
  ImageSupplier supplier(handle, image_record(handle), type.supplier);
  TQ_TRY(supplier.allocate());
  TQ_TRY(check_geometry(header.header));
  const bool cmyk = is_cmyk(header.header);
  // In memory the mark of the pixels is not passed on: encoders of modules rely on this.
  if (type.supplier == Supplier::plain && stream == kMemoryStream) header.header.biCompression = 0;
  const Resolution resolution = resolution_of(image_record(handle));
  return type.encode({stream, &header, supplier.callback(), &type, cmyk, place, options, resolution,
                      &context().texts});
}

}  // namespace

Status dispatch_save(StreamHandle stream, HeaderBlock& header, std::int32_t code,
                     const formats::RowSupplier& rows) {
  const FileType* type = nullptr;
  TQ_TRY(find_encoder(code, type));
  TQ_TRY(check_geometry(header.header));
  return type->encode({stream,
                       &header,
                       rows,
                       type,
                       is_cmyk(header.header),
                       {},
                       context().options,
                       resolution_of(header.header),
                       &context().texts});
}

Status save_image(ImageHandle handle, StreamHandle stream, std::int32_t code) {
  const FileType* type = nullptr;
  HeaderBlock header;
  TQ_TRY(find_encoder(code, type));
  const Options options = context().options;
  TQ_TRY(check_image(image_record(handle), stream, *type, options, header));
  return encode_image(handle, stream, *type, header, options);
}

std::int32_t code_to_save(const char* name, std::int32_t code) {
  if (code != IMG_TYPE_BY_NAME) return code;
  const bool whole = context().options.get(IMG_OPTION_DETECTION) == 1;
  return whole ? code_for_whole_ending(name) : code_for_name(name);
}

Status save_image_file(ImageHandle handle, const char* name, std::int32_t code) {
  if (name == nullptr) return StatusCode::cannot_open;
  code = code_to_save(name, code);
  const FileType* type = nullptr;
  HeaderBlock header;
  TQ_TRY(find_encoder(code, type));
  const Options options = context().options;
  TQ_TRY(check_image(image_record(handle), kNoFileYet, *type, options, header));
  const std::uint64_t serial = image_record(handle).serial;
  const bool safe = options.get(IMG_OPTION_SAFE_SAVING) == 1;
  Output output(file_name(name), safe);
  formats::AppendPlace place{.over_debris = safe, .options = options};
  TQ_TRY(output.open(*type, place));
  // A caller's own functions have looked at the existing file, and may have changed or deleted the
  // image.
  if (find_image(handle, serial) == nullptr) return StatusCode::bad_handle;
  TQ_TRY(check_image(image_record(handle), output.handle(), *type, options, header));
  Status saved = kOk;
  {
    const OwnFile own(output.handle());
    saved = encode_image(handle, output.handle(), *type, header, options, place);
  }
  saved = output.close(saved);
  return saved.ok() ? kOk : saved;
}

}  // namespace tq::dispatch
