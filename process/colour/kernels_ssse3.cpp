// Row kernels in registers of 128 bits. Those that do many pixels at a time leave the rest of a row
// to the portable ones; in a diffusion a pixel, or a window of four, is in a register.
#if defined(__i386__) || defined(__x86_64__)

#include "pixels/colours.h"
#include "platform/x86/simd128.h"
#include "process/colour/sixteen_x86.h"

namespace tq::process {
namespace {

using namespace simd;

// Four keys in 32-bit lanes, of 16 bytes that begin with the pixels.
TQ_SIMD Vector four_keys(const std::uint8_t* bgr) {
  alignas(16) static constexpr std::uint8_t kSpread[16] = {0, 1, 2, 128, 3, 4,  5,  128,
                                                           6, 7, 8, 128, 9, 10, 11, 128};
  const Vector upper = shuffle8(load(bgr), load(kSpread)) & all8(0xF0);
  const Vector pairs = multiply_add8(upper, all32(16 << 16 | 16 << 8 | 1));
  return shift_right_unsigned32<4>(multiply_add16(pairs, all32(16 << 16 | 1)));
}

TQ_KERNEL void keys_24(const std::uint8_t* bgr, std::uint16_t* keys, int width) {
  constexpr int kReadAhead = 2;  // four bytes more than four pixels are read
  int x = 0;
  for (; x + 8 + kReadAhead <= width; x += 8, bgr += 24) {
    store(keys + x, pack32(four_keys(bgr), four_keys(bgr + 12)));
  }
  kPortableKernels.keys_24(bgr, keys + x, width - x);
}

// The leftmost pixel is the top bit of two bytes, but the lowest of the mask.
TQ_SIMD void store_bits(std::uint8_t* bits, Vector white) {
  alignas(16) static constexpr std::uint8_t kTurned[16] = {7,  6,  5,  4,  3,  2,  1, 0,
                                                           15, 14, 13, 12, 11, 10, 9, 8};
  const std::uint16_t mask = word(top_bits8(shuffle8(white, load(kTurned))));
  std::memcpy(bits, &mask, sizeof mask);
}

TQ_KERNEL void at_least(const std::uint8_t* grey, const LeastWhite& least, std::uint8_t* bits,
                        int width) {
  const Vector half = load64(least.grey);
  const Vector limits = interleave_low64(half, half);
  int x = 0;
  for (; x + 16 <= width; x += 16, bits += 2) {
    store_bits(bits, equal8(min8(load(grey + x), limits), limits));
  }
  kPortableKernels.at_least(grey + x, least, bits, width - x);
}

// A colour with blue in the low byte, and its cell.
constexpr Rgb colour_of(std::uint32_t bytes) {
  return {byte(bytes), byte(bytes >> 8), byte(bytes >> 16), 0};
}
constexpr std::uint32_t cell_of_bytes(std::uint32_t bytes) {
  return (bytes >> 3 & 0x1F) | (bytes >> 6 & 0x3E0) | (bytes >> 9 & 0x7C00);
}

// Fixed palette. How far each byte is above and below what was chosen for it; one of the two is 0.
// Dividing either truncates toward zero, and saturation is the clamp.
struct SplitError {
  Vector above, below;

