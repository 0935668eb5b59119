// The PNG codec of a build without libpng.
#include "formats/png/png.h"

namespace tq::formats {

Status png_available() {
  return StatusCode::unsupported;
}
Status decode_png(const DecodeRequest& /*request*/) {
  return png_available();
}
Status can_encode_png(const EncodeRequest& /*request*/) {
  return png_available();
}
Status encode_png(const EncodeRequest& /*request*/) {
  return png_available();
}

}  // namespace tq::formats
