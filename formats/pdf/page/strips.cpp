// Strips are compared with the first, and put in order along its side.
#include "formats/pdf/page/strips.h"

#include <algorithm>
#include <cmath>

namespace tq::pdf::page {
namespace {

using content::Matrix;
using content::Painted;
using content::Rectangle;
using formats::RowSink;

double length(double x, double y) {
  return std::sqrt(x * x + y * y);
}

Rectangle bounds(const Matrix& matrix) {
  return transformed({0, 0, 1, 1}, matrix);
}

bool is_same(const Rectangle& a, const Rectangle& b) {
  return a.left == b.left && a.bottom == b.bottom && a.right == b.right && a.top == b.top;
}

bool is_cut(const Painted& painted) {
  constexpr double kSlack = 1e-3;
  const Rectangle box = bounds(painted.matrix);
  const Rectangle& clip = painted.clip;
  return clip.left > box.left + kSlack || clip.bottom > box.bottom + kSlack ||
         clip.right < box.right - kSlack || clip.top < box.top - kSlack;
}

}  // namespace

std::span<Strips::Strip> Strips::strips() const {
  return {reinterpret_cast<Strip*>(strips_.data()), static_cast<std::size_t>(count_)};
}

// Whether it can be a part of what the first one begins.
bool Strips::add(const image::Picture& picture, const Painted& painted, Strip& strip) {
  const HeaderBlock& own = picture.image();
  const Matrix &first = strips()[0].painted->matrix, &m = painted.matrix;
  const double down = length(first.c, first.d), across = length(first.a, first.b);
  const double row = down / strips()[0].height, column = across / image_.header.biWidth;
  strip = {&painted, own.header.biHeight, -((m.e + m.c) * first.c + (m.f + m.d) * first.d) / down};
  has_runs_ = has_runs_ && picture.has_runs();
  const bool looks_same = own.header.biWidth == image_.header.biWidth &&
                          own.header.biBitCount == image_.header.biBitCount &&
                          own.palette == image_.palette;
  const bool stands_alone = picture.is_opaque() || own.header.biBitCount == 1;
  one_clip_ = one_clip_ && is_same(painted.clip, strips()[0].painted->clip);
  any_cut_ = any_cut_ || is_cut(painted);
  if (!looks_same || !stands_alone || (any_cut_ && !one_clip_)) return false;
  const double scale = own.header.biHeight * row / down;
  return length(m.a - first.a, m.b - first.b) <= column / 2 &&
         length(m.c - first.c * scale, m.d - first.d * scale) <= row / 2;
}

bool Strips::join() {
  const std::span<Strip> all = strips();
  std::sort(all.begin(), all.end(),
            [](const Strip& a, const Strip& b) { return a.place < b.place; });
  const Matrix &top = all.front().painted->matrix, &bottom = all.back().painted->matrix;
  matrix_ = {.a = top.a,
             .b = top.b,
             .c = top.e + top.c - bottom.e,
             .d = top.f + top.d - bottom.f,
             .e = bottom.e,
             .f = bottom.f};
  clip_ = one_clip_ ? all[0].painted->clip : bounds(matrix_);
  std::int64_t height = all[0].height;
  for (std::size_t i = 1; i < all.size(); ++i) {
    height += all[i].height;
    const Matrix &above = all[i - 1].painted->matrix, &m = all[i].painted->matrix;
    const double row = length(m.c, m.d) / all[i].height;
    const double column = length(m.a, m.b) / image_.header.biWidth;
    const double gap = length(m.e + m.c - above.e, m.f + m.d - above.f);
    if (!(gap <= std::min(row, column) / 2)) return false;
  }
  if (height > INT32_MAX) return false;
  image_.header.biHeight = static_cast<std::int32_t>(height);
  return true;
}

Status Strips::open(objects::File& file, std::span<const Painted> pictures) {
  file_ = &file;
  is_one_ = false;
  if (pictures.empty()) return StatusCode::unsupported;
  TQ_TRY(strips_.allocate(pictures.size() * sizeof(Strip)));
  count_ = std::ssize(pictures);
  bool fits = true;
  for (std::ptrdiff_t i = 0; i < count_ && fits; ++i) {
    const Painted& painted = pictures[static_cast<std::size_t>(i)];
    image::Picture picture;
    TQ_TRY(picture.open(file, painted));
    if (i == 0) {
      image_ = picture.image();
      has_runs_ = picture.has_runs();
      strips()[0] = {&painted, image_.header.biHeight, 0};
    }
    if (count_ > 1) fits = add(picture, painted, strips()[static_cast<std::size_t>(i)]);
  }
  if (!fits) return kOk;
  matrix_ = pictures[0].matrix;
  clip_ = pictures[0].clip;
  is_one_ = count_ == 1 || join();
  if (!is_one_) return kOk;
  BitmapInfoHeader& header = image_.header;
  header.biSizeImage = image_bytes(header.biWidth, header.biHeight, header.biBitCount);
  return check_geometry(header);
}

// What one strip lacks stays away; the next one is where it belongs.
Status Strips::decode(const RowSink& sink, formats::FaxRows fax) {
  struct Below {
    const RowSink& sink;
    std::int32_t first;
    static std::int32_t IMG_CB_C put(void* row, void* context, std::int32_t y, std::int32_t bytes) {
      const Below& below = *static_cast<Below*>(context);
      const std::span from(static_cast<const std::uint8_t*>(row), static_cast<std::size_t>(bytes));
      return below.sink.row(from, below.first + y).raw();
    }
  } below{sink, 0};
  for (const Strip& strip : strips()) {
    image::Picture picture;
    TQ_TRY(picture.open(*file_, *strip.painted));
    formats::DecodeNotes notes{.height = strip.height, .whole = sink.notes};
    const RowSink part{nullptr, Below::put, &below, &notes};
    TQ_TRY(picture.decode(part, fax));
    notes.end();
    below.first += strip.height;
  }
  return kOk;
}

}  // namespace tq::pdf::page
