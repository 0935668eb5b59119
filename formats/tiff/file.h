// The container (TIFF 6.0, section 2, and BigTIFF): a header, a chain of directories, their entries
// and the values of these.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <span>

#include "core/status.h"
#include "include/tarnquill.h"
#include "io/byte_stream.h"
#include "io/endian.h"

namespace tq::tiff {

enum Tag : std::uint16_t {
  kNewSubfileType = 254,
  kImageWidth = 256,
  kImageLength = 257,
  kBitsPerSample = 258,
  kCompression = 259,
  kPhotometric = 262,
  kFillOrder = 266,
  kStripOffsets = 273,
  kOrientation = 274,
  kSamplesPerPixel = 277,
  kRowsPerStrip = 278,
  kStripByteCounts = 279,
  kXResolution = 282,
  kYResolution = 283,
  kPlanarConfiguration = 284,
  kT4Options = 292,
  kT6Options = 293,
  kResolutionUnit = 296,
  kPageNumber = 297,
  kSoftware = 305,
  kPredictor = 317,
  kColorMap = 320,
  kTileWidth = 322,
  kTileLength = 323,
  kTileOffsets = 324,
  kTileByteCounts = 325,
  kInkSet = 332,
  kExtraSamples = 338,
  kSampleFormat = 339,
  kJpegTables = 347,
  kJpegProc = 512,
  kJpegInterchangeFormat = 513,
  kJpegInterchangeFormatLength = 514,
  kJpegRestartInterval = 515,
  kJpegQTables = 519,
  kJpegDcTables = 520,
  kJpegAcTables = 521,
  kYCbCrCoefficients = 529,
  kYCbCrSubSampling = 530,
  kReferenceBlackWhite = 532,
};

// Of one value of a type (IMG_TIFF_...); 0 for one that nobody knows.
int type_bytes(int type);

struct Entry {
  std::uint16_t tag = 0, type = 0;
  std::uint64_t count = 0;                 // of values
  std::int64_t position = -1;              // of the values in the stream; -1: they are not there
  std::array<std::uint8_t, 8> in_place{};  // small values, as the file has them
  bool is_in_place = false;

  bool exists() const { return count > 0; }
};

// A file that begins somewhere in a stream. Offsets in it count from there; what lies at 2^31 and
// above is not there.
class File {
 public:
  // bad_image when it begins like no TIFF file; read_failed when nobody knows.
  Status open(StreamHandle stream, std::int32_t start);

  StreamHandle stream() const { return stream_; }
  bool is_big() const { return is_big_; }  // BigTIFF
  bool big_endian() const { return big_endian_; }
  std::uint16_t u16(const std::uint8_t* p) const {
    return big_endian_ ? load_be16(p) : load_le16(p);
  }
  std::uint32_t u32(const std::uint8_t* p) const {
    return big_endian_ ? load_be32(p) : load_le32(p);
  }
  std::uint64_t u64(const std::uint8_t* p) const {
    const std::uint64_t first = u32(p), second = u32(p + 4);
    return big_endian_ ? first << 32 | second : second << 32 | first;
  }
  // Of what a file calls by its offset; -1 for nowhere.
  std::int64_t position_of(std::uint64_t offset) const {
    return offset == 0 || offset > INT32_MAX || start_ + std::int64_t(offset) > INT32_MAX
               ? -1
               : start_ + std::int64_t(offset);
  }
  // How many bytes there are at a position, up to all of `bytes`; and whether it is all.
  std::int32_t read_some(std::int64_t position, std::span<std::uint8_t> bytes) const;
  bool read_at(std::int64_t position, std::span<std::uint8_t> bytes) const {
    return read_some(position, bytes) == std::ssize(bytes);
  }

  // Where the directory of page `page`, counted from 0, is; page_past_end, bad_image when there is
  // none at all.
  Status find_page(std::int32_t page, std::int64_t& position) const;
  // Directories in the chain, up to its end or where it comes back to an earlier one.
  Status count_pages() const;
  // The last directory's link: where it stands. bad_image unless the chain ends with a link of 0.
  Status find_last_link(std::int64_t& position, std::int32_t& pages) const;
  // Whether the link that stands there is 0.
  bool ends_at(std::int64_t link) const { return read_link(link) == 0; }

