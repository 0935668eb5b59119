// Burkes diffusion to the 16 colours in registers of any width: compiled by kernels_ssse3.cpp and
// kernels_avx2.cpp, each behind the words of its instruction set.
#pragma once

#include "process/colour/kernels.h"

namespace tq::process::x86 {
namespace {

using namespace simd;

struct WidePlace {
  const WideColour* current;
  WideColour* next;
  std::uint8_t* out;
  int x;
};

// Where the diffusion is: of a row in each lane, or of one in all.
struct WideChain {
  WidePlace place[kLanes];
  Vector value, following, below[4];
};

// In all lanes the same.
TQ_SIMD WideChain begin_row(const WideRows& rows, int i) {
  const WideColour* const current = rows.row[i];
  WideColour* const next = rows.row[i + 1];
  WideChain chain{};
  for (WidePlace& place : chain.place) place = {current, next, rows.out[i], 0};
  chain.value = load_repeated(current);
  chain.following = load_repeated(current + 1);
  for (int k = 0; k < 4; ++k) chain.below[k] = load_repeated(next - 2 + k);
  return chain;
}

TQ_SIMD void end_row(const WideChain& chain) {
  const WidePlace& place = chain.place[0];
  for (int k = 0; k < 4; ++k) store_lane<0>(place.next + place.x - 2 + k, chain.below[k]);
}

// One pixel of every lane; returns four bits of each, its index.
TQ_SIMD std::uint32_t diffuse_pixel(WideChain& chain) {
  alignas(16) static constexpr std::uint32_t kUnused[4] = {0, 0, 0, 0xFFFFFFFF};
  const Vector on = greater32(chain.value, all32(180));
  const Vector over = greater32(chain.value, all32(220));
  const Vector pairs = over | shuffle32<0xB1>(over);
  const Vector full = pairs | shuffle32<0x4E>(pairs);
  // 0, 128 or 255; what does not depend on `full` comes first, as that is known late.
  const Vector less_half = subtract32(chain.value, on & all32(128));
  const Vector more = on & all32(127);
  const Vector error = subtract32(less_half, full & more);
  // The channel that colours do not use is never on.
  const Vector bits = on | (full & load_repeated(kUnused));

  const Vector quarter = shift_right32<2>(error);
  const Vector eighth = shift_right32<3>(error);
  const Vector sixteenth = shift_right32<4>(error);
  WidePlace& first = chain.place[0];
  WidePlace& last = chain.place[kLanes - 1];
  WideColour* const first_below = first.next + first.x;
  WideColour* const last_below = last.next + last.x;
  chain.value = add32(chain.following, quarter);
  chain.following =
      add32(load_lanes(first.current + first.x + 2, last.current + last.x + 2), eighth);
  const Vector finished = add32(chain.below[0], sixteenth);
  store_lane<0>(first_below - 2, finished);
  if constexpr (kLanes > 1) store_lane<kLanes - 1>(last_below - 2, finished);
  chain.below[0] = add32(chain.below[1], eighth);
  chain.below[1] = add32(chain.below[2], quarter);
  chain.below[2] = add32(chain.below[3], eighth);
  chain.below[3] = add32(load_lanes(first_below + 2, last_below + 2), sixteenth);
  for (WidePlace& place : chain.place) ++place.x;
  return top_bits32(bits);
}

TQ_SIMD void diffuse_pixels(WideChain& chain, int count) {
  for (; count > 0; count -= 2) {
    std::uint8_t* out[kLanes];
    for (int i = 0; i < kLanes; ++i) out[i] = chain.place[i].out + chain.place[i].x / 2;
    const std::uint32_t left = diffuse_pixel(chain);
    const std::uint32_t right = count > 1 ? diffuse_pixel(chain) : 0;
    for (int i = 0; i < kLanes; ++i) {
      *out[i] = byte((left >> (4 * i) & 15) << 4 | (right >> (4 * i) & 15));
    }
  }
}

// Where lanes cannot be filled.
TQ_SIMD void diffuse_one_by_one(const WideRows& rows) {
  for (int i = 0; i < rows.count; ++i) {
    WideChain chain = begin_row(rows, i);
    diffuse_pixels(chain, rows.width);
    end_row(chain);
  }
}

}  // namespace
}  // namespace tq::process::x86
