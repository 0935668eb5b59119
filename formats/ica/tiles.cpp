// Where tiles are, and their rows.
#include "formats/ica/tiles.h"

#include <algorithm>

#include "formats/ica/rows.h"
#include "io/endian.h"

namespace tq::ica {
namespace {

using formats::DecodeRequest;

constexpr std::int32_t kMostRows = 65535;

bool can_show(const Description& about) {
  const bool known = about.coding == kBlack || is_of_rows(about);
  return known && about.colours() == Colours::black && !about.bottom_up;
}

// What a tile lacks is white.
Status put_tile(const DecodeRequest& request, const Description& about, const img_strip_coder* lzw,
                const formats::Tile& tile, formats::TileRows& to) {
  BlackRows rows;
  TQ_TRY(rows.open(request.stream, about, lzw, tile.width));
  rows.start(about.data, tile.height);
  for (std::int32_t y = 0; y < tile.height; ++y) {
    if (!rows.next_row()) {
      request.sink.damaged(rows.at_end() ? StatusCode::read_failed : StatusCode::bad_image);
      break;
    }
    if (!rows.row_is_good()) request.sink.damaged(StatusCode::bad_image);
    TQ_TRY(to.put(rows.row()));
  }
  return kOk;
}

}  // namespace

Status Tiles::open(StreamHandle stream, const Content& content) {
  about_ = content.description;
  TQ_TRY(bytes_.open(stream));
  bytes_.go_to(about_.data);
  return kOk;
}

Status Tiles::take_place(const Field& field, formats::Tile& tile) {
  constexpr std::int64_t kPair = 8, kMost = 9, kHalf = 2;
  std::uint8_t values[kMost] = {};
  const std::int64_t here = std::min(field.bytes, kMost);
  if (here < kPair) return StatusCode::bad_image;
  if (!bytes_.read(std::span(values).first(static_cast<std::size_t>(here)))) {
    return StatusCode::page_past_end;
  }
  bytes_.skip(field.bytes - here);
  const std::uint32_t first = load_be32(&values[0]), second = load_be32(&values[4]);
  if (first > kMostRows || second > kMostRows) return StatusCode::bad_image;
  const auto x = static_cast<std::int32_t>(first), y = static_cast<std::int32_t>(second);
  if (field.code == kTilePosition) {
    tile.x = x;
    tile.y = y;
  } else {
    tile.width = x;
    tile.height = y;
    tile.scale = values[kPair] == kHalf ? 2 : 1;
  }
  const bool fits = tile.x + tile.scale * tile.width <= kMostRows &&
                    tile.y + tile.scale * tile.height <= kMostRows;
  return fits ? StatusCode::ok : StatusCode::bad_image;
}

Status Tiles::next(formats::Tile& tile, Description& about) {
  bool in_tile = false;
  while (true) {
    const Place here = bytes_.place();
    Field field;
    if (bytes_.next_field(field) != Found::field) return StatusCode::page_past_end;
    if (field.code == kEndContent || field.code == kEndSegment) return StatusCode::page_past_end;
    const bool is_end = field.code == kEndTile || field.code == kData || field.code == kBandData;
    if (in_tile && is_end) {
      about.data = here;
      about.in_bands = field.code == kBandData;
      in_tile = false;
      if (tile.width > 0 && tile.height > 0) {
        bytes_.skip(field.bytes);
        return kOk;
      }
    }
    if (field.code == kBeginTile) {
      in_tile = true;
      tile = {};
      about = about_;
    }
    if (in_tile && (field.code == kTilePosition || field.code == kTileSize)) {
      TQ_TRY(take_place(field, tile));
    } else if (in_tile) {
      TQ_TRY(take_description(bytes_, field, about));
    } else {
      bytes_.skip(field.bytes);
    }
  }
}

Status Tiles::measure() {
  formats::Tile tile;
  Description about;
  std::int32_t last_y = 0;
  Status found = next(tile, about);
  for (; found.ok(); found = next(tile, about)) {
    if (!can_show(about)) return StatusCode::unsupported;
    wants_lzw_ = wants_lzw_ || about.coding == kLzw;
    width_ = std::max(width_, tile.x + tile.scale * tile.width);
    height_ = std::max(height_, tile.y + tile.scale * tile.height);
    in_order_ = in_order_ && tile.y >= last_y;
    last_y = tile.y;
  }
  if (found != StatusCode::page_past_end) return found;
  return height_ == 0 ? StatusCode::bad_image : StatusCode::ok;
}

Status Tiles::deliver(const DecodeRequest& request, const img_strip_coder* lzw) {
  formats::TileRows rows;
  TQ_TRY(rows.open(width_));
  bytes_.go_to(about_.data);
  formats::Tile tile;
  Description about;
  Status found = next(tile, about);
  std::int32_t y = 0;  // of the first row that has not been delivered
  const auto deliver_to = [&](std::int32_t end) {
    TQ_TRY(rows.deliver(request.sink, y, end - y));
    y = end;
    return kOk;
  };
  while (found.ok()) {
    // What begins among the rows of these belongs to them.
    std::int32_t end = in_order_ ? tile.y : height_;
    if (in_order_) TQ_TRY(deliver_to(tile.y));
    do {
      end = std::max(end, tile.y + tile.scale * tile.height);
      tile.y -= y;
      tile.black = about.coding == kBlack;
      TQ_TRY(rows.begin(tile));
      if (!tile.black) TQ_TRY(put_tile(request, about, lzw, tile, rows));
      found = next(tile, about);
    } while (found.ok() && tile.y < end);
    TQ_TRY(deliver_to(end));
  }
  return deliver_to(height_);
}

}  // namespace tq::ica
