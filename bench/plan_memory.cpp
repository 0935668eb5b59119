// How much memory a drawing of A0 size at 600 dots per inch takes on its way from Group 4 data in a
// file, through a crop rectangle, to a page of another one, and then cleaned of specks and lines; and
// what each operation takes by itself: plan_memory FOLDER [tif], else of PDF
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <tarnquill.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

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

std::int32_t write_drawing(const std::string& name, std::int32_t code) {
  std::int32_t header[IMG_HEADER_BLOCK_BYTES / 4] = {40, kWidth, kHeight, 1 | 1 << 16};
  const int file = open(name.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0666);
  const std::int32_t saved = IMGLOW_save_bitmap(file, header, code, draw_row, nullptr);
  close(file);
  return saved;
}

// The reader takes the number that the picture's name ends in for the picture's object.
void make_readable(const std::string& name) {
  std::fstream file(name, std::ios::in | std::ios::out | std::ios::binary);
  std::string start(1000, '\0');
  file.read(start.data(), 1000);
  file.seekp(static_cast<std::streamoff>(start.find("/Tarnquill0") + 10));
  file.put('5');
}

struct Operation {
  const char* name;
  std::int32_t (*run)(std::int32_t image);
};
constexpr Operation kOperations[] = {
    {"decoded", [](std::int32_t) -> std::int32_t { return IMG_OK; }},
    {"turn by 90", [](std::int32_t i) { return IMG_rotate_bitmap(i, 9000, -1, 0); }},
    {"flip", [](std::int32_t i) { return IMG_flip_bitmap(i); }},
    {"mirror", [](std::int32_t i) { return IMG_mirror_bitmap(i); }},
    {"invert", [](std::int32_t i) { return IMG_invert_bitmap(i); }},
    {"crop", [](std::int32_t i) { return IMG_crop_bitmap(i, 1001, 2003, 17000, 24001); }},
    {"despeckle", [](std::int32_t i) { return IMG_despeckle_bitmap(i, 12, 12, 7); }},
    {"find skew", [](std::int32_t i) { return IMG_find_skew(i, 0, nullptr, nullptr); }},
    {"turn by 1.3, as deskewing does",
     [](std::int32_t i) { return IMG_rotate_bitmap(i, 130, -1, 1); }},
    {"1/8 grey", [](std::int32_t i) { return IMG_resize_bitmap(i, kWidth / 8, kHeight / 8, 1); }}};

// Each in a process of its own, whose peak is the operation's.
void measure_operations(const std::string& drawing) {
  for (const Operation& operation : kOperations) {
    std::fflush(stdout);
    if (fork() == 0) {
      const std::int32_t image = IMG_decompress_bitmap(drawing.c_str());
      const std::int32_t status = operation.run(image);
      std::printf("%-32s status %4d, peak %.1f MB\n", operation.name, status, peak_megabytes());
      std::fflush(stdout);
      _exit(0);
    }
    wait(nullptr);
  }
}

std::int32_t measure(const std::string& folder, const std::string& ending) {
  const std::string drawing = folder + "/plan." + ending, part = folder + "/part." + ending;
  const std::int32_t code = ending == "tif" ? IMG_TYPE_TIFF_G4 : IMG_TYPE_PDF;
  unlink(part.c_str());
  if (const std::int32_t saved = write_drawing(drawing, code); saved < 0) return saved;
  if (code == IMG_TYPE_PDF) make_readable(drawing);
  measure_operations(drawing);
  struct stat about {};
  stat(drawing.c_str(), &about);
  std::printf("file: %.2f MB; peak so far %.1f MB\n", static_cast<double>(about.st_size) / 1e6,
              peak_megabytes());
  const std::int32_t image = IMG_decompress_bitmap(drawing.c_str());
  if (image < 0) return image;
  std::printf("decoded: peak %.1f MB\n", peak_megabytes());
  IMG_set_croprect(image, 1001, 2003, 17000, 24001);
  const std::int32_t saved = IMG_save_bitmap(image, part.c_str(), code);
  std::printf("cropped and saved: peak %.1f MB\n", peak_megabytes());
  if (saved < 0) return saved;
  const std::int32_t specks = IMG_despeckle_bitmap(image, 12, 12, 7);
  std::printf("%d specks removed: peak %.1f MB\n", specks, peak_megabytes());
  const std::int32_t lines = IMG_remove_lines(image, 0, 0, 3);
  std::printf("%d lines removed: peak %.1f MB\n", lines, peak_megabytes());
  return std::min(specks, lines);
}

}  // namespace

int main(int argc, char** argv) {
  const std::int32_t status = measure(argc > 1 ? argv[1] : ".", argc > 2 ? argv[2] : "pdf");
  if (status < 0) std::fprintf(stderr, "status %d\n", status);
  return status < 0 ? EXIT_FAILURE : EXIT_SUCCESS;
}
