// What happens to a decoder's header and rows on their way into an image.
#include "dispatch/row_sink.h"

#include <algorithm>
#include <cstring>

#include "core/context.h"
#include "core/image_table.h"
#include "core/licence.h"
#include "core/run_storage.h"

namespace tq::dispatch {
namespace {

bool any(const Rect& rect) {
  return rect.x != 0 || rect.y != 0 || rect.width != 0 || rect.height != 0;
}

// The third and fourth values are taken both as the right and bottom edge, which decide whether a
// side is cut, and as the side that results; callers rely on it.
bool cuts(std::int32_t from, std::int32_t edge, std::int32_t side) {
  return std::int64_t{edge} - from < side;
}

// Callbacks into the caller may look at the image while it is being decoded.
bool callers_can_look() {
  return context().settings.progress.on || caller_io_installed();
}

}  // namespace

void DeliveredRows::add(ImageRecord& image, std::int32_t y) {
  if (all_clear_) return;
  if (first_ == last_) {
    first_ = y;
    last_ = y + 1;
  } else if (y == last_) {
    ++last_;
  } else if (y == first_ - 1) {
    --first_;
  } else if (y < first_ || y > last_) {
    // Out of order: no longer worth remembering.
    clear_others(image);
  }
}

void DeliveredRows::clear_others(ImageRecord& image) {
  if (all_clear_) return;
  clear_rows(image, 0, first_);
  clear_rows(image, last_, image.height);
  all_clear_ = true;
}

std::int32_t IMG_CB_C ImageSink::on_header(void* block, void* sink) {
  const Status made = static_cast<ImageSink*>(sink)->header(*static_cast<HeaderBlock*>(block));
  return made.failed() ? made.raw() : 1;
}

std::int32_t IMG_CB_C ImageSink::on_row(void* row, void* sink, std::int32_t y, std::int32_t bytes) {
  if (bytes < 0) return static_cast<std::int32_t>(StatusCode::bad_image);
  return static_cast<ImageSink*>(sink)
      ->row(std::span(static_cast<const std::uint8_t*>(row), bytes), y)
      .raw();
}

// The image, unless a callback has deleted it or given it other pixels.
ImageRecord* ImageSink::image() const {
  ImageRecord* record = find_image(handle_, serial_);
  if (record == nullptr || !has_header_) return record;
  const bool same = record->dib != nullptr && record->width == width_ &&
                    record->height == height_ && record->bits == bits_;
  return same ? record : nullptr;
}

// Decides what is stored: depth, size, and how the source's rows come to fit.
ImageShape ImageSink::choose_shape() {
  const BitmapInfoHeader& header = source_.header;
  ImageShape shape{.width = header.biWidth,
                   .height = header.biHeight,
                   .bits = header.biBitCount,
                   .compression = header.biCompression};
  const bool whole = is_to_be_turned();
  const Size size = whole ? Size{} : context().settings.decomp_size;
  const Rect rect = whole ? Rect{} : context().settings.decomp_rect;
  fit_ = Fit::whole;
  left_ = top_ = 0;
  if (size.width >= 1 && size.height >= 1) {
    if (shape.width > size.width && shape.height > size.height) {
      shape.width = size.width;
      shape.height = size.height;
      fit_ = Fit::scaled;
    }
  } else if (any(rect)) {
    if (cuts(rect.x, rect.width, header.biWidth)) {
      shape.width = rect.width;
      left_ = rect.x;
      fit_ = Fit::cut;
    }
    if (cuts(rect.y, rect.height, header.biHeight)) {
      shape.height = rect.height;
      top_ = rect.y;
      fit_ = Fit::cut;
    }
  }
  const std::int32_t reduction = whole ? 0 : context().settings.decomp_reduction;
  reducer_.choose(source_, reduction, context().settings.dither_mode);
  if (reducer_.active()) {
    shape.bits = reducer_.bits();
    shape.palette = reducer_.palette();
    shape.compression = 0;
  }
  if (header.biBitCount == 1) {
    shape.in_runs = keeps_runs(shape.width, shape.height);
    shape.compression = 0;  // of one that is not kept in runs, whatever its file says
  }
  return shape;
}

// Whoever follows the decode, or wants to know of all damage, gets all of it.
void ImageSink::choose_wanted() {
  wanted_ = {};
  const bool strict = context().options.get(IMG_OPTION_STRICT) == 1;
  if (fit_ == Fit::whole || strict || callers_can_look()) return;
  const BitmapInfoHeader& header = source_.header;
  const auto end = [](std::int64_t from, std::int32_t side, std::int32_t most) {
    return static_cast<std::int32_t>(std::clamp<std::int64_t>(from + side, 1, most));
  };
  if (fit_ == Fit::cut) {
    wanted_ = {.top = top_,
               .bottom = end(top_, height_, header.biHeight),
               .left = left_,
               .right = end(left_, width_, header.biWidth)};
  } else {
    wanted_ = {.bottom = header.biHeight,
               .right = header.biWidth,
               .height = header.biHeight,
               .scaled_height = height_};
  }
}

Status ImageSink::allocate_buffers(const ImageShape& shape) {
  const std::int64_t source_row = row_bytes(source_.header.biWidth, source_.header.biBitCount);
  source_row_ = static_cast<std::size_t>(source_row);
  TQ_TRY(whole_.allocate(source_row));
  if (fit_ != Fit::whole) TQ_TRY(fitted_.allocate(row_bytes(shape.width, shape.bits)));
  if (source_.header.biBitCount == 1) {
    TQ_TRY(transitions_.allocate(std::min(source_.header.biWidth, kWidestRuns)));
  }
  return reducer_.allocate(source_);
}

Status ImageSink::header(const HeaderBlock& block) {
  TQ_TRY(check_licence());
  TQ_TRY(check_geometry(block.header));
  ImageRecord* record = find_image(handle_, serial_);
  if (record == nullptr) return StatusCode::bad_handle;
  source_ = block;
  has_header_ = false;
  last_scaled_row_ = -1;
  const ImageShape shape = choose_shape();
  // A decode rectangle may be anything.
  TQ_TRY(check_geometry(dib_header(shape.width, shape.height, shape.bits).header));
  TQ_TRY(allocate_buffers(shape));
  TQ_TRY(create_image(*record, source_, shape));
  width_ = record->width;
  height_ = record->height;
  bits_ = record->bits;
  has_header_ = true;
  choose_wanted();
  delivered_.start(record->in_runs);  // run lists start white
  if (callers_can_look()) clear_undelivered(*record);
  return kOk;
}

// From the source's row number to the image's; false when the row is not wanted.
bool ImageSink::place_row(std::int32_t& y) {
  if (fit_ == Fit::cut) {
    y -= top_;
    return y >= 0 && y < height_;
  }
  if (fit_ == Fit::scaled) {
    y = static_cast<std::int32_t>(std::int64_t{y} * height_ / source_.header.biHeight);
    // Of the source rows that fall on one row, the first to arrive stays.
    if (y == last_scaled_row_) return false;
    last_scaled_row_ = y;
  }
  return true;
}

// The row as pixels of the source's full row size.
std::span<const std::uint8_t> ImageSink::whole_row(std::span<const std::uint8_t> bytes) {
  if (bytes.size() == source_row_) return bytes;
  if (source_.header.biBitCount == 1) {
    const std::int32_t width = source_.header.biWidth;
    const std::int32_t count = read_run_list(bytes, width, transitions_.pixels());
    transitions_to_bits(transitions_.pixels().first(count), width, whole_.pixels());
  } else {
    const std::size_t there = std::min(bytes.size(), source_row_);
    std::copy_n(bytes.begin(), there, whole_.data());
    std::fill(whole_.data() + there, whole_.data() + source_row_, std::uint8_t{0});
  }
  return whole_.pixels();
}

std::span<const std::uint8_t> ImageSink::fit_row(std::span<const std::uint8_t> row) {
  switch (fit_) {
    case Fit::scaled:
      pixels::scale_row(row, source_.header.biWidth, bits_, fitted_.pixels(), width_);
      return fitted_.pixels();
    case Fit::cut:
      pixels::cut_row(row, source_.header.biWidth, bits_, left_, fitted_.pixels(), width_);
      return fitted_.pixels();
    case Fit::whole:
      break;
  }
  return row;
}

// Rows that were not delivered become 0. Those that a cut reaches beyond the source are white in 1
// bit, as columns are.
void ImageSink::clear_undelivered(ImageRecord& record) {
  delivered_.clear_others(record);
  if (record.in_runs || fit_ != Fit::cut || bits_ != 1) return;
  for (std::int32_t y = std::max(source_.header.biHeight - top_, 0); y < height_; ++y) {
    const std::span<std::uint8_t> row = plain_row(record, y);
    std::fill(row.begin(), row.end(), std::uint8_t{0xFF});
  }
}

Status ImageSink::store(ImageRecord& record, std::span<const std::uint8_t> bytes, std::int32_t y) {
  if (record.in_runs) return store_bits(record, y, bytes);
  delivered_.add(record, y);
  const std::span<std::uint8_t> row = plain_row(record, y);
  std::memcpy(row.data(), bytes.data(), row.size());
  return kOk;
}

Status ImageSink::row(std::span<const std::uint8_t> bytes, std::int32_t y) {
  if (!has_header_) return StatusCode::bad_image;
  TQ_TRY(report_progress(source_.header.biHeight));
  ImageRecord* record = image();
  if (record == nullptr) return StatusCode::bad_handle;
  if (y < 0 || y >= source_.header.biHeight) return kOk;  // a decoder's own mistake
  const bool as_it_comes = fit_ == Fit::whole && !reducer_.active();
  if (as_it_comes && bytes.size() == source_row_) return store(*record, bytes, y);

  const std::int32_t source_y = y;
  if (!place_row(y)) return kOk;
  const bool is_run_list = source_.header.biBitCount == 1 && bytes.size() != source_row_;
  if (is_run_list && record->in_runs && fit_ == Fit::whole) {
    const std::int32_t count = read_run_list(bytes, width_, transitions_.pixels());
    return store_transitions(*record, y, transitions_.pixels().first(count));
  }
  std::span<const std::uint8_t> pixels = whole_row(bytes);
  if (reducer_.active()) pixels = reducer_.reduce(pixels, source_y);
  return store(*record, fit_row(pixels), y);
}

Status ImageSink::finish() {
  ImageRecord* record = image();
  if (record == nullptr) return StatusCode::bad_handle;
  if (!has_header_) return StatusCode::bad_image;
  if (!record->in_runs) clear_undelivered(*record);
  return kOk;
}

}  // namespace tq::dispatch
