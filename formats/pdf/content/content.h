// What a page paints, as far as pictures go: ISO 32000-1, 7.8 and 8.
#pragma once

#include <cstdint>
#include <span>

#include "formats/pdf/objects/syntax.h"

namespace tq::pdf::content {

// (x, y) becomes (a x + c y + e, b x + d y + f).
struct Matrix {
  double a = 1, b = 0, c = 0, d = 1, e = 0, f = 0;
};

struct Rectangle {
  double left = 0, bottom = 0, right = 0, top = 0;
};

// A picture on a page.
struct Painted {
  Matrix
      matrix;  // from the unit square, whose top is the first row, to the page before it is turned
  Rectangle clip;            // on the page
  objects::Reference image;  // number 0: an inline image
  // Of an inline image: keys and values as they stand, abbreviated perhaps, and the coded bytes. Names
  // of colour spaces have been looked up.
  objects::Value dictionary;
  std::span<const std::uint8_t> data;
  std::uint32_t fill = 0;    // 0x00RRGGBB, for masks
  std::uint8_t alpha = 255;  // constant; 255 is opaque
};

}  // namespace tq::pdf::content
