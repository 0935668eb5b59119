#include "io/temp_file.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "include/tarnquill.h"
#include "io/byte_stream.h"
#include "tests/support/memory_file.h"
#include "tests/support/scratch_folder.h"

namespace tq {
namespace {

using Bytes = std::vector<std::uint8_t>;

// Temporary files go to a folder of the test's own.
class TempFiles : public testing::Test {
 protected:
  TempFiles() { point_to(folder_.path().string()); }
  ~TempFiles() override { point_to(before_); }
  std::ptrdiff_t count() const {
    return std::distance(std::filesystem::directory_iterator(folder_.path()), {});
  }

 private:
  static void point_to(const std::string& folder) {
    // The environment keeps what it is given.
    static std::string settings[2];
    settings[0] = "TMPDIR=" + folder;
    settings[1] = "TMP=" + folder;
    for (std::string& setting : settings) putenv(setting.data());
  }
  const std::string before_ = std::filesystem::temp_directory_path().string();
  test::ScratchFolder folder_;
};

TEST_F(TempFiles, AreApartAndVanish) {
  {
    std::vector<std::unique_ptr<TempFile>> files;
    for (int i = 0; i < 20; ++i) {
      files.push_back(std::make_unique<TempFile>());
      ASSERT_TRUE(files.back()->create().ok());
      EXPECT_EQ(files.back()->write(Bytes(static_cast<std::size_t>(i), 7)), i);
    }
    EXPECT_EQ(count(), 20);
    for (int i = 0; i < 20; ++i) EXPECT_EQ(files[static_cast<std::size_t>(i)]->seek(0, 2), i);
    ASSERT_TRUE(files.front()->create().ok());
    EXPECT_EQ(count(), 20) << "creating again removes the file before";
  }
  EXPECT_EQ(count(), 0);
}

TEST_F(TempFiles, StayClearOfTheCallersFunctionsAndOfScrambling) {
  test::MemoryFile caller;
  IMG_set_encrypt(1, 0x10);
  TempFile file;
  ASSERT_TRUE(file.create().ok());
  const Bytes bytes{1, 2, 3};  // constant: scrambling would write to it
  EXPECT_EQ(file.write(bytes), 3);
  EXPECT_EQ(file.seek(1, 0), 1);
  Bytes back(5);
  EXPECT_EQ(file.read(back), 2);
  EXPECT_EQ(back, (Bytes{2, 3, 0, 0, 0}));
  IMG_set_encrypt(0, 0);
  EXPECT_TRUE(caller.handles.empty());
}

}  // namespace
}  // namespace tq
