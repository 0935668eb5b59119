// One run of a scanner: who takes the pages, and what may end it.
#pragma once

#include <atomic>

#include "scan/options.h"
#include "scan/page_builder.h"

namespace tq::scan {

class Job {
 public:
  // Takes a page, which belongs to it, whatever it answers; a negative answer ends the run.
  using TakePage = Status (*)(void* context, ImageHandle image, std::int32_t page);

  Job(TakePage take, void* context, const std::atomic<bool>& cancelled, std::int32_t most_pages)
      : take_(take), context_(context), cancelled_(cancelled), most_pages_(most_pages) {}

  Status go_on() const { return cancelled_ ? StatusCode::stop_after_header : StatusCode::ok; }

  Status deliver(PageBuilder& page) {
    const Status image = page.finish();
    TQ_TRY(image);
    return deliver(ImageHandle{image.raw()});
  }
  Status deliver(ImageHandle image) {
    TQ_TRY(take_(context_, image, pages_++));
    return go_on();
  }

  std::int32_t pages() const { return pages_; }
  std::int32_t most_pages() const { return most_pages_; }  // 0: all
  bool is_done() const { return most_pages_ > 0 && pages_ >= most_pages_; }

 private:
  TakePage take_;
  void* context_;
  const std::atomic<bool>& cancelled_;
  std::int32_t most_pages_;
  std::int32_t pages_ = 0;
};

}  // namespace tq::scan
