// GIF files as animations: frames drawn on an image, one after the other.
#pragma once

#include "core/image_table.h"

namespace tq::dispatch {

// An image with the first frame; its handle.
Status open_animation(const char* name);

// What has been drawn, or is seen at the end.
struct FrameTime {
  std::int32_t delay = 0;  // milliseconds
  std::int32_t frame = 0;
};

// 1, or 0 when the last loop has ended. unsupported: the image is no animation.
Status next_frame(ImageHandle canvas, FrameTime& time);

// In milliseconds, as the file says. no_animation_delay, page_past_end.
Status frame_delay(const char* name, std::int32_t frame);

}  // namespace tq::dispatch
