// What lies around a sheet: dark areas that come in from the edges of an image, shadows along them.
#pragma once

#include "process/cleanup/components.h"
#include "process/cleanup/ink.h"

namespace tq::process {

class Surround {
 public:
  Status find(const InkPage& page);

  // There is none, or hardly anything else.
  bool empty() const { return blocks_ == 0; }
  bool covers(int x, int y) const { return mask_[place(x, y)] != 0; }

  // Further: into ink that it hangs together with, then by one block wherever that leads.
  Status grow(const InkPage& page);

 private:
  // Around the page the mask has a margin, which is dark.
  static constexpr int kReach = 2;
  std::ptrdiff_t place(int x, int y) const {
    return (std::ptrdiff_t{y} + kReach) * stride_ + x + kReach;
  }
  template <bool kShrink>
  Status spread(int reach);
  Status keep_edges(const InkPage& page);

  std::ptrdiff_t stride_ = 0, rows_ = 0;
  std::int64_t blocks_ = 0;
  RowBuffer<std::uint8_t> mask_;  // 1 where it is dark
};

}  // namespace tq::process
