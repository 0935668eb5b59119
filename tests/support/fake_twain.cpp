#include "tests/support/fake_twain.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>

#include "core/dib.h"
#include "platform/memory.h"
#include "scan/twain_link.h"

namespace tq::test {
namespace {

using namespace scan;

using Bytes = FakeTwain::Bytes;

FakeTwain* fake = nullptr;

struct Block {
  void* memory;
  std::size_t size;
};

twain::Handle make_handle(std::size_t bytes) {
  void* const memory = platform::block_alloc(bytes);
  ++fake->handles;
  return new Block{memory, bytes};
}
twain::Handle IMG_CALL allocate(std::uint32_t bytes) {
  return make_handle(bytes);
}
void IMG_CALL free_handle(twain::Handle handle) {
  auto* const block = static_cast<Block*>(handle);
  platform::block_free(block->memory);
  delete block;
  --fake->handles;
}
void* IMG_CALL lock(twain::Handle handle) {
  return static_cast<Block*>(handle)->memory;
}
void IMG_CALL unlock(twain::Handle) {}

twain::Fix32 fix(std::int64_t number) {
  return {static_cast<std::int16_t>(number >> 16), static_cast<std::uint16_t>(number & 0xFFFF)};
}

std::size_t item_bytes(twain::ItemType type) {
  return type == twain::kFix32 || type == twain::kUint32 ? 4 : 2;
}

std::uint32_t item_of(twain::ItemType type, std::int64_t number) {
  if (type != twain::kFix32) return static_cast<std::uint32_t>(number / kOne) & 0xFFFF;
  return static_cast<std::uint32_t>(number & 0xFFFF) << 16 |
         static_cast<std::uint16_t>(number >> 16);
}

template <class Value>
void put(Bytes& bytes, Value value, std::size_t size = sizeof(Value)) {
  const auto* const at = reinterpret_cast<const std::uint8_t*>(&value);
  bytes.insert(bytes.end(), at, at + size);
}

}  // namespace

void FakeTwain::expect_state(int least, int most) const {
  if (disturbed_) return;  // the session goes down from where it believes to be
  EXPECT_GE(state, least);
  EXPECT_LE(state, most);
}

struct FakeTwainCalls {
  static std::uint16_t IMG_CALL entry(twain::Identity* program, twain::Identity* source,
                                      std::uint32_t group, std::uint16_t data,
                                      std::uint16_t message, void* memory) {
    FakeTwain& f = *fake;
    EXPECT_NE(program, nullptr);
    if (f.calls++ == f.failing_call) {
      f.disturbed_ = true;
      return f.fail(twain::kBummer);
    }
    if (data == twain::kStatus) {
      *static_cast<twain::Status*>(memory) = {f.condition_, 0};
      return twain::kSuccess;
    }
    EXPECT_EQ(group == twain::kImage, data > 0x100 && data < 0x400) << data;
    switch (data) {
      case twain::kParent:
        return parent(*program, message);
      case twain::kEntryPoint:
        *static_cast<twain::EntryPoint*>(memory) = {
            sizeof(twain::EntryPoint), entry, allocate, free_handle, lock, unlock};
        return twain::kSuccess;
      case twain::kIdentity:
        return identity(message, *static_cast<twain::Identity*>(memory));
      default:
        break;
    }
    f.expect_state(4, 7);
    EXPECT_NE(source, nullptr);
    if (f.state < 4) return f.fail(twain::kSequenceError);
    switch (data) {
      case twain::kCapability:
        return capability(message, *static_cast<twain::Capability*>(memory));
      case twain::kImageLayout:
        return layout(message, *static_cast<twain::ImageLayout*>(memory));
      case twain::kUserInterface:
        return user_interface(message, *static_cast<twain::UserInterface*>(memory));
      case twain::kEvent:
        return event(*static_cast<twain::Event*>(memory));
      case twain::kPendingTransfers:
        return pending(message, *static_cast<twain::PendingTransfers*>(memory));
      default:
        break;
    }
    f.expect_state(6, 7);
    if (f.state < 6) return f.fail(twain::kSequenceError);
    switch (data) {
      case twain::kImageInfo:
        return info(*static_cast<twain::ImageInfo*>(memory));
      case twain::kPalette8:
        return palette(*static_cast<twain::Palette8*>(memory));
      case twain::kSetupMemory:
        *static_cast<twain::SetupMemory*>(memory) = {64, 1 << 20, twain::kAnything};
        return twain::kSuccess;
      case twain::kImageMemory:
        return strip(*static_cast<twain::MemoryTransfer*>(memory));
      case twain::kImageNative:
        return native(*static_cast<twain::Handle*>(memory));
      case twain::kSetupFile:
        return setup_file(*static_cast<twain::SetupFile*>(memory));
      case twain::kImageFile:
        return file();
      default:
        ADD_FAILURE() << "unknown triplet " << data;
        return f.fail(twain::kBummer);
    }
  }

