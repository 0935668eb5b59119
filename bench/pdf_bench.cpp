// Adding a page to a document that has many: the whole table is written again every time, but for
// documents with PDF_WRITING.
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

void append(const std::string& name, const Options& options) {
  OpenFile file;
  const bool exists = fs::exists(name);
  if (file.open(name.c_str(), exists ? OpenMode::update : OpenMode::create).failed()) std::abort();
  HeaderBlock header = dib_header(kWidth, kHeight, 1);
  const formats::EncodeRequest request{
      .stream = file.handle(), .image = &header, .rows = {draw_row, nullptr}, .options = options};
  if (pdf::encode_page(request).failed()) std::abort();
}

void append_to(benchmark::State& state, std::int32_t writing) {
  Options options;
  options.set(IMG_OPTION_PDF_WRITING, writing);
  const std::string name = (fs::temp_directory_path() / "tarnquill-bench.pdf").string();
  fs::remove(name);
  for (std::int64_t page = 1; page < state.range(0); ++page) append(name, options);
  const auto bytes = fs::file_size(name);
  std::uintmax_t added = 0;
  for (auto _ : state) {
    state.PauseTiming();
    fs::resize_file(name, bytes);
    state.ResumeTiming();
    append(name, options);
    added = fs::file_size(name) - bytes;
  }
  state.counters["bytes"] = static_cast<double>(added);
  fs::remove(name);
}

void pdf_append(benchmark::State& state) {
  append_to(state, 0);
}
BENCHMARK(pdf_append)->Arg(2)->Arg(100)->Arg(200)->Unit(benchmark::kMicrosecond);

void pdf_append_as_shown(benchmark::State& state) {
  append_to(state, 1);
}
BENCHMARK(pdf_append_as_shown)
    ->Arg(2)
    ->Arg(200)
    ->Arg(992)
    ->Arg(1000)
    ->Arg(1024)
    ->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace tq
