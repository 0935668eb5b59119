// Fields from a stream.
#include "formats/ica/fields.h"

#include <algorithm>
#include <array>

#include "io/endian.h"

namespace tq::ica {
namespace {

constexpr int kHeadBytes = 8;
constexpr int kPrefix = 0x5A, kClass = 0xD3;  // of each structured field
constexpr int kExtended = 0x80, kPadded = 0x08;

}  // namespace

bool read_structured(StreamWindow& window, std::int64_t at, StructuredField& field, bool& cut) {
  Bytes head = window.at(at, kHeadBytes);
  // As hosts write them.
  if (head.size() == kHeadBytes && head[0] == kPrefix && head[3] == kClass) {
    head = window.at(++at, kHeadBytes);
  }
  cut = head.size() < kHeadBytes;
  if (cut) return false;
  const int length = load_be16(&head[0]), flags = head[5];
  field.code = load_be32(&head[1]) & 0xFFFFFF;
  field.next = at + length;
  if (length < kHeadBytes || head[2] != kClass) return false;
  std::int64_t first = at + kHeadBytes, end = field.next;
  if ((flags & kExtended) != 0) {
    const Bytes bytes = window.at(first, 1);
    if (!bytes.empty()) first += bytes[0];
  }
  if ((flags & kPadded) != 0 && first < end) {
    Bytes count = window.at(end - 1, 1);
    std::int64_t padding = count.empty() ? 0 : count[0];
    if (padding == 0 && end - first >= 3) {
      count = window.at(end - 3, 2);
      padding = count.size() < 2 ? 0 : load_be16(&count[0]);
    }
    end -= padding;
  }
  field.data = first;
  field.data_bytes = std::max<std::int64_t>(end - first, 0);
  return true;
}

// The next data of the image object.
bool ContentBytes::find_data() {
  while (place_.left == 0) {
    StructuredField field;
    bool cut = false;
    if (!read_structured(window_, place_.next, field, cut)) return false;
    if (field.code == kEndImage || field.code == kBeginImage || field.code == kEndPage) {
      return false;
    }
    place_ = {field.data, field.code == kImageData ? field.data_bytes : 0, field.next};
  }
  return true;
}

Bytes ContentBytes::next(std::int64_t most) {
  if (most <= 0 || !find_data()) return {};
  const Bytes bytes = window_.at(place_.at, std::min(most, place_.left));
  place_.at += std::ssize(bytes);
  place_.left -= std::ssize(bytes);
  return bytes;
}

bool ContentBytes::read(std::span<std::uint8_t> bytes) {
  while (!bytes.empty()) {
    const Bytes piece = next(std::ssize(bytes));
    if (piece.empty()) return false;
    std::copy(piece.begin(), piece.end(), bytes.begin());
    bytes = bytes.subspan(piece.size());
  }
  return true;
}

void ContentBytes::skip(std::int64_t bytes) {
  while (bytes > 0 && find_data()) {
    const std::int64_t here = std::min(bytes, place_.left);
    place_.at += here;
    place_.left -= here;
    bytes -= here;
  }
}

// But for segments codes are above those of text; FE announces a second byte.
Found ContentBytes::next_field(Field& field) {
  constexpr int kFirstCode = 0x80, kLong = 0xFE;
  std::array<std::uint8_t, 3> head{};
  const std::span<std::uint8_t> bytes(head);
  if (!read(bytes.first(1))) return Found::end;
  const bool is_code = head[0] >= kFirstCode || head[0] == kBeginSegment || head[0] == kEndSegment;
  if (!is_code || head[0] > kLong) return Found::no_code;
  if (head[0] < kLong) {
    if (!read(bytes.subspan(1, 1))) return Found::end;
    field = {head[0], head[1]};
    return Found::field;
  }
  if (!read(bytes)) return Found::end;
  field = {kLong << 8 | head[0], load_be16(&head[1])};
  return Found::field;
}

}  // namespace tq::ica
