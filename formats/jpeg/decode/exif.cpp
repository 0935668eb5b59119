// What an application segment of EXIF (CIPA DC-008) says about the picture: a TIFF header and its
// first directory.
#include <algorithm>
#include <cstring>

#include "formats/jpeg/decode/markers.h"
#include "io/endian.h"

namespace tq::jpeg {
namespace {

constexpr int kEntryBytes = 12;
constexpr int kShort = 3, kLong = 4, kRational = 5;  // types of values
enum Tag : int { kOrientation = 274, kXResolution = 282, kYResolution = 283, kUnit = 296 };

// Numbers in the order that the header says; those beyond the segment are 0.
class Numbers {
 public:
  explicit Numbers(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

  bool find_order() {
    if (bytes_.size() < 8) return false;
    big_ = std::memcmp(bytes_.data(), "MM\0*", 4) == 0;
    return big_ || std::memcmp(bytes_.data(), "II*\0", 4) == 0;
  }
  int short_at(std::int64_t at) const {
    if (at + 2 > std::ssize(bytes_)) return 0;
    const std::uint8_t* const p = bytes_.data() + at;
    return big_ ? load_be16(p) : load_le16(p);
  }
  std::int64_t long_at(std::int64_t at) const {
    const std::int64_t first = short_at(at), second = short_at(at + 2);
    return big_ ? first << 16 | second : second << 16 | first;
  }
  // The only value of a directory entry.
  std::int64_t value_of(std::int64_t entry) const {
    const int type = short_at(entry + 2);
    return type == kShort ? short_at(entry + 8) : type == kLong ? long_at(entry + 8) : 0;
  }
  // A rational number of a unit of which an inch has `hundredths`, times 1000; 0 without an entry.
  std::int32_t thousandths_of(std::int64_t entry, int hundredths) const {
    if (entry == 0 || short_at(entry + 2) != kRational) return 0;
    const std::int64_t at = long_at(entry + 8);
    const std::int64_t upper = long_at(at), lower = long_at(at + 4);
    if (lower == 0) return 0;
    const std::int64_t thousandths = (upper * 10 * hundredths + lower / 2) / lower;
    return static_cast<std::int32_t>(std::min(thousandths, Resolution::kMost));
  }

 private:
  std::span<const std::uint8_t> bytes_;
  bool big_ = false;
};

}  // namespace

Exif read_exif(std::span<const std::uint8_t> segment) {
  constexpr std::uint8_t kIdentifier[] = {'E', 'x', 'i', 'f', 0, 0};
  constexpr std::ptrdiff_t kIdentifierBytes = sizeof kIdentifier;
  Exif exif;
  if (std::ssize(segment) < kIdentifierBytes ||
      !std::equal(std::begin(kIdentifier), std::end(kIdentifier), segment.begin())) {
    return exif;
  }
  exif.present = true;
  Numbers numbers(segment.subspan(kIdentifierBytes));
  if (!numbers.find_order()) return exif;
  const std::int64_t directory = numbers.long_at(4);
  const int count = numbers.short_at(directory);
  std::int64_t x_entry = 0, y_entry = 0;
  int unit = 2;
  for (int i = 0; i < count; ++i) {
    const std::int64_t entry = directory + 2 + std::int64_t{kEntryBytes} * i;
    switch (numbers.short_at(entry)) {
      case kOrientation: {
        const std::int64_t value = numbers.value_of(entry);
        if (value >= 1 && value <= 8) exif.orientation = static_cast<int>(value);
        break;
      }
      case kXResolution:
        x_entry = entry;
        break;
      case kYResolution:
        y_entry = entry;
        break;
      case kUnit:
        unit = static_cast<int>(numbers.value_of(entry));
        break;
      default:
        break;
    }
  }
  if (unit == 2 || unit == 3) {
    const int hundredths = unit == 2 ? 100 : 254;
    exif.resolution = {numbers.thousandths_of(x_entry, hundredths),
                       numbers.thousandths_of(y_entry, hundredths)};
  }
  return exif;
}

}  // namespace tq::jpeg
