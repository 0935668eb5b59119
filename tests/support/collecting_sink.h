// The two ends of a codec: a row sink that keeps what it gets, a row supplier over given rows.
#pragma once

#include <algorithm>
#include <cstdint>
#include <utility>
#include <vector>

#include "formats/codec.h"

namespace tq::test {

struct CollectedRow {
  std::int32_t y = 0;
  std::vector<std::uint8_t> bytes{};
  friend bool operator==(const CollectedRow&, const CollectedRow&) = default;
};

class CollectingSink {
 public:
  formats::RowSink sink() { return {on_header, on_row, this}; }

  // The rows from the top; those that were not delivered are empty.
  std::vector<std::vector<std::uint8_t>> image() const {
    std::vector<std::vector<std::uint8_t>> image(static_cast<std::size_t>(header.header.biHeight));
    for (const CollectedRow& row : rows) image.at(static_cast<std::size_t>(row.y)) = row.bytes;
    return image;
  }

  int headers = 0;  // calls
  HeaderBlock header{};
  std::vector<CollectedRow> rows;  // in the order of delivery
  std::int32_t header_answer = 1;
  std::int32_t row_answer = 0;  // of the call `answered_row`, counted from 0; 0 of the others
  std::size_t answered_row = 0;

 private:
  static std::int32_t IMG_CB_C on_header(void* block, void* context) {
    auto& self = *static_cast<CollectingSink*>(context);
    ++self.headers;
    self.header = *static_cast<HeaderBlock*>(block);
    return self.header_answer;
  }
  static std::int32_t IMG_CB_C on_row(void* row, void* context, std::int32_t y,
                                      std::int32_t bytes) {
    auto& self = *static_cast<CollectingSink*>(context);
    const auto* first = static_cast<const std::uint8_t*>(row);
    self.rows.push_back({y, {first, first + bytes}});
    return self.rows.size() == self.answered_row + 1 ? self.row_answer : 0;
  }
};

// Supplies rows from the top, or answers `failure` for the row `failed_row`.
class GivenRows {
 public:
  explicit GivenRows(std::vector<std::vector<std::uint8_t>> rows) : rows_(std::move(rows)) {}
  formats::RowSupplier supplier() { return {on_row, this}; }

  std::int32_t failed_row = -1;
  std::int32_t failure = 0;

 private:
  static std::int32_t IMG_CB_C on_row(void* context, void* dest, std::int32_t y,
                                      std::int32_t bytes) {
    auto& self = *static_cast<GivenRows*>(context);
    if (y == self.failed_row) return self.failure;
    const auto& row = self.rows_.at(static_cast<std::size_t>(y));
    if (row.size() > static_cast<std::size_t>(bytes)) return -1000;
    std::copy(row.begin(), row.end(), static_cast<std::uint8_t*>(dest));
    return 0;
  }

  std::vector<std::vector<std::uint8_t>> rows_;
};

}  // namespace tq::test
