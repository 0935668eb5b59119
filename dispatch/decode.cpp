// Detect, look up, call; with an image at the end, or stopped at the header.
#include <algorithm>
#include <utility>

#include "core/context.h"
#include "core/image_table.h"
#include "core/run_storage.h"
#include "dispatch/dispatch.h"
#include "dispatch/row_sink.h"
#include "pixels/turn.h"

namespace tq::dispatch {
namespace {

// Pages are numbers of 31 bits. An offset below 0 is taken as one, too; callers rely on it.
constexpr std::int32_t kPageBits = 0x7FFFFFFF;

std::int32_t IMG_CB_C take_header(void* block, void* context) {
  *static_cast<BitmapInfoHeader*>(context) = static_cast<const HeaderBlock*>(block)->header;
  return IMG_STOP_AFTER_HEADER;
}

// Between a decoder and a sink that wants no inks: they become colours.
class InkSink {
 public:
  explicit InkSink(const formats::RowSink& to) : to_(to) {}
  formats::RowSink sink() { return {on_header, on_row, this, to_.notes, to_.wanted}; }

 private:
  static std::int32_t IMG_CB_C on_header(void* block, void* context) {
    return static_cast<InkSink*>(context)->take_header(*static_cast<HeaderBlock*>(block)).raw();
  }
  static std::int32_t IMG_CB_C on_row(void* row, void* context, std::int32_t y,
                                      std::int32_t bytes) {
    InkSink& self = *static_cast<InkSink*>(context);
    if (!self.has_inks_) return self.to_.on_row(row, self.to_.context, y, bytes);
    return self.take_row({static_cast<const std::uint8_t*>(row), std::size_t(bytes)}, y).raw();
  }

  Status take_header(HeaderBlock& block) {
    const BitmapInfoHeader& from = block.header;
    has_inks_ = from.biBitCount == 32 && from.biCompression == 0;
    header_ = block;
    if (has_inks_) {
      TQ_TRY(check_geometry(from));
      header_ = dib_header(from.biWidth, from.biHeight, 24);
      header_.header.biXPelsPerMeter = from.biXPelsPerMeter;
      header_.header.biYPelsPerMeter = from.biYPelsPerMeter;
      TQ_TRY(row_.allocate(row_bytes(from.biWidth, 24)));
      TQ_TRY(inks_.allocate(row_bytes(from.biWidth, 32)));
    }
    if (to_.on_header == nullptr) return Status::from_raw(1);
    return Status::from_raw(to_.on_header(&header_, to_.context));
  }

  Status take_row(std::span<const std::uint8_t> inks, std::int32_t y) {
    if (inks.size() < inks_.size()) {  // what is not there is 0
      const auto end = std::ranges::copy(inks, inks_.data()).out;
      std::fill(end, inks_.data() + inks_.size(), std::uint8_t{0});
      inks = inks_.pixels();
    }
    pixels::inks_to_colours(inks, header_.header.biWidth, row_.pixels());
    if (to_.on_row == nullptr) return kOk;
    return Status::from_raw(
        to_.on_row(row_.data(), to_.context, y, static_cast<std::int32_t>(row_.size())));
  }

