// The constant look-up tables, and the choice between them and built ones.
#include "formats/jpeg/huffman.h"

#include <iterator>

#include "formats/jpeg/typical_tables.h"

namespace tq::formats {
namespace {

// Index 0 is luminance, 1 chrominance.
constexpr HuffmanSpec kTypicalDc[] = {kDcLuminance, kDcChrominance};
constexpr HuffmanSpec kTypicalAc[] = {kAcLuminance, kAcChrominance};

constexpr DecodeTable constant_table(const HuffmanSpec& spec, HuffmanClass kind) {
  DecodeTable table{};
  build_lookup(spec, kind, table);
  return table;
}

constexpr DecodeTable kDcTables[] = {constant_table(kDcLuminance, HuffmanClass::dc),
                                     constant_table(kDcChrominance, HuffmanClass::dc)};
constexpr DecodeTable kAcTables[] = {constant_table(kAcLuminance, HuffmanClass::ac),
                                     constant_table(kAcChrominance, HuffmanClass::ac)};

}  // namespace

bool codes_fit(const HuffmanSpec& spec) {
  std::uint32_t code = 0;
  for (int length = 1; length <= 16; ++length) {
    code = (code << 1) + spec.counts[static_cast<std::size_t>(length - 1)];
    if (code > 1u << length) return false;
  }
  return true;
}

const DecodeTable& decode_table(const HuffmanSpec& spec, HuffmanClass kind, DecodeTable& own) {
  const auto& typical = kind == HuffmanClass::dc ? kTypicalDc : kTypicalAc;
  const DecodeTable* constant = kind == HuffmanClass::dc ? kDcTables : kAcTables;
  for (std::size_t i = 0; i < std::size(kTypicalDc); ++i) {
    if (spec == typical[i]) return constant[i];
  }
  build_lookup(spec, kind, own);
  return own;
}

}  // namespace tq::formats
