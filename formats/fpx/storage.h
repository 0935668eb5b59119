// A compound file ([MS-CFB]): streams in folders, each in a chain of sectors.
#pragma once

#include <string_view>

#include "io/stream_window.h"
#include "pixels/rows.h"

namespace tq::fpx {

// Where the sectors of a stream lie, one after the other.
class Chain {
 public:
  std::int64_t bytes() const { return bytes_; }

 private:
  friend class Storage;

  RowBuffer<std::uint32_t> sectors_;
  std::int64_t count_ = 0;
  std::int64_t bytes_ = 0;
  bool in_mini_sectors_ = false;
};

class Storage {
 public:
  static constexpr std::uint32_t kRoot = 0;

  // read_failed, bad_image, out_of_memory; unsupported when its root is not of a FlashPix picture.
  Status open(StreamHandle stream, std::int64_t start);

  // Entries of the directory, by number. -1: a folder has no such entry.
  std::int64_t find(std::int64_t folder, std::string_view name);
  // The one whose name is this and four digits, the highest number of all; -1: there is none.
  std::int64_t find_last(std::int64_t folder, std::string_view name, std::uint32_t& number);

  // Where a stream lies. bad_image for what is no stream.
  Status open_chain(std::int64_t entry, Chain& chain);
  // How many bytes there were.
  std::int64_t read(const Chain& chain, std::int64_t at, pixels::Row bytes);

 private:
  static constexpr int kEntryBytes = 128;
  using EntryBytes = std::array<std::uint8_t, kEntryBytes>;

  Status find_tables(pixels::Bytes header);
  Status find_folders();
  bool read_entry(std::int64_t entry, EntryBytes& bytes);
  Status list_sectors(std::uint32_t first, std::int64_t bytes, bool mini, Chain& chain);
  std::uint32_t next_sector(std::uint32_t sector);
  std::int64_t position_of(std::uint32_t sector) const {
    return start_ + ((std::int64_t{sector} + 1) << shift_);
  }

  StreamWindow window_, tables_window_;
  std::int64_t start_ = 0, end_ = 0;
  int shift_ = 9;
  RowBuffer<std::uint32_t> tables_;  // sectors of the table of chains
  std::int64_t table_count_ = 0;
  Chain directory_, mini_table_, mini_stream_;
  RowBuffer<std::int32_t> folders_;  // that entries are in; -1: none is known
  std::int64_t entries_ = 0;
};

}  // namespace tq::fpx
