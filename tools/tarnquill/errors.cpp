// Messages for status codes.
#include "errors.h"

#include <algorithm>

namespace tool {
namespace {

struct Meaning {
  std::int32_t status;
  const char* text;
};

constexpr Meaning kMeanings[] = {
    {IMG_OUT_OF_MEMORY, "out of memory, or the image is too large"},
    {IMG_CANNOT_OPEN, "cannot be opened"},
    {IMG_BAD_IMAGE, "image data is invalid"},
    {IMG_CANNOT_CREATE, "cannot be created"},
    {IMG_UNSUPPORTED, "format or parameter is not supported"},
    {IMG_NO_DEVICE_BITMAP, "not a device bitmap"},
    {IMG_WRITE_FAILED, "writing failed"},
    {IMG_EMPTY_DISPLAY_RECT, "display rectangle is empty"},
    {IMG_NO_SUCH_PAGE, "page is absent or cannot be read"},
    {IMG_READ_FAILED, "reading failed"},
    {IMG_BAD_HANDLE, "no such image"},
    {IMG_REFUSED_BY_LICENCE, "refused by the licence check"},
    {IMG_WRONG_DEPTH, "bit depth does not fit"},
    {IMG_NOT_GREY, "image is not grey"},
    {IMG_NO_LZW_MODULE, "the LZW module is not installed"},
    {IMG_NO_TRANSPARENCY, "no transparent colour"},
    {IMG_NO_ANIMATION_DELAY, "GIF file without animation"},
    {IMG_PAGE_PAST_END, "page is beyond the last one"},
    {IMG_NOT_TILED, "file is not tiled"},
    {IMG_NO_PDF_MODULE, "the PDF module is not installed"},
    {kInterrupted, "interrupted"},
};

}  // namespace

const char* status_meaning(std::int32_t status) {
  const auto* const found =
      std::find_if(std::begin(kMeanings), std::end(kMeanings),
                   [status](const Meaning& meaning) { return meaning.status == status; });
  return found != std::end(kMeanings) ? found->text : "failed";
}

std::string printable(const std::string& name) {
  std::string text;
  unsigned before = 0;
  for (const char c : name) {
    const auto byte = static_cast<unsigned char>(c);
    if (before == 0xC2 && byte >= 0x80 && byte < 0xA0) {
      text.back() = '?';  // U+0080 to U+009F in UTF-8
    } else {
      text += byte < 0x20 || byte == 0x7F ? '?' : c;
    }
    before = byte;
  }
  return text;
}

Failure::Failure(const std::string& file, std::int32_t status)
    : std::runtime_error(printable(file) + ": " + status_meaning(status) + " (" +
                         std::to_string(status) + ")"),
      status_(status) {}

std::int32_t check(const std::string& file, std::int32_t result) {
  if (result < 0) throw Failure(file, result);
  return result;
}

}  // namespace tool
