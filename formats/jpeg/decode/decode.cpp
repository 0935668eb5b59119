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

// How a picture is read: as callers have relied on, unless options say otherwise.
struct Reading {
  Accuracy accuracy = Accuracy::coarse;
  int most_scans = kMostScans;
  bool reports_progress = false;
  bool tells_orientation = false;

  bool exact() const { return accuracy == Accuracy::exact; }
};

Reading choose_reading(const Options& options) {
  Reading reading;
  if (options.get(IMG_OPTION_READING) == 1) reading.accuracy = Accuracy::exact;
  reading.tells_orientation = options.get(IMG_OPTION_ORIENTATION) == 1;
  const std::int32_t most_scans = options.get(IMG_OPTION_MAX_SCANS);
  if (most_scans > 0) reading.most_scans = most_scans;
  reading.reports_progress =
      reading.exact() || most_scans > 0 || options.get(IMG_OPTION_STRICT) == 1;
  return reading;
}

// How a picture is to be turned is the file's to say, not that of a stream in it.
Reading choose_part_reading(const Options& options) {
  Reading reading = choose_reading(options);
  reading.tells_orientation = false;
  return reading;
}

Resolution find_resolution(const Tables& tables) {
  const int per_unit = tables.density_unit == 1 ? 1000 : tables.density_unit == 2 ? 2540 : 0;
  if (per_unit == 0 || tables.x_density == 0) return tables.exif.resolution;
  const auto thousandths = [&](std::int64_t density) {
    return static_cast<std::int32_t>(std::min(per_unit * density, Resolution::kMost));
  };
  return {thousandths(tables.x_density), thousandths(tables.y_density)};
}

HeaderBlock describe(const Tables& tables, Layout layout, const Reading& reading) {
  const Frame& frame = tables.frame;
  HeaderBlock image = dib_header(frame.width, frame.height, layout_bits(layout));
  image.header.biXPelsPerMeter = tables.x_density;
  image.header.biYPelsPerMeter = tables.y_density;
  if (reading.exact()) {
    const Resolution exact = find_resolution(tables);
    image.header.biXPelsPerMeter = (exact.x + 500) / 1000;
    image.header.biYPelsPerMeter = (exact.y + 500) / 1000;
  }
  if (frame.count == 1) image.palette = pixels::grey_ramp();
  return image;
}

// Everything that lives from the first scan to the last row.
struct Decode {
  Decode(ChunkReader& in, bool byte_by_byte, Tables& t, const Reading& r)
      : input(in),
        tables(t),
        reading(r),
        geometry(t.frame),
        source(in, byte_by_byte),
        progress(r.reports_progress, t.frame.height) {}

  ScanReader next_scan() { return {tables, geometry, *lookups, source, progress, reading.exact()}; }

  ChunkReader& input;
  Tables& tables;
  const Reading& reading;
  Geometry geometry;
  EntropySource source;
  ScanProgress progress;
  LookupTables* lookups = nullptr;
  Reconstruction picture;
  CoefficientStore store;
  std::array<bool, kMostComponents> seen{};            // components that had a scan
  std::array<std::uint64_t, kMostComponents> whole{};  // places whose last bits had one
  StatusCode damage = StatusCode::ok;
  int good_rows = INT32_MAX;  // in front of it, of pixels

