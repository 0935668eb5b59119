// Exports on images: creation, deletion, queries, crop rectangle, display values, pixels, palettes.
#include <cstring>

#include "api/abi.h"
#include "core/context.h"
#include "core/image_create.h"
#include "core/rows.h"
#include "core/run_storage.h"
#include "include/tarnquill.h"
#include "platform/device_bitmap.h"
#include "show/dib_copy.h"

using tq::ImageRecord;
using tq::kOk;
using tq::Status;
using tq::StatusCode;
using tq::api::change_pixels;
using tq::api::made;
using tq::api::with_image;
using tq::api::with_pixels;

namespace {

void store_rect(const tq::Rect& rect, std::int32_t* x, std::int32_t* y, std::int32_t* width,
                std::int32_t* height) {
  tq::api::store(x, rect.x);
  tq::api::store(y, rect.y);
  tq::api::store(width, rect.width);
  tq::api::store(height, rect.height);
}

// Reaching the right or bottom edge costs the last column or row; callers rely on it.
tq::Rect clamp_crop(const ImageRecord& image, tq::Rect crop) {
  if (crop.x < 0 || crop.x >= image.width) crop.x = 0;
  if (crop.y < 0 || crop.y >= image.height) crop.y = 0;
  if (crop.width < 1) crop.width = 1;
  if (crop.height < 1) crop.height = 1;
  if (std::int64_t{crop.y} + crop.height >= image.height) crop.height = image.height - crop.y - 1;
  if (std::int64_t{crop.x} + crop.width >= image.width) crop.width = image.width - crop.x - 1;
  return crop;
}

std::size_t palette_size(const ImageRecord& image) {
  return tq::palette_of(image).size_bytes();
}

std::int32_t palette_entries(const ImageRecord& image) {
  return static_cast<std::int32_t>(tq::palette_of(image).size());
}

Status create_from_device(tq::ImageSlot& slot, void* bitmap) {
  tq::platform::DeviceBitmap found;
  if (!tq::platform::query_device_bitmap(bitmap, found)) return StatusCode::no_device_bitmap;
  const tq::HeaderBlock header =
      tq::dib_header(found.width, found.height, found.monochrome ? 1 : 24);
  TQ_TRY(slot.allocate());
  TQ_TRY(tq::create_shell(slot.record(), &header));
  ImageRecord& image = slot.record();
  if (!tq::platform::read_device_bitmap(bitmap, image.height, image.dib, tq::pixels_of(image))) {
    return StatusCode::no_device_bitmap;
  }
  return slot.keep();
}

// The display callback may have been quicker.
std::int32_t delete_image(std::int32_t image, Status (*free)(tq::ImageHandle)) {
  const tq::ImageHandle handle{image};
  if (tq::validate_image_handle(handle).ok()) tq::report_image(image, tq::ImageEvent::going);
  return free(handle).raw();
}

// 1 when there is some, 0, or a status; that of the last decode for -1.
std::int32_t find_damage(std::int32_t image, tq::Damage& damage) {
  damage = tq::context().last_damage;
  if (image != -1) {
    const std::int32_t found = with_image(image, [&](ImageRecord& record) {
      damage = record.damage;
      return kOk;
    });
    if (found < 0) return found;
  }
  return damage.reason == StatusCode::ok ? 0 : 1;
}

}  // namespace

std::int32_t IMG_CALL IMG_create_handle_keep(void* packed_dib) {
  const tq::Serialised serialised;
  if (packed_dib == nullptr) return IMG_BAD_IMAGE;
  const Status slot = tq::allocate_image_slot();
  if (slot.failed()) return slot.raw();
  const tq::ImageHandle handle{slot.raw()};
  const Status adopted = tq::adopt_dib(tq::image_record(handle), packed_dib);
  // After bad_image the handle stays allocated, without pixels; callers may delete it.
  if (adopted == StatusCode::out_of_memory) (void)tq::free_image_slot(handle);
  return made(adopted.failed() ? adopted.raw() : slot.raw());
}

std::int32_t IMG_CALL IMG_create_handle_shell(const void* header) {
  const tq::Serialised serialised;
  if (header == nullptr) return IMG_BAD_IMAGE;
  tq::ImageSlot slot;
  Status result = slot.allocate();
  if (result.ok()) result = tq::create_shell(slot.record(), header);
  return made(result.failed() ? result.raw() : slot.keep().raw());
}

std::int32_t IMG_CALL IMG_create_handle_ddb(void* bitmap) {
  const tq::Serialised serialised;
  tq::ImageSlot slot;
  return made(create_from_device(slot, bitmap).raw());
}

