// Pages from TWAIN's sources: enabling, waiting, and the three ways in which a page comes.
#include <algorithm>

#include "core/memory.h"
#include "io/byte_stream.h"
#include "scan/dib_page.h"
#include "scan/twain_session.h"

namespace tq::scan {
namespace {

constexpr std::uint32_t kLeastBuffer = 64 << 10, kMostBuffer = 4 << 20;  // bytes of a strip
constexpr int kWait = 100;              // milliseconds between looks whether the scan was cancelled
constexpr int kMostEmptyStrips = 1000;  // one after the other

// The condition of a source that was at work.
StatusCode code_of(std::int32_t condition, StatusCode otherwise) {
  switch (condition) {
    case twain::kLowMemory:
      return StatusCode::out_of_memory;
    case twain::kNoMedia:
      return StatusCode::ok;
    case twain::kPaperJam:
    case twain::kPaperDoubleFeed:
    case twain::kInterlock:
      return StatusCode::read_failed;
    default:
      return otherwise;
  }
}

std::int32_t thousandths(twain::Fix32 fix) {
  return static_cast<std::int32_t>(std::clamp<std::int64_t>(
      to_thousandths(kOne * fix.whole + fix.fraction), 0, Resolution::kMost));
}

// A temporary file that a source writes.
class PageFile {
 public:
  PageFile() = default;
  ~PageFile() {
    if (made_) platform::file_remove(name());
  }
  PageFile(const PageFile&) = delete;
  PageFile& operator=(const PageFile&) = delete;

  Status create() {
    const std::int32_t file = platform::file_create_temporary(text_);
    if (file < 0) return StatusCode::cannot_create;
    platform::file_close(file);
    made_ = true;
    return kOk;
  }
  platform::FileName name() const { return {text_, true}; }
  const char* text() const { return text_; }

