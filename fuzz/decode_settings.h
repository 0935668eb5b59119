// The first bytes of an input of decode_fuzzer: how the file behind them is read.
#pragma once

#include <cstdint>

namespace tq::fuzz {

enum class Route : std::uint8_t {
  block,         // memory with its size
  global_block,  // memory that knows its size
  packed_dib,    // the same through IMG_create_handle
  caller_io,
  descriptor,
  name,
  sink_block,  // into callbacks instead of an image
  sink_global_block,
  sink_caller_io,
  query,  // file type, pages, header
  count
};

struct DecodeSettings {
  std::uint8_t route;         // a Route
  std::uint8_t colours;       // reduction in bits 0-1, nearest colours 2, scrambled 3, text 4-6
  std::uint8_t switched_off;  // 1 + the file type code that is not detected
  std::int8_t size_width, size_height;
  std::int8_t rect_x, rect_y, rect_width, rect_height;
  std::int8_t page;
  std::uint8_t offset;         // where the file begins in its stream
  std::uint8_t most_per_call;  // bytes that a caller's read hands out at a time; 0: all
  std::uint8_t failing_call;   // the caller's I/O call, or the sink's row, that fails; 0: none
  std::uint8_t progress;       // the progress report that is answered with an abort; 0: none
  std::uint8_t refused;        // the allocation that is refused; 0: none
  std::uint8_t touch;  // crop rectangle 0, short room to save 1, to a caller 2, large pictures 3, 7
  std::int8_t crop_x, crop_y;
  std::uint8_t crop_width, crop_height;
  std::uint8_t save_code;  // the file type code to save with; 0: BMP in run lengths
  std::int8_t quality;     // of a JPEG file that is saved
  std::uint8_t sampling;   // its factors: across in bits 0-2, down in 3-5
  std::uint8_t options;    // those of reading and of JPEG that are on, in the order of kOptions
};

}  // namespace tq::fuzz
