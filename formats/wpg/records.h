// What both ways know of the records.
#pragma once

namespace tq::wpg {

inline constexpr int kHeaderBytes = 16, kGraphic = 0x16;

enum Type : int {
  kEnd2 = 0x02,
  kBitmap1 = 0x0B,
  kColours2 = 0x0C,
  kColours1 = 0x0E,
  kBitmap2 = 0x0E,
  kStart1 = 0x0F,
  kEnd1 = 0x10,
  kTurnedBitmap1 = 0x14,
};

}  // namespace tq::wpg
