// What an encoder is given of an image, and what becomes of the file: the crop rectangle to the
// byte or to the pixel, transition lists, refusals before and failures after the file was opened.
#include "dispatch/dispatch.h"

#include <gmock/gmock.h>

#include <cstring>

#include <climits>
#include <filesystem>
#include <map>
#include <set>
#include <tuple>

#include "core/context.h"
#include "dispatch/row_supplier.h"
#include "formats/png/png.h"
#include "tests/support/bmp_file.h"
#include "tests/support/fed_sink.h"
#include "tests/support/guarded_block.h"
#include "tests/support/library_test.h"
#include "tests/support/memory_file.h"
#include "tests/support/pcx_file.h"
#include "tests/support/scratch_folder.h"

namespace tq::test {
namespace {

using dispatch::ImageSupplier;
using dispatch::Supplier;

class Saving : public LibraryTest {};

Rows random_rows(Random& random, std::int32_t width, std::int32_t height, int bits) {
  Rows rows;
  for (std::int32_t y = 0; y < height; ++y) {
    rows.push_back(bits == 1 ? random.bit_row(width, random.pick<int>({2, 50}))
                             : random.bytes(stride(width, bits)));
  }
  return rows;
}

struct Supplied {
  std::int32_t answer;
  Bytes bytes;
};

// Asks for `count` bytes of row y; whoever writes a byte more is caught.
Supplied ask(ImageSupplier& supplier, std::int32_t y, std::size_t count) {
  const GuardedBlock dest(count);
  std::fill_n(dest.data(), count, kStale);
  const std::int32_t answer = supplier.callback().row({dest.data(), count}, y).raw();
  return {answer, {dest.data(), dest.data() + count}};
}

TEST_F(Saving, PlainRowsBeginAtTheNextWholeByteAndEndWithTheStoredRow) {
  Random random(21);
  for (int round = 0; round < 400; ++round) {
    const int bits = random.pick<int>({1, 4, 8, 16, 24, 32});
    const std::int32_t width = random.between(2, 60), height = random.between(2, 9);
    const Rows rows = random_rows(random, width, height, bits);
    const Image image = make_image(width, bits, rows);
    IMG_set_croprect(image, random.between(0, width - 2), random.between(0, height - 2),
                     random.between(1, width), random.between(1, height));
    const Rect crop = image.record().crop;
    ImageSupplier supplier(image.named(), image.record(),
                           random.pick<Supplier>({Supplier::plain, Supplier::transitions}));
    ASSERT_TRUE(supplier.allocate().ok());
    for (std::int32_t y = 0; y < crop.height; ++y) {
      Bytes expected = rows[crop.y + y];
      const int first_bit = crop.x * bits;
      expected.erase(expected.begin(), expected.begin() + (first_bit + 7) / 8);
      const auto count = static_cast<std::size_t>(random.between(0, 300));
      expected.resize(count, bits == 1 ? 0xFF : 0);
      const Supplied got = ask(supplier, y, count);
      ASSERT_EQ(got.answer, 0);
      ASSERT_EQ(got.bytes, expected) << bits << ' ' << width << ' ' << crop.x;
    }
    for (const std::int32_t y : {-1, crop.height, INT_MIN, INT_MAX}) {
      EXPECT_EQ(ask(supplier, y, 4).answer, -9);
    }
  }
}

TEST_F(Saving, RunListsAreCutAtThePixel) {
  Random random(22);
  for (int round = 0; round < 300; ++round) {
    const std::int32_t width = random.between(2, 400), height = random.between(2, 6);
    const Rows rows = random_rows(random, width, height, 1);
    const Image image = make_image(width, 1, rows, true);
    if (random.chance(80)) {
      IMG_set_croprect(image, random.between(0, width - 2), random.between(0, height - 2),
                       random.between(1, width), random.between(1, height));
    }
    const Rect crop = image.record().crop;
    ImageSupplier plain(image.named(), image.record(), Supplier::plain);
    ImageSupplier lists(image.named(), image.record(), Supplier::transitions);
    ASSERT_TRUE(plain.allocate().ok() && lists.allocate().ok());
    for (std::int32_t y = 0; y < crop.height; ++y) {
      Pixels pixels = unpack(rows[crop.y + y], width, 1);
      const bool black_before = crop.x > 0 && pixels[static_cast<std::size_t>(crop.x - 1)] == 0;
      pixels = Pixels(pixels.begin() + crop.x, pixels.begin() + crop.x + crop.width);
      Bytes expected = pack(pixels, 1, 0xFF);
      expected.resize(static_cast<std::size_t>(random.between(0, 90)), 0xFF);
      const Supplied bits = ask(plain, y, expected.size());
      ASSERT_EQ(bits.answer, 0);
      ASSERT_EQ(bits.bytes, expected) << width << ' ' << crop.x << '+' << crop.width;

      // 0, where the colour changes, the width and the width + 2 three times each.
      Pixels words = {0};
      std::uint32_t before = 1;
      // A black run that ends at the rectangle's edge stays, with no pixels.
      if (black_before && pixels[0] != 0) words.insert(words.end(), 2, 0);
      for (std::uint32_t x = 0; x < pixels.size(); ++x) {
        if (pixels[x] != before) words.push_back(x);
        before = pixels[x];
      }
      for (int i = 0; i < 6; ++i)
        words.push_back(static_cast<std::uint32_t>(crop.width + i / 3 * 2));
      Bytes list = pack(words, 32);
      const std::size_t room = list.size() + static_cast<std::size_t>(random.between(0, 9));
      const Supplied got = ask(lists, y, room);
      ASSERT_EQ(got.answer, static_cast<std::int32_t>(list.size()));
      list.resize(room, kStale);
      ASSERT_EQ(got.bytes, list) << width << ' ' << crop.x << '+' << crop.width;
      // No room for the list: the row comes as pixels.
      const Supplied short_of_room = ask(lists, y, words.size() * 4 - 1);
      ASSERT_EQ(short_of_room.answer, 0);
      Bytes as_pixels = pack(pixels, 1, 0xFF);
      as_pixels.resize(words.size() * 4 - 1, 0xFF);
      ASSERT_EQ(short_of_room.bytes, as_pixels);
    }
    EXPECT_EQ(ask(lists, crop.height, 400).answer, -9);
  }
}

// As many transitions as pixels, beside a rectangle's edge that makes two more, fit into a list.
TEST_F(Saving, CroppedRunListsAreWrittenLikeTheirPixels) {
  Random random(24);
  const auto document = [](std::int32_t image) {
    Bytes out(2000);
    out.resize(static_cast<std::size_t>(
        std::max(0, IMG_save_bitmap_block(image, out.data(), out.size(), IMG_TYPE_PDF))));
    return out;
  };
  for (std::int32_t x = 0; x < 40; ++x) {
    const std::int32_t width = random.between(1, 40 - x);
    Rows rows = {Bytes(8, 0x55), Bytes(8, 0xAA)};
    for (int i = 0; i < 6; ++i) rows.push_back(random.bit_row(50, random.pick<int>({5, 50, 90})));
    const Image lists = make_image(50, 1, rows, true);
    IMG_set_croprect(lists, x, 0, width, 8);
    rows.resize(7);  // a rectangle that reaches the edge loses its last row
    for (Bytes& row : rows) {
      const Pixels pixels = unpack(row, 50, 1);
      row = pack(Pixels(pixels.begin() + x, pixels.begin() + x + width), 1, 0xFF);
      row.resize(stride(width, 1), 0xFF);
    }
    const Bytes expected = document(make_image(width, 1, rows));
    ASSERT_FALSE(expected.empty());
    ASSERT_EQ(document(lists), expected) << x << '+' << width;
  }
}

TEST_F(Saving, ProgressCountsRowsAgainstSixteenBitsOfTheHeight) {
  for (const std::int32_t height : {3, 40000, 65536 + 5}) {
    const HeaderBlock header = dib_header(1, height, 1);
    const Image image(IMG_create_handle_shell(&header));
    IMG_set_croprect(image, 0, 0, 1, 2);
    std::vector<std::int32_t> values;
    const OnProgress progress([&](std::int32_t value) {
      values.push_back(value);
      return values.size() == 3 ? -77 : 5;
    });
    ImageSupplier supplier(image.named(), image.record(), Supplier::plain);
    ASSERT_TRUE(supplier.allocate().ok());
    EXPECT_EQ(ask(supplier, 0, 4).answer, 0);
    EXPECT_EQ(ask(supplier, 1, 4).answer, 0);
    EXPECT_EQ(ask(supplier, 0, 4).answer, -77);
    EXPECT_EQ(values, std::vector<std::int32_t>(3, height % 65536));
  }
}

TEST_F(Saving, MemoryGetsTheBytesOfTheFile) {
  Random random(23);
  const ScratchFolder folder;
  for (const int bits : {1, 4, 8, 24, 32}) {
    const Rows rows = random_rows(random, 21, 7, bits);
    const Image image = make_image(21, bits, rows, bits == 1);
    IMG_set_croprect(image, 8, 2, 10, 5);
    const std::string name = folder.file("a.BMP");
    ASSERT_EQ(IMG_save_bitmap(image, name.c_str(), IMG_TYPE_BY_NAME), 0);
    const Bytes file = file_content(name);
    ASSERT_EQ(file.size(), 54 + (bits <= 8 ? std::size_t{4} << bits : 0) + 4 * stride(10, bits));
    EXPECT_EQ(file[18], 10);
    EXPECT_EQ(file[22], 4) << "a rectangle that reaches the edge lost its last row";
    std::uint8_t* block = alloc_block(file.size() - 1);  // knows its own size
    EXPECT_EQ(IMG_save_bitmap_mem(image, block, 1), -9);
    free_block(block);
    const GuardedBlock out(file.size());
    EXPECT_EQ(IMG_save_bitmap_mem(image, out.data(), 1), static_cast<std::int32_t>(file.size()));
    EXPECT_EQ(Bytes(out.data(), out.data() + file.size()), file);
  }
}

TEST_F(Saving, RefusedSaveLeavesAnExistingFileAlone) {
  const ScratchFolder folder;
  const Image image = make_image(3, 8, {{1, 2, 3, 0}, {4, 5, 6, 0}});
  const Image cropped = make_image(3, 8, {{1, 2, 3, 0}, {4, 5, 6, 0}});
  IMG_set_croprect(cropped, 2, 0, 1, 1);
  HeaderBlock bad = dib_header(0, 1, 8);
  EXPECT_EQ(IMG_create_handle_keep(&bad), -3);
  const Image leaked(2);
  using Case = std::tuple<std::int32_t, const char*, std::int32_t, std::int32_t>;
  for (const auto& [handle, name, code, status] : std::vector<Case>{{image, "a.bmp", 17, -7},
                                                                    {image, "a.bmp", 1000, -7},
                                                                    {image, "a.bmp", -2, -7},
                                                                    {image, "a.imt", -1, -7},
                                                                    {image, "mp", -1, -7},
                                                                    {image, "a.bmp", 4, -23},
                                                                    {cropped, "a.bmp", 1, -3},
                                                                    {leaked, "a.bmp", 1, -1},
                                                                    {12345, "a.bmp", 1, -13}}) {
    const std::string path = folder.file(name);
    for (const bool exists : {false, true}) {
      std::filesystem::remove(path);
      if (exists) write_file(path, {1, 2, 3});
      EXPECT_EQ(IMG_save_bitmap(handle, path.c_str(), code), status) << name << code;
      EXPECT_EQ(std::filesystem::exists(path), exists) << name << code;
      EXPECT_EQ(file_content(path), exists ? Bytes({1, 2, 3}) : Bytes()) << name << code;
    }
    Bytes out(2000);
    EXPECT_EQ(IMG_save_bitmap_block(handle, out.data(), out.size(), code), code == -1 ? -7 : status)
        << "memory has no name";
    EXPECT_EQ(out, Bytes(2000));
  }
  for (const std::int32_t code : {IMG_TYPE_DCX, IMG_TYPE_PDF}) {
    write_file(folder.file("foreign"), {1, 2, 3});
    EXPECT_EQ(IMG_save_bitmap(image, folder.file("foreign").c_str(), code), -3) << code;
    EXPECT_EQ(file_content(folder.file("foreign")), (Bytes{1, 2, 3})) << code;
  }
  EXPECT_EQ(IMG_save_bitmap(image, folder.file("none/a.bmp").c_str(), 1), -6);
  EXPECT_EQ(IMG_save_bitmap(image, folder.path().string().c_str(), 1), -6);
}

// What an encoder cannot write is known before the file is opened: a document keeps its pages, any
// other file its bytes, and a stream gets none.
TEST_F(Saving, EncoderRefusesAnImageBeforeTheFileIsOpened) {
  const ScratchFolder folder;
  const std::string name = folder.file("a");
  const auto image_of_bits = [](int bits) {
    return make_image(2, bits, Rows(1, Bytes(stride(2, bits))));
  };
  const Image taken = image_of_bits(8);
  const auto refused = [&](std::int32_t image, std::int32_t code) {
    std::filesystem::remove(name);
    EXPECT_EQ(IMG_save_bitmap(taken, name.c_str(), code), 0);
    const Bytes before = file_content(name);
    const std::int32_t status = IMG_save_bitmap(image, name.c_str(), code);
    if (status != 0) {
      EXPECT_EQ(file_content(name), before) << code;
      MemoryFile stream;
      EXPECT_EQ(IMG_save_bitmap_fd(image, 4711, code), status) << code;
      EXPECT_EQ(stream.bytes, Bytes()) << code;
    }
    Bytes out(100000);  // memory is told the same
    const std::int32_t in_memory = IMG_save_bitmap_block(image, out.data(), out.size(), code);
    EXPECT_EQ(std::min(in_memory, 0), status) << code;
    return status;
  };
  const std::map<std::int32_t, std::set<int>> wrong_depths = {
      {1, {}},          {2, {16, 32}}, {11, {16, 32}}, {12, {1, 24}},
      {13, {1, 4, 16}}, {43, {32}},    {48, {}},       {59, {4, 16}}};  // 32: ink
  HeaderBlock colours = dib_header(2, 1, 32);
  colours.header.biCompression = 200;
  const Image colour_image(IMG_create_handle_shell(&colours));
  EXPECT_EQ(refused(colour_image, 43), png::png_available().raw());
  for (const int bits : {1, 4, 8, 16, 24, 32}) {
    const Image image = image_of_bits(bits);
    for (const auto& [code, wrong] : wrong_depths) {
      const formats::FileType& type = *dispatch::find_code(code);
      if (type.available != nullptr && type.available().failed()) continue;  // without libpng
      EXPECT_EQ(refused(image, code), wrong.contains(bits) ? -21 : 0) << code << ' ' << bits;
    }
  }
  for (const std::int32_t code : {2, 11, 13, 59}) {
    EXPECT_EQ(refused(make_image(65536, 8, {Bytes(65536)}), code), -7);
    EXPECT_EQ(refused(make_image(1, 24, Rows(65536, Bytes(4))), code), -7);
  }
}

// Tables of other writers have no entry to spare. A page keeps its bytes, one that was being added when
// the program ended is left out.
TEST_F(Saving, ContainerWithAFullTableGetsAnotherOneIfNothingCanBeLost) {
  const ScratchFolder folder;
  const std::string name = folder.file("a.dcx");
  const auto page = [](std::uint8_t pixel) {
    return pcx_file({.size = {1, 1, 8, 1, 1}, .data = {pixel}, .tail = pcx_palette(pixel)});
  };
  const Image added = make_image(1, 8, {{9, 0, 0, 0}});
  const auto save = [&](std::int32_t safe) {
    IMG_set_option(IMG_OPTION_SAFE_SAVING, safe);
    return IMG_save_bitmap(added, name.c_str(), IMG_TYPE_DCX);
  };
  const std::vector<Bytes> pages = {page(3), page(4)};
  std::vector<Bytes> with_debris = pages;
  with_debris.emplace_back(1000);
  Bytes outside = dcx_file(pages, 2);
  store_le32(&outside[8], 0x7FFFFFFF);
  Bytes inside = dcx_file(pages, 2);
  store_le32(&inside[8], 6);
  struct Case {
    Bytes content;
    std::int32_t contract, safe;
  };
  for (const Case& c : {Case{dcx_file(pages, 2), -7, 0},
                        {dcx_file(pages, 3), -7, 0},
                        {dcx_file(with_debris, 3), -7, 0},
                        {dcx_file(std::vector<Bytes>(100, page(3))), -7, -7},
                        {dcx_file({}, 1), -7, -7},
                        {outside, -3, -3},
                        {inside, -7, -3}}) {
    write_file(name, c.content);
    EXPECT_EQ(save(0), c.contract);
    EXPECT_EQ(file_content(name), c.content);
    EXPECT_EQ(save(1), c.safe);
    if (c.safe == 0) {
      const Bytes file = file_content(name), old = dcx_file(pages);
      ASSERT_GT(file.size(), old.size());
      EXPECT_TRUE(std::equal(file.begin() + 404, file.begin() + old.size(), old.begin() + 404));
      EXPECT_EQ(IMGLOW_get_pages(name.c_str()), 3);
      EXPECT_EQ(load_le32(&file[12]), old.size());
      EXPECT_EQ(save(0), 0);
    } else {
      EXPECT_EQ(file_content(name), c.content);
    }
  }
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path()), {}), 1);
}

