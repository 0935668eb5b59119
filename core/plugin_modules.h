// The separately loaded modules: loading on first use, their entries, unloading.
#pragma once

#include "core/status.h"
#include "include/tarnquill_plugin.h"

namespace tq {

enum class PluginModule { lzw, pdf, abic };
enum class PluginEntry {
  decode_gif,
  encode_gif,
  encode_gif_interlaced,
  decode_tiff_lzw,
  encode_tiff_lzw,
  decode_pdf,
  decode_abic,
};

// The stream functions that modules are handed.
struct ModuleCallbacks {
  img_read_fn read;
  img_write_fn write;
  img_seek_fn seek;
  img_tiff_helper_fn helper;
};

// A call of a module's entry, which stays loaded until the end of the scope.
class PluginCall {
 public:
  PluginCall() = default;
  PluginCall(const PluginCall&) = delete;
  PluginCall& operator=(const PluginCall&) = delete;
  ~PluginCall();

  // Loads the module if need be. When it or the entry is missing: no_lzw_module, no_pdf_module,
  // out_of_memory for ABIC. cannot_open when there was no descriptor left to look for it.
  Status begin(PluginEntry entry, const ModuleCallbacks& callbacks);

  template <class Function>
  Function function() const {
    return reinterpret_cast<Function>(address_);
  }

 private:
  void* address_ = nullptr;
  bool begun_ = false;
};

// Unloads all modules: now, or when the last call of one of them has returned.
void unload_plugins();

}  // namespace tq
