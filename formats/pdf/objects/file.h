// The objects of a document: where they are, and their text. ISO 32000-1, 7.5.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "core/memory.h"
#include "core/status.h"
#include "formats/pdf/objects/syntax.h"
#include "include/tarnquill.h"
#include "io/byte_stream.h"
#include "io/piece_source.h"

struct img_coded_picture;  // tarnquill_plugin.h

namespace tq::pdf::objects {

// Of pictures in codings that nobody knows here.
using PictureDecoder = std::int32_t(IMG_CB_C*)(const img_coded_picture* picture);

// One object, which owns its text. Fetching another one into it makes its values invalid.
class Object {
 public:
  Value value() const { return value_; }
  Reference reference() const { return reference_; }
  // A stream, whose dictionary is the value: the coded bytes, enciphered if the document is.
  bool is_stream() const { return data_ >= 0; }
  std::int64_t data() const { return data_; }  // where they begin in the file
  std::int64_t data_bytes() const { return data_bytes_; }
  // Its strings are enciphered if the document is; those from an object stream never are.
  bool from_object_stream() const { return from_object_stream_; }

  // Takes a copy of one of another object's values.
  Status copy(const Value& value, const Object& owner);

 private:
  friend class File;
  void clear();
  Status keep(const Value& value);

  GlobalBlock text_;
  Value value_;
  Reference reference_;
  std::int64_t data_ = -1, data_bytes_ = 0;
  bool from_object_stream_ = false;
};

// The file's bytes. Objects in a row are read in large pieces, others in small ones.
class Window {
 public:
  static constexpr std::int64_t kBytes = 65536;

  Status open(StreamHandle stream);  // out_of_memory, read_failed
  // At most kBytes; fewer only at the end. Valid until the next call.
  std::span<const std::uint8_t> at(std::int64_t position, std::int64_t bytes);
  std::string_view text(std::int64_t position, std::int64_t bytes);
  std::int64_t size() const { return size_; }
  StreamHandle stream() const { return stream_; }
  bool failed() const { return failed_; }  // bytes that should be there could not be read

 private:
  static constexpr std::int64_t kSmall = 2048;  // more than most objects

  StreamHandle stream_{-1};
  GlobalBlock buffer_;
  std::int64_t size_ = 0, start_ = 0, held_ = 0;
  bool failed_ = false;
};

// Where objects are, by number.
class ObjectTable {
 public:
  enum class Place : std::uint8_t { unknown, nowhere, in_file, in_stream };
  struct Entry {
    Place place = Place::unknown;
    std::int32_t at = 0;      // the offset, or the number of the object stream
    std::int32_t detail = 0;  // the generation, or the index in the object stream
  };

  // `bytes`: of the file, which says how many objects are plausible.
  void clear(std::int64_t bytes);
  std::int32_t count() const { return count_; }
  Entry operator[](std::int32_t number) const;
  // out_of_memory. Numbers that make no sense are ignored.
  Status set(std::int32_t number, const Entry& entry);
  Status add(std::int32_t number, const Entry& entry);  // unless there is one

 private:
  struct Packed {
    std::int32_t at;
    std::uint32_t rest;  // the place in the low two bits, then the detail
  };
  Packed* entries() const { return reinterpret_cast<Packed*>(block_.data()); }

  GlobalBlock block_;
  std::int32_t count_ = 0, room_ = 0, most_ = 0;
};

// What makes bytes readable, for documents that are enciphered. Whoever opens those brings one.
struct Decipherer {
  void* context = nullptr;
  bool (*has_key)(void* context, const Object& stream) = nullptr;  // else its bytes are as they are
  std::int64_t stream_bytes = 0;  // of the memory for the state of a stream
  // out_of_memory: then end_stream is not called.
  Status (*begin_stream)(void* context, void* state, const Object& stream,
                         PieceSource coded) = nullptr;
  std::span<const std::uint8_t> (*next_piece)(void* state) = nullptr;
  void (*end_stream)(void* state) = nullptr;
  // A string of an object, in place: how many bytes are left.
  std::ptrdiff_t (*decipher)(void* context, const Object& owner,
                             std::span<std::uint8_t> bytes) = nullptr;
};

class File {
 public:
  File() = default;
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  // The document that begins at this byte or soon behind it. bad_image: there is none; read_failed,
  // out_of_memory. Damaged tables are made anew from the objects that are found.
  Status open(StreamHandle stream, std::int64_t start = 0);

  // Null for an object that is not there. out_of_memory, read_failed.
  Status fetch(Reference reference, Object& object);
  // Follows a reference, and what it finds; what is none stays as it is.
  Status resolve(Value& value, Object& room);

  Value trailer() const { return trailer_.value(); }
  std::int32_t objects() const { return table_.count(); }  // above the highest number
  // Looks for the objects, once: what the tables say makes no sense. bad_image: there are none.
  Status repair();
  bool is_repaired() const { return repaired_; }

