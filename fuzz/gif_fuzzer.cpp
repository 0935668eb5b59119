// The LZW module's GIF codec alone: a file is decoded, and what came out of it is encoded and
// decoded again.
#include "fuzz/fuzz_support.h"
#include "modules/lzw/gif.h"

namespace tq::fuzz {
namespace {

constexpr std::int64_t kMostPixels = 1 << 13;

struct Picture {
  gif::HeaderBlock header{};
  Memory rows{}, delivered{};  // delivered: a byte to a row
  bool has_header = false;

  std::int32_t row_bytes() const { return gif::row_bytes(header.width, header.bits); }
  std::uint8_t* row(std::int32_t y) { return rows.data() + std::ptrdiff_t{y} * row_bytes(); }

  static std::int32_t IMG_CB_C on_header(void* block, void* context) {
    auto& picture = *static_cast<Picture*>(context);
    TQ_CLAIM(!picture.has_header);
    picture.has_header = true;
    std::memcpy(&picture.header, block, sizeof picture.header);
    const std::int32_t width = picture.header.width, height = picture.header.height;
    TQ_CLAIM(width > 0 && height > 0);
    if (std::int64_t{width} * height > kMostPixels) return IMG_STOP_AFTER_HEADER;
    picture.rows.resize(std::size_t{1} * height * picture.row_bytes());
    picture.delivered.resize(static_cast<std::size_t>(height));
    return 1;
  }
  static std::int32_t IMG_CB_C on_row(void* row, void* context, std::int32_t y,
                                      std::int32_t bytes) {
    auto& picture = *static_cast<Picture*>(context);
    TQ_CLAIM(y >= 0 && y < picture.header.height && bytes == picture.row_bytes());
    TQ_CLAIM(picture.delivered[y]++ == 0);
    std::memcpy(picture.row(y), row, static_cast<std::size_t>(bytes));
    return 0;
  }
  static std::int32_t IMG_CB_C supply(void* context, void* dest, std::int32_t y,
                                      std::int32_t bytes) {
    std::memcpy(dest, static_cast<Picture*>(context)->row(y), static_cast<std::size_t>(bytes));
    return 0;
  }
  std::int32_t decode(std::uint32_t page) {
    return gif::decode(page == 0 ? 0 : 0x80000000 | page, on_row, this, on_header, 1);
  }
};

}  // namespace

void fuzz(Bytes bytes) {
  Input in(bytes);
  gif::host() = {caller_read, caller_write, caller_seek};
  const std::uint32_t page = in.u8() % 4;
  const bool interlaced = in.u8() % 2 != 0;
  caller_file = {.bytes = {in.rest().begin(), in.rest().end()}};
  Picture picture;
  const std::int32_t decoded = picture.decode(page);
  TQ_CLAIM(one_of(decoded, {IMG_OK, IMG_BAD_IMAGE, IMG_PAGE_PAST_END, IMG_STOP_AFTER_HEADER}));
  if (decoded != IMG_OK) return;
  caller_file = {};
  TQ_CLAIM(gif::encode(1, picture.header, Picture::supply, &picture, interlaced) == 0);
  caller_file.position = 0;
  Picture again;
  TQ_CLAIM(again.decode(0) == 0);
  // An image of 4 or 8 bits keeps its rows, unless its palette makes it black and white.
  if (again.header.bits == picture.header.bits) TQ_CLAIM(again.rows == picture.rows);
}

}  // namespace tq::fuzz
