// A page of one file into another without an image between them: the encoder runs, and where it would ask for
// rows, the decoder does.
#include <algorithm>

#include "core/context.h"
#include "core/licence.h"
#include "core/numbers.h"
#include "core/run_storage.h"
#include "dispatch/dispatch.h"
#include "dispatch/row_supplier.h"

namespace tq::dispatch {
namespace {

using formats::RowTaker;

// What decodes into images are told to do with rows on the way.
bool rows_are_changed() {
  const Settings& settings = context().settings;
  const auto [x, y, width, height] = settings.decomp_rect;
  const bool is_cut = x != 0 || y != 0 || width != 0 || height != 0;
  return is_cut || settings.decomp_size.width > 0 || settings.decomp_size.height > 0 ||
         settings.decomp_reduction != 0;
}

std::int32_t IMG_CB_C keep_header(void* block, void* header) {
  *static_cast<HeaderBlock*>(header) = *static_cast<const HeaderBlock*>(block);
  return IMG_STOP_AFTER_HEADER;
}

// What a row of bits has behind its pixels is 1, as in rows out of run lists.
void whiten_padding(std::span<std::uint8_t> row, std::int32_t width) {
  const std::int32_t whole = width / 8;
  if ((width & 7) != 0) row[whole] |= byte(0xFF >> (width & 7));
  std::fill(row.begin() + (width + 7) / 8, row.end(), std::uint8_t{0xFF});
}

// The rows of a page, as an image of it would supply them.
class PageRows {
 public:
  PageRows(const SourcePage& source, Supplier kind) : source_(source), kind_(kind) {}
  PageRows(const PageRows&) = delete;
  PageRows& operator=(const PageRows&) = delete;

  // unsupported for what needs an image.
  Status find_header();
  HeaderBlock& header() { return saved_; }
  Resolution resolution() const { return resolution_; }
  formats::RowSupplier supplier() { return {.context = this, .push = push}; }

 private:
  static Status push(void* rows, const RowTaker& taker) {
    return static_cast<PageRows*>(rows)->decode(taker);
  }
  static std::int32_t IMG_CB_C on_header(void* block, void* rows);
  static std::int32_t IMG_CB_C on_row(void* row, void* rows, std::int32_t y, std::int32_t bytes);

  void describe(const HeaderBlock& found);
  Status decode(const RowTaker& taker);
  Status row(std::span<const std::uint8_t> bytes, std::int32_t y);
  Status begin(std::int32_t y);
  Status blank_rows(std::int32_t end);
  Status put(std::span<const std::uint8_t> bytes);
  Status put_mono(std::span<const std::uint8_t> bytes);

  const SourcePage& source_;
  Supplier kind_;
  HeaderBlock saved_;  // as the encoder is told
  Resolution resolution_;
  std::int32_t width_ = 0, height_ = 0;
  int bits_ = 0;
  std::size_t row_bytes_ = 0;
  RowBuffer<std::uint16_t> transitions_;

