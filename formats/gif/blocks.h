// The blocks of GIF files, up to the pixels of a frame: what the codec and the library's look at the
// screen share.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <utility>

#include "core/dib.h"
#include "io/byte_stream.h"

namespace tq::gif {

inline constexpr int kBlockBytes = 255;
inline constexpr int kHasPalette = 0x80, kInterlaced = 0x40;  // flags of screen and image
inline constexpr int kExtension = 0x21, kImage = 0x2C, kTrailer = 0x3B;  // what follows
inline constexpr int kGraphicControl = 0xF9, kApplication = 0xFF;        // extensions

// Reads exactly what the format says is there: the stream may be memory that ends with the file.
class Input {
 public:
  explicit Input(StreamHandle stream) : stream_(stream) {}

  bool read(std::span<std::uint8_t> bytes) const {
    return read_fully(stream_, bytes) == std::ssize(bytes);
  }
  int byte() const {
    std::array<std::uint8_t, 1> value{};
    return read(value) ? value[0] : -1;
  }

  // The bytes of data sub-blocks one after the other.
  void begin_blocks() {
    next_ = std::max(byte(), 0);
    block_ = {};
  }
  int block_byte() {
    if (block_.empty() && !fetch()) return -1;
    const int value = block_.front();
    block_ = block_.subspan(1);
    return value;
  }
  std::span<const std::uint8_t> next_piece() {
    if (block_.empty()) fetch();
    return std::exchange(block_, {});
  }
  // False when the data end before their terminator.
  bool skip_blocks() {
    while (next_ != 0) {
      if (!fetch()) return false;
    }
    return true;
  }

 private:
  // A block and the length of the one behind it, which is always there, are read at once.
  bool fetch() {
    if (next_ == 0) return false;
    const int got = read_fully(stream_, std::span(buffer_).first(next_ + 1));
    block_ = std::span(buffer_).first(std::min(got, next_));
    next_ = got > next_ ? buffer_[next_] : 0;
    return !block_.empty();
  }

  StreamHandle stream_;
  std::array<std::uint8_t, kBlockBytes + 1> buffer_{};
  std::span<const std::uint8_t> block_{};  // what is left of the one in the buffer
  int next_ = 0;                           // bytes in the following block
};

struct Frame {
  std::int32_t width = 0, height = 0;
  bool interlaced = false;
  int colours = 0;
  std::array<Rgb, 256> palette{};
  int transparent = -1;
  // Where it lies on the screen of the whole file.
  std::int32_t left = 0, top = 0;
  std::int32_t screen_width = 0, screen_height = 0;
  Rgb background{};
  bool has_background = false;  // its colour is known
  int background_index = 0;
  // Of animations.
  int delay = -1;    // hundredths of a second; negative: the file does not say
  int disposal = 0;  // of the frame, before the next one is drawn
  int loops = -1;    // of the whole file, 0 for ever; negative: it does not say
};

// Leaves the input at the pixels of frame `wanted`.
Status find_frame(Input& input, std::int32_t wanted, Frame& frame);

}  // namespace tq::gif
