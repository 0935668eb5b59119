// A frame's rows become rows of the screen.
#include "formats/gif/gif.h"

#include <algorithm>

#include "formats/gif/blocks.h"
#include "pixels/colours.h"
#include "pixels/rows.h"

namespace tq::gif {
namespace {

using formats::DecodeRequest;
using formats::RowSink;

constexpr Rgb kWhite{255, 255, 255, 0};

class Screen {
 public:
  Screen(const RowSink& sink, const Frame& frame) : sink_(sink), frame_(frame) {}

  RowSink callbacks() { return {take_header, take_row, this, &notes_}; }
  bool is_damaged() const { return notes_.damage != StatusCode::ok; }

 private:
  static std::int32_t IMG_CB_C take_header(void* block, void* self) {
    const Status taken = static_cast<Screen*>(self)->header(*static_cast<HeaderBlock*>(block));
    return taken.failed() ? taken.raw() : 1;
  }
  static std::int32_t IMG_CB_C take_row(void* row, void* self, std::int32_t y, std::int32_t bytes) {
    const std::span stored(static_cast<const std::uint8_t*>(row), bytes);
    return static_cast<Screen*>(self)->row(stored, y).raw();
  }

  // The index of the colour around the frame, which may need one that the frame does not use, or more
  // bits for it.
  std::uint8_t choose_index(HeaderBlock& image, const Rgb& colour) {
    const bool marked = (image.header.biClrUsed & kTransparent) != 0;
    const int transparent = marked ? image.header.biClrUsed & 0xFF : -1;
    int used = std::max(frame_.colours, 2);
    if (frame_.colours == 0) used = 256;  // levels of grey
    const std::span<Rgb> palette = image.palette;
    for (int i = 0; i < used; ++i) {
      if (palette[i] == colour && i != transparent) return byte(i);
    }
    if (used == 256) return pixels::nearest_colour(colour, palette);
    std::uint16_t& bits = image.header.biBitCount;
    if (used == 1 << bits) bits = bits == 1 ? 4 : 8;
    palette[used] = colour;
    return byte(used);
  }

  Status header(const HeaderBlock& frame) {
    frame_bits_ = frame.header.biBitCount;
    image_ = frame;
    image_.header.biWidth = frame_.screen_width;
    image_.header.biHeight = frame_.screen_height;
    const bool see_through =
        !frame_.has_background || frame_.background_index == frame_.transparent;
    around_ = choose_index(image_, see_through ? kWhite : frame_.background);
    const int bits = image_.header.biBitCount;
    image_.header.biSizeImage = image_bytes(frame_.screen_width, frame_.screen_height, bits);
    TQ_TRY(sink_.header(image_));
    layout_ = pixels::find_layout(pixels::Layout::bytes, bits);
    TQ_TRY(indices_.allocate(frame_.screen_width));
    TQ_TRY(row_.allocate(row_bytes(frame_.screen_width, bits)));
    std::fill_n(indices_.data(), frame_.screen_width, around_);
    for (std::int32_t y = 0; y < frame_.screen_height; ++y) {
      const bool outside = y < frame_.top || y - frame_.top >= frame_.height;
      if (outside) TQ_TRY(deliver(y));
    }
    return kOk;
  }

  Status row(std::span<const std::uint8_t> stored, std::int32_t y) {
    const std::int32_t width = std::min(frame_.width, frame_.screen_width - frame_.left);
    if (y + frame_.top >= frame_.screen_height) return kOk;
    if (width > 0) {
      std::uint8_t* const to = indices_.data() + frame_.left;
      pixels::for_each_index(stored.data(), frame_bits_, width,
                             [to](int x, int index) { to[x] = byte(index); });
    }
    return deliver(y + frame_.top);
  }

  Status deliver(std::int32_t y) {
    pixels::unpack(*layout_, indices_.pixels(), frame_.screen_width, row_.pixels());
    return sink_.row(row_.pixels(), y);
  }

  const RowSink& sink_;
  const Frame& frame_;
  formats::DecodeNotes notes_;  // of the frame
  HeaderBlock image_;
  int frame_bits_ = 8;
  std::uint8_t around_ = 0;
  const pixels::RowLayout* layout_ = nullptr;
  RowBuffer<std::uint8_t> indices_, row_;
};

}  // namespace

Status find_place(StreamHandle stream, std::int32_t wanted, FramePlace& place) {
  Input input(stream);
  Frame frame;
  TQ_TRY(find_frame(input, wanted, frame));
  place = {frame.left,          frame.top,   frame.width,    frame.height, frame.screen_width,
           frame.screen_height, frame.delay, frame.disposal, frame.loops};
  return kOk;
}

Status decode_on_screen(const DecodeRequest& request, formats::Decoder decode_frame) {
  const std::int32_t start = request.start();
  Frame frame;
  (void)request.seek_to_start();
  Input input(request.stream);
  const Status found = find_frame(input, 0, frame);
  if (request.has_page()) (void)seek_to(request.stream, start);
  const bool covers = frame.left == 0 && frame.top == 0 && frame.width == frame.screen_width &&
                      frame.height == frame.screen_height;
  const bool no_screen = frame.screen_width < 1 || frame.screen_height < 1;
  if (found.failed() || covers || no_screen) return decode_frame(request);
  Screen screen(request.sink, frame);
  DecodeRequest inner = request;
  inner.sink = screen.callbacks();
  const Status decoded = decode_frame(inner);
  if (screen.is_damaged()) request.sink.last_row_damaged();
  return decoded;
}

}  // namespace tq::gif
