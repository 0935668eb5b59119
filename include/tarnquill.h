/* Tarnquill: reads, converts, processes and writes raster images. This header is the manual.
 *
 * An image is a device-independent bitmap (a 40-byte BITMAPINFOHEADER, a palette of blue, green,
 * red, reserved entries, and rows of pixels stored from the bottom up, each padded to a multiple
 * of 4 bytes) that the library holds under a small integer, the image handle. 1-bit images that
 * were decoded are held as run lists (biCompression 99) until somebody asks for plain pixels.
 *
 *   - Every function returns a 32-bit integer: 0 or above is success (0, a handle, a count, a
 *     code), below 0 is one of the status codes here, or what a callback of yours answered.
 *   - biXPelsPerMeter and biYPelsPerMeter of an image hold dots per inch; codecs convert.
 *   - biCompression 200 marks a 32-bit image of blue, green, red, unused bytes; a 32-bit image
 *     with biCompression 0 holds cyan, magenta, yellow, black.
 *   - The settings are process-wide and the library locks nothing: use it from one thread at a
 *     time. Callbacks may call the library; deleting the image at work ends that work with
 *     IMG_BAD_HANDLE.
 *   - Input may come from strangers: damaged or hostile bytes give a status code or the rows that
 *     could be read, undelivered pixels being 0 (white in run lists).
 *   - Out pointers may be null: that value is skipped.
 *
 * Plain C99 and C++. Functions use the stdcall convention on 32-bit Windows. */
#ifndef TARNQUILL_H
#define TARNQUILL_H

#include <stddef.h>
#include <stdint.h>

#if defined(_WIN32) && defined(__i386__)
#define IMG_CALL __attribute__((stdcall))
#define IMG_CB_STD __attribute__((stdcall))
#define IMG_CB_C __attribute__((cdecl))
#elif defined(_WIN32) && defined(_M_IX86)
#define IMG_CALL __stdcall
#define IMG_CB_STD __stdcall
#define IMG_CB_C __cdecl
#else
#define IMG_CALL
#define IMG_CB_STD
#define IMG_CB_C
#endif

#if defined(__GNUC__) && !defined(_WIN32)
#define IMG_API __attribute__((visibility("default")))
#else
#define IMG_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Status codes ------------------------------------------------------------------------ */

enum {
  IMG_OK = 0,
  IMG_OUT_OF_MEMORY = -1,       /* an allocation failed, or the image has no pixels */
  IMG_CANNOT_OPEN = -2,         /* the named input file, or for lack of descriptors a module, could
                                   not be opened */
  IMG_BAD_IMAGE = -3,           /* invalid image data: a side or depth below 1, a wrong signature */
  IMG_CANNOT_CREATE = -6,       /* the output file could not be opened or created */
  IMG_UNSUPPORTED = -7,         /* unknown format or code, depth not handled, bad parameter */
  IMG_NO_DEVICE_BITMAP = -8,    /* a device-dependent bitmap could not be queried */
  IMG_WRITE_FAILED = -9,        /* fewer bytes written than asked */
  IMG_EMPTY_DISPLAY_RECT = -10, /* the display rectangle has a side below 1 */
  IMG_NO_SUCH_PAGE = -11,       /* a page of a container is absent or cannot be read */
  IMG_READ_FAILED = -12,        /* fewer bytes read than asked */
  IMG_BAD_HANDLE = -13,         /* no image has this handle */
  IMG_NO_SCANNER_SESSION = -16, /* the scanner session could not be opened */
  IMG_NO_SCANNER_LIBRARY = -17, /* the scanner support library could not be loaded */
  IMG_STOP_AFTER_HEADER = -18,  /* answer of a header callback that wants no rows */
  IMG_REFUSED_BY_LICENCE = -19, /* the licence check refused */
  IMG_WRONG_DEPTH = -21,        /* the operation needs another bit depth */
  IMG_NOT_GREY = -22,           /* an 8-bit image that is not grey-scale */
  IMG_NO_LZW_MODULE = -23,      /* the LZW module could not be loaded */
  IMG_NO_TRANSPARENCY = -26,    /* no transparent colour has been set */
  IMG_SCANNER_REQUEST = -28,    /* a scanner capability request failed */
  IMG_NO_ANIMATION_DELAY = -30, /* a GIF file without the expected extension block */
  IMG_PAGE_PAST_END = -31,      /* the page number is beyond the last page */
  IMG_NOT_TILED = -32,          /* the file is not tiled */
  IMG_NO_PDF_MODULE = -36       /* the PDF module could not be loaded */
};

/* ---- File type codes: a format and its compression ----------------------------------------
 *
 * What is read and written, by the depths of images in memory, in bits a pixel. IMG_get_format says the
 * same to programs. LSD, GX2, KFX, BTR, IMT, FXS, MAG, NCR, the TIFF compressions 45, 32008 and 32010 and
 * the codes 32, 33, 34, 51, 52, 53, 63 and 64 are refused with IMG_UNSUPPORTED, before a file that is to be
 * saved is touched: nobody has published what is in such files.
 *
 *               read                  written
 *   BMP, DIB    1, 4, 8, 16, 24, 32   every depth. A 16-bit file gives 24 bits with the low three
 *                                     bits 0, a bare 16-bit DIB 16; a file of two colours is taken
 *                                     as black and white
 *   BMP_RLE     4, 8                  4 as RLE4, 8 as RLE8 (16 and 32 give files that nobody reads)
 *   PCX, DCX    1, 4, 8, 24           1, 4, 8, 24
 *   JPEG        8, 24, 32             8, 24, 32
 *   PNG         1, 4, 8, 16, 24       1, 4, 8, 16, 24, and 32 of blue, green, red
 *   GIF         1, 4, 8               1, 4, 8; both by a module, which has to be there
 *   PDF         1 to 32, by a module  1, 8, 24, 32, and 4 with PDF_WRITING
 *   TIFF        1, 4, 8, 16, 24, 32   1, 4, 8, 16, 24, 32; Huffman, G3 and G4 1 bit; JPEG 8, 24, and
 *                                     32 of blue, green, red; LZW both by a module
 *   SUN         1, 4, 8, 24           1, 4, 8, 24, and 32 of blue, green, red
 *   CALS        1                     1
 *   ICA, MCA    1, 4, 8, 24, 32       1; MCA files of many pages
 *   MACPAINT    1                     nothing; GEM, MSP and TEXT likewise
 *   CUT         8, in grey            nothing; PHOTO_CD likewise, 24, and FLASHPIX, 8, 24
 *   JED         1, to whole bytes     1
 *   EPS         a preview in TIFF or  1, 4, 8, 24, 32; POSTSCRIPT likewise, a page of its own
 *               as a metafile
 *   PCL         nothing               1, 4, 8, 24, and 32 of blue, green, red
 *   SCT         8, 24, 32             1, 4, 8, 24, 32
 *   DICOM       8, 24, 32             nothing
 *   ICON        1, 4, 8, 16, 24       1, 4, 8, 24, and 32 of blue, green, red, up to 256 x 256; page
 *                                     0 is the largest picture
 *   PICT        1, 4, 8, 24, 32       1, 4, 8, 24, and 32 of blue, green, red; WMF and CLIPBOARD too
 *   PHOTOSHOP   1, 8, 24, 32          1, 4, 8, 24, 32; the merged picture
 *   TARGA       8, 24                 1, 4, 8, 24, and 32 of blue, green, red
 *   IFF, WPG    1, 4, 8, 24           1, 4, 8, 24, and 32 of blue, green, red
 *   XBM         1                     1
 *   XPM         1, 4, 8, 24           1, 4, 8
 *   XWD         1, 4, 8, 24           1, 4, 8, 24, and 32 of blue, green, red
 *
 * and with IMG_OPTION_EXTENDED_FORMATS:
 *
 *   PNM         1, 8, 24              1, 4, 8, 24, and 32 of blue, green, red, in bytes (P4, P5, P6);
 *                                     the pictures of a file are its pages
 *   WEBP        24, by a module       nothing; JPEG_2000 and HEIF (AVIF too) likewise */

enum {
  IMG_TYPE_BY_NAME = -1, /* saving only: chosen by the last three characters of the file name */
  IMG_TYPE_TIFF = 0,
  IMG_TYPE_BMP = 1,
  IMG_TYPE_PCX = 2,
  IMG_TYPE_TARGA = 3,
  IMG_TYPE_GIF = 4,
  IMG_TYPE_WPG = 5,
  IMG_TYPE_WMF = 6,
  IMG_TYPE_TIFF_HUFFMAN = 7,
  IMG_TYPE_TIFF_G3 = 8,
  IMG_TYPE_TIFF_LZW = 9,
  IMG_TYPE_TIFF_G4 = 10,
  IMG_TYPE_DCX = 11,
  IMG_TYPE_BMP_RLE = 12,
  IMG_TYPE_JPEG = 13,
  IMG_TYPE_EPS = 14,
  IMG_TYPE_PICT = 15,
  IMG_TYPE_TIFF_PACKBITS = 16,
  IMG_TYPE_TIFF_45 = 17,
  IMG_TYPE_CALS = 18,
  IMG_TYPE_LSD = 19,
  IMG_TYPE_XBM = 20,
  IMG_TYPE_MACPAINT = 21,
  IMG_TYPE_GX2 = 22,
  IMG_TYPE_KFX = 23,
  IMG_TYPE_ICA = 24,
  IMG_TYPE_ICON = 25,
  IMG_TYPE_IFF = 26,
  IMG_TYPE_CLIPBOARD = 27,
  IMG_TYPE_GEM = 28,
  IMG_TYPE_BTR = 29,
  IMG_TYPE_MSP = 30,
  IMG_TYPE_CUT = 31,
  IMG_TYPE_XPM = 35,
  IMG_TYPE_XWD = 36,
  IMG_TYPE_SUN = 37,
  IMG_TYPE_TEXT = 38,
  IMG_TYPE_PHOTO_CD = 39,
  IMG_TYPE_TIFF_JPEG = 40,
  IMG_TYPE_PHOTOSHOP = 41,
  IMG_TYPE_IMT = 42,
  IMG_TYPE_PNG = 43,
  IMG_TYPE_GIF_INTERLACED = 44,
  IMG_TYPE_TIFF_32010 = 46,
  IMG_TYPE_TIFF_32008 = 47,
  IMG_TYPE_DIB = 48, /* a BMP without its file header; saving only */
  IMG_TYPE_MCA = 49,
  IMG_TYPE_FLASHPIX = 54,
  IMG_TYPE_DICOM = 55,
  IMG_TYPE_JED = 56,
  IMG_TYPE_PCL = 57,
  IMG_TYPE_FXS = 58,
  IMG_TYPE_PDF = 59,
  IMG_TYPE_SCT = 60,
  IMG_TYPE_MAG = 61,
  IMG_TYPE_POSTSCRIPT = 62,
  IMG_TYPE_NCR = 65,
  IMG_TYPE_PNM = 100, /* these with IMG_OPTION_EXTENDED_FORMATS only */
  IMG_TYPE_WEBP = 101,
  IMG_TYPE_JPEG_2000 = 102,
  IMG_TYPE_HEIF = 103
};

/* ---- Callbacks --------------------------------------------------------------------------- */

/* Progress: called while an operation runs, once per row, `value` being the number of rows to
 * expect. A negative answer aborts the operation, which returns that answer. */
typedef int32_t(IMG_CB_STD* img_progress_fn)(intptr_t context, int32_t value);

/* Display: called with an image that was made or changed, or is about to be deleted, see
 * IMG_set_display_callback. The answer is ignored. */
typedef int32_t(IMG_CB_STD* img_display_fn)(intptr_t context, int32_t image, int32_t what);

/* Input and output of your own, see IMGLOW_set_fileio. Each returns the count of bytes read or
 * written, or the new position. A read may give fewer bytes than asked for: more are asked for
 * until it answers 0 or less. The write function may modify `buffer`. */
typedef int32_t(IMG_CB_C* img_read_fn)(int32_t stream, void* buffer, int32_t count);
typedef int32_t(IMG_CB_C* img_write_fn)(int32_t stream, void* buffer, int32_t count);
typedef int32_t(IMG_CB_C* img_seek_fn)(int32_t stream, int32_t offset, int32_t origin);

/* Row sink. The header callback is called once, before any row, with a header block of
 * IMG_HEADER_BLOCK_BYTES (40-byte header, 256 palette entries) that is valid until the decode
 * returns. The row callback is called once per row in the order of the file; y = 0 is the top row.
 * `bytes` is the row size of the header's width and depth; a 1-bit row of any other size is a run
 * list (a 16-bit length word, then 16-bit positions where the colour changes, white first). A BMP
 * file of compression 99 delivers rows of any length at other depths, too: never read beyond
 * `bytes`. The row belongs to the library: read it during the call only. A negative answer ends the
 * decode and is its result. */
