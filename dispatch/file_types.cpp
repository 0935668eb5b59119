// The table of formats, in detection order, and its look-ups.
#include "dispatch/file_types.h"

#include <algorithm>

#include "dispatch/probes.h"
#include "formats/bmp/bmp.h"
#include "formats/jpeg/jpeg.h"
#include "formats/pcx/pcx.h"
#include "formats/pdf/pdf.h"
#include "formats/plugin/plugin.h"
#include "formats/png/png.h"
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
  return std::all_of(p.bytes, p.bytes + kProbeBytes, [](std::uint8_t c) {
    return (c >= 0x20 && c <= 0x7E) || (c >= 0x09 && c <= 0x0D) || c == 0x1A;
  });
}

// For formats that hold pages which nobody can count without their decoder.
Status pages_unknown(StreamHandle /*stream*/) {
  return StatusCode::unsupported;
}

// clang-format off
constexpr FileType kFileTypes[] = {
    {.code = 0, .detect_switch = 0, .type = "tif",
     .test = [](const Probe& p) { return p.has("MM") || p.has("II"); },
     .count_pages = pages_unknown, .traits = kMultiPage | kByName},
    {.code = 4, .detect_switch = 4, .type = "gif",
     .test = [](const Probe& p) { return p.has("GIF"); },
     .decode = decode_gif, .encode = encode_gif, .available = gif_encoder_available,
     .can_encode = can_encode_gif, .count_pages = count_gif_pages, .traits = kByName},
    {.code = 1, .detect_switch = 1, .type = "bmp",
     .test = [](const Probe& p) { return p.has("BM") || p.has("\x28\0\0\0"sv); },  // or a bare DIB
     .decode = decode_bmp, .encode = encode_bmp, .traits = kByName},
    {.code = 14, .detect_switch = 14, .type = "eps",
     .test = [](const Probe& p) { return p.has("\xC5\xD0\xD3\xC6"); }, .traits = kByName},
    {.code = 59, .detect_switch = 59, .type = "pdf",
     .test = [](const Probe& p) { return p.has("%PDF"); },
     .decode = decode_pdf, .encode = encode_pdf, .can_encode = can_encode_pdf,
     .can_append = can_append_pdf, .supplier = Supplier::transitions, .traits = kMultiPage},
    {.code = 11, .detect_switch = 11, .type = "dcx",
     .test = [](const Probe& p) { return p.has("\xB1\x68\xDE\x3A"); },
     .decode = decode_dcx, .encode = encode_dcx, .can_encode = can_encode_pcx,
     .can_append = can_append_dcx, .count_pages = count_dcx_pages, .traits = kMultiPage | kByName},
    {.code = 13, .detect_switch = 13, .type = "jpg",
     .test = [](const Probe& p) { return p.has("\xFF\xD8"); },
     .decode = decode_jpeg, .encode = encode_jpeg, .can_encode = can_encode_jpeg,
     .traits = kByName},
    {.code = 5, .detect_switch = 5, .type = "wpg",
     .test = [](const Probe& p) { return p.has("WPC", 1); }, .traits = kByName},
    {.code = 18, .detect_switch = 18, .type = "cal",
     .test = [](const Probe& p) { return p.has("src"); },
     .supplier = Supplier::transitions, .traits = kByName},
    {.code = 43, .detect_switch = 43, .type = "png",
     .test = [](const Probe& p) { return p.has("PNG", 1); },
     .decode = decode_png, .encode = encode_png, .available = png_available,
     .can_encode = can_encode_png, .traits = kByName},
    {.code = 65, .detect_switch = 65, .type = "ncr",
     .test = [](const Probe& p) { return p.has("NN") || p.has("nn"); }, .traits = kUnreported},
    {.code = 23, .detect_switch = 23, .type = "kfx",
     .test = [](const Probe& p) { return p.has(".KF"); }},
    {.code = 26, .detect_switch = 26, .type = "iff",
     .test = [](const Probe& p) { return p.has("FORM"); }, .traits = kByName},
    {.code = 54, .detect_switch = 54, .type = "fpx",
     .test = [](const Probe& p) { return p.has("\xD0\xCF\x11\xE0\xA1\xB1"); }},
    {.code = 22, .detect_switch = 22, .type = "gx2",
     .test = [](const Probe& p) { return p.has("GX2"); }},
    {.code = 19, .detect_switch = 19, .type = "lsd",
     .test = [](const Probe& p) { return p.has("\xDC\xDC"); }},
    {.code = 2, .detect_switch = 2, .type = "pcx",
     .test = [](const Probe& p) { return p[0] == 0x0A && p[2] == 0x01; },
     .decode = decode_pcx, .encode = encode_pcx, .can_encode = can_encode_pcx,
     .traits = kByName},
    {.code = 25, .detect_switch = 25, .type = "ico",
     .test = [](const Probe& p) { return p.has("\0\0\1\0"sv) && one_of(p[6], {16, 32, 48, 64}); },
     .traits = kByName},
    {.code = 3, .detect_switch = 3, .type = "tga", .test = is_targa, .traits = kByName},
    {.code = 6, .detect_switch = 6, .type = "wmf",
     .test = [](const Probe& p) { return p.has("\xD7\xCD\xC6\x9A"); }, .traits = kByName},
    {.code = 24, .detect_switch = 24, .type = "ica",
     .test = [](const Probe& p) { return p.has("0000") || p[0] == 'p'; },
     .count_pages = pages_unknown, .supplier = Supplier::transitions, .traits = kByName},
    {.code = 49, .detect_switch = 24, .type = "mca", .test = is_mca,
     .count_pages = pages_unknown, .supplier = Supplier::transitions,
     .traits = kMultiPage | kByName | kUnreported},
    {.code = 39, .detect_switch = 39, .type = "pcd",
     .test = [](const Probe& p) { return p.has("\xFF\xFF\xFF\xFF"); }, .count_pages = pages_unknown},
    {.code = 27, .detect_switch = 27, .type = "clp",
     .test = [](const Probe& p) { return p.has("P\xC3"); }, .traits = kByName},
    {.code = 28, .detect_switch = 28, .type = "img",
     .test = [](const Probe& p) { return p.has("\0\1\0"sv) && one_of(p[3], {8, 9}); }},
    {.code = 29, .detect_switch = 29, .type = "btr",
     .test = [](const Probe& p) { return p[0] == 0xBB && p[3] == 0x01; }},
    {.code = 30, .detect_switch = 30, .type = "msp",
     .test = [](const Probe& p) { return p.has("Lin") || p.has("DanM"); }},
    {.code = 20, .detect_switch = 20, .type = "xbm", .test = probe_xbm, .traits = kByName},
    {.code = 35, .detect_switch = 35, .type = "xpm",
     .test = [](const Probe& p) { return p.has("/* XPM */"); }, .traits = kByName},
    {.code = 36, .detect_switch = 36, .type = "xwd",
     .test = [](const Probe& p) { return p.has("\0\0\0\7"sv, 4); }, .traits = kByName},
    {.code = 37, .detect_switch = 37, .type = "ras",
     .test = [](const Probe& p) { return p.has("\x59\xA6\x6A\x95"); }, .traits = kByName},
    {.code = 56, .detect_switch = 56, .type = "jed",
     .test = [](const Probe& p) { return p.has("\x80\0\0"sv); }, .traits = kByName},
    {.code = 58, .detect_switch = 58, .type = "fxs",
     .test = [](const Probe& p) { return p.has("\x0B#") && p.has("\xC0\x06", 3); }},
    {.code = 31, .detect_switch = 31, .type = "cut", .test = is_cut},
    {.code = 61, .detect_switch = 61, .type = "mag",
     .test = [](const Probe& p) { return p.has("WTI"); },
     .count_pages = pages_unknown, .traits = kUnreported},
    {.code = 38, .detect_switch = 38, .type = "txt", .test = is_text, .count_pages = pages_unknown},
    {.code = 41, .detect_switch = 41, .type = "psd",
     .test = [](const Probe& p) { return p.has("8BPS"); }, .traits = kByName},
    {.code = 42, .detect_switch = 42, .type = "imt",
     .test = [](const Probe& p) { return p.has("\x27" "C1\0"sv); }, .traits = kUnreported},
    {.code = 15, .detect_switch = 15, .type = "pct", .test = probe_pict, .traits = kByName},
    {.code = 21, .detect_switch = 21, .type = "mac", .test = probe_macpaint},
    {.code = 60, .detect_switch = 60, .type = "sct", .test = probe_sct,
     .traits = kByName | kUnreported},
    {.code = 55, .detect_switch = 55, .type = "dcm", .test = probe_dicom},

    // Variants and save-only codes: no test of their own.
    {.code = 7, .type = "tif", .traits = kMultiPage},
    {.code = 8, .type = "tif", .traits = kMultiPage},
    {.code = 9, .type = "tif", .encode = encode_tiff_lzw, .available = tiff_lzw_encoder_available,
     .can_append = pages_unknown, .traits = kMultiPage},
    {.code = 10, .type = "tif", .supplier = Supplier::transitions, .traits = kMultiPage},
    {.code = 12, .type = "bmp", .encode = encode_bmp_rle,
     .can_encode = can_encode_bmp_rle},
    {.code = 16, .type = "tif", .traits = kMultiPage},
    {.code = 40, .type = "tif", .traits = kMultiPage},
    {.code = 44, .type = "gif", .encode = encode_gif_interlaced,
     .available = gif_interlaced_encoder_available, .can_encode = can_encode_gif},
    {.code = 46, .type = "tif", .traits = kMultiPage},
    {.code = 47, .type = "tif", .traits = kMultiPage},
    {.code = 48, .type = "bmp", .encode = encode_dib},
    {.code = 57, .type = "pcl", .traits = kByName},
};
// clang-format on

constexpr char lower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

}  // namespace

std::span<const FileType> file_types() {
  return kFileTypes;
}

const FileType* find_code(std::int32_t code) {
  for (const FileType& type : kFileTypes) {
    if (type.code == code) return &type;
  }
  return nullptr;
}

std::int32_t code_for_name(std::string_view name) {
  if (name.size() < 3) return -1;
  const std::string_view ending = name.substr(name.size() - 3);
  for (const FileType& type : kFileTypes) {
    if ((type.traits & kByName) == 0) continue;
    if (std::equal(ending.begin(), ending.end(), type.type.begin(), type.type.end(),
                   [](char a, char b) { return lower(a) == b; })) {
      return type.code;
    }
  }
  return -1;
}

}  // namespace tq::dispatch
