// Colour diffusion for SSE2.
#pragma once

#include "process/index_finder.h"
#include "process/nearest_colour.h"
#include "process/wide_rows.h"

namespace tq::process::x86 {

void diffuse_to_cells(Rgb* current, Rgb* next, CellColours& cells, std::uint8_t* out,
                      std::int32_t width);
void diffuse_to_sixteen(const WideRows& rows);
void widen_channels(const Rgb* colours, WideColour* out, std::int32_t width);
template <int kStep>
void diffuse_to_tree(const TreeRow& row, IndexFinder& finder);

}  // namespace tq::process::x86
