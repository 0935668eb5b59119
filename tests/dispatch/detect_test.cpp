// What a file is: a sample of every format beside one that misses by a byte, the order in which
// they are tried, the variants of TIFF, BMP and GIF, and where the stream stands afterwards.
#include "dispatch/dispatch.h"

#include <gmock/gmock.h>

#include <climits>
#include <string>

#include "core/licence.h"
#include "tests/support/bmp_file.h"
#include "tests/support/guarded_block.h"
#include "tests/support/library_test.h"
#include "tests/support/memory_file.h"
#include "tests/support/scratch_folder.h"

namespace tq::test {
namespace {

using namespace std::string_literals;

class Detection : public LibraryTest {};

// `text` at `offset` of a file of `size` bytes that no test likes.
Bytes file_with(const std::string& text, std::size_t offset = 0, std::size_t size = 0) {
  Bytes file(std::max({size, offset + text.size(), std::size_t{12}}), 0xEE);
  std::copy(text.begin(), text.end(), file.begin() + static_cast<std::ptrdiff_t>(offset));
  return file;
}

std::string type_of(const Bytes& file) {
  open_memory_stream(const_cast<std::uint8_t*>(file.data()), file.size());
  const dispatch::FileType* found = nullptr;
  EXPECT_EQ(dispatch::detect(kMemoryStream, found), kOk);
  return std::string(found == nullptr ? "" : found->ending);
}

std::int32_t code_of(const Bytes& file) {
  return IMGLOW_get_filetype_block(file.data(), file.size());
}

struct Sample {
  std::string type;
  std::int32_t detect_switch;
  Bytes file, near_miss;
  std::int32_t code;  // -7: the type has none; refined ones have cases of their own
};

const std::vector<Sample>& samples() {
  static const std::vector<Sample> samples = {
      {"tif", 0, file_with("MM"), file_with("MI"), -7},
      {"tif", 0, file_with("II"), file_with("iI"), -7},
      {"gif", 4, file_with("GIF"), file_with("GiF"), -3},
      {"bmp", 1, file_with("BM"), file_with("Bm"), 1},
      {"bmp", 1, file_with("\x28\0\0\0"s), file_with("\x28\0\0\1"s), 1},
      {"eps", 14, file_with("\xC5\xD0\xD3\xC6"), file_with("\xC5\xD0\xD3\xC7"), 14},
      {"pdf", 59, file_with("%PDF"), file_with("%PdF"), 59},
      {"dcx", 11, file_with("\xB1\x68\xDE\x3A"), file_with("\xB1\x68\xDE\x3B"), 11},
      {"jpg", 13, file_with("\xFF\xD8"), file_with("\xFF\xD9"), 13},
      {"wpg", 5, file_with("?WPC"), file_with("WPCC"), 5},
      {"cal", 18, file_with("src"), file_with("srd"), 18},
      {"png", 43, file_with("?PNG"), file_with("?PNg"), 43},
      {"ncr", 65, file_with("NN"), file_with("Nn"), -7},
      {"ncr", 65, file_with("nn"), file_with("nN"), -7},
      {"kfx", 23, file_with(".KF"), file_with(".Kf"), 23},
      {"iff", 26, file_with("FORM"), file_with("FORm"), 26},
      {"fpx", 54, file_with("\xD0\xCF\x11\xE0\xA1\xB1"), file_with("\xD0\xCF\x11\xE0\xA1\xB2"), 54},
      {"gx2", 22, file_with("GX2"), file_with("GX1"), 22},
      {"lsd", 19, file_with("\xDC\xDC"), file_with("\xDC\xDD"), 19},
      {"pcx", 2, file_with("\x0A?\x01"), file_with("\x0A?\x02"), 2},
      {"ico", 25, file_with("\0\0\1\0??\x10"s), file_with("\0\0\1\0??\x11"s), 25},
      {"ico", 25, file_with("\0\0\1\0??\x40"s), file_with("\0\0\1\0??\x41"s), 25},
      {"tga", 3, file_with("?\1\1"), file_with("?\0\1"s), 3},
      {"tga", 3, file_with("?\1\x09"), file_with("?\0\x09"s), 3},
      {"tga", 3, file_with("?\0\2"s), file_with("?\1\2"), 3},
      {"tga", 3, file_with("?\0\3"s), file_with("?\1\3"), 3},
      {"tga", 3, file_with("?\0\x0A"s), file_with("?\0\x10"s), 3},
      {"tga", 3, file_with("?\0\x0B"s), file_with("?\0\x11"s), 3},
      {"tga", 3, file_with("\x24?\x9C"), file_with("\x23?\x9C"), 3},
      {"tga", 3, file_with("\x69?\x9C"), file_with("\x6A?\x9C"), 3},
      {"wmf", 6, file_with("\xD7\xCD\xC6\x9A"), file_with("\xD7\xCD\xC6\x9B"), 6},
      {"ica", 24, file_with("0000"), file_with("0001"), 24},
      {"ica", 24, file_with("p"), file_with("q"), 24},
      {"mca", 24, file_with("??\xD3\xA6\xFB"), file_with("??\xD3\xA6\xA8"), -7},
      {"mca", 24, file_with("??\xD3\xA8\xA8"), file_with("??\xD4\xA8\xA8"), -7},
      {"mca", 24, file_with("??\xD3\xA8\xFB"), file_with("??\xD3\xFB\xA8"), -7},
      {"mca", 24, file_with("??\xD3\xA8\xDF"), file_with("??\xD3\xA6\xDF"), -7},
      {"pcd", 39, file_with("\xFF\xFF\xFF\xFF"), file_with("\xFF\xFF\xFF\xFE"), 39},
      {"clp", 27, file_with("P\xC3"), file_with("P\xC4"), 27},
      {"img", 28, file_with("\0\1\0\x08"s), file_with("\0\1\0\x0A"s), 28},
      {"img", 28, file_with("\0\1\0\x09"s), file_with("\0\1\0\x07"s), 28},
      {"btr", 29, file_with("\xBB??\1"), file_with("\xBB??\2"), 29},
      {"msp", 30, file_with("Lin"), file_with("Lim"), 30},
      {"msp", 30, file_with("DanM"), file_with("Danm"), 30},
      {"xbm", 20, file_with("#define w 5\n"), file_with("#defin_ w 5\n"), 20},
      {"xpm", 35, file_with("/* XPM */"), file_with("/* XPM *\\"), 35},
      {"xwd", 36, file_with("\0\0\0\7"s, 4), file_with("\0\0\0\6"s, 4), 36},
      {"ras", 37, file_with("\x59\xA6\x6A\x95"), file_with("\x59\xA6\x6A\x96"), 37},
      {"jed", 56, file_with("\x80\0\0"s), file_with("\x80\0\1"s), 56},
      {"fxs", 58, file_with("\x0B#?\xC0\x06"), file_with("\x0B#?\xC0\x05"), 58},
      {"cut", 31, file_with("\x87\x13\x87\x13\0\0\1\1"s), file_with("\x88\x13\x87\x13\0\0\1\1"s),
       31},
      {"cut", 31, file_with("\1\0\0\0\0\0\1\1"s), file_with("\0\0\1\0\0\0\1\1"s), 31},
      {"cut", 31, file_with("\0\1\0\0\0\0\1\1"s), file_with("\1\0\0\0\0\0\1\0"s), 31},
      {"cut", 31, file_with("\1\0\x87\x13\0\0\1\1"s), file_with("\1\0\x88\x13\0\0\1\1"s), 31},
      {"mag", 61, file_with("WTI"), file_with("WTi"), -7},
      {"txt", 38, bytes_of(" ~\t\r\n\v\f\032Az"), bytes_of(" ~\t\r\n\v\f\032A\x7F"), 38},
      {"txt", 38, bytes_of("0123456789\xFF"), bytes_of("012345678\x1B"), 38},
      {"psd", 41, file_with("8BPS"), file_with("8BPs"), 41},
      {"imt", 42, file_with("'C1\0"s), file_with("'C11"), -7},
      {"pct", 15, file_with("\x11", 522, 600), file_with("\x11", 524, 600), 15},
      {"pct", 15, file_with("\x11", 523, 524), file_with("\x11", 521, 600), 15},
      {"mac", 21, file_with("PNT", 65, 532), file_with("PNG", 65, 532), 21},
      {"mac", 21, file_with("PICT", 65, 532), file_with("PICT", 66, 532), 21},
      {"mac", 21, file_with("\xB9\0\xB9\0"s, 512), file_with("\xB9\0\xB9\1"s, 512), 21},
      {"sct", 60, file_with("C", 80), file_with("C", 81), -7},
      {"sct", 60, file_with("T", 81), file_with("T", 82), -7},
      {"dcm", 55, file_with("DICM", 128), file_with("DICM", 127), 55},
      {"dcm", 55, file_with("DICM"), file_with("DICm"), 55},
      {"dcm", 55, file_with("\2\0\0\0\4\0\0\0\x40\0\0\0\2\0\1\0\x40\0\0\0"s),
       file_with("\2\0\0\0\4\0\0\0\x40\0\0\0\2\0\1\0\x41\0\0\0"s), 55},
      {"dcm", 55, file_with("\x08\0\0\0\4\0\0\0\1\0\0\0\x08\0\1\0\0\0\0\0"s),
       file_with("\x08\0\0\0\4\0\0\0\0\0\0\0\x08\0\1\0\0\0\0\0"s), 55},
      {"dcm", 55, file_with("\x0F\0\0\0\4\0\0\0\1\0\0\0\x0F\0\1\0\0\0\0\0"s),
       file_with("\x10\0\0\0\4\0\0\0\1\0\0\0\x10\0\1\0\0\0\0\0"s), 55},
      {"dcm", 55, file_with("\2\0\0\0\4\0\0\0\1\0\0\0\2\0\1\0\1\0\0\0"s),
       file_with("\2\0\0\0\4\0\0\0\1\0\0\0\3\0\1\0\1\0\0\0"s), 55},
  };
  return samples;
}

TEST_F(Detection, TellsEveryFormatFromWhatIsNearlyOne) {
  IMGLOW_set_auto_detect(38);
  for (const Sample& sample : samples()) {
    const Bytes& file = sample.file;
    const testing::Message shown =
        testing::Message() << sample.type << ' '
                           << testing::PrintToString(std::string(file.begin(), file.begin() + 10));
    EXPECT_EQ(type_of(file), sample.type) << shown;
    EXPECT_NE(type_of(sample.near_miss), sample.type) << shown;
    // Ten bytes make a format, where it ends by itself.
    const Bytes nine(file.begin(), file.begin() + 9);
    EXPECT_EQ(type_of(nine), "") << shown;
    EXPECT_EQ(code_of(nine), -7);
    EXPECT_EQ(code_of(file), sample.code) << shown;
    // Nothing is seen of the memory behind the file.
    const GuardedBlock guarded(file);
    EXPECT_EQ(IMGLOW_get_filetype_block(guarded.data(), guarded.size()), sample.code) << shown;
    // A format that is switched off is not there.
    EXPECT_EQ(IMGLOW_unset_auto_detect(sample.detect_switch), 1);
    EXPECT_NE(type_of(file), sample.type) << shown;
    EXPECT_EQ(IMGLOW_set_auto_detect(sample.detect_switch), 0);
  }
  EXPECT_EQ(code_of({}), -7);
}

TEST_F(Detection, XBitmapNeedsALineFeedInTheNextTwoHundredBytes) {
  for (const auto& [at, is_xbm] : std::vector<std::pair<std::size_t, bool>>{
           {9, false}, {10, true}, {209, true}, {210, false}}) {
    Bytes file = file_with("#define", 0, 300);
    file[at] = '\n';
    EXPECT_EQ(type_of(file), is_xbm ? "xbm" : "") << at;
  }
  // The text was looked through, so the next test to read on does so from the start.
  Bytes file = file_with("#define", 0, 600);
  file[512] = 0x11;
  EXPECT_EQ(type_of(file), "pct");
}

TEST_F(Detection, EarlierFormatsWinAndGiveWayWhenSwitchedOff) {
  struct Case {
    Bytes file;
    std::vector<std::int32_t> off;
    std::string type;
  };
  const Bytes text = bytes_of("II*0000000"), targa = file_with("\x0A\1\1");
  const Bytes mac_pict = [] {
    Bytes file = file_with("PNT", 65, 600);
    file[522] = 0x11;
    return file;
  }();
  for (const Case& c : std::vector<Case>{
           {text, {}, "tif"},
           {text, {7}, "txt"},
           {text, {0, 38}, ""},
           {targa, {}, "pcx"},
           {targa, {2}, "tga"},
           {bytes_of("8BPS pppp "), {}, "txt"},
           {bytes_of("8BPS pppp "), {38}, "psd"},
           {bytes_of("pnnnnnnnnn"), {}, "ica"},
           {bytes_of("pnnnnnnnnn"), {24}, "txt"},  // the second format on that switch as well
           {bytes_of("BMPNGxxxxx"), {}, "bmp"},
           {bytes_of("BPNGxxxxxx"), {}, "png"},
           {bytes_of("IWPC\0\0\0\0\0\0"s), {}, "wpg"},
           {bytes_of("FORMDICM??"), {38}, "iff"},
           {file_with("\0\0\1\0\0\0\x10\x10"s), {}, "ico"},
           {file_with("\1\0\1\0\0\0\x10\x10"s), {}, "cut"},
           {mac_pict, {}, "pct"},
           {joined({bytes_of("#define x\n"), Bytes(20, ' ')}),
            {},
            "txt"},  // nothing behind the ten
           {joined({bytes_of("#define xy"), bytes_of("\n")}), {}, "xbm"},
       }) {
    for (std::int32_t code = 0; code < 66; ++code) IMGLOW_set_auto_detect(code);
    for (const std::int32_t code : c.off) IMGLOW_unset_auto_detect(code);
    EXPECT_EQ(type_of(c.file), c.type) << testing::PrintToString(c.file);
  }
}

TEST_F(Detection, MacPaintIsLookedForWhereThePictTestStopped) {
  for (const bool pict_is_on : {true, false}) {
    for (const bool behind_pict : {true, false}) {  // in a file that begins at 1000
      const std::size_t name_at = 1000 + 10 + (behind_pict ? 512 + 10 : 0) - 467;
      if (pict_is_on) IMGLOW_set_auto_detect(15);
      if (!pict_is_on) IMGLOW_unset_auto_detect(15);
      MemoryFile file(file_with("PICT", name_at, 2000));
      file.position = 1000;
      EXPECT_EQ(IMGLOW_get_filetype_fd(4711), pict_is_on == behind_pict ? 21 : -7);
      EXPECT_EQ(file.position, 1000);
    }
  }
}

struct Tiff {
  bool big_endian = false;
  std::uint32_t directory = 8;
  std::uint32_t entries = 3;  // as claimed
  std::uint32_t tag = 259, type = 3, compression = 1;
};

// The second of three entries is the compression.
Bytes tiff_file(const Tiff& t) {
  const auto field = [&](std::uint32_t value, int size) {
    Bytes bytes;
    for (int i = 0; i < size; ++i) {
      bytes.push_back(static_cast<std::uint8_t>(value >> 8 * (t.big_endian ? size - 1 - i : i)));
    }
    return bytes;
  };
  Bytes file = joined({bytes_of(t.big_endian ? "MM" : "II"), field(42, 2), field(t.directory, 4)});
  if (t.directory > 1000) return joined({file, Bytes(40, 0)});
  file.resize(t.directory, 0xEE);
  const Bytes other = joined({field(256, 2), field(4, 2), field(1, 4), field(1, 4)});
  const Bytes value =
      t.type == 3 ? joined({field(t.compression, 2), field(0x7777, 2)}) : field(t.compression, 4);
  return joined({file, field(t.entries, 2), other, field(t.tag, 2), field(t.type, 2), field(1, 4),
                 value, other});
}

TEST_F(Detection, TiffIsRefinedByTheCompressionOfItsFirstDirectory) {
  const std::vector<std::pair<std::uint32_t, std::int32_t>> codes = {
      {1, 0},      {2, 7},      {3, 8},      {4, 10}, {5, 9},  {6, 40},    {45, 17},
      {32773, 16}, {32010, 46}, {32008, 47}, {7, -7}, {0, -7}, {65535, -7}};
  for (const bool big_endian : {false, true}) {
    for (const std::uint32_t type : {3u, 4u}) {
      for (const auto& [compression, code] : codes) {
        const Tiff tiff{.big_endian = big_endian, .type = type, .compression = compression};
        EXPECT_EQ(code_of(tiff_file(tiff)), code) << compression << ' ' << type;
      }
      // Any prefix is refused, until the entry is complete; what is claimed behind is not missed.
      const Bytes file = tiff_file({big_endian, 13, 65535, 259, type, 4});
      for (std::size_t length = 0; length <= file.size(); ++length) {
        const GuardedBlock cut(std::span<const std::uint8_t>(file).first(length));
        EXPECT_EQ(IMGLOW_get_filetype_block(cut.data(), length), length < 13 + 2 + 24 ? -7 : 10)
            << length;
      }
    }
    EXPECT_EQ(code_of(tiff_file({.big_endian = big_endian, .tag = 258})), -7);
    EXPECT_EQ(code_of(tiff_file({.big_endian = big_endian, .type = 1})), -7);
    EXPECT_EQ(code_of(tiff_file({.big_endian = big_endian, .entries = 1})), -7);
    for (const std::uint32_t away : {1001u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
      EXPECT_EQ(code_of(tiff_file({.big_endian = big_endian, .directory = away})), -7) << away;
    }
  }
}

TEST_F(Detection, BmpIsRefinedByItsCompressionField) {
  struct Case {
    BmpFields fields;
    std::int32_t code;
  };
  for (const Case& c : std::vector<Case>{
           {{.width = 1, .height = 1, .bits = 8}, 1},
           {{.width = 1, .height = 1, .bits = 8, .compression = 1}, 12},
           {{.width = 1, .height = 1, .bits = 8, .compression = 0x01000000}, 12},
           {{.header_bytes = 12, .width = 1, .height = 1, .bits = 8, .pixels = Bytes(60, 9)}, 1},
           {{.header_bytes = 108, .width = 1, .height = 1, .bits = 32, .compression = 3}, 12},
           {{.file_header = false, .width = 1, .height = 1, .bits = 8}, 1},
           {{.file_header = false, .width = 1, .height = 1, .bits = 8, .colours_used = 16}, 1},
           {{.file_header = false, .width = 1, .height = 1, .bits = 8, .compression = 2}, 12}}) {
    const GuardedBlock file(bmp_file(c.fields));
    EXPECT_EQ(IMGLOW_get_filetype_block(file.data(), file.size()), c.code);
    EXPECT_EQ(IMGLOW_get_filetype_mem(file.data()), c.code) << "of a size that nobody tells";
    EXPECT_EQ(IMGLOW_get_filetype_fd(IMG_MEMORY_STREAM), c.code) << "the stream stays open";
  }
}

TEST_F(Detection, GifIsRefinedByItsFirstImageAndMustReachIt) {
  const Bytes control = bytes_of("!\xF9\4\1\2\3\4\0"s);
  const Bytes odd_control = bytes_of("!\xF9\2\1\2\3\4\0"s);  // five bytes, whatever it says
  const Bytes odd_label = bytes_of("!,\0"s);                 // a separator as a label
  const Bytes extensions[] = {{},
                              bytes_of("!\xFE\5hello\3abc\0"s),
                              joined({control, odd_label}),
                              joined({bytes_of("!\xFF\1x\0"s), odd_control, control})};
  for (const int table_bits : {-1, 0, 3, 7}) {
    for (const Bytes& blocks : extensions) {
      Bytes file = bytes_of("GIF89a\5\0\5\0?\0\0"s);
      file[10] = static_cast<std::uint8_t>(table_bits < 0 ? 0x77 : 0x80 | table_bits);
      if (table_bits >= 0) file.resize(13 + (std::size_t{6} << table_bits), ',');
      file = joined({file, blocks, bytes_of(",\0\0\0\0\5\0\5\0?\2"s)});
      for (const bool interlaced : {false, true}) {
        file[file.size() - 2] = interlaced ? 0x47 : 0xBF;
        for (std::size_t length = 10; length <= file.size(); ++length) {
          const GuardedBlock cut(std::span<const std::uint8_t>(file).first(length));
          const std::int32_t code = length < file.size() ? -3 : interlaced ? 44 : 4;
          ASSERT_EQ(IMGLOW_get_filetype_block(cut.data(), length), code) << length;
        }
      }
    }
  }
  for (const char* block : {";", "?", "\x80"}) {
    const Bytes file = joined({bytes_of("GIF89a\5\0\5\0\0\0\0"s), bytes_of(block), Bytes(40, ',')});
    EXPECT_EQ(code_of(file), -3);
  }
}

TEST_F(Detection, AsksTheRestOfAStreamAndPutsTheStreamBack) {
  MemoryFile stream(joined({Bytes(7, 0xEE), tiff_file({.compression = 5})}));
  stream.position = 7;
  EXPECT_EQ(IMGLOW_get_filetype_fd(4711), 9);
  EXPECT_EQ(stream.position, 7);
  // An offset of 2^32 - 38 is not the start of a stream whose TIFF file begins at 38.
  const Bytes directory(stream.bytes.begin() + 15, stream.bytes.end());
  stream.bytes = joined({directory, bytes_of("II*\0\xDA\xFF\xFF\xFF\0\0"s)});
  stream.position = 38;
  EXPECT_EQ(IMGLOW_get_filetype_fd(4711), -7);
  const ScratchFolder folder;
  for (const std::string& name : {folder.file("none"), folder.path().string()}) {
    EXPECT_EQ(IMGLOW_get_filetype(name.c_str()), -2);
    EXPECT_EQ(IMG_decompress_bitmap(name.c_str()), -2);
  }
}

TEST_F(Detection, LicenceCheckRefusesWhateverTheFileIs) {
  set_licence_check([]() -> Status { return StatusCode::refused_by_licence; });
  for (const Bytes& file : {file_with("BM"), Bytes(20, 0xEE), Bytes()}) {
    const GuardedBlock block(file);
    EXPECT_EQ(IMGLOW_get_filetype_block(block.data(), file.size()), -19);
    EXPECT_EQ(IMGLOW_get_pages_block(block.data(), file.size()), -19);
    EXPECT_EQ(IMG_decompress_bitmap_block(block.data(), file.size(), 0), -19);
  }
}

TEST_F(Detection, FileNamesChooseACodeByTheirLastThreeCharacters) {
  const std::vector<std::pair<std::string, std::int32_t>> names = {
      {"tif", 0},  {"bmp", 1},  {"pcx", 2},  {"tga", 3},  {"gif", 4},  {"wpg", 5},  {"wmf", 6},
      {"dcx", 11}, {"jpg", 13}, {"pct", 15}, {"eps", 14}, {"cal", 18}, {"ico", 25}, {"clp", 27},
      {"xbm", 20}, {"xpm", 35}, {"xwd", 36}, {"ras", 37}, {"psd", 41}, {"iff", 26}, {"png", 43},
      {"ica", 24}, {"mca", 49}, {"pcl", 57}, {"jed", 56}, {"sct", 60}};
  for (const auto& [ending, code] : names) {
    std::string upper = ending;
    for (char& c : upper) c = static_cast<char>(c - 'a' + 'A');
    EXPECT_EQ(dispatch::code_for_name("a." + ending), code) << ending;
    EXPECT_EQ(dispatch::code_for_name("/x.y/A." + upper), code) << ending;
    EXPECT_EQ(dispatch::code_for_name(ending), code) << "no dot is needed";
    EXPECT_EQ(dispatch::code_for_name(ending.substr(1)), -1);
    EXPECT_EQ(dispatch::code_for_name("a." + ending + " "), -1);
  }
  EXPECT_EQ(dispatch::code_for_name("scan.tiff"), 26) << "ends in iff";
  for (const char* name :
       {"", "a", "if", "a.imt", "a.btr", "a.pdf", "a.txt", "a.jpeg", "a.dcm", "a.fpx"}) {
    EXPECT_EQ(dispatch::code_for_name(name), -1) << name;
  }
}

}  // namespace
}  // namespace tq::test
