// Marker segments, read by their lengths: what a segment holds beyond its tables is skipped, what a
// table lacks of its segment is read from whatever follows.
#include "formats/jpeg/decode/markers.h"

#include <algorithm>
#include <cstring>

#include "io/endian.h"

namespace tq::jpeg {
namespace {

constexpr int kMostGarbage = 5000;  // bytes in front of SOI

enum Marker : int {
  kSof0 = 0xC0,
  kSof2 = 0xC2,
  kDht = 0xC4,
  kRst0 = 0xD0,
  kSoi = 0xD8,
  kEoi = 0xD9,
  kSos = 0xDA,
  kDqt = 0xDB,
  kDri = 0xDD,
  kApp0 = 0xE0,
  kApp1 = 0xE1,
  kApp14 = 0xEE,
  kTem = 0x01,
};

// The bytes of a segment behind its length, looked at but not taken.
class Body {
 public:
  Body(ChunkReader& input, int length) : input_(input), left_(length - 2) {}

  // The next `count` bytes, or null when the data end before.
  const std::uint8_t* take(int count) {
    const std::size_t end = taken_ + count;
    const auto bytes = input_.peek(end);
    if (bytes.size() < end) return nullptr;
    const std::uint8_t* start = bytes.data() + taken_;
    taken_ += count;
    left_ -= count;
    return start;
  }
  // As many as there are, the rest 0.
  template <std::size_t kCount>
  std::array<std::uint8_t, kCount> some() {
    std::array<std::uint8_t, kCount> out{};
    const auto bytes = input_.peek(kCount);
    std::copy(bytes.begin(), bytes.end(), out.begin());
    return out;
  }
  int left() const { return left_; }

