// What stands on a page, for programs that ask.
#pragma once

#include <cstdint>
#include <string>

namespace tool {

// An object of JSON: skew, orientation, content, paper, blank, threshold. An image of 16 bits becomes
// one of 8. Throws Failure.
std::string analysis(const std::string& label, std::int32_t image);

}  // namespace tool
