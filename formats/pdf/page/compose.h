// Several pictures of a page, one over the other on white.
#pragma once

#include "formats/pdf/image/picture.h"
#include "formats/pdf/page/pages.h"

namespace tq::pdf::page {

// Header and rows of what the page box shows, as finely as the finest of the pictures that are not
// small: at most 1200 dots per inch, and 2^30 pixels or bytes. Pictures that cannot be read are left out, which is
// told as damage; if none is left, the status of the first.
Status compose(objects::File& file, std::span<const content::Painted> pictures, const Page& page,
               const formats::RowSink& sink);

}  // namespace tq::pdf::page
