// The result of every operation.
#pragma once

#include <cstdint>

namespace tq {

// What every operation returns: one 32-bit integer, as the public interface hands it out.
// Zero and above is success and may carry a value (a handle, a count, a code); below zero
// is one of the codes here, or a callback's own negative answer.
enum class StatusCode : std::int32_t {
  ok = 0,
  out_of_memory = -1,
  cannot_open = -2,
  bad_image = -3,
  cannot_create = -6,
  unsupported = -7,
  no_device_bitmap = -8,
  write_failed = -9,
  empty_display_rect = -10,
  no_such_page = -11,
  read_failed = -12,
  bad_handle = -13,
  no_scanner_session = -16,
  no_scanner_library = -17,
  stop_after_header = -18,
  refused_by_licence = -19,
  wrong_depth = -21,
  not_grey = -22,
  no_lzw_module = -23,
  no_transparency = -26,
  whole_image_decoder = -27,
  scanner_request = -28,
  no_animation_delay = -30,
  page_past_end = -31,
  not_tiled = -32,
  no_pdf_module = -36,
};

class [[nodiscard]] Status {
 public:
  constexpr Status(StatusCode code)  // NOLINT(google-explicit-constructor): a code is a status
      : raw_(static_cast<std::int32_t>(code)) {}
  static constexpr Status from_raw(std::int32_t raw) { return Status(raw); }
  constexpr bool ok() const { return raw_ >= 0; }
  constexpr bool failed() const { return raw_ < 0; }
  constexpr std::int32_t raw() const { return raw_; }
  friend constexpr bool operator==(Status, Status) = default;

 private:
  constexpr explicit Status(std::int32_t raw) : raw_(raw) {}
  std::int32_t raw_;
};

inline constexpr Status kOk{StatusCode::ok};

// Leaves the current function with the status of `expression` if that failed.
#define TQ_TRY(expression)                                                 \
  do {                                                                     \
    if (const ::tq::Status tq_status = (expression); tq_status.failed()) { \
      return tq_status;                                                    \
    }                                                                      \
  } while (false)

}  // namespace tq
