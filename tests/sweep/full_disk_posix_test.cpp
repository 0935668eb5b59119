// A disk that is full after any number of bytes, a process that ends at any write, and what is no
// regular file.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
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

std::size_t writes_left = 0;

std::int32_t IMG_CB_C write_or_end(std::int32_t stream, void* bytes, std::int32_t count) {
  if (writes_left-- == 0) _exit(1);
  return static_cast<std::int32_t>(write(stream, bytes, static_cast<std::size_t>(count)));
}

// Saves in a process that is killed when a file would grow beyond `limit` bytes, or when it has
// written so many times; whether it was not.
bool survives(bool counts_writes, std::size_t limit, const std::string& name, std::int32_t image,
              std::int32_t code) {
  const pid_t child = fork();
  if (child == 0) {
    constexpr rlimit kNoCore = {};
    setrlimit(RLIMIT_CORE, &kNoCore);
    const FullDisk disk(counts_writes ? 1 << 20 : limit);
    std::signal(SIGXFSZ, SIG_DFL);
    writes_left = limit;
    if (counts_writes) IMGLOW_set_fileio(nullptr, write_or_end, nullptr);
    _exit(IMG_save_bitmap(image, name.c_str(), code) == IMG_OK ? 0 : 2);
  }
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_FALSE(WIFEXITED(status) && WEXITSTATUS(status) == 2);
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

std::vector<Seen> pages_of(const Bytes& file) {
  std::vector<Seen> pages;
  const std::int32_t count = IMGLOW_get_pages_block(file.data(), file.size());
  for (std::int32_t page = 0; page < count; ++page) {
    const std::int32_t image = IMG_decompress_bitmap_block(file.data(), file.size(), page);
    if (image < 0) break;
    pages.push_back(see(image));
    IMG_delete_bitmap(image);
  }
  return pages;
}

TEST(FullDiskSweep, AProcessThatEndsAtAnyWriteLosesNothing) {
  const ScratchFolder folder;
  const std::string name = folder.file("a");
  for (int i = 0; i < 3; ++i) ASSERT_EQ(load(plain_file(20 + i, 3, 8)), i);
  const auto save = [&](std::int32_t image, std::int32_t code) {
    return IMG_save_bitmap(image, name.c_str(), code);
  };
  IMG_set_option(IMG_OPTION_SAFE_SAVING, 1);
  for (const std::int32_t code :
       {IMG_TYPE_BMP, IMG_TYPE_DCX, IMG_TYPE_PDF, IMG_TYPE_TIFF_PACKBITS}) {
    std::filesystem::remove(name);
    for (const std::int32_t image : {0, 1}) ASSERT_EQ(save(image, code), IMG_OK);
    const Bytes before = file_content(name);
    ASSERT_EQ(save(2, code), IMG_OK);
    const Bytes after = file_content(name);
    const std::vector<Seen> old_pages = pages_of(before), all_pages = pages_of(after);
    for (const bool counts_writes : {true, false}) {
      bool survived = false;
      const std::size_t first = counts_writes || code == IMG_TYPE_BMP ? 0 : before.size();
      for (std::size_t limit = first; !survived; limit += counts_writes ? 1 : 37) {
        SCOPED_TRACE(testing::Message() << code << ", " << limit << " of " << after.size());
        write_file(name, before);
        survived = survives(counts_writes, limit, name, 2, code);
        const Bytes left = file_content(name);
        ASSERT_TRUE(!survived || left == after);
        if (left == after) continue;
        if (code == IMG_TYPE_PDF) {
          ASSERT_TRUE(std::equal(before.begin(), before.end(), left.begin()));
        } else {
          ASSERT_EQ(pages_of(left), old_pages);
        }
        ASSERT_TRUE(code != IMG_TYPE_BMP || left == before);
        ASSERT_EQ(save(2, code), IMG_OK);
        ASSERT_EQ(pages_of(file_content(name)), all_pages);
        ASSERT_TRUE(code == IMG_TYPE_TIFF_PACKBITS || file_content(name) == after) << "debris";
      }
    }
  }
  IMG_set_option(IMG_OPTION_SAFE_SAVING, 0);
  for (const std::int32_t image : {0, 1, 2}) IMG_delete_bitmap(image);
}

// Names that lead elsewhere, rights, and what may not be written.
TEST(FullDiskSweep, SafelySavedFilesTakeTheirPlaceAndLeaveNothingBeside) {
  const ScratchFolder folder;
  const auto path = [&](const char* name) { return folder.file(name); };
  std::filesystem::create_directory(path("deep"));
  write_file(path("deep/target"), Bytes(1000, 7));
  chmod(path("deep/target").c_str(), 0604);
  std::filesystem::create_symlink("target", path("deep/link"));
  std::filesystem::create_symlink("deep/link", path("link to link"));
  std::filesystem::create_symlink("deep/new", path("link to nothing"));
  std::filesystem::create_symlink("loop", path("loop"));
  const std::string longest(250, 'n');
  const std::int32_t image = load(plain_file(30, 30, 24));
  const auto files = [&] {
    return std::distance(std::filesystem::recursive_directory_iterator(folder.path()), {});
  };
  const auto save = [&](const char* name) {
    return IMG_save_bitmap(image, path(name).c_str(), IMG_TYPE_BMP);
  };
  IMG_set_option(IMG_OPTION_SAFE_SAVING, 1);
  const std::ptrdiff_t before = files();
  {
    const FullDisk disk(100);
    EXPECT_EQ(save("link to link"), IMG_WRITE_FAILED);
    EXPECT_EQ(save("link to nothing"), IMG_WRITE_FAILED);
  }
  EXPECT_EQ(save("loop"), IMG_CANNOT_CREATE);
  EXPECT_EQ(save("deep"), IMG_CANNOT_CREATE);
  EXPECT_EQ(save("none/a"), IMG_CANNOT_CREATE);
  EXPECT_EQ(file_content(path("deep/target")), Bytes(1000, 7));
  EXPECT_EQ(files(), before);

  for (const char* name : {"link to link", "link to nothing", longest.c_str()}) {
    EXPECT_EQ(save(name), IMG_OK) << name;
    EXPECT_EQ(file_content(path(name)).size(), 54 + 30 * 92);
  }
  EXPECT_TRUE(std::filesystem::is_symlink(path("link to link")));
  EXPECT_EQ(std::filesystem::symlink_status(path("deep/new")).type(),
            std::filesystem::file_type::regular);
  EXPECT_EQ(std::filesystem::status(path("deep/target")).permissions(),
            std::filesystem::perms{0604});
  EXPECT_EQ(files(), before + 2);
  EXPECT_EQ(IMG_save_bitmap(image, "/dev/null", IMG_TYPE_BMP), IMG_OK);
  EXPECT_TRUE(std::filesystem::is_character_file("/dev/null"));
  IMG_set_option(IMG_OPTION_SAFE_SAVING, 0);
  IMG_delete_bitmap(image);
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
