// Writes a metafile of one bitmap.
#include <array>

#include "formats/bmp/bmp.h"
#include "formats/rows.h"
#include "formats/wmf/records.h"
#include "formats/wmf/wmf.h"

namespace tq::wmf {
namespace {

using formats::EncodeRequest;

constexpr std::int32_t kLongestSide = INT16_MAX, kUsualDots = 96, kAnisotropic = 8;
constexpr std::int64_t kMostWords = std::int64_t{1} << 31;
constexpr int kBlitWords = 3 + 11;  // without the bitmap

std::int64_t record_words(const BitmapInfoHeader& header) {
  return kBlitWords + bmp::part_bytes(header) / 2;
}

void put_record(StreamWriter& out, Function function, std::initializer_list<std::int32_t> words) {
  out.put_le32(static_cast<std::uint32_t>(3 + words.size()));
  out.put_le16(function);
  for (const std::int32_t word : words) out.put_le16(static_cast<std::uint32_t>(word));
}

void put_placeable(const BitmapInfoHeader& header, StreamWriter& out) {
  const std::int32_t dots = header.biXPelsPerMeter;
  const std::int32_t inch = dots > 0 && dots <= UINT16_MAX ? dots : kUsualDots;
  const std::int32_t words[] = {0xCDD7,         0x9AC6,          0,    0, 0,
                                header.biWidth, header.biHeight, inch, 0, 0};
  std::int32_t checksum = 0;
  for (const std::int32_t word : words) {
    out.put_le16(static_cast<std::uint32_t>(word));
    checksum ^= word;
  }
  out.put_le16(static_cast<std::uint32_t>(checksum));
}

}  // namespace

Status can_encode_wmf(const EncodeRequest& request) {
  TQ_TRY(formats::check_plain(request, kLongestSide));
  const bool fits = record_words(request.image->header) <= kMostWords;
  return fits ? StatusCode::ok : StatusCode::unsupported;
}

Status encode_wmf(const EncodeRequest& request) {
  TQ_TRY(can_encode_wmf(request));
  const BitmapInfoHeader& header = request.image->header;
  const std::int32_t width = header.biWidth, height = header.biHeight;
  constexpr std::int64_t kHeaderWords = 9, kStateWords = 4 + 5 + 5, kEndWords = 3;
  const std::int64_t words = record_words(header);
  StreamWriter out;
  TQ_TRY(out.open(request.stream));
  put_placeable(header, out);
  out.put_le16(1);
  out.put_le16(kHeaderWords);
  out.put_le16(0x300);
  out.put_le32(static_cast<std::uint32_t>(kHeaderWords + kStateWords + words + kEndWords));
  out.put_le16(0);
  out.put_le32(static_cast<std::uint32_t>(words));
  out.put_le16(0);
  put_record(out, kSetMapMode, {kAnisotropic});
  put_record(out, kSetWindowOrigin, {0, 0});
  put_record(out, kSetWindowExtent, {height, width});
  out.put_le32(static_cast<std::uint32_t>(words));
  out.put_le16(kStretchDib);
  out.put_le32(kSourceCopy);
  for (const std::int32_t word : {0, height, width, 0, 0, height, width, 0, 0}) {
    out.put_le16(static_cast<std::uint32_t>(word));
  }
  TQ_TRY(out.flush());
  TQ_TRY(bmp::encode_part(request));
  put_record(out, kEnd, {});
  return out.flush();
}

}  // namespace tq::wmf
