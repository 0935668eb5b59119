// A picture that is not turned is painted while it is decoded; others are kept, at the size that they
// are seen at.
#include "formats/pdf/page/compose.h"

#include <algorithm>
#include <cmath>

#include "formats/pdf/page/canvas.h"
#include "pixels/colours.h"

namespace tq::pdf::page {
namespace {

using content::Matrix;
using content::Painted;
using content::Rectangle;
using formats::RowSink;
using image::Picture;

// From the page's own units to those of the page as it is shown, counted from its top left corner.
Matrix shown(const Page& page) {
  const Rectangle& box = page.box;
  switch (page.rotate) {
    case 90:
      return {.a = 0, .b = 1, .c = 1, .d = 0, .e = -box.bottom, .f = -box.left};
    case 180:
      return {.a = -1, .b = 0, .c = 0, .d = 1, .e = box.right, .f = -box.bottom};
    case 270:
      return {.a = 0, .b = -1, .c = -1, .d = 0, .e = box.top, .f = box.right};
    default:
      return {.a = 1, .b = 0, .c = 0, .d = -1, .e = -box.left, .f = box.top};
  }
}

double length(double x, double y) {
  return std::sqrt(x * x + y * y);
}

std::int32_t clamped(double value) {
  return static_cast<std::int32_t>(std::clamp(value, -1e9, 1e9));
}
// The first pixel whose centre is not before `edge`.
std::int32_t first_pixel(double edge) {
  return clamped(std::ceil(edge - 0.5));
}

struct PixelBox {
  std::int32_t left = 0, top = 0, right = 0, bottom = 0;
};

PixelBox box_of(const Matrix& m, const Rectangle& r) {
  const Rectangle box = transformed(r, m);
  return {first_pixel(box.left), first_pixel(box.bottom), first_pixel(box.right),
          first_pixel(box.top)};
}

// --- How fine the page becomes ---

// Of a picture, what the plan has to know.
struct Layer {
  const Painted* painted;
  std::int32_t width, height;  // with what masks it
  bool is_two_levels, is_grey, is_left_out;
};

struct Plan {
  std::int32_t width = 0, height = 0;
  int bits = 24;
  Resolution resolution;
  Matrix to_pixels;  // from the page's own units
};

// Pixels of a unit, across and down.
struct Density {
  double x = 0, y = 0;
};

Density density_of(const Layer& layer, const Matrix& to_shown) {
  const Matrix m = layer.painted->matrix * to_shown;
  const double across = length(m.a, m.b), down = length(m.c, m.d);
  if (!(across > 0) || !(down > 0)) return {};
  const double x = layer.width / across, y = layer.height / down;
  return std::abs(m.a) >= std::abs(m.b) ? Density{x, y} : Density{y, x};
}

// unsupported where nothing is seen.
Status make_plan(std::span<const Layer> layers, const Page& page, Plan& plan) {
  constexpr double kSmall = 0.05, kMostDots = 1200, kPoints = 72;
  constexpr double kMost = 1 << 30;  // pixels, and bytes
  const Rectangle& box = page.box;
  const double width = box.right - box.left, height = box.top - box.bottom;
  const Matrix to_shown = shown(page);
  Density most, most_of_small;
  bool two_levels = true, grey = true;
  for (const Layer& layer : layers) {
    const Matrix& m = layer.painted->matrix;
    const Rectangle place = intersection(transformed({0, 0, 1, 1}, m), layer.painted->clip);
    const Rectangle seen = intersection(place, box);
    if (layer.is_left_out || seen.is_empty()) continue;
    two_levels = two_levels && layer.is_two_levels;
    grey = grey && layer.is_grey;
    const double area = std::min(std::abs(m.a * m.d - m.b * m.c), seen.area());
    const bool small = area < kSmall * width * height;
    Density& known = small ? most_of_small : most;
    const Density own = density_of(layer, to_shown);
    known = {std::max(known.x, own.x), std::max(known.y, own.y)};
  }
  if (most.x == 0 || most.y == 0) most = most_of_small;
  if (most.x == 0 || most.y == 0) return StatusCode::unsupported;
  const double per_unit = kMostDots * page.user_unit / kPoints;
  double x = std::min(most.x, per_unit), y = std::min(most.y, per_unit);
  const bool on_side = page.rotate == 90 || page.rotate == 270;
  const double shown_width = on_side ? height : width, shown_height = on_side ? width : height;
  plan.bits = two_levels ? 1 : grey ? 8 : 24;
  const double area = x * shown_width * y * shown_height;
  const double less = std::sqrt(kMost / (area * std::max(plan.bits / 8, 1)));
  if (less < 1) {
    x *= less;
    y *= less;
  }
  const double rounding = less < 1 ? 0 : 0.5;
  plan.width = std::max(clamped(std::floor(shown_width * x + rounding)), 1);
  plan.height = std::max(clamped(std::floor(shown_height * y + rounding)), 1);
  // The page's sides become whole pixels.
  const double scale_x = plan.width / shown_width, scale_y = plan.height / shown_height;
  plan.to_pixels = to_shown * Matrix{.a = scale_x, .d = scale_y};
  const auto thousandths = [&](double pixels) {
    const double dots = 1000 * pixels * kPoints / page.user_unit;
    return static_cast<std::int32_t>(
        std::clamp(std::floor(dots + 0.5), 0.0, static_cast<double>(Resolution::kMost)));
  };
  plan.resolution = {thousandths(x), thousandths(y)};
  return kOk;
}

// --- One picture ---

// Rows of colours to fewer and shorter ones: means of what falls into a pixel, by alpha, or what lies
// in its middle.
class Reducer {
 public:
  Status open(std::int32_t width, std::int32_t height, std::int32_t to_width,
              std::int32_t to_height, bool means) {
    width_ = width;
    height_ = height;
    to_width_ = to_width;
    to_height_ = to_height;
    means_ = means && (width > to_width || height > to_height);
    TQ_TRY(row_.allocate(to_width));
    return means_ ? sums_.allocate(to_width) : kOk;
  }

