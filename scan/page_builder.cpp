// Rows from a scanner into an image.
#include "scan/page_builder.h"

#include <algorithm>
#include <cstring>

#include "core/context.h"
#include "core/licence.h"
#include "core/rows.h"
#include "core/run_storage.h"
#include "pixels/colours.h"

namespace tq::scan {
namespace {

constexpr std::int32_t kFirstRows = 1024;  // of a page whose height is not known

bool is_bits(Samples samples) {
  return samples == Samples::black_bits || samples == Samples::white_bits;
}

int image_bits(Samples samples) {
  if (is_bits(samples)) return 1;
  return samples == Samples::rgb ? 24 : 8;
}

// What no sample came for.
std::uint8_t paper(Samples samples) {
  return samples == Samples::black_bits || samples == Samples::indices ? 0x00 : 0xFF;
}

void set_palette(HeaderBlock& header, const PageShape& shape) {
  if (is_bits(shape.samples)) {
    std::ranges::copy(pixels::black_and_white(), header.palette.begin());
  } else if (shape.samples == Samples::grey) {
    header.palette = pixels::grey_ramp();
  } else if (shape.samples == Samples::indices) {
    const std::size_t entries = std::min(shape.palette.size(), header.palette.size());
    std::ranges::copy(shape.palette.first(entries), header.palette.begin());
  }
}

std::int32_t dots(std::int32_t thousandths) {
  return (thousandths + 500) / 1000;
}

void take_high_bytes(pixels::Bytes words, pixels::Row bytes) {
  for (std::size_t x = 0; x < bytes.size(); ++x) bytes[x] = words[2 * x + 1];
}

}  // namespace

std::int64_t sample_bytes(const PageShape& shape) {
  if (is_bits(shape.samples)) return (std::int64_t{shape.width} + 7) / 8;
  const int channels = shape.samples == Samples::rgb ? 3 : 1;
  return std::int64_t{shape.width} * channels * shape.sample_bytes;
}

Status PageBuilder::begin(const PageShape& shape) {
  TQ_TRY(check_licence());
  shape_ = shape;
  const int bits = image_bits(shape.samples);
  const std::int32_t height = shape.height > 0 ? shape.height : kFirstRows;
  HeaderBlock source = dib_header(shape.width, height, bits);
  TQ_TRY(check_geometry(source.header));
  source.header.biXPelsPerMeter = dots(shape.resolution.x);
  source.header.biYPelsPerMeter = dots(shape.resolution.y);
  set_palette(source, shape);

  const std::int64_t stored = sample_bytes(shape);
  TQ_TRY(stored_.allocate(stored));
  if (shape.sample_bytes == 2) TQ_TRY(narrowed_.allocate(stored / 2));
  TQ_TRY(row_.allocate(row_bytes(shape.width, bits)));
  row_bytes_ = stored_.size();
  TQ_TRY(slot_.allocate());
  ImageRecord& image = slot_.record();
  TQ_TRY(create_image(image, source,
                      {.width = shape.width,
                       .height = height,
                       .bits = bits,
                       .in_runs = bits == 1 && keeps_runs(shape.width, height)}));
  remember_resolution(image, shape.resolution);
  dib_ = image.dib;
  in_runs_ = image.in_runs;
  height_ = height;
  end_ = 0;
  whiten_for_lookers(image, 0);
  return kOk;
}

// Whether the image is what it was made as: a callback may have done anything to it.
bool PageBuilder::is_ours() const {
  if (!slot_.still_there()) return false;
  const ImageRecord& image = slot_.record();
  return image.dib == dib_ && image.width == shape_.width && image.height == height_ &&
         image.bits == image_bits(shape_.samples) && image.in_runs == in_runs_;
}

// Progress callbacks may look at the image while it is being made: not at what was in memory before.
void PageBuilder::whiten_for_lookers(ImageRecord& image, std::int32_t first) {
  if (context().settings.progress.on) whiten(image, first, image.height);
}

Status PageBuilder::prepare_row(std::int32_t y, ImageRecord*& image) {
  image = nullptr;
  TQ_TRY(report_progress(std::max(shape_.height, 0)));
  if (!is_ours()) return StatusCode::bad_handle;
  ImageRecord& record = slot_.record();
  if (y < 0 || (shape_.height > 0 && y >= height_)) return kOk;
  if (y >= height_) {
    const std::int64_t wanted = std::max(std::int64_t{y} + 1, std::int64_t{height_} * 3 / 2);
    if (wanted > INT32_MAX) return StatusCode::out_of_memory;
    TQ_TRY(change_height(record, static_cast<std::int32_t>(wanted)));
    whiten_for_lookers(record, height_);
    height_ = record.height;
  }
  if (y >= end_) {
    whiten(record, end_, y);
    end_ = y + 1;
  }
  dib_ = record.dib;
  image = &record;
  return kOk;
}

void PageBuilder::whiten(ImageRecord& image, std::int32_t first, std::int32_t last) {
  const std::uint8_t white = shape_.samples == Samples::indices ? 0x00 : 0xFF;
  for (std::int32_t y = first; !image.in_runs && y < last; ++y) {
    const std::span<std::uint8_t> row = plain_row(image, y);
    const std::ptrdiff_t used = image.bits == 1 ? std::ssize(row) : image.bits / 8 * image.width;
    std::fill(row.begin(), row.begin() + used, white);
    std::fill(row.begin() + used, row.end(), std::uint8_t{0});
  }
}

pixels::Bytes PageBuilder::whole(pixels::Bytes stored) {
  if (stored.size() >= row_bytes_) return stored.first(row_bytes_);
  std::ranges::copy(stored, stored_.data());
  std::fill(stored_.data() + stored.size(), stored_.data() + row_bytes_, paper(shape_.samples));
  return stored_.pixels();
}

Status PageBuilder::store(ImageRecord& image, std::int32_t y, pixels::Bytes stored) {
  if (shape_.sample_bytes == 2) {
    take_high_bytes(stored, narrowed_.pixels());
    stored = narrowed_.pixels();
  }
  if (is_bits(shape_.samples)) {
    const pixels::Row row = row_.pixels();
    if (shape_.samples == Samples::black_bits) {
      pixels::invert(stored, row.first(stored.size()));
    } else {
      std::ranges::copy(stored, row.begin());
    }
    if (image.in_runs) {
      TQ_TRY(store_bits(image, y, row));
      dib_ = image.dib;
      return kOk;
    }
    std::ranges::copy(row, plain_row(image, y).begin());
    return kOk;
  }
  const pixels::Row row = plain_row(image, y);
  if (shape_.samples == Samples::rgb) {
    pixels::unpack(*pixels::find_layout(pixels::Layout::rgb, 24), stored, image.width, row);
    return kOk;
  }
  const auto end = std::ranges::copy(stored, row.begin()).out;
  std::fill(end, row.end(), std::uint8_t{0});
  return kOk;
}

Status PageBuilder::put_row(std::int32_t y, pixels::Bytes stored) {
  ImageRecord* image = nullptr;
  TQ_TRY(prepare_row(y, image));
  return image == nullptr ? kOk : store(*image, y, whole(stored));
}

Status PageBuilder::put_part(std::int32_t y, std::int32_t x, std::int32_t columns,
                             pixels::Bytes stored) {
  if (x < 0 || x >= shape_.width || columns < 1) return kOk;
  columns = std::min(columns, shape_.width - x);
  PageShape part = shape_;
  part.width = columns;
  const std::size_t bytes = static_cast<std::size_t>(sample_bytes(part));
  if (is_bits(shape_.samples) && x % 8 != 0) return StatusCode::unsupported;
  if (stored.size() < bytes) return kOk;  // of a tile that is cut off
  const bool is_new = y >= end_;
  ImageRecord* image = nullptr;
  TQ_TRY(prepare_row(y, image));
  if (image == nullptr) return kOk;
  if (is_new) whiten(*image, y, y + 1);
  if (shape_.sample_bytes == 2) {
    take_high_bytes(stored, narrowed_.pixels().first(bytes / 2));
    stored = narrowed_.pixels().first(bytes / 2);
  }
  if (is_bits(shape_.samples)) {
    const pixels::Row row = row_.pixels();
    TQ_TRY(get_raster(*image, row.data(), y, 0));
    const pixels::Row bits = stored_.pixels().first(bytes);
    std::ranges::copy(stored.first(bytes), bits.begin());
    if (shape_.samples == Samples::black_bits) pixels::invert(bits, bits);
    pixels::copy_bits(bits, 0, columns, row.subspan(x / 8));
    TQ_TRY(put_raster(*image, row.data(), y, 0));
    dib_ = image->dib;
    return kOk;
  }
  const int pixel_bytes = image->bits / 8;
  const pixels::Row row = plain_row(*image, y).subspan(std::size_t(pixel_bytes) * x,
                                                       std::size_t(pixel_bytes) * columns);
  if (shape_.samples == Samples::rgb) {
    const auto whole = static_cast<std::size_t>(row_bytes(columns, 24));
    pixels::unpack(*pixels::find_layout(pixels::Layout::rgb, 24), stored, columns,
                   row_.pixels().first(whole));
    stored = row_.pixels();
  }
  std::ranges::copy(stored.first(row.size()), row.begin());
  return kOk;
}

Status PageBuilder::put_channel(std::int32_t y, int channel, pixels::Bytes stored) {
  const bool is_new = y >= end_;
  ImageRecord* image = nullptr;
  TQ_TRY(prepare_row(y, image));
  if (image == nullptr || shape_.samples != Samples::rgb) return kOk;
  if (is_new) whiten(*image, y, y + 1);  // until the other passes
  const pixels::Row row = plain_row(*image, y);
  const auto bytes = static_cast<std::size_t>(shape_.sample_bytes);
  const std::size_t there = std::min(stored.size() / bytes, std::size_t(image->width));
  for (std::size_t x = 0; x < there; ++x) row[3 * x + 2 - channel] = stored[bytes * x + bytes - 1];
  return kOk;
}

Status PageBuilder::finish() {
  if (!is_ours()) return StatusCode::bad_handle;
  if (end_ == 0) return StatusCode::bad_image;
  TQ_TRY(change_height(slot_.record(), end_));
  return slot_.keep();
}

}  // namespace tq::scan