typedef int32_t(IMG_CB_C* img_header_fn)(void* header, void* sink_context);
typedef int32_t(IMG_CB_C* img_row_fn)(void* row, void* sink_context, int32_t y, int32_t bytes);

/* Row supplier: fills `dest` with `bytes` bytes of row y (0 = top). Returns 0, or a negative value
 * that ends the save and is its result. For a 1-bit image, PDF asks for more bytes than a row has;
 * the supplier may instead give a list of transitions, if it fits, and return its length in bytes:
 * 32-bit words, first 0, then ascending positions where the colour changes, white first, then the
 * width three times and the width + 2 three times. */
typedef int32_t(IMG_CB_C* img_supply_fn)(void* save_context, void* dest, int32_t y, int32_t bytes);

#define IMG_HEADER_BLOCK_BYTES 1064
#define IMG_MEMORY_STREAM 32767 /* the stream handle of the one memory stream */

/* ---- Creating and deleting images -------------------------------------------------------- */

/* Makes an image from a packed DIB, or any image file, that lies in memory; a copy is taken.
 *
 *   packed_dib  header, palette and rows in one piece
 *
 * The size of the memory is not known: well-formed data are never read past their end, for data
 * from strangers use IMG_create_handle_block.
 * Returns the image handle, IMG_UNSUPPORTED (null, or nothing that is recognised),
 * IMG_OUT_OF_MEMORY, or the decoder's status. */
IMG_API int32_t IMG_CALL IMG_create_handle(void* packed_dib);

/* Registers the caller's packed DIB as an image without copying it.
 *
 *   packed_dib  BITMAPINFOHEADER, palette of the library's size (2, 16 or 256 entries; 256 for
 *               16 bits; none for 24 and 32), bottom-up rows. It must stay valid for as long as the
 *               image lives. May be unaligned.
 *
 * The palette of a 1-bit DIB whose entry 0 has no zero byte becomes black, white in the caller's
 * memory; the pixels are not touched.
 * Returns the image handle, IMG_BAD_IMAGE (null, a side or depth below 1, depth above 32, or a
 * memory block that is too small; a handle without pixels stays allocated then),
 * IMG_OUT_OF_MEMORY (table full, or sizes beyond the library's limit). */
IMG_API int32_t IMG_CALL IMG_create_handle_keep(void* packed_dib);

/* Makes an image of the given geometry with all pixels 0.
 *
 *   header      BITMAPINFOHEADER and its palette (2, 16 or 256 entries below 24 bits). A
 *               biClrUsed of 0x1000 | index makes that index transparent. biCompression stays if
 *               it is 200 and becomes 0 otherwise
 *
 * Decode size, rectangle and reduction settings do not apply.
 * Returns the image handle, IMG_BAD_IMAGE (null, a side below 1, a depth outside 1..32),
 * IMG_OUT_OF_MEMORY, IMG_REFUSED_BY_LICENCE. */
IMG_API int32_t IMG_CALL IMG_create_handle_shell(const void* header);

/* Makes an image from a device-dependent bitmap (an HBITMAP): 1-bit if that is monochrome, else
 * 24-bit.
 * Returns the image handle, IMG_NO_DEVICE_BITMAP (not a bitmap; always, except on Windows),
 * IMG_OUT_OF_MEMORY. */
IMG_API int32_t IMG_CALL IMG_create_handle_ddb(void* bitmap);

/* Frees an image and everything it owns; a DIB registered by IMG_create_handle_keep is freed only
 * if it is a global memory block. The lowest free handle is the next one given out.
 * Returns 0 or IMG_BAD_HANDLE. */
IMG_API int32_t IMG_CALL IMG_delete_bitmap(int32_t image);

/* Frees an image but not its DIB, which belongs to the caller from then on. Returns 0 or
 * IMG_BAD_HANDLE. */
IMG_API int32_t IMG_CALL IMG_delete_bitmap_keep(int32_t image);

/* ---- Asking about images ----------------------------------------------------------------- */

/* Gives width and height in pixels and the bit count.
 *
 * Returns the address of the image's BITMAPINFOHEADER; for an image in run lists (biCompression
 * 99) only header and palette may be read there, call IMG_runs_to_dib first to reach pixels. The
 * address changes when the image is processed. On failure the result is IMG_BAD_HANDLE or
 * IMG_OUT_OF_MEMORY (no pixels): compare with these two, because an address may be negative. */
IMG_API intptr_t IMG_CALL IMG_bitmap_info(int32_t image, int32_t* width, int32_t* height,
                                          int32_t* bits);

/* Copies header and palette, 40 to 1064 bytes, to `out`. Returns 0, IMG_BAD_HANDLE,
 * IMG_OUT_OF_MEMORY (no pixels). */
IMG_API int32_t IMG_CALL IMGLOW_get_bitmap_header(int32_t image, void* out);

/* The crop rectangle in pixels, which saving writes; the whole image at first. Setting clamps: x, y
 * outside the image become 0, sides below 1 become 1. A rectangle that reaches the right or bottom
 * edge is cut one pixel before it; callers rely on this. An empty result is refused when saving.
 * Return 0 or IMG_BAD_HANDLE. */
IMG_API int32_t IMG_CALL IMG_get_croprect(int32_t image, int32_t* x, int32_t* y, int32_t* width,
                                          int32_t* height);
IMG_API int32_t IMG_CALL IMG_set_croprect(int32_t image, int32_t x, int32_t y, int32_t width,
                                          int32_t height);

/* Where the image was last displayed, in device units. Returns 0 or IMG_BAD_HANDLE. */
IMG_API int32_t IMG_CALL IMGLOW_get_display_rect(int32_t image, int32_t* x, int32_t* y,
                                                 int32_t* width, int32_t* height);

/* Per-image display values: gamma in hundredths, 10 to 1000, beyond which it is clamped (0 and below,
 * and where none has been set: none; above 100 middle levels become lighter), the ternary raster
 * operation (SRCCOPY at first), and the angle: 0, 90, 180 or 270 degrees.
 * Return 0, IMG_BAD_HANDLE, IMG_UNSUPPORTED (another angle). */
IMG_API int32_t IMG_CALL IMG_set_gamma(int32_t image, int32_t value);
IMG_API int32_t IMG_CALL IMGLOW_set_rop(int32_t image, int32_t rop);
IMG_API int32_t IMG_CALL IMG_set_display_angle(int32_t image, int32_t degrees);

/* The transparent palette index. Encoders that can write it do. Getting returns the low 8 bits.
 * Return 0 or the index, IMG_BAD_HANDLE, IMG_NO_TRANSPARENCY (none has been set). */
IMG_API int32_t IMG_CALL IMGLOW_set_transp_color(int32_t image, int32_t index);
IMG_API int32_t IMG_CALL IMGLOW_get_transp_color(int32_t image);

/* ---- Pixels and palettes ----------------------------------------------------------------- */

/* Copies one row of pixels out of or into the image.
 *
 *   row         0 (top) to height - 1
 *   bytes       how many to copy; 0, or more than a row has, means the whole row (its padded size).
 *               The rest of the caller's buffer, or of the row, keeps its value.
 *
 * Size buffers by the row rule: pixels of 1, 4, 16, 24 and 32 bits are packed, those of every other
 * depth take a byte each (shells and registered DIBs of 2, 3 or 12 bits, too); then up to a multiple
 * of 4 bytes. A whole row is as long as that.
 *
 * Works on run lists too; their padding bits read as 1.
 * Return 0, IMG_BAD_HANDLE, IMG_OUT_OF_MEMORY (also: no pixels), IMG_UNSUPPORTED (row or count out
 * of range, null buffer; nothing is copied). */
IMG_API int32_t IMG_CALL IMGLOW_get_raster(int32_t image, void* out, int32_t row, int32_t bytes);
IMG_API int32_t IMG_CALL IMGLOW_put_raster(int32_t image, const void* in, int32_t row,
                                           int32_t bytes);

/* Copy the whole palette, 4 bytes an entry: 2, 16 or 256 entries, 256 for 16 bits, none for 24
 * and 32. Return 0, IMG_BAD_HANDLE, IMG_OUT_OF_MEMORY (no pixels). */
IMG_API int32_t IMG_CALL IMGLOW_get_palette(int32_t image, void* out);
IMG_API int32_t IMG_CALL IMGLOW_put_palette(int32_t image, const void* in);

/* The number of palette entries: 2, 16, 256, or 0 for 24 and 32 bits; the second also copies the
 * entries to `out`. Return the number, IMG_BAD_HANDLE, IMG_OUT_OF_MEMORY (no pixels). */
IMG_API int32_t IMG_CALL IMG_bitmap_palette(int32_t image);
IMG_API int32_t IMG_CALL IMG_get_bitmap_palette(int32_t image, void* out);

/* Change a 1-bit image from run lists to plain pixels and back; bit 1 is white in both. Calls in
 * the wanted form already change nothing. Images wider than 65533 pixels stay plain, and those up to
 * 32 pixels wide with more than 65535 rows, whose lists would be larger. The address given by
 * IMG_bitmap_info changes.
 * Return 0, IMG_BAD_HANDLE, IMG_OUT_OF_MEMORY, IMG_WRONG_DEPTH (IMG_dib_to_runs, not 1 bit). On
 * failure the image is unchanged. */
IMG_API int32_t IMG_CALL IMG_runs_to_dib(int32_t image);
IMG_API int32_t IMG_CALL IMG_dib_to_runs(int32_t image);

/* ---- Fewer colours ----------------------------------------------------------------------- */

/* The operations below replace the pixels of an image in place: the handle, the crop rectangle and
 * what else is set on the image stay, the address given by IMG_bitmap_info changes. Rows are
 * reported to the progress callback once each (of two passes the second). Whatever the reason of a
 * failure, the image is then unchanged. Colours of 32-bit images are understood by their marker,
 * see the top of this file. An image registered by IMG_create_handle_keep gets memory of its own;
 * yours is neither changed nor freed. All return 0 unless they say otherwise, IMG_BAD_HANDLE,
 * IMG_OUT_OF_MEMORY (also: no pixels), the status named for depths that they do not take, or a
 * progress callback's answer. */

/* To 8-bit grey with a linear grey palette, from 4, 8, 16, 24 or 32 bits (else IMG_UNSUPPORTED).
 * The formula depends on the depth: 24 and 32 bits (75 G + 38 R + 14 B) / 128, so that white is
 * 253; 8 and 16 bits the same less 40, but not below 0; 4 bits the weighted sum over 100, of which
 * the low 8 bits count: white becomes 67. */
IMG_API int32_t IMG_CALL IMG_color_gray(int32_t image);

/* To the fixed 256-colour palette of the dither mode (IMGLOW_set_dithermode: 2 the system's
 * colours, else 3 bits red, 3 green, 2 blue), with Burkes error diffusion, from 4, 8, 16, 24 or 32
 * bits (else IMG_WRONG_DEPTH). The palette does not depend on the image. */
IMG_API int32_t IMG_CALL IMG_mediancut_color(int32_t image);

/* To a palette chosen for the image by an octree, with serpentine Floyd-Steinberg diffusion, from
 * 8, 24 or 32 bits (else IMG_WRONG_DEPTH).
 *
 *   bits        4 for a 4-bit result, any other value for 8 bits
 *   palette     blue, green, red, 0 entries from which the tree is built; null: the pixels
 *   count       how many colours: 8 to 256 (at most 16 for 4 bits), other values are brought into
 *               that range. With a palette its low 30 bits are also the number of entries there,
 *               IMG_UNSUPPORTED above 65536.
 *
 * Returns the number of palette entries written, which may be less than asked for. */
IMG_API int32_t IMG_CALL IMG_octree_color(int32_t image, int32_t bits, const void* palette,
                                          int32_t count);

/* To the most frequent colours of 4 bits per channel, without diffusion, from 24 or 32 bits (else
 * IMG_UNSUPPORTED). Entry 0 is always black, and black may come again; unused entries are
 * 0xF0, 0xF0, 0xF0. Counts wrap at 65536. */
IMG_API int32_t IMG_CALL IMG_popularity_color(int32_t image);

/* ---- Black and white, 16 colours ------------------------------------------------------------ */

/* To 1 bit, black and white, from 4, 8, 16, 24 or 32 bits (else IMG_UNSUPPORTED): ordered dither
 * with dispersed dots, with clustered dots, or Stucki error diffusion with alternating direction.
 * The grey that counts is (30 R + 59 G + 11 B) / 100. The result is held as run lists
 * (biCompression 99), unless it is wider than 65533 pixels. */
IMG_API int32_t IMG_CALL IMG_bayer_mono(int32_t image);
IMG_API int32_t IMG_CALL IMG_halftone_mono(int32_t image);
IMG_API int32_t IMG_CALL IMG_diffusion_mono(int32_t image);