  // Calls take(row, y) when a row is whole.
  template <class Take>
  Status add(std::span<const Rgb> row, std::int32_t y, Take&& take) {
    if (!means_) {
      for (; next_ < to_height_ && middle(next_, height_, to_height_) == y; ++next_) {
        for (std::int32_t x = 0; x < to_width_; ++x) row_[x] = row[middle(x, width_, to_width_)];
        TQ_TRY(take(row_.pixels(), next_));
      }
      return kOk;
    }
    for (std::int32_t x = 0; x < to_width_; ++x) {
      for (std::int32_t i = first(x, width_, to_width_); i < first(x + 1, width_, to_width_); ++i) {
        sums_[x].add(row[i]);
      }
    }
    if (y + 1 < first(next_ + 1, height_, to_height_)) return kOk;
    for (std::int32_t x = 0; x < to_width_; ++x) row_[x] = sums_[x].mean();
    std::ranges::fill(sums_.pixels(), Sum{});
    return take(row_.pixels(), next_++);
  }

 private:
  struct Sum {
    std::uint64_t blue, green, red, alpha, count;
    void add(Rgb c) {
      blue += std::uint64_t{c.blue} * c.reserved;
      green += std::uint64_t{c.green} * c.reserved;
      red += std::uint64_t{c.red} * c.reserved;
      alpha += c.reserved;
      ++count;
    }
    Rgb mean() const {
      if (alpha == 0) return {};
      const auto of = [&](std::uint64_t sum) { return byte((sum + alpha / 2) / alpha); };
      return {of(blue), of(green), of(red), byte((alpha + count / 2) / count)};
    }
  };

  static std::int32_t first(std::int64_t place, std::int32_t own, std::int32_t places) {
    return static_cast<std::int32_t>(place * own / places);
  }
  static std::int32_t middle(std::int64_t place, std::int32_t own, std::int32_t places) {
    return static_cast<std::int32_t>((2 * place + 1) * own / (2 * places));
  }

  std::int32_t width_ = 0, height_ = 0, to_width_ = 0, to_height_ = 0, next_ = 0;
  bool means_ = false;
  RowBuffer<Rgb> row_;
  RowBuffer<Sum> sums_;
};

class LayerPainter {
 public:
  LayerPainter(Picture& picture, Canvas& canvas) : picture_(picture), canvas_(canvas) {}

  // Pixels that this takes: of the picture, and of the canvas.
  std::int64_t work() const {
    return std::int64_t{picture_.width()} * picture_.height() +
           std::int64_t{picture_.alpha_width()} * picture_.alpha_height() +
           std::int64_t{box_.right - box_.left} * (box_.bottom - box_.top);
  }
  bool is_seen() const { return box_.left < box_.right && box_.top < box_.bottom; }

  // `m` leads from the unit square to the canvas, `clip` is there already.
  void place(const Matrix& m, const PixelBox& clip) {
    to_canvas_ = m;
    const PixelBox whole = box_of(m, {0, 0, 1, 1});
    box_ = {std::max({whole.left, clip.left, 0}), std::max({whole.top, clip.top, 0}),
            std::min({whole.right, clip.right, canvas_.width()}),
            std::min({whole.bottom, clip.bottom, canvas_.height()})};
    constexpr double kLittle = 1e-3;
    const double most = std::max({std::abs(m.a), std::abs(m.b), std::abs(m.c), std::abs(m.d)});
    is_upright_ = std::abs(m.b) < kLittle * most && std::abs(m.c) < kLittle * most;
    determinant_ = m.a * m.d - m.b * m.c;
    if (!(std::abs(determinant_) > 0)) box_ = {};
  }

