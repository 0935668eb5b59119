// What of the ink of a page may be text.
#pragma once

#include "process/cleanup/components.h"
#include "process/cleanup/ink.h"

namespace tq::process {

// Takes away what is joined to the edge of the image, specks, pictures and bars, and what is screened.
// `marks`: how many components are left; less than a word or two are none.
Status keep_text(InkPage& page, int& marks);

// Keeps what is no larger than words are and lies within a tenth of an inch of `text`: a page of the same
// image in blocks that may be larger.
Status keep_near(InkPage& page, const InkPage& text);

Status find_components(const InkPage& page, Components& components);

}  // namespace tq::process
