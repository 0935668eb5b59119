// Calls of TWAIN's one function, and the containers of its capabilities.
#include "scan/twain_link.h"

#include <algorithm>
#include <cstring>

namespace tq::scan {
namespace {

constexpr std::uint32_t kMostItems = 10000;  // of a list whose block does not tell its size

template <std::size_t kSize>
void put_text(char (&field)[kSize], const char* text) {
  std::memcpy(field, text, std::min(std::strlen(text) + 1, kSize));
}

twain::Identity own_identity(bool modern) {
  twain::Identity identity{};
  identity.version = {0, 1, 13, 1, {}};  // English
  identity.protocol_major = modern ? 2 : 1;
  identity.protocol_minor = modern ? 4 : 9;
  identity.groups = twain::kControl | twain::kImage | twain::kProgram2;
  put_text(identity.manufacturer, "Tarnquill");
  put_text(identity.family, "Tarnquill");
  put_text(identity.name, "Tarnquill");
  return identity;
}

const char* words_of(std::uint16_t condition) {
  switch (condition) {
    case twain::kNoCondition:
      return "";
    case twain::kLowMemory:
      return "the source has no memory";
    case twain::kNoSource:
      return "there is no such source";
    case twain::kMaxConnections:
      return "another program has the source";
    case twain::kOperationError:
      return "the source fails, and has said why";
    case twain::kSequenceError:
      return "the source was asked out of order";
    case twain::kPaperJam:
      return "paper jam";
    case twain::kPaperDoubleFeed:
      return "two sheets were fed";
    case twain::kCheckDevice:
      return "the device is not there";
    case twain::kInterlock:
      return "a cover is open";
    case twain::kNoMedia:
      return "the feeder is empty";
    default:
      return "the source fails";
  }
}

std::size_t bytes_of(std::uint16_t type) {
  switch (type) {
    case twain::kInt8:
    case twain::kUint8:
      return 1;
    case twain::kInt16:
    case twain::kUint16:
    case twain::kBool:
      return 2;
    case twain::kInt32:
    case twain::kUint32:
    case twain::kFix32:
      return 4;
    default:
      return 0;
  }
}

// An item, in the low bits of a number, as 65536ths.
std::int64_t number_of(std::uint16_t type, std::uint32_t item) {
  switch (type) {
    case twain::kInt8:
      return kOne * static_cast<std::int8_t>(item);
    case twain::kUint8:
      return kOne * static_cast<std::uint8_t>(item);
    case twain::kInt16:
      return kOne * static_cast<std::int16_t>(item);
    case twain::kInt32:
      return kOne * static_cast<std::int32_t>(item);
    case twain::kUint32:
      return kOne * item;
    case twain::kFix32:  // the whole part comes first
      return kOne * static_cast<std::int16_t>(item) + (item >> 16);
    default:
      return kOne * static_cast<std::uint16_t>(item);
  }
}

std::uint32_t item_of(std::uint16_t type, std::int64_t number) {
  if (type == twain::kFix32) {
    const auto fraction = static_cast<std::uint32_t>(number & 0xFFFF);
    return fraction << 16 | static_cast<std::uint16_t>(number >> 16);
  }
  const auto whole = static_cast<std::uint32_t>(divide_rounded(number, kOne));
  return bytes_of(type) == 2 ? whole & 0xFFFF : whole;
}

// A container in memory that may be shorter than it says.
class Container {
 public:
  Container(std::uint16_t kind, const void* memory, std::size_t size)
      : kind_(kind), at_(static_cast<const std::uint8_t*>(memory)), size_(size) {
    if (size_ == 0) size_ = SIZE_MAX;  // the source's word
  }

  bool current(std::int64_t& number) const {
    std::uint32_t item = 0;
    if (kind_ == twain::kOneValue) {
      twain::OneValue one{};
      if (!read(0, one)) return false;
      number = number_of(one.type, one.item);
      return bytes_of(one.type) != 0;
    }
    if (kind_ == twain::kRange) {
      twain::RangeValues range{};
      if (!read(0, range)) return false;
      number = number_of(range.type, range.current);
      return true;
    }
    twain::EnumerationHead head{};
    if (kind_ != twain::kEnumeration || !read(0, head)) return false;
    if (head.current >= head.count || !read_item(sizeof head, head.type, head.current, item)) {
      return false;
    }
    number = number_of(head.type, item);
    return true;
  }

  bool is_range(twain::RangeValues& range) const {
    return kind_ == twain::kRange && read(0, range);
  }

