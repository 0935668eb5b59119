// How far the lines of text on a page are from level.
#pragma once

#include "process/cleanup/ink.h"

namespace tq::process {

inline constexpr int kMostSkew = 4500;  // hundredths of a degree, as all angles here

struct Skew {
  int angle = 0;  // the turn that makes the page straight
  int confidence = 0;
};

// Of a page of text alone, of so many marks, up to `range` each way.
Status find_lines(const InkPage& text, int marks, int range, Skew& skew);

// The same of an image.
Status find_skew(ImageSource& image, InkPage::Reports reports, int range, Skew& skew);

}  // namespace tq::process
