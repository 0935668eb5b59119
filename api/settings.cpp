// Exports that change settings: detection, decoding, progress, streams, modules.
#include "api/abi.h"
#include "core/contexts.h"
#include "dispatch/file_types.h"
#include "formats/plugin/plugin.h"
#include "include/tarnquill.h"

namespace {

struct Meaning {
  std::int32_t status;
  const char* text;
};
constexpr Meaning kMeanings[] = {
    {IMG_OK, "no error"},
    {IMG_OUT_OF_MEMORY, "out of memory, or the image is too large"},
    {IMG_CANNOT_OPEN, "cannot be opened"},
    {IMG_BAD_IMAGE, "image data is invalid"},
    {IMG_CANNOT_CREATE, "cannot be created"},
    {IMG_UNSUPPORTED, "format or parameter is not supported"},
    {IMG_NO_DEVICE_BITMAP, "not a device bitmap"},
    {IMG_WRITE_FAILED, "writing failed"},
    {IMG_EMPTY_DISPLAY_RECT, "display rectangle is empty"},
    {IMG_NO_SUCH_PAGE, "page is absent or cannot be read"},
    {IMG_READ_FAILED, "reading failed"},
    {IMG_BAD_HANDLE, "no such image"},
    {IMG_NO_SCANNER_SESSION, "the scanner cannot be reached"},
    {IMG_NO_SCANNER_LIBRARY, "the scanner support library is not installed"},
    {IMG_STOP_AFTER_HEADER, "stopped after the header"},
    {IMG_REFUSED_BY_LICENCE, "refused by the licence check"},
    {IMG_WRONG_DEPTH, "bit depth does not fit"},
    {IMG_NOT_GREY, "image is not grey"},
    {IMG_NO_LZW_MODULE, "the LZW module is not installed"},
    {IMG_NO_TRANSPARENCY, "no transparent colour"},
    {IMG_SCANNER_REQUEST, "the scanner refused a request"},
    {IMG_NO_ANIMATION_DELAY, "GIF file without animation"},
    {IMG_PAGE_PAST_END, "page is beyond the last one"},
    {IMG_NOT_TILED, "file is not tiled"},
    {IMG_NO_PDF_MODULE, "the PDF module is not installed"},
};

// The switch of a file type code, or null.
bool* detect_switch(std::int32_t code) {
  const std::int32_t base = tq::dispatch::switch_of(code);
  if (base < 0 || base >= tq::kSwitches) return nullptr;
  return &tq::context().settings.auto_detect[base];
}

std::int32_t change_switch(std::int32_t code, bool on) {
  bool* detect = detect_switch(code);
  if (detect == nullptr) return IMG_UNSUPPORTED;
  const bool previous = *detect;
  *detect = on;
  return previous ? 1 : 0;
}

}  // namespace

std::int32_t IMG_CALL IMG_set_option(std::int32_t option, std::int32_t value) {
  const tq::Serialised serialised;
  tq::Options& options = tq::context().options;
  const std::int32_t before = options.get(option);
  return options.set(option, value) ? before : IMG_UNSUPPORTED;
}

std::int32_t IMG_CALL IMG_get_option(std::int32_t option) {
  const tq::Serialised serialised;
  const std::int32_t value = tq::context().options.get(option);
  return value >= 0 ? value : IMG_UNSUPPORTED;
}

std::int32_t IMG_CALL IMG_set_option_text(std::int32_t number, const char* text) {
  const tq::Serialised serialised;
  return tq::context().texts.set(number, text).raw();
}

std::int32_t IMG_CALL IMG_library_version(void) {
  return TARNQUILL_VERSION_MAJOR * 10000 + TARNQUILL_VERSION_MINOR * 100 + TARNQUILL_VERSION_PATCH;
}

const char* IMG_CALL IMG_status_text(std::int32_t status) {
  for (const Meaning& meaning : kMeanings) {
    if (meaning.status == status) return meaning.text;
  }
  return "unknown status";
}

std::int32_t IMG_CALL IMG_new_context(void) {
  return tq::new_context().raw();
}

std::int32_t IMG_CALL IMG_use_context(std::int32_t context) {
  return tq::use_context(context).raw();
}