/* The same by a threshold: white is what is brighter than `threshold`. -1 chooses it: the histogram
 * is equalised and cut at 40 of 255, so about the darkest sixth of the image becomes black. */
IMG_API int32_t IMG_CALL IMG_thresh_mono(int32_t image, int32_t threshold);

/* To 4 bits with 16 fixed colours (bit 0 red, 1 green, 2 blue at 128, bit 3 at 255), from 4, 8, 16,
 * 24 or 32 bits (else IMG_UNSUPPORTED): ordered dither, or Burkes error diffusion. The ordered
 * dither of a 16-bit image is black. */
IMG_API int32_t IMG_CALL IMG_bayer_color(int32_t image);
IMG_API int32_t IMG_CALL IMG_diffusion_color(int32_t image);

/* ---- More bits ------------------------------------------------------------------------------ */

/* To 8 bits from 1, 4, 8 or 16 (else IMG_UNSUPPORTED). A 1-bit pixel becomes 0 or 255, a 4-bit one
 * its index, a 16-bit one its high byte. The palette entries stay; an image in run lists gets a
 * linear grey palette. */
IMG_API int32_t IMG_CALL IMG_promote_8(int32_t image);

/* To 24 bits from 1, 4, 8, 16 or 32 (else IMG_UNSUPPORTED). Palette indices become their colours;
 * the samples of a 16-bit image are copied as they are to the start of each row, the rest is 0.
 *
 * A 32-bit pixel with biCompression 0 is taken as cyan, magenta, yellow, black; with any other
 * value as unused, red, green, blue. That second layout is the one IMG_promote_32 makes from 24
 * bits, although it marks its result with 0: promoting a decoded 32-bit BMP (blue, green, red,
 * unused) exchanges its channels. The other operations read such images rightly. */
IMG_API int32_t IMG_CALL IMG_promote_24(int32_t image);

/* To 32 bits from 1, 4, 8, 16 or 24 (else IMG_UNSUPPORTED), biCompression 0. Palette indices become
 * blue, green, red, 0; a 24-bit pixel becomes 0, red, green, blue; 16-bit samples as above. */
IMG_API int32_t IMG_CALL IMG_promote_32(int32_t image);

/* ---- Pixels at other places ------------------------------------------------------------------
 *
 * These, too, replace the pixels of an image in place and leave it as it was on any failure. They
 * take 1, 4, 8, 16, 24 and 32 bits (else IMG_WRONG_DEPTH); depth, palette, marker, transparency and
 * form stay: run lists remain run lists unless they become wider than 65533 pixels. The progress
 * callback is told each row of the result. Where pixels move, the crop rectangle becomes the whole
 * image; the resolution is swapped with the sides. An argument out of its set is IMG_UNSUPPORTED,
 * before anything else happens. What changes nothing (a turn by 0) does nothing.
 *
 * A colour is a palette index for 1 to 8 bits (1 bit: 0 black, 1 white), a sample for 16, 0x00BBGGRR
 * for 24 and 32 bits (turned into cyan, magenta, yellow where the image holds these), or -1: paper,
 * which is white or what is nearest to white in the palette. */

/* Top to bottom; left to right. */
IMG_API int32_t IMG_CALL IMG_flip_bitmap(int32_t image);
IMG_API int32_t IMG_CALL IMG_mirror_bitmap(int32_t image);

/* Undoes an orientation, as IMGLOW_get_image_orientation tells it of a file: 1 nothing, 2 mirror, 3
 * turn by 180 degrees, 4 flip, 5 transpose, 6 turn by 90 degrees clockwise, 7 transpose what was
 * turned by 180, 8 turn by 270. */
IMG_API int32_t IMG_CALL IMG_orient_bitmap(int32_t image, int32_t value);

/* Keeps exactly this rectangle, which must lie inside the image. */
IMG_API int32_t IMG_CALL IMG_crop_bitmap(int32_t image, int32_t x, int32_t y, int32_t width,
                                         int32_t height);

/* Adds margins of a colour, in pixels; negative ones are taken away. A side must remain. */
IMG_API int32_t IMG_CALL IMG_extend_bitmap(int32_t image, int32_t left, int32_t top, int32_t right,
                                           int32_t bottom, int32_t colour);

/* Turns the sheet clockwise, as it is seen: where the resolutions differ, pixels are not square and
 * the turn takes that into account.
 *
 *   angle    hundredths of a degree, any value; multiples of 9000 are exact and look at nothing else
 *   colour   of what comes in from outside
 *   mode     1: the sides stay, corners are cut off (else the result holds the whole turned image);
 *            2: each pixel is the nearest one of the image, without new colours; 3: both
 *
 * Without 2 pixels are blended from four: 1 bit as grey and white again from the middle on; palettes
 * of grey in levels; palettes with colours as with 2. 16 bits need 2, or a multiple of 9000 (else
 * IMG_WRONG_DEPTH). The result has the same bits on every machine. */
IMG_API int32_t IMG_CALL IMG_rotate_bitmap(int32_t image, int32_t angle, int32_t colour,
                                           int32_t mode);

/* To other sides, of at least 1 pixel. The resolution changes with them, so that the sheet keeps its
 * size on paper.
 *
 *   method   0 nearest pixels, every depth; 1 exact means of what a pixel covers; 2 triangle, 3
 *            cubic, 4 Lanczos of three lobes; 5 as 1, and then 1 bit: white from the middle on
 *
 * Methods 1 to 5 take 1 bit and grey palettes of 4 and 8, where palettes with colours are
 * IMG_NOT_GREY; 1 to 4 also 24 and 32 bits (else IMG_WRONG_DEPTH). 1 bit becomes 8 with a linear grey
 * palette by 1 to 4. The result has the same bits on every machine. */
IMG_API int32_t IMG_CALL IMG_resize_bitmap(int32_t image, int32_t width, int32_t height,
                                           int32_t method);

/* The same to these dots per inch, 1 to 65535, which the result then has: fax pages become square.
 * IMG_UNSUPPORTED for an image without a resolution. */
IMG_API int32_t IMG_CALL IMG_resample_bitmap(int32_t image, int32_t x_dpi, int32_t y_dpi,
                                             int32_t method);

/* Light for dark, every bit of 1, 16, 24 and 32 bits and of indices into grey palettes; of a palette
 * with colours the entries become 255 less, and the pixels stay. The crop rectangle stays. */
IMG_API int32_t IMG_CALL IMG_invert_bitmap(int32_t image);

/* ---- Tone, filters, palettes -------------------------------------------------------------------
 *
 * These, too, replace the pixels of an image in place and leave it as it was on any failure; size,
 * depth, marker, transparency, resolution and crop rectangle stay. They take 4, 8, 24 and 32 bits
 * (else IMG_WRONG_DEPTH). Grey palettes are worked on in levels, of which each becomes the entry
 * nearest to it; of a palette with colours the entries are changed, not the pixels. Of 32-bit pixels
 * with biCompression 0 cyan, magenta, yellow and black are taken by the light that they leave; of
 * others the unused byte stays. An argument out of its set is IMG_UNSUPPORTED. The progress callback
 * is told each row. All results have the same bits on every machine. */

/* Brightness, contrast (-100..100 each, 0 changes nothing) and gamma (10..1000 hundredths, 100
 * changes nothing; more is lighter), in this order: a level v becomes 128 + d + 255 brightness / 100,
 * d being (v - 128) (100 + contrast) / 100 for a contrast up to 0, (v - 128) 100 / (100 - contrast)
 * above, black or white at 100; then 255 (v / 255)^(100 / gamma). */
IMG_API int32_t IMG_CALL IMG_tone_bitmap(int32_t image, int32_t brightness, int32_t contrast,
                                         int32_t gamma);

/* By tables of the caller's: 256 bytes for every channel, or 768 for blue, green and red (black ink
 * by their mean; a palette gets other entries even when it is grey). */
IMG_API int32_t IMG_CALL IMG_tone_table(int32_t image, const uint8_t* table);
IMG_API int32_t IMG_CALL IMG_tone_table3(int32_t image, const uint8_t* tables);

/* How many pixels have each level, to 256 counts, which stop at 2^32 - 1. channel: 0 grey (30 red + 59
 * green + 11 blue) / 100, 1 red, 2 green, 3 blue. The image stays as it is. */
IMG_API int32_t IMG_CALL IMG_get_histogram(int32_t image, int32_t channel, uint32_t* counts);

/* Stretches the levels, those of all channels alike, so that at most `clip` ten-thousandths of them
 * become 0 and as many 255: 0 to 4999, or -1 for 50. */
IMG_API int32_t IMG_CALL IMG_auto_levels(int32_t image, int32_t clip);

/* Spreads the levels of grey so that all of them come about equally often; colours move by the
 * difference of their grey. */
IMG_API int32_t IMG_CALL IMG_equalize_bitmap(int32_t image);

/* Each level or channel from those around it; the edges of the image repeat.
 *
 *   kind     0 mean, 1 Gauss, 2 median, 3 darkest, 4 lightest, 5 unsharp mask, 6 edges (the larger of
 *            the slopes to the right and down, by Sobel)
 *   radius   of 1 and 5: the deviation in hundredths of a pixel, 30 to 10000; of the others whole
 *            pixels, 1 to 127: windows have 2 radius + 1 on each side; of 6: 1
 *   amount   of 5: percent of the difference to the smooth image that is added, 0 to 1000; of others
 *            nothing
 *
 * 2, 3 and 4 take 1 bit as well (median: what there is more of). All bytes of 32-bit pixels are
 * treated alike, but the darkest of inks are the greatest. Palettes with colours are IMG_NOT_GREY. */
IMG_API int32_t IMG_CALL IMG_filter_bitmap(int32_t image, int32_t kind, int32_t radius,
                                           int32_t amount);

/* The same with weights of the caller's: `kernel` has width x height of them, row after row, the
 * middle one for the pixel itself. Sides are odd, up to 15; weights add up to at most 2^23 either way;
 * the result is sum / divisor (not 0) + offset, rounded half up and kept within 0..255. */
IMG_API int32_t IMG_CALL IMG_convolve_bitmap(int32_t image, const int32_t* kernel, int32_t width,
                                             int32_t height, int32_t divisor, int32_t offset);

/* To a palette chosen for this image, from 24 or 32 bits: boxes of colours are split where that
 * leaves the least squared error. An image with no more different colours keeps all of them exactly.
 *
 *   bits     4 or 8, of the result
 *   colours  at most, 2 to 16 or 256
 *   dither   0 none, 1 Floyd-Steinberg, every second row from the right
 *
 * Returns the number of palette entries. The other reductions choose in other ways, which stay. */
IMG_API int32_t IMG_CALL IMG_quantize_bitmap(int32_t image, int32_t bits, int32_t colours,
                                             int32_t dither);
/* ---- Finding and cleaning. Take 1 bit, palettes, 24 and 32 bits (16 bits are IMG_WRONG_DEPTH); greys
 * are (30 R + 59 G + 11 B) / 100. Searches leave the image as it is and report progress once per row
 * of it. Return what is said, or IMG_BAD_HANDLE, IMG_OUT_OF_MEMORY, IMG_UNSUPPORTED (an argument outside
 * its set), IMG_WRONG_DEPTH, or the negative answer of the progress callback; on failure the image is
 * unchanged. */

/* The level, 0 to 254, by which dark and light pixels part best (Otsu's rule), for IMG_thresh_mono; 127
 * for an image of one level, and of 1 bit. */
IMG_API int32_t IMG_CALL IMG_find_threshold(int32_t image);

/* To 1 bit, in run lists; what has 1 bit stays as it is. Returns 0.
 *
 *   method   0: one level for all, that of IMG_find_threshold; 1: a level for each pixel by what is
 *            around it (Sauvola's rule), for pages of uneven light and writing of uneven strength; 2:
 *            one level on paper that was made even, the one to begin with
 *   window   of method 1: side of what is around, odd, 3 to 255 pixels; 0: 1/12 inch, at least 15, or 25
 *            where there is no resolution
 *   k        of method 1: 1 to 100 hundredths, more for less black; 0: 34 */
IMG_API int32_t IMG_CALL IMG_adaptive_mono(int32_t image, int32_t method, int32_t window,
                                           int32_t k);

/* Makes paper even and light, at level 230: shadows, folds and yellow go, what is darker than its
 * surroundings stays. 8 bits of grey (colours are IMG_NOT_GREY), or 24, each channel by itself; else
 * IMG_WRONG_DEPTH. Returns 0. */
IMG_API int32_t IMG_CALL IMG_level_background(int32_t image);

/* How far a page of text lies from level. Angles are in hundredths of a degree, clockwise, for
 * IMG_rotate_bitmap; where the resolutions differ, of the sheet.
 *
 *   range        1 to 4500 each way; 0: 1500
 *   angle        out: the turn that makes it straight; may be null
 *   confidence   out: how much better than others that turn is, in hundredths: text has 400 and more,
 *                300 is enough to turn a page; 0: it cannot be told; may be null
 *
 * Returns 1, or 0 with an angle and a confidence of 0. */
