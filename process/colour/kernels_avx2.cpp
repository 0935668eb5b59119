// Stucki diffusion in 16 lanes. The row is cut into 16 pieces that are diffused at the same time,
// although each begins with what the piece before it leaves: every lane first runs over the last
// pixels of that piece. Errors shrink from pixel to pixel and are truncated to integers, so it
// almost always arrives in the right state; where the states at a seam differ, the piece is done
// again from its start until it meets what is there already. The result is exact in any case.
#if defined(__i386__) || defined(__x86_64__)

#include "platform/x86/simd256.h"
#include "process/colour/sixteen_x86.h"

namespace tq::process {
namespace {

using namespace simd;

constexpr int kPieces = StuckiLanes::kLanes;
constexpr int kWarmUp = 48;  // pixels

// Truncated toward zero.
TQ_SIMD Vector half(Vector v) {
  return shift_right16<1>(add16(v, shift_right_unsigned16<15>(v)));
}

TQ_SIMD void shuffle_rows(const Vector (&from)[16], Vector (&to)[16]) {
  TQ_UNROLLED
  for (int i = 0; i < 8; ++i) {
    to[2 * i] = interleave_low8(from[i], from[i + 8]);
    to[2 * i + 1] = interleave_high8(from[i], from[i + 8]);
  }
}

// Rows of 16 bytes become columns by four perfect shuffles, in two blocks at the same time.
TQ_SIMD void transpose(Vector (&rows)[16]) {
  Vector mixed[16];
  shuffle_rows(rows, mixed);
  shuffle_rows(mixed, rows);
  shuffle_rows(rows, mixed);
  shuffle_rows(mixed, rows);
}

// The block of 16 positions that is transposed with the one at i: the next, or the same at the end.
int second_block(const StuckiLanes& lanes, int i) {
  return i + 16 < lanes.piece ? i + 16 : i;
}

TQ_KERNEL void cut_into_lanes(const StuckiLanes& lanes, const std::uint8_t* levels) {
  for (int i = 0; i < lanes.piece; i += 32) {
    const int j = second_block(lanes, i);
    Vector blocks[16];
#pragma GCC unroll 16
    for (int lane = 0; lane < kPieces; ++lane) {
      const std::uint8_t* piece = levels + lane * lanes.piece;
      blocks[lane] = load_lanes(piece + i, piece + j);
    }
    transpose(blocks);
#pragma GCC unroll 16
    for (int k = 0; k < 16; ++k) {
      store_lane<0>(lanes.levels + (i + k) * kPieces, blocks[k]);
      store_lane<1>(lanes.levels + (j + k) * kPieces, blocks[k]);
    }
  }
}

TQ_KERNEL void join_lanes(const StuckiLanes& lanes, std::uint8_t* bits) {
  // The leftmost pixel is the top bit, but the lowest of the mask.
  alignas(16) static constexpr std::uint8_t kTurned[16] = {7,  6,  5,  4,  3,  2,  1, 0,
                                                           15, 14, 13, 12, 11, 10, 9, 8};
  const Vector turned = load_repeated(kTurned);
  for (int i = 0; i < lanes.piece; i += 32) {
    const int j = second_block(lanes, i);
    Vector blocks[16];
#pragma GCC unroll 16
    for (int k = 0; k < 16; ++k) {
      blocks[k] = load_lanes(lanes.white + (i + k) * kPieces, lanes.white + (j + k) * kPieces);
    }
    transpose(blocks);
#pragma GCC unroll 16
    for (int lane = 0; lane < kPieces; ++lane) {
      const std::uint32_t mask = top_bits8(shuffle8(blocks[lane], turned));
      const std::uint16_t first = word(mask), second = word(mask >> 16);
      std::memcpy(bits + (lane * lanes.piece + i) / 8, &first, sizeof first);
      std::memcpy(bits + (lane * lanes.piece + j) / 8, &second, sizeof second);
    }
  }
}

// Which lanes are still within the row at a position of their piece.
struct Inside {
  Vector next, last;
};

TQ_SIMD Inside inside_from(const StuckiLanes& lanes, int position) {
  std::uint16_t first[kPieces];
  for (int lane = 0; lane < kPieces; ++lane) first[lane] = word(lane * lanes.piece + position);
  return {load(first), all16(lanes.width)};
}

// Grey levels plus the shares from the two rows above.
TQ_KERNEL void add_rows_above(const StuckiLanes& lanes) {
  const std::int8_t* above = lanes.shares[1];
  const std::int8_t* second = lanes.shares[2];
  // Shares of weight 8, 4, 2 and 1 at the positions around the present one; the number is the
  // distance + 2.
  Vector eights[5], fours[5], twos[5], ones[5], second_fours[5], second_twos[5];
  const auto enter = [&](int slot, int position) __attribute__((target("avx2"))) {
    eights[slot] = load_widened(above + position * kPieces);
    fours[slot] = half(eights[slot]);
    twos[slot] = half(fours[slot]);
    second_fours[slot] = half(load_widened(second + position * kPieces));
    second_twos[slot] = half(second_fours[slot]);
    ones[slot] = half(second_twos[slot]);
  };
  for (int slot = 0; slot < 4; ++slot) enter(slot, slot - 2);
  Inside inside = inside_from(lanes, 0);
  for (int i = 0; i < lanes.piece; ++i) {
    enter(4, i + 2);
    const Vector from_above =
        add16(add16(add16(twos[0], twos[4]), eights[2]), add16(fours[1], fours[3]));
    const Vector from_second = add16(add16(add16(ones[0], ones[4]), second_fours[2]),
                                     add16(second_twos[1], second_twos[3]));
    const Vector level = load_widened(lanes.levels + i * kPieces);
    const Vector value = add16(level, add16(from_above, from_second));
    store(lanes.values + i * kPieces, value & greater16(inside.last, inside.next));
    inside.next = add16(inside.next, all16(1));
    TQ_UNROLLED
    for (int slot = 0; slot < 4; ++slot) {
      eights[slot] = eights[slot + 1];
      fours[slot] = fours[slot + 1];
      twos[slot] = twos[slot + 1];
      second_fours[slot] = second_fours[slot + 1];
      second_twos[slot] = second_twos[slot + 1];
      ones[slot] = ones[slot + 1];
    }
  }
}

// The largest shares of the last pixel and of the one before it, which gives half of it.
struct Chain {
  Vector last, before;
};

// One pixel per lane; returns which are white.
TQ_SIMD Vector advance(Chain& chain, Vector values) {
  const Vector value = add16(add16(values, half(chain.before)), chain.last);
  const Vector white = greater16(value, all16(127));
  const Vector error = subtract16(value, white & all16(255));
  // 12484 of 2^16 is 4 of 21, exact for every error.
  const Vector share = multiply_high_unsigned16(abs16(error), all16(12484));
  chain.before = chain.last;
  chain.last = apply_sign16(share, error);
  return white;
}

// Every lane over the end of the piece that comes before its own.
template <int kStep>
TQ_SIMD Chain warm_up(const StuckiLanes& lanes) {
  Chain chain{};
  const int count = kWarmUp < lanes.piece ? kWarmUp : lanes.piece;
  std::uint16_t real[kPieces];  // the first lane has no piece before it: values of 0 keep it at 0
  for (int lane = 0; lane < kPieces; ++lane) {
    real[lane] = lane == (kStep > 0 ? 0 : kPieces - 1) ? 0 : 0xFFFF;
  }
  const Vector has_piece = load(real);
  int i = kStep > 0 ? lanes.piece - count : count - 1;
  for (int left = count; left > 0; --left, i += kStep) {
    advance(chain, load(lanes.values + i * kPieces - kStep) & has_piece);
  }
  return chain;
}

template <int kStep>
TQ_SIMD void run_lanes(const StuckiLanes& lanes, Chain chain) {
  int i = kStep > 0 ? 0 : lanes.piece - 1;
  Inside inside = inside_from(lanes, i);
  for (int left = lanes.piece; left > 0; --left, i += kStep) {
    const Vector white = advance(chain, load(lanes.values + i * kPieces));
    chain.last = chain.last & greater16(inside.last, inside.next);
    inside.next = add16(inside.next, all16(kStep));
    const Vector both = in_sequence(pack16(chain.last, white));
    store_lane<0>(lanes.shares[0] + i * kPieces, both);
    store_lane<1>(lanes.white + i * kPieces, both);
  }
}

// Does the pieces again whose lane began in a wrong state.
template <int kStep>
TQ_SIMD void mend_seams(const StuckiLanes& lanes, const Chain& guessed) {
  std::int16_t last_guess[kPieces], before_guess[kPieces];
  store(last_guess, guessed.last);
  store(before_guess, guessed.before);
  const int start = kStep > 0 ? 0 : lanes.piece - 1;
  const int end = lanes.piece - 1 - start;
  for (int n = 1; n < kPieces; ++n) {
    const int lane = kStep > 0 ? n : kPieces - 1 - n;
    const std::int8_t* finished = lanes.shares[0] + lane - kStep;
    int last = finished[end * kPieces], before = finished[(end - kStep) * kPieces];
    if (last == last_guess[lane] && before == before_guess[lane]) continue;
    bool met = last == last_guess[lane];
    int i = start;
    for (int left = lanes.piece; left > 0; --left, i += kStep) {
      if (lane * lanes.piece + i >= lanes.width) break;
      const int value = lanes.values[i * kPieces + lane] + before / 2 + last;
      before = last;
      last = lanes.share_of[value];
      std::int8_t& share = lanes.shares[0][i * kPieces + lane];
      const bool equal = share == last;
      share = static_cast<std::int8_t>(last);
      lanes.white[i * kPieces + lane] = value > 127 ? 255 : 0;
      if (equal && met) break;
      met = equal;
    }
  }
}

// The neighbours of a piece's ends are in the next lane.
void close_borders(const StuckiLanes& lanes) {
  std::int8_t* const shares = lanes.shares[0];
  for (const int behind : {0, 1}) {
    std::int8_t* const right = shares + (lanes.piece + behind) * kPieces;
    std::memcpy(right, shares + behind * kPieces + 1, kPieces - 1);
    right[kPieces - 1] = 0;
  }
  for (const int before : {-1, -2}) {
    std::int8_t* const left = shares + before * kPieces;
    std::memcpy(left + 1, shares + (lanes.piece + before) * kPieces, kPieces - 1);
    left[0] = 0;
  }
}

template <int kStep>
TQ_KERNEL void diffuse_pieces(const StuckiLanes& lanes) {
  const Chain guessed = warm_up<kStep>(lanes);
  run_lanes<kStep>(lanes, guessed);
  mend_seams<kStep>(lanes, guessed);
}

TQ_KERNEL void diffuse_stucki_lanes(const StuckiLanes& lanes, const std::uint8_t* levels,
                                    bool rightward, std::uint8_t* bits) {
  cut_into_lanes(lanes, levels);
  add_rows_above(lanes);
  if (rightward) {
    diffuse_pieces<1>(lanes);
  } else {
    diffuse_pieces<-1>(lanes);
  }
  close_borders(lanes);
  join_lanes(lanes, bits);
}

// 16 colours. A lane of one and a lane of another, or of the same.
template <int kFirst, int kLast>
TQ_SIMD Vector lanes_of(Vector first, Vector last) {
  return joined(lane<kFirst>(first), lane<kLast>(last));
}
template <int kFirst, int kLast>
TQ_SIMD x86::WideChain lanes_of(const x86::WideChain& first, const x86::WideChain& last) {
  x86::WideChain chain;
  chain.place[0] = first.place[kFirst];
  chain.place[1] = last.place[kLast];
  chain.value = lanes_of<kFirst, kLast>(first.value, last.value);
  chain.following = lanes_of<kFirst, kLast>(first.following, last.following);
  TQ_UNROLLED
  for (int k = 0; k < 4; ++k) {
    chain.below[k] = lanes_of<kFirst, kLast>(first.below[k], last.below[k]);
  }
  return chain;
}

// Two rows, a lane each. The lower one loads two pixels ahead, before the upper one stores, which
// gives to these until it is two pixels further: it is five pixels behind, or an even number more.
TQ_KERNEL void diffuse_to_sixteen(const WideRows& rows) {
  constexpr int kLag = 6;
  if (rows.count < 2 || rows.width < kLag) return x86::diffuse_one_by_one(rows);
  x86::WideChain upper = x86::begin_row(rows, 0);
  diffuse_pixels(upper, kLag);
  x86::WideChain both = lanes_of<0, 1>(upper, x86::begin_row(rows, 1));
  for (int x = kLag; x + 2 <= rows.width; x += 2) diffuse_pixels(both, 2);
  upper = lanes_of<0, 0>(both, both);
  diffuse_pixels(upper, rows.width - upper.place[0].x);
  end_row(upper);
  x86::WideChain lower = lanes_of<1, 1>(both, both);
  diffuse_pixels(lower, rows.width - lower.place[0].x);
  end_row(lower);
}

}  // namespace

void add_avx2_kernels(Kernels& kernels) {
  kernels.diffuse_to_sixteen = diffuse_to_sixteen;
  kernels.diffuse_stucki_lanes = diffuse_stucki_lanes;
}

}  // namespace tq::process

#endif
