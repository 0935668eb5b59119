// Documents with PDF_WRITING: how pages are laid out, what an added page costs, whose documents are
// continued.
#include <gmock/gmock.h>

#include <bit>
#include <charconv>
#include <map>
#include <set>
#include <string>

#include "core/context.h"
#include "formats/pdf/pdf.h"
#include "tests/support/collecting_sink.h"
#include "tests/support/memory_file.h"

namespace tq::test {
namespace {

using testing::HasSubstr;
using testing::Not;
using Settings = std::map<std::int32_t, std::int32_t>;

struct Picture {
  std::int32_t width = 40, height = 30;
  int bits = 1;
  Resolution resolution{};
};

Options options_of(const Settings& settings) {
  Options options;
  EXPECT_TRUE(options.set(IMG_OPTION_PDF_WRITING, 1));
  for (const auto& [option, value] : settings) EXPECT_TRUE(options.set(option, value));
  return options;
}

Status save(const Picture& picture, const Settings& settings = {}, const Texts* texts = nullptr) {
  HeaderBlock header = dib_header(picture.width, picture.height, picture.bits);
  const formats::RowSupplier rows{[](void*, void* dest, std::int32_t, std::int32_t bytes) {
                                    std::fill_n(static_cast<std::uint8_t*>(dest), bytes, 0x5A);
                                    return std::int32_t{0};
                                  },
                                  nullptr};
  const formats::EncodeRequest request{.stream = MemoryFile::kHandle,
                                       .image = &header,
                                       .rows = rows,
                                       .cmyk = picture.bits == 32,
                                       .options = options_of(settings),
                                       .resolution = picture.resolution,
                                       .texts = texts};
  const Status allowed = pdf::can_encode_page(request);
  return allowed.failed() ? allowed : pdf::encode_page(request);
}

Status can_append(const Settings& settings = {}) {
  formats::AppendPlace place{.over_debris = settings.contains(IMG_OPTION_SAFE_SAVING),
                             .options = options_of(settings)};
  return pdf::can_append_page(MemoryFile::kHandle, place);
}

std::string text(const Bytes& bytes) {
  return {bytes.begin(), bytes.end()};
}
Bytes bytes_of(const std::string& text) {
  return {text.begin(), text.end()};
}

std::string document_of(const Picture& picture, const Settings& settings = {},
                        const Texts* texts = nullptr) {
  const MemoryFile file;
  EXPECT_EQ(save(picture, settings, texts), kOk);
  return text(file.bytes);
}

std::string between(const std::string& document, const std::string& start, const std::string& end) {
  const std::size_t at = document.find(start);
  if (at == std::string::npos) return "nothing";
  const std::size_t from = at + start.size();
  return document.substr(from, document.find(end, from) - from);
}

TEST(PdfLayout, PagesAreAsLargeAsTheirPicturesOrAsGiven) {
  constexpr std::int32_t kWidth = IMG_OPTION_PDF_PAGE_WIDTH, kHeight = IMG_OPTION_PDF_PAGE_HEIGHT,
                         kMargin = IMG_OPTION_PDF_MARGIN, kFit = IMG_OPTION_PDF_FIT,
                         kDpi = IMG_OPTION_PDF_DEFAULT_DPI;
  struct Case {
    Picture picture;
    Settings settings;
    const char *page, *matrix;
  };
  const Case cases[] = {
      {{300, 200}, {}, "300 200", "300 0 0 200 0 0"},
      {{300, 200}, {{kDpi, 300}}, "72 48", "72 0 0 48 0 0"},
      {{1728, 1100, 1, {204000, 98000}}, {}, "609.8824 808.1633", "609.8824 0 0 808.1633 0 0"},
      {{300, 200, 1, {0, 150000}}, {{kDpi, 100}}, "144 96", "144 0 0 96 0 0"},
      {{300, 200, 1, {300000, 300000}}, {{kMargin, 105}}, "93 69", "72 0 0 48 10.5 10.5"},
      {{300, 200}, {{kWidth, 5953}}, "300 200", "300 0 0 200 0 0"},
      {{300, 200}, {{kWidth, 6120}, {kHeight, 7920}}, "612 792", "612 0 0 408 0 192"},
      {{30, 40}, {{kWidth, 5953}, {kHeight, 8419}}, "595.3 841.9", "595.3 0 0 793.7333 0 24.0833"},
      {{300, 200}, {{kWidth, 6120}, {kHeight, 7920}, {kFit, 1}}, "612 792", "300 0 0 200 156 296"},
      {{1300, 200},
       {{kWidth, 6120}, {kHeight, 7920}, {kFit, 1}},
       "612 792",
       "612 0 0 94.1538 0 348.9231"},
      {{300, 200}, {{kWidth, 6120}, {kHeight, 7920}, {kFit, 2}}, "792 612", "792 0 0 528 0 42"},
      {{200, 300}, {{kWidth, 6120}, {kHeight, 7920}, {kFit, 2}}, "612 792", "528 0 0 792 42 0"},
      {{300, 200}, {{kWidth, 6120}, {kHeight, 7920}, {kFit, 3}}, "612 792", "300 0 0 200 156 296"},
      {{700, 200}, {{kWidth, 6120}, {kHeight, 7920}, {kFit, 3}}, "792 612", "700 0 0 200 46 206"},
      {{300, 200},
       {{kWidth, 1000}, {kHeight, 1000}, {kMargin, 100}},
       "100 100",
       "80 0 0 53.3333 10 23.3333"},
      {{65535, 1, 1}, {}, "6553.5 0.1]/UserUnit 10/R", "6553.5 0 0 0.1 0 0"},
      {{3, 2, 1, {65535000, 65535000}}, {}, "0.0033 0.0022", "0.0033 0 0 0.0022 0 0"},
  };
  for (const Case& c : cases) {
    const std::string document = document_of(c.picture, c.settings);
    EXPECT_THAT(document, HasSubstr("/MediaBox[0 0 " + std::string(c.page)));
    EXPECT_EQ(between(document, "stream\nq ", " cm"), c.matrix);
    const std::string contents = "q " + std::string(c.matrix) + " cm /Im0 Do Q";
    EXPECT_THAT(document, HasSubstr("<</Length " + std::to_string(contents.size()) +
                                    ">>\nstream\n" + contents + "\nendstream"));
    const bool has_unit = document.find("/UserUnit") != std::string::npos;
    EXPECT_EQ(document.find("/Version/1.6") != std::string::npos, has_unit);
  }
  const MemoryFile untouched;
  EXPECT_EQ(save({}, {{kWidth, 1000}, {kHeight, 2000}, {kMargin, 500}}), StatusCode::unsupported);
  EXPECT_EQ(save({40, 30, 16}), StatusCode::wrong_depth);
  EXPECT_EQ(save({40, 30, 16}, {{IMG_OPTION_PDF_LOSSLESS, 1}}), StatusCode::wrong_depth);
  EXPECT_EQ(save({70000, 1, 24}), StatusCode::unsupported) << "more than a JPEG stream can say";
  EXPECT_EQ(untouched.bytes.size(), 0u);
}

TEST(PdfTexts, AreWrittenAsTheStandardHasThemAndOnlyIfGiven) {
  Texts texts;
  const auto information = [&] { return between(document_of({}, {}, &texts), "obj\n<<", ">>\n"); };
  const std::string version = "/Producer(Tarnquill " + std::to_string(TARNQUILL_VERSION_MAJOR) +
                              "." + std::to_string(TARNQUILL_VERSION_MINOR) + "." +
                              std::to_string(TARNQUILL_VERSION_PATCH) + ")";
  EXPECT_EQ(information(), version);
  EXPECT_EQ(texts.set(IMG_TEXT_TITLE, "a (b) \\ c"), kOk);
  EXPECT_EQ(texts.set(IMG_TEXT_AUTHOR, "\xC3\xA9\xF0\x9F\x98\x80"), kOk);
  EXPECT_EQ(texts.set(IMG_TEXT_DATE, "951782399"), kOk);
  EXPECT_EQ(information(), "/Title(a \\(b\\) \\\\ c)/Author<FEFF00E9D83DDE00>" + version +
                               "/CreationDate(D:20000228235959Z)");
  for (const auto& [seconds, date] : {std::pair{"0", "19700101000000"},
                                      {"951868800", "20000301000000"},
                                      {"4107542400", "21000301000000"},
                                      {"253402300799", "99991231235959"}}) {
    EXPECT_EQ(texts.set(IMG_TEXT_DATE, seconds), kOk);
    EXPECT_THAT(information(), HasSubstr("(D:" + std::string(date) + "Z)"));
  }
  const std::pair<std::int32_t, const char*> refused[] = {{100, "a"},
                                                          {107, "a"},
                                                          {IMG_TEXT_DATE, "253402300800"},
                                                          {IMG_TEXT_DATE, "-1"},
                                                          {101, "\xFF"},
                                                          {101, "\xC0\x80"},
                                                          {101, "\xED\xA0\x80"},
                                                          {101, "a\xE2\x82"},
                                                          {101, "\xF4\x90\x80\x80"}};
  for (const auto& [number, given] : refused) {
    EXPECT_EQ(texts.set(number, given), StatusCode::unsupported) << number << given;
  }
  EXPECT_THAT(information(), HasSubstr("/Title(a"));
  texts.clear();
  EXPECT_EQ(information(), version);
}

// A reader of such documents, and only of such: objects by their sections, the newest first.
class Reader {
 public:
  explicit Reader(const std::string& document) : text_(document) {
    std::size_t at = number(text_.rfind("startxref\n") + 10);
    trailer = read_section(at);
    for (std::string dictionary = trailer; dictionary.find("/Prev ") != std::string::npos;) {
      dictionary = read_section(std::stoul(between(dictionary, "/Prev ", "/")));
    }
  }

