#include "tests/support/fake_sane.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>

#include "include/tarnquill.h"
#include "scan/sane_session.h"

namespace tq::test {
namespace {

using namespace scan;
using sane::Word;

FakeSane* fake = nullptr;
int device;  // its address is the handle

constexpr Word kMm = 65536;

FakeSane::Option number(const char* name, sane::Type type, sane::Unit unit, sane::Range range) {
  return {name, type, unit, {}, {}, range};
}

}  // namespace

struct FakeSaneCalls {
  static std::int32_t init(Word* version, void*) {
    EXPECT_FALSE(fake->is_initialised);
    *version = 1 << 24;
    const std::int32_t status = FakeSane::step();
    fake->is_initialised = status == sane::kGood;
    return status;
  }
  static void exit() {
    EXPECT_TRUE(fake->is_initialised && !fake->is_open);
    fake->is_initialised = false;
    ++fake->exits;
  }
  static std::int32_t get_devices(const sane::Device* const** list, Word local_only) {
    static constexpr sane::Device kDevice = {"fake:0", "Maker", "Model", "scanner"};
    static const sane::Device* const kList[] = {&kDevice, nullptr};
    EXPECT_TRUE(fake->is_initialised);
    EXPECT_EQ(local_only, 0);
    *list = kList + (fake->has_device ? 0 : 1);
    return FakeSane::step();
  }
  static std::int32_t open(const char* name, sane::Handle* handle) {
    EXPECT_TRUE(fake->is_initialised && !fake->is_open);
    if (std::strcmp(name, "fake:0") != 0) return sane::kInvalid;
    const std::int32_t status = FakeSane::step();
    fake->is_open = status == sane::kGood;
    *handle = &device;
    return status;
  }
  static void close(sane::Handle handle) {
    EXPECT_TRUE(fake->is_open && !fake->is_scanning && handle == &device);
    fake->is_open = false;
  }
  static const sane::Option* describe(sane::Handle, Word number) {
    if (number < 0 || number > std::ssize(fake->options)) return nullptr;
    fake->described_[static_cast<std::size_t>(number)] = true;
    static constexpr sane::Option kCount = {"", "", "", sane::kInt, 0, 4, 0, 0, {nullptr}};
    if (number == 0) return &kCount;
    FakeSane::Option& option = fake->options[static_cast<std::size_t>(number) - 1];
    sane::Option& told = option.description;
    told = {option.name.c_str(), "", "", option.type, option.unit, 4, sane::kSoftSelect, 0, {}};
    if (!option.strings.empty()) {
      told.size = 40;
      told.constraint_type = sane::kStringList;
      told.constraint.strings = option.strings.data();
    } else if (!option.words.empty()) {
      told.constraint_type = sane::kWordList;
      told.constraint.words = option.words.data();
    } else if (option.range.max > option.range.min) {
      told.constraint_type = sane::kRange;
      told.constraint.range = &option.range;
    }
    return &told;
  }
  static std::int32_t control(sane::Handle, Word number, std::int32_t action, void* value,
                              Word* info) {
    EXPECT_TRUE(fake->is_open && !fake->in_frame_);
    if (const std::int32_t status = FakeSane::step(); status != sane::kGood) return status;
    if (number == 0) {
      *static_cast<Word*>(value) = static_cast<Word>(fake->options.size() + 1);
      return sane::kGood;
    }
    FakeSane::Option& option = fake->options[static_cast<std::size_t>(number) - 1];
    if (action == sane::kGet) {
      if (option.strings.empty()) {
        *static_cast<Word*>(value) = option.value;
      } else {
        std::strcpy(static_cast<char*>(value),
                    option.strings[static_cast<std::size_t>(option.value)]);
      }
      return sane::kGood;
    }
    return set(option, value, info);
  }
  static std::int32_t set(FakeSane::Option& option, const void* value, Word* info) {
    if (!std::ranges::all_of(fake->described_, [](bool told) { return told; })) {
      return sane::kInvalid;
    }
    if (!option.strings.empty()) {
      const auto found = std::ranges::find_if(option.strings, [&](const char* text) {
        return text != nullptr && std::strcmp(text, static_cast<const char*>(value)) == 0;
      });
      if (found == option.strings.end()) return sane::kInvalid;
      option.value = static_cast<Word>(found - option.strings.begin());
    } else {
      const Word word = *static_cast<const Word*>(value);
      const sane::Range& range = option.range;
      if (range.max > range.min && (word < range.min || word > range.max)) return sane::kInvalid;
      if (range.quant > 0 && (word - range.min) % range.quant != 0) return sane::kInvalid;
      if (!option.words.empty() &&
          std::find(option.words.begin() + 1, option.words.end(), word) == option.words.end()) {
        return sane::kInvalid;
      }
      option.value = word;
    }
    if (option.reloads) {
      *info |= sane::kReloadOptions;
      fake->described_.assign(fake->options.size() + 1, false);
    }
    return sane::kGood;
  }
  static std::int32_t start(sane::Handle) {
    EXPECT_TRUE(fake->is_open && !fake->in_frame_);
    if (const std::int32_t status = FakeSane::step(); status != sane::kGood) return status;
    if (fake->next_page_ == fake->pages.size()) return fake->after_last;
    fake->is_scanning = fake->in_frame_ = true;
    fake->position_ = 0;
    return sane::kGood;
  }
  static std::int32_t parameters(sane::Handle, sane::Parameters* told) {
    EXPECT_TRUE(fake->is_scanning);
    *told = fake->pages[fake->next_page_][fake->frame_].parameters;
    return FakeSane::step();
  }
  static std::int32_t read(sane::Handle, std::uint8_t* buffer, Word room, Word* bytes) {
    EXPECT_TRUE(fake->in_frame_);
    EXPECT_GT(room, 0);
    *bytes = 0;
    if (const std::int32_t status = FakeSane::step(); status != sane::kGood) return status;
    const FakeSane::Page& page = fake->pages[fake->next_page_];
    const FakeSane::Bytes& data = page[fake->frame_].data;
    const std::size_t left = data.size() - fake->position_;
    if (left == 0) {
      fake->in_frame_ = false;
      if (++fake->frame_ == page.size()) {
        fake->frame_ = 0;
        ++fake->next_page_;
      }
      return sane::kEndOfData;
    }
    const std::size_t given = std::min({left, std::size_t(room), fake->most_per_read});
    std::copy_n(data.begin() + static_cast<std::ptrdiff_t>(fake->position_), given, buffer);
    fake->position_ += given;
    *bytes = static_cast<Word>(given);
    return sane::kGood;
  }
  static void cancel(sane::Handle) {
    EXPECT_TRUE(fake->is_open);
    fake->is_scanning = fake->in_frame_ = false;
    fake->frame_ = 0;
    ++fake->cancels;
  }
};

// One more call: whether it fails.
std::int32_t FakeSane::step() {
  const int call = fake->calls++;
  if (fake->during_call) fake->during_call(call);
  return call == fake->failing_call ? fake->failure : std::int32_t{sane::kGood};
}

FakeSane::FakeSane() {
  options = {
      {"mode", sane::kString, 0, {"Lineart", "True Gray", "24bit Color[Fast]", nullptr}, {}, {}},
      {"source", sane::kString, 0, {"Flatbed", "ADF Front", "ADF Duplex", nullptr}, {}, {}},
      {"resolution", sane::kInt, sane::kDpi, {}, {4, 75, 150, 300, 600}, {}},
      number("tl-x", sane::kFixed, sane::kMillimetres, {0, 216 * kMm, 0}),
      number("tl-y", sane::kFixed, sane::kMillimetres, {0, 297 * kMm, 0}),
      number("br-x", sane::kFixed, sane::kMillimetres, {0, 216 * kMm, 0}),
      number("br-y", sane::kFixed, sane::kMillimetres, {0, 297 * kMm, 0}),
      number("brightness", sane::kInt, sane::kNoUnit, {-50, 100, 1}),
      number("contrast", sane::kInt, sane::kNoUnit, {0, 200, 1}),
      number("threshold", sane::kFixed, sane::kNoUnit, {0, 100 * kMm, 0}),
      number("page-loaded", sane::kBool, sane::kNoUnit, {}),
  };
  option("mode").reloads = true;
  option("resolution").value = 75;
  described_.assign(options.size() + 1, true);
  fake = this;
  static constexpr sane::Functions kFunctions = {
      FakeSaneCalls::init,    FakeSaneCalls::exit,  FakeSaneCalls::get_devices,
      FakeSaneCalls::open,    FakeSaneCalls::close, FakeSaneCalls::describe,
      FakeSaneCalls::control, FakeSaneCalls::start, FakeSaneCalls::parameters,
      FakeSaneCalls::read,    FakeSaneCalls::cancel};
  sane_stand_in = &kFunctions;
}

FakeSane::~FakeSane() {
  EXPECT_EQ(IMG_scan_close(), IMG_OK);
  EXPECT_FALSE(is_open || is_initialised);
  sane_stand_in = nullptr;
  fake = nullptr;
}

FakeSane::Option& FakeSane::option(const std::string& name) {
  return *std::ranges::find(options, name, &Option::name);
}

FakeSane::Frame FakeSane::frame(std::int32_t format, std::int32_t depth, std::int32_t width,
                                std::int32_t lines, bool last) {
  const std::int32_t samples = format == sane::kRgb ? 3 * width : width;
  const std::int32_t bytes = (samples * depth + 7) / 8;
  Frame made{{format, last ? 1 : 0, bytes, width, lines, depth}, {}};
  made.data.resize(static_cast<std::size_t>(bytes) * static_cast<std::size_t>(std::abs(lines)));
  static std::minstd_rand random;
  for (std::uint8_t& byte : made.data) byte = static_cast<std::uint8_t>(random() >> 8);
  if (lines < 0) made.parameters.lines = -1;
  return made;
}

}  // namespace tq::test
