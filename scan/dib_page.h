// Pages that a source hands over whole: DIBs in memory, files.
#pragma once

#include "core/image_table.h"
#include "platform/file.h"

namespace tq::scan {

// What is known of the page beside its pixels; where nothing is, what it says itself stays.
void set_page_resolution(ImageRecord& image, Resolution resolution);

// Whether the block can become an image's pixels as it is: no second page of memory.
bool is_plain_dib(const void* dib, std::size_t size);

// Makes such a block an image, whose it then is; its handle. On failure it stays the caller's.
Status adopt_page(void* block, Resolution resolution);

// Makes an image of a copy. `size` 0: the DIB's own word. Of 1 bit the palette says which one is
// white.
Status decode_dib(const void* dib, std::size_t size, Resolution resolution);
Status decode_page_file(platform::FileName name, Resolution resolution);

}  // namespace tq::scan
