// CIE L*a*b* 1976, seen under D65, which is also the white of sRGB.
#pragma once

#include <array>

#include "core/dib.h"

namespace tq::pixels {

class LabColours {
 public:
  void prepare();  // once, before any is mixed
  // Lightness 0 .. 100.
  Rgb mix(double lightness, double a, double b) const;

 private:
  std::array<double, 256> linear_{};  // from where on a colour is as bright as its index
};

}  // namespace tq::pixels