  static std::uint16_t parent(twain::Identity& program, std::uint16_t message) {
    const bool opens = message == twain::kOpenManager;
    fake->expect_state(opens ? 2 : 3, opens ? 2 : 3);
    fake->state = opens ? 3 : 2;
    if (fake->modern_) program.groups |= twain::kManager2;
    return twain::kSuccess;
  }
  static std::uint16_t identity(std::uint16_t message, twain::Identity& identity) {
    fake->expect_state(3, 4);
    if (message == twain::kGetNext) return twain::kEndOfList;
    if (message == twain::kOpenSource) {
      EXPECT_STREQ(identity.name, "Fake source");
      fake->state = 4;
    } else if (message == twain::kCloseSource) {
      fake->expect_state(4, 4);
      fake->state = 3;
    } else {
      if (message == twain::kUserSelect && fake->condition == twain::kNoSource) {
        return twain::kCancel;
      }
      identity = {};
      std::strcpy(identity.name, "Fake source");
    }
    return twain::kSuccess;
  }

  static std::uint16_t capability(std::uint16_t message, twain::Capability& asked) {
    const auto found = fake->capabilities.find(asked.capability);
    if (found == fake->capabilities.end() || fake->refused.count(asked.capability) != 0) {
      return fake->fail(13);
    }
    FakeTwain::Capability& known = found->second;
    return message == twain::kSet ? set(known, asked) : get(known, message, asked);
  }
  static std::uint16_t set(FakeTwain::Capability& known, const twain::Capability& asked) {
    fake->expect_state(4, 6);
    EXPECT_EQ(asked.container, twain::kOneValue);
    twain::OneValue one{};
    std::memcpy(&one, lock(asked.handle), sizeof one);
    EXPECT_EQ(one.type, known.type);
    std::int64_t number = kOne * static_cast<std::int16_t>(one.item);
    if (known.type == twain::kFix32) number += one.item >> 16;
    known.current = number;
    if (known.values.empty()) return twain::kSuccess;
    if (known.is_range) {
      known.current = std::clamp(number, known.values[0], known.values[1]);
    } else {
      known.current = *std::ranges::min_element(
          known.values, {}, [=](std::int64_t value) { return std::abs(value - number); });
    }
    return known.current == number ? twain::kSuccess : twain::kCheckStatus;
  }
  static std::uint16_t get(const FakeTwain::Capability& known, std::uint16_t message,
                           twain::Capability& answer) {
    Bytes bytes;
    put(bytes, std::uint16_t{known.type});
    const auto item = [&](std::int64_t number) { return item_of(known.type, number); };
    if (message == twain::kGet && !known.values.empty()) {
      answer.container = known.is_range ? twain::kRange : twain::kEnumeration;
      if (known.is_range) {
        for (const std::int64_t value : known.values) put(bytes, item(value));
        put(bytes, item(known.current));
        put(bytes, item(known.current));
      } else {
        const auto at = std::ranges::find(known.values, known.current) - known.values.begin();
        put(bytes, static_cast<std::uint32_t>(known.values.size()));
        put(bytes, static_cast<std::uint32_t>(at));
        put(bytes, std::uint32_t{0});
        for (const std::int64_t value : known.values) {
          put(bytes, item(value), item_bytes(known.type));
        }
      }
    } else {
      answer.container = twain::kOneValue;
      put(bytes, item(known.current));
    }
    answer.handle = make_handle(bytes.size());
    std::ranges::copy(bytes, static_cast<std::uint8_t*>(lock(answer.handle)));
    return twain::kSuccess;
  }

