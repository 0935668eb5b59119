// The library's own reader, for when the PDF module is missing. It knows one layout, and takes the
// steps below just so because callers rely on which documents it refuses.
#include "core/memory.h"
#include "formats/fax.h"
#include "formats/jpeg/jpeg.h"
#include "formats/pdf/document.h"
#include "formats/pdf/pdf.h"
#include "formats/plugin/plugin.h"

namespace tq::pdf {
namespace {

constexpr std::size_t kWindowBytes = 65536;
constexpr std::size_t kObjectBytes = 3000;
constexpr std::size_t kImageBytes = 10000;
constexpr int kShortestEntry = 18;  // of the cross-reference table, bytes
constexpr std::int32_t kWidestImage = 65533;

struct Entry {
  std::int32_t offset;  // bytes
  std::int32_t in_use;
};

enum class PixelKind : std::uint8_t { none, jpeg, ccitt };

struct Image {
  std::int32_t width = 0, height = 0;
  PixelKind kind = PixelKind::none;
  std::int64_t data = 0;  // position in the stream
};

class Reader {
 public:
  explicit Reader(StreamHandle stream) : stream_(stream) {}

  Status find_image(Image& image);

 private:
  Text window(std::int64_t at, std::size_t bytes);
  Status find_table(std::int32_t& table);
  Status read_table(std::int32_t table, Text& behind);
  Status look_up(Text text, std::string_view key, std::int32_t& object) const;
  Status read_image(std::int32_t offset, Image& image);

  bool in_use(std::int32_t object) const { return object < count_ && entries_[object].in_use != 0; }

