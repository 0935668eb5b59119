// The entries of the LZW module: codecs of the library's own making, over the streams of a host.
#include <cstring>
#include <memory>
#include <span>
#include <utility>

#include "coding/lzw.h"
#include "formats/gif/gif.h"
#include "modules/entry.h"
#include "tarnquill_plugin.h"

namespace {

using tq::modules::EntryScope;
using tq::modules::Host;

constinit Host host;  // set once, before any entry is called

std::int32_t encode(tq::formats::Encoder encoder, std::int32_t stream, const void* header_block,
                    img_supply_fn supply, void* save_context) {
  const EntryScope scope(host);
  if (!scope.entered()) return IMG_OUT_OF_MEMORY;
  if (host.write == nullptr) return IMG_WRITE_FAILED;
  tq::HeaderBlock image;
  std::memcpy(&image, header_block, sizeof image);  // at any address
  return encoder({tq::StreamHandle{stream}, &image, {supply, save_context}}).raw();
}

// --- Strips of TIFF files ---

constexpr int kByteBits = 8;

struct StripDecoder {
  img_next_piece_fn next;
  void* context;
  std::span<const std::uint8_t> first;  // a piece that has been looked at
  bool is_old;
  union {
    tq::lzw::TiffDecoder codes;
    tq::lzw::OldTiffDecoder old_codes;
  };

  std::span<const std::uint8_t> next_piece() {
    if (!first.empty()) return std::exchange(first, {});
    const void* bytes = nullptr;
    const std::int32_t count = next(context, &bytes);
    return count <= 0 ? std::span<const std::uint8_t>()
                      : std::span(static_cast<const std::uint8_t*>(bytes), count);
  }
};
static_assert(std::is_trivially_copyable_v<StripDecoder>);

// Old writers put the first code, 256, low bits first.
void IMG_CB_C begin_decode(void* state, img_next_piece_fn next, void* context) {
  auto& strip = *static_cast<StripDecoder*>(state);
  strip.next = next;
  strip.context = context;
  strip.first = {};
  strip.first = strip.next_piece();
  strip.is_old = strip.first.size() >= 2 && strip.first[0] == 0 && (strip.first[1] & 1) != 0;
  const auto data = tq::coding::PieceSource::of(strip);
  if (strip.is_old) {
    std::construct_at(&strip.old_codes)->start(kByteBits, data);
  } else {
    std::construct_at(&strip.codes)->start(kByteBits, data);
  }
}

std::int32_t IMG_CB_C decode(void* state, void* bytes, std::int32_t count) {
  auto& strip = *static_cast<StripDecoder*>(state);
  const std::span room(static_cast<std::uint8_t*>(bytes), count);
  return static_cast<std::int32_t>(strip.is_old ? strip.old_codes.read(room)
                                                : strip.codes.read(room));
}

void IMG_CB_C begin_encode(void* state) {
  static_cast<tq::lzw::TiffEncoder*>(state)->start(kByteBits);
}

std::int32_t IMG_CB_C encode_bytes(void* state, const void* bytes, std::int32_t count, void* out) {
  auto* const at = static_cast<std::uint8_t*>(out);
  const std::span from(static_cast<const std::uint8_t*>(bytes), count);
  return static_cast<std::int32_t>(static_cast<tq::lzw::TiffEncoder*>(state)->put(from, at) - at);
}

std::int32_t IMG_CB_C end_encode(void* state, void* out) {
  auto* const at = static_cast<std::uint8_t*>(out);
  return static_cast<std::int32_t>(static_cast<tq::lzw::TiffEncoder*>(state)->finish(at) - at);
}

constexpr img_strip_coder kStripCoder = {.size = sizeof kStripCoder,
                                         .decoder_bytes = sizeof(StripDecoder),
                                         .encoder_bytes = sizeof(tq::lzw::TiffEncoder),
                                         .begin_decode = begin_decode,
                                         .decode = decode,
                                         .begin_encode = begin_encode,
                                         .encode = encode_bytes,
                                         .end_encode = end_encode};

img_tiff_request tiff_request(std::int32_t call, std::int32_t stream) {
  img_tiff_request request{};
  request.size = sizeof request;
  request.call = call;
  request.stream = stream;
  request.coder = &kStripCoder;
  return request;
}

}  // namespace

extern "C" {

IMG_PLUGIN_API void IMG_CALL set_callbacks(img_read_fn read, img_write_fn write, img_seek_fn seek,
                                           img_tiff_helper_fn helper) {
  host = {.read = read, .write = write, .seek = seek, .tiff = helper};
}

IMG_PLUGIN_API std::int32_t IMG_CALL decode_gif(std::uint32_t offset_or_page, img_row_fn row,
                                                void* sink_context, img_header_fn header,
                                                std::int32_t stream) {
  const EntryScope scope(host);
  if (!scope.entered()) return IMG_OUT_OF_MEMORY;
  if (!host.can_read()) return IMG_READ_FAILED;
  tq::formats::DecodeNotes notes;
  const auto request = tq::modules::decode_request(tq::StreamHandle{stream}, offset_or_page,
                                                   {header, row, sink_context, &notes});
  const tq::Status decoded = tq::gif::decode(request);
  const bool damaged = decoded.ok() && notes.damage != tq::StatusCode::ok;
  return damaged ? IMG_PLUGIN_DAMAGED : decoded.raw();
}

IMG_PLUGIN_API std::int32_t IMG_CALL encode_gif(std::int32_t stream, void* header_block,
                                                img_supply_fn supply, void* save_context) {
  return encode(tq::gif::encode, stream, header_block, supply, save_context);
}

IMG_PLUGIN_API std::int32_t IMG_CALL encode_gifi(std::int32_t stream, void* header_block,
                                                 img_supply_fn supply, void* save_context) {
  return encode(tq::gif::encode_interlaced, stream, header_block, supply, save_context);
}

IMG_PLUGIN_API std::int32_t IMG_CALL decode_tif(std::uint32_t offset_or_page, img_row_fn row,
                                                void* sink_context, img_header_fn header,
                                                std::int32_t stream) {
  if (host.tiff == nullptr) return IMG_UNSUPPORTED;
  img_tiff_request request = tiff_request(IMG_TIFF_DECODE, stream);
  request.offset_or_page = offset_or_page;
  request.row = row;
  request.sink_context = sink_context;
  request.header = header;
  return host.tiff(&request);
}

IMG_PLUGIN_API std::int32_t IMG_CALL encode_tif(std::int32_t stream, void* header_block,
                                                img_supply_fn supply, void* save_context) {
  if (host.tiff == nullptr) return IMG_UNSUPPORTED;
  img_tiff_request request = tiff_request(IMG_TIFF_ENCODE, stream);
  request.header_block = header_block;
  request.supply = supply;
  request.save_context = save_context;
  return host.tiff(&request);
}

}  // extern "C"
