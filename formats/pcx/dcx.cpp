// DCX: a table of up to 100 (when read: 1024) file offsets, then the pages, PCX images all.
#include <algorithm>
#include <array>

#include "formats/pcx/pcx.h"
#include "io/chunk_reader.h"
#include "io/endian.h"
#include "io/temp_file.h"

namespace tq::pcx {
namespace {

constexpr std::uint32_t kMagic = 987654321;
constexpr int kMostPages = 1024;    // that are looked for
constexpr int kWrittenPages = 100;  // that a container written here has room for
constexpr int kTableBytes = 4 + 4 * kWrittenPages;
constexpr std::int32_t kCopyBytes = 4000, kLargeCopyBytes = 65536;
constexpr std::int32_t kPageHeaderBytes = 128;

// Reads table entries one after the other; the end counts as 0. A table that is full ends with no
// zero entry but where the first page begins.
class Entries {
 public:
  // The stream stands behind the magic of the container that begins at `start`.
  Status open(StreamHandle stream, std::int32_t start) {
    at_ = 4u + start;
    return input_.open(stream, 256);
  }
  std::uint32_t next() {
    if (at_ >= first_page_) return 0;
    const std::span<const std::uint8_t> bytes = input_.peek(4);
    const std::uint32_t entry = bytes.size() == 4 ? load_le32(bytes.data()) : 0;
    input_.skip(bytes.size());
    if (entry > at_) first_page_ = std::min(first_page_, entry);
    at_ += 4;
    return entry;
  }

 private:
  ChunkReader input_;
  std::uint32_t at_ = 0;  // position of the next entry
  std::uint32_t first_page_ = UINT32_MAX;
};

// A page ends where the next one in the file begins.
Status find_page(StreamHandle stream, std::int32_t start, int page, Extent& extent) {
  std::array<std::uint32_t, kMostPages> offsets;
  Entries entries;
  TQ_TRY(entries.open(stream, start));
  int count = 0;
  for (; count < kMostPages; ++count) {
    offsets[count] = entries.next();
    if (offsets[count] == 0) break;
  }
  if (page >= count) return StatusCode::no_such_page;
  if (offsets[page] > INT32_MAX) return StatusCode::cannot_open;  // no position in any stream

  extent.start = offsets[page];
  std::uint32_t after = UINT32_MAX;
  for (int i = 0; i < count; ++i) {
    if (offsets[i] > offsets[page]) after = std::min(after, offsets[i]);
  }
  if (after <= INT32_MAX) extent.end = after;
  return kOk;
}

// What begins at the stream's position.
struct Existing {
  std::int32_t start = 0;  // the position
  std::int32_t end = 0;    // of the stream
  std::int32_t bytes = 0;  // of the table; what the stream does not have of it is 0
  std::array<std::uint8_t, kTableBytes + 4> table{};  // a longer one may have a zero there

