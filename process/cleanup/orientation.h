// Which way up a page of text is.
#pragma once

#include "process/cleanup/ink.h"

namespace tq::process {

struct Orientation {
  int angle = 0;  // the turn that makes it upright: 0, 9000, 18000 or 27000
  int confidence = 0;
};

// Of a page of text alone, of so many marks.
Status find_orientation(const InkPage& text, int marks, Orientation& orientation);

}  // namespace tq::process
