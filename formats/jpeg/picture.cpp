// Blocks to samples, samples to pixels, pixels to the sink.
#include "formats/jpeg/picture.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace tq::formats {
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
    grid.columns = ceil_div(ceil_div(width * grid.h, h_most), 8);
    grid.rows = ceil_div(ceil_div(height * grid.v, v_most), 8);
    grid.padded_columns = mcu_columns * grid.h;
  }
}

Layout choose_layout(const Tables& tables) {
  const Frame& frame = tables.frame;
  const Adobe& adobe = tables.adobe;
  if (frame.count == 1) return frame.precision == 12 ? Layout::grey_12 : Layout::grey;
  if (frame.count == 3) {
    return adobe.present && adobe.transform == 0 ? Layout::rgb : Layout::ycc;
  }
  if (!adobe.present) return Layout::planes;
  if (adobe.transform == 2) return Layout::ycck;
  return adobe.transform == 0 ? Layout::inverted_planes : Layout::planes;
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

Status Band::allocate(const Geometry& geometry, Layout layout) {
  geometry_ = &geometry;
  layout_ = layout;
  kernels_ = jpeg_kernels();
  const int sample_bytes = layout == Layout::grey_12 ? 2 : 1;
  std::uint64_t total = 0;
  std::array<std::uint64_t, kMostComponents> offsets{};
  for (int i = 0; i < geometry.count; ++i) {
    const Grid& grid = geometry.grids[i];
    strides_[i] = std::ptrdiff_t{8} * grid.padded_columns * sample_bytes + kKernelMargin;
    offsets[i] = total;
    total += static_cast<std::uint64_t>(strides_[i]) * 8 * grid.v;
  }
  TQ_TRY(samples_.allocate(total + kKernelMargin));
  for (int i = 0; i < geometry.count; ++i) planes_[i] = samples_.data() + offsets[i];
  const Grid& first = geometry.grids[0];
  halved_chroma_ = layout == Layout::ycc && first.h == geometry.h_most;
  for (int i = 1; i < geometry.count; ++i) {
    halved_chroma_ = halved_chroma_ && 2 * geometry.grids[i].h == geometry.h_most;
  }
  const auto padded = static_cast<std::uint64_t>(geometry.mcu_columns) * 8 * geometry.h_most;
  TQ_TRY(widened_.allocate((padded + kKernelMargin) * kMostComponents));
  row_bytes_ = static_cast<std::size_t>(row_bytes(geometry.width, layout_bits(layout)));
  return row_.allocate(static_cast<std::int64_t>(row_bytes_) + 3 * kKernelMargin);
}

void Band::set_quantiser(int component, const Quantiser& quantiser) {
  DequantiseTable& table = tables_[component];
  places_[component] = places_of(quantiser);
  table.small = true;
  for (std::size_t i = 0; i < kBlock; ++i) {
    table.steps[kColumnOrder[i]] = quantiser[i];
    table.small = table.small && quantiser[i] < 1024;
  }
}

std::uint8_t* Band::place(int component, int column, int row) const {
  const int sample_bytes = layout_ == Layout::grey_12 ? 2 : 1;
  return planes_[component] + 8 * row * strides_[component] +
         std::ptrdiff_t{8} * column * sample_bytes;
}

void Band::put_flat(int component, int column, int row, std::int16_t dc) {
  std::uint8_t* const samples = place(component, column, row);
  const std::ptrdiff_t stride = strides_[component];
  if (layout_ == Layout::grey_12) {
    std::int16_t block[kBlock] = {dc};
    inverse_transform_12(block, tables_[component], reinterpret_cast<std::uint16_t*>(samples),
                         stride / 2);
    return;
  }
  const std::int32_t scaled = dc * tables_[component].steps[0];
  const std::uint8_t level = limited((scaled >> 3) + (scaled >> 2 & 1));
  const std::uint64_t eight = level * 0x0101010101010101u;
  for (int y = 0; y < 8; ++y) std::memcpy(samples + y * stride, &eight, 8);
}

void Band::put(int component, int column, int row, const std::int16_t* coefficients,
               std::uint32_t ac_magnitude) {
  const DequantiseTable& table = tables_[component];
  if (ac_magnitude == 0 && table.small) {
    put_flat(component, column, row, coefficients[0]);
    return;
  }
  std::uint8_t* const samples = place(component, column, row);
  const std::ptrdiff_t stride = strides_[component];
  if (layout_ == Layout::grey_12) {
    inverse_transform_12(coefficients, table, reinterpret_cast<std::uint16_t*>(samples),
                         stride / 2);
    return;
  }
  const int dc = coefficients[0] * table.steps[0];
  if (!table.small ||
      ac_magnitude + static_cast<std::uint32_t>(dc < 0 ? -dc : dc) >= kMostFor16Bits) {
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

void Band::flush() {
  for (int i = 0; i < geometry_->count; ++i) {
    const Waiting last = std::exchange(waiting_[i], {});
    if (last.coefficients == nullptr) continue;
    kernels_.inverse_small(last.coefficients, tables_[i], last.samples, strides_[i]);
  }
}

// The component's samples for row `y` of the band, as they are.
const std::uint8_t* Band::row_of(int component, int y) const {
  const Grid& grid = geometry_->grids[component];
  return planes_[component] + (y * grid.v / geometry_->v_most) * strides_[component];
}

// The same, one per pixel: replicated, not interpolated.
const std::uint8_t* Band::full_row(int component, int y, std::uint8_t* room) const {
  const Grid& grid = geometry_->grids[component];
  const std::uint8_t* samples = row_of(component, y);
  if (grid.h == geometry_->h_most) return samples;
  for (int x = 0; x < geometry_->width; ++x) room[x] = samples[x * grid.h / geometry_->h_most];
  return room;
}

void Band::make_row(int y) {
  const int width = geometry_->width;
  std::uint8_t* const out = row_.data();
  if (layout_ == Layout::ycc && halved_chroma_) {
    kernels_.ycc_to_bgr_halved(row_of(0, y), row_of(1, y), row_of(2, y), out, width);
    return;
  }
  const std::uint8_t* planes[kMostComponents] = {};
  const std::size_t room = widened_.size() / kMostComponents;
  for (int i = 0; i < geometry_->count; ++i) {
    planes[i] = full_row(i, y, widened_.data() + static_cast<std::size_t>(i) * room);
  }
  switch (layout_) {
    case Layout::ycc:
      kernels_.ycc_to_bgr(planes[0], planes[1], planes[2], out, width);
      break;
    case Layout::rgb:
      for (int x = 0; x < width; ++x) {
        for (int i = 0; i < 3; ++i) out[3 * x + i] = planes[2 - i][x];
      }
      break;
    case Layout::ycck: {
      // What the encoder makes of 32 bits: red first, and the fourth byte inverted.
      for (int x = 0; x < width; ++x) {
        std::uint8_t bgr[3];
        ycc_to_bgr(planes[0] + x, planes[1] + x, planes[2] + x, bgr, 1);
        for (int i = 0; i < 3; ++i) out[4 * x + i] = bgr[2 - i];
        out[4 * x + 3] = static_cast<std::uint8_t>(255 - planes[3][x]);
      }
      break;
    }
    case Layout::planes:
    case Layout::inverted_planes: {
      const int mask = layout_ == Layout::planes ? 0 : 0xFF;
      for (int x = 0; x < width; ++x) {
        for (int i = 0; i < 4; ++i) out[4 * x + i] = static_cast<std::uint8_t>(planes[i][x] ^ mask);
      }
      break;
    }
    default:
      break;
  }
}

Status Band::deliver(const RowSink& sink, int y) {
  const int rows = std::min(geometry_->band_height(), geometry_->height - y);
  const std::size_t used = static_cast<std::size_t>(geometry_->width) *
                           static_cast<std::size_t>(layout_bits(layout_) / 8);
  const bool grey = layout_ == Layout::grey || layout_ == Layout::grey_12;
  for (int i = 0; i < rows; ++i) {
    // Grey samples are pixels, and there is room behind them.
    std::uint8_t* const row = grey ? planes_[0] + i * strides_[0] : row_.data();
    if (!grey) make_row(i);
    std::fill(row + used, row + row_bytes_, std::uint8_t{0});
    TQ_TRY(sink.row({row, row_bytes_}, y + i));
  }
  return kOk;
}

}  // namespace tq::formats
