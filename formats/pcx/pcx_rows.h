// The run-length coding of PCX scan lines.
#pragma once

#include "formats/pcx/pcx_header.h"
#include "io/chunk_reader.h"

namespace tq::formats {

// Gathers the scan lines of a file one after the other. Runs may cross from one into the next.
class PcxLines {
 public:
  // The stream stands behind the header.
  Status open(StreamHandle stream, const PcxHeader& file);

  // The next scan line; `more` is false when there is none. What a cut-off line lacks is 0.
  // read_failed when there is not one byte of pixels, bad_image for a run that reaches more than a
  // whole line too far.
  Status next(std::span<const std::uint8_t>& line, bool& more);

 private:
  Status gather();

  ChunkReader input_;
  RowBuffer<std::uint8_t> buffer_;
  std::ptrdiff_t line_bytes_ = 0;
  std::ptrdiff_t held_ = 0;  // bytes of the buffer in use
  bool lent_ = false;        // the caller still looks at the first line
  bool started_ = false;
  bool ended_ = false;
};

// Leaves the stream behind the last scan line; bad_image when they end early or run too far.
Status skip_pcx_rows(StreamHandle stream, const PcxHeader& file);

}  // namespace tq::formats
