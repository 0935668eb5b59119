// Dots in 24 bits, and what is painted on them.
#pragma once

#include <algorithm>
#include <array>
#include <cstring>

#include "core/memory.h"
#include "formats/codec.h"
#include "pixels/rows.h"

namespace tq::wmf {

// How what is painted mixes with what is there.
enum class Mix : std::uint8_t { copy, both, either, differing, inverse, nothing, black, white };

struct Area {
  std::int32_t left = 0, top = 0, right = 0, bottom = 0;

  bool is_empty() const { return right <= left || bottom <= top; }
  Area cut_to(const Area& other) const {
    return {std::max(left, other.left), std::max(top, other.top), std::min(right, other.right),
            std::min(bottom, other.bottom)};
  }
};

// What may be painted on: an area without some others. Those that are too many count as painted on.
struct Clip {
  static constexpr int kMostHoles = 12;

  Area area;  // of the canvas
  std::array<Area, kMostHoles> holes{};
  int hole_count = 0;

  void add_hole(const Area& hole) {
    if (hole_count < kMostHoles && !hole.is_empty()) holes[hole_count++] = hole;
  }
};

class Canvas {
 public:
  Status open(std::int32_t width, std::int32_t height, std::int64_t most_work);

  std::int32_t width() const { return width_; }
  std::int32_t height() const { return height_; }
  Area area() const { return {0, 0, width_, height_}; }

  // A few bytes can claim any amount of work: what is beyond `most_work` is not done.
  bool spend(std::int64_t work) {
    work_ -= work;
    return work_ > 0;
  }
  bool is_spent() const { return work_ <= 0; }

  Rgb dot(std::int32_t x, std::int32_t y) {
    const std::uint8_t* const dot = row(y).data() + 3 * std::ptrdiff_t{x};
    return {dot[0], dot[1], dot[2], 0};
  }

  // Dots left .. right - 1 of row y: `colour_at(x)`.
  template <class ColourAt>
  void paint(const Clip& clip, Mix mix, std::int32_t y, std::int64_t left, std::int64_t right,
             ColourAt&& colour_at) {
    paint_parts(clip, y, left, right, [&](std::uint8_t* dot, std::int32_t x, std::int32_t end) {
      for (; mix == Mix::copy && x < end; ++x, dot += 3) put(colour_at(x), dot);
      for (; x < end; ++x, dot += 3) {
        const Rgb colour = colour_at(x);
        mix_level(mix, dot[0], colour.blue);
        mix_level(mix, dot[1], colour.green);
        mix_level(mix, dot[2], colour.red);
      }
    });
  }
  // All of one colour.
  void fill(const Clip& clip, Mix mix, std::int32_t y, std::int64_t left, std::int64_t right,
            Rgb colour) {
    if (mix != Mix::copy) {
      return paint(clip, mix, y, left, right, [=](std::int32_t) { return colour; });
    }
    paint_parts(clip, y, left, right, [&](std::uint8_t* dot, std::int32_t x, std::int32_t end) {
      repeat(colour, dot, end - x);
    });
  }

  Status deliver(const formats::RowSink& sink);

 private:
  // `paint_part(dot, x, end)` for the parts of a row that are seen.
  template <class PaintPart>
  void paint_parts(const Clip& clip, std::int32_t y, std::int64_t left, std::int64_t right,
                   PaintPart&& paint_part) {
    if (y < clip.area.top || y >= clip.area.bottom) return;
    left = std::max<std::int64_t>(left, clip.area.left);
    right = std::min<std::int64_t>(right, clip.area.right);
    if (left >= right || !spend(right - left + 1)) return;
    paint_beside(clip, 0, y, static_cast<std::int32_t>(left), static_cast<std::int32_t>(right),
                 paint_part);
  }
  template <class PaintPart>
  void paint_beside(const Clip& clip, int hole, std::int32_t y, std::int32_t left,
                    std::int32_t right, PaintPart& paint_part) {
    for (; hole < clip.hole_count; ++hole) {
      const Area& area = clip.holes[hole];
      if (y < area.top || y >= area.bottom || area.left >= right || area.right <= left) continue;
      if (area.left > left) paint_beside(clip, hole + 1, y, left, area.left, paint_part);
      left = area.right;
      if (left >= right) return;
    }
    paint_part(row(y).data() + 3 * std::ptrdiff_t{left}, left, right);
  }

  static void put(Rgb colour, std::uint8_t* dot) {
    dot[0] = colour.blue;
    dot[1] = colour.green;
    dot[2] = colour.red;
  }
  // The first ones one by one, then what is there already is copied behind itself.
  static void repeat(Rgb colour, std::uint8_t* dots, std::int32_t count) {
    constexpr std::int32_t kSingle = 16;
    const std::ptrdiff_t bytes = 3 * std::ptrdiff_t{count};
    std::ptrdiff_t there = 3 * std::ptrdiff_t{std::min(count, kSingle)};
    for (std::ptrdiff_t i = 0; i < there; i += 3) put(colour, dots + i);
    for (; there < bytes; there *= 2) {
      std::memcpy(dots + there, dots, static_cast<std::size_t>(std::min(there, bytes - there)));
    }
  }

  static void mix_level(Mix mix, std::uint8_t& there, std::uint8_t level) {
    switch (mix) {
      case Mix::copy:
        there = level;
        break;
      case Mix::both:
        there &= level;
        break;
      case Mix::either:
        there |= level;
        break;
      case Mix::differing:
        there ^= level;
        break;
      case Mix::inverse:
        there = byte(~there);
        break;
      case Mix::nothing:
        break;
      case Mix::black:
        there = 0;
        break;
      case Mix::white:
        there = 255;
        break;
    }
  }

  pixels::Row row(std::int64_t y) {
    return pixels_.bytes().subspan(static_cast<std::size_t>(y * stride_),
                                   static_cast<std::size_t>(stride_));
  }

  GlobalBlock pixels_;
  std::int64_t stride_ = 0;
  std::int64_t work_ = 0;
  std::int32_t width_ = 0, height_ = 0;
};

}  // namespace tq::wmf
