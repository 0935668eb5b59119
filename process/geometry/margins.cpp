// Margins added or taken away: of each row of the result a part comes from the image, the rest is of
// one colour.
#include <algorithm>

#include "process/geometry/geometry.h"
#include "process/process.h"

namespace tq::process {
namespace {

// What of one side is taken, and where that goes.
struct Part {
  Part(std::int64_t side, std::int64_t before, std::int64_t after)
      : first(std::max<std::int64_t>(-before, 0)),
        at(std::max<std::int64_t>(before, 0)),
        count(std::max<std::int64_t>(side - first - std::max<std::int64_t>(-after, 0), 0)) {}
  std::int64_t first, at, count;
};

// Transitions of a row from the left: each call says the colour from a place on.
class TransitionPen {
 public:
  explicit TransitionPen(std::span<std::uint16_t> out) : out_(out) {}
  void change(std::int64_t at, bool black) {
    if (black != (count_ % 2 != 0)) out_[count_++] = word(at);
  }
  Transitions row() const { return out_.first(count_); }

 private:
  std::span<std::uint16_t> out_;
  std::size_t count_ = 0;
};

Status extend_runs(ImageSource& image, ImageDraft& result, const Part& across, const Part& down,
                   bool black) {
  ImageRecord& made = result.record();
  RowBuffer<std::uint16_t> source, drawn;
  TQ_TRY(source.allocate(most_transitions(image.width())));
  TQ_TRY(drawn.allocate(most_transitions(made.width)));
  for (int y = 0; y < made.height; ++y) {
    TQ_TRY(image.next_row(made.height));
    TransitionPen pen(drawn.pixels());
    const bool beside = y < down.at || y >= down.at + down.count || across.count == 0;
    if (beside || across.at > 0) pen.change(0, black);
    if (!beside) {
      const auto from = static_cast<int>(y - down.at + down.first);
      const Transitions row =
          source.pixels().first(row_transitions(image.record(), from, source.pixels()));
      const std::int64_t end = across.first + across.count;
      std::size_t i = 0;
      while (i < row.size() && row[i] <= across.first) ++i;
      pen.change(across.at, i % 2 != 0);
      for (; i < row.size() && row[i] < end; ++i) {
        pen.change(row[i] - across.first + across.at, i % 2 == 0);
      }
      if (across.at + across.count < made.width) pen.change(across.at + across.count, black);
    }
    TQ_TRY(store_transitions(made, y, pen.row()));
  }
  return kOk;
}

Status extend_rows(ImageSource& image, ImageDraft& result, const Part& across, const Part& down,
                   const Pixel& pixel) {
  const int width = result.record().width, bits = image.bits();
  RowBuffer<std::uint8_t> margin;
  TQ_TRY(margin.allocate(row_bytes(width, bits)));
  fill_row(margin.pixels(), bits, pixel);
  clear_padding(margin.pixels(), width, bits);
  StoredRows rows(image);
  TQ_TRY(rows.allocate());
  return make_rows(result, image, [&](int y, Row row) {
    const bool beside = y < down.at || y >= down.at + down.count;
    if (beside || across.count < width) copy_row(margin.pixels(), row);
    if (beside) return;
    place_bits(rows.read(static_cast<int>(y - down.at + down.first)), across.first * bits,
               across.count * bits, row, across.at * bits);
  });
}

}  // namespace

Status extend_bitmap(ImageSource& image, const Margins& margins, std::int32_t colour) {
  release_display_cache(image.record());
  if (!has_known_depth(image)) return StatusCode::wrong_depth;
  Pixel pixel;
  TQ_TRY(choose_pixel(image, colour, pixel));
  const std::int64_t width = std::int64_t{image.width()} + margins.left + margins.right;
  const std::int64_t height = std::int64_t{image.height()} + margins.top + margins.bottom;
  if (width < 1 || height < 1) return StatusCode::unsupported;
  if (width > INT32_MAX || height > INT32_MAX) return StatusCode::out_of_memory;
  const auto is_none = [](std::int32_t margin) { return margin == 0; };
  if (is_none(margins.left) && is_none(margins.top) && is_none(margins.right) &&
      is_none(margins.bottom)) {
    return kOk;
  }

  ImageDraft result;
  TQ_TRY(create_result(
      result, image,
      same_kind(image, static_cast<std::int32_t>(width), static_cast<std::int32_t>(height))));
  const Part across(image.width(), margins.left, margins.right);
  const Part down(image.height(), margins.top, margins.bottom);
  TQ_TRY(result.record().in_runs ? extend_runs(image, result, across, down, pixel[0] == 0)
                                 : extend_rows(image, result, across, down, pixel));
  result.install(image.record());
  note_moved_pixels(image.record(), false);
  return kOk;
}

Status crop_bitmap(ImageSource& image, const Rect& rect) {
  release_display_cache(image.record());
  if (!has_known_depth(image)) return StatusCode::wrong_depth;
  const std::int64_t right = std::int64_t{image.width()} - rect.x - rect.width;
  const std::int64_t bottom = std::int64_t{image.height()} - rect.y - rect.height;
  if (rect.x < 0 || rect.y < 0 || rect.width < 1 || rect.height < 1 || right < 0 || bottom < 0) {
    return StatusCode::unsupported;
  }
  return extend_bitmap(
      image,
      {-rect.x, -rect.y, static_cast<std::int32_t>(-right), static_cast<std::int32_t>(-bottom)},
      kPaper);
}

}  // namespace tq::process
