// Decodes facsimile rows from any bytes; what was decoded is coded again and must come back the
// same. The first bytes choose the coding and the width.
#include <cstdlib>
#include <cstring>
#include <vector>

#include "core/run_storage.h"
#include "formats/ccitt/ccitt.h"

namespace tq {
namespace {

using formats::CcittCoding;
using formats::CcittRows;
using formats::CcittScheme;
using Bytes = std::vector<std::uint8_t>;

constexpr std::int32_t kRows = 24;

struct Rows {
  std::int32_t width = 0;
  std::vector<Bytes> rows{};  // as bits

  static std::int32_t IMG_CB_C take(void* row, void* context, std::int32_t, std::int32_t bytes) {
    auto& self = *static_cast<Rows*>(context);
    const auto* first = static_cast<const std::uint8_t*>(row);
    Bytes bits(static_cast<std::size_t>(row_bytes(self.width, 1)));
    if (static_cast<std::size_t>(bytes) == bits.size()) {
      bits.assign(first, first + bytes);
    } else {
      std::vector<std::uint16_t> positions(static_cast<std::size_t>(self.width));
      const auto count = static_cast<std::size_t>(
          read_run_list({first, static_cast<std::size_t>(bytes)}, self.width, positions));
      if (static_cast<std::size_t>(bytes) < 2 * (count + 7)) std::abort();
      transitions_to_bits(Transitions(positions).first(count), self.width, bits);
    }
    self.rows.push_back(bits);
    return 0;
  }
  static std::int32_t IMG_CB_C give(void* context, void* dest, std::int32_t y, std::int32_t bytes) {
    const auto& self = *static_cast<const Rows*>(context);
    const Bytes& row = self.rows[static_cast<std::size_t>(y)];
    std::memset(dest, 0xFF, static_cast<std::size_t>(bytes));
    std::memcpy(dest, row.data(), row.size());
    return 0;
  }
};

std::vector<Bytes> decode(std::span<const std::uint8_t> data, const CcittCoding& coding,
                          std::int32_t width, CcittRows delivery) {
  Rows sink{width};
  open_memory_stream(const_cast<std::uint8_t*>(data.data()), data.size());
  ChunkReader input;
  formats::CcittDecoder decoder;
  if (input.open(kMemoryStream, 1).failed() || decoder.open(coding, width, delivery).failed()) {
    std::abort();
  }
  const Status decoded = decoder.decode(input, static_cast<std::int64_t>(data.size()), {0, kRows},
                                        {nullptr, Rows::take, &sink});
  if (decoded.raw() != static_cast<std::int32_t>(sink.rows.size())) std::abort();
  return sink.rows;
}

}  // namespace
}  // namespace tq

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace tq;
  if (size < 3) return 0;
  CcittCoding coding{static_cast<CcittScheme>(data[0] & 3), (data[0] & 4) != 0, (data[0] & 8) != 0,
                     (data[0] & 16) != 0, (data[0] & 32) != 0};
  const std::int32_t width = 1 + (data[1] | (data[2] & 3) << 8);
  const std::vector<Bytes> rows = decode({data + 3, size - 3}, coding, width,
                                         (data[0] & 64) != 0 ? CcittRows::runs : CcittRows::bits);
  if (rows.empty()) return 0;
  Rows given{width, rows};
  Bytes coded(rows.size() * (static_cast<std::size_t>(width) + 64));
  open_memory_stream(coded.data(), coded.size());
  formats::CcittEncoder encoder;
  if (encoder.open(coding, width).failed()) std::abort();
  const Status written = encoder.encode(kMemoryStream, {Rows::give, &given},
                                        {0, static_cast<std::int32_t>(rows.size())});
  if (written.failed()) std::abort();
  coded.resize(static_cast<std::size_t>(written.raw()));
  std::vector<Bytes> again = decode(coded, coding, width, CcittRows::bits);
  // Bits that fill the last byte may be taken for another row.
  if (again.size() < rows.size()) std::abort();
  again.resize(rows.size());
  if (again != rows) std::abort();
  return 0;
}