  std::string object(int object_number) const {
    const auto found = offsets.find(object_number);
    if (found == offsets.end()) return "no object";
    const std::string start = std::to_string(object_number) + " 0 obj\n";
    if (text_.compare(found->second, start.size(), start) != 0) return "no object there";
    const std::size_t from = found->second + start.size();
    return text_.substr(from, text_.find("endobj", from) - from);
  }

  // How many pages there are below a node; what is wrong about them is told.
  int count(int node, int parent, int depth = 0) {
    const std::string dictionary = object(node);
    EXPECT_EQ(dictionary.find("/Parent " + std::to_string(parent) + " 0 R") != std::string::npos,
              parent != 0);
    deepest = std::max(deepest, depth);
    if (dictionary.find("/Type/Page/") != std::string::npos) {
      EXPECT_TRUE(pages.insert(node).second);
      return 1;
    }
    int sum = 0, kids = 0;
    const std::string list = between(dictionary, "/Kids[", "]");
    for (std::size_t at = 0; at < list.size(); at = list.find('R', at) + 1, ++kids) {
      while (list[at] == ' ') ++at;
      sum += count(static_cast<int>(number_in(list, at)), node, depth + 1);
    }
    EXPECT_LE(kids, 32);
    EXPECT_EQ(between(dictionary, "/Count ", "/"), std::to_string(sum));
    return sum;
  }
  int count() {
    const int root = std::stoi(between(trailer, "/Root ", " "));
    return count(std::stoi(between(object(root), "/Pages ", " ")), 0);
  }

