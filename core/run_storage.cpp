// Run lists: bits to transitions and back, and the lists of an image inside its DIB block.
#include "core/run_storage.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

#include "core/image_table.h"
#include "core/numbers.h"

namespace tq {
namespace {

constexpr int kClosers = 6;           // the width and the width + 2, three times each
constexpr std::uint16_t kAsBits = 0;  // in place of a length: the row follows as bits
constexpr std::uint64_t kGrowth = 64000;
constexpr std::uint64_t kMostWaiting = 8 << 20;  // bytes of an image whose rows of bits wait

constexpr std::size_t list_bytes(std::size_t transitions) {
  return 2 * (1 + transitions + kClosers);
}

// The next 64 pixels, the leftmost in the top bit; what the row does not have is white.
std::uint64_t load_pixels(std::span<const std::uint8_t> bits, std::size_t at) {
  static_assert(std::endian::native == std::endian::little);
  std::uint64_t pixels = ~std::uint64_t{0};
  if (const std::size_t left = bits.size() - at; left < sizeof pixels) {
    std::memcpy(&pixels, bits.data() + at, left);
  } else {
    std::memcpy(&pixels, bits.data() + at, sizeof pixels);  // of a known size: one instruction
  }
  return __builtin_bswap64(pixels);
}

// Where in 64 pixels the colour changes; `last` is the pixel before, `left` what the row has of
// them.
std::uint64_t changes_in(std::uint64_t pixels, std::uint64_t last, std::int32_t left) {
  const std::uint64_t changes = pixels ^ (pixels >> 1 | last << 63);
  return left < 64 ? changes & ~std::uint64_t{0} << (64 - left) : changes;
}

// Processors without an instruction for it have no faster way.
int count_ones(std::uint64_t v) {
  v -= v >> 1 & 0x5555555555555555;
  v = (v & 0x3333333333333333) + (v >> 2 & 0x3333333333333333);
  return static_cast<int>(((v + (v >> 4)) & 0x0F0F0F0F0F0F0F0F) * 0x0101010101010101 >> 56);
}

// Whether a row has more than `most` transitions: cheaper than their positions, of which rows of
// dots would be given too many for nothing.
bool has_more_transitions(std::span<const std::uint8_t> bits, std::int32_t width,
                          std::size_t most) {
  const auto row = bits.first((width + 7) / 8);
  std::size_t count = 0;
  std::uint64_t last = 1;
  for (std::int32_t x = 0; x < width && count <= most; x += 64) {
    const std::uint64_t pixels = load_pixels(row, x / 8);
    count += count_ones(changes_in(pixels, last, width - x));
    last = pixels & 1;
  }
  return count > most;
}

// Where in eight pixels the colour changes, by their bits. The rest of the positions has no
// meaning.
struct ChangesOfByte {
  std::uint16_t positions[8];
  std::uint16_t count;
};

constexpr auto kChangesOfByte = [] {
  std::array<ChangesOfByte, 256> table{};
  for (unsigned byte = 0; byte < 256; ++byte) {
    for (std::uint16_t x = 0; x < 8; ++x) {
      if ((byte & 0x80u >> x) != 0) table[byte].positions[table[byte].count++] = x;
    }
  }
  return table;
}();

// Writes the positions of the changes; returns their end. How many a byte has is hard to foresee,
// so eight are written for each: what comes behind the last is written over later or not looked at.
template <class Position>
Position* write_changes(std::uint64_t changes, std::int32_t x, Position* out) {
#pragma GCC unroll 8
  for (int shift = 56; shift >= 0; shift -= 8, x += 8) {
    const ChangesOfByte& byte = kChangesOfByte[changes >> shift & 0xFF];
    for (int i = 0; i < 8; ++i) out[i] = static_cast<Position>(x + byte.positions[i]);
    out += byte.count;
  }
  return out;
}

template <class Position>
std::int32_t find_changes(std::span<const std::uint8_t> bits, std::int32_t width,
                          std::span<Position> out) {
  constexpr std::int32_t kWords = 64;  // looked at in one go
  constexpr std::size_t kMost = 64;    // of one word, with what is written behind the last
  std::size_t found = 0;
  std::uint64_t last = 1;  // the pixel before, white at first
  const auto row = bits.first((width + 7) / 8);
  for (std::int32_t x = 0; x < width;) {
    // Words with changes, picked without branches on them.
    std::uint64_t changes[kWords];
    std::int32_t places[kWords];
    int picked = 0;
    for (const std::int32_t end = x + std::min(width - x, 64 * kWords); x < end; x += 64) {
      const std::uint64_t pixels = load_pixels(row, x / 8);
      changes[picked] = changes_in(pixels, last, width - x);
      places[picked] = x;
      picked += static_cast<int>(changes[picked] != 0);
      last = pixels & 1;
    }
    for (int i = 0; i < picked; ++i) {
      if (out.size() - found >= kMost) {
        Position* const from = out.data();
        found = write_changes(changes[i], places[i], from + found) - from;
        continue;
      }
      Position positions[kMost];
      const std::size_t count = write_changes(changes[i], places[i], positions) - positions;
      if (count > out.size() - found) return -1;
      std::copy_n(positions, count, out.data() + found);
      found += count;
    }
  }
  return static_cast<std::int32_t>(found);
}

// Draws black runs from the left into a white row, 32 pixels at a time.
class RunPen {
 public:
  explicit RunPen(std::span<std::uint8_t> bits) : bits_(bits) {
    std::memset(bits.data(), 0xFF, bits.size());
  }
  void draw(std::uint32_t first, std::uint32_t end) {
    if (first / 32 != at_) put(first / 32);
    if (end / 32 == at_) {
      word_ &= ~(kWhite >> first % 32) | kWhite >> end % 32;
      return;
    }
    word_ &= ~(kWhite >> first % 32);
    put(at_ + 1);
    for (; at_ != end / 32; ++at_) std::memset(bits_.data() + 4 * at_, 0, 4);
    word_ = kWhite >> end % 32;
  }
  void finish() {
    if (4 * at_ < bits_.size()) put(0);
  }

