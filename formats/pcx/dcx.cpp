// DCX: a table of up to 100 (when read: 1024) file offsets, then the pages, PCX images all.
#include <algorithm>
#include <array>

#include "formats/pcx/pcx.h"
#include "formats/pcx/pcx_decode.h"
#include "formats/pcx/pcx_encode.h"
#include "io/chunk_reader.h"
#include "io/endian.h"

namespace tq::formats {
namespace {

constexpr std::uint32_t kMagic = 987654321;
constexpr std::uint32_t kMostPages = 1024;  // that are looked for
constexpr int kWrittenPages = 100;          // that a container written here has room for
constexpr int kTableBytes = 4 + 4 * kWrittenPages;
constexpr std::size_t kCopyBytes = 4000;
constexpr int kFull = 0;  // entry 0 is never searched for

using Table = std::array<std::uint8_t, kTableBytes>;

// Reads table entries one after the other; the end counts as 0. A table that is full ends with no
// zero entry but where the first page begins.
class Entries {
 public:
  // The stream stands behind the magic of the container that begins at `start`.
  Status open(StreamHandle stream, std::int32_t start) {
    at_ = static_cast<std::uint32_t>(start) + 4;
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
Status find_page(StreamHandle stream, std::int32_t start, std::uint32_t page, PcxExtent& extent) {
  std::array<std::uint32_t, kMostPages> offsets;
  Entries entries;
  TQ_TRY(entries.open(stream, start));
  std::uint32_t count = 0;
  for (; count < kMostPages; ++count) {
    offsets[count] = entries.next();
    if (offsets[count] == 0) break;
  }
  if (page >= count) return StatusCode::no_such_page;
  if (offsets[page] > INT32_MAX) return StatusCode::cannot_open;  // no position in any stream

  extent.start = static_cast<std::int32_t>(offsets[page]);
  std::uint32_t after = UINT32_MAX;
  for (std::uint32_t i = 0; i < count; ++i) {
    if (offsets[i] > offsets[page]) after = std::min(after, offsets[i]);
  }
  if (after <= INT32_MAX) extent.end = static_cast<std::int32_t>(after);
  return kOk;
}

// The entry for the next page, or kFull. Looks from entry 1 on; callers rely on entry 0.
int free_entry(const Table& table) {
  for (int i = 1; i < kWrittenPages; ++i) {
    if (load_le32(&table[4 + 4 * i]) == 0) return i;
  }
  return kFull;
}

// What begins at the stream's position, which is restored. `container`: there is one.
void read_table(StreamHandle stream, Table& table, bool& container) {
  const std::int32_t start = position(stream);
  table.fill(0);
  const std::int32_t got = read(stream, table);
  seek(stream, start, Origin::start);
  container = got >= 4 && load_le32(table.data()) == kMagic;
}

Status write_all(StreamHandle stream, std::span<std::uint8_t> bytes) {
  return PcxOutput{.stream = stream}.write(bytes);
}

Status write_words(StreamHandle stream, std::initializer_list<std::uint32_t> words) {
  for (const std::uint32_t word : words) {
    std::array<std::uint8_t, 4> bytes;
    store_le32(bytes.data(), word);
    TQ_TRY(write_all(stream, bytes));
  }
  return kOk;
}

// Leaves the stream where the first page goes.
Status begin_container(StreamHandle stream, std::int32_t start) {
  Table empty{};
  TQ_TRY(write_all(stream, empty));
  seek(stream, start, Origin::start);
  const std::int32_t first_page = start + kTableBytes;
  TQ_TRY(write_words(stream, {kMagic, static_cast<std::uint32_t>(first_page)}));
  seek(stream, first_page, Origin::start);
  return kOk;
}

Status add_page(StreamHandle stream, std::int32_t start, int entry) {
  const std::int32_t end = seek(stream, 0, Origin::end);
  if (end < 0) return StatusCode::write_failed;
  seek(stream, start + 4 + 4 * entry, Origin::start);
  TQ_TRY(write_words(stream, {static_cast<std::uint32_t>(end)}));
  seek(stream, end, Origin::start);
  return kOk;
}

Status copy_page(TempFile& page, StreamHandle stream) {
  GlobalBlock block;
  TQ_TRY(block.allocate(kCopyBytes));
  page.seek(0, 0);
  for (;;) {
    const std::int32_t got = page.read(block.bytes());
    TQ_TRY(write_all(stream, block.bytes().first(static_cast<std::size_t>(got))));
    if (got < static_cast<std::int32_t>(kCopyBytes)) return kOk;
  }
}

}  // namespace

Status decode_dcx(const DecodeRequest& request) {
  const std::uint32_t page = request.has_page() ? request.page & 0xFFFF : 0;
  const std::int32_t start = request.has_page() ? 0 : request.offset;
  std::array<std::uint8_t, 4> magic{};
  seek(request.stream, start, Origin::start);
  if (read_fully(request.stream, magic) < 4 || load_le32(magic.data()) != kMagic) {
    return StatusCode::bad_image;
  }
  PcxExtent extent;
  TQ_TRY(find_page(request.stream, start, page, extent));
  return decode_pcx_in(request, extent);
}

Status count_dcx_pages(StreamHandle stream) {
  seek(stream, 4, Origin::start);
  Entries entries;
  TQ_TRY(entries.open(stream, 0));
  std::int32_t pages = 0;
  while (pages < static_cast<std::int32_t>(kMostPages) && entries.next() != 0) ++pages;
  return Status::from_raw(pages);
}

Status can_append_dcx(StreamHandle stream) {
  Table table;
  bool container = false;
  read_table(stream, table, container);
  if (container && free_entry(table) == kFull) return StatusCode::unsupported;
  return kOk;
}

Status encode_dcx(const EncodeRequest& request) {
  TQ_TRY(can_encode_pcx(request));
  const StreamHandle stream = request.stream;
  // The size of what lies in memory is not known, so there is nothing to append to.
  const bool may_append = stream != kMemoryStream;
  if (may_append) TQ_TRY(can_append_dcx(stream));

  // A page that cannot be encoded leaves the container as it was.
  TempFile page;
  TQ_TRY(page.create());
  TQ_TRY(encode_pcx_to({.file = &page}, request));

  const std::int32_t start = position(stream);
  if (start < 0 || start > INT32_MAX - kTableBytes) return StatusCode::write_failed;
  Table table;
  bool container = false;
  if (may_append) read_table(stream, table, container);
  const int entry = container ? free_entry(table) : kFull;
  if (container && entry == kFull) return StatusCode::unsupported;
  TQ_TRY(container ? add_page(stream, start, entry) : begin_container(stream, start));
  return copy_page(page, stream);
}

}  // namespace tq::formats