IMG_API int32_t IMG_CALL IMG_find_skew(int32_t image, int32_t range, int32_t* angle,
                                       int32_t* confidence);

/* Turns it by that, as IMG_rotate_bitmap does, keeping its sides.
 *
 *   least    confidence from which on to turn, from 0 on; -1: 300
 *   colour   of what comes in from outside, as for IMG_rotate_bitmap
 *   angle    out: the turn that was made, or 0; may be null
 *
 * Returns 1 for turned and 0 for left alone: that is also what is off by less than 5 hundredths. */
IMG_API int32_t IMG_CALL IMG_deskew_bitmap(int32_t image, int32_t range, int32_t least,
                                           int32_t colour, int32_t* angle);

/* Which way up a page of text is: sideways by its lines, upside down by what reaches above and below
 * them. Pages of text in scripts that do not tell, and pages that may be anything, stay undecided.
 *
 *   angle        out: the turn that makes it upright: 0, 9000, 18000 or 27000; may be null
 *   confidence   out: 500 and more where it can be told, else 0; may be null
 *
 * Returns 1, or 0 with an angle and a confidence of 0. */
IMG_API int32_t IMG_CALL IMG_find_orientation(int32_t image, int32_t* angle, int32_t* confidence);

/* Turns it by that, when the confidence is at least `least`, from 0 on (-1: 500). `angle`, out, is the
 * turn that was made, or 0; it may be null. Returns 1 for turned, 0 for left alone. */
IMG_API int32_t IMG_CALL IMG_auto_orient_bitmap(int32_t image, int32_t least, int32_t* angle);

/* ---- Pages cleaned ---------------------------------------------------------------------------
 *
 * These look for what a scanner adds to a page. Depth, form and record of an image stay as with the
 * operations above; an image of which nothing is removed stays as it is, its memory included. */

/* Removes small components of a 1-bit image (else IMG_WRONG_DEPTH).
 *
 *   width    of the box of the largest that goes, in pixels, at least 1
 *   height   likewise
 *   mode     1: black on white; pixels that touch at a corner hang together
 *            2: white holes, with black all around, that hang together by sides; with 3 after the
 *               black specks have gone
 *            4, with 1 or 3: spares dots over and under letters, full stops and colons beside them,
 *               and rows of dots, by what stands beside them
 *
 * Returns how many were removed, or IMG_UNSUPPORTED for other arguments. */
IMG_API int32_t IMG_CALL IMG_despeckle_bitmap(int32_t image, int32_t width, int32_t height,
                                              int32_t mode);

/* Removes ruled lines from a 1-bit image (else IMG_WRONG_DEPTH), also those that slant by a few
 * degrees. What crosses them stays whole; a line of letters that hang on it is theirs.
 *
 *   length      of the shortest that goes, in pixels; 0: half an inch, where the longer side of the
 *               image is that of an A4 sheet, whatever its resolution says
 *   thickness   of the thickest, likewise; 0: 1/25 inch
 *   mode        1 lying, 2 standing, 3 both
 *
 * Returns how many were removed, or IMG_UNSUPPORTED for other arguments. */
IMG_API int32_t IMG_CALL IMG_remove_lines(int32_t image, int32_t length, int32_t thickness,
                                          int32_t mode);

/* Where the writing and the pictures of a page are: the smallest rectangle, in pixels from the top
 * left, of all that is no speck and no surround; with images of more than about 1170 pixels to a side
 * it may be wider by two blocks of side / 1170. Addresses may be null. Takes 1, 4, 8, 24 and 32 bits
 * (else IMG_WRONG_DEPTH).
 *
 * Returns 1, or 0 and zeros for a blank page; searches leave the image as it is. */
IMG_API int32_t IMG_CALL IMG_find_content(int32_t image, int32_t* x, int32_t* y, int32_t* width,
                                          int32_t* height);

/* Keeps that rectangle with a margin in pixels, as far as the image goes; the margin is at least 0.
 * Returns 1, or 0 where there was nothing to crop. */
IMG_API int32_t IMG_CALL IMG_autocrop_bitmap(int32_t image, int32_t margin);

/* The sheet inside a dark surround, in pixels from the top left: of a sheet that lies askew the box of
 * it. Addresses and depths as above. Returns 1, or 0 and the whole image where there is no surround. */
IMG_API int32_t IMG_CALL IMG_find_paper(int32_t image, int32_t* x, int32_t* y, int32_t* width,
                                        int32_t* height);

/* Paints the surround: dark areas, and shadows, that come in from an edge of the image; not writing
 * that touches it. The sides stay. Returns 1, or 0 where there was none.
 *
 *   colour   as above, -1: paper */
IMG_API int32_t IMG_CALL IMG_remove_border(int32_t image, int32_t colour);

/* Whether there is nothing on a page but dust, punch holes, shadows of its edges and what shines
 * through from its back beside darker ink. One word, a page number, a signature are something.
 *
 *   tolerance   0: what is 1.2 mm long counts, where the longer side of the image is that of an A4
 *               sheet; 1 to 100: as many tenths of a millimetre more
 *
 * Returns 1 or 0. */
IMG_API int32_t IMG_CALL IMG_is_blank(int32_t image, int32_t tolerance);

/* ---- Showing ---------------------------------------------------------------------------------
 *
 * A view says which part of an image is seen in a window, how large and how it is turned. The library
 * makes the window's pixels from it, in bands of any height, on every system; each pixel depends on its
 * own place in the picture alone, so that bands and scrolled windows hold the same bytes. */

enum {
  IMG_FIT_NONE,   /* zoom */
  IMG_FIT_WINDOW, /* as large as the window holds */
  IMG_FIT_SHRINK, /* the same, but never larger than its pixels */
  IMG_FIT_WIDTH,  /* as wide as the window; as high */
  IMG_FIT_HEIGHT,
  IMG_FIT_FILL,    /* no margin; what is too much scrolls */
  IMG_FIT_STRETCH, /* exactly the window, out of proportion */
  IMG_FIT_SIZE     /* as large as on paper, times zoom; of an image without resolution as _NONE */
};
enum {
  IMG_VIEW_SQUARE = 1,     /* pixels are square: the resolution does not count */
  IMG_VIEW_TOP_LEFT = 2,   /* a picture smaller than the window lies top left, not centred */
  IMG_VIEW_BACKGROUND = 4, /* paint around the picture and under transparent pixels */
  IMG_VIEW_NO_TONE = 8,    /* neither tone nor gamma */
  IMG_VIEW_KEEP = 16       /* keep what was drawn for the next drawing of this view */
};
enum { IMG_PIXELS_GREY = 8, IMG_PIXELS_BGR = 24, IMG_PIXELS_BGRX = 32 }; /* X is 255 */

/* Zero everything, set `bytes`, then what you need. */
typedef struct img_view {
  int32_t bytes;              /* sizeof(img_view); of a smaller one the rest counts as 0 */
  int32_t source_x, source_y; /* image pixels; all 0: the crop rectangle */
  int32_t source_width, source_height;
  int32_t width, height;      /* the window, device pixels */
  int32_t fit;                /* IMG_FIT_... */
  int32_t zoom;               /* thousandths, for IMG_FIT_NONE and IMG_FIT_SIZE; 0 counts as 1000 */
  int32_t scroll_x, scroll_y; /* device pixels from the picture's top left corner */
  int32_t device_dpi_x, device_dpi_y; /* dots per inch, for IMG_FIT_SIZE */
  int32_t angle; /* degrees clockwise, added to the image's display angle: 0, 90, 180 or 270 */
  int32_t flags; /* IMG_VIEW_... */
  uint32_t background; /* 0x00BBGGRR */
} img_view;

typedef struct img_layout {
  int32_t x, y, width, height;         /* the picture in the window; may reach beyond it */
  int32_t scroll_x, scroll_y;          /* as used: clamped */
  int32_t scroll_width, scroll_height; /* the largest scroll values; 0: everything is visible */
  int32_t zoom_x, zoom_y;              /* thousandths of the picture's pixels, rounded */
} img_layout;

/* Where the picture lies. Where the resolutions differ and IMG_VIEW_SQUARE is not set, the coarser
 * axis is stretched: the natural size of a fax page of 204 x 98 dots per inch is 2.08 times as high as
 * its rows. Sides are rounded, halves up, and at least 1.
 *
 * This and the functions below return 0 (the two that map points: 1 inside of the picture, 0 outside,
 * the nearest pixel then being given), IMG_BAD_HANDLE, IMG_OUT_OF_MEMORY (also: no pixels),
 * IMG_UNSUPPORTED (no view, `bytes` below 4; an unknown fit, angle or flag; a negative zoom; a
 * picture's side above 67108864; no device resolution for IMG_FIT_SIZE), IMG_EMPTY_DISPLAY_RECT (a
 * window side below 1), IMG_BAD_IMAGE (nothing of the image is in the source rectangle). */
IMG_API int32_t IMG_CALL IMG_view_layout(int32_t image, const img_view* view, img_layout* out);

/* Between pixels of the window and of the image. Of an enlarged picture a pixel of the image leads to
 * the window and back to itself, of a reduced one a pixel of the window to the image and back. */
IMG_API int32_t IMG_CALL IMG_window_to_image(int32_t image, const img_view* view, int32_t x,
                                             int32_t y, int32_t* image_x, int32_t* image_y);
IMG_API int32_t IMG_CALL IMG_image_to_window(int32_t image, const img_view* view, int32_t image_x,
                                             int32_t image_y, int32_t* x, int32_t* y);

/* Change zoom and scroll of a view: so that the point under window pixel x, y stays there, with another
 * zoom in thousandths above 0 (a fit other than IMG_FIT_SIZE becomes IMG_FIT_NONE); by device pixels,
 * as far as there is something to scroll to. IMG_UNSUPPORTED also when `bytes` of the view does not
 * reach to scroll_y. On failure the view is unchanged. */
IMG_API int32_t IMG_CALL IMG_zoom_view(int32_t image, img_view* view, int32_t x, int32_t y,
                                       int32_t zoom);
IMG_API int32_t IMG_CALL IMG_scroll_view(int32_t image, img_view* view, int32_t dx, int32_t dy);

/* Makes rows of the window.
 *
 *   pixels_format  IMG_PIXELS_GREY (77 red + 151 green + 28 blue, of 256), _BGR or _BGRX
 *   pixels         room for row `first_row`, column 0; row y is (y - first_row) * stride bytes behind
 *   stride         bytes, at least those of a row, or at most minus that: rows from the bottom
 *   first_row      with `rows`: which; they must be in the window
 *
 * Reduced, a pixel is the mean of what it covers, within 1 of the exact value and with the same bits
 * on every machine; enlarged, the nearest one (IMGLOW_set_alias). 1-bit images become grey, without
 * being expanded where they are run lists. Then brightness, contrast and gamma count
 * (IMG_set_display_tone, IMG_set_gamma), and the raster operation (IMGLOW_set_rop): those that need no
 * pattern work on the caller's pixels (else IMG_UNSUPPORTED). Pixels of the transparent colour show
 * the background with IMG_VIEW_BACKGROUND, else what is in the caller's memory, for each pixel as far
 * as it is made of them; with a raster operation other than SRCCOPY they are like others. Around the
 * picture nothing is written without IMG_VIEW_BACKGROUND. Cyan to black become colours without a
 * profile.
 *
 * Returns what IMG_view_layout does, or IMG_UNSUPPORTED for a format, stride or rows that cannot be;
 * out of memory leaves the pixels undefined. */
IMG_API int32_t IMG_CALL IMGLOW_render_view(int32_t image, const img_view* view,
                                            int32_t pixels_format, void* pixels, intptr_t stride,
                                            int32_t first_row, int32_t rows);

/* Brightness and contrast, -100 to 100 each, 0 and 0 at first. A level v becomes 128 + d + 255
 * brightness / 100 within 0 to 255, d being (v - 128) (100 + contrast) / 100 for a contrast of 0 and
 * below, (v - 128) 100 / (100 - contrast) above, and for 100 black or white. Shown and printed images
 * have it before gamma, and SAVED ones, too: on the palette up to 16 bits, on each byte of 24 and 32,
 * of cyan to black on the levels that are left of white. IMG_copy_dib and IMG_copy_page give what is
 * stored.
 *
 * Returns 0, IMG_BAD_HANDLE, IMG_UNSUPPORTED (a value out of range; nothing changes). */
IMG_API int32_t IMG_CALL IMG_set_display_tone(int32_t image, int32_t brightness, int32_t contrast);

