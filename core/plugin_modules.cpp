// One table of modules, and which of them are loaded.
#include "core/plugin_modules.h"

#include <array>
#include <cstddef>
#include <iterator>

#include "platform/module.h"

namespace tq {
namespace {

constexpr std::size_t kModules = 3;
constexpr std::size_t kEntries = 7;

struct ModuleRow {
  const char* stem;
  bool takes_callbacks;
  bool takes_helper;
  StatusCode missing;
};

// In the order in which they are unloaded.
constexpr ModuleRow kModuleRows[kModules] = {
    {"trqvpl1", true, true, StatusCode::no_lzw_module},
    {"pdfplug", true, false, StatusCode::no_pdf_module},
    {"abicplug", false, false, StatusCode::out_of_memory},
};

struct EntryRow {
  PluginModule module;
  const char* name;
};

// In the order of PluginEntry.
constexpr EntryRow kEntryRows[kEntries] = {
    {PluginModule::lzw, "decode_gif"},       {PluginModule::lzw, "encode_gif"},
    {PluginModule::lzw, "encode_gifi"},      {PluginModule::lzw, "decode_tif"},
    {PluginModule::lzw, "encode_tif"},       {PluginModule::pdf, "decode_pdf"},
    {PluginModule::abic, "IMG_decomp_abic"},
};

struct Modules {
  std::array<void*, kModules> loaded{};
  std::array<void*, kEntries> entries{};
  int calls = 0;  // of entries, that have not returned
  bool unload_wanted = false;
};

Modules& modules() {
  static constinit Modules state;
  return state;
}

// Whatever was known of the module before is forgotten.
void find_entries(PluginModule module, void* loaded) {
  for (std::size_t i = 0; i < kEntries; ++i) {
    if (kEntryRows[i].module != module) continue;
    modules().entries[i] =
        loaded == nullptr ? nullptr : platform::module_symbol(loaded, kEntryRows[i].name);
  }
}

void hand_over_callbacks(void* loaded, const ModuleRow& row, const ModuleCallbacks& callbacks) {
  if (!row.takes_callbacks) return;
  const auto set =
      reinterpret_cast<img_set_callbacks_fn>(platform::module_symbol(loaded, "set_callbacks"));
  if (set == nullptr) return;
  set(callbacks.read, callbacks.write, callbacks.seek,
      row.takes_helper ? callbacks.helper : nullptr);
}

Status load(PluginModule module, const ModuleCallbacks& callbacks) {
  const auto index = static_cast<std::size_t>(module);
  if (modules().loaded[index] != nullptr) return kOk;
  const ModuleRow& row = kModuleRows[index];
  bool unknown = false;
  void* loaded = platform::module_open(row.stem, unknown);
  if (loaded == nullptr) return unknown ? StatusCode::cannot_open : row.missing;
  platform::at_detach(unload_plugins);
  modules().loaded[index] = loaded;
  find_entries(module, loaded);
  hand_over_callbacks(loaded, row, callbacks);
  return kOk;
}

}  // namespace

Status PluginCall::begin(PluginEntry entry, const ModuleCallbacks& callbacks) {
  const auto index = static_cast<std::size_t>(entry);
  const PluginModule module = kEntryRows[index].module;
  ++modules().calls;  // set_callbacks is the module's code, too
  begun_ = true;
  TQ_TRY(load(module, callbacks));
  address_ = modules().entries[index];
  if (address_ == nullptr) return kModuleRows[static_cast<std::size_t>(module)].missing;
  return kOk;
}

PluginCall::~PluginCall() {
  if (!begun_) return;
  if (--modules().calls == 0 && modules().unload_wanted) unload_plugins();
}

void unload_plugins() {
  Modules& state = modules();
  // Code that is running must not go away: a callback of it may have come here.
  state.unload_wanted = state.calls != 0;
  if (state.unload_wanted) return;
  for (std::size_t i = 0; i < kModules; ++i) {
    if (state.loaded[i] == nullptr) continue;
    platform::module_close(state.loaded[i]);
    state.loaded[i] = nullptr;
    find_entries(static_cast<PluginModule>(i), nullptr);
  }
}

}  // namespace tq
