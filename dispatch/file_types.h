// THE table: every format and compression variant, how it is recognised, and who codes it.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "formats/codec.h"

namespace tq::dispatch {

inline constexpr int kProbeBytes = 10;

// The first ten bytes, and the stream for the few tests that look further.
struct Probe {
  std::uint8_t bytes[kProbeBytes];
  StreamHandle stream;

  constexpr std::uint8_t operator[](int i) const { return bytes[i]; }
  constexpr bool has(std::string_view text, int at = 0) const {
    for (std::size_t i = 0; i < text.size(); ++i) {
      if (bytes[static_cast<std::size_t>(at) + i] != static_cast<std::uint8_t>(text[i]))
        return false;
    }
    return true;
  }
};

enum class Supplier : std::uint8_t { plain, transitions };

enum Trait : std::uint8_t {
  kNone = 0,
  kMultiPage = 1,   // saving to an existing file appends a page
  kByName = 2,      // chosen by a file name that ends in `type`
  kUnreported = 4,  // recognised and decoded, but file type queries have no code for it
};

struct FileType {
  std::int16_t code;
  std::int16_t detect_switch = -1;             // code whose auto-detect switch turns `test` on
  std::string_view type;                       // what detection calls the format
  bool (*test)(const Probe& probe) = nullptr;  // null: never detected
  formats::Decoder decode = nullptr;           // null: recognised, not decoded
  formats::Encoder encode = nullptr;           // null: not saved
  Status (*available)() = nullptr;             // whether the encoder's module can be loaded
  formats::EncodeCheck can_encode = nullptr;   // null: an image of any kind
  Status (*can_append)(StreamHandle stream) = nullptr;   // whether a page can be added; null: yes
  Status (*count_pages)(StreamHandle stream) = nullptr;  // null: always one page
  Supplier supplier = Supplier::plain;
  std::uint8_t traits = kNone;
};

// In detection order: of two formats that both pass, the earlier one is reported.
std::span<const FileType> file_types();

// The row of a code, or null.
const FileType* find_code(std::int32_t code);

// The code for a file name, by its last three characters in any case; -1 when there is none.
std::int32_t code_for_name(std::string_view name);

}  // namespace tq::dispatch
