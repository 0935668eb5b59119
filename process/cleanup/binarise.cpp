// To black and white by what a page looks like: by one level, by a level on even paper, by the
// neighbourhood of each pixel. And the even paper itself.
#include <algorithm>

#include "process/cleanup/background.h"
#include "process/cleanup/ink.h"
#include "process/cleanup/sauvola.h"
#include "process/geometry/geometry.h"
#include "process/geometry/grey_rows.h"
#include "process/process.h"
#include "process/tone/threshold.h"

namespace tq::process {
namespace {

constexpr int kOneBitLevel = 127;  // between black and white

// Of an image at which nothing need be done.
Status report_rows(ImageSource& image) {
  for (int y = 0; y < image.height(); ++y) TQ_TRY(image.next_row());
  return kOk;
}

Status find_level(ImageSource& image, bool reports, int& level) {
  GreyRows grey(image, GreyKind::luma);
  TQ_TRY(grey.allocate());
  LevelCounter counter;
  TQ_TRY(counter.allocate(std::int64_t{image.width()} * image.height()));
  for (int y = 0; y < image.height(); ++y) {
    if (reports) TQ_TRY(image.next_row());
    counter.add(grey.read(y));
  }
  level = otsu_level(counter.counts());
  return kOk;
}

Status binarise_levelled(ImageSource& image) {
  const int width = image.width();
  LevelledRows rows(image);
  RowBuffer<std::uint8_t> dark;
  TQ_TRY(rows.find());
  TQ_TRY(dark.allocate(row_bytes(width, 1) * 8));
  LevelCounter counter;
  TQ_TRY(counter.allocate(std::int64_t{width} * image.height()));
  for (int y = 0; y < image.height(); ++y) counter.add(rows.read(y));
  const int level = clamp_on_paper(otsu_level(counter.counts()));
  return replace_by_mono(image, [&](int y, Row bits) {
    rows.mark_dark(y, level, dark.pixels().first(static_cast<std::size_t>(width)));
    pack_white(dark.pixels(), width, bits);
  });
}

}  // namespace

Status find_threshold(ImageSource& image) {
  if (!can_be_searched(image)) return StatusCode::wrong_depth;
  int level = kOneBitLevel;
  if (image.bits() == 1) {
    TQ_TRY(report_rows(image));
  } else {
    TQ_TRY(find_level(image, true, level));
  }
  return Status::from_raw(level);
}

Status adaptive_mono(ImageSource& image, std::int32_t method, std::int32_t window, std::int32_t k) {
  enum Method : std::int32_t { kOtsu, kSauvola, kLevelled };
  release_display_cache(image.record());
  if (!can_be_searched(image)) return StatusCode::wrong_depth;
  if (method < kOtsu || method > kLevelled) return StatusCode::unsupported;
  if (window != 0 && (window < 3 || window > kWidestWindow || window % 2 == 0)) {
    return StatusCode::unsupported;
  }
  if (k < 0 || k > 100) return StatusCode::unsupported;
  if (image.bits() == 1) return report_rows(image);
  if (method == kLevelled) return binarise_levelled(image);
  int level = 0;
  TQ_TRY(find_level(image, false, level));
  if (method == kOtsu) return thresh_mono(image, level);
  return binarise_by_window(image, level, window, k);
}

namespace {

// One byte of each pixel, at `first` and then in steps of `step`.
void take(Bytes row, int first, int step, Row out) {
  for (std::size_t x = 0; x < out.size(); ++x) out[x] = row[first + x * step];
}

}  // namespace

Status level_background(ImageSource& image) {
  release_display_cache(image.record());
  const int bits = image.bits(), width = image.width(), height = image.height();
  if (bits != 8 && bits != 24) return StatusCode::wrong_depth;
  if (bits == 8 && !is_grey(image.palette())) return StatusCode::not_grey;
  const int channels = bits / 8;
  // Each channel of colours is a ramp.
  const GreyTables tables(bits == 8 ? image.palette() : pixels::grey_ramp());

  Background backgrounds[3];
  RowBuffer<std::uint8_t> levels;
  TQ_TRY(levels.allocate(width));
  const auto read = [&](int y, int channel) {
    take(image.row(y), channel, channels, levels.pixels());
    for (std::uint8_t& level : levels.pixels()) level = tables.levels[level];
  };
  for (int channel = 0; channel < channels; ++channel) {
    Background& background = backgrounds[channel];
    TQ_TRY(background.allocate(width, height));
    for (int y = 0; y < height; ++y) {
      read(y, channel);
      background.add_row(levels.pixels());
    }
    TQ_TRY(background.finish());
  }
  return replace_rows(image, same_kind(image, width, height), [&](int y, Row row) {
    for (int channel = 0; channel < channels; ++channel) {
      read(y, channel);
      backgrounds[channel].level_row(y, levels.pixels(), levels.pixels());
      for (int x = 0; x < width; ++x) row[channel + x * channels] = tables.index[levels[x]];
    }
  });
}

}  // namespace tq::process