  Status paint(const RowSink& damage) {
    const Matrix& m = to_canvas_;
    width_ = reduced(picture_.width(), length(m.a, m.b));
    height_ = reduced(picture_.height(), length(m.c, m.d));
    const bool means = canvas_.bits() > 1;
    TQ_TRY(reducer_.open(picture_.width(), picture_.height(), width_, height_, means));
    TQ_TRY(picture_.load_alpha(damage.notes));
    if (is_upright_) {
      TQ_TRY(find_places());
    } else {
      const std::int64_t pixels = std::int64_t{width_} * height_;
      if (pixels > kMostKept) return StatusCode::out_of_memory;
      TQ_TRY(kept_.allocate(pixels));
    }
    TQ_TRY(picture_.decode_colours({nullptr, put, this, damage.notes}));
    return is_upright_ ? kOk : paint_kept();
  }

 private:
  static constexpr std::int64_t kMostKept = 1 << 28;

  static std::int32_t reduced(std::int32_t own, double seen) {
    return std::clamp(clamped(std::floor(seen + 0.5)), 1, own);
  }

  static std::int32_t IMG_CB_C put(void* row, void* context, std::int32_t y, std::int32_t bytes) {
    auto& painter = *static_cast<LayerPainter*>(context);
    const std::span colours(static_cast<const Rgb*>(row), bytes / sizeof(Rgb));
    return painter.reducer_
        .add(colours, y,
             [&](std::span<Rgb> reduced_row, std::int32_t reduced_y) {
               return painter.take(reduced_row, reduced_y);
             })
        .raw();
  }

  // Of the reduced picture: alpha is completed, then it is painted or kept.
  Status take(std::span<Rgb> row, std::int32_t y) {
    const image::AlphaPlane& plane = picture_.alpha();
    const int constant = picture_.constant_alpha();
    if (!plane.is_empty() || constant < 255) {
      for (std::int32_t x = 0; x < width_; ++x) {
        const int apart = plane.is_empty() ? 255 : plane.at(x, y, width_, height_);
        const int alpha = (row[x].reserved * constant + 127) / 255;
        row[x].reserved = byte((alpha * apart + 127) / 255);
      }
    }
    if (!is_upright_) {
      std::ranges::copy(row, kept_.data() + std::ptrdiff_t{y} * width_);
      return kOk;
    }
    // Rows ascend or descend as the picture's do.
    const bool falls = to_canvas_.d > 0;
    for (; next_row_ < box_.bottom - box_.top; ++next_row_) {
      const std::int32_t at = falls ? box_.bottom - 1 - next_row_ : box_.top + next_row_;
      const std::int32_t place = place_of(at + 0.5, to_canvas_.f, to_canvas_.d, height_, true);
      if (place > y) break;
      if (place < y) continue;
      pixels::Row out;
      TQ_TRY(canvas_.touch(at, out));
      for (std::int32_t x = box_.left; x < box_.right; ++x) {
        mix(row[columns_[x - box_.left]], x, out);
      }
    }
    return kOk;
  }

  // Which of so many pixels along the way from `origin` over `whole` lies here.
  static std::int32_t place_of(double at, double origin, double whole, std::int32_t pixels,
                               bool from_end) {
    const double share = (at - origin) / whole;
    const double place = std::floor((from_end ? 1 - share : share) * pixels);
    return std::clamp(clamped(place), 0, pixels - 1);
  }

  Status find_places() {
    TQ_TRY(columns_.allocate(box_.right - box_.left));
    for (std::int32_t x = box_.left; x < box_.right; ++x) {
      columns_[x - box_.left] = place_of(x + 0.5, to_canvas_.e, to_canvas_.a, width_, false);
    }
    return kOk;
  }

  Status paint_kept() {
    const Matrix& m = to_canvas_;
    for (std::int32_t y = box_.top; y < box_.bottom; ++y) {
      pixels::Row out;
      TQ_TRY(canvas_.touch(y, out));
      for (std::int32_t x = box_.left; x < box_.right; ++x) {
        const double dx = x + 0.5 - m.e, dy = y + 0.5 - m.f;
        const double u = (dx * m.d - dy * m.c) / determinant_;
        const double v = 1 - (dy * m.a - dx * m.b) / determinant_;
        if (u < 0 || u >= 1 || v < 0 || v >= 1) continue;
        const std::int32_t i = clamped(u * width_), j = clamped(v * height_);
        mix(kept_[std::ptrdiff_t{j} * width_ + i], x, out);
      }
    }
    return kOk;
  }

