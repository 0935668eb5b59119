// MSP pictures of both versions: black and white, with 1 for white; version 1 plain, version 2 coded
// row by row behind a table of the rows' lengths.
#include <array>

#include "formats/rows.h"
#include "formats/simple/simple.h"
#include "io/chunk_reader.h"
#include "io/endian.h"
#include "pixels/colours.h"

namespace tq::simple {
namespace {

constexpr int kHeaderBytes = 32, kCheckedBytes = 26;
constexpr std::uint32_t kPlain = 0x4D6E6144;  // "DanM"
constexpr std::uint32_t kCoded = 0x536E694C;  // "LinS"
constexpr std::size_t kLongestRow = 0xFFFF;
constexpr std::uint8_t kWhite = 0xFF;

// A 0, a count and a byte to be repeated; or a count and so many bytes. The rest of a row is white.
void expand_row(pixels::Bytes coded, pixels::Row line) {
  auto at = coded.begin();
  auto to = line.begin();
  while (at != coded.end() && to != line.end()) {
    std::ptrdiff_t count = *at++;
    const bool is_run = count == 0;
    if (is_run && coded.end() - at < 2) break;
    if (is_run) count = *at++;
    count = std::min(count, line.end() - to);
    if (is_run) {
      to = std::fill_n(to, count, *at++);
    } else {
      count = std::min(count, coded.end() - at);
      to = std::copy_n(at, count, to);
      at += count;
    }
  }
  std::fill(to, line.end(), kWhite);
}

}  // namespace

Status decode_msp(const formats::DecodeRequest& request) {
  TQ_TRY(request.seek_to_start());
  std::array<std::uint8_t, kHeaderBytes> bytes;
  if (read_fully(request.stream, bytes) < kHeaderBytes) return StatusCode::read_failed;
  const std::uint32_t version = load_le32(bytes.data());
  int sum = 0;
  for (int i = 0; i < kCheckedBytes; i += 2) sum ^= load_le16(&bytes[i]);
  if (sum != 0 || (version != kPlain && version != kCoded)) return StatusCode::bad_image;
  HeaderBlock image = dib_header(load_le16(&bytes[4]), load_le16(&bytes[6]), 1);
  image.palette = pixels::grey_levels(1);
  TQ_TRY(request.sink.header(image));

  const pixels::RowLayout* const layout = pixels::find_layout(pixels::Layout::bits_1, 1);
  const formats::StoredRows rows{layout, stored_bytes(*layout, image.header.biWidth)};
  ChunkReader input;
  TQ_TRY(input.open(request.stream,
                    std::max<std::int64_t>(kLongestRow, read_chunk_bytes(rows.line_bytes))));
  if (version == kPlain) {
    return formats::deliver_rows(rows, image.header, request.sink, [&](pixels::Row line) {
      return static_cast<std::ptrdiff_t>(input.read(line));
    });
  }
  RowBuffer<std::uint8_t> lengths;
  TQ_TRY(lengths.allocate(std::int64_t{2} * image.header.biHeight));
  const std::uint8_t* length = lengths.data();
  const std::uint8_t* const end = length + (input.read(lengths.pixels()) & ~std::size_t{1});
  return formats::deliver_rows(rows, image.header, request.sink, [&](pixels::Row line) {
    if (length == end) return std::ptrdiff_t{0};
    const std::size_t wanted = load_le16(length);
    length += 2;
    const pixels::Bytes coded = input.peek(wanted);
    if (coded.empty() && wanted != 0) return std::ptrdiff_t{0};
    if (coded.size() < wanted) request.sink.damaged(StatusCode::read_failed);
    expand_row(coded, line);
    input.skip(coded.size());
    return std::ssize(line);
  });
}

}  // namespace tq::simple
