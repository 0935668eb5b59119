// Sines by table and the addition theorem: the same on every machine.
#pragma once

#include <cstdint>

namespace tq::process {

// Of 0 to 8999 hundredths of a degree, in units of 2^-30.
struct Sines {
  explicit Sines(int angle);
  std::int64_t sine, cosine;
};

// Of -8999 to 8999 hundredths of a degree.
inline double tangent(int angle) {
  const Sines found(angle < 0 ? -angle : angle);
  const double size = static_cast<double>(found.sine) / static_cast<double>(found.cosine);
  return angle < 0 ? -size : size;
}

}  // namespace tq::process
