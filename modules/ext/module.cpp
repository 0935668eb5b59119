// The entries of the module of more formats: pictures by libraries of others, over the streams of a host.
#include <algorithm>
#include <iterator>

#include "io/stream_window.h"
#include "modules/entry.h"
#include "modules/ext/decoders.h"

namespace {

using tq::GlobalBlock;
using tq::Status;
using tq::StatusCode;
using tq::StreamHandle;
using tq::ext::Bytes;
using tq::modules::EntryScope;

constinit tq::modules::Host host;  // set once, before any entry is called

Status one_picture(Bytes /*file*/) {
  return Status::from_raw(1);
}

constexpr struct Format {
  std::int32_t code;
  bool (*begins)(Bytes head);
  Status (*decode)(Bytes file, std::int32_t page, const tq::formats::RowSink& sink);
  Status (*count)(Bytes file);
} kFormats[] = {
    {IMG_TYPE_WEBP, tq::ext::is_webp, tq::ext::decode_webp, tq::ext::count_webp},
    {IMG_TYPE_JPEG_2000, tq::ext::is_jpeg_2000, tq::ext::decode_jpeg_2000, one_picture},
    {IMG_TYPE_HEIF, tq::ext::is_heif, tq::ext::decode_heif, tq::ext::count_heif},
};

const Format* find_format(Bytes head) {
  const auto* const found =
      std::ranges::find_if(kFormats, [=](const Format& format) { return format.begins(head); });
  return found == std::end(kFormats) ? nullptr : found;
}

// All that there is from a position on.
Status read_rest(StreamHandle stream, std::int64_t start, GlobalBlock& block, Bytes& file) {
  const std::int64_t bytes = tq::find_end(stream) - start;
  if (bytes <= 0) return StatusCode::read_failed;
  TQ_TRY(tq::seek_to(stream, start));
  TQ_TRY(block.allocate(static_cast<std::uint64_t>(bytes)));
  const std::int32_t there = tq::read_fully(stream, block.bytes());
  file = block.bytes().first(static_cast<std::size_t>(there));
  return tq::kOk;
}

// All pieces of coded data.
Status join_pieces(img_next_piece_fn next, void* context, GlobalBlock& block, Bytes& data) {
  constexpr std::size_t kFirst = 16384;
  if (next == nullptr || context == nullptr) return tq::kOk;
  std::size_t filled = 0;
  for (;;) {
    const void* piece = nullptr;
    const std::int32_t count = next(context, &piece);
    if (count <= 0) break;
    const auto bytes = static_cast<std::size_t>(count);
    if (filled + bytes > block.size()) {
      TQ_TRY(block.resize(std::max({kFirst, 2 * block.size(), filled + bytes})));
    }
    std::copy_n(static_cast<const std::uint8_t*>(piece), bytes, block.data() + filled);
    filled += bytes;
  }
  data = block.bytes().first(filled);
  return tq::kOk;
}

template <class Decode>
std::int32_t decode_part(const img_coded_picture* picture, Decode&& decode) {
  const EntryScope scope(host);
  if (!scope.entered()) return IMG_OUT_OF_MEMORY;
  if (picture == nullptr || picture->size != sizeof *picture) return IMG_UNSUPPORTED;
  if (picture->next == nullptr) return 0;
  if (picture->header == nullptr || picture->row == nullptr) return IMG_UNSUPPORTED;
  GlobalBlock block;
  Bytes coded;
  const Status joined = join_pieces(picture->next, picture->data, block, coded);
  if (joined.failed()) return joined.raw();
  if (coded.empty()) return IMG_READ_FAILED;
  return Status(decode(coded)).raw();
}

}  // namespace

extern "C" {

IMG_PLUGIN_API void IMG_CALL set_callbacks(img_read_fn read, img_write_fn write, img_seek_fn seek,
                                           img_tiff_helper_fn /*helper*/) {
  host = {.read = read, .write = write, .seek = seek, .tiff = nullptr};
}

IMG_PLUGIN_API std::int32_t IMG_CALL probe_ext(const void* bytes, std::int32_t count) {
  if (bytes == nullptr || count < IMG_PROBE_BYTES) return 0;
  const Format* const format =
      find_format({static_cast<const std::uint8_t*>(bytes), static_cast<std::size_t>(count)});
  return format == nullptr ? 0 : format->code;
}

IMG_PLUGIN_API std::int32_t IMG_CALL decode_ext(std::uint32_t offset_or_page, img_row_fn row,
                                                void* sink_context, img_header_fn header,
                                                std::int32_t stream) {
  const EntryScope scope(host);
  if (!scope.entered()) return IMG_OUT_OF_MEMORY;
  if (!host.can_read()) return IMG_READ_FAILED;
  tq::formats::DecodeNotes notes;
  const auto request = tq::modules::decode_request(StreamHandle{stream}, offset_or_page,
                                                   {header, row, sink_context, &notes});
  GlobalBlock block;
  Bytes file;
  const Status read = read_rest(request.stream, request.start(), block, file);
  if (read.failed()) return read.raw();
  const Format* const format = find_format(file);
  if (format == nullptr) return IMG_UNSUPPORTED;
  const Status decoded = format->decode(file, std::max(request.page, 0), request.sink);
  const bool contradicts = decoded.ok() && notes.damage == StatusCode::bad_image;
  return contradicts ? IMG_PLUGIN_CONTRADICTS : decoded.raw();
}

IMG_PLUGIN_API std::int32_t IMG_CALL count_ext(std::int32_t stream) {
  const EntryScope scope(host);
  if (!scope.entered()) return IMG_OUT_OF_MEMORY;
  if (!host.can_read()) return IMG_READ_FAILED;
  const StreamHandle handle{stream};
  GlobalBlock block;
  Bytes file;
  const Status read = read_rest(handle, tq::position(handle), block, file);
  if (read.failed()) return read.raw();
  const Format* const format = find_format(file);
  return format == nullptr ? IMG_UNSUPPORTED : format->count(file).raw();
}

IMG_PLUGIN_API std::int32_t IMG_CALL decode_j2k(const img_coded_picture* picture) {
  return decode_part(picture,
                     [&](Bytes coded) { return tq::ext::decode_coded_jpeg_2000(coded, *picture); });
}

IMG_PLUGIN_API std::int32_t IMG_CALL decode_jbig2(const img_coded_picture* picture) {
  return decode_part(picture, [&](Bytes coded) -> Status {
    GlobalBlock block;
    Bytes globals;
    TQ_TRY(join_pieces(picture->next, picture->globals, block, globals));
    return tq::ext::decode_coded_jbig2(globals, coded, *picture);
  });
}

}  // extern "C"
