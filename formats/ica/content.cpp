// Fields of an image content.
#include "formats/ica/content.h"

#include <algorithm>
#include <array>
#include <utility>

#include "coding/bits.h"
#include "io/endian.h"

namespace tq::ica {
namespace {

constexpr int kPaddedRows = 1, kPaddedBottomUp = 3, kUnpaddedRows = 4, kAnyRecording = 0xFE;

// As many as the field has are taken, at most kMost; the others stay 0.
struct FieldBytes {
  static constexpr std::int64_t kMost = 16;
  std::array<std::uint8_t, kMost> data{};

  Status take(ContentBytes& bytes, const Field& field, std::int64_t least) {
    if (field.bytes < least) return StatusCode::bad_image;
    const std::int64_t here = std::min(field.bytes, kMost);
    if (!bytes.read(std::span(data).first(static_cast<std::size_t>(here)))) {
      return StatusCode::read_failed;
    }
    bytes.skip(field.bytes - here);
    return kOk;
  }
};

Status take_size(ContentBytes& bytes, const Field& field, Content& content) {
  FieldBytes size;
  TQ_TRY(size.take(bytes, field, 9));
  const auto value = [&](int at) { return load_be16(&size.data[at]); };
  for (const int at : {1, 3, 5, 7}) {
    if (value(at) > kLargestSide) return StatusCode::bad_image;
  }
  content.resolution = resolution_of_units(size.data[0], value(1), value(3));
  content.width = value(5);
  content.height = value(7);
  return content.width == 0 ? StatusCode::bad_image : StatusCode::ok;
}

Status take_encoding(ContentBytes& bytes, const Field& field, Description& description) {
  FieldBytes encoding;
  TQ_TRY(encoding.take(bytes, field, 2));
  const int recording = encoding.data[1];
  description.coding = encoding.data[0];
  description.bottom_up = recording == kPaddedBottomUp;
  description.unpadded = recording == kUnpaddedRows;
  description.lsb_first = encoding.data[2] == 1;
  const bool known = recording == kPaddedRows || description.bottom_up || description.unpadded ||
                     recording == kAnyRecording;
  return known ? StatusCode::ok : StatusCode::unsupported;
}

Status take_bands(ContentBytes& bytes, const Field& field, Description& description) {
  FieldBytes bands;
  TQ_TRY(bands.take(bytes, field, 1));
  const int count = bands.data[0];
  if (count == 0 || field.bytes <= count) return StatusCode::bad_image;
  if (count > kMostBands) return StatusCode::unsupported;
  description.bands = count;
  std::copy_n(&bands.data[1], count, description.band_bits);
  return kOk;
}

Status take_structure(ContentBytes& bytes, const Field& field, Description& description) {
  constexpr int kGrayCode = 0x40, kFirst = 5;
  FieldBytes structure;
  TQ_TRY(structure.take(bytes, field, kFirst + 1));
  description.flags = structure.data[0];
  description.model = structure.data[1];
  const auto count = std::min<std::int64_t>(field.bytes - kFirst, kMostBands);
  std::fill_n(description.component_bits, kMostBands, std::uint8_t{0});
  std::copy_n(&structure.data[kFirst], count, description.component_bits);
  return (description.flags & kGrayCode) != 0 ? StatusCode::unsupported : StatusCode::ok;
}

// Two ids with lengths, then how much smaller each component is.
Status take_subsampling(ContentBytes& bytes, const Field& field, Description& description) {
  FieldBytes sampling;
  TQ_TRY(sampling.take(bytes, field, 0));
  for (std::size_t i = 2; std::cmp_less(i, std::min(field.bytes, FieldBytes::kMost)); ++i) {
    description.is_sampled = description.is_sampled || sampling.data[i] != 1;
  }
  return kOk;
}

}  // namespace

Resolution resolution_of_units(int unit, int x, int y) {
  const auto thousandths = [unit](std::int64_t value) {
    return static_cast<std::int32_t>(unit == 0 ? 100 * value : unit == 1 ? 254 * value : 0);
  };
  return {thousandths(x), thousandths(y)};
}

Colours Description::colours() const {
  const auto are = [](const std::uint8_t* each, std::initializer_list<int> wanted) {
    return std::equal(wanted.begin(), wanted.end(), each);
  };
  const std::uint8_t* const each = component_bits;
  int pixel_bits = bits;
  if (is_sampled && coding != kJpeg) return Colours::unknown;
  if (bands > 0) {
    pixel_bits = 0;
    for (const int more : band_bits) pixel_bits += more;
    const bool alike = bands == 1 || are(band_bits, {8, 8, 8, 0}) || are(band_bits, {8, 8, 8, 8});
    if (!alike) return Colours::unknown;
  }
  if (pixel_bits == 1) return Colours::black;
  const bool luma = model == kYCrCb || model == kYCbCr;
  if (pixel_bits <= 8) {
    const bool one = model == kNoModel || (luma && each[1] == 0 && each[2] == 0);
    return one ? Colours::grey : Colours::unknown;
  }
  const bool three = pixel_bits == 24 && are(each, {8, 8, 8, 0});
  if (pixel_bits == 24 && model == kNoModel) return Colours::red_first;
  if (three && model == kRgb) return is_inverted() ? Colours::unknown : Colours::red_first;
  if (three && luma) return Colours::luma_first;
  const bool four = pixel_bits == 32 && are(each, {8, 8, 8, 8});
  return four && model == kCmyk ? Colours::inks : Colours::unknown;
}

Status take_description(ContentBytes& bytes, const Field& field, Description& description) {
  switch (field.code) {
    case kEncoding:
      return take_encoding(bytes, field, description);
    case kPixelBits: {
      FieldBytes bits;
      TQ_TRY(bits.take(bytes, field, 1));
      description.bits = bits.data[0];
      return description.bits == 0 ? StatusCode::bad_image : StatusCode::ok;
    }
    case kBands:
      return take_bands(bytes, field, description);
    case kStructure:
      return take_structure(bytes, field, description);
    case kSubsampling:
      return take_subsampling(bytes, field, description);
    case kTransparency:
      return StatusCode::unsupported;
    default:
      bytes.skip(field.bytes);
      return kOk;
  }
}

Status read_content(ContentBytes& bytes, Content& content) {
  while (true) {
    const Place here = bytes.place();
    Field field;
    const Found found = bytes.next_field(field);
    if (found == Found::end) return StatusCode::read_failed;
    if (found == Found::no_code) return StatusCode::bad_image;
    switch (field.code) {
      case kSize:
        TQ_TRY(take_size(bytes, field, content));
        break;
      case kBeginTile:
        content.tiled = true;
        [[fallthrough]];
      case kData:
      case kBandData:
        content.description.in_bands = field.code == kBandData;
        content.description.data = here;
        return kOk;
      case kEndContent:
      case kEndSegment:
        return StatusCode::bad_image;
      default:
        TQ_TRY(take_description(bytes, field, content.description));
    }
  }
}

Status DataPieces::open(StreamHandle stream, bool lsb_first) {
  if (lsb_first) TQ_TRY(turned_.allocate(kPiece));
  return bytes_.open(stream);
}

void DataPieces::start(const Place& place, int band) {
  bytes_.go_to(place);
  band_ = band;
  left_ = 0;
  ended_ = false;
}

Bytes DataPieces::next_piece() {
  constexpr int kBandHead = 3;
  while (!ended_ && left_ == 0) {
    Field field;
    ended_ = bytes_.next_field(field) != Found::field || field.code == kEndContent ||
             field.code == kEndSegment || field.code == kBeginTile || field.code == kEndTile ||
             field.code == kBeginContent;
    if (ended_) break;
    std::array<std::uint8_t, kBandHead> head{};
    const bool in_band = field.code == kBandData && field.bytes >= kBandHead;
    if (in_band && !bytes_.read(head)) break;
    const std::int64_t data = in_band ? field.bytes - kBandHead : field.bytes;
    if (band_ == head[0] && (in_band || field.code == kData)) {
      left_ = data;
    } else {
      bytes_.skip(data);
    }
  }
  const Bytes piece = bytes_.next(std::min(left_, kPiece));
  left_ -= std::ssize(piece);
  if (piece.empty() || turned_.size() == 0) return piece;
  const auto copy = turned_.bytes().first(piece.size());
  std::copy(piece.begin(), piece.end(), copy.begin());
  coding::reverse_bits(copy);
  return copy;
}

}  // namespace tq::ica
