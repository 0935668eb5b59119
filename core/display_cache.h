// The copy of an image that the display layer converts for its device and keeps with the record.
#pragma once

#include "core/image_record.h"

namespace tq {

// Drops the converted copy; operations call it before they look at the image, even if they then
// refuse it. Until the display layer exists no record has one.
inline void release_display_cache(ImageRecord& /*image*/) {}

}  // namespace tq
