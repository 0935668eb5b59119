// JPEG files built from coefficients, in every layout, and the picture that they stand for, worked
// out plainly and slowly: the model that the decoder is compared with.
#pragma once

#include <cstdint>
#include <vector>

namespace tq::test {

using Bytes = std::vector<std::uint8_t>;

struct JpegComponent {
  int h = 1, v = 1;
  int quantiser = 0;
  // Row by row; 64 coefficients each, row by row. Filled by random_coefficients.
  int columns = 0, rows = 0;  // blocks, in whole MCUs
  int used_columns = 0, used_rows = 0;
  std::vector<std::vector<int>> blocks{};
};

struct JpegScan {
  std::vector<int> components;
  int first = 0, last = 63, high = 0, low = 0;
};

struct JpegPicture {
  int width = 0, height = 0;
  int precision = 8;
  bool progressive = false;
  int restart_interval = 0;
  std::vector<JpegComponent> components{};
  std::vector<JpegScan> scans{};               // empty: all components in one
  std::vector<std::vector<int>> quantisers{};  // 64 steps each, row by row; 8 bits if that will do
  Bytes extra{};                               // segments behind SOI
};

// Blocks with few coefficients, most of them small; the same for the same seed.
void random_coefficients(JpegPicture& picture, unsigned seed, int amount = 40);

Bytes jpeg_file(const JpegPicture& picture);

// A segment with its marker and length.
Bytes jpeg_segment(int marker, const Bytes& content);
Bytes adobe_segment(int transform);

// The rows of the picture in the order of a DIB's bytes, without padding, by the definition of the
// inverse transform; three components are taken as YCbCr, others as they are.
std::vector<std::vector<double>> model_rows(const JpegPicture& picture);

// The largest and the mean difference of rows of bytes to those of the model.
struct Difference {
  double largest = 0, mean = 0;
};
Difference difference(const std::vector<std::vector<double>>& model,
                      const std::vector<Bytes>& rows);

}  // namespace tq::test
