// The detection tests that move the stream. Each starts where the one before left it; callers rely
// on that coupling.
#pragma once

#include "dispatch/file_types.h"

namespace tq::dispatch {

bool probe_xbm(const Probe& probe);
bool probe_pict(const Probe& probe);
bool probe_macpaint(const Probe& probe);
bool probe_sct(const Probe& probe);
bool probe_dicom(const Probe& probe);

}  // namespace tq::dispatch
