// How much memory a drawing of A0 size at 600 dots per inch takes on its way from Group 4 data in a
// file, through a crop rectangle, to a page of a document: plan_memory FOLDER
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "core/image_table.h"
#include "dispatch/row_sink.h"
#include "dispatch/save.h"
#include "formats/ccitt/ccitt.h"
#include "io/open_file.h"

namespace tq {
namespace {

constexpr std::int32_t kWidth = 19866, kHeight = 28087;  // pixels

// Slanting lines, hatched areas and lines of lettering, as transition lists.
std::int32_t IMG_CB_C draw_row(void*, void* dest, std::int32_t y, std::int32_t bytes) {
  static std::vector<std::pair<std::int32_t, std::int32_t>> runs;
  runs.clear();
  for (std::int32_t i = 0; i < 40; ++i) {
    const std::int32_t slope = i % 7 - 3;
    const std::int32_t x = (i * 4999 + slope * y / 2) % kWidth;
    runs.emplace_back(x < 0 ? x + kWidth : x, 9);
  }
  if (y / 1500 % 3 == 1) {
    for (std::int32_t x = 3000; x < 7000; x += 60) runs.emplace_back(x + y % 60, 5);
  }
  if (y % 120 < 70 && y / 2000 % 4 == 2) {
    for (std::int32_t x = 9000; x < 17000; x += 40) runs.emplace_back(x + (x * 7 + y / 10) % 9, 11);
  }
  std::sort(runs.begin(), runs.end());
  std::vector<std::uint32_t> words = {0};
  std::int32_t end = 0;
  for (const auto& [x, length] : runs) {
    if (x <= end || x + length >= kWidth) continue;
    words.push_back(static_cast<std::uint32_t>(x));
    words.push_back(static_cast<std::uint32_t>(end = x + length));
  }
  words.insert(words.end(), 3, kWidth);
  words.insert(words.end(), 3, kWidth + 2);
  if (4 * words.size() > static_cast<std::size_t>(bytes)) return IMG_WRITE_FAILED;
  std::memcpy(dest, words.data(), 4 * words.size());
  return static_cast<std::int32_t>(4 * words.size());
}

double peak_megabytes() {
  std::ifstream status("/proc/self/status");
  std::string word;
  while (status >> word) {
    double kilobytes = 0;
    if (word == "VmHWM:" && status >> kilobytes) return kilobytes / 1000;
  }
  return 0;
}

Status write_drawing(const std::string& name) {
  OpenFile file;
  TQ_TRY(file.open(name.c_str(), OpenMode::create));
  formats::CcittEncoder encoder;
  TQ_TRY(encoder.open({}, kWidth));
  return encoder.encode(file.handle(), {draw_row, nullptr}, {0, kHeight});
}

Status read_drawing(const std::string& name, std::int32_t bytes, ImageHandle& image) {
  OpenFile file;
  TQ_TRY(file.open(name.c_str(), OpenMode::read));
  ImageSlot slot;
  TQ_TRY(slot.allocate());
  dispatch::ImageSink sink(slot.handle(), slot.record());
  HeaderBlock header = dib_header(kWidth, kHeight, 1);
  header.palette[1] = {255, 255, 255, 0};
  const formats::RowSink rows = sink.callbacks();
  TQ_TRY(rows.header(header));
  ChunkReader input;
  TQ_TRY(input.open(file.handle(), formats::kCcittChunk));
  formats::CcittDecoder decoder;
  TQ_TRY(decoder.open({}, kWidth, formats::CcittRows::runs));
  const Status decoded = decoder.decode(input, bytes, {0, kHeight}, rows);
  if (decoded.raw() != kHeight) return StatusCode::bad_image;
  TQ_TRY(sink.finish());
  image = ImageHandle{slot.keep().raw()};
  return kOk;
}

Status measure(const std::string& folder) {
  const std::string drawing = folder + "/plan.g4", document = folder + "/plan.pdf";
  remove_file(document.c_str());
  const Status written = write_drawing(drawing);
  TQ_TRY(written);
  std::printf("Group 4 data: %.2f MB; peak so far %.1f MB\n", written.raw() / 1e6,
              peak_megabytes());
  ImageHandle image{};
  TQ_TRY(read_drawing(drawing, written.raw(), image));
  std::printf("decoded: peak %.1f MB\n", peak_megabytes());
  IMG_set_croprect(static_cast<std::int32_t>(image), 1001, 2003, 17000, 24001);
  TQ_TRY(dispatch::save_image_file(image, document.c_str(), IMG_TYPE_PDF));
  std::printf("cropped and saved: peak %.1f MB\n", peak_megabytes());
  return kOk;
}

}  // namespace
}  // namespace tq

int main(int argc, char** argv) {
  const tq::Status measured = tq::measure(argc > 1 ? argv[1] : ".");
  if (measured.failed()) std::fprintf(stderr, "status %d\n", measured.raw());
  return measured.failed() ? EXIT_FAILURE : EXIT_SUCCESS;
}