  void note_damage(StatusCode reason, int rows) {
    if (damage == StatusCode::ok) damage = reason;
    good_rows = std::min(good_rows, rows);
  }
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

// The places of the scan's band, if it has their last bits.
std::uint64_t whole_places(const Tables& tables) {
  const Scan& scan = tables.scan;
  if (!tables.frame.progressive) return ~std::uint64_t{0};
  if (scan.low != 0) return 0;
  return (~std::uint64_t{0} >> (kBlock - 1 - scan.last)) & ~std::uint64_t{0} << scan.first;
}

// Whether each component has all that it may have.
bool is_whole(const Decode& decode) {
  return std::all_of(decode.whole.begin(), decode.whole.begin() + decode.geometry.count,
                     [](std::uint64_t places) { return places == ~std::uint64_t{0}; });
}

// A progressive picture is read to its end all the same.
bool needs_no_more(const Decode& decode) {
  return !decode.tables.frame.progressive && is_whole(decode);
}

// Fails only when the caller wants no more.
Status read_scan(Decode& decode) {
  const Tables& tables = decode.tables;
  take_quantisation_tables(decode);
  ScanReader reader = decode.next_scan();
  if (tables.frame.progressive) {
    store_progressive_scan(reader, decode.store);
  } else {
    store_sequential_scan(reader, decode.store);
  }
  TQ_TRY(decode.progress.status());
  if (reader.damage() != StatusCode::ok) decode.note_damage(reader.damage(), reader.good_rows());
  for (int i = 0; i < tables.scan.count; ++i) {
    decode.whole[tables.scan.components[i].index] |= whole_places(tables);
  }
  if (!needs_no_more(decode)) decode.source.finish_scan(reader.bits());
  return kOk;
}

// As far as there are any. A progressive picture may leave something out where it says that it ends.
Status read_all_scans(Decode& decode) {
  const Tables& tables = decode.tables;
  for (int scans = 0; scans < decode.reading.most_scans; ++scans) {
    if (scan_is_valid(tables)) {
      TQ_TRY(read_scan(decode));
      if (needs_no_more(decode)) return kOk;
    } else {
      decode.note_damage(StatusCode::bad_image, 0);
    }
    if (read_segments(decode.input, false, decode.tables)) continue;
    const bool all_seen =
        std::all_of(decode.seen.begin(), decode.seen.begin() + decode.geometry.count,
                    [](bool seen) { return seen; });
    const bool may_end = is_whole(decode) || (tables.has_end && all_seen);
    if (!may_end) decode.note_damage(StatusCode::read_failed, 0);
    return kOk;
  }
  decode.note_damage(StatusCode::bad_image, 0);
  return kOk;
}

// Row `y` of a component's blocks, which is row `mcu_y` of the MCU row.
void transform_row(Decode& decode, int component, int y, int mcu_y) {
  Reconstruction& picture = decode.picture;
  const StoredRow row = decode.store.row(component, y);
  for (int x = 0; x < decode.geometry.grids[component].columns; ++x) {
    if (picture.is_partial() && !picture.needs(component, x, mcu_y)) continue;
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
    decode.picture.begin_row(mcu_row * geometry.mcu_height());
    for (int i = 0; i < geometry.count; ++i) {
      const int v = geometry.grids[i].v;
      for (int y = 0; y < v; ++y) transform_row(decode, i, mcu_row * v + y, y);
    }
    decode.picture.flush();
    if (decode.good_rows < (mcu_row + 1) * geometry.mcu_height()) sink.damaged(decode.damage);
    TQ_TRY(decode.picture.deliver(sink, mcu_row * geometry.mcu_height()));
  }
  return kOk;
}

Status decode_scans(Decode& decode, const formats::RowSink& sink, Layout layout) {
  GlobalBlock room;
  TQ_TRY(room.allocate(sizeof(LookupTables)));
  decode.lookups = new (room.data()) LookupTables;
  TQ_TRY(decode.source.allocate());
  TQ_TRY(decode.picture.allocate(decode.geometry, layout, decode.reading.accuracy));
  decode.picture.choose_wanted(sink.wanted);
  const Tables& tables = decode.tables;
  if (!tables.frame.progressive && tables.scan.count == tables.frame.count) {
    take_quantisation_tables(decode);
    ScanReader reader = decode.next_scan();
    return stream_scan(reader, decode.picture, sink);
  }
  TQ_TRY(decode.store.allocate(decode.geometry));
  TQ_TRY(read_all_scans(decode));
  return deliver_stored(decode, sink);
}

// The reader is behind the first scan's header.
Status decode_picture(ChunkReader& input, bool byte_by_byte, Tables& tables, Layout layout,
                      const Reading& reading, const formats::RowSink& sink) {
  HeaderBlock image = describe(tables, layout, reading);
  sink.resolution(find_resolution(tables));
  if (reading.tells_orientation) sink.orientation(std::max(tables.exif.orientation, 1));
  TQ_TRY(sink.header(image));
  Decode decode(input, byte_by_byte, tables, reading);
  return decode_scans(decode, sink, layout);
}

struct Kind {
  int count;
  Layout layout;
};
constexpr Kind kKinds[] = {
    {1, Layout::grey}, {3, Layout::ycc}, {3, Layout::rgb}, {4, Layout::cmyk}, {4, Layout::ycck}};

Status decode_part(ChunkReader& input, Tables& tables, Components components,
                   const Options& options, const formats::RowSink& sink) {
  const auto& kind = kKinds[static_cast<int>(components)];
  TQ_TRY(check_frame(tables.frame));
  if (tables.frame.count != kind.count || tables.frame.precision != 8) {
    return StatusCode::unsupported;
  }
  if (!scan_is_valid(tables)) return StatusCode::bad_image;
  return decode_picture(input, false, tables, kind.layout, choose_part_reading(options), sink);
}

// Components named R, G and B are these.
Layout choose_named_layout(const Tables& tables) {
  const auto& components = tables.frame.components;
  const bool named = !tables.adobe.present && tables.frame.count == 3 && components[0].id == 'R' &&
                     components[1].id == 'G' && components[2].id == 'B';
  return named ? Layout::rgb : choose_layout(tables);
}

using LayoutChoice = Layout(const Tables& tables);
Status decode_whole(ChunkReader& input, bool byte_by_byte, LayoutChoice& choose,
                    const Reading& reading, const formats::RowSink& sink) {
  TQ_TRY(find_start(input));
  Tables tables;
  if (!read_segments(input, true, tables)) return StatusCode::bad_image;
  TQ_TRY(check_frame(tables.frame));
  if (!scan_is_valid(tables)) return StatusCode::bad_image;
  return decode_picture(input, byte_by_byte, tables, choose(tables), reading, sink);
}

}  // namespace

