// Putting the rows of tiles together.
#include "formats/tile_rows.h"

#include <algorithm>
#include <utility>

namespace tq::formats {
namespace {

constexpr std::int64_t kFirstBytes = 16 * 1024;
// Parts of rows that tiles are put together of: a file of a few bytes can lay any number of tiles
// over each other.
constexpr std::int64_t kMostPieces = 10'000'000;

}  // namespace

void TileRows::Runs::add(std::int32_t first, std::int32_t end) {
  if (first >= end) return;
  if (count > 0 && at[count - 1] == first) {
    at[count - 1] = end;
    return;
  }
  at[count++] = first;
  at[count++] = end;
}

Status TileRows::open(std::int32_t width) {
  width_ = width;
  pieces_left_ = kMostPieces;
  TQ_TRY(delivery_.open(width, FaxRows::runs, false));
  TQ_TRY(row_room_.allocate(std::int64_t{width} + 4));
  TQ_TRY(other_room_.allocate(std::int64_t{width} + 4));
  row_.at = row_room_.data();
  other_.at = other_room_.data();
  return kOk;
}

Status TileRows::reserve(GlobalBlock& block, std::int64_t used, std::int64_t more) const {
  if (used + more <= std::ssize(block.bytes())) return kOk;
  const auto wanted = static_cast<std::uint64_t>(used + used / 2 + more + kFirstBytes);
  return block.data() == nullptr ? block.allocate(wanted) : block.resize(wanted);
}

Status TileRows::begin(const Tile& tile) {
  constexpr std::int64_t kBytes = sizeof(Held);
  TQ_TRY(reserve(tiles_, kBytes * tile_count_, kBytes));
  held(tile_count_++) = {.tile = tile, .next = word_count_};
  return kOk;
}

Status TileRows::put(std::span<const std::int32_t> transitions) {
  TQ_TRY(reserve(words_, 2 * word_count_, 2 * (std::ssize(transitions) + 1)));
  std::uint16_t* to = words() + word_count_;
  *to++ = word(transitions.size());
  for (const std::int32_t position : transitions) *to++ = word(position);
  word_count_ += std::ssize(transitions) + 1;
  ++held(tile_count_ - 1).rows;
  return kOk;
}

// What the tile covers is the tile's alone.
void TileRows::add_runs(const Tile& tile, std::span<const std::uint16_t> transitions) {
  const auto place = [&](std::int64_t x) {
    return static_cast<std::int32_t>(std::min<std::int64_t>(tile.x + x * tile.scale, width_));
  };
  const std::int32_t left = place(0), right = place(tile.width);
  const bool at_end = row_.count == 0 || row_.at[row_.count - 1] <= left;
  std::ptrdiff_t i = row_.count;
  if (!at_end) {
    other_.count = 0;
    for (i = 0; i < row_.count && row_.at[i] < left; i += 2) {
      other_.add(row_.at[i], std::min(row_.at[i + 1], left));
      if (row_.at[i + 1] > right) break;
    }
  }
  Runs& to = at_end ? row_ : other_;
  for (std::size_t t = 0; t < transitions.size(); t += 2) {
    const std::int32_t end = t + 1 < transitions.size() ? transitions[t + 1] : tile.width;
    to.add(place(transitions[t]), place(end));
  }
  if (at_end) return;
  for (; i < row_.count; i += 2) other_.add(std::max(row_.at[i], right), row_.at[i + 1]);
  std::swap(row_, other_);
}

void TileRows::add_row(Held& held, std::int32_t y) {
  constexpr std::uint16_t kFromTheLeft[] = {0};
  const Tile& tile = held.tile;
  const std::int64_t own = std::int64_t{y} - tile.y;
  if (own < 0 || own >= std::int64_t{tile.height} * tile.scale) return;
  pieces_left_ -= 1 + row_.count / 64;
  if (tile.black) return add_runs(tile, kFromTheLeft);
  if (own >= std::int64_t{held.rows} * tile.scale) return add_runs(tile, {});
  const std::uint16_t* const list = words() + held.next;
  const std::span<const std::uint16_t> transitions(list + 1, list[0]);
  add_runs(tile, transitions);
  if (own % tile.scale == tile.scale - 1) held.next += std::ssize(transitions) + 1;
}

Status TileRows::deliver(const RowSink& sink, std::int32_t first_row, std::int32_t rows) {
  for (std::int32_t y = 0; y < rows; ++y) {
    row_.count = 0;
    for (std::ptrdiff_t i = 0; i < tile_count_; ++i) add_row(held(i), y);
    if (pieces_left_ < 0) {
      sink.damaged(StatusCode::bad_image);
      break;
    }
    std::span<const std::int32_t> transitions(row_.at, static_cast<std::size_t>(row_.count));
    if (!transitions.empty() && transitions.back() == width_) {
      transitions = transitions.first(transitions.size() - 1);
    }
    TQ_TRY(delivery_.deliver(transitions, sink, first_row + y));
  }
  tile_count_ = 0;
  word_count_ = 0;
  return kOk;
}

}  // namespace tq::formats
