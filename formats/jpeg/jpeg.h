// JPEG (ITU-T T.81): baseline, extended and progressive Huffman streams are read, baseline ones
// written.
#pragma once

#include "formats/codec.h"
#include "io/chunk_reader.h"

namespace tq::jpeg {

Status decode_jpeg(const formats::DecodeRequest& request);

// The same for a stream of its own inside another format's file. `named_colours`: components named
Status decode_stream(ChunkReader& input, bool named_colours, const Options& options,
                     const formats::RowSink& sink);

// 1 to 8, what EXIF says or 1; unsupported unless files are read as other programs read them.
Status find_jpeg_orientation(StreamHandle stream, const Options& options);

// What the components of a part are, and the rows that they become: 8, 24 and 32 bits; four are
// left as they are, or were converted: then all of them come inverted.
enum class Components : std::uint8_t { grey, ycbcr, rgb, four, ycck };

// What stands in front of a stream's first scan.
struct StreamHeader {
  int width = 0, height = 0;
  int components = 0;  // 1, 3 or 4
  int bits = 8;        // of a sample; with 12 there is one component
  bool has_adobe = false;
  int adobe_transform = 0;
};
Status read_stream_header(ChunkReader& input, StreamHeader& header);

// A stream whose components are told from outside, as other programs read it whatever the options:
// chroma is smooth.
Status decode_known_stream(ChunkReader& input, Components components, const formats::RowSink& sink);

struct Tables;

// Pictures that are part of another format's, strips or tiles. Tables may stand elsewhere, and what
// the components are is told from outside: no application segment and no id counts.
class PartDecoder {
 public:
  static constexpr std::int64_t kChunkBytes = 66 * 1024;  // for readers of parts

  Status open(const Options& options);  // out_of_memory

  // What parts may lack: tables, or all that comes before the data of a scan. Whether it is all,
  // and the reader at the data.
  bool read_common(ChunkReader& input);
  int common_height() const;  // of its frame; 0: it has none

  // A part that is a stream. Rows of the frame go to the sink, as many as could be read.
  Status decode(ChunkReader& input, Components components, const formats::RowSink& sink) const;
  // A part that is the data of a scan and nothing else.
  Status decode_data(ChunkReader& input, std::int64_t width, std::int64_t height,
                     Components components, const formats::RowSink& sink) const;

 private:
  GlobalBlock room_;
  Tables* common_ = nullptr;
  Options options_;
};

Status encode_jpeg(const formats::EncodeRequest& request);

// Files of any process that is decoded here; and such, again as files. describe_stored: what the stream at
// the picture's offset says about it; unsupported for streams that are not decoded.
Status find_stored_jpeg(const formats::DecodeRequest& request, formats::StoredPicture& stored);
Status describe_stored(formats::StoredPicture& stored);
Status can_store_jpeg(const formats::EncodeRequest& request, const formats::StoredPicture& stored);
Status encode_stored_jpeg(const formats::EncodeRequest& request,
                          const formats::StoredPicture& stored);

// wrong_depth for other than 8, 24 and 32 bits; unsupported for sides above 65535 and for sampling
// factors that no file can have.
Status can_encode_jpeg(const formats::EncodeRequest& request);

// What a save would write: how many components, and the sampling factors of the first, to which
// the others have 1.
struct StreamForm {
  int components = 0;
  int h = 1, v = 1;
};
Status find_stream_form(const formats::EncodeRequest& request, StreamForm& form);

// What later saves use. The quality is taken as 1..100; factors are checked by the save.
void set_jpeg_quality(std::int32_t quality);
void set_jpeg_sampling(std::int32_t horizontal, std::int32_t vertical);

}  // namespace tq::jpeg
