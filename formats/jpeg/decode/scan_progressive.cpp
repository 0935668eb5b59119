// Scans of progressive frames (ITU-T T.81 Annex G).
#include <algorithm>
#include <bit>
#include <cstring>

#include "formats/jpeg/decode/scan.h"

namespace tq::jpeg {
namespace {

constexpr std::int16_t shifted(std::int32_t value, int low) {
  return word(value << low);
}

constexpr std::uint64_t place_bit(int k) {
  return std::uint64_t{1} << k;
}

// The places of an AC scan: its spectral band.
constexpr std::uint64_t band_of(const Scan& scan) {
  return place_bit(scan.last) * 2 - place_bit(scan.first);
}

// DC scans, first and refining.
void store_dc_scan(ScanReader& reader, CoefficientStore& store) {
  const Scan& scan = reader.scan();
  const auto block = [&](BitReader& bits, int i, const StoredRow& row, int x) {
    if (scan.high != 0) {
      row.dc[x] = word(row.dc[x] | bits.take(1) << scan.low);
      return reader.source().intact(bits);
    }
    std::int32_t& predictor = reader.predictor(i);
    if (!decode_dc(bits, reader.dc(i), predictor) || !reader.source().intact(bits)) return false;
    row.dc[x] = shifted(predictor, scan.low);
    return true;
  };
  const auto keep = [&](int i, const StoredRow& row, int x) {
    if (scan.high == 0) row.dc[x] = shifted(reader.predictor(i), scan.low);
  };
  store_blocks(reader, store, block, keep);
}

// What comes next in an AC scan: a coefficient behind a run of zeros, a run of 16 zeros, or the end
// of the band for some blocks.
struct BandSymbol {
  bool valid = true;
  int run = 0;
  std::int32_t value = 0;          // 0: a run only
  std::uint32_t ended_blocks = 0;  // this one included
};

[[gnu::always_inline]] inline BandSymbol next_symbol(BitReader& r, const DecodeTable& table) {
  r.refill();
  const LookupEntry entry = table.lookup[r.peek(kLookupBits)];
  if ((entry & kNoValue) == 0) [[likely]] {
    return {.run = byte(entry >> 8), .value = r.value(entry).value};
  }
  const Symbol symbol = r.symbol(table, entry);
  if (symbol.length == 0) return {.valid = false};
  const int run = symbol.value >> 4;
  const int size = symbol.value & 15;
  if (size != 0) {
    return {.run = run, .value = extend(r.take(size), size)};
  }
  if (run == 15) return {.run = 15};
  return {.ended_blocks = (1u << run) + r.take(run)};
}

// The store is larger than the caches, and what will be touched of it is hard to guess.
constexpr int kBlocksAhead = 6;
inline void prefetch(const std::int16_t* block) {
  __builtin_prefetch(block);
  __builtin_prefetch(block + kBlock / 2);
}

// A block of an AC scan that is being decoded.
struct BandBlock {
  std::int16_t* coefficients;
  std::uint64_t present;

