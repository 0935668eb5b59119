// Every export with every one of its allocations refused: out of memory is the answer, images stay
// as they were, nothing is left behind, and the same call works afterwards.
#include <fstream>
#include <functional>
#include <set>
#include <sstream>
#include <string>

#include "core/context.h"
#include "core/memory.h"
#include "io/byte_stream.h"
#include "tests/support/corpus.h"
#include "tests/support/fake_sane.h"
#include "tests/support/memory_file.h"
#include "tests/support/scratch_folder.h"
#include "tests/sweep/watched_images.h"

namespace tq::test {
namespace {

using Watched = WatchedImages;

std::int32_t IMG_CB_C ignore_header(void*, void*) {
  return 1;
}
std::int32_t IMG_CB_C ignore_row(void*, void*, std::int32_t, std::int32_t) {
  return 0;
}
std::int32_t IMG_CB_C supply_zeros(void*, void* dest, std::int32_t, std::int32_t bytes) {
  std::fill_n(static_cast<std::uint8_t*>(dest), bytes, std::uint8_t{0});
  return 0;
}

std::int32_t render_small(std::int32_t image, std::int32_t fit, std::uint8_t* pixels) {
  img_view view{};
  view.bytes = sizeof view;
  view.width = 7;
  view.height = 3;
  view.fit = fit;
  return IMGLOW_render_view(image, &view, IMG_PIXELS_BGRX, pixels, 28, 0, 3);
}

std::int32_t IMG_CB_STD forget_page(std::intptr_t, std::int32_t image, std::int32_t) {
  return IMG_delete_bitmap(image);
}

// What the calls work on; global blocks are made before anything is refused.
struct Material {
  explicit Material(const ScratchFolder& folder)
      : in(folder.file("in.bmp")), out(folder.file("out.bmp")) {
    write_file(in, deep);
    global = alloc_block(deep.size());
    std::copy(deep.begin(), deep.end(), global);
    room = alloc_block(20000);
  }
  Material(const Material&) = delete;
  Material& operator=(const Material&) = delete;
  ~Material() {
    free_block(global);
    free_block(room);
  }

  // A document that is read: the number in the picture's name is that of the picture's object.
  static Bytes document(const Bytes& picture) {
    Bytes file = saved(picture, IMG_TYPE_PDF);
    const std::string name = "/Tarnquill0";
    *(std::search(file.begin(), file.end(), name.begin(), name.end()) + 10) = '5';
    return file;
  }

