/* A caller of the installed package; valid as C99 and as C++. */
#include <stdio.h>
#include <tarnquill.h>

int main(void) {
  int32_t major = 0, minor = 0;
  const int32_t status = IMG_ifl_version(&major, &minor);
  const int32_t no_image = IMG_delete_bitmap(1234);
  printf("version %d.%d, status %d, deleting nothing: %d\n", (int)major, (int)minor, (int)status,
         (int)no_image);
  return status == IMG_OK && major == 8 && minor == 3 && no_image == IMG_BAD_HANDLE ? 0 : 1;
}
