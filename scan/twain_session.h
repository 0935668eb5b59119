// A session over TWAIN.
#pragma once

#include "scan/job.h"
#include "scan/options.h"
#include "scan/twain_link.h"

namespace tq::scan {

class TwainSession {
 public:
  bool is_open() const { return link_.state() >= TwainState::source_open; }
  const Reason& reason() const { return reason_; }

  // 1 and the name, 0 beyond the last, or when nothing was chosen.
  Status source(std::int32_t index, const char*& name);
  Status select(void* window, const char*& name);
  Status open(void* window, const char* name, const ScanOptions& wanted);
  void close() { link_.unwind_to(TwainState::absent); }

  Status apply(const ScanOptions& wanted, std::int32_t option);
  Status value(std::int32_t option, std::int32_t& value);
  Status values(std::int32_t option, ValueList& list);

  Status scan(const ScanOptions& wanted, Job& job);

 private:
  // What became of a page.
  enum class Outcome : std::uint8_t { delivered, dropped };

  Status failed(Status status);  // and why
  Status find(std::int32_t index, const char* name, twain::Identity& found);
  Status apply_number(const ScanOptions& wanted, std::int32_t option);
  Status apply_mode(std::int32_t bits);
  Status apply_area(const ScanOptions& wanted, std::int32_t option);
  Status apply_switch(twain::CapabilityNumber capability, std::int32_t wanted);
  void apply_all(const ScanOptions& wanted);
  bool feeder_is_empty();

  // The pages of a source that is open; twain_transfer.cpp.
  Status choose_mechanism(const ScanOptions& wanted);
  Status enable(const ScanOptions& wanted);
  Status wait_for_transfer(const Job& job, bool& ready);
  Status transfer_pages(const ScanOptions& wanted, Job& job);
  Status transfer_page(const ScanOptions& wanted, Job& job, Status& page);
  Status by_memory(const twain::ImageInfo& info, Job& job, Status& page);
  Status by_handle(Status& page);
  Status by_file(Status& page);
  Status page_from_handle(twain::Handle handle);
  Status shape_of(const twain::ImageInfo& info, PageShape& shape, std::span<Rgb> palette);
  Resolution page_resolution(const twain::ImageInfo& info, const ScanOptions& wanted);
  Status transfer_failed(std::uint16_t result);

  TwainLink link_;
  twain::Identity listed_{};  // the source whose name was given last
  twain::Mechanism mechanism_ = twain::kNative;
  bool may_fall_back_ = false;
  Resolution resolution_;  // of the page at work
  Reason reason_;
};

}  // namespace tq::scan
