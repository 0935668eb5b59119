// PDF documents of one image per page: written page by page, and read as far as they are laid out
// like that.
#pragma once

#include "formats/codec.h"

namespace tq::pdf {

Status decode(const formats::DecodeRequest& request);

// Adds a page to the document in the stream, or starts one in a stream of less than 200 bytes.
// bad_image, before anything is written, when the stream holds something else.
Status encode(const formats::EncodeRequest& request);

// 1 bit, and what a JPEG can hold.
Status can_encode(const formats::EncodeRequest& request);

// Whether a page can be added to what the stream holds: nothing at all, or a document.
Status can_append(StreamHandle stream, formats::AppendPlace& place);

// The same with IMG_OPTION_PDF_WRITING, and by those above without it: pages as they should look, also
// behind the documents of others, at the same cost for every page.
Status encode_page(const formats::EncodeRequest& request);
Status can_encode_page(const formats::EncodeRequest& request);
Status can_append_page(StreamHandle stream, formats::AppendPlace& place);

// The picture of a page, as the module finds it.
Status find_stored_page(const formats::DecodeRequest& request, formats::StoredPicture& stored);

// The same with pictures that are coded already; unsupported without the option.
Status can_store_page(const formats::EncodeRequest& request, const formats::StoredPicture& stored);
Status encode_stored_page(const formats::EncodeRequest& request,
                          const formats::StoredPicture& stored);

}  // namespace tq::pdf
