// Exact means of areas. `make(y)` gives row y of the result, levels or channels in turn, in any
// order of rows.
#pragma once

#include "process/geometry/grey_rows.h"
#include "process/geometry/kernels.h"

namespace tq::process {

// A sum over an area, by the area: halves upwards.
class Mean {
 public:
  Mean() = default;
  explicit Mean(std::int64_t area)
      : area_(area), twice_(2 * area), inverse_(1 / static_cast<double>(2 * area)) {}
  std::uint8_t operator()(std::int64_t sum) const {
    const std::int64_t doubled = 2 * sum + area_;
    // The estimate is off by one at most.
    auto mean = static_cast<std::int32_t>(static_cast<double>(doubled) * inverse_);
    const std::int64_t left = doubled - mean * twice_;
    mean += (left >= twice_ ? 1 : 0) - (left < 0 ? 1 : 0);
    return byte(mean);
  }

 private:
  std::int64_t area_ = 1, twice_ = 2;
  double inverse_ = 0.5;
};

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

// Of blocks of whole pixels. The last ones may be smaller.
class BlockMeans {
 public:
  BlockMeans(const ImageSource& image, std::int32_t block_width, std::int32_t block_height)
      : image_(image), rows_(image), lower_(image), wide_(block_width), high_(block_height) {}
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

// Blocks as a result that is so many times smaller.
class WholeMeans {
 public:
  WholeMeans(const ImageSource& image, int width, int height)
      : blocks_(image, image.width() / width, image.height() / height), width_(width) {}
  Status allocate() {
    TQ_TRY(blocks_.allocate());
    return levels_.allocate(std::int64_t{blocks_.channels()} * width_);
  }
  Bytes make(int y) {
    blocks_.read(y, levels_.data());
    return levels_.pixels();
  }

 private:
  BlockMeans blocks_;
  int width_;
  RowBuffer<std::uint8_t> levels_;
};

// Of any other sides. A pixel of the image is as many units wide as the result has columns and the
// other way round, so that edges fall on whole units.
class AreaMeans {
 public:
  AreaMeans(const ImageSource& image, int width, int height)
      : image_(image), rows_(image), width_(width), height_(height) {}
  Status allocate();
  Bytes make(int y);

 private:
  template <int kChannels>
  void finish_row(const std::uint64_t* sums);

  const ImageSource& image_;
  GreyOrColourRows rows_;
  int width_, height_;
  Mean mean_;
  ColumnSums columns_;
  RowBuffer<std::uint8_t> levels_;
};

// Of 1 bit, to levels.
class RunMeans {
 public:
  RunMeans(const ImageSource& image, int width, int height)
      : image_(image), width_(width), height_(height) {}
  Status allocate();
  Bytes make(int y);

 private:
  void add_runs(int j, std::int64_t share);
  template <class Place>
  void add_changes(const Place* changes, std::int32_t count, std::int64_t share);

  const ImageSource& image_;
  int width_, height_;
  Mean mean_;
  RowBuffer<std::int64_t> sums_;
  RowBuffer<std::uint16_t> listed_;
  RowBuffer<std::int32_t> changes_;
  RowBuffer<std::uint8_t> levels_;
};

}  // namespace tq::process
