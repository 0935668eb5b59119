// Rows of packed bits, 1 being black, to facsimile data and back, for comparison with other
// programs: ccitt_coder encode|decode SCHEME OPTIONS WIDTH ROWS < IN > OUT
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <vector>

#include "formats/ccitt/ccitt.h"

namespace tq {
namespace {

using Bytes = std::vector<std::uint8_t>;

struct Page {
  std::int32_t width = 0, height = 0;
  Bytes rows{};  // 1 is black, padded with 0 to whole bytes

  std::size_t stride() const { return (static_cast<std::size_t>(width) + 7) / 8; }
  std::uint8_t* row(std::int32_t y) { return &rows[static_cast<std::size_t>(y) * stride()]; }

  static std::int32_t IMG_CB_C give(void* context, void* dest, std::int32_t y, std::int32_t) {
    Page& page = *static_cast<Page*>(context);
    for (std::size_t i = 0; i < page.stride(); ++i) {
      static_cast<std::uint8_t*>(dest)[i] = static_cast<std::uint8_t>(~page.row(y)[i]);
    }
    return 0;
  }
  static std::int32_t IMG_CB_C take(void* row, void* context, std::int32_t y, std::int32_t) {
    Page& page = *static_cast<Page*>(context);
    for (std::size_t i = 0; i < page.stride(); ++i) {
      page.row(y)[i] = static_cast<std::uint8_t>(~static_cast<std::uint8_t*>(row)[i]);
    }
    return 0;
  }
};

// What is wrong, or how many bytes or rows there are.
Status encode(const formats::CcittCoding& coding, Page& page, Bytes& data) {
  data.resize(4 * page.rows.size() + 100 * static_cast<std::size_t>(page.height) + 1000);
  open_memory_stream(data.data(), data.size());
  formats::CcittEncoder encoder;
  TQ_TRY(encoder.open(coding, page.width));
  const Status written = encoder.encode(kMemoryStream, {Page::give, &page}, {0, page.height});
  TQ_TRY(written);
  data.resize(static_cast<std::size_t>(written.raw()));
  return written;
}

Status decode(const formats::CcittCoding& coding, Bytes& data, Page& page) {
  page.rows.resize(page.stride() * static_cast<std::size_t>(page.height));
  open_memory_stream(data.data(), data.size());
  ChunkReader input;
  TQ_TRY(input.open(kMemoryStream, formats::kCcittChunk));
  formats::CcittDecoder decoder;
  TQ_TRY(decoder.open(coding, page.width, formats::CcittRows::bits));
  return decoder.decode(input, static_cast<std::int64_t>(data.size()), {0, page.height},
                        {nullptr, Page::take, &page});
}

Bytes read_all() {
  Bytes bytes;
  for (int byte = std::getchar(); byte != EOF; byte = std::getchar()) {
    bytes.push_back(static_cast<std::uint8_t>(byte));
  }
  return bytes;
}

}  // namespace
}  // namespace tq

int main(int argc, char** argv) {
  using namespace tq;
  if (argc != 6) return 2;
  const std::string_view options = argv[3];
  const auto has = [&](char option) { return options.find(option) != std::string_view::npos; };
  const formats::CcittCoding coding{static_cast<formats::CcittScheme>(std::atoi(argv[2])), has('l'),
                                    has('a'), has('e'), has('b')};
  Page page{std::atoi(argv[4]), std::atoi(argv[5])};
  Bytes data = read_all();
  if (argv[1] == std::string_view("encode")) {
    page.rows.swap(data);
    if (encode(coding, page, data).failed()) return 1;
  } else {
    if (decode(coding, data, page).raw() != page.height) return 1;
    page.rows.swap(data);
  }
  std::fwrite(data.data(), 1, data.size(), stdout);
  return 0;
}
