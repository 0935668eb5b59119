// A session over SANE.
#pragma once

#include "scan/job.h"
#include "scan/options.h"
#include "scan/sane_device.h"

namespace tq::scan {

// In place of libsane, for tests; null brings it back.
inline constinit std::atomic<const sane::Functions*> sane_stand_in = nullptr;

class SaneSession {
 public:
  bool is_open() const { return device_.is_open(); }
  const Reason& reason() const { return reason_; }

  // 1 and the name, 0 beyond the last.
  Status source(std::int32_t index, const char*& name);
  Status select(void* /*window*/, const char*& /*name*/) { return StatusCode::unsupported; }
  Status open(void* window, const char* name, const ScanOptions& wanted);
  void close();

  Status apply(const ScanOptions& wanted, std::int32_t option);
  Status value(std::int32_t option, std::int32_t& value) const {
    return device_.value(option, value);
  }
  Status values(std::int32_t option, ValueList& list) const { return device_.values(option, list); }

  Status scan(const ScanOptions& wanted, Job& job);

 private:
  Status load();
  Status find_devices();
  Status failed(std::int32_t sane_status);
  void apply_all(const ScanOptions& wanted);
  Status scan_pages(bool from_feeder, Resolution resolution, Job& job);
  Status read_page(Resolution resolution, Job& job, PageBuilder& page);
  Status read_frame(const sane::Parameters& frame, Job& job, PageBuilder& page);

  bool loaded_ = false;
  void* library_ = nullptr;
  sane::Functions functions_{};
  const sane::Device* const* devices_ = nullptr;  // SANE's own list
  SaneDevice device_;
  Reason reason_;
};

}  // namespace tq::scan
