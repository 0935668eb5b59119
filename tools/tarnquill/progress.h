// The progress callback: draws a bar on a terminal once the work takes long, and ends the work
// after an interrupt.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "tarnquill.h"

namespace tool {

class Progress {
 public:
  // `drawn`: whether there is anybody to see it. Reports to this object from now on.
  explicit Progress(bool drawn);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  void begin_file(const std::string& name);  // the clock starts
  void begin_stage(const char* stage);       // "reading", "writing"; the bar starts at 0
  void clear();                              // takes the bar off the screen

  // One call per row, `expected` being the number of calls to expect. Negative: stop.
  std::int32_t step(std::int32_t expected);

 private:
  using Clock = std::chrono::steady_clock;
  static std::int32_t IMG_CB_STD on_step(std::intptr_t self, std::int32_t expected);
  void draw(std::int32_t expected);

  bool drawn_;
  bool visible_ = false;
  std::string name_;
  const char* stage_ = "";
  std::int64_t calls_ = 0;
  Clock::time_point next_draw_;
};

}  // namespace tool
