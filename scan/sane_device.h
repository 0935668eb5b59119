// An open SANE device: its options by name and by meaning.
#pragma once

#include "core/dib.h"
#include "scan/options.h"
#include "scan/sane.h"

namespace tq::scan {

class SaneDevice {
 public:
  bool is_open() const { return handle_ != nullptr; }
  std::int32_t open(const sane::Functions& functions, const char* name);  // SANE's status
  void close();
  sane::Handle handle() const { return handle_; }

  // Tells the device an option of `wanted`, and what hangs together with it. 0, 1 when the device has
  // taken another value; scanner_request when it takes none.
  Status apply(const ScanOptions& wanted, std::int32_t option) const;

  // The value in force; scanner_request.
  Status value(std::int32_t option, std::int32_t& value) const;
  Status values(std::int32_t option, ValueList& list) const;

  Resolution resolution() const;  // in force

 private:
  struct Found {
    sane::Word number = -1;
    const sane::Option* option = nullptr;
    explicit operator bool() const { return option != nullptr; }
  };
  using Word = std::int64_t;  // in 65536ths, whatever the option's type

  Found find(const char* name) const;  // one that can be asked
  void fetch_all() const;
  bool control(const Found& found, sane::Action action, void* value) const;
  bool get_number(const Found& found, Word& number) const;
  bool set_number(const Found& found, Word number) const;
  bool get_text(const Found& found, char* text) const;
  bool set_text(const Found& found, const char* text) const;

  Found find_number(std::int32_t option, bool second = false) const;
  Status apply_mode(std::int32_t bits) const;
  Status apply_source(const ScanOptions& wanted, bool duplex_matters) const;
  Status apply_area(const ScanOptions& wanted, bool vertical) const;
  bool mode(std::int32_t& bits) const;
  void list_modes(ValueList& list) const;
  void list_sources(std::int32_t option, ValueList& list) const;

  const sane::Functions* functions_ = nullptr;
  sane::Handle handle_ = nullptr;
};

}  // namespace tq::scan
