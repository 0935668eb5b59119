// What the program asks of the library beyond its defaults, and the options of every command that
// change that.
#pragma once

#include <span>

#include "options.h"

namespace tool {

// Taken by every command, behind its own.
std::span<const Option> library_options();

// Pictures as other viewers show them, files that other programs read, saves that lose nothing, and
// limits on what a file may claim; unless the arguments say otherwise.
void apply_library_options(const Arguments& arguments);

// Whether an image is not all that its file once held: then it says so, and the program ends with
// kExitDamaged if nothing worse happens.
bool report_damage(std::int32_t image, const std::string& label);
bool damage_was_reported();

}  // namespace tool