  static std::uint16_t layout(std::uint16_t message, twain::ImageLayout& layout) {
    if (message == twain::kGet) {
      layout = fake->layout;
    } else {
      fake->layout = layout;
    }
    return twain::kSuccess;
  }
  static std::uint16_t user_interface(std::uint16_t message, const twain::UserInterface& window) {
    if (message == twain::kEnable) {
      fake->expect_state(4, 4);
      if (fake->enabling == twain::kFailure) return fake->fail(fake->condition);
      if (fake->enabling == twain::kCancel) return twain::kCancel;
      fake->shown = window.show;
      fake->state = 5;
      fake->next_event_ = 0;
      return fake->enabling;
    }
    fake->expect_state(5, 5);
    if (fake->state == 5) fake->state = 4;
    return twain::kSuccess;
  }
  static std::uint16_t event(twain::Event& event) {
    fake->expect_state(5, 5);
    EXPECT_NE(event.event, nullptr);
    if (fake->next_event_ == fake->events.size()) return twain::kNoSourceEvent;
    event.message = fake->events[fake->next_event_++];
    if (event.message == twain::kTransferReady) fake->state = 6;
    return twain::kSourceEvent;
  }

  static std::uint16_t pending(std::uint16_t message, twain::PendingTransfers& pending) {
    FakeTwain& f = *fake;
    if (message == twain::kEndTransfer) {
      f.expect_state(7, 7);
      if (f.state != 7) return f.fail(twain::kSequenceError);
      ++f.next_page;
      f.strip_ = 0;
      f.row_ = f.column_ = 0;
      const std::size_t left = f.pages.size() - f.next_page;
      pending.count =
          f.counts_pages || left == 0 ? static_cast<std::uint16_t>(left) : twain::kManyMore;
      f.state = left == 0 ? 5 : 6;
    } else {
      f.expect_state(6, 6);
      if (message == twain::kStopFeeder) {
        ++f.stopped;
      } else if (f.state == 6) {
        f.state = 5;
      }
    }
    return twain::kSuccess;
  }

  static const FakeTwain::Page& page() { return fake->pages[fake->next_page]; }

  static std::uint16_t info(twain::ImageInfo& info) {
    const FakeTwain::Page& p = page();
    info = {fix(p.dpi * kOne),
            fix(p.dpi * kOne),
            p.width,
            p.height_is_told ? p.height : -1,
            1,
            {8},
            p.bits,
            p.planar,
            p.type,
            0};
    return twain::kSuccess;
  }
  static std::uint16_t palette(twain::Palette8& palette) {
    palette = {3, 0, {{0, 1, 2, 3}, {1, 9, 8, 7}, {2, 50, 60, 70}}};
    return twain::kSuccess;
  }

  // A page that does not come, in any way.
  static bool stops(std::uint16_t& result) {
    const int at = static_cast<int>(fake->next_page);
    if (at == fake->cancelled_page) {
      fake->state = 7;
      result = twain::kCancel;
      return true;
    }
    if (at != fake->failing_page) return false;
    result = fake->fail(fake->condition);
    return true;
  }