  // False beyond the last.
  bool item(std::uint32_t index, std::int64_t& number) const {
    if (kind_ == twain::kOneValue) return index == 0 && current(number);
    twain::ArrayHead head{};  // an enumeration begins alike
    if (!read(0, head) || index >= head.count || index >= kMostItems) return false;
    const bool is_list = kind_ == twain::kEnumeration || kind_ == twain::kArray;
    const std::size_t start =
        kind_ == twain::kEnumeration ? sizeof(twain::EnumerationHead) : sizeof head;
    std::uint32_t raw = 0;
    if (!is_list || !read_item(start, head.type, index, raw)) return false;
    number = number_of(head.type, raw);
    return true;
  }

 private:
  template <class Value>
  bool read(std::size_t at, Value& value) const {
    if (at > size_ || size_ - at < sizeof value) return false;
    std::memcpy(&value, at_ + at, sizeof value);
    return true;
  }
  bool read_item(std::size_t start, std::uint16_t type, std::uint32_t index,
                 std::uint32_t& item) const {
    const std::size_t bytes = bytes_of(type);
    if (bytes == 0 || index >= kMostItems) return false;
    const std::size_t at = start + bytes * index;
    if (at > size_ || size_ - at < bytes) return false;
    item = 0;
    std::memcpy(&item, at_ + at, bytes);
    return true;
  }

