// The settings and the progress report.
#include "core/settings.h"

namespace tq {

Settings& settings() {
  static constinit Settings values;
  return values;
}

Status report_progress(std::int32_t value) {
  const auto& progress = settings().progress;
  if (!progress.on) return kOk;
  const std::int32_t answer = progress.call(progress.context, value);
  return answer < 0 ? Status::from_raw(answer) : kOk;
}

}  // namespace tq
