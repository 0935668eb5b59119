// What a file is: a sample of every format beside one that misses by a byte, the order in which
// they are tried, the variants of TIFF, BMP and GIF, and where the stream stands afterwards.
#include "dispatch/dispatch.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>

#include "core/licence.h"
#include "tests/support/bmp_file.h"
#include "tests/support/guarded_block.h"
#include "tests/support/library_test.h"
#include "tests/support/memory_file.h"
#include "tests/support/scratch_folder.h"
#include "tests/support/tiff_file.h"

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

// What makes a file one of a type, each by itself; '?' is any byte.
struct Sample {
  const char* type;
  std::int32_t detect_switch;
  std::vector<std::string> texts;
  std::int32_t code = detect_switch;  // -7: the type has none
  std::size_t at = 0;
};

// clang-format off
const Sample kSamples[] = {
    {"tif", 0, {"MM", "II"}, -7},  // until its first directory is found
    {"gif", 4, {"GIF"}, -3},
    {"bmp", 1, {"BM", "\x28\0\0\0"s}},
    {"eps", 14, {"\xC5\xD0\xD3\xC6"}},
    {"pdf", 59, {"%PDF"}},
    {"dcx", 11, {"\xB1\x68\xDE\x3A"}},
    {"jpg", 13, {"\xFF\xD8"}},
    {"wpg", 5, {"?WPC"}},
    {"cal", 18, {"src"}},
    {"png", 43, {"?PNG"}},
    {"ncr", 65, {"NN", "nn"}, -7},
    {"kfx", 23, {".KF"}},
    {"iff", 26, {"FORM"}},
    {"fpx", 54, {"\xD0\xCF\x11\xE0\xA1\xB1"}},
    {"gx2", 22, {"GX2"}},
    {"lsd", 19, {"\xDC\xDC"}},
    {"pcx", 2, {"\x0A?\x01"}},
    {"ico", 25, {"\0\0\1\0??\x10"s, "\0\0\1\0??\x20"s, "\0\0\1\0??\x30"s, "\0\0\1\0??\x40"s}},
    {"tga", 3, {"?\1\1", "?\1\x09", "?\0\2"s, "?\0\3"s, "?\0\x0A"s, "?\0\x0B"s, "\x24?\x9C", "\x69?\x9C"}},
    {"wmf", 6, {"\xD7\xCD\xC6\x9A"}},
    {"ica", 24, {"0000", "p"}},
    {"mca", 24, {"??\xD3\xA6\xFB", "??\xD3\xA8\xA8", "??\xD3\xA8\xFB", "??\xD3\xA8\xDF"}, -7},
    {"pcd", 39, {"\xFF\xFF\xFF\xFF"}},
    {"clp", 27, {"P\xC3"}},
    {"img", 28, {"\0\1\0\x08"s, "\0\1\0\x09"s}},
    {"btr", 29, {"\xBB??\1"}},
    {"msp", 30, {"Lin", "DanM"}},
    {"xbm", 20, {"#define???\n"}},
    {"xpm", 35, {"/* XPM */"}},
    {"xwd", 36, {"\0\0\0\7"s}, 36, 4},
    {"ras", 37, {"\x59\xA6\x6A\x95"}},
    {"jed", 56, {"\x80\0\0"s}},
    {"fxs", 58, {"\x0B#?\xC0\x06"}},
    {"cut", 31, {"?\x13?\x13\0\0??"s}},
    {"mag", 61, {"WTI"}, -7},
    {"txt", 38, {" ~\t\r\n\v\f\032Az", "0123456789"}},
    {"psd", 41, {"8BPS"}},
    {"imt", 42, {"'C1\0"s}, -7},
    {"pct", 15, {"\x11"}, 15, 522},
    {"pct", 15, {"\x11"}, 15, 523},
    {"mac", 21, {"PNT", "PICT"}, 21, 65},
    {"mac", 21, {"\xB9\0\xB9\0"s}, 21, 512},
    {"sct", 60, {"C", "?T"}, -7, 80},
    {"dcm", 55, {"DICM"}},
    {"dcm", 55, {"DICM"}, 55, 128},
};

