// Text, in letters of strokes: where each of them stands, and their strokes as lines.
#include <cmath>

#include "formats/stroke_font.h"
#include "formats/wmf/player.h"

namespace tq::wmf {

// What a record writes.
struct Writing {
  std::int64_t at = 0;      // of its first character, in the record
  std::int64_t count = 0;   // characters
  std::int64_t widths = 0;  // of these, in words of the record; 0: there are none
  int x = 0, y = 0;
  const Record* record = nullptr;
};

namespace {

using formats::kGlyphBaseline;
using formats::kGlyphWidth;

// In the units of strokes: letters of common fonts, whose capitals are as high, are so much apart.
constexpr double kCellHeight = 58, kLetterHeight = 50, kAscent = 45, kAdvance = 25;
constexpr int kUsualHeight = 12;

// How text runs on the canvas.
struct Direction {
  double along_x = 1, along_y = 0;

  Spot at(Spot from, double along, double down) const {
    return {from.x + along * along_x - down * along_y, from.y + along * along_y + down * along_x};
  }
};

// Counter-clockwise. By steps of a tenth of a degree, which are the same everywhere.
Direction direction_of(int angle) {
  constexpr int kRound = 3600, kQuarter = 900;
  constexpr double kCosine = 0.99999847691328769, kSine = 0.0017453283658983088;
  const int turned = (angle % kRound + kRound) % kRound;
  Direction direction;
  for (int i = 0; i < turned / kQuarter; ++i) direction = {direction.along_y, -direction.along_x};
  for (int i = 0; i < turned % kQuarter; ++i) {
    direction = {direction.along_x * kCosine + direction.along_y * kSine,
                 direction.along_y * kCosine - direction.along_x * kSine};
  }
  return direction;
}

}  // namespace

// Dots from character to character.
class Advances {
 public:
  Advances(const Writing& writing, Records& records, const Axis& axis, double usual)
      : writing_(writing), records_(records), axis_(axis), usual_(usual) {}

  double usual() const { return usual_; }
  double of(std::int64_t i) const {
    if (writing_.widths == 0) return usual_;
    const int units = records_.i16(*writing_.record, writing_.widths + i);
    const double dots = double(axis_.length(units)) / kDot;
    return units < 0 ? -dots : dots;
  }
  double all() const {
    double sum = 0;
    for (std::int64_t i = 0; i < writing_.count; ++i) sum += of(i);
    return sum;
  }

 private:
  const Writing& writing_;
  Records& records_;
  const Axis& axis_;
  double usual_;
};

Status Player::draw_text(const Record& record) {
  const std::int64_t there = std::min(record.end(), records_->end()) - record.at;
  Writing writing{.record = &record};
  const auto words_of = [&] { return (writing.count + 1) / 2; };
  const auto cut = [&](std::int64_t count) {
    return std::clamp<std::int64_t>(there - writing.at, 0, count);
  };
  if (record.function == kTextOut) {
    writing.at = 2;
    writing.count = cut(records_->u16(record, 0));
    writing.y = records_->i16(record, 1 + words_of());
    writing.x = records_->i16(record, 2 + words_of());
    return draw_letters(writing);
  }
  constexpr int kFilled = 2, kClipped = 4, kHeadWords = 4, kAreaWords = 4;
  const int options = records_->u16(record, 3);
  const bool has_area = (options & (kFilled | kClipped)) != 0;
  const std::int64_t head_words = kHeadWords + (has_area ? kAreaWords : 0);
  writing.y = records_->i16(record, 0);
  writing.x = records_->i16(record, 1);
  writing.at = 2 * head_words;
  writing.count = cut(records_->u16(record, 2));
  const std::int64_t widths = head_words + words_of();
  if (there >= 2 * (widths + writing.count)) writing.widths = widths;
  if (!has_area) return draw_letters(writing);

  const auto side = [&](int i) { return records_->i16(record, kHeadWords + i); };
  const Area area = rectangle_of({side(0), side(1), side(2), side(3)});
  const Clip clip = state_.clip;
  if ((options & kFilled) != 0) {
    const std::int32_t behind = std::min(area.bottom, clip.area.bottom);
    const Rgb background = state_.ink.background;
    for (std::int32_t y = std::max(area.top, clip.area.top); y < behind; ++y) {
      canvas_->fill(clip, Mix::copy, y, area.left, area.right, background);
    }
  }
  if ((options & kClipped) != 0) state_.clip.area = clip.area.cut_to(area);
  const Status drawn = draw_letters(writing);
  state_.clip = clip;
  return drawn;
}

// A line of text on the canvas: from the left end of what its letters stand on.
struct TextLine {
  Spot start;
  Direction direction;
  double length = 0, scale = 1;

