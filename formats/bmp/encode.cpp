// Writes bitmaps: plain ones, and run-length coded ones, RLE8 over the pixels of a row, RLE4 over its
// pairs of pixels. Where runs and literals begin and end is fixed, so that equal images give equal
// files.
#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstring>
#include <utility>

#include "core/memory.h"
#include "core/numbers.h"
#include "formats/bmp/bmp.h"
#include "formats/bmp/header.h"
#include "io/endian.h"
#include "io/stream_writer.h"

namespace tq::bmp {
namespace {

constexpr int kStep = 16;   // bytes copied at a time
constexpr int kBlock = 64;  // bytes compared at a time
using Row = RowBuffer<std::uint8_t, kBlock + kStep>;

// What a coding makes of a row's bytes.
struct Rle8 {
  static constexpr int kLongest = 255;     // bytes in one code
  static constexpr int kShortestCopy = 3;  // literal bytes that are taken without looking
  static constexpr int kPixelsPerByte = 1;
};
struct Rle4 {
  static constexpr int kLongest = 127;
  static constexpr int kShortestCopy = 2;
  static constexpr int kPixelsPerByte = 2;
};

inline std::uint64_t load_word(const std::uint8_t* p) {
  return load_le32(p) | std::uint64_t{load_le32(p + 4)} << 32;
}

// Eight bits, the lowest for the first byte: which bytes are not 0.
inline std::uint64_t nonzero_bytes(std::uint64_t word) {
  constexpr std::uint64_t kLow = 0x7F7F7F7F7F7F7F7F;
  const std::uint64_t marks = ((((word & kLow) + kLow) | word) & ~kLow) >> 7;
  return marks * 0x0102040810204080 >> 56;
}

// Where the bytes of a row change: bit i is set when byte i differs from byte i + 1. The last byte
// counts as a change, what follows it does not, so no search leaves the row.
class Changes {
 public:
  Status allocate(std::ptrdiff_t count) {
    count_ = count;
    return bits_.allocate(count / kBlock + 2);
  }

  // Reads up to kBlock bytes too many.
  void mark(const std::uint8_t* row) {
    for (std::ptrdiff_t i = 0; i < count_; i += kBlock) {
      std::uint64_t bits = 0;
      for (int k = 0; k < kBlock; k += 8) {
        bits |= nonzero_bytes(load_word(row + i + k) ^ load_word(row + i + k + 1)) << k;
      }
      bits_[i / kBlock] = bits;
    }
    const std::ptrdiff_t last = count_ - 1;
    bits_[count_ / kBlock] &= (std::uint64_t{1} << count_ % kBlock) - 1;
    bits_[last / kBlock] |= std::uint64_t{1} << last % kBlock;
  }

  // How many bits from `i` on are `kValue`, at most `most`.
  template <bool kValue>
  std::ptrdiff_t leading(std::ptrdiff_t i, std::ptrdiff_t most) const {
    for (std::ptrdiff_t n = 0; n < most; n += kBlock) {
      const std::uint64_t bits = kValue ? ~block_at(i + n) : block_at(i + n);
      if (bits != 0) return std::min<std::ptrdiff_t>(n + std::countr_zero(bits), most);
    }
    return most;
  }

 private:
  std::uint64_t block_at(std::ptrdiff_t i) const {
    const std::uint64_t* bits = bits_.data() + i / kBlock;
    const std::ptrdiff_t shift = i % kBlock;
    return bits[0] >> shift | bits[1] << 1 << (63 - shift);
  }

