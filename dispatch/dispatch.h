// The front-ends: what a stream holds, decoding it, saving to it. Everything goes by the table.
#pragma once

#include "core/image_table.h"
#include "dispatch/file_types.h"

namespace tq::dispatch {

// --- Which format ---

// Tests the bytes at the stream's current position. `found` is null when fewer than ten arrive or
// nothing passes; that is no failure here. Leaves the stream at its start, except after a short
// read. Fails only with refused_by_licence.
Status detect(StreamHandle stream, const FileType*& found);

// The file type code, variant included, of what begins at the stream's current position, which is
// restored.
Status file_type_code(StreamHandle stream);

// 1 for what has no pages, also for what is not recognised.
Status count_pages(StreamHandle stream, formats::PageQuery query);

// The header of a page, counted from 0, of what begins at the start of the stream; all 0 when the
// decoder fails before it has one, and kept when it fails afterwards.
Status file_info(StreamHandle stream, std::int32_t page, BitmapInfoHeader& header);

// How the image is to be turned, 1 to 8; unsupported for every format that does not tell.
Status image_orientation(StreamHandle stream);

// --- Decoding ---

// Detects what begins at `offset` and decodes it into `sink`. `page` 0: by offset; else that page.
Status dispatch_decode(StreamHandle stream, std::int32_t offset, std::int32_t page,
                       const formats::RowSink& sink);

// The same, with what is noted of it.
Status decode_noted(StreamHandle stream, std::int32_t offset, std::int32_t page,
                    formats::RowSink sink, formats::DecodeNotes& notes);

// The same into a new image; its handle, or a status.
Status decode_image(StreamHandle stream, std::int32_t offset, std::int32_t page);

// --- Saving ---

// Encodes rows of any origin. unsupported: no encoder for the code.
Status dispatch_save(StreamHandle stream, HeaderBlock& header, std::int32_t code,
                     const formats::RowSupplier& rows);

// The image's crop rectangle, to a stream or to a file; handle is valid. `code` -1: by the name.
Status save_image(ImageHandle handle, StreamHandle stream, std::int32_t code);
Status save_image_file(ImageHandle handle, const char* name, std::int32_t code);

// By the name, if the code is -1.
std::int32_t code_to_save(const char* name, std::int32_t code);

// --- Copying ---

struct SourcePage {
  StreamHandle stream;
  std::int32_t offset = 0;
  std::int32_t page = 0;
  const char* name = nullptr;  // of the file, if it has one
};

// Saves a page to a stream or to a file: 0 as it is coded, 1 decoded and coded again.
Status copy_page_to_stream(const SourcePage& source, StreamHandle target, std::int32_t code);
Status copy_page_to_file(const SourcePage& source, const char* name, std::int32_t code);

// What decoding the page into an image and saving that would write, without the image: row by row. Whatever
// fails leaves the target as it was; unsupported where the rows do not come as the target takes them.
Status convert_page(const SourcePage& source, StreamHandle target, std::int32_t code);

}  // namespace tq::dispatch