 private:
  static constexpr std::uint32_t kWhite = ~std::uint32_t{0};

  void put(std::uint32_t next) {
    const std::uint32_t stored = __builtin_bswap32(word_);
    std::memcpy(bits_.data() + 4 * at_, &stored, sizeof stored);
    word_ = kWhite;
    at_ = next;
  }

  std::span<std::uint8_t> bits_;
  std::uint32_t word_ = kWhite;  // the leftmost pixel in the top bit
  std::uint32_t at_ = 0;         // which word of the row that is
};

template <class Position>
void draw_runs(std::span<const Position> row, std::int32_t width, std::span<std::uint8_t> bits) {
  RunPen pen(bits);
  for (std::size_t i = 0; i < row.size(); i += 2) {
    const std::int32_t end = i + 1 < row.size() ? row[i + 1] : width;
    pen.draw(row[i], end);
  }
  pen.finish();
}

void whiten_padding(std::span<std::uint8_t> bits, std::int32_t width) {
  const std::int32_t whole = width / 8;
  if ((width & 7) != 0) bits[whole] |= byte(0xFF >> (width & 7));
  std::fill(bits.begin() + (width + 7) / 8, bits.end(), std::uint8_t{0xFF});
}

// A stored row: the list at `at` in the DIB block.
struct StoredRow {
  const std::uint8_t* list;
  std::size_t stride;

