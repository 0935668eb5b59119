// The decoders' dispatcher and the front-ends that make images.
#pragma once

#include "dispatch/file_types.h"

namespace tq::dispatch {

// Detects what begins at `offset` and decodes it into `sink`. `page` 0: by offset; else that page.
Status dispatch_decode(StreamHandle stream, std::int32_t offset, std::int32_t page,
                       const formats::RowSink& sink);

// The same into a new image; its handle, or a status.
Status decode_image(StreamHandle stream, std::int32_t offset, std::int32_t page);

}  // namespace tq::dispatch
