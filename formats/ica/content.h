// What an image content says about its picture, and where its data are.
#pragma once

#include "formats/codec.h"
#include "formats/ica/fields.h"

namespace tq::ica {

inline constexpr std::int32_t kLargestSide = 0x7FFF;
inline constexpr int kMostBands = 4;

// How data are coded.
enum Coding : std::uint8_t {
  kMmr = 0x01,  // Group 4, whose first row stands for itself
  kPlain = 0x03,
  kRunLengths = 0x06,
  kAbic = 0x08,
  kHuffman = 0x09,
  kAbicJoined = 0x0A,
  kPackBits = 0x0C,
  kLzw = 0x0D,
  kBlack = 0x20,
  kGroup3 = 0x80,
  kGroup3TwoWays = 0x81,
  kGroup4 = 0x82,
  kJpeg = 0x83,
  kJbig2 = 0x84,
};

// What pixels are.
enum class Colours : std::uint8_t { black, grey, red_first, luma_first, inks, unknown };
enum Model : std::uint8_t { kNoModel = 0, kRgb = 1, kYCrCb = 2, kCmyk = 4, kYCbCr = 0x12 };

// Of a picture or of a tile.
struct Description {
  std::uint8_t coding = kPlain;
  bool bottom_up = false, unpadded = false, lsb_first = false;
  int bits = 1;           // of a pixel
  bool in_bands = false;  // which lie apart
  int bands = 0;          // 0: nothing is said of any
  std::uint8_t band_bits[kMostBands] = {};
  int flags = 0, model = 0;
  std::uint8_t component_bits[kMostBands] = {};
  bool is_sampled = false;  // some components are smaller
  Place data;               // at the head of its first field

  bool is_inverted() const { return (flags & 0x80) != 0; }
  Colours colours() const;
  bool is_fax() const {
    return coding == kMmr || coding == kHuffman || (coding >= kGroup3 && coding <= kGroup4);
  }
};

struct Content {
  std::int32_t width = 0, height = 0;  // 0: the data tell
  Resolution resolution{};
  Description description;
  bool tiled = false;
};

// Takes a field of a description; what is none of one is skipped. read_failed, bad_image, and
// unsupported for what cannot be shown.
Status take_description(ContentBytes& bytes, const Field& field, Description& description);

// Takes the fields behind the beginning of a content, up to its data or its first tile; as above.
Status read_content(ContentBytes& bytes, Content& content);

// Thousandths of a dot per inch: of so many pixels on ten units, inches or centimetres.
Resolution resolution_of_units(int unit, int x, int y);

// Data of one description: those of no band, or of one, counted from 1.
class DataPieces {
 public:
  Status open(StreamHandle stream, bool lsb_first);
  void start(const Place& place, int band);
  Bytes next_piece();

 private:
  static constexpr std::int64_t kPiece = 32 * 1024;

  ContentBytes bytes_;
  int band_ = 0;
  std::int64_t left_ = 0;
  bool ended_ = false;
  GlobalBlock turned_;  // where bits have the other order
};

}  // namespace tq::ica
