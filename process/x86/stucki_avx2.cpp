// Stucki diffusion in 16 lanes. The row is cut into 16 pieces that are diffused at the same time,
// although each begins with what the piece before it leaves: every lane first runs over the last
// pixels of that piece. Errors shrink from pixel to pixel and are cut to integers, so it almost
// always arrives in the right state; where the states at a seam differ, the piece is done again
// from its start until it meets what is there already. The result is exact in any case.
#include "process/x86/stucki_lanes.h"

#if defined(__i386__) || defined(__x86_64__)
#include <immintrin.h>

#define TQ_AVX2 __attribute__((target("avx2")))

namespace tq::process::x86 {
namespace {

constexpr int kLanes = StuckiLanes::kLanes;
constexpr std::int32_t kWarmUp = 48;  // pixels

TQ_AVX2 __m128i load_bytes(const void* from) {
  return _mm_loadu_si128(static_cast<const __m128i*>(from));
}

TQ_AVX2 __m256i load_words(const void* from) {
  return _mm256_loadu_si256(static_cast<const __m256i*>(from));
}

TQ_AVX2 __m256i widen(const std::int8_t* shares) {
  return _mm256_cvtepi8_epi16(load_bytes(shares));
}

// Cut toward zero.
TQ_AVX2 __m256i half(__m256i v) {
  return _mm256_srai_epi16(_mm256_add_epi16(v, _mm256_srli_epi16(v, 15)), 1);
}

TQ_AVX2 __attribute__((always_inline)) inline void shuffle_rows(const __m128i (&from)[16],
                                                                __m128i (&to)[16]) {
#pragma GCC unroll 8
  for (int i = 0; i < 8; ++i) {
    to[2 * i] = _mm_unpacklo_epi8(from[i], from[i + 8]);
    to[2 * i + 1] = _mm_unpackhi_epi8(from[i], from[i + 8]);
  }
}

// Rows of 16 bytes become columns, by four perfect shuffles.
TQ_AVX2 __attribute__((always_inline)) inline void transpose(__m128i (&rows)[16]) {
  __m128i mixed[16];
  shuffle_rows(rows, mixed);
  shuffle_rows(mixed, rows);
  shuffle_rows(rows, mixed);
  shuffle_rows(mixed, rows);
}

TQ_AVX2 void cut_into_lanes(const StuckiLanes& lanes, const std::uint8_t* levels) {
  for (std::int32_t i = 0; i < lanes.piece; i += 16) {
    __m128i block[16];
#pragma GCC unroll 16
    for (int lane = 0; lane < kLanes; ++lane) {
      block[lane] = load_bytes(levels + lane * lanes.piece + i);
    }
    transpose(block);
#pragma GCC unroll 16
    for (int k = 0; k < 16; ++k) {
      _mm_storeu_si128(reinterpret_cast<__m128i*>(lanes.levels + (i + k) * kLanes), block[k]);
    }
  }
}

TQ_AVX2 void join_lanes(const StuckiLanes& lanes, std::uint8_t* bits) {
  // The leftmost pixel is the top bit, but the lowest of the mask.
  const __m128i turned = _mm_setr_epi8(7, 6, 5, 4, 3, 2, 1, 0, 15, 14, 13, 12, 11, 10, 9, 8);
  for (std::int32_t i = 0; i < lanes.piece; i += 16) {
    __m128i block[16];
#pragma GCC unroll 16
    for (int k = 0; k < 16; ++k) block[k] = load_bytes(lanes.white + (i + k) * kLanes);
    transpose(block);
#pragma GCC unroll 16
    for (int lane = 0; lane < kLanes; ++lane) {
      const int mask = _mm_movemask_epi8(_mm_shuffle_epi8(block[lane], turned));
      std::uint8_t* out = bits + (lane * lanes.piece + i) / 8;
      out[0] = static_cast<std::uint8_t>(mask);
      out[1] = static_cast<std::uint8_t>(mask >> 8);
    }
  }
}

// Which lanes are still within the row at a position of their piece.
struct Inside {
  __m256i next, last;
};

TQ_AVX2 Inside inside_from(const StuckiLanes& lanes, std::int32_t position) {
  std::int16_t first[kLanes];
  for (int lane = 0; lane < kLanes; ++lane) {
    first[lane] = static_cast<std::int16_t>(lane * lanes.piece + position);
  }
  return {load_words(first), _mm256_set1_epi16(static_cast<std::int16_t>(lanes.width))};
}

// Grey levels plus the shares from the two rows above.
TQ_AVX2 void add_rows_above(const StuckiLanes& lanes) {
  const std::int8_t* above = lanes.shares[1];
  const std::int8_t* second = lanes.shares[2];
  // Shares of weight 8, 4, 2 and 1 at the positions around the present one; the number is the
  // distance + 2.
  __m256i eights[5], fours[5], twos[5], ones[5], second_fours[5], second_twos[5];
  const auto enter = [&](int slot, std::int32_t position) TQ_AVX2 {
    eights[slot] = widen(above + position * kLanes);
    fours[slot] = half(eights[slot]);
    twos[slot] = half(fours[slot]);
    second_fours[slot] = half(widen(second + position * kLanes));
    second_twos[slot] = half(second_fours[slot]);
    ones[slot] = half(second_twos[slot]);
  };
  for (int slot = 0; slot < 4; ++slot) enter(slot, slot - 2);
  Inside inside = inside_from(lanes, 0);
  for (std::int32_t i = 0; i < lanes.piece; ++i) {
    enter(4, i + 2);
    const __m256i from_above =
        _mm256_add_epi16(_mm256_add_epi16(_mm256_add_epi16(twos[0], twos[4]), eights[2]),
                         _mm256_add_epi16(fours[1], fours[3]));
    const __m256i from_second =
        _mm256_add_epi16(_mm256_add_epi16(_mm256_add_epi16(ones[0], ones[4]), second_fours[2]),
                         _mm256_add_epi16(second_twos[1], second_twos[3]));
    const __m256i level = _mm256_cvtepu8_epi16(load_bytes(lanes.levels + i * kLanes));
    const __m256i value = _mm256_add_epi16(level, _mm256_add_epi16(from_above, from_second));
    const __m256i within = _mm256_cmpgt_epi16(inside.last, inside.next);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(lanes.values + i * kLanes),
                        _mm256_and_si256(value, within));
    inside.next = _mm256_add_epi16(inside.next, _mm256_set1_epi16(1));
#pragma GCC unroll 4
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
  __m256i last, before;
};

// One pixel per lane; returns which are white.
TQ_AVX2 __m256i advance(Chain& chain, __m256i values) {
  const __m256i value = _mm256_add_epi16(_mm256_add_epi16(values, half(chain.before)), chain.last);
  const __m256i white = _mm256_cmpgt_epi16(value, _mm256_set1_epi16(127));
  const __m256i error = _mm256_sub_epi16(value, _mm256_and_si256(white, _mm256_set1_epi16(255)));
  // 12484 of 2^16 is 4 of 21, exact for every error.
  const __m256i share = _mm256_mulhi_epu16(_mm256_abs_epi16(error), _mm256_set1_epi16(12484));
  chain.before = chain.last;
  chain.last = _mm256_sign_epi16(share, error);
  return white;
}

// Every lane over the end of the piece that comes before its own.
template <int kStep>
TQ_AVX2 Chain warm_up(const StuckiLanes& lanes) {
  Chain chain{_mm256_setzero_si256(), _mm256_setzero_si256()};
  const std::int32_t count = kWarmUp < lanes.piece ? kWarmUp : lanes.piece;
  std::int16_t real[kLanes];  // the first lane has no piece before it: values of 0 keep it at 0
  for (int lane = 0; lane < kLanes; ++lane) {
    real[lane] = static_cast<std::int16_t>(lane == (kStep > 0 ? 0 : kLanes - 1) ? 0 : -1);
  }
  const __m256i has_piece = load_words(real);
  std::int32_t i = kStep > 0 ? lanes.piece - count : count - 1;
  for (std::int32_t left = count; left > 0; --left, i += kStep) {
    const __m256i values = load_words(lanes.values + i * kLanes - kStep);
    (void)advance(chain, _mm256_and_si256(values, has_piece));
  }
  return chain;
}

template <int kStep>
TQ_AVX2 void run_lanes(const StuckiLanes& lanes, Chain chain) {
  std::int32_t i = kStep > 0 ? 0 : lanes.piece - 1;
  Inside inside = inside_from(lanes, i);
  for (std::int32_t left = lanes.piece; left > 0; --left, i += kStep) {
    const __m256i white = advance(chain, load_words(lanes.values + i * kLanes));
    chain.last = _mm256_and_si256(chain.last, _mm256_cmpgt_epi16(inside.last, inside.next));
    inside.next = _mm256_add_epi16(inside.next, _mm256_set1_epi16(kStep));
    const __m256i both = _mm256_permute4x64_epi64(_mm256_packs_epi16(chain.last, white), 0xD8);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(lanes.shares[0] + i * kLanes),
                     _mm256_castsi256_si128(both));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(lanes.white + i * kLanes),
                     _mm256_extracti128_si256(both, 1));
  }
}

