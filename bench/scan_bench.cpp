// A page of A3 at 600 dots per inch in colour, from a scanner that only copies it, beside memcpy.
#include <algorithm>

#include "bench_support.h"
#include "scan/sane_session.h"

namespace tq::bench {
namespace {

using namespace scan;
using sane::Word;

constexpr Word kWidth = 7016, kHeight = 9933, kStride = 3 * kWidth;
constexpr std::size_t kBytes = std::size_t{kStride} * kHeight;

const Bytes& page() {
  static const Bytes bytes = noise(kBytes);
  return bytes;
}
std::size_t position = 0;

constexpr sane::Functions kCopyingDevice = {
    .init = [](Word* version, void*) -> std::int32_t {
      *version = 1 << 24;
      return sane::kGood;
    },
    .exit = [] {},
    .get_devices = [](const sane::Device* const**, Word) -> std::int32_t {
      return sane::kUnsupported;
    },
    .open = [](const char*, sane::Handle* handle) -> std::int32_t {
      *handle = &position;
      return sane::kGood;
    },
    .close = [](sane::Handle) {},
    .get_option_descriptor = [](sane::Handle, Word) -> const sane::Option* { return nullptr; },
    .control_option = [](sane::Handle, Word, std::int32_t, void*, Word*) -> std::int32_t {
      return sane::kInvalid;
    },
    .start = [](sane::Handle) -> std::int32_t {
      position = 0;
      return sane::kGood;
    },
    .get_parameters = [](sane::Handle, sane::Parameters* told) -> std::int32_t {
      *told = {sane::kRgb, 1, kStride, kWidth, kHeight, 8};
      return sane::kGood;
    },
    .read = [](sane::Handle, std::uint8_t* to, Word room, Word* bytes) -> std::int32_t {
      const std::size_t given = std::min(kBytes - position, static_cast<std::size_t>(room));
      std::memcpy(to, page().data() + position, given);
      position += given;
      *bytes = static_cast<Word>(given);
      return given == 0 ? sane::kEndOfData : sane::kGood;
    },
    .cancel = [](sane::Handle) {},
};

std::int32_t IMG_CB_STD forget(std::intptr_t, std::int32_t image, std::int32_t) {
  return IMG_delete_bitmap(image);
}

void scan_a3(benchmark::State& state) {
  sane_stand_in = &kCopyingDevice;
  page();
  if (IMG_scan_open(nullptr, "copier") != IMG_OK) state.SkipWithError("no device");
  for (auto _ : state) {
    if (IMG_scan_pages(forget, 0) != 1) state.SkipWithError("no page");
  }
  IMG_scan_close();
  sane_stand_in = nullptr;
  report_bytes(state, kBytes);
}
BENCHMARK(scan_a3)->Unit(benchmark::kMillisecond);

void scan_a3_memcpy(benchmark::State& state) {
  Bytes copy(kBytes);
  for (auto _ : state) {
    std::memcpy(copy.data(), page().data(), kBytes);
    benchmark::ClobberMemory();
  }
  report_bytes(state, kBytes);
}
BENCHMARK(scan_a3_memcpy)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace tq::bench