 private:
  ChunkReader& input_;
  int left_;
  int taken_ = 0;
};

bool read_quantisation_tables(Body body, Tables& tables) {
  int slot = 0;
  while (body.left() >= 1) {
    const std::uint8_t* head = body.take(1);
    if (head == nullptr) return false;
    const int precision = *head >> 4;
    if (precision > 1) return false;
    // Another slot number writes over the one chosen last: callers rely on it.
    if ((*head & 15) < kQuantisationSlots) slot = *head & 15;
    const std::uint8_t* entries = body.take(precision == 0 ? kBlock : 2 * kBlock);
    if (entries == nullptr) return false;
    for (int i = 0; i < kBlock; ++i) {
      tables.quantisation[slot][i] = precision == 0 ? entries[i] : load_be16(entries + 2 * i);
    }
  }
  return true;
}

// Whether no length has more codes than bits to tell them apart.
bool codes_fit(const HuffmanSpec& spec) {
  int code = 0;
  for (int length = 1; length <= 16; ++length) {
    code = (code << 1) + spec.counts[length - 1];
    if (code > 1 << length) return false;
  }
  return true;
}

bool read_huffman_tables(Body body, Tables& tables) {
  HuffmanSlot* slot = &tables.dc[0];
  while (body.left() >= 1) {
    const std::uint8_t* head = body.take(17);
    if (head == nullptr) return false;
    const int number = head[0] & 15;
    // Another class or slot number writes over the one chosen last: callers rely on it.
    if (head[0] < 0x20 && number < kHuffmanSlots) {
      slot = head[0] < 0x10 ? &tables.dc[number] : &tables.ac[number];
    }
    HuffmanSpec spec;
    std::memcpy(spec.counts.data(), head + 1, spec.counts.size());
    const int count = spec.size();
    if (count > 256) return false;
    const std::uint8_t* values = body.take(count);
    if (values == nullptr) return false;
    std::memcpy(spec.values.data(), values, count);
    if (!codes_fit(spec)) return false;
    *slot = {true, true, spec};
  }
  return true;
}

void read_frame(Body body, int marker, Frame& frame) {
  const auto b = body.some<18>();
  frame.present = true;
  frame.progressive = marker == kSof2;
  frame.precision = b[0];
  frame.height = load_be16(&b[1]);
  frame.width = load_be16(&b[3]);
  frame.count = b[5];
  for (int i = 0; i < kMostComponents; ++i) {
    const std::uint8_t* entry = &b[6 + 3 * i];
    frame.components[i] = {entry[0], byte(entry[1] >> 4), byte(entry[1] & 15), entry[2]};
  }
}

void read_app0(Body body, Tables& tables) {
  const auto b = body.some<14>();
  if (std::memcmp(b.data(), "JFIF", 4) != 0) return;
  const int units = b[7];
  tables.has_jfif = true;
  tables.density_unit = units;
  // As they stand, for dots per centimetre too: callers rely on it.
  tables.x_density = units == 0 ? 0 : load_be16(&b[8]);
  tables.y_density = units == 0 ? 0 : load_be16(&b[10]);
}

void read_app1(Body body, Tables& tables) {
  const int length = body.left();
  const std::uint8_t* const bytes = body.take(length);
  if (bytes != nullptr && !tables.exif.present) tables.exif = read_exif({bytes, bytes + length});
}

void read_app14(Body body, Tables& tables) {
  const auto b = body.some<12>();
  if (std::memcmp(b.data(), "Adobe", 5) == 0) tables.adobe = {true, b[11]};
}

// A component that the frame does not have makes the scan one that scan_is_valid refuses.
bool read_scan(Body body, const Frame& frame, Scan& scan) {
  const std::uint8_t* count = body.take(1);
  if (count == nullptr) return false;
  scan = {};
  const int components = *count;
  if (components < 1 || components > kMostComponents) return true;
  for (int i = 0; i < components; ++i) {
    const std::uint8_t* entry = body.take(2);
    if (entry == nullptr) return false;
    const int known = std::min(frame.count, kMostComponents);
    int index = 0;
    while (index < known && frame.components[index].id != entry[0]) ++index;
    scan.components[i] = {index, entry[1] >> 4, entry[1] & 15};
  }
  const std::uint8_t* band = body.take(3);
  if (band == nullptr) return false;
  scan.count = components;
  scan.first = band[0];
  scan.last = band[1];
  scan.high = band[2] >> 4;
  scan.low = band[2] & 15;
  return true;
}

bool has_no_length(int marker) {
  return marker == kTem || (marker >= kRst0 && marker <= kSoi);
}

bool read_segment(int marker, Body body, bool first, Tables& tables) {
  switch (marker) {
    case kSof0:
    case kSof0 + 1:
    case kSof2:
      if (first) read_frame(body, marker, tables.frame);
      return true;
    case kDqt:
      return read_quantisation_tables(body, tables);
    case kDht:
      return read_huffman_tables(body, tables);
    case kDri:
      tables.restart_interval = load_be16(body.some<2>().data());
      return true;
    case kApp0:
      if (first) read_app0(body, tables);
      return true;
    case kApp1:
      if (first) read_app1(body, tables);
      return true;
    case kApp14:
      if (first) read_app14(body, tables);
      return true;
    case kSos:
      return read_scan(body, tables.frame, tables.scan);
    default:
      return true;
  }
}

}  // namespace

Status find_start(ChunkReader& input) {
  if (input.peek(1).empty()) return StatusCode::read_failed;
  for (int skipped = 0; skipped <= kMostGarbage; ++skipped) {
    const auto word = input.peek(2);
    if (word.size() < 2) break;
    const bool found = word[0] == 0xFF && word[1] == kSoi;
    input.skip(found ? 2 : 1);
    if (found) return kOk;
  }
  return StatusCode::bad_image;
}

bool read_segments(ChunkReader& input, bool first, Tables& tables) {
  for (;;) {
    const auto word = input.peek(2);
    if (word.size() < 2) return false;
    const int marker = word[1];
    // Behind a scan FF 00 is left over from its data.
    if (word[0] != 0xFF || marker == 0xFF || (marker == 0 && !first)) {
      input.skip(1);
      continue;
    }
    input.skip(2);
    tables.has_end = marker == kEoi;
    if (tables.has_end) return false;
    if (has_no_length(marker)) continue;
    const auto size = input.peek(2);
    if (size.size() < 2) return false;
    const int length = load_be16(size.data());
    if (length < 2) return false;
    input.skip(2);
    if (!read_segment(marker, Body(input, length), first, tables)) return false;
    const std::size_t rest = length - 2;
    if (input.peek(rest).size() < rest) return false;
    input.skip(rest);
    if (marker == kSos) return true;
  }
}

Scan scan_of_all(const Tables& tables) {
  Scan scan;
  scan.count = std::min(tables.frame.count, kMostComponents);
  scan.last = kBlock - 1;
  for (int i = 0; i < scan.count; ++i) {
    const int slot = i > 0 ? 1 : 0;
    scan.components[i] = {i, tables.dc[slot].defined ? slot : 0,
                          tables.ac[slot].defined ? slot : 0};
  }
  return scan;
}

Status check_frame(const Frame& frame) {
  if (!frame.present) return StatusCode::bad_image;
  if (frame.count != 1 && frame.count != 3 && frame.count != 4) return StatusCode::unsupported;
  if (frame.precision != 8 && !(frame.precision == 12 && frame.count == 1)) {
    return StatusCode::unsupported;
  }
  for (int i = 0; i < frame.count; ++i) {
    const FrameComponent& component = frame.components[i];
    if (component.h < 1 || component.h > kMostFactor || component.v < 1 ||
        component.v > kMostFactor) {
      return StatusCode::bad_image;
    }
  }
  return kOk;
}

bool scan_is_valid(const Tables& tables) {
  const Frame& frame = tables.frame;
  const Scan& scan = tables.scan;
  if (scan.count < 1) return false;
  const bool progressive = frame.progressive;
  if (progressive) {
    if (scan.first > scan.last || scan.last >= kBlock || scan.low > 13) return false;
    if (scan.first > 0 && scan.count > 1) return false;
  }
  const bool uses_dc = !progressive || (scan.first == 0 && scan.high == 0);
  const bool uses_ac = !progressive || scan.first > 0;
  for (int i = 0; i < scan.count; ++i) {
    const ScanComponent& component = scan.components[i];
    if (component.index >= frame.count) return false;
    for (int j = 0; j < i; ++j) {
      if (scan.components[j].index == component.index) return false;
    }
    if (frame.components[component.index].quantisation >= kQuantisationSlots) return false;
    if (uses_dc && (component.dc >= kHuffmanSlots || !tables.dc[component.dc].defined)) {
      return false;
    }
    if (uses_ac && (component.ac >= kHuffmanSlots || !tables.ac[component.ac].defined)) {
      return false;
    }
  }
  return true;
}

}  // namespace tq::jpeg
