// What the steps of an effect uncover of a window.
#pragma once

#include <cstdint>
#include <span>

#include "core/image_record.h"

namespace tq::show {

inline constexpr std::int32_t kLastEffect = 15;

// The rectangles of a step, of which as many as fit are written; how many there are. unsupported,
// empty_display_rect.
Status wipe_rects(std::int32_t effect, std::int32_t step, std::int32_t steps, Size window,
                  std::span<Rect> rects);

}  // namespace tq::show
