// The rows of a page, put together from its strips or tiles.
#pragma once

#include "coding/differences.h"
#include "formats/fax.h"
#include "formats/tiff/coded.h"
#include "formats/tiff/jpeg_strips.h"

namespace tq::tiff {

inline constexpr int kMostPlanes = 5;  // four colours and alpha

// What lies in a stored row: units of one pixel, or of some pixels with one sample of chrominance;
// planes behind one another.
struct RowShape {
  RowShape() = default;
  explicit RowShape(const Page& page);

  std::int64_t bytes_for(std::int64_t pixels) const { return (units(pixels) * unit_bits + 7) / 8; }
  std::int64_t units(std::int64_t pixels) const { return (pixels + h - 1) / h; }
  std::int64_t rows(std::int64_t pixel_rows) const { return (pixel_rows + v - 1) / v; }

  int h = 1, v = 1;   // pixels of a unit
  int unit_bits = 1;  // in one plane
  int planes = 1;     // of those that are of use
  std::int64_t plane_bytes = 0;
};

// For the strips or tiles of a facsimile. A bit of 1 is black, so that what is not there is white.
Status open_fax(const Page& page, formats::FaxRows delivery, formats::FaxDecoder& decoder);

class PageRows {
 public:
  // `jpeg` is open, for pages that are. What is lost is told to `sink`.
  Status open(const File& file, Page& page, const img_strip_coder* lzw, JpegStrips* jpeg,
              const formats::RowSink& sink);

  // The next row that there is; empty behind the last. What it lacks is 0. It has `lines` rows of
  // pixels, which begin with row `y` of the page.
  Status next(Bytes& row, std::int64_t& y, std::int64_t& lines);

 private:
  std::uint64_t index(std::int64_t across, int plane) const;
  Chunk chunk(std::int64_t across, int plane);
  Row row_at(std::int64_t row, int plane) const;
  Status start_strip();
  Status read_strip_row();
  Status load_band();
  Status load_tile(std::int64_t across, int plane);

  const File* file_ = nullptr;
  Page* page_ = nullptr;
  const formats::RowSink* sink_ = nullptr;
  RowShape shape_;
  coding::SampleForm samples_;
  std::array<CodedBytes, kMostPlanes> planes_;
  formats::FaxDecoder fax_;
  JpegStrips* jpeg_ = nullptr;
  bool in_bands_ = false;             // tiles, or planes that are decoded one after the other
  RowBuffer<std::uint8_t> rows_;      // one, or those of a band
  Bytes strip_row_{};                 // of a strip: that one, or where the coded bytes are
  std::int64_t down_ = -1;            // the strip, or band, at work
  std::int64_t row_ = 0, there_ = 0;  // the next row in it, and how many there are
};

}  // namespace tq::tiff
