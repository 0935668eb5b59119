// TWAIN's sources: found, opened, and told the options.
#include "scan/twain_session.h"

#include <algorithm>
#include <cstring>

namespace tq::scan {
namespace {

constexpr std::int32_t kMostSources = 1000;  // of a manager's list

struct Known {
  std::int32_t option;
  twain::CapabilityNumber capability;
  twain::ItemType type;
};

// Options that are one capability each.
constexpr Known kNumbers[] = {
    {IMG_SCAN_RESOLUTION, twain::kXResolution, twain::kFix32},
    {IMG_SCAN_FEEDER, twain::kFeederEnabled, twain::kBool},
    {IMG_SCAN_DUPLEX, twain::kDuplexEnabled, twain::kBool},
    {IMG_SCAN_BRIGHTNESS, twain::kBrightness, twain::kFix32},
    {IMG_SCAN_CONTRAST, twain::kContrast, twain::kFix32},
    {IMG_SCAN_THRESHOLD, twain::kThreshold, twain::kFix32},
    {IMG_SCAN_PAPER_LOADED, twain::kFeederLoaded, twain::kBool},
    {IMG_SCAN_MODE, twain::kPixelType, twain::kUint16},
    {IMG_SCAN_WIDTH, twain::kPhysicalWidth, twain::kFix32},
    {IMG_SCAN_HEIGHT, twain::kPhysicalHeight, twain::kFix32},
    {IMG_SCAN_LEFT, twain::kPhysicalWidth, twain::kFix32},
    {IMG_SCAN_TOP, twain::kPhysicalHeight, twain::kFix32},
};

const Known& find_known(std::int32_t option) {
  return *std::find_if(std::begin(kNumbers), std::end(kNumbers),
                       [=](const Known& known) { return known.option == option; });
}

bool in_thousandths(std::int32_t option) {
  return option == IMG_SCAN_RESOLUTION || ScanOptions::is_area(option);
}

std::int64_t to_number(std::int32_t option, std::int64_t value) {
  return in_thousandths(option) ? from_thousandths(value) : value * kOne;
}

std::int64_t to_value(std::int32_t option, std::int64_t number) {
  if (option == IMG_SCAN_MODE) {
    constexpr std::int64_t kDepths[] = {1, 8, 24};
    const std::int64_t type = number / kOne;
    return type >= 0 && type < std::ssize(kDepths) ? kDepths[type] : TwainLink::kNoValue;
  }
  return in_thousandths(option) ? to_thousandths(number) : divide_rounded(number, kOne);
}

twain::Fix32 to_fix(std::int64_t thousandths) {
  const std::int64_t number = from_thousandths(thousandths);
  return {static_cast<std::int16_t>(number >> 16), static_cast<std::uint16_t>(number & 0xFFFF)};
}
std::int64_t from_fix(twain::Fix32 fix) {
  return to_thousandths(kOne * fix.whole + fix.fraction);
}

}  // namespace

Status TwainSession::failed(Status status) {
  reason_ = link_.condition();
  return status;
}

// --- Sources ---

// By its place in the manager's list, or by its name: 1, 0 when there is none.
Status TwainSession::find(std::int32_t index, const char* name, twain::Identity& found) {
  for (std::int32_t i = 0; i < kMostSources; ++i) {
    found = {};
    const std::uint16_t asked =
        link_.ask_identity(i == 0 ? twain::kGetFirst : twain::kGetNext, found);
    if (asked == twain::kEndOfList) return kOk;
    if (asked != twain::kSuccess) {
      reason_ = link_.condition();
      return reason_.code == twain::kNoSource ? kOk : Status(StatusCode::no_scanner_session);
    }
    found.name[sizeof found.name - 1] = '\0';
    const bool is_it = name != nullptr ? std::strcmp(found.name, name) == 0 : i == index;
    if (is_it) return Status::from_raw(1);
  }
  return kOk;
}

Status TwainSession::source(std::int32_t index, const char*& name) {
  reason_ = {};
  const TwainState before = link_.state();
  Status status = link_.open_manager(nullptr);
  if (status == StatusCode::no_scanner_session) (void)failed(status);
  if (status.ok() && index >= 0) status = find(index, nullptr, listed_);
  name = listed_.name;
  link_.unwind_to(before);
  return status;
}

Status TwainSession::select(void* window, const char*& name) {
  reason_ = {};
  const TwainState before = link_.state();
  Status status = link_.open_manager(window);
  if (status.ok()) {
    listed_ = {};
    const std::uint16_t chosen = link_.ask_identity(twain::kUserSelect, listed_);
    listed_.name[sizeof listed_.name - 1] = '\0';
    name = listed_.name;
    if (chosen == twain::kSuccess) {
      status = Status::from_raw(1);
    } else if (chosen != twain::kCancel) {
      status = failed(StatusCode::no_scanner_session);
    }
  }
  link_.unwind_to(before);
  return status;
}

Status TwainSession::open(void* window, const char* name, const ScanOptions& wanted) {
  close();
  reason_ = {};
  const auto open = [&]() -> Status {
    TQ_TRY(link_.open_manager(window));
    twain::Identity identity{};
    if (name == nullptr) {
      if (link_.ask_identity(twain::kGetDefault, identity) != twain::kSuccess) {
        return failed(StatusCode::no_scanner_session);
      }
    } else {
      const Status found = find(-1, name, identity);
      TQ_TRY(found);
      if (found == kOk) {
        reason_ = {twain::kNoSource, "there is no such source"};
        return StatusCode::no_scanner_session;
      }
    }
    const Status opened = link_.open_source(identity);
    return opened.failed() ? failed(opened) : opened;
  };
  const Status opened = open();
  if (opened.failed()) {
    if (opened == StatusCode::no_scanner_session && reason_.code == 0 &&
        link_.state() != TwainState::absent) {
      (void)failed(opened);
    }
    close();
    return reason_.code == twain::kLowMemory ? Status(StatusCode::out_of_memory) : opened;
  }
  apply_all(wanted);
  return kOk;
}

// --- Options ---

Status TwainSession::apply_switch(twain::CapabilityNumber capability, std::int32_t wanted) {
  if (!link_.set(capability, twain::kBool, wanted * kOne)) return StatusCode::scanner_request;
  std::int64_t now = 0;
  if (!link_.current(capability, now)) return StatusCode::scanner_request;
  return Status::from_raw((now != 0) == (wanted != 0) ? 0 : 1);
}

Status TwainSession::apply_mode(std::int32_t bits) {
  if (bits == 0) return kOk;
  const std::int64_t type = bits == 1 ? twain::kBlackWhite : bits == 8 ? twain::kGrey : twain::kRgb;
  if (!link_.set(twain::kPixelType, twain::kUint16, type * kOne)) {
    return StatusCode::scanner_request;
  }
  link_.set(twain::kBitDepth, twain::kUint16, bits * kOne);
  if (bits == 1) link_.set(twain::kPixelFlavor, twain::kUint16, 0);
  std::int32_t now = 0;
  TQ_TRY(value(IMG_SCAN_MODE, now));
  return Status::from_raw(now == bits ? 0 : 1);
}

Status TwainSession::apply_area(const ScanOptions& wanted, std::int32_t option) {
  twain::ImageLayout layout{};
  std::int64_t width = 0, height = 0;
  link_.current(twain::kPhysicalWidth, width);
  link_.current(twain::kPhysicalHeight, height);
  if (link_.to_source(twain::kImage, twain::kImageLayout, twain::kGet, &layout) !=
      twain::kSuccess) {
    return StatusCode::scanner_request;
  }
  const auto set_side = [&](std::int32_t from, std::int32_t side, std::int64_t most,
                            twain::Fix32& first, twain::Fix32& second) {
    const std::int64_t start = wanted.get(from);
    first = to_fix(start);
    if (wanted.get(side) != 0) {
      second = to_fix(start + wanted.get(side));
    } else if (most > 0) {
      second = to_fix(to_thousandths(most));
    }
  };
  set_side(IMG_SCAN_LEFT, IMG_SCAN_WIDTH, width, layout.frame.left, layout.frame.right);
  set_side(IMG_SCAN_TOP, IMG_SCAN_HEIGHT, height, layout.frame.top, layout.frame.bottom);
  const std::uint16_t set =
      link_.to_source(twain::kImage, twain::kImageLayout, twain::kSet, &layout);
  if (set != twain::kSuccess && set != twain::kCheckStatus) return StatusCode::scanner_request;
  std::int32_t now = 0;
  TQ_TRY(value(option, now));
  const std::int32_t asked = wanted.get(option);
  const bool whole = asked == 0 && option >= IMG_SCAN_WIDTH;
  return Status::from_raw(whole || std::abs(now - asked) <= 1 ? 0 : 1);
}

Status TwainSession::apply_number(const ScanOptions& wanted, std::int32_t option) {
  const std::int32_t asked = wanted.get(option);
  if (option == IMG_SCAN_RESOLUTION && asked == 0) return kOk;
  const Known& known = find_known(option);
  const std::int64_t number = to_number(option, asked);
  if (!link_.set(known.capability, known.type, number)) return StatusCode::scanner_request;
  if (option == IMG_SCAN_RESOLUTION) link_.set(twain::kYResolution, twain::kFix32, number);
  std::int32_t now = 0;
  TQ_TRY(value(option, now));
  return Status::from_raw(now == asked ? 0 : 1);
}

Status TwainSession::apply(const ScanOptions& wanted, std::int32_t option) {
  reason_ = {};
  Status applied = kOk;
  if (option == IMG_SCAN_MODE) {
    applied = apply_mode(wanted.get(option));
  } else if (ScanOptions::is_area(option)) {
    applied = apply_area(wanted, option);
  } else if (option == IMG_SCAN_FEEDER || option == IMG_SCAN_DUPLEX) {
    applied = apply_switch(find_known(option).capability, wanted.get(option));
    if (option == IMG_SCAN_FEEDER && wanted.get(option) == 1) {
      link_.set(twain::kAutoFeed, twain::kBool, kOne);
    }
  } else {
    applied = apply_number(wanted, option);
  }
  return applied.failed() ? failed(applied) : applied;
}

// What the source cannot do is left out. Sources remember what the last program wanted, so the switches
// are always told.
void TwainSession::apply_all(const ScanOptions& wanted) {
  link_.set(twain::kUnits, twain::kUint16, 0);  // inches
  (void)apply(wanted, IMG_SCAN_FEEDER);
  (void)apply(wanted, IMG_SCAN_DUPLEX);
  constexpr std::int32_t kOrder[] = {IMG_SCAN_MODE,       IMG_SCAN_RESOLUTION, IMG_SCAN_WIDTH,
                                     IMG_SCAN_BRIGHTNESS, IMG_SCAN_CONTRAST,   IMG_SCAN_THRESHOLD};
  for (const std::int32_t option : kOrder) {
    bool is_set = wanted.is_set(option);
    for (int side = IMG_SCAN_LEFT; option == IMG_SCAN_WIDTH && side <= IMG_SCAN_HEIGHT; ++side) {
      is_set = is_set || wanted.is_set(side);
    }
    if (is_set) (void)apply(wanted, option);
  }
  reason_ = {};
}

Status TwainSession::value(std::int32_t option, std::int32_t& value) {
  if (ScanOptions::is_area(option)) {
    twain::ImageLayout layout{};
    if (link_.to_source(twain::kImage, twain::kImageLayout, twain::kGet, &layout) !=
        twain::kSuccess) {
      return StatusCode::scanner_request;
    }
    const std::int64_t left = from_fix(layout.frame.left), top = from_fix(layout.frame.top);
    const std::int64_t values[] = {left, top, from_fix(layout.frame.right) - left,
                                   from_fix(layout.frame.bottom) - top};
    value = static_cast<std::int32_t>(values[option - IMG_SCAN_LEFT]);
    return kOk;
  }
  std::int64_t number = 0;
  if (option == IMG_SCAN_PAPER_LOADED) {
    // A source that cannot see paper says anything.
    if (!link_.current(twain::kPaperDetectable, number) || number == 0) {
      return StatusCode::scanner_request;
    }
  }
  if (!link_.current(find_known(option).capability, number)) return StatusCode::scanner_request;
  const std::int64_t found = to_value(option, number);
  const bool is_switch = find_known(option).type == twain::kBool;
  value = is_switch ? static_cast<std::int32_t>(number != 0) : static_cast<std::int32_t>(found);
  return option == IMG_SCAN_MODE && found == TwainLink::kNoValue
             ? Status(StatusCode::scanner_request)
             : kOk;
}

Status TwainSession::values(std::int32_t option, ValueList& list) {
  std::int64_t number = 0;
  if (ScanOptions::is_area(option)) {
    if (!link_.current(find_known(option).capability, number)) return StatusCode::scanner_request;
    list.set_range(0, to_thousandths(number), 0);
    return kOk;
  }
  if (option == IMG_SCAN_DUPLEX || option == IMG_SCAN_FEEDER) {
    const bool is_duplex = option == IMG_SCAN_DUPLEX;
    const auto capability = is_duplex ? twain::kDuplex : twain::kFeederEnabled;
    const bool told = link_.current(capability, number);
    list.add(0);
    if (told && (!is_duplex || number != 0)) list.add(1);
    return kOk;
  }
  if (option == IMG_SCAN_PAPER_LOADED) return StatusCode::scanner_request;
  const bool told = link_.values(find_known(option).capability, {to_value, option}, list);
  return told ? kOk : Status(StatusCode::scanner_request);
}

bool TwainSession::feeder_is_empty() {
  std::int32_t feeds = 0, loaded = 1;
  return value(IMG_SCAN_FEEDER, feeds).ok() && feeds == 1 &&
         value(IMG_SCAN_PAPER_LOADED, loaded).ok() && loaded == 0;
}

}  // namespace tq::scan
