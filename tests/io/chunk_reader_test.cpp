#include "io/chunk_reader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <vector>

#include "include/tarnquill.h"
#include "io/byte_stream.h"
#include "tests/support/guarded_block.h"
#include "tests/support/memory_file.h"
#include "tests/support/scratch_folder.h"

namespace tq {
namespace {

using test::GuardedBlock;
using test::MemoryFile;
using Bytes = std::vector<std::uint8_t>;

constexpr std::uint8_t kKey = 0x5A;

enum class Source {
  file,
  scrambled_file,
  caller,
  dripping_caller,
  sized_memory,
  memory,
  scrambled_memory,
  memory_with_callers_seek,
};
// A stream of `content`. Memory ends with it, and only the sized one says so.
class Stream {
 public:
  Stream(Source source, Bytes content)
      : memory_(source >= Source::sized_memory), has_end_(source <= Source::sized_memory) {
    if (source == Source::scrambled_file || source == Source::scrambled_memory) {
      IMG_set_encrypt(1, kKey);
      for (std::uint8_t& byte : content) byte ^= kKey;
    }
    if (memory_) {
      block_ = std::make_unique<GuardedBlock>(content);
      if (has_end_) open_memory_stream(block_->data(), block_->size());
      if (!has_end_) open_memory_stream(block_->data());
      handle_ = kMemoryStream;
    } else if (source == Source::file || source == Source::scrambled_file) {
      test::write_file(folder_.file("a"), content);
      EXPECT_TRUE(file_.open(folder_.file("a").c_str(), OpenMode::read).ok());
      handle_ = file_.handle();
    } else {
      caller_ = std::make_unique<MemoryFile>(content);
      if (source == Source::dripping_caller) caller_->most_per_call = 7;
      handle_ = MemoryFile::kHandle;
    }
    if (source == Source::memory_with_callers_seek) {
      caller_ = std::make_unique<MemoryFile>();
      caller_->install(false, false, true);
    }
  }
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;
  ~Stream() {
    IMG_set_encrypt(0, 0);
    open_memory_stream(nullptr);
  }
  StreamHandle handle() const { return handle_; }
  bool memory() const { return memory_; }
  bool has_end() const { return has_end_; }

 private:
  bool memory_, has_end_;
  StreamHandle handle_{-1};
  test::ScratchFolder folder_;
  OpenFile file_;
  std::unique_ptr<GuardedBlock> block_;
  std::unique_ptr<MemoryFile> caller_;
};

Bytes random_bytes(std::mt19937& random, std::size_t count) {
  Bytes bytes(count);
  for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(random());
  return bytes;
}

// Takes up to `limit` bytes (of memory never more, because nobody knows where it ends) in pieces of
// random kind and size.
Bytes take_in_pieces(ChunkReader& reader, std::size_t chunk, std::size_t limit, bool may_pass_end,
                     std::mt19937& random) {
  Bytes taken;
  bool at_end = false;
  while (taken.size() < limit && !at_end) {
    const std::size_t left = limit - taken.size();
    const std::size_t room = may_pass_end ? left + 10 : left;
    const int kind = static_cast<int>(random() % 3);
    if (kind == 0) {
      const int byte = reader.next();
      at_end = byte < 0;
      if (!at_end) taken.push_back(static_cast<std::uint8_t>(byte));
    } else if (kind == 1) {
      const std::size_t wanted = 1 + random() % std::min(chunk, room);
      const auto seen = reader.peek(wanted);
      EXPECT_LE(seen.size(), wanted);
      at_end = seen.size() < wanted;
      const std::size_t piece = at_end ? seen.size() : random() % (wanted + 1);
      taken.insert(taken.end(), seen.begin(), seen.begin() + static_cast<std::ptrdiff_t>(piece));
      reader.skip(piece);
    } else {
      Bytes piece(1 + random() % room);
      const std::size_t got = reader.read(piece);
      at_end = got < piece.size();
      taken.insert(taken.end(), piece.begin(), piece.begin() + static_cast<std::ptrdiff_t>(got));
    }
  }
  return taken;
}

TEST(ChunkReader, AnyPatternOfRequestsGivesTheStreamsBytes) {
  std::mt19937 random(20240229);
  for (int kind = 0; kind <= static_cast<int>(Source::memory_with_callers_seek); ++kind) {
    const auto source = static_cast<Source>(kind);
    for (int round = 0; round < 60; ++round) {
      const std::size_t size = round == 0 ? 0 : random() % (round < 30 ? 50 : 5000);
      const std::size_t chunk = 1 + random() % (round % 2 == 0 ? 9 : 700);
      const std::size_t start = random() % (size + 1);
      SCOPED_TRACE(testing::Message() << "source " << kind << ", size " << size << ", chunk "
                                      << chunk << ", start " << start);
      const Bytes content = random_bytes(random, size);
      Stream stream(source, content);
      Bytes one(1);
      for (std::size_t i = 0; i < start; ++i) ASSERT_EQ(read(stream.handle(), one), 1);

      // Memory: often stop before the end, and see where the stream stands then.
      std::size_t end = size;
      if (!stream.has_end() && random() % 2 == 0) end = start + random() % (size - start + 1);
      ChunkReader reader;
      ASSERT_TRUE(reader.open(stream.handle(), static_cast<std::int64_t>(chunk)).ok());
      const Bytes taken = take_in_pieces(reader, chunk, stream.has_end() ? size + 10 : end - start,
                                         stream.has_end(), random);
      const auto from = content.begin() + static_cast<std::ptrdiff_t>(start);
      ASSERT_EQ(taken, Bytes(from, content.begin() + static_cast<std::ptrdiff_t>(end)));
      // What was only peeked at stays in the stream.
      if (end < size) {
        EXPECT_EQ(reader.peek(1).size(), 1u);
      }
      reader.close();
      if (stream.memory()) {
        ASSERT_EQ(memory_position(), static_cast<std::int32_t>(end));
      }
    }
  }
}

// Pieces that are gone when the next is asked for.
struct Pieces {
  const Bytes& content;
  std::mt19937& random;
  std::size_t taken = 0;
  Bytes piece{};