  StreamHandle stream_;
  GlobalBlock work_;
  RowBuffer<Entry> entries_;
  std::int32_t count_ = 0;
};

// Up to `bytes` bytes from this place; nothing when there are none.
Text Reader::window(std::int64_t at, std::size_t bytes) {
  return go_to(stream_, at) < 0 ? Text() : read_text(stream_, work_.bytes().first(bytes));
}

// The number in the line above the last '%'.
Status Reader::find_table(std::int32_t& table) {
  if (!end_is_known(stream_)) return StatusCode::bad_image;
  if (seek(stream_, -kTailBytes, Origin::end) < 0) return StatusCode::bad_image;
  Text tail = read_text(stream_, work_.bytes().first(kTailBytes));
  const std::size_t percent = tail.text().rfind('%');
  if (percent == std::string_view::npos) return StatusCode::bad_image;
  // One letter in its place is enough: callers rely on this.
  if (tail[percent + 1] != 'E' && tail[percent + 2] != 'O' && tail[percent + 3] != 'F') {
    return StatusCode::bad_image;
  }
  if (percent < 4) return StatusCode::bad_image;
  const std::size_t line_end = tail.text().find_last_of("\r\n", percent - 4);
  if (line_end == std::string_view::npos) return StatusCode::bad_image;
  tail.move_to(line_end + 1);
  table = tail.number();
  return kOk;
}

// `behind` is what follows the entries.
Status Reader::read_table(std::int32_t table, Text& behind) {
  Text text = window(table, kObjectBytes);
  if (!text.find("x")) return StatusCode::bad_image;
  text.skip(4);
  text.skip_line_ends();
  if (!text.find(" ")) return StatusCode::bad_image;
  const std::int32_t count = text.number();
  text.skip_line();
  text = window(std::int64_t{table} + text.position(), kWindowBytes);
  if (text.at_end()) return StatusCode::read_failed;
  if (count > std::ssize(text.text()) / kShortestEntry) return StatusCode::bad_image;
  TQ_TRY(entries_.allocate(count));
  for (count_ = 0; count_ < count; ++count_) {
    const std::size_t start = text.position();
    const char type = text[start + 17];
    if (type != 'n' && type != 'f') return StatusCode::bad_image;
    entries_[count_] = {text.number(), type == 'n' ? 1 : 0};
    text.move_to(start + kShortestEntry);
    text.skip_line_ends();
  }
  behind = text;
  return kOk;
}

// The first number behind a key, which has to be an object in use.
Status Reader::look_up(Text text, std::string_view key, std::int32_t& object) const {
  if (!text.find_key(key) || !text.to_digit()) return StatusCode::bad_image;
  object = text.number();
  return in_use(object) ? kOk : StatusCode::bad_image;
}

Status Reader::read_image(std::int32_t offset, Image& image) {
  Text text = window(offset, kImageBytes);
  while (!text.at_end() && !text.rest().starts_with(">>")) {
    if (text.current() != '/') {
      text.skip(1);
      continue;
    }
    const std::size_t start = text.position() + 1;
    const std::size_t end = std::min(text.text().find_first_of(" \r\n", start), text.text().size());
    const std::string_view name = text.part(start, end);
    text.move_to(end);
    if (name == "Width") image.width = text.number();
    if (name == "Height") image.height = text.number();
    if (name == "DCTDecode") image.kind = PixelKind::jpeg;
    if (name == "CCITTFaxDecode") image.kind = PixelKind::ccitt;
  }
  if (!text.find("st")) return StatusCode::bad_image;
  text.skip_line();
  image.data = std::int64_t{offset} + text.position();
  return kOk;
}

Status Reader::find_image(Image& image) {
  TQ_TRY(work_.allocate(kWindowBytes));
  std::int32_t table = 0;
  TQ_TRY(find_table(table));
  Text text;
  TQ_TRY(read_table(table, text));
  if (!text.find("tr")) return StatusCode::bad_image;
  text.skip_line();
  std::int32_t root = 0, tree = 0, page = 0, picture = 0;
  TQ_TRY(look_up(text, "Root", root));
  TQ_TRY(look_up(window(entries_[root].offset, kObjectBytes), "Pages", tree));
  TQ_TRY(look_up(window(entries_[tree].offset, kObjectBytes), "Kids", page));
  // The number of the page is taken for a place in the file, and the number in the picture's name
  // for an object: callers rely on documents being refused for it.
  TQ_TRY(look_up(window(page, kObjectBytes), "Tarnquill", picture));
  return read_image(entries_[picture].offset, image);
}

Status decode_ccitt(const formats::DecodeRequest& request, const Image& image) {
  if (image.width < 1 || image.width > kWidestImage || image.height < 1 ||
      image.height > kWidestImage) {
    return StatusCode::bad_image;
  }
  HeaderBlock block = dib_header(image.width, image.height, 1);
  block.palette[1] = {255, 255, 255, 0};
  TQ_TRY(request.sink.header(block));
  ChunkReader input;
  TQ_TRY(input.open(request.stream, formats::kFaxChunk));
  const formats::FaxStrip strip{.width = image.width, .rows = image.height};
  TQ_TRY(decode_fax_strip(input, INT32_MAX, strip, formats::FaxRows::bits, request.sink));
  return kOk;
}

Status decode_by_own_reader(const formats::DecodeRequest& request) {
  Image image;
  TQ_TRY(Reader(request.stream).find_image(image));
  if (image.data > INT32_MAX) return StatusCode::bad_image;
  const auto data = static_cast<std::int32_t>(image.data);
  seek(request.stream, data, Origin::start);
  switch (image.kind) {
    case PixelKind::jpeg:
      return jpeg::decode_jpeg({.stream = request.stream, .offset = data, .sink = request.sink});
    case PixelKind::ccitt:
      return decode_ccitt(request, image);
    case PixelKind::none:
      break;
  }
  // The status of a bitmap of the system's, by its number: callers rely on it.
  return StatusCode::no_device_bitmap;
}

}  // namespace

Status decode(const formats::DecodeRequest& request) {
  // A module that answers no_pdf_module itself has the last word.
  bool available = false;
  const Status decoded = plugin::decode_pdf_by_module(request, available);
  return available ? decoded : decode_by_own_reader(request);
}

}  // namespace tq::pdf
