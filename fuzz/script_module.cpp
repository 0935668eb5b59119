// A module whose entries do what the bytes of the stream say: they call what they were handed in any
// order and with any arguments. Buffers hold what is claimed of them, to the byte.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

#include "tarnquill_plugin.h"

namespace {

img_read_fn read_bytes = nullptr;
img_write_fn write_bytes = nullptr;
img_seek_fn seek_to = nullptr;

class Script {
 public:
  explicit Script(std::int32_t stream) : bytes_(4000) {
    const std::int32_t got = read_bytes(stream, bytes_.data(), 4000);
    bytes_.resize(static_cast<std::size_t>(std::clamp(got, 0, 4000)));
  }
  bool ended() const { return at_ >= bytes_.size(); }
  std::uint8_t u8() { return ended() ? 0 : bytes_[at_++]; }
  // Mostly small, now and then anything.
  std::int32_t any() {
    const std::uint8_t kind = u8();
    if (kind < 200) return kind - 20;
    std::uint32_t value = kind * 0x2000000u;
    for (int i = 0; i < 3; ++i) value = value << 8 | u8();
    return static_cast<std::int32_t>(value);
  }

 private:
  std::vector<std::uint8_t> bytes_;
  std::size_t at_ = 0;
};

void use_stream(Script& script, std::int32_t stream) {
  std::vector<std::uint8_t> buffer(script.u8());
  const auto size = static_cast<std::int32_t>(buffer.size());
  switch (script.u8() % 4) {
    case 0:
      seek_to(stream, script.any(), script.u8() % 3);
      break;
    case 1:
      read_bytes(stream, buffer.data(), std::min(script.any(), size));
      break;
    case 2:
      write_bytes(stream, buffer.data(), std::min(script.any(), size));
      break;
    default:
      read_bytes(stream, nullptr, script.any());
  }
}

}  // namespace

extern "C" {

IMG_PLUGIN_API void IMG_CALL set_callbacks(img_read_fn read, img_write_fn write, img_seek_fn seek,
                                           img_tiff_helper_fn /*helper*/) {
  read_bytes = read;
  write_bytes = write;
  seek_to = seek;
}

IMG_PLUGIN_API std::int32_t IMG_CALL decode_gif(std::uint32_t offset_or_page, img_row_fn row,
                                                void* context, img_header_fn header,
                                                std::int32_t stream) {
  if (offset_or_page >> 31 == 0) seek_to(stream, static_cast<std::int32_t>(offset_or_page), 0);
  seek_to(stream, 10, 1);  // behind what detection looks at
  Script script(stream);
  std::vector<std::uint8_t> block(IMG_HEADER_BLOCK_BYTES);
  for (int calls = 0; !script.ended() && calls < 300; ++calls) {
    const std::uint8_t step = script.u8();
    if (step < 30) {
      const std::int32_t fields[] = {40, script.any(), script.any(), 1 | script.u8() << 16,
                                     script.u8()};
      std::memcpy(block.data(), fields, sizeof fields);
      block[32] = script.u8();
      if (step >= 3) header(block.data(), context);  // else changed when the library has seen it
    } else if (step < 200) {
      std::vector<std::uint8_t> pixels(script.u8() * (step % 4 == 0 ? 20u : 1u), step);
      row(pixels.data(), context, script.any(), static_cast<std::int32_t>(pixels.size()));
    } else if (step < 250) {
      use_stream(script, stream);
    } else {
      return script.any();
    }
  }
  return 0;
}

IMG_PLUGIN_API std::int32_t IMG_CALL encode_gif(std::int32_t stream, void* /*header*/,
                                                img_supply_fn supply, void* context) {
  Script script(stream);
  while (!script.ended()) {
    std::vector<std::uint8_t> pixels(script.u8() * 8u);
    supply(context, pixels.data(), script.any(), static_cast<std::int32_t>(pixels.size()));
    use_stream(script, stream);
  }
  return script.any();
}

}  // extern "C"