  std::span<const std::uint8_t> next_piece() {
    const std::size_t size = std::min<std::size_t>(content.size() - taken, 1 + random() % 40);
    const auto from = content.begin() + static_cast<std::ptrdiff_t>(taken);
    std::fill(piece.begin(), piece.end(), std::uint8_t{0xEE});
    piece = Bytes(from, from + static_cast<std::ptrdiff_t>(size));
    taken += size;
    return piece;
  }
};

TEST(ChunkReader, PiecesOfAnySizeAreOneStream) {
  std::mt19937 random(20240301);
  for (int round = 0; round < 200; ++round) {
    const Bytes content = random_bytes(random, random() % 500);
    const std::size_t chunk = 1 + random() % 60;
    SCOPED_TRACE(testing::Message() << "round " << round << ", chunk " << chunk);
    Pieces pieces{content, random};
    ChunkReader reader;
    ASSERT_TRUE(reader.open(PieceSource::of(pieces), static_cast<std::int64_t>(chunk)).ok());
    ASSERT_EQ(take_in_pieces(reader, chunk, content.size() + 10, true, random), content);
  }
}

TEST(ChunkReader, CallersAreAskedForWholeChunks) {
  MemoryFile caller(Bytes(1000, 1));
  ChunkReader reader;
  ASSERT_TRUE(reader.open(MemoryFile::kHandle, 100).ok());
  for (int i = 0; i < 1000; ++i) ASSERT_EQ(reader.next(), 1);
  EXPECT_EQ(caller.counts, std::vector<std::int32_t>(10, 100));
}

TEST(ChunkReader, KeepsReadingItsBlockWhenAnotherIsOpenedMeanwhile) {
  const GuardedBlock first(Bytes{1, 2, 3}), second(Bytes{7, 8, 9});
  open_memory_stream(first.data());
  ChunkReader reader;
  ASSERT_TRUE(reader.open(kMemoryStream, 100).ok());
  open_memory_stream(second.data());
  EXPECT_EQ(seek(kMemoryStream, 1, Origin::start), 1);
  EXPECT_EQ(reader.next(), 1);
  EXPECT_EQ(reader.next(), 2);
  reader.close();
  EXPECT_EQ(memory_position(), 1) << "the other stream must not move";
  open_memory_stream(nullptr);
}

}  // namespace
}  // namespace tq
