// Every operation on generated images of every depth, against digests of an independent model.
#include <gtest/gtest.h>

#include <string>

#include "core/dib.h"
#include "include/tarnquill.h"
#include "platform/cpu.h"
#include "tests/process/generated_image.h"

namespace tq::test {
namespace {

constexpr int kWidths[] = {1, 2, 3, 7, 8, 9, 17, 31, 64, 70, 133};
constexpr int kHeights[] = {1, 2, 3, 19};

struct ModelDigest {
  const char* operation;
  const char* source;
  std::uint64_t digest;
};
constexpr ModelDigest kDigests[] = {
#include "tests/process/digests.inc"
};

struct Source {
  const char* name;
  int bits;
  std::uint32_t compression;
  bool in_runs;
};
constexpr Source kSources[] = {{"bits1", 1, 0, false},    {"runs", 1, 0, true},
                               {"bits4", 4, 0, false},    {"bits8", 8, 0, false},
                               {"bits16", 16, 0, false},  {"bits24", 24, 0, false},
                               {"rgb32", 32, 200, false}, {"cmyk32", 32, 0, false}};

// FNV-1a, 64 bits.
class Digest {
 public:
  void add(const Bytes& bytes) {
    for (const std::uint8_t byte : bytes) add(byte);
  }
  void add(std::uint8_t byte) { value_ = (value_ ^ byte) * 0x100000001B3; }
  void add_result(std::int32_t status, const Snapshot& image) {
    for (int shift = 0; shift < 32; shift += 8) add(static_cast<std::uint8_t>(status >> shift));
    add(image.front[14]);  // biBitCount and biCompression
    add(image.front[16]);
    add(Bytes(image.front.begin() + kDibHeaderBytes, image.front.end()));
    for (const Bytes& row : image.rows) add(row);
  }
  std::uint64_t value() const { return value_; }

 private:
  std::uint64_t value_ = 0xCBF29CE484222325;
};

std::uint64_t digest_of(const NamedOperation& operation, const Source& source) {
  Digest digest;
  int number = 0;
  for (const int width : kWidths) {
    for (const int height : kHeights) {
      const KeptImage image({source.bits, source.compression, width, height}, number++);
      if (source.in_runs) IMG_dib_to_runs(image.handle());
      const std::int32_t status = operation.run(image.handle());
      digest.add_result(status, snapshot(image.handle()));
      EXPECT_TRUE(image.memory_untouched()) << "the caller's memory was written to";
    }
  }
  return digest.value();
}

void compare_all() {
  for (const ModelDigest& expected : kDigests) {
    for (const Source& source : kSources) {
      if (std::string(source.name) != expected.source) continue;
      for (const NamedOperation& operation : all_operations()) {
        if (std::string(operation.name) != expected.operation) continue;
        EXPECT_EQ(digest_of(operation, source), expected.digest)
            << operation.name << " of " << source.name;
      }
    }
  }
  IMGLOW_set_dithermode(1);
}

TEST(OperationModel, AgreesForAllDepthsWithPortableKernels) {
  platform::mask_cpu_features({});
  compare_all();
  platform::mask_cpu_features({true, true, true, true, true});
}

TEST(OperationModel, AgreesForAllDepthsWithTheFastestKernels) {
  compare_all();
}

TEST(OperationModel, CoversEveryOperation) {
  EXPECT_EQ(std::size(kDigests), all_operations().size() * std::size(kSources));
}

}  // namespace
}  // namespace tq::test
