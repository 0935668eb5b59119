// The portable codings, eight bytes at a time, and the choice.
#include "coding/byte_runs.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "core/numbers.h"

namespace tq::coding {
namespace {

using From = std::span<const std::uint8_t>;
using To = std::span<std::uint8_t>;

constexpr int kStep = 8;
constexpr std::uint64_t kOnes = 0x0101010101010101, kTopBits = 0x8080808080808080;

static_assert(std::endian::native == std::endian::little);  // the first byte is the lowest

std::uint64_t load_word(const std::uint8_t* from) {
  std::uint64_t word;
  std::memcpy(&word, from, sizeof word);
  return word;
}

// The top bit of every byte that has both top bits set.
std::uint64_t marked_bytes(std::uint64_t word) {
  return word & (word << 1) & kTopBits;
}

// The lowest top bit that is set belongs to the first byte that is 0; higher ones may be wrong.
std::uint64_t first_zero_byte(std::uint64_t word) {
  return (word - kOnes) & ~word & kTopBits;
}

// The same for the first byte that does not stand for itself when it is coded.
std::uint64_t first_run(const std::uint8_t* from) {
  const std::uint64_t word = load_word(from);
  return first_zero_byte(word ^ load_word(from + 1)) | marked_bytes(word);
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

RunProgress expand_marked(From from, To to) {
  const std::uint8_t* in = from.data();
  const std::uint8_t* const end = in + from.size();
  std::uint8_t* out = to.data();
  const std::uint8_t* const full = out + (std::ssize(to) - kMarkedRunRoom);
  const auto expand_run = [&] {
    std::memset(out, in[1], kMarkedRunRoom);  // a fixed count takes no time
    out += *in - kRunMark;
    in += 2;
  };
  // While there is room to look ahead on both sides.
  while (end - in >= kStep + 1 && full - out >= kStep) {
    const std::uint64_t marked = marked_bytes(load_word(in));
    std::memcpy(out, in, kStep);
    const int literals = marked == 0 ? kStep : std::countr_zero(marked) / 8;
    in += literals;
    out += literals;
    if (marked != 0) expand_run();
  }
  while (out < full && in < end) {
    if (*in < kRunMark) {
      *out++ = *in++;
    } else {
      if (end - in < 2) break;
      expand_run();
    }
  }
  return {in - from.data(), out - to.data()};
}

std::ptrdiff_t code_marked(From from, To to) {
  const std::uint8_t* in = from.data();
  const std::uint8_t* const end = in + from.size();
  std::uint8_t* out = to.data();
  while (in < end) {
    const std::uint64_t run = first_run(in);
    std::memcpy(out, in, kStep);
    const std::ptrdiff_t literals =
        std::min<std::ptrdiff_t>(run == 0 ? kStep : std::countr_zero(run) / 8, end - in);
    in += literals;
    out += literals;
    if (run == 0 || in == end) continue;
    const std::ptrdiff_t length =
        run_length(in, std::min<std::ptrdiff_t>(end - in, kLongestMarkedRun));
    if (length > 1 || *in >= kRunMark) *out++ = byte(kRunMark + length);
    *out++ = *in;
    in += length;
  }
  return out - to.data();
}

}  // namespace

constexpr Kernels kPortableKernels{.expand_marked = expand_marked, .code_marked = code_marked};

Kernels select_kernels([[maybe_unused]] const platform::CpuFeatures& features) {
  Kernels kernels = kPortableKernels;
#if defined(__i386__) || defined(__x86_64__)
  if (features.ssse3) add_ssse3_kernels(kernels);
#endif
  return kernels;
}

RunProgress expand_marked_runs(From from, To to) {
  return select_kernels(platform::cpu_features()).expand_marked(from, to);
}

std::ptrdiff_t code_marked_runs(From from, To to) {
  return select_kernels(platform::cpu_features()).code_marked(from, to);
}

}  // namespace tq::coding
