// The way to TWAIN's manager and to a source: its state, calls, capabilities, memory that is shared.
#pragma once

#include <atomic>

#include "core/status.h"
#include "platform/scan_host.h"
#include "scan/options.h"
#include "scan/twain.h"

namespace tq::scan {

// In place of the system's manager, for tests; null brings it back.
inline constinit std::atomic<const platform::TwainHost*> twain_stand_in = nullptr;

// As TWAIN counts.
enum class TwainState : std::uint8_t {
  absent = 1,
  loaded,
  manager_open,
  source_open,
  enabled,
  ready,
  transferring,
};

class TwainLink {
 public:
  TwainState state() const { return state_; }
  void set_state(TwainState state) { state_ = state; }
  const platform::TwainHost& host() const { return host_; }
  const twain::Identity& source() const { return source_; }

  // Up: each does nothing when it is done already.
  Status open_manager(void* window);
  // The first to the last of the manager's list, its default one, or what the user chooses.
  std::uint16_t ask_identity(twain::Message message, twain::Identity& identity);
  Status open_source(const twain::Identity& identity);

  // Down, step by step, whatever each of them answers.
  void unwind_to(TwainState state);

  // A triplet to the source, or to the manager. The result code.
  std::uint16_t to_source(std::uint32_t group, twain::Data data, twain::Message message,
                          void* memory);
  std::uint16_t to_manager(twain::Data data, twain::Message message, void* memory);
  Reason condition();  // why the last one has failed

  // The value of a capability as 65536ths; false when the source does not take or tell it. What is set
  // may become another one.
  bool set(twain::CapabilityNumber capability, twain::ItemType type, std::int64_t number);
  bool current(twain::CapabilityNumber capability, std::int64_t& number);

  // All that it can be; `convert` gives the interface's value, or kNoValue to leave it out.
  static constexpr std::int64_t kNoValue = INT64_MIN;
  struct Convert {
    std::int64_t (*call)(std::int32_t option, std::int64_t number);
    std::int32_t option;
    std::int64_t operator()(std::int64_t number) const { return call(option, number); }
  };
  bool values(twain::CapabilityNumber capability, Convert convert, ValueList& list);

  void free(twain::Handle handle);
  void* lock(twain::Handle handle);
  void unlock(twain::Handle handle);
  std::size_t size(twain::Handle handle) const { return host_.size(host_.context, handle); }

 private:
  twain::Handle allocate(std::uint32_t bytes);
  bool ask(twain::CapabilityNumber capability, twain::Message message, twain::Capability& answer);

  TwainState state_ = TwainState::absent;
  platform::TwainHost host_;
  twain::Entry entry_ = nullptr;
  twain::Identity program_{}, source_{};
  twain::EntryPoint memory_{};  // of a manager of 2.x
};

}  // namespace tq::scan
