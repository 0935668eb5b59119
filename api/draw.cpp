// Exports that draw and print, and the clipboard.
#include "show/draw.h"
#include "api/abi.h"
#include "core/image_create.h"
#include "dispatch/dispatch.h"
#include "include/tarnquill.h"
#include "platform/surface.h"
#include "show/dib_copy.h"

using tq::ImageHandle;
using tq::ImageRecord;
using tq::kOk;
using tq::Status;
using tq::StatusCode;
using tq::api::with_pixels;

namespace {

Status status_of(tq::platform::Clipboard result) {
  switch (result) {
    case tq::platform::Clipboard::done:
      return kOk;
    case tq::platform::Clipboard::no_memory:
      return StatusCode::out_of_memory;
    case tq::platform::Clipboard::nothing:
      return StatusCode::cannot_open;
    default:
      return StatusCode::write_failed;
  }
}

Status copy_to_clipboard(const ImageRecord& image, void* window) {
  if (!tq::platform::has_surfaces()) return StatusCode::unsupported;
  if (image.crop.width < 1 || image.crop.height < 1) return StatusCode::bad_image;
  tq::GlobalBlock plain, transparent;
  TQ_TRY(plain.allocate(tq::show::dib_copy_bytes(image)));
  TQ_TRY(tq::show::copy_dib(image, plain.data()));
  tq::platform::ClipboardItem items[2] = {{tq::platform::kClipboardDib, plain.data(), plain.size()},
                                          {}};
  int count = 1;
  const bool known = image.bits == 1 || image.bits == 4 || image.bits == 8;
  if (image.has_transparent && known) {
    TQ_TRY(transparent.allocate(tq::show::transparent_dib_bytes(image)));
    TQ_TRY(tq::show::copy_transparent_dib(image, transparent.data()));
    items[count++] = {tq::platform::kClipboardDibV5, transparent.data(), transparent.size()};
  }
  return status_of(tq::platform::put_on_clipboard(window, items, count));
}

// What programs put on the clipboard is read as they mean it, whatever the options say of files.
Status paste(const void* dib, std::size_t size) {
  const tq::StreamWork work;
  tq::Options& options = tq::context().options;
  const tq::Options before = options;
  options.set(IMG_OPTION_READING, 1);
  options.set(IMG_OPTION_DETECTION, 1);
  tq::open_memory_stream(const_cast<void*>(dib), size);
  const Status pasted = tq::dispatch::decode_image(tq::kMemoryStream, 0, 0);
  tq::context().options = before;
  return pasted;
}

}  // namespace

std::int32_t IMG_CALL IMG_display_bitmap_iac(std::int32_t image, void* hdc, std::int32_t x,
                                             std::int32_t y, std::int32_t width,
                                             std::int32_t height, const img_view* view) {
  return with_pixels(image, [=](ImageRecord&) {
    return tq::show::display_bitmap(ImageHandle{image}, hdc, {x, y, width, height}, view);
  });
}

std::int32_t IMG_CALL IMG_display_wipe(std::int32_t image, void* hdc, std::int32_t x,
                                       std::int32_t y, std::int32_t width, std::int32_t height,
                                       const img_view* view, std::int32_t effect,
                                       std::int32_t steps) {
  return with_pixels(image, [=](ImageRecord&) {
    return tq::show::display_wipe(ImageHandle{image}, hdc, {x, y, width, height}, view, effect,
                                  steps);
  });
}

std::int32_t IMG_CALL IMG_print_bitmap(std::int32_t image, void* hdc, std::int32_t x,
                                       std::int32_t y, std::int32_t width, std::int32_t height,
                                       const img_view* view) {
  return with_pixels(image, [=](ImageRecord&) {
    return tq::show::print_bitmap(ImageHandle{image}, hdc, {x, y, width, height}, view, false);
  });
}

std::int32_t IMG_CALL IMG_print_bitmap_fast(std::int32_t image, void* hdc, std::int32_t x,
                                            std::int32_t y, std::int32_t width, std::int32_t height,
                                            const img_view* view) {
  return with_pixels(image, [=](ImageRecord&) {
    return tq::show::print_bitmap(ImageHandle{image}, hdc, {x, y, width, height}, view, true);
  });
}

std::int32_t IMG_CALL IMG_print_pages(const std::int32_t* images, std::int32_t count,
                                      const char* printer, const char* title,
                                      const char* output_file, std::int32_t copies,
                                      const img_view* view) {
  const tq::Serialised serialised;
  const bool known = images != nullptr && count > 0 && copies > 0;
  if (!known || !tq::platform::has_surfaces()) return IMG_UNSUPPORTED;
  const std::size_t pages = count;
  return tq::show::print_pages({{images, pages}, printer, title, output_file, copies, view}).raw();
}

std::int32_t IMG_CALL IMG_copy_to_clipboard(std::int32_t image, void* window) {
  return with_pixels(image, [=](ImageRecord& record) { return copy_to_clipboard(record, window); });
}

std::int32_t IMG_CALL IMG_paste_from_clipboard(void* window) {
  const tq::Serialised serialised;
  if (!tq::platform::has_surfaces()) return IMG_UNSUPPORTED;
  Status pasted = StatusCode::cannot_open;
  const auto take = [](void* self, const void* dib, std::size_t size) {
    *static_cast<Status*>(self) = paste(dib, size);
  };
  const Status there = status_of(tq::platform::take_from_clipboard(window, take, &pasted));
  return tq::api::made(there.failed() ? there.raw() : pasted.raw());
}