 private:
  bool made_ = false;
  char text_[platform::kTempNameBytes] = {};
};

}  // namespace

// --- The session ---

// Memory, else what every source can.
Status TwainSession::choose_mechanism(const ScanOptions& wanted) {
  const std::int32_t asked = wanted.get(IMG_SCAN_TRANSFER);
  constexpr twain::Mechanism kAsked[] = {twain::kMemory, twain::kMemory, twain::kNative,
                                         twain::kFile};
  mechanism_ = kAsked[asked];
  may_fall_back_ = asked == 0;
  if (link_.set(twain::kMechanism, twain::kUint16, mechanism_ * kOne)) {
    std::int64_t now = mechanism_ * kOne;
    link_.current(twain::kMechanism, now);
    if (now == mechanism_ * kOne) return kOk;
  }
  if (mechanism_ == twain::kNative) return kOk;  // it is what sources begin with
  if (!may_fall_back_) return StatusCode::unsupported;
  mechanism_ = twain::kNative;
  link_.set(twain::kMechanism, twain::kUint16, twain::kNative * kOne);
  return kOk;
}

Status TwainSession::enable(const ScanOptions& wanted) {
  const bool dialog = wanted.get(IMG_SCAN_DIALOG) == 1;
  if (!dialog) link_.set(twain::kIndicators, twain::kBool, 0);
  const std::int32_t most = wanted.get(IMG_SCAN_MAX_PAGES);
  link_.set(twain::kTransferCount, twain::kInt16,
            (most > 0 && most < INT16_MAX ? most : -1) * kOne);
  twain::UserInterface window{word(dialog), 0, link_.host().window};
  const std::uint16_t enabled =
      link_.to_source(twain::kControl, twain::kUserInterface, twain::kEnable, &window);
  if (enabled == twain::kSuccess || enabled == twain::kCheckStatus) {
    link_.set_state(TwainState::enabled);
    return Status::from_raw(1);
  }
  if (enabled == twain::kCancel) return kOk;
  reason_ = link_.condition();
  return code_of(reason_.code, StatusCode::no_scanner_session);
}

// Until the source has a page, or does not want to go on.
Status TwainSession::wait_for_transfer(const Job& job, bool& ready) {
  const platform::TwainHost& host = link_.host();
  for (ready = false;;) {
    TQ_TRY(job.go_on());
    void* message = nullptr;
    const platform::HostMessage got = host.next_message(host.context, kWait, &message);
    if (got == platform::HostMessage::quit) return kOk;
    if (got == platform::HostMessage::none) continue;
    twain::Event event{message, twain::kNull};
    const std::uint16_t result =
        link_.to_source(twain::kControl, twain::kEvent, twain::kProcessEvent, &event);
    if (result == twain::kNoSourceEvent) host.dispatch(host.context, message);
    if (event.message == twain::kTransferReady) {
      link_.set_state(TwainState::ready);
      ready = true;
      return kOk;
    }
    if (event.message == twain::kCloseRequest || event.message == twain::kCloseOk) return kOk;
  }
}

Status TwainSession::scan(const ScanOptions& wanted, Job& job) {
  apply_all(wanted);
  reason_ = {};
  const auto run = [&]() -> Status {
    TQ_TRY(choose_mechanism(wanted));
    if (feeder_is_empty()) return kOk;
    const Status enabled = enable(wanted);
    TQ_TRY(enabled);
    if (enabled == kOk) return kOk;
    bool ready = false;
    TQ_TRY(wait_for_transfer(job, ready));
    return ready ? transfer_pages(wanted, job) : kOk;
  };
  const Status scanned = run();
  link_.unwind_to(TwainState::source_open);
  return scanned.failed() ? scanned : Status::from_raw(job.pages());
}

// --- Pages ---

Status TwainSession::transfer_pages(const ScanOptions& wanted, Job& job) {
  for (;;) {
    TQ_TRY(job.go_on());
    Status page = kOk;  // the handle, once there is one: then the result is 1
    const Status outcome = transfer_page(wanted, job, page);
    std::uint16_t left = twain::kManyMore;
    Status ended = kOk;
    if (link_.state() == TwainState::transferring) {
      twain::PendingTransfers pending{twain::kManyMore, 0};
      const std::uint16_t result =
          link_.to_source(twain::kControl, twain::kPendingTransfers, twain::kEndTransfer, &pending);
      if (result == twain::kSuccess) {
        left = pending.count;
        link_.set_state(left == 0 ? TwainState::enabled : TwainState::ready);
      } else {
        ended = transfer_failed(result);
        if (ended.ok()) ended = StatusCode::read_failed;
      }
    }
    // A page that is there is delivered, whatever comes after it.
    if (outcome.raw() == 1) TQ_TRY(job.deliver(ImageHandle{page.raw()}));
    TQ_TRY(outcome);
    TQ_TRY(ended);
    if (left == 0) return kOk;
    if (link_.state() != TwainState::ready) return kOk;
    // What was dropped may be followed by nothing: only a number says that something is.
    if (outcome == kOk && left == twain::kManyMore) return kOk;
    if (!job.is_done()) continue;
    twain::PendingTransfers pending{};
    link_.to_source(twain::kControl, twain::kPendingTransfers, twain::kStopFeeder, &pending);
    return kOk;
  }
}

// 1 and the page's handle, 0 when it was dropped.
Status TwainSession::transfer_page(const ScanOptions& wanted, Job& job, Status& page) {
  // Asked before the strips are set up: some slant them otherwise.
  twain::ImageInfo info{};
  const std::uint16_t told = link_.to_source(twain::kImage, twain::kImageInfo, twain::kGet, &info);
  if (told != twain::kSuccess) return transfer_failed(told);
  resolution_ = page_resolution(info, wanted);
  if (mechanism_ == twain::kFile) return by_file(page);
  if (mechanism_ == twain::kNative) return by_handle(page);
  const Status transferred = by_memory(info, job, page);
  // The pixels are of a kind that strips are not taken of, and none has come.
  if (transferred != StatusCode::unsupported || !may_fall_back_ ||
      link_.state() != TwainState::ready) {
    return transferred;
  }
  link_.set(twain::kMechanism, twain::kUint16, twain::kNative * kOne);
  return by_handle(page);
}

// Why a transfer gave no page: 0 when that was wanted.
Status TwainSession::transfer_failed(std::uint16_t result) {
  if (result == twain::kCancel) {
    link_.set_state(TwainState::transferring);  // it is to be ended like one that has come
    return kOk;
  }
  reason_ = link_.condition();
  return code_of(reason_.code, StatusCode::read_failed);
}

// Files that say 96 dots per inch, because their scanner said so, are what archives send back.
Resolution TwainSession::page_resolution(const twain::ImageInfo& info, const ScanOptions& wanted) {
  const auto choose = [&](twain::Fix32 told, twain::CapabilityNumber capability) {
    const std::int32_t page = thousandths(told);
    const bool doubtful = page == 0 || page == 72000 || page == 96000;
    std::int64_t number = 0;
    if (doubtful && link_.current(capability, number) && number > 0) {
      return static_cast<std::int32_t>(
          std::min<std::int64_t>(to_thousandths(number), Resolution::kMost));
    }
    return page > 0 ? page : wanted.get(IMG_SCAN_RESOLUTION);
  };
  return {choose(info.x_resolution, twain::kXResolution),
          choose(info.y_resolution, twain::kYResolution)};
}

Status TwainSession::shape_of(const twain::ImageInfo& info, PageShape& shape,
                              std::span<Rgb> palette) {
  shape.width = info.width;
  shape.height = info.length;
  shape.resolution = resolution_;
  const auto is = [&](twain::PixelType type, int bits) {
    return info.pixel_type == type && info.pixel_bits == bits;
  };
  // -1 is a width that is known at the end.
  if (info.planar != 0 || info.compression != 0 || info.width < 1) return StatusCode::unsupported;
  if (is(twain::kBlackWhite, 1)) {
    std::int64_t flavour = 0;
    link_.current(twain::kPixelFlavor, flavour);
    shape.samples = flavour == 0 ? Samples::white_bits : Samples::black_bits;
  } else if (is(twain::kGrey, 8) || is(twain::kGrey, 16)) {
    shape.samples = Samples::grey;
  } else if (is(twain::kRgb, 24) || is(twain::kRgb, 48)) {
    shape.samples = Samples::rgb;
  } else if (is(twain::kPalette, 8)) {
    twain::Palette8 told{};
    if (link_.to_source(twain::kImage, twain::kPalette8, twain::kGet, &told) != twain::kSuccess) {
      return StatusCode::unsupported;
    }
    for (std::size_t i = 0; i < std::min<std::size_t>(told.count, palette.size()); ++i) {
      const twain::PaletteEntry& entry = told.entries[i];
      palette[i] = {entry.blue, entry.green, entry.red, 0};
    }
    shape.samples = Samples::indices;
    shape.palette = palette;
  } else {
    return StatusCode::unsupported;
  }
  shape.sample_bytes = info.pixel_bits == 16 || info.pixel_bits == 48 ? 2 : 1;
  return kOk;
}

Status TwainSession::by_memory(const twain::ImageInfo& info, Job& job, Status& page) {
  PageShape shape;
  std::array<Rgb, 256> palette{};
  TQ_TRY(shape_of(info, shape, palette));
  twain::SetupMemory setup{};
  if (link_.to_source(twain::kControl, twain::kSetupMemory, twain::kGet, &setup) !=
      twain::kSuccess) {
    return StatusCode::unsupported;
  }
  // Copies: fields of packed structures are not to be referred to.
  const std::uint32_t wanted = setup.preferred == twain::kAnything ? kLeastBuffer : setup.preferred;
  const std::uint32_t most = setup.most, least = setup.least == twain::kAnything ? 0 : setup.least;
  const std::uint32_t bytes =
      std::max(std::min(std::clamp(wanted, kLeastBuffer, kMostBuffer), most), least);
  GlobalBlock buffer;
  TQ_TRY(buffer.allocate(bytes));
  PageBuilder builder;
  TQ_TRY(builder.begin(shape));

  std::int32_t next = 0;  // row, where the source does not say
  const auto put = [&](const twain::MemoryTransfer& strip) -> Status {
    const std::uint32_t written = strip.written, x = strip.x, columns = strip.columns;
    const auto filled = pixels::Bytes(buffer.bytes()).first(std::min(written, bytes));
    const bool placed = strip.y != twain::kAnything && strip.y <= INT32_MAX;
    const std::int64_t top = placed ? strip.y : next;
    const bool is_tile = columns != twain::kAnything && x != twain::kAnything &&
                         (x != 0 || columns < std::uint32_t(shape.width));
    for (std::uint32_t i = 0; i < strip.rows && strip.row_bytes > 0; ++i) {
      const std::uint64_t at = std::uint64_t{i} * strip.row_bytes;
      if (at >= filled.size() || top + i > INT32_MAX) break;
      const auto row = filled.subspan(static_cast<std::size_t>(at));
      const auto stored =
          row.first(std::min<std::size_t>(row.size(), std::size_t{strip.row_bytes}));
      const auto y = static_cast<std::int32_t>(top + i);
      if (is_tile) {
        constexpr auto kMost = std::uint32_t{INT32_MAX};
        TQ_TRY(builder.put_part(y, static_cast<std::int32_t>(std::min(x, kMost)),
                                static_cast<std::int32_t>(std::min(columns, kMost)), stored));
      } else {
        TQ_TRY(builder.put_row(y, stored));
      }
      next = y + 1;
    }
    return kOk;
  };

  for (int empty = 0;;) {
    TQ_TRY(job.go_on());
    twain::MemoryTransfer strip{};
    strip.compression = 0xFFFF;
    strip.row_bytes = strip.columns = strip.rows = strip.x = strip.y = twain::kAnything;
    strip.memory = {twain::kProgramOwns | twain::kPointer, bytes, buffer.data()};
    const std::uint16_t result =
        link_.to_source(twain::kImage, twain::kImageMemory, twain::kGet, &strip);
    if (result != twain::kSuccess && result != twain::kTransferDone) return transfer_failed(result);
    link_.set_state(TwainState::transferring);
    if (strip.row_bytes == twain::kAnything || strip.rows == twain::kAnything) strip.rows = 0;
    TQ_TRY(put(strip));
    if (result == twain::kTransferDone) break;
    empty = strip.written == 0 ? empty + 1 : 0;
    if (empty > kMostEmptyStrips) return StatusCode::read_failed;
  }
  page = builder.finish();
  return page.failed() ? page : Status::from_raw(1);
}

Status TwainSession::page_from_handle(twain::Handle handle) {
  const platform::TwainHost& host = link_.host();
  const void* const dib = link_.lock(handle);
  if (dib == nullptr) return StatusCode::out_of_memory;
  const std::size_t size = link_.size(handle);
  const bool is_plain = is_plain_dib(dib, size);
  if (!is_plain) {
    const Status decoded = decode_dib(dib, size, resolution_);
    link_.unlock(handle);
    link_.free(handle);
    return decoded;
  }
  link_.unlock(handle);
  void* const block = host.to_block(host.context, handle);
  if (block != nullptr) {
    const Status adopted = adopt_page(block, resolution_);
    if (adopted.failed()) platform::block_free(block);
    return adopted;
  }
  const void* const again = link_.lock(handle);
  const Status decoded = decode_dib(again, size, resolution_);
  if (again != nullptr) link_.unlock(handle);
  link_.free(handle);
  return decoded;
}

Status TwainSession::by_handle(Status& page) {
  twain::Handle handle = nullptr;
  const std::uint16_t result =
      link_.to_source(twain::kImage, twain::kImageNative, twain::kGet, &handle);
  if (result != twain::kTransferDone) {
    if (result == twain::kCancel && handle != nullptr) link_.free(handle);
    return transfer_failed(result);
  }
  link_.set_state(TwainState::transferring);
  if (handle == nullptr) return StatusCode::read_failed;
  page = page_from_handle(handle);
  return page.failed() ? page : Status::from_raw(1);
}

Status TwainSession::by_file(Status& page) {
  PageFile file;
  TQ_TRY(file.create());
  twain::SetupFile setup{};
  const std::size_t length = std::strlen(file.text());
  if (length >= sizeof setup.name) return StatusCode::cannot_create;
  bool is_set = false;
  for (const twain::FileFormat format : {twain::kBmp, twain::kTiff}) {
    std::copy_n(file.text(), length + 1, setup.name);
    setup.format = format;
    setup.volume = -1;
    is_set =
        link_.to_source(twain::kControl, twain::kSetupFile, twain::kSet, &setup) == twain::kSuccess;
    if (is_set) break;
  }
  if (!is_set) return StatusCode::unsupported;
  const std::uint16_t result =
      link_.to_source(twain::kImage, twain::kImageFile, twain::kGet, nullptr);
  if (result != twain::kTransferDone) return transfer_failed(result);
  link_.set_state(TwainState::transferring);
  page = decode_page_file(file.name(), resolution_);
  return page.failed() ? page : Status::from_raw(1);
}

}  // namespace tq::scan
