// Scanned pages as files.
#include <charconv>
#include <cstring>
#include <string_view>

#include "core/numbers.h"
#include "dispatch/dispatch.h"
#include "scan/scanner.h"

namespace tq::scan {
namespace {

// A name in which the last run of '#' stands for the number of the page.
class FileNames {
 public:
  Status allocate(std::string_view name) {
    std::size_t end = name.find_last_of('#');
    numbered_ = end != std::string_view::npos;
    end = numbered_ ? end + 1 : name.size();
    std::size_t start = end;
    while (numbered_ && start > 0 && name[start - 1] == '#') --start;
    before_ = {name.data(), start};  // substr could throw
    digits_ = end - start;
    behind_ = {name.data() + end, name.size() - end};
    return room_.allocate(static_cast<std::int64_t>(name.size() + kLongestNumber + 1));
  }

  bool numbered() const { return numbered_; }

  const char* name_of(std::int64_t number) {
    char text[kLongestNumber];
    const std::size_t length = std::to_chars(text, text + sizeof text, number).ptr - text;
    char* at = copy(before_, room_.data());
    if (numbered_) {
      for (std::size_t i = length; i < digits_; ++i) *at++ = '0';
      at = copy({text, length}, at);
    }
    *copy(behind_, at) = '\0';
    return room_.data();
  }

 private:
  static constexpr std::size_t kLongestNumber = 20;

  static char* copy(std::string_view text, char* to) {
    return std::copy(text.begin(), text.end(), to);
  }

  bool numbered_ = false;
  std::string_view before_, behind_;
  std::size_t digits_ = 0;
  RowBuffer<char> room_;
};

struct Files {
  FileNames names;
  std::int32_t first = 0;
  std::int32_t code = 0;

  static Status take(void* context, ImageHandle image, std::int32_t page) {
    auto& files = *static_cast<Files*>(context);
    const char* const name = files.names.name_of(std::int64_t{files.first} + page);
    // A page of its own each: none is added to what an earlier run has left.
    if (files.names.numbered()) remove_file(file_name(name));
    const Status saved = dispatch::save_image_file(image, name, files.code);
    (void)free_image_slot(image);
    return saved;
  }
};

}  // namespace

Status scan_to_files(const char* name, std::int32_t first, std::int32_t code) {
  if (name == nullptr || first < 0) return StatusCode::unsupported;
  Files files;
  files.first = first;
  files.code = dispatch::code_to_save(name, code);
  TQ_TRY(files.names.allocate(name));
  const dispatch::FileType* const type = dispatch::find_code(files.code);
  if (type == nullptr || type->encode == nullptr) return StatusCode::unsupported;
  const bool takes_pages = (type->traits & formats::kMultiPage) != 0;
  if (!files.names.numbered() && !takes_pages) return StatusCode::unsupported;
  return scan_pages(Files::take, &files);
}

}  // namespace tq::scan