std::int32_t IMG_CALL IMG_delete_bitmap(std::int32_t image) {
  const tq::Serialised serialised;
  return delete_image(image, tq::free_image_slot);
}

std::int32_t IMG_CALL IMG_delete_bitmap_keep(std::int32_t image) {
  const tq::Serialised serialised;
  return delete_image(image, tq::free_image_slot_keep);
}

std::intptr_t IMG_CALL IMG_bitmap_info(std::int32_t image, std::int32_t* width,
                                       std::int32_t* height, std::int32_t* bits) {
  std::intptr_t address = 0;
  const std::int32_t result = with_pixels(image, [&](ImageRecord& record) {
    const tq::BitmapInfoHeader header = tq::header_of(record);
    tq::api::store(width, header.biWidth);
    tq::api::store(height, header.biHeight);
    tq::api::store(bits, std::int32_t{header.biBitCount});
    address = reinterpret_cast<std::intptr_t>(record.dib);
    return kOk;
  });
  return result < 0 ? result : address;
}

std::int32_t IMG_CALL IMGLOW_get_bitmap_header(std::int32_t image, void* out) {
  return with_pixels(image, [&](ImageRecord& record) {
    if (out != nullptr) std::memcpy(out, record.dib, tq::kDibHeaderBytes + palette_size(record));
    return kOk;
  });
}

std::int32_t IMG_CALL IMG_get_damage(std::int32_t image, std::int32_t* rows, std::int32_t* reason) {
  tq::Damage damage;
  const std::int32_t found = find_damage(image, damage);
  if (found < 0) return found;
  tq::api::store(rows, damage.rows);
  tq::api::store(reason, static_cast<std::int32_t>(damage.reason));
  return found;
}

std::int32_t IMG_CALL IMG_get_damaged_rows(std::int32_t image, std::int32_t* first,
                                           std::int32_t* last, std::int32_t* height) {
  tq::Damage damage;
  const std::int32_t found = find_damage(image, damage);
  if (found < 0) return found;
  tq::api::store(first, damage.lost.first);
  tq::api::store(last, damage.lost.last);
  tq::api::store(height, damage.height);
  return found;
}

std::int32_t IMG_CALL IMG_get_resolution(std::int32_t image, std::int32_t* x, std::int32_t* y) {
  return with_pixels(image, [&](ImageRecord& record) {
    const tq::Resolution resolution = tq::resolution_of(record);
    tq::api::store(x, resolution.x);
    tq::api::store(y, resolution.y);
    return kOk;
  });
}

std::int32_t IMG_CALL IMG_set_resolution(std::int32_t image, std::int32_t x, std::int32_t y) {
  constexpr std::int32_t kMost = 65535000;
  if (x < 0 || y < 0 || x > kMost || y > kMost) return IMG_UNSUPPORTED;
  return with_pixels(image, [&](ImageRecord& record) {
    tq::release_display_cache(record);
    tq::BitmapInfoHeader header = tq::header_of(record);
    header.biXPelsPerMeter = (x + 500) / 1000;
    header.biYPelsPerMeter = (y + 500) / 1000;
    tq::set_header(record, header);
    tq::remember_resolution(record, {x, y});
    return kOk;
  });
}

std::int32_t IMG_CALL IMG_copy_dib(std::int32_t image, void* out, std::size_t size) {
  return with_pixels(image, [&](ImageRecord& record) -> Status {
    if (record.crop.width < 1 || record.crop.height < 1) return StatusCode::bad_image;
    const std::uint64_t bytes = tq::show::dib_copy_bytes(record);
    if (bytes > INT32_MAX) return StatusCode::out_of_memory;
    if (out != nullptr && size >= bytes) {
      TQ_TRY(tq::show::copy_dib(record, static_cast<std::uint8_t*>(out)));
    }
    return Status::from_raw(static_cast<std::int32_t>(bytes));
  });
}

std::int32_t IMG_CALL IMG_get_croprect(std::int32_t image, std::int32_t* x, std::int32_t* y,
                                       std::int32_t* width, std::int32_t* height) {
  return with_image(image, [&](ImageRecord& record) {
    store_rect(record.crop, x, y, width, height);
    return kOk;
  });
}

std::int32_t IMG_CALL IMG_set_croprect(std::int32_t image, std::int32_t x, std::int32_t y,
                                       std::int32_t width, std::int32_t height) {
  return with_image(image, [&](ImageRecord& record) {
    record.crop = clamp_crop(record, {x, y, width, height});
    return kOk;
  });
}

