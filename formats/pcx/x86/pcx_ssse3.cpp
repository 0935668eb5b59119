// Runs of one and of two, which photos are full of, are coded and expanded without a branch; longer
// ones one by one. No standard library here: an inline function compiled for this instruction set
// must not become the copy that everybody uses.
#if defined(__x86_64__) || defined(__i386__)

#include "formats/pcx/x86/pcx_ssse3.h"

#include <tmmintrin.h>

#include "platform/cpu.h"

#define TQ_TARGET __attribute__((target("ssse3")))

namespace tq::formats::x86 {
namespace {

using Vector = __m128i;

constexpr unsigned kLast = 0x8000;  // of the bits for 16 bytes
constexpr unsigned kBehind = 0x10000;
constexpr std::uint8_t kNothing = 0x80;  // shuffled to 0

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
      sets.count[set] = static_cast<std::uint8_t>(sets.count[set] + member);
      if (member) sets.preceded[set][longer++] = 8;
      sets.preceded[set][longer++] = static_cast<std::uint8_t>(i);
      if (!member) sets.without[set][shorter++] = static_cast<std::uint8_t>(i);
    }
  }
  return sets;
}();

// Shuffles between three planes of 16 bytes and 48 bytes of pixels.
struct PlaneOrders {
  alignas(16) std::uint8_t to_pixels[3][3][16];  // third of the pixels, plane
  alignas(16) std::uint8_t to_plane[3][3][16];   // plane, third of the pixels
};
constexpr PlaneOrders kOrders = [] {
  PlaneOrders orders{};
  for (int third = 0; third < 3; ++third) {
    for (int plane = 0; plane < 3; ++plane) {
      for (int i = 0; i < 16; ++i) {
        const int byte = 16 * third + i;  // of the pixels
        orders.to_pixels[third][plane][i] =
            byte % 3 == plane ? static_cast<std::uint8_t>(byte / 3) : kNothing;
        const int wanted = 3 * i + plane - 16 * third;
        orders.to_plane[plane][third][i] =
            wanted >= 0 && wanted < 16 ? static_cast<std::uint8_t>(wanted) : kNothing;
      }
    }
  }
  return orders;
}();

TQ_TARGET Vector load(const std::uint8_t* from) {
  return _mm_loadu_si128(reinterpret_cast<const Vector*>(from));
}
TQ_TARGET void store(std::uint8_t* to, Vector value) {
  _mm_storeu_si128(reinterpret_cast<Vector*>(to), value);
}
TQ_TARGET Vector all(int byte) {
  return _mm_set1_epi8(static_cast<char>(byte));
}
TQ_TARGET unsigned bits(Vector mask) {
  return static_cast<unsigned>(_mm_movemask_epi8(mask));
}
TQ_TARGET unsigned large_bytes(Vector bytes) {
  return bits(_mm_and_si128(bytes, _mm_slli_epi16(bytes, 1)));  // both top bits
}
TQ_TARGET Vector choose(Vector mask, Vector yes, Vector no) {
  return _mm_or_si128(_mm_and_si128(mask, yes), _mm_andnot_si128(mask, no));
}

int members(unsigned set) {  // of 16 bytes
  return kSets.count[set & 0xFF] + kSets.count[set >> 8 & 0xFF];
}

// Every second of neighbouring bits, beginning with the lowest: a byte behind a run's length is its
// value, however large.
unsigned run_starts(unsigned large) {
  constexpr unsigned kOdd = 0xAAAAAAAA;
  return ((((large << 1) | kOdd) - large) ^ kOdd) & large;
}

TQ_TARGET void expand(PcxRuns& runs) {
  const Vector one = all(kPcxRun + 1), two = all(kPcxRun + 2);
  while (runs.end - runs.from > 16 && runs.full - runs.to >= 16) {
    const Vector bytes = load(runs.from);
    const unsigned starts = run_starts(large_bytes(bytes));
    const unsigned ones = bits(_mm_cmpeq_epi8(bytes, one)) & starts;
    const Vector is_two = _mm_cmpeq_epi8(bytes, two);
    const unsigned twos = bits(is_two);
    // Runs that are expanded below; also one whose value looks like the length of a run of two.
    const unsigned others = (starts & ~ones & ~twos) | (twos & ~starts) >> 1;
    const int count = __builtin_ctz(others | (starts & kLast) | kBehind);

    // A run of two becomes its value twice, a run of one its value.
    const Vector expanded = choose(is_two, load(runs.from + 1), bytes);
    const Vector low = _mm_loadl_epi64(reinterpret_cast<const Vector*>(kSets.without[ones & 0xFF]));
    const Vector high = _mm_loadl_epi64(reinterpret_cast<const Vector*>(kSets.without[ones >> 8]));
    _mm_storel_epi64(reinterpret_cast<Vector*>(runs.to), _mm_shuffle_epi8(expanded, low));
    _mm_storel_epi64(reinterpret_cast<Vector*>(runs.to + 8 - kSets.count[ones & 0xFF]),
                     _mm_shuffle_epi8(_mm_unpackhi_epi64(expanded, expanded), high));
    runs.from += count;
    runs.to += count - members(ones & ((1U << count) - 1));

    if ((others >> count & 1) == 0) continue;
    const Vector value = all(runs.from[1]);
    for (int i = 0; i < kPcxRunRoom; i += 16) store(runs.to + i, value);
    runs.to += *runs.from - kPcxRun;
    runs.from += 2;
  }
}