  // Calls visit(entry) for the entries of a directory that can be read, in their order, until it
  // answers false. Whether none were missing until then.
  template <class Visit>
  bool for_each_entry(std::int64_t directory, Visit&& visit) const {
    std::array<std::uint8_t, 8> count{};
    if (!read_at(directory, std::span(count).first(count_bytes()))) return false;
    std::array<std::uint8_t, std::size_t{32} * 20> bytes;
    std::int64_t at = directory + count_bytes();
    for (std::int64_t left = entries_of(count.data()); left > 0;) {
      const int wanted = static_cast<int>(std::min<std::int64_t>(left, 32));
      const int read =
          read_some(at, std::span(bytes).first(wanted * entry_bytes())) / entry_bytes();
      for (int i = 0; i < read; ++i, at += entry_bytes()) {
        if (!visit(entry_from(&bytes[i * entry_bytes()], at))) return true;
      }
      if (read < wanted) return false;
      left -= read;
    }
    return true;
  }

  // The first entry of this tag.
  bool find_entry(std::int64_t directory, int tag, Entry& found) const {
    bool is_there = false;
    for_each_entry(directory, [&](const Entry& entry) {
      is_there = entry.tag == tag && entry.exists();
      if (is_there) found = entry;
      return !is_there;
    });
    return is_there;
  }

 private:
  static constexpr std::int64_t kMostEntries = 0xFFFF;

  int count_bytes() const { return is_big_ ? 8 : 2; }
  int entry_bytes() const { return is_big_ ? 20 : 12; }
  int link_bytes() const { return is_big_ ? 8 : 4; }
  std::uint64_t offset_from(const std::uint8_t* p) const { return is_big_ ? u64(p) : u32(p); }
  // Offsets that lead nowhere are as good as any other.
  std::int64_t link_from(const std::uint8_t* p) const {
    return static_cast<std::int64_t>(std::min<std::uint64_t>(offset_from(p), UINT32_MAX));
  }
  std::int64_t entries_of(const std::uint8_t* count) const {
    const std::uint64_t entries = is_big_ ? u64(count) : u16(count);
    return static_cast<std::int64_t>(std::min<std::uint64_t>(entries, kMostEntries));
  }
  Entry entry_from(const std::uint8_t* bytes, std::int64_t at) const;

  // A directory in the chain; position -1 behind the last.
  struct Step {
    std::int64_t position = -1;
    std::int64_t link = -1;  // where the link to the next stands
    std::int64_t next = -1;  // what it says, 0 behind the last; -1: it cannot be read
  };
  Step first_step() const;
  Step follow(const Step& step) const;
  std::int64_t read_link(std::int64_t position) const;

  StreamHandle stream_{-1};
  std::int32_t start_ = 0;
  bool is_big_ = false, big_endian_ = false;
};

// The values of an entry one by one, as far as they are whole numbers; read a few at a time, so
// that a list of any length costs no memory.
class Numbers {
 public:
  Numbers() = default;
  Numbers(const File& file, const Entry& entry) : file_(&file), entry_(entry) {}

  bool exist() const { return entry_.exists(); }
  std::uint64_t count() const { return entry_.count; }  // as far as it is known what is there
  // Value `i`; the fallback where there is none or it is negative or no whole number.
  std::uint64_t at(std::uint64_t i, std::uint64_t fallback = 0);
  // Value `i` as a fraction or a number with a fraction; 0 where there is none.
  double real_at(std::uint64_t i);

 private:
  // The bytes of value `i`, or null.
  const std::uint8_t* bytes_of(std::uint64_t i);

  const File* file_ = nullptr;
  Entry entry_;
  std::array<std::uint8_t, 512> window_{};
  std::ptrdiff_t first_ = 0, held_ = 0;  // values in the window
};

}  // namespace tq::tiff
