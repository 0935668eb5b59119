// Modules as parts of one program, for systems that load nothing. Each has its own copy of what it needs of the
// library, in a namespace of its own, so that it has a state of its own as a library that is loaded has.
#include <type_traits>

#include "platform/module.h"
#include "tarnquill_plugin.h"

namespace {

template <class Pointer>
using Function = std::remove_pointer_t<Pointer>;

}  // namespace

// Entries that modules have in common bear the module's name in front (cmake/npm.cmake).
extern "C" {
extern Function<img_set_callbacks_fn> trqvpl1_set_callbacks, pdfplug_set_callbacks;
extern Function<img_plugin_decode_fn> decode_gif, decode_tif, decode_pdf;
extern Function<img_plugin_count_fn> count_pages;
extern Function<img_plugin_stored_fn> find_stored_picture;
extern Function<img_set_picture_decoder_fn> set_picture_decoder;
}

namespace tq::platform {

std::span<const LinkedEntry> linked_entries() {
  static const LinkedEntry kEntries[] = {
      {"trqvpl1", "set_callbacks", reinterpret_cast<void*>(trqvpl1_set_callbacks)},
      {"trqvpl1", "decode_gif", reinterpret_cast<void*>(decode_gif)},
      {"trqvpl1", "decode_tif", reinterpret_cast<void*>(decode_tif)},
      {"pdfplug", "set_callbacks", reinterpret_cast<void*>(pdfplug_set_callbacks)},
      {"pdfplug", "set_picture_decoder", reinterpret_cast<void*>(set_picture_decoder)},
      {"pdfplug", "decode_pdf", reinterpret_cast<void*>(decode_pdf)},
      {"pdfplug", "count_pages", reinterpret_cast<void*>(count_pages)},
      {"pdfplug", "find_stored_picture", reinterpret_cast<void*>(find_stored_picture)},
  };
  return kEntries;
}

}  // namespace tq::platform