  static std::uint16_t strip(twain::MemoryTransfer& strip) {
    FakeTwain& f = *fake;
    std::uint16_t result = 0;
    const FakeTwain::Page& p = page();
    if (f.row_ > 0 || p.height < 3) {
      if (stops(result)) return result;
    }
    EXPECT_TRUE(strip.memory.flags == (std::uint32_t{twain::kProgramOwns} | twain::kPointer));
    f.state = 7;
    const std::size_t row_bytes = p.rows.size() / static_cast<std::size_t>(p.height);
    const int wanted = p.strips[std::min(f.strip_++, p.strips.size() - 1)];
    const int rows = std::min(
        {wanted, p.height - f.row_, static_cast<int>(strip.memory.length / (row_bytes + 3))});
    // A tile's width is in pixels and, of bits, a multiple of 8.
    const int columns =
        p.tile_columns == 0 ? p.width : std::min(p.tile_columns, p.width - f.column_);
    const std::size_t from = static_cast<std::size_t>(f.column_) * p.bits / 8;
    const std::size_t part = (static_cast<std::size_t>(columns) * p.bits + 7) / 8;
    const std::size_t stride = part + f.strip_ % 3;  // another one each time
    auto* out = static_cast<std::uint8_t*>(strip.memory.address);
    for (int i = 0; i < rows; ++i, out += stride) {
      const auto* const row = p.rows.data() + static_cast<std::size_t>(f.row_ + i) * row_bytes;
      std::memset(out, 0x55, stride);
      std::copy_n(row + from, part, out);
    }
    strip = {0,
             static_cast<std::uint32_t>(stride),
             static_cast<std::uint32_t>(columns),
             static_cast<std::uint32_t>(rows),
             static_cast<std::uint32_t>(f.column_),
             static_cast<std::uint32_t>(f.row_),
             static_cast<std::uint32_t>(stride * static_cast<std::size_t>(rows)),
             strip.memory};
    f.column_ += columns;
    if (f.column_ < p.width) return twain::kSuccess;
    f.column_ = 0;
    f.row_ += rows;
    return f.row_ == p.height ? twain::kTransferDone : twain::kSuccess;
  }
  static std::uint16_t native(twain::Handle& handle) {
    std::uint16_t result = 0;
    if (stops(result)) return result;
    const Bytes& dib = page().dib;
    handle = make_handle(dib.size());
    std::ranges::copy(dib, static_cast<std::uint8_t*>(lock(handle)));
    fake->state = 7;
    return twain::kTransferDone;
  }
  static std::uint16_t setup_file(const twain::SetupFile& setup) {
    fake->file_ = setup.name;
    if (setup.format != twain::kBmp) return fake->fail(twain::kBummer);
    return twain::kSuccess;
  }
  static std::uint16_t file() {
    std::uint16_t result = 0;
    if (stops(result)) return result;
    Bytes content = {'B', 'M', 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    const Bytes& dib = page().dib;
    BitmapInfoHeader header;
    std::memcpy(&header, dib.data(), sizeof header);
    const auto pixels = static_cast<std::uint32_t>(54 + palette_bytes(header.biBitCount));
    std::memcpy(content.data() + 10, &pixels, 4);
    content.insert(content.end(), dib.begin(), dib.end());
    std::FILE* const out = std::fopen(fake->file_.c_str(), "wb");
    std::fwrite(content.data(), 1, content.size(), out);
    std::fclose(out);
    fake->state = 7;
    return twain::kTransferDone;
  }

  static platform::HostMessage next_message(void*, int, void** message) {
    static int dummy;
    if (fake->during_wait) fake->during_wait();
    *message = &dummy;
    return fake->is_silent ? platform::HostMessage::none : platform::HostMessage::message;
  }
};

FakeTwain::FakeTwain(bool modern) : modern_(modern) {
  const auto numbers = [](std::initializer_list<std::int64_t> all) {
    std::vector<std::int64_t> made;
    for (const std::int64_t value : all) made.push_back(value * kOne);
    return made;
  };
  capabilities = {
      {twain::kTransferCount, {twain::kInt16, {}}},
      {twain::kPixelType, {twain::kUint16, numbers({0, 1, 2, 3})}},
      {twain::kUnits, {twain::kUint16, {}}},
      {twain::kMechanism, {twain::kUint16, numbers({0, 1, 2})}},
      {twain::kFeederEnabled, {twain::kBool, {}}},
      {twain::kFeederLoaded, {twain::kBool, {}, false, kOne}},
      {twain::kPaperDetectable, {twain::kBool, {}, false, kOne}},
      {twain::kAutoFeed, {twain::kBool, {}}},
      {twain::kIndicators, {twain::kBool, {}, false, kOne}},
      {twain::kDuplex, {twain::kUint16, {}, false, kOne}},
      {twain::kDuplexEnabled, {twain::kBool, {}, false, kOne}},
      {twain::kBrightness, {twain::kFix32, numbers({-1000, 1000, 10}), true}},
      {twain::kPhysicalWidth, {twain::kFix32, {}, false, 17 * kOne / 2}},
      {twain::kPhysicalHeight, {twain::kFix32, {}, false, 11 * kOne}},
      {twain::kXResolution, {twain::kFix32, numbers({100, 200, 300}), false, 100 * kOne}},
      {twain::kYResolution, {twain::kFix32, numbers({100, 200, 300}), false, 100 * kOne}},
      {twain::kPixelFlavor, {twain::kUint16, {}}},
      {twain::kThreshold, {twain::kFix32, {}, false, 128 * kOne}},
      {twain::kBitDepth, {twain::kUint16, {}}},
  };
  layout.frame = {{0, 0}, {0, 0}, fix(17 * kOne / 2), fix(11 * kOne)};
  fake = this;
  static platform::TwainHost host;
  host = {.context = nullptr,
          .entry = reinterpret_cast<void*>(&FakeTwainCalls::entry),
          .window = &host,
          .is_modern = modern,
          .next_message = FakeTwainCalls::next_message,
          .dispatch = [](void*, void*) {},
          .allocate = [](void*, std::uint32_t bytes) -> void* {
            EXPECT_FALSE(fake->modern_);
            return allocate(bytes);
          },
          .free = [](void*, void* handle) { free_handle(handle); },
          .lock = [](void*, void* handle) { return lock(handle); },
          .unlock = [](void*, void*) {},
          .size = [](void*, void* handle) { return static_cast<Block*>(handle)->size; },
          .to_block = [](void*, void* handle) -> void* {
            auto* const block = static_cast<Block*>(handle);
            void* const memory = block->memory;
            delete block;
            --fake->handles;
            return memory;
          }};
  twain_stand_in = &host;
}

FakeTwain::~FakeTwain() {
  EXPECT_EQ(IMG_scan_close(), IMG_OK);
  if (!disturbed_) {
    EXPECT_EQ(state, 2);
  }
  EXPECT_EQ(handles, 0);
  twain_stand_in = nullptr;
  fake = nullptr;
}

FakeTwain::Page FakeTwain::page(std::int16_t type, std::int16_t bits, std::int32_t width,
                                std::int32_t height) {
  Page made{.type = type, .bits = bits, .width = width, .height = height};
  const auto row = (static_cast<std::size_t>(width) * static_cast<std::size_t>(bits) + 7) / 8;
  made.rows.resize(row * static_cast<std::size_t>(height));
  static std::minstd_rand random;
  for (std::uint8_t& byte : made.rows) byte = static_cast<std::uint8_t>(random() >> 8);
  made.dib = make_dib(width, height, bits == 16 ? 8 : bits == 48 ? 24 : bits);
  return made;
}

FakeTwain::Bytes make_dib(std::int32_t width, std::int32_t height, int bits, bool white_first) {
  HeaderBlock block = dib_header(width, height, bits);
  block.header.biXPelsPerMeter = block.header.biYPelsPerMeter = 7874;  // 200 dots per inch
  const int colours = palette_bytes(bits) / 4;
  for (int i = 0; i < colours; ++i) {
    const auto level = static_cast<std::uint8_t>(i * 255 / (colours - 1));
    block.palette[static_cast<std::size_t>(white_first ? colours - 1 - i : i)] = {level, level,
                                                                                  level, 0};
  }
  FakeTwain::Bytes dib(static_cast<std::size_t>(dib_bytes(width, height, bits)));
  std::memcpy(dib.data(), &block, 40 + static_cast<std::size_t>(palette_bytes(bits)));
  static std::minstd_rand random;
  for (std::size_t i = 40 + static_cast<std::size_t>(palette_bytes(bits)); i < dib.size(); ++i) {
    dib[i] = static_cast<std::uint8_t>(random() >> 8);
  }
  return dib;
}

}  // namespace tq::test
