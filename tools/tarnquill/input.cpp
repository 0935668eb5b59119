// Opening, asking and decoding.
#include "input.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <string_view>

#include "codes.h"
#include "dib_header.h"
#include "errors.h"
#include "system.h"

namespace tool {
namespace {

struct CloseFile {
  void operator()(std::FILE* file) const {
    if (file != stdin) std::fclose(file);
  }
};

std::vector<std::uint8_t> read_all(std::FILE* file, const std::string& label) {
  constexpr std::size_t kChunk = 1 << 16;
  std::vector<std::uint8_t> bytes;
  for (;;) {
    const std::size_t held = bytes.size();
    bytes.resize(held + kChunk);
    const std::size_t got = std::fread(bytes.data() + held, 1, kChunk, file);
    bytes.resize(held + got);
    if (interrupted() != 0) throw Failure(label, kInterrupted);
    if (got == kChunk) continue;
    if (std::ferror(file) != 0) throw Failure(label, IMG_READ_FAILED);
    return bytes;
  }
}

struct HeaderBlock {
  DibHeader header;
  std::array<std::array<std::uint8_t, 4>, 256> palette;
};
static_assert(sizeof(HeaderBlock) == IMG_HEADER_BLOCK_BYTES);

std::int32_t IMG_CB_C keep_header(void* header, void* kept) {
  std::memcpy(kept, header, sizeof(HeaderBlock));
  return IMG_STOP_AFTER_HEADER;
}

bool is_grey(const HeaderBlock& block) {
  const int bits = block.header.biBitCount;
  if (bits > 8) return false;
  return std::all_of(
      block.palette.begin(), block.palette.begin() + (1 << bits),
      [](const auto& entry) { return entry[0] == entry[1] && entry[1] == entry[2]; });
}

std::string why_not_opened(const std::string& name) {
  if (is_forbidden(name)) return "permission denied";
  switch (path_kind(name)) {
    case PathKind::absent:
      return "no such file";
    case PathKind::folder:
      return "is a folder";
    default:
      return "";
  }
}

std::int32_t IMG_CB_C refuse_row(void* /*row*/, void* /*context*/, std::int32_t /*y*/,
                                 std::int32_t /*bytes*/) {
  return IMG_STOP_AFTER_HEADER;
}

}  // namespace

std::string input_label(const std::string& name) {
  return name == "-" ? "standard input" : name;
}

std::string page_label(const std::string& label, int page) {
  return page == 0 ? label : label + ", page " + std::to_string(page + 1);
}

Input::Input(const std::string& name) : label_(input_label(name)), name_(name) {
  if (name == "-") {
    set_binary(stdin);
    bytes_ = read_all(stdin, label_);
    return;
  }
  switch (path_kind(name)) {
    case PathKind::file:
      stream_ = open_to_read(name);
      break;
    case PathKind::other: {  // a pipe or a device
      const std::unique_ptr<std::FILE, CloseFile> file(open_file(name, "rb"));
      if (file == nullptr) break;
      bytes_ = read_all(file.get(), label_);
      return;
    }
    default:
      break;
  }
  if (stream_ < 0) throw Failure(label_, IMG_CANNOT_OPEN, why_not_opened(name));
}

Input::~Input() {
  if (!in_memory()) close_stream(stream_);
}

// The library begins where a stream stands.
void Input::rewind() const {
  if (!in_memory()) rewind_stream(stream_);
}

std::int32_t Input::found_type() const {
  rewind();
  return in_memory() ? IMGLOW_get_filetype_block(bytes_.data(), bytes_.size())
                     : IMGLOW_get_filetype_fd(stream_);
}

std::int32_t Input::file_type() const {
  return checked(found_type(), 0);
}

int Input::pages() const {
  constexpr int kMostAsked = 0xFFFF;
  const std::int32_t code = found_type();
  const auto type = find_code(code);
  rewind();
  const std::int32_t counted = in_memory() ? IMGLOW_get_pages_block(bytes_.data(), bytes_.size())
                                           : IMGLOW_get_pages_fd(stream_);
  if (counted > 1) return counted;
  const bool may_have_more =  // some kinds of documents are not told
      !type || (type->flags & IMG_FORMAT_PAGES) != 0 || code == IMG_TYPE_DICOM;
  HeaderBlock block{};
  int pages = 1;
  while (may_have_more && pages < kMostAsked &&
         find_header(pages, &block) == IMG_STOP_AFTER_HEADER) {
    ++pages;
  }
  return pages;
}

std::string Input::first_bytes(std::size_t count) const {
  std::string start(count, '\0');
  if (in_memory()) {
    start.assign(bytes_.begin(),
                 bytes_.begin() + static_cast<std::ptrdiff_t>(std::min(count, bytes_.size())));
    return start;
  }
  rewind();
  const std::int32_t got = read_stream(stream_, start.data(), static_cast<std::int32_t>(count));
  start.resize(static_cast<std::size_t>(std::max(got, 0)));
  return start;
}

std::uint64_t Input::bytes() const {
  return in_memory() ? bytes_.size() : state_of(name_).bytes;
}

std::string Input::coding(int page) const {
  constexpr std::pair<std::int32_t, const char*> kAlways[] = {
      {IMG_TYPE_PCX, "runs"},         {IMG_TYPE_DCX, "runs"},  {IMG_TYPE_GIF, "LZW"},
      {IMG_TYPE_PNG, "deflate"},      {IMG_TYPE_JPEG, "JPEG"}, {IMG_TYPE_CALS, "Group 4"},
      {IMG_TYPE_MACPAINT, "PackBits"}};
  const std::int32_t code = found_type();
  for (const auto& [format, name] : kAlways) {
    if (code == format) return name;
  }
  if (code == IMG_TYPE_BMP || code == IMG_TYPE_BMP_RLE) {
    constexpr const char* kNames[] = {"none", "RLE8", "RLE4", "none", "JPEG", "PNG"};
    constexpr unsigned kHeader = 14, kCompression = 30;
    const std::string start = first_bytes(kCompression + 1);
    const bool told =
        start.size() > kCompression && start.starts_with("BM") && start[kHeader] >= 40;
    const unsigned char number = told ? static_cast<unsigned char>(start[kCompression]) : 0;
    return number < std::size(kNames) ? kNames[number] : "";
  }
  return tiff_coding(page);
}

std::string Input::tiff_coding(int page) const {
  constexpr int kCompression = 259;
  const std::optional<TagFacts> facts = tag(page, kCompression);
  if (!facts || facts->type != IMG_TIFF_SHORT || facts->bytes.size() < 2) return "";
  return tiff_coding_name(facts->bytes[0] | facts->bytes[1] << 8);
}

// What it is that cannot be read, as far as that can be told.
std::string Input::obstacle(int page) const {
  const std::int32_t code = found_type();
  if (const std::string coding = tiff_coding(page); !coding.empty()) {
    return "TIFF with " + coding + " compression cannot be read";
  }
  if (code < 0) return "no image of a known format";
  const auto type = find_code(code);
  std::string title = type ? type->title : "code " + std::to_string(code);
  if (!type || (type->flags & IMG_FORMAT_READS) == 0) return title + " files cannot be read";
  if (code == IMG_TYPE_DICOM) {
    // The element (0002,0010) of its first bytes says how its pixels are coded (PS3.10).
    constexpr std::string_view kElement("\x02\x00\x10\x00UI", 6);
    const std::string start = first_bytes(4096);
    const std::size_t found = start.find(kElement);
    if (found != std::string::npos && found + 8 < start.size()) {
      const std::string value = start.substr(found + 8, 64);
      title += " of transfer syntax " + value.substr(0, value.find_first_not_of("0123456789."));
    }
  }
  if (code == IMG_TYPE_PDF) title += " pages that are no pictures, or are locked,";
  return title + " cannot be read";
}

// Of a JPEG file: how its frame is coded, if that is not known here (ITU-T T.81, table B.1).
std::string Input::unknown_frame() const {
  constexpr std::size_t kMostLookedAt = 1 << 20;
  const std::string start = first_bytes(kMostLookedAt);
  const auto at = [&](std::size_t i) { return static_cast<unsigned char>(start[i]); };
  for (std::size_t i = 2; i + 4 <= start.size() && at(i) == 0xFF;) {
    const unsigned marker = at(i + 1);
    if (marker >= 0xC0 && marker <= 0xC2) return "";
    if (marker == 0xC9 || marker == 0xCA) return "arithmetic";
    if (marker == 0xC3 || marker == 0xCB || marker == 0xF7) return "lossless";
    if (marker >= 0xC5 && marker <= 0xCF && marker != 0xC8 && marker != 0xCC) return "hierarchical";
    i += marker == 0xFF ? 1 : 2U + (at(i + 2) << 8 | at(i + 3));
  }
  return "";
}

std::int32_t Input::checked(std::int32_t result, int page) const {
  if (result >= 0) return result;
  if (result == IMG_UNSUPPORTED) throw Failure(label_, result, obstacle(page));
  if (result == IMG_BAD_IMAGE && found_type() == IMG_TYPE_JPEG) {
    const std::string coding = unknown_frame();
    if (!coding.empty()) {
      throw Failure(label_, result, "JPEG with " + coding + " coding cannot be read");
    }
  }
  // It is open: the library says so of files that end inside of their headers.
  throw Failure(label_, result, result == IMG_CANNOT_OPEN ? "its header cannot be read" : "");
}

std::int32_t Input::find_header(int page, void* header) const {
  rewind();
  return in_memory() ? IMGLOW_decompress_bitmap_block(bytes_.data(), bytes_.size(), page,
                                                      refuse_row, header, keep_header)
                     : IMGLOW_decompress_bitmap(stream_, 0, page, refuse_row, header, keep_header);
}

ImageFacts Input::facts(int page) const {
  HeaderBlock block = {};
  const DibHeader& header = block.header;
  const std::int32_t result = find_header(page, &block);
  if (result != IMG_STOP_AFTER_HEADER) checked(result, page);
  // The callback sees what the file says.
  if (header.biWidth < 1 || header.biHeight < 1 || header.biBitCount < 1) {
    throw Failure(label_, IMG_BAD_IMAGE);
  }
  ImageFacts facts{.width = header.biWidth,
                   .height = header.biHeight,
                   .bits = header.biBitCount,
                   .compression = header.biCompression,
                   .is_grey = is_grey(block),
                   .x_dpi = header.biXPelsPerMeter,
                   .y_dpi = header.biYPelsPerMeter};
  if (IMG_get_option(IMG_OPTION_ORIENTATION) == 1 && orientation(page) >= 5) {
    std::swap(facts.width, facts.height);
    std::swap(facts.x_dpi, facts.y_dpi);
  }
  return facts;
}

std::int32_t Input::orientation(int page) const {
  constexpr int kOrientation = 274;
  if (page > 0) {  // pages with their own are TIFF's
    const auto value = tag(page, kOrientation);
    return value && !value->bytes.empty() ? value->bytes[0] : 1;
  }
  rewind();
  const std::int32_t told = in_memory()
                                ? IMGLOW_get_image_orientation_block(bytes_.data(), bytes_.size())
                                : IMGLOW_get_image_orientation_fd(stream_);
  return told > 0 ? told : 1;
}

std::optional<TagFacts> Input::tag(int page, int number) const {
  TagFacts facts;
  std::int32_t type = 0, count = 0;
  const auto ask = [&](void* buffer, std::size_t bytes) {
    const auto room = static_cast<std::int32_t>(bytes);
    return in_memory() ? IMGLOW_get_tiff_tag_block(bytes_.data(), bytes_.size(), page, number,
                                                   &type, &count, buffer, room)
                       : IMGLOW_get_tiff_tag_fd(stream_, page, number, &type, &count, buffer, room);
  };
  const std::int32_t bytes = ask(nullptr, 0);
  if (bytes == IMG_NOT_TILED || bytes == IMG_UNSUPPORTED) return {};
  facts.bytes.resize(static_cast<std::size_t>(check(label_, bytes)));
  check(label_, ask(facts.bytes.data(), facts.bytes.size()));
  facts.type = type;
  facts.count = count;
  return facts;
}

std::int32_t Input::decode(int page, bool without_inks) const {
  const bool shown = IMG_get_option(IMG_OPTION_READING) == 1;
  IMG_set_option(IMG_OPTION_INKS, shown && without_inks ? 1 : 0);
  return checked(in_memory() ? IMG_decompress_bitmap_block(bytes_.data(), bytes_.size(), page)
                             : IMG_decompress_bitmap_fd(stream_, 0, page),
                 page);
}

std::int32_t Input::copy_page(int page, std::int32_t stream, std::int32_t code) const {
  IMG_set_option(IMG_OPTION_INKS, 0);
  if (!in_memory()) return IMG_copy_page_fd(stream_, 0, page, stream, code);
  const std::int32_t image = IMG_decompress_bitmap_block(bytes_.data(), bytes_.size(), page);
  if (image < 0) return image;
  const std::int32_t saved = IMG_save_bitmap_fd(image, stream, code);
  IMG_delete_bitmap(image);
  return saved < 0 ? saved : 1;
}

std::int32_t Input::pass_page(int page, std::int32_t stream, std::int32_t code) const {
  if (in_memory()) return IMG_UNSUPPORTED;
  IMG_set_option(IMG_OPTION_INKS, 0);
  return IMG_convert_page_fd(stream_, 0, page, stream, code);
}

}  // namespace tool
