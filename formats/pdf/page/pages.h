// The pages of a document: ISO 32000-1, 7.7.3.
#pragma once

#include "formats/pdf/content/content.h"
#include "formats/pdf/objects/file.h"

namespace tq::pdf::page {

struct Page {
  objects::Object object;
  objects::Object resources;  // a dictionary, or null
  content::Rectangle box;     // what of it is shown, in its own units
  int rotate = 0;             // clockwise: 0, 90, 180, 270
  double user_unit = 1;       // of a unit, in points
};

// out_of_memory, read_failed.
Status count_pages(objects::File& file, std::int32_t& count);

// Page 0 is the first. page_past_end; no_such_page where there should be one.
Status find_page(objects::File& file, std::int32_t number, Page& page);

}  // namespace tq::pdf::page