/* Has a callback told of images, by the thread that is at work: IMG_IMAGE_MADE after a call that gave a
 * new handle, _CHANGED after one that has changed pixels, palette or sides, _GOING before one that
 * deletes (not of images that go with their context). It may call the library. Null: none. Belongs to
 * the calling thread's context. Returns 0. */
enum { IMG_IMAGE_MADE = 1, IMG_IMAGE_CHANGED = 2, IMG_IMAGE_GOING = 3 };
IMG_API int32_t IMG_CALL IMG_set_display_callback(intptr_t context, img_display_fn callback);

/* Draws a view into a window, a memory bitmap, a metafile (Windows).
 *
 *   hdc           the device context
 *   x .. height   the window in it, in its logical units
 *   view          null: IMG_FIT_WINDOW; its own width and height are not read
 *
 * Only what is to be repainted is rendered, and nothing is scaled by the system. Transparent pixels and
 * what lies around the picture show what is there, on printers and metafiles white, unless the view
 * has a background. Raster operations are those of the device. Afterwards IMGLOW_get_display_rect gives
 * the picture's rectangle, cut to the window, in device units. With IMG_VIEW_KEEP the image keeps what
 * was drawn (4 bytes a pixel of the window, up to 64 MB) for the next call with the same view: until
 * the library changes its pixels. What a caller writes through the address of IMG_bitmap_info is not
 * seen.
 *
 * Returns what IMG_view_layout does (IMG_EMPTY_DISPLAY_RECT: nothing is drawn or remembered), or
 * IMG_WRITE_FAILED where the system refuses to draw, or IMG_UNSUPPORTED: no device context, or none on
 * this system. */
IMG_API int32_t IMG_CALL IMG_display_bitmap_iac(int32_t image, void* hdc, int32_t x, int32_t y,
                                                int32_t width, int32_t height,
                                                const img_view* view);

/* The same in so many steps, at least 1, with an effect: 1 to 4 from left, right, top, bottom; 5, 6
 * left and right halves opening, closing; 7, 8 upper and lower ones; 9, 10 a box from, to the centre;
 * 11, 12 eight horizontal, vertical blinds; 13 a checkerboard; 14 a staircase of squares; 15 squares in
 * disorder; 0 at once. Between steps it waits (IMGLOW_set_wipedelay); the progress callback is asked
 * once a step, and a negative answer completes the picture at once, which is no failure. An unknown
 * effect is IMG_UNSUPPORTED. */
IMG_API int32_t IMG_CALL IMG_display_wipe(int32_t image, void* hdc, int32_t x, int32_t y,
                                          int32_t width, int32_t height, const img_view* view,
                                          int32_t effect, int32_t steps);

/* What one step of an effect uncovers, for programs that draw by themselves: rectangles of x, y, width,
 * height in a window. Over steps 0 to steps - 1 each pixel is uncovered exactly once.
 *
 *   room  of `rects`, in rectangles
 *
 * Returns their number; where that is more than `room`, nothing is written. IMG_UNSUPPORTED for an
 * unknown effect or step, IMG_EMPTY_DISPLAY_RECT for a side below 1. */
IMG_API int32_t IMG_CALL IMGLOW_wipe_rects(int32_t effect, int32_t step, int32_t steps,
                                           int32_t width, int32_t height, int32_t* rects,
                                           int32_t room);

/* Draw onto a printer, between StartPage and EndPage (Windows): arguments and results as of
 * IMG_display_bitmap_iac. All four of x to height 0: the printable area, in true size, or what of it
 * fits. 1-bit images are sent as 1-bit pixels of the device, so that text stays sharp; to devices of one
 * bit others are diffused. The second lets the device scale: it gets the image's own pixels, unless the
 * view is turned, cut or has a background, or the picture has more pixels than its place there. The
 * progress callback is asked for each band; a negative answer is the result: then call AbortDoc. */
IMG_API int32_t IMG_CALL IMG_print_bitmap(int32_t image, void* hdc, int32_t x, int32_t y,
                                          int32_t width, int32_t height, const img_view* view);
IMG_API int32_t IMG_CALL IMG_print_bitmap_fast(int32_t image, void* hdc, int32_t x, int32_t y,
                                               int32_t width, int32_t height, const img_view* view);

/* Prints images, each on a page of its own, turned like the picture.
 *
 *   printer      its name; null: the default one
 *   title        of the document, for the list of print jobs; null: none
 *   output_file  prints to a file; null: to the printer's port
 *   copies       at least 1, each of all pages
 *   view         null: true size, or what of it fits
 *
 * Returns the number of pages printed, or IMG_CANNOT_OPEN (no such printer), IMG_WRITE_FAILED,
 * IMG_UNSUPPORTED (no images or copies; no printing on this system), what IMG_print_bitmap returns. */
IMG_API int32_t IMG_CALL IMG_print_pages(const int32_t* images, int32_t count, const char* printer,
                                         const char* title, const char* output_file, int32_t copies,
                                         const img_view* view);

/* Puts what IMG_copy_dib gives on the clipboard, with a transparent colour also as a bitmap with alpha
 * (CF_DIBV5); makes an image of what is there (Windows). `window` is the caller's, or null.
 *
 * Return 0 and an image handle, or IMG_BAD_HANDLE, IMG_OUT_OF_MEMORY, IMG_BAD_IMAGE (an empty crop
 * rectangle; bad data), IMG_CANNOT_OPEN (no picture on the clipboard), IMG_WRITE_FAILED (another program
 * has the clipboard), IMG_UNSUPPORTED (another system). */
IMG_API int32_t IMG_CALL IMG_copy_to_clipboard(int32_t image, void* window);
IMG_API int32_t IMG_CALL IMG_paste_from_clipboard(void* window);

/* How long a frame of a GIF file is to be shown, in milliseconds: ten times what it says. Frames count
 * from 0. IMG_CANNOT_OPEN, IMG_BAD_IMAGE, IMG_NO_ANIMATION_DELAY (it does not say),
 * IMG_PAGE_PAST_END. */
IMG_API int32_t IMG_CALL IMG_get_frame_delay(const char* name, int32_t frame);

/* Opens a GIF file as an animation: an image of the screen's size, 32 bits of blue, green, red, on
 * which the first frame has been drawn over white. It is an image like others; whatever changes its
 * pixels is seen by later frames, and when it gets other sides or another depth the animation has
 * ended. Deleting it ends the animation and closes the file.
 *
 * Returns a handle, or IMG_CANNOT_OPEN, IMG_BAD_IMAGE, IMG_OUT_OF_MEMORY, IMG_NO_LZW_MODULE. */
IMG_API int32_t IMG_CALL IMG_open_animation(const char* name);

/* Draws the next frame, after the last one the first, as often as the file says.
 *
 *   delay  how long what is now seen is to stay, in milliseconds, as viewers do it: at least 20, of
 *          shorter ones 100
 *   frame  its number
 *
 * Returns 1, 0 when the last loop has ended (the last frame stays; delay and frame are its own),
 * IMG_BAD_HANDLE, IMG_UNSUPPORTED (no animation, or one that has failed), IMG_OUT_OF_MEMORY, or what
 * was wrong with the frame. */
IMG_API int32_t IMG_CALL IMG_next_frame(int32_t canvas, int32_t* delay, int32_t* frame);

/* ---- Scanning -------------------------------------------------------------------------------
 *
 * Pages from a scanner, one page of memory at a time: on Windows by TWAIN's source manager (32 bits:
 * TWAIN_32.DLL, else TWAINDSM.dll, which 64-bit processes use alone; they see no 32-bit sources, of
 * which there are most: run the program tarnquill.exe of the 32-bit package for those), elsewhere by
 * SANE (libsane.so.1). Both are loaded at the first call that needs them.
 *
 * There is one session in the process, and one call at a time works on it: during a call every other
 * one but IMG_scan_cancel is IMG_NO_SCANNER_SESSION, also from a callback and from another thread.
 * On Windows a session belongs to the thread that opened it.
 *
 * The result is IMG_NO_SCANNER_LIBRARY where the library or one of its functions is missing, and
 * IMG_NO_SCANNER_SESSION where no source is open, or manager or source refuse. IMG_scan_reason then
 * says why. */

/* Options of a scan. A value that was never set, and 0 where 0 has no other meaning, is the source's
 * own. What a source cannot do is left out: set what you like, scan what you get. */
enum {
  IMG_SCAN_RESOLUTION = 1, /* thousandths of dots per inch, along both axes */
  IMG_SCAN_MODE = 2,       /* bits a pixel: 1, 8 or 24 */
  IMG_SCAN_FEEDER = 3,     /* 0 the glass, 1 the feeder */
  IMG_SCAN_DUPLEX = 4,     /* 1: both sides */
  IMG_SCAN_LEFT = 5,       /* thousandths of an inch, as the three below */
  IMG_SCAN_TOP = 6,
  IMG_SCAN_WIDTH = 7, /* 0: all there is */
  IMG_SCAN_HEIGHT = 8,
  IMG_SCAN_BRIGHTNESS = 9,    /* -1000 to 1000 */
  IMG_SCAN_CONTRAST = 10,     /* -1000 to 1000 */
  IMG_SCAN_THRESHOLD = 11,    /* 0 to 255, of 1 bit a pixel */
  IMG_SCAN_DIALOG = 12,       /* 1: the source shows its own window (TWAIN) */
  IMG_SCAN_TRANSFER = 13,     /* TWAIN: 0 choose, 1 memory, 2 native, 3 file */
  IMG_SCAN_PAPER_LOADED = 14, /* read only: 1 there is paper in the feeder, 0 there is none */
  IMG_SCAN_MAX_PAGES = 15     /* 0: until the feeder is empty */
};

/* Of the result of IMG_scan_values: the values are least, most, step. */
#define IMG_SCAN_IS_RANGE 0x40000000

/* A page has come: `image` belongs to you, `page` counts from 0. A negative answer stops the feeder
 * and is the result. */
typedef int32_t(IMG_CB_STD* img_scan_fn)(intptr_t context, int32_t image, int32_t page);

/* The name of a source, as it is delivered (ANSI of TWAIN, UTF-8 of SANE), cut to `room` bytes with the
 * 0 at its end. SANE looks for devices at index 0, which may take seconds; the others are those found
 * then.
 *
 *   index       from 0
 *   name        may be null, as elsewhere here; `room` below 1 is the same
 *
 * Returns 1, 0 beyond the last source, IMG_NO_SCANNER_LIBRARY, IMG_NO_SCANNER_SESSION. */
IMG_API int32_t IMG_CALL IMG_scan_source(int32_t index, char* name, int32_t room);

/* TWAIN's own dialog; the chosen source is the default from then on.
 *
 *   window      the window (HWND) that it stands before; null: one of its own
 *
 * Returns 1 chosen, 0 cancelled, IMG_UNSUPPORTED (SANE), IMG_NO_SCANNER_LIBRARY,
 * IMG_NO_SCANNER_SESSION. */
IMG_API int32_t IMG_CALL IMG_scan_select(void* window, char* name, int32_t room);

/* Opens a source and tells it the options that have been set. A source that is open already is closed.
 *
 *   window      as above; it must stay for as long as the source is open
 *   source      a name from IMG_scan_source; null: the default one, of SANE the first
 *
 * Returns 0, IMG_NO_SCANNER_LIBRARY, IMG_NO_SCANNER_SESSION, IMG_OUT_OF_MEMORY. */
IMG_API int32_t IMG_CALL IMG_scan_open(void* window, const char* source);

/* Sets an option. The value is kept, also while no source is open and for the next one.
 *
 * Returns 0, 1 (the source has taken another value, see IMG_scan_get), IMG_SCANNER_REQUEST (it takes
 * none), IMG_UNSUPPORTED (no such option, read only, a value outside of its set). */
IMG_API int32_t IMG_CALL IMG_scan_set(int32_t option, int32_t value);

/* The value in force at the source; of what only counts here, or while no source is open, the value
 * that was set.
 *
 * Returns 0, IMG_SCANNER_REQUEST (the source does not tell), IMG_UNSUPPORTED (no such option),
 * IMG_NO_SCANNER_SESSION (paper). */
IMG_API int32_t IMG_CALL IMG_scan_get(int32_t option, int32_t* value);

/* What the open source can take.
 *
 *   values      room for `room` of them, in the option's unit, in the source's order; may be null
 *
 * Returns how many there are, which may be more than `room`; or 3 | IMG_SCAN_IS_RANGE, the values being
 * least, most, step (0: any); IMG_SCANNER_REQUEST (the source does not tell, or the option does not
 * concern it), IMG_UNSUPPORTED, IMG_NO_SCANNER_SESSION. */
IMG_API int32_t IMG_CALL IMG_scan_values(int32_t option, int32_t* values, int32_t room);

