// Data of PNG files, whose rows other files can hold as they are filtered: PNG, clauses 5 and 11.
#include "formats/stored.h"

#include <algorithm>
#include <string_view>

#include "formats/png/png.h"
#include "io/endian.h"

namespace tq::png {
namespace {

constexpr std::int64_t kSignature = 8, kAroundData = 12;  // bytes

struct Chunk {
  std::int64_t bytes = 0;
  std::string_view name{};
};

using Start = std::array<std::uint8_t, 8>;

bool read_chunk(StreamHandle stream, std::int64_t at, Start& start, Chunk& chunk) {
  if (seek_to(stream, at).failed() || read_fully(stream, start) < std::ssize(start)) return false;
  chunk = {load_be32(start.data()), {reinterpret_cast<const char*>(&start[4]), 4}};
  return true;
}

// What transparency there is only rows can show; interlaced rows stand in another order.
Status take_header(std::span<const std::uint8_t> header, formats::StoredPicture& stored) {
  enum Kind : std::uint8_t { grey = 0, colours = 2, indexed = 3 };
  const std::uint32_t width = load_be32(header.data()), height = load_be32(&header[4]);
  const int kind = header[9];
  const bool is_plain = header[10] == 0 && header[11] == 0 && header[12] == 0;
  const bool is_known = kind == grey || kind == colours || kind == indexed;
  if (!is_plain || !is_known || width - 1 >= INT32_MAX || height - 1 >= INT32_MAX) {
    return StatusCode::unsupported;
  }
  stored.width = static_cast<std::int32_t>(width);
  stored.height = static_cast<std::int32_t>(height);
  stored.bits = header[8];
  stored.components = kind == colours ? 3 : 1;
  stored.colours = kind == indexed ? 1 : 0;
  return kOk;
}

Status take_palette(StreamHandle stream, std::int64_t bytes, formats::StoredPicture& stored) {
  std::array<std::uint8_t, std::size_t{3} * 256> colours;
  if (bytes < 3 || bytes % 3 != 0 || bytes > std::ssize(colours)) return StatusCode::unsupported;
  const auto read = std::span(colours).first(static_cast<std::size_t>(bytes));
  if (read_fully(stream, read) < bytes) return StatusCode::unsupported;
  stored.colours = std::min(static_cast<int>(bytes / 3), 1 << stored.bits);
  for (int i = 0; i < stored.colours; ++i) {
    stored.palette[i] = {colours[3 * i + 2], colours[3 * i + 1], colours[3 * i], 0};
  }
  return kOk;
}

}  // namespace

Status find_stored_png(const formats::DecodeRequest& request, formats::StoredPicture& stored) {
  stored.coding = formats::StoredPicture::Coding::png_rows;
  stored.stream = request.stream;
  stored.in_chunks = true;
  std::int64_t at = request.start() + kSignature;
  Start start;
  Chunk chunk;
  bool has_palette = false;
  for (bool first = true; read_chunk(request.stream, at, start, chunk); first = false) {
    if (first) {
      std::array<std::uint8_t, 13> header;
      const bool is_header = chunk.name == "IHDR" && chunk.bytes == std::ssize(header);
      if (!is_header || read_fully(request.stream, header) < chunk.bytes) break;
      TQ_TRY(take_header(header, stored));
    } else if (chunk.name == "PLTE" && stored.colours != 0) {
      TQ_TRY(take_palette(request.stream, chunk.bytes, stored));
      has_palette = true;
    } else if (chunk.name == "tRNS") {
      return StatusCode::unsupported;
    } else if (chunk.name == "IDAT") {
      if (stored.offset == 0) stored.offset = at;
      stored.bytes += chunk.bytes;
    } else if (stored.offset != 0) {  // all data have been seen, and they stand in one row
      const bool is_whole = stored.bytes > 0 && (stored.colours == 0 || has_palette);
      return is_whole ? StatusCode::ok : StatusCode::unsupported;
    }
    at += chunk.bytes + kAroundData;
  }
  return StatusCode::unsupported;
}

}  // namespace tq::png