  void set(int k, std::int16_t value) {
    if (present == 0) std::memset(coefficients, 0, kBlock * sizeof(*coefficients));
    coefficients[kColumnOrder[k]] = value;
    present |= place_bit(k);
    // Only in damaged data.
    if (value == 0) [[unlikely]]
      present ^= place_bit(k);
  }
};

bool decode_first_block(BitReader& r, const DecodeTable& table, const Scan& scan, int block_end,
                        BandBlock& block, std::uint32_t& ended) {
  for (int k = scan.first; k <= scan.last; ++k) {
    const BandSymbol symbol = next_symbol(r, table);
    if (symbol.value != 0) [[likely]] {
      k += symbol.run;
      if (k <= scan.last) {
        block.set(k, shifted(symbol.value, scan.low));
      } else if (k >= block_end) {
        return false;
      }
      continue;
    }
    if (!symbol.valid) return false;
    if (symbol.ended_blocks != 0) {
      ended = symbol.ended_blocks - 1;
      break;
    }
    k += symbol.run;
  }
  return true;
}

// One more bit for a coefficient that is not 0.
[[gnu::always_inline]] inline void correct(BitReader& r, std::int16_t& coefficient, int low) {
  const int sign = coefficient >> 15;
  const int magnitude = (coefficient ^ sign) - sign;
  r.need(1);
  // A bit that is already there is not added again.
  const int bit = r.peek(1) & ~(magnitude >> low);
  r.skip(1);
  coefficient = word(coefficient + (((bit << low) ^ sign) - sign));
}

bool refine_block(BitReader& r, const DecodeTable& table, const Scan& scan, BandBlock& block,
                  std::uint32_t& ended) {
  // The places from `k` on that are not 0 and have not been corrected.
  std::uint64_t known = block.present & band_of(scan);
  const auto next_known = [&] { return std::countr_zero(known); };
  const auto correct_next = [&] {
    correct(r, block.coefficients[kColumnOrder[next_known()]], scan.low);
    known &= known - 1;
  };
  for (int k = scan.first; ended == 0 && k <= scan.last; ++k) {
    const BandSymbol symbol = next_symbol(r, table);
    if (!symbol.valid) return false;
    ended = symbol.ended_blocks;
    if (ended != 0) break;
    // The run counts places that are 0, those in between are corrected in passing.
    for (k += symbol.run; known != 0 && next_known() <= k; ++k) correct_next();
    if (symbol.value != 0 && k <= scan.last) {
      block.set(k, shifted(symbol.value < 0 ? -1 : 1, scan.low));
    }
  }
  if (ended != 0) {
    while (known != 0) correct_next();
    --ended;
  }
  return true;
}

// The next `count` blocks of a row, from `x` on, with no restart marker between them.
bool store_band(ScanReader& reader, const StoredRow& row, int x, int count) {
  const Scan& scan = reader.scan();
  const DecodeTable& table = reader.ac(0);
  EntropySource& source = reader.source();
  const bool refining = scan.high != 0;
  const std::uint64_t band = band_of(scan);
  const int end = x + count, block_end = reader.block_end();
  BitReader bits = reader.bits();
  std::uint32_t ended = reader.end_of_band_run();
  bool stored = true;
  for (; x < end && stored; ++x) {
    if (ended != 0 && !refining) {
      // Nothing is coded for these blocks.
      const std::uint32_t skipped = std::min<std::uint32_t>(ended, end - x);
      ended -= skipped;
      x += skipped - 1;
      continue;
    }
    if (ended != 0 && (row.present[x] & band) == 0) {
      --ended;  // nothing to correct
      continue;
    }
    stored = source.prepare(bits);
    if (!stored) break;
    if (x + kBlocksAhead < end) prefetch(row.block(x + kBlocksAhead));
    BandBlock block{row.block(x), row.present[x]};
    const bool valid = refining ? refine_block(bits, table, scan, block, ended)
                                : decode_first_block(bits, table, scan, block_end, block, ended);
    row.present[x] = block.present;
    stored = valid && source.intact(bits);
  }
  reader.bits() = bits;
  reader.end_of_band_run() = ended;
  return stored;
}

void store_ac_scan(ScanReader& reader, CoefficientStore& store) {
  const int component = reader.scan().components[0].index;
  for (int y = 0; y < reader.rows(); ++y) {
    const StoredRow row = store.row(component, y);
    for (int x = 0; x < reader.columns();) {
      const int count = reader.start_mcus(reader.columns() - x);
      if (count == 0) return;
      const bool stored = reader.broken() || store_band(reader, row, x, count);
      if (!stored && !reader.give_up_interval()) return;
      x += count;
    }
    if (!reader.end_row(std::int64_t{kBlock} * reader.columns())) return;
  }
}

}  // namespace

void store_progressive_scan(ScanReader& reader, CoefficientStore& store) {
  if (reader.scan().first == 0) {
    store_dc_scan(reader, store);
  } else {
    store_ac_scan(reader, store);
  }
}

}  // namespace tq::jpeg
