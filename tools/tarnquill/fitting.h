// Images that a format cannot hold.
#pragma once

#include "operations.h"

namespace tool {

// Whether the format takes images of a depth below 32 bits, and the image as it is.
bool takes_depth(std::int32_t code, int bits);
bool takes(std::int32_t code, std::int32_t image);

// Makes the image one that the format takes, and says what was done; the library's status. What
// would lose the picture's looks is refused with the words that help: a Failure that is about `target`.
std::int32_t fit_to_format(const Subject& subject, std::int32_t code, const std::string& target);

}  // namespace tool
