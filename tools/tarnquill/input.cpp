// Opening, asking and decoding.
#include "input.h"

#include <cstring>
#include <memory>

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

std::int32_t IMG_CB_C keep_header(void* header, void* kept) {
  std::memcpy(kept, header, sizeof(DibHeader));
  return IMG_STOP_AFTER_HEADER;
}

std::int32_t IMG_CB_C refuse_row(void* /*row*/, void* /*context*/, std::int32_t /*y*/,
                                 std::int32_t /*bytes*/) {
  return IMG_STOP_AFTER_HEADER;
}

}  // namespace

std::string input_label(const std::string& name) {
  return name == "-" ? "standard input" : name;
}

Input::Input(const std::string& name) : label_(input_label(name)) {
  if (name == "-") {
    set_binary(stdin);
    bytes_ = read_all(stdin, label_);
    return;
  }
  switch (path_kind(name)) {
    case PathKind::file:
      stream_ = open_to_read(name);
      if (stream_ < 0) throw Failure(label_, IMG_CANNOT_OPEN);
      return;
    case PathKind::other: {  // a pipe or a device
      const std::unique_ptr<std::FILE, CloseFile> file(open_file(name, "rb"));
      if (file == nullptr) throw Failure(label_, IMG_CANNOT_OPEN);
      bytes_ = read_all(file.get(), label_);
      return;
    }
    default:
      throw Failure(label_, IMG_CANNOT_OPEN);
  }
}

Input::~Input() {
  if (!in_memory()) close_stream(stream_);
}

std::int32_t Input::file_type() const {
  return in_memory() ? IMGLOW_get_filetype_block(bytes_.data(), bytes_.size())
                     : IMGLOW_get_filetype_fd(stream_);
}

std::int32_t Input::pages() const {
  return in_memory() ? IMGLOW_get_pages_block(bytes_.data(), bytes_.size())
                     : IMGLOW_get_pages_fd(stream_);
}

ImageFacts Input::facts(int page) const {
  DibHeader header = {};
  const std::int32_t result =
      in_memory() ? IMGLOW_decompress_bitmap_block(bytes_.data(), bytes_.size(), page, refuse_row,
                                                   &header, keep_header)
                  : IMGLOW_decompress_bitmap(stream_, 0, page, refuse_row, &header, keep_header);
  if (result != IMG_STOP_AFTER_HEADER) check(label_, result);
  // The callback sees what the file says.
  if (header.biWidth < 1 || header.biHeight < 1 || header.biBitCount < 1) {
    throw Failure(label_, IMG_BAD_IMAGE);
  }
  ImageFacts facts{header.biWidth, header.biHeight, header.biBitCount, header.biXPelsPerMeter,
                   header.biYPelsPerMeter};
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
  if (!in_memory()) rewind_stream(stream_);
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
  return check(label_, in_memory() ? IMG_decompress_bitmap_block(bytes_.data(), bytes_.size(), page)
                                   : IMG_decompress_bitmap_fd(stream_, 0, page));
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

}  // namespace tool
