// The library's row sink, fed by the test in place of a decoder.
#pragma once

#include <functional>

#include "core/image_table.h"
#include "dispatch/row_sink.h"
#include "tests/support/image_builder.h"

namespace tq::test {

class FedSink {
 public:
  FedSink() : allocated_(slot_.allocate()) {}
  std::int32_t header(HeaderBlock block) {
    block_ = block;  // outlives the decode
    return callbacks().header(block_).raw();
  }
  // The row ends with its last byte, so that a sink which reads on is seen.
  std::int32_t row(const Bytes& bytes, std::int32_t y) {
    const Bytes tight(bytes);  // NOLINT(performance-unnecessary-copy-initialization): to be tight
    return callbacks().row(tight, y).raw();
  }
  // The image's handle, from now on the caller's, or a status.
  std::int32_t finish() {
    const Status finished = sink_.finish();
    return finished.failed() ? finished.raw() : slot_.keep().raw();
  }
  std::int32_t handle() const { return static_cast<std::int32_t>(slot_.handle()); }

 private:
  formats::RowSink callbacks() { return sink_.callbacks(); }

  ImageSlot slot_;
  Status allocated_;  // before the sink looks for the record
  ImageRecord nothing_;
  dispatch::ImageSink sink_{slot_.handle(), allocated_.ok() ? slot_.record() : nothing_};
  HeaderBlock block_;
};

// Calls `call` whenever the library reports progress, for as long as it exists.
class OnProgress {
 public:
  explicit OnProgress(std::function<std::int32_t(std::int32_t value)> call)
      : call_(std::move(call)) {
    IMG_set_statusbar(reinterpret_cast<std::intptr_t>(this), report, 1);
  }
  OnProgress(const OnProgress&) = delete;
  OnProgress& operator=(const OnProgress&) = delete;
  ~OnProgress() { IMG_set_statusbar(0, nullptr, 0); }

 private:
  static std::int32_t IMG_CB_STD report(std::intptr_t context, std::int32_t value) {
    return reinterpret_cast<OnProgress*>(context)->call_(value);
  }
  std::function<std::int32_t(std::int32_t)> call_;
};

}  // namespace tq::test
