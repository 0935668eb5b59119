// One line of standard error, drawn over itself.
#include "progress.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <mutex>

#include "errors.h"
#include "system.h"

namespace tool {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr auto kPatience = 500ms;  // shorter work shows nothing
constexpr auto kBetween = 100ms;
constexpr int kBarCells = 30;
constexpr std::size_t kNameCells = 30;
constexpr char kEraseLine[] = "\r\033[K";

// There is one terminal for all threads.
std::mutex screen;
bool bar_is_visible = false;
Clock::time_point next_draw;

void erase() {
  if (bar_is_visible) std::fputs(kEraseLine, stderr);
  bar_is_visible = false;
}

void wait_before_drawing() {
  const std::scoped_lock lock(screen);
  next_draw = Clock::now() + kPatience;
}

// The end of a long name says more than its beginning.
std::string shortened(const std::string& name) {
  if (name.size() <= kNameCells) return name;
  std::size_t start = name.size() - (kNameCells - 3);
  while (start < name.size() && (name[start] & 0xC0) == 0x80) ++start;  // not inside of a character
  return "..." + name.substr(start);
}

}  // namespace

void say(const std::string& line) {
  const std::scoped_lock lock(screen);
  erase();
  std::fprintf(stderr, "%s\n", line.c_str());
}

Progress::Progress(bool drawn, BatchState* batch) : drawn_(drawn), batch_(batch) {
  IMG_set_statusbar(reinterpret_cast<std::intptr_t>(this), on_step, 1);
  wait_before_drawing();
}

Progress::~Progress() {
  clear();
  IMG_set_statusbar(0, nullptr, 0);
}

void Progress::begin_file(const std::string& name) {
  name_ = shortened(printable(name));
  if (batch_ != nullptr && batch_->total > 1) return;
  clear();
  wait_before_drawing();
}

void Progress::begin_stage(const char* stage) {
  stage_ = stage;
  calls_ = 0;
}

void Progress::clear() {
  const std::scoped_lock lock(screen);
  erase();
  std::fflush(stderr);
}

std::int32_t IMG_CB_STD Progress::on_step(std::intptr_t self, std::int32_t expected) {
  return reinterpret_cast<Progress*>(self)->step(expected);
}

std::int32_t Progress::step(std::int32_t expected) {
  if (interrupted() != 0) return kInterrupted;
  ++calls_;
  if (!drawn_) return 0;
  const std::scoped_lock lock(screen);
  const Clock::time_point now = Clock::now();
  if (now < next_draw) return 0;
  next_draw = now + kBetween;
  // Saving reports the low 16 bits of the height: more calls than expected can come.
  draw(expected < 1 ? 0
                    : std::min(1.0, static_cast<double>(calls_) / static_cast<double>(expected)));
  return 0;
}

void Progress::draw(double part) {
  std::string count;
  if (batch_ != nullptr && batch_->total > 1) {
    const std::size_t done = std::min<std::size_t>(batch_->done, batch_->total - 1);
    const std::string total = std::to_string(batch_->total);
    count = "[" + std::to_string(done + 1) + "/" + total + "] ";
    part = (static_cast<double>(done) + part) / static_cast<double>(batch_->total);
  }
  std::string bar(kBarCells, '.');
  std::fill_n(bar.begin(), static_cast<int>(part * kBarCells), '#');
  std::fprintf(stderr, "%s%s%s  %s [%s] %3d %%", kEraseLine, count.c_str(), name_.c_str(), stage_,
               bar.c_str(), static_cast<int>(part * 100));
  std::fflush(stderr);
  bar_is_visible = true;
}

}  // namespace tool
