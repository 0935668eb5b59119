// The licence check: grants, unless a test says otherwise.
#include "core/licence.h"

namespace tq {
namespace {
constinit LicenceCheck replaced = nullptr;
}

Status check_licence() {
  return replaced == nullptr ? kOk : replaced();
}
void set_licence_check(LicenceCheck check) {
  replaced = check;
}

}  // namespace tq
