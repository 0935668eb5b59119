// GIF 87a and 89a: one frame, as large as the frame itself.
#include <algorithm>
#include <cstring>

#include "modules/lzw/gif.h"

namespace gif {
namespace {

constexpr std::uint32_t kPageFlag = 0x80000000;
constexpr int kBlockBytes = 255;

// Reads exactly what the format says is there: the stream may be memory that ends with the file.
class Input {
 public:
  explicit Input(std::int32_t stream) : stream_(stream) {}

  bool read(std::uint8_t* bytes, std::int32_t count) const { return take(bytes, count) == count; }
  int byte() const {
    std::uint8_t value = 0;
    return read(&value, 1) ? value : -1;
  }

  // The bytes of data sub-blocks one after the other.
  void begin_blocks() {
    const int first = byte();
    next_ = std::max(first, 0);
    used_ = length_ = 0;
  }
  int block_byte() {
    if (used_ == length_ && !fetch()) return -1;
    return block_[used_++];
  }
  // False when the data end before their terminator.
  bool skip_blocks() {
    while (next_ != 0) {
      if (!fetch()) return false;
    }
    return true;
  }

 private:
  // How many bytes there were. A pipe hands them out in pieces.
  std::int32_t take(std::uint8_t* bytes, std::int32_t count) const {
    std::int32_t done = 0;
    while (done < count) {
      const std::int32_t got = host().read(stream_, bytes + done, count - done);
      if (got <= 0) break;
      done += std::min(got, count - done);
    }
    return done;
  }

  // A block and the length of the one behind it, which is always there, are read at once.
  bool fetch() {
    if (next_ == 0) return false;
    const std::int32_t got = take(block_.data(), next_ + 1);
    const bool whole = got == next_ + 1;
    length_ = std::min(got, next_);
    used_ = 0;
    next_ = whole ? block_[length_] : 0;
    return length_ != 0;
  }

  std::int32_t stream_;
  std::array<std::uint8_t, kBlockBytes + 1> block_{};
  int used_ = 0, length_ = 0;
  int next_ = 0;  // bytes in the following block
};

struct Frame {
  std::int32_t width = 0, height = 0;
  bool interlaced = false;
  int colours = 0;
  std::array<Colour, 256> palette{};
  int transparent = -1;
};

int load16(const std::uint8_t* p) {
  return p[0] | p[1] << 8;
}

bool read_palette(const Input& input, int flags, Frame& frame) {
  if ((flags & 0x80) == 0) return true;
  frame.colours = 2 << (flags & 7);
  std::array<std::uint8_t, 768> bytes{};
  if (!input.read(bytes.data(), 3 * frame.colours)) return false;
  for (int i = 0; i < frame.colours; ++i) {
    frame.palette[i] = {bytes[3 * i + 2], bytes[3 * i + 1], bytes[3 * i], 0};
  }
  return true;
}

// Of the graphic control extension only the transparent colour counts.
bool read_extension(Input& input, Frame& frame) {
  const int label = input.byte();
  if (label < 0) return false;
  input.begin_blocks();
  if (label == 0xF9) {
    const int flags = input.block_byte();
    input.block_byte();
    input.block_byte();
    const int index = input.block_byte();
    frame.transparent = flags >= 0 && (flags & 1) != 0 && index >= 0 ? index : -1;
  }
  return input.skip_blocks();
}

// Leaves the input at the pixels of frame `wanted`.
std::int32_t find_frame(Input& input, std::uint32_t wanted, Frame& frame) {
  std::array<std::uint8_t, 13> screen{};
  if (!input.read(screen.data(), 13) || std::memcmp(screen.data(), "GIF", 3) != 0) {
    return IMG_BAD_IMAGE;
  }
  Frame global;
  if (!read_palette(input, screen[10], global)) return IMG_BAD_IMAGE;
  frame = global;
  for (std::uint32_t found = 0;;) {
    const int introducer = input.byte();
    if (introducer == 0x21) {
      if (!read_extension(input, frame)) return IMG_BAD_IMAGE;
      continue;
    }
    if (introducer != 0x2C) return found == 0 ? IMG_BAD_IMAGE : IMG_PAGE_PAST_END;
    std::array<std::uint8_t, 9> descriptor{};
    if (!input.read(descriptor.data(), 9)) return IMG_BAD_IMAGE;
    frame.width = load16(&descriptor[4]);
    frame.height = load16(&descriptor[6]);
    frame.interlaced = (descriptor[8] & 0x40) != 0;
    if (!read_palette(input, descriptor[8], frame)) return IMG_BAD_IMAGE;
    if (found++ == wanted) return IMG_OK;
    if (input.byte() < 0) return IMG_PAGE_PAST_END;  // the code size
    input.begin_blocks();
    if (!input.skip_blocks()) return IMG_PAGE_PAST_END;
    frame = global;
  }
}

bool is_grey(const Colour& colour, std::uint8_t level) {
  return colour.blue == level && colour.green == level && colour.red == level;
}

// Pixels of one byte each to rows of the image.
struct Packing {
  int bits = 8;
  bool inverted = false;  // 1 bit: white comes first in the file

