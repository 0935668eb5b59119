// Encoding a PCX image into a stream or a temporary file.
#pragma once

#include "formats/codec.h"
#include "io/temp_file.h"

namespace tq::formats {

// Where the bytes go.
struct PcxOutput {
  StreamHandle stream{-1};
  TempFile* file = nullptr;  // instead of the stream, if not null

  Status write(std::span<std::uint8_t> bytes) const;  // write_failed when not all could be written
};

Status encode_pcx_to(const PcxOutput& output, const EncodeRequest& request);

}  // namespace tq::formats
