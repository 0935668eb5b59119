// Reading an image that its owner may change at any row, and the header of what replaces it.
#include "process/frame.h"

#include <algorithm>

#include "core/context.h"
#include "pixels/kernels.h"

namespace tq::process {

ImageSource::ImageSource(ImageHandle handle) : ImageSource(handle, image_record(handle)) {}

ImageSource::ImageSource(ImageHandle handle, ImageRecord& record)
    : handle_(handle),
      record_(&record),
      serial_(record_->serial),
      width_(record_->width),
      height_(record_->height),
      bits_(record_->bits),
      in_runs_(record_->in_runs),
      header_(header_of(*record_)) {
  const std::span<const Rgb> stored = palette_of(*record_);
  std::copy_n(stored.begin(), std::min(stored.size(), palette_.size()), palette_.begin());
}

bool ImageSource::is_deep() const {
  return bits_ == 4 || bits_ == 8 || bits_ == 16 || bits_ == 24 || bits_ == 32;
}

Status ImageSource::next_row(int rows) {
  if (!context().settings.progress.on) return kOk;  // nobody has had a chance to change anything
  TQ_TRY(report_progress(rows));
  const ImageRecord* found = find_image(handle_, serial_);
  const bool same = found != nullptr && found->dib != nullptr && found->width == width_ &&
                    found->height == height_ && found->bits == bits_ && found->in_runs == in_runs_;
  return same ? kOk : Status(StatusCode::bad_handle);
}

Bytes ImageSource::row(int y) const {
  const Bytes found = plain_row(*record_, y);
  // The next row lies before this one, which processors do not foresee.
  if (y + 1 < height_) {
    constexpr std::size_t kCacheLine = 64;  // bytes
    const std::uint8_t* next = found.data() - found.size();
    for (std::size_t at = 0; at < found.size(); at += kCacheLine) __builtin_prefetch(next + at);
  }
  return found;
}

void ImageSource::read_colours(int y, std::span<Rgb> colours) const {
  pixels::row_to_colours(
      row(y),
      {.width = width_, .bits = bits_, .cmyk = header_.biCompression == 0, .palette = palette()},
      colours);
}

namespace {

int grey_of(Rgb colour, GreyKind kind, int bits) {
  if (kind == GreyKind::luma) return pixels::luma(colour);
  if (bits == 4) return pixels::wrapped_brightness(colour);
  return bits <= 16 ? pixels::intensity(colour) : pixels::brightness(colour);
}

}  // namespace

GreyRows::GreyRows(const ImageSource& image, GreyKind kind)
    : image_(image), kind_(kind), table_{}, bytes_are_greys_(image.bits() == 8) {
  for (std::size_t i = 0; i < image.palette().size(); ++i) {
    table_[i] = byte(grey_of(image.palette()[i], kind, image.bits()));
    if (table_[i] != i) bytes_are_greys_ = false;
  }
}

Status GreyRows::allocate() {
  if (image_.bits() == 32) TQ_TRY(colours_.allocate(image_.width()));
  return bytes_are_greys_ ? kOk : levels_.allocate(image_.width());
}

// Palette images need one look-up per pixel, the others a weighted sum.
Bytes GreyRows::read(int y) {
  if (bytes_are_greys_) return image_.row(y).first(image_.width());
  read(y, levels_.pixels());
  return levels_.pixels();
}

void GreyRows::read(int y, Row out) const {
  const std::uint8_t* row = image_.row(y).data();
  const int width = image_.width(), bits = image_.bits();
  std::uint8_t* const greys = out.data();
  if (bits == 24) {
    const pixels::Kernels kernels = pixels::kernels();
    (kind_ == GreyKind::luma ? kernels.luma_24 : kernels.brightness_24)(row, greys, width);
  } else if (bits == 32) {
    image_.read_colours(y, colours_.pixels());
    std::transform(colours_.data(), colours_.data() + width, greys,
                   [this](Rgb colour) { return byte(grey_of(colour, kind_, 32)); });
  } else {
    pixels::for_each_index(row, bits, width, [&](int x, int index) { greys[x] = table_[index]; });
  }
}

NewShape same_kind(const ImageSource& image, int width, int height) {
  std::uint32_t compression = image.header().biCompression;
  // Plain pixels stay plain, whatever their owner says of them.
  if (compression == kInRuns && image.bits() == 1) compression = 0;
  if (image.in_runs() && keeps_runs(width, height)) compression = kInRuns;
  return {image.bits(), image.palette(), compression, width, height};
}

Status create_result(ImageDraft& result, const ImageSource& image, const NewShape& shape) {
  HeaderBlock source{.header = image.header()};
  std::copy(shape.palette.begin(), shape.palette.end(), source.palette.begin());
  TQ_TRY(result.create(source, {.width = shape.width != 0 ? shape.width : image.width(),
                                .height = shape.height != 0 ? shape.height : image.height(),
                                .bits = shape.bits,
                                .compression = shape.compression,
                                .in_runs = shape.bits == 1 && shape.compression == kInRuns}));
  BitmapInfoHeader header = header_of(result.record());
  header.biSize = image.header().biSize;
  header.biPlanes = image.header().biPlanes;
  header.biClrUsed = image.header().biClrUsed;
  set_header(result.record(), header);
  return kOk;
}

Row ResultRows::begin(int y) {
  const Row row = made_.in_runs ? bits_.pixels() : plain_row(made_, y);
  std::memset(row.data() + row.size() - 4, 0, 4);
  return row;
}

}  // namespace tq::process