// Does the pieces again whose lane began in a wrong state.
template <int kStep>
TQ_AVX2 void mend_seams(const StuckiLanes& lanes, const Chain& guessed) {
  std::int16_t last_guess[kLanes], before_guess[kLanes];
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(last_guess), guessed.last);
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(before_guess), guessed.before);
  const std::int32_t start = kStep > 0 ? 0 : lanes.piece - 1;
  const std::int32_t end = lanes.piece - 1 - start;
  for (int n = 1; n < kLanes; ++n) {
    const int lane = kStep > 0 ? n : kLanes - 1 - n;
    const std::int8_t* finished = lanes.shares[0] + lane - kStep;
    int last = finished[end * kLanes], before = finished[(end - kStep) * kLanes];
    if (last == last_guess[lane] && before == before_guess[lane]) continue;
    bool met = last == last_guess[lane];
    std::int32_t i = start;
    for (std::int32_t left = lanes.piece; left > 0; --left, i += kStep) {
      if (lane * lanes.piece + i >= lanes.width) break;
      const int value = lanes.values[i * kLanes + lane] + before / 2 + last;
      before = last;
      last = lanes.share_of[value];
      std::int8_t& share = lanes.shares[0][i * kLanes + lane];
      const bool equal = share == last;
      share = static_cast<std::int8_t>(last);
      lanes.white[i * kLanes + lane] = value > 127 ? 255 : 0;
      if (equal && met) break;
      met = equal;
    }
  }
}

