// Every operation on generated images of every depth, against digests of an independent model.
#include <gtest/gtest.h>

#include <span>
#include <string>
#include <utility>

#include "core/dib.h"
#include "include/tarnquill.h"
#include "io/endian.h"
#include "platform/cpu.h"
#include "tests/process/generated_image.h"
#include "tests/support/digest.h"

namespace tq::test {
namespace {

constexpr std::pair<const char*, std::uint64_t> kDigests[] = {
#include "tests/process/digests.inc"
};

void add(Digest& digest, std::uint32_t status, const Snapshot& image) {
  std::uint8_t word[4];
  store_le32(word, status);
  digest.add(word);
  digest.add(Bytes{image.front[14], image.front[16]});  // biBitCount and biCompression
  digest.add(std::span(image.front).subspan(kDibHeaderBytes));
  for (const Bytes& row : image.rows) digest.add(row);
}

std::uint64_t digest_of(const NamedOperation& operation) {
  Digest digest;
  for (const Depth& depth : kDepths) {
    int number = 0;
    for (const int width : {1, 2, 3, 7, 8, 9, 17, 31, 64, 70, 133}) {
      for (const int height : {1, 2, 3, 19}) {
        const KeptImage image(depth, width, height, number++);
        const std::int32_t status = operation.run(image.handle());
        add(digest, static_cast<std::uint32_t>(status), snapshot(image.handle()));
        EXPECT_TRUE(image.memory_untouched()) << "the caller's memory was written to";
      }
    }
  }
  return digest.value();
}

TEST(OperationModel, AgreesForAllDepthsWithAllKernels) {
  ASSERT_EQ(std::size(kDigests), all_operations().size());
  for (const bool fast : {false, true}) {
    platform::mask_cpu_features({fast, fast, fast, fast, fast});
    for (std::size_t i = 0; i < std::size(kDigests); ++i) {
      const auto& [name, digest] = kDigests[i];
      ASSERT_EQ(all_operations()[i].name, std::string(name));
      EXPECT_EQ(digest_of(all_operations()[i]), digest) << name << ", fast " << fast;
    }
  }
  IMGLOW_set_dithermode(1);
}

}  // namespace
}  // namespace tq::test
