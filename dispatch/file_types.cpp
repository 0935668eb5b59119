// The table of formats, in detection order, and its look-ups.
#include "dispatch/file_types.h"

#include <algorithm>

#include "core/context.h"
#include "dispatch/signatures.h"
#include "formats/bmp/bmp.h"
#include "formats/dicom/dicom.h"
#include "formats/fpx/fpx.h"
#include "formats/ica/ica.h"
#include "formats/jpeg/jpeg.h"
#include "formats/pcx/pcx.h"
#include "formats/pdf/pdf.h"
#include "formats/pict/pict.h"
#include "formats/plugin/plugin.h"
#include "formats/png/png.h"
#include "formats/simple/simple.h"
#include "formats/tiff/tiff.h"
#include "formats/wmf/wmf.h"
#include "formats/wpg/wpg.h"
#include "io/endian.h"

namespace tq::dispatch {
namespace {

using namespace std::string_view_literals;
using namespace formats;

constexpr bool one_of(int value, std::initializer_list<int> values) {
  return std::find(values.begin(), values.end(), value) != values.end();
}

bool is_targa(const Probe& p) {
  return (one_of(p[2], {1, 9}) && p[1] == 1) || (one_of(p[2], {2, 10, 3, 11}) && p[1] == 0) ||
         (p[0] >= 0x24 && p[0] <= 0x69 && p[2] == 0x9C);
}

bool is_mca(const Probe& p) {
  return (p[2] == 0xD3 && (p.has("\xA6\xFB"sv, 3) || p.has("\xA8\xA8"sv, 3) ||
                           p.has("\xA8\xFB"sv, 3) || p.has("\xA8\xDF"sv, 3))) ||
         p[0] == 'p';
}

bool is_cut(const Probe& p) {
  return p[4] == 0 && p[5] == 0 && (p[0] != 0 || p[1] != 0) && p[6] != 0 && p[7] != 0 &&
         load_le16(p.bytes) < 5000 && load_le16(p.bytes + 2) < 5000;
}

bool is_text(const Probe& p) {
  return std::all_of(p.bytes, p.bytes + Probe::kBytes, [](std::uint8_t c) {
    return (c >= 0x20 && c <= 0x7E) || (c >= 0x09 && c <= 0x0D) || c == 0x1A;
  });
}

// Text that begins so is taken for a picture.
bool is_pnm(const Probe& p) {
  return p[0] == 'P' && p[1] >= '1' && p[1] <= '6' &&
         (p[2] == ' ' || (p[2] >= '\t' && p[2] <= '\r'));
}

// The module that knows these is asked about what looks like them only: it takes its time to load.
bool is_webp(const Probe& p) {
  return p.has("RIFF") && plugin::probe_extended(p) == IMG_TYPE_WEBP;
}
bool is_jpeg_2000(const Probe& p) {
  return (p.has("jP  "sv, 4) || p.has("\xFF\x4F\xFF\x51"sv)) &&
         plugin::probe_extended(p) == IMG_TYPE_JPEG_2000;
}
bool is_heif(const Probe& p) {
  return p.has("ftyp", 4) && plugin::probe_extended(p) == IMG_TYPE_HEIF;
}

// For formats that hold pages which nobody can count without their decoder.
Status pages_unknown(StreamHandle /*stream*/) {
  return StatusCode::unsupported;
}

// clang-format off
constexpr FileType kFileTypes[] = {
    {.code = IMG_TYPE_TIFF, .name = "tiff", .title = "TIFF", .ending = "tif", .variant = 1,
     .test = [](const Probe& p) { return p.has("MM") || p.has("II"); },
     .confirms = has_tiff_version, .more_endings = " tiff ",
     .find_variant = tiff::find_tiff_coding,
     .decode = tiff::decode_tiff, .read_depths = depths(1, 4, 8, 16, 24, 32),
     .encode = tiff::encode_tiff, .write_depths = depths(1, 4, 8, 16, 24, 32),
     .can_encode = tiff::can_encode_tiff, .can_append = tiff::can_append_tiff,
     .find_stored = tiff::find_stored_tiff,
     .count_pages = tiff::count_tiff_pages, .find_orientation = tiff::find_tiff_orientation,
     .traits = kMultiPage | kByName | kGivesRows | kTakesRows},
    {.code = IMG_TYPE_GIF, .name = "gif", .title = "GIF", .ending = "gif",
     .test = [](const Probe& p) { return p.has("GIF"); },
     .find_variant = find_gif_variant,
     .decode = plugin::decode_gif, .read_depths = depths(1, 4, 8),
     .encode = plugin::encode_gif, .write_depths = depths(1, 4, 8),
     .available = plugin::gif_encoder_available, .can_encode = plugin::can_encode_gif,
     .count_pages = plugin::count_gif_pages, .traits = kByName},
    {.code = IMG_TYPE_BMP, .name = "bmp", .title = "BMP", .ending = "bmp",
     .test = [](const Probe& p) { return p.has("BM") || p.has("\x28\0\0\0"sv); },  // or a bare DIB
     .last_test = probe_bare_bitmap,
     .find_variant = find_bmp_variant,
     .decode = bmp::decode, .read_depths = depths(1, 4, 8, 16, 24, 32),
     .encode = bmp::encode, .write_depths = depths(1, 4, 8, 16, 24, 32),
     .traits = kByName | kGivesRows | kTakesRows},
    {.code = IMG_TYPE_EPS, .name = "eps", .title = "EPS", .ending = "eps",
     .test = [](const Probe& p) { return p.has("\xC5\xD0\xD3\xC6"); },
     .last_test = [](const Probe& p) { return p.has("%!PS"); },
     .decode = simple::decode_eps, .read_depths = depths(1, 4, 8, 16, 24, 32),
     .encode = simple::encode_postscript, .write_depths = depths(1, 4, 8, 24, 32),
     .can_encode = simple::can_encode_postscript, .supplier = Supplier::transitions,
     .traits = kByName},
    {.code = IMG_TYPE_PDF, .name = "pdf", .title = "PDF", .ending = "pdf",
     .test = [](const Probe& p) { return p.has("%PDF"); },
     .last_test = probe_late_pdf, .more_endings = " pdf ",
     .decode = pdf::decode, .read_depths = depths(1, 8, 24),
     .encode = pdf::encode_page, .write_depths = depths(1, 8, 24, 32),
     .can_encode = pdf::can_encode_page, .can_append = pdf::can_append_page,
     .find_stored = pdf::find_stored_page, .can_store = pdf::can_store_page,
     .encode_stored = pdf::encode_stored_page,
     .count_pages = plugin::count_pdf_pages,
     .supplier = Supplier::transitions, .traits = kMultiPage},
    {.code = IMG_TYPE_DCX, .name = "dcx", .title = "DCX", .ending = "dcx",
     .test = [](const Probe& p) { return p.has("\xB1\x68\xDE\x3A"); },
     .decode = pcx::decode_dcx, .read_depths = depths(1, 4, 8, 24),
     .encode = pcx::encode_dcx, .write_depths = depths(1, 4, 8, 24), .can_encode = pcx::can_encode_pcx,
     .can_append = pcx::can_append_dcx, .make_room = pcx::make_dcx_room,
     .count_pages = pcx::count_dcx_pages, .traits = kMultiPage | kByName | kGivesRows},
    {.code = IMG_TYPE_JPEG, .name = "jpeg", .title = "JPEG", .ending = "jpg",
     .test = [](const Probe& p) { return p.has("\xFF\xD8"); },
     .more_endings = " jpeg jpe jfif ",
     .decode = jpeg::decode_jpeg, .read_depths = depths(8, 24, 32),
     .encode = jpeg::encode_jpeg, .write_depths = depths(8, 24, 32),
     .can_encode = jpeg::can_encode_jpeg, .find_stored = jpeg::find_stored_jpeg,
     .can_store = jpeg::can_store_jpeg, .encode_stored = jpeg::encode_stored_jpeg,
     .find_orientation = jpeg::find_jpeg_orientation,
     .traits = kByName | kGivesRows},
    {.code = IMG_TYPE_WPG, .name = "wpg", .title = "WPG", .ending = "wpg",
     .test = [](const Probe& p) { return p.has("WPC", 1); },
     .decode = wpg::decode_wpg, .read_depths = depths(1, 4, 8, 24),
     .encode = wpg::encode_wpg, .write_depths = depths(1, 4, 8, 24, 32),
     .can_encode = wpg::can_encode_wpg, .traits = kByName},
    {.code = IMG_TYPE_CALS, .name = "cals", .title = "CALS", .ending = "cal",
     .test = [](const Probe& p) { return p.has("src"); },
     .decode = simple::decode_cals, .read_depths = depths(1),
     .encode = simple::encode_cals, .write_depths = depths(1), .can_encode = simple::can_encode_cals,
     .find_orientation = simple::find_cals_orientation,
     .supplier = Supplier::transitions, .traits = kByName | kGivesRows},
    {.code = IMG_TYPE_PNG, .name = "png", .title = "PNG", .ending = "png",
     .test = [](const Probe& p) { return p.has("PNG", 1); },
     .decode = png::decode_png, .read_depths = depths(1, 4, 8, 16, 24),
     .encode = png::encode_png, .write_depths = depths(1, 4, 8, 16, 24, 32), .available = png::png_available,
     .can_encode = png::can_encode_png, .find_stored = png::find_stored_png,
     .traits = kByName | kGivesRows | kTakesRows},
    {.code = IMG_TYPE_NCR, .name = "ncr", .title = "NCR", .ending = "ncr",
     .test = [](const Probe& p) { return p.has("NN") || p.has("nn"); }, .traits = kUnreported},
    {.code = IMG_TYPE_KFX, .name = "kfx", .title = "KFX", .ending = "kfx",
     .test = [](const Probe& p) { return p.has(".KF"); }},
    {.code = IMG_TYPE_IFF, .name = "iff", .title = "IFF", .ending = "iff",
     .test = [](const Probe& p) { return p.has("FORM"); },
     .decode = simple::decode_iff, .read_depths = depths(1, 4, 8, 24),
     .encode = simple::encode_iff, .write_depths = depths(1, 4, 8, 24, 32),
     .can_encode = simple::can_encode_iff, .traits = kByName},
    {.code = IMG_TYPE_FLASHPIX, .name = "flashpix", .title = "FlashPix", .ending = "fpx",
     .test = [](const Probe& p) { return p.has("\xD0\xCF\x11\xE0\xA1\xB1"); },
     .confirms = has_flashpix_class,
     .decode = fpx::decode_fpx, .read_depths = depths(8, 24)},
    {.code = IMG_TYPE_GX2, .name = "gx2", .title = "GX2", .ending = "gx2",
     .test = [](const Probe& p) { return p.has("GX2"); }},
    {.code = IMG_TYPE_LSD, .name = "lsd", .title = "LSD", .ending = "lsd",
     .test = [](const Probe& p) { return p.has("\xDC\xDC"); }},
    {.code = IMG_TYPE_PCX, .name = "pcx", .title = "PCX", .ending = "pcx",
     .test = [](const Probe& p) { return p[0] == 0x0A && p[2] == 0x01; },
     .last_test = probe_plain_pcx,
     .decode = pcx::decode_pcx, .read_depths = depths(1, 4, 8, 24),
     .encode = pcx::encode_pcx, .write_depths = depths(1, 4, 8, 24), .can_encode = pcx::can_encode_pcx,
     .traits = kByName | kGivesRows | kTakesRows},
    {.code = IMG_TYPE_ICON, .name = "icon", .title = "Windows icon", .ending = "ico",
     .test = [](const Probe& p) { return p.has("\0\0\1\0"sv) && one_of(p[6], {16, 32, 48, 64}); },
     .first_test = probe_icon, .more_endings = " icon ",
     .decode = simple::decode_icon, .read_depths = depths(1, 4, 8, 16, 24),
     .encode = simple::encode_icon, .write_depths = depths(1, 4, 8, 24, 32),
     .can_encode = simple::can_encode_icon, .count_pages = simple::count_icon_pages,
     .uncounted = kByFileName | kByHandle | kInMemory, .traits = kByName},
    {.code = IMG_TYPE_TARGA, .name = "targa", .title = "Targa", .ending = "tga",
     .test = is_targa,
     .decode = simple::decode_targa, .read_depths = depths(8, 24),
     .encode = simple::encode_targa, .write_depths = depths(1, 4, 8, 24, 32),
     .can_encode = simple::can_encode_targa, .traits = kByName},
    {.code = IMG_TYPE_WMF, .name = "wmf", .title = "Windows metafile", .ending = "wmf",
     .test = [](const Probe& p) { return p.has("\xD7\xCD\xC6\x9A"); },
     .decode = wmf::decode_wmf, .read_depths = depths(1, 4, 8, 24, 32),
     .encode = wmf::encode_wmf, .write_depths = depths(1, 4, 8, 24, 32),
     .can_encode = wmf::can_encode_wmf, .traits = kByName},
    {.code = IMG_TYPE_ICA, .name = "ica", .title = "ICA", .ending = "ica",
     .test = [](const Probe& p) { return p.has("0000") || p[0] == 'p'; },
     .confirms = has_fax_prefix,
     .decode = ica::decode_ica, .read_depths = depths(1, 4, 8, 24, 32),
     .encode = ica::encode_ica, .write_depths = depths(1), .can_encode = ica::can_encode_ica,
     .count_pages = ica::count_ica_pages, .supplier = Supplier::transitions, .traits = kByName},
    {.code = IMG_TYPE_MCA, .name = "mca", .title = "MCA", .ending = "mca",
     .switched_by = IMG_TYPE_ICA,
     .test = is_mca,
     .confirms = has_fax_prefix,
     .decode = ica::decode_mca, .read_depths = depths(1, 4, 8, 24, 32),
     .encode = ica::encode_mca, .write_depths = depths(1), .can_encode = ica::can_encode_ica,
     .can_append = ica::can_append_mca,
     .count_pages = ica::count_mca_pages, .uncounted = kByHandle | kInMemory,
     .supplier = Supplier::transitions,
     .traits = kMultiPage | kByName | kUnreported},
    {.code = IMG_TYPE_PHOTO_CD, .name = "photo-cd", .title = "Photo CD", .ending = "pcd",
     .test = [](const Probe& p) { return p.has("\xFF\xFF\xFF\xFF"); },
     .decode = simple::decode_photo_cd, .read_depths = depths(24),
     .count_pages = simple::count_photo_cd_pages,
     .find_orientation = simple::find_photo_cd_orientation},
    {.code = IMG_TYPE_CLIPBOARD, .name = "clipboard", .title = "Windows clipboard", .ending = "clp",
     .test = [](const Probe& p) { return p.has("P\xC3"); },
     .decode = simple::decode_clipboard, .read_depths = depths(1, 4, 8, 24, 32),
     .encode = simple::encode_clipboard, .write_depths = depths(1, 4, 8, 24, 32),
     .can_encode = simple::can_encode_clipboard, .traits = kByName},
    {.code = IMG_TYPE_GEM, .name = "gem", .title = "GEM image", .ending = "img",
     .test = [](const Probe& p) { return p.has("\0\1\0"sv) && one_of(p[3], {8, 9}); },
     .decode = simple::decode_gem, .read_depths = depths(1)},
    {.code = IMG_TYPE_BTR, .name = "btr", .title = "BTR", .ending = "btr",
     .test = [](const Probe& p) { return p[0] == 0xBB && p[3] == 0x01; }},
    {.code = IMG_TYPE_MSP, .name = "msp", .title = "MSP", .ending = "msp",
     .test = [](const Probe& p) { return p.has("Lin") || p.has("DanM"); },
     .decode = simple::decode_msp, .read_depths = depths(1)},
    {.code = IMG_TYPE_XBM, .name = "xbm", .title = "X bitmap", .ending = "xbm",
     .test = probe_xbm, .first_test = probe_commented_xbm,
     .decode = simple::decode_xbm, .read_depths = depths(1),
     .encode = simple::encode_xbm, .write_depths = depths(1),
     .can_encode = simple::can_encode_xbm, .traits = kByName},
    {.code = IMG_TYPE_XPM, .name = "xpm", .title = "X pixmap", .ending = "xpm",
     .test = [](const Probe& p) { return p.has("/* XPM */"); },
     .decode = simple::decode_xpm, .read_depths = depths(1, 4, 8, 24),
     .encode = simple::encode_xpm, .write_depths = depths(1, 4, 8),
     .can_encode = simple::can_encode_xpm, .traits = kByName},
    {.code = IMG_TYPE_XWD, .name = "xwd", .title = "X window dump", .ending = "xwd",
     .test = [](const Probe& p) { return p.has("\0\0\0\7"sv, 4); },
     .last_test = probe_little_xwd,
     .decode = simple::decode_xwd, .read_depths = depths(1, 4, 8, 24),
     .encode = simple::encode_xwd, .write_depths = depths(1, 4, 8, 24, 32),
     .can_encode = simple::can_encode_xwd, .traits = kByName},
    {.code = IMG_TYPE_SUN, .name = "sun", .title = "Sun raster", .ending = "ras",
     .test = [](const Probe& p) { return p.has("\x59\xA6\x6A\x95"); },
     .decode = simple::decode_sun, .read_depths = depths(1, 4, 8, 24),
     .encode = simple::encode_sun, .write_depths = depths(1, 4, 8, 24, 32),
     .can_encode = simple::can_encode_sun, .traits = kByName},
    {.code = IMG_TYPE_JED, .name = "jed", .title = "JED", .ending = "jed",
     .test = [](const Probe& p) { return p.has("\x80\0\0"sv); },
     .decode = simple::decode_jed, .read_depths = depths(1),
     .encode = simple::encode_jed, .write_depths = depths(1), .can_encode = simple::can_encode_jed,
     .traits = kByName},
    {.code = IMG_TYPE_FXS, .name = "fxs", .title = "FXS", .ending = "fxs",
     .test = [](const Probe& p) { return p.has("\x0B#") && p.has("\xC0\x06", 3); }},
    {.code = IMG_TYPE_CUT, .name = "cut", .title = "CUT", .ending = "cut",
     .test = is_cut,
     .decode = simple::decode_cut, .read_depths = depths(8)},
    {.code = IMG_TYPE_MAG, .name = "mag", .title = "MAG", .ending = "mag",
     .test = [](const Probe& p) { return p.has("WTI"); },
     .count_pages = pages_unknown, .uncounted = kInMemory, .traits = kUnreported},
    {.code = IMG_TYPE_TEXT, .name = "text", .title = "plain text", .ending = "txt",
     .test = is_text,
     .decode = simple::decode_text, .read_depths = depths(1),
     .count_pages = simple::count_text_pages},
    {.code = IMG_TYPE_PHOTOSHOP, .name = "photoshop", .title = "Photoshop", .ending = "psd",
     .test = [](const Probe& p) { return p.has("8BPS"); },
     .decode = simple::decode_photoshop, .read_depths = depths(1, 8, 24, 32),
     .encode = simple::encode_photoshop, .write_depths = depths(1, 4, 8, 24, 32),
     .can_encode = simple::can_encode_photoshop, .traits = kByName},
    {.code = IMG_TYPE_IMT, .name = "imt", .title = "IMT", .ending = "imt",
     .test = [](const Probe& p) { return p.has("\x27" "C1\0"sv); }, .traits = kUnreported},
    {.code = IMG_TYPE_PICT, .name = "pict", .title = "PICT", .ending = "pct",
     .test = probe_pict, .last_test = probe_bare_pict,
     .decode = pict::decode_pict, .read_depths = depths(1, 4, 8, 24, 32),
     .encode = pict::encode_pict, .write_depths = depths(1, 4, 8, 24, 32),
     .can_encode = pict::can_encode_pict, .traits = kByName},
    {.code = IMG_TYPE_MACPAINT, .name = "macpaint", .title = "MacPaint", .ending = "mac",
     .test = probe_macpaint,
     .decode = simple::decode_macpaint, .read_depths = depths(1)},
    {.code = IMG_TYPE_SCT, .name = "sct", .title = "SCT", .ending = "sct",
     .test = probe_sct,
     .decode = simple::decode_sct, .read_depths = depths(8, 24, 32),
     .encode = simple::encode_sct, .write_depths = depths(1, 4, 8, 24, 32),
     .can_encode = simple::can_encode_sct,
     .traits = kByName | kUnreported},
    {.code = IMG_TYPE_DICOM, .name = "dicom", .title = "DICOM", .ending = "dcm",
     .test = probe_dicom,
     .first_test = probe_marked_dicom, .last_test = probe_bare_dicom,
     .decode = dicom::decode_dicom, .read_depths = depths(8, 24, 32)},

    // Variants and save-only codes: no test of their own.
    {.code = IMG_TYPE_TIFF_HUFFMAN, .name = "tiff-huffman", .title = "TIFF Huffman",
     .variant_of = IMG_TYPE_TIFF, .variant = 2, .switched_by = IMG_TYPE_TIFF,
     .encode = tiff::encode_tiff, .write_depths = depths(1),
     .can_encode = tiff::can_encode_tiff, .can_append = tiff::can_append_tiff,
     .traits = kMultiPage | kTakesRows},
    {.code = IMG_TYPE_TIFF_G3, .name = "tiff-g3", .title = "TIFF Group 3",
     .variant_of = IMG_TYPE_TIFF, .variant = 3, .switched_by = IMG_TYPE_TIFF,
     .encode = tiff::encode_tiff, .write_depths = depths(1),
     .can_encode = tiff::can_encode_tiff, .can_append = tiff::can_append_tiff,
     .traits = kMultiPage | kTakesRows},
    {.code = IMG_TYPE_TIFF_LZW, .name = "tiff-lzw", .title = "TIFF LZW",
     .variant_of = IMG_TYPE_TIFF, .variant = 5, .switched_by = IMG_TYPE_TIFF,
     .encode = tiff::encode_tiff, .write_depths = depths(1, 4, 8, 16, 24, 32),
     .available = plugin::tiff_lzw_encoder_available,
     .can_encode = tiff::can_encode_tiff, .can_append = tiff::can_append_tiff, .traits = kMultiPage},
    {.code = IMG_TYPE_TIFF_G4, .name = "tiff-g4", .title = "TIFF Group 4",
     .variant_of = IMG_TYPE_TIFF, .variant = 4, .switched_by = IMG_TYPE_TIFF,
     .encode = tiff::encode_tiff, .write_depths = depths(1),
     .can_encode = tiff::can_encode_tiff, .can_append = tiff::can_append_tiff,
     .can_store = tiff::can_store_tiff, .encode_stored = tiff::encode_stored_tiff,
     .supplier = Supplier::transitions, .traits = kMultiPage | kTakesRows},
    {.code = IMG_TYPE_BMP_RLE, .name = "bmp-rle", .title = "BMP compressed",
     .variant_of = IMG_TYPE_BMP, .variant = bmp::kRunLengths, .switched_by = IMG_TYPE_BMP,
     .encode = bmp::encode, .write_depths = depths(4, 8),
     .can_encode = bmp::can_encode},
    {.code = IMG_TYPE_TIFF_45, .name = "tiff-45", .title = "TIFF 45",
     .variant_of = IMG_TYPE_TIFF, .variant = 45, .switched_by = IMG_TYPE_TIFF},
    {.code = IMG_TYPE_TIFF_PACKBITS, .name = "tiff-packbits", .title = "TIFF PackBits",
     .variant_of = IMG_TYPE_TIFF, .variant = 32773, .switched_by = IMG_TYPE_TIFF,
     .encode = tiff::encode_tiff, .write_depths = depths(1, 4, 8, 16, 24, 32),
     .can_encode = tiff::can_encode_tiff, .can_append = tiff::can_append_tiff,
     .traits = kMultiPage | kTakesRows},
    {.code = IMG_TYPE_TIFF_JPEG, .name = "tiff-jpeg", .title = "TIFF JPEG",
     .variant_of = IMG_TYPE_TIFF, .variant = 6, .switched_by = IMG_TYPE_TIFF,
     .encode = tiff::encode_tiff, .write_depths = depths(8, 24, 32),
     .can_encode = tiff::can_encode_tiff, .can_append = tiff::can_append_tiff,
     .can_store = tiff::can_store_tiff, .encode_stored = tiff::encode_stored_tiff,
     .traits = kMultiPage},
    {.code = IMG_TYPE_GIF_INTERLACED, .name = "gif-interlaced", .title = "GIF interlaced",
     .variant_of = IMG_TYPE_GIF, .variant = plugin::kGifInterlaced,
     .encode = plugin::encode_gif, .write_depths = depths(1, 4, 8),
     .available = plugin::gif_interlaced_encoder_available, .can_encode = plugin::can_encode_gif},
    {.code = IMG_TYPE_TIFF_32010, .name = "tiff-32010", .title = "TIFF 32010",
     .variant_of = IMG_TYPE_TIFF, .variant = 32010,
     .traits = kMultiPage},
    {.code = IMG_TYPE_TIFF_32008, .name = "tiff-32008", .title = "TIFF 32008",
     .variant_of = IMG_TYPE_TIFF, .variant = 32008,
     .traits = kMultiPage},
    {.code = IMG_TYPE_DIB, .name = "dib", .title = "DIB", .ending = "dib", .variant = bmp::kBareDib,
     .more_endings = " dib ",
     .encode = bmp::encode, .write_depths = depths(1, 4, 8, 16, 24, 32)},
    {.code = IMG_TYPE_PCL, .name = "pcl", .title = "PCL", .ending = "pcl",
     .encode = simple::encode_pcl, .write_depths = depths(1, 4, 8, 24, 32),
     .can_encode = simple::can_encode_pcl, .traits = kByName},
    {.code = IMG_TYPE_POSTSCRIPT, .name = "postscript", .title = "PostScript", .ending = "ps",
     .variant = simple::kPage,
     .encode = simple::encode_postscript, .write_depths = depths(1, 4, 8, 24, 32),
     .can_encode = simple::can_encode_postscript, .supplier = Supplier::transitions},

    // Those that are asked for.
    {.code = IMG_TYPE_PNM, .name = "pnm", .title = "PNM", .ending = "pnm",
     .test = is_pnm, .first_test = is_pnm, .more_endings = " pnm pbm pgm ppm ",
     .decode = simple::decode_pnm, .read_depths = depths(1, 8, 24),
     .encode = simple::encode_pnm, .write_depths = depths(1, 4, 8, 24, 32),
     .can_encode = simple::can_encode_pnm, .count_pages = simple::count_pnm_pages,
     .traits = kByName | kExtended | kShort},
    {.code = IMG_TYPE_WEBP, .name = "webp", .title = "WebP", .ending = "webp",
     .test = is_webp, .first_test = is_webp,
     .decode = plugin::decode_extended, .read_depths = depths(24),
     .available = plugin::extended_available, .count_pages = plugin::count_extended_pages,
     .traits = kExtended},
    {.code = IMG_TYPE_JPEG_2000, .name = "jpeg-2000", .title = "JPEG 2000", .ending = "jp2",
     .test = is_jpeg_2000, .first_test = is_jpeg_2000,
     .decode = plugin::decode_extended, .read_depths = depths(24),
     .available = plugin::extended_available, .traits = kExtended},
    {.code = IMG_TYPE_HEIF, .name = "heif", .title = "HEIF, AVIF", .ending = "heic",
     .test = is_heif, .first_test = is_heif,
     .decode = plugin::decode_extended, .read_depths = depths(24),
     .available = plugin::extended_available, .count_pages = plugin::count_extended_pages,
     .traits = kExtended},
};
// clang-format on

consteval std::size_t usual_types() {
  const auto usual = [](const FileType& type) { return (type.traits & kExtended) == 0; };
  const auto* const end = std::ranges::find_if_not(kFileTypes, usual);
  return static_cast<std::size_t>(end - std::begin(kFileTypes));
}
static_assert(std::none_of(kFileTypes + usual_types(), std::end(kFileTypes),
                           [](const FileType& type) { return (type.traits & kExtended) == 0; }));

constexpr char lower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool same_ending(std::string_view ending, std::string_view known) {
  return std::equal(ending.begin(), ending.end(), known.begin(), known.end(),
                    [](char a, char b) { return lower(a) == b; });
}

bool is_more_ending(const FileType& type, std::string_view ending) {
  for (std::string_view more = type.more_endings; more.size() > 1;) {
    const std::size_t end = more.find(' ', 1);
    if (same_ending(ending, {more.data() + 1, end - 1})) return true;
    more.remove_prefix(end);
  }
  return false;
}

}  // namespace

std::span<const FileType> file_types() {
  const bool extended = context().options.get<IMG_OPTION_EXTENDED_FORMATS>() == 1;
  return std::span(kFileTypes).first(extended ? std::size(kFileTypes) : usual_types());
}

const FileType* find_code(std::int32_t code) {
  for (const FileType& type : file_types()) {
    if (type.code == code) return &type;
  }
  return nullptr;
}

const FileType* find_variant(const FileType& format, std::int32_t variant) {
  for (const FileType& type : file_types()) {
    const bool related = &type == &format || type.variant_of == format.code;
    if (related && type.variant == variant) return &type;
  }
  return nullptr;
}

std::int32_t code_for_name(std::string_view name) {
  if (name.size() < 3) return -1;
  const std::string_view ending = name.substr(name.size() - 3);
  for (const FileType& type : file_types()) {
    if ((type.traits & kByName) != 0 && same_ending(ending, type.ending)) return type.code;
    if ((type.traits & kExtended) != 0 && is_more_ending(type, ending)) return type.code;
  }
  return -1;
}

std::int32_t code_for_whole_ending(std::string_view name) {
  const std::size_t dot = name.find_last_of("./\\");
  if (dot == std::string_view::npos || name[dot] != '.') return -1;
  std::string_view ending = name;
  ending.remove_prefix(dot + 1);
  for (const FileType& type : file_types()) {
    if ((type.traits & kByName) != 0 && same_ending(ending, type.ending)) return type.code;
    if (is_more_ending(type, ending)) return type.code;
  }
  return -1;
}

std::int32_t switch_of(const FileType& type) {
  return type.switched_by < 0 ? type.code : type.switched_by;
}

std::int32_t switch_of(std::int32_t code) {
  const FileType* type = find_code(code);
  return type == nullptr ? code : switch_of(*type);
}

}  // namespace tq::dispatch
