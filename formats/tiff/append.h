// What is added to a file: data, their directory, and last of all the link to it.
#pragma once

#include <string_view>

#include "core/memory.h"
#include "formats/codec.h"
#include "formats/tiff/file.h"
#include "io/stream_writer.h"

namespace tq::tiff {

// Where a page goes.
struct Place {
  std::int32_t start = 0;  // of the file
  std::int64_t link = 0;   // to its directory
  std::int64_t end = 0;    // of the bytes that are there
  std::int32_t page = 0;
  bool big_endian = false;

  bool is_new() const { return page == 0; }
};

// What an existing file says; a new one otherwise. `known` is what can_append_tiff found.
Status find_place(StreamHandle stream, const Options& options, const formats::AppendPlace& known,
                  Place& place);

// Strips as they are written.
class Strips {
 public:
  Status open(std::int64_t count) {
    TQ_TRY(offsets_.allocate(count));
    return bytes_.allocate(count);
  }
  void begin(std::int64_t offset) { offsets_[count_] = static_cast<std::uint32_t>(offset); }
  void end(std::int64_t offset) {
    bytes_[count_] = static_cast<std::uint32_t>(offset - offsets_[count_]);
    ++count_;
  }
  std::span<const std::uint32_t> offsets() const { return offsets_.pixels(); }
  std::span<const std::uint32_t> byte_counts() const { return bytes_.pixels(); }

 private:
  RowBuffer<std::uint32_t> offsets_, bytes_;
  std::ptrdiff_t count_ = 0;
};

// Fields in the file's order, at offsets that count from its start.
class PageWriter {
 public:
  Status open(StreamHandle stream, const Place& place) {
    place_ = place;
    stream_ = stream;
    TQ_TRY(out_.open(stream));
    if (place.is_new()) {
      out_.put(place.big_endian ? "MM" : "II");
      put16(42);
      put32(0);
      place_.end = place.start;
    } else {
      TQ_TRY(seek_to(stream, place.end));
    }
    return out_.status();
  }
  StreamWriter& out() { return out_; }
  // For what is written by somebody else, from here to where the stream then stands.
  Status give_stream() { return out_.flush(); }
  Status take_stream() {
    const std::int32_t end = position(stream_);
    if (end < 0) return StatusCode::write_failed;
    place_.end = end - out_.count();
    return kOk;
  }
  std::int64_t offset() const { return place_.end - place_.start + out_.count(); }
  // Fields and strips begin at even offsets.
  void align() {
    if (offset() % 2 != 0) out_.put8(0);
  }
  void put16(std::uint32_t value) {
    place_.big_endian ? out_.put_be16(value) : out_.put_le16(value);
  }
  void put32(std::uint32_t value) {
    place_.big_endian ? out_.put_be32(value) : out_.put_le32(value);
  }
  // The last thing that is written: from now on the page is there. A link that was written in part
  // is taken back. `safe`: the system may fail at any moment.
  Status link(std::int64_t directory, bool safe) {
    std::array<std::uint8_t, 4> bytes;
    const auto offset = static_cast<std::uint32_t>(directory);
    place_.big_endian ? store_be32(bytes.data(), offset) : store_le32(bytes.data(), offset);
    TQ_TRY(out_.flush());
    if (safe) TQ_TRY(flush_to_disk(stream_));
    const Status linked = out_.patch(static_cast<std::int32_t>(place_.link), bytes);
    if (linked.failed() && seek_to(stream_, place_.link).ok()) {
      bytes = {};
      (void)write(stream_, bytes);
    }
    return linked;
  }

 private:
  Place place_;
  StreamHandle stream_{-1};
  StreamWriter out_;
};

// Entries in ascending order, values of more than four bytes before them.
class DirectoryWriter {
 public:
  explicit DirectoryWriter(PageWriter& out) : out_(out) {}

  void add(Tag tag, int type, std::uint32_t value) { put(tag, type, 1, value); }
  void add_shorts(Tag tag, std::span<const std::uint16_t> values) {
    if (values.size() == 1) return add(tag, IMG_TIFF_SHORT, values[0]);
    if (values.size() == 2) return put(tag, IMG_TIFF_SHORT, 2, values[0] | values[1] << 16);
    put_far(tag, IMG_TIFF_SHORT, values.size());
    for (const std::uint16_t value : values) out_.put16(value);
  }
  void add_longs(Tag tag, std::span<const std::uint32_t> values) {
    if (values.size() == 1) return add(tag, IMG_TIFF_LONG, values[0]);
    put_far(tag, IMG_TIFF_LONG, values.size());
    for (const std::uint32_t value : values) out_.put32(value);
  }
  void add_rational(Tag tag, std::uint32_t upper, std::uint32_t lower) {
    put_far(tag, IMG_TIFF_RATIONAL, 1);
    out_.put32(upper);
    out_.put32(lower);
  }
  void add_text(Tag tag, std::string_view text) {
    put_far(tag, IMG_TIFF_ASCII, text.size() + 1);
    out_.out().put(text);
    out_.out().put8(0);
  }

  // The directory's offset.
  std::int64_t finish() {
    out_.align();
    const std::int64_t offset = out_.offset();
    out_.put16(static_cast<std::uint32_t>(count_));
    for (const Field& field : std::span(fields_).first(count_)) {
      out_.put16(field.tag);
      out_.put16(field.type);
      out_.put32(field.count);
      if (field.type == IMG_TIFF_SHORT && field.count <= 2) {  // in the first bytes of the field
        out_.put16(field.value & 0xFFFF);
        out_.put16(field.value >> 16);
      } else {
        out_.put32(field.value);
      }
    }
    out_.put32(0);
    return offset;
  }

 private:
  struct Field {
    Tag tag;
    std::uint16_t type;
    std::uint32_t count, value;
  };

  void put(Tag tag, int type, std::size_t count, std::uint32_t value) {
    fields_[count_++] = {tag, word(type), static_cast<std::uint32_t>(count), value};
  }
  void put_far(Tag tag, int type, std::size_t count) {
    out_.align();
    put(tag, type, count, static_cast<std::uint32_t>(out_.offset()));
  }

  PageWriter& out_;
  std::array<Field, 32> fields_;
  std::size_t count_ = 0;
};

}  // namespace tq::tiff
