// Documents, from the stream to a page.
#pragma once

#include "formats/pdf/objects/encryption.h"
#include "formats/pdf/page/page.h"

namespace tq::pdf::page {

// A file and what makes it readable.
class Document {
 public:
  // As File::open(); unsupported when it asks for a password.
  Status open(StreamHandle stream, std::int64_t start);
  objects::File& file() { return file_; }

 private:
  objects::Encryption encryption_;
  objects::File file_;
};

// The first page, or the one that is asked for. `decoder`: of pictures that nobody knows here, or null.
Status decode_document(const formats::DecodeRequest& request, bool& left_out,
                       objects::PictureDecoder decoder = nullptr);

}  // namespace tq::pdf::page