  std::uint16_t kind_;
  const std::uint8_t* at_;
  std::size_t size_;
};

}  // namespace

// --- Up and down ---

Status TwainLink::open_manager(void* window) {
  if (state_ >= TwainState::manager_open) return kOk;
  if (const platform::TwainHost* const stand_in = twain_stand_in; stand_in != nullptr) {
    host_ = *stand_in;
  } else {
    const platform::HostResult opened = platform::open_twain_host(host_, window);
    if (opened == platform::HostResult::no_library) return StatusCode::no_scanner_library;
    if (opened == platform::HostResult::no_window) return StatusCode::no_scanner_session;
  }
  entry_ = reinterpret_cast<twain::Entry>(host_.entry);
  state_ = TwainState::loaded;
  program_ = own_identity(host_.is_modern);
  void* parent = host_.window;
  if (to_manager(twain::kParent, twain::kOpenManager, &parent) != twain::kSuccess) {
    return StatusCode::no_scanner_session;
  }
  state_ = TwainState::manager_open;
  memory_ = {};
  if ((program_.groups & twain::kManager2) == 0) return kOk;
  memory_.size = sizeof memory_;
  const bool told = to_manager(twain::kEntryPoint, twain::kGet, &memory_) == twain::kSuccess;
  if (!told || memory_.allocate == nullptr || memory_.free == nullptr || memory_.lock == nullptr ||
      memory_.unlock == nullptr) {
    memory_ = {};
    return StatusCode::no_scanner_session;
  }
  return kOk;
}

std::uint16_t TwainLink::ask_identity(twain::Message message, twain::Identity& identity) {
  return to_manager(twain::kIdentity, message, &identity);
}

Status TwainLink::open_source(const twain::Identity& identity) {
  source_ = identity;
  if (to_manager(twain::kIdentity, twain::kOpenSource, &source_) != twain::kSuccess) {
    return StatusCode::no_scanner_session;
  }
  state_ = TwainState::source_open;
  return kOk;
}

void TwainLink::unwind_to(TwainState state) {
  if (state_ == TwainState::transferring && state < state_) {
    twain::PendingTransfers pending{twain::kManyMore, 0};
    const std::uint16_t ended =
        to_source(twain::kControl, twain::kPendingTransfers, twain::kEndTransfer, &pending);
    const bool none_left = ended == twain::kSuccess && pending.count == 0;
    state_ = none_left ? TwainState::enabled : TwainState::ready;
  }
  if (state_ == TwainState::ready && state < state_) {
    twain::PendingTransfers pending{};
    to_source(twain::kControl, twain::kPendingTransfers, twain::kReset, &pending);
    state_ = TwainState::enabled;
  }
  if (state_ == TwainState::enabled && state < state_) {
    twain::UserInterface window{0, 0, host_.window};
    to_source(twain::kControl, twain::kUserInterface, twain::kDisable, &window);
    state_ = TwainState::source_open;
  }
  if (state_ == TwainState::source_open && state < state_) {
    to_manager(twain::kIdentity, twain::kCloseSource, &source_);
    state_ = TwainState::manager_open;
  }
  if (state_ == TwainState::manager_open && state < state_) {
    void* parent = host_.window;
    to_manager(twain::kParent, twain::kCloseManager, &parent);
    state_ = TwainState::loaded;
  }
  if (state_ == TwainState::loaded && state < state_) {
    if (twain_stand_in == nullptr) platform::close_twain_host(host_);
    host_ = {};
    state_ = TwainState::absent;
  }
}

// --- Calls ---

std::uint16_t TwainLink::to_source(std::uint32_t group, twain::Data data, twain::Message message,
                                   void* memory) {
  return entry_(&program_, &source_, group, data, message, memory);
}

std::uint16_t TwainLink::to_manager(twain::Data data, twain::Message message, void* memory) {
  return entry_(&program_, nullptr, twain::kControl, data, message, memory);
}

Reason TwainLink::condition() {
  if (state_ == TwainState::absent) return {};
  twain::Status status{};
  const std::uint16_t asked = state_ >= TwainState::source_open
                                  ? to_source(twain::kControl, twain::kStatus, twain::kGet, &status)
                                  : to_manager(twain::kStatus, twain::kGet, &status);
  if (asked != twain::kSuccess) status.condition = twain::kBummer;
  return {status.condition, words_of(status.condition)};
}

// --- Shared memory ---

twain::Handle TwainLink::allocate(std::uint32_t bytes) {
  if (memory_.allocate != nullptr) return memory_.allocate(bytes);
  return host_.allocate(host_.context, bytes);
}
void TwainLink::free(twain::Handle handle) {
  if (memory_.free != nullptr) return memory_.free(handle);
  host_.free(host_.context, handle);
}
void* TwainLink::lock(twain::Handle handle) {
  if (memory_.lock != nullptr) return memory_.lock(handle);
  return host_.lock(host_.context, handle);
}
void TwainLink::unlock(twain::Handle handle) {
  if (memory_.unlock != nullptr) return memory_.unlock(handle);
  host_.unlock(host_.context, handle);
}

// --- Capabilities ---

bool TwainLink::set(twain::CapabilityNumber capability, twain::ItemType type, std::int64_t number) {
  const twain::OneValue one{type, item_of(type, number)};
  const twain::Handle handle = allocate(sizeof one);
  if (handle == nullptr) return false;
  bool done = false;
  if (void* const memory = lock(handle); memory != nullptr) {
    std::memcpy(memory, &one, sizeof one);
    unlock(handle);
    twain::Capability request{capability, twain::kOneValue, handle};
    const std::uint16_t result =
        to_source(twain::kControl, twain::kCapability, twain::kSet, &request);
    done = result == twain::kSuccess || result == twain::kCheckStatus;
  }
  free(handle);
  return done;
}

// The answer's handle is the caller's.
bool TwainLink::ask(twain::CapabilityNumber capability, twain::Message message,
                    twain::Capability& answer) {
  answer = {capability, 0xFFFF, nullptr};  // any container
  const std::uint16_t result = to_source(twain::kControl, twain::kCapability, message, &answer);
  const bool told = result == twain::kSuccess || result == twain::kCheckStatus;
  return told && answer.handle != nullptr;
}

bool TwainLink::current(twain::CapabilityNumber capability, std::int64_t& number) {
  for (const twain::Message message : {twain::kGetCurrent, twain::kGet}) {
    twain::Capability answer{};
    if (!ask(capability, message, answer)) continue;
    bool found = false;
    if (const void* const memory = lock(answer.handle); memory != nullptr) {
      found = Container(answer.container, memory, size(answer.handle)).current(number);
      unlock(answer.handle);
    }
    free(answer.handle);
    if (found) return true;
  }
  return false;
}

bool TwainLink::values(twain::CapabilityNumber capability, Convert convert, ValueList& list) {
  twain::Capability answer{};
  if (!ask(capability, twain::kGet, answer)) return false;
  if (const void* const memory = lock(answer.handle); memory != nullptr) {
    const Container container(answer.container, memory, size(answer.handle));
    twain::RangeValues range{};
    std::int64_t number = 0;
    if (container.is_range(range)) {
      const auto value = [&](std::uint32_t item) { return convert(number_of(range.type, item)); };
      list.set_range(value(range.least), value(range.most), value(range.step));
    }
    for (std::uint32_t i = 0; !list.is_range && container.item(i, number); ++i) {
      if (const std::int64_t value = convert(number); value != kNoValue) list.add(value);
    }
    unlock(answer.handle);
  }
  free(answer.handle);
  return list.count > 0;
}

}  // namespace tq::scan
