// Functions of one number: ISO 32000-1, 7.10.
#pragma once

#include <array>

#include "core/memory.h"
#include "formats/pdf/objects/file.h"

namespace tq::pdf::image {

// Of type 2, a power between two values, or 0, samples. Others are unsupported.
class TintFunction {
 public:
  static constexpr int kMostOutputs = 4;

  Status read(objects::File& file, const objects::Value& value, int outputs);
  void evaluate(double input, std::array<double, kMostOutputs>& out) const;

 private:
  Status read_samples(objects::File& file, const objects::Object& stream);
  double sample(std::int64_t index) const;

  int outputs_ = 0;
  bool sampled_ = false;
  double exponent_ = 1;
  std::array<double, 2> domain_ = {0, 1}, encode_{};
  std::array<double, 2 * kMostOutputs> range_{}, decode_{};  // low, high
  bool has_range_ = false;
  int bits_ = 8;
  std::int64_t count_ = 0;  // of sampled inputs
  GlobalBlock samples_;
};

}  // namespace tq::pdf::image
