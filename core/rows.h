// Images by value, whether their rows are plain pixels or run lists.
#pragma once

#include <cstdint>

#include "core/image_record.h"

namespace tq {

// The first `bytes` bytes of row y (0 or more than a row: the whole row). unsupported: row or count
// out of range.
Status get_raster(const ImageRecord& image, std::uint8_t* out, std::int32_t y, std::int32_t bytes);
Status put_raster(ImageRecord& image, const std::uint8_t* in, std::int32_t y, std::int32_t bytes);

// The whole image. On failure it is unchanged.
Status runs_to_dib(ImageRecord& image);
Status dib_to_runs(ImageRecord& image);

}  // namespace tq
