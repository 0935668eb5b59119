// No window system whose bitmaps could be asked for.
#include "platform/device_bitmap.h"

namespace tq::platform {

bool query_device_bitmap(void* /*bitmap*/, DeviceBitmap& /*found*/) {
  return false;
}

bool read_device_bitmap(void* /*bitmap*/, std::int32_t /*height*/, void* /*dib_header*/,
                        void* /*pixels*/) {
  return false;
}

}  // namespace tq::platform
