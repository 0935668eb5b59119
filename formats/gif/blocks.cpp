// GIF89a specification, sections 17 to 23.
#include "formats/gif/blocks.h"

#include <cstring>
#include <string_view>

#include "io/endian.h"

namespace tq::gif {
namespace {

constexpr int kScreenBytes = 13, kDescriptorBytes = 9;

bool read_palette(const Input& input, int flags, Frame& frame) {
  if ((flags & kHasPalette) == 0) return true;
  frame.colours = 2 << (flags & 7);
  std::array<std::uint8_t, 3 * 256> bytes{};
  if (!input.read(std::span(bytes).first(3 * frame.colours))) return false;
  for (int i = 0; i < frame.colours; ++i) {
    frame.palette[i] = {bytes[3 * i + 2], bytes[3 * i + 1], bytes[3 * i], 0};
  }
  return true;
}

// An application's: how often the frames are to be shown (Netscape's extension).
void read_loops(Input& input, Frame& frame) {
  constexpr std::string_view kName = "NETSCAPE2.0";
  for (const char c : kName) {
    if (input.block_byte() != static_cast<unsigned char>(c)) return;
  }
  if (input.block_byte() != 1) return;
  const int low = input.block_byte(), high = input.block_byte();
  if (low >= 0 && high >= 0) frame.loops = low | high << 8;
}

bool read_extension(Input& input, Frame& frame) {
  const int label = input.byte();
  if (label < 0) return false;
  input.begin_blocks();
  if (label == kGraphicControl) {
    const int flags = input.block_byte();
    const int low = input.block_byte(), high = input.block_byte();
    const int index = input.block_byte();
    frame.transparent = flags >= 0 && (flags & 1) != 0 && index >= 0 ? index : -1;
    frame.disposal = flags >= 0 ? flags >> 2 & 7 : 0;
    frame.delay = low >= 0 && high >= 0 ? low | high << 8 : -1;
  } else if (label == kApplication) {
    read_loops(input, frame);
  }
  return input.skip_blocks();
}

}  // namespace

Status find_frame(Input& input, std::int32_t wanted, Frame& frame) {
  std::array<std::uint8_t, kScreenBytes> screen{};
  if (!input.read(screen) || std::memcmp(screen.data(), "GIF", 3) != 0) {
    return StatusCode::bad_image;
  }
  Frame global;
  if (!read_palette(input, screen[10], global)) return StatusCode::bad_image;
  global.screen_width = load_le16(&screen[6]);
  global.screen_height = load_le16(&screen[8]);
  global.background_index = screen[11];
  global.has_background = screen[11] < global.colours;
  if (global.has_background) global.background = global.palette[screen[11]];
  frame = global;
  for (std::int32_t found = 0;;) {
    const int introducer = input.byte();
    if (introducer == kExtension) {
      if (!read_extension(input, frame)) return StatusCode::bad_image;
      global.loops = frame.loops;
      continue;
    }
    if (introducer != kImage) return found == 0 ? StatusCode::bad_image : StatusCode::page_past_end;
    std::array<std::uint8_t, kDescriptorBytes> descriptor{};
    if (!input.read(descriptor)) return StatusCode::bad_image;
    frame.left = load_le16(&descriptor[0]);
    frame.top = load_le16(&descriptor[2]);
    frame.width = load_le16(&descriptor[4]);
    frame.height = load_le16(&descriptor[6]);
    frame.interlaced = (descriptor[8] & kInterlaced) != 0;
    if (!read_palette(input, descriptor[8], frame)) return StatusCode::bad_image;
    if (found++ == wanted) return kOk;
    if (input.byte() < 0) return StatusCode::page_past_end;  // the pixels' bits
    input.begin_blocks();
    if (!input.skip_blocks()) return StatusCode::page_past_end;
    frame = global;
  }
}

}  // namespace tq::gif
