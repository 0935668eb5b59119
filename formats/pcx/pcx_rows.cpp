// Coded bytes to scan lines.
#include "formats/pcx/pcx_rows.h"

#include <algorithm>

#include "core/context.h"
#include "formats/pcx/pcx_runs.h"

namespace tq::formats {
namespace {

std::int64_t chunk_bytes(std::int64_t line_bytes) {
  const std::int64_t budget = context().settings.read_budget;
  return line_bytes > budget ? 4 * line_bytes : budget;
}

// How few coded bytes can fill so many of a line. Memory that does not say where it ends may end
// behind them.
std::ptrdiff_t fewest_coded(std::ptrdiff_t missing) {
  return 2 * (missing / kLongestPcxRun) + std::min<std::ptrdiff_t>(missing % kLongestPcxRun, 2);
}

}  // namespace

Status PcxLines::open(StreamHandle stream, const PcxHeader& file) {
  line_bytes_ = file.line_bytes();
  TQ_TRY(buffer_.allocate(line_bytes_ + kPcxRunRoom));
  return input_.open(stream, chunk_bytes(line_bytes_));
}

Status PcxLines::gather() {
  while (held_ < line_bytes_) {
    std::span<const std::uint8_t> input = input_.peek_all(fewest_coded(line_bytes_ - held_));
    if (input.size() == 1 && input[0] >= kPcxRun) input = input_.peek_all(2);  // the run's value
    if (input.empty() && !started_) return StatusCode::read_failed;
    started_ = true;
    PcxRuns runs{input.data(), input.data() + input.size(), buffer_.data() + held_,
                 buffer_.data() + line_bytes_};
    expand_runs(runs);
    const auto taken = static_cast<std::size_t>(runs.from - input.data());
    input_.skip(taken);
    held_ = runs.to - buffer_.data();
    if (held_ > 2 * line_bytes_) return StatusCode::bad_image;
    ended_ = taken == 0;
    if (ended_) break;
  }
  return kOk;
}

Status PcxLines::next(std::span<const std::uint8_t>& line, bool& more) {
  if (lent_) {
    held_ = std::max<std::ptrdiff_t>(held_ - line_bytes_, 0);
    std::copy_n(buffer_.data() + line_bytes_, held_, buffer_.data());
    lent_ = false;
  }
  if (held_ < line_bytes_ && !ended_) TQ_TRY(gather());
  more = held_ > 0;
  if (held_ < line_bytes_)
    std::fill(buffer_.data() + held_, buffer_.data() + line_bytes_, std::uint8_t{0});
  lent_ = more;
  line = buffer_.pixels().first(static_cast<std::size_t>(line_bytes_));
  return kOk;
}

Status skip_pcx_rows(StreamHandle stream, const PcxHeader& file) {
  PcxLines lines;
  TQ_TRY(lines.open(stream, file));
  for (std::int32_t y = 0; y < file.height; ++y) {
    std::span<const std::uint8_t> line;
    bool more = false;
    TQ_TRY(lines.next(line, more));
    if (!more) return StatusCode::bad_image;
  }
  return kOk;
}

}  // namespace tq::formats
