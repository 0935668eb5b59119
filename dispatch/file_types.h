// THE table: every format and compression variant, how it is recognised, and who codes it.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "formats/codec.h"

namespace tq::dispatch {

using formats::FileType;
using formats::Probe;

// In detection order: of two formats that both pass, the earlier one is reported. Those that have to be
// asked for are there if the context's options do.
std::span<const FileType> file_types();

// The row of a code, or null.
const FileType* find_code(std::int32_t code);

// The row of a format's variant, or null; the format itself is one of them.
const FileType* find_variant(const FileType& format, std::int32_t variant);

// The code for a file name, by its last three characters in any case; -1 when there is none.
std::int32_t code_for_name(std::string_view name);

// The same by all of what is behind the last dot.
std::int32_t code_for_whole_ending(std::string_view name);

// The code whose auto-detect switch counts.
std::int32_t switch_of(const FileType& type);
std::int32_t switch_of(std::int32_t code);

}  // namespace tq::dispatch
