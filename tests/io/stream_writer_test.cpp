#include "io/stream_writer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "tests/support/memory_file.h"
#include "tests/support/scratch_folder.h"

namespace tq {
namespace {

using test::Bytes;
using test::MemoryFile;
using testing::ElementsAre;

constexpr std::int32_t kPiece = 10;

Bytes text(std::string_view characters) {
  return {characters.begin(), characters.end()};
}

// Everything that can be put, over the ends of several pieces.
Status put_all(StreamWriter& out) {
  out.put(std::string_view("12345678"));
  out.put_le32(0x34333231);
  out.put_be32(0x35363738);
  out.put_le16(0x4241);
  out.put_be16(0x4344);
  out.put8('!');
  out.fill(25, '.');
  out.print("%d%s", -7, "end");
  const std::span<std::uint8_t> room = out.room(3 * kPiece);
  if (!room.empty()) {
    std::fill(room.begin(), room.end(), std::uint8_t{'r'});
    out.take(3 * kPiece - 1);
  }
  out.put(Bytes(37, 'p'));
  return out.flush();
}
const std::string kAll =
    "12345678"
    "12345678"
    "ABCD!" +
    std::string(25, '.') + "-7end" + std::string(3 * kPiece - 1, 'r') + std::string(37, 'p');

// Whichever write comes short: write_failed, nothing behind it, and it stays so.
TEST(StreamWriter, PutsInOrderAcrossPiecesUntilAWriteComesShort) {
  bool failed = true;
  for (int failing = 0; failed && failing < 50; ++failing) {
    MemoryFile file;
    file.failing_call = failing;
    file.failure = failing % 2 == 0 ? -1 : 3;
    StreamWriter out;
    ASSERT_EQ(out.open(MemoryFile::kHandle, kPiece), kOk);
    failed = put_all(out).failed();
    EXPECT_EQ(out.flush(), failed ? StatusCode::write_failed : StatusCode::ok);
    EXPECT_EQ(out.room(1).empty(), failed);
    EXPECT_EQ(file.calls, failing + (failed ? 1 : 0));
    if (failed) continue;
    EXPECT_GT(failing, 5);
    EXPECT_EQ(file.bytes, text(kAll));
    EXPECT_EQ(out.count(), std::ssize(kAll));
  }
}

TEST(StreamWriter, BytesArriveInPiecesOfOneSize) {
  MemoryFile file;
  StreamWriter out;
  ASSERT_EQ(out.open(MemoryFile::kHandle, kPiece), kOk);
  out.put(Bytes(37, 1));
  EXPECT_EQ(out.flush(), kOk);
  EXPECT_THAT(file.counts, ElementsAre(10, 10, 10, 7));
}

// Nobody sees how an own file is written, so it is in large pieces.
TEST(StreamWriter, GathersMoreForAnOwnFile) {
  const test::ScratchFolder folder;
  OpenFile file;
  ASSERT_EQ(file.open(folder.file("own").c_str(), OpenMode::create), kOk);
  const OwnFile own(file.handle());
  std::string expected;
  StreamWriter out;
  ASSERT_EQ(out.open(file.handle(), kPiece), kOk);
  for (int i = 0; expected.size() < 700000; ++i) {
    out.fill(i * 37 % 5000, i % 251);
    expected.append(static_cast<std::size_t>(i * 37 % 5000), static_cast<char>(i % 251));
    out.put(Bytes(static_cast<std::size_t>(i % 3000), 'p'));
    expected.append(static_cast<std::size_t>(i % 3000), 'p');
    EXPECT_EQ(out.end_write(), kOk);
    if (i != 20) continue;
    EXPECT_EQ(stream_size(file.handle()), 0);
  }
  const std::span<std::uint8_t> large = out.room(600000);
  std::fill(large.begin(), large.end(), std::uint8_t{'r'});
  out.take(std::ssize(large));
  expected.append(large.size(), 'r');
  EXPECT_EQ(out.flush(), kOk);
  EXPECT_EQ(out.count(), std::ssize(expected));
  const StreamHandle handle = file.handle();
  file.close();  // nobody else opens it on Windows until then
  EXPECT_EQ(test::file_content(folder.file("own")), text(expected));

  const MemoryFile watched;  // a caller's functions see each write
  ASSERT_EQ(out.open(handle, kPiece), kOk);
  out.put8('!');
  EXPECT_EQ(out.end_write(), kOk);
  EXPECT_EQ(watched.counts.size(), 1u);
}

TEST(StreamWriter, PatchesWhatHasBeenWritten) {
  for (int failing = -1; failing < 5; ++failing) {
    MemoryFile file(text("head"));
    file.position = 4;
    StreamWriter out;
    ASSERT_EQ(out.open(MemoryFile::kHandle, kPiece), kOk);
    out.put(std::string_view("0123456789abcde"));
    file.calls = 0;
    file.failing_call = failing;
    const Status patched = out.patch(6, text("##"));
    EXPECT_EQ(patched, failing < 0 ? kOk : StatusCode::write_failed) << failing;
    if (patched.failed()) continue;
    out.put8('f');
    EXPECT_EQ(out.flush(), kOk);
    EXPECT_EQ(file.bytes, text("head01##456789abcdef"));
    EXPECT_EQ(out.count(), 16);
  }
}

TEST(StreamWriter, PrintTooLongIsAFailure) {
  MemoryFile file;
  StreamWriter out;
  ASSERT_EQ(out.open(MemoryFile::kHandle), kOk);
  out.print("%*d", StreamWriter::kLongestPrint, 1);
  EXPECT_EQ(out.status(), kOk);
  out.print("%*d", StreamWriter::kLongestPrint + 1, 1);
  EXPECT_EQ(out.flush(), StatusCode::write_failed);
}

}  // namespace
}  // namespace tq