// The last that are of a type, and the first that are not.
const struct { const char* type; std::string text; std::size_t at = 0; bool is = false; } kLimits[] = {
    {"cut", "\x87\x13\x87\x13\0\0\1\1"s, 0, true}, {"cut", "\1\0\0\0\0\0\1\1"s, 0, true}, {"cut", "\0\1\0\0\0\0\1\1"s, 0, true},
    {"dcm", "\2\0\0\0\4\0\0\0\x40\0\0\0\2\0\1\0\x40\0\0\0"s, 0, true},
    {"dcm", "\x0F\0\0\0\4\0\0\0\1\0\0\0\x0F\0\1\0\0\0\0\0"s, 0, true},
    {"ico", "\0\0\1\0??\x11"s}, {"ico", "\0\0\1\0??\x41"s}, {"img", "\0\1\0\x07"s}, {"img", "\0\1\0\x0A"s},
    {"tga", "?\0\1"s}, {"tga", "?\1\2"}, {"tga", "?\1\x0A"}, {"tga", "\x23?\x9C"}, {"tga", "\x6A?\x9C"},
    {"mca", "??\xD3\xA6\xA8"}, {"cut", "\x88\x13\x87\x13\0\0\1\1"s}, {"cut", "\0\0\1\0\0\0\1\1"s},
    {"cut", "\1\0\x88\x13\0\0\1\1"s}, {"cut", "\1\0\0\0\0\0\1\0"s}, {"txt", "012345678\x7F"}, {"txt", "012345678\x1B"},
    {"txt", "012345678\x08"}, {"pct", "\x11", 521}, {"pct", "\x11", 524}, {"mac", "PICT", 66}, {"sct", "C", 81},
    {"dcm", "DICM", 127}, {"dcm", "\x08\0\0\0\4\0\0\0\0\0\0\0\x08\0\1\0\0\0\0\0"s},
    {"dcm", "\x10\0\0\0\4\0\0\0\1\0\0\0\x10\0\1\0\0\0\0\0"s},
    {"dcm", "\2\0\0\0\4\0\0\0\x40\0\0\0\2\0\1\0\x41\0\0\0"s}};
// clang-format on

TEST_F(Detection, TellsEveryFormatFromWhatIsNearlyOne) {
  IMGLOW_set_auto_detect(38);
  for (const auto& [type, detect_switch, texts, code, at] : kSamples) {
    for (const std::string& text : texts) {
      const Bytes file = file_with(text, at, at > 12 ? 600 : 0);
      SCOPED_TRACE(testing::Message() << type << ' ' << testing::PrintToString(text));
      EXPECT_EQ(type_of(file), type);
      for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '?') continue;
        Bytes other = file;
        other[at + i] ^= 0x80;
        EXPECT_NE(type_of(other), type) << i;
      }
      // Ten bytes make a format, where it ends by itself.
      const Bytes nine(file.begin(), file.begin() + 9);
      EXPECT_EQ(type_of(nine), "");
      EXPECT_EQ(code_of(nine), -7);
      // Nothing is seen of the memory behind the file.
      const GuardedBlock guarded(file);
      EXPECT_EQ(IMGLOW_get_filetype_block(guarded.data(), guarded.size()), code);
      // A format that is switched off is not there.
      EXPECT_EQ(IMGLOW_unset_auto_detect(detect_switch), 1);
      EXPECT_NE(type_of(file), type);
      EXPECT_EQ(IMGLOW_set_auto_detect(detect_switch), 0);
    }
  }
  for (const auto& [type, text, at, is] : kLimits) {
    const std::string found = type_of(file_with(text, at, at > 12 ? 600 : 0));
    EXPECT_EQ(found == type, is) << type << ' ' << testing::PrintToString(text);
  }
  EXPECT_EQ(code_of({}), -7);
}