  std::uint16_t length() const {
    std::uint16_t word;
    std::memcpy(&word, list, sizeof word);
    return word;
  }
  bool as_bits() const { return length() == kAsBits; }
  std::size_t bytes() const { return as_bits() ? 2 + stride : length(); }
  std::span<const std::uint8_t> bits() const { return {list + 2, stride}; }
  Transitions transitions() const {
    // Lists start at even offsets of an aligned block.
    return {reinterpret_cast<const std::uint16_t*>(list + 2),
            static_cast<std::size_t>(length()) / 2 - 1 - kClosers};
  }
};

std::size_t stride_of(const ImageRecord& image) {
  return image.bytes_per_row;
}

bool is_white(const ImageRecord& image, std::int32_t y) {
  return image.run_table[y] == 0;
}

StoredRow stored_row(const ImageRecord& image, std::int32_t y) {
  return {image.dib + image.run_table[y], stride_of(image)};
}

// Rows of dots come one after the other, from the top or from the bottom.
bool is_beside_bits(const ImageRecord& image, std::int32_t y) {
  const auto has_bits = [&](std::int32_t at) {
    return at >= 0 && at < image.height && !is_white(image, at) && stored_row(image, at).as_bits();
  };
  return has_bits(y - 1) || has_bits(y + 1);
}

std::uint32_t front_bytes(const ImageRecord& image) {
  return kDibHeaderBytes + palette_bytes(image.bits);
}

// Moves the lists that are in use to a new block, in row order, leaving `spare` bytes behind them.
Status compact(ImageRecord& image, std::uint64_t spare) {
  const std::uint32_t live = image.runs_end - image.runs_dead;
  GlobalBlock block;
  TQ_TRY(block.allocate(live + spare));
  std::uint32_t end = front_bytes(image);
  std::memcpy(block.data(), image.dib, end);
  for (std::int32_t y = 0; y < image.height; ++y) {
    if (is_white(image, y)) continue;
    const StoredRow row = stored_row(image, y);
    const std::size_t bytes = row.bytes();
    std::memcpy(block.data() + end, row.list, bytes);
    image.run_table[y] = end;
    end += static_cast<std::uint32_t>(bytes);
  }
  free_block(image.dib);
  image.dib_size = static_cast<std::int32_t>(block.size());
  image.dib = block.release();
  image.runs_end = end;
  image.runs_dead = 0;
  image.waiting_end = 0;  // they lie in another order now
  return kOk;
}

// Makes room for one more list of at most `bytes` at the end of the lists.
Status reserve(ImageRecord& image, std::size_t bytes) {
  const std::uint64_t needed = std::uint64_t{image.runs_end} + bytes;
  const std::uint64_t capacity = image.dib_size;
  if (needed <= capacity) return kOk;
  if (image.runs_dead > image.runs_end / 2) return compact(image, bytes + kGrowth);
  const std::uint64_t wanted = std::min(needed + needed / 2 + kGrowth, kLargestBlock);
  if (wanted < needed) return StatusCode::out_of_memory;
  std::uint8_t* moved = resize_block(image.dib, wanted);
  if (moved == nullptr) return StatusCode::out_of_memory;
  image.dib = moved;
  image.dib_size = static_cast<std::int32_t>(wanted);
  return kOk;
}

// Makes the list of `bytes` bytes that was written at the end of the lists row y's own.
void commit(ImageRecord& image, std::int32_t y, std::size_t bytes) {
  const std::uint32_t added = image.runs_end;
  if (!is_white(image, y)) {
    const StoredRow old = stored_row(image, y);
    const std::size_t old_bytes = old.bytes();
    if (bytes <= old_bytes) {
      std::memcpy(image.dib + image.run_table[y], image.dib + added, bytes);
      image.runs_dead += static_cast<std::uint32_t>(old_bytes - bytes);
      return;
    }
    image.runs_dead += static_cast<std::uint32_t>(old_bytes);
  }
  image.run_table[y] = added;
  image.runs_end = added + static_cast<std::uint32_t>(bytes);
}

void commit_white(ImageRecord& image, std::int32_t y) {
  if (is_white(image, y)) return;
  image.runs_dead += static_cast<std::uint32_t>(stored_row(image, y).bytes());
  image.run_table[y] = 0;
}

// Where the next list goes: room for the longer of the two forms of a row.
std::uint16_t* list_place(const ImageRecord& image) {
  return reinterpret_cast<std::uint16_t*>(image.dib + image.runs_end);
}

// Transitions that a list may have before its row is kept as bits.
std::size_t list_limit(const ImageRecord& image) {
  const std::size_t stride = stride_of(image);
  return stride < list_bytes(0) ? 0 : (stride - list_bytes(0)) / 2;
}

// Completes a list whose transitions stand in place.
std::size_t close_list(std::uint16_t* list, std::size_t count, std::int32_t width) {
  list[0] = word(list_bytes(count));
  std::fill_n(list + 1 + count, 3, word(width));
  std::fill_n(list + 4 + count, 3, word(width + 2));
  return list_bytes(count);
}

// Lists are never longer than a row, so the longer form is bits behind their length word; the
// shortest list of a narrow image is longer still.
std::size_t most_bytes(const ImageRecord& image) {
  return std::max(2 + stride_of(image), list_bytes(0));
}

std::size_t slot_bytes(const ImageRecord& image) {
  return 2 + stride_of(image);
}

// An image without rows gets room for all of them as bits.
Status begin_waiting(ImageRecord& image) {
  const std::uint32_t front = front_bytes(image);
  GlobalBlock block;
  TQ_TRY(block.allocate(front + std::uint64_t{slot_bytes(image)} * image.height));
  std::memcpy(block.data(), image.dib, front);
  free_block(image.dib);
  image.dib_size = static_cast<std::int32_t>(block.size());
  image.dib = block.release();
  image.waiting_end = front;
  return kOk;
}

// Whether the rows of an image that has none yet are to wait.
bool begins_waiting(const ImageRecord& image) {
  if (image.waiting_end != 0 || image.runs_end != front_bytes(image)) return false;
  const std::uint64_t bytes = std::uint64_t{slot_bytes(image)} * image.height;
  return bytes <= kMostWaiting;
}

// Whether the row has a place among those that wait, or gets one.
bool waits(const ImageRecord& image, std::int32_t y) {
  if (!is_white(image, y)) {
    return image.run_table[y] < image.waiting_end && stored_row(image, y).as_bits();
  }
  return image.waiting_end == image.runs_end &&
         std::uint64_t{image.runs_end} + slot_bytes(image) <= std::uint64_t(image.dib_size);
}

void put_bits(const ImageRecord& image, std::uint8_t* at, std::span<const std::uint8_t> bits) {
  std::memcpy(at, &kAsBits, sizeof kAsBits);
  const std::span<std::uint8_t> place{at + sizeof kAsBits, stride_of(image)};
  std::memcpy(place.data(), bits.data(), place.size());
  whiten_padding(place, image.width);
}

// The row's list, or -1 where bits are shorter; 0 transitions make none. `out` has room for one.
std::int32_t make_list(const ImageRecord& image, std::span<const std::uint8_t> bits, bool is_dots,
                       std::uint16_t* list) {
  const std::size_t limit = std::max<std::size_t>(list_limit(image), 1);
  if (is_dots && has_more_transitions(bits, image.width, limit)) return -1;
  const std::int32_t count =
      find_changes(bits, image.width, std::span<std::uint16_t>(list + 1, limit));
  if (count > 0 && static_cast<std::size_t>(count) > list_limit(image)) return -1;
  if (count > 0) close_list(list, count, image.width);
  return count;
}

}  // namespace

std::int32_t bits_to_transitions(std::span<const std::uint8_t> bits, std::int32_t width,
                                 std::span<std::uint16_t> out) {
  return find_changes(bits, width, out);
}

std::int32_t bits_to_transitions(std::span<const std::uint8_t> bits, std::int32_t width,
                                 std::span<std::int32_t> out) {
  return find_changes(bits, width, out);
}

void transitions_to_bits(Transitions row, std::int32_t width, std::span<std::uint8_t> bits) {
  draw_runs(row, width, bits);
}

void transitions_to_bits(std::span<const std::int32_t> row, std::int32_t width,
                         std::span<std::uint8_t> bits) {
  draw_runs(row, width, bits);
}

std::int32_t read_run_list(std::span<const std::uint8_t> list, std::int32_t width,
                           std::span<std::uint16_t> out) {
  std::size_t count = 0;
  std::int32_t last = -1;
  for (std::size_t at = 2; at + 2 <= list.size() && count < out.size(); at += 2) {
    const std::int32_t position = list[at] | list[at + 1] << 8;
    if (position <= last || position >= width) break;
    out[count++] = word(position);
    last = position;
  }
  return static_cast<std::int32_t>(count);
}

Status store_transitions(ImageRecord& image, std::int32_t y, Transitions row) {
  if (row.empty()) {
    commit_white(image, y);
    return kOk;
  }
  TQ_TRY(reserve(image, most_bytes(image)));
  std::uint16_t* list = list_place(image);
  if (row.size() <= list_limit(image)) {
    std::copy(row.begin(), row.end(), list + 1);
    commit(image, y, close_list(list, row.size(), image.width));
    return kOk;
  }
  list[0] = kAsBits;
  transitions_to_bits(row, image.width,
                      {reinterpret_cast<std::uint8_t*>(list + 1), stride_of(image)});
  commit(image, y, 2 + stride_of(image));
  return kOk;
}

Status store_bits(ImageRecord& image, std::int32_t y, std::span<const std::uint8_t> bits) {
  if (begins_waiting(image)) TQ_TRY(begin_waiting(image));
  if (!waits(image, y)) return store_listed(image, y, bits);
  if (is_white(image, y)) {
    image.run_table[y] = image.runs_end;
    image.runs_end += static_cast<std::uint32_t>(slot_bytes(image));
    image.waiting_end = image.runs_end;
  }
  put_bits(image, image.dib + image.run_table[y], bits);
  return kOk;
}

Status store_listed(ImageRecord& image, std::int32_t y, std::span<const std::uint8_t> bits) {
  TQ_TRY(reserve(image, most_bytes(image)));
  std::uint16_t* list = list_place(image);
  const std::int32_t count = make_list(image, bits, is_beside_bits(image, y), list);
  if (count == 0) {
    commit_white(image, y);
  } else if (count > 0) {
    commit(image, y, list_bytes(count));
  } else {
    put_bits(image, image.dib + image.runs_end, bits);
    commit(image, y, slot_bytes(image));
  }
  return kOk;
}

Status list_waiting_rows(ImageRecord& image) {
  if (image.waiting_end == 0) return kOk;
  const std::uint32_t front = front_bytes(image);
  const std::size_t slot = slot_bytes(image), slots = (image.waiting_end - front) / slot;
  RowBuffer<std::int32_t> owners;  // y + 1 of what lies in a place; 0: nothing
  RowBuffer<std::uint16_t> list;
  TQ_TRY(owners.allocate(static_cast<std::int64_t>(slots)));
  TQ_TRY(list.allocate(static_cast<std::int64_t>(most_bytes(image) / 2)));
  for (std::int32_t y = 0; y < image.height; ++y) {
    const std::uint32_t at = image.run_table[y];
    if (at != 0 && at < image.waiting_end) owners.data()[(at - front) / slot] = y + 1;
  }
  std::uint32_t end = front;
  bool is_dots = false;
  for (const std::int32_t owner : owners.pixels()) {
    if (owner == 0) continue;
    std::uint32_t& place = image.run_table[owner - 1];
    const StoredRow row = stored_row(image, owner - 1);
    std::size_t bytes = row.bytes();
    const std::int32_t count =
        row.as_bits() ? make_list(image, row.bits(), is_dots, list.data()) : -1;
    is_dots = count < 0;
    if (count > 0) bytes = list_bytes(count);
    // A list is no longer than what it takes the place of, or what is before that.
    const void* const from = count > 0 ? static_cast<const void*>(list.data()) : row.list;
    if (count != 0) std::memmove(image.dib + end, from, bytes);
    place = count == 0 ? 0 : end;
    end += count == 0 ? 0 : static_cast<std::uint32_t>(bytes);
  }
  if (image.runs_end == image.waiting_end) {
    image.runs_end = end;
    image.runs_dead = 0;
  } else {
    image.runs_dead = image.runs_end - front;
    for (std::int32_t y = 0; y < image.height; ++y) {
      if (!is_white(image, y)) {
        image.runs_dead -= static_cast<std::uint32_t>(stored_row(image, y).bytes());
      }
    }
  }
  image.waiting_end = 0;
  return kOk;
}

void expand_row(const ImageRecord& image, std::int32_t y, std::span<std::uint8_t> bits) {
  if (is_white(image, y)) {
    std::fill(bits.begin(), bits.end(), std::uint8_t{0xFF});
  } else if (const StoredRow row = stored_row(image, y); row.as_bits()) {
    std::copy_n(row.bits().begin(), bits.size(), bits.begin());
  } else {
    transitions_to_bits(row.transitions(), image.width, bits);
  }
}

RowView view_row(const ImageRecord& image, std::int32_t y) {
  if (is_white(image, y)) return {};
  const StoredRow row = stored_row(image, y);
  if (row.as_bits()) return {{}, row.bits()};
  return {row.transitions(), {}};
}

std::int32_t row_transitions(const ImageRecord& image, std::int32_t y,
                             std::span<std::uint16_t> out) {
  if (is_white(image, y)) return 0;
  const StoredRow row = stored_row(image, y);
  if (row.as_bits()) return bits_to_transitions(row.bits(), image.width, out);
  const Transitions transitions = row.transitions();
  std::copy(transitions.begin(), transitions.end(), out.begin());
  return static_cast<std::int32_t>(transitions.size());
}

}  // namespace tq
