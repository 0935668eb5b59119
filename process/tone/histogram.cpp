// How often each level comes.
#include "process/process.h"
#include "process/tone/tone.h"

namespace tq::process {
namespace {

// Of bytes at equal distances. Equal neighbours are the rule; four tables keep them from waiting for
// each other.
class Counter {
 public:
  void add(const std::uint8_t* bytes, std::ptrdiff_t step, int count) {
    int x = 0;
    for (; x + 4 <= count; x += 4, bytes += 4 * step) {
      ++tables_[0][bytes[0]];
      ++tables_[1][bytes[step]];
      ++tables_[2][bytes[2 * step]];
      ++tables_[3][bytes[3 * step]];
    }
    for (; x < count; ++x, bytes += step) ++tables_[0][*bytes];
    rest_ += count;
    if (rest_ > INT32_MAX) flush();  // a count never passes what has been added
  }

  const LevelCounts& counts() {
    flush();
    return counts_;
  }

 private:
  void flush() {
    for (auto& table : tables_) {
      for (int v = 0; v < 256; ++v) counts_[v] += table[v];
      table.fill(0);
    }
    rest_ = 0;
  }
  std::array<std::array<std::uint32_t, 256>, 4> tables_{};
  std::int64_t rest_ = 0;
  LevelCounts counts_{};
};

int level_of(Rgb colour, Channel channel) {
  switch (channel) {
    case Channel::red:
      return colour.red;
    case Channel::green:
      return colour.green;
    case Channel::blue:
      return colour.blue;
    default:
      return pixels::luma(colour);
  }
}

void count_indices(const ImageSource& image, Counter& counter, RowBuffer<std::uint8_t>& indices) {
  for (int y = 0; y < image.height(); ++y) {
    const std::uint8_t* row = image.row(y).data();
    if (image.bits() == 4) {
      pixels::for_each_index(row, 4, image.width(),
                             [&](int x, int index) { indices.data()[x] = byte(index); });
      row = indices.data();
    }
    counter.add(row, 1, image.width());
  }
}

}  // namespace

Status count_levels(const ImageSource& image, Channel channel, LevelCounts& counts) {
  Counter counter;
  const int width = image.width(), height = image.height();
  if (image.bits() <= 8) {
    RowBuffer<std::uint8_t> indices;
    if (image.bits() == 4) TQ_TRY(indices.allocate(width));
    count_indices(image, counter, indices);
    const LevelCounts& of_indices = counter.counts();
    for (std::size_t i = 0; i < image.palette().size(); ++i) {
      counts[level_of(image.palette()[i], channel)] += of_indices[i];
    }
    return kOk;
  }
  if (channel == Channel::grey) {
    GreyRows greys(image, GreyKind::luma);
    TQ_TRY(greys.allocate());
    for (int y = 0; y < height; ++y) counter.add(greys.read(y).data(), 1, width);
  } else {
    const int at = channel == Channel::red ? 2 : channel == Channel::green ? 1 : 0;
    RowBuffer<Rgb> colours;
    if (has_inks(image)) TQ_TRY(colours.allocate(width));
    for (int y = 0; y < height; ++y) {
      if (has_inks(image)) {
        image.read_colours(y, colours.pixels());
        counter.add(&colours.data()->blue + at, 4, width);
      } else {
        counter.add(image.row(y).data() + at, image.bits() / 8, width);
      }
    }
  }
  counts = counter.counts();
  return kOk;
}

Status get_histogram(ImageSource& image, std::int32_t channel, std::uint32_t* counts) {
  if (!has_levels(image)) return StatusCode::wrong_depth;
  if (channel < 0 || channel > static_cast<std::int32_t>(Channel::blue)) {
    return StatusCode::unsupported;
  }
  LevelCounts found{};
  TQ_TRY(count_levels(image, static_cast<Channel>(channel), found));
  for (int y = 0; y < image.height(); ++y) TQ_TRY(image.next_row());
  if (counts == nullptr) return kOk;
  std::ranges::copy(found, counts);
  return kOk;
}

}  // namespace tq::process
