// Rows of a picture, one for each shown row, in the order of the image's columns.
#pragma once

#include "core/image_record.h"
#include "core/memory.h"
#include "show/kernels.h"
#include "show/reduce_runs.h"
#include "show/samples.h"
#include "show/spans.h"

namespace tq::show {

// What a row looks like, until the next one is made.
struct ShownRow {
  const std::uint8_t* colours = nullptr;
  int channels = 3;                     // 1 grey, 3 blue, green, red
  const std::uint8_t* share = nullptr;  // how much of each pixel is opaque; null: all
};

// The columns and rows of a picture that are wanted.
struct Part {
  Axis axis;
  Spans spans;
  std::int32_t first = 0, end = 0;  // shown
};

class ShownRows {
 public:
  ShownRows(const ImageRecord& image, const Look& look) : image_(image), samples_(image, look) {}

  // Both directions of the image. out_of_memory.
  Status open(const Part& columns, const Part& rows);

  // Shown row `shown`. Each depends on its own place alone.
  ShownRow read(std::int32_t shown);

 private:
  // What a sum is divided by: the part of it that counts, and its inverse. No total is below 2^22, and
  // no sum above 255 times the total: both factors have 32 bits, which 32-bit processors are glad of.
  bool is_mono() const { return image_.bits == 1; }
  const std::uint32_t* samples_of_column_0() const {
    return weighed_samples_.data() - std::ptrdiff_t{channels_} * samples_.base();
  }
  Status open_means(const Part& columns);
  void make_nearest(std::int32_t y);
  void make_means(const Span& rows);
  void gather(std::int32_t y, std::uint32_t weight);
  void weigh();
  void clear_sums();
  void add_columns();
  template <int kChannels>
  void add_columns();
  void finish(const Divisors& divisors);
  template <int kChannels>
  void finish_opaque(const Divisors& divisors);
  void finish_mono(const Divisors& divisors);

  const ImageRecord& image_;
  Samples samples_;
  Spans across_, down_;
  bool nearest_ = false, straight_ = false;  // each column is the next pixel
  Span made_{-1, -1, 0, 0};                  // the rows that the present one is made of
  ShownRow row_;
  Kernels kernels_ = kernels();

  int channels_ = 0;  // of sums
  RowBuffer<Span> columns_;
  RowBuffer<std::uint32_t> totals_;                  // of columns
  std::uint32_t least_total_ = 0, other_total_ = 0;  // there are two at most
  RowBuffer<std::uint8_t> colours_, share_;

  // Rows that are to be weighed together, and what has been.
  RowBuffer<std::uint8_t> room_;
  std::ptrdiff_t room_bytes_ = 0;  // for each
  const std::uint8_t* gathered_[Kernels::kRows] = {};
  std::uint16_t weights_[Kernels::kRows] = {};
  int gathered_count_ = 0;
  std::uint64_t weighed_ = 0;  // in sums of samples
  bool has_sums_ = false;
  RowBuffer<std::uint16_t> shares_;  // of the first of two colours
  RowBuffer<std::uint32_t> weighed_samples_;
  RowBuffer<std::uint64_t> sums_;  // by column and channel
  RunColumns runs_;
  bool any_runs_ = false;
};

}  // namespace tq::show