  const RowTaker* taker_ = nullptr;
  std::int32_t next_ = 0, step_ = 0;  // the row that comes next; down, up, or not known yet
  Status failure_ = kOk;              // whatever the decoder makes of it
};

Status PageRows::find_header() {
  HeaderBlock found;
  formats::DecodeNotes notes;
  const Status stopped = decode_noted(source_.stream, source_.offset, source_.page,
                                      {.on_header = keep_header, .context = &found}, notes);
  if (stopped != StatusCode::stop_after_header) {
    return stopped.failed() ? stopped : StatusCode::bad_image;
  }
  const BitmapInfoHeader& from = found.header;
  TQ_TRY(check_geometry(from));
  TQ_TRY(check_licence());
  width_ = from.biWidth;
  height_ = from.biHeight;
  bits_ = from.biBitCount;
  const bool is_turned =
      context().options.get(IMG_OPTION_ORIENTATION) == 1 && notes.orientation > 1;
  if (is_turned || bits_ == 32) return StatusCode::unsupported;
  if (bits_ == 1) {
    if (!keeps_runs(width_, height_)) return StatusCode::unsupported;
    TQ_TRY(transitions_.allocate(width_));
  }
  row_bytes_ = static_cast<std::size_t>(row_bytes(width_, bits_));
  describe(found);
  resolution_ = resolution_of(from);
  if (notes.resolution.x > 0) resolution_.x = notes.resolution.x;
  if (notes.resolution.y > 0) resolution_.y = notes.resolution.y;
  return kOk;
}

void PageRows::describe(const HeaderBlock& found) {
  const BitmapInfoHeader& from = found.header;
  saved_ = dib_header(width_, height_, bits_);
  BitmapInfoHeader& header = saved_.header;
  header.biCompression = bits_ == 1 ? kInRuns : from.biCompression;
  header.biXPelsPerMeter = from.biXPelsPerMeter;
  header.biYPelsPerMeter = from.biYPelsPerMeter;
  header.biClrImportant = from.biClrImportant;
  const bool is_transparent = (from.biClrUsed & kTransparent) != 0;
  if (is_transparent) header.biClrUsed = kTransparent | byte(from.biClrUsed);
  std::copy_n(found.palette.begin(), palette_bytes(bits_) / 4, saved_.palette.begin());
}

std::int32_t IMG_CB_C PageRows::on_header(void* block, void* rows) {
  const PageRows& self = *static_cast<PageRows*>(rows);
  const BitmapInfoHeader& header = static_cast<const HeaderBlock*>(block)->header;
  const bool same = header.biWidth == self.width_ && header.biHeight == self.height_ &&
                    header.biBitCount == self.bits_;
  return same ? 1 : static_cast<std::int32_t>(StatusCode::bad_image);
}

std::int32_t IMG_CB_C PageRows::on_row(void* row, void* rows, std::int32_t y, std::int32_t bytes) {
  PageRows& self = *static_cast<PageRows*>(rows);
  if (self.failure_.ok()) {
    const std::span all(static_cast<const std::uint8_t*>(row),
                        static_cast<std::size_t>(std::max(bytes, 0)));
    self.failure_ = self.row(all, y);
  }
  return self.failure_.raw();
}

Status PageRows::decode(const RowTaker& taker) {
  taker_ = &taker;
  formats::DecodeNotes notes;
  const Status decoded =
      decode_noted(source_.stream, source_.offset, source_.page, {on_header, on_row, this}, notes);
  TQ_TRY(failure_);
  TQ_TRY(decoded);
  if (step_ == 0) TQ_TRY(begin(0));
  return blank_rows(step_ > 0 ? height_ : -1);
}

Status PageRows::begin(std::int32_t y) {
  const bool is_last = y == height_ - 1;
  if (y != 0 && !(is_last && taker_->from_below)) return StatusCode::unsupported;
  step_ = y == 0 ? 1 : -1;
  next_ = y;
  return kOk;
}

// Those before `end` that do not come: black, white in run lists.
Status PageRows::blank_rows(std::int32_t end) {
  for (; next_ != end; next_ += step_) {
    std::fill_n(taker_->bytes.data(), row_bytes_,
                bits_ == 1 ? std::uint8_t{0xFF} : std::uint8_t{0});
    TQ_TRY(taker_->take(taker_->context, next_, kOk));
  }
  return kOk;
}

Status PageRows::row(std::span<const std::uint8_t> bytes, std::int32_t y) {
  TQ_TRY(report_progress(height_));
  if (y < 0 || y >= height_) return kOk;  // a decoder's own mistake
  if (step_ == 0) TQ_TRY(begin(y));
  if (step_ > 0 ? y < next_ : y > next_) return StatusCode::unsupported;
  TQ_TRY(blank_rows(y));
  const Status supplied = bits_ == 1 ? put_mono(bytes) : put(bytes);
  next_ += step_;
  const Status taken = taker_->take(taker_->context, y, supplied);
  return taken.failed() ? taken : kOk;
}

Status PageRows::put(std::span<const std::uint8_t> bytes) {
  std::uint8_t* const row = taker_->bytes.data();
  const std::size_t there = std::min(bytes.size(), row_bytes_);
  std::copy_n(bytes.data(), there, row);
  std::fill(row + there, row + row_bytes_, std::uint8_t{0});
  return kOk;
}

Status PageRows::put_mono(std::span<const std::uint8_t> bytes) {
  const std::span<std::uint8_t> row = taker_->bytes.first(row_bytes_);
  if (bytes.size() == row_bytes_) {
    std::ranges::copy(bytes, row.begin());
    whiten_padding(row, width_);
    return kOk;
  }
  const auto count = static_cast<std::size_t>(read_run_list(bytes, width_, transitions_.pixels()));
  const auto transitions = transitions_.pixels().first(count);
  if (kind_ == Supplier::transitions) {
    const Status listed = list_transitions(transitions, 0, width_, taker_->bytes);
    if (listed.raw() > 0) return listed;
  }
  transitions_to_bits(Transitions(transitions), width_, row);
  return kOk;
}

// A file that is to grow, and becomes what it was.
class GrowingFile {
 public:
  explicit GrowingFile(StreamHandle file) : file_(file) {}

