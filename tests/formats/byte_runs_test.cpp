// Codings of runs against models that go byte by byte, in blocks that end with what may be touched.
#include "coding/byte_runs.h"

#include <gtest/gtest.h>

#include "core/numbers.h"
#include "tests/support/guarded_block.h"
#include "tests/support/image_builder.h"

namespace tq::coding {
namespace {

using test::Bytes;
using test::GuardedBlock;

bool is_mark(int value) {
  return value >= 0xC0;
}

RunProgress expand_model(const Bytes& from, std::ptrdiff_t full, Bytes& out) {
  std::size_t at = 0;
  while (std::ssize(out) < full && at < from.size()) {
    const bool run = is_mark(from[at]);
    if (run && at + 1 == from.size()) break;
    out.insert(out.end(), run ? from[at] & 63u : 1u, from[at + run]);
    at += 1 + run;
  }
  return {static_cast<std::ptrdiff_t>(at), std::ssize(out)};
}

Bytes code_model(const Bytes& from) {
  Bytes out;
  for (std::size_t at = 0; at < from.size();) {
    std::size_t length = 1;
    while (length < 63 && at + length < from.size() && from[at + length] == from[at]) ++length;
    if (length > 1 || is_mark(from[at])) out.push_back(byte(0xC0 + length));
    out.push_back(from[at]);
    at += length;
  }
  return out;
}

// Noise, equal neighbours of several shares, and values that are marks of short runs or none.
Bytes data(test::Random& random, int count, int kind) {
  Bytes bytes(static_cast<std::size_t>(count));
  std::uint8_t value = 0;
  for (auto& one : bytes) {
    const int repeats = kind % 4 * 33;  // in a hundred
    if (!random.chance(repeats)) value = byte(random.between(0, 255));
    if (kind >= 4 && random.chance(50)) value = byte(0xC0 + value % 4);
    one = value;
  }
  return bytes;
}

TEST(ByteRuns, AllKernelsAgreeWithTheModels) {
  test::Random random(3);
  for (int i = 0; i < 6000; ++i) {
    const Bytes bytes = data(random, i % 200, i / 200 % 8);
    const std::ptrdiff_t wanted = random.between(0, 300);
    Bytes expanded;
    const RunProgress came = expand_model(bytes, wanted, expanded);
    const Bytes coded = code_model(bytes);
    for (const bool fast : {false, true}) {
      SCOPED_TRACE(testing::Message() << i << ", " << fast);
      const Kernels kernels = select_kernels({fast, fast, fast, fast, fast});

      const GuardedBlock from(bytes);
      const GuardedBlock to(static_cast<std::size_t>(wanted + kMarkedRunRoom));
      const RunProgress progress = kernels.expand_marked(from.bytes(), to.bytes());
      ASSERT_EQ(progress.taken, came.taken);
      ASSERT_EQ(Bytes(to.data(), to.data() + progress.put), expanded);

      Bytes ahead = bytes;
      const std::uint8_t last = bytes.empty() ? 0 : bytes.back();
      ahead.resize(bytes.size() + static_cast<std::size_t>(i % kRunMargin), last);
      ahead.resize(bytes.size() + kRunMargin, byte(last ^ 1));
      const GuardedBlock plain(ahead);
      const GuardedBlock out(2 * bytes.size() + kRunMargin);
      const std::ptrdiff_t put =
          kernels.code_marked(plain.bytes().first(bytes.size()), out.bytes());
      ASSERT_EQ(Bytes(out.data(), out.data() + put), coded);
    }
  }
}

}  // namespace
}  // namespace tq::coding
