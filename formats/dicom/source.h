// Bytes of a file by their position, plain or deflated.
#pragma once

#include "coding/deflate.h"
#include "core/memory.h"
#include "io/byte_stream.h"
#include "pixels/rows.h"

namespace tq::dicom {

// A file's bytes by their position, or what it holds deflated, as if that were the file.
class Source {
 public:
  void open(StreamHandle stream) { stream_ = stream; }
  // What lies from there on is deflated.
  Status inflate_from(std::int64_t start);
  // The same bytes, to be read elsewhere at the same time.
  Status open_like(const Source& other);

  // How many bytes there were.
  std::ptrdiff_t read_at(std::int64_t position, pixels::Row bytes);
  Status status() const { return inflater_.status(); }

  std::span<const std::uint8_t> next_piece();

 private:
  Status restart();

  StreamHandle stream_{};
  deflate::Decoder inflater_;
  GlobalBlock buffer_;                 // of deflated bytes; none: the file is plain
  std::int64_t start_ = 0, next_ = 0;  // of the deflated bytes, and of those not yet taken
  std::int64_t at_ = 0;                // position behind what was inflated
  bool has_begun_ = false;
};

}  // namespace tq::dicom
