// A page added to any bytes. What a format takes for a file of its own keeps its pages and has the
// new one behind them; everything that is refused stays as it is.
#include "dispatch/file_types.h"
#include "fuzz/fuzz_support.h"

namespace tq::fuzz {
namespace {

using dispatch::FileType;

constexpr StreamHandle kStream{1};
constexpr std::int32_t kMostPages = 20;  // that are looked at

struct Page {
  std::int32_t status = 0;
  Digest pixels{}, palette{};
  friend bool operator==(const Page&, const Page&) = default;
};

// Large pictures take time and show nothing new.
std::int32_t IMG_CB_C on_header(void* block, void* page) {
  const auto& image = *static_cast<const HeaderBlock*>(block);
  const auto* bytes = static_cast<const std::uint8_t*>(block);
  if (std::int64_t{image.header.biWidth} * image.header.biHeight > 1 << 16) return kAborted;
  static_cast<Page*>(page)->pixels.add({bytes, sizeof image.header});
  static_cast<Page*>(page)->palette.add({bytes + sizeof image.header, sizeof image.palette});
  return 1;
}
std::int32_t IMG_CB_C on_row(void* row, void* page, std::int32_t y, std::int32_t bytes) {
  Digest& pixels = static_cast<Page*>(page)->pixels;
  pixels.add(y);
  pixels.add({static_cast<const std::uint8_t*>(row), static_cast<std::size_t>(bytes)});
  return 0;
}
std::int32_t IMG_CB_C grey_row(void*, void* dest, std::int32_t y, std::int32_t bytes) {
  std::memset(dest, 0x55 + y, static_cast<std::size_t>(bytes));
  return 0;
}

Page decode(const FileType& type, const Memory& file, std::int32_t page) {
  caller_file = {.bytes = file};
  Page decoded;
  decoded.status = type.decode({kStream, 0, {on_header, on_row, &decoded}, page}).raw();
  return decoded;
}

std::int32_t count_pages(const FileType& type, const Memory& file) {
  caller_file = {.bytes = file};
  return type.count_pages == nullptr ? 1 : type.count_pages(kStream).raw();
}

Status can_append(const FileType& type, const Options& options, const Memory& file) {
  caller_file = {.bytes = file};
  formats::AppendPlace place{.options = options};
  const Status status = type.can_append(kStream, place);
  TQ_CLAIM(caller_file.bytes == file);
  return status;
}

Status append(const FileType& type, const Options& options, int bits, Memory& file) {
  caller_file = {.bytes = file};
  HeaderBlock header = dib_header(9, 2, bits);
  const Status added = type.encode({.stream = kStream,
                                    .image = &header,
                                    .rows = {grey_row, nullptr},
                                    .type = &type,
                                    .options = options});
  TQ_CLAIM(added.ok() || caller_file.bytes == file);
  file = caller_file.bytes;
  return added;
}

// Whether nothing but four bytes became others.
bool changes_a_link(const Memory& before, const Memory& kept) {
  const auto first = std::ranges::mismatch(before, kept).in1 - before.begin();
  const auto last = std::mismatch(before.rbegin(), before.rend(), kept.rbegin()).first.base();
  return first < std::ssize(before) && last - before.begin() - first <= 4;
}

void append_to(const FileType& type, const Options& options, int bits, const Memory& before) {
  if (type.write_depths == formats::depths(1)) bits = 1;
  Memory after = before;
  const Status asked = can_append(type, options, before);
  const Status added = append(type, options, bits, after);
  if (asked.failed()) return;  // streams may begin anew where a file would be left alone
  TQ_CLAIM(added.ok() && after.size() > before.size());

  // The pages that were there, from the bytes that were there.
  const Memory kept(after.begin(), after.begin() + static_cast<std::ptrdiff_t>(before.size()));
  if (type.code == IMG_TYPE_PDF) TQ_CLAIM(kept == before);
  const std::int32_t pages = count_pages(type, before);
  for (std::int32_t page = 0; page < std::min(pages, kMostPages); ++page) {
    const Page old = decode(type, before, page), now = decode(type, kept, page);
    // A damaged one may take bytes of the table for its palette, or a link for anything.
    if (type.code == IMG_TYPE_TIFF && changes_a_link(before, kept)) break;
    TQ_CLAIM(now.status == old.status && now.pixels == old.pixels);
    // Without a count there is one way to its only page: it must still lead there.
    if (type.count_pages == nullptr) TQ_CLAIM(old.status < 0 || decode(type, after, 0).status >= 0);
  }
  // Documents are counted by a module.
  if (type.count_pages != nullptr && type.code != IMG_TYPE_PDF && pages > 0) {
    Memory alone;
    TQ_CLAIM(append(type, options, bits, alone).ok());
    TQ_CLAIM(count_pages(type, after) == pages + 1);
    TQ_CLAIM(decode(type, after, pages) == decode(type, alone, 0));
  }
  const Status again = can_append(type, options, after);
  TQ_CLAIM(again.ok() || again == StatusCode::unsupported);
}

}  // namespace

void fuzz(Bytes bytes) {
  Input in(bytes);
  int wanted = in.u8();
  const int how = in.u8(), bits = how % 2 == 0 ? 1 : 8;
  Options options;
  options.set(IMG_OPTION_PDF_WRITING, how >> 1 & 1);
  if (in.rest().size() > 64 << 10) return;
  std::vector<const FileType*> types;
  for (const FileType& type : dispatch::file_types()) {
    if (type.can_append != nullptr && type.decode != nullptr) types.push_back(&type);
  }
  IMGLOW_set_fileio(caller_read, caller_write, caller_seek);
  append_to(*types[wanted % types.size()], options, bits, {in.rest().begin(), in.rest().end()});
  IMGLOW_set_fileio(nullptr, nullptr, nullptr);
  TQ_CLAIM(memory_probe::tracked_blocks() == 0);
}

}  // namespace tq::fuzz
