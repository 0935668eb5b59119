// Marker segments: from SOI to the first scan, from one scan to the next, and what they say.
#pragma once

#include <array>
#include <cstdint>
#include <span>

#include "core/dib.h"
#include "core/status.h"
#include "formats/jpeg/jpeg.h"
#include "formats/jpeg/tables.h"
#include "io/chunk_reader.h"

namespace tq::jpeg {

inline constexpr int kMostComponents = 4;
inline constexpr int kMostFactor = 4;
inline constexpr int kHuffmanSlots = 3;  // of each class
inline constexpr int kQuantisationSlots = 4;

struct FrameComponent {
  std::uint8_t id = 0;
  std::uint8_t h = 0, v = 0;  // sampling factors
  std::uint8_t quantisation = 0;
};

struct Frame {
  bool present = false;
  bool progressive = false;
  int precision = 0;
  int width = 0, height = 0;
  int count = 0;  // of components
  std::array<FrameComponent, kMostComponents> components;
};

struct ScanComponent {
  int index = 0;  // in the frame
  int dc = 0, ac = 0;
};

struct Scan {
  int count = 0;
  std::array<ScanComponent, kMostComponents> components;
  int first = 0, last = 0;  // of the spectral band, in zigzag order
  int high = 0, low = 0;    // successive approximation
};

using QuantisationTable = std::array<std::uint16_t, kBlock>;  // in zigzag order

struct HuffmanSlot {
  bool defined = false;
  bool changed = false;  // since its look-up table was built
  HuffmanSpec spec;
};

struct Adobe {
  bool present = false;
  int transform = 0;
};

// What an EXIF segment says, 0 for what it does not.
struct Exif {
  bool present = false;
  int orientation = 0;  // 1 to 8
  Resolution resolution{};
};
Exif read_exif(std::span<const std::uint8_t> segment);

struct Tables {
  std::array<QuantisationTable, kQuantisationSlots> quantisation{};
  std::array<HuffmanSlot, kHuffmanSlots> dc, ac;
  int restart_interval = 0;  // MCUs; 0: none
  Frame frame;
  Scan scan;
  bool has_end = false;  // EOI has come
  bool has_jfif = false;
  int density_unit = 0;              // of JFIF: 1 per inch, 2 per centimetre
  int x_density = 0, y_density = 0;  // 0: unknown
  Exif exif;
  Adobe adobe;

  // Of a component of the scan.
  const QuantisationTable& quantisation_of(const ScanComponent& component) const {
    return quantisation[frame.components[component.index].quantisation];
  }
};

// Room for the longest segment and for a table that runs past its end.
inline constexpr std::int64_t kSegmentChunk = PartDecoder::kChunkBytes;

// Leaves the reader behind SOI: read_failed when there is not one byte, bad_image when no SOI
// begins in the first 5001 bytes.
Status find_start(ChunkReader& input);

// Reads segments up to and including the next SOS; false when the data end before or a segment
// cannot be read. The frame is taken from the first call only.
bool read_segments(ChunkReader& input, bool first, Tables& tables);

// A scan of all components of a frame, for data without a header: the first component has tables of
// its own, the others share theirs if there are any.
Scan scan_of_all(const Tables& tables);

// What the frame and the first scan must be before anything is decoded.
Status check_frame(const Frame& frame);
bool scan_is_valid(const Tables& tables);

}  // namespace tq::jpeg