  std::string in, out;
  Bytes mono = plain_file(70, 5, 1), deep = plain_file(9, 4, 24), wide = plain_file(70000, 2, 1);
  Bytes grey = plain_file(20, 3, 8);
  Bytes lists = bmp_file({true, 40, 70, 2, 1, 99, grey_palette(2), {4, 0, 3, 0, 6, 0, 1, 0, 9, 0}});
  Bytes fax_page = document(mono), colour_page = document(deep);
  Bytes pages = saved(deep, IMG_TYPE_TIFF);
  Bytes cut_off = Bytes(deep.begin(), deep.end() - 5);
  Bytes dib = plain_file(9, 4, 24);  // header block and registered DIB: from byte 14 on
  std::uint8_t* global = nullptr;
  std::uint8_t* room = nullptr;
  Bytes row = Bytes(9000, 0x5A);
};

struct Call {
  const char* name;
  std::function<std::int32_t()> make;
};

// Results above 0 are handles in the decoding calls and codes or counts elsewhere.
std::vector<Call> calls(Material& m) {
  const auto call = [](auto function, auto... arguments) {
    return [=] { return function(arguments...); };
  };
  const auto block = [call](const Bytes& file) {
    return call(IMG_decompress_bitmap_block, file.data(), file.size(), 0);
  };
  const auto with = [block](auto set, const Bytes& file) {
    return [set, decode = block(file)] {
      set();
      const std::int32_t result = decode();
      IMGLOW_set_decompsize(0, 0);
      IMGLOW_set_decomp_rect(0, 0, 0, 0);
      IMGLOW_set_decomp_reduction(0);
      return result;
    };
  };
  const auto from_caller = [](const Bytes& file, auto make) {
    return [&file, make] {
      const MemoryFile stream(file);
      return make();
    };
  };
  std::uint8_t* const row = m.row.data();
  std::vector<Call> all = {
      {"IMG_create_handle", call(IMG_create_handle, m.global)},
      {"IMG_create_handle_block", call(IMG_create_handle_block, &m.dib[14], m.dib.size() - 14)},
      {"IMG_create_handle_keep", call(IMG_create_handle_keep, &m.dib[14])},
      {"IMG_create_handle_shell", call(IMG_create_handle_shell, &m.dib[14])},
      {"IMG_decompress_bitmap", call(IMG_decompress_bitmap, m.in.c_str())},
      {"IMG_decompress_bitmap_fd",
       from_caller(m.deep, call(IMG_decompress_bitmap_fd, 1, 0, 0))},
      {"IMG_decompress_bitmap_mem", call(IMG_decompress_bitmap_mem, m.global, 1)},
      {"IMG_decompress_bitmap_block", with([] { IMGLOW_set_decompsize(4, 3); }, m.deep)},
      {"IMG_decompress_bitmap_block", with([] { IMGLOW_set_decompsize(40, 3); }, m.mono)},
      {"IMG_decompress_bitmap_block", with([] { IMGLOW_set_decomp_rect(0, 0, 3, 3); }, m.mono)},
      {"IMG_decompress_bitmap_block", with([] { IMGLOW_set_decomp_reduction(8); }, m.deep)},
      {"IMG_decompress_bitmap_block", with([] { IMGLOW_set_decomp_reduction(1); }, m.grey)},
      {"IMGLOW_decompress_bitmap", from_caller(m.grey, call(IMGLOW_decompress_bitmap, 1, 0, 0, ignore_row, nullptr, ignore_header))},
      {"IMGLOW_decompress_bitmap_mem",
       call(IMGLOW_decompress_bitmap_mem, m.global, 0, ignore_row, nullptr, ignore_header)},
      {"IMGLOW_decompress_bitmap_block",
       call(IMGLOW_decompress_bitmap_block, m.lists.data(), m.lists.size(), 0, ignore_row,
                                               nullptr, ignore_header)},
      {"IMGLOW_get_filetype", call(IMGLOW_get_filetype, m.in.c_str())},
      {"IMGLOW_get_filetype_fd", from_caller(m.deep, call(IMGLOW_get_filetype_fd, 1))},
      {"IMGLOW_get_filetype_mem", call(IMGLOW_get_filetype_mem, m.global)},
      {"IMGLOW_get_pages", call(IMGLOW_get_pages, m.in.c_str())},
      {"IMGLOW_get_pages_fd", from_caller(m.deep, call(IMGLOW_get_pages_fd, 1))},
      {"IMGLOW_get_pages_mem", call(IMGLOW_get_pages_mem, m.global)},
      {"IMGLOW_get_pages_block",
       call(IMGLOW_get_pages_block, m.mono.data(), m.mono.size())},
      {"IMGLOW_get_fileinfo", call(IMGLOW_get_fileinfo, m.in.c_str(), row)},
      {"IMGLOW_get_fileinfo_fd",
       from_caller(m.deep, call(IMGLOW_get_fileinfo_fd, 1, row))},
      {"IMGLOW_get_fileinfo_mem", call(IMGLOW_get_fileinfo_mem, m.global, row)},
      {"IMGLOW_get_fileinfo_block",
       call(IMGLOW_get_fileinfo_block, m.deep.data(), m.deep.size(), row)},
      {"IMGLOW_get_image_orientation",
       [&m] { return IMGLOW_get_image_orientation(m.in.c_str()) == IMG_UNSUPPORTED ? 0 : -2; }},
      {"IMGLOW_get_image_orientation_fd",
       from_caller(m.pages, call(IMGLOW_get_image_orientation_fd, 1))},
      {"IMGLOW_get_image_orientation_block",
       call(IMGLOW_get_image_orientation_block, m.pages.data(), m.pages.size())},
      {"IMGLOW_get_fileinfo_page",
       call(IMGLOW_get_fileinfo_page, m.in.c_str(), 0, row)},
      {"IMGLOW_get_fileinfo_page_fd",
       from_caller(m.deep, call(IMGLOW_get_fileinfo_page_fd, 1, 0, row))},
      {"IMGLOW_get_fileinfo_page_block",
       call(IMGLOW_get_fileinfo_page_block, m.deep.data(), m.deep.size(), 0, row)},
      {"IMGLOW_get_tiff_tag",
       [&m, row] {
         write_file(m.out, m.pages);
         const std::int32_t bytes =
             IMGLOW_get_tiff_tag(m.out.c_str(), 0, 305, nullptr, nullptr, row, 99);
         std::filesystem::remove(m.out);
         return bytes;
       }},
      {"IMGLOW_get_tiff_tag_fd",
       from_caller(m.pages,
                   call(IMGLOW_get_tiff_tag_fd, 1, 0, 305, nullptr, nullptr, nullptr, 0))},
      {"IMGLOW_get_tiff_tag_mem",
       call(IMGLOW_get_tiff_tag_mem, m.pages.data(), 0, 256, nullptr, nullptr, nullptr, 0)},
      {"IMGLOW_get_tiff_tag_block",
       call(IMGLOW_get_tiff_tag_block, m.pages.data(), m.pages.size(), 0, 305, nullptr, nullptr,
                                          nullptr, 0)},
      {"IMG_save_bitmap_fd",
       from_caller(m.pages,
                   call(IMG_save_bitmap_fd, Watched::kDeep, 1, IMG_TYPE_TIFF_LZW))},
      {"IMG_unload_plugins", call(IMG_unload_plugins)},
      {"IMGLOW_get_raster", call(IMGLOW_get_raster, Watched::kDeep, row, 1, 0)},
      {"IMGLOW_get_raster", call(IMGLOW_get_raster, Watched::kRuns, row, 1, 3)},
      {"IMGLOW_put_raster", call(IMGLOW_put_raster, Watched::kDeep, row, 1, 5)},
      {"IMGLOW_put_raster", call(IMGLOW_put_raster, Watched::kRuns, row, 1, 0)},
      {"IMGLOW_put_raster", call(IMGLOW_put_raster, Watched::kRuns, row, 1, 3)},
      {"IMG_runs_to_dib", call(IMG_runs_to_dib, Watched::kRuns)},
      {"IMG_dib_to_runs", call(IMG_dib_to_runs, Watched::kPlain)},
      {"IMG_save_bitmap", call(IMG_save_bitmap, Watched::kDeep, m.out.c_str(), -1)},
      {"IMG_save_bitmap",
       [save = call(IMG_save_bitmap, Watched::kDeep, m.out.c_str(), IMG_TYPE_DCX)] {
         IMG_set_option(IMG_OPTION_SAFE_SAVING, 1);
         const std::int32_t saved = save();
         IMG_set_option(IMG_OPTION_SAFE_SAVING, 0);
         return saved;
       }},
      {"IMG_copy_page",
       [&m] {
         IMG_set_option(IMG_OPTION_PDF_WRITING, 1);
         const std::int32_t copied = IMG_copy_page(m.in.c_str(), 0, m.out.c_str(), IMG_TYPE_PDF);
         IMG_set_option(IMG_OPTION_PDF_WRITING, 0);
         return copied;
       }},
      {"IMG_copy_page_fd", from_caller(m.deep, call(IMG_copy_page_fd, 1, 0, 0, 1, IMG_TYPE_BMP))},
      {"IMG_copy_page", call(IMG_copy_page, "corpus/jpeg/420.jpg", 0, m.out.c_str(), IMG_TYPE_JPEG)},
      {"IMG_convert_page_fd",
       [&m] {
         const auto stream = [](const OpenFile& file) { return static_cast<int>(file.handle()); };
         OpenFile from, to;
         EXPECT_TRUE(from.open("corpus/tiff/g4.tif", OpenMode::read).ok());
         EXPECT_TRUE(to.open(m.out.c_str(), OpenMode::create).ok());
         const std::int32_t passed =
             IMG_convert_page_fd(stream(from), 0, 0, stream(to), IMG_TYPE_TIFF_G4);
         to.close();
         if (passed < 0) {
           EXPECT_EQ(std::filesystem::file_size(m.out), 0u);
           std::filesystem::remove(m.out);
         }
         return passed;
       }},
      {"IMG_set_option_text",
       [] {
         const std::int32_t set = IMG_set_option_text(IMG_TEXT_TITLE, "title");
         IMG_set_option_text(IMG_TEXT_TITLE, nullptr);
         return set;
       }},
      {"IMG_save_bitmap_fd",
       from_caller(m.deep, call(IMG_save_bitmap_fd, Watched::kRuns, 1, IMG_TYPE_BMP))},
      {"IMG_save_bitmap_fd",
       from_caller(m.fax_page, call(IMG_save_bitmap_fd, Watched::kRuns, 1, IMG_TYPE_PDF))},
      {"IMG_save_bitmap_mem",
       call(IMG_save_bitmap_mem, Watched::kRuns, m.room, IMG_TYPE_DIB)},
      {"IMGLOW_save_bitmap", from_caller(m.deep, call(IMGLOW_save_bitmap, 1, &m.grey[14], IMG_TYPE_BMP_RLE, supply_zeros, nullptr))},
      {"IMGLOW_save_bitmap_mem",
       call(IMGLOW_save_bitmap_mem, m.room, &m.grey[14], IMG_TYPE_BMP, supply_zeros, nullptr)},
      {"IMGLOW_save_bitmap_block",
       call(IMGLOW_save_bitmap_block, m.row.data(), m.row.size(), &m.grey[14], IMG_TYPE_BMP,
            supply_zeros, nullptr)},
      {"IMG_copy_dib", call(IMG_copy_dib, Watched::kRuns, m.row.data(), m.row.size())},
      {"IMG_color_gray", call(IMG_color_gray, Watched::kDeep)},
      {"IMG_mediancut_color", call(IMG_mediancut_color, Watched::kDeep)},
      {"IMG_octree_color", call(IMG_octree_color, Watched::kDeep, 4, nullptr, 16)},
      {"IMG_popularity_color", call(IMG_popularity_color, Watched::kDeep)},
      {"IMG_bayer_mono", call(IMG_bayer_mono, Watched::kDeep)},
      {"IMG_halftone_mono", call(IMG_halftone_mono, Watched::kDeep)},
      {"IMG_diffusion_mono", call(IMG_diffusion_mono, Watched::kDeep)},
      {"IMG_thresh_mono", call(IMG_thresh_mono, Watched::kDeep, -1)},
      {"IMG_bayer_color", call(IMG_bayer_color, Watched::kDeep)},
      {"IMG_diffusion_color", call(IMG_diffusion_color, Watched::kDeep)},
      {"IMG_promote_8", call(IMG_promote_8, Watched::kRuns)},
      {"IMG_promote_24", call(IMG_promote_24, Watched::kPlain)},
      {"IMG_promote_32", call(IMG_promote_32, Watched::kDeep)},
      {"IMG_flip_bitmap", call(IMG_flip_bitmap, Watched::kPlain)},
      {"IMG_mirror_bitmap", call(IMG_mirror_bitmap, Watched::kRuns)},
      {"IMG_orient_bitmap", call(IMG_orient_bitmap, Watched::kRuns, 6)},
      {"IMG_crop_bitmap", call(IMG_crop_bitmap, Watched::kDeep, 1, 1, 5, 2)},
      {"IMG_extend_bitmap", call(IMG_extend_bitmap, Watched::kRuns, 3, 1, 900, 200, 0)},
      {"IMG_rotate_bitmap", call(IMG_rotate_bitmap, Watched::kRuns, 130, -1, 0)},
      {"IMG_resize_bitmap", call(IMG_resize_bitmap, Watched::kDeep, 7, 5, 4)},
      {"IMG_resize_bitmap", call(IMG_resize_bitmap, Watched::kRuns, 17, 3, 1)},
      {"IMG_resample_bitmap",
       [] {
         IMG_set_resolution(Watched::kPlain, 200000, 100000);
         const std::int32_t status = IMG_resample_bitmap(Watched::kPlain, 200, 200, 0);
         if (status < 0) IMG_set_resolution(Watched::kPlain, 0, 0);
         return status;
       }},
      {"IMG_invert_bitmap", call(IMG_invert_bitmap, Watched::kRuns)},
      {"IMG_tone_bitmap", call(IMG_tone_bitmap, Watched::kDeep, 10, 10, 150)},
      {"IMG_tone_table", call(IMG_tone_table, Watched::kDeep, row)},
      {"IMG_tone_table3", call(IMG_tone_table3, Watched::kDeep, row)},
      {"IMG_get_histogram", call(IMG_get_histogram, Watched::kDeep, 0, nullptr)},
      {"IMG_auto_levels", call(IMG_auto_levels, Watched::kDeep, 50)},
      {"IMG_equalize_bitmap", call(IMG_equalize_bitmap, Watched::kDeep)},
      {"IMG_filter_bitmap", call(IMG_filter_bitmap, Watched::kDeep, 1, 100, 0)},
      {"IMG_filter_bitmap", call(IMG_filter_bitmap, Watched::kRuns, 2, 1, 0)},
      {"IMG_convolve_bitmap",
       [] {
         const std::int32_t weights[3] = {1, 2, 1};
         return IMG_convolve_bitmap(Watched::kDeep, weights, 1, 3, 4, 0);
       }},
      {"IMG_quantize_bitmap", call(IMG_quantize_bitmap, Watched::kDeep, 4, 4, 1)},
      {"IMG_find_threshold", call(IMG_find_threshold, Watched::kDeep)},
      {"IMG_adaptive_mono", call(IMG_adaptive_mono, Watched::kDeep, 1, 0, 0)},
      {"IMG_adaptive_mono", call(IMG_adaptive_mono, Watched::kDeep, 2, 0, 0)},
      {"IMG_level_background", call(IMG_level_background, Watched::kDeep)},
      {"IMG_find_skew", call(IMG_find_skew, Watched::kDeep, 0, nullptr, nullptr)},
      {"IMG_deskew_bitmap", call(IMG_deskew_bitmap, Watched::kRuns, 0, -1, -1, nullptr)},
      {"IMG_find_orientation", call(IMG_find_orientation, Watched::kRuns, nullptr, nullptr)},
      {"IMG_auto_orient_bitmap", call(IMG_auto_orient_bitmap, Watched::kDeep, -1, nullptr)},
      {"IMG_despeckle_bitmap", call(IMG_despeckle_bitmap, Watched::kRuns, 9, 9, 7)},
      {"IMG_remove_lines", call(IMG_remove_lines, Watched::kRuns, 2, 1, 3)},
      {"IMG_find_content", call(IMG_find_content, Watched::kDeep, nullptr, nullptr, nullptr, nullptr)},
      {"IMG_autocrop_bitmap", call(IMG_autocrop_bitmap, Watched::kRuns, 1)},
      {"IMG_find_paper", call(IMG_find_paper, Watched::kRuns, nullptr, nullptr, nullptr, nullptr)},
      {"IMG_remove_border", call(IMG_remove_border, Watched::kRuns, -1)},
      {"IMG_is_blank", call(IMG_is_blank, Watched::kDeep, 0)},
      {"IMGLOW_render_view", [row] { return render_small(Watched::kRuns, IMG_FIT_WINDOW, row); }},
      {"IMGLOW_render_view", [row] { return render_small(Watched::kDeep, IMG_FIT_FILL, row); }},
      {"IMGLOW_render_view", [row] { return render_small(Watched::kPlain, IMG_FIT_NONE, row); }},
      {"IMG_open_animation", call(IMG_open_animation, "corpus/gif/frames.gif")},
      {"IMG_next_frame",
       [] {
         const std::int32_t canvas = IMG_open_animation("corpus/gif/frames.gif");
         const std::int32_t next = canvas < 0 ? canvas : IMG_next_frame(canvas, nullptr, nullptr);
         if (canvas >= 0) IMG_delete_bitmap(canvas);
         return next;
        }},
      {"IMG_scan_pages",
       [] {
         FakeSane fake;
         fake.pages = {{FakeSane::frame(scan::sane::kGray, 1, 600, 70)}};
         IMG_scan_open(nullptr, nullptr);
         return IMG_scan_pages(forget_page, 0);
       }},
      {"IMG_scan_to_files",
       [&m] {
         FakeSane fake;
         fake.pages = {{FakeSane::frame(scan::sane::kRgb, 16, 9, 7)}};
         IMG_scan_open(nullptr, nullptr);
         return IMG_scan_to_files(m.out.c_str(), 0, IMG_TYPE_DCX);
       }},
      {"IMG_delete_bitmap", call(IMG_delete_bitmap, Watched::kDeep)},
      {"IMG_delete_bitmap_keep",
       [&m] { return IMG_delete_bitmap_keep(IMG_create_handle_keep(&m.dib[14])); }},
  };
  for (const Bytes* file : {&m.mono, &m.wide, &m.lists, &m.cut_off, &m.fax_page, &m.colour_page}) {
    all.push_back({"IMG_decompress_bitmap_block", block(*file)});
  }
  for (const CorpusFile& file : corpus_files()) {
    const auto code = [&bytes = file.bytes] {
      return std::min(IMGLOW_get_filetype_block(bytes.data(), bytes.size()), 0);
    };
    if (code() == 0) all.push_back({"IMGLOW_get_filetype_block", code});
    if (!file.decoded) continue;
    if (!file.extended) all.push_back({"IMG_decompress_bitmap_block", block(file.bytes)});
    all.push_back({"IMG_decompress_bitmap_block", [decode = block(file.bytes)] {
                     const OptionsOn options;
                     return decode();
                   }});
  }
  // With every code that has room for them.
  const Watched images;
  for (std::int32_t image = 0; image < Watched::kCount; ++image) {
    img_format format{};
    format.size = sizeof format;
    const auto describe = [&](std::int32_t i) {
      const OptionsOn options;
      return IMG_get_format(i, &format) == IMG_OK;
    };
    for (std::int32_t i = 0; describe(i); ++i) {
      for (const bool with_options : {false, true}) {
        const auto save = [&m, image, code = format.code, with_options] {
          const OptionsOn options(with_options);
          return IMG_save_bitmap_block(image, m.row.data(), m.row.size(), code);
        };
        if (save() > 0) all.push_back({"IMG_save_bitmap_block", save});
      }
    }
  }
  return all;
}

// A call that makes an image returns its handle, the next one.
void forget_new_image(std::int32_t result) {
  if (result != Watched::kCount) return;
  EXPECT_EQ(IMG_delete_bitmap(result), IMG_OK);
}

TEST(AllocationSweep, RefusedAllocationsChangeNothing) {
  const ScratchFolder folder;
  Material material(folder);
  int refusals = 0;
  for (const Call& call : calls(material)) {
    for (int count = 0;; ++count) {
      SCOPED_TRACE(testing::Message() << call.name << ", allocation " << count);
      const Watched images;
      const std::vector<Seen> before = images.see_all();
      const std::int64_t live = memory_probe::live_blocks();
      memory_probe::refuse_after(count);
      const std::int32_t result = call.make();
      const bool refused = memory_probe::refused();
      memory_probe::refuse_after(-1);
      ASSERT_EQ(memory_probe::tracked_blocks(), 0);
      if (!refused) {
        ASSERT_GE(result, 0);
        forget_new_image(result);
        break;
      }
      ++refusals;
      if (call.name != std::string("IMG_delete_bitmap_keep")) {
        ASSERT_EQ(result, IMG_OUT_OF_MEMORY);
      }
      ASSERT_EQ(memory_probe::live_blocks(), live);
      ASSERT_EQ(images.see_all(), before);
      ASSERT_FALSE(std::filesystem::exists(material.out));
      const std::int32_t again = call.make();
      ASSERT_GE(again, 0);
      forget_new_image(again);
      std::filesystem::remove(material.out);
    }
    std::filesystem::remove(material.out);
  }
  EXPECT_GT(refusals, 800);
}

// Exports that take no memory of a context's.
const char* const kWithoutMemory =
    "IMGLOW_autocolor IMGLOW_get_auto_detect IMGLOW_get_bitmap_header IMGLOW_get_display_rect "
    "IMGLOW_get_palette IMGLOW_get_transp_color IMGLOW_put_palette IMGLOW_set_alias "
    "IMGLOW_set_alias_quality IMGLOW_set_auto_detect IMGLOW_set_comp_quality "
    "IMGLOW_set_decomp_rect IMGLOW_set_decomp_reduction IMGLOW_set_decompsize "
    "IMGLOW_set_dispfunc IMGLOW_set_dithermode IMGLOW_set_fileio IMGLOW_set_jpg_interleave "
    "IMGLOW_set_rop IMGLOW_set_transp_color IMGLOW_set_wipedelay IMGLOW_unset_auto_detect "
    "IMG_bitmap_info IMG_bitmap_palette IMG_create_handle_ddb IMG_get_bitmap_palette "
    "IMGLOW_wipe_rects IMG_copy_to_clipboard IMG_display_bitmap_iac IMG_display_wipe "
    "IMG_get_frame_delay IMG_paste_from_clipboard IMG_print_bitmap IMG_print_bitmap_fast "
    "IMG_print_pages "
    "IMG_image_to_window IMG_scroll_view IMG_view_layout IMG_window_to_image IMG_zoom_view "
    "IMG_delete_context IMG_get_croprect IMG_get_damage IMG_get_damaged_rows IMG_get_format "
    "IMG_get_option "
    "IMG_get_resolution IMG_ifl_version IMG_library_version IMG_new_context IMG_scan_cancel "
    "IMG_scan_close IMG_scan_get IMG_scan_open IMG_scan_reason IMG_scan_select IMG_scan_set "
    "IMG_scan_source IMG_scan_values IMG_set_croprect "
    "IMG_set_display_angle IMG_set_display_callback IMG_set_display_tone "
    "IMG_set_encrypt IMG_set_gamma IMG_set_option IMG_set_resolution IMG_set_statusbar "
    "IMG_status_text "
    "IMG_use_context ";

TEST(AllocationSweep, CoversEveryExport) {
  const ScratchFolder folder;
  Material material(folder);
  std::set<std::string> exported, covered;
  std::istringstream listed(kWithoutMemory);
  for (std::string name; listed >> name;) covered.insert(name);
  for (const Call& call : calls(material)) covered.insert(call.name);
  std::ifstream header("../include/tarnquill.h");
  for (std::string line; std::getline(header, line);) {
    const std::size_t declared = line.find("IMG_CALL IMG");
    if (!line.starts_with("IMG_API") || declared == std::string::npos) continue;
    const std::size_t name = declared + 9;
    exported.insert(line.substr(name, line.find('(') - name));
  }
  EXPECT_GT(exported.size(), 50u);
  EXPECT_EQ(covered, exported);
}

}  // namespace
}  // namespace tq::test
