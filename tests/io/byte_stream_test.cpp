#include "io/byte_stream.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <vector>

#include "core/memory.h"
#include "include/tarnquill.h"
#include "tests/support/guarded_block.h"
#include "tests/support/memory_file.h"
#include "tests/support/scratch_folder.h"

namespace tq {
namespace {

using test::MemoryFile;
using testing::Each;
using testing::ElementsAre;
using Bytes = std::vector<std::uint8_t>;

constexpr std::int32_t kUnknownLimit = 0x70000000;

class Streams : public testing::Test {
 protected:
  ~Streams() override {
    IMG_set_encrypt(0, 0);
    set_caller_io(nullptr, nullptr, nullptr);
    open_memory_stream(nullptr);
  }
  test::ScratchFolder folder;
};
using ByteStream = Streams;
using MemoryStream = Streams;
using Scrambling = Streams;
using CallerIo = Streams;

Bytes read_some(StreamHandle stream, std::size_t count) {
  Bytes bytes(count, 0xEE);
  const std::int32_t got = read(stream, bytes);
  if (got < 0) ADD_FAILURE() << "a read answered " << got;
  bytes.resize(static_cast<std::size_t>(got < 0 ? 0 : got));
  return bytes;
}

TEST_F(ByteStream, OpenModesKeepTruncateTestAndRefuse) {
  const std::string name = folder.file("a"), missing = folder.file("missing");
  test::write_file(name, {1, 2, 3});
  EXPECT_LT(open_file(missing.c_str(), OpenMode::read), 0);
  EXPECT_LT(open_file(missing.c_str(), OpenMode::update), 0);
  EXPECT_LT(open_file(missing.c_str(), OpenMode::exists), 0);
  EXPECT_LT(open_file(nullptr, OpenMode::create), 0);
  EXPECT_LT(open_file(folder.path().string().c_str(), OpenMode::read), 0) << "a folder";
  EXPECT_EQ(open_file(name.c_str(), OpenMode::exists), 0);
  EXPECT_EQ(open_file(name.c_str(), OpenMode{17}), 17);
  EXPECT_EQ(open_file(name.c_str(), OpenMode{-5}), -5);

  Bytes two{8, 9};
  OpenFile file;
  ASSERT_TRUE(file.open(name.c_str(), OpenMode::update).ok());
  EXPECT_EQ(write(file.handle(), two), 2);
  file.close();
  EXPECT_EQ(test::file_content(name), (Bytes{8, 9, 3}));
  ASSERT_TRUE(file.open(name.c_str(), OpenMode::create).ok());
  EXPECT_EQ(write(file.handle(), two), 2);
  EXPECT_EQ(seek(file.handle(), 0, Origin::start), 0);
  EXPECT_EQ(read_some(file.handle(), 5), two);
  file.close();
  EXPECT_EQ(test::file_content(name), two);
  EXPECT_TRUE(remove_file(name.c_str()));
  EXPECT_FALSE(remove_file(name.c_str()));
}

TEST_F(ByteStream, FilesAreMeasuredAndNotCutAndErrorsAreShortCounts) {
  const std::string name = folder.file("a");
  const Bytes content(1000, 7);
  Bytes bytes{4, 5};
  test::write_file(name, content);
  OpenFile file;
  ASSERT_TRUE(file.open(name.c_str(), OpenMode::update).ok());
  EXPECT_EQ(seek(file.handle(), 123, Origin::start), 123);
  EXPECT_EQ(stream_size(file.handle()), 1000);
  EXPECT_EQ(position(file.handle()), 123);
  EXPECT_EQ(write(file.handle(), {}), 0) << "nothing, and the file is not cut here";
  EXPECT_EQ(seek(file.handle(), -3, Origin::end), 997);
  EXPECT_EQ(read_some(file.handle(), 10).size(), 3u);
  EXPECT_LT(seek(file.handle(), -467, Origin::start), 0);
  file.close();
  EXPECT_EQ(test::file_content(name), content);
  ASSERT_TRUE(file.open(name.c_str(), OpenMode::read).ok());
  EXPECT_EQ(write(file.handle(), bytes), 0);
  EXPECT_EQ(read(StreamHandle{-1}, bytes), 0);
  EXPECT_EQ(bytes, (Bytes{4, 5}));
}

// Seen from above nothing tells whether the start of a file is taken in one go.
TEST_F(ByteStream, TakenAheadAFileReadsAsItIs) {
  std::uint32_t state = 1;
  const auto random = [&](int below) {
    state = state * 1664525 + 1013904223;
    return static_cast<std::int32_t>((state >> 8) % static_cast<std::uint32_t>(below));
  };
  for (int round = 0; round < 400; ++round) {
    const int bytes = random(3) == 0 ? 4090 + random(12) : 1 + random(9000);
    const std::string name = folder.file("ahead");
    Bytes content(static_cast<std::size_t>(bytes));
    for (auto& b : content) b = static_cast<std::uint8_t>(random(256));
    test::write_file(name, content);
    OpenFile file, same;
    ASSERT_EQ(file.open(name.c_str(), OpenMode::read), kOk);
    ASSERT_EQ(same.open(name.c_str(), OpenMode::read), kOk);
    const ReadAhead ahead(file.handle());
    for (int step = 0; step < 12; ++step) {
      const auto both = [&](auto&& run) { return run(file.handle()) == run(same.handle()); };
      const std::int32_t count = random(4) == 0 ? random(2 * bytes) : random(20);
      const std::int32_t offset = random(2 * bytes) - bytes / 2;
      const Origin origin{random(8) == 0 ? random(4) : random(2)};
      const bool reads = random(2) == 0;
      EXPECT_TRUE(both([&](StreamHandle stream) {
        if (!reads) return Bytes{static_cast<std::uint8_t>(seek(stream, offset, origin) % 251)};
        return read_some(stream, static_cast<std::size_t>(count));
      })) << round
          << " " << step;
      EXPECT_TRUE(both([](StreamHandle stream) { return position(stream); }));
    }
  }
}

TEST_F(MemoryStream, LimitIsWhatIsKnownOfTheBlock) {
  GlobalBlock block;
  ASSERT_TRUE(block.allocate(100).ok());
  std::array<std::uint8_t, 50> foreign{};
  const struct {
    const char* name;
    std::function<void()> open;
    std::int32_t limit;
  } cases[] = {
      {"global block", [&] { open_memory_stream(block.data()); }, 100},
      {"inside a global block", [&] { open_memory_stream(block.data() + 4); }, kUnknownLimit},
      {"foreign", [&] { open_memory_stream(foreign.data()); }, kUnknownLimit},
      {"sized", [&] { open_memory_stream(foreign.data(), 50); }, 50},
      {"sized smaller than its block", [&] { open_memory_stream(block.data(), 7); }, 7},
      {"of no size", [&] { open_memory_stream(foreign.data(), 0); }, 0},
      {"beyond 31 bits", [&] { open_memory_stream(foreign.data(), SIZE_MAX); }, INT32_MAX},
      {"null", [&] { open_memory_stream(nullptr); }, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    seek(kMemoryStream, 3, Origin::start);
    c.open();
    EXPECT_EQ(memory_position(), 0);
    EXPECT_EQ(seek(kMemoryStream, 0, Origin::end), c.limit);
    EXPECT_THAT(read_some(kMemoryStream, 5), ElementsAre());
    EXPECT_TRUE(memory_rest(kMemoryStream).empty());
  }
}

TEST_F(MemoryStream, TransfersStopAtTheLimit) {
  test::GuardedBlock block(Bytes{1, 2, 3, 4, 5});
  open_memory_stream(block.data(), 5);
  EXPECT_EQ(seek(kMemoryStream, 3, Origin::start), 3);
  EXPECT_THAT(read_some(kMemoryStream, 5), ElementsAre(4, 5));
  EXPECT_EQ(seek(kMemoryStream, -3, Origin::end), 2);
  Bytes more{7, 8, 9, 10};
  EXPECT_EQ(write(kMemoryStream, more), 3);
  EXPECT_EQ(write(kMemoryStream, more), 0);
  EXPECT_THAT(block.bytes(), ElementsAre(1, 2, 7, 8, 9));
  EXPECT_EQ(memory_position(), 5);
  seek(kMemoryStream, 1, Origin::start);
  EXPECT_EQ(stream_size(kMemoryStream), 1) << "the position is the size";
}

TEST_F(MemoryStream, PositionsAreStoredUncheckedAndNothingIsThere) {
  Bytes block(10, 1);
  open_memory_stream(block.data(), block.size());
  const struct {
    std::int32_t from, offset;
    Origin origin;
    std::int32_t position;
  } cases[] = {
      {0, -467, Origin::start, -467},
      {0, INT32_MIN, Origin::start, INT32_MIN},
      {4, -5, Origin::current, -1},
      {INT32_MAX, 1, Origin::current, INT32_MIN},
      {INT32_MIN, -1, Origin::current, INT32_MAX},
      {0, INT32_MAX, Origin::end, INT32_MIN + 9},
      {0, 1, Origin::end, 11},
  };
  for (const auto& c : cases) {
    seek(kMemoryStream, c.from, Origin::start);
    EXPECT_EQ(seek(kMemoryStream, c.offset, c.origin), c.position);
    EXPECT_EQ(position(kMemoryStream), c.position);
    Bytes bytes{6, 6, 6};
    EXPECT_EQ(read(kMemoryStream, bytes), 0);
    EXPECT_EQ(write(kMemoryStream, bytes), 0);
    EXPECT_TRUE(memory_rest(kMemoryStream).empty());
    EXPECT_EQ(position(kMemoryStream), c.position);
  }
  EXPECT_THAT(block, Each(1));
}

TEST_F(Scrambling, KeyByteIsTheSumOfTheKeysBytes) {
  const struct {
    std::int32_t on, key;
    std::uint8_t key_byte;
  } cases[] = {
      {1, 0x01020304, 0x0A},  {1, -1, 0xFC},         {1, 0, 0xAA},
      {1, 0x40404040, 0xAA},  {0, 0x01020304, 0x00}, {0x100, 0x01020304, 0x00},
      {0x180, 0x00000100, 1},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << std::hex << c.on << " " << c.key);
    Bytes block(3), bytes{0x00, 0x0F, 0xF0};
    EXPECT_EQ(IMG_set_encrypt(c.on, c.key), 0);
    open_memory_stream(block.data(), block.size());
    EXPECT_EQ(write(kMemoryStream, bytes), 3);
    EXPECT_THAT(block, ElementsAre(c.key_byte, 0x0F ^ c.key_byte, 0xF0 ^ c.key_byte));
    EXPECT_THAT(bytes, ElementsAre(0x00, 0x0F, 0xF0));
    seek(kMemoryStream, 0, Origin::start);
    EXPECT_EQ(read_some(kMemoryStream, 3), bytes);
  }
}

TEST_F(Scrambling, TailThatCouldNotBeWrittenStaysScrambled) {
  IMG_set_encrypt(1, 0x10);
  Bytes block(2), bytes{1, 2, 3, 4};
  open_memory_stream(block.data(), block.size());
  EXPECT_EQ(write(kMemoryStream, bytes), 2);
  EXPECT_THAT(bytes, ElementsAre(1, 2, 0x13, 0x14));
  EXPECT_THAT(block, ElementsAre(0x11, 0x12));
  EXPECT_EQ(write(kMemoryStream, bytes), 0);
  EXPECT_THAT(bytes, ElementsAre(0x11, 0x12, 3, 4)) << "nothing written, nothing restored";
}

TEST_F(CallerIo, GetsEveryHandleAndUnscrambledBytes) {
  Bytes block(10, 0x77);
  open_memory_stream(block.data(), block.size());
  IMG_set_encrypt(1, 0x10);
  MemoryFile caller;
  for (const StreamHandle handle : {kMemoryStream, StreamHandle{-9}, StreamHandle{0}}) {
    caller.handles.clear();
    caller.bytes.clear();
    EXPECT_EQ(seek(handle, 0, Origin::start), 0);
    Bytes bytes{1, 2, 3};
    EXPECT_EQ(write(handle, bytes), 3);
    EXPECT_EQ(position(handle), 3);
    EXPECT_EQ(seek(handle, -2, Origin::end), 1);
    EXPECT_EQ(read_some(handle, 9), (Bytes{2, 3}));
    EXPECT_EQ(caller.bytes, (Bytes{1, 2, 3}));
    EXPECT_THAT(caller.handles, Each(static_cast<std::int32_t>(handle)));
    EXPECT_EQ(caller.handles.size(), 5u);
  }
  EXPECT_THAT(block, Each(0x77));
  EXPECT_EQ(memory_position(), 0);
  EXPECT_FALSE(reads_memory(kMemoryStream));
}

TEST_F(CallerIo, EachFunctionStandsAlone) {
  Bytes block{1, 2, 3, 4};
  open_memory_stream(block.data(), block.size());
  MemoryFile caller(Bytes(100));
  caller.install(false, false, true);
  EXPECT_TRUE(caller_io_installed());
  EXPECT_EQ(seek(kMemoryStream, 50, Origin::start), 50);
  EXPECT_THAT(read_some(kMemoryStream, 3), ElementsAre(1, 2, 3));
  EXPECT_TRUE(memory_rest(kMemoryStream).empty()) << "who takes it could not move on";
  caller.install(false, true, false);
  EXPECT_THAT(read_some(kMemoryStream, 3), ElementsAre(4));
  caller.install(false, false, false);
  EXPECT_FALSE(caller_io_installed());
  EXPECT_EQ(position(kMemoryStream), 4);
}

TEST_F(CallerIo, CountsBeyondWhatWasAskedAreNotBelieved) {
  MemoryFile caller(Bytes(100, 9));
  const struct {
    std::int32_t answer, count;
  } cases[] = {{-1, 0}, {INT32_MIN, 0}, {0, 0}, {2, 2}, {3, 3}, {4, 3}, {INT32_MAX, 3}};
  for (const auto& c : cases) {
    Bytes bytes(3);
    caller.answer = c.answer;
    EXPECT_EQ(read(MemoryFile::kHandle, bytes), c.count);
    EXPECT_EQ(write(MemoryFile::kHandle, bytes), c.count);
  }
  caller.counts.clear();
  EXPECT_EQ(read(MemoryFile::kHandle, {}), 0);
  EXPECT_EQ(write(MemoryFile::kHandle, {}), 0);
  EXPECT_THAT(caller.counts, ElementsAre()) << "nothing was asked for";
}

}  // namespace
}  // namespace tq
