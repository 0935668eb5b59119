// What only the posix folder has to get right: descriptors and large files.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "include/tarnquill.h"
#include "platform/file.h"
#include "tests/support/scratch_folder.h"

namespace tq::platform {
namespace {

TEST(PosixFile, PositionsBeyond31BitsAreFailures) {
  const test::ScratchFolder folder;
  const std::string name = folder.file("sparse");
  const std::int32_t file = file_open(name.c_str(), FileMode::create);
  ASSERT_GE(file, 0);
  EXPECT_EQ(fcntl(file, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC) << "not for the caller's children";
  const std::uint8_t bytes[] = {1, 2, 3};
  EXPECT_EQ(file_seek(file, INT32_MAX, 0), INT32_MAX);
  ASSERT_EQ(file_write(file, bytes, 3), 3);
  EXPECT_LT(file_seek(file, 0, 1), 0);
  EXPECT_LT(file_seek(file, 0, 2), 0);
  EXPECT_EQ(file_seek(file, -3, 2), INT32_MAX) << "back within 31 bits";
  EXPECT_LT(file_seek(file, 0, 3), 0) << "no such origin";
  EXPECT_LT(file_seek(file, INT32_MAX, 1), 0);
  EXPECT_LT(file_seek(file, INT32_MAX, 1), 0) << "the low 32 bits alone would be positive";
  file_close(file);

  const std::int32_t again = file_open(name.c_str(), FileMode::read);
  ASSERT_GE(again, 0) << "32-bit systems open large files only if asked";
  std::uint8_t byte = 0;
  EXPECT_EQ(file_seek(again, INT32_MAX, 0), INT32_MAX);
  EXPECT_EQ(file_read(again, &byte, 1), 1);
  EXPECT_EQ(byte, 1);
  file_close(again);
}

TEST(PosixFile, ReadsOnWhenAPipeIsSlowAndASignalComes) {
  struct sigaction action = {};
  action.sa_handler = [](int) {};  // and no SA_RESTART
  ASSERT_EQ(sigaction(SIGUSR1, &action, nullptr), 0);
  int pipe_ends[2];
  ASSERT_EQ(pipe(pipe_ends), 0);
  std::thread writer([&, reader = pthread_self()] {
    const auto interrupt = [&] {
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
      pthread_kill(reader, SIGUSR1);
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    };
    interrupt();
    EXPECT_EQ(write(pipe_ends[1], "abc", 3), 3);
    interrupt();
    EXPECT_EQ(write(pipe_ends[1], "def", 3), 3);
    close(pipe_ends[1]);
  });
  char text[10] = {};
  EXPECT_EQ(file_read(pipe_ends[0], text, 9), 6);
  EXPECT_STREQ(text, "abcdef");
  writer.join();
  close(pipe_ends[0]);
}

TEST(PosixFile, NumberOfTheMemoryStreamIsNeverHandedOut) {
  constexpr int kReserved = 32767;
  rlimit limit{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
  const rlimit before = limit;
  limit.rlim_cur = kReserved + 10;
  limit.rlim_max = std::max(limit.rlim_max, limit.rlim_cur);
  if (setrlimit(RLIMIT_NOFILE, &limit) != 0) GTEST_SKIP() << "may not have that many descriptors";

  const test::ScratchFolder folder;
  test::write_file(folder.file("a"), {1, 2, 3});
  std::vector<int> taken;
  for (int next = dup(0); next >= 0 && next < kReserved; next = dup(0)) taken.push_back(next);
  close(kReserved);  // now the lowest free one
  const std::int32_t file = file_open(folder.file("a").c_str(), FileMode::read);
  EXPECT_GT(file, kReserved);
  EXPECT_EQ(fcntl(file, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
  std::uint8_t bytes[3];
  EXPECT_EQ(file_read(file, bytes, 3), 3);
  EXPECT_LT(fcntl(kReserved, F_GETFD), 0) << "the first descriptor must not leak";
  char name[kTempNameBytes];
  const std::int32_t temporary = file_create_temporary(name);
  EXPECT_GT(temporary, kReserved);
  file_close(temporary);
  EXPECT_TRUE(file_remove(name));
  file_close(file);
  for (const int descriptor : taken) close(descriptor);
  setrlimit(RLIMIT_NOFILE, &before);
}

TEST(PosixFile, TemporaryFilesNeedNoUsableFolderInTheEnvironment) {
  const char* const before = std::getenv("TMPDIR");
  const std::string kept = before == nullptr ? "" : before;
  for (const std::string& folder :
       {std::string(400, 'x'), std::string("/nowhere"), std::string()}) {
    setenv("TMPDIR", folder.c_str(), 1);
    char name[kTempNameBytes];
    const std::int32_t file = file_create_temporary(name);
    ASSERT_GE(file, 0) << folder;
    EXPECT_EQ(std::string(name).substr(0, 8), "/tmp/img");
    EXPECT_EQ(fcntl(file, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
    file_close(file);
    EXPECT_TRUE(file_remove(name));
  }
  before == nullptr ? unsetenv("TMPDIR") : setenv("TMPDIR", kept.c_str(), 1);
}

TEST(PosixModule, IsNotMissingWhereThereIsNoDescriptorToLookForIt) {
  const auto gif = [] {
    const std::uint8_t bytes[] = {'G', 'I', 'F', '8', '9', 'a', 1, 0, 1, 0};
    return IMG_decompress_bitmap_block(bytes, sizeof bytes, 0);
  };
  EXPECT_EQ(gif(), IMG_NO_LZW_MODULE) << "none beside this program";
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
  const int next = dup(0);
  close(next);
  const rlimit limit{static_cast<rlim_t>(next), before.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
  EXPECT_EQ(gif(), IMG_CANNOT_OPEN);
  setrlimit(RLIMIT_NOFILE, &before);
}

}  // namespace
}  // namespace tq::platform
