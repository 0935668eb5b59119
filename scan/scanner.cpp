// One session in the process, by TWAIN or by SANE.
#include "scan/scanner.h"

#include <algorithm>
#include <cstring>

#include "platform/scan_host.h"
#include "scan/sane_session.h"
#include "scan/twain_session.h"

namespace tq::scan {
namespace {

struct Scanner {
  std::atomic<bool> at_work = false;   // a call
  std::atomic<bool> scanning = false;  // one that can be cancelled
  std::atomic<bool> cancelled = false;
  ScanOptions options;
  Reason reason;  // of the last call
  SaneSession sane;
  TwainSession twain;
};
constinit Scanner scanner;

bool by_twain() {
  if (twain_stand_in != nullptr) return true;
  return sane_stand_in == nullptr && platform::has_twain();
}

// Calls `work(session)` unless another call is at work.
template <class Work>
Status with_session(Work&& work) {
  if (scanner.at_work.exchange(true)) return StatusCode::no_scanner_session;
  const auto call = [&](auto& session) {
    const Status status = work(session);
    scanner.reason = session.reason();
    return status;
  };
  const Status status = by_twain() ? call(scanner.twain) : call(scanner.sane);
  scanner.at_work = false;
  return status;
}

void copy_name(const char* name, std::span<char> room) {
  if (room.empty()) return;
  const std::size_t length = name == nullptr ? 0 : std::min(std::strlen(name), room.size() - 1);
  std::copy_n(name, length, room.data());
  room[length] = '\0';
}

}  // namespace

Status find_source(std::int32_t index, std::span<char> name) {
  return with_session([&](auto& session) {
    const char* found = nullptr;
    const Status status = session.source(index, found);
    if (status.raw() == 1) copy_name(found, name);
    return status;
  });
}

Status select_source(void* window, std::span<char> name) {
  return with_session([&](auto& session) {
    const char* found = nullptr;
    const Status status = session.select(window, found);
    if (status.raw() == 1) copy_name(found, name);
    return status;
  });
}

Status open_source(void* window, const char* name) {
  return with_session([&](auto& session) { return session.open(window, name, scanner.options); });
}

Status close_source() {
  return with_session([](auto& session) -> Status {
    session.close();
    return kOk;
  });
}

Status set_option(std::int32_t option, std::int32_t value) {
  return with_session([&](auto& session) -> Status {
    TQ_TRY(scanner.options.set(option, value));
    if (!session.is_open() || ScanOptions::is_local(option)) return kOk;
    return session.apply(scanner.options, option);
  });
}

Status get_option(std::int32_t option, std::int32_t& value) {
  if (!ScanOptions::is_known(option)) return StatusCode::unsupported;
  return with_session([&](auto& session) -> Status {
    if (session.is_open() && !ScanOptions::is_local(option)) return session.value(option, value);
    if (option == IMG_SCAN_PAPER_LOADED) return StatusCode::no_scanner_session;
    value = scanner.options.get(option);
    return kOk;
  });
}

Status list_values(std::int32_t option, ValueList& list) {
  if (!ScanOptions::is_known(option)) return StatusCode::unsupported;
  return with_session([&](auto& session) -> Status {
    if (!session.is_open()) return StatusCode::no_scanner_session;
    if (ScanOptions::is_local(option)) return StatusCode::scanner_request;
    TQ_TRY(session.values(option, list));
    return Status::from_raw(list.count | (list.is_range ? IMG_SCAN_IS_RANGE : 0));
  });
}

Status scan_pages(Job::TakePage take, void* context) {
  return with_session([&](auto& session) -> Status {
    if (!session.is_open()) return StatusCode::no_scanner_session;
    scanner.cancelled = false;
    scanner.scanning = true;
    Job job(take, context, scanner.cancelled, scanner.options.get(IMG_SCAN_MAX_PAGES));
    const Status status = session.scan(scanner.options, job);
    scanner.scanning = false;
    return status;
  });
}

Status cancel_scan() {
  if (!scanner.scanning) return StatusCode::no_scanner_session;
  scanner.cancelled = true;
  return kOk;
}

Reason last_reason() {
  if (scanner.at_work.exchange(true)) return {};
  const Reason reason = scanner.reason;
  scanner.at_work = false;
  return reason;
}

}  // namespace tq::scan
