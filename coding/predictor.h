// Rows of samples that were coded as differences to what is beside or above them: those of TIFF 6.0,
// section 14, and the filters of PNG (ISO/IEC 15948, 9.2), undone piece by piece.
#pragma once

#include "coding/bits.h"
#include "core/memory.h"

namespace tq::coding {

struct PredictorForm {
  int predictor = 1;  // 1 none, 2 TIFF's, from 10 on PNG's
  int samples = 1;    // of a pixel
  int bits = 8;       // of a sample: 1, 2, 4, 8, 16 with the high byte first
  std::int64_t columns = 1;
};

class Predictor {
 public:
  // unsupported: no such form; out_of_memory.
  Status open(const PredictorForm& form);
  void start(PieceSource data);

  // Whole rows. The last may be short; one whose filter there is not ends them.
  std::span<const std::uint8_t> next_piece();
  bool is_broken() const { return broken_; }  // by such a row

 private:
  std::ptrdiff_t read(std::span<std::uint8_t> bytes);
  bool undo_filter(int filter, std::uint8_t* row, std::ptrdiff_t bytes) const;
  void add_small_differences(std::span<std::uint8_t> row) const;

  PredictorForm form_;
  std::ptrdiff_t row_bytes_ = 0;
  int pixel_bytes_ = 1;
  bool ended_ = true, broken_ = false;
  GlobalBlock rows_;  // the last of the piece before, zeros at first, and some more
  PieceSource data_;
  std::span<const std::uint8_t> piece_{};  // what is left of it
};

}  // namespace tq::coding
