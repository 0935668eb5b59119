// TIFF files (TIFF 6.0 and its technical notes; BigTIFF): pages of every arrangement.
#pragma once

#include "formats/codec.h"
#include "include/tarnquill_plugin.h"

namespace tq::tiff {

// Rows as the file has them, whatever its orientation says. page_past_end behind the last page. A
// page whose data are damaged keeps the rows that could be read.
Status decode_tiff(const formats::DecodeRequest& request);

// The same with a coder for strips of LZW, which live in a module: without one, such pages go by the
// module's entries, which come back here with theirs.
Status decode_tiff_with(const formats::DecodeRequest& request, const img_strip_coder& lzw);
Status encode_tiff_with(const formats::EncodeRequest& request, const img_strip_coder& lzw);

// Adds a page to what begins at the position, or begins a file there; in memory always the latter.
// Old pages can be read at any moment, because what leads to the new one is written last.
Status encode_tiff(const formats::EncodeRequest& request);

// Pages of Group 4 in one strip; and pages of such, or of JPEG streams, whose components other programs
// cannot mistake.
Status find_stored_tiff(const formats::DecodeRequest& request, formats::StoredPicture& stored);
Status can_store_tiff(const formats::EncodeRequest& request, const formats::StoredPicture& stored);
Status encode_stored_tiff(const formats::EncodeRequest& request,
                          const formats::StoredPicture& stored);

// wrong_depth for what the coding cannot hold.
Status can_encode_tiff(const formats::EncodeRequest& request);

// Whether a page can be added to what begins at the position, which stays: nothing at all, or a
// file whose chain of pages ends well. bad_image if not; unsupported for BigTIFF.
Status can_append_tiff(StreamHandle stream, formats::AppendPlace& place);

// These look at what begins at the stream's position. bad_image when that is no TIFF file, or has
// no page.
Status count_tiff_pages(StreamHandle stream);
Status find_tiff_coding(StreamHandle stream);  // the first page's tag; unsupported if it has none
Status find_tiff_orientation(StreamHandle stream, const Options& options);  // 1 to 8

// The values of a tag.
struct TagValue {
  std::int32_t type = 0, count = 0;
  std::span<std::uint8_t> room{};  // filled in this machine's byte order, as far as they fit
};

// Of a page of what begins at the start of the stream; the bytes that all values have. unsupported for no TIFF
// file and for no such tag, not_tiled when it is one of tiles, read_failed for values that are not
// there.
Status find_tiff_tag(StreamHandle stream, std::int32_t page, std::int32_t tag, TagValue& value);

}  // namespace tq::tiff