// The neighbours of a piece's ends are in the next lane.
TQ_AVX2 void close_borders(const StuckiLanes& lanes) {
  std::int8_t* shares = lanes.shares[0];
  const auto move = [&](std::int32_t to, std::int32_t from, bool up) TQ_AVX2 {
    const __m128i whole = load_bytes(shares + from * kLanes);
    const __m128i moved = up ? _mm_slli_si128(whole, 1) : _mm_srli_si128(whole, 1);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(shares + to * kLanes), moved);
  };
  move(-1, lanes.piece - 1, true);
  move(-2, lanes.piece - 2, true);
  move(lanes.piece, 0, false);
  move(lanes.piece + 1, 1, false);
}

template <int kStep>
TQ_AVX2 void diffuse(const StuckiLanes& lanes) {
  add_rows_above(lanes);
  const Chain guessed = warm_up<kStep>(lanes);
  run_lanes<kStep>(lanes, guessed);
  mend_seams<kStep>(lanes, guessed);
  close_borders(lanes);
}

}  // namespace

TQ_AVX2 void diffuse_stucki_lanes(const StuckiLanes& lanes, const std::uint8_t* levels,
                                  bool rightward, std::uint8_t* bits) {
  cut_into_lanes(lanes, levels);
  if (rightward) {
    diffuse<1>(lanes);
  } else {
    diffuse<-1>(lanes);
  }
  join_lanes(lanes, bits);
}

}  // namespace tq::process::x86

#endif
