// Headers, links and values, in either byte order and with either size of offsets.
#include "formats/tiff/file.h"

#include <bit>
#include <cmath>

namespace tq::tiff {
namespace {

constexpr int kVersion = 42, kBigVersion = 43;

}  // namespace

int type_bytes(int type) {
  constexpr std::array<std::uint8_t, 19> kBytes = {0, 1, 1, 2, 4, 8, 1, 1, 2, 4,
                                                   8, 4, 8, 4, 0, 0, 8, 8, 8};
  return type < std::ssize(kBytes) ? kBytes[type] : 0;
}

Status File::open(StreamHandle stream, std::int32_t start) {
  stream_ = stream;
  start_ = start;
  std::array<std::uint8_t, 16> header{};
  const std::int32_t read = read_some(start, std::span(header).first(8));
  // What cannot be read may still be a file with pages.
  if (read < 8 && seek(stream, 0, Origin::end) - std::int64_t{start} > read) {
    return StatusCode::read_failed;
  }
  big_endian_ = header[0] == 'M';
  const bool ordered = header[0] == header[1] && (header[0] == 'M' || header[0] == 'I');
  const int version = u16(&header[2]);
  is_big_ = version == kBigVersion && u16(&header[4]) == 8 && u16(&header[6]) == 0;
  return ordered && (version == kVersion || is_big_) ? StatusCode::ok : StatusCode::bad_image;
}

std::int32_t File::read_some(std::int64_t position, std::span<std::uint8_t> bytes) const {
  return seek_to(stream_, position).ok() ? read_fully(stream_, bytes) : 0;
}

std::int64_t File::read_link(std::int64_t position) const {
  std::array<std::uint8_t, 8> bytes{};
  const bool there = read_at(position, std::span(bytes).first(link_bytes()));
  return there ? link_from(bytes.data()) : -1;
}

File::Step File::first_step() const {
  Step before;
  before.next = read_link(std::int64_t{start_} + (is_big_ ? 8 : 4));
  return follow(before);
}

// One read for each page, as directories have few entries.
File::Step File::follow(const Step& before) const {
  constexpr int kEntries = 24;
  Step step;
  if (before.next <= 0) return step;
  const std::int64_t position = position_of(static_cast<std::uint64_t>(before.next));
  std::array<std::uint8_t, 8 + kEntries * 20 + 8> bytes{};
  // Memory may have no known size, and nothing behind the file is to be read.
  const int most = stream_ == kMemoryStream
                       ? count_bytes()
                       : count_bytes() + kEntries * entry_bytes() + link_bytes();
  const int there = position < 0 ? 0 : read_some(position, std::span(bytes).first(most));
  const std::int64_t entries = there < count_bytes() ? 0 : entries_of(bytes.data());
  if (entries == 0) return step;
  step.position = position;
  const std::int64_t at = count_bytes() + entries * entry_bytes();
  step.link = position + at;
  step.next = at + link_bytes() <= there ? link_from(bytes.data() + at) : read_link(step.link);
  return step;
}

// Brent's search for a cycle needs no memory and a few reads for each page.
Status File::count_pages() const {
  const Step first = first_step();
  if (first.position < 0) return StatusCode::bad_image;
  Step mark = first, step = follow(first);
  std::int32_t pages = 1, cycle = 1, power = 1;
  for (; step.position >= 0 && step.position != mark.position; ++pages, ++cycle) {
    if (cycle == power) {
      mark = step;
      power *= 2;
      cycle = 0;
    }
    step = follow(step);
  }
  if (step.position < 0) return Status::from_raw(pages);
  // The chain comes back: its pages are those before the cycle and those in it.
  Step ahead = first, behind = first;
  for (std::int32_t i = 0; i < cycle; ++i) ahead = follow(ahead);
  for (pages = cycle; ahead.position != behind.position; ++pages) {
    ahead = follow(ahead);
    behind = follow(behind);
  }
  return Status::from_raw(pages);
}

Status File::find_page(std::int32_t page, std::int64_t& position) const {
  Step step = first_step();
  if (step.position < 0) return StatusCode::bad_image;
  bool counted = false;
  for (std::int32_t i = 0; i < page; ++i) {
    const std::int64_t before = step.position;
    step = follow(step);
    if (step.position < 0) return StatusCode::page_past_end;
    // Only a chain that leads back can come to a page twice.
    if (step.position <= before && !counted) {
      if (count_pages().raw() <= page) return StatusCode::page_past_end;
      counted = true;
    }
  }
  position = step.position;
  return kOk;
}

// In one walk: a chain that comes back does not end, so where it does so is no matter.
Status File::find_last_link(std::int64_t& position, std::int32_t& pages) const {
  Step last = first_step();
  if (last.position < 0) return StatusCode::bad_image;
  Step mark = last, step = follow(last);
  std::int32_t cycle = 1, power = 1;
  for (pages = 1; step.position >= 0; ++pages, ++cycle) {
    if (step.position == mark.position) return StatusCode::bad_image;
    if (cycle == power) {
      mark = step;
      power *= 2;
      cycle = 0;
    }
    last = step;
    step = follow(step);
  }
  position = last.link;
  return last.next == 0 ? StatusCode::ok : StatusCode::bad_image;
}

Entry File::entry_from(const std::uint8_t* bytes, std::int64_t at) const {
  Entry entry{.tag = u16(bytes), .type = u16(bytes + 2)};
  const int value = is_big_ ? 12 : 8;  // where it lies
  const std::uint64_t count = is_big_ ? u64(bytes + 4) : u32(bytes + 4);
  const int size = type_bytes(entry.type);
  if (size == 0 || count > INT32_MAX) return entry;
  entry.count = count;
  entry.is_in_place = count * size <= std::uint64_t(link_bytes());
  if (entry.is_in_place) {
    entry.position = at + value;
    std::copy_n(bytes + value, link_bytes(), entry.in_place.begin());
  } else {
    entry.position = position_of(offset_from(bytes + value));
  }
  return entry;
}

const std::uint8_t* Numbers::bytes_of(std::uint64_t i) {
  const std::ptrdiff_t size = type_bytes(entry_.type);
  if (i >= entry_.count || size == 0) return nullptr;
  // A count is below 2^31, and so are its places here.
  const auto index = static_cast<std::ptrdiff_t>(i);
  if (entry_.is_in_place) return &entry_.in_place[index * size];
  if (index < first_ || index >= first_ + held_) {
    const auto left = static_cast<std::ptrdiff_t>(entry_.count) - index;
    const std::ptrdiff_t wanted = std::min(left, std::ssize(window_) / size);
    const std::int64_t at = entry_.position < 0 ? -1 : entry_.position + std::int64_t{index} * size;
    first_ = index;
    held_ = file_->read_some(at, std::span(window_).first(wanted * size)) / size;
    if (held_ == 0) {
      entry_.count = i;  // asked for no more
      return nullptr;
    }
  }
  return &window_[(index - first_) * size];
}

std::uint64_t Numbers::at(std::uint64_t i, std::uint64_t fallback) {
  const std::uint8_t* const bytes = bytes_of(i);
  if (bytes == nullptr) return fallback;
  const auto positive = [&](std::int64_t value) {
    return value < 0 ? fallback : static_cast<std::uint64_t>(value);
  };
  switch (entry_.type) {
    case IMG_TIFF_BYTE:
    case IMG_TIFF_UNDEFINED:
      return bytes[0];
    case IMG_TIFF_SBYTE:
      return positive(static_cast<std::int8_t>(bytes[0]));
    case IMG_TIFF_SHORT:
      return file_->u16(bytes);
    case IMG_TIFF_SSHORT:
      return positive(static_cast<std::int16_t>(file_->u16(bytes)));
    case IMG_TIFF_LONG:
    case IMG_TIFF_IFD:
      return file_->u32(bytes);
    case IMG_TIFF_SLONG:
      return positive(static_cast<std::int32_t>(file_->u32(bytes)));
    case IMG_TIFF_LONG8:
    case IMG_TIFF_IFD8:
      return file_->u64(bytes);
    case IMG_TIFF_SLONG8:
      return positive(static_cast<std::int64_t>(file_->u64(bytes)));
    default:
      return fallback;
  }
}

double Numbers::real_at(std::uint64_t i) {
  const std::uint8_t* const bytes = bytes_of(i);
  if (bytes == nullptr) return 0;
  double value = 0;
  switch (entry_.type) {
    case IMG_TIFF_RATIONAL: {
      const std::uint32_t below = file_->u32(bytes + 4);
      return below == 0 ? 0 : file_->u32(bytes) / static_cast<double>(below);
    }
    case IMG_TIFF_SRATIONAL: {
      const auto above = static_cast<std::int32_t>(file_->u32(bytes));
      const auto below = static_cast<std::int32_t>(file_->u32(bytes + 4));
      return below == 0 ? 0 : above / static_cast<double>(below);
    }
    case IMG_TIFF_FLOAT:
      value = std::bit_cast<float>(file_->u32(bytes));
      break;
    case IMG_TIFF_DOUBLE:
      value = std::bit_cast<double>(file_->u64(bytes));
      break;
    default:
      value = static_cast<double>(at(i));
  }
  return std::isfinite(value) ? value : 0;
}

}  // namespace tq::tiff