/* Scans: from the glass a page, from the feeder page after page.
 *
 * Images are 1 bit (run lists), 8 bits (a grey ramp or a palette) or 24, of the resolution that the
 * page says, else the source, else the request. Samples of 16 bits give their high byte. Rows are
 * reported to the progress callback, its value being 0 where the height is not known before. The
 * settings of decoding and the caller's own input and output do not apply.
 *
 * Returns the number of pages: 0 for an empty feeder, or when the user closes the source's window.
 * Else, the pages before it having been delivered: IMG_READ_FAILED (jam, double feed, open cover, or
 * the device fails: IMG_scan_reason says which), IMG_NO_SCANNER_SESSION (not open, busy, or it will not
 * start), IMG_OUT_OF_MEMORY, IMG_UNSUPPORTED (pixels of a kind that is not taken),
 * IMG_STOP_AFTER_HEADER (IMG_scan_cancel), the answer of the callback or of the progress callback. The
 * source stays open. */
IMG_API int32_t IMG_CALL IMG_scan_pages(img_scan_fn callback, intptr_t context);

/* The same, each page being saved as it comes, and deleted.
 *
 *   name        with a run of '#', the last one of the name: a file for each page, its number in
 *               place of these, with zeros in front; a file that is there is replaced. Without it
 *               all pages go into one file, which `code` must be able to hold; to a file that
 *               exists they are added
 *   first       number of the first page, 0 or above
 *   code        file type code; IMG_TYPE_BY_NAME by the end of the name
 *
 * Returns as above; IMG_UNSUPPORTED also for a code that cannot be saved, or that holds one page while
 * there is no '#', before anything moves; or what saving returned. */
IMG_API int32_t IMG_CALL IMG_scan_to_files(const char* name, int32_t first, int32_t code);

/* Ends the scan at work, which returns IMG_STOP_AFTER_HEADER; from a callback or from another thread.
 * The page at work is dropped. Returns 0, or IMG_NO_SCANNER_SESSION (none is). */
IMG_API int32_t IMG_CALL IMG_scan_cancel(void);

/* Why the last call here failed: the source's own code (TWAIN's condition code, SANE's status; 0:
 * there was none), and words for it in English, cut to `room` bytes with the 0 at their end. */
IMG_API int32_t IMG_CALL IMG_scan_reason(char* text, int32_t room);

/* Closes the source and unloads the library. Returns 0, also when none is open;
 * IMG_NO_SCANNER_SESSION during a scan. */
IMG_API int32_t IMG_CALL IMG_scan_close(void);

/* ---- Settings: process-wide, read at every call. Setters return 0 unless they say otherwise. */

/* Switches progress reports on (enable not 0: stores callback and context; a null callback leaves
 * reporting off) or off. */
IMG_API int32_t IMG_CALL IMG_set_statusbar(intptr_t context, img_progress_fn callback,
                                           int32_t enable);

/* Two values that are stored only: nothing reads or calls them. */
IMG_API int32_t IMG_CALL IMGLOW_set_dispfunc(intptr_t a, intptr_t b);

/* Reduces images while they are decoded: 8 (from 24 bits and above), 4 (from 8 and above) or 1
 * (from 4 and above) bits per pixel against fixed palettes; any other value, or a source below
 * that, leaves the depth alone. Default 0. */
IMG_API int32_t IMG_CALL IMGLOW_set_decomp_reduction(int32_t bits);

/* Scales images down while they are decoded, by nearest neighbour, to exactly width x height
 * pixels, if the source is larger in both directions. A value below 1 switches it off. Default
 * off. */
IMG_API int32_t IMG_CALL IMGLOW_set_decompsize(int32_t width, int32_t height);

/* Decodes only a rectangle of the image, in pixels; it counts while no decode size is set. A
 * direction is cut when width - x (height - y) is below the source's side, and the result then has
 * exactly the given width (height); pixels beyond the source are 0, white for 1 bit. x and y below
 * 0 are stored as 0. All four 0 (default): the whole image. Of a file that is decoded into an image,
 * what lies outside of the rectangle's rows may be left unread: damage there is not told, unless
 * IMG_OPTION_STRICT is set or progress is reported. */
IMG_API int32_t IMG_CALL IMGLOW_set_decomp_rect(int32_t x, int32_t y, int32_t width,
                                                int32_t height);

/* How colours are reduced while decoding: 2 takes the nearest colour or a fixed threshold, any
 * other value an ordered dither. It also chooses the palette of IMG_mediancut_color. Default 1. */
IMG_API int32_t IMG_CALL IMGLOW_set_dithermode(int32_t mode);

/* How images are shown. autocolor: other than 0, palettes that are all grey are shown as colours, too,
 * which changes only how much work it is. alias: 0 takes the nearest pixels; other values, and at
 * first: what is reduced is averaged. alias_quality: 0 averages whole pixels; 1, at first, exact
 * areas; 2 also blends the pixels of what is enlarged, other than of 1 bit. wipedelay: milliseconds
 * for a step, 10 at first; 0 to 1000 count. */
IMG_API int32_t IMG_CALL IMGLOW_autocolor(int32_t flag);
IMG_API int32_t IMG_CALL IMGLOW_set_alias(int32_t value);
IMG_API int32_t IMG_CALL IMGLOW_set_alias_quality(int32_t value);
IMG_API int32_t IMG_CALL IMGLOW_set_wipedelay(int32_t delay);

/* Whether detection may report a format, one switch per file type code. The TIFF variants 7, 8, 9,
 * 10, 16, 17 and 40 share the switch of 0, 12 that of 1. All are on except 38 (plain text) and 66.
 * Return the switch's previous (get: present) value, 0 or 1; IMG_UNSUPPORTED outside 0..66. */
IMG_API int32_t IMG_CALL IMGLOW_set_auto_detect(int32_t code);
IMG_API int32_t IMG_CALL IMGLOW_unset_auto_detect(int32_t code);
IMG_API int32_t IMG_CALL IMGLOW_get_auto_detect(int32_t code);

/* The version of this interface: 8 and 3. */
IMG_API int32_t IMG_CALL IMG_ifl_version(int32_t* major, int32_t* minor);

/* Replaces reading, writing and seeking of ALL streams, the memory stream included, by functions
 * of the caller; a null pointer brings the library's own back. `origin` is 0 (start), 1 (current)
 * or 2 (end); seek(stream, 0, 1) asks for the position. */
IMG_API int32_t IMG_CALL IMGLOW_set_fileio(img_read_fn read, img_write_fn write, img_seek_fn seek);

/* Scrambles what the library's own functions write and read: each byte XOR the sum of the key's
 * four bytes (0xAA if that is 0). Not encryption. `on`: its low byte 0 switches it off. */
IMG_API int32_t IMG_CALL IMG_set_encrypt(int32_t on, int32_t key);

/* Unloads the modules that GIF, TIFF LZW and other codecs live in, see tarnquill_plugin.h; the next
 * use loads them again. During a call of a module, from a callback, they go when it has returned.
 * Returns 0. */
IMG_API int32_t IMG_CALL IMG_unload_plugins(void);

/* ---- Formats ------------------------------------------------------------------------------ */

enum { /* flags of img_format */
       IMG_FORMAT_READS = 1,
       IMG_FORMAT_WRITES = 2,
       IMG_FORMAT_PAGES = 4,     /* files may hold several pages */
       IMG_FORMAT_APPENDS = 8,   /* saving to an existing file adds a page */
       IMG_FORMAT_DETECTED = 16, /* IMGLOW_get_filetype may answer this code */
       IMG_FORMAT_MODULE = 32    /* needs a module that cannot be loaded now */
};

/* A file type code and what the library does with it. Plain 32-bit fields and ASCII. */
typedef struct {
  int32_t size;         /* set by the caller: sizeof(img_format) */
  int32_t code;         /* file type code */
  int32_t flags;        /* IMG_FORMAT_READS ... */
  int32_t read_depths;  /* of images that are made: bit 0 is 1 bit a pixel, then 4, 8, 16, 24, 32 */
  int32_t write_depths; /* of images that can be saved so that they can be read again */
  char name[16];        /* short, for a command line: "tiff-g4" */
  char title[32];       /* "TIFF Group 4" */
  char extension[8];    /* of file names, without a dot; "" when no file name chooses the code */
} img_format;

/* Describes the formats one by one, each variant that has a code of its own included.
 *
 *   index       from 0; the order is that of detection
 *   format      filled but for its size, which says how large the caller's structure is
 *
 * Looks for the modules of the formats that need one. Returns 0, or IMG_UNSUPPORTED: beyond the
 * last, null, or a size below that of img_format. */
IMG_API int32_t IMG_CALL IMG_get_format(int32_t index, img_format* format);

/* ---- What a file is ----------------------------------------------------------------------- */

/* The file type code of a file, an open stream (at its current position, which is restored), or a
 * memory block. The stream handle of an open file is an OS handle on Windows (the low 32 bits of a
 * HANDLE), a file descriptor elsewhere; a descriptor 32767 of yours would be taken as the memory
 * stream.
 * Return the code, IMG_CANNOT_OPEN, IMG_UNSUPPORTED (not recognised), IMG_BAD_IMAGE (a GIF that
 * ends early). */
IMG_API int32_t IMG_CALL IMGLOW_get_filetype(const char* name);
IMG_API int32_t IMG_CALL IMGLOW_get_filetype_fd(int32_t stream);
IMG_API int32_t IMG_CALL IMGLOW_get_filetype_mem(void* block);
IMG_API int32_t IMG_CALL IMGLOW_get_filetype_block(const void* block, size_t size);

/* The number of pages in a file; 1 for every format that has no pages, also when nothing is
 * recognised. Return the number, IMG_CANNOT_OPEN, IMG_NO_LZW_MODULE (any GIF), IMG_UNSUPPORTED (a
 * multi-page format whose pages cannot be counted). */
IMG_API int32_t IMG_CALL IMGLOW_get_pages(const char* name);
IMG_API int32_t IMG_CALL IMGLOW_get_pages_fd(int32_t stream);
IMG_API int32_t IMG_CALL IMGLOW_get_pages_mem(void* block);
IMG_API int32_t IMG_CALL IMGLOW_get_pages_block(const void* block, size_t size);

/* What the header of a file says about its image, or about its first page, without decoding it.
 *
 *   stream      an open stream; the file begins at its position 0
 *   header      40 bytes, filled with a BITMAPINFOHEADER whose resolution is in dots per inch;
 *               all 0 when the file fails before its header is known. Null: only the result counts
 *
 * The header says what the file says: a side may be below 1 and nothing is known to be there.
 * Return 0, IMG_CANNOT_OPEN, IMG_UNSUPPORTED (not recognised, or no decoder), or the decoder's
 * status. */
IMG_API int32_t IMG_CALL IMGLOW_get_fileinfo(const char* name, void* header);
IMG_API int32_t IMG_CALL IMGLOW_get_fileinfo_fd(int32_t stream, void* header);
IMG_API int32_t IMG_CALL IMGLOW_get_fileinfo_mem(void* block, void* header);
IMG_API int32_t IMG_CALL IMGLOW_get_fileinfo_block(const void* block, size_t size, void* header);

/* How the image in a file is to be turned, as TIFF's Orientation tag counts (TIFF 6.0): 1 as it is,
 * 2 mirrored, 3 by 180 degrees, 4 upside down, 5 mirrored along the main diagonal, 6 by 90 degrees
 * clockwise, 7 mirrored along the other diagonal, 8 by 90 degrees counter-clockwise. Rows are
 * delivered as the file has them. JPEG files tell it (by EXIF) with IMG_OPTION_READING at 1.
 * Returns 1 to 8, that of the first page; IMG_CANNOT_OPEN, IMG_UNSUPPORTED (a format that does not
 * tell), or the status of a file whose page cannot be read. */
IMG_API int32_t IMG_CALL IMGLOW_get_image_orientation(const char* name);

/* ---- Reading ------------------------------------------------------------------------------ */

/* Decode an image, with the decode settings applied.
 *
 *   name        file name (ANSI code page on Windows, bytes elsewhere)
 *   stream      an open stream, see IMGLOW_get_filetype_fd
 *   offset      where the image begins in the stream, in bytes
 *   page        0, or the number of a page of a multi-page file
 *   block       the encoded image in memory. Without a size the block is trusted: unless it is a
 *               global memory block, whose size the system knows, a damaged header can send the
 *               decoder past its end. Use _block for data you did not make.
 *   size        bytes in the block; nothing beyond is ever read, nor behind its first 2147483647
 *
 * Return the image handle, IMG_CANNOT_OPEN, IMG_UNSUPPORTED (not recognised, or no decoder),
 * IMG_BAD_IMAGE, IMG_OUT_OF_MEMORY, or a progress callback's answer. A file that ends early gives
 * the rows it has. PDF documents are read only where one layout, not quite that of documents
 * written here, is found: IMG_BAD_IMAGE else, and IMG_NO_DEVICE_BITMAP for a picture of another
 * compression than Group 4 and JPEG. */
