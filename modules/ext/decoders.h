// Pictures by libraries of others: each is told how large it may become before it decodes.
#pragma once

#include "formats/codec.h"
#include "tarnquill_plugin.h"

namespace tq::ext {

using Bytes = std::span<const std::uint8_t>;

// A whole file to rows of 24 bits, what alpha hides being white. page_past_end, bad_image, out_of_memory.
// Rows that are not there are not delivered.
Status decode_webp(Bytes file, std::int32_t page, const formats::RowSink& sink);
Status decode_jpeg_2000(Bytes file, std::int32_t page, const formats::RowSink& sink);
Status decode_heif(Bytes file, std::int32_t page, const formats::RowSink& sink);

// How many pictures.
Status count_webp(Bytes file);
Status count_heif(Bytes file);

// Whether a file that begins so is one of theirs.
bool is_webp(Bytes head);
bool is_jpeg_2000(Bytes head);
bool is_heif(Bytes head);

// Parts of other files. `coded` are all bytes of the picture. IMG_PLUGIN_CONTRADICTS for a picture of which
// a part is missing.
Status decode_coded_jpeg_2000(Bytes coded, const img_coded_picture& picture);
Status decode_coded_jbig2(Bytes globals, Bytes coded, const img_coded_picture& picture);

// Rows of red, green, blue and alpha, or without, to a sink.
class ColourRows {
 public:
  // Calls the sink's header.
  Status begin(std::int64_t width, std::int64_t height, const formats::RowSink& sink);
  Status put(Bytes pixels, bool has_alpha, bool is_mixed = false);

 private:
  const formats::RowSink* sink_ = nullptr;
  std::int32_t width_ = 0, y_ = 0;
  RowBuffer<std::uint8_t> row_;
};

}  // namespace tq::ext