  RowBuffer<std::uint64_t> bits_;
  std::ptrdiff_t count_ = 0;
};

// Codes the `count` bytes of a row and returns the end of the codes, which are at most twice as
// long plus the two bytes that end the line; reads and writes up to kStep bytes too many.
template <class Coding>
std::uint8_t* code_row(const std::uint8_t* row, std::ptrdiff_t count, const Changes& changes,
                       std::uint8_t* out) {
  const auto pixels = [](std::ptrdiff_t bytes) { return byte(bytes * Coding::kPixelsPerByte); };
  for (std::ptrdiff_t i = 0; i < count;) {
    const std::uint8_t* at = row + i;
    if (i >= count - 3 || at[0] == at[1]) {
      const std::ptrdiff_t run = 1 + changes.leading<false>(i, Coding::kLongest - 1);
      *out++ = pixels(run);
      *out++ = *at;
      i += run;
      continue;
    }
    constexpr int kTaken = Coding::kShortestCopy;
    const std::ptrdiff_t literals =
        kTaken + changes.leading<true>(i + kTaken, Coding::kLongest - kTaken);
    *out++ = 0;
    *out++ = pixels(literals);
    for (std::ptrdiff_t k = 0; k < literals; k += kStep) std::memcpy(out + k, at + k, kStep);
    out += literals;
    if (literals % 2 != 0) *out++ = 0;
    i += literals;
  }
  *out++ = 0;
  *out++ = 0;
  return out;
}

template <class Coding>
Status encode_rows(const EncodeRequest& request, std::uint32_t compression) {
  const BitmapInfoHeader& header = request.image->header;
  StreamWriter out;
  TQ_TRY(write_header(request, FileHeader::written, compression, out));
  // Pixels of 16 and 32 bits are taken as bytes too, as many as the row has pixels: callers rely on
  // the codes, though no reader makes an image of them.
  const std::ptrdiff_t count =
      header.biWidth / Coding::kPixelsPerByte + header.biWidth % Coding::kPixelsPerByte;
  Row row;
  TQ_TRY(row.allocate(row_bytes(header.biWidth, header.biBitCount)));
  Changes changes;
  TQ_TRY(changes.allocate(count));
  for (std::int32_t y = header.biHeight - 1; y >= 0; --y) {
    TQ_TRY(request.rows.row(row.pixels(), y));
    changes.mark(row.data());
    std::uint8_t* const codes = out.room(2 * std::int64_t{count} + 2 + kStep).data();
    TQ_TRY(out.status());
    out.take(code_row<Coding>(row.data(), count, changes, codes) - codes);
    TQ_TRY(out.end_write());
  }
  out.put8(0);
  out.put8(1);  // end of the bitmap
  return out.flush();
}

// Rows that come by themselves: from the bottom one behind the other; from the top a band of them at a time,
// each where it belongs, with nothing before it yet.
Status put_pushed_rows(const EncodeRequest& request, std::int64_t bytes, StreamWriter& out) {
  constexpr std::int64_t kBandBytes = 65536;
  const std::int32_t height = request.image->header.biHeight;
  TQ_TRY(out.flush());
  const std::int64_t start = position(request.stream);
  const std::int64_t end = start + bytes * height;
  if (start < 0 || end > INT32_MAX) return StatusCode::write_failed;
  const auto row_size = static_cast<std::size_t>(bytes);  // the picture's fits 31 bits
  RowBuffer<std::uint8_t> band;                           // filled from its end
  TQ_TRY(band.allocate(bytes * std::clamp<std::int64_t>(kBandBytes / bytes, 1, height)));
  std::size_t at = band.size() - row_size;
  bool goes_up = false, has_rows = false;
  formats::RowTaker taker;
  const auto take = [&](std::int32_t y, Status /*supplied*/) -> Status {
    goes_up = has_rows ? goes_up : y != 0;
    has_rows = true;
    if (goes_up) {
      out.put(taker.bytes);
      return out.status();
    }
    if (at == 0 || y == height - 1) {
      const std::int64_t place = end - bytes * (std::int64_t{y} + 1);
      TQ_TRY(out.patch(static_cast<std::int32_t>(place), band.pixels().subspan(at)));
      at = band.size();
    }
    at -= row_size;
    taker.bytes = band.pixels().subspan(at, row_size);
    return kOk;
  };
  taker = formats::RowSupplier::taker_of(band.pixels().subspan(at, row_size), take);
  taker.from_below = true;
  TQ_TRY(request.rows.push(request.rows.context, taker));
  TQ_TRY(out.flush());
  return seek_to(request.stream, end);
}

// Each row is a write of its own, from the bottom up, where anybody sees it.
Status encode_plain(const EncodeRequest& request, FileHeader file_header) {
  const BitmapInfoHeader& header = request.image->header;
  const std::int64_t bytes = row_bytes(header.biWidth, header.biBitCount);
  StreamWriter out;
  TQ_TRY(write_header(request, file_header, kBiRgb, out));
  if (request.rows.push != nullptr) return put_pushed_rows(request, bytes, out);
  const std::span<const std::uint8_t> stored = request.rows.stored;
  if (std::cmp_equal(stored.size(), bytes * header.biHeight) && out.put_whole(stored)) {
    return out.status();
  }
  const std::span<std::uint8_t> fresh = out.room(bytes);
  std::fill(fresh.begin(), fresh.end(), std::uint8_t{0});  // a supplier may leave bytes as they are
  for (std::int32_t y = header.biHeight - 1; y >= 0; --y) {
    const std::span<std::uint8_t> row = out.room(bytes);
    TQ_TRY(out.status());
    TQ_TRY(request.rows.row(row, y));
    out.take(std::ssize(row));
    TQ_TRY(out.end_write());
  }
  return out.flush();
}

// Rows of 32 bits as rows of 24.
class NarrowRows {
 public:
  Status open(const EncodeRequest& request) {
    request_ = &request;
    return wide_.allocate(row_bytes(request.image->header.biWidth, 32));
  }
  formats::RowSupplier supplier() { return {on_row, this}; }

