// A page as an image.
#pragma once

#include "formats/codec.h"
#include "formats/pdf/page/pages.h"

namespace tq::pdf::page {

// `left_out`: there is more to be seen than its pictures. unsupported when those are less than half of
// the page, or none.
Status decode_page(objects::File& file, const Page& page, const formats::RowSink& sink,
                   bool& left_out);

}  // namespace tq::pdf::page