  void mix(Rgb colour, std::int32_t x, pixels::Row out) const {
    const int alpha = colour.reserved;
    if (alpha == 0) return;
    const auto over = [alpha](int below, int level) {
      return byte((level * alpha + below * (255 - alpha) + 127) / 255);
    };
    switch (canvas_.bits()) {
      case 1: {
        if (alpha < 128) return;
        const int bit = 128 >> x % 8;
        out[x / 8] = byte(colour.green >= 128 ? out[x / 8] | bit : out[x / 8] & ~bit);
        return;
      }
      case 8:
        out[x] = over(out[x], colour.green);
        return;
      default:
        out[3 * x] = over(out[3 * x], colour.blue);
        out[3 * x + 1] = over(out[3 * x + 1], colour.green);
        out[3 * x + 2] = over(out[3 * x + 2], colour.red);
        return;
    }
  }

  Picture& picture_;
  Canvas& canvas_;
  Matrix to_canvas_;
  PixelBox box_;
  bool is_upright_ = false;
  double determinant_ = 0;
  std::int32_t width_ = 0, height_ = 0;  // as it is painted
  std::int32_t next_row_ = 0;            // of the box, in the picture's order
  Reducer reducer_;
  RowBuffer<std::int32_t> columns_;
  RowBuffer<Rgb> kept_;
};

// --- All of them ---

Status read_layers(objects::File& file, std::span<const Painted> pictures,
                   std::span<Layer> layers) {
  Status first = StatusCode::unsupported;
  bool any = false, all = true;
  for (std::size_t i = 0; i < layers.size(); ++i) {
    Picture picture;
    const Status opened = picture.open(file, pictures[i]);
    if (opened == StatusCode::out_of_memory || opened == StatusCode::read_failed) return opened;
    layers[i] = {&pictures[i], 0, 0, true, true, opened.failed()};
    if (opened.failed()) {
      if (all) first = opened;
      all = false;
      continue;
    }
    any = true;
    layers[i].width = std::max(picture.width(), picture.alpha_width());
    layers[i].height = std::max(picture.height(), picture.alpha_height());
    layers[i].is_two_levels = picture.is_two_levels();
    layers[i].is_grey = picture.is_grey();
  }
  return any ? kOk : first;
}

Status paint_all(objects::File& file, std::span<const Layer> layers, const Plan& plan,
                 Canvas& canvas, const RowSink& sink) {
  // A few bytes may paint any number of large pictures.
  constexpr std::int64_t kMostWork = std::int64_t{1} << 32;  // pixels
  std::int64_t work = 0;
  for (const Layer& layer : layers) {
    if (layer.is_left_out) {
      sink.damaged(StatusCode::unsupported);
      continue;
    }
    Picture picture;
    TQ_TRY(picture.open(file, *layer.painted));
    LayerPainter painter(picture, canvas);
    painter.place(layer.painted->matrix * plan.to_pixels,
                  box_of(plan.to_pixels, layer.painted->clip));
    if (!painter.is_seen()) continue;
    work += painter.work();
    if (work > kMostWork) return StatusCode::unsupported;
    formats::DecodeNotes notes{.height = picture.height(), .whole = sink.notes};
    TQ_TRY(painter.paint({nullptr, nullptr, nullptr, &notes}));
    notes.end();
  }
  return kOk;
}

}  // namespace

Status compose(objects::File& file, std::span<const Painted> pictures, const Page& page,
               const RowSink& sink) {
  if (pictures.empty()) return StatusCode::unsupported;
  RowBuffer<Layer> layers;
  TQ_TRY(layers.allocate(std::ssize(pictures)));
  TQ_TRY(read_layers(file, pictures, layers.pixels()));
  Plan plan;
  TQ_TRY(make_plan(layers.pixels(), page, plan));
  HeaderBlock image = dib_header(plan.width, plan.height, plan.bits);
  if (plan.bits <= 8) image.palette = pixels::grey_levels(plan.bits);
  image.header.biXPelsPerMeter = (plan.resolution.x + 500) / 1000;
  image.header.biYPelsPerMeter = (plan.resolution.y + 500) / 1000;
  sink.resolution(plan.resolution);
  TQ_TRY(sink.header(image));
  Canvas canvas;
  TQ_TRY(canvas.allocate(plan.width, plan.height, plan.bits));
  TQ_TRY(paint_all(file, layers.pixels(), plan, canvas, sink));
  for (std::int32_t y = 0; y < plan.height; ++y) TQ_TRY(sink.row(canvas.take(y), y));
  return kOk;
}

}  // namespace tq::pdf::page
