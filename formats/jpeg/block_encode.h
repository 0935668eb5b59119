// Huffman codes of quantised blocks.
#pragma once

#include <cstdint>

#include "formats/jpeg/bit_writer.h"
#include "formats/jpeg/quantise.h"

namespace tq::formats {

struct BlockCodes;
extern const BlockCodes kLuminanceCodes, kChrominanceCodes;  // the typical ones

// `predictor` is the DC value of the component's last block.
void code_block(const QuantisedBlock& block, const BlockCodes& codes, std::int32_t& predictor,
                BitSink& sink);

}  // namespace tq::formats
