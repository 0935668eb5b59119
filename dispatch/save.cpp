// From an image and a file type code to an encoder, and a file that is whole or not there.
#include "dispatch/save.h"

#include <algorithm>

#include "dispatch/row_supplier.h"
#include "io/open_file.h"

namespace tq::dispatch {
namespace {

constexpr StreamHandle kNoFileYet{-1};

// What the encoder is told: the crop rectangle's geometry, the image's palette and transparency.
HeaderBlock header_for(const ImageRecord& image, StreamHandle stream, Supplier supplier) {
  HeaderBlock block{.header = header_of(image)};
  const std::span<const Rgb> palette = palette_of(image);
  std::copy(palette.begin(), palette.end(), block.palette.begin());
  block.header.biBitCount = static_cast<std::uint16_t>(image.bits);
  block.header.biWidth = image.crop.width;
  block.header.biHeight = image.crop.height;
  if (supplier == Supplier::plain && stream == kMemoryStream) block.header.biCompression = 0;
  if (image.has_transparent) {
    block.header.biClrUsed =
        kTransparent | (static_cast<std::uint32_t>(image.transparent_colour) & 0xFF);
  }
  return block;
}

// Everything that can be refused before a file is touched.
Status check_save(const ImageRecord& image, StreamHandle stream, std::int32_t code) {
  TQ_TRY(check_code(code));
  if (image.dib == nullptr) return StatusCode::out_of_memory;
  if (image.crop.width < 1 || image.crop.height < 1) return StatusCode::bad_image;
  const FileType& type = *find_code(code);
  if (type.can_encode == nullptr) return kOk;
  HeaderBlock header = header_for(image, stream, type.supplier);
  return type.can_encode({stream, &header, {}});
}

// What cannot take a page is found out before it is opened for writing, and left alone.
Status check_existing(const char* name, const FileType& type) {
  if (type.can_append == nullptr) return kOk;
  OpenFile file;
  TQ_TRY(file.open(name, OpenMode::update));
  return type.can_append(file.handle());
}

Status open_output(const char* name, std::int32_t code, OpenFile& file) {
  const FileType& type = *find_code(code);
  const bool appends = (type.traits & kMultiPage) != 0;
  const bool exists = appends && open_file(name, OpenMode::exists) >= 0;
  if (exists) TQ_TRY(check_existing(name, type));
  return file.open(name, exists ? OpenMode::update : OpenMode::create);
}

}  // namespace

Status check_code(std::int32_t code) {
  const FileType* type = find_code(code);
  if (type == nullptr || type->encode == nullptr) return StatusCode::unsupported;
  return type->available == nullptr ? kOk : type->available();
}

Status dispatch_save(StreamHandle stream, HeaderBlock& header, std::int32_t code,
                     const formats::RowSupplier& rows) {
  TQ_TRY(check_code(code));
  TQ_TRY(check_geometry(header.header));
  return find_code(code)->encode({stream, &header, rows});
}

namespace {

// What has been checked.
Status write_image(ImageHandle handle, StreamHandle stream, std::int32_t code) {
  const ImageRecord& image = image_record(handle);
  const Supplier kind = find_code(code)->supplier;
  ImageSupplier supplier(handle, image, kind);
  TQ_TRY(supplier.allocate());
  HeaderBlock header = header_for(image, stream, kind);
  return dispatch_save(stream, header, code, supplier.callback());
}

}  // namespace

Status save_image(ImageHandle handle, StreamHandle stream, std::int32_t code) {
  TQ_TRY(check_save(image_record(handle), stream, code));
  return write_image(handle, stream, code);
}

Status save_image_file(ImageHandle handle, const char* name, std::int32_t code) {
  if (name == nullptr) return StatusCode::cannot_open;
  if (code == IMG_TYPE_BY_NAME) code = code_for_name(name);
  TQ_TRY(check_save(image_record(handle), kNoFileYet, code));
  OpenFile file;
  const std::uint64_t serial = image_record(handle).serial;
  TQ_TRY(open_output(name, code, file));
  // A caller's own functions have looked at the existing file, and may have changed or deleted the
  // image.
  if (find_image(handle, serial) == nullptr) return StatusCode::bad_handle;
  TQ_TRY(check_save(image_record(handle), file.handle(), code));
  const Status saved = write_image(handle, file.handle(), code);
  file.close();
  if (saved.ok()) return kOk;
  remove_file(name);
  return saved;
}

}  // namespace tq::dispatch
