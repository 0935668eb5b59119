// Detection tests that read on in the stream. A short read leaves zeros, which match nothing.
#include "dispatch/probes.h"

#include <algorithm>
#include <array>

#include "io/endian.h"

namespace tq::dispatch {
namespace {

template <std::size_t kSize>
struct Bytes {
  std::array<std::uint8_t, kSize> data{};
  std::size_t count = 0;  // how many were read

  bool has(std::string_view text) const {
    return count >= text.size() &&
           std::equal(text.begin(), text.end(), data.begin(),
                      [](char a, std::uint8_t b) { return static_cast<std::uint8_t>(a) == b; });
  }
};

template <std::size_t kSize>
Bytes<kSize> read_on(StreamHandle stream) {
  Bytes<kSize> bytes;
  bytes.count = static_cast<std::size_t>(read(stream, bytes.data));
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

}  // namespace

bool probe_xbm(const Probe& probe) {
  if (!probe.has("#define")) return false;
  const auto text = read_on<200>(probe.stream);
  seek(probe.stream, 0, Origin::start);
  const auto end = text.data.begin() + static_cast<std::ptrdiff_t>(text.count);
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

}  // namespace tq::dispatch
