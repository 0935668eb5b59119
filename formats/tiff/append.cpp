// Where a page goes in a file that is there, and whether it can.
#include "formats/tiff/append.h"

#include "formats/tiff/tiff.h"

namespace tq::tiff {

Status find_place(StreamHandle stream, const Options& options, const formats::AppendPlace& known,
                  Place& place) {
  place = {.start = position(stream)};
  if (place.start < 0) return StatusCode::write_failed;
  place.link = std::int64_t{place.start} + 4;
  place.end = place.start;
  place.big_endian = options.get(IMG_OPTION_TIFF_BYTE_ORDER) == 1;
  if (stream == kMemoryStream) return kOk;  // where it ends is not known
  File file;
  const Status opened = file.open(stream, place.start);
  if (opened == StatusCode::read_failed) return opened;
  if (opened.failed()) return seek_to(stream, place.start);
  if (file.is_big()) return StatusCode::unsupported;
  if (known.link != 0 && file.ends_at(known.link)) {
    place.link = known.link;
    place.page = known.page;
  } else {
    TQ_TRY(file.find_last_link(place.link, place.page));
  }
  place.big_endian = file.big_endian();
  place.end = seek(stream, 0, Origin::end);
  return place.end < 0 ? StatusCode::write_failed : StatusCode::ok;
}

Status can_append_tiff(StreamHandle stream, formats::AppendPlace& found_place) {
  const std::int32_t start = position(stream);
  Place place;
  const Status found = find_place(stream, {}, {}, place);
  const bool empty = place.is_new() && seek(stream, 0, Origin::end) == start;
  TQ_TRY(seek_to(stream, start));
  TQ_TRY(found);
  if (!place.is_new()) {
    found_place.link = place.link;
    found_place.page = place.page;
  }
  return !place.is_new() || empty ? StatusCode::ok : StatusCode::bad_image;
}

}  // namespace tq::tiff
