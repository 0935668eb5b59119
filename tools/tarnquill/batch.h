// All inputs of a plan, one after the other or several at a time.
#pragma once

#include "plan.h"

namespace tool {

// The exit code.
int carry_out(const Arguments& arguments, const Plan& plan);

}  // namespace tool
