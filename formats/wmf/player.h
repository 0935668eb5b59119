// Plays the records of a metafile on a canvas; or looks at what they would draw.
#pragma once

#include <cmath>

#include "formats/wmf/records.h"
#include "formats/wmf/shapes.h"

namespace tq::wmf {

// Where the canvas lies: the corners of the picture in its own units, and how many of these an inch has.
struct Frame {
  std::int32_t left = 0, top = 0, right = 0, bottom = 0;
  std::int32_t inch = 0;
  std::int32_t width = 0, height = 0;  // dots of the canvas

  double units_wide() const { return std::abs(double(right) - left); }
  double units_high() const { return std::abs(double(bottom) - top); }
  // Of a dot at 96 per inch on the canvas.
  double dot_width() const { return double(width) * inch / (96 * units_wide()); }
  double dot_height() const { return double(height) * inch / (96 * units_high()); }
};

// In dots, with 16 bits behind the point.
struct Point {
  std::int64_t x = 0, y = 0;
};
inline constexpr std::int64_t kDot = 1 << 16;

constexpr Rgb colour_of(std::uint32_t stored) {
  return {byte(stored >> 16), byte(stored >> 8), byte(stored), 0};
}

constexpr std::int32_t to_dots(std::int64_t position) {
  return static_cast<std::int32_t>((position + kDot / 2) >> 16);
}

// One direction of how units become dots: origin and extent of window and viewport.
struct Axis {
  double window = 0, extent = 1;
  double viewport = 0, viewport_extent = 1;

  static std::int64_t fixed(double dots) {
    constexpr double kFarthest = 1 << 20;
    return static_cast<std::int64_t>(
        std::floor(std::clamp(dots, -kFarthest, kFarthest) * kDot + 0.5));
  }
  std::int64_t map(double unit) const {
    return fixed((unit - window) * viewport_extent / extent + viewport);
  }
  std::int64_t offset(double units) const { return fixed(units * viewport_extent / extent); }
  std::int64_t length(double units) const {
    return fixed(std::abs(units * viewport_extent / extent));
  }
};

// A bitmap that is drawn.
struct Blit {
  Operation operation = kSourceCopy;
  std::int64_t at = 0, end = 0;                      // of the bitmap in the stream
  int head_bytes = 10;                               // of an old one, before its rows
  bool is_old = false;                               // of 1 bit for a device, rows from the top
  std::int64_t x = 0, y = 0, width = 0, height = 0;  // of it; y counts from the last row
  std::int64_t first_row = 0, rows = INT32_MAX;      // that there are, from the last row
  Point from, to;                                    // corners on the canvas
  Point unit;                                        // as large there
};

struct Font {
  int height = 0;  // units of a cell; below 0: of its letters; 0: the usual
  int width = 0;   // units of a letter; 0: as the height has it
  int angle = 0;   // tenths of a degree, counter-clockwise
  bool is_bold = false, is_italic = false, is_underlined = false, is_struck = false;
};

struct Object {
  enum class Kind : std::uint8_t { none, pen, brush, font, region, other };

  Kind kind = Kind::none;
  Pen pen{};  // its width is in units
  Brush brush{};
  Font font{};
  Area region{};  // in units, around all of it
};

struct State {
  Axis x, y;
  bool has_units = false;  // of their own, which extents do not change
  Clip clip;
  Area limits;  // of the clip, beyond the canvas too
  bool has_limits = false;
  Ink ink;
  Font font;
  Rgb text_colour{0, 0, 0, 0};
  int alignment = 0;
  int x_place = 0, y_place = 0;  // where the next line begins
};

// A bitmap as it is stored; it must not be one for a device.
Status decode_bitmap(const formats::DecodeRequest& request, const Blit& blit,
                     const formats::RowSink& sink);
// Its header. stop_after_header when it is there.
Status read_header(const formats::DecodeRequest& request, const Blit& blit,
                   BitmapInfoHeader& header);

class Advances;
struct TextLine;
struct Writing;

class Player {
 public:
  // Without a canvas nothing is drawn.
  Status open(const formats::DecodeRequest& request, Records& records, const Frame& frame,
              Canvas* canvas);

  // Up to the end; out_of_memory.
  Status play(std::int64_t at, std::int64_t end);

  int drawn() const { return drawn_; }              // records that draw
  const Blit& first_blit() const { return blit_; }  // of the first of them; at 0: it is no bitmap

 private:
  static constexpr int kMostLevels = 256, kMostObjects = 4096;

  Point map(double x, double y) const { return {state_.x.map(x), state_.y.map(y)}; }

  void play_state(const Record& record);
  Status play_drawing(const Record& record);
  void set_map_mode(int mode);
  void set_extent(const Record& record);
  void restore(int level);

  bool find_blit(const Record& record, Blit& blit) const;
  Status draw_blit(const Blit& blit);

  bool play_object(const Record& record);
  bool play_mode(const Record& record);
  void add_object(const Object& object);
  void add_brush(const Record& record);
  void add_pattern(const Record& record);
  void add_font(const Record& record);
  void select(const Object& object);
  bool play_clip(const Record& record);
  void set_limits(const Area& limits);
  Area rectangle_of(const Area& units) const;
  Status load_pattern();

  Status draw_shape(const Record& record);
  Spot spot_of(const Record& record, std::int64_t index) const;
  Area area_of(const Record& record, int index) const;
  void fill_shape();
  Status draw_polygons(const Record& record, std::int64_t counts_at, std::int64_t polygons,
                       std::int64_t points_at);
  void draw_polyline(const Record& record);
  void draw_rectangle(const Area& area);
  Status draw_rounded(const Area& area, double corner_width, double corner_height);
  Status draw_arc(const Record& record);
  Status draw_path(std::span<const Spot> shape, std::span<const Spot> outline);
  void draw_pattern(const Record& record, int size, int place);

  Status draw_text(const Record& record);
  Status draw_letters(const Writing& writing);
  void move_place(Spot dots);
  Status fill_behind(const TextLine& line);
  void write(const Writing& writing, const Advances& advances, const TextLine& line);
  void draw_stroke(const Ink& ink, Spot from, Spot to);

  const formats::DecodeRequest* request_ = nullptr;
  Records* records_ = nullptr;
  Canvas* canvas_ = nullptr;
  Frame frame_;
  State state_;
  RowBuffer<State> saved_;
  RowBuffer<Object> objects_;
  int first_free_ = 0;
  Painting painting_;
  std::int64_t tile_at_ = -1;  // of the pattern that the painting has
  std::int64_t levels_ = 0;
  int drawn_ = 0;
  Blit blit_;
};

}  // namespace tq::wmf
