// Exact means of areas. `make(y, to)` makes row y of the result, levels or channels in turn, in any
// order of rows.
#pragma once

#include "process/geometry/grey_rows.h"
#include "process/geometry/kernels.h"

namespace tq::process {

// Sums of the bytes of rows, each times its share of the result's.
class ColumnSums {
 public:
  Status allocate(std::int64_t count, std::uint32_t whole_share);
  void clear();
  void add(Bytes row, std::uint32_t share);
  // Rows first to last - 1, which lie within one row of the result.
  void add_whole(GreyOrColourRows& rows, int first, int last);
  const std::uint64_t* sums();
  // Of whole rows alone, at most kMostRows, with a share of 1.
  const std::uint16_t* small_sums() const { return whole_.data(); }

  static constexpr int kMostRows = 257;  // whose bytes fit 16 bits

 private:
  static constexpr int kTogether = 8;  // rows
  void need_sums();
  void flush();

  GeometryKernels kernels_ = geometry_kernels();
  std::uint32_t whole_share_ = 1;  // of rows that lie within one row of the result
  int rows_ = 0;                   // of these that are not in the sums yet
  bool has_sums_ = false;          // else they are from the row before
  RowBuffer<std::uint16_t, 4> whole_;
  RowBuffer<std::uint64_t> sums_;
};

// Of blocks of whole pixels. The last ones may be smaller. Upwards they are counted from the bottom.
class BlockMeans {
 public:
  BlockMeans(const ImageSource& image, std::int32_t block_width, std::int32_t block_height,
             bool upwards = false)
      : image_(image),
        rows_(image, upwards),
        lower_(image, upwards),
        wide_(block_width),
        high_(block_height) {}
  Status allocate();
  int channels() const { return rows_.channels(); }
  void read(int block_row, std::uint8_t* to);

 private:
  bool halves() const { return wide_ == 2 && high_ == 2; }
  void add_up(int first, int last, std::uint8_t* to);

  const ImageSource& image_;
  GreyOrColourRows rows_, lower_;
  std::int32_t wide_, high_;
  GeometryKernels kernels_ = geometry_kernels();
  ColumnSums columns_;
};

// Blocks as a result that is so many times smaller, from the bottom.
class WholeMeans {
 public:
  WholeMeans(const ImageSource& image, int width, int height)
      : blocks_(image, image.width() / width, image.height() / height, true) {}
  Status allocate() { return blocks_.allocate(); }
  void make(int y, std::uint8_t* to) { blocks_.read(y, to); }

 private:
  BlockMeans blocks_;
};

// Of any other sides, from the bottom. A pixel of the image is as many units wide as the result has columns and the
// other way round, so that edges fall on whole units.
class AreaMeans {
 public:
  AreaMeans(const ImageSource& image, int width, int height)
      : image_(image), rows_(image, true), width_(width), height_(height) {}
  Status allocate();
  void make(int y, std::uint8_t* to);

 private:
  template <int kChannels>
  void finish_row(const std::uint64_t* sums, std::uint8_t* to);

  const ImageSource& image_;
  GreyOrColourRows rows_;
  int width_, height_;
  Mean mean_;
  ColumnSums columns_;
};

// Of 1 bit, to levels.
class RunMeans {
 public:
  RunMeans(const ImageSource& image, int width, int height)
      : image_(image), width_(width), height_(height) {}
  Status allocate();
  void make(int y, std::uint8_t* to);

 private:
  // Where a column of the image begins: in which cell, and how far within it, in units.
  struct Place {
    std::int32_t cell = 0, before = 0;
  };
  static constexpr int kMostRows = 127;  // of which bits are counted

  void count_bits(int y, std::uint8_t* to);
  void add_runs(int j, std::int64_t share);
  template <class Column>
  void add_changes(const Column* changes, std::int32_t count, std::int64_t share);

  const ImageSource& image_;
  int width_, height_;
  int wide_ = 0, high_ = 0;  // of cells of bits that may be counted
  int shift_ = 0;            // 2^shift_ of them to a cell; 0: another number
  GeometryKernels kernels_ = geometry_kernels();
  RowBuffer<Place> places_;
  RowBuffer<std::int64_t> sums_;
  RowBuffer<std::int32_t> changes_;  // of one row of bits
  std::int32_t changes_of_ = -1, found_ = 0;
  RowBuffer<std::uint8_t> counts_;    // of white pixels
  RowBuffer<std::uint8_t> expanded_;  // lists of a row of cells
  std::array<std::uint8_t, 256> level_of_count_{};
};

}  // namespace tq::process
