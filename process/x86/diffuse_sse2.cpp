// Rows of colour diffusion with one pixel, or a window of four, in a register.
#include "process/x86/diffuse_sse2.h"

#include "pixels/rows.h"

#if defined(__SSE2__)
#include <emmintrin.h>

namespace tq::process::x86 {
namespace {

__m128i load_pixel(const void* pixel) {
  return _mm_loadu_si32(pixel);
}

// A colour with blue in the low byte, and its cell as CellColours counts them.
Rgb colour_of(std::uint32_t bytes) {
  return {static_cast<std::uint8_t>(bytes), static_cast<std::uint8_t>(bytes >> 8),
          static_cast<std::uint8_t>(bytes >> 16), 0};
}

std::uint32_t cell_of(std::uint32_t bytes) {
  return (bytes >> 3 & 0x1F) | (bytes >> 6 & 0x3E0) | (bytes >> 9 & 0x7C00);
}

// Unsigned bytes divided by a power of two.
template <int kShift>
__m128i shift_bytes(__m128i v) {
  return _mm_and_si128(_mm_srli_epi16(v, kShift), _mm_set1_epi8(0xFF >> kShift));
}

// How far each byte is above and below what was chosen for it; one of the two is 0. Dividing either
// cuts toward zero, and saturation is the clamp.
struct SplitError {
  __m128i above, below;

  template <int kShift>
  __m128i give(__m128i to) const {
    return _mm_subs_epu8(_mm_adds_epu8(to, shift_bytes<kShift>(above)), shift_bytes<kShift>(below));
  }
};

// The shares of x - 2 .. x + 1 on the next row, in four lanes, from an error in all four.
__m128i four_shares(__m128i error) {
  const __m128i quarters = _mm_setr_epi32(0, 0, 0x3F3F3F3F, 0);
  const __m128i eighths = _mm_setr_epi32(0, 0x1F1F1F1F, 0, 0x1F1F1F1F);
  const __m128i sixteenths = _mm_setr_epi32(0x0F0F0F0F, 0, 0, 0);
  return _mm_or_si128(_mm_and_si128(_mm_srli_epi16(error, 2), quarters),
                      _mm_or_si128(_mm_and_si128(_mm_srli_epi16(error, 3), eighths),
                                   _mm_and_si128(_mm_srli_epi16(error, 4), sixteenths)));
}

}  // namespace

void diffuse_to_cells(Rgb* current, Rgb* next, CellColours& cells, std::uint8_t* out,
                      std::int32_t width) {
  const CellColours::Entry* entries = cells.entries();
  __m128i value = load_pixel(current);
  __m128i following = load_pixel(current + 1);
  __m128i window = _mm_loadu_si128(reinterpret_cast<const __m128i*>(next - 2));
  for (std::int32_t x = 0; x < width; ++x) {
    const auto bytes = static_cast<std::uint32_t>(_mm_cvtsi128_si32(value));
    const CellColours::Entry* known = entries + cell_of(bytes);
    // The entry's index is in the byte that colours do not use.
    __m128i chosen = load_pixel(known);
    out[x] = known->index;
    if (CellColours::is_free(*known)) {
      const CellColours::Entry found = cells.fill(colour_of(bytes));
      chosen = load_pixel(&found);
      out[x] = found.index;
    }
    const SplitError error{_mm_subs_epu8(value, chosen), _mm_subs_epu8(chosen, value)};

    value = error.give<2>(following);
    following = error.give<3>(load_pixel(current + x + 2));

    const __m128i above = _mm_shuffle_epi32(error.above, 0);
    const __m128i below = _mm_shuffle_epi32(error.below, 0);
    window = _mm_subs_epu8(_mm_adds_epu8(window, four_shares(above)), four_shares(below));
    const __m128i last = error.give<4>(load_pixel(next + x + 2));
    _mm_storeu_si32(next + x - 2, window);
    window = _mm_or_si128(_mm_srli_si128(window, 4), _mm_slli_si128(last, 12));
  }
  _mm_storeu_si128(reinterpret_cast<__m128i*>(next + width - 2), window);
}

namespace {

// Where the diffusion of one row is.
struct WideChain {
  const WideColour* current;
  WideColour* next;
  std::uint8_t* out;
  std::int32_t x;
  __m128i value, following, below[4];
};

__m128i load_wide(const WideColour* from) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
}

void store_wide(WideColour* to, __m128i value) {
  _mm_storeu_si128(reinterpret_cast<__m128i*>(to), value);
}

WideChain begin_row(const WideRows& rows, int i) {
  const WideColour* current = rows.row[i];
  WideColour* next = rows.row[i + 1];
  return {current,
          next,
          rows.out[i],
          0,
          load_wide(current),
          load_wide(current + 1),
          {load_wide(next - 2), load_wide(next - 1), load_wide(next), load_wide(next + 1)}};
}

void end_row(const WideChain& chain) {
  for (int i = 0; i < 4; ++i) store_wide(chain.next + chain.x - 2 + i, chain.below[i]);
}

// One pixel; returns its index.
__attribute__((always_inline)) inline int diffuse_pixel(WideChain& chain) {
  const __m128i on = _mm_cmpgt_epi32(chain.value, _mm_set1_epi32(180));
  const __m128i over = _mm_cmpgt_epi32(chain.value, _mm_set1_epi32(220));
  const __m128i pairs = _mm_or_si128(over, _mm_shuffle_epi32(over, 0xB1));
  const __m128i full = _mm_or_si128(pairs, _mm_shuffle_epi32(pairs, 0x4E));
  // 0, 128 or 255; what does not depend on `full` comes first, as that is known late.
  const __m128i less_half = _mm_sub_epi32(chain.value, _mm_and_si128(on, _mm_set1_epi32(128)));
  const __m128i more = _mm_and_si128(on, _mm_set1_epi32(127));
  const __m128i error = _mm_sub_epi32(less_half, _mm_and_si128(full, more));
  // The channel that colours do not use is never on.
  const __m128i bits = _mm_or_si128(on, _mm_and_si128(full, _mm_setr_epi32(0, 0, 0, -1)));

  const __m128i quarter = _mm_srai_epi32(error, 2);
  const __m128i eighth = _mm_srai_epi32(error, 3);
  const __m128i sixteenth = _mm_srai_epi32(error, 4);
  const std::int32_t x = chain.x++;
  chain.value = _mm_add_epi32(chain.following, quarter);
  chain.following = _mm_add_epi32(load_wide(chain.current + x + 2), eighth);
  store_wide(chain.next + x - 2, _mm_add_epi32(chain.below[0], sixteenth));
  chain.below[0] = _mm_add_epi32(chain.below[1], eighth);
  chain.below[1] = _mm_add_epi32(chain.below[2], quarter);
  chain.below[2] = _mm_add_epi32(chain.below[3], eighth);
  chain.below[3] = _mm_add_epi32(load_wide(chain.next + x + 2), sixteenth);
  return _mm_movemask_ps(_mm_castsi128_ps(bits));
}

__attribute__((always_inline)) inline void diffuse_pixels(WideChain& chain, std::int32_t count) {
  pixels::pack_nibbles(chain.out + chain.x / 2, count,
                       [&](std::int32_t) { return diffuse_pixel(chain); });
}

}  // namespace

