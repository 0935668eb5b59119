// Scans of progressive frames (ITU-T T.81 Annex G).
#include <algorithm>

#include "formats/jpeg/block_decode.h"
#include "formats/jpeg/scan.h"

namespace tq::formats {
namespace {

constexpr std::int16_t shifted(std::int32_t value, int low) {
  return static_cast<std::int16_t>(static_cast<std::uint32_t>(value) << low);
}

// DC scans, first and refining.
bool decode_dc_block(ScanReader& reader, int i, std::int16_t* block) {
  if (!reader.start_block()) return false;
  const Scan& scan = reader.scan();
  if (scan.high != 0) {
    if (reader.bits().take(1) != 0) block[0] = static_cast<std::int16_t>(block[0] | 1 << scan.low);
    return reader.intact();
  }
  std::int32_t difference = 0;
  if (!decode_dc(reader.bits(), reader.dc(i), difference) || !reader.intact()) return false;
  std::int32_t& predictor = reader.predictor(i);
  predictor = static_cast<std::int32_t>(static_cast<std::uint32_t>(predictor) +
                                        static_cast<std::uint32_t>(difference));
  block[0] = shifted(predictor, scan.low);
  return true;
}

void store_dc_scan(ScanReader& reader, CoefficientStore& store) {
  const bool together = reader.interleaved();
  for (int mcu_row = 0; mcu_row < reader.rows(); ++mcu_row) {
    for (int mcu = 0; mcu < reader.columns(); ++mcu) {
      if (!reader.start_mcu()) return;
      for (int i = 0; i < reader.scan().count; ++i) {
        const int component = reader.scan().components[i].index;
        const int h = together ? reader.grid(i).h : 1, v = together ? reader.grid(i).v : 1;
        for (int y = 0; y < v; ++y) {
          std::int16_t* const row = store.row(component, mcu_row * v + y);
          for (int x = 0; x < h; ++x) {
            if (!decode_dc_block(reader, i, row + std::ptrdiff_t{kBlock} * (mcu * h + x))) return;
          }
        }
      }
    }
  }
}

// What comes next in an AC scan: a coefficient behind a run of zeros, a run of 16 zeros, or the end
// of the band for some blocks.
struct BandSymbol {
  bool valid = true;
  int run = 0;
  std::int32_t value = 0;          // 0: a run only
  std::uint32_t ended_blocks = 0;  // this one included
};

BandSymbol next_symbol(BitReader& r, const DecodeTable& table) {
  r.need(kMostWhole);
  const LookupEntry entry = table.lookup[r.peek(kLookupBits)];
  if ((entry & kNoValue) == 0) {
    return {.run = static_cast<int>(entry >> 8 & 0xFF), .value = r.value(entry).value};
  }
  const Symbol symbol = r.symbol(table, entry);
  if (symbol.length == 0) return {.valid = false};
  const int run = symbol.value >> 4;
  const int size = symbol.value & 15;
  if (size != 0) {
    return {.run = run, .value = extend(static_cast<std::int32_t>(r.take(size)), size)};
  }
  if (run == 15) return {.run = 15};
  return {.ended_blocks = (1u << run) + r.take(run)};
}

bool decode_first_block(ScanReader& reader, std::int16_t* block) {
  const Scan& scan = reader.scan();
  BitReader r = reader.bits();
  bool valid = true;
  for (int k = scan.first; k <= scan.last; ++k) {
    const BandSymbol symbol = next_symbol(r, reader.ac(0));
    if (!symbol.valid) {
      valid = false;
      break;
    }
    if (symbol.ended_blocks != 0) {
      reader.end_of_band_run() = symbol.ended_blocks - 1;
      break;
    }
    k += symbol.run;
    if (symbol.value != 0 && k <= scan.last) {
      block[kColumnOrder[k]] = shifted(symbol.value, scan.low);
    }
  }
  reader.bits() = r;
  return valid && reader.intact();
}

// Refines what is not 0 from place `k` on, until `zeros` places that are 0 have been passed.
// Returns the place of the next such one, or the end of the band.
int refine_until(BitReader& r, const Scan& scan, std::int16_t* block, int k, int zeros) {
  const int bit = 1 << scan.low;
  for (; k <= scan.last; ++k) {
    std::int16_t& coefficient = block[kColumnOrder[k]];
    if (coefficient == 0) {
      if (zeros-- == 0) break;
      continue;
    }
    if (r.take(1) == 0) continue;
    const int amount = coefficient < 0 ? -coefficient : coefficient;
    if ((amount & bit) != 0) continue;
    coefficient = static_cast<std::int16_t>(coefficient + (coefficient < 0 ? -bit : bit));
  }
  return k;
}

bool refine_block(ScanReader& reader, std::int16_t* block) {
  const Scan& scan = reader.scan();
  std::uint32_t& ended = reader.end_of_band_run();
  BitReader r = reader.bits();
  int k = scan.first;
  bool valid = true;
  for (; ended == 0 && k <= scan.last; ++k) {
    const BandSymbol symbol = next_symbol(r, reader.ac(0));
    if (!symbol.valid) {
      valid = false;
      break;
    }
    ended = symbol.ended_blocks;
    if (ended != 0) break;
    k = refine_until(r, scan, block, k, symbol.run);
    if (symbol.value != 0 && k <= scan.last) {
      block[kColumnOrder[k]] = shifted(symbol.value < 0 ? -1 : 1, scan.low);
    }
  }
  if (valid && ended != 0) {
    refine_until(r, scan, block, k, kBlock);
    --ended;
  }
  reader.bits() = r;
  return valid && reader.intact();
}

void store_ac_scan(ScanReader& reader, CoefficientStore& store) {
  const bool refining = reader.scan().high != 0;
  const int component = reader.scan().components[0].index;
  std::uint32_t& ended = reader.end_of_band_run();
  for (int y = 0; y < reader.rows(); ++y) {
    std::int16_t* const row = store.row(component, y);
    for (int x = 0; x < reader.columns(); ++x) {
      if (!reader.start_mcu()) return;
      if (ended != 0 && !refining) {
        // Nothing is coded for these blocks.
        const std::int64_t here =
            std::min<std::int64_t>(reader.columns() - x - 1, reader.until_restart());
        const std::int64_t more = std::min<std::int64_t>(ended - 1, here);
        reader.skip_mcus(more);
        ended -= static_cast<std::uint32_t>(more) + 1;
        x += static_cast<int>(more);
        continue;
      }
      if (!reader.start_block()) return;
      std::int16_t* const block = row + std::ptrdiff_t{kBlock} * x;
      if (!(refining ? refine_block(reader, block) : decode_first_block(reader, block))) return;
    }
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

}  // namespace tq::formats
