// Adding a page to a document that has many: the whole table is written again every time.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "core/dib.h"
#include "formats/pdf/pdf.h"
#include "io/byte_stream.h"

namespace tq {
namespace {

namespace fs = std::filesystem;

constexpr std::int32_t kWidth = 2480, kHeight = 3508;  // A4 at 300 dots per inch

// A few hundred strokes a row, in lines.
std::int32_t IMG_CB_C draw_row(void*, void* dest, std::int32_t y, std::int32_t bytes) {
  auto* word = static_cast<std::uint32_t*>(dest);
  auto* const end = word + bytes / 4 - 6;
  *word++ = 0;
  for (std::uint32_t x = 300; y % 60 < 40 && x < 2180 && word + 2 < end; x += 23) {
    *word++ = x + static_cast<std::uint32_t>(y) / 9 % 5;
    *word++ = x + 8;
  }
  word = std::fill_n(word, 3, kWidth);
  word = std::fill_n(word, 3, kWidth + 2);
  return static_cast<std::int32_t>(reinterpret_cast<std::uint8_t*>(word) -
                                   static_cast<std::uint8_t*>(dest));
}

void append(const std::string& name) {
  OpenFile file;
  const bool exists = fs::exists(name);
  if (file.open(name.c_str(), exists ? OpenMode::update : OpenMode::create).failed()) std::abort();
  HeaderBlock header = dib_header(kWidth, kHeight, 1);
  if (pdf::encode({file.handle(), &header, {draw_row, nullptr}}).failed()) std::abort();
}

void pdf_append(benchmark::State& state) {
  const std::string name = (fs::temp_directory_path() / "tarnquill-bench.pdf").string();
  fs::remove(name);
  for (std::int64_t page = 1; page < state.range(0); ++page) append(name);
  const auto bytes = fs::file_size(name);
  std::uintmax_t added = 0;
  for (auto _ : state) {
    state.PauseTiming();
    fs::resize_file(name, bytes);
    state.ResumeTiming();
    append(name);
    added = fs::file_size(name) - bytes;
  }
  state.counters["bytes"] = static_cast<double>(added);
  fs::remove(name);
}
BENCHMARK(pdf_append)->Arg(2)->Arg(100)->Arg(200)->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace tq
