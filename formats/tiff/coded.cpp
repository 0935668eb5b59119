// Pieces of coded data, and the codings that are a few lines each.
#include "formats/tiff/coded.h"

namespace tq::tiff {
namespace {

// The low four bits of a zlib stream's first byte are 8.
bool is_turned_deflate(int first) {
  return (first & 15) != 8 && (first >> 4) == 1;
}

std::int32_t IMG_CB_C next_piece(void* context, const void** bytes) {
  const Bytes piece = static_cast<CodedPieces*>(context)->next_piece();
  *bytes = piece.data();
  return static_cast<std::int32_t>(piece.size());
}

}  // namespace

Status CodedPieces::open(const File& file, bool turned) {
  file_ = &file;
  turned_ = turned;
  return buffer_.allocate(kPiece);
}

void CodedPieces::start(const Chunk& chunk) {
  left_ = chunk;
  if (chunk.position < 0) left_.bytes = 0;
}

std::span<const std::uint8_t> CodedPieces::next_piece() {
  const std::int64_t wanted = std::min(left_.bytes, kPiece);
  if (wanted == 0 || seek_to(file_->stream(), left_.position).failed()) return {};
  Bytes piece = memory_rest(file_->stream());
  if (piece.empty() || turned_) {
    const Row read = buffer_.bytes().first(static_cast<std::size_t>(wanted));
    const std::int32_t count = read_fully(file_->stream(), read);
    piece = read.first(static_cast<std::size_t>(count));
    if (turned_) coding::reverse_bits(read.first(piece.size()));
  }
  const auto here = std::min<std::int64_t>(left_.bytes, std::ssize(piece));
  left_.position += here;
  left_.bytes = here == 0 ? 0 : left_.bytes - here;
  return piece.first(static_cast<std::size_t>(here));
}

int CodedPieces::first_byte() {
  std::array<std::uint8_t, 1> first{};
  return left_.bytes > 0 && file_->read_at(left_.position, first) ? first[0] : -1;
}

Status CodedBytes::open(const File& file, const Page& page, std::int64_t most_bytes,
                        const img_strip_coder* lzw) {
  page_ = &page;
  lzw_ = lzw;
  TQ_TRY(bytes_.allocate(most_bytes));
  if (page.coding == kLzw) {
    if (lzw == nullptr) return StatusCode::no_lzw_module;
    TQ_TRY(lzw_state_.allocate(lzw->decoder_bytes));
  }
  return pieces_.open(file, page.low_bit_first);
}

Status CodedBytes::start(const Chunk& chunk) {
  pieces_.start(chunk);
  piece_ = {};
  const auto data = coding::PieceSource::of(pieces_);
  switch (page_->coding) {
    case kPackBits:
      packbits_.start(data);
      return kOk;
    case kDeflate:
    case kOldDeflate:
      pieces_.turn(is_turned_deflate(pieces_.first_byte()));
      return deflate_.start(data);
    case kLzw:
      pieces_.turn(pieces_.first_byte() == 1);  // 0x80 is how a strip begins
      lzw_->begin_decode(lzw_state_.data(), next_piece, &pieces_);
      return kOk;
    default:
      return kOk;
  }
}

std::ptrdiff_t CodedBytes::read_plain(Row bytes) {
  return read_pieces(PieceSource::of(pieces_), piece_, bytes);
}

// Four bits of grey. A byte says a difference or two or three to the value before, the value
// itself, or how often it comes again; a row begins at 0.
std::ptrdiff_t CodedBytes::read_thunder_row(Row bytes) {
  constexpr int kTwoBits[] = {0, 1, 0, -1}, kThreeBits[] = {0, 1, 2, 3, 0, -3, -2, -1};
  constexpr int kNoPixel2 = 2, kNoPixel3 = 4;
  const std::ptrdiff_t pixels = 2 * std::ssize(bytes);
  std::ptrdiff_t x = 0;
  int value = 0;
  const auto put = [&](int next) {
    value = next & 15;
    if (x < pixels) bytes[x / 2] = byte(x % 2 == 0 ? value << 4 : bytes[x / 2] | value);
    ++x;
  };
  const std::int64_t width = page_->width;
  while (x < width) {
    if (piece_.empty()) piece_ = pieces_.next_piece();
    if (piece_.empty()) break;
    const int code = piece_.front();
    piece_ = piece_.subspan(1);
    switch (code >> 6) {
      case 0:
        for (int i = std::min<std::int64_t>(code & 63, width - x) & 63; i > 0; --i) put(value);
        break;
      case 1:
        for (int shift = 4; shift >= 0; shift -= 2) {
          const int step = code >> shift & 3;
          if (step != kNoPixel2 && x < width) put(value + kTwoBits[step]);
        }
        break;
      case 2:
        for (int shift = 3; shift >= 0; shift -= 3) {
          const int step = code >> shift & 7;
          if (step != kNoPixel3 && x < width) put(value + kThreeBits[step]);
        }
        break;
      default:
        put(code);
        break;
    }
  }
  return static_cast<std::ptrdiff_t>((x + 1) / 2);
}

std::ptrdiff_t CodedBytes::read_into(Row bytes) {
  switch (page_->coding) {
    case kPackBits:
      return packbits_.read(bytes);
    case kDeflate:
    case kOldDeflate:
      return deflate_.read(bytes);
    case kLzw:
      return lzw_->decode(lzw_state_.data(), bytes.data(), static_cast<std::int32_t>(bytes.size()));
    case kThunderScan:
      return read_thunder_row(bytes);
    default:
      return read_plain(bytes);
  }
}

Bytes CodedBytes::read(std::ptrdiff_t bytes) {
  if (page_->coding == kUncoded && piece_.empty()) piece_ = pieces_.next_piece();
  if (page_->coding == kUncoded && std::ssize(piece_) >= bytes) {
    const Bytes here = piece_.first(static_cast<std::size_t>(bytes));
    piece_ = piece_.subspan(here.size());
    return here;
  }
  const Row read = bytes_.pixels().first(static_cast<std::size_t>(bytes));
  return read.first(static_cast<std::size_t>(read_into(read)));
}

bool CodedBytes::skip(std::int64_t bytes) {
  while (bytes > 0) {
    const auto wanted =
        static_cast<std::ptrdiff_t>(std::min<std::int64_t>(bytes, std::ssize(bytes_.pixels())));
    const std::ptrdiff_t there = std::ssize(read(wanted));
    if (there == 0) return false;
    bytes -= there;
  }
  return true;
}

}  // namespace tq::tiff
