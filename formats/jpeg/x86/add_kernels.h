// The kernels that have a variant in registers of any width.
#pragma once

#include "formats/jpeg/kernels.h"
#include "formats/jpeg/x86/forward_kernel.h"
#include "formats/jpeg/x86/inverse_kernel.h"
#include "formats/jpeg/x86/pixels_kernel.h"
#include "formats/jpeg/x86/samples_kernel.h"

namespace tq::formats::x86 {
namespace {

inline void add_kernels(JpegKernels& kernels) {
  kernels.inverse_small_pair = inverse_pair;
  kernels.magnitude = magnitude;
  kernels.ycc_to_bgr = ycc_to_bgr;
  kernels.ycc_to_bgr_halved = ycc_to_bgr_halved;
  kernels.forward = forward_blocks;
  kernels.bgr_to_luma = bgr_to_luma;
  kernels.bgr_to_ycc = bgr_to_ycc;
  kernels.grey_to_luma = grey_to_luma;
}

}  // namespace
}  // namespace tq::formats::x86