// What more is seen with DETECTION, and what no longer is; a file of 600 bytes.
TEST_F(Detection, OptionSeesMoreAndConfirms) {
  const std::string icon =
      "\0\0\1\0\1\0\x11\x11\0\0\1\0\4\0\x2A\2\0\0\x2E\0\0\0"s;  // its picture ends the file
  const std::string pcx = "\x0A\5\0\x08\0\0\1\0\x07\0\1\0"s,
                    dicom = "\x08\0\5\0\6\0\0\0ISO_IR\x08\0\x16\0"s;
  const std::string root = std::string("\xD0\xCF\x11\xE0\xA1\xB1") + std::string(24, 0) + "\6\0"s +
                           std::string(16, 0) + "\3\0\0\0"s;  // in sector 3 of 64 bytes, at 256
  const std::string flashpix = "\0\x67\x61\x56\x54\xC1\xCE\x11\x85\x53\0\xAA\0\xA1\xF9\x5B"s;
  const struct {
    const char* before;
    const char* type;
    std::string text;
    std::size_t at = 0;
    std::string more{};  // elsewhere
  } cases[] = {
      {"tif", "tif", "II*\0"s},
      {"tif", "tif", "MM\0+"s},
      {"tif", "", "II"},
      {"tif", "dcm", "II", 128, "DICM"},
      {"", "bmp", "\x0C\0\0\0\7\0\5\0\1\0\x18\0"s},
      {"", "bmp", "\x7C\0\0\0\7\0\0\0\5\0\0\0\1\0\x20\0"s},
      {"", "", "\x7C\0\0\0\7\0\0\0\5\0\0\0\2\0\x20\0"s},
      {"", "", "\x0C\0\0\0\7\0\5\0\1\0\x17\0"s},
      {"", "eps", "%!PS-Adobe"},
      {"", "pdf", "??????????", 500, "%PDF-"},
      {"", "", "??????????", 500, "%PDF_"},
      {"", "pcx", pcx, 65, "\3"},
      {"", "", pcx, 65, "\5"},
      {"", "xbm", "/* a */ /* b */\n#define x_width 8"},
      {"", "", "/* a */ #undef x"},
      {"", "", "/* #define x"},
      {"", "xwd", "\x68\0\0\0\7\0\0\0\2\0"s},
      {"", "", "\x60\0\0\0\7\0\0\0\2\0"s},
      {"", "pct", "??????????", 10, "\x11\1"},
      {"", "pct", "??????????", 10, "\0\x11\2\xFF"s},
      {"", "", "??????????", 10, "\0\x11\3\xFF"s},
      {"", "ico", icon},
      {"ico", "ico", "\0\0\1\0??\x20"s},
      {"", "", "\0\0\1\0\1\0\x11\x11\0\0\1\0\4\0\x2B\2\0\0\x2E\0\0\0"s},
      {"tga", "", "\0\0\2\0\1\0\x10\x10"s},
      {"tga", "tga", "\0\0\2\0\0\0\0\0"s},
      {"ica", "ica", "p\1?\x91\1\xFF"},
      {"ica", "", "p\5"},
      {"ica", "", "p\1\x91\1\xFF"},
      {"ica", "ica", "0000"},
      {"mca", "mca", "??\xD3\xA6\xFB"},
      {"fpx", "fpx", root, 336, flashpix},
      {"fpx", "", root, 335, flashpix},
      {"", "dcm", dicom},
      {"", "dcm", "\0\x08\0\5CS\0\6ISO_IR"s},
      {"", "", "\x08\0\5\0\7\0\0\0ISO_IR?\x08\0"s},
  };
  for (const auto& [before, type, text, at, more] : cases) {
    Bytes file = file_with(text, 0, 600);
    std::ranges::copy(more, file.begin() + static_cast<std::ptrdiff_t>(at));
    SCOPED_TRACE(testing::PrintToString(text) + more);
    IMG_set_option(IMG_OPTION_DETECTION, 0);
    EXPECT_EQ(type_of(file), before);
    IMG_set_option(IMG_OPTION_DETECTION, 1);
    EXPECT_EQ(type_of(file), type);
    // The same behind other bytes of a stream.
    MemoryFile stream(joined({Bytes(100, 'x'), file}));
    stream.position = 100;
    const dispatch::FileType* found = nullptr;
    EXPECT_EQ(dispatch::detect(MemoryFile::kHandle, found), kOk);
    EXPECT_EQ(found == nullptr ? "" : found->ending, type);
    IMGLOW_set_fileio(nullptr, nullptr, nullptr);
  }
  IMG_set_option(IMG_OPTION_DETECTION, 0);
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

// The second of three entries is the compression, beside the half that a short one leaves free.
Bytes tiff_of(bool big_endian, std::uint64_t compression, int type = 3, int tag = 259) {
  TiffField field{tag, type, {compression}};
  if (type == 3) field.values.push_back(0x7777);
  const TiffField other{256, 4, {1}};
  return tiff_file({big_endian}, {{{other, field, other}, {}, 0, 0}});
}

TEST_F(Detection, TiffIsRefinedByTheCompressionOfItsFirstDirectory) {
  const std::vector<std::pair<std::uint32_t, std::int32_t>> codes = {
      {1, 0},      {2, 7},      {3, 8},      {4, 10}, {5, 9},  {6, 40},    {45, 17},
      {32773, 16}, {32010, 46}, {32008, 47}, {7, -7}, {0, -7}, {65535, -7}};
  for (const bool big_endian : {false, true}) {
    for (const int type : {3, 4}) {
      for (const auto& [compression, code] : codes) {
        EXPECT_EQ(code_of(tiff_of(big_endian, compression, type)), code)
            << compression << ' ' << type;
      }
      // Any prefix is refused, until the entry is complete; what is claimed behind is not missed.
      Bytes file = tiff_of(big_endian, 4, type);
      file[8] = file[9] = 0xFF;  // entries
      for (std::size_t length = 0; length <= file.size(); ++length) {
        const GuardedBlock cut(std::span<const std::uint8_t>(file).first(length));
        EXPECT_EQ(IMGLOW_get_filetype_block(cut.data(), length), length < 8 + 2 + 24 ? -7 : 10)
            << length;
      }
    }
    EXPECT_EQ(code_of(tiff_of(big_endian, 1, 3, 258)), -7);
    EXPECT_EQ(code_of(tiff_of(big_endian, 1, 1)), -7);
    Bytes file = tiff_of(big_endian, 1);
    file[big_endian ? 9 : 8] = 1;
    EXPECT_EQ(code_of(file), -7) << "one entry";
    for (const Bytes& away : {Bytes{0, 0, 4, 0}, Bytes(4, 0x7F), Bytes(4, 0x80), Bytes(4, 0xFF)}) {
      std::ranges::copy(away, file.begin() + 4);
      EXPECT_EQ(code_of(file), -7) << testing::PrintToString(away);
    }
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
  MemoryFile stream(joined({Bytes(7, 0xEE), tiff_of(false, 5)}));
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

// A file of levels may have at 80 what another format has there.
TEST_F(Detection, PnmIsRecognisedWhenItIsAskedForAndNothingElseIs) {
  Bytes plain = bytes_of("P5 9 9 255 "), like_sct = plain;
  plain.resize(92, '.');
  like_sct.resize(92, 'T');
  const auto code_of = [](const Bytes& file) {
    return IMGLOW_get_filetype_block(file.data(), file.size());
  };
  EXPECT_EQ(code_of(plain), IMG_UNSUPPORTED);
  EXPECT_EQ(dispatch::code_for_name("a.pgm"), -1);
  EXPECT_EQ(IMG_set_option(IMG_OPTION_EXTENDED_FORMATS, 1), 0);
  EXPECT_EQ(code_of(plain), IMG_TYPE_PNM);
  EXPECT_EQ(code_of(like_sct), IMG_UNSUPPORTED);
  EXPECT_EQ(code_of(bytes_of("P4 1 1 .")), IMG_TYPE_PNM) << "shorter than others can be";
  EXPECT_EQ(code_of(bytes_of("BM 1 1 .")), IMG_UNSUPPORTED);
  EXPECT_EQ(code_of(bytes_of("P5.9 9 255 ..........")), IMG_UNSUPPORTED);
  EXPECT_EQ(dispatch::code_for_name("a.pgm"), IMG_TYPE_PNM);
  EXPECT_EQ(IMGLOW_get_auto_detect(IMG_TYPE_PNM), IMG_UNSUPPORTED) << "has no switch";
  IMG_set_option(IMG_OPTION_DETECTION, 1);
  EXPECT_EQ(code_of(like_sct), IMG_TYPE_PNM);
}

TEST_F(Detection, FileNamesChooseACodeByTheirLastThreeCharacters) {
  const std::pair<const char*, std::int32_t> names[] = {
      {"a.tif", 0},  {"/x.y/A.BMP", 1}, {"dcx", 11},   {"a.mca", 49},  {"a.pcl", 57},
      {"a.sct", 60}, {"scan.tiff", 26},  // ends in iff
      {"", -1},      {"a", -1},         {"if", -1},    {"a.tif ", -1}, {"a.imt", -1},
      {"a.btr", -1}, {"a.pdf", -1},     {"a.txt", -1}, {"a.jpeg", -1}};
  for (const auto& [name, code] : names) EXPECT_EQ(dispatch::code_for_name(name), code) << name;
  const std::pair<const char*, std::int32_t> whole[] = {
      {"scan.tiff", 0}, {"a.JPEG", 13}, {"a.jpe", 13}, {"a.b.jfif", 13},  {"a.pdf", 59},
      {"a.dib", 48},    {"a.icon", 25}, {"a.tif", 0},  {"dcx", -1},       {"/x.tif/a", -1},
      {"a.", -1},       {"a.xtif", -1}, {"a.jp", -1},  {"a.jpe jfif", -1}};
  for (const auto& [name, code] : whole) {
    EXPECT_EQ(dispatch::code_for_whole_ending(name), code) << name;
  }
}

}  // namespace
}  // namespace tq::test
