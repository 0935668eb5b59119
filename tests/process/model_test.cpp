// Every operation on generated images of every depth, against digests of an independent model.
#include <gtest/gtest.h>

#include <string>

#include "core/dib.h"
#include "include/tarnquill.h"
#include "platform/cpu.h"
#include "tests/process/generated_image.h"

namespace tq::test {
namespace {

struct ModelDigest {
  const char* operation;
  std::uint64_t digest;
};
constexpr ModelDigest kDigests[] = {
#include "tests/process/digests.inc"
};

struct Source {
  int bits;
  std::uint32_t compression;
  bool in_runs;
};
constexpr Source kSources[] = {{1, 0, false},  {1, 0, true},   {4, 0, false},    {8, 0, false},
                               {16, 0, false}, {24, 0, false}, {32, 200, false}, {32, 0, false}};

// FNV-1a, 64 bits.
class Digest {
 public:
  void add(const Bytes& bytes) {
    for (const std::uint8_t byte : bytes) value_ = (value_ ^ byte) * 0x100000001B3;
  }
  void add_result(std::uint32_t status, const Snapshot& image) {
    for (int shift = 0; shift < 32; shift += 8) add({static_cast<std::uint8_t>(status >> shift)});
    add({image.front[14], image.front[16]});  // biBitCount and biCompression
    add(Bytes(image.front.begin() + kDibHeaderBytes, image.front.end()));
    for (const Bytes& row : image.rows) add(row);
  }
  std::uint64_t value() const { return value_; }

 private:
  std::uint64_t value_ = 0xCBF29CE484222325;
};

std::uint64_t digest_of(const NamedOperation& operation) {
  Digest digest;
  for (const Source& source : kSources) {
    int number = 0;
    for (const int width : {1, 2, 3, 7, 8, 9, 17, 31, 64, 70, 133}) {
      for (const int height : {1, 2, 3, 19}) {
        const KeptImage image({source.bits, source.compression, width, height}, number++);
        if (source.in_runs) IMG_dib_to_runs(image.handle());
        const std::int32_t status = operation.run(image.handle());
        digest.add_result(static_cast<std::uint32_t>(status), snapshot(image.handle()));
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
      const NamedOperation& operation = all_operations()[i];
      ASSERT_EQ(kDigests[i].operation, std::string(operation.name));
      EXPECT_EQ(digest_of(operation), kDigests[i].digest) << operation.name << ", fast " << fast;
    }
  }
  IMGLOW_set_dithermode(1);
}

}  // namespace
}  // namespace tq::test
