// A page, as it is added to a document.
#pragma once

#include "formats/codec.h"
#include "formats/pdf/writing/form.h"
#include "formats/pdf/writing/layout.h"

namespace tq::pdf::writing {

// What a page shows, and who brings its data.
struct Page {
  Form form{};
  Layout layout{};
  std::int64_t bytes = -1;    // of the data; negative: known when they are written
  std::int32_t version = 14;  // that a reader needs, 14 being 1.4
  const Texts* texts = nullptr;
  // `beside`: bytes that went to the stream past the writer, which was flushed before.
  Status (*write_data)(const void* context, const Form& form, StreamWriter& out,
                       std::int64_t& beside) = nullptr;
  const void* context = nullptr;
};

// By the form's size and the options; the version that needs. unsupported where margins leave nothing.
Status lay_out_page(const Options& options, Resolution resolution, int orientation, Page& page);

// Behind the document in the stream, or the first of a new one. bad_image, before anything is written,
// for what takes no page; what comes to 2 GiB ends with write_failed.
Status write_page(StreamHandle stream, bool safe, const Page& page);

}  // namespace tq::pdf::writing
