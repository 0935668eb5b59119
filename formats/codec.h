// What a codec is: a function from a stream to a row sink, or from a row supplier to a stream.
#pragma once

#include <cstdint>
#include <span>

#include "core/dib.h"
#include "core/status.h"
#include "include/tarnquill.h"
#include "io/byte_stream.h"

namespace tq::formats {

// Takes a decoder's header and rows. The callbacks are the interface's own, so that callers with
// sinks of their own and separately loaded modules use the same contract.
struct RowSink {
  img_header_fn on_header = nullptr;
  img_row_fn on_row = nullptr;
  void* context = nullptr;

  // Once, before any row; the block outlives the decode. After it the geometry is known to be
  // valid: bad_image or out_of_memory is returned otherwise, whatever the callback said.
  Status header(HeaderBlock& block) const {
    if (on_header != nullptr) {
      const Status answer = Status::from_raw(on_header(&block, context));
      if (answer.failed()) return answer;
    }
    return check_geometry(block.header);
  }

  // y = 0 is the top row. `bytes` is the header's row size; for a 1-bit image any other length is a
  // run list, so a run list must not have exactly that length (append another closing word).
  Status row(std::span<const std::uint8_t> bytes, std::int32_t y) const {
    if (on_row == nullptr) return kOk;
    return Status::from_raw(on_row(const_cast<std::uint8_t*>(bytes.data()), context, y,
                                   static_cast<std::int32_t>(bytes.size())));
  }
};

// The top bit of offset_or_page set: a page number in the other 31.
struct DecodeRequest {
  StreamHandle stream;
  std::uint32_t offset_or_page;
  RowSink sink;

  bool has_page() const { return (offset_or_page & 0x80000000) != 0; }
};
using Decoder = Status (*)(const DecodeRequest& request);

struct RowSupplier {
  img_supply_fn on_row = nullptr;
  void* context = nullptr;

  // Fills `bytes` with row y, 0 being the top of the picture. The result 0 means a row of pixels; a
  // result above 0 (1-bit codecs that ask for transitions) is the length of a transition list.
  Status row(std::span<std::uint8_t> bytes, std::int32_t y) const {
    if (on_row == nullptr) return StatusCode::unsupported;
    return Status::from_raw(
        on_row(context, bytes.data(), y, static_cast<std::int32_t>(bytes.size())));
  }
};

// Geometry has been checked (check_geometry).
struct EncodeRequest {
  StreamHandle stream;
  HeaderBlock* image;
  RowSupplier rows;
};
using Encoder = Status (*)(const EncodeRequest& request);

// What an encoder refuses by the look of the image, before it writes anything: a request for which
// this is kOk fails only by what happens to its rows and its stream. The rows are not asked for.
using EncodeCheck = Status (*)(const EncodeRequest& request);

}  // namespace tq::formats
