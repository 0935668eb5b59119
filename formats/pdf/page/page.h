// A page as an image.
#pragma once

#include "formats/codec.h"
#include "formats/pdf/page/pages.h"

namespace tq::pdf::page {

// `left_out`: there is more to be seen than its pictures. unsupported when those are less than half of
// the page, or none.
Status decode_page(objects::File& file, const Page& page, const formats::RowSink& sink,
                   bool& left_out);

// Coded data that another file could hold as they are.
struct StoredPicture {
  bool is_fax = false;                 // ITU-T T.6; else a JPEG stream
  std::int64_t offset = 0, bytes = 0;  // in the file
  std::int32_t width = 0, height = 0, components = 1;
  bool inverted = false;  // inks whose 0 is all of it; of a fax: what is coded as black is white
  int orientation = 1;    // as TIFF counts
  Resolution resolution;  // as it is turned
};

// Of a page that is one picture, whole; else unsupported.
Status find_stored_picture(objects::File& file, const Page& page, StoredPicture& picture);

}  // namespace tq::pdf::page
