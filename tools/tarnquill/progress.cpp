// One line on standard error, drawn over itself.
#include "progress.h"

#include <algorithm>
#include <cstdio>

#include "errors.h"
#include "system.h"

namespace tool {
namespace {

using namespace std::chrono_literals;

constexpr auto kPatience = 500ms;  // shorter work shows nothing
constexpr auto kBetween = 100ms;
constexpr int kBarCells = 30;
constexpr std::size_t kNameCells = 30;
constexpr char kEraseLine[] = "\r\033[K";

// The end of a long name says more than its beginning.
std::string shortened(const std::string& name) {
  if (name.size() <= kNameCells) return name;
  std::size_t start = name.size() - (kNameCells - 3);
  while (start < name.size() && (name[start] & 0xC0) == 0x80) ++start;  // not inside of a character
  return "..." + name.substr(start);
}

}  // namespace

Progress::Progress(bool drawn) : drawn_(drawn) {
  IMG_set_statusbar(reinterpret_cast<std::intptr_t>(this), on_step, 1);
}

Progress::~Progress() {
  clear();
  IMG_set_statusbar(0, nullptr, 0);
}

void Progress::begin_file(const std::string& name) {
  clear();
  name_ = shortened(printable(name));
  next_draw_ = Clock::now() + kPatience;
}

void Progress::begin_stage(const char* stage) {
  stage_ = stage;
  calls_ = 0;
}

void Progress::clear() {
  if (!visible_) return;
  std::fputs(kEraseLine, stderr);
  std::fflush(stderr);
  visible_ = false;
}

std::int32_t IMG_CB_STD Progress::on_step(std::intptr_t self, std::int32_t expected) {
  return reinterpret_cast<Progress*>(self)->step(expected);
}

std::int32_t Progress::step(std::int32_t expected) {
  if (interrupted() != 0) return kInterrupted;
  ++calls_;
  if (!drawn_) return 0;
  const Clock::time_point now = Clock::now();
  if (now < next_draw_) return 0;
  next_draw_ = now + kBetween;
  draw(expected);
  return 0;
}

void Progress::draw(std::int32_t expected) {
  // Saving reports the low 16 bits of the height: more calls than expected can come.
  const double done =
      expected < 1 ? 0 : std::min(1.0, static_cast<double>(calls_) / static_cast<double>(expected));
  std::string bar(kBarCells, '.');
  std::fill_n(bar.begin(), static_cast<int>(done * kBarCells), '#');
  std::fprintf(stderr, "%s%s  %s [%s] %3d %%", kEraseLine, name_.c_str(), stage_, bar.c_str(),
               static_cast<int>(done * 100));
  std::fflush(stderr);
  visible_ = true;
}

}  // namespace tool
