// The encoders' dispatcher and the front-ends that save images.
#pragma once

#include "core/image_table.h"
#include "dispatch/file_types.h"

namespace tq::dispatch {

// Encodes rows of any origin. unsupported: no encoder for the code.
Status dispatch_save(StreamHandle stream, HeaderBlock& header, std::int32_t code,
                     const formats::RowSupplier& rows);

// Whether a save with this code can begin: unsupported, or a missing module's status.
Status check_code(std::int32_t code);

// The image's crop rectangle, to a stream or to a file; handle is valid. `code` -1: by the name.
Status save_image(ImageHandle handle, StreamHandle stream, std::int32_t code);
Status save_image_file(ImageHandle handle, const char* name, std::int32_t code);

}  // namespace tq::dispatch
