// Marker segments: from SOI to the first scan, and from one scan to the next.
#pragma once

#include "core/status.h"
#include "formats/jpeg/frame.h"
#include "io/chunk_reader.h"

namespace tq::formats {

// Room for the longest segment and for a table that runs past its end.
inline constexpr std::int64_t kSegmentChunk = 66 * 1024;

// Leaves the reader behind SOI: read_failed when there is not one byte, bad_image when no SOI
// begins in the first 5001 bytes.
Status find_start(ChunkReader& input);

// Reads segments up to and including the next SOS; false when the data end before or a segment
// cannot be read. The frame is taken from the first call only.
bool read_segments(ChunkReader& input, bool first, Tables& tables);

// What the frame and the first scan must be before anything is decoded.
Status check_frame(const Frame& frame);
bool scan_is_valid(const Tables& tables);

}  // namespace tq::formats
