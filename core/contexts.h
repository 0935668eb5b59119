// Contexts beside the one that every thread begins with: one thread at a time uses each of them, and
// nothing in it is locked.
#pragma once

#include "core/context.h"

namespace tq {

inline constexpr std::int32_t kMostContexts = 4096;

// The lowest free number from 1 on; out_of_memory.
Status new_context();

// Makes it the calling thread's, until it takes another one or ends; the number of the one before.
// bad_handle: there is no such context; unsupported: another thread has it, or the thread is inside
// of an export.
Status use_context(std::int32_t number);

// With its images. bad_handle: 0, or no such context; unsupported: a thread has it.
Status delete_context(std::int32_t number);

}  // namespace tq
