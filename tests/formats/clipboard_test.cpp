// Clipboard files with several formats in several orders: which of them is shown, and how.
#include "core/numbers.h"
#include "formats/simple/simple.h"
#include "tests/support/codec_runs.h"
#include "tests/support/image_builder.h"

namespace tq::test {
namespace {

using simple::decode_clipboard;
using simple::encode_clipboard;

void put(Bytes& file, std::int64_t value, int bytes) {
  for (int i = 0; i < bytes; ++i) file.push_back(byte(value >> 8 * i));
}

struct Item {
  int kind = 0;
  Bytes content{};
  int offset = -1;  // below 0: where it is
};

Bytes clipboard(const std::vector<Item>& items, int magic = 0xC350) {
  Bytes file, contents;
  put(file, magic, 2);
  put(file, static_cast<std::int64_t>(items.size()), 2);
  for (const Item& item : items) {
    const auto at = static_cast<std::int64_t>(4 + 89 * items.size() + contents.size());
    put(file, item.kind, 2);
    put(file, static_cast<std::int64_t>(item.content.size()), 4);
    put(file, item.offset < 0 ? at : item.offset, 4);
    file.resize(file.size() + 79);
    contents.insert(contents.end(), item.content.begin(), item.content.end());
  }
  file.insert(file.end(), contents.begin(), contents.end());
  return file;
}

// Two rows of three pixels.
Bytes bitmap(int row_bytes, int bits, const Bytes& rows, int planes = 1) {
  Bytes out;
  for (const int field : {0, 3, 2, row_bytes, planes | bits << 8, 0, 0}) put(out, field, 2);
  out.insert(out.end(), rows.begin(), rows.end());
  return out;
}

const Bytes kDib = {40, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 1, 0, 24, 0, 0, 0, 0, 0, 0, 0,
                    0,  0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,  0, 0, 0, 9, 8, 7, 0};
const Bytes kText = {'t', 'e', 'x', 't', 0};
const Bytes kPalette = {0, 3, 3, 0, 1, 2, 3, 0, 4, 5, 6, 0, 7, 8, 9, 0};

TEST(Clipboard, TheBestPictureIsShown) {
  const Bytes mono = bitmap(2, 1, {0xA0, 0, 0x40, 0});
  const Item text{1, kText}, dib{8, kDib}, late{17, kDib}, palette{9, kPalette};
  const struct {
    std::vector<Item> items;
    int bits;
    Bytes row;
  } cases[] = {
      {{text, {2, mono}, dib}, 24, {9, 8, 7, 0}},
      {{{2, mono}, late, text}, 24, {9, 8, 7, 0}},
      {{text, {2, mono}}, 1, {0xA0, 0, 0, 0}},
      {{{2, bitmap(4, 8, {1, 2, 0, 0, 0, 0, 0, 0})}, palette}, 8, {1, 2, 0, 0}},
      {{palette, {2, bitmap(2, 4, {0x12, 0x0F, 0, 0})}}, 4, {0x12, 0, 0, 0}},
      {{{2, bitmap(10, 24, Bytes(20, 3))}}, 24, {3, 3, 3, 3, 3, 3, 3, 3, 3, 0, 0, 0}},
  };
  for (const auto& [items, bits, row] : cases) {
    const CollectingSink sink = decoded(decode_clipboard, clipboard(items));
    EXPECT_EQ(sink.header.header.biBitCount, bits);
    EXPECT_EQ(sink.image().at(0), row);
    if (bits == 4 || bits == 8) {
      EXPECT_EQ(sink.header.palette[2], (Rgb{9, 8, 7, 0}));
    }
  }
  // A metafile without a header of its own, ten by five millimetres.
  Bytes metafile;
  for (const int field :
       {8, 1000, 500, 0, 1, 9, 0x300, 0, 0, 0, 0, 0, 0, 5, 0, 0x20C, 100, 200, 3, 0, 0}) {
    put(metafile, field, 2);
  }
  const CollectingSink sink = decoded(decode_clipboard, clipboard({{3, metafile}}));
  EXPECT_EQ(sink.header.header.biWidth, 38);
  EXPECT_EQ(sink.header.header.biHeight, 19);
}

TEST(Clipboard, RefusesWhatCannotBe) {
  const Bytes rows(4);
  const struct {
    Bytes file;
    int status;
  } cases[] = {
      {clipboard({}), -7},
      {clipboard({{1, kText}}), -7},
      {clipboard({{8, kDib}}, 0xC351), -3},
      {clipboard({{8, kDib, 92}}), -3},
      {clipboard({{8, kDib, 5000}}), -3},
      {clipboard({{2, bitmap(2, 8, rows)}, {9, kPalette}}), -3},
      {clipboard({{2, bitmap(4, 8, rows)}}), -7},
      {clipboard({{2, bitmap(2, 1, rows, 3)}}), -7},
      {clipboard({{2, bitmap(8, 16, rows)}}), -7},
      {clipboard({{2, {0, 0, 3, 0}}}), -12},
      {clipboard({{3, {8, 0, 3, 0}}}), -12},
      {{0x50, 0xC3, 1, 0, 8}, -12},
      {{0x50, 0xC3, 1}, -12},
  };
  for (const auto& [file, status] : cases) decoded(decode_clipboard, file, status);
  // Behind the end of an item there are no rows.
  Bytes cut = bitmap(2, 1, {0x40, 0});
  EXPECT_EQ(decoded(decode_clipboard, clipboard({{2, cut}, {1, kText}})).rows.size(), 1u);
}

TEST(Clipboard, SavesWhatItReads) {
  for (const int bits : {1, 4, 8, 24, 32}) {
    const HeaderBlock image = grey_image(5, 2, bits);
    const std::vector<Bytes> rows = {pack({1, 1, 0, 0, 1}, bits), pack({1, 0, 1, 1, 0}, bits)};
    const CollectingSink back = decoded(decode_clipboard, encoded(encode_clipboard, image, rows));
    const int depth = back.header.header.biBitCount;
    EXPECT_EQ(depth, bits == 32 ? 24 : bits);
    EXPECT_EQ(unpack(back.image().at(0), 5, depth), (Pixels{1, 1, 0, 0, 1}));
    EXPECT_EQ(unpack(back.image().at(1), 5, depth), (Pixels{1, 0, 1, 1, 0}));
  }
}

}  // namespace
}  // namespace tq::test