// A pixel waits for the one before it, so two rows are worked on in turn. The lower one loads two
// pixels ahead, and the upper one gives to these until it is two pixels further.
void diffuse_to_sixteen(const WideRows& rows) {
  constexpr std::int32_t kLag = 4;
  if (rows.count < 2 || rows.width < kLag) {
    for (int i = 0; i < rows.count; ++i) {
      WideChain chain = begin_row(rows, i);
      diffuse_pixels(chain, rows.width);
      end_row(chain);
    }
    return;
  }
  WideChain upper = begin_row(rows, 0);
  diffuse_pixels(upper, kLag);
  WideChain lower = begin_row(rows, 1);
  while (upper.x + 2 <= rows.width) {
    diffuse_pixels(upper, 2);
    diffuse_pixels(lower, 2);
  }
  diffuse_pixels(upper, rows.width - upper.x);
  end_row(upper);
  diffuse_pixels(lower, rows.width - lower.x);
  end_row(lower);
}

void widen_channels(const Rgb* colours, WideColour* out, std::int32_t width) {
  const __m128i zero = _mm_setzero_si128();
  for (std::int32_t x = 0; x < width; ++x) {
    const __m128i words = _mm_unpacklo_epi8(load_pixel(colours + x), zero);
    const __m128i turned = _mm_shufflelo_epi16(words, 0xC6);  // red first
    store_wide(out + x, _mm_unpacklo_epi16(turned, zero));
  }
}

namespace {

// Where a run along a row is. Four channels in 16 bits, the last of which nobody looks at.
struct TreeChain {
  std::int32_t x = 0;
  __m128i ahead = _mm_setzero_si128(), behind_sum = ahead, below_sum = ahead;
};

__m128i sixteenth(__m128i v) {  // cut toward zero
  return _mm_srai_epi16(_mm_add_epi16(v, _mm_and_si128(_mm_srai_epi16(v, 15), _mm_set1_epi16(15))),
                        4);
}

__m128i load_channels(const Channels* from) {
  return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(from));
}

void store_channels(Channels* to, __m128i value) {
  _mm_storel_epi64(reinterpret_cast<__m128i*>(to), value);
}

void add_channels(Channels* to, __m128i more) {
  store_channels(to, _mm_add_epi16(load_channels(to), more));
}

