// libpng behind calls that return a status: its jumps stay inside this part.
#pragma once

#include <array>

#include "formats/codec.h"
#include "io/chunk_reader.h"
#include "io/stream_writer.h"

namespace tq::png {

struct PngColour {
  std::uint8_t red = 0, green = 0, blue = 0, alpha = 255;
};

struct PngHeader {
  std::int32_t width = 0, height = 0;
  int bits = 0;  // per sample: 1, 2, 4, 8, 16
  bool colour = false, indexed = false, alpha = false, interlaced = false;
  int entries = 0;  // of the palette
  std::array<PngColour, 256> palette{};
  std::int32_t transparent_level = -1;  // of grey; -1: none
  bool transparent_colour = false;      // one colour of an image without palette
  std::uint32_t x_per_metre = 0, y_per_metre = 0;
};

// Every failure is out_of_memory, read_failed when the file ends, bad_image when it is damaged; a
// reader that has failed is not asked again.
class PngReader {
 public:
  PngReader() = default;
  PngReader(const PngReader&) = delete;
  PngReader& operator=(const PngReader&) = delete;
  ~PngReader();

  Status open(StreamHandle stream);
  Status read_header(PngHeader& header);

  // How rows come: as the file has them, with samples of 16 bits made 8, and with an alpha byte
  // behind each pixel.
  struct RowForm {
    bool to_8_bits = false, with_alpha = false;
  };
  Status start_rows(const RowForm& form, std::int64_t& row_bytes);

  // The next row of `pass`, of one or seven. In the later passes only its new pixels are changed.
  Status read_row(std::uint8_t* row);

  // What stands behind the rows, check sums too.
  Status finish();
  bool was_cut_off() const { return failure_ == StatusCode::read_failed; }
  bool lacks_rows() const { return was_cut_off() || lacks_rows_; }
  int passes() const { return passes_; }

 private:
  friend struct PngHooks;
  void* png_ = nullptr;
  void* info_ = nullptr;
  int passes_ = 1;
  Status failure_ = StatusCode::bad_image;
  bool lacks_rows_ = false;
  ChunkReader input_;
};

class PngWriter {
 public:
  PngWriter() = default;
  PngWriter(const PngWriter&) = delete;
  PngWriter& operator=(const PngWriter&) = delete;
  ~PngWriter();

  Status open(StreamHandle stream);
  Status write_header(const PngHeader& header);
  Status write_row(const std::uint8_t* row);
  Status finish();

 private:
  friend struct PngHooks;
  void* png_ = nullptr;
  void* info_ = nullptr;
  Status failure_ = StatusCode::bad_image;
  StreamWriter out_;
};

}  // namespace tq::png