  const formats::RowSink& to_;
  bool has_inks_ = false;
  HeaderBlock header_;
  RowBuffer<std::uint8_t> inks_, row_;
};

// Not into an image alone: the header may be all that is wanted.
Status decode_page(StreamHandle stream, std::int32_t offset, std::int32_t page,
                   const formats::RowSink& sink, const Options& options) {
  seek(stream, offset, Origin::start);
  const FileType* found = nullptr;
  TQ_TRY(detect(stream, found));
  if (found == nullptr || found->decode == nullptr) return StatusCode::unsupported;
  formats::DecodeRequest request{
      .stream = stream, .offset = offset, .sink = sink, .options = options};
  if (page != 0) {
    seek(stream, offset, Origin::start);
    request.page = page & kPageBits;
  } else if (offset < 0) {
    request.page = offset & kPageBits;
  }
  if (request.page >= options.limit(IMG_OPTION_MAX_PAGES, INT64_MAX)) {
    return StatusCode::page_past_end;
  }
  InkSink without_inks(sink);
  if (options.get(IMG_OPTION_INKS) == 1) request.sink = without_inks.sink();
  const Status decoded = found->decode(request);
  return decoded.failed() ? decoded : kOk;
}

Damage damage_of(const formats::DecodeNotes& notes) {
  return {notes.rows, notes.damage, notes.lost(), notes.height};
}

}  // namespace

// The decode has been remembered as the context's last.
Status decode_noted(StreamHandle stream, std::int32_t offset, std::int32_t page,
                    formats::RowSink sink, formats::DecodeNotes& notes) {
  const Options options = context().options;
  notes.most_pixels = options.limit(IMG_OPTION_MAX_PIXELS, INT64_MAX);
  sink.notes = &notes;
  const Status decoded = decode_page(stream, offset, page, sink, options);
  if (decoded.ok()) notes.end();
  context().last_damage = damage_of(notes);
  TQ_TRY(decoded);
  return options.get(IMG_OPTION_STRICT) == 1 ? notes.damage : StatusCode::ok;
}

Status dispatch_decode(StreamHandle stream, std::int32_t offset, std::int32_t page,
                       const formats::RowSink& sink) {
  formats::DecodeNotes notes;
  return decode_noted(stream, offset, page, sink, notes);
}

namespace {

void read_image_row(const void* context, std::int32_t y, pixels::Row row) {
  const auto& image = *static_cast<const ImageRecord*>(context);
  if (image.in_runs) return expand_row(image, y, row);
  std::ranges::copy(plain_row(image, y), row.begin());
}

HeaderBlock turned_header(const ImageRecord& image, const pixels::TurnedRows& rows,
                          const pixels::Turn& turn) {
  HeaderBlock block{.header = header_of(image)};
  std::ranges::copy(palette_of(image), block.palette.begin());
  BitmapInfoHeader& header = block.header;
  header.biWidth = rows.width();
  header.biHeight = rows.height();
  if (turn.swapped) std::swap(header.biXPelsPerMeter, header.biYPelsPerMeter);
  if (image.bits == 1) header.biCompression = 0;  // whatever it is kept in
  if (image.has_transparent) {
    header.biClrUsed = kTransparent | (image.transparent_colour & 0xFF);
  }
  return block;
}

// What was decoded comes to the image once more, turned, and now by all settings.
Status turn_image(ImageSlot& slot, int orientation) {
  ImageSlot turned;
  TQ_TRY(turned.allocate());
  ImageSink sink(turned.handle(), turned.record());
  const formats::RowSink to = sink.callbacks();
  const ImageRecord& image = slot.record();
  const std::uint8_t* const dib = image.dib;
  const pixels::Turn turn = pixels::turn_of(orientation);
  pixels::TurnedRows rows;
  TQ_TRY(rows.open({read_image_row, &image, image.width, image.height, image.bits}, turn));
  HeaderBlock header = turned_header(image, rows, turn);
  TQ_TRY(to.header(header));
  for (std::int32_t y = 0; y < rows.height(); ++y) {
    TQ_TRY(to.row(rows.row(y), y));
    // A callback may have deleted either, or given it other pixels.
    if (!slot.still_there() || !turned.still_there() || image.dib != dib) {
      return StatusCode::bad_handle;
    }
  }
  TQ_TRY(sink.finish());
  std::swap(slot.record(), turned.record());
  std::swap(slot.record().serial, turned.record().serial);
  return kOk;
}

}  // namespace

Status decode_image(StreamHandle stream, std::int32_t offset, std::int32_t page) {
  ImageSlot slot;
  TQ_TRY(slot.allocate());
  formats::DecodeNotes notes;
  const bool may_turn = context().options.get(IMG_OPTION_ORIENTATION) == 1;
  ImageSink sink(slot.handle(), slot.record(), may_turn ? &notes : nullptr);
  const Status decoded = decode_noted(stream, offset, page, sink.callbacks(), notes);
  // No decoder here makes whole images without the sink.
  if (decoded == StatusCode::whole_image_decoder) return StatusCode::unsupported;
  TQ_TRY(decoded);
  TQ_TRY(sink.finish());
  if (sink.is_to_be_turned()) {
    TQ_TRY(turn_image(slot, notes.orientation));
    if (pixels::turn_of(notes.orientation).swapped) {
      std::swap(notes.resolution.x, notes.resolution.y);
    }
  }
  ImageRecord& image = slot.record();
  image.damage = damage_of(notes);
  remember_resolution(image, notes.resolution);
  return slot.keep();
}

Status file_info(StreamHandle stream, std::int32_t page, BitmapInfoHeader& header) {
  header = {};
  if (page < 0) return StatusCode::page_past_end;
  if (page > 0) {
    const FileType* found = nullptr;
    TQ_TRY(detect(stream, found));
    const bool alone = found != nullptr && found->count_pages == nullptr &&
                       (found->traits & formats::kMultiPage) == 0;
    if (alone) return StatusCode::page_past_end;
  }
  const formats::RowSink sink{.on_header = take_header, .context = &header};
  const Status decoded = decode_page(stream, 0, page, sink, context().options);
  return decoded == StatusCode::stop_after_header ? kOk : decoded;
}

Status image_orientation(StreamHandle stream) {
  const FileType* found = nullptr;
  TQ_TRY(detect(stream, found));
  const bool tells = found != nullptr && found->find_orientation != nullptr;
  return tells ? found->find_orientation(stream, context().options) : StatusCode::unsupported;
}

}  // namespace tq::dispatch