// One pixel. It sets, and does not add to, what the next row receives.
template <int kStep>
__attribute__((always_inline)) inline void advance(TreeChain& chain, const TreeRow& row,
                                                   IndexFinder& finder) {
  const __m128i zero = _mm_setzero_si128();
  const std::int32_t x = chain.x;
  const __m128i own = _mm_add_epi16(_mm_unpacklo_epi8(load_pixel(row.colours + x), zero),
                                    load_channels(row.received + x));
  const __m128i bytes = _mm_packus_epi16(_mm_add_epi16(own, chain.ahead), zero);
  const auto colour = static_cast<std::uint32_t>(_mm_cvtsi128_si32(bytes));
  const IndexFinder::Entry* known = finder.entries() + cell_of(colour);
  auto entry = std::bit_cast<std::uint32_t>(*known);
  __m128i chosen = load_pixel(known);
  if (entry == finder.unknown()) {
    entry = std::bit_cast<std::uint32_t>(finder.find_slowly(colour_of(colour)));
    chosen = _mm_cvtsi32_si128(static_cast<int>(entry));
  }
  row.indices[x] = static_cast<std::uint8_t>(entry >> 24);
  const __m128i error =
      _mm_sub_epi16(_mm_unpacklo_epi8(bytes, zero), _mm_unpacklo_epi8(chosen, zero));
  chain.ahead = sixteenth(_mm_sub_epi16(_mm_slli_epi16(error, 3), error));
  const __m128i shares = sixteenth(
      _mm_mullo_epi16(_mm_unpacklo_epi64(error, error), _mm_setr_epi16(5, 5, 5, 5, 3, 3, 3, 3)));
  store_channels(row.below + x - kStep, _mm_add_epi16(chain.behind_sum, _mm_srli_si128(shares, 8)));
  chain.behind_sum = _mm_add_epi16(chain.below_sum, shares);
  chain.below_sum = sixteenth(error);
  chain.x = x + kStep;
}

template <int kStep>
void advance_by(std::int32_t count, TreeChain& chain, const TreeRow& row, IndexFinder& finder) {
  for (; count > 0; --count) advance<kStep>(chain, row, finder);
}

}  // namespace

// A pixel waits for the one before it, so the row is cut into pieces that are worked on in turn.
// Each first runs over the last pixels before it: errors shrink, and almost always it then begins
// with what the piece before really leaves. Where not, it is done again.
template <int kStep>
void diffuse_to_tree(const TreeRow& row, IndexFinder& finder) {
  constexpr int kPieces = 3;
  constexpr std::int32_t kWarmUp = 32, kNarrowest = 16 * kWarmUp;
  const auto at = [&](std::int32_t n) { return kStep > 0 ? n : row.width - 1 - n; };
  const std::int32_t piece = row.width / kPieces;
  TreeChain chain{at(0)};
  if (row.width < kNarrowest) {
    advance_by<kStep>(row.width, chain, row, finder);
    return store_channels(row.below + chain.x - kStep, chain.behind_sum);
  }

  TreeChain chains[kPieces];
  __m128i guessed[kPieces];
  for (int i = 0; i < kPieces; ++i) chains[i].x = at(i * piece - (i == 0 ? 0 : kWarmUp));
  for (std::int32_t n = 0; n < kWarmUp; ++n) {
    for (int i = 1; i < kPieces; ++i) advance<kStep>(chains[i], row, finder);
  }
  for (int i = 0; i < kPieces; ++i) {
    guessed[i] = chains[i].ahead;
    chains[i].behind_sum = chains[i].below_sum = _mm_setzero_si128();
  }
  for (std::int32_t n = 0; n < piece; ++n) {
#pragma GCC unroll 4
    for (int i = 0; i < kPieces; ++i) advance<kStep>(chains[i], row, finder);
  }
  for (int i = 1; i < kPieces; ++i) {
    const TreeChain& before = chains[i - 1];
    const std::int32_t first = before.x;
    if ((_mm_movemask_epi8(_mm_cmpeq_epi16(before.ahead, guessed[i])) & 0x3F) == 0x3F) {
      add_channels(row.below + first - kStep, before.behind_sum);
      add_channels(row.below + first, before.below_sum);
    } else {
      chains[i] = before;
      advance_by<kStep>(piece, chains[i], row, finder);
    }
  }
  chain = chains[kPieces - 1];
  advance_by<kStep>(row.width - kPieces * piece, chain, row, finder);
  store_channels(row.below + chain.x - kStep, chain.behind_sum);
}

template void diffuse_to_tree<1>(const TreeRow&, IndexFinder&);
template void diffuse_to_tree<-1>(const TreeRow&, IndexFinder&);

}  // namespace tq::process::x86

#endif
