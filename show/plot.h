// An image on a device: the system never scales it, it gets bands of what has been rendered.
#pragma once

#include "core/image_table.h"
#include "platform/surface.h"
#include "show/render.h"

namespace tq::show {

inline constexpr std::int64_t kPrintedBandBytes = 1 << 20;  // printers fail on large ones

Rect common(const Rect& a, const Rect& b);
inline bool is_empty(const Rect& rect) {
  return rect.width < 1 || rect.height < 1;
}

class Plot {
 public:
  Plot(ImageHandle handle, void* context, bool prints = false)
      : handle_(handle),
        drawing_(context),
        device_(context),
        serial_(image_record(handle).serial),
        prints_(prints) {}

  // Finds the window on the device and the picture in it.
  Status open(const Rect& place, const img_view* view);
  Status print(bool scaled_by_device);
  Status display();
  Status wipe(std::int32_t effect, std::int32_t steps);

 private:
  ImageRecord& image() const { return image_record(handle_); }
  bool shows_through() const;
  bool is_grey() const;
  Rect picture() const { return {layout_.x.at, layout_.y.at, layout_.x.shown, layout_.y.shown}; }
  Rect seen() const { return common(picture(), {0, 0, window_.width, window_.height}); }

  // The picture, and what is around it if that is painted, in bands of the window.
  Status draw_all();
  Status draw(const Rect& part, std::int32_t operation);
  Status draw_band(const Rect& band, std::int32_t operation, std::uint8_t* pixels);
  Status draw_bits(const Rect& band, std::uint8_t* pixels, std::uint8_t* levels);
  Status draw_diffused(const Rect& part, std::int32_t operation);
  Layout layout_of(const Rect& part) const;
  Status render_part(const Rect& part, const Canvas& canvas) const;
  Status read_below(const Rect& part, std::uint8_t* pixels) const;
  Status put(const Rect& band, const HeaderBlock& header, const void* rows, std::int32_t from_x,
             std::int32_t operation) const;
  Status next_band();
  Status send_rows();

  // The window as a whole in memory.
  Status draw_whole(std::uint8_t* pixels);
  Status put_whole(const Rect& part, std::int32_t operation, const std::uint8_t* pixels) const;
  Status keep_whole(const std::uint8_t*& pixels);
  Status uncover(std::int32_t effect, std::int32_t step, std::int32_t steps,
                 const std::uint8_t* pixels) const;

  ImageHandle handle_;
  platform::Drawing drawing_;
  void* device_;
  std::uint64_t serial_;
  platform::Surface surface_;
  img_view view_{};
  Layout layout_{};
  Paint paint_;
  Manner manner_ = Manner::of_settings();
  Rect window_;  // on the device
  Rect clip_;    // in the window
  bool prints_;
};

// A DIB's header for rows from the top, the palette a ramp of greys.
HeaderBlock band_header(std::int32_t width, std::int32_t height, int bits);

}  // namespace tq::show
