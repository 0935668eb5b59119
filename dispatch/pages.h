// How many pages a stream holds.
#pragma once

#include "io/byte_stream.h"

namespace tq::dispatch {

// Two formats are counted only for some ways of asking; callers rely on the rest being 1.
enum class PageQuery { by_name, by_handle, in_memory };

Status count_pages(StreamHandle stream, PageQuery query);

}  // namespace tq::dispatch
