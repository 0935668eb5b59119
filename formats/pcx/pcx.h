// PCX images, and DCX: a container that holds one PCX image per page.
#pragma once

#include <optional>

#include "formats/codec.h"
#include "io/stream_writer.h"

namespace tq::pcx {

using formats::DecodeRequest;
using formats::EncodeRequest;

Status decode_pcx(const DecodeRequest& request);  // 1 when all went well
Status encode_pcx(const EncodeRequest& request);

// Of both kinds of files: wrong_depth for other than 1, 4, 8 and 24 bits, unsupported for a side
// that the header has no room for.
Status can_encode_pcx(const EncodeRequest& request);

Status decode_dcx(const DecodeRequest& request);
Status encode_dcx(const EncodeRequest& request);  // adds a page to what begins at the position
Status count_dcx_pages(StreamHandle stream);

// Whether a page can be added to what begins at the position, which stays: nothing at all, or a
// container. unsupported when its table has no room, bad_image for a container that has lost pages
// and for anything else.
Status can_append_dcx(StreamHandle stream, formats::AppendPlace& place);
// Copies a container of fewer than 100 pages to an empty file, with a table of 100 entries.
Status make_dcx_room(StreamHandle from, StreamHandle to);

// An image inside of a container: where it lies in the stream, and bytes that go elsewhere first.
// Without an end it ends with the stream.
struct Extent {
  std::int32_t start = 0;
  std::optional<std::int32_t> end{};
};
Status decode_image(const DecodeRequest& request, const Extent& extent);
Status write_image(const EncodeRequest& request, StreamWriter& output);

}  // namespace tq::pcx
