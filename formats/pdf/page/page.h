// A page as an image.
#pragma once

#include "formats/codec.h"
#include "formats/pdf/page/pages.h"
#include "include/tarnquill_plugin.h"

namespace tq::pdf::page {

// `left_out`: there is more to be seen than its pictures. unsupported when those are less than half of
// the page, or none.
Status decode_page(objects::File& file, const Page& page, const formats::RowSink& sink,
                   bool& left_out);

// A page that is one picture, whole, whose coded data another file could hold as they are; else
// unsupported.
Status find_stored_picture(objects::File& file, const Page& page, img_stored_picture& picture);

}  // namespace tq::pdf::page
