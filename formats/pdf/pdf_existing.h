// The document that a stream holds already, if it is one that pages can be added to.
#pragma once

#include <cstdint>
#include <span>

#include "io/byte_stream.h"

namespace tq::formats {

struct ExistingDocument {
  std::int32_t pages = 0;  // 0: a new document begins at byte 0
  std::int32_t bytes = 0;  // of the document; the next page goes behind it
  std::int32_t table = 0;  // where the entry of object 0 is
};

// bad_image when the stream holds 200 bytes or more that are no such document.
Status find_document(StreamHandle stream, ExistingDocument& document);

// The byte offsets of objects 1, 2 and so on: of all the document has. bad_image for a broken
// table, and for a page tree that does not list the pages as they are listed here: a new one would
// lose those of another writer.
Status read_offsets(StreamHandle stream, const ExistingDocument& document,
                    std::span<std::uint32_t> offsets);

}  // namespace tq::formats
