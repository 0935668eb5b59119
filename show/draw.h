// Views on device contexts: windows, memory, metafiles, printers.
#pragma once

#include "core/image_table.h"
#include "include/tarnquill.h"

namespace tq::show {

// Of a valid handle. `place` is in the context's units; a null view fits. unsupported: no device
// context; write_failed: the system refuses; what lay_out says.
Status display_bitmap(ImageHandle image, void* context, const Rect& place, const img_view* view);
Status display_wipe(ImageHandle image, void* context, const Rect& place, const img_view* view,
                    std::int32_t effect, std::int32_t steps);

// All of `place` 0: the printable area. `scaled_by_device`: the image's own pixels are sent.
Status print_bitmap(ImageHandle image, void* context, const Rect& place, const img_view* view,
                    bool scaled_by_device);

// How many pages have been printed; cannot_open for an unknown printer.
struct PrintOrder {
  std::span<const std::int32_t> images;
  const char* printer = nullptr;
  const char* title = nullptr;
  const char* output_file = nullptr;
  std::int32_t copies = 1;
  const img_view* view = nullptr;
};
Status print_pages(const PrintOrder& order);

}  // namespace tq::show
