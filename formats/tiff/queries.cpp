// Questions about files that no pixel is needed for.
#include <bit>

#include "formats/tiff/page.h"
#include "formats/tiff/tiff.h"

namespace tq::tiff {
namespace {

// From the file's byte order to this machine's.
void turn_values(const File& file, int type, std::span<std::uint8_t> bytes) {
  static_assert(std::endian::native == std::endian::little);
  if (!file.big_endian()) return;
  const int size = type == IMG_TIFF_RATIONAL || type == IMG_TIFF_SRATIONAL ? 4 : type_bytes(type);
  for (std::size_t i = 0; i + size <= bytes.size(); i += size) {
    std::reverse(bytes.begin() + i, bytes.begin() + i + size);
  }
}

}  // namespace

Status count_tiff_pages(StreamHandle stream) {
  File file;
  TQ_TRY(file.open(stream, position(stream)));
  return file.count_pages();
}

Status find_tiff_coding(StreamHandle stream) {
  File file;
  std::int64_t directory = 0;
  (void)file.open(stream,
                  position(stream));  // a file is named after its coding whatever its version
  Entry entry;
  if (file.find_page(0, directory).failed() || !file.find_entry(directory, kCompression, entry)) {
    return StatusCode::unsupported;
  }
  if (entry.type != IMG_TIFF_SHORT && entry.type != IMG_TIFF_LONG) return StatusCode::unsupported;
  const std::uint64_t coding = Numbers(file, entry).at(0, 0);
  return coding <= 0xFFFF ? Status::from_raw(static_cast<std::int32_t>(coding))
                          : StatusCode::unsupported;
}

Status find_tiff_orientation(StreamHandle stream, const Options& /*options*/) {
  File file;
  std::int64_t directory = 0;
  TQ_TRY(file.open(stream, position(stream)));
  TQ_TRY(file.find_page(0, directory));
  Entry entry;
  if (!file.find_entry(directory, kOrientation, entry)) return Status::from_raw(1);
  const std::uint64_t orientation = Numbers(file, entry).at(0, 1);
  return Status::from_raw(orientation >= 1 && orientation <= 8 ? static_cast<int>(orientation) : 1);
}

Status find_tiff_tag(StreamHandle stream, std::int32_t page, std::int32_t tag, TagValue& value) {
  File file;
  std::int64_t directory = 0;
  if (file.open(stream, 0).failed()) return StatusCode::unsupported;
  TQ_TRY(page < 0 ? StatusCode::page_past_end : file.find_page(page, directory));
  Entry entry;
  if (!file.find_entry(directory, tag, entry)) {
    const bool of_tiles = tag >= kTileWidth && tag <= kTileByteCounts;
    return of_tiles && !file.find_entry(directory, kTileWidth, entry) ? StatusCode::not_tiled
                                                                      : StatusCode::unsupported;
  }
  const std::uint64_t all_bytes = entry.count * type_bytes(entry.type);
  if (all_bytes > INT32_MAX) return StatusCode::read_failed;
  const auto bytes = static_cast<std::size_t>(all_bytes);
  value.type = entry.type;
  value.count = static_cast<std::int32_t>(entry.count);
  const auto wanted = value.room.first(std::min(value.room.size(), bytes));
  if (entry.is_in_place) {
    auto values = std::span(entry.in_place).first(bytes);
    turn_values(file, entry.type, values);
    std::copy_n(values.begin(), wanted.size(), wanted.begin());
    return Status::from_raw(static_cast<std::int32_t>(bytes));
  }
  if (!wanted.empty() && !file.read_at(entry.position, wanted)) return StatusCode::read_failed;
  // A value that fits in part is given in part.
  const std::size_t whole = wanted.size() / 8 * 8;
  std::array<std::uint8_t, 8> last{};
  if (whole < wanted.size()) {
    const auto rest = std::span(last).first(std::min<std::size_t>(bytes - whole, last.size()));
    if (!file.read_at(entry.position + std::int64_t(whole), rest)) return StatusCode::read_failed;
  }
  turn_values(file, entry.type, wanted.first(whole));
  turn_values(file, entry.type, last);
  std::copy_n(last.begin(), wanted.size() - whole, wanted.begin() + whole);
  return Status::from_raw(static_cast<std::int32_t>(bytes));
}

}  // namespace tq::tiff
