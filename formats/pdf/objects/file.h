// The objects of a document: where they are, and their text. ISO 32000-1, 7.5.
#pragma once

#include <cstdint>
#include <span>

#include "core/memory.h"
#include "core/status.h"
#include "formats/pdf/objects/syntax.h"
#include "io/byte_stream.h"
#include "io/piece_source.h"

namespace tq::pdf::objects {

// One object, which owns its text. Fetching another one into it makes its values invalid.
class Object {
 public:
  Value value() const { return value_; }
  Reference reference() const { return reference_; }
  // A stream, whose dictionary is the value: the coded bytes, enciphered if the document is.
  bool is_stream() const { return data_ >= 0; }
  std::int64_t data() const { return data_; }  // where they begin in the file
  std::int64_t data_bytes() const { return data_bytes_; }
  // Strings in it are enciphered as the document says; those from an object stream never are.
  bool is_enciphered() const { return enciphered_; }

 private:
  friend class File;
  void clear();

  GlobalBlock text_;
  Value value_;
  Reference reference_;
  std::int64_t data_ = -1, data_bytes_ = 0;
  bool enciphered_ = false;
};

class File {
 public:
  File() = default;
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  // The document that begins at this byte or soon behind it. bad_image: there is none; read_failed,
  // out_of_memory. Damaged tables are made anew from the objects that are found.
  Status open(StreamHandle stream, std::int64_t start = 0);

  // Null for an object that is not there. out_of_memory.
  Status fetch(Reference reference, Object& object);
  // Follows a reference, and the reference that it finds; what is none stays as it is.
  Status resolve(Value& value, Object& room);

  Value trailer() const;
  bool is_repaired() const;
  std::int32_t objects() const;  // one more than the highest number

  // Bytes of the file, at most as many as a window holds (64 KiB); fewer only at the end. Valid until
  // the next call of anything here.
  std::span<const std::uint8_t> at(std::int64_t position, std::int64_t bytes);
  std::int64_t size() const;  // where the file ends
  StreamHandle stream() const;
};

// The coded bytes of a stream as pieces, each valid until the next is asked for; deciphered.
class StreamSource {
 public:
  Status open(File& file, const Object& stream);
  std::span<const std::uint8_t> next_piece();
};

}  // namespace tq::pdf::objects
