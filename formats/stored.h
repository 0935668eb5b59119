// Coded pictures where they lie in a file, for files that hold them as they are.
#pragma once

#include <array>
#include <cstdint>

#include "core/dib.h"
#include "formats/codec.h"
#include "io/stream_writer.h"

namespace tq::formats {

struct StoredPicture {
  enum class Coding : std::uint8_t {
    jpeg,      // a stream from SOI on (ITU-T T.81)
    group4,    // ITU-T T.6
    png_rows,  // filtered rows in a deflate stream (PNG)
  };
  Coding coding = Coding::jpeg;
  StreamHandle stream{-1};
  std::int64_t offset = 0, bytes = 0;  // of the data
  bool in_chunks = false;      // they stand in IDAT chunks of PNG, and `offset` is the first's
  bool low_bit_first = false;  // in a byte
  std::int32_t width = 0, height = 0;
  int bits = 8, components = 3;  // of a component
  // Inks whose greatest value is none of it; of Group 4: what is coded as black is white.
  bool inverted = false;
  bool is_rgb = false;       // of JPEG: three components that are no YCbCr
  bool is_baseline = false;  // likewise
  int h = 1, v = 1;          // likewise: sampling factors of the first component, if others have 1
  int colours = 0;           // of a palette
  std::array<Rgb, 256> palette{};
  // A finder that knows them says so; else they are those of the page's header.
  bool is_described = false;
  Resolution resolution{};
  int orientation = 1;
  int own_orientation = 1;  // what a JPEG stream says itself
};

// A picture that lies in a file as a decode of its page would begin; unsupported for every other.
using StoredFinder = Status (*)(const DecodeRequest& request, StoredPicture& stored);

// The data, with progress for every 64 KiB.
Status copy_stored(const StoredPicture& stored, StreamWriter& out);

}  // namespace tq::formats
