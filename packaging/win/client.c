/* A client of the packaged DLL: linked with its import library, or with BY_NAME loading it. Needs no C
 * run-time. Ends with 0, or with the number of the step that failed. */
#include <tarnquill.h>

#ifdef BY_NAME
#include <windows.h>
static HMODULE library;
#define CALL(name) ((__typeof__(&name))(void*)GetProcAddress(library, #name))
#else
__declspec(dllimport) void __stdcall ExitProcess(unsigned code);
#define CALL(name) name
#endif

/* Two white pixels and two black ones. */
static const unsigned char gif[] = {'G', 'I', 'F', '8', '9', 'a', 2, 0,    2,    0,    0x80, 0,
                                    0,   255, 255, 255, 0,   0,   0, ',',  0,    0,    0,    0,
                                    2,   0,   2,   0,   0,   2,   3, 0x04, 0x12, 0x05, 0,    ';'};
static unsigned char png[4096];

static unsigned failed_step(void) {
  if (CALL(IMG_library_version)() !=
      TARNQUILL_VERSION_MAJOR * 10000 + TARNQUILL_VERSION_MINOR * 100 + TARNQUILL_VERSION_PATCH) {
    return 1;
  }
  const int32_t page = CALL(IMG_decompress_bitmap_block)(gif, sizeof gif, 0); /* by the module */
  if (page < 0) return 2;
  const int32_t bytes = CALL(IMG_save_bitmap_block)(page, png, sizeof png, IMG_TYPE_PNG);
  if (bytes < 50 || png[1] != 'P') return 3;
  const int32_t again = CALL(IMG_decompress_bitmap_block)(png, (size_t)bytes, 0);
  if (again < 0) return 4;
  if (CALL(IMG_delete_bitmap)(page) != IMG_OK || CALL(IMG_delete_bitmap)(again) != IMG_OK) return 5;
  return CALL(IMG_delete_bitmap)(again) == IMG_BAD_HANDLE ? 0 : 6;
}

#ifdef BY_NAME
int main(void) {
  library = LoadLibraryA("tarnquill.dll");
  return library == NULL ? 7 : (int)failed_step();
}
#else
void start(void) {
  ExitProcess(failed_step());
}
#endif
