// Writes uncompressed bitmaps, with a file header or as bare DIBs: rows from the bottom up, one
// write each.
#include "core/memory.h"
#include "formats/bmp/bmp.h"
#include "formats/bmp/bmp_header.h"
#include "formats/bmp/bmp_rows.h"

namespace tq::formats {
namespace {

Status encode_plain(const EncodeRequest& request, FileHeader file_header) {
  const BitmapInfoHeader& header = request.image->header;
  TQ_TRY(write_bmp_header(request, file_header, kBiRgb));
  RowBuffer<std::uint8_t> row;
  TQ_TRY(row.allocate(row_bytes(header.biWidth, header.biBitCount)));
  for (std::int32_t y = header.biHeight - 1; y >= 0; --y) {
    TQ_TRY(request.rows.row(row.pixels(), y));
    TQ_TRY(write_all(request.stream, row.pixels()));
  }
  return kOk;
}

}  // namespace

Status encode_bmp(const EncodeRequest& request) {
  switch (request.variant()) {
    case kBmpRunLengths:
      return encode_bmp_rle(request);
    case kBmpBareDib:
      return encode_plain(request, FileHeader::none);
    default:
      return encode_plain(request, FileHeader::written);
  }
}

}  // namespace tq::formats
