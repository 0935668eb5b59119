// Scanning over a TWAIN manager of the test's own: what is negotiated, how pages come, what goes wrong
// where, and that the way down is always gone to its end.
#include <gtest/gtest.h>

#include "core/context.h"
#include "core/memory.h"
#include "scan/options.h"
#include "tests/support/fake_twain.h"
#include "tests/support/image_builder.h"
#include "tests/support/library_test.h"
#include "tests/support/scratch_folder.h"

namespace tq::scan {
namespace {

using test::Bytes;
using test::FakeTwain;
using test::Image;
using test::Rows;

struct Taker {
  std::vector<Rows> pages;
  std::vector<Resolution> resolutions;
  std::int32_t answer = 0;
  std::size_t answer_at = SIZE_MAX;
  std::function<void()> look = {};

  static std::int32_t IMG_CB_STD take(std::intptr_t self, std::int32_t handle, std::int32_t page) {
    auto& taker = *reinterpret_cast<Taker*>(self);
    const Image image(handle);
    EXPECT_EQ(page, static_cast<std::int32_t>(taker.pages.size()));
    taker.pages.push_back(test::rows_of_image(image));
    taker.resolutions.push_back(resolution_of(image.record()));
    if (taker.look) taker.look();
    return taker.pages.size() > taker.answer_at ? taker.answer : 0;
  }
  std::int32_t scan() { return IMG_scan_pages(take, reinterpret_cast<std::intptr_t>(this)); }
};

// What a page is in the library: from strips, or from its DIB.
Rows from_strips(const FakeTwain::Page& page, bool inverted = false) {
  const auto row_bytes = page.rows.size() / static_cast<std::size_t>(page.height);
  const int bits = page.bits == 1 ? 1 : page.type == twain::kRgb ? 24 : 8;
  const std::size_t bytes = page.bits == 16 || page.bits == 48 ? 2 : 1;
  Rows rows;
  for (std::size_t y = 0; y < static_cast<std::size_t>(page.height); ++y) {
    const std::uint8_t* const row = page.rows.data() + y * row_bytes;
    test::Pixels pixels;
    for (std::size_t x = 0; x < static_cast<std::size_t>(page.width); ++x) {
      const auto sample = [&](std::size_t i) -> std::uint32_t {
        return row[bytes * i + bytes - 1];
      };
      if (bits == 1) {
        pixels.push_back((row[x / 8] >> (7 - x % 8) & 1) ^ (inverted ? 1 : 0));
      } else if (bits == 8) {
        pixels.push_back(sample(x));
      } else {
        pixels.push_back(sample(3 * x) << 16 | sample(3 * x + 1) << 8 | sample(3 * x + 2));
      }
    }
    rows.push_back(test::pack(pixels, bits, bits == 1 ? 0xFF : 0));
  }
  return rows;
}

Rows from_dib(const FakeTwain::Page& page, bool inverted = false) {
  BitmapInfoHeader header;
  std::memcpy(&header, page.dib.data(), sizeof header);
  const int bits = header.biBitCount;
  const std::size_t stride = test::stride(header.biWidth, bits);
  const std::uint8_t* const pixels = page.dib.data() + 40 + palette_bytes(bits);
  Rows rows;
  for (std::int32_t y = header.biHeight - 1; y >= 0; --y) {
    const std::uint8_t* const at = pixels + static_cast<std::size_t>(y) * stride;
    Bytes row(at, at + stride);
    if (inverted) {
      for (std::uint8_t& byte : row) byte ^= 0xFF;
    }
    if (bits == 1) row = test::pack(test::unpack(row, header.biWidth, 1), 1, 0xFF);
    rows.push_back(row);
  }
  return rows;
}

class TwainFailures : public test::LibraryTest {
 protected:
  ~TwainFailures() override { reset(); }
  static void reset() {
    for (std::int32_t option = 1; option <= IMG_SCAN_MAX_PAGES; ++option) IMG_scan_set(option, 0);
  }
  static std::int32_t reason() { return IMG_scan_reason(nullptr, 0); }
};

class TwainScanning : public TwainFailures {
 protected:
  void open() { ASSERT_EQ(IMG_scan_open(nullptr, nullptr), IMG_OK) << reason(); }
  FakeTwain fake;
};

TEST_F(TwainScanning, SourcesAreListedAndChosen) {
  char name[40] = {};
  EXPECT_EQ(IMG_scan_source(0, name, sizeof name), 1);
  EXPECT_STREQ(name, "Fake source");
  EXPECT_EQ(IMG_scan_source(1, name, sizeof name), 0);
  EXPECT_EQ(fake.state, 2) << "the manager was open for the calls alone";
  EXPECT_EQ(IMG_scan_select(nullptr, name, 5), 1);
  EXPECT_STREQ(name, "Fake");
  fake.condition = twain::kNoSource;
  EXPECT_EQ(IMG_scan_select(nullptr, name, 5), 0) << "cancelled";
  EXPECT_EQ(IMG_scan_open(nullptr, "Another"), IMG_NO_SCANNER_SESSION);
  EXPECT_EQ(reason(), twain::kNoSource);
  EXPECT_EQ(IMG_scan_open(nullptr, "Fake source"), IMG_OK);
  EXPECT_EQ(fake.state, 4);
  EXPECT_EQ(IMG_scan_source(0, name, sizeof name), 1);
  EXPECT_EQ(fake.state, 4) << "and stays open";
}

TEST_F(TwainScanning, OptionsAreNegotiated) {
  struct Case {
    std::int32_t option, value, status, in_force;
  };
  constexpr Case kCases[] = {
      {IMG_SCAN_MODE, 24, 0, 24},
      {IMG_SCAN_MODE, 1, 0, 1},
      {IMG_SCAN_RESOLUTION, 300000, 0, 300000},
      {IMG_SCAN_RESOLUTION, 260000, 1, 300000},
      {IMG_SCAN_FEEDER, 1, 0, 1},
      {IMG_SCAN_DUPLEX, 1, 0, 1},
      {IMG_SCAN_LEFT, 1000, 0, 1000},
      {IMG_SCAN_WIDTH, 2500, 0, 2500},
      {IMG_SCAN_HEIGHT, 0, 0, 11000},
      {IMG_SCAN_BRIGHTNESS, -2000, IMG_UNSUPPORTED, 0},
      {IMG_SCAN_BRIGHTNESS, -500, 0, -500},
      {IMG_SCAN_THRESHOLD, 99, 0, 99},
      {IMG_SCAN_PAPER_LOADED, 0, IMG_UNSUPPORTED, 1},
  };
  open();
  EXPECT_EQ(fake.capabilities[twain::kDuplexEnabled].current, 0) << "what was left on is off";
  for (const Case& c : kCases) {
    SCOPED_TRACE(testing::Message() << c.option << " = " << c.value);
    EXPECT_EQ(IMG_scan_set(c.option, c.value), c.status);
    std::int32_t value = -1;
    EXPECT_EQ(IMG_scan_get(c.option, &value), IMG_OK);
    EXPECT_EQ(value, c.in_force);
  }
  EXPECT_EQ(IMG_scan_set(IMG_SCAN_CONTRAST, 7), IMG_SCANNER_REQUEST);
  EXPECT_EQ(reason(), 13);
  fake.capabilities[twain::kPaperDetectable].current = 0;
  EXPECT_EQ(IMG_scan_get(IMG_SCAN_PAPER_LOADED, nullptr), IMG_SCANNER_REQUEST);

  std::int32_t values[4] = {};
  EXPECT_EQ(IMG_scan_values(IMG_SCAN_RESOLUTION, values, 4), 3);
  EXPECT_EQ(values[1], 200000);
  EXPECT_EQ(IMG_scan_values(IMG_SCAN_MODE, values, 4), 3) << "palettes have no number";
  EXPECT_EQ(values[2], 24);
  EXPECT_EQ(IMG_scan_values(IMG_SCAN_BRIGHTNESS, values, 4), 3 | IMG_SCAN_IS_RANGE);
  EXPECT_EQ(values[0], -1000);
  EXPECT_EQ(values[2], 10);
  EXPECT_EQ(IMG_scan_values(IMG_SCAN_LEFT, values, 4), 3 | IMG_SCAN_IS_RANGE);
  EXPECT_EQ(values[1], 8500);
  EXPECT_EQ(IMG_scan_values(IMG_SCAN_DUPLEX, values, 4), 2);
}

std::vector<FakeTwain::Page> pages_of_every_kind() {
  const auto page = FakeTwain::page;
  std::vector<FakeTwain::Page> pages = {
      page(twain::kBlackWhite, 1, 77, 40), page(twain::kGrey, 8, 33, 19),
      page(twain::kGrey, 16, 9, 5),        page(twain::kRgb, 24, 21, 30),
      page(twain::kRgb, 48, 6, 4),         page(twain::kPalette, 8, 12, 9),
      page(twain::kRgb, 24, 50, 70),       page(twain::kBlackWhite, 1, 90, 33)};
  pages[1].height_is_told = pages[6].height_is_told = false;
  pages[3].strips = {1, 0, 5, 2, 9};
  pages[4].tile_columns = 4;
  pages[6].tile_columns = 16;
  pages[7].tile_columns = 32;
  return pages;
}

TEST_F(TwainScanning, StripsBecomePages) {
  fake.pages = pages_of_every_kind();
  IMG_scan_set(IMG_SCAN_FEEDER, 1);
  open();
  Taker taker;
  ASSERT_EQ(taker.scan(), static_cast<std::int32_t>(fake.pages.size())) << reason();
  for (std::size_t i = 0; i < fake.pages.size(); ++i) {
    EXPECT_EQ(taker.pages[i], from_strips(fake.pages[i])) << "page " << i;
    EXPECT_EQ(taker.resolutions[i].x, 300000);
  }
  EXPECT_EQ(fake.state, 4);
  EXPECT_EQ(fake.shown, 0);
  EXPECT_EQ(fake.capabilities[twain::kIndicators].current, 0) << "nothing pops up";
  EXPECT_EQ(fake.capabilities[twain::kTransferCount].current, -kOne);

  // 0 is white.
  fake.next_page = 7;
  fake.capabilities[twain::kPixelFlavor].current = kOne;
  Taker inverted;
  EXPECT_EQ(inverted.scan(), 1);
  EXPECT_EQ(inverted.pages[0], from_strips(fake.pages[7], true));
}

// By handle, where the block itself becomes the image or is decoded, and by file.
TEST_F(TwainScanning, WholePagesBecomeImages) {
  struct Case {
    int bits;
    bool white_first;
    std::int32_t header_bytes;
  };
  constexpr Case kCases[] = {{24, false, 40}, {8, false, 40}, {1, false, 40},
                             {1, true, 40},   {4, false, 40}, {24, false, 124}};
  for (const std::int32_t transfer : {2, 3}) {
    fake.pages.clear();
    fake.next_page = 0;
    for (const Case& c : kCases) {
      FakeTwain::Page page = FakeTwain::page(twain::kRgb, 24, 35, 12);
      page.dib = test::make_dib(35, 12, c.bits, c.white_first);
      if (c.header_bytes > 40) {
        page.dib.insert(page.dib.begin() + 40, static_cast<std::size_t>(c.header_bytes - 40), 0);
        page.dib[0] = static_cast<std::uint8_t>(c.header_bytes);
        if (transfer == 3) continue;  // the test's file says where pixels begin
      }
      fake.pages.push_back(page);
    }
    IMG_scan_set(IMG_SCAN_TRANSFER, transfer);
    open();
    // The caller's settings are for files of his own.
    IMGLOW_set_decompsize(2, 2);
    IMGLOW_set_decomp_reduction(1);
    Taker taker;
    ASSERT_EQ(taker.scan(), static_cast<std::int32_t>(fake.pages.size())) << reason();
    EXPECT_EQ(context().settings.decomp_size.width, 2);
    IMGLOW_set_decompsize(0, 0);
    IMGLOW_set_decomp_reduction(0);
    for (std::size_t i = 0; i < fake.pages.size(); ++i) {
      FakeTwain::Page page = fake.pages[i];
      page.dib.erase(page.dib.begin() + 40, page.dib.begin() + kCases[i].header_bytes);
      EXPECT_EQ(taker.pages[i], from_dib(page, kCases[i].white_first)) << "page " << i;
      EXPECT_EQ(taker.resolutions[i].y, 300000) << "as the source says, not the DIB";
    }
    EXPECT_EQ(fake.handles, 0);
    EXPECT_EQ(blocks(), 0);
  }
}

// 96 dots per inch are the screen's, as long as the source says otherwise itself.
TEST_F(TwainScanning, ResolutionIsThePages) {
  struct Case {
    std::int32_t page, source, expected;
  };
  constexpr Case kCases[] = {{300, 200, 300}, {96, 200, 200}, {72, 300, 300},
                             {0, 200, 200},   {96, 96, 96},   {0, 0, 600}};
  IMG_scan_set(IMG_SCAN_RESOLUTION, 600000);
  for (const Case& c : kCases) {
    fake.pages.assign(1, FakeTwain::page(twain::kGrey, 8, 3, 3));
    fake.pages[0].dpi = c.page;
    fake.next_page = 0;
    open();
    Taker taker;
    // The request is made again when the scan begins; then the source says its own.
    fake.during_wait = [&, c] {
      fake.capabilities[twain::kXResolution].current = c.source * kOne;
      fake.capabilities[twain::kYResolution].current = c.source * kOne;
    };
    ASSERT_EQ(taker.scan(), 1);
    EXPECT_EQ(taker.resolutions[0].x, c.expected * 1000) << c.page;
  }
}

TEST_F(TwainScanning, OtherWaysAreTakenWhereOneIsRefused) {
  fake.pages.assign(2, FakeTwain::page(twain::kRgb, 24, 8, 8));
  fake.pages[0].planar = 1;
  open();
  Taker planar;
  EXPECT_EQ(planar.scan(), 2);
  EXPECT_EQ(planar.pages[0], from_dib(fake.pages[0]));
  EXPECT_EQ(planar.pages[1], from_strips(fake.pages[1]));

  fake.next_page = 0;
  fake.capabilities[twain::kMechanism].values = {0};
  Taker native;
  EXPECT_EQ(native.scan(), 2);
  EXPECT_EQ(native.pages[1], from_dib(fake.pages[1]));
  IMG_scan_set(IMG_SCAN_TRANSFER, 1);
  EXPECT_EQ(Taker().scan(), IMG_UNSUPPORTED) << "memory and nothing else was asked for";
}

TEST_F(TwainFailures, EndsAsItShould) {
  using namespace twain;
  struct Case {
    const char* what;
    void (*prepare)(FakeTwain& fake);
    std::int32_t result;
    std::size_t pages;
    std::int32_t reason;
  };
  constexpr Case kCases[] = {
      {"all goes well", [](FakeTwain&) {}, 3, 3, 0},
      {"empty feeder", [](FakeTwain& f) { f.capabilities[kFeederLoaded].current = 0; }, 0, 0, 0},
      {"the window is closed",
       [](FakeTwain& f) {
         f.events = {kDeviceEvent, kCloseRequest};
       },
       0, 0, 0},
      {"cancelled while enabling", [](FakeTwain& f) { f.enabling = kCancel; }, 0, 0, 0},
      {"refused",
       [](FakeTwain& f) {
         f.enabling = kFailure;
         f.condition = kMaxConnections;
       },
       IMG_NO_SCANNER_SESSION, 0, kMaxConnections},
      {"empty, as it finds",
       [](FakeTwain& f) {
         f.enabling = kFailure;
         f.condition = kNoMedia;
       },
       0, 0, kNoMedia},
      {"no dialog of its own", [](FakeTwain& f) { f.enabling = kCheckStatus; }, 3, 3, 0},
      {"jam",
       [](FakeTwain& f) {
         f.failing_page = 1;
         f.condition = kPaperJam;
       },
       IMG_READ_FAILED, 1, kPaperJam},
      {"cover",
       [](FakeTwain& f) {
         f.failing_page = 2;
         f.condition = kInterlock;
       },
       IMG_READ_FAILED, 2, kInterlock},
      {"no memory",
       [](FakeTwain& f) {
         f.failing_page = 0;
         f.condition = kLowMemory;
       },
       IMG_OUT_OF_MEMORY, 0, kLowMemory},
      {"a page is cancelled", [](FakeTwain& f) { f.cancelled_page = 1; }, 2, 2, 0},
      {"nobody knows how many", [](FakeTwain& f) { f.counts_pages = false; }, 3, 3, 0},
      {"two are enough", [](FakeTwain&) { IMG_scan_set(IMG_SCAN_MAX_PAGES, 2); }, 2, 2, 0},
      {"nothing can be set",
       [](FakeTwain& f) {
         f.refused = {kTransferCount, kPixelType,     kUnits,       kFeederEnabled, kAutoFeed,
                      kIndicators,    kDuplexEnabled, kXResolution, kPixelFlavor,   kBitDepth};
       },
       3, 3, 0},
  };
  for (const std::int32_t transfer : {0, 2, 3}) {
    for (const Case& c : kCases) {
      SCOPED_TRACE(testing::Message() << c.what << ", transfer " << transfer);
      FakeTwain fake(transfer == 2);
      fake.pages.assign(3, FakeTwain::page(kGrey, 8, 5, 20));
      reset();
      IMG_scan_set(IMG_SCAN_FEEDER, 1);
      IMG_scan_set(IMG_SCAN_TRANSFER, transfer);
      c.prepare(fake);
      ASSERT_EQ(IMG_scan_open(nullptr, nullptr), IMG_OK);
      Taker taker;
      EXPECT_EQ(taker.scan(), c.result);
      EXPECT_EQ(taker.pages.size(), c.pages);
      EXPECT_EQ(reason(), c.reason);
      EXPECT_EQ(fake.state, 4);
      EXPECT_EQ(fake.stopped, c.what == std::string("two are enough") ? 1 : 0);
    }
  }
}

std::int32_t IMG_CB_STD refuse_row(std::intptr_t, std::int32_t) {
  return -55;
}

TEST_F(TwainScanning, CallersEndIt) {
  fake.pages.assign(5, FakeTwain::page(twain::kGrey, 8, 5, 20));
  open();
  Taker refusing;
  refusing.answer = -44;
  refusing.answer_at = 1;
  EXPECT_EQ(refusing.scan(), -44);
  EXPECT_EQ(refusing.pages.size(), 2u);
  EXPECT_EQ(fake.state, 4);

  IMG_set_statusbar(0, refuse_row, 1);
  EXPECT_EQ(Taker().scan(), -55);
  IMG_set_statusbar(0, nullptr, 0);
  EXPECT_EQ(fake.state, 4);

  Taker cancelling;
  cancelling.look = [] {
    EXPECT_EQ(IMG_scan_cancel(), IMG_OK);
    EXPECT_EQ(IMG_scan_close(), IMG_NO_SCANNER_SESSION) << "a scan is at work";
  };
  EXPECT_EQ(cancelling.scan(), IMG_STOP_AFTER_HEADER);
  EXPECT_EQ(cancelling.pages.size(), 1u);

  fake.is_silent = true;
  fake.during_wait = [waits = 0]() mutable {
    if (++waits == 3) IMG_scan_cancel();
    ASSERT_LE(waits, 3);
  };
  EXPECT_EQ(Taker().scan(), IMG_STOP_AFTER_HEADER) << "while it waits for the source";
  EXPECT_EQ(fake.state, 4);
}

// The n-th call of the manager's function fails: whatever it was, the way down is gone to its end, no
// handle is left, and the pages before it are whole. Likewise the n-th allocation.
TEST_F(TwainFailures, AnyCallMayFail) {
  const auto pages = pages_of_every_kind();
  std::vector<Rows> strips, dibs;
  for (const FakeTwain::Page& page : pages) {
    strips.push_back(from_strips(page));
    dibs.push_back(from_dib(page));
  }
  for (const std::int32_t transfer : {0, 2, 3}) {
    for (int failing = 0;; ++failing) {
      SCOPED_TRACE(testing::Message() << "call " << failing << ", transfer " << transfer);
      FakeTwain fake(failing % 2 == 1);
      fake.pages = pages;
      fake.failing_call = failing;
      reset();
      for (const std::int32_t option : {IMG_SCAN_FEEDER, IMG_SCAN_MODE, IMG_SCAN_LEFT}) {
        IMG_scan_set(option, 1);
      }
      IMG_scan_set(IMG_SCAN_TRANSFER, transfer);
      Taker taker;
      std::int32_t result = IMG_scan_open(nullptr, nullptr);
      if (result == IMG_OK) result = taker.scan();
      for (std::size_t i = 0; i < taker.pages.size(); ++i) {
        ASSERT_TRUE((transfer == 0 && taker.pages[i] == strips[i]) || taker.pages[i] == dibs[i])
            << i;
      }
      ASSERT_TRUE(result == static_cast<std::int32_t>(taker.pages.size()) ||
                  result == IMG_NO_SCANNER_SESSION || result == IMG_READ_FAILED ||
                  result == IMG_UNSUPPORTED)
          << result;
      ASSERT_EQ(IMG_scan_close(), IMG_OK);
      // A manager that will not be closed is left when its library goes.
      ASSERT_TRUE(fake.state == 2 || fake.calls == failing + 1);
      ASSERT_EQ(fake.handles, 0);
      ASSERT_EQ(memory_probe::tracked_blocks(), 0);
      ASSERT_EQ(blocks(), 0);
      if (fake.calls <= failing) {
        ASSERT_EQ(result, static_cast<std::int32_t>(pages.size()));
        break;
      }
    }
  }
}

TEST_F(TwainFailures, AnyAllocationMayFail) {
  for (const std::int32_t transfer : {0, 2, 3}) {
    for (int count = 0;; ++count) {
      SCOPED_TRACE(testing::Message() << "allocation " << count << ", transfer " << transfer);
      FakeTwain fake;
      fake.pages = pages_of_every_kind();
      reset();
      IMG_scan_set(IMG_SCAN_TRANSFER, transfer);
      ASSERT_EQ(IMG_scan_open(nullptr, nullptr), IMG_OK);
      Taker taker;
      memory_probe::refuse_after(count);
      const std::int32_t result = taker.scan();
      const bool refused = memory_probe::refused();
      memory_probe::refuse_after(-1);
      ASSERT_EQ(fake.state, 4);
      ASSERT_EQ(fake.handles, 0);
      ASSERT_EQ(blocks(), 0);
      if (!refused) {
        ASSERT_EQ(result, static_cast<std::int32_t>(fake.pages.size()));
        break;
      }
      ASSERT_EQ(result, IMG_OUT_OF_MEMORY);
    }
  }
}

}  // namespace
}  // namespace tq::scan
