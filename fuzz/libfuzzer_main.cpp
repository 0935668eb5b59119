// What libFuzzer calls.
#include "fuzz/fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  tq::fuzz::fuzz({data, size});
  return 0;
}
