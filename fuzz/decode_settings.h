// The first bytes of an input of decode_fuzzer: how the file behind them is read.
#pragma once

#include <cstdint>

namespace tq::fuzz {

enum SettingByte : std::uint8_t {
  kRouteByte,      // a Route
  kColoursByte,    // reduction in bits 0-1, nearest colours 2, scrambled 3, text detection 4
  kSwitchByte,     // a file type code whose detection is switched off
  kSizeWidthByte,  // decode size and rectangle, signed
  kSizeHeightByte,
  kRectXByte,
  kRectYByte,
  kRectWidthByte,
  kRectHeightByte,
  kPageByte,         // signed
  kOffsetByte,       // where the file begins in its stream
  kMostPerCallByte,  // bytes that a caller's read hands out at a time; 0: all
  kFailingCallByte,  // the caller's I/O call, or the sink's row, that fails; 0: none
  kProgressByte,     // the progress report that is answered with an abort; 0: none
  kRefusedByte,      // the allocation that is refused; 0: none
  kTouchByte,        // crop rectangle follows 0, room for saving cut short 1, through caller I/O 2
  kCropXByte,
  kCropYByte,
  kCropWidthByte,
  kCropHeightByte,
  kSaveByte,  // a file type code to save with
  kSettingBytes
};

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

}  // namespace tq::fuzz
