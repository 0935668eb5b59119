// Just enough of some layouts to know or to tell variants apart. A short read leaves zeros, which
// match nothing.
#include "dispatch/signatures.h"

#include <algorithm>
#include <array>

#include "formats/bmp/bmp.h"
#include "formats/plugin/plugin.h"
#include "io/endian.h"

namespace tq::dispatch {
namespace {

using formats::Probe;

template <std::size_t kSize>
struct Bytes {
  std::array<std::uint8_t, kSize> data{};
  std::size_t count = 0;  // how many were read

  bool has(std::string_view text) const {
    return count >= text.size() && std::equal(text.begin(), text.end(), data.begin(),
                                              [](char a, std::uint8_t b) { return byte(a) == b; });
  }
};

template <std::size_t kSize>
Bytes<kSize> read_on(StreamHandle stream) {
  Bytes<kSize> bytes;
  bytes.count = read_fully(stream, bytes.data);
  return bytes;
}

template <std::size_t kSize>
Bytes<kSize> read_at(StreamHandle stream, std::int32_t offset) {
  seek(stream, offset, Origin::start);
  return read_on<kSize>(stream);
}

// The first data element is the length of its group, and the element behind it stays within that.
bool starts_with_group_length(StreamHandle stream) {
  const auto bytes = read_at<20>(stream, 0);
  if (bytes.count < bytes.data.size()) return false;
  const std::uint8_t* first = bytes.data.data();
  const std::uint8_t* second = first + 12;
  const std::uint32_t group_length = load_le32(first + 8);
  return load_le16(first) < 0x0010 && load_le16(first + 2) == 0 && load_le32(first + 4) == 4 &&
         group_length != 0 && load_le16(second) == load_le16(first) &&
         load_le32(second + 4) <= group_length;
}

// Skips data sub-blocks up to the empty one; false when the stream ends first.
bool skip_sub_blocks(StreamHandle stream) {
  for (;;) {
    std::array<std::uint8_t, 1> length{};
    if (read_fully(stream, length) < 1) return false;
    if (length[0] == 0) return true;
    seek(stream, length[0], Origin::current);
  }
}

}  // namespace

bool probe_xbm(const Probe& probe) {
  if (!probe.has("#define")) return false;
  const auto text = read_on<200>(probe.stream);
  seek(probe.stream, 0, Origin::start);
  const auto end = text.data.begin() + text.count;
  return std::find(text.data.begin(), end, '\n') != end;
}

bool probe_pict(const Probe& probe) {
  seek(probe.stream, 512, Origin::current);
  const auto bytes = read_on<10>(probe.stream);
  return (bytes.count > 0 && bytes.data[0] == 0x11) || (bytes.count > 1 && bytes.data[1] == 0x11);
}

// The type field of a MacBinary header, when the PICT test has read before; else wherever.
bool probe_macpaint(const Probe& probe) {
  seek(probe.stream, -467, Origin::current);
  const auto type = read_on<10>(probe.stream);
  if (type.has("PNT") || type.has("PICT")) return true;
  return read_at<10>(probe.stream, 512).has(std::string_view("\xB9\0\xB9\0", 4));
}

bool probe_sct(const Probe& probe) {
  const auto bytes = read_at<2>(probe.stream, 80);
  return (bytes.count > 0 && bytes.data[0] == 'C') || (bytes.count > 1 && bytes.data[1] == 'T');
}

bool probe_dicom(const Probe& probe) {
  return starts_with_group_length(probe.stream) || read_at<4>(probe.stream, 0).has("DICM") ||
         read_at<4>(probe.stream, 128).has("DICM");
}

Status find_bmp_variant(StreamHandle stream) {
  constexpr std::size_t kFileHeader = 14, kSize = 4, kUpToCompression = 20;
  std::array<std::uint8_t, kFileHeader + kUpToCompression> header{};
  const std::span<std::uint8_t> bytes(header);
  read_fully(stream, bytes.first(2));
  const bool bare = header[0] != 'B' || header[1] != 'M';
  const std::size_t info = bare ? 0 : kFileHeader;
  // Step by step: the shortest files end before a full header would.
  read_fully(stream, bytes.subspan(2, info + kSize - 2));
  if (load_le32(&header[info]) == 12) return kOk;  // OS/2: never coded
  read_fully(stream, bytes.subspan(info + kSize, kUpToCompression - kSize));
  const bool compressed = load_le32(&header[info + 16]) != 0;
  return Status::from_raw(compressed ? bmp::kRunLengths : bmp::kPlain);
}

// GIF89a specification, sections 18 to 24.
Status find_gif_variant(StreamHandle stream) {
  std::array<std::uint8_t, 13> screen{};
  if (read_fully(stream, screen) < 13) return StatusCode::bad_image;
  const std::uint8_t flags = screen[10];
  if ((flags & 0x80) != 0) seek(stream, 3 << ((flags & 7) + 1), Origin::current);
  for (;;) {
    std::array<std::uint8_t, 1> introducer{};
    if (read_fully(stream, introducer) < 1) return StatusCode::bad_image;
    if (introducer[0] == ',') break;
    std::array<std::uint8_t, 1> label{};
    if (introducer[0] != '!' || read_fully(stream, label) < 1) return StatusCode::bad_image;
    std::array<std::uint8_t, 5> control{};
    if (label[0] == 0xF9 && read_fully(stream, control) < 5) return StatusCode::bad_image;
    if (!skip_sub_blocks(stream)) return StatusCode::bad_image;
  }
  std::array<std::uint8_t, 10> descriptor{};  // and the first byte of the data
  if (read_fully(stream, descriptor) < 10) return StatusCode::bad_image;
  const bool interlaced = (descriptor[8] & 0x40) != 0;
  return Status::from_raw(interlaced ? plugin::kGifInterlaced : 0);
}

}  // namespace tq::dispatch