  static Packing choose(Frame& frame) {
    if (frame.colours == 0) {
      for (int i = 0; i < 256; ++i) {
        const auto level = static_cast<std::uint8_t>(i);
        frame.palette[i] = {level, level, level, 0};
      }
    }
    if (frame.colours == 0 || frame.colours > 16) return {};
    // Two colours other than black and white are kept in an image of 4 bits.
    if (frame.colours == 2) {
      if (is_grey(frame.palette[0], 0) && is_grey(frame.palette[1], 255)) return {1, false};
      if (is_grey(frame.palette[0], 255) && is_grey(frame.palette[1], 0)) {
        std::swap(frame.palette[0], frame.palette[1]);
        if (frame.transparent >= 0) frame.transparent ^= 1;
        return {1, true};
      }
    }
    return {4, false};
  }

  void pack(const std::uint8_t* pixels, std::int32_t width, std::uint8_t* row) const {
    if (bits == 8) {
      std::memcpy(row, pixels, static_cast<std::size_t>(width));
      return;
    }
    const int per_byte = 8 / bits, mask = (1 << bits) - 1, flip = inverted ? 1 : 0;
    for (std::int32_t x = 0; x < width; x += per_byte) {
      int byte = 0;
      for (int i = 0; i < per_byte; ++i) {
        const int pixel = x + i < width ? (pixels[x + i] & mask) ^ flip : 0;
        byte = byte << bits | pixel;
      }
      row[x / per_byte] = static_cast<std::uint8_t>(byte);
    }
  }
};

// Codes of growing width, and the strings that they stand for.
struct Lzw {
  std::array<std::uint16_t, kCodes> prefix;
  std::array<std::uint16_t, kCodes> length;
  std::array<std::uint8_t, kCodes> last, first;
  std::array<std::uint8_t, kCodes + 1> string;  // of the current code
  int clear, end, next, bits, root_bits;
  int previous;
  std::uint32_t window;
  int window_bits;