std::int32_t IMG_CALL IMG_delete_context(std::int32_t context) {
  return tq::delete_context(context).raw();
}

std::int32_t IMG_CALL IMG_set_statusbar(std::intptr_t context, img_progress_fn callback,
                                        std::int32_t enable) {
  const tq::Serialised serialised;
  auto& progress = tq::context().settings.progress;
  progress.on = enable != 0 && callback != nullptr;
  if (progress.on) {
    progress.call = callback;
    progress.context = context;
  }
  return IMG_OK;
}

std::int32_t IMG_CALL IMGLOW_set_dispfunc(std::intptr_t a, std::intptr_t b) {
  const tq::Serialised serialised;
  tq::context().settings.display_functions = {a, b};
  return IMG_OK;
}

std::int32_t IMG_CALL IMG_set_display_callback(std::intptr_t context, img_display_fn callback) {
  const tq::Serialised serialised;
  tq::context().settings.display = {callback, context};
  return IMG_OK;
}

std::int32_t IMG_CALL IMGLOW_set_decomp_reduction(std::int32_t bits) {
  const tq::Serialised serialised;
  tq::context().settings.decomp_reduction = bits;
  return IMG_OK;
}

std::int32_t IMG_CALL IMGLOW_set_decompsize(std::int32_t width, std::int32_t height) {
  const tq::Serialised serialised;
  tq::context().settings.decomp_size = {width, height};
  return IMG_OK;
}

std::int32_t IMG_CALL IMGLOW_set_decomp_rect(std::int32_t x, std::int32_t y, std::int32_t width,
                                             std::int32_t height) {
  const tq::Serialised serialised;
  tq::context().settings.decomp_rect = {x < 0 ? 0 : x, y < 0 ? 0 : y, width, height};
  return IMG_OK;
}

std::int32_t IMG_CALL IMGLOW_set_dithermode(std::int32_t mode) {
  const tq::Serialised serialised;
  tq::context().settings.dither_mode = mode;
  return IMG_OK;
}

std::int32_t IMG_CALL IMGLOW_autocolor(std::int32_t flag) {
  const tq::Serialised serialised;
  tq::context().settings.auto_color = flag;
  return IMG_OK;
}

std::int32_t IMG_CALL IMGLOW_set_alias(std::int32_t value) {
  const tq::Serialised serialised;
  tq::context().settings.alias = value;
  return IMG_OK;
}

std::int32_t IMG_CALL IMGLOW_set_alias_quality(std::int32_t value) {
  const tq::Serialised serialised;
  tq::context().settings.alias_quality = value;
  return IMG_OK;
}

std::int32_t IMG_CALL IMGLOW_set_wipedelay(std::int32_t delay) {
  const tq::Serialised serialised;
  tq::context().settings.wipe_delay = delay;
  return IMG_OK;
}

std::int32_t IMG_CALL IMGLOW_set_auto_detect(std::int32_t code) {
  const tq::Serialised serialised;
  return change_switch(code, true);
}

std::int32_t IMG_CALL IMGLOW_unset_auto_detect(std::int32_t code) {
  const tq::Serialised serialised;
  return change_switch(code, false);
}

std::int32_t IMG_CALL IMGLOW_get_auto_detect(std::int32_t code) {
  const tq::Serialised serialised;
  const bool* detect = detect_switch(code);
  if (detect == nullptr) return IMG_UNSUPPORTED;
  return *detect ? 1 : 0;
}

std::int32_t IMG_CALL IMG_ifl_version(std::int32_t* major, std::int32_t* minor) {
  tq::api::store(major, std::int32_t{8});
  tq::api::store(minor, std::int32_t{3});
  return IMG_OK;
}

std::int32_t IMG_CALL IMGLOW_set_fileio(img_read_fn read, img_write_fn write, img_seek_fn seek) {
  const tq::Serialised serialised;
  tq::set_caller_io(read, write, seek);
  return IMG_OK;
}

std::int32_t IMG_CALL IMG_set_encrypt(std::int32_t on, std::int32_t key) {
  const tq::Serialised serialised;
  tq::set_scrambling((on & 0xFF) != 0, key);
  return IMG_OK;
}

std::int32_t IMG_CALL IMG_unload_plugins(void) {
  tq::plugin::unload_plugins();
  return IMG_OK;
}
