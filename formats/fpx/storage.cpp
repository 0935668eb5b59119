// Sectors, chains of them, and the directory.
#include "formats/fpx/storage.h"

#include <algorithm>

#include "io/endian.h"

namespace tq::fpx {
namespace {

constexpr std::uint32_t kEndOfChain = 0xFFFFFFFE;
constexpr int kMiniShift = 6;
constexpr std::int64_t kMostEntries = 65536;

enum EntryType : int { kFolderType = 1, kStreamType = 2, kRootType = 5 };

// Fields of an entry.
constexpr int kNameBytes = 64, kType = 66, kLeft = 68, kRight = 72, kChild = 76, kClass = 80,
              kStart = 116, kSize = 120;

bool has_name(pixels::Bytes entry, std::string_view name) {
  const int bytes = load_le16(&entry[kNameBytes]);
  if (bytes != 2 * std::ssize(name) + 2 || bytes > kNameBytes) return false;
  for (std::size_t i = 0; i < name.size(); ++i) {
    if (load_le16(&entry[2 * i]) != byte(name[i])) return false;
  }
  return true;
}

}  // namespace

Status Storage::open(StreamHandle stream, std::int64_t start) {
  constexpr int kHeaderBytes = 512, kWindow = 4096;
  constexpr std::uint8_t kPicture[] = {0x00, 0x67, 0x61, 0x56, 0x54, 0xC1, 0xCE, 0x11,
                                       0x85, 0x53, 0x00, 0xAA, 0x00, 0xA1, 0xF9, 0x5B};
  start_ = start;
  end_ = find_end(stream);
  TQ_TRY(window_.open(stream, kWindow));
  TQ_TRY(tables_window_.open(stream, kWindow));
  std::array<std::uint8_t, kHeaderBytes> header{};
  const pixels::Bytes found = window_.at(start, kHeaderBytes);
  if (std::ssize(found) < kHeaderBytes) return StatusCode::read_failed;
  std::ranges::copy(found, header.begin());
  shift_ = load_le16(&header[30]);
  if ((shift_ != 9 && shift_ != 12) || load_le16(&header[32]) != kMiniShift)
    return StatusCode::bad_image;
  TQ_TRY(find_tables(header));
  TQ_TRY(list_sectors(load_le32(&header[48]), kMostEntries * kEntryBytes, false, directory_));
  EntryBytes root;
  if (!read_entry(kRoot, root)) return StatusCode::read_failed;
  if (root[kType] != kRootType) return StatusCode::bad_image;
  if (!std::ranges::equal(kPicture, std::span(root).subspan(kClass, std::size(kPicture))))
    return StatusCode::unsupported;
  const std::int64_t mini_sectors = load_le32(&header[64]);
  TQ_TRY(list_sectors(load_le32(&header[60]), mini_sectors << shift_, false, mini_table_));
  TQ_TRY(list_sectors(load_le32(&root[kStart]), load_le32(&root[kSize]), false, mini_stream_));
  return find_folders();
}

// No more than the file has sectors, whatever it says. The first ones stand in the header, the others in
// a chain of sectors of their own.
Status Storage::find_tables(pixels::Bytes header) {
  constexpr int kInHeader = 109, kFirst = 76;
  const std::int64_t sectors = std::max<std::int64_t>((end_ - start_) >> shift_, 1);
  const std::int64_t per_sector = (std::int64_t{1} << shift_) / 4;
  const std::int64_t most =
      std::min<std::int64_t>(load_le32(&header[44]), sectors / per_sector + 1);
  TQ_TRY(tables_.allocate(std::max<std::int64_t>(most, 1)));
  std::uint32_t list = load_le32(&header[68]);
  for (std::int64_t i = 0; i < most; ++i, ++table_count_) {
    std::uint32_t sector = 0;
    if (i < kInHeader) {
      sector = load_le32(&header[kFirst + 4 * static_cast<std::size_t>(i)]);
    } else {
      const std::int64_t place = (i - kInHeader) % (per_sector - 1);
      const pixels::Bytes entry = tables_window_.at(position_of(list) + 4 * place, 8);
      if (std::ssize(entry) < 8) break;
      sector = load_le32(entry.data());
      if (place == per_sector - 2) list = load_le32(&entry[4]);
    }
    tables_[static_cast<std::ptrdiff_t>(i)] = sector;
  }
  return kOk;
}

std::uint32_t Storage::next_sector(std::uint32_t sector) {
  const std::int64_t per_sector = (std::int64_t{1} << shift_) / 4;
  const std::int64_t table = sector / per_sector;
  if (table >= table_count_) return kEndOfChain;
  const std::int64_t at = position_of(tables_[static_cast<std::ptrdiff_t>(table)]);
  const pixels::Bytes entry = tables_window_.at(at + 4 * (sector % per_sector), 4);
  return std::ssize(entry) < 4 ? kEndOfChain : load_le32(entry.data());
}

// Chains may be rings: they are as long as the file, or what they say, at most.
Status Storage::list_sectors(std::uint32_t first, std::int64_t bytes, bool mini, Chain& chain) {
  const int shift = mini ? kMiniShift : shift_;
  const std::int64_t known = table_count_ << (2 * shift_ - 2);
  const std::int64_t there = mini ? mini_stream_.bytes_ : std::min(end_ - start_, known);
  const std::int64_t most_bytes = std::min(bytes, there);
  const std::int64_t most = (most_bytes + (std::int64_t{1} << shift) - 1) >> shift;
  TQ_TRY(chain.sectors_.allocate(std::max<std::int64_t>(most, 1)));
  chain.in_mini_sectors_ = mini;
  chain.count_ = 0;
  for (std::uint32_t sector = first; chain.count_ < most;) {
    const std::int64_t at = mini ? std::int64_t{sector} << shift : position_of(sector);
    if (at >= (mini ? there : end_)) break;
    chain.sectors_[static_cast<std::ptrdiff_t>(chain.count_++)] = sector;
    if (!mini) {
      sector = next_sector(sector);
      continue;
    }
    std::array<std::uint8_t, 4> next{};
    if (read(mini_table_, 4 * std::int64_t{sector}, next) < 4) break;
    sector = load_le32(next.data());
  }
  chain.bytes_ = std::min(most_bytes, chain.count_ << shift);
  return kOk;
}

std::int64_t Storage::read(const Chain& chain, std::int64_t at, pixels::Row bytes) {
  const int shift = chain.in_mini_sectors_ ? kMiniShift : shift_;
  const std::int64_t sector_bytes = std::int64_t{1} << shift;
  const std::int64_t wanted = std::min(std::ssize(bytes) + std::int64_t{0}, chain.bytes_ - at);
  std::int64_t done = 0;
  while (done < wanted) {
    const std::int64_t within = (at + done) % sector_bytes;
    const std::int64_t here = std::min(sector_bytes - within, wanted - done);
    const std::uint32_t sector = chain.sectors_[static_cast<std::ptrdiff_t>((at + done) >> shift)];
    const pixels::Row out =
        bytes.subspan(static_cast<std::size_t>(done), static_cast<std::size_t>(here));
    std::int64_t count = 0;
    if (chain.in_mini_sectors_) {
      count = read(mini_stream_, (std::int64_t{sector} << shift) + within, out);
    } else {
      const pixels::Bytes found = window_.at(position_of(sector) + within, here);
      std::ranges::copy(found, out.begin());
      count = std::ssize(found);
    }
    done += std::max<std::int64_t>(count, 0);
    if (count < here) break;
  }
  return std::max<std::int64_t>(done, 0);
}

bool Storage::read_entry(std::int64_t entry, EntryBytes& bytes) {
  return read(directory_, kEntryBytes * entry, bytes) == kEntryBytes;
}

// Entries of a folder are a tree of their own: each is taken once, however they lead to each other.
Status Storage::find_folders() {
  constexpr int kDeepest = 4;
  entries_ = directory_.bytes() / kEntryBytes;
  TQ_TRY(folders_.allocate(entries_));
  std::ranges::fill(folders_.pixels(), -1);
  RowBuffer<std::int32_t> queue;
  RowBuffer<std::uint8_t> depths;
  TQ_TRY(queue.allocate(entries_));
  TQ_TRY(depths.allocate(entries_));
  std::ptrdiff_t taken = 0, count = 1;
  queue[0] = kRoot;
  folders_[0] = 0;
  depths[0] = 0;
  EntryBytes bytes;
  while (taken < count) {
    const std::int32_t entry = queue[taken++];
    if (!read_entry(entry, bytes)) continue;
    const auto reach = [&](int field, std::int32_t folder, int depth) {
      const std::uint32_t other = load_le32(&bytes[field]);
      if (other >= entries_ || depth > kDeepest) return;
      const auto place = static_cast<std::ptrdiff_t>(other);
      if (folders_[place] >= 0) return;
      folders_[place] = folder;
      depths[place] = byte(depth);
      queue[count++] = static_cast<std::int32_t>(other);
    };
    const int depth = depths[entry];
    if (entry != kRoot) {
      reach(kLeft, folders_[entry], depth);
      reach(kRight, folders_[entry], depth);
    }
    if (bytes[kType] == kFolderType || bytes[kType] == kRootType) reach(kChild, entry, depth + 1);
  }
  return kOk;
}

std::int64_t Storage::find(std::int64_t folder, std::string_view name) {
  EntryBytes bytes;
  for (std::int64_t i = 1; i < entries_ && folder >= 0; ++i) {
    if (folders_[static_cast<std::ptrdiff_t>(i)] != folder) continue;
    if (read_entry(i, bytes) && has_name(bytes, name)) return i;
  }
  return -1;
}

std::int64_t Storage::find_last(std::int64_t folder, std::string_view name, std::uint32_t& number) {
  constexpr std::size_t kDigits = 4, kMostLetters = 24;
  std::array<char, kMostLetters + kDigits> text{};
  const std::size_t length = std::min(name.size(), kMostLetters);
  std::copy_n(name.begin(), length, text.begin());
  EntryBytes bytes;
  std::int64_t last = -1;
  int highest = -1;
  for (std::int64_t i = 1; i < entries_ && folder >= 0; ++i) {
    if (folders_[static_cast<std::ptrdiff_t>(i)] != folder || !read_entry(i, bytes)) continue;
    int digits = 0;
    for (std::size_t k = length; k < length + kDigits; ++k) {
      const int digit = load_le16(&bytes[2 * k]) - '0';
      text[k] = static_cast<char>('0' + digit);
      digits = digit < 0 || digit > 9 || digits < 0 ? -1 : 10 * digits + digit;
    }
    if (digits <= highest || !has_name(bytes, {text.data(), length + kDigits})) continue;
    highest = digits;
    last = i;
  }
  number = static_cast<std::uint32_t>(std::max(highest, 0));
  return last;
}

Status Storage::open_chain(std::int64_t entry, Chain& chain) {
  constexpr std::uint32_t kLeastBytes = 4096;  // of streams that have whole sectors
  EntryBytes bytes;
  if (entry < 0 || !read_entry(entry, bytes) || bytes[kType] != kStreamType)
    return StatusCode::bad_image;
  const std::uint32_t size = load_le32(&bytes[kSize]);
  return list_sectors(load_le32(&bytes[kStart]), size, size < kLeastBytes, chain);
}

}  // namespace tq::fpx
