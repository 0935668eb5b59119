// Every operation on generated images of every depth, against the digests of a plain model: one
// pixel after the other, written from the description of the operations.
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
    {"gray", 0x5B1CEA57BD6AAC30},
    {"mediancut", 0xF6ABB1A65DAF9351},
    {"mediancut_system", 0xBFAC2406F732C027},
    {"octree_8_256", 0xA3050F827D5BEE4F},
    {"octree_8_20", 0x5B6E94F9D9A68B7C},
    {"octree_8_3", 0x956B82D26CD5D93E},
    {"octree_4_256", 0x98F1F148C7C7EA27},
    {"octree_given_40", 0x02D78E2B566A834F},
    {"popularity", 0xB8F861DEE7BD154B},
    {"bayer_mono", 0x0416AEB7588FC280},
    {"halftone_mono", 0x7E2B4C81DE98744A},
    {"diffusion_mono", 0xB71C2A4C1DF94C2B},
    {"thresh_128", 0x75A301A511A1107D},
    {"thresh_below", 0x2BCA0518DCE26B2A},
    {"thresh_255", 0x6984CD2FE17EF836},
    {"thresh_automatic", 0x7DB600BCB627735B},
    {"bayer_color", 0xC196B510EED69E65},
    {"diffusion_color", 0xBCF99C1CB7E41D42},
    {"promote_8", 0x5525FF6D29C3134A},
    {"promote_24", 0xEA60FDF539C7FE99},
    {"promote_32", 0x755334BCAAF6D5A7},
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
