// The licence check, which guards detection and image creation. It belongs to the process.
#pragma once

#include <atomic>

#include "core/status.h"

namespace tq {

// Replaces the check in tests; null brings back the one that grants.
using LicenceCheck = Status (*)();
inline constinit std::atomic<LicenceCheck> licence_check = nullptr;

inline void set_licence_check(LicenceCheck check) {
  licence_check = check;
}
inline Status check_licence() {
  const LicenceCheck check = licence_check;
  return check == nullptr ? kOk : check();
}

}  // namespace tq
