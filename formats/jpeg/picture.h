// From blocks of coefficients to delivered rows: one MCU row of samples at a time.
#pragma once

#include <array>
#include <cstdint>

#include "core/memory.h"
#include "formats/codec.h"
#include "formats/jpeg/block_decode.h"
#include "formats/jpeg/frame.h"
#include "formats/jpeg/kernels.h"

namespace tq::formats {

// Where the blocks of a component lie.
struct Grid {
  int h = 0, v = 0;  // blocks of an MCU
  int columns = 0;   // blocks that hold pixels
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

  int band_height() const { return 8 * v_most; }
};

// How the components become pixels.
enum class Layout : std::uint8_t {
  grey,
  grey_12,
  ycc,
  rgb,              // three components that are colours already
  planes,           // four components in their order
  inverted_planes,  // four components, each 255 minus itself
  ycck,
};
Layout choose_layout(const Tables& tables);
int layout_bits(Layout layout);

// The samples of one MCU row, and the row of pixels made from them.
class Band {
 public:
  Status allocate(const Geometry& geometry, Layout layout);

  // Each block of the band once, before the band is delivered.
  void put_flat(int component, int column, int row, std::int16_t dc);
  // `ac_magnitude` is the sum of all coefficients but the first times their quantisers, by amount.
  // The block must stay as it is until the band is flushed: pairs wait for their second block.
  void put(int component, int column, int row, const std::int16_t* coefficients,
           std::uint32_t ac_magnitude);
  void flush();

  void set_quantiser(int component, const Quantiser& quantiser);
  const Places& places(int component) const { return places_[component]; }
  std::uint32_t magnitude(int component, const std::int16_t* coefficients) const {
    return kernels_.magnitude(coefficients, tables_[component]);
  }

  // Rows of the picture from `y` on.
  Status deliver(const RowSink& sink, int y);

 private:
  struct Waiting {
    const std::int16_t* coefficients = nullptr;
    std::uint8_t* samples = nullptr;
  };

  std::uint8_t* place(int component, int column, int row) const;
  const std::uint8_t* full_row(int component, int y, std::uint8_t* room) const;
  const std::uint8_t* row_of(int component, int y) const;
  void make_row(int y);

  const Geometry* geometry_ = nullptr;
  Layout layout_ = Layout::grey;
  bool halved_chroma_ = false;
  JpegKernels kernels_{};
  std::array<Places, kMostComponents> places_{};
  std::array<DequantiseTable, kMostComponents> tables_{};
  std::array<std::uint8_t*, kMostComponents> planes_{};
  std::array<std::ptrdiff_t, kMostComponents> strides_{};  // bytes
  std::array<Waiting, kMostComponents> waiting_{};
  GlobalBlock samples_;
  GlobalBlock widened_;
  RowBuffer<std::uint8_t> row_;
  std::size_t row_bytes_ = 0;
};

}  // namespace tq::formats
