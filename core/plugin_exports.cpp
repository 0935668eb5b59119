// The export on modules.
#include "core/plugin_modules.h"
#include "include/tarnquill.h"

std::int32_t IMG_CALL IMG_unload_plugins(void) {
  tq::unload_plugins();
  return 0;
}