struct CallersRows {
  std::vector<std::int32_t> asked{};
  std::int32_t failing_row = -1, answer = 0;
};

std::int32_t IMG_CB_C supply(void* context, void* dest, std::int32_t y, std::int32_t bytes) {
  auto& rows = *static_cast<CallersRows*>(context);
  rows.asked.push_back(y);
  std::memset(dest, y + 1, static_cast<std::size_t>(bytes));
  return y == rows.failing_row ? rows.answer : 0;
}

TEST_F(Saving, CallersHeaderAndRowsAreCheckedAndTakenAsTheyAre) {
  Bytes memory(1 + 1064), out(5000);
  const auto save = [&](std::int32_t width, std::int32_t height, int bits, std::int32_t code,
                        CallersRows& rows) {
    const HeaderBlock header = dib_header(width, height, bits);
    std::memcpy(memory.data() + 1, &header, sizeof header);  // at an odd address
    return IMGLOW_save_bitmap_mem(out.data(), memory.data() + 1, code, supply, &rows);
  };
  CallersRows rows;
  EXPECT_EQ(save(3, 3, 8, 1, rows), 54 + 1024 + 12);
  EXPECT_THAT(rows.asked, testing::UnorderedElementsAre(0, 1, 2));
  EXPECT_EQ(Bytes(out.begin() + 1078, out.begin() + 1082), Bytes(4, 3)) << "the bottom row first";
  rows.failing_row = 1;
  rows.answer = -9999;
  EXPECT_EQ(save(3, 3, 8, 1, rows), -9999);
  rows = {};
  for (const auto& [width, height, bits, code, status] :
       std::vector<std::array<int, 5>>{{0, 3, 8, 1, -3},
                                       {3, -3, 8, 1, -3},
                                       {3, 3, 0, 1, -3},
                                       {3, 3, 33, 1, -3},
                                       {INT_MAX, INT_MAX, 32, 1, -1},
                                       {3, 3, 8, 38, -7},
                                       {3, 3, 8, -1, -7},
                                       {3, 3, 8, 4, -23}}) {
    EXPECT_EQ(save(width, height, bits, code, rows), status);
  }
  EXPECT_TRUE(rows.asked.empty());
  HeaderBlock header = dib_header(3, 3, 8);
  EXPECT_EQ(IMGLOW_save_bitmap_mem(out.data(), &header, 1, nullptr, nullptr), -7);
}

}  // namespace
}  // namespace tq::test
