// Exports that set how streams are read and written.
#include "include/tarnquill.h"
#include "io/byte_stream.h"

extern "C" {

IMG_API int32_t IMG_CALL IMGLOW_set_fileio(img_read_fn read, img_write_fn write, img_seek_fn seek) {
  tq::set_caller_io(read, write, seek);
  return IMG_OK;
}

IMG_API int32_t IMG_CALL IMG_set_encrypt(int32_t on, int32_t key) {
  tq::set_scrambling((on & 0xFF) != 0, static_cast<std::uint32_t>(key));
  return IMG_OK;
}

}  // extern "C"
