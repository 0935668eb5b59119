// The PNG codec of a build without libpng.
#include "formats/png/png.h"

namespace tq::png {

Status png_available() {
  return StatusCode::unsupported;
}
Status decode_png(const formats::DecodeRequest& /*request*/) {
  return png_available();
}
Status can_encode_png(const formats::EncodeRequest& /*request*/) {
  return png_available();
}
Status encode_png(const formats::EncodeRequest& /*request*/) {
  return png_available();
}

}  // namespace tq::png
