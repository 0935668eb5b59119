// Group 4 pages of one strip.
#include "formats/stored.h"

#include <algorithm>

#include "formats/tiff/rows.h"
#include "formats/tiff/tiff.h"

namespace tq::tiff {

Status find_stored_tiff(const formats::DecodeRequest& request, formats::StoredPicture& stored) {
  File file;
  Page page;
  std::int64_t directory = 0;
  TQ_TRY(file.open(request.stream, request.start()));
  TQ_TRY(file.find_page(std::max(request.page, 0), directory));
  TQ_TRY(read_page(file, directory, page));
  const bool is_one_strip = !page.chunks.tiled && page.chunks.down == 1 && !page.planes_apart;
  Entry options;
  const bool has_options = file.find_entry(directory, kT6Options, options);
  if (page.coding != kGroup4 || !is_one_strip || page.bits != 1 || page.samples != 1 ||
      page.is_cut || (has_options && Numbers(file, options).at(0) != 0)) {
    return StatusCode::unsupported;
  }
  const Chunk chunk = find_chunk(file, page, 0, 0);
  if (chunk.position < 0 || chunk.bytes < 1) return StatusCode::unsupported;
  stored.coding = formats::StoredPicture::Coding::group4;
  stored.stream = request.stream;
  stored.offset = chunk.position;
  stored.bytes = chunk.bytes;
  stored.low_bit_first = page.low_bit_first;
  stored.width = page.width;
  stored.height = page.height;
  stored.bits = stored.components = 1;
  stored.inverted = page.photometric != Photometric::white_is_zero;
  return kOk;
}

}  // namespace tq::tiff
