// The process's scanner: one session, at which one call works at a time, and the options for it.
#pragma once

#include "scan/job.h"
#include "scan/options.h"

namespace tq::scan {

Status find_source(std::int32_t index, std::span<char> name);
Status select_source(void* window, std::span<char> name);
Status open_source(void* window, const char* name);
Status close_source();

Status set_option(std::int32_t option, std::int32_t value);
Status get_option(std::int32_t option, std::int32_t& value);
Status list_values(std::int32_t option, ValueList& list);

// The number of pages.
Status scan_pages(Job::TakePage take, void* context);
Status cancel_scan();

// Each page to a file, or all to one: see the public header.
Status scan_to_files(const char* name, std::int32_t first, std::int32_t code);

Reason last_reason();  // none during a call

}  // namespace tq::scan
