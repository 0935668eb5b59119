// Literal bytes are copied eight at a time up to the next run.
#include "formats/pcx/pcx_runs.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "formats/pcx/x86/pcx_ssse3.h"
#include "io/endian.h"

namespace tq::formats {
namespace {

constexpr int kStep = 8;
constexpr std::uint64_t kOnes = 0x0101010101010101, kTopBits = 0x8080808080808080;

std::uint64_t load_word(const std::uint8_t* p) {
  return load_le32(p) | std::uint64_t{load_le32(p + 4)} << 32;
}

// The top bit of every byte that has both top bits set.
std::uint64_t large_bytes(std::uint64_t word) {
  return word & (word << 1) & kTopBits;
}

// The lowest top bit that is set belongs to the first byte that is 0; higher ones may be wrong.
std::uint64_t first_zero_byte(std::uint64_t word) {
  return (word - kOnes) & ~word & kTopBits;
}

// The same for the first byte that does not stand for itself when it is written.
std::uint64_t first_run(const std::uint8_t* p) {
  const std::uint64_t word = load_word(p);
  return first_zero_byte(word ^ load_word(p + 1)) | large_bytes(word);
}

void expand_run(PcxRuns& runs) {
  std::memset(runs.to, runs.from[1], kPcxRunRoom);  // a fixed count takes no time
  runs.to += *runs.from - kPcxRun;
  runs.from += 2;
}

// While there is room to look ahead on both sides.
void expand_words(PcxRuns& runs) {
  while (runs.end - runs.from >= kStep + 1 && runs.full - runs.to >= kStep) {
    const std::uint64_t large = large_bytes(load_word(runs.from));
    std::memcpy(runs.to, runs.from, kStep);
    const int literals = large == 0 ? kStep : std::countr_zero(large) / 8;
    runs.from += literals;
    runs.to += literals;
    if (large != 0) expand_run(runs);
  }
}

// How often the first byte repeats, up to `most`.
std::ptrdiff_t run_length(const std::uint8_t* from, std::ptrdiff_t most) {
  const std::uint64_t value = *from * kOnes;
  for (std::ptrdiff_t i = 0; i < most; i += kStep) {
    const std::uint64_t other = load_word(from + i) ^ value;
    if (other != 0) return std::min<std::ptrdiff_t>(i + std::countr_zero(other) / 8, most);
  }
  return most;
}

}  // namespace

void expand_runs(PcxRuns& runs) {
  x86::expand_runs(runs);
  expand_words(runs);
  while (runs.to < runs.full && runs.from < runs.end) {
    if (*runs.from < kPcxRun) {
      *runs.to++ = *runs.from++;
    } else {
      if (runs.end - runs.from < 2) return;
      expand_run(runs);
    }
  }
}

void code_runs(PcxBytes& bytes) {
  x86::code_runs(bytes);
  while (bytes.from < bytes.end) {
    const std::uint64_t run = first_run(bytes.from);
    std::memcpy(bytes.to, bytes.from, kStep);
    const std::ptrdiff_t literals = std::min<std::ptrdiff_t>(
        run == 0 ? kStep : std::countr_zero(run) / 8, bytes.end - bytes.from);
    bytes.from += literals;
    bytes.to += literals;
    if (run == 0 || bytes.from == bytes.end) continue;
    const std::ptrdiff_t length =
        run_length(bytes.from, std::min<std::ptrdiff_t>(bytes.end - bytes.from, kLongestPcxRun));
    if (length > 1 || *bytes.from >= kPcxRun) {
      *bytes.to++ = static_cast<std::uint8_t>(kPcxRun | length);
    }
    *bytes.to++ = *bytes.from;
    bytes.from += length;
  }
}

}  // namespace tq::formats
