// A page to a row sink.
#include "formats/coded_picture.h"
#include "formats/plugin/plugin.h"
#include "formats/tiff/samples.h"
#include "formats/tiff/tiff.h"

namespace tq::tiff {
namespace {

Status open_page(StreamHandle stream, std::int32_t start, std::int32_t number, File& file,
                 Page& page) {
  TQ_TRY(file.open(stream, start));
  std::int64_t directory = 0;
  TQ_TRY(file.find_page(number, directory));
  return read_page(file, directory, page);
}

// Strips of a facsimile become run lists without being drawn.
Status decode_fax_strips(const File& file, Page& page, const formats::RowSink& sink) {
  formats::FaxDecoder decoder;
  TQ_TRY(open_fax(page, formats::FaxRows::runs, decoder));
  CodedPieces pieces;
  TQ_TRY(pieces.open(file, page.low_bit_first));
  for (std::int64_t strip = 0; strip < page.chunks.down; ++strip) {
    const auto index = static_cast<std::uint64_t>(strip);
    const Chunk chunk = find_chunk(file, page, index, 0);
    if (index >= page.chunks.offsets.count()) break;
    const std::int64_t first = strip * page.chunks.height;
    const std::int64_t rows = std::min<std::int64_t>(page.chunks.height, page.height - first);
    pieces.start(chunk);
    TQ_TRY(decoder.decode(coding::PieceSource::of(pieces), static_cast<std::int32_t>(first),
                          static_cast<std::int32_t>(rows), sink));
  }
  return kOk;
}

// Strips of JBIG2, each a picture of its own.
Status decode_jbig2_strips(const File& file, Page& page, Samples& samples,
                           const formats::DecodeRequest& request) {
  struct Strip {
    Samples& samples;
    const formats::RowSink& sink;
    RowBuffer<std::uint8_t> stored, row;
    std::int64_t first = 0, rows = 0;

    Status begin(const img_samples& /*form*/) { return kOk; }
    Status put(Bytes bits, std::int32_t y) {
      if (y >= rows) return kOk;
      const Row out = stored.pixels();
      const auto end = std::copy_n(bits.begin(), std::min(bits.size(), out.size()), out.begin());
      std::fill(end, out.end(), std::uint8_t{0});
      samples.convert(out, 0, row.pixels());
      return sink.row(row.pixels(), static_cast<std::int32_t>(first + y));
    }
  } strip{.samples = samples, .sink = request.sink, .stored = {}, .row = {}};
  TQ_TRY(samples.allocate());
  TQ_TRY(strip.stored.allocate(RowShape(page).plane_bytes));
  TQ_TRY(strip.row.allocate(row_bytes(page.width, samples.image().header.biBitCount)));
  CodedPieces pieces;
  TQ_TRY(pieces.open(file, page.low_bit_first));
  for (std::int64_t i = 0; i < page.chunks.down; ++i) {
    const auto index = static_cast<std::uint64_t>(i);
    if (index >= page.chunks.offsets.count()) break;
    strip.first = i * page.chunks.height;
    strip.rows = std::min<std::int64_t>(page.chunks.height, page.height - strip.first);
    pieces.start(find_chunk(file, page, index, 0));
    PieceSource data = PieceSource::of(pieces);
    img_coded_picture picture = formats::coded_picture(IMG_CODED_JBIG2, data, strip);
    picture.width = page.width;
    picture.height = static_cast<std::int32_t>(strip.rows);
    const Status decoded = plugin::decode_coded(picture, request.options);
    const bool is_damaged = decoded == StatusCode::bad_image || decoded == StatusCode::read_failed;
    if (decoded.failed() && !is_damaged) return decoded;
    if (decoded.raw() != 0) request.sink.damaged(StatusCode::bad_image);
  }
  return kOk;
}

// Strips of JPEG: as rows come from its decoder they go to the sink.
Status decode_jpeg_strips(const Page& page, JpegStrips& strips, Samples& samples,
                          const formats::RowSink& sink) {
  struct Place {
    Samples& samples;
    const formats::RowSink& sink;
    RowBuffer<std::uint8_t> stored, row;
    std::int64_t first = 0;

    static std::int32_t IMG_CB_C put(void* bytes, void* context, std::int32_t y,
                                     std::int32_t count) {
      Place& place = *static_cast<Place*>(context);
      Bytes stored(static_cast<std::uint8_t*>(bytes), static_cast<std::size_t>(count));
      if (stored.size() < place.stored.size()) {  // what is not there is 0
        const auto end = std::ranges::copy(stored, place.stored.data()).out;
        std::fill(end, place.stored.data() + place.stored.size(), std::uint8_t{0});
        stored = place.stored.pixels();
      }
      place.samples.convert(stored, 0, place.row.pixels());
      return place.sink.row(place.row.pixels(), static_cast<std::int32_t>(place.first + y)).raw();
    }
  } place{.samples = samples, .sink = sink, .stored = {}, .row = {}};
  const BitmapInfoHeader& header = samples.image().header;
  TQ_TRY(place.stored.allocate(RowShape(page).plane_bytes));
  TQ_TRY(place.row.allocate(row_bytes(header.biWidth, header.biBitCount)));
  for (std::int64_t strip = 0; strip < page.chunks.down; ++strip) {
    const auto index = static_cast<std::uint64_t>(strip);
    if (strip > 0 && index >= page.chunks.offsets.count()) break;
    place.first = strip * page.chunks.height;
    const std::int64_t rows = std::min<std::int64_t>(page.chunks.height, page.height - place.first);
    formats::DecodeNotes notes{.whole = sink.notes};
    TQ_TRY(strips.decode(index, rows, {nullptr, Place::put, &place, &notes}));
  }
  return kOk;
}

Status decode_rows(const File& file, Page& page, Samples& samples, const img_strip_coder* lzw,
                   const formats::DecodeRequest& request) {
  const formats::RowSink& sink = request.sink;
  TQ_TRY(samples.allocate());
  JpegStrips jpeg;
  if (page.is_jpeg()) {
    TQ_TRY(jpeg.open(file, page, request.options));
    if (!page.chunks.tiled && !page.planes_apart) {
      return decode_jpeg_strips(page, jpeg, samples, sink);
    }
  }
  PageRows rows;
  TQ_TRY(rows.open(file, page, lzw, &jpeg, sink));
  const BitmapInfoHeader& header = samples.image().header;
  RowBuffer<std::uint8_t> image_row;
  TQ_TRY(image_row.allocate(row_bytes(header.biWidth, header.biBitCount)));
  while (true) {
    Bytes row;
    std::int64_t y = 0, lines = 0;
    TQ_TRY(rows.next(row, y, lines));
    if (row.empty()) return kOk;
    for (int i = 0; i < lines; ++i) {
      samples.convert(row, i, image_row.pixels());
      TQ_TRY(sink.row(image_row.pixels(), static_cast<std::int32_t>(y + i)));
    }
  }
}

Status decode(const formats::DecodeRequest& request, const img_strip_coder* lzw) {
  const std::int32_t start = request.start();
  File file;
  Page page;
  page.knows_jbig2 = request.options.get(IMG_OPTION_EXTENDED_FORMATS) == 1;
  TQ_TRY(open_page(request.stream, start, std::max(request.page, 0), file, page));
  if (page.coding == kLzw && lzw == nullptr) {
    TQ_TRY(seek_to(request.stream, start));
    return plugin::decode_tiff_lzw(request);
  }
  if (page.is_jbig2()) {
    const bool is_usual = page.bits == 1 && page.samples == 1 && !page.chunks.tiled;
    if (!is_usual) return StatusCode::unsupported;
    TQ_TRY(plugin::decode_coded(formats::coded_question(IMG_CODED_JBIG2), request.options));
  }
  Samples samples;
  samples.choose(file, page);
  HeaderBlock image = samples.image();
  request.sink.resolution(page.resolution);
  request.sink.orientation(page.orientation);
  TQ_TRY(request.sink.header(image));
  if (page.is_cut) request.sink.damaged(StatusCode::read_failed);
  if (page.is_jbig2()) return decode_jbig2_strips(file, page, samples, request);
  if (page.is_fax() && !page.chunks.tiled) return decode_fax_strips(file, page, request.sink);
  return decode_rows(file, page, samples, lzw, request);
}

}  // namespace

Status decode_tiff(const formats::DecodeRequest& request) {
  return decode(request, nullptr);
}

Status decode_tiff_with(const formats::DecodeRequest& request, const img_strip_coder& lzw) {
  return decode(request, &lzw);
}

}  // namespace tq::tiff
