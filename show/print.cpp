// Pictures on paper: in the device's pixels, or in the image's own where the device scales.
#include <algorithm>
#include <utility>

#include "core/context.h"
#include "core/image_create.h"
#include "core/run_storage.h"
#include "process/frame.h"
#include "process/process.h"
#include "show/dib_copy.h"
#include "show/draw.h"
#include "show/plot.h"

namespace tq::show {
namespace {

using platform::Box;

constexpr std::uint8_t kWhite = 255;

// Printing reports bands, not the rows of this.
Status diffuse(ImageHandle greys) {
  bool& reports = context().settings.progress.on;
  const bool reported = std::exchange(reports, false);
  process::ImageSource source(greys);
  const Status diffused = process::diffusion_mono(source);
  reports = reported;
  return diffused;
}

}  // namespace

// Of 1 bit as 1 bit, so that text stays sharp.
Status Plot::draw_bits(const Rect& band, std::uint8_t* pixels, std::uint8_t* levels) {
  const Canvas canvas{levels, band.width, 0, band.height, IMG_PIXELS_GREY};
  const Manner manner{0, 1, {.see_through = false, .levels = true}};
  TQ_TRY(render(image(), layout_of(band), {}, manner, canvas));
  const auto stride = static_cast<std::ptrdiff_t>(row_bytes(band.width, 1));
  std::memset(pixels, 0, static_cast<std::size_t>(stride) * band.height);
  for (std::ptrdiff_t y = 0; y < band.height; ++y) {
    const std::uint8_t* const from = levels + y * band.width;
    std::uint8_t* const out = pixels + y * stride;
    for (std::ptrdiff_t x = 0; x < band.width; ++x)
      out[x / 8] |= byte((from[x] & 1) << (7 - x % 8));
  }
  HeaderBlock header = band_header(band.width, band.height, 1);
  const std::span<const Rgb> palette = palette_of(image());
  for (int i = 0; i < 2; ++i) {
    const Rgb c = palette[i];
    header.palette[i] = c;
    if (paint_.has_tone) {
      header.palette[i] = {paint_.tone[c.blue], paint_.tone[c.green], paint_.tone[c.red], 0};
    }
  }
  if (image().has_transparent && (image().transparent_colour & 255) < 2) {
    header.palette[image().transparent_colour & 1] = {255, 255, 255, 0};
  }
  return put(band, header, pixels, 0, image().raster_operation);
}

// For a device of two colours: the whole part as greys, diffused, then sent in bands.
Status Plot::draw_diffused(const Rect& part, std::int32_t operation) {
  ImageSlot slot;
  TQ_TRY(slot.allocate());
  ImageRecord& greys = slot.record();
  const ImageShape shape{.width = part.width, .height = part.height, .bits = 8};
  TQ_TRY(create_image(greys, band_header(part.width, part.height, 8), shape));
  for (std::int32_t y = 0; y < part.height; ++y) {
    std::ranges::fill(plain_row(greys, y), kWhite);
  }
  const auto stride = static_cast<std::intptr_t>(greys.bytes_per_row);
  TQ_TRY(render_part(part, {plain_row(greys, 0).data(), -stride, 0, part.height, IMG_PIXELS_GREY}));
  TQ_TRY(diffuse(slot.handle()));
  const std::int64_t row = row_bytes(part.width, 1);
  const auto rows =
      static_cast<std::int32_t>(std::clamp<std::int64_t>(kPrintedBandBytes / row, 1, part.height));
  RowBuffer<std::uint8_t> band;
  TQ_TRY(band.allocate(row * rows));
  HeaderBlock header = band_header(part.width, rows, 1);
  header.palette[1] = {255, 255, 255, 0};
  for (std::int32_t y = 0; y < part.height; y += rows) {
    TQ_TRY(next_band());
    const std::int32_t height = std::min(rows, part.height - y);
    std::uint8_t* out = band.data();
    for (std::int32_t i = 0; i < height; ++i, out += row) {
      const std::span to(out, static_cast<std::size_t>(row));
      if (greys.in_runs) {
        expand_row(greys, y + i, to);
      } else {
        std::ranges::copy(plain_row(greys, y + i), to.begin());
      }
    }
    header.header.biHeight = -height;
    TQ_TRY(put({part.x, part.y + y, part.width, height}, header, band.data(), 0, operation));
  }
  return kOk;
}

// The image's own rows in bands whose edges on the page meet.
Status Plot::send_rows() {
  const Rect source = layout_.source;
  const std::int64_t row = row_bytes(source.width, 32);
  const auto rows = static_cast<std::int32_t>(
      std::clamp<std::int64_t>(kPrintedBandBytes / row, 1, source.height));
  const auto edge = [&](std::int64_t y) {
    return static_cast<std::int32_t>((2 * y * layout_.y.shown + source.height) /
                                     (2 * std::int64_t{source.height}));
  };
  RowBuffer<std::uint8_t> block;
  for (std::int32_t y = 0; y < source.height; y += rows) {
    TQ_TRY(next_band());
    ImageRecord band = image();
    band.crop = {source.x, source.y + y, source.width, std::min(rows, source.height - y)};
    const std::uint64_t bytes = dib_copy_bytes(band);
    TQ_TRY(block.allocate(static_cast<std::int64_t>(bytes)));
    TQ_TRY(copy_dib(band, block.data()));
    BitmapInfoHeader header;
    std::memcpy(&header, block.data(), sizeof header);
    std::uint8_t* const colours = block.data() + sizeof header;
    std::uint8_t* const stored = colours + std::size_t{4} * header.biClrUsed;
    const std::size_t toned =
        header.biClrUsed > 0 ? stored - colours : block.data() + block.size() - stored;
    for (std::size_t i = 0; paint_.has_tone && i < toned; ++i) {
      colours[i] = paint_.tone[colours[i]];
    }
    const std::uint32_t transparent = image().transparent_colour & 255;
    if (image().has_transparent && transparent < header.biClrUsed) {
      std::memset(colours + std::size_t{4} * transparent, 255, 3);
    }
    const std::int32_t top = edge(y), bottom = edge(y + band.crop.height);
    const Box to{window_.x + layout_.x.at, window_.y + layout_.y.at + top, layout_.x.shown,
                 bottom - top};
    if (bottom == top) continue;
    if (!drawing_.stretch(to, block.data(), stored,
                          static_cast<std::uint32_t>(image().raster_operation))) {
      return StatusCode::write_failed;
    }
  }
  return kOk;
}

Status Plot::print(bool scaled_by_device) {
  const bool turned = layout_.swapped || layout_.x.from_end || layout_.y.from_end;
  const std::int64_t shown = std::int64_t{layout_.x.shown} * layout_.y.shown;
  const bool reduces = std::int64_t{layout_.source.width} * layout_.source.height > shown;
  const bool cut = layout_.x.shown > window_.width || layout_.y.shown > window_.height;
  const bool sends = scaled_by_device && !turned && !reduces && !cut && !paint_.has_background;
  return sends ? send_rows() : draw_all();
}

Status print_bitmap(ImageHandle image, void* context, const Rect& place, const img_view* view,
                    bool scaled_by_device) {
  Plot plot(image, context, true);
  TQ_TRY(plot.open(place, view));
  return plot.print(scaled_by_device);
}

Status print_pages(const PrintOrder& order) {
  for (const std::int32_t image : order.images) {
    TQ_TRY(validate_image_handle(ImageHandle{image}));
    if (image_record(ImageHandle{image}).dib == nullptr) return StatusCode::out_of_memory;
  }
  img_view view{};
  if (order.view != nullptr) TQ_TRY(read_view(order.view, view));
  platform::PrintJob job;
  std::int32_t copies = order.copies;
  bool no_printer = false;
  if (!job.open(order.printer, copies, no_printer)) {
    return no_printer ? StatusCode::cannot_open : StatusCode::write_failed;
  }
  if (!job.begin(order.title, order.output_file)) return StatusCode::write_failed;
  std::int32_t printed = 0;
  for (std::int32_t copy = 0; copy < copies; ++copy) {
    for (const std::int32_t number : order.images) {
      const ImageHandle handle{number};
      TQ_TRY(validate_image_handle(handle));  // a callback may have deleted it
      const ImageRecord& image = image_record(handle);
      const bool sideways = (image.display_angle + std::int64_t{view.angle}) / 90 % 2 != 0;
      void* const page = job.begin_page((image.crop.width > image.crop.height) != sideways);
      if (page == nullptr) return StatusCode::write_failed;
      TQ_TRY(print_bitmap(handle, page, {}, order.view, false));
      if (!job.end_page()) return StatusCode::write_failed;
      ++printed;
    }
  }
  return job.end() ? Status::from_raw(printed) : Status(StatusCode::write_failed);
}

}  // namespace tq::show
