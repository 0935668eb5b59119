// Looks into files: detection tests that read on in the stream, and which variant of its format a
// file is.
#pragma once

#include "formats/codec.h"

namespace tq::dispatch {

// Each starts where the one before left the stream; callers rely on that coupling.
bool probe_xbm(const formats::Probe& probe);
bool probe_pict(const formats::Probe& probe);
bool probe_macpaint(const formats::Probe& probe);
bool probe_sct(const formats::Probe& probe);
bool probe_dicom(const formats::Probe& probe);

// From the stream's current position, as FileType::variant has them.
Status find_bmp_variant(StreamHandle stream);  // whether biCompression is not 0
Status find_gif_variant(StreamHandle stream);  // interlaced; bad_image if the file ends first

}  // namespace tq::dispatch
