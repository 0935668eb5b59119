// Reads a JPEG stream: header, scans, rows; whole ones, and those that are parts of other files.
#include <algorithm>
#include <new>
#include <utility>

#include "formats/jpeg/decode/scan.h"
#include "formats/jpeg/jpeg.h"
#include "pixels/colours.h"

namespace tq::jpeg {
namespace {

constexpr int kMostScans = 1000;

HeaderBlock describe(const Tables& tables, Layout layout) {
  const Frame& frame = tables.frame;
  HeaderBlock image = dib_header(frame.width, frame.height, layout_bits(layout));
  image.header.biXPelsPerMeter = tables.x_density;
  image.header.biYPelsPerMeter = tables.y_density;
  if (frame.count == 1) image.palette = pixels::grey_ramp();
  return image;
}

// Everything that lives from the first scan to the last row.
struct Decode {
  Decode(ChunkReader& in, bool byte_by_byte, Tables& t)
      : input(in), tables(t), geometry(t.frame), source(in, byte_by_byte) {}

  ChunkReader& input;
  Tables& tables;
  Geometry geometry;
  EntropySource source;
  LookupTables* lookups = nullptr;
  Reconstruction picture;
  CoefficientStore store;
  std::array<bool, kMostComponents> seen{};  // components that had a scan
};

// The quantisation tables that hold when a component's first scan begins are its own.
void take_quantisation_tables(Decode& decode) {
  const Tables& tables = decode.tables;
  for (int i = 0; i < tables.scan.count; ++i) {
    const ScanComponent& component = tables.scan.components[i];
    if (std::exchange(decode.seen[component.index], true)) continue;
    decode.picture.set_quantisation(component.index, tables.quantisation_of(component));
  }
}

void read_all_scans(Decode& decode) {
  const bool progressive = decode.tables.frame.progressive;
  const auto all_seen = [&] {
    return std::all_of(decode.seen.begin(), decode.seen.begin() + decode.geometry.count,
                       [](bool seen) { return seen; });
  };
  for (int scans = 0; scans < kMostScans; ++scans) {
    if (scan_is_valid(decode.tables)) {
      take_quantisation_tables(decode);
      ScanReader reader(decode.tables, decode.geometry, *decode.lookups, decode.source);
      if (progressive) {
        store_progressive_scan(reader, decode.store);
      } else {
        store_sequential_scan(reader, decode.store);
      }
      if (!progressive && all_seen()) return;
      decode.source.finish_scan(reader.bits());
    }
    if (!read_segments(decode.input, false, decode.tables)) return;
  }
}

// Row `y` of a component's blocks, which is row `mcu_y` of the MCU row.
void transform_row(Decode& decode, int component, int y, int mcu_y) {
  Reconstruction& picture = decode.picture;
  const StoredRow row = decode.store.row(component, y);
  for (int x = 0; x < decode.geometry.grids[component].columns; ++x) {
    if (row.present[x] == 0) {
      picture.put_flat(component, x, mcu_y, row.dc[x]);
      continue;
    }
    std::int16_t* const block = row.block(x);
    const std::uint32_t ac_magnitude = picture.magnitude(component, block);
    block[0] = row.dc[x];  // was 0
    picture.put(component, x, mcu_y, block, ac_magnitude);
  }
}

Status deliver_stored(Decode& decode, const formats::RowSink& sink) {
  const Geometry& geometry = decode.geometry;
  for (int mcu_row = 0; mcu_row < geometry.mcu_rows; ++mcu_row) {
    for (int i = 0; i < geometry.count; ++i) {
      const int v = geometry.grids[i].v;
      for (int y = 0; y < v; ++y) transform_row(decode, i, mcu_row * v + y, y);
    }
    decode.picture.flush();
    TQ_TRY(decode.picture.deliver(sink, mcu_row * geometry.mcu_height()));
  }
  return kOk;
}

Status decode_scans(Decode& decode, const formats::RowSink& sink, Layout layout) {
  GlobalBlock room;
  TQ_TRY(room.allocate(sizeof(LookupTables)));
  decode.lookups = new (room.data()) LookupTables;
  TQ_TRY(decode.source.allocate());
  TQ_TRY(decode.picture.allocate(decode.geometry, layout));
  const Tables& tables = decode.tables;
  if (!tables.frame.progressive && tables.scan.count == tables.frame.count) {
    take_quantisation_tables(decode);
    ScanReader reader(decode.tables, decode.geometry, *decode.lookups, decode.source);
    return stream_scan(reader, decode.picture, sink);
  }
  TQ_TRY(decode.store.allocate(decode.geometry));
  read_all_scans(decode);
  return deliver_stored(decode, sink);
}

// The reader is behind the first scan's header.
Status decode_picture(ChunkReader& input, bool byte_by_byte, Tables& tables, Layout layout,
                      const formats::RowSink& sink) {
  HeaderBlock image = describe(tables, layout);
  TQ_TRY(sink.header(image));
  Decode decode(input, byte_by_byte, tables);
  return decode_scans(decode, sink, layout);
}

Status decode_part(ChunkReader& input, Tables& tables, Components components,
                   const formats::RowSink& sink) {
  constexpr struct {
    int count;
    Layout layout;
  } kKinds[] = {{1, Layout::grey}, {3, Layout::ycc}, {3, Layout::rgb}, {4, Layout::cmyk}};
  const auto& kind = kKinds[static_cast<int>(components)];
  TQ_TRY(check_frame(tables.frame));
  if (tables.frame.count != kind.count || tables.frame.precision != 8) {
    return StatusCode::unsupported;
  }
  if (!scan_is_valid(tables)) return StatusCode::bad_image;
  return decode_picture(input, false, tables, kind.layout, sink);
}

bool has_named_colours(const Tables& tables) {
  const auto& components = tables.frame.components;
  return !tables.adobe.present && tables.frame.count == 3 && components[0].id == 'R' &&
         components[1].id == 'G' && components[2].id == 'B';
}

Status decode_whole(ChunkReader& input, bool byte_by_byte, bool named_colours,
                    const formats::RowSink& sink) {
  TQ_TRY(find_start(input));
  Tables tables;
  if (!read_segments(input, true, tables)) return StatusCode::bad_image;
  TQ_TRY(check_frame(tables.frame));
  if (!scan_is_valid(tables)) return StatusCode::bad_image;
  const bool colours = named_colours && has_named_colours(tables);
  return decode_picture(input, byte_by_byte, tables, colours ? Layout::rgb : choose_layout(tables),
                        sink);
}

}  // namespace

Status PartDecoder::open() {
  TQ_TRY(room_.allocate(sizeof(Tables)));
  common_ = new (room_.data()) Tables;
  return kOk;
}

bool PartDecoder::read_common(ChunkReader& input) {
  return find_start(input).ok() && read_segments(input, true, *common_);
}

int PartDecoder::common_height() const {
  return common_->frame.height;
}

Status PartDecoder::decode(ChunkReader& input, Components components,
                           const formats::RowSink& sink) const {
  Tables tables = *common_;
  tables.frame = {};
  TQ_TRY(find_start(input));
  if (!read_segments(input, true, tables)) return StatusCode::bad_image;
  return decode_part(input, tables, components, sink);
}

Status PartDecoder::decode_data(ChunkReader& input, std::int64_t width, std::int64_t height,
                                Components components, const formats::RowSink& sink) const {
  constexpr std::int64_t kLongestSide = 65535;
  if (width > kLongestSide || height > kLongestSide) return StatusCode::unsupported;
  Tables tables = *common_;
  tables.frame.width = static_cast<int>(width);
  tables.frame.height = static_cast<int>(height);
  if (tables.scan.count == 0) tables.scan = scan_of_all(tables);
  return decode_part(input, tables, components, sink);
}

Status decode_jpeg(const formats::DecodeRequest& request) {
  // A page number means the only picture there is, which starts here.
  TQ_TRY(request.seek_to_start());
  ChunkReader input;
  TQ_TRY(input.open(request.stream, kSegmentChunk));
  const bool byte_by_byte = reads_memory(request.stream) && memory_rest(request.stream).empty();
  return decode_whole(input, byte_by_byte, false, request.sink);
}

Status decode_stream(ChunkReader& input, bool named_colours, const formats::RowSink& sink) {
  return decode_whole(input, false, named_colours, sink);
}

}  // namespace tq::jpeg
