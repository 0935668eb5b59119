// Pages from SANE: loading, opening, and reading frames row by row.
#include "scan/sane_session.h"

#include <algorithm>
#include <cstring>

#include "platform/scan_host.h"

namespace tq::scan {
namespace {

constexpr std::int32_t kReadBytes = 64 * 1024;  // in one go, or a row
constexpr int kMostFrames = 8;                  // of a page: three colours, and what else may come
constexpr int kMostEmptyReads = 1000;           // one after the other

Reason reason_of(std::int32_t status) {
  constexpr const char* kWords[] = {"",
                                    "the source cannot do that",
                                    "cancelled at the device",
                                    "the device is busy",
                                    "the source refuses a value",
                                    "no more data",
                                    "paper jam",
                                    "the feeder is empty",
                                    "a cover is open",
                                    "the device fails",
                                    "the source has no memory",
                                    "access is denied"};
  const bool known = status >= 0 && status < std::ssize(kWords);
  return {status, known ? kWords[status] : "unknown"};
}

// Of a device that was scanning.
StatusCode code_of(std::int32_t status) {
  switch (status) {
    case sane::kGood:
    case sane::kCancelled:  // by the user, at the device
      return StatusCode::ok;
    case sane::kNoMemory:
      return StatusCode::out_of_memory;
    case sane::kUnsupported:
      return StatusCode::unsupported;
    case sane::kDeviceBusy:
    case sane::kInvalid:
    case sane::kAccessDenied:
      return StatusCode::no_scanner_session;
    default:
      return StatusCode::read_failed;
  }
}

Status shape_of(const sane::Parameters& frame, PageShape& shape) {
  shape.width = frame.pixels_per_line;
  shape.height = frame.lines;
  if (frame.depth != 1 && frame.depth != 8 && frame.depth != 16) return StatusCode::unsupported;
  if (frame.format == sane::kGray) {
    shape.samples = frame.depth == 1 ? Samples::black_bits : Samples::grey;
  } else if (frame.format >= sane::kRgb && frame.format <= sane::kBlue && frame.depth > 1) {
    shape.samples = Samples::rgb;
  } else {
    return StatusCode::unsupported;
  }
  shape.sample_bytes = frame.depth == 16 ? 2 : 1;
  return kOk;
}

template <class Function>
bool find(void* library, const char* name, Function& function) {
  function = reinterpret_cast<Function>(platform::driver_symbol(library, name));
  return function != nullptr;
}

bool find_all(void* library, sane::Functions& f) {
  return find(library, "sane_init", f.init) && find(library, "sane_exit", f.exit) &&
         find(library, "sane_get_devices", f.get_devices) && find(library, "sane_open", f.open) &&
         find(library, "sane_close", f.close) &&
         find(library, "sane_get_option_descriptor", f.get_option_descriptor) &&
         find(library, "sane_control_option", f.control_option) &&
         find(library, "sane_start", f.start) &&
         find(library, "sane_get_parameters", f.get_parameters) &&
         find(library, "sane_read", f.read) && find(library, "sane_cancel", f.cancel);
}

}  // namespace

Status SaneSession::failed(std::int32_t sane_status) {
  reason_ = reason_of(sane_status);
  return code_of(sane_status);
}

Status SaneSession::load() {
  reason_ = {};
  if (loaded_) return kOk;
  if (const sane::Functions* const stand_in = sane_stand_in; stand_in != nullptr) {
    functions_ = *stand_in;
  } else {
    library_ = platform::driver_open("libsane.so.1");
    if (library_ == nullptr) return StatusCode::no_scanner_library;
    if (!find_all(library_, functions_)) {
      platform::driver_close(library_);
      library_ = nullptr;
      return StatusCode::no_scanner_library;
    }
  }
  sane::Word version = 0;
  const std::int32_t status = functions_.init(&version, nullptr);
  loaded_ = status == sane::kGood;
  if (loaded_ && version >> 24 == 1) return kOk;
  close();
  (void)failed(status);
  return StatusCode::no_scanner_session;
}

// SANE keeps the list until the next time.
Status SaneSession::find_devices() {
  devices_ = nullptr;
  const std::int32_t status = functions_.get_devices(&devices_, 0);
  if (status == sane::kGood && devices_ != nullptr) return kOk;
  devices_ = nullptr;
  (void)failed(status);
  return status == sane::kNoMemory ? StatusCode::out_of_memory : StatusCode::no_scanner_session;
}

Status SaneSession::source(std::int32_t index, const char*& name) {
  TQ_TRY(load());
  if (index == 0 || devices_ == nullptr) TQ_TRY(find_devices());
  for (std::int32_t i = 0; index >= 0 && devices_[i] != nullptr; ++i) {
    if (i < index) continue;
    name = devices_[i]->name;
    return Status::from_raw(1);
  }
  return kOk;
}

Status SaneSession::open(void* /*window*/, const char* name, const ScanOptions& wanted) {
  device_.close();
  TQ_TRY(load());
  if (name == nullptr) {
    const Status first = source(0, name);
    TQ_TRY(first);
    if (first == kOk) {
      reason_.words = "no device was found";
      return StatusCode::no_scanner_session;
    }
  }
  const std::int32_t status = device_.open(functions_, name);
  if (status != sane::kGood) {
    (void)failed(status);
    return status == sane::kNoMemory ? StatusCode::out_of_memory : StatusCode::no_scanner_session;
  }
  apply_all(wanted);
  return kOk;
}

void SaneSession::close() {
  device_.close();
  if (loaded_) functions_.exit();
  if (library_ != nullptr) platform::driver_close(library_);
  loaded_ = false;
  library_ = nullptr;
  devices_ = nullptr;
}

Status SaneSession::apply(const ScanOptions& wanted, std::int32_t option) {
  reason_ = {};
  return device_.apply(wanted, option);
}

// What the device cannot do is left out.
void SaneSession::apply_all(const ScanOptions& wanted) {
  // Later ones depend on earlier ones.
  constexpr std::int32_t kOrder[] = {IMG_SCAN_FEEDER,     IMG_SCAN_DUPLEX,   IMG_SCAN_MODE,
                                     IMG_SCAN_RESOLUTION, IMG_SCAN_LEFT,     IMG_SCAN_TOP,
                                     IMG_SCAN_WIDTH,      IMG_SCAN_HEIGHT,   IMG_SCAN_BRIGHTNESS,
                                     IMG_SCAN_CONTRAST,   IMG_SCAN_THRESHOLD};
  for (const std::int32_t option : kOrder) {
    if (wanted.is_set(option)) (void)device_.apply(wanted, option);
  }
}

Status SaneSession::read_frame(const sane::Parameters& frame, Job& job, PageBuilder& page) {
  const std::int32_t stride = frame.bytes_per_line;
  const int channel = frame.format - sane::kRed;  // of a page in three passes
  RowBuffer<std::uint8_t> buffer;
  TQ_TRY(buffer.allocate(std::max<std::int64_t>(kReadBytes / stride, 1) * stride));
  const auto put = [&](std::int32_t y, pixels::Bytes row) {
    return channel < 0 ? page.put_row(y, row) : page.put_channel(y, channel, row);
  };
  std::int32_t held = 0, y = 0;
  int empty = 0;
  for (;;) {
    TQ_TRY(job.go_on());
    sane::Word bytes = 0;
    const auto room = static_cast<sane::Word>(buffer.size()) - held;
    const std::int32_t status =
        functions_.read(device_.handle(), buffer.data() + held, room, &bytes);
    bytes = std::clamp(bytes, 0, room);
    if (status == sane::kEndOfData) break;
    if (status != sane::kGood || (bytes == 0 && ++empty > kMostEmptyReads)) {
      const Status ended = failed(status == sane::kGood ? std::int32_t{sane::kIoError} : status);
      return ended == kOk ? Status(StatusCode::stop_after_header) : ended;
    }
    if (bytes > 0) empty = 0;
    held += bytes;
    const pixels::Bytes filled = buffer.pixels().first(held);
    std::int32_t used = 0;
    for (; held - used >= stride; used += stride, ++y) TQ_TRY(put(y, filled.subspan(used, stride)));
    std::memmove(buffer.data(), buffer.data() + used, held - used);
    held -= used;
  }
  if (held > 0) TQ_TRY(put(y, buffer.pixels().first(held)));
  return kOk;
}

// The device has started.
Status SaneSession::read_page(Resolution resolution, Job& job, PageBuilder& page) {
  for (int frames = 0; frames < kMostFrames; ++frames) {
    if (frames > 0) {
      const std::int32_t status = functions_.start(device_.handle());
      if (status != sane::kGood) {
        TQ_TRY(failed(status));
        return StatusCode::stop_after_header;
      }
    }
    sane::Parameters frame{};
    const std::int32_t status = functions_.get_parameters(device_.handle(), &frame);
    if (status != sane::kGood) {
      TQ_TRY(failed(status));
      return StatusCode::stop_after_header;
    }
    PageShape shape;
    TQ_TRY(shape_of(frame, shape));
    if (frame.bytes_per_line < 1) return StatusCode::bad_image;
    if (frames == 0) {
      shape.resolution = resolution;
      TQ_TRY(page.begin(shape));
    }
    TQ_TRY(read_frame(frame, job, page));
    if (frame.last_frame != 0 || frame.format <= sane::kRgb) return kOk;
  }
  return StatusCode::bad_image;
}

Status SaneSession::scan_pages(bool from_feeder, Resolution resolution, Job& job) {
  do {
    TQ_TRY(job.go_on());
    const std::int32_t status = functions_.start(device_.handle());
    if (status == sane::kNoDocuments) return kOk;
    // Some give one page each time that they are opened.
    if (status == sane::kInvalid && job.pages() > 0) return kOk;
    TQ_TRY(failed(status));
    if (status != sane::kGood) return kOk;
    PageBuilder page;
    const Status read = read_page(resolution, job, page);
    // The user has ended it at the device.
    if (read == StatusCode::stop_after_header && reason_.code == sane::kCancelled) {
      return job.go_on();
    }
    TQ_TRY(read);
    TQ_TRY(job.deliver(page));
  } while (from_feeder && !job.is_done());
  return kOk;
}

Status SaneSession::scan(const ScanOptions& wanted, Job& job) {
  reason_ = {};
  apply_all(wanted);
  std::int32_t feeds = 0;
  const bool tells = device_.value(IMG_SCAN_FEEDER, feeds).ok();
  const bool from_feeder = wanted.get(IMG_SCAN_FEEDER) == 1 || (tells && feeds == 1);
  // Asked before it starts: some are not to be asked while they scan.
  Resolution resolution = device_.resolution();
  const std::int32_t asked = wanted.get(IMG_SCAN_RESOLUTION);
  if (resolution.x == 0) resolution = {asked, asked};
  const Status scanned = scan_pages(from_feeder, resolution, job);
  functions_.cancel(device_.handle());
  return scanned.failed() ? scanned : Status::from_raw(job.pages());
}

}  // namespace tq::scan
