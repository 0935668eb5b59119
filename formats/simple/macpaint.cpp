// MacPaint pictures: a page of one size, packed row by row behind a block of patterns.
#include <array>
#include <string_view>

#include "coding/packbits.h"
#include "formats/rows.h"
#include "formats/simple/simple.h"
#include "io/chunk_reader.h"
#include "pixels/colours.h"

namespace tq::simple {
namespace {

constexpr std::int32_t kWidth = 576, kHeight = 720, kDpi = 72;
constexpr int kPatternBytes = 512;

// What files had around them to keep their type on other systems.
constexpr int kMacBinaryBytes = 128, kTypeAt = 65;
constexpr std::string_view kType = "PNTG";

}  // namespace

Status decode_macpaint(const formats::DecodeRequest& request) {
  TQ_TRY(request.seek_to_start());
  const std::int64_t start = request.start();
  std::array<std::uint8_t, kMacBinaryBytes> first;
  if (read_fully(request.stream, first) < kMacBinaryBytes) return StatusCode::read_failed;
  const bool wrapped =
      std::equal(kType.begin(), kType.end(), first.begin() + kTypeAt,
                 [](char letter, std::uint8_t value) { return byte(letter) == value; });
  const std::int64_t rows_at = start + (wrapped ? kMacBinaryBytes : 0) + kPatternBytes;
  // The last byte before the rows tells whether there are any.
  std::array<std::uint8_t, 1> last;
  TQ_TRY(seek_to(request.stream, rows_at - 1));
  if (read_fully(request.stream, last) < 1) return StatusCode::read_failed;

  HeaderBlock image = dib_header(kWidth, kHeight, 1);
  image.header.biXPelsPerMeter = image.header.biYPelsPerMeter = kDpi;
  image.palette = pixels::grey_levels(1);
  TQ_TRY(request.sink.header(image));
  const formats::StoredRows rows{pixels::find_layout(pixels::Layout::bits_1_black, 1), kWidth / 8};
  ChunkReader input;
  TQ_TRY(input.open(request.stream, read_chunk_bytes(rows.line_bytes)));
  ReaderPieces rest(input);
  packbits::Decoder decoder;
  decoder.start(coding::PieceSource::of(rest));
  return formats::deliver_rows(rows, image.header, request.sink, [&](pixels::Row line) {
    const std::ptrdiff_t there = decoder.read(line);
    decoder.cut_run();
    return there;
  });
}

}  // namespace tq::simple
