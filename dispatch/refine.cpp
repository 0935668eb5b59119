// Just enough of the TIFF, BMP and GIF layouts to tell their variants apart.
#include "dispatch/refine.h"

#include <array>

#include "io/chunk_reader.h"
#include "io/endian.h"

namespace tq::dispatch {
namespace {

constexpr int kIfdEntryBytes = 12;
constexpr std::uint16_t kCompressionTag = 259, kShort = 3, kLong = 4;

// TIFF 6.0, section 8, Compression.
Status code_of_compression(std::uint32_t compression) {
  switch (compression) {
    case 1:
      return Status::from_raw(IMG_TYPE_TIFF);
    case 2:
      return Status::from_raw(IMG_TYPE_TIFF_HUFFMAN);
    case 3:
      return Status::from_raw(IMG_TYPE_TIFF_G3);
    case 4:
      return Status::from_raw(IMG_TYPE_TIFF_G4);
    case 5:
      return Status::from_raw(IMG_TYPE_TIFF_LZW);
    case 6:
      return Status::from_raw(IMG_TYPE_TIFF_JPEG);
    case 45:
      return Status::from_raw(IMG_TYPE_TIFF_45);
    case 32008:
      return Status::from_raw(IMG_TYPE_TIFF_32008);
    case 32010:
      return Status::from_raw(IMG_TYPE_TIFF_32010);
    case 32773:
      return Status::from_raw(IMG_TYPE_TIFF_PACKBITS);
    default:
      return StatusCode::unsupported;
  }
}

struct TiffOrder {
  bool big_endian;
  std::uint16_t u16(const std::uint8_t* p) const {
    return big_endian ? load_be16(p) : load_le16(p);
  }
  std::uint32_t u32(const std::uint8_t* p) const {
    return big_endian ? load_be32(p) : load_le32(p);
  }
};

// Skips data sub-blocks up to the empty one; false when the stream ends first.
bool skip_sub_blocks(StreamHandle stream) {
  for (;;) {
    std::array<std::uint8_t, 1> length{};
    if (read(stream, length) < 1) return false;
    if (length[0] == 0) return true;
    seek(stream, length[0], Origin::current);
  }
}

}  // namespace

Status refine_tiff(StreamHandle stream) {
  const std::int32_t start = position(stream);
  std::array<std::uint8_t, 8> header{};
  read(stream, header);
  const TiffOrder order{header[0] == 'M'};
  const std::int64_t directory = std::int64_t{start} + order.u32(&header[4]);
  if (directory > INT32_MAX ||
      seek(stream, static_cast<std::int32_t>(directory), Origin::start) < 0) {
    return StatusCode::unsupported;
  }
  std::array<std::uint8_t, 2> count{};
  read(stream, count);
  ChunkReader entries;
  TQ_TRY(entries.open(stream, read_chunk_bytes(kIfdEntryBytes)));
  for (int left = order.u16(count.data()); left > 0; --left) {
    const auto entry = entries.peek(kIfdEntryBytes);
    if (entry.size() < kIfdEntryBytes) break;
    if (order.u16(&entry[0]) == kCompressionTag) {
      const std::uint16_t type = order.u16(&entry[2]);
      if (type == kShort) return code_of_compression(order.u16(&entry[8]));
      if (type == kLong) return code_of_compression(order.u32(&entry[8]));
      break;
    }
    entries.skip(kIfdEntryBytes);
  }
  return StatusCode::unsupported;
}

Status refine_bmp(StreamHandle stream) {
  constexpr std::size_t kFileHeader = 14, kSize = 4, kUpToCompression = 20;
  std::array<std::uint8_t, kFileHeader + kUpToCompression> header{};
  const std::span<std::uint8_t> bytes(header);
  read(stream, bytes.first(2));
  const bool bare = header[0] != 'B' || header[1] != 'M';
  const std::size_t info = bare ? 0 : kFileHeader;
  // Step by step: the shortest files end before a full header would.
  read(stream, bytes.subspan(2, info + kSize - 2));
  if (load_le32(&header[info]) == 12) return Status::from_raw(IMG_TYPE_BMP);  // OS/2: never coded
  read(stream, bytes.subspan(info + kSize, kUpToCompression - kSize));
  const bool compressed = load_le32(&header[info + 16]) != 0;
  return Status::from_raw(compressed ? IMG_TYPE_BMP_RLE : IMG_TYPE_BMP);
}

// GIF89a specification, sections 18 to 24.
Status refine_gif(StreamHandle stream) {
  std::array<std::uint8_t, 13> screen{};
  if (read(stream, screen) < 13) return StatusCode::bad_image;
  const std::uint8_t flags = screen[10];
  if ((flags & 0x80) != 0) seek(stream, 3 << ((flags & 7) + 1), Origin::current);
  for (;;) {
    std::array<std::uint8_t, 1> introducer{};
    if (read(stream, introducer) < 1) return StatusCode::bad_image;
    if (introducer[0] == ',') break;
    std::array<std::uint8_t, 1> label{};
    if (introducer[0] != '!' || read(stream, label) < 1) return StatusCode::bad_image;
    std::array<std::uint8_t, 5> control{};
    if (label[0] == 0xF9 && read(stream, control) < 5) return StatusCode::bad_image;
    if (!skip_sub_blocks(stream)) return StatusCode::bad_image;
  }
  std::array<std::uint8_t, 10> descriptor{};  // and the first byte of the data
  if (read(stream, descriptor) < 10) return StatusCode::bad_image;
  const bool interlaced = (descriptor[8] & 0x40) != 0;
  return Status::from_raw(interlaced ? IMG_TYPE_GIF_INTERLACED : IMG_TYPE_GIF);
}

}  // namespace tq::dispatch
