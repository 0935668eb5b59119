// What the program says on standard error: lines, and a bar on a terminal once the work takes long.
// The progress callback, which draws the bar, also ends the work after an interrupt.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "tarnquill.h"

namespace tool {

// A line; a bar that is there makes room for it. Any thread may say something.
void say(const std::string& line);

// How far a batch is, for all who work on it.
struct BatchState {
  std::size_t total = 1;
  std::atomic<std::size_t> done = 0;
};

class Progress {
 public:
  // `drawn`: whether there is anybody to see it. Reports of the thread's context come to this object
  // from now on.
  explicit Progress(bool drawn, BatchState* batch = nullptr);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  void begin_file(const std::string& name);  // the clock starts, unless it runs for a batch
  void begin_stage(const char* stage);       // "reading", "writing"; the bar starts at 0
  static void clear();                       // takes the bar off the screen

 private:
  static std::int32_t IMG_CB_STD on_step(std::intptr_t self, std::int32_t expected);
  std::int32_t step(std::int32_t expected);
  void draw(double part);  // with the screen held

  bool drawn_;
  BatchState* batch_;
  std::string name_;
  const char* stage_ = "";
  std::int64_t calls_ = 0;
};

}  // namespace tool
