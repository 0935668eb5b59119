// The library loads no modules yet, so each of these codecs reports its module as missing.
#include "formats/plugin/plugin.h"

namespace tq::formats {

Status lzw_module_available() {
  return StatusCode::no_lzw_module;
}

Status decode_gif(const DecodeRequest& /*request*/) {
  return lzw_module_available();
}
Status encode_gif(const EncodeRequest& /*request*/) {
  return lzw_module_available();
}
Status encode_gif_interlaced(const EncodeRequest& /*request*/) {
  return lzw_module_available();
}
Status encode_tiff_lzw(const EncodeRequest& /*request*/) {
  return lzw_module_available();
}

Status count_gif_pages(StreamHandle /*stream*/) {
  return StatusCode::no_lzw_module;
}

}  // namespace tq::formats
