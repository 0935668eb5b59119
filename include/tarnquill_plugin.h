/* For authors of Tarnquill modules: codecs in separately loaded libraries.
 *
 * A module is a shared library that exports the entries below under their plain names (on 32-bit
 * Windows: stdcall functions linked with --kill-at). It is loaded the first time that one of its
 * codecs is needed: on Windows through LoadLibrary; elsewhere from the directory of the Tarnquill
 * library, then by the system's search.
 *
 *   module      entries
 *   trqvpl1     decode_gif, encode_gif, encode_gifi (interlaced), decode_tif, encode_tif,
 *               set_callbacks
 *   pdfplug     decode_pdf, set_callbacks
 *   abicplug    IMG_decomp_abic
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
 * Returns 0 or above, or a negative status. */
typedef int32_t(IMG_CALL* img_plugin_decode_fn)(uint32_t offset_or_page, img_row_fn row,
                                                void* sink_context, img_header_fn header,
                                                int32_t stream);

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

/* Kept for a part of the library that does not exist: answers IMG_UNSUPPORTED. */
typedef int32_t(IMG_CB_C* img_tiff_helper_fn)(void);

/* Called once, right after the module has been loaded, with the library's own stream functions:
 * they reach files, the memory stream and the caller's input and output alike. `read` gives fewer
 * bytes than it is asked for only at the end or on an error. `helper` is null for pdfplug. */
typedef void(IMG_CALL* img_set_callbacks_fn)(img_read_fn read, img_write_fn write, img_seek_fn seek,
                                             img_tiff_helper_fn helper);

#endif /* TARNQUILL_PLUGIN_H */
