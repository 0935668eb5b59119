// Decodes facsimile rows from any bytes. What was decoded, or as many transition lists that cannot
// be trusted, is coded and must come back the same. The first bytes choose coding and width.
#include "core/run_storage.h"
#include "formats/fax.h"
#include "fuzz/fuzz_support.h"

namespace tq::fuzz {
namespace {

using formats::FaxRows;
using formats::FaxStrip;

constexpr std::int32_t kRows = 24;

// There may be room for a part of the list only.
std::int32_t put_list(Input& in, std::int32_t* list, std::int32_t room) {
  const std::int32_t words = in.below(64);
  std::int32_t position = 0;
  for (std::int32_t i = 0; i < std::min(words, room / 4); ++i) {
    const std::int32_t step = in.i8();
    list[i] = step < -100 ? in.any_int() : position += step;
  }
  return 4 * words;
}

struct Rows {
  std::int32_t width = 0;
  std::vector<Memory> rows{};  // as bits
  Input* lists = nullptr;      // handed out instead of them

  static std::int32_t IMG_CB_C take(void* row, void* context, std::int32_t, std::int32_t count) {
    auto& self = *static_cast<Rows*>(context);
    const Bytes bytes(static_cast<const std::uint8_t*>(row), static_cast<std::size_t>(count));
    Memory bits(static_cast<std::size_t>(row_bytes(self.width, 1)));
    if (bytes.size() == bits.size()) {
      bits.assign(bytes.begin(), bytes.end());
    } else {
      std::vector<std::uint16_t> positions(static_cast<std::size_t>(self.width));
      const auto read = static_cast<std::size_t>(read_run_list(bytes, self.width, positions));
      TQ_CLAIM(bytes.size() >= 2 * (read + 7));
      transitions_to_bits(Transitions(positions).first(read), self.width, bits);
    }
    self.rows.push_back(bits);
    return 0;
  }
  static std::int32_t IMG_CB_C give(void* context, void* dest, std::int32_t y, std::int32_t bytes) {
    const auto& self = *static_cast<const Rows*>(context);
    std::memset(dest, 0xFF, static_cast<std::size_t>(bytes));
    if (self.lists != nullptr)
      return put_list(*self.lists, static_cast<std::int32_t*>(dest), bytes);
    std::ranges::copy(self.rows[static_cast<std::size_t>(y)], static_cast<std::uint8_t*>(dest));
    return 0;
  }
};

Rows decode(Bytes data, FaxStrip strip, FaxRows delivery) {
  strip.rows = kRows;
  Rows sink{strip.width};
  Memory copy(data.begin(), data.end());
  open_memory_stream(copy.data(), copy.size());
  ChunkReader input;
  TQ_CLAIM(input.open(kMemoryStream, 1).ok());
  const Status decoded =
      decode_fax_strip(input, std::ssize(data), strip, delivery, {nullptr, Rows::take, &sink});
  TQ_CLAIM(decoded.raw() == static_cast<std::int32_t>(sink.rows.size()));
  return sink;
}

Memory encode(Rows& given, FaxStrip strip) {
  Memory coded(given.rows.size() * (static_cast<std::size_t>(given.width) + 64));
  open_memory_stream(coded.data(), coded.size());
  StreamWriter out;
  strip.rows = static_cast<std::int32_t>(given.rows.size());
  TQ_CLAIM(out.open(kMemoryStream).ok());
  TQ_CLAIM(encode_fax_strip(out, strip, {Rows::give, &given}).ok() && out.flush().ok());
  coded.resize(static_cast<std::size_t>(out.count()));
  return coded;
}

}  // namespace

void fuzz(Bytes bytes) {
  Input in(bytes);
  const std::uint8_t flags = in.u8();
  const auto flag = [&](int bit) { return (flags >> bit & 1) != 0; };
  const ccitt::Coding coding{static_cast<ccitt::Scheme>(flags & 3), flag(3), flag(4), flag(5)};
  const std::int32_t width = 1 + (in.u8() | (in.u8() & 3) << 8);
  const FaxStrip strip{coding, flag(2), width};
  Rows given = decode(in.rest(), strip, flag(6) ? FaxRows::runs : FaxRows::bits);
  if (given.rows.empty()) return;
  if (flag(7)) given.lists = &in;
  const Memory coded = encode(given, strip);
  Rows again = decode(coded, strip, FaxRows::bits);
  // Bits that fill the last byte may be taken for another row.
  TQ_CLAIM(again.rows.size() >= given.rows.size());
  again.rows.resize(given.rows.size());
  TQ_CLAIM(flag(7) ? encode(again, strip) == coded : again.rows == given.rows);
}

}  // namespace tq::fuzz
