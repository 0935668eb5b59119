// Scanning over a libsane of the test's own: what is negotiated, what comes, what goes wrong where.
#include <gtest/gtest.h>

#include <thread>

#include "core/memory.h"
#include "scan/sane_session.h"
#include "tests/support/fake_sane.h"
#include "tests/support/image_builder.h"
#include "tests/support/library_test.h"
#include "tests/support/scratch_folder.h"

namespace tq::scan {
namespace {

using test::Bytes;
using test::FakeSane;
using test::Image;
using test::Rows;

// Keeps the rows of what comes; answers what it is told.
struct Taker {
  std::vector<Rows> pages;
  std::int32_t answer = 0, answer_from = INT32_MAX;
  std::function<void(std::int32_t image)> look = {};

  static std::int32_t IMG_CB_STD take(std::intptr_t self, std::int32_t handle, std::int32_t page) {
    auto& taker = *reinterpret_cast<Taker*>(self);
    const Image image(handle);
    EXPECT_EQ(page, static_cast<std::int32_t>(taker.pages.size()));
    taker.pages.push_back(test::rows_of_image(image));
    if (taker.look) taker.look(image);
    return page >= taker.answer_from ? taker.answer : 0;
  }
  std::int32_t scan() { return IMG_scan_pages(take, reinterpret_cast<std::intptr_t>(this)); }
};

class SaneFailures : public test::LibraryTest {
 protected:
  ~SaneFailures() override {
    for (std::int32_t option = 1; option <= IMG_SCAN_MAX_PAGES; ++option) IMG_scan_set(option, 0);
  }
};

class SaneScanning : public SaneFailures {
 protected:
  void open() { ASSERT_EQ(IMG_scan_open(nullptr, nullptr), IMG_OK) << IMG_scan_reason(nullptr, 0); }
  static std::string reason() {
    char text[100];
    IMG_scan_reason(text, sizeof text);
    return text;
  }
  FakeSane fake;
};

TEST_F(SaneScanning, SourcesAreListed) {
  char name[5] = "????";
  EXPECT_EQ(IMG_scan_source(0, name, sizeof name), 1);
  EXPECT_STREQ(name, "fake");
  EXPECT_EQ(IMG_scan_source(1, nullptr, 0), 0);
  EXPECT_EQ(IMG_scan_source(-1, name, 5), 0);
  EXPECT_EQ(IMG_scan_select(nullptr, name, 5), IMG_UNSUPPORTED);
  EXPECT_EQ(IMG_scan_open(nullptr, "other:0"), IMG_NO_SCANNER_SESSION);
  EXPECT_EQ(IMG_scan_reason(nullptr, 0), sane::kInvalid);
  fake.has_device = false;
  EXPECT_EQ(IMG_scan_open(nullptr, nullptr), IMG_NO_SCANNER_SESSION);
  EXPECT_EQ(reason(), "no device was found");
}

TEST_F(SaneScanning, OptionsAreNegotiated) {
  struct Case {
    std::int32_t option, value, status, in_force;
  };
  constexpr Case kCases[] = {
      {IMG_SCAN_MODE, 24, 0, 24},
      {IMG_SCAN_MODE, 8, 0, 8},
      {IMG_SCAN_MODE, 1, 0, 1},
      {IMG_SCAN_MODE, 16, IMG_UNSUPPORTED, 1},
      {IMG_SCAN_RESOLUTION, 300000, 0, 300000},
      {IMG_SCAN_RESOLUTION, 200000, 1, 150000},
      {IMG_SCAN_RESOLUTION, 99999999, IMG_UNSUPPORTED, 150000},
      {IMG_SCAN_DUPLEX, 0, 0, 0},
      {IMG_SCAN_FEEDER, 1, 0, 1},
      {IMG_SCAN_DUPLEX, 1, 0, 1},
      {IMG_SCAN_LEFT, 1000, 0, 1000},
      {IMG_SCAN_WIDTH, 4000, 0, 4000},
      {IMG_SCAN_TOP, 500, 0, 500},
      {IMG_SCAN_HEIGHT, 20000, 1, 11193},  // 297 mm less half an inch
      {IMG_SCAN_HEIGHT, 0, 0, 11193},
      {IMG_SCAN_BRIGHTNESS, -1000, 0, -1000},
      {IMG_SCAN_BRIGHTNESS, 500, 0, 500},
      {IMG_SCAN_BRIGHTNESS, 333, 1, 330},
      {IMG_SCAN_CONTRAST, 0, 0, 0},
      {IMG_SCAN_THRESHOLD, 200, 0, 200},
      {IMG_SCAN_PAPER_LOADED, 1, IMG_UNSUPPORTED, 0},
      {IMG_SCAN_TRANSFER, 3, 0, 3},
  };
  open();
  for (const Case& c : kCases) {
    SCOPED_TRACE(testing::Message() << c.option << " = " << c.value);
    EXPECT_EQ(IMG_scan_set(c.option, c.value), c.status);
    std::int32_t value = -1;
    EXPECT_EQ(IMG_scan_get(c.option, &value), IMG_OK);
    EXPECT_EQ(value, c.in_force);
  }
  EXPECT_STREQ(fake.option("source").strings[fake.option("source").value], "ADF Duplex");
  EXPECT_EQ(fake.option("brightness").value, 33);
  EXPECT_EQ(fake.option("contrast").value, 100);
  EXPECT_EQ(IMG_scan_set(0, 0), IMG_UNSUPPORTED);
  EXPECT_EQ(IMG_scan_get(16, nullptr), IMG_UNSUPPORTED);

  // What the device does not have is kept, and refused.
  fake.option("threshold").name = "something";
  EXPECT_EQ(IMG_scan_set(IMG_SCAN_THRESHOLD, 7), IMG_SCANNER_REQUEST);
  EXPECT_EQ(IMG_scan_get(IMG_SCAN_THRESHOLD, nullptr), IMG_SCANNER_REQUEST);
  EXPECT_EQ(IMG_scan_close(), IMG_OK);
  std::int32_t value = 0;
  EXPECT_EQ(IMG_scan_get(IMG_SCAN_THRESHOLD, &value), IMG_OK);
  EXPECT_EQ(value, 7);
  EXPECT_EQ(IMG_scan_get(IMG_SCAN_PAPER_LOADED, &value), IMG_NO_SCANNER_SESSION);
}

TEST_F(SaneScanning, ValuesAreTold) {
  open();
  std::int32_t values[3] = {};
  EXPECT_EQ(IMG_scan_values(IMG_SCAN_RESOLUTION, values, 3), 4);
  EXPECT_EQ(values[2], 300000);
  EXPECT_EQ(IMG_scan_values(IMG_SCAN_MODE, values, 3), 3);
  EXPECT_EQ(values[1], 8);
  EXPECT_EQ(IMG_scan_values(IMG_SCAN_FEEDER, values, 3), 2);
  EXPECT_EQ(IMG_scan_values(IMG_SCAN_CONTRAST, values, 3), 3 | IMG_SCAN_IS_RANGE);
  EXPECT_EQ(values[0], -1000);
  EXPECT_EQ(values[2], 10);
  EXPECT_EQ(IMG_scan_values(IMG_SCAN_WIDTH, values, 3), 3 | IMG_SCAN_IS_RANGE);
  EXPECT_EQ(values[1], 8504);
  EXPECT_EQ(IMG_scan_values(IMG_SCAN_MAX_PAGES, values, 3), IMG_SCANNER_REQUEST);
  EXPECT_EQ(IMG_scan_values(99, values, 3), IMG_UNSUPPORTED);
}

// Rows of the library from a frame's, by the same model as the page builder's test has in full.
Rows expected(const FakeSane::Page& page) {
  const sane::Parameters& told = page[0].parameters;
  const auto stride = static_cast<std::size_t>(told.bytes_per_line);
  const bool is_grey = told.format == sane::kGray;
  const int bits = !is_grey ? 24 : told.depth == 1 ? 1 : 8;
  const auto bytes = static_cast<std::size_t>(std::max(told.depth / 8, 1));
  Rows rows;
  for (std::size_t y = 0; y < page[0].data.size() / stride; ++y) {
    test::Pixels pixels;
    const auto sample = [&](std::size_t i, const FakeSane::Frame& frame) -> std::uint32_t {
      const std::uint8_t* const row = frame.data.data() + y * stride;
      return told.depth == 1 ? 1 & ~(row[i / 8] >> (7 - i % 8)) : row[bytes * i + bytes - 1];
    };
    for (std::size_t x = 0; x < static_cast<std::size_t>(told.pixels_per_line); ++x) {
      if (is_grey) {
        pixels.push_back(sample(x, page[0]));
        continue;
      }
      std::uint32_t colour = 0;  // red is the highest
      for (std::size_t channel = 0; channel < 3; ++channel) {
        for (const FakeSane::Frame& frame : page) {
          const std::int32_t format = frame.parameters.format;
          if (format == sane::kRgb) colour = colour << 8 | sample(3 * x + channel, frame);
          if (format == sane::kRed + std::int32_t(channel)) colour = colour << 8 | sample(x, frame);
        }
      }
      pixels.push_back(colour);
    }
    rows.push_back(test::pack(pixels, bits, bits == 1 ? 0xFF : 0));
  }
  return rows;
}

std::vector<FakeSane::Page> pages_of_every_kind() {
  const auto frame = FakeSane::frame;
  return {{frame(sane::kGray, 1, 77, 40, true)},
          {frame(sane::kGray, 8, 33, 7, true)},
          {frame(sane::kGray, 16, 5, 3, true)},
          {frame(sane::kRgb, 8, 21, 9, true)},
          {frame(sane::kRgb, 16, 4, 2, true)},
          {frame(sane::kGray, 8, 12, -1100, true)},
          {frame(sane::kGreen, 8, 6, 5, false), frame(sane::kBlue, 8, 6, 5, false),
           frame(sane::kRed, 8, 6, 5, true)},
          {frame(sane::kRed, 16, 3, -4, false), frame(sane::kGreen, 16, 3, -4, false),
           frame(sane::kBlue, 16, 3, -4, true)}};
}

TEST_F(SaneScanning, PagesComeAsTheyAre) {
  IMG_scan_set(IMG_SCAN_FEEDER, 1);
  IMG_scan_set(IMG_SCAN_RESOLUTION, 150000);
  for (const std::size_t most : {std::size_t{1}, std::size_t{7}, std::size_t{1} << 20}) {
    FakeSane& device = fake;
    open();
    const auto pages = pages_of_every_kind();
    device.pages.insert(device.pages.end(), pages.begin(), pages.end());
    device.most_per_read = most;
    const int cancels = device.cancels;
    Taker taker;
    taker.look = [](std::int32_t image) {
      std::int32_t x = 0, y = 0;
      EXPECT_EQ(IMG_get_resolution(image, &x, &y), IMG_OK);
      EXPECT_EQ(x, 150000);
      EXPECT_EQ(IMG_scan_set(IMG_SCAN_MODE, 8), IMG_NO_SCANNER_SESSION) << "a scan is at work";
    };
    EXPECT_EQ(taker.scan(), static_cast<std::int32_t>(pages.size()));
    for (std::size_t i = 0; i < pages.size(); ++i) {
      EXPECT_EQ(taker.pages[i], expected(pages[i])) << "page " << i;
    }
    EXPECT_EQ(device.cancels, cancels + 1) << "once, after the last page";
    EXPECT_EQ(taker.scan(), 0) << "the feeder is empty";
  }
}

TEST_F(SaneScanning, EndsAsItShould) {
  struct Case {
    std::int32_t feeder, most_pages, after_last, result;
    std::size_t pages;
  };
  const Case kCases[] = {
      {0, 0, sane::kNoDocuments, 1, 1},
      {1, 2, sane::kNoDocuments, 2, 2},
      {1, 0, sane::kInvalid, 3, 3},
      {1, 0, sane::kCancelled, 3, 3},
      {1, 0, sane::kJammed, IMG_READ_FAILED, 3},
      {1, 0, sane::kCoverOpen, IMG_READ_FAILED, 3},
      {1, 0, sane::kNoMemory, IMG_OUT_OF_MEMORY, 3},
      {1, 0, sane::kDeviceBusy, IMG_NO_SCANNER_SESSION, 3},
  };
  for (const Case& c : kCases) {
    EXPECT_EQ(IMG_scan_close(), IMG_OK);
    IMG_scan_set(IMG_SCAN_FEEDER, c.feeder);
    IMG_scan_set(IMG_SCAN_MAX_PAGES, c.most_pages);
    FakeSane::Page page = {FakeSane::frame(sane::kGray, 8, 4, 3)};
    fake.pages.insert(fake.pages.end(), 3, page);
    fake.after_last = c.after_last;
    open();
    Taker taker;
    EXPECT_EQ(taker.scan(), c.result);
    EXPECT_EQ(taker.pages.size(), c.pages);
    if (c.result < 0) {
      EXPECT_EQ(IMG_scan_reason(nullptr, 0), c.after_last);
    }
    while (Taker().scan() > 0) continue;
  }
  // A kind of pixels that is not taken; a page without rows.
  fake.after_last = sane::kNoDocuments;
  fake.pages.push_back({FakeSane::frame(sane::kRgb, 1, 4, 3)});
  EXPECT_EQ(Taker().scan(), IMG_UNSUPPORTED);
  fake.pages.back() = {FakeSane::frame(sane::kGray, 8, 4, 0)};
  EXPECT_EQ(Taker().scan(), IMG_BAD_IMAGE);
  EXPECT_EQ(reason(), "");
}

std::int32_t IMG_CB_STD refuse_row(std::intptr_t, std::int32_t) {
  return -55;
}

TEST_F(SaneScanning, CallersEndIt) {
  IMG_scan_set(IMG_SCAN_FEEDER, 1);
  open();
  fake.pages.assign(9, {FakeSane::frame(sane::kGray, 8, 300, 300)});
  EXPECT_EQ(IMG_scan_cancel(), IMG_NO_SCANNER_SESSION);
  Taker refusing;
  refusing.answer = -44;
  refusing.answer_from = 1;
  EXPECT_EQ(refusing.scan(), -44);
  EXPECT_EQ(refusing.pages.size(), 2u);

  IMG_set_statusbar(0, refuse_row, 1);
  EXPECT_EQ(Taker().scan(), -55);
  IMG_set_statusbar(0, nullptr, 0);

  Taker cancelling;
  cancelling.look = [](std::int32_t) { EXPECT_EQ(IMG_scan_cancel(), IMG_OK); };
  EXPECT_EQ(cancelling.scan(), IMG_STOP_AFTER_HEADER);
  EXPECT_EQ(cancelling.pages.size(), 1u);

  fake.most_per_read = 1;
  fake.during_call = [&, start = fake.calls](int call) {
    if (call == start + 1000) std::thread([] { EXPECT_EQ(IMG_scan_cancel(), IMG_OK); }).join();
    EXPECT_LE(call, start + 1001);
  };
  EXPECT_EQ(Taker().scan(), IMG_STOP_AFTER_HEADER) << "from another thread, within a page";
}

// The n-th call of SANE's fails, by its own failure or for lack of memory: pages before it are whole,
// and the device is left as it should be.
TEST_F(SaneFailures, AnyCallMayFail) {
  const auto pages = pages_of_every_kind();
  std::vector<Rows> all;
  for (const FakeSane::Page& page : pages) all.push_back(expected(page));
  for (const std::int32_t failure : {sane::kIoError, sane::kNoMemory, sane::kCancelled}) {
    for (int failing = 0;; ++failing) {
      SCOPED_TRACE(testing::Message() << "call " << failing << " answers " << failure);
      for (const std::int32_t option : {IMG_SCAN_FEEDER, IMG_SCAN_DUPLEX, IMG_SCAN_MODE}) {
        IMG_scan_set(option, 1);
      }
      FakeSane fake;
      fake.pages = pages;
      fake.failing_call = failing;
      fake.failure = failure;
      Taker taker;
      std::int32_t result = IMG_scan_open(nullptr, nullptr);
      if (result == IMG_OK) result = taker.scan();
      for (std::size_t i = 0; i < taker.pages.size(); ++i) {
        ASSERT_EQ(taker.pages[i], all[i]);
      }
      ASSERT_TRUE(result < 0 || result == static_cast<std::int32_t>(taker.pages.size()));
      if (result < 0) {
        ASSERT_TRUE(result == IMG_READ_FAILED || result == IMG_OUT_OF_MEMORY ||
                    result == IMG_NO_SCANNER_SESSION);
        ASSERT_EQ(IMG_scan_reason(nullptr, 0), failure);
      }
      ASSERT_FALSE(fake.is_scanning);
      ASSERT_EQ(memory_probe::tracked_blocks(), 0);
      ASSERT_EQ(blocks(), 0);
      if (fake.calls <= failing) {
        ASSERT_EQ(result, static_cast<std::int32_t>(pages.size()));
        break;
      }
    }
  }
}

TEST_F(SaneScanning, PagesBecomeFiles) {
  const test::ScratchFolder folder;
  IMG_scan_set(IMG_SCAN_FEEDER, 1);
  IMG_scan_set(IMG_SCAN_RESOLUTION, 300000);
  open();
  const FakeSane::Page page = {FakeSane::frame(sane::kGray, 1, 40, 30)};
  const auto fill = [&] { fake.pages.insert(fake.pages.end(), 3, page); };
  const std::string one = folder.file("all.dcx");

  fill();
  const int calls = fake.calls;
  EXPECT_EQ(IMG_scan_to_files(folder.file("one.bmp").c_str(), 1, -1), IMG_UNSUPPORTED);
  EXPECT_EQ(IMG_scan_to_files(folder.file("a#.bmp").c_str(), 1, 999), IMG_UNSUPPORTED);
  EXPECT_EQ(IMG_scan_to_files(folder.file("a#.bmp").c_str(), -1, -1), IMG_UNSUPPORTED);
  EXPECT_EQ(IMG_scan_to_files(nullptr, 1, IMG_TYPE_BMP), IMG_UNSUPPORTED);
  EXPECT_EQ(fake.calls, calls) << "nothing has moved";

  EXPECT_EQ(IMG_scan_to_files(folder.file("a#b-##.bmp").c_str(), 9, -1), 3);
  for (const char* name : {"a#b-09.bmp", "a#b-10.bmp", "a#b-11.bmp"}) {
    const Image image(IMG_decompress_bitmap(folder.file(name).c_str()));
    ASSERT_GE(image, 0) << name;
    EXPECT_EQ(test::rows_of_image(image), expected(page));
    EXPECT_NEAR(resolution_of(image.record()).x, 300000, 1);
  }
  for (const std::int32_t pages : {3, 6}) {
    fill();
    EXPECT_EQ(IMG_scan_to_files(one.c_str(), 1, IMG_TYPE_BY_NAME), 3);
    EXPECT_EQ(IMGLOW_get_pages(one.c_str()), pages) << "they are added";
    fill();
    EXPECT_EQ(IMG_scan_to_files(folder.file("#.dcx").c_str(), 1, IMG_TYPE_BY_NAME), 3);
    EXPECT_EQ(IMGLOW_get_pages(folder.file("1.dcx").c_str()), 1) << "a file for each";
  }

  fill();
  EXPECT_EQ(IMG_scan_to_files(folder.file("missing/a#.bmp").c_str(), 1, -1), IMG_CANNOT_CREATE);
  EXPECT_EQ(blocks(), 0);
}

}  // namespace
}  // namespace tq::scan
