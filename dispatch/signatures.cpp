// Just enough of some layouts to know or to tell variants apart. A short read leaves zeros, which
// match nothing.
#include "dispatch/signatures.h"

#include <algorithm>
#include <array>

#include "formats/bmp/bmp.h"
#include "formats/plugin/plugin.h"
#include "io/endian.h"
#include "io/stream_window.h"

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

// What a short file lacks is 0.
template <std::size_t kSize>
Bytes<kSize> read_of(const Probe& probe, std::int64_t offset) {
  if (seek_to(probe.stream, probe.start + offset).failed()) return {};
  return read_on<kSize>(probe.stream);
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

bool is_cursor(const Probe& probe) {
  const int pictures = load_le16(&probe.bytes[4]);
  return probe.has(std::string_view("\0\0\2\0", 4)) && pictures >= 1 && pictures <= 64;
}

bool probe_icon(const Probe& probe) {
  constexpr int kDirectoryBytes = 6, kEntryBytes = 16;
  const int pictures = load_le16(&probe.bytes[4]);
  if (!probe.has(std::string_view("\0\0\1\0", 4)) || pictures == 0) return false;
  const std::int64_t end = find_end(probe.stream) - probe.start;
  const std::int64_t first = kDirectoryBytes + std::int64_t{kEntryBytes} * pictures;
  if (end < first) return false;
  for (int i = 0; i < pictures; ++i) {
    const auto entry = read_of<kEntryBytes>(probe, kDirectoryBytes + kEntryBytes * i);
    const std::int64_t bytes = load_le32(&entry.data[8]), at = load_le32(&entry.data[12]);
    if (bytes == 0 || at < first || at + bytes > end) return false;
  }
  return true;
}

bool probe_bare_bitmap(const Probe& probe) {
  constexpr std::uint32_t kCore = 12, kInfos[] = {52, 56, 64, 108, 124};
  constexpr int kDepths[] = {0, 1, 2, 4, 8, 16, 24, 32};  // 0: of another file's picture
  const std::uint32_t bytes = load_le32(probe.bytes);
  const bool core = bytes == kCore;
  if (!core && std::ranges::find(kInfos, bytes) == std::end(kInfos)) return false;
  const auto header = read_of<16>(probe, 0);
  const std::uint8_t* const p = header.data.data();
  const bool sides = core ? load_le16(p + 4) != 0 && load_le16(p + 6) != 0
                          : load_le32(p + 4) != 0 && load_le32(p + 8) != 0;
  const std::uint8_t* const planes = p + (core ? 8 : 12);
  return sides && load_le16(planes) == 1 &&
         std::ranges::find(kDepths, load_le16(planes + 2)) != std::end(kDepths);
}

bool probe_plain_pcx(const Probe& probe) {
  const auto header = read_of<66>(probe, 0);
  const auto& h = header.data;
  const bool version = h[1] <= 5 && h[1] != 1;
  const bool bits = h[3] == 1 || h[3] == 2 || h[3] == 4 || h[3] == 8;
  return h[0] == 10 && version && h[2] <= 1 && bits && h[65] >= 1 && h[65] <= 4 &&
         load_le16(&h[8]) >= load_le16(&h[4]) && load_le16(&h[10]) >= load_le16(&h[6]);
}

bool probe_commented_xbm(const Probe& probe) {
  if (!probe.has("/*") || probe.has("/* XPM */")) return false;
  const auto bytes = read_of<1024>(probe, 0);
  std::string_view text(reinterpret_cast<const char*>(bytes.data.data()), bytes.count);
  while (text.starts_with("/*")) {
    const std::size_t end = text.find("*/", 2);
    if (end == std::string_view::npos) return false;
    text.remove_prefix(end + 2);
    text.remove_prefix(std::min(text.find_first_not_of(" \t\r\n"), text.size()));
  }
  return text.starts_with("#define");
}

bool probe_little_xwd(const Probe& probe) {
  constexpr std::uint32_t kLeast = 100, kMost = 4096, kVersion = 7;
  constexpr int kFormats = 3;
  const std::uint32_t bytes = load_le32(probe.bytes);
  return bytes >= kLeast && bytes <= kMost && load_le32(probe.bytes + 4) == kVersion &&
         load_le16(probe.bytes + 8) < kFormats;
}

bool probe_bare_pict(const Probe& probe) {
  const auto version = read_of<4>(probe, 10);
  return version.has("\x11\1") || version.has(std::string_view("\0\x11\2\xFF", 4));
}

bool probe_late_pdf(const Probe& probe) {
  constexpr std::string_view kMark = "%PDF-";
  const auto bytes = read_of<1024>(probe, 0);
  const auto end = bytes.data.begin() + bytes.count;
  return std::search(bytes.data.begin(), end, kMark.begin(), kMark.end(),
                     [](std::uint8_t a, char b) { return a == byte(b); }) != end;
}

// DICOM PS3.5, section 7.1: group and number of an element, then the two letters of its kind or its
// length, which are as large as the first elements of a file are.
bool probe_bare_dicom(const Probe& probe) {
  constexpr std::uint32_t kLongest = 256;
  const std::uint8_t* const p = probe.bytes;
  const auto letter = [p](int at) { return p[at] >= 'A' && p[at] <= 'Z'; };
  const bool little = p[0] == 8 && p[1] == 0 && p[3] == 0,
             big = p[0] == 0 && p[1] == 8 && p[2] == 0;
  if (!little && !big) return false;
  const std::uint32_t bytes = little ? load_le32(p + 4) : load_be32(p + 4);
  if (letter(4) && letter(5)) return true;
  if (bytes == 0 || bytes > kLongest || bytes % 2 != 0) return false;
  const auto next = read_of<2>(probe, 8 + static_cast<std::int32_t>(bytes));
  return std::equal(next.data.begin(), next.data.end(), p);
}

bool probe_marked_dicom(const Probe& probe) {
  return read_of<4>(probe, 128).has("DICM");
}

bool has_tiff_version(const Probe& probe) {
  const int version = probe[0] == 'I' ? load_le16(&probe.bytes[2]) : load_be16(&probe.bytes[2]);
  return version == 42 || version == 43;
}

bool has_fax_prefix(const Probe& probe) {
  return probe[0] != 'p' || (probe[1] <= 4 && probe.has("\x91\x01\xFF", 2 + probe[1]));
}

// [MS-CFB]: the first sector of the directory begins with the root entry.
bool has_flashpix_class(const Probe& probe) {
  const auto header = read_of<52>(probe, 0);
  const int shift = load_le16(&header.data[30]);
  if (header.count < header.data.size() || shift > 12) return false;
  const std::int64_t at = (std::int64_t{load_le32(&header.data[48])} + 1) << shift;
  const auto id = read_of<16>(probe, at + 80);
  return id.has(std::string_view("\0\x67\x61\x56\x54\xC1\xCE\x11\x85\x53\0\xAA\0\xA1\xF9\x5B", 16));
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
