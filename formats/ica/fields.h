// The fields that image objects are made of: those of an image content, one after the other, and the
// structured fields of documents around them.
#pragma once

#include <cstdint>
#include <span>

#include "io/stream_window.h"

namespace tq::ica {

using Bytes = std::span<const std::uint8_t>;

// Structured fields of documents.
enum StructuredCode : std::uint32_t {
  kBeginDocument = 0xD3A8A8,
  kEndDocument = 0xD3A9A8,
  kBeginPage = 0xD3A8AF,
  kEndPage = 0xD3A9AF,
  kBeginPageEnvironment = 0xD3A8C9,
  kPageDescriptor = 0xD3A6AF,
  kEndPageEnvironment = 0xD3A9C9,
  kBeginImage = 0xD3A8FB,
  kEndImage = 0xD3A9FB,
  kBeginObjectEnvironment = 0xD3A8C7,
  kEndObjectEnvironment = 0xD3A9C7,
  kAreaDescriptor = 0xD3A66B,
  kAreaPosition = 0xD3AC6B,
  kMapImage = 0xD3ABFB,
  kImageDescriptor = 0xD3A6FB,
  kImageData = 0xD3EEFB,
  kBeginRaster = 0xD3A87B,
  kRasterData = 0xD3EE7B,
};

struct StructuredField {
  std::uint32_t code = 0;
  std::int64_t data = 0, data_bytes = 0;  // without extension and padding
  std::int64_t next = 0;
};

// Whether one begins there. If not, `cut` says that the stream ends before that can be known.
bool read_structured(StreamWindow& window, std::int64_t at, StructuredField& field, bool& cut);

// Fields of image contents.
enum Code : int {
  kBeginSegment = 0x70,
  kEndSegment = 0x71,
  kBeginTile = 0x8C,
  kEndTile = 0x8D,
  kBeginContent = 0x91,
  kEndContent = 0x93,
  kSize = 0x94,
  kEncoding = 0x95,
  kPixelBits = 0x96,
  kBands = 0x98,
  kStructure = 0x9B,
  kTilePosition = 0xB5,
  kTileSize = 0xB6,
  kData = 0xFE92,
  kBandData = 0xFE9C,
  kTransparency = 0xFEB8,
  kTileTable = 0xFEBB,
  kSubsampling = 0xFECE,
};

// A place among the bytes of image contents: in the stream, with how many bytes are left of a
// structured field and where the next one begins.
struct Place {
  std::int64_t at = 0, left = INT64_MAX, next = 0;
};

enum class Found : std::uint8_t { field, end, no_code };

struct Field {
  int code = 0;
  std::int64_t bytes = 0;  // behind its head
};

// The bytes of image contents: as they stand in the stream, or from structured fields, wherever these
// cut them.
class ContentBytes {
 public:
  Status open(StreamHandle stream) { return window_.open(stream, kWindow); }  // out_of_memory
  void go_to(const Place& place) { place_ = place; }
  const Place& place() const { return place_; }
  StreamWindow& window() { return window_; }

  // The next of them, at most so many and in one piece; empty at the end.
  Bytes next(std::int64_t most);
  // Whether there were so many.
  bool read(std::span<std::uint8_t> bytes);
  void skip(std::int64_t bytes);

  // Takes the head of the next field.
  Found next_field(Field& field);

 private:
  static constexpr std::int64_t kWindow = 64 * 1024;

  bool find_data();

  StreamWindow window_;
  Place place_;
};

}  // namespace tq::ica