 private:
  static std::int32_t IMG_CB_C on_row(void* context, void* dest, std::int32_t y,
                                      std::int32_t bytes) {
    const auto& self = *static_cast<NarrowRows*>(context);
    const Status supplied = self.request_->rows.row(self.wide_.pixels(), y);
    if (supplied.failed()) return supplied.raw();
    const pixels::Row row(static_cast<std::uint8_t*>(dest), static_cast<std::size_t>(bytes));
    pixels::pack(*pixels::find_layout(pixels::Layout::bgr, 32), self.wide_.pixels(),
                 self.request_->image->header.biWidth, row);
    return 0;
  }

  const EncodeRequest* request_ = nullptr;
  RowBuffer<std::uint8_t> wide_;
};

}  // namespace

std::int64_t part_bytes(const BitmapInfoHeader& header) {
  const int bits = header.biBitCount == 32 ? 24 : header.biBitCount;
  return static_cast<std::int64_t>(dib_bytes(header.biWidth, header.biHeight, bits));
}

Status encode_part(const EncodeRequest& request) {
  if (request.image->header.biBitCount != 32) return encode_plain(request, FileHeader::none);
  HeaderBlock image = *request.image;
  image.header.biBitCount = 24;
  NarrowRows rows;
  TQ_TRY(rows.open(request));
  EncodeRequest narrow = request;
  narrow.image = &image;
  narrow.rows = rows.supplier();
  return encode_plain(narrow, FileHeader::none);
}

Status can_encode(const EncodeRequest& request) {
  const int bits = request.image->header.biBitCount;
  const bool refused = request.variant() == kRunLengths && (bits == 1 || bits == 24);
  return refused ? StatusCode::wrong_depth : StatusCode::ok;
}

Status encode(const EncodeRequest& request) {
  TQ_TRY(can_encode(request));
  switch (request.variant()) {
    case kRunLengths:
      return request.image->header.biBitCount == 4 ? encode_rows<Rle4>(request, kBiRle4)
                                                   : encode_rows<Rle8>(request, kBiRle8);
    case kBareDib:
      return encode_plain(request, FileHeader::none);
    default:
      return encode_plain(request, FileHeader::written);
  }
}

}  // namespace tq::bmp
