// Runs of one and of two, which photos are full of, are coded and expanded without a branch, longer
// ones one by one; what is left at the end goes to the portable kernels.
#if defined(__i386__) || defined(__x86_64__)

#include <algorithm>
#include <bit>

#include "coding/byte_runs.h"
#include "core/numbers.h"
#include "platform/x86/simd128.h"

namespace tq::coding {
namespace {

using namespace simd;

using From = std::span<const std::uint8_t>;
using To = std::span<std::uint8_t>;

constexpr int kBytes = 16;
constexpr std::uint32_t kLast = 0x8000;  // of the bits for 16 bytes
constexpr std::uint32_t kBehind = 0x10000;

// By a set of eight bytes, a bit for each: how many there are, and shuffles that put byte 8 before
// each of them, and that leave them out.
struct ByteSets {
  std::uint8_t count[256]{};
  alignas(16) std::uint8_t preceded[256][16]{};
  alignas(8) std::uint8_t without[256][8]{};
};
constexpr ByteSets kSets = [] {
  ByteSets sets;
  for (int set = 0; set < 256; ++set) {
    int longer = 0, shorter = 0;
    for (int i = 0; i < 8; ++i) {
      const bool member = (set >> i & 1) != 0;
      if (member) sets.preceded[set][longer++] = 8;
      sets.preceded[set][longer++] = byte(i);
      if (!member) sets.without[set][shorter++] = byte(i);
    }
    sets.count[set] = byte(longer - 8);
  }
  return sets;
}();

int members(std::uint32_t set) {  // of 16 bytes
  return kSets.count[set & 0xFF] + kSets.count[set >> 8 & 0xFF];
}

TQ_SIMD std::uint32_t marked_bytes(Vector bytes) {
  return top_bits8(bytes & shift_left16<1>(bytes));  // both top bits
}
TQ_SIMD Vector choose(Vector mask, Vector yes, Vector no) {
  return (mask & yes) | (~mask & no);
}

// Every second of neighbouring bits, beginning with the lowest: a byte behind a run's length is its
// value, whatever its top bits.
constexpr std::uint32_t run_starts(std::uint32_t marked) {
  constexpr std::uint32_t kOdd = 0xAAAAAAAA;
  return ((((marked << 1) | kOdd) - marked) ^ kOdd) & marked;
}

TQ_KERNEL RunProgress expand_marked(From from, To to) {
  const std::uint8_t* in = from.data();
  const std::uint8_t* const end = in + from.size();
  std::uint8_t* out = to.data();
  const std::uint8_t* const full = out + (std::ssize(to) - kMarkedRunRoom);
  const Vector one = all8(kRunMark + 1), two = all8(kRunMark + 2);
  while (end - in > kBytes && full - out >= kBytes) {
    const Vector bytes = load(in);
    const std::uint32_t starts = run_starts(marked_bytes(bytes));
    const std::uint32_t ones = top_bits8(equal8(bytes, one)) & starts;
    const Vector is_two = equal8(bytes, two);
    const std::uint32_t twos = top_bits8(is_two);
    // Runs that are expanded below; also one whose value looks like the length of a run of two.
    const std::uint32_t others = (starts & ~ones & ~twos) | (twos & ~starts) >> 1;
    const int count = std::countr_zero(others | (starts & kLast) | kBehind);

    // A run of two becomes its value twice, a run of one its value.
    const Vector expanded = choose(is_two, load(in + 1), bytes);
    const std::uint32_t low = ones & 0xFF, high = ones >> 8;
    store64(out, shuffle8(expanded, load64(kSets.without[low])));
    store64(out + 8 - kSets.count[low],
            shuffle8(interleave_high64(expanded, expanded), load64(kSets.without[high])));
    in += count;
    out += count - members(ones & ((1U << count) - 1));

    if ((others >> count & 1) == 0) continue;
    const Vector value = all8(in[1]);
    for (int i = 0; i < kMarkedRunRoom; i += kBytes) store(out + i, value);
    out += *in - kRunMark;
    in += 2;
  }
  const std::ptrdiff_t taken = in - from.data(), put = out - to.data();
  const RunProgress rest = kPortableKernels.expand_marked(from.subspan(taken), to.subspan(put));
  return {taken + rest.taken, put + rest.put};
}

// How often the first byte repeats, up to `most`.
TQ_SIMD std::ptrdiff_t run_length(const std::uint8_t* from, std::ptrdiff_t most) {
  const Vector value = all8(*from);
  for (std::ptrdiff_t i = 0; i < most; i += kBytes) {
    const std::uint32_t others = ~top_bits8(equal8(load(from + i), value)) & 0xFFFF;
    if (others != 0) return std::min<std::ptrdiff_t>(i + std::countr_zero(others), most);
  }
  return most;
}

TQ_KERNEL std::ptrdiff_t code_marked(From from, To to) {
  const std::uint8_t* in = from.data();
  const std::uint8_t* const end = in + from.size();
  std::uint8_t* out = to.data();
  const Vector one = all8(kRunMark + 1), two = all8(kRunMark + 2);
  while (end - in > kBytes) {
    const Vector plain = load(in);
    const Vector is_pair = equal8(plain, load(in + 1));
    const std::uint32_t pairs = top_bits8(is_pair);
    const std::uint32_t longer = pairs & pairs >> 1;  // runs of three and more
    const int count = std::countr_zero(longer | (pairs & kLast) | kBehind);

    // The first of two equal bytes becomes their number, a marked byte gets one before it.
    const std::uint32_t marked = marked_bytes(plain) & ~pairs & ~(pairs << 1);
    const std::uint32_t low = marked & 0xFF, high = marked >> 8;
    const Vector coded = choose(is_pair, two, plain);
    store(out, shuffle8(interleave_low64(coded, one), load(kSets.preceded[low])));
    store(out + 8 + kSets.count[low],
          shuffle8(interleave_high64(coded, one), load(kSets.preceded[high])));
    in += count;
    out += count + members(marked & ((1U << count) - 1));

    if (longer == 0) continue;
    const std::ptrdiff_t length =
        run_length(in, std::min<std::ptrdiff_t>(end - in, kLongestMarkedRun));
    *out++ = byte(kRunMark + length);
    *out++ = *in;
    in += length;
  }
  const std::ptrdiff_t put = out - to.data();
  return put + kPortableKernels.code_marked(from.subspan(in - from.data()), to.subspan(put));
}

}  // namespace

void add_ssse3_kernels(Kernels& kernels) {
  kernels = {.expand_marked = expand_marked, .code_marked = code_marked};
}

}  // namespace tq::coding

#endif
