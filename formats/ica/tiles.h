// Tiles of black and white that a picture is put together from.
#pragma once

#include "formats/ica/content.h"
#include "formats/plugin/plugin.h"
#include "formats/tile_rows.h"

namespace tq::ica {

// Those of a content, in the order of the file.
class Tiles {
 public:
  Status open(StreamHandle stream, const Content& content);

  // How large all of them are, before they are delivered: unsupported when one cannot be shown, bad_image
  // when there is none.
  Status measure();
  std::int32_t width() const { return width_; }
  std::int32_t height() const { return height_; }
  bool wants_lzw() const { return wants_lzw_; }

  Status deliver(const formats::DecodeRequest& request, const img_strip_coder* lzw);

 private:
  // Takes the next one up to its data. page_past_end behind the last.
  Status next(formats::Tile& tile, Description& about);
  Status take_place(const Field& field, formats::Tile& tile);

  ContentBytes bytes_;
  Description about_;
  std::int32_t width_ = 0, height_ = 0;
  bool in_order_ = true;  // they come from the top
  bool wants_lzw_ = false;
};

}  // namespace tq::ica
