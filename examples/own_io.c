/* Reads and writes through functions of the program instead of the library's own: here through
 * stdio, counting the bytes. Streams are numbers; what a number means is the program's business.
 *
 *   cc own_io.c $(pkg-config --cflags --libs tarnquill) -o own_io && ./own_io in.bmp out.bmp */
#include <stdio.h>

#include "tarnquill.h"

static FILE* streams[2];
static long bytes_read, bytes_written;

static int32_t IMG_CB_C read_stream(int32_t stream, void* buffer, int32_t count) {
  const size_t got = fread(buffer, 1, (size_t)count, streams[stream]);
  bytes_read += (long)got;
  return (int32_t)got;
}

static int32_t IMG_CB_C write_stream(int32_t stream, void* buffer, int32_t count) {
  const size_t put = fwrite(buffer, 1, (size_t)count, streams[stream]);
  bytes_written += (long)put;
  return (int32_t)put;
}

static int32_t IMG_CB_C seek_stream(int32_t stream, int32_t offset, int32_t origin) {
  static const int origins[] = {SEEK_SET, SEEK_CUR, SEEK_END};
  if (fseek(streams[stream], offset, origins[origin]) != 0) return -1;
  return (int32_t)ftell(streams[stream]);
}

int main(int argc, char** argv) {
  if (argc != 3) {
    fprintf(stderr, "usage: %s IN OUT\n", argv[0]);
    return 2;
  }
  streams[0] = fopen(argv[1], "rb");
  streams[1] = fopen(argv[2], "w+b");
  if (streams[0] == NULL || streams[1] == NULL) {
    perror("own_io");
    return 1;
  }

  IMGLOW_set_fileio(read_stream, write_stream, seek_stream);
  const int32_t image = IMG_decompress_bitmap_fd(0, 0, 0); /* stream 0, offset 0, page 0 */
  int32_t status = image;
  if (image >= 0) {
    status = IMG_save_bitmap_fd(image, 1, IMG_TYPE_BMP); /* stream 1 */
    IMG_delete_bitmap(image);
  }
  IMGLOW_set_fileio(NULL, NULL, NULL);

  fclose(streams[0]);
  if (fclose(streams[1]) != 0) status = IMG_WRITE_FAILED;
  printf("%ld bytes read, %ld bytes written, status %d\n", bytes_read, bytes_written, (int)status);
  return status < 0 ? 1 : 0;
}