IMG_API int32_t IMG_CALL IMG_decompress_bitmap(const char* name);
IMG_API int32_t IMG_CALL IMG_decompress_bitmap_fd(int32_t stream, int32_t offset, int32_t page);
IMG_API int32_t IMG_CALL IMG_decompress_bitmap_mem(void* block, int32_t page);
IMG_API int32_t IMG_CALL IMG_decompress_bitmap_block(const void* block, size_t size, int32_t page);

/* Decode into callbacks of your own instead of an image; no decode setting applies. A header
 * callback that answers IMG_STOP_AFTER_HEADER makes this a query of the header.
 * Return 0 or a status as above. */
IMG_API int32_t IMG_CALL IMGLOW_decompress_bitmap(int32_t stream, int32_t offset, int32_t page,
                                                  img_row_fn row, void* sink_context,
                                                  img_header_fn header);
IMG_API int32_t IMG_CALL IMGLOW_decompress_bitmap_mem(void* block, int32_t page, img_row_fn row,
                                                      void* sink_context, img_header_fn header);
IMG_API int32_t IMG_CALL IMGLOW_decompress_bitmap_block(const void* block, size_t size,
                                                        int32_t page, img_row_fn row,
                                                        void* sink_context, img_header_fn header);

/* ---- Writing ------------------------------------------------------------------------------ */

/* Save the crop rectangle of an image.
 *
 *   name        file name; a multi-page code appends a page to an existing file, every other code
 *               replaces it. A file whose save failed half way is removed. A file that the code
 *               cannot add a page to is left alone: IMG_BAD_IMAGE (something else, or cut off),
 *               IMG_UNSUPPORTED for a DCX whose table of pages has no room, IMG_READ_FAILED for one
 *               whose table cannot be read whole. Except on Windows, what is no regular file is never
 *               removed: a link stays, and the file that it leads to holds what had been written; a
 *               pipe or a device stays, and a page cannot be added to it
 *   code        file type code; IMG_TYPE_BY_NAME takes the last three characters of the name
 *   block       memory that the file is written to; a global memory block bounds itself, any
 *               other must be large enough
 *   size        bytes in the block; a file that does not fit is IMG_WRITE_FAILED
 *
 * A crop rectangle starting inside a byte (1- and 4-bit images) starts at the next whole byte; that
 * of an image in run lists starts at its pixel.
 *
 * DCX (code 11) adds its page to the container that begins at the stream's position; if there is
 * none, a new one is written there, over whatever the stream holds. In memory it always is new.
 *
 * PDF (code 59) is one picture to a page of 612 x 792 points, centred at a point per pixel and
 * scaled down to fit: 1 bit as Group 4, 8, 24 and 32 bits as JPEG. Pages are added to documents
 * that were written here. A stream of less than 200 bytes, or an empty file, becomes a new
 * document, and memory always does (its size is its position). A save to a stream that fails leaves
 * what was there and maybe a part of the page behind it: cut the stream off there before the next
 * page. Grey and 32-bit pictures stand under a colour space of three components, which other
 * programs show wrongly or not at all; promote them to 24 bits, or set IMG_OPTION_PDF_WRITING.
 *
 * Return 0 (stream: the encoder's result; memory: the number of bytes written), IMG_BAD_HANDLE,
 * IMG_CANNOT_CREATE, IMG_UNSUPPORTED (no such code, no encoder for it, no code for the name, or a
 * side that the format has no room for), IMG_BAD_IMAGE (empty crop rectangle), IMG_WRONG_DEPTH (the
 * format cannot hold this depth), IMG_NO_LZW_MODULE, IMG_CANNOT_OPEN (the module): all these leave
 * an existing file alone; or IMG_WRITE_FAILED, IMG_OUT_OF_MEMORY, or a progress callback's answer.
 */
IMG_API int32_t IMG_CALL IMG_save_bitmap(int32_t image, const char* name, int32_t code);
IMG_API int32_t IMG_CALL IMG_save_bitmap_fd(int32_t image, int32_t stream, int32_t code);
IMG_API int32_t IMG_CALL IMG_save_bitmap_mem(int32_t image, void* block, int32_t code);
IMG_API int32_t IMG_CALL IMG_save_bitmap_block(int32_t image, void* block, size_t size,
                                               int32_t code);

/* How JPEG files are written. The second gives the sampling factors of luminance: every h-th pixel
 * of every v-th row gives a chrominance sample, without averaging.
 *
 *   quality     1..100, others are taken as the nearest of these. Until the first call the tables
 *               are those of quality 50, but for two chrominance entries.
 *   h, v        2, 1 at first. They are checked by the save: IMG_UNSUPPORTED unless both are 1..4
 *               and h * v plus one block for each other component is at most 10.
 *
 * Saving a grey image sets both factors to 1, saving a 32-bit image sets h to 1, for later saves
 * too; call the setter again before the next colour image. The colour weights do not add up to
 * exactly 1 and chrominance is not averaged: expect 1 to 6 dB less than other encoders give at
 * the same tables. 32-bit images, also those of blue, green, red, unused bytes, are written as
 * four components: promote to 24 bits what other programs shall read. Return 0. */
IMG_API int32_t IMG_CALL IMGLOW_set_comp_quality(int32_t quality);
IMG_API int32_t IMG_CALL IMGLOW_set_jpg_interleave(int32_t h, int32_t v);

/* Encode rows of your own.
 *
 *   header      IMG_HEADER_BLOCK_BYTES: geometry and palette of the rows; biCompression tells
 *               what 32 bits mean
 *   supply      called for each row in the order that the format stores them
 *
 * Return the encoder's result (memory: the number of bytes written) or a status as above. */
IMG_API int32_t IMG_CALL IMGLOW_save_bitmap(int32_t stream, void* header, int32_t code,
                                            img_supply_fn supply, void* save_context);
IMG_API int32_t IMG_CALL IMGLOW_save_bitmap_mem(void* block, void* header, int32_t code,
                                                img_supply_fn supply, void* save_context);

/* ---- Options and additions ---------------------------------------------------------------- */

/* Numbered values beside the settings, all 0 at first; 0 is always the behaviour that is described
 * elsewhere in this file.
 *
 *   READING            1: files are read as other programs show them. BMP: masks, alpha on white, any
 *                      two colours, palettes of any length, every header; 16 bits become the nearest
 *                      24. PCX: plain rows, four colours, the colours of the header. GIF: the first
 *                      frame stands on the screen of its file. JPEG: smooth chroma, colours and inks
 *                      by what the file says about them, resolution in dots per inch, from EXIF too;
 *                      what is damaged ends at the next restart marker; the same inside TIFF, PICT
 *                      and DICOM files
 *   DETECTION          1: more files are recognised (bare DIBs of every header, plain PCX, PostScript,
 *                      PDF behind other bytes, icons of any sides, DICOM without a preamble, PICT
 *                      without its 512 bytes, X bitmaps behind comments, X window dumps with the
 *                      least significant byte first), a TIFF file has to have its number, names for
 *                      saving count whole endings: .tiff, .jpeg, .pdf, .dib too, and file type
 *                      queries name what is decoded but has no code else (MCA 49, SCT 60, TIFF files
 *                      of other codings 0)
 *   ORIENTATION        1: images are turned as their file says when they are decoded (TIFF, CALS, JPEG);
 *                      rows into callbacks never are
 *   INKS               1: 32 bits of cyan, magenta, yellow, black arrive as 24 of blue, green, red
 *   STRICT             1: a damaged file is a failure: IMG_READ_FAILED where its data end early,
 *                      IMG_BAD_IMAGE where they make no sense, and no image is left of it
 *   EXTENDED_FORMATS   1: more formats, with codes from 100 on, which are tried when no other is
 *                      recognised (with DETECTION: first) and have no switches: PNM, and by the module
 *                      trqvext WebP, JPEG 2000, HEIF and AVIF. The module then also decodes JPEG 2000 in
 *                      DICOM and PDF files, and JBIG2 in TIFF, ICA and PDF files
 *   MAX_PIXELS         a picture of more is IMG_OUT_OF_MEMORY, before anything of its size is
 *                      allocated or read; what files say of themselves is not limited
 *   MAX_KBYTES         of 1024 bytes: an allocation that brings the context's images and work above it
 *                      fails as if the system had refused it
 *   MAX_PAGES          pages are counted up to it, and those behind it are IMG_PAGE_PAST_END
 *   MAX_SCANS          scans that are read of a JPEG picture; one more is damage, and left out
 *                      (0: 1000)
 *   JPEG_WRITING       1: JPEG files as other programs write them: exact arithmetic, chroma the mean of
 *                      its pixels, quality 75 where none was set; 32 bits of colour (biCompression
 *                      200) have three components; no image changes the sampling factors that are set
 *   JPEG_OPTIMISE      1: Huffman codes are made for the picture, whose coefficients are kept for it
 *   JPEG_PROGRESSIVE   1: progressive files, with such codes
 *   PDF_WRITING        1: PDF pages as other programs show them: the colours and inks of the picture, 1 bit
 *                      as Group 4, the rest as JPEG (as with JPEG_WRITING); a page of the picture's own
 *                      size, or of a given one; 16 bits are IMG_WRONG_DEPTH. Pages are added also to
 *                      documents of other programs, if these are whole and not encrypted, and all pages
 *                      cost the same; a document that is continued so takes no page without this option
 *   PDF_PAGE_WIDTH,    tenths of a point, up to 144000: pages of this size, with the picture in the middle
 *   PDF_PAGE_HEIGHT    (0 in either: each picture has a page of its size at its resolution)
 *   PDF_MARGIN         tenths of a point on all sides, up to 72000: of a given page, or around the picture.
 *                      IMG_UNSUPPORTED where they leave nothing of a page
 *   PDF_FIT            on given pages: 0: as large as fits; 1: in its true size, smaller if it is too
 *                      large; 2, 3: the same, and the page is turned where that makes the picture larger
 *   PDF_DEFAULT_DPI    up to 4800: the resolution of pictures that know none (0: 72)
 *   PDF_LOSSLESS       1: 4, 8 and 24 bits, and 32 of blue, green, red, without loss, by Deflate; inks
 *                      stay JPEG. IMG_UNSUPPORTED in a library without it
 *   SAFE_SAVING        1: a save by name that fails, or is ended at any moment, leaves the file that was
 *                      there as it was, or nothing. A new file is written beside it, under its name and
 *                      .tarnquill-xxxxxxxx.tmp, and takes its place when it is whole, with its rights
 *                      and, if allowed, its owner; links are followed; what is no regular file is
 *                      written as it is. A page is added behind what is there; a DCX file whose table
 *                      is full gets a new one, of 100 pages. A caller's own stream keeps bytes behind
 *                      its end
 *   UTF8_NAMES         1: names of files are UTF-8 on Windows (0: coded as its 8-bit functions take
 *                      them), and what is none cannot be opened or created; elsewhere names are bytes
 *   SERIALISE          1: calls from several threads on this context wait for each other, callbacks
 *                      included; a callback that waits for another thread may wait for ever. Set it
 *                      before the second thread begins
 *   TIFF_STRIP_BYTES   bytes of samples in a strip, 4096 to 2^30 (0: 65536)
 *   TIFF_JPEG          7: code 40 is written as Compression 7 (0: as Compression 6)
 *   TIFF_G3_K          code 8: 2 or 4: every second or fourth row stands for itself, the others refer
 *                      to the one before (0, 1: every row stands for itself)
 *   TIFF_G3_FILL       1: end-of-line codes of code 8 end at a byte
 *   TIFF_PHOTOMETRIC   1: 1-bit pages that are not coded as facsimiles have 0 for white
 *   TIFF_BYTE_ORDER    of new files: 1: the most significant byte first
 *   TIFF_PREDICTOR     1: code 9 codes samples themselves, not their differences */
enum {
  IMG_OPTION_READING = 1,
  IMG_OPTION_DETECTION = 2,
  IMG_OPTION_ORIENTATION = 3,
  IMG_OPTION_INKS = 4,
  IMG_OPTION_STRICT = 5,
  IMG_OPTION_EXTENDED_FORMATS = 6,
  IMG_OPTION_MAX_PIXELS = 10,
  IMG_OPTION_MAX_KBYTES = 11,
  IMG_OPTION_MAX_PAGES = 12,
  IMG_OPTION_MAX_SCANS = 13,
  IMG_OPTION_JPEG_WRITING = 20,
  IMG_OPTION_JPEG_OPTIMISE = 21,
  IMG_OPTION_JPEG_PROGRESSIVE = 22,
  IMG_OPTION_PDF_WRITING = 30,
  IMG_OPTION_PDF_PAGE_WIDTH = 31,
  IMG_OPTION_PDF_PAGE_HEIGHT = 32,
  IMG_OPTION_PDF_MARGIN = 33,
  IMG_OPTION_PDF_FIT = 34,
  IMG_OPTION_PDF_DEFAULT_DPI = 35,
  IMG_OPTION_PDF_LOSSLESS = 36,
  IMG_OPTION_SAFE_SAVING = 40,
  IMG_OPTION_UTF8_NAMES = 41,
  IMG_OPTION_SERIALISE = 42,
  IMG_OPTION_TIFF_STRIP_BYTES = 51,
  IMG_OPTION_TIFF_JPEG = 52,
  IMG_OPTION_TIFF_G3_K = 53,
  IMG_OPTION_TIFF_G3_FILL = 54,
  IMG_OPTION_TIFF_PHOTOMETRIC = 55,
  IMG_OPTION_TIFF_BYTE_ORDER = 56,
  IMG_OPTION_TIFF_PREDICTOR = 57
};

