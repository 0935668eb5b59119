// The licence check, which guards detection and image creation.
#pragma once

#include "core/status.h"

namespace tq {

Status check_licence();

// Replaces the check in tests; null brings the granting one back.
using LicenceCheck = Status (*)();
void set_licence_check(LicenceCheck check);

}  // namespace tq
