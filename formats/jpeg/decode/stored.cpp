// Streams that other files can hold as they are.
#include <algorithm>

#include "formats/jpeg/decode/markers.h"
#include "formats/stored.h"

namespace tq::jpeg {
namespace {

// The components of a stream without a word about them, by their names.
bool is_named_rgb(const Tables& tables) {
  const auto& components = tables.frame.components;
  return !tables.has_jfif && components[0].id == 'R' && components[1].id == 'G' &&
         components[2].id == 'B';
}

}  // namespace

Status describe_stored(formats::StoredPicture& stored) {
  TQ_TRY(seek_to(stored.stream, stored.offset));
  ChunkReader input;
  TQ_TRY(input.open(stored.stream, kSegmentChunk));
  if (input.next() != 0xFF || input.next() != 0xD8) return StatusCode::unsupported;
  Tables tables;
  if (!read_segments(input, true, tables)) return StatusCode::unsupported;
  const Frame& frame = tables.frame;
  if (check_frame(frame).failed() || !scan_is_valid(tables)) return StatusCode::unsupported;
  if (frame.precision != 8 || frame.height == 0) return StatusCode::unsupported;
  stored.coding = formats::StoredPicture::Coding::jpeg;
  stored.width = frame.width;
  stored.height = frame.height;
  stored.bits = 8;
  stored.components = frame.count;
  stored.inverted = frame.count == 4 && tables.adobe.present;
  stored.is_rgb = frame.count == 3 &&
                  (tables.adobe.present ? tables.adobe.transform == 0 : is_named_rgb(tables));
  stored.own_orientation = std::max(tables.exif.orientation, 1);
  stored.is_baseline = !frame.progressive;
  stored.h = frame.components[0].h;
  stored.v = frame.components[0].v;
  for (int i = 1; i < frame.count && frame.count == 3; ++i) {
    if (frame.components[i].h != 1 || frame.components[i].v != 1) stored.h = 0;
  }
  return kOk;
}

// Up to the end of the stream: what stands behind the picture is the file's own as well.
Status find_stored_jpeg(const formats::DecodeRequest& request, formats::StoredPicture& stored) {
  if (!end_is_known(request.stream)) return StatusCode::unsupported;
  stored.stream = request.stream;
  stored.offset = request.start();
  const std::int32_t end = seek(request.stream, 0, Origin::end);
  stored.bytes = end - stored.offset;
  if (stored.offset < 0 || stored.bytes < 4) return StatusCode::unsupported;
  return describe_stored(stored);
}

Status can_store_jpeg(const formats::EncodeRequest& /*request*/,
                      const formats::StoredPicture& stored) {
  const bool fits = stored.coding == formats::StoredPicture::Coding::jpeg &&
                    stored.orientation == stored.own_orientation;
  return fits ? StatusCode::ok : StatusCode::unsupported;
}

Status encode_stored_jpeg(const formats::EncodeRequest& request,
                          const formats::StoredPicture& stored) {
  StreamWriter out;
  TQ_TRY(out.open(request.stream));
  TQ_TRY(copy_stored(stored, out));
  return out.flush();
}

}  // namespace tq::jpeg
