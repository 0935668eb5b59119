/* For authors of Tarnquill modules: codecs in separately loaded libraries.
 *
 * A module is a shared library that exports the entries below under their plain names (on 32-bit
 * Windows: stdcall functions linked with --kill-at). It is loaded the first time that one of its
 * codecs is needed: on Windows through LoadLibrary; elsewhere from the directory of the Tarnquill
 * library, from the directory tarnquill in that, then by the system's search.
 *
 *   module      entries
 *   trqvpl1     decode_gif, encode_gif, encode_gifi (interlaced), decode_tif, encode_tif,
 *               set_callbacks
 *   pdfplug     decode_pdf, set_callbacks; count_pages, find_stored_picture, set_picture_decoder if it
 *               has them
 *   abicplug    IMG_decomp_abic
 *   trqvext     probe_ext, decode_ext, count_ext, decode_j2k, decode_jbig2, set_callbacks
 *
 * The names end in .dll on Windows and in .so elsewhere. An entry that a module does not export is
 * reported to the caller like a missing module. Modules are unloaded by IMG_unload_plugins and when
 * the Tarnquill library is unloaded, but never while one of their entries is running. Whatever an
 * entry allocates it frees before it returns. */
#ifndef TARNQUILL_PLUGIN_H
#define TARNQUILL_PLUGIN_H

#include "tarnquill.h"

#ifdef _WIN32
#define IMG_PLUGIN_API __declspec(dllexport)
#else
#define IMG_PLUGIN_API __attribute__((visibility("default")))
#endif

/* Decodes an image from `stream`.
 *
 *   offset_or_page  where the image begins, in bytes; or, with the top bit set, a page number in
 *                   the other 31 bits: the file then begins at the stream's current position
 *   header, row     to be called as described in tarnquill.h; a negative answer is to be returned
 *                   at once. Neither is null
 *   sink_context    handed to both
 *   stream          for the stream functions that set_callbacks has handed over
 *
 * Returns 0, IMG_PLUGIN_DAMAGED when the last row is not all that the file once held (those that
 * were not delivered count by themselves), another number above 0, or a negative status. Of a module
 * that exports count_pages two more numbers tell of damage: IMG_PLUGIN_CONTRADICTS where data make no
 * sense, IMG_PLUGIN_LEFT_OUT where a page has content that the rows do not show.
 *
 * Such a module may also give the resolution more exactly than in dots per inch: biClrImportant of
 * the header is 0, or how many thousandths of a dot are to be added: in x 1000 + them in its low word, in
 * y 1000 + them in its high word. Callers of the library do not see it. */
enum { IMG_PLUGIN_DAMAGED = 1, IMG_PLUGIN_CONTRADICTS = 2, IMG_PLUGIN_LEFT_OUT = 3 };
typedef int32_t(IMG_CALL* img_plugin_decode_fn)(uint32_t offset_or_page, img_row_fn row,
                                                void* sink_context, img_header_fn header,
                                                int32_t stream);

/* Counts the pages of the document that begins at the current position of `stream`. Returns how many, or
 * a negative status. */
typedef int32_t(IMG_CALL* img_plugin_count_fn)(int32_t stream);

/* A page that is one picture, whose coded data another file could hold as they are.
 *
 *   size            of this struct, set by the caller
 *   coding          1: a JPEG stream; 2: ITU-T T.6
 *   offset, bytes   where the data are in the stream
 *   width, height   pixels, as the data say
 *   components      of the JPEG frame; 1 for T.6
 *   inverted        JPEG of four components: 0 stands for full ink; T.6: what is coded as black is white
 *   orientation     1 to 8, as TIFF counts: how the picture is to be turned
 *   x_resolution,
 *   y_resolution    thousandths of dots per inch, of the picture as it is turned; 0: unknown */
typedef struct img_stored_picture {
  uint32_t size;
  int32_t coding;
  int32_t offset, bytes;
  int32_t width, height, components;
  int32_t inverted;
  int32_t orientation;
  int32_t x_resolution, y_resolution;
} img_stored_picture;
enum { IMG_STORED_JPEG = 1, IMG_STORED_T6 = 2 };

/* Finds it, on a page of the document that begins at `offset` in `stream`; 0 is the first page. Returns 0;
 * IMG_UNSUPPORTED when the page is anything else, is cut, or has data that need more to be shown than
 * the struct can say; or another negative status. */
typedef int32_t(IMG_CALL* img_plugin_stored_fn)(int32_t stream, int32_t offset, int32_t page,
                                                img_stored_picture* picture);

/* Encodes an image to the current position of `stream`.
 *
 *   header_block    IMG_HEADER_BLOCK_BYTES: geometry and palette of the rows
 *   supply          gives the rows, as described in tarnquill.h; a negative answer is to be returned
 *                   at once. Not null
 *   save_context    handed to it
 *
 * Returns 0 or above, or a negative status. */
typedef int32_t(IMG_CALL* img_plugin_encode_fn)(int32_t stream, void* header_block,
                                                img_supply_fn supply, void* save_context);