  void begin(int code_size) {
    root_bits = code_size + 1;
    clear = 1 << code_size;
    end = clear + 1;
    for (int i = 0; i < clear; ++i) {
      length[i] = 1;
      first[i] = last[i] = static_cast<std::uint8_t>(i);
    }
    window = 0;
    window_bits = 0;
    reset();
  }
  void reset() {
    next = end + 1;
    bits = root_bits;
    previous = -1;
  }
  int code(Input& input) {
    while (window_bits < bits) {
      const int byte = input.block_byte();
      if (byte < 0) return -1;
      window |= static_cast<std::uint32_t>(byte) << window_bits;
      window_bits += 8;
    }
    const int value = static_cast<int>(window & ((1U << bits) - 1));
    window >>= bits;
    window_bits -= bits;
    return value;
  }
  void spell(int code) {
    for (int i = length[code] - 1; i >= 0; --i, code = prefix[code]) string[i] = last[code];
  }
  // The length of the next string; 0 at the end of the data, or where they make no sense.
  int next_string(Input& input) {
    int value = code(input);
    while (value == clear) {
      reset();
      value = code(input);
    }
    if (value < 0 || value == end) return 0;
    if (previous < 0) {  // the first code is a pixel
      if (value >= clear) return 0;
    } else {
      if (value > next || (value == next && next == kCodes)) return 0;
      if (next < kCodes) {
        prefix[next] = static_cast<std::uint16_t>(previous);
        length[next] = static_cast<std::uint16_t>(length[previous] + 1);
        first[next] = first[previous];
        last[next] = value == next ? first[previous] : first[value];
        ++next;
        if (next == 1 << bits && bits < kMostBits) ++bits;
      }
    }
    spell(value);
    previous = value;
    return length[value];
  }
};

struct Sink {
  img_row_fn row;
  void* context;
};

std::int32_t decode_rows(Input& input, const Frame& frame, const Packing& packing,
                         const Sink& sink) {
  const int code_size = input.byte();
  if (code_size < 1 || code_size > 8) return code_size < 0 ? IMG_OK : IMG_BAD_IMAGE;
  input.begin_blocks();
  const std::int32_t bytes = row_bytes(frame.width, packing.bits);
  Owned<Lzw> lzw(1);
  Owned<std::uint8_t> pixels(static_cast<std::size_t>(frame.width));
  Owned<std::uint8_t> packed(static_cast<std::size_t>(bytes));
  if (!lzw || !pixels || !packed) return IMG_OUT_OF_MEMORY;
  lzw->begin(code_size);

  std::int32_t x = 0, n = 0;  // pixel of the row, row in the order of the file
  const auto deliver = [&] {
    packing.pack(pixels.get(), frame.width, packed.get());
    const std::int32_t y = frame.interlaced ? interlaced_row(n, frame.height) : n;
    x = 0;
    ++n;
    return sink.row(packed.get(), sink.context, y, bytes);
  };
  while (n < frame.height) {
    const int length = lzw->next_string(input);
    if (length == 0) break;
    for (int done = 0; done < length && n < frame.height;) {
      const std::int32_t count = std::min<std::int32_t>(length - done, frame.width - x);
      std::memcpy(pixels.get() + x, &lzw->string[done], static_cast<std::size_t>(count));
      done += count;
      x += count;
      if (x < frame.width) continue;
      if (const std::int32_t answer = deliver(); answer < 0) return answer;
    }
  }
  if (x == 0) return IMG_OK;
  std::memset(pixels.get() + x, 0, static_cast<std::size_t>(frame.width - x));
  return std::min(deliver(), 0);
}

}  // namespace

std::int32_t decode(std::uint32_t offset_or_page, img_row_fn row, void* sink_context,
                    img_header_fn header, std::int32_t stream) {
  std::uint32_t wanted = 0;
  if ((offset_or_page & kPageFlag) != 0) {
    wanted = offset_or_page & ~kPageFlag;
  } else {
    host().seek(stream, static_cast<std::int32_t>(offset_or_page), 0);
  }
  Input input(stream);
  Frame frame;
  if (const std::int32_t found = find_frame(input, wanted, frame); found < 0) return found;
  if (frame.width < 1 || frame.height < 1) return IMG_BAD_IMAGE;
  const Packing packing = Packing::choose(frame);

  HeaderBlock block{};
  block.size = 40;
  block.width = frame.width;
  block.height = frame.height;
  block.planes = 1;
  block.bits = static_cast<std::uint16_t>(packing.bits);
  block.image_bytes = static_cast<std::uint32_t>(row_bytes(frame.width, packing.bits)) *
                      static_cast<std::uint32_t>(frame.height);
  block.palette = frame.palette;
  if (frame.transparent >= 0) {
    block.colours_used = kTransparent | static_cast<std::uint32_t>(frame.transparent);
  }
  if (const std::int32_t answer = header(&block, sink_context); answer < 0) return answer;
  return decode_rows(input, frame, packing, {row, sink_context});
}

}  // namespace gif
