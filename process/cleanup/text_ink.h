// What of the ink of a page may be text.
#pragma once

#include "process/cleanup/ink.h"

namespace tq::process {

// Takes away what is joined to the edge of the image, specks, pictures and bars, and what is screened.
// `marks`: how many components are left; less than a word or two are none.
Status keep_text(InkPage& page, int& marks);

}  // namespace tq::process
