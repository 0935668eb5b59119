// A disk that is full after any number of bytes, and what is no regular file.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <string>
#include <thread>

#include "core/memory.h"
#include "tests/support/scratch_folder.h"
#include "tests/sweep/watched_images.h"

namespace tq::test {
namespace {

// Files of this process cannot grow beyond `bytes` while one lives.
class FullDisk {
 public:
  explicit FullDisk(std::size_t bytes) {
    std::signal(SIGXFSZ, SIG_IGN);
    getrlimit(RLIMIT_FSIZE, &before_);
    const rlimit limit{static_cast<rlim_t>(bytes), before_.rlim_max};
    EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
  }
  FullDisk(const FullDisk&) = delete;
  FullDisk& operator=(const FullDisk&) = delete;
  ~FullDisk() { setrlimit(RLIMIT_FSIZE, &before_); }

 private:
  rlimit before_{};
};

TEST(FullDiskSweep, NoHalfFileStays) {
  const ScratchFolder folder;
  const std::string name = folder.file("half.bmp");
  for (const int bits : {1, 8, 24}) {
    for (const std::int32_t code : {IMG_TYPE_BMP, IMG_TYPE_DIB, IMG_TYPE_PDF}) {
      const std::int32_t image = load(plain_file(11, 3, bits));
      const Seen before = see(image);
      Bytes block(4000);
      const std::int32_t whole = IMG_save_bitmap_block(image, block.data(), block.size(), code);
      ASSERT_GT(whole, 40);
      for (std::int32_t room = 0; room <= whole; ++room) {
        std::int32_t saved = 0;
        {
          const FullDisk disk(static_cast<std::size_t>(room));
          saved = IMG_save_bitmap(image, name.c_str(), code);
        }
        ASSERT_EQ(saved, room == whole ? IMG_OK : IMG_WRITE_FAILED) << bits << ", " << room;
        ASSERT_EQ(std::filesystem::exists(name), room == whole);
      }
      block.resize(static_cast<std::size_t>(whole));
      EXPECT_EQ(file_content(name), block);
      std::filesystem::remove(name);
      EXPECT_EQ(see(image), before);
      IMG_delete_bitmap(image);
      EXPECT_EQ(memory_probe::live_blocks(), 0);
    }
  }
}

TEST(FullDiskSweep, LinksAndPipesStay) {
  const ScratchFolder folder;
  const std::string link = folder.file("link"), target = folder.file("target");
  const std::string pipe = folder.file("pipe");
  std::filesystem::create_symlink("target", link);
  write_file(target, Bytes(1000, 7));
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  const std::int32_t image = load(plain_file(300, 300, 24));
  {
    const FullDisk disk(100);
    EXPECT_EQ(IMG_save_bitmap(image, link.c_str(), IMG_TYPE_BMP), IMG_WRITE_FAILED);
  }
  EXPECT_TRUE(std::filesystem::is_symlink(link));
  EXPECT_EQ(std::filesystem::file_size(target), 100) << "what the manual says";

  // A reader that goes after the first bytes; the signal for it must not end the process.
  std::signal(SIGPIPE, SIG_DFL);
  std::thread reader([&] {
    const int file = open(pipe.c_str(), O_RDONLY);
    char byte = 0;
    EXPECT_EQ(read(file, &byte, 1), 1);
    close(file);
  });
  EXPECT_EQ(IMG_save_bitmap(image, pipe.c_str(), IMG_TYPE_BMP), IMG_WRITE_FAILED);
  reader.join();
  EXPECT_EQ(IMG_save_bitmap(image, pipe.c_str(), IMG_TYPE_PDF), IMG_CANNOT_CREATE);
  EXPECT_TRUE(std::filesystem::is_fifo(pipe));

  Bytes received;
  std::thread keeper([&] { received = file_content(pipe); });
  EXPECT_EQ(IMG_save_bitmap(image, pipe.c_str(), IMG_TYPE_BMP), IMG_OK);
  keeper.join();
  EXPECT_EQ(IMG_save_bitmap(image, link.c_str(), IMG_TYPE_BMP), IMG_OK);
  EXPECT_EQ(received, file_content(target));
  IMG_delete_bitmap(image);
}

}  // namespace
}  // namespace tq::test
