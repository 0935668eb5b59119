// Rows of packed bits, 1 being black, to facsimile data and back, for comparison with other
// programs: ccitt_coder encode|decode SCHEME OPTIONS WIDTH ROWS < IN > OUT
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "formats/fax.h"
#include "tests/support/collecting_sink.h"
#include "tests/support/fax_page.h"
#include "tests/support/memory_file.h"

namespace tq::test {
namespace {

struct Coder {
  formats::FaxStrip strip;

  std::size_t stride() const { return (static_cast<std::size_t>(strip.width) + 7) / 8; }

  bool encode(Bytes& bytes) const {
    Page page(static_cast<std::size_t>(strip.rows), Pixels(static_cast<std::size_t>(strip.width)));
    for (std::size_t y = 0; y < page.size(); ++y) {
      for (std::size_t x = 0; x < page[y].size(); ++x) {
        page[y][x] = (bytes.at(y * stride() + x / 8) << x % 8 & 0x80) != 0;
      }
    }
    PageSupplier rows(page, true);
    const MemoryFile file;
    StreamWriter out;
    const bool done = out.open(MemoryFile::kHandle).ok() &&
                      encode_fax_strip(out, strip, rows.supplier()).ok() && out.flush().ok();
    bytes = file.bytes;
    return done;
  }

  bool decode(Bytes& bytes) const {
    const MemoryFile file(bytes);
    ChunkReader input;
    CollectingSink sink;
    if (input.open(MemoryFile::kHandle, formats::kFaxChunk).failed() ||
        decode_fax_strip(input, INT32_MAX, strip, formats::FaxRows::bits, sink.sink()).raw() !=
            strip.rows) {
      return false;
    }
    bytes.clear();
    for (const CollectedRow& row : sink.rows) {
      for (std::size_t i = 0; i < stride(); ++i) {
        bytes.push_back(static_cast<std::uint8_t>(~row.bytes[i]));
      }
    }
    return true;
  }
};

}  // namespace
}  // namespace tq::test

int main(int argc, char** argv) {
  using namespace tq::test;
  if (argc != 6) return 2;
  const auto has = [&](char option) { return std::strchr(argv[3], option) != nullptr; };
  const auto scheme = static_cast<tq::ccitt::Scheme>(std::atoi(argv[2]));
  const Coder coder{{.coding = {scheme, has('a'), has('e'), has('b')},
                     .lsb_first = has('l'),
                     .width = std::atoi(argv[4]),
                     .rows = std::atoi(argv[5])}};
  Bytes bytes;
  for (int byte = std::getchar(); byte != EOF; byte = std::getchar()) {
    bytes.push_back(static_cast<std::uint8_t>(byte));
  }
  const bool encodes = argv[1] == std::string_view("encode");
  if (!(encodes ? coder.encode(bytes) : coder.decode(bytes))) return 1;
  return std::fwrite(bytes.data(), 1, bytes.size(), stdout) == bytes.size() ? 0 : 1;
}
