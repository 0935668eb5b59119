// Pictures that are parts of files, coded as JPEG 2000 or JBIG2: from pieces to whoever takes the rows.
#pragma once

#include "core/status.h"
#include "include/tarnquill_plugin.h"
#include "io/piece_source.h"

namespace tq::formats {

inline std::int32_t IMG_CB_C next_coded_piece(void* context, const void** bytes) {
  const std::span<const std::uint8_t> piece = static_cast<const PieceSource*>(context)->next();
  *bytes = piece.data();
  return static_cast<std::int32_t>(piece.size());
}

// `rows` has begin(samples), called once, and put(row, y), each with a status. It and the pieces are there
// as long as the result is used.
template <class Rows>
img_coded_picture coded_picture(std::int32_t coding, PieceSource& data, Rows& rows) {
  img_coded_picture picture{};
  picture.size = sizeof picture;
  picture.coding = coding;
  picture.next = next_coded_piece;
  picture.data = &data;
  picture.header = [](const img_samples* samples, void* context) {
    return static_cast<Rows*>(context)->begin(*samples).raw();
  };
  picture.row = [](void* row, void* context, std::int32_t y, std::int32_t bytes) {
    if (y < 0 || bytes < 0) return Status(StatusCode::bad_image).raw();
    const std::span pixels(static_cast<const std::uint8_t*>(row), static_cast<std::size_t>(bytes));
    return static_cast<Rows*>(context)->put(pixels, y).raw();
  };
  picture.context = &rows;
  return picture;
}

// Asks whether such pictures can be decoded: with it the decoder's status is 0, and nothing else happens.
inline img_coded_picture coded_question(std::int32_t coding) {
  img_coded_picture picture{};
  picture.size = sizeof picture;
  picture.coding = coding;
  return picture;
}

}  // namespace tq::formats