Status PartDecoder::open(const Options& options) {
  options_ = options;
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
  return decode_part(input, tables, components, options_, sink);
}

Status PartDecoder::decode_data(ChunkReader& input, std::int64_t width, std::int64_t height,
                                Components components, const formats::RowSink& sink) const {
  constexpr std::int64_t kLongestSide = 65535;
  if (width > kLongestSide || height > kLongestSide) return StatusCode::unsupported;
  Tables tables = *common_;
  tables.frame.width = static_cast<int>(width);
  tables.frame.height = static_cast<int>(height);
  if (tables.scan.count == 0) tables.scan = scan_of_all(tables);
  return decode_part(input, tables, components, options_, sink);
}

Status decode_jpeg(const formats::DecodeRequest& request) {
  // A page number means the only picture there is, which starts here.
  TQ_TRY(request.seek_to_start());
  ChunkReader input;
  TQ_TRY(input.open(request.stream, kSegmentChunk));
  const bool byte_by_byte = reads_memory(request.stream) && memory_rest(request.stream).empty();
  const Reading reading = choose_reading(request.options);
  LayoutChoice& choose = reading.exact() ? choose_usual_layout : choose_layout;
  return decode_whole(input, byte_by_byte, choose, reading, request.sink);
}

Status decode_stream(ChunkReader& input, bool named_colours, const Options& options,
                     const formats::RowSink& sink) {
  return decode_whole(input, false, named_colours ? choose_named_layout : choose_layout,
                      choose_part_reading(options), sink);
}

Status read_stream_header(ChunkReader& input, StreamHeader& header) {
  TQ_TRY(find_start(input));
  Tables tables;
  if (!read_segments(input, true, tables)) return StatusCode::bad_image;
  const Frame& frame = tables.frame;
  TQ_TRY(check_frame(frame));
  header = {frame.width,     frame.height,         frame.count,
            frame.precision, tables.adobe.present, tables.adobe.transform};
  return kOk;
}

Status decode_known_stream(ChunkReader& input, Components components,
                           const formats::RowSink& sink) {
  TQ_TRY(find_start(input));
  Tables tables;
  if (!read_segments(input, true, tables)) return StatusCode::bad_image;
  TQ_TRY(check_frame(tables.frame));
  const Kind& kind = kKinds[static_cast<int>(components)];
  if (tables.frame.count != kind.count) return StatusCode::unsupported;
  if (!scan_is_valid(tables)) return StatusCode::bad_image;
  const Layout layout = tables.frame.precision == 12 ? Layout::grey_12 : kind.layout;
  const Reading reading{.accuracy = Accuracy::exact};
  return decode_picture(input, false, tables, layout, reading, sink);
}

Status find_jpeg_orientation(StreamHandle stream, const Options& options) {
  if (options.get(IMG_OPTION_READING) != 1) return StatusCode::unsupported;
  if (seek(stream, 0, Origin::start) < 0) return StatusCode::read_failed;
  ChunkReader input;
  TQ_TRY(input.open(stream, kSegmentChunk));
  TQ_TRY(find_start(input));
  Tables tables;
  if (!read_segments(input, true, tables)) return StatusCode::bad_image;
  return Status::from_raw(std::max(tables.exif.orientation, 1));
}

}  // namespace tq::jpeg
