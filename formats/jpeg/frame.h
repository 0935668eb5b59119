// What the marker segments in front of the entropy-coded data say.
#pragma once

#include <array>
#include <cstdint>

#include "formats/jpeg/tables.h"

namespace tq::formats {

inline constexpr int kMostComponents = 4;
inline constexpr int kMostFactor = 4;
inline constexpr int kHuffmanSlots = 3;  // of each class
inline constexpr int kQuantiserSlots = 4;

struct FrameComponent {
  std::uint8_t id = 0;
  std::uint8_t h = 0, v = 0;  // sampling factors
  std::uint8_t quantiser = 0;
};

struct Frame {
  bool present = false;
  bool progressive = false;
  int precision = 0;
  int width = 0, height = 0;
  int count = 0;  // of components
  std::array<FrameComponent, kMostComponents> components;
};

struct ScanComponent {
  int index = 0;  // in the frame
  int dc = 0, ac = 0;
};

struct Scan {
  int count = 0;
  std::array<ScanComponent, kMostComponents> components;
  int first = 0, last = 0;  // of the band, in zigzag order
  int high = 0, low = 0;    // successive approximation
};

using Quantiser = std::array<std::uint16_t, kBlock>;  // in zigzag order

struct HuffmanSlot {
  bool defined = false;
  bool changed = false;  // since its look-up table was built
  HuffmanSpec spec;
};

struct Adobe {
  bool present = false;
  int transform = 0;
};

struct Tables {
  std::array<Quantiser, kQuantiserSlots> quantisers{};
  std::array<HuffmanSlot, kHuffmanSlots> dc, ac;
  int restart_interval = 0;  // MCUs; 0: none
  Frame frame;
  Scan scan;
  int x_density = 0, y_density = 0;  // 0: unknown
  Adobe adobe;
};

}  // namespace tq::formats