  std::string trailer;
  int sections = 0, deepest = 0;
  std::map<int, std::size_t> offsets;
  std::set<int> pages;

 private:
  static std::size_t number_in(const std::string& text, std::size_t at) {
    std::size_t value = 0;
    std::from_chars(text.data() + at, text.data() + text.size(), value);
    return value;
  }
  std::size_t number(std::size_t at) const { return number_in(text_, at); }

  std::string read_section(std::size_t at) {
    ++sections;
    EXPECT_EQ(text_.substr(at, 5), "xref\n");
    for (at += 5; text_[at] != 't';) {
      const auto first = static_cast<int>(number(at));
      const auto count = static_cast<int>(number(text_.find(' ', at) + 1));
      at = text_.find('\n', at) + 1;
      for (int i = 0; i < count; ++i, at += 20) {
        EXPECT_EQ(text_[at + 19], '\n');
        if (text_[at + 17] == 'n') offsets.emplace(first + i, number(at));
      }
    }
    return text_.substr(at, text_.find("startxref", at) - at);
  }

  const std::string& text_;
};

TEST(PdfAppend, EveryPageCostsTheSameAndIsFoundInAFewSteps) {
  const MemoryFile file;
  constexpr int kPages = 1060;
  std::size_t picture = 0;
  for (int page = 1; page <= kPages; ++page) {
    ASSERT_EQ(save({}), kOk) << page;
    if (page == 1) picture = std::stoul(between(text(file.bytes), "endobj\n7 0 obj\n", "\n"));
    const bool looks = page <= 40 || page % 64 <= 1 || page > 1022;
    if (!looks || (page > 70 && page % 128 > 1 && page < 1020)) continue;
    const std::string document = text(file.bytes);
    Reader reader(document);
    ASSERT_EQ(reader.count(), page);
    EXPECT_LE(reader.deepest, page <= 32 ? 1 : page <= 1024 ? 2 : 3);
    EXPECT_LE(reader.sections, 1 + std::bit_width(static_cast<unsigned>(page)));
    EXPECT_EQ(reader.offsets.size(), std::stoul(between(reader.trailer, "/Size ", "/")) - 1);
  }
  EXPECT_LT(file.bytes.size(), kPages * (2500 + picture));
}

std::string replaced(std::string in, const std::string& what, const std::string& by) {
  const std::size_t at = in.rfind(what);
  EXPECT_NE(at, std::string::npos) << what;
  return at == std::string::npos ? in : in.replace(at, what.size(), by);
}

TEST(PdfAppend, WithoutTheOptionItsDocumentsAreOthers) {
  const MemoryFile file;
  ASSERT_EQ(save({}), kOk);
  formats::AppendPlace place;
  EXPECT_EQ(pdf::can_append_page(MemoryFile::kHandle, place), StatusCode::bad_image);
}

TEST(PdfAppend, WhatIsDamagedOrEncipheredIsRefusedUntouched) {
  const std::string own = document_of({});
  const std::size_t table = own.rfind("xref\n0 ");
  const std::string start = "startxref\n" + std::to_string(table);
  const std::string elsewhere = "startxref\n" + std::to_string(table + 1);
  const std::pair<const char*, std::string> cases[] = {
      {"no document", std::string(300, 'x')},
      {"another beginning", replaced(own, "%PDF", "%PDG")},
      {"no end", replaced(own, "%%EOF", "%%EOG")},
      {"no offset", replaced(own, start, "startxref\nA")},
      {"an offset somewhere else", replaced(own, start, elsewhere)},
      {"a node that is none", replaced(own, "/Kids[4 0 R]", "/Dogs[4 0 R]")},
      {"an object somewhere else", replaced(own, "3 0 obj", "9 0 obj")},
      {"enciphered", replaced(own, "/Root", "/Encrypt 9 0 R/Root")},
      {"a cut document", own.substr(0, own.size() - 60)},
  };
  for (const auto& [what, content] : cases) {
    for (const Settings& settings : {Settings{}, Settings{{IMG_OPTION_SAFE_SAVING, 1}}}) {
      const MemoryFile file(bytes_of(content));
      EXPECT_TRUE(can_append(settings).failed()) << what;
      EXPECT_TRUE(save({}, settings).failed()) << what;
      EXPECT_EQ(text(file.bytes), content) << what;
    }
  }
}

TEST(PdfAppend, AnAdditionThatWasCutOffIsWrittenOverBySafeSaves) {
  MemoryFile file;
  ASSERT_EQ(save({}), kOk);
  const Bytes one = file.bytes;
  ASSERT_EQ(save({}), kOk);
  const Bytes two = file.bytes;
  const Settings safe{{IMG_OPTION_SAFE_SAVING, 1}};
  for (std::size_t size = one.size(); size < two.size(); size += 1 + size % 13) {
    file.bytes.assign(two.begin(), two.begin() + static_cast<std::ptrdiff_t>(size));
    EXPECT_EQ(can_append(safe), kOk) << size;
    ASSERT_EQ(save({}, safe), kOk) << size;
    const std::string document = text(file.bytes);
    EXPECT_EQ(Reader(document).count(), 2) << size;
  }
}

TEST(PdfAppend, DocumentsEndWhereNoOffsetReachesAnyMore) {
  std::string own = document_of({});
  const std::size_t table = own.rfind("xref\n0 "), ahead = 2100,
                    padding = 3300;  // more than windows reach
  own.insert(table, std::string(padding, ' '));
  const auto add_page = [&](std::int64_t size) {
    // The number is longer than it was, in two places.
    const std::int64_t hole = size - static_cast<std::int64_t>(own.size()) - 14;
    const std::string near = std::to_string(table);
    const std::string far = std::to_string(static_cast<std::int64_t>(table + padding) + hole);
    MemoryFile file(bytes_of(replaced(replaced(own, "[1 " + near, "[1 " + far),
                                      "startxref\n" + near, "startxref\n" + far)));
    file.hole_at = static_cast<std::int64_t>(table + ahead);
    file.hole = hole;
    const std::size_t before = file.bytes.size();
    EXPECT_EQ(before + hole, size);
    const Status saved = save({});
    EXPECT_EQ(saved, saved.ok() ? StatusCode::ok : StatusCode::write_failed);
    return saved.ok() ? static_cast<std::int64_t>(file.bytes.size() - before) : -1;
  };
  const std::int64_t page = add_page(2'000'000'000);
  EXPECT_GT(page, 900);
  EXPECT_EQ(add_page(INT32_MAX - page), page);
  EXPECT_EQ(add_page(INT32_MAX - page + 1), -1);
}

}  // namespace
}  // namespace tq::test
