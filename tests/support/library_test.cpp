#include "tests/support/library_test.h"

#include "core/context.h"
#include "core/image_table.h"
#include "core/licence.h"
#include "io/byte_stream.h"

namespace tq::test {
namespace {

void reset_library() {
  context().settings = Settings{};
  context().options = Options{};
  set_caller_io(nullptr, nullptr, nullptr);
  set_scrambling(false, 0);
  set_licence_check(nullptr);
  open_memory_stream(nullptr, 0);
  memory_probe::refuse_after(-1);
  memory_probe::refuse_above(kLargestBlock);
  memory_probe::fill_fresh(kStale);
  release_kept_blocks();
}

int delete_all_images() {
  int deleted = 0;
  for (std::int32_t handle = 0; handle < kMostImages; ++handle) {
    if (IMG_delete_bitmap(handle) == 0) ++deleted;
  }
  return deleted;
}

}  // namespace

LibraryTest::LibraryTest() : live_before_(memory_probe::live_blocks()) {
  reset_library();
}

LibraryTest::~LibraryTest() {
  EXPECT_EQ(delete_all_images(), 0) << "images left";
  EXPECT_EQ(blocks(), 0) << "blocks left";
  EXPECT_EQ(memory_probe::tracked_blocks(), 0);
  reset_library();
  memory_probe::fill_fresh(-1);
}

}  // namespace tq::test
