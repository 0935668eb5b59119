// CUT pictures: indices in runs, row by row. Their colours are in another file, which a stream cannot
// reach, so they are shown in grey.
#include <array>

#include "formats/rows.h"
#include "formats/simple/simple.h"
#include "io/chunk_reader.h"
#include "io/endian.h"
#include "pixels/colours.h"

namespace tq::simple {
namespace {

constexpr int kHeaderBytes = 6;
constexpr std::size_t kLongestRow = 0xFFFF;
constexpr int kRun = 0x80;  // of the byte behind, as long as the low bits say

// How much of the row the codes fill.
std::ptrdiff_t expand_row(pixels::Bytes coded, pixels::Row line) {
  auto at = coded.begin();
  auto to = line.begin();
  while (at != coded.end() && *at != 0) {
    const int code = *at++;
    const std::ptrdiff_t count = std::min<std::ptrdiff_t>(code & ~kRun, line.end() - to);
    if (at == coded.end()) break;
    if ((code & kRun) != 0) {
      to = std::fill_n(to, count, *at++);
    } else {
      const std::ptrdiff_t there = std::min<std::ptrdiff_t>(code, coded.end() - at);
      to = std::copy_n(at, std::min(count, there), to);
      at += there;
    }
  }
  return to - line.begin();
}

}  // namespace

Status decode_cut(const formats::DecodeRequest& request) {
  TQ_TRY(request.seek_to_start());
  std::array<std::uint8_t, kHeaderBytes> bytes;
  if (read_fully(request.stream, bytes) < kHeaderBytes) return StatusCode::read_failed;
  HeaderBlock image = dib_header(load_le16(&bytes[0]), load_le16(&bytes[2]), 8);
  image.palette = pixels::grey_ramp();
  TQ_TRY(request.sink.header(image));
  const formats::StoredRows rows{pixels::find_layout(pixels::Layout::bytes, 8),
                                 image.header.biWidth};
  ChunkReader input;
  TQ_TRY(input.open(request.stream,
                    std::max<std::int64_t>(kLongestRow, read_chunk_bytes(rows.line_bytes))));
  return formats::deliver_rows(rows, image.header, request.sink, [&](pixels::Row line) {
    std::array<std::uint8_t, 2> length;
    if (input.read(length) < length.size()) return std::ptrdiff_t{0};
    const pixels::Bytes coded = input.peek(load_le16(length.data()));
    if (coded.size() < load_le16(length.data())) request.sink.damaged(StatusCode::read_failed);
    std::fill(expand_row(coded, line) + line.begin(), line.end(), std::uint8_t{0});
    input.skip(coded.size());
    return std::ssize(line);
  });
}

}  // namespace tq::simple
