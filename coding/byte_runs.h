// Runs of equal bytes, as formats code them: from span to span, both ways. A coding that formats
// share stands here once; what they make of its rows is theirs.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "platform/cpu.h"

namespace tq::coding {

// How far a call came: bytes of its input and of its output.
struct RunProgress {
  std::ptrdiff_t taken = 0, put = 0;
};

// Marked runs: a byte with both top bits set is the length of a run, which may be 0, and the next
// one its value; any other byte stands for itself.
inline constexpr int kRunMark = 0xC0;
inline constexpr int kLongestMarkedRun = 63;

// Expands runs as long as more than kMarkedRunRoom bytes of `to`, which has at least as many, are
// free and `from` holds the next run whole. All of the room may be written.
inline constexpr int kMarkedRunRoom = 64;
RunProgress expand_marked_runs(std::span<const std::uint8_t> from, std::span<std::uint8_t> to);

// Codes all of `from`, behind which kRunMargin bytes more can be read. Returns how many bytes came
// of them: at most twice as many, and kRunMargin more may be written.
inline constexpr int kRunMargin = 16;
std::ptrdiff_t code_marked_runs(std::span<const std::uint8_t> from, std::span<std::uint8_t> to);

// The same for one processor or another. The portable ones are the reference; the others give the
// same bytes.
struct Kernels {
  using Bytes = std::span<const std::uint8_t>;
  RunProgress (*expand_marked)(Bytes from, std::span<std::uint8_t> to);
  std::ptrdiff_t (*code_marked)(Bytes from, std::span<std::uint8_t> to);
};

extern const Kernels kPortableKernels;
void add_ssse3_kernels(Kernels& kernels);

// The fastest for a processor.
Kernels select_kernels(const platform::CpuFeatures& features);

}  // namespace tq::coding
