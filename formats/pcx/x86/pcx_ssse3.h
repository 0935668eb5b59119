// Sixteen bytes at a time where the processor can: these do the greater part of the work and leave
// the rest to the portable loops, or do nothing.
#pragma once

#include "formats/pcx/pcx_runs.h"

namespace tq::formats::x86 {

#if defined(__x86_64__) || defined(__i386__)

void expand_runs(PcxRuns& runs);
void code_runs(PcxBytes& bytes);

// How many pixels are done.
std::size_t interleave(const std::uint8_t* blue, const std::uint8_t* green, const std::uint8_t* red,
                       std::uint8_t* pixels, std::size_t width);
std::size_t pick_channel(const std::uint8_t* pixels, std::size_t channel, std::uint8_t* plane,
                         std::size_t width);

#else

inline void expand_runs(PcxRuns&) {}
inline void code_runs(PcxBytes&) {}
inline std::size_t interleave(const std::uint8_t*, const std::uint8_t*, const std::uint8_t*,
                              std::uint8_t*, std::size_t) {
  return 0;
}
inline std::size_t pick_channel(const std::uint8_t*, std::size_t, std::uint8_t*, std::size_t) {
  return 0;
}

#endif

}  // namespace tq::formats::x86
