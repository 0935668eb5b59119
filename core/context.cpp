// The context and the progress report.
#include "core/context.h"

namespace tq {

constinit Context the_context;

Status report_progress(std::int32_t value) {
  const auto& progress = context().settings.progress;
  if (!progress.on) return kOk;
  const Inside inside;
  const std::int32_t answer = progress.call(progress.context, value);
  return answer < 0 ? Status::from_raw(answer) : kOk;
}

void report_image(std::int32_t image, ImageEvent event) {
  const auto& display = context().settings.display;
  if (display.call == nullptr) return;
  const Inside inside;
  display.call(display.context, image, static_cast<std::int32_t>(event));
}

}  // namespace tq
