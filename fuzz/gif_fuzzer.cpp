// The GIF codec alone: a file is decoded, and what came out of it is encoded and
// decoded again.
#include "formats/gif/gif.h"
#include "fuzz/fuzz_support.h"

namespace tq::fuzz {
namespace {

constexpr std::int64_t kMostPixels = 1 << 13;
constexpr StreamHandle kStream{1};

struct Picture {
  HeaderBlock block{};
  Memory rows{}, delivered{};  // delivered: a byte to a row
  bool has_header = false;

  std::int32_t bits() const { return block.header.biBitCount; }
  std::int64_t stride() const { return row_bytes(block.header.biWidth, bits()); }
  std::uint8_t* row(std::int32_t y) { return rows.data() + y * stride(); }

  static std::int32_t IMG_CB_C on_header(void* header, void* context) {
    auto& picture = *static_cast<Picture*>(context);
    TQ_CLAIM(!picture.has_header);
    picture.has_header = true;
    std::memcpy(&picture.block, header, sizeof picture.block);
    const std::int32_t width = picture.block.header.biWidth;
    const std::int32_t height = picture.block.header.biHeight;
    TQ_CLAIM(width > 0 && height > 0);
    if (std::int64_t{width} * height > kMostPixels) return IMG_STOP_AFTER_HEADER;
    picture.rows.resize(static_cast<std::size_t>(height * picture.stride()));
    picture.delivered.resize(static_cast<std::size_t>(height));
    return 1;
  }
  static std::int32_t IMG_CB_C on_row(void* row, void* context, std::int32_t y,
                                      std::int32_t bytes) {
    auto& picture = *static_cast<Picture*>(context);
    TQ_CLAIM(y >= 0 && y < picture.block.header.biHeight && bytes == picture.stride());
    TQ_CLAIM(picture.delivered[y]++ == 0);
    std::memcpy(picture.row(y), row, static_cast<std::size_t>(bytes));
    return 0;
  }
  static std::int32_t IMG_CB_C supply(void* context, void* dest, std::int32_t y,
                                      std::int32_t bytes) {
    std::memcpy(dest, static_cast<Picture*>(context)->row(y), static_cast<std::size_t>(bytes));
    return 0;
  }
  std::int32_t decode(std::int32_t page) {
    return gif::decode({kStream, 0, {on_header, on_row, this}, page == 0 ? -1 : page}).raw();
  }
};

}  // namespace

void fuzz(Bytes bytes) {
  Input in(bytes);
  set_caller_io(caller_read, caller_write, caller_seek);
  const std::int32_t page = in.below(4);
  const bool interlaced = in.u8() % 2 != 0;
  caller_file = {.bytes = {in.rest().begin(), in.rest().end()}};
  Picture picture;
  const std::int32_t decoded = picture.decode(page);
  TQ_CLAIM(one_of(decoded, {IMG_OK, IMG_BAD_IMAGE, IMG_PAGE_PAST_END, IMG_STOP_AFTER_HEADER}));
  if (decoded != IMG_OK) return;
  caller_file = {};
  const auto encode = interlaced ? gif::encode_interlaced : gif::encode;
  TQ_CLAIM(encode({kStream, &picture.block, {Picture::supply, &picture}}) == kOk);
  caller_file.position = 0;
  Picture again;
  TQ_CLAIM(again.decode(0) == 0);
  // An image of 4 or 8 bits keeps its rows, unless its palette makes it black and white.
  if (again.bits() == picture.bits()) TQ_CLAIM(again.rows == picture.rows);
}

}  // namespace tq::fuzz
