// DICOM files (PS3.10): plain, deflated and run-length pictures, and JPEG of the lossy kinds.
#pragma once

#include "formats/codec.h"

namespace tq::dicom {

// Page n is frame n. Grey becomes 8 bits by the window that the file has, or by the frame's darkest
// and brightest values; unsupported for codings and colours that are not decoded.
Status decode_dicom(const formats::DecodeRequest& request);

}  // namespace tq::dicom
