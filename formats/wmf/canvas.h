// Dots in 24 bits, and what is painted on them.
#pragma once

#include <algorithm>
#include <array>
#include <cstring>
#include <type_traits>

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

  // Dots left .. right - 1 of row y: `colour_at(x)`, or one colour.
  template <class ColourAt>
  void paint(const Clip& clip, Mix mix, std::int32_t y, std::int64_t left, std::int64_t right,
             ColourAt&& colour_at) {
    if (y < clip.area.top || y >= clip.area.bottom) return;
    left = std::max<std::int64_t>(left, clip.area.left);
    right = std::min<std::int64_t>(right, clip.area.right);
    if (left >= right || !spend(right - left + 1)) return;
    paint_beside(clip, 0, mix, y, static_cast<std::int32_t>(left), static_cast<std::int32_t>(right),
                 colour_at);
  }

  Status deliver(const formats::RowSink& sink);

 private:
  template <class ColourAt>
  void paint_beside(const Clip& clip, int hole, Mix mix, std::int32_t y, std::int32_t left,
                    std::int32_t right, ColourAt& colour_at) {
    for (; hole < clip.hole_count; ++hole) {
      const Area& area = clip.holes[hole];
      if (y < area.top || y >= area.bottom || area.left >= right || area.right <= left) continue;
      if (area.left > left) paint_beside(clip, hole + 1, mix, y, left, area.left, colour_at);
      left = area.right;
      if (left >= right) return;
    }
    constexpr bool kOneColour = std::is_convertible_v<ColourAt, Rgb>;
    const auto colour_of = [&](std::int32_t x) -> Rgb {
      if constexpr (kOneColour) {
        return colour_at;
      } else {
        return colour_at(x);
      }
    };
    std::uint8_t* dot = row(y).data() + 3 * std::ptrdiff_t{left};
    if (kOneColour && mix == Mix::copy) return repeat(colour_of(left), dot, right - left);
    for (std::int32_t x = left; mix == Mix::copy && x < right; ++x, dot += 3) {
      const Rgb colour = colour_of(x);
      dot[0] = colour.blue;
      dot[1] = colour.green;
      dot[2] = colour.red;
    }
    for (std::int32_t x = left; mix != Mix::copy && x < right; ++x, dot += 3) {
      const Rgb colour = colour_of(x);
      mix_level(mix, dot[0], colour.blue);
      mix_level(mix, dot[1], colour.green);
      mix_level(mix, dot[2], colour.red);
    }
  }

  // The first ones one by one, then what is there already is copied behind itself.
  static void repeat(Rgb colour, std::uint8_t* dots, std::int32_t count) {
    constexpr std::int32_t kSingle = 16;
    const std::ptrdiff_t bytes = 3 * std::ptrdiff_t{count};
    std::ptrdiff_t there = 3 * std::ptrdiff_t{std::min(count, kSingle)};
    for (std::ptrdiff_t i = 0; i < there; i += 3) {
      dots[i] = colour.blue;
      dots[i + 1] = colour.green;
      dots[i + 2] = colour.red;
    }
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
