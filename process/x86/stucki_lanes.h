// The buffers of Stucki diffusion in 16 lanes: position i of all 16 pieces of a row lies together.
#pragma once

#include <cstdint>

namespace tq::process::x86 {

struct StuckiLanes {
  static constexpr int kLanes = 16;
  std::int32_t width;
  std::int32_t piece;           // pixels of a lane, a multiple of 16; kLanes of them cover the row
  std::uint8_t* levels;         // piece * kLanes
  std::int16_t* values;         // the same, with one more at either end
  std::int8_t* shares[3];       // the same with two more positions at either end; see stucki.h
  std::uint8_t* white;          // piece * kLanes, 255 or 0
  const std::int8_t* share_of;  // by value
};

// `levels` has piece * kLanes bytes, 0 behind the row; so many bits come out.
void diffuse_stucki_lanes(const StuckiLanes& lanes, const std::uint8_t* levels, bool rightward,
                          std::uint8_t* bits);

}  // namespace tq::process::x86
