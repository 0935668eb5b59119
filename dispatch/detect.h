// Content detection: which format a stream holds.
#pragma once

#include "dispatch/file_types.h"

namespace tq::dispatch {

// Tests the bytes at the stream's current position. `found` is null when fewer than ten arrive or
// nothing passes; that is no failure here. Leaves the stream at its start, except after a short
// read. Fails only with refused_by_licence.
Status detect(StreamHandle stream, const FileType*& found);

// The file type code, compression variant included, of what begins at the stream's current
// position, which is restored.
Status file_type_code(StreamHandle stream);

}  // namespace tq::dispatch
