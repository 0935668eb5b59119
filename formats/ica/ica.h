// Image object content (IOCA), by itself or as the image objects of a document of structured fields
// (MO:DCA).
#pragma once

#include "formats/codec.h"

namespace tq::ica {

// A page is an image content, of whichever segment; of documents an image object.
Status decode_ica(const formats::DecodeRequest& request);
Status decode_mca(const formats::DecodeRequest& request);
Status count_ica_pages(StreamHandle stream);
Status count_mca_pages(StreamHandle stream);

// Group 4. A document that is there gets a page more.
Status encode_ica(const formats::EncodeRequest& request);
Status encode_mca(const formats::EncodeRequest& request);

// wrong_depth unless there is 1 bit; unsupported for sides above 32767.
Status can_encode_ica(const formats::EncodeRequest& request);

// Whether a page can be added: nothing is there, or a document whose end can be found. bad_image if
// not.
Status can_append_mca(StreamHandle stream, formats::AppendPlace& place);

}  // namespace tq::ica
