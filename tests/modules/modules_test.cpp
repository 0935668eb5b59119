// Modules that are missing, lack entries, are handed the streams, and are unloaded meanwhile.
#include <gmock/gmock.h>

#include "formats/plugin/plugin.h"
#include "tests/modules/module_files.h"
#include "tests/support/codec_runs.h"
#include "tests/support/image_builder.h"
#include "tests/support/scratch_folder.h"

namespace tq::test {
namespace {

using testing::ElementsAre;

const Bytes kGif = {'G', 'I', 'F', '8', '9', 'a', 10, 20, 30, 40, 50};

Bytes pixels_of(std::int32_t image) {
  Bytes row(8);
  EXPECT_EQ(IMGLOW_get_raster(image, row.data(), 0, 8), 0);
  EXPECT_EQ(IMG_delete_bitmap(image), 0);
  return row;
}

Bytes decode_from_memory(std::int32_t page = 0) {
  return pixels_of(IMG_decompress_bitmap_block(kGif.data(), kGif.size(), page));
}

#ifndef _WIN32  // there the system searches
TEST(Modules, AreFoundBesideTheLibraryAndThenInTheirFolder) {
  const InstalledModule module("test_module", "trqvpl1", "tarnquill");
  EXPECT_THAT(decode_from_memory(), ElementsAre(1, 1, 7, 0, 10, 20, 30, 40));
  const InstalledModule nearer("test_module_partial", "trqvpl1");
  EXPECT_EQ(IMG_unload_plugins(), 0);
  EXPECT_THAT(decode_from_memory(), ElementsAre(1, 0, 0, 0, 0, 0, 0, 0));
}
#endif

bool pdf_available = false;
Status decode_pdf(const formats::DecodeRequest& request) {
  return plugin::decode_pdf_by_module(request, pdf_available);
}

// All codecs of modules but the GIF decoder have their status; files are left alone.
void expect_missing() {
  decoded(plugin::decode_tiff_lzw, kGif, -23);
  decoded(plugin::decode_abic, kGif, -1);
  decoded(decode_pdf, kGif, -36);
  EXPECT_FALSE(pdf_available);
  const ScratchFolder folder;
  const std::string name = folder.file("kept");
  write_file(name, {1, 2, 3});
  const Image image = make_image(8, 8, {{1, 2, 3, 4, 5, 6, 7, 8}});
  for (const std::int32_t code : {IMG_TYPE_GIF, IMG_TYPE_GIF_INTERLACED, IMG_TYPE_TIFF_LZW}) {
    EXPECT_EQ(IMG_save_bitmap(image, name.c_str(), code), -23);
    EXPECT_EQ(file_content(name), (Bytes{1, 2, 3})) << "refused before it is opened";
  }
  EXPECT_EQ(IMG_save_bitmap(image, folder.file("a.bmp").c_str(), -1), 0);
}

TEST(Modules, MissingOnesHaveTheirStatusAndNothingElseSuffers) {
  expect_missing();
  EXPECT_EQ(IMG_decompress_bitmap_block(kGif.data(), kGif.size(), 0), -23);
  EXPECT_EQ(IMG_unload_plugins(), 0);
}

TEST(Modules, WithoutAnEntryAreMissing) {
  const InstalledModule lzw("test_module_partial", "trqvpl1"),
      pdf("test_module_partial", "pdfplug"), abic("test_module_partial", "abicplug");
  EXPECT_THAT(decode_from_memory(), ElementsAre(1, 0, 0, 0, 0, 0, 0, 0))
      << "set_callbacks is not needed";
  expect_missing();
}

TEST(Modules, AreHandedTheStreamsOnceAndForwardEverything) {
  const InstalledModule module("test_module", "trqvpl1");
  // Memory, a file, and the caller's own functions.
  EXPECT_THAT(decode_from_memory(), ElementsAre(1, 1, 7, 0, 10, 20, 30, 40));
  const ScratchFolder folder;
  const std::string name = folder.file("a.gif");
  write_file(name, kGif);
  EXPECT_THAT(pixels_of(IMG_decompress_bitmap(name.c_str())),
              ElementsAre(2, 1, 7, 0, 10, 20, 30, 40));
  {
    MemoryFile file(kGif);
    file.most_per_call = 100;
    EXPECT_THAT(pixels_of(IMG_decompress_bitmap_fd(4711, 0, 0)),
                ElementsAre(3, 1, 7, 0, 10, 20, 30, 40));
    EXPECT_THAT(file.handles, testing::Each(4711));
  }
  EXPECT_THAT(decode_from_memory(9), ElementsAre(4, 1, 7, 9, 10, 20, 30, 40)) << "a page";

  const Image image = make_image(8, 8, {{1, 2, 3, 4, 5, 6, 7, 8}});
  const struct {
    std::int32_t code;
    std::uint8_t mark;
  } encoders[] = {{IMG_TYPE_GIF, 'g'}, {IMG_TYPE_GIF_INTERLACED, 'i'}, {IMG_TYPE_TIFF_LZW, 't'}};
  for (const auto& encoder : encoders) {
    Bytes block(20);
    EXPECT_EQ(IMG_save_bitmap_block(image, block.data(), block.size(), encoder.code), 9);
    block.resize(9);
    EXPECT_THAT(block, ElementsAre(encoder.mark, 1, 2, 3, 4, 5, 6, 7, 8));
    EXPECT_EQ(IMG_save_bitmap_block(image, block.data(), 3, encoder.code), -9);
  }
  decoded(plugin::decode_tiff_lzw, kGif, -71);
  // Callers without callbacks.
  EXPECT_EQ(IMGLOW_decompress_bitmap_block(kGif.data(), kGif.size(), 0, nullptr, nullptr, nullptr),
            0);
}

std::int32_t IMG_CB_C unload_in_row(void* /*row*/, void* /*context*/, std::int32_t /*y*/,
                                    std::int32_t /*bytes*/) {
  EXPECT_EQ(IMG_unload_plugins(), 0);
  // A call within the call.
  return decode_from_memory()[0] == 2 ? 0 : -99;
}

TEST(Modules, StayWhileTheirCodeIsRunning) {
  const InstalledModule module("test_module", "trqvpl1");
  Bytes block = kGif;
  open_memory_stream(block.data(), block.size());
  const formats::RowSink sink{.on_row = unload_in_row};
  EXPECT_EQ(plugin::decode_gif({kMemoryStream, 0, sink}).raw(), 5) << "the module's own answer";
  EXPECT_EQ(decode_from_memory()[0], 1) << "unloaded when the call had returned";
  EXPECT_EQ(IMG_unload_plugins(), 0);
  EXPECT_EQ(IMG_unload_plugins(), 0);
  EXPECT_THAT(decode_from_memory(), ElementsAre(1, 1, 7, 0, 10, 20, 30, 40)) << "loaded again";
}

TEST(Modules, OfPdfAndAbic) {
  const InstalledModule pdf("test_module", "pdfplug"), abic("test_module", "abicplug");
  const CollectingSink sink = decoded(decode_pdf, kGif, 5);
  EXPECT_THAT(sink.rows.at(0).bytes, ElementsAre(1, 1, 99, 0, 10, 20, 30, 40)) << "no helper";
  open_memory_stream(nullptr, 0);
  EXPECT_EQ(decode_pdf({kMemoryStream, 0, {}}).raw(), -12);
  EXPECT_TRUE(pdf_available);
  decoded(plugin::decode_abic, kGif, -72);
}

}  // namespace
}  // namespace tq::test
