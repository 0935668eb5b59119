// The readers and writers of BMP rows that have a file of their own.
#pragma once

#include "formats/bmp/bmp_header.h"
#include "formats/codec.h"
#include "io/chunk_reader.h"

namespace tq::formats {

// Opens `input` at the pixels. When no stream has their position it stays closed, which reads as
// an empty file.
Status open_pixels(const DecodeRequest& request, const BmpFile& file, std::int64_t chunk_bytes,
                   ChunkReader& input);

// Run-length coded rows, always from the bottom up. Rows that no code reaches are not delivered.
Status decode_rle_rows(const DecodeRequest& request, const BmpFile& file);

Status encode_bmp_rle(const EncodeRequest& request);

}  // namespace tq::formats