/* How a module codes the bytes of TIFF strips. States are memory of the library's, aligned to 16
 * bytes and used for one strip after the other.
 *
 *   size            of this struct
 *   decoder_bytes,
 *   encoder_bytes   of a state
 *   begin_decode    begins a strip. `next` stores where the next coded bytes are, to stay until it is
 *                   called again, and answers how many; 0 is the end. It is handed `context`
 *   decode          the next `count` bytes of the strip to `bytes`. Answers how many there were:
 *                   fewer at the end, or where the data make no sense
 *   begin_encode    begins a strip
 *   encode          codes so many bytes to `out`, which has room for 2 * count + 32. Answers how many
 *                   coded bytes are complete
 *   end_encode      the last of them, at most 32 */
typedef int32_t(IMG_CB_C* img_next_piece_fn)(void* context, const void** bytes);
typedef struct img_strip_coder {
  uint32_t size;
  int32_t decoder_bytes, encoder_bytes;
  void(IMG_CB_C* begin_decode)(void* state, img_next_piece_fn next, void* context);
  int32_t(IMG_CB_C* decode)(void* state, void* bytes, int32_t count);
  void(IMG_CB_C* begin_encode)(void* state);
  int32_t(IMG_CB_C* encode)(void* state, const void* bytes, int32_t count, void* out);
  int32_t(IMG_CB_C* end_encode)(void* state, void* out);
} img_strip_coder;

/* What decode_tif and encode_tif hand to the library's TIFF codec: their own arguments, and a coder
 * for the strips. The other call's fields are 0. A module that knows TIFF does not need it. */
enum { IMG_TIFF_DECODE = 0, IMG_TIFF_ENCODE = 1 };
typedef struct img_tiff_request {
  uint32_t size; /* of this struct */
  int32_t call;
  int32_t stream;
  uint32_t offset_or_page; /* decode_tif */
  img_row_fn row;
  void* sink_context;
  img_header_fn header;
  void* header_block; /* encode_tif */
  img_supply_fn supply;
  void* save_context;
  const img_strip_coder* coder;
} img_tiff_request;

/* The entry's result; IMG_UNSUPPORTED for a struct of another size. */
typedef int32_t(IMG_CB_C* img_tiff_helper_fn)(const img_tiff_request* request);

/* Of trqvext, which knows whole files of more formats: which of them begins with these bytes. Returns a
 * file type code, or 0.
 *
 *   bytes, count    the first ones of a file, IMG_PROBE_BYTES or more
 *
 * decode_ext and count_ext are called for such files as decode_pdf and count_pages are. */
enum { IMG_PROBE_BYTES = 32 };
typedef int32_t(IMG_CALL* img_plugin_probe_fn)(const void* bytes, int32_t count);

/* The form of the rows of a picture that is a part of another file.
 *
 *   size            of this struct
 *   components      samples of a pixel, 1 to 4: what is alpha is left out
 *   bits            of a sample, 1 to 16 */
typedef struct img_samples {
  uint32_t size;
  int32_t width, height;
  int32_t components;
  int32_t bits;
  int32_t is_signed;
} img_samples;

/* A picture that is a part of another file, in a coding of its own.
 *
 *   size            of this struct
 *   coding          which
 *   width, height   as the file around it says, 0 if it does not: how much room may be needed
 *   sample_bits     8: samples are wanted in the range from 0 to 255; 0: as they are coded
 *   next, data      where the coded bytes come from; handed `data`. Null: only whether such pictures can be
 *                   decoded, 0 or IMG_UNSUPPORTED, is asked
 *   globals         handed to `next` as well, for the JBIG2 segments that go before; null: there are none
 *   header, row     to be called with the form of the rows and with each row from the top; a negative
 *                   answer is to be returned at once. Samples of a pixel follow each other in a byte each, or
 *                   above 8 bits in two in the machine's order; of JBIG2 a byte has 8 pixels from its top
 *                   bit on, 1 is black
 *   context         handed to both */
enum { IMG_CODED_JPEG_2000 = 1, IMG_CODED_JBIG2 = 2 };
typedef int32_t(IMG_CB_C* img_samples_fn)(const img_samples* samples, void* context);
typedef struct img_coded_picture {
  uint32_t size;
  int32_t coding;
  int32_t width, height;
  int32_t sample_bits;
  img_next_piece_fn next;
  void *data, *globals;
  img_samples_fn header;
  img_row_fn row;
  void* context;
} img_coded_picture;

/* decode_j2k and decode_jbig2 of trqvext. They return 0, IMG_PLUGIN_CONTRADICTS when a part of the picture
 * could not be decoded, or a negative status: IMG_UNSUPPORTED for what they do not know. */
typedef int32_t(IMG_CALL* img_plugin_coded_fn)(const img_coded_picture* picture);

/* Both, for a module whose files hold such pictures: what the library hands to its entry
 * set_picture_decoder, right after set_callbacks. IMG_UNSUPPORTED unless IMG_OPTION_EXTENDED_FORMATS is set,
 * and without trqvext. */
typedef int32_t(IMG_CB_C* img_decode_coded_fn)(const img_coded_picture* picture);
typedef void(IMG_CALL* img_set_picture_decoder_fn)(img_decode_coded_fn decode);

/* Called once, right after the module has been loaded, with the library's own stream functions:
 * they reach files, the memory stream and the caller's input and output alike. `read` gives fewer
 * bytes than it is asked for only at the end or on an error. `helper` is null for pdfplug. */
typedef void(IMG_CALL* img_set_callbacks_fn)(img_read_fn read, img_write_fn write, img_seek_fn seek,
                                             img_tiff_helper_fn helper);

#endif /* TARNQUILL_PLUGIN_H */
