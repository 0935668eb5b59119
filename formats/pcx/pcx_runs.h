// Run-length coding of bytes, both ways: a byte with both top bits set is the length of a run, and
// the next one its value; any other byte stands for itself.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tq::formats {

inline constexpr int kPcxRun = 0xC0;
inline constexpr int kLongestPcxRun = 63;

struct PcxRuns {
  const std::uint8_t* from;  // coded bytes
  const std::uint8_t* end;
  std::uint8_t* to;
  std::uint8_t* full;  // no run begins from here on; there is room for kPcxRunRoom more
};
inline constexpr int kPcxRunRoom = 64;

// Expands runs until `to` reaches `full`, or up to one that the input does not hold.
void expand_runs(PcxRuns& runs);

struct PcxBytes {
  const std::uint8_t* from;
  const std::uint8_t* end;  // kPcxReadAhead more can be read
  std::uint8_t* to;         // room for twice the bytes, and kPcxReadAhead
};
inline constexpr int kPcxReadAhead = 16;

// Codes all of them.
void code_runs(PcxBytes& bytes);

}  // namespace tq::formats
