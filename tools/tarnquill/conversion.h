// A page on its way from an input to a result.
#pragma once

#include <functional>
#include <memory>

#include "input.h"
#include "output.h"
#include "plan.h"
#include "progress.h"

namespace tool {

using InputPointer = std::shared_ptr<const Input>;

// The output that a page goes to. It may be the file that the page came from: that is closed then.
using OpenOutput = std::function<Output&(const SavePage& page)>;

// The pages wanted of an input, from 0 on. Throws Failure for one that is not there.
std::vector<int> wanted_pages(const Plan& plan, const Input& input);

// Decodes, changes and saves one page; true when it was damaged. Throws Failure, UsageError.
bool convert_page(const Plan& plan, InputPointer input, int page, Progress& progress,
                  const OpenOutput& open);

}  // namespace tool
