// Where the blocks of a picture lie, their coefficients until all have come, and the way from
// coefficients to delivered rows.
#pragma once

#include <array>
#include <cstdint>

#include "core/memory.h"
#include "formats/codec.h"
#include "formats/jpeg/decode/markers.h"
#include "formats/jpeg/dsp/kernels.h"

namespace tq::jpeg {

// Where the blocks of a component lie.
struct Grid {
  int h = 0, v = 0;           // blocks of an MCU
  int width = 0, height = 0;  // samples that belong to pixels
  int columns = 0;            // blocks that hold pixels
  int rows = 0;
  int padded_columns = 0;  // whole MCUs
};

struct Geometry {
  explicit Geometry(const Frame& frame);

  int width, height;
  int count;  // of components
  int h_most = 1, v_most = 1;
  int mcu_columns, mcu_rows;
  std::array<Grid, kMostComponents> grids;

  int mcu_height() const { return 8 * v_most; }  // pixels
};

// The blocks of one row, from the left. Most blocks have few coefficients and some only the first,
// which is kept apart: what the other 63 take is neither cleared nor touched before one is stored.
struct StoredRow {
  std::int16_t* dc;
  std::uint64_t* present;  // bit k: place k of the zigzag sequence is not 0
  std::int16_t* blocks;    // kBlock each, column by column; undefined where nothing is present

  std::int16_t* block(int x) const { return blocks + std::ptrdiff_t{kBlock} * x; }
};

// The coefficients of a picture whose blocks do not come all at once.
class CoefficientStore {
 public:
  Status allocate(const Geometry& geometry);

  // Rows become 0 when they are first asked for: a picture may claim more of them than its data
  // fill.
  StoredRow row(int component, int y);

 private:
  struct Part {
    StoredRow first;
    int columns = 0;
    int cleared = 0;  // rows
  };
  GlobalBlock room_;
  std::array<Part, kMostComponents> parts_{};
};

// How the components become pixels.
enum class Layout : std::uint8_t {
  grey,
  grey_12,
  ycc,
  rgb,            // three components that are colours already
  cmyk,           // four components in their order
  inverted_cmyk,  // four components, each 255 minus itself
  ycck,           // converted, the first three are inks; the fourth is inverted
};
Layout choose_layout(const Tables& tables);
// The same by what all readers have agreed on since: a JFIF segment means YCbCr, ids may say RGB, and
// four components are stored inverted.
Layout choose_usual_layout(const Tables& tables);
int layout_bits(Layout layout);

// The reconstructed samples of one MCU row, and the row of pixels made from them. Coarse kernels
// repeat chroma samples, exact ones go with smooth chroma.
class Reconstruction {
 public:
  Status allocate(const Geometry& geometry, Layout layout, Accuracy accuracy);

  // Behind the sink's header. Null: all of the picture; else blocks that it does not need may be left out.
  void choose_wanted(const formats::WantedPart* wanted);
  bool is_partial() const { return wanted_ != nullptr; }
  bool needs(int component, int column, int row) const;
  void begin_row(int y);  // of MCUs; its first row of the picture

  void set_quantisation(int component, const QuantisationTable& table);

  // Each block of the MCU row once, before its pixels are delivered; `row` counts from its top.
  void put_flat(int component, int column, int row, std::int16_t dc);
  // `ac_magnitude` is the sum of the magnitudes of all coefficients but the first, times their
  // quantiser steps. The block must stay as it is until the next flush: pairs wait for their second
  // block.
  void put(int component, int column, int row, const std::int16_t* coefficients,
           std::uint32_t ac_magnitude);
  void flush();

  std::uint32_t magnitude(int component, const std::int16_t* coefficients) const {
    return kernels_.magnitude(coefficients, tables_[component]);
  }

  // Rows of the picture from `y` on. The last one waits for the samples below it where chroma is
  // smooth from row to row.
  Status deliver(const formats::RowSink& sink, int y);
  int delivered_to() const;  // the last row
  // The row that waits, as nothing comes below it.
  Status finish(const formats::RowSink& sink);

 private:
  // How samples become as many as there are pixels.
  enum class Widening : std::uint8_t { none, repeat, across, down, both };

  struct Waiting {
    const std::int16_t* coefficients = nullptr;
    std::uint8_t* samples = nullptr;
  };

  int around() const;  // pixels
  std::uint8_t* place(int component, int column, int row) const;
  int level_shift_12() const;
  Widening choose_widening(const Grid& grid) const;
  NearFar near_and_far(int component, int y) const;
  const std::uint8_t* full_row(int component, int y, std::uint8_t* room) const;
  const std::uint8_t* row_of(int component, int y) const;
  void repeat_edges();
  void keep_last_rows();
  void make_row(int y);
  Status deliver_row(const formats::RowSink& sink, int y);

  const Geometry* geometry_ = nullptr;
  const formats::WantedPart* wanted_ = nullptr;
  std::array<std::array<bool, 4>, kMostComponents> needed_rows_{};  // of blocks, in the MCU row
  Layout layout_ = Layout::grey;
  bool halved_chroma_ = false;
  bool smooth_down_ = false;  // in some component
  bool waits_ = false;        // the last row of the MCU row above
  bool ended_ = false;        // no samples come any more
  int top_ = 0;               // row of the picture at which the MCU row begins
  Kernels kernels_{};
  std::array<Widening, kMostComponents> widening_{};
  std::array<DequantiseTable, kMostComponents> tables_{};
  std::array<std::uint8_t*, kMostComponents> planes_{};
  std::array<std::ptrdiff_t, kMostComponents> strides_{};  // bytes
  std::array<Waiting, kMostComponents> waiting_{};
  GlobalBlock samples_;
  GlobalBlock widened_;
  RowBuffer<std::uint8_t, 3 * kKernelMargin> row_;
};

}  // namespace tq::jpeg