  bool is_container() const { return bytes >= 4 && load_le32(table.data()) == kMagic; }
  std::uint32_t entry(int i) const { return load_le32(&table[4 + 4 * i]); }
  std::int32_t entry_position(int i) const { return start + 4 + 4 * i; }
  void free_entry(int i) { store_le32(&table[4 + 4 * i], 0); }
};

// Of the pages that are listed, as far as a table of ours reaches.
struct Listed {
  int count = 0;
  std::int64_t first, last = 0;  // where they begin
};

Listed listed_pages(const Existing& found) {
  Listed pages{.first = found.end};
  for (; pages.count < kWrittenPages; ++pages.count) {
    const std::int64_t page = found.entry(pages.count);
    if (page == 0 || found.entry_position(pages.count) >= pages.first) break;
    pages.first = std::min(pages.first, page);
    pages.last = std::max(pages.last, page);
  }
  return pages;
}

Status move_to(StreamHandle stream, std::int32_t to) {
  return seek(stream, to, Origin::start) == to ? StatusCode::ok : StatusCode::write_failed;
}

// Leaves the position as it was. Entries that were not read must not be taken for free ones: pages
// would be lost.
Status look_at(StreamHandle stream, Existing& found) {
  found = {.start = position(stream)};
  if (found.start < 0 || found.start > INT32_MAX - kTableBytes) return StatusCode::write_failed;
  found.bytes = read_fully(stream, found.table);
  found.end = seek(stream, 0, Origin::end);
  if (found.end < 0) return StatusCode::write_failed;
  const bool whole = found.bytes == std::ssize(found.table);
  if (!whole && found.end > found.start + found.bytes) return StatusCode::read_failed;
  return move_to(stream, found.start);
}

// The entry for the next page. Entry 0 is never free; callers rely on it. Tables of other writers
// end where their first page begins: there must be room for a zero behind the entry, but for the
// last one of a table as long as ours. Pages that lie behind the end are lost, and would be found
// in the new one.
Status find_entry(const Existing& found, int& entry) {
  std::int64_t table_end = found.start + found.bytes;
  for (int i = 0; i < kWrittenPages && found.entry_position(i + 1) <= table_end; ++i) {
    const std::int64_t page = found.entry(i);
    if (page > found.end) return StatusCode::bad_image;
    if (page != 0) table_end = std::min(table_end, page);
    if (page != 0 || i == 0) continue;
    const bool has_zero = found.entry_position(i + 2) <= table_end && found.entry(i + 1) == 0;
    const bool is_last = i + 1 == kWrittenPages && table_end == found.entry_position(kWrittenPages);
    if (!has_zero && !is_last) break;
    entry = i;
    return kOk;
  }
  return StatusCode::unsupported;
}

// A page whose header is not there was being added when the program or the system came to its end:
// its place is free. It stays in what a caller's functions write to, which cannot be cut off.
Status leave_out_debris(StreamHandle stream, Existing& found) {
  const Listed pages = listed_pages(found);
  const int last = pages.count - 1;
  if (last < 1 || found.entry(last) != pages.last || pages.last > found.end) return kOk;
  if (caller_io_installed()) return kOk;
  std::array<std::uint8_t, kPageHeaderBytes> header{};
  TQ_TRY(seek_to(stream, pages.last));
  const std::int64_t there = std::min<std::int64_t>(found.end - pages.last, kPageHeaderBytes);
  if (read_fully(stream, header) < there) return StatusCode::read_failed;
  TQ_TRY(move_to(stream, found.start));
  if (std::ranges::any_of(header, [](std::uint8_t byte) { return byte != 0; })) return kOk;
  found.free_entry(last);
  found.end = static_cast<std::int32_t>(pages.last);
  return kOk;
}

// Whether a page can be added, and how: as `entry` of the container, or as the first of a new one.
Status find_room(StreamHandle stream, bool over_debris, Existing& found, int& entry) {
  TQ_TRY(look_at(stream, found));
  if (found.is_container() && over_debris) TQ_TRY(leave_out_debris(stream, found));
  return found.is_container() ? find_entry(found, entry) : kOk;
}

// Of a table. Not through a writer, whose failures stay: an entry may have to be taken back.
Status write_word(StreamHandle stream, std::uint32_t word) {
  std::array<std::uint8_t, 4> bytes;
  store_le32(bytes.data(), word);
  return write(stream, bytes) == std::ssize(bytes) ? StatusCode::ok : StatusCode::write_failed;
}

// Leaves the stream where the first page goes.
Status begin_container(StreamHandle stream, std::int32_t start, StreamWriter& output) {
  output.fill(kTableBytes, 0);
  TQ_TRY(output.flush());
  TQ_TRY(move_to(stream, start));
  const std::int32_t first_page = start + kTableBytes;
  TQ_TRY(write_word(stream, kMagic));
  TQ_TRY(write_word(stream, first_page));
  return move_to(stream, first_page);
}

// Leaves the stream where the page goes: at its end. The entry comes first, because it says where
// the page before ends. One that was written in part could point anywhere and is taken back.
Status add_entry(StreamHandle stream, const Existing& found, int entry) {
  const std::int32_t at = found.entry_position(entry);
  TQ_TRY(move_to(stream, at));
  Status added = write_word(stream, found.end);
  if (added.ok()) added = move_to(stream, found.end);
  if (added.failed() && move_to(stream, at).ok()) (void)write_word(stream, 0);
  return added;
}

template <class Read>
Status copy_bytes(Read read, std::int64_t bytes, StreamWriter& output) {
  const std::int64_t most = output.gathers() ? kLargeCopyBytes : kCopyBytes;
  while (bytes > 0) {
    const std::span<std::uint8_t> room = output.room(std::min<std::int64_t>(bytes, most));
    TQ_TRY(output.status());
    const std::int32_t got = read(room);
    if (got <= 0) return StatusCode::read_failed;
    output.take(got);
    bytes -= got;
  }
  return output.flush();
}

Status copy_page(TempFile& page, std::int64_t bytes, StreamWriter& output) {
  return copy_bytes([&](std::span<std::uint8_t> room) { return page.read(room); }, bytes, output);
}

// Behind the last page, whose palette lies before its end: so the entry, which says where it ends, is
// there before anything else. The page's own header is written last of all.
Status add_safely(StreamHandle stream, const Existing& found, int entry, TempFile& page,
                  std::int64_t page_bytes, StreamWriter& output) {
  TQ_TRY(add_entry(stream, found, entry));
  TQ_TRY(flush_to_disk(stream));
  output.fill(kPageHeaderBytes, 0);
  if (page.seek(kPageHeaderBytes, 0) < 0) return StatusCode::read_failed;
  TQ_TRY(copy_page(page, page_bytes - kPageHeaderBytes, output));
  TQ_TRY(flush_to_disk(stream));
  if (page.seek(0, 0) != 0) return StatusCode::read_failed;
  TQ_TRY(move_to(stream, found.end));
  return copy_page(page, kPageHeaderBytes, output);
}

// After a failure. While there is something behind the last page, the entry says where that ends.
void take_back(StreamHandle stream, const Existing& found, int entry) {
  cut_file(stream, found.end);
  if (seek(stream, 0, Origin::end) != found.end) return;
  if (move_to(stream, found.entry_position(entry)).ok()) (void)write_word(stream, 0);
}

}  // namespace

Status decode_dcx(const DecodeRequest& request) {
  const int page = request.has_page() ? request.page & 0xFFFF : 0;
  const std::int32_t start = request.has_page() ? 0 : request.offset;
  std::array<std::uint8_t, 4> magic{};
  seek(request.stream, start, Origin::start);
  if (read_fully(request.stream, magic) < 4 || load_le32(magic.data()) != kMagic) {
    return StatusCode::bad_image;
  }
  Extent extent;
  TQ_TRY(find_page(request.stream, start, page, extent));
  return decode_image(request, extent);
}

Status count_dcx_pages(StreamHandle stream) {
  seek(stream, 4, Origin::start);
  Entries entries;
  TQ_TRY(entries.open(stream, 0));
  int pages = 0;
  while (pages < kMostPages && entries.next() != 0) ++pages;
  return Status::from_raw(pages);
}

Status can_append_dcx(StreamHandle stream, formats::AppendPlace& place) {
  Existing found;
  int entry = 0;
  TQ_TRY(find_room(stream, place.over_debris, found, entry));
  return found.is_container() || found.bytes == 0 ? StatusCode::ok : StatusCode::bad_image;
}

Status make_dcx_room(StreamHandle from, StreamHandle to) {
  Existing found;
  TQ_TRY(look_at(from, found));
  if (!found.is_container()) return StatusCode::bad_image;
  TQ_TRY(leave_out_debris(from, found));
  const Listed pages = listed_pages(found);
  if (pages.count == 0 || pages.count == kWrittenPages) return StatusCode::unsupported;
  if (pages.first < found.entry_position(pages.count) || pages.last > found.end) {
    return StatusCode::bad_image;
  }
  const std::int64_t shift = kTableBytes - pages.first;
  if (found.end + shift > INT32_MAX) return StatusCode::write_failed;
  StreamWriter output;
  TQ_TRY(output.open(to));
  output.put_le32(kMagic);
  for (int i = 0; i < pages.count; ++i) {
    output.put_le32(static_cast<std::uint32_t>(found.entry(i) + shift));
  }
  output.fill(kTableBytes - output.count(), 0);
  TQ_TRY(seek_to(from, pages.first));
  return copy_bytes([&](std::span<std::uint8_t> room) { return read(from, room); },
                    found.end - pages.first, output);
}

Status encode_dcx(const EncodeRequest& request) {
  TQ_TRY(can_encode_pcx(request));
  const StreamHandle stream = request.stream;
  // The size of what lies in memory is not known, so there is nothing to append to.
  const bool may_append = stream != kMemoryStream;
  Existing found{.start = position(stream)};
  int entry = 0;
  const bool safe = request.is_safe();
  if (may_append) TQ_TRY(find_room(stream, safe, found, entry));

  // A page that cannot be encoded leaves the container as it was.
  TempFile page;
  TQ_TRY(page.create());
  StreamWriter output;
  TQ_TRY(output.open(page));
  TQ_TRY(write_image(request, output));
  const std::int32_t page_bytes = page.seek(0, 2);
  if (page_bytes < 0 || page.seek(0, 0) != 0) return StatusCode::read_failed;
  TQ_TRY(output.open(stream, kCopyBytes));

  // Whoever supplied the rows may have worked on the stream.
  if (may_append) TQ_TRY(find_room(stream, safe, found, entry));
  const bool adds = found.is_container();
  const std::int64_t page_start = adds ? found.end : std::int64_t{found.start} + kTableBytes;
  if (found.start < 0 || page_start + page_bytes > INT32_MAX) return StatusCode::write_failed;
  if (adds && safe) {
    cut_file(stream, found.end);
    const Status added = add_safely(stream, found, entry, page, page_bytes, output);
    if (added.failed()) take_back(stream, found, entry);
    return added;
  }
  TQ_TRY(adds ? add_entry(stream, found, entry) : begin_container(stream, found.start, output));
  return copy_page(page, page_bytes, output);
}

}  // namespace tq::pcx
