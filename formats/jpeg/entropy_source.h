// The entropy-coded data of a scan, with the stuffed bytes taken out.
#pragma once

#include <cstdint>

#include "core/memory.h"
#include "formats/jpeg/bit_reader.h"
#include "io/chunk_reader.h"

namespace tq::formats {

// More than any block takes: 64 codes of 16 bits with 16 value bits each, and a word beyond.
inline constexpr int kBlockRoom = 64 * 4 + 24;

class EntropySource {
 public:
  EntropySource(ChunkReader& input, bool byte_by_byte)
      : input_(input), step_(byte_by_byte ? 1 : kPiece) {}

  Status allocate() { return buffer_.allocate(kPiece + 2 * kBlockRoom); }

  void start_scan(BitReader& reader);

  // To be called before every block: makes room for it. False when the data ended before the
  // last one was whole.
  bool prepare(BitReader& reader) {
    if (end_ - reader.next >= kBlockRoom) [[likely]]
      return true;
    // A copy, so that the caller's own can stay in registers.
    BitReader copy = reader;
    const bool prepared = refill(copy);
    reader = copy;
    return prepared;
  }
  // Whether all bits read so far were there.
  bool intact(const BitReader& reader) const { return bits_left(reader) >= 0; }

  // Behind the next restart marker; false when there is none in the next 50 bytes.
  bool restart(BitReader& reader);

  // Skips what is left of the scan's data.
  void finish_scan(BitReader& reader);

 private:
  static constexpr int kPiece = 16 * 1024;

  bool refill(BitReader& reader);
  void load(BitReader& reader);
  std::int64_t bits_left(const BitReader& reader) const {
    return std::int64_t{end_ - reader.next} * 8 + reader.count;
  }

  ChunkReader& input_;
  int step_;  // bytes to ask for at a time
  GlobalBlock buffer_;
  const std::uint8_t* end_ = nullptr;  // of the data in the buffer; zeros follow
  bool ended_ = false;                 // at a marker, or because there is no more
};

}  // namespace tq::formats