std::int32_t IMG_CALL IMGLOW_get_display_rect(std::int32_t image, std::int32_t* x, std::int32_t* y,
                                              std::int32_t* width, std::int32_t* height) {
  return with_image(image, [&](ImageRecord& record) {
    store_rect(record.display, x, y, width, height);
    return kOk;
  });
}

std::int32_t IMG_CALL IMG_set_gamma(std::int32_t image, std::int32_t value) {
  return with_image(image, [&](ImageRecord& record) {
    record.gamma = value;
    record.gamma_is_set = true;
    return kOk;
  });
}

std::int32_t IMG_CALL IMG_set_display_tone(std::int32_t image, std::int32_t brightness,
                                           std::int32_t contrast) {
  const auto is_known = [](std::int32_t value) { return value >= -100 && value <= 100; };
  return with_image(image, [&](ImageRecord& record) -> Status {
    if (!is_known(brightness) || !is_known(contrast)) return StatusCode::unsupported;
    record.brightness = brightness;
    record.contrast = contrast;
    return kOk;
  });
}

std::int32_t IMG_CALL IMGLOW_set_rop(std::int32_t image, std::int32_t rop) {
  return with_image(image, [&](ImageRecord& record) {
    record.raster_operation = rop;
    return kOk;
  });
}

std::int32_t IMG_CALL IMG_set_display_angle(std::int32_t image, std::int32_t degrees) {
  return with_image(image, [&](ImageRecord& record) -> Status {
    if (degrees != 0 && degrees != 90 && degrees != 180 && degrees != 270) {
      return StatusCode::unsupported;
    }
    record.display_angle = degrees;
    return kOk;
  });
}

std::int32_t IMG_CALL IMGLOW_set_transp_color(std::int32_t image, std::int32_t index) {
  return with_image(image, [&](ImageRecord& record) {
    record.transparent_colour = index;
    record.has_transparent = true;
    return kOk;
  });
}

std::int32_t IMG_CALL IMGLOW_get_transp_color(std::int32_t image) {
  return with_image(image, [](ImageRecord& record) -> Status {
    if (!record.has_transparent) return StatusCode::no_transparency;
    return Status::from_raw(record.transparent_colour & 255);
  });
}

std::int32_t IMG_CALL IMGLOW_get_raster(std::int32_t image, void* out, std::int32_t row,
                                        std::int32_t bytes) {
  return with_pixels(image, [&](ImageRecord& record) -> Status {
    if (out == nullptr) return StatusCode::unsupported;
    return tq::get_raster(record, static_cast<std::uint8_t*>(out), row, bytes);
  });
}

std::int32_t IMG_CALL IMGLOW_put_raster(std::int32_t image, const void* in, std::int32_t row,
                                        std::int32_t bytes) {
  return change_pixels(image, [&](ImageRecord& record) -> Status {
    if (in == nullptr) return StatusCode::unsupported;
    return tq::put_raster(record, static_cast<const std::uint8_t*>(in), row, bytes);
  });
}

std::int32_t IMG_CALL IMGLOW_get_palette(std::int32_t image, void* out) {
  return with_pixels(image, [&](ImageRecord& record) {
    if (out != nullptr) std::memcpy(out, tq::palette_of(record).data(), palette_size(record));
    return kOk;
  });
}

std::int32_t IMG_CALL IMGLOW_put_palette(std::int32_t image, const void* in) {
  return change_pixels(image, [&](ImageRecord& record) {
    if (in != nullptr) std::memcpy(tq::palette_of(record).data(), in, palette_size(record));
    return kOk;
  });
}

std::int32_t IMG_CALL IMG_bitmap_palette(std::int32_t image) {
  return with_pixels(image,
                     [](ImageRecord& record) { return Status::from_raw(palette_entries(record)); });
}

std::int32_t IMG_CALL IMG_get_bitmap_palette(std::int32_t image, void* out) {
  const std::int32_t copied = IMGLOW_get_palette(image, out);
  return copied < 0 ? copied : IMG_bitmap_palette(image);
}

std::int32_t IMG_CALL IMG_runs_to_dib(std::int32_t image) {
  return with_pixels(image, [](ImageRecord& record) {
    tq::release_display_cache(record);
    return tq::runs_to_dib(record);
  });
}

std::int32_t IMG_CALL IMG_dib_to_runs(std::int32_t image) {
  return with_pixels(image, [](ImageRecord& record) {
    tq::release_display_cache(record);
    return tq::dib_to_runs(record);
  });
}
