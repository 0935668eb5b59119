// The names of all file type codes, and look-ups by each of their columns.
#include "codes.h"

#include <algorithm>
#include <cctype>
#include <charconv>

#include "tarnquill.h"

namespace tool {
namespace {

// Of codes with the same ending the first is the one that a file name chooses.
constexpr FileCode kCodes[] = {
    {IMG_TYPE_TIFF, "tiff", "TIFF", "tif", true},
    {IMG_TYPE_BMP, "bmp", "BMP", "bmp", false},
    {IMG_TYPE_PCX, "pcx", "PCX", "pcx", false},
    {IMG_TYPE_TARGA, "targa", "Targa", "tga", false},
    {IMG_TYPE_GIF, "gif", "GIF", "gif", false},
    {IMG_TYPE_WPG, "wpg", "WPG", "wpg", false},
    {IMG_TYPE_WMF, "wmf", "Windows metafile", "wmf", false},
    {IMG_TYPE_TIFF_HUFFMAN, "tiff-huffman", "TIFF Huffman", "tif", true},
    {IMG_TYPE_TIFF_G3, "tiff-g3", "TIFF Group 3", "tif", true},
    {IMG_TYPE_TIFF_LZW, "tiff-lzw", "TIFF LZW", "tif", true},
    {IMG_TYPE_TIFF_G4, "tiff-g4", "TIFF Group 4", "tif", true},
    {IMG_TYPE_DCX, "dcx", "DCX", "dcx", true},
    {IMG_TYPE_BMP_RLE, "bmp-rle", "BMP compressed", "bmp", false},
    {IMG_TYPE_JPEG, "jpeg", "JPEG", "jpg", false},
    {IMG_TYPE_EPS, "eps", "EPS", "eps", false},
    {IMG_TYPE_PICT, "pict", "PICT", "pct", false},
    {IMG_TYPE_TIFF_PACKBITS, "tiff-packbits", "TIFF PackBits", "tif", true},
    {IMG_TYPE_TIFF_45, "tiff-45", "TIFF 45", "tif", false},
    {IMG_TYPE_CALS, "cals", "CALS", "cal", false},
    {IMG_TYPE_LSD, "lsd", "LSD", "lsd", false},
    {IMG_TYPE_XBM, "xbm", "X bitmap", "xbm", false},
    {IMG_TYPE_MACPAINT, "macpaint", "MacPaint", "mac", false},
    {IMG_TYPE_GX2, "gx2", "GX2", "gx2", false},
    {IMG_TYPE_KFX, "kfx", "KFX", "kfx", false},
    {IMG_TYPE_ICA, "ica", "ICA", "ica", false},
    {IMG_TYPE_ICON, "icon", "Windows icon", "ico", false},
    {IMG_TYPE_IFF, "iff", "IFF", "iff", false},
    {IMG_TYPE_CLIPBOARD, "clipboard", "Windows clipboard", "clp", false},
    {IMG_TYPE_GEM, "gem", "GEM image", "img", false},
    {IMG_TYPE_BTR, "btr", "BTR", "btr", false},
    {IMG_TYPE_MSP, "msp", "MSP", "msp", false},
    {IMG_TYPE_CUT, "cut", "CUT", "cut", false},
    {IMG_TYPE_XPM, "xpm", "X pixmap", "xpm", false},
    {IMG_TYPE_XWD, "xwd", "X window dump", "xwd", false},
    {IMG_TYPE_SUN, "sun", "Sun raster", "ras", false},
    {IMG_TYPE_TEXT, "text", "plain text", "txt", false},
    {IMG_TYPE_PHOTO_CD, "photo-cd", "Photo CD", "pcd", false},
    {IMG_TYPE_TIFF_JPEG, "tiff-jpeg", "TIFF JPEG", "tif", true},
    {IMG_TYPE_PHOTOSHOP, "photoshop", "Photoshop", "psd", false},
    {IMG_TYPE_IMT, "imt", "IMT", "imt", false},
    {IMG_TYPE_PNG, "png", "PNG", "png", false},
    {IMG_TYPE_GIF_INTERLACED, "gif-interlaced", "GIF interlaced", "gif", false},
    {IMG_TYPE_TIFF_32010, "tiff-32010", "TIFF 32010", "tif", true},
    {IMG_TYPE_TIFF_32008, "tiff-32008", "TIFF 32008", "tif", true},
    {IMG_TYPE_DIB, "dib", "DIB", "dib", false},
    {IMG_TYPE_MCA, "mca", "MCA", "mca", true},
    {IMG_TYPE_FLASHPIX, "flashpix", "FlashPix", "fpx", false},
    {IMG_TYPE_DICOM, "dicom", "DICOM", "dcm", false},
    {IMG_TYPE_JED, "jed", "JED", "jed", false},
    {IMG_TYPE_PCL, "pcl", "PCL", "pcl", false},
    {IMG_TYPE_FXS, "fxs", "FXS", "fxs", false},
    {IMG_TYPE_PDF, "pdf", "PDF", "pdf", true},
    {IMG_TYPE_SCT, "sct", "SCT", "sct", false},
    {IMG_TYPE_MAG, "mag", "MAG", "mag", false},
    {IMG_TYPE_POSTSCRIPT, "postscript", "PostScript", "ps", false},
    {IMG_TYPE_NCR, "ncr", "NCR", "ncr", false},
};

std::string lower_case(std::string_view text) {
  std::string lower(text);
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return lower;
}

template <class Test>
const FileCode* first(Test&& test) {
  const auto* const found = std::find_if(std::begin(kCodes), std::end(kCodes), test);
  return found != std::end(kCodes) ? found : nullptr;
}

}  // namespace

const FileCode* find_code(std::int32_t code) {
  return first([code](const FileCode& entry) { return entry.code == code; });
}

std::optional<std::int32_t> parse_code(std::string_view text) {
  std::int32_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error == std::errc() && end == text.data() + text.size()) {
    return number >= 0 ? std::optional(number) : std::nullopt;
  }
  const std::string wanted = lower_case(text);
  const FileCode* const found =
      first([&](const FileCode& entry) { return wanted == entry.name || wanted == entry.ending; });
  return found != nullptr ? std::optional(found->code) : std::nullopt;
}

std::optional<std::int32_t> code_of_file_name(const std::string& name) {
  const std::size_t dot = name.rfind('.');
  if (dot == std::string::npos) return std::nullopt;
  std::string ending = lower_case(std::string_view(name).substr(dot + 1));
  if (ending == "tiff") ending = "tif";
  if (ending == "jpeg") ending = "jpg";
  const FileCode* const found =
      first([&](const FileCode& entry) { return ending == entry.ending; });
  return found != nullptr ? std::optional(found->code) : std::nullopt;
}

}  // namespace tool