  Spot at(double along, double down) const { return direction.at(start, along, scale * down); }
};

Status Player::draw_letters(const Writing& writing) {
  enum Alignment : int { kAtPlace = 1, kRight = 2, kCentre = 6, kBottom = 8, kBaseline = 24 };
  const Font& font = state_.font;
  const int height = font.height == 0 ? kUsualHeight : font.height;
  const double high = double(state_.y.length(height)) / kDot;
  const double width = double(state_.x.length(font.width)) / kDot;
  TextLine line;
  line.scale = high / (height > 0 ? kCellHeight : kLetterHeight);
  const Advances advances(writing, *records_, state_.x, width > 0 ? width : kAdvance * line.scale);
  if (!canvas_->spend(writing.count)) return kOk;
  line.length = advances.all();
  line.direction = direction_of(font.angle);

  const bool at_place = (state_.alignment & kAtPlace) != 0;
  const Point place = at_place ? map(state_.x_place, state_.y_place) : map(writing.x, writing.y);
  const int across = state_.alignment & kCentre, upright = state_.alignment & kBaseline;
  const double left = across == kRight ? -line.length : across == kCentre ? -line.length / 2 : 0;
  const double down = upright == kBaseline ? 0
                      : upright == kBottom ? kAscent - kCellHeight
                                           : kAscent;
  line.start = {double(place.x) / kDot, double(place.y) / kDot};
  line.start = line.at(left, down);
  if (at_place && across != kCentre) {
    move_place(line.direction.at({}, across == kRight ? -line.length : line.length, 0));
  }
  if (state_.ink.is_opaque) TQ_TRY(fill_behind(line));
  write(writing, advances, line);
  return kOk;
}

// By so many dots.
void Player::move_place(Spot dots) {
  const auto units = [](const Axis& axis, double length) {
    const double value = length * axis.extent / axis.viewport_extent;
    return static_cast<int>(std::clamp(std::floor(value + 0.5), -32768.0, 32767.0));
  };
  state_.x_place = std::clamp(state_.x_place + units(state_.x, dots.x), -32768, 32767);
  state_.y_place = std::clamp(state_.y_place + units(state_.y, dots.y), -32768, 32767);
}

Status Player::fill_behind(const TextLine& line) {
  constexpr double kTop = -kAscent, kBottom = kCellHeight - kAscent;
  const Spot corners[] = {line.at(0, kTop), line.at(line.length, kTop),
                          line.at(line.length, kBottom), line.at(0, kBottom)};
  TQ_TRY(painting_.begin(4));
  for (int i = 0; i < 4; ++i) painting_.add_edge(corners[i], corners[(i + 1) % 4]);
  const Rgb background = state_.ink.background;
  painting_.fill(state_.clip, true, [&](std::int32_t y, std::int32_t left, std::int32_t right) {
    canvas_->fill(state_.clip, Mix::copy, y, left, right, background);
  });
  return kOk;
}

void Player::write(const Writing& writing, const Advances& advances, const TextLine& line) {
  constexpr double kThin = 4, kBold = 7;  // strokes
  constexpr int kWorkOfLetter = 256;
  constexpr double kRoom = 9, kWidest = 1.6, kSlant = 0.2, kSeen = 1 << 21;
  const Font& font = state_.font;
  Ink ink;
  ink.pen.colour = state_.text_colour;
  const double stroke = std::clamp(line.scale * (font.is_bold ? kBold : kThin), 1.0, 4096.0);
  ink.pen.width = static_cast<std::int32_t>(std::lround(stroke));
  double along = 0;
  for (std::int64_t i = 0; i < writing.count && canvas_->spend(kWorkOfLetter); ++i) {
    // A letter is as wide as its place, unless that is to make room beside it.
    const double advance = advances.of(i), usual = advances.usual();
    const double wide = advance > 0 ? std::min(advance, kWidest * usual) : usual;
    const double unit = wide / (kGlyphWidth + kRoom);
    const double slant = font.is_italic ? kSlant * line.scale : 0;
    const auto spot_of = [&](int x, int y) {
      const int down = y - kGlyphBaseline;
      return line.at(along + unit * (x + kRoom / 2) - slant * down, down);
    };
    if (std::abs(along) < kSeen) {
      const int character = records_->u8(*writing.record, writing.at + i);
      const formats::Glyph glyph = formats::glyph_of(byte(character));
      for (int k = 0; k < glyph.count; ++k) {
        const formats::Stroke& one = glyph.strokes[static_cast<std::size_t>(k)];
        draw_stroke(ink, spot_of(one.from_x, one.from_y), spot_of(one.to_x, one.to_y));
      }
    }
    along += advance;
  }
  constexpr double kUnder = 6, kThrough = -13;
  if (font.is_underlined) draw_stroke(ink, line.at(0, kUnder), line.at(line.length, kUnder));
  if (font.is_struck) draw_stroke(ink, line.at(0, kThrough), line.at(line.length, kThrough));
}

// With its last dot.
void Player::draw_stroke(const Ink& ink, Spot from, Spot to) {
  painting_.line(state_.clip, ink, from, to);
  if (ink.pen.width > 1) return;
  const auto dot_of = [](double at) {
    constexpr double kFarthest = 1 << 30;
    return static_cast<std::int32_t>(std::floor(std::clamp(at, -kFarthest, kFarthest)));
  };
  painting_.dot(state_.clip, Mix::copy, dot_of(to.x), dot_of(to.y), ink.pen.colour);
}

}  // namespace tq::wmf