  Status begin(bool takes_pages) {
    start_ = position(file_);
    end_ = start_ < 0 ? -1 : seek(file_, 0, Origin::end);
    if (end_ < 0 || (end_ != start_ && !takes_pages)) return StatusCode::unsupported;
    return seek_to(file_, start_);
  }
  void undo() const {
    if (seek(file_, 0, Origin::end) > end_) cut_file(file_, end_);
    seek(file_, start_, Origin::start);
  }

 private:
  StreamHandle file_;
  std::int32_t start_ = 0, end_ = 0;
};

// Whether rows may go from one to the other.
Status find_types(const SourcePage& source, std::int32_t code, const FileType*& to) {
  to = find_code(code);
  if (to == nullptr || to->encode == nullptr) return StatusCode::unsupported;
  if ((to->traits & formats::kTakesRows) == 0) return StatusCode::unsupported;
  if (to->available != nullptr) TQ_TRY(to->available());
  if (source.page < 0) return StatusCode::page_past_end;
  const FileType* from = nullptr;
  TQ_TRY(seek_to(source.stream, source.offset));
  TQ_TRY(detect(source.stream, from));
  const bool gives_rows = from != nullptr && (from->traits & formats::kGivesRows) != 0;
  return gives_rows ? kOk : StatusCode::unsupported;
}

}  // namespace

Status convert_page(const SourcePage& source, StreamHandle target, std::int32_t code) {
  const OwnFile own(target);  // nobody can look at what is taken back
  const bool may_write =
      target != kMemoryStream && target != source.stream && takes_bytes_as_they_are(target);
  if (!may_write || rows_are_changed()) return StatusCode::unsupported;
  const FileType* type = nullptr;
  TQ_TRY(find_types(source, code, type));
  PageRows rows(source, type->supplier);
  TQ_TRY(rows.find_header());
  formats::EncodeRequest request{.stream = target,
                                 .image = &rows.header(),
                                 .rows = rows.supplier(),
                                 .type = type,
                                 .options = context().options,
                                 .resolution = rows.resolution(),
                                 .texts = &context().texts};
  if (type->can_encode != nullptr) TQ_TRY(type->can_encode(request));
  GrowingFile file(target);
  TQ_TRY(file.begin((type->traits & formats::kMultiPage) != 0));
  const Status saved = type->encode(request);
  if (saved.failed()) file.undo();
  return saved.failed() ? saved : kOk;
}

}  // namespace tq::dispatch
