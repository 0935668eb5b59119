// Coefficients to samples, samples to pixels, pixels to the sink.
#include "formats/jpeg/decode/picture.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "pixels/kernels.h"

namespace tq::jpeg {
namespace {

constexpr int ceil_div(int a, int b) {
  return (a + b - 1) / b;
}

}  // namespace

Geometry::Geometry(const Frame& frame)
    : width(frame.width), height(frame.height), count(frame.count) {
  for (int i = 0; i < count; ++i) {
    h_most = std::max<int>(h_most, frame.components[i].h);
    v_most = std::max<int>(v_most, frame.components[i].v);
  }
  // The only component's factors have no meaning.
  if (count == 1) h_most = v_most = 1;
  mcu_columns = ceil_div(width, 8 * h_most);
  mcu_rows = ceil_div(height, 8 * v_most);
  for (int i = 0; i < count; ++i) {
    Grid& grid = grids[i];
    grid.h = count == 1 ? 1 : frame.components[i].h;
    grid.v = count == 1 ? 1 : frame.components[i].v;
    grid.width = ceil_div(width * grid.h, h_most);
    grid.height = ceil_div(height * grid.v, v_most);
    grid.columns = ceil_div(grid.width, 8);
    grid.rows = ceil_div(grid.height, 8);
    grid.padded_columns = mcu_columns * grid.h;
  }
}

Status CoefficientStore::allocate(const Geometry& geometry) {
  std::uint64_t total = 0;
  std::array<std::uint64_t, kMostComponents> counts{};  // blocks
  for (int i = 0; i < geometry.count; ++i) {
    const Grid& grid = geometry.grids[i];
    counts[i] = std::uint64_t{1} * grid.padded_columns * grid.v * geometry.mcu_rows;
    total += counts[i];
  }
  TQ_TRY(room_.allocate(total * (sizeof(std::uint64_t) + (kBlock + 1) * sizeof(std::int16_t))));
  // In the order of their alignment.
  auto* present = reinterpret_cast<std::uint64_t*>(room_.data());
  auto* blocks = reinterpret_cast<std::int16_t*>(present + total);
  std::int16_t* dc = blocks + total * kBlock;
  for (int i = 0; i < geometry.count; ++i) {
    parts_[i] = {{dc, present, blocks}, geometry.grids[i].padded_columns};
    dc += counts[i];
    present += counts[i];
    blocks += counts[i] * kBlock;
  }
  return kOk;
}

StoredRow CoefficientStore::row(int component, int y) {
  Part& part = parts_[component];
  const auto row_at = [&](int row) {
    const std::ptrdiff_t offset = std::ptrdiff_t{row} * part.columns;
    const StoredRow& first = part.first;
    return StoredRow{first.dc + offset, first.present + offset, first.blocks + offset * kBlock};
  };
  for (; part.cleared <= y; ++part.cleared) {
    const StoredRow row = row_at(part.cleared);
    std::fill_n(row.dc, part.columns, std::int16_t{0});
    std::fill_n(row.present, part.columns, std::uint64_t{0});
  }
  return row_at(y);
}

Layout choose_layout(const Tables& tables) {
  const Frame& frame = tables.frame;
  const Adobe& adobe = tables.adobe;
  if (frame.count == 1) return frame.precision == 12 ? Layout::grey_12 : Layout::grey;
  if (frame.count == 3) {
    return adobe.present && adobe.transform == 0 ? Layout::rgb : Layout::ycc;
  }
  if (!adobe.present) return Layout::cmyk;
  if (adobe.transform == 2) return Layout::ycck;
  return adobe.transform == 0 ? Layout::inverted_cmyk : Layout::cmyk;
}

Layout choose_usual_layout(const Tables& tables) {
  const Frame& frame = tables.frame;
  if (frame.count == 1) return choose_layout(tables);
  const bool untransformed = tables.adobe.present && tables.adobe.transform == 0;
  if (frame.count == 3) {
    if (tables.has_jfif) return Layout::ycc;
    if (tables.adobe.present) return untransformed ? Layout::rgb : Layout::ycc;
    const auto& c = frame.components;
    return c[0].id == 'R' && c[1].id == 'G' && c[2].id == 'B' ? Layout::rgb : Layout::ycc;
  }
  return tables.adobe.present && !untransformed ? Layout::ycck : Layout::inverted_cmyk;
}

int layout_bits(Layout layout) {
  switch (layout) {
    case Layout::grey:
      return 8;
    case Layout::grey_12:
      return 16;
    case Layout::ycc:
    case Layout::rgb:
      return 24;
    default:
      return 32;
  }
}

Status Reconstruction::allocate(const Geometry& geometry, Layout layout, Accuracy accuracy) {
  geometry_ = &geometry;
  layout_ = layout;
  kernels_ = kernels(accuracy);
  const int sample_bytes = layout == Layout::grey_12 ? 2 : 1;
  std::uint64_t total = kKernelMargin;
  std::array<std::uint64_t, kMostComponents> offsets{};
  for (int i = 0; i < geometry.count; ++i) {
    const Grid& grid = geometry.grids[i];
    widening_[i] = choose_widening(grid);
    const bool down = widening_[i] == Widening::down || widening_[i] == Widening::both;
    smooth_down_ = smooth_down_ || down;
    strides_[i] = std::ptrdiff_t{8} * grid.padded_columns * sample_bytes + kKernelMargin;
    offsets[i] = total + strides_[i];  // behind the last row of the MCU row above
    total = offsets[i] + std::uint64_t{8} * grid.v * strides_[i];
  }
  TQ_TRY(samples_.allocate(total + kKernelMargin));
  for (int i = 0; i < geometry.count; ++i) planes_[i] = samples_.data() + offsets[i];
  const Grid& first = geometry.grids[0];
  halved_chroma_ =
      accuracy == Accuracy::coarse && layout == Layout::ycc && first.h == geometry.h_most;
  for (int i = 1; i < geometry.count; ++i) {
    halved_chroma_ = halved_chroma_ && 2 * geometry.grids[i].h == geometry.h_most;
  }
  const std::uint64_t padded = std::uint64_t{8} * geometry.mcu_columns * geometry.h_most;
  TQ_TRY(widened_.allocate((padded + kKernelMargin) * kMostComponents));
  return row_.allocate(row_bytes(geometry.width, layout_bits(layout)));
}

void Reconstruction::choose_wanted(const formats::WantedPart* wanted) {
  if (wanted == nullptr) return;
  const bool all_columns = wanted->left <= 0 && wanted->right >= geometry_->width;
  const bool all_rows =
      wanted->top <= 0 && wanted->bottom >= geometry_->height && wanted->scaled_height == 0;
  if (!all_columns || !all_rows) wanted_ = wanted;
}

// Smooth chroma looks at the samples around those of a pixel.
int Reconstruction::around() const {
  return kernels_.accuracy == Accuracy::exact ? 8 : 0;
}

bool Reconstruction::needs(int component, int column, int row) const {
  const Grid& grid = geometry_->grids[component];
  const int across = 8 * geometry_->h_most;
  const int left = column * across / grid.h - around();
  const int right = ceil_div((column + 1) * across, grid.h) + around();
  return needed_rows_[component][row] && right > wanted_->left && left < wanted_->right;
}

void Reconstruction::begin_row(int y) {
  if (wanted_ == nullptr) return;
  for (int i = 0; i < geometry_->count; ++i) {
    const int v = geometry_->grids[i].v, down = 8 * geometry_->v_most;
    for (int row = 0; row < v; ++row) {
      const int top = y + row * down / v, bottom = y + ceil_div((row + 1) * down, v);
      needed_rows_[i][row] = wanted_->has_row_of(top - around(), bottom + around());
    }
  }
}

Reconstruction::Widening Reconstruction::choose_widening(const Grid& grid) const {
  constexpr int kFewestSmooth = 3;  // samples across
  const bool halved = 2 * grid.h == geometry_->h_most, full = grid.h == geometry_->h_most;
  const bool halved_down = 2 * grid.v == geometry_->v_most, full_down = grid.v == geometry_->v_most;
  if (kernels_.accuracy == Accuracy::exact) {
    if (full && halved_down) return Widening::down;
    const bool wide = grid.width >= kFewestSmooth;
    if (halved && full_down && wide) return Widening::across;
    if (halved && halved_down && wide) return Widening::both;
  }
  return full ? Widening::none : Widening::repeat;
}

void Reconstruction::set_quantisation(int component, const QuantisationTable& table) {
  DequantiseTable& own = tables_[component];
  own.small = true;
  for (int i = 0; i < kBlock; ++i) {
    own.steps[kColumnOrder[i]] = table[i];
    own.small = own.small && table[i] < 1024;
  }
}

std::uint8_t* Reconstruction::place(int component, int column, int row) const {
  const int sample_bytes = layout_ == Layout::grey_12 ? 2 : 1;
  return planes_[component] + 8 * row * strides_[component] +
         std::ptrdiff_t{8} * column * sample_bytes;
}

// The coarse level shift is one less than half the range: callers rely on it.
int Reconstruction::level_shift_12() const {
  return kernels_.accuracy == Accuracy::coarse ? 2047 : 2048;
}

void Reconstruction::put_flat(int component, int column, int row, std::int16_t dc) {
  std::uint8_t* const samples = place(component, column, row);
  const std::ptrdiff_t stride = strides_[component];
  if (layout_ == Layout::grey_12) {
    std::int16_t block[kBlock] = {dc};
    inverse_transform_12(block, tables_[component], level_shift_12(),
                         reinterpret_cast<std::uint16_t*>(samples), stride / 2);
    return;
  }
  const std::int32_t scaled = dc * tables_[component].steps[0];
  const std::uint8_t level = limited((scaled >> 3) + (scaled >> 2 & 1), kernels_.dark_from);
  const std::uint64_t eight = level * 0x0101010101010101u;
  for (int y = 0; y < 8; ++y) std::memcpy(samples + y * stride, &eight, 8);
}

void Reconstruction::put(int component, int column, int row, const std::int16_t* coefficients,
                         std::uint32_t ac_magnitude) {
  const DequantiseTable& table = tables_[component];
  if (ac_magnitude == 0 && table.small) {
    put_flat(component, column, row, coefficients[0]);
    return;
  }
  std::uint8_t* const samples = place(component, column, row);
  const std::ptrdiff_t stride = strides_[component];
  if (layout_ == Layout::grey_12) {
    inverse_transform_12(coefficients, table, level_shift_12(),
                         reinterpret_cast<std::uint16_t*>(samples), stride / 2);
    return;
  }
  const int dc = coefficients[0] * table.steps[0];
  if (!table.small || ac_magnitude + std::abs(dc) >= kernels_.small_below) {
    kernels_.inverse(coefficients, table, samples, stride);
    return;
  }
  Waiting& first = waiting_[component];
  if (first.coefficients == nullptr) {
    first = {coefficients, samples};
    return;
  }
  kernels_.inverse_small_pair({first.coefficients, coefficients}, table, {first.samples, samples},
                              stride);
  first = {};
}

void Reconstruction::flush() {
  for (int i = 0; i < geometry_->count; ++i) {
    const Waiting last = std::exchange(waiting_[i], {});
    if (last.coefficients == nullptr) continue;
    kernels_.inverse_small(last.coefficients, tables_[i], last.samples, strides_[i]);
  }
}

// The component's samples for row `y` of the MCU row as they are; -1 is the last one of that above.
const std::uint8_t* Reconstruction::row_of(int component, int y) const {
  const Grid& grid = geometry_->grids[component];
  const int row = y < 0 ? -1 : y * grid.v / geometry_->v_most;
  return planes_[component] + row * strides_[component];
}

// The row of half as many that row `y` lies in, and the one on its other side; rows beyond those of
// the picture are the nearest that it has.
NearFar Reconstruction::near_and_far(int component, int y) const {
  const Grid& grid = geometry_->grids[component];
  const int near = y < 0 ? -1 : y / 2;
  const int least = top_ == 0 ? 0 : -1;
  const int most = ended_ ? -1 : grid.height - top_ * grid.v / geometry_->v_most - 1;
  const int far = std::clamp((y & 1) != 0 ? near + 1 : near - 1, least, most);
  const auto row = [&](int i) { return planes_[component] + i * strides_[component]; };
  return {row(near), row(far)};
}

// The same, one per pixel.
const std::uint8_t* Reconstruction::full_row(int component, int y, std::uint8_t* room) const {
  const Grid& grid = geometry_->grids[component];
  const std::uint8_t* samples = row_of(component, y);
  switch (widening_[component]) {
    case Widening::none:
      return samples;
    case Widening::repeat:
      for (int x = 0; x < geometry_->width; ++x) room[x] = samples[x * grid.h / geometry_->h_most];
      break;
    case Widening::across:
      kernels_.smooth_across(samples, room, grid.width);
      break;
    case Widening::down:
      kernels_.smooth_down(near_and_far(component, y), (y & 1) != 0 ? 2 : 1, room, grid.width);
      break;
    case Widening::both:
      kernels_.smooth_both(near_and_far(component, y), room, grid.width);
      break;
  }
  return room;
}

// One more sample on either side of the rows whose neighbours are asked for.
void Reconstruction::repeat_edges() {
  for (int i = 0; i < geometry_->count; ++i) {
    if (widening_[i] != Widening::across && widening_[i] != Widening::both) continue;
    const Grid& grid = geometry_->grids[i];
    std::uint8_t* row = planes_[i];
    for (int y = 0; y < 8 * grid.v; ++y, row += strides_[i]) {
      row[-1] = row[0];
      row[grid.width] = row[grid.width - 1];
    }
  }
}

void Reconstruction::keep_last_rows() {
  for (int i = 0; i < geometry_->count; ++i) {
    const std::uint8_t* const last = row_of(i, geometry_->mcu_height() - 1);
    std::copy_n(last - 1, strides_[i], planes_[i] - strides_[i] - 1);
  }
}

void Reconstruction::make_row(int y) {
  const int width =
      wanted_ != nullptr ? std::min<int>(geometry_->width, wanted_->right) : geometry_->width;
  std::uint8_t* const out = row_.data();
  if (layout_ == Layout::ycc && halved_chroma_) {
    kernels_.ycc_to_bgr_halved(row_of(0, y), row_of(1, y), row_of(2, y), out, width);
    return;
  }
  std::array<const std::uint8_t*, kMostComponents> planes;
  planes.fill(planes_[0]);
  const std::size_t room = widened_.size() / kMostComponents;
  for (int i = 0; i < geometry_->count; ++i) {
    planes[i] = full_row(i, y, widened_.data() + i * room);
  }
  switch (layout_) {
    case Layout::ycc:
      kernels_.ycc_to_bgr(planes[0], planes[1], planes[2], out, width);
      break;
    case Layout::rgb:
      pixels::kernels().merge_planes(planes[2], planes[1], planes[0], out, width);
      break;
    case Layout::ycck:
      kernels_.ycc_to_bgr(planes[0], planes[1], planes[2], out, width);
      // What the encoder makes of 32 bits: red first, and the fourth byte inverted. In place, from
      // the right.
      for (int x = width - 1; x >= 0; --x) {
        const std::uint8_t blue = out[3 * x], green = out[3 * x + 1], red = out[3 * x + 2];
        out[4 * x] = red;
        out[4 * x + 1] = green;
        out[4 * x + 2] = blue;
        out[4 * x + 3] = byte(255 - planes[3][x]);
      }
      break;
    case Layout::cmyk:
    case Layout::inverted_cmyk: {
      const int mask = layout_ == Layout::cmyk ? 0 : 0xFF;
      for (int x = 0; x < width; ++x) {
        for (int i = 0; i < 4; ++i) out[4 * x + i] = byte(planes[i][x] ^ mask);
      }
      break;
    }
    default:
      break;
  }
}

Status Reconstruction::deliver_row(const formats::RowSink& sink, int y) {
  const int used = geometry_->width * (layout_bits(layout_) / 8);
  const bool grey = layout_ == Layout::grey || layout_ == Layout::grey_12;
  // Grey samples are pixels, and there is room behind them.
  const std::span row(grey ? planes_[0] + y * strides_[0] : row_.data(), row_.size());
  if (!grey && (wanted_ == nullptr || wanted_->has_row(top_ + y))) make_row(y);
  std::fill(row.begin() + used, row.end(), std::uint8_t{0});
  return sink.row(row, top_ + y);
}

Status Reconstruction::deliver(const formats::RowSink& sink, int y) {
  top_ = y;
  repeat_edges();
  const int rows = std::min(geometry_->mcu_height(), geometry_->height - y);
  const int first = waits_ ? -1 : 0;
  waits_ = smooth_down_ && y + rows < geometry_->height;
  const int end = waits_ ? rows - 1 : rows;
  for (int i = first; i < end; ++i) TQ_TRY(deliver_row(sink, i));
  if (waits_) keep_last_rows();
  return kOk;
}

int Reconstruction::delivered_to() const {
  const int end = std::min(top_ + geometry_->mcu_height(), geometry_->height);
  return end - (waits_ ? 2 : 1);
}

Status Reconstruction::finish(const formats::RowSink& sink) {
  if (!waits_) return kOk;
  waits_ = false;
  ended_ = true;
  top_ += geometry_->mcu_height();
  return deliver_row(sink, -1);
}

}  // namespace tq::jpeg
