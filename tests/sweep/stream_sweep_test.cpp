// Small files cut off at every byte, and streams whose every call fails or comes short: by name, by
// the caller's functions, in memory.
#include <gmock/gmock.h>

#include <algorithm>
#include <string>

#include "core/memory.h"
#include "tests/support/corpus.h"
#include "tests/support/guarded_block.h"
#include "tests/support/memory_file.h"
#include "tests/support/scratch_folder.h"
#include "tests/sweep/watched_images.h"

namespace tq::test {
namespace {

// What a damaged file may come to.
const auto kDecoded = testing::AnyOf(0, IMG_UNSUPPORTED, IMG_BAD_IMAGE, IMG_CANNOT_OPEN,
                                     IMG_READ_FAILED, IMG_NO_SUCH_PAGE);

struct Sample {
  std::string name;
  Bytes file;
};

// What other programs do not write, and files of theirs that are short enough.
std::vector<Sample> samples(std::size_t most_bytes = 350, bool extended = false) {
  std::vector<Sample> all;
  for (const int bits : {1, 4, 8, 16, 24, 32}) all.push_back({"plain", plain_file(11, 3, bits)});
  const Bytes run_lists = {6, 0, 3, 0, 9, 0, 4, 0, 1, 0};
  all.push_back({"run lists", bmp_file({true, 40, 40, 2, 1, 99, grey_palette(2), run_lists})});
  for (const std::int32_t code : {IMG_TYPE_BMP_RLE, IMG_TYPE_PCX, IMG_TYPE_DCX, IMG_TYPE_TIFF_LZW,
                                  IMG_TYPE_TIFF_PACKBITS, IMG_TYPE_PHOTOSHOP}) {
    all.push_back({"saved", saved(plain_file(7, 3, 8), code)});
  }
  for (const CorpusFile& file : corpus_files()) {
    const bool wanted = file.decoded && (extended || !file.extended);
    if (wanted && file.bytes.size() < most_bytes) all.push_back({file.name, file.bytes});
  }
  return all;
}

// The image's looks, and nothing of it is left beside the blocks of others.
std::vector<Seen> taken(std::int32_t image, std::int64_t others = 0) {
  std::vector<Seen> seen;
  if (image >= 0) {
    seen.push_back(see(image));
    EXPECT_EQ(IMG_delete_bitmap(image), IMG_OK);
  }
  EXPECT_EQ(memory_probe::live_blocks() + memory_probe::tracked_blocks(), others);
  return seen;
}

TEST(StreamSweep, EveryPrefixIsTheSameByNameFromMemoryAndFromTheCaller) {
  const ScratchFolder folder;
  for (const bool with_options : {false, true}) {
    const OptionsOn options(with_options);
    const std::string name = folder.file("cut.bmp");
    for (const Sample& sample : samples(350, with_options)) {
      int images = 0;
      for (std::size_t size = 0; size <= sample.file.size(); ++size) {
        SCOPED_TRACE(testing::Message() << sample.name << ", " << size << " bytes");
        const Bytes file(sample.file.begin(),
                         sample.file.begin() + static_cast<std::ptrdiff_t>(size));
        const GuardedBlock block(file);
        const std::int32_t in_memory = IMG_decompress_bitmap_block(block.data(), block.size(), 0);
        const std::vector<Seen> seen = taken(in_memory);
        ASSERT_THAT(in_memory, kDecoded);
        images += static_cast<int>(seen.size());
        // Files cost more; a cut inside the palette is like any other there.
        if (size % 16 == 0 || size < 70 || size + 40 > sample.file.size()) {
          write_file(name, file);
          const std::int32_t by_name = IMG_decompress_bitmap(name.c_str());
          ASSERT_EQ(by_name, in_memory);
          ASSERT_EQ(taken(by_name), seen);
          ASSERT_EQ(IMGLOW_get_filetype(name.c_str()),
                    IMGLOW_get_filetype_block(block.data(), block.size()));
        }
        const MemoryFile stream(file);
        const std::int32_t from_caller = IMG_decompress_bitmap_fd(1, 0, 0);
        ASSERT_EQ(from_caller, in_memory);
        ASSERT_EQ(taken(from_caller), seen);
      }
      EXPECT_GT(images, 0);
    }
  }
}

TEST(StreamSweep, ReadsMayHandOutAFewBytesAtATime) {
  for (const Sample& sample : samples(SIZE_MAX)) {
    const std::vector<Seen> whole = taken(load(sample.file));
    const std::int32_t type = IMGLOW_get_filetype_block(sample.file.data(), sample.file.size());
    const std::int32_t pages = IMGLOW_get_pages_block(sample.file.data(), sample.file.size());
    for (const std::int32_t most : {1, 19, 100}) {
      SCOPED_TRACE(testing::Message() << sample.name << ", " << most << " bytes");
      MemoryFile file(sample.file);
      file.most_per_call = most;
      EXPECT_EQ(IMGLOW_get_filetype_fd(1), type);
      EXPECT_EQ(taken(IMG_decompress_bitmap_fd(1, 0, 0)), whole);
      file.position = 0;
      EXPECT_EQ(IMGLOW_get_pages_fd(1), pages);
    }
  }
}

TEST(StreamSweep, MemoryWithoutASizeIsNotReadBehindTheFile) {
  for (const Sample& sample : samples(SIZE_MAX)) {
    const std::vector<Seen> whole = taken(load(sample.file));
    for (const std::uint8_t key : Bytes{0, 0x55}) {
      SCOPED_TRACE(testing::Message() << sample.name << ", key " << int{key});
      const GuardedBlock block(sample.file);
      for (std::uint8_t& byte : block.bytes()) byte ^= key;
      IMG_set_encrypt(key, key);
      EXPECT_EQ(taken(IMG_decompress_bitmap_mem(block.data(), 0)), whole);
      IMG_set_encrypt(0, 0);
    }
  }
}

TEST(StreamSweep, AnyReadOrSeekMayFailOrComeShort) {
  for (const bool with_options : {false, true}) {
    const OptionsOn options(with_options);
    for (const Sample& sample : samples(350, with_options)) {
      const std::int32_t type = IMGLOW_get_filetype_block(sample.file.data(), sample.file.size());
      for (const std::int32_t answer : {-1, 0, 1, INT32_MIN, INT32_MAX}) {
        for (int call = 0;; ++call) {
          SCOPED_TRACE(testing::Message()
                       << sample.name << ", call " << call << " answers " << answer);
          MemoryFile file(sample.file);
          file.failing_call = call;
          file.failure = answer;
          file.seeks_lie = true;
          const std::int32_t image = IMG_decompress_bitmap_fd(1, 0, 0);
          taken(image);
          if (file.calls <= call) {  // the fault was not reached
            ASSERT_EQ(image, 0);
            ASSERT_GT(call, 1);
            break;
          }
          ASSERT_THAT(image, kDecoded);
          file.position = file.calls = 0;
          ASSERT_THAT(
              IMGLOW_get_filetype_fd(1),
              testing::AnyOf(type, IMG_TYPE_BMP, IMG_TYPE_BMP_RLE, IMG_UNSUPPORTED, IMG_BAD_IMAGE));
        }
      }
    }
  }
}

std::vector<std::vector<Seen>> pages_of(MemoryFile& file, int pages) {
  std::vector<std::vector<Seen>> all;
  const std::int64_t others = memory_probe::live_blocks();
  for (int page = 0; page < pages; ++page) {
    file.position = 0;
    all.push_back(taken(IMG_decompress_bitmap_fd(1, 0, page), others));
  }
  return all;
}

TEST(StreamSweep, APageThatCannotBeAddedLeavesThePagesThatWereThere) {
  const int most_pages = 3;
  for (const int bits : {8, 1, 8}) ASSERT_GE(load(plain_file(20 + bits, 3, bits)), 0);
  constexpr std::int32_t kCodes[] = {IMG_TYPE_DCX, IMG_TYPE_PDF, IMG_TYPE_PDF,
                                     IMG_TYPE_TIFF_PACKBITS};
  for (int round = 0; round < 8; ++round) {
    const std::int32_t code = kCodes[round / 2];
    IMG_set_option(IMG_OPTION_SAFE_SAVING, round % 2);
    IMG_set_option(IMG_OPTION_PDF_WRITING, round / 2 == 2 ? 1 : 0);
    const auto add_page = [&](MemoryFile& file, std::int32_t image) {
      file.position = 0;
      return IMG_save_bitmap_fd(image, 1, code);
    };
    std::vector<Bytes> files(1);  // of so many pages
    for (int pages = 0; pages < most_pages; ++pages) {
      MemoryFile file(files.back());
      ASSERT_EQ(add_page(file, pages), IMG_OK);
      files.push_back(file.bytes);
    }
    for (int pages = 0; pages < most_pages; ++pages) {
      const Bytes &before = files[pages], &after = files[pages + 1];
      MemoryFile unharmed(before);
      const auto old_pages = pages_of(unharmed, pages);
      for (const std::int32_t answer : {-1, 0, 1, INT32_MAX}) {
        for (int call = 0, calls = 1; call < calls; ++call) {
          SCOPED_TRACE(testing::Message() << "code " << code << ", " << pages << " pages, call "
                                          << call << " answers " << answer);
          MemoryFile file(before);
          file.failing_call = call;
          file.failure = answer;
          const std::int32_t saved = add_page(file, pages);
          calls = std::max(calls, file.calls + 1);
          file.failing_call = -1;
          if (saved == IMG_OK) {  // a short read is read on, some seeks need not succeed
            ASSERT_EQ(file.bytes, after);
            continue;
          }
          ASSERT_THAT(saved, testing::AnyOf(IMG_WRITE_FAILED, IMG_READ_FAILED, IMG_BAD_IMAGE));
          if (saved != IMG_WRITE_FAILED) {
            ASSERT_EQ(file.bytes, before);
          }
          // Of a container's table the free entries may change.
          const std::size_t table = code == IMG_TYPE_DCX && pages > 0 ? 4 + 4 * pages : 0;
          const std::size_t rest = table > 0 ? 404 : 0;
          ASSERT_TRUE(std::equal(before.begin(), before.begin() + table, file.bytes.begin()));
          if (code != IMG_TYPE_TIFF_PACKBITS) {  // the link may be written in part
            ASSERT_TRUE(std::equal(before.begin() + rest, before.end(), file.bytes.begin() + rest));
          }
          ASSERT_EQ(pages_of(file, pages), old_pages);
        }
      }
    }
  }
  IMG_set_option(IMG_OPTION_SAFE_SAVING, 0);
  IMG_set_option(IMG_OPTION_PDF_WRITING, 0);
  for (std::int32_t image = 0; image < most_pages; ++image) IMG_delete_bitmap(image);
}

struct SaveCase {
  Bytes file;
  std::int32_t code;
};

std::vector<SaveCase> saves() {
  std::vector<SaveCase> all;
  for (const int bits : {1, 4, 8, 24, 32}) {
    const Bytes file = plain_file(11, 3, bits);
    all.push_back({file, IMG_TYPE_BMP});
    all.push_back({file, IMG_TYPE_DIB});
    if (bits == 4 || bits == 8) all.push_back({file, IMG_TYPE_BMP_RLE});
    if (bits != 4) all.push_back({file, IMG_TYPE_PDF});
    all.push_back({file, IMG_TYPE_TIFF_LZW});
    if (bits == 1) all.push_back({file, IMG_TYPE_TIFF_G3});
    all.push_back({file, IMG_TYPE_PHOTOSHOP});
    all.push_back({file, IMG_TYPE_ICON});
    all.push_back({file, IMG_TYPE_PICT});
    if (bits != 32) all.push_back({file, IMG_TYPE_IFF});
    if (bits == 32) continue;
    all.push_back({file, IMG_TYPE_PCX});
    if (bits == 1) all.push_back({file, IMG_TYPE_DCX});  // each makes a temporary file
    all.push_back({file, IMG_TYPE_PNG});
  }
  return all;
}

TEST(StreamSweep, MemoryThatIsTooSmallByAnyAmountIsAWriteFailure) {
  for (const SaveCase& save : saves()) {
    const std::int32_t image = load(save.file);
    const Seen before = see(image);
    const GuardedBlock ample(4000);
    const std::int32_t whole = IMG_save_bitmap_block(image, ample.data(), 4000, save.code);
    ASSERT_GT(whole, 40);
    for (std::int32_t room = 0; room <= whole; ++room) {
      const GuardedBlock block(static_cast<std::size_t>(room));
      const std::int32_t saved =
          IMG_save_bitmap_block(image, block.data(), block.size(), save.code);
      ASSERT_EQ(saved, room == whole ? whole : IMG_WRITE_FAILED) << save.code << ", " << room;
    }
    EXPECT_EQ(see(image), before);
    taken(image);
  }
}

TEST(StreamSweep, AnyWriteMayFailOrComeShortAndLeavesNoFile) {
  const ScratchFolder folder;
  const std::string name = folder.file("half.bmp");
  const Bytes kOther = {1, 2, 3};
  for (const SaveCase& save : saves()) {
    // These ask the stream where it ends.
    constexpr std::int32_t kAsking[] = {IMG_TYPE_PDF, IMG_TYPE_DCX, IMG_TYPE_TIFF_LZW,
                                        IMG_TYPE_TIFF_G3};
    if (std::ranges::find(kAsking, save.code) != std::end(kAsking)) continue;
    constexpr std::int32_t kGoingBack[] = {IMG_TYPE_PHOTOSHOP, IMG_TYPE_PICT, IMG_TYPE_IFF};
    const bool goes_back = std::ranges::find(kGoingBack, save.code) != std::end(kGoingBack);
    const std::int32_t image = load(save.file);
    const Seen before = see(image);
    MemoryFile file;
    file.install(false, true, goes_back);
    for (const std::int32_t answer : {-1, 0, 1, INT32_MAX}) {  // the last: one byte less
      for (int number = 0;; ++number) {
        SCOPED_TRACE(testing::Message()
                     << save.code << ", write " << number << " answers " << answer);
        file.failing_call = number;
        file.failure = answer;
        file.calls = 0;
        file.position = 0;
        const std::int32_t saved = IMG_save_bitmap_fd(image, 1, save.code);
        const bool reached = file.calls > number;
        ASSERT_EQ(saved, reached ? IMG_WRITE_FAILED : IMG_OK);
        file.calls = 0;
        file.position = 0;
        ASSERT_EQ(IMG_save_bitmap(image, name.c_str(), save.code), saved);
        ASSERT_EQ(std::filesystem::exists(name), saved == IMG_OK);
        write_file(name, kOther);
        file.calls = 0;
        file.position = 0;
        IMG_set_option(IMG_OPTION_SAFE_SAVING, 1);
        ASSERT_EQ(IMG_save_bitmap(image, name.c_str(), save.code), saved);
        IMG_set_option(IMG_OPTION_SAFE_SAVING, 0);
        ASSERT_EQ(file_content(name) == kOther, saved != IMG_OK);
        std::filesystem::remove(name);
        ASSERT_TRUE(std::filesystem::is_empty(folder.path()));
        if (!reached) break;
      }
    }
    EXPECT_EQ(see(image), before);
    taken(image);
  }
}

}  // namespace
}  // namespace tq::test
