// The samples of one frame, wherever in the pixel data they are.
#pragma once

#include "coding/packbits.h"
#include "formats/dicom/data_set.h"

namespace tq::dicom {

using Samples = std::span<std::uint32_t>;

// The bytes of items, from one on, without what stands between them (PS3.5, annex A.4).
class Fragments {
 public:
  static constexpr std::ptrdiff_t kPiece = 4096;

  // From the item at `first` to the one at `end`; `buffer` is of kPiece bytes.
  void start(Source& source, std::int64_t first, std::int64_t end, pixels::Row buffer);
  void skip(std::int64_t bytes);
  std::span<const std::uint8_t> next_piece();

 private:
  bool find_item();  // with bytes left in it

  Source* source_ = nullptr;
  pixels::Row buffer_;
  std::int64_t at_ = 0, end_ = 0;
  std::int64_t left_ = 0;  // of the item
};

// Where the items of a frame begin, and those of the next; none at 0.
struct FramePlace {
  std::int64_t first = 0, end = 0;
};
// bad_image when nothing says where they are.
Status find_frame(Source& source, const DataSet& set, std::int32_t frame, FramePlace& place);

class Frame {
 public:
  // How many samples a row has, all components together.
  static int row_samples(const DataSet& set);

  Status open(Source& source, const DataSet& set, std::int32_t frame);
  Status rewind();

  // The next row: pixel by pixel, or component by component where planes_apart() says so. How many
  // samples there were; those behind are 0.
  std::ptrdiff_t read_row(Samples samples);
  // Some sample of a row was not there, or not all bytes of it.
  bool was_cut() const { return cut_; }
  bool planes_apart() const { return planes_ > 1; }
  Status status() const;

 private:
  std::ptrdiff_t read_plane(int plane, Samples samples);
  std::ptrdiff_t read_bits(Samples samples);
  std::ptrdiff_t read_runs(Samples samples);

  static constexpr int kMostSegments = 15;
  struct Segment {
    Fragments pieces;
    packbits::Decoder decoder;
  };

  const DataSet* set_ = nullptr;
  int planes_ = 1;
  std::int32_t y_ = 0;
  std::int64_t frame_ = 0;
  std::int64_t plane_bytes_ = 0;
  bool cut_ = false;
  std::uint8_t last_ = 0;          // byte, of bits, that was read
  std::array<Source, 3> sources_;  // a plane's each
  FramePlace place_;
  std::array<Segment, kMostSegments> segments_;
  int segment_count_ = 0;
  RowBuffer<std::uint8_t> bytes_, pieces_;
};

}  // namespace tq::dicom