TQ_TARGET std::ptrdiff_t run_length(const std::uint8_t* from, std::ptrdiff_t most) {
  const Vector value = all(*from);
  std::ptrdiff_t length = 0;
  for (; length < most; length += 16) {
    const unsigned equal = bits(_mm_cmpeq_epi8(load(from + length), value));
    if (equal == 0xFFFF) continue;
    length += __builtin_ctz(~equal);
    break;
  }
  return length < most ? length : most;
}

TQ_TARGET void code(PcxBytes& bytes) {
  const Vector one = all(kPcxRun + 1), two = all(kPcxRun + 2);
  while (bytes.end - bytes.from > 16) {
    const Vector plain = load(bytes.from);
    const Vector is_pair = _mm_cmpeq_epi8(plain, load(bytes.from + 1));
    const unsigned pairs = bits(is_pair);
    const unsigned longer = pairs & pairs >> 1;  // runs of three and more
    const int count = __builtin_ctz(longer | (pairs & kLast) | kBehind);

    // The first of two equal bytes becomes their number, a large byte gets one before it.
    const unsigned large = large_bytes(plain) & ~pairs & ~(pairs << 1);
    const unsigned low = large & 0xFF, high = large >> 8;
    const Vector coded = choose(is_pair, two, plain);
    store(bytes.to, _mm_shuffle_epi8(_mm_unpacklo_epi64(coded, one), load(kSets.preceded[low])));
    store(bytes.to + 8 + kSets.count[low],
          _mm_shuffle_epi8(_mm_unpackhi_epi64(coded, one), load(kSets.preceded[high])));
    bytes.from += count;
    bytes.to += count + members(large & ((1U << count) - 1));

    if (longer == 0) continue;
    const std::ptrdiff_t left = bytes.end - bytes.from;
    const std::ptrdiff_t length =
        run_length(bytes.from, left < kLongestPcxRun ? left : kLongestPcxRun);
    *bytes.to++ = static_cast<std::uint8_t>(kPcxRun + length);
    *bytes.to++ = *bytes.from;
    bytes.from += length;
  }
}

TQ_TARGET Vector gathered(Vector a, Vector b, Vector c, const std::uint8_t (&orders)[3][16]) {
  return _mm_or_si128(
      _mm_or_si128(_mm_shuffle_epi8(a, load(orders[0])), _mm_shuffle_epi8(b, load(orders[1]))),
      _mm_shuffle_epi8(c, load(orders[2])));
}

TQ_TARGET std::size_t interleave_16(const std::uint8_t* blue, const std::uint8_t* green,
                                    const std::uint8_t* red, std::uint8_t* pixels,
                                    std::size_t width) {
  std::size_t x = 0;
  for (; x + 16 <= width; x += 16, pixels += 48) {
    const Vector b = load(blue + x), g = load(green + x), r = load(red + x);
    for (int third = 0; third < 3; ++third) {
      store(pixels + 16 * third, gathered(b, g, r, kOrders.to_pixels[third]));
    }
  }
  return x;
}

TQ_TARGET std::size_t pick_channel_16(const std::uint8_t* pixels, std::size_t channel,
                                      std::uint8_t* plane, std::size_t width) {
  std::size_t x = 0;
  for (; x + 16 <= width; x += 16, pixels += 48) {
    store(plane + x,
          gathered(load(pixels), load(pixels + 16), load(pixels + 32), kOrders.to_plane[channel]));
  }
  return x;
}

bool available() {
  return platform::cpu_features().ssse3;
}

}  // namespace

void expand_runs(PcxRuns& runs) {
  if (available()) expand(runs);
}

void code_runs(PcxBytes& bytes) {
  if (available()) code(bytes);
}

std::size_t interleave(const std::uint8_t* blue, const std::uint8_t* green, const std::uint8_t* red,
                       std::uint8_t* pixels, std::size_t width) {
  return available() ? interleave_16(blue, green, red, pixels, width) : 0;
}

std::size_t pick_channel(const std::uint8_t* pixels, std::size_t channel, std::uint8_t* plane,
                         std::size_t width) {
  return available() ? pick_channel_16(pixels, channel, plane, width) : 0;
}

}  // namespace tq::formats::x86

#endif
