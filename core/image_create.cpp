// Images come into being: decoded, made empty, registered from a caller's memory, or with other
// pixels than before.
#include "core/image_create.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "core/context.h"
#include "core/image_table.h"
#include "core/licence.h"
#include "core/numbers.h"
#include "core/run_storage.h"
#include "platform/memory.h"

namespace tq {
namespace {

constexpr std::uint64_t kSlack = 8192;  // kept behind the rows; callers rely on it
constexpr std::int32_t kDefaultGamma = 150;

Status check_pixels(std::int64_t width, std::int64_t height) {
  const bool fits = width * height <= context().options.limit(IMG_OPTION_MAX_PIXELS, INT64_MAX);
  return fits ? kOk : StatusCode::out_of_memory;
}

void set_geometry(ImageRecord& image, std::int32_t width, std::int32_t height, int bits) {
  image.width = width;
  image.height = height;
  image.bits = bits;
  image.bytes_per_row = static_cast<std::int32_t>(row_bytes(width, bits));
}

// Fewer rows of runs than of bits are the rule; the block grows when they are not.
std::uint64_t first_run_capacity(std::uint64_t plain_bytes, std::int32_t width) {
  return plain_bytes / (width < 10000 ? 8 : 50);
}

void write_palette(ImageRecord& image, const HeaderBlock& source, const ImageShape& shape) {
  const std::span<Rgb> palette = palette_of(image);
  const Rgb* from = shape.palette != nullptr ? shape.palette : source.palette.data();
  std::copy_n(from, palette.size(), palette.begin());
}

void write_header(ImageRecord& image, const HeaderBlock& source, const ImageShape& shape) {
  BitmapInfoHeader header = source.header;
  header.biSize = kDibHeaderBytes;
  header.biPlanes = 1;
  header.biWidth = shape.width;
  header.biHeight = shape.height;
  header.biBitCount = word(shape.bits);
  header.biSizeImage = image_bytes(shape.width, shape.height, shape.bits);
  header.biCompression = shape.in_runs ? kInRuns : shape.compression;
  header.biClrUsed = 0;  // the transparent index lives in the record
  set_header(image, header);
}

}  // namespace

Status create_pixels(ImageRecord& image, const HeaderBlock& source, const ImageShape& shape) {
  TQ_TRY(check_geometry(dib_header(shape.width, shape.height, shape.bits).header));
  TQ_TRY(check_pixels(shape.width, shape.height));
  const std::uint64_t plain_bytes = dib_bytes(shape.width, shape.height, shape.bits);
  const std::uint64_t front_bytes = kDibHeaderBytes + palette_bytes(shape.bits);
  const std::uint64_t bytes =
      shape.in_runs ? front_bytes + first_run_capacity(plain_bytes, shape.width) : plain_bytes;

  GlobalBlock dib, run_table;
  TQ_TRY(dib.allocate(bytes + kSlack));
  if (shape.in_runs) {
    TQ_TRY(run_table.allocate(std::uint64_t{4} * shape.height));
    platform::block_clear(run_table.data(), run_table.size());
  }
  const std::size_t capacity = dib.size();

  replace_dib(image, dib.release());
  set_geometry(image, shape.width, shape.height, shape.bits);
  image.dib_size = static_cast<std::int32_t>(shape.in_runs ? capacity : bytes);
  image.in_runs = shape.in_runs;
  image.run_table = reinterpret_cast<std::uint32_t*>(run_table.release());
  image.runs_end = static_cast<std::uint32_t>(front_bytes);
  write_header(image, source, shape);
  write_palette(image, source, shape);
  if (!shape.in_runs) {
    // The slack is readable through the address that callers get.
    std::memset(image.dib + bytes, 0, kSlack);
  }
  return kOk;
}

Status create_image(ImageRecord& image, const HeaderBlock& source, const ImageShape& shape) {
  TQ_TRY(create_pixels(image, source, shape));
  image.crop = {0, 0, image.width, image.height};
  image.gamma = 0;
  image.has_transparent = (source.header.biClrUsed & kTransparent) != 0;
  if (image.has_transparent) {
    image.transparent_colour = source.header.biClrUsed;
  }
  return kOk;
}

namespace {

Status resize_run_table(ImageRecord& image, std::int32_t height) {
  auto* const old = reinterpret_cast<std::uint8_t*>(image.run_table);
  std::uint8_t* const table = resize_block(old, std::uint64_t{4} * height);
  if (table == nullptr) return StatusCode::out_of_memory;
  image.run_table = reinterpret_cast<std::uint32_t*>(table);
  for (std::int32_t y = image.height; y < height; ++y) image.run_table[y] = 0;
  return kOk;
}

// Rows lie bottom-up, so all of them move.
Status resize_rows(ImageRecord& image, std::int32_t height) {
  const std::int64_t stride = image.bytes_per_row;
  const std::uint64_t bytes = dib_bytes(image.width, height, image.bits);
  const auto move = [&](std::int64_t from, std::int64_t to) {
    std::uint8_t* const pixels = pixels_of(image);
    const std::int64_t kept = stride * std::min(image.height, height);
    std::memmove(pixels + static_cast<std::ptrdiff_t>(to),
                 pixels + static_cast<std::ptrdiff_t>(from), static_cast<std::size_t>(kept));
  };
  const std::int64_t more = stride * (std::int64_t{height} - image.height);
  if (more < 0) move(-more, 0);
  std::uint8_t* const moved = resize_block(image.dib, bytes + kSlack);
  if (moved == nullptr) {
    if (more < 0) move(0, -more);
    return StatusCode::out_of_memory;
  }
  image.dib = moved;
  image.dib_size = static_cast<std::int32_t>(bytes);
  if (more > 0) move(0, more);
  std::memset(image.dib + bytes, 0, kSlack);
  return kOk;
}

}  // namespace

Status change_height(ImageRecord& image, std::int32_t height) {
  if (height == image.height) return kOk;
  TQ_TRY(check_geometry(dib_header(image.width, height, image.bits).header));
  TQ_TRY(check_pixels(image.width, height));
  for (std::int32_t y = height; image.in_runs && y < image.height; ++y) {
    TQ_TRY(store_transitions(image, y, {}));  // white: nothing is allocated
  }
  TQ_TRY(image.in_runs ? resize_run_table(image, height) : resize_rows(image, height));
  image.height = height;
  image.crop = {0, 0, image.width, height};
  BitmapInfoHeader header = header_of(image);
  header.biHeight = height;
  header.biSizeImage = image_bytes(image.width, height, image.bits);
  set_header(image, header);
  return kOk;
}

void clear_rows(ImageRecord& image, std::int32_t first, std::int32_t last) {
  if (first >= last) return;
  // Rows lie bottom-up, so the lowest of them comes first.
  platform::block_clear(
      plain_row(image, last - 1).data(),
      static_cast<std::size_t>(last - first) * static_cast<std::size_t>(image.bytes_per_row));
}

Status create_shell(ImageRecord& image, const void* header) {
  TQ_TRY(check_licence());
  HeaderBlock source;
  std::memcpy(&source.header, header, sizeof source.header);
  TQ_TRY(check_geometry(source.header));
  const int bits = source.header.biBitCount;
  if (bits < 24) {
    std::memcpy(source.palette.data(), static_cast<const std::uint8_t*>(header) + kDibHeaderBytes,
                palette_bytes(bits));
  }
  if (bits == 1) normalise_mono_palette(source.palette.data());
  TQ_TRY(create_image(image, source,
                      {.width = source.header.biWidth,
                       .height = source.header.biHeight,
                       .bits = bits,
                       .compression = source.header.biCompression == kRgb32 ? kRgb32 : 0}));
  clear_rows(image, 0, image.height);
  return kOk;
}

namespace {

Status check_packed_dib(void* packed_dib, BitmapInfoHeader& header) {
  // Only a global block tells its size; any other memory is the caller's word.
  const std::size_t known_size = platform::block_size(packed_dib);
  if (known_size != 0 && known_size < sizeof header) return StatusCode::bad_image;
  std::memcpy(&header, packed_dib, sizeof header);
  TQ_TRY(check_geometry(header));
  const int bits = header.biBitCount;
  if (known_size != 0 && known_size < dib_bytes(header.biWidth, header.biHeight, bits)) {
    return StatusCode::bad_image;
  }
  return kOk;
}

void describe_dib(ImageRecord& image, const BitmapInfoHeader& header) {
  const int bits = header.biBitCount;
  set_geometry(image, header.biWidth, header.biHeight, bits);
  image.crop = {0, 0, image.width, image.height};
  image.dib_size = static_cast<std::int32_t>(dib_bytes(image.width, image.height, bits));
  image.gamma = kDefaultGamma;
  if (bits == 1) normalise_mono_palette(palette_of(image).data());
}

}  // namespace

Status adopt_dib(ImageRecord& image, void* packed_dib) {
  BitmapInfoHeader header;
  TQ_TRY(check_packed_dib(packed_dib, header));
  adopt_block(image, static_cast<std::uint8_t*>(packed_dib));
  describe_dib(image, header);
  return kOk;
}

Status take_dib(ImageRecord& image, void* packed_dib) {
  BitmapInfoHeader header;
  TQ_TRY(check_packed_dib(packed_dib, header));
  TQ_TRY(check_pixels(header.biWidth, header.biHeight));
  replace_dib(image, count_block(packed_dib));
  describe_dib(image, header);
  image.gamma = 0;  // as of a decoded image
  return kOk;
}

ImageDraft::~ImageDraft() {
  free_block(record_.dib);
  free_block(record_.run_table);
}

Status ImageDraft::create(const HeaderBlock& source, const ImageShape& shape) {
  return create_pixels(record_, source, shape);
}

void ImageDraft::install(ImageRecord& image) {
  replace_dib(image, std::exchange(record_.dib, nullptr));
  image.width = record_.width;
  image.height = record_.height;
  image.bits = record_.bits;
  image.bytes_per_row = record_.bytes_per_row;
  image.dib_size = record_.dib_size;
  image.in_runs = record_.in_runs;
  image.run_table = std::exchange(record_.run_table, nullptr);
  image.runs_end = record_.runs_end;
  image.runs_dead = record_.runs_dead;
  image.waiting_end = record_.waiting_end;
}

}  // namespace tq