  // For whoever adds to it: the newest section of the cross-reference table, and whether it is a stream.
  // Offsets in the file count from base().
  std::int64_t newest_section() const { return newest_section_; }
  bool newest_is_stream() const { return newest_is_stream_; }
  std::int64_t base() const { return base_; }

  Window& window() { return window_; }

  // Called when the trailer is known, before anything else that may be enciphered is read.
  struct Unlocker {
    void* context = nullptr;
    Status (*unlock)(void* context, File& file) = nullptr;
  };
  void set_unlocker(const Unlocker& unlocker) { unlocker_ = unlocker; }
  // Outlives the file's use.
  void set_decipherer(const Decipherer* decipherer) { decipherer_ = decipherer; }
  const Decipherer* decipherer() const { return decipherer_; }
  // Null: there is none.
  void set_picture_decoder(PictureDecoder decode) { picture_decoder_ = decode; }
  Status decode_picture(const img_coded_picture& picture) const {
    if (picture_decoder_ == nullptr) return StatusCode::unsupported;
    return Status::from_raw(picture_decoder_(&picture));
  }
  // The bytes of a string in an object's text, deciphered: as many as there is room for.
  Status read_string(const Object& owner, const Value& string, std::span<std::uint8_t> room,
                     std::ptrdiff_t& bytes) const;

 private:
  class Cursor;
  struct Section;
  struct Member {  // of an object stream
    std::int32_t number, offset;
  };

  // tables.cpp
  Status find_header(std::int64_t start);
  Status read_tables(std::int64_t base);
  std::int64_t find_newest_section();
  Status read_section(std::int64_t at, Section& section);
  Status read_table(std::int64_t at, Section& section);
  Status read_table_stream(std::int64_t at, Section& section);
  Status take_trailer(const Object& trailer, Section& section);
  bool has_root(Status& status);

  // file.cpp
  Status read_dictionary(std::int64_t at, Object& object);
  Status load(std::int64_t at, std::int32_t number, bool with_data, Object& object, bool& found);
  std::int64_t data_start(std::int64_t at);
  Status find_data(std::int64_t at, Object& object);
  bool ends_at(std::int64_t at);
  std::int64_t find_data_end(std::int64_t start);
  Status open_object_stream(std::int32_t number);
  Status read_object_stream(std::int32_t number);
  Status read_members(const Value& dictionary);
  Status load_from_stream(std::int32_t stream, std::int32_t number, std::int32_t index,
                          Object& object);
  std::string_view kept_text() const;
  Member* members() const { return reinterpret_cast<Member*>(members_.data()); }

  // repair.cpp
  struct Found;
  Status scan_objects(Found& found);
  Status note_object(std::int64_t at, Reference reference, Found& found, std::int64_t& behind);
  Status unpack_object_streams(Found& found);
  Status choose_root(const Found& found);

  Window window_;
  ObjectTable table_;
  Object trailer_;
  std::int64_t header_ = 0, base_ = 0;
  std::int64_t newest_section_ = -1;
  bool newest_is_stream_ = false;
  bool may_repair_ = false, repaired_ = false;
  std::int64_t searched_ = 0;  // bytes, for ends of streams
  Status unlock() {
    return unlocker_.unlock == nullptr ? kOk : unlocker_.unlock(unlocker_.context, *this);
  }

  Unlocker unlocker_;
  const Decipherer* decipherer_ = nullptr;
  PictureDecoder picture_decoder_ = nullptr;

  // The object stream that is kept decoded.
  std::int32_t kept_stream_ = 0;
  bool opening_ = false;  // it
  GlobalBlock kept_text_;
  std::int64_t kept_bytes_ = 0, kept_first_ = 0;
  GlobalBlock members_;
  std::int32_t member_count_ = 0;
};

// The coded bytes of a stream as pieces, each valid until the next is asked for; deciphered.
class StreamSource {
 public:
  StreamSource() = default;
  StreamSource(const StreamSource&) = delete;
  StreamSource& operator=(const StreamSource&) = delete;
  ~StreamSource();

  Status open(File& file, const Object& stream);  // out_of_memory
  std::span<const std::uint8_t> next_piece();
  // Bytes that should be there could not be read.
  bool failed() const { return failed_; }

 private:
  static constexpr std::int64_t kPieceBytes = 32768;
  struct Coded {
    StreamSource* source = nullptr;
    std::span<const std::uint8_t> next_piece() { return source->read_piece(); }
  };
  void close();
  std::span<const std::uint8_t> read_piece();

  StreamHandle stream_{-1};
  GlobalBlock buffer_, state_;
  const Decipherer* decipherer_ = nullptr;
  Coded coded_;
  std::int64_t at_ = 0, left_ = 0;
  bool failed_ = false;
};

}  // namespace tq::pdf::objects