/* Return the value that the option had, and has; IMG_UNSUPPORTED, and nothing changes, for an unknown
 * option or a value that it cannot have. */
IMG_API int32_t IMG_CALL IMG_set_option(int32_t option, int32_t value);
IMG_API int32_t IMG_CALL IMG_get_option(int32_t option);

/* Texts for the PDF documents that are begun from now on with PDF_WRITING; added pages keep those that
 * are there. The library keeps a copy.
 *
 *   number      what the text is
 *   text        UTF-8; of IMG_TEXT_DATE, when the document was made, in decimal: seconds since the
 *               beginning of 1970. Null or empty: none, as at first. Without a date the same pictures
 *               give the same bytes
 *
 * Returns 0, IMG_OUT_OF_MEMORY, IMG_UNSUPPORTED (an unknown number, a text that is not UTF-8, a date
 * that is no number): the text is then as it was. */
enum {
  IMG_TEXT_TITLE = 101,
  IMG_TEXT_AUTHOR = 102,
  IMG_TEXT_SUBJECT = 103,
  IMG_TEXT_KEYWORDS = 104,
  IMG_TEXT_CREATOR = 105,
  IMG_TEXT_DATE = 106
};
IMG_API int32_t IMG_CALL IMG_set_option_text(int32_t number, const char* text);

/* Add a page of any file to a file of any code: without decoding it where the other one can hold its data
 * as they are, else decoded whole (decode settings and crop rectangles do not apply) and saved. As they
 * are: JPEG files into JPEG and PDF, and into TIFF pages of code 40 if it is grey or YCbCr (progressive
 * ones with TIFF_JPEG at 7); TIFF pages of Group 4 in one strip, and PNG files without transparency and
 * interlace, into PDF; pictures of PDF pages into JPEG, TIFF (code 10) and PDF, with the module. PDF files
 * get such pages with PDF_WRITING only. What is copied keeps its resolution and its orientation.
 *
 *   source      file name, or an open stream and where the file begins in it
 *   page        of the source, from 0
 *   target      file name, or an open stream, as for IMG_save_bitmap; another file than the source
 *   code        of the target; IMG_TYPE_BY_NAME with a name
 *
 * The progress callback is called for every 64 KiB of data that are copied.
 * Return 0 (copied), 1 (coded again), IMG_PAGE_PAST_END, or a status of decoding or saving; the target is
 * then what a failed save leaves. */
IMG_API int32_t IMG_CALL IMG_copy_page(const char* source, int32_t page, const char* target,
                                       int32_t code);
IMG_API int32_t IMG_CALL IMG_copy_page_fd(int32_t source, int32_t offset, int32_t page,
                                          int32_t target, int32_t code);

/* Writes what IMG_decompress_bitmap_fd and IMG_save_bitmap_fd would, one after the other, without an image
 * between them: rows pass from the decoder to the encoder, so that a picture of any size takes little
 * memory. From JPEG, TIFF, PNG, PCX, DCX, CALS and BMP files to PNG, PCX, TIFF (but LZW and JPEG) and BMP.
 *
 *   source      an open stream, and where the file begins in it
 *   page        of the source, from 0
 *   target      another stream, of a file that ends where it stands; one of TIFF pages is at its start, and
 *               gets one more
 *   code        of the target
 *
 * The progress callback is called once for each row. IMG_get_damage(-1) tells of damage.
 * Returns 0; IMG_UNSUPPORTED where rows cannot pass: for other formats, pictures of 32 bits, those that
 * ORIENTATION turns, rows that come in another order than the target holds them, with decode settings that
 * change rows, a caller's input and output functions or scrambled data; else a status of decoding or saving.
 * Whatever fails leaves the target as it was. */
IMG_API int32_t IMG_CALL IMG_convert_page_fd(int32_t source, int32_t offset, int32_t page,
                                             int32_t target, int32_t code);

/* Contexts, for programs of several threads. A context holds all settings, options, callbacks, images
 * and the memory stream; a handle means nothing in another one. Every thread begins with context 0,
 * which is always there: threads that share it have to keep out of each other's way, or set
 * SERIALISE. A context from IMG_new_context begins like a fresh process, and one thread at a time uses
 * it. Pixels may pass: the address of IMG_bitmap_info, IMG_delete_bitmap_keep in the one,
 * IMG_create_handle_keep in the other.
 *
 * IMG_new_context returns a number from 1 to 4096, or IMG_OUT_OF_MEMORY.
 *
 * IMG_use_context makes a context the calling thread's until its next call or its end. Returns the
 * number of the one before; IMG_BAD_HANDLE: there is no such context; IMG_UNSUPPORTED: another thread
 * has it, or the call comes from a callback.
 *
 * IMG_delete_context frees a context and its images. Returns 0; IMG_BAD_HANDLE: 0, or there is no such
 * context; IMG_UNSUPPORTED: a thread has it, the calling one included. */
IMG_API int32_t IMG_CALL IMG_new_context(void);
IMG_API int32_t IMG_CALL IMG_use_context(int32_t context);
IMG_API int32_t IMG_CALL IMG_delete_context(int32_t context);

/* What a file had lost when it was decoded.
 *
 *   image       -1: the last decode of the calling thread's context, also one into callbacks
 *   rows        out: rows delivered before anything was lost or had to be guessed; may be null
 *   reason      out: 0, IMG_READ_FAILED (the data end early), IMG_BAD_IMAGE (they make no sense) or
 *               IMG_UNSUPPORTED (a page of a PDF document has more content than its pictures); may be null
 *
 * Returns 0 for a whole picture, 1 for a damaged one, or IMG_BAD_HANDLE. */
IMG_API int32_t IMG_CALL IMG_get_damage(int32_t image, int32_t* rows, int32_t* reason);

/* Which rows that are: the range of those that are not as they were, in part or whole.
 *
 *   image       as above
 *   first, last out: from 0, the top row, of the picture as its file has it, before it was turned, scaled
 *               or cut; -1 and -1 for none, where damage lies behind the picture; may be null
 *   height      out: rows of that picture; may be null
 *
 * Returns as IMG_get_damage. */
IMG_API int32_t IMG_CALL IMG_get_damaged_rows(int32_t image, int32_t* first, int32_t* last,
                                              int32_t* height);

/* The resolution of an image in thousandths of a dot per inch, 0 when it is not known: as exact as its
 * file said it. Setting it sets the integers in the image's header, too; who changes those changes this.
 *
 *   x, y        0 to 65535000; out pointers may be null
 *
 * Return 0, IMG_BAD_HANDLE, IMG_OUT_OF_MEMORY (an image without pixels), IMG_UNSUPPORTED. */
IMG_API int32_t IMG_CALL IMG_get_resolution(int32_t image, int32_t* x, int32_t* y);
IMG_API int32_t IMG_CALL IMG_set_resolution(int32_t image, int32_t x, int32_t y);
/* Makes an image from a packed DIB, or any image file, of which nothing behind `size` bytes is read: like
 * IMG_create_handle. With READING and DETECTION, headers of 12, 52, 56, 64, 108 and 124 bytes too. */
IMG_API int32_t IMG_CALL IMG_create_handle_block(const void* dib_or_file, size_t size);

/* The crop rectangle of an image as every program takes it, for the clipboard (CF_DIB) and for
 * StretchDIBits: a packed DIB with a header of 40 bytes, from the bottom, in pixels per metre, without
 * marks of this library. Run lists become bits, 16-bit grey 8 bits, inks 24 bits.
 *
 *   out         null, or `size` bytes; nothing is written when they are too few
 *
 * Returns the bytes that it takes; IMG_BAD_HANDLE, IMG_OUT_OF_MEMORY (also when that is no int32_t),
 * IMG_BAD_IMAGE (empty crop rectangle). */
IMG_API int32_t IMG_CALL IMG_copy_dib(int32_t image, void* out, size_t size);

/* What a status means, in English and in words for people. Never null, and it need not be freed. */
IMG_API const char* IMG_CALL IMG_status_text(int32_t status);

/* TARNQUILL_VERSION_MAJOR * 10000 + _MINOR * 100 + _PATCH of the library that is loaded. */
#define TARNQUILL_VERSION_MAJOR 0
#define TARNQUILL_VERSION_MINOR 1
#define TARNQUILL_VERSION_PATCH 0
IMG_API int32_t IMG_CALL IMG_library_version(void);

/* Like IMGLOW_get_image_orientation, and IMGLOW_save_bitmap_mem, for streams and for blocks of any
 * memory, which are never left. */
IMG_API int32_t IMG_CALL IMGLOW_get_image_orientation_fd(int32_t stream);
IMG_API int32_t IMG_CALL IMGLOW_get_image_orientation_block(const void* block, size_t size);
IMG_API int32_t IMG_CALL IMGLOW_save_bitmap_block(void* block, size_t size, void* header,
                                                  int32_t code, img_supply_fn supply,
                                                  void* save_context);

/* What the header of a file says about one of its pages, without decoding it: like
 * IMGLOW_get_fileinfo, for pages from 0 on; IMG_PAGE_PAST_END beyond the last. */
IMG_API int32_t IMG_CALL IMGLOW_get_fileinfo_page(const char* name, int32_t page, void* header);
IMG_API int32_t IMG_CALL IMGLOW_get_fileinfo_page_fd(int32_t stream, int32_t page, void* header);
IMG_API int32_t IMG_CALL IMGLOW_get_fileinfo_page_block(const void* block, size_t size,
                                                        int32_t page, void* header);

/* The types of TIFF's values (TIFF 6.0, section 2; the last three are BigTIFF's). A RATIONAL is two
 * LONGs, the upper one first. */
enum {
  IMG_TIFF_BYTE = 1,
  IMG_TIFF_ASCII = 2,
  IMG_TIFF_SHORT = 3,
  IMG_TIFF_LONG = 4,
  IMG_TIFF_RATIONAL = 5,
  IMG_TIFF_SBYTE = 6,
  IMG_TIFF_UNDEFINED = 7,
  IMG_TIFF_SSHORT = 8,
  IMG_TIFF_SLONG = 9,
  IMG_TIFF_SRATIONAL = 10,
  IMG_TIFF_FLOAT = 11,
  IMG_TIFF_DOUBLE = 12,
  IMG_TIFF_IFD = 13,
  IMG_TIFF_LONG8 = 16,
  IMG_TIFF_SLONG8 = 17,
  IMG_TIFF_IFD8 = 18
};

/* A tag of a page of a TIFF file (TIFF 6.0, section 2).
 *
 *   stream      an open stream; the file begins at its position 0
 *   page        from 0
 *   tag         its number
 *   type        out: IMG_TIFF_..., see above; may be null
 *   count       out: values, not bytes; may be null
 *   buffer      filled with the values in the byte order of this machine, as far as they fit; may be
 *               null
 *   bytes       the size of the buffer
 *
 * Return the bytes that the whole value has; IMG_CANNOT_OPEN, IMG_PAGE_PAST_END, IMG_UNSUPPORTED (no
 * TIFF file, or no such tag in the page), IMG_NOT_TILED (one of the tags 322 to 325 of a page without
 * tiles), IMG_READ_FAILED (the values are not there). */
IMG_API int32_t IMG_CALL IMGLOW_get_tiff_tag(const char* name, int32_t page, int32_t tag,
                                             int32_t* type, int32_t* count, void* buffer,
                                             int32_t bytes);
IMG_API int32_t IMG_CALL IMGLOW_get_tiff_tag_fd(int32_t stream, int32_t page, int32_t tag,
                                                int32_t* type, int32_t* count, void* buffer,
                                                int32_t bytes);
IMG_API int32_t IMG_CALL IMGLOW_get_tiff_tag_mem(void* block, int32_t page, int32_t tag,
                                                 int32_t* type, int32_t* count, void* buffer,
                                                 int32_t bytes);
IMG_API int32_t IMG_CALL IMGLOW_get_tiff_tag_block(const void* block, size_t size, int32_t page,
                                                   int32_t tag, int32_t* type, int32_t* count,
                                                   void* buffer, int32_t bytes);

#ifdef __cplusplus
}
#endif

#endif /* TARNQUILL_H */