  template <int kShift>
  TQ_SIMD Vector give(Vector to) const {
    const Vector mask = all8(0xFF >> kShift);
    return subtract_saturated8(add_saturated8(to, shift_right_unsigned16<kShift>(above) & mask),
                               shift_right_unsigned16<kShift>(below) & mask);
  }
};

// The shares of x - 2 .. x + 1 on the next row, in four lanes, from an error in all four.
TQ_SIMD Vector four_shares(Vector error) {
  alignas(16) static constexpr std::uint32_t kSixteenths[4] = {0x0F0F0F0F, 0, 0, 0};
  alignas(16) static constexpr std::uint32_t kEighths[4] = {0, 0x1F1F1F1F, 0, 0x1F1F1F1F};
  alignas(16) static constexpr std::uint32_t kQuarters[4] = {0, 0, 0x3F3F3F3F, 0};
  return (shift_right_unsigned16<2>(error) & load(kQuarters)) |
         (shift_right_unsigned16<3>(error) & load(kEighths)) |
         (shift_right_unsigned16<4>(error) & load(kSixteenths));
}

TQ_KERNEL void diffuse_to_cells(Rgb* current, Rgb* next, CellColours& cells, std::uint8_t* out,
                                int width) {
  const IndexedColour* entries = cells.entries();
  Vector value = load32(current);
  Vector following = load32(current + 1);
  Vector window = load(next - 2);
  for (int x = 0; x < width; ++x) {
    const std::uint32_t bytes = low32(value);
    const IndexedColour* known = entries + cell_of_bytes(bytes);
    // The entry's index is in the byte that colours do not use.
    Vector chosen = load32(known);
    out[x] = known->index;
    if (CellColours::is_free(*known)) {
      const IndexedColour found = cells.fill(colour_of(bytes));
      chosen = load32(&found);
      out[x] = found.index;
    }
    const SplitError error{subtract_saturated8(value, chosen), subtract_saturated8(chosen, value)};

    value = error.give<2>(following);
    following = error.give<3>(load32(current + x + 2));

    const Vector above = shuffle32<0>(error.above), below = shuffle32<0>(error.below);
    window = subtract_saturated8(add_saturated8(window, four_shares(above)), four_shares(below));
    const Vector last = error.give<4>(load32(next + x + 2));
    store32(next + x - 2, window);
    window = move_down<4>(window) | move_up<12>(last);
  }
  store(next + width - 2, window);
}

// A pixel waits for the one before it, so two rows are worked on in turn. The lower one loads two
// pixels ahead, and the upper one gives to these until it is two pixels further.
TQ_KERNEL void diffuse_to_sixteen(const WideRows& rows) {
  constexpr int kLag = 4;
  if (rows.count < 2 || rows.width < kLag) return x86::diffuse_one_by_one(rows);
  x86::WideChain upper = x86::begin_row(rows, 0);
  diffuse_pixels(upper, kLag);
  x86::WideChain lower = x86::begin_row(rows, 1);
  for (int x = kLag; x + 2 <= rows.width; x += 2) {
    diffuse_pixels(upper, 2);
    diffuse_pixels(lower, 2);
  }
  diffuse_pixels(upper, rows.width - upper.place[0].x);
  end_row(upper);
  diffuse_pixels(lower, rows.width - lower.place[0].x);
  end_row(lower);
}

TQ_KERNEL void widen_channels(const Rgb* colours, WideColour* out, int width) {
  alignas(16) static constexpr std::uint8_t kRedFirst[16] = {2, 128, 128, 128, 1,   128, 128, 128,
                                                             0, 128, 128, 128, 128, 128, 128, 128};
  const Vector order = load(kRedFirst);
  for (int x = 0; x < width; ++x) store(out + x, shuffle8(load32(colours + x), order));
}

// A palette of the image's own. Where a run along a row is: four channels in 16 bits, the last of
// which nobody looks at.
struct TreeChain {
  int x = 0;
  Vector ahead{}, behind_sum{}, below_sum{};
};

// Divided by a power of two, truncated toward zero.
template <int kShift>
TQ_SIMD Vector part(Vector v) {
  return shift_right16<kShift>(add16(v, shift_right_unsigned16<16 - kShift>(shift_right16<15>(v))));
}

// One pixel. It sets, and does not add to, what the next row receives.
template <int kStep>
TQ_SIMD void advance(TreeChain& chain, const TreeRow& row, IndexFinder& finder) {
  alignas(16) static constexpr std::int16_t kWeights[8] = {5, 5, 5, 5, 3, 3, 3, 3};
  const Vector zero{};
  const int x = chain.x;
  const Vector own =
      add16(interleave_low8(load32(row.colours + x), zero), load64(row.received + x));
  const Vector bytes = pack_unsigned16(add16(own, chain.ahead), zero);
  const std::uint32_t colour = low32(bytes);
  const IndexedColour* known = finder.entries() + cell_of_bytes(colour);
  auto entry = std::bit_cast<std::uint32_t>(*known);
  Vector chosen = load32(known);
  if (entry == finder.unknown()) {
    entry = std::bit_cast<std::uint32_t>(finder.find_slowly(colour_of(colour)));
    chosen = load32(&entry);
  }
  row.indices[x] = byte(entry >> 24);
  const Vector error = subtract16(interleave_low8(bytes, zero), interleave_low8(chosen, zero));
  chain.ahead = part<4>(subtract16(shift_left16<3>(error), error));
  const Vector shares = part<4>(multiply_low16(interleave_low64(error, error), load(kWeights)));
  store64(row.below + x - kStep, add16(chain.behind_sum, move_down<8>(shares)));
  chain.behind_sum = add16(chain.below_sum, shares);
  chain.below_sum = part<4>(error);
  chain.x = x + kStep;
}

template <int kStep>
TQ_KERNEL void advance_by(int count, TreeChain& chain, const TreeRow& row, IndexFinder& finder) {
  for (; count > 0; --count) advance<kStep>(chain, row, finder);
}

TQ_SIMD void add_channels(Channels* to, Vector more) {
  store64(to, add16(load64(to), more));
}

// A pixel waits for the one before it, so the row is cut into pieces that are worked on in turn.
// Each first runs over the last pixels before it: errors shrink, and almost always it then begins
// with what the piece before really leaves. Where not, it is done again.
template <int kStep>
TQ_KERNEL void diffuse_to_tree(const TreeRow& row, IndexFinder& finder) {
  constexpr int kPieces = 3, kWarmUp = 32, kNarrowest = 16 * kWarmUp;
  const auto at = [&](int n) { return kStep > 0 ? n : row.width - 1 - n; };
  const int piece = row.width / kPieces;
  TreeChain chain{at(0)};
  if (row.width < kNarrowest) {
    advance_by<kStep>(row.width, chain, row, finder);
    return store64(row.below + chain.x - kStep, chain.behind_sum);
  }

  TreeChain chains[kPieces];
  Vector guessed[kPieces];
  for (int i = 0; i < kPieces; ++i) chains[i].x = at(i * piece - (i == 0 ? 0 : kWarmUp));
  for (int n = 0; n < kWarmUp; ++n) {
    for (int i = 1; i < kPieces; ++i) advance<kStep>(chains[i], row, finder);
  }
  for (int i = 0; i < kPieces; ++i) {
    guessed[i] = chains[i].ahead;
    chains[i].behind_sum = chains[i].below_sum = Vector{};
  }
  for (int n = 0; n < piece; ++n) {
    TQ_UNROLLED
    for (int i = 0; i < kPieces; ++i) advance<kStep>(chains[i], row, finder);
  }
  for (int i = 1; i < kPieces; ++i) {
    const TreeChain& before = chains[i - 1];
    const int first = before.x;
    if ((top_bits8(equal8(before.ahead, guessed[i])) & 0x3F) == 0x3F) {
      add_channels(row.below + first - kStep, before.behind_sum);
      add_channels(row.below + first, before.below_sum);
    } else {
      chains[i] = before;
      advance_by<kStep>(piece, chains[i], row, finder);
    }
  }
  chain = chains[kPieces - 1];
  advance_by<kStep>(row.width - kPieces * piece, chain, row, finder);
  store64(row.below + chain.x - kStep, chain.behind_sum);
}

// Black and white. The parts of the shares at one distance to the left and to the right.
template <int kShift>
TQ_SIMD Vector both_parts(const std::int8_t* shares, int distance) {
  return add16(part<kShift>(load_widened(shares - distance)),
               part<kShift>(load_widened(shares + distance)));
}

TQ_KERNEL void add_stucki_rows(const std::uint8_t* levels, const std::int8_t* above,
                               const std::int8_t* second_above, std::int16_t* values, int width) {
  int x = 0;
  for (; x + 8 <= width; x += 8) {
    const std::int8_t* a = above + x;
    const std::int8_t* b = second_above + x;
    const Vector from_above =
        add16(load_widened(a), add16(both_parts<1>(a, 1), both_parts<2>(a, 2)));
    const Vector from_second =
        add16(part<1>(load_widened(b)), add16(both_parts<2>(b, 1), both_parts<3>(b, 2)));
    store(values + x, add16(load_widened(levels + x), add16(from_above, from_second)));
  }
  kPortableKernels.add_stucki_rows(levels + x, above + x, second_above + x, values + x, width - x);
}

}  // namespace

void add_ssse3_kernels(Kernels& kernels) {
  kernels = {.keys_24 = keys_24,
             .at_least = at_least,
             .diffuse_to_cells = diffuse_to_cells,
             .widen_channels = widen_channels,
             .diffuse_to_sixteen = diffuse_to_sixteen,
             .diffuse_to_tree_rightward = diffuse_to_tree<1>,
             .diffuse_to_tree_leftward = diffuse_to_tree<-1>,
             .add_stucki_rows = add_stucki_rows,
             .diffuse_stucki_lanes = nullptr};
}

}  // namespace tq::process

#endif
