// Windows clipboard files: the same contents in several formats, of which one that is a picture is shown.
#include <array>

#include "formats/bmp/bmp.h"
#include "formats/rows.h"
#include "formats/simple/simple.h"
#include "formats/wmf/wmf.h"
#include "io/endian.h"
#include "io/stream_window.h"
#include "pixels/colours.h"

namespace tq::simple {
namespace {

using namespace pixels;

enum Kind : int { kBitmap = 2, kMetafile = 3, kDib = 8, kPalette = 9, kDibV5 = 17 };

constexpr int kMagic = 0xC350;
constexpr int kHeaderBytes = 4, kItemBytes = 89, kNameBytes = 79;
constexpr int kMostItems = 1024;

struct Item {
  int kind = 0;
  std::int64_t at = 0, end = 0;  // in the stream

  std::int64_t bytes() const { return end - at; }
};

class Items {
 public:
  Status open(const formats::DecodeRequest& request) {
    start_ = request.start();
    end_ = find_end(request.stream);
    TQ_TRY(window_.open(request.stream, 2048));
    const Bytes header = window_.at(start_, kHeaderBytes);
    if (std::ssize(header) < kHeaderBytes) return StatusCode::read_failed;
    if (load_le16(&header[0]) != kMagic) return StatusCode::bad_image;
    count_ = load_le16(&header[2]);
    const std::int64_t directory = std::int64_t{count_} * kItemBytes;
    return start_ + kHeaderBytes + directory <= end_ ? StatusCode::ok : StatusCode::read_failed;
  }

  // The first of a kind, if there is one.
  bool find(int kind, Item& item) {
    for (int i = 0; i < std::min(count_, kMostItems); ++i) {
      const Bytes entry = window_.at(start_ + kHeaderBytes + i * kItemBytes, kItemBytes);
      if (std::ssize(entry) < kItemBytes) return false;
      if (load_le16(&entry[0]) != kind) continue;
      item = {.kind = kind, .at = start_ + load_le32(&entry[6])};
      item.end = std::min(item.at + load_le32(&entry[2]), end_);
      return true;
    }
    return false;
  }

  // bad_image for one that lies in the directory, or nowhere.
  Status check(const Item& item) const {
    const bool there = item.at >= start_ + kHeaderBytes + count_ * kItemBytes && item.at < end_;
    return there ? StatusCode::ok : StatusCode::bad_image;
  }

  Bytes at(std::int64_t position, std::int64_t bytes) { return window_.at(position, bytes); }

 private:
  StreamWindow window_;
  std::int64_t start_ = 0, end_ = 0;
  int count_ = 0;
};

// False when there is none.
bool read_palette(Items& items, std::array<Rgb, 256>& colours) {
  constexpr int kHead = 4;
  Item item;
  if (!items.find(kPalette, item) || items.check(item).failed()) return false;
  const Bytes head = items.at(item.at, kHead);
  if (std::ssize(head) < kHead) return false;
  const int count = std::min<int>(load_le16(&head[2]), 256);
  const Bytes entries =
      items.at(item.at + kHead, std::min(4 * std::int64_t{count}, item.bytes() - kHead));
  for (int i = 0; 4 * i + 3 < std::ssize(entries); ++i) {
    colours[i] = {entries[4 * i + 2], entries[4 * i + 1], entries[4 * i], 0};
  }
  return true;
}

// A bitmap of a device: rows from the top.
Status decode_bitmap(const formats::DecodeRequest& request, Items& items, const Item& item) {
  constexpr int kHead = 14;
  const Bytes head = items.at(item.at, std::min<std::int64_t>(kHead, item.bytes()));
  if (std::ssize(head) < kHead) return StatusCode::read_failed;
  const int width = load_le16(&head[2]), height = load_le16(&head[4]),
            line_bytes = load_le16(&head[6]);
  const int planes = head[8], bits = head[9];
  HeaderBlock image = dib_header(width, height, bits);
  if (bits == 1) image.palette = grey_levels(1);
  const bool has_colours = bits != 4 && bits != 8 ? true : read_palette(items, image.palette);
  const RowLayout* const layout = bits == 1    ? find_layout(Layout::bits_1, 1)
                                  : bits == 4  ? find_layout(Layout::bits_4, 4)
                                  : bits == 8  ? find_layout(Layout::bytes, 8)
                                  : bits == 24 ? find_layout(Layout::bgr, 24)
                                               : nullptr;
  if (layout == nullptr || planes != 1 || !has_colours) return StatusCode::unsupported;
  if (line_bytes < stored_bytes(*layout, width)) return StatusCode::bad_image;
  TQ_TRY(request.sink.header(image));
  StreamWindow window;
  TQ_TRY(window.open(request.stream, line_bytes));
  std::int64_t at = item.at + kHead;
  const formats::StoredRows rows{layout, line_bytes};
  return formats::deliver_rows(rows, image.header, request.sink, [&](Row line) -> std::ptrdiff_t {
    const Bytes there = window.at(at, std::min(std::ssize(line) + std::int64_t{0}, item.end - at));
    at += std::ssize(there);
    std::ranges::copy(there, line.begin());
    return std::ssize(there);
  });
}

Status decode_metafile(const formats::DecodeRequest& request, Items& items, const Item& item) {
  constexpr int kHead = 8;
  const Bytes head = items.at(item.at, std::min<std::int64_t>(kHead, item.bytes()));
  if (std::ssize(head) < kHead) return StatusCode::read_failed;
  const auto side = [&](int i) { return static_cast<std::int16_t>(load_le16(&head[i])); };
  return wmf::decode_part(
      request, {.at = item.at + kHead, .end = item.end, .width = side(2), .height = side(4)});
}

Status decode_dib(const formats::DecodeRequest& request, const Item& item) {
  formats::DecodeRequest dib = request;
  dib.offset = static_cast<std::int32_t>(item.at);
  dib.page = -1;
  return bmp::decode_part(dib, item.end);
}

}  // namespace

Status decode_clipboard(const formats::DecodeRequest& request) {
  Items items;
  TQ_TRY(items.open(request));
  Item item;
  const bool found = items.find(kDib, item) || items.find(kDibV5, item) ||
                     items.find(kBitmap, item) || items.find(kMetafile, item);
  if (!found) return StatusCode::unsupported;
  TQ_TRY(items.check(item));
  switch (item.kind) {
    case kBitmap:
      return decode_bitmap(request, items, item);
    case kMetafile:
      return decode_metafile(request, items, item);
    default:
      return decode_dib(request, item);
  }
}

Status can_encode_clipboard(const formats::EncodeRequest& request) {
  return formats::check_plain(request, INT32_MAX);
}

Status encode_clipboard(const formats::EncodeRequest& request) {
  constexpr std::string_view kName = "DIB Bitmap";
  TQ_TRY(can_encode_clipboard(request));
  StreamWriter out;
  TQ_TRY(out.open(request.stream));
  out.put_le16(kMagic);
  out.put_le16(1);
  out.put_le16(kDib);
  out.put_le32(static_cast<std::uint32_t>(bmp::part_bytes(request.image->header)));
  out.put_le32(kHeaderBytes + kItemBytes);
  out.put(kName);
  out.fill(kNameBytes - std::ssize(kName), 0);
  TQ_TRY(out.flush());
  return bmp::encode_part(request);
}

}  // namespace tq::simple
