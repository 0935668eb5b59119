// Decodes a file with the settings, and by the way, that the first bytes of the input choose; then
// decodes it again from plain memory over other heap bytes and without the faster kernels: both
// must look the same. What was decoded is read, cropped, saved, read back and deleted.
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <memory>
#include <set>
#include <string>

#include "fuzz/decode_settings.h"
#include "fuzz/fuzz_support.h"
#include "platform/cpu.h"
#include "platform/memory.h"

namespace tq::fuzz {
namespace {

constexpr std::uint64_t kLargestAllowed = 96 << 10;  // bytes; the image table must fit
constexpr std::int32_t kFewPixels = 6000;
constexpr std::int32_t kMostSinkRows = 2000;
constexpr std::int64_t kMostSinkBytes = 128 << 10;

struct Settings : DecodeSettings {
  Route way() const { return static_cast<Route>(route % static_cast<int>(Route::count)); }
  bool colour_flag(int bit) const { return (colours >> bit & 1) != 0; }
  bool touch_flag(int bit) const { return (touch >> bit & 1) != 0; }
  // The stream tells the truth and nobody interferes: any way of decoding gives the same.
  bool undisturbed() const {
    return most_per_call == 0 && failing_call == 0 && progress == 0 && refused == 0;
  }
};

// ---- The caller's side ------------------------------------------------------------------------

// The caller's functions, for the scope.
class CallerIo {
 public:
  CallerIo(const Settings& settings, Bytes content) {
    caller_file = {.bytes = {content.begin(), content.end()},
                   .most_per_call = settings.most_per_call,
                   .failing_call = settings.failing_call};
    IMGLOW_set_fileio(caller_read, caller_write, caller_seek);
  }
  ~CallerIo() { IMGLOW_set_fileio(nullptr, nullptr, nullptr); }
  CallerIo(const CallerIo&) = delete;
  CallerIo& operator=(const CallerIo&) = delete;
};

// Memory whose size the library can find out. An empty block has one byte.
using GlobalCopy =
    std::unique_ptr<std::uint8_t,
                    decltype([](std::uint8_t* block) { platform::block_free(block); })>;
GlobalCopy global_copy(Bytes content) {
  GlobalCopy copy(static_cast<std::uint8_t*>(platform::block_alloc(content.size())));
  *copy = 0;
  std::copy(content.begin(), content.end(), copy.get());
  return copy;
}

struct TemporaryFile {
  explicit TemporaryFile(Bytes content) : file(memfd_create("fuzz", MFD_CLOEXEC)) {
    TQ_CLAIM(write(file, content.data(), content.size()) == static_cast<ssize_t>(content.size()));
  }
  ~TemporaryFile() { close(file); }
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;
  std::string name() const { return "/proc/self/fd/" + std::to_string(file); }
  int file;
};

std::int32_t reports_left = 0;
std::int32_t IMG_CB_STD count_reports(std::intptr_t, std::int32_t value) {
  TQ_CLAIM(value >= 0);
  return --reports_left == 0 ? kAborted : 0;
}

// A sink that holds the library to its promises.
struct CheckingSink {
  Digest digest;
  HeaderBlock header{};
  bool has_header = false;
  std::set<std::int32_t> delivered{};
  std::int32_t failing_row = 0, rows = 0;
  std::int64_t bytes = 0;

  static std::int32_t IMG_CB_C on_header(void* block, void* context) {
    auto& sink = *static_cast<CheckingSink*>(context);
    TQ_CLAIM(!sink.has_header && sink.rows == 0);
    sink.has_header = true;
    std::memcpy(&sink.header, block, sizeof sink.header);
    sink.digest.add({static_cast<const std::uint8_t*>(block), sizeof sink.header});
    return sink.failing_row == 1 ? IMG_STOP_AFTER_HEADER : 1;
  }
  static std::int32_t IMG_CB_C on_row(void* row, void* context, std::int32_t y,
                                      std::int32_t bytes) {
    auto& sink = *static_cast<CheckingSink*>(context);
    TQ_CLAIM(sink.has_header && bytes > 0);
    TQ_CLAIM(y >= 0 && y < sink.header.header.biHeight);
    TQ_CLAIM(sink.delivered.insert(y).second);
    sink.digest.add(y);
    sink.digest.add({static_cast<const std::uint8_t*>(row), static_cast<std::size_t>(bytes)});
    sink.bytes += bytes;
    const bool enough = ++sink.rows == kMostSinkRows || sink.bytes > kMostSinkBytes;
    return enough || sink.rows == sink.failing_row - 1 ? kAborted : 0;
  }
};

// ---- What can be done with an image -----------------------------------------------------------

// The file, empty when the save failed.
Memory save(std::int32_t image, std::int32_t code, const View& view, const Settings& settings,
            Digest& digest) {
  Memory file;
  std::int32_t result = 0;
  if (settings.touch_flag(2)) {
    const CallerIo output({}, {});
    result = IMG_save_bitmap_fd(image, 3, code);
    file = caller_file.bytes;
  } else {
    // Run-length coding may double what it codes, other codes have headers.
    std::size_t room = 3000 + 2 * view.rows.size() + 8 * static_cast<std::size_t>(view.height);
    if (settings.touch_flag(1)) room = room * settings.crop_width / 300;
    Memory block(room);
    result = IMG_save_bitmap_block(image, block.data(), block.size(), code);
    TQ_CLAIM(result <= static_cast<std::int64_t>(room));
    if (result > 0) file.assign(block.begin(), block.begin() + result);
  }
  if (view.crop[2] < 1 || view.crop[3] < 1) TQ_CLAIM(result < 0 && file.empty());
  TQ_CLAIM(result >= 0 || one_of(result, {IMG_WRITE_FAILED, IMG_WRONG_DEPTH, IMG_OUT_OF_MEMORY,
                                          IMG_UNSUPPORTED, IMG_BAD_IMAGE}));
  digest.add(result);
  digest.add(file);
  return result < 0 ? Memory() : file;
}

// Every file can be read, unless detection takes it for something else (Sun rasters of 7 pixels a row,
// icons of most widths), and codes that keep every pixel write the same picture.
void read_back(const Memory& plain, const Memory& coded, std::int32_t code, bool lossless) {
  View views[2];
  const Memory* const files[] = {&plain, &coded};
  for (int i = 0; i < 2; ++i) {
    Memory file = *files[i];
    const std::int32_t image = IMG_decompress_bitmap_block(file.data(), file.size(), 0);
    if (image == IMG_OUT_OF_MEMORY) return;
    const std::int32_t width = views[0].width;
    const bool looks_different = (code == IMG_TYPE_SUN && width == 7) ||
                                 (code == IMG_TYPE_ICON && !one_of(width, {16, 32, 48, 64}));
    if (i == 1 && looks_different) {
      if (image >= 0) TQ_CLAIM(IMG_delete_bitmap(image) == 0);
      return;
    }
    TQ_CLAIM(image >= 0);
    views[i] = look_at(image);
    TQ_CLAIM(IMG_delete_bitmap(image) == 0);
  }
  const std::int32_t whole_bytes = (views[0].width + 7) / 8 * 8;  // what a JED drawing has
  TQ_CLAIM(views[1].width == (code == IMG_TYPE_JED ? whole_bytes : views[0].width));
  TQ_CLAIM(views[0].height == views[1].height);
  if (lossless) TQ_CLAIM(views[0].pixels() == views[1].pixels());
}

void save_in_codes(std::int32_t image, const Settings& settings, Digest& digest) {
  if (settings.touch_flag(0)) {
    TQ_CLAIM(IMG_set_croprect(image, settings.crop_x, settings.crop_y, settings.crop_width,
                              settings.crop_height) == 0);
  }
  const View view = look_at(image);
  const std::int32_t code = settings.save_code == 0 ? IMG_TYPE_BMP_RLE : settings.save_code % 67;
  IMGLOW_set_comp_quality(settings.quality);
  IMGLOW_set_jpg_interleave(settings.sampling & 7, settings.sampling >> 3 & 7);
  const auto plain = save(image, IMG_TYPE_BMP, view, settings, digest);
  const auto coded = save(image, code, view, settings, digest);
  TQ_CLAIM(look_at(image).digest() == view.digest());
  const bool lossless =
      code == IMG_TYPE_BMP_RLE
          ? one_of(view.bits, {4, 8})
          : one_of(code, {IMG_TYPE_PCX, IMG_TYPE_DCX, IMG_TYPE_PNG}) && one_of(view.bits, {8, 24});
  // Run lengths of other depths are named as no program reads them, nor do we when asked to read right.
  const bool misnamed = code == IMG_TYPE_BMP_RLE && !lossless && (settings.options & 1) != 0;
  const bool is_read =
      !misnamed && !one_of(code, {IMG_TYPE_PDF, IMG_TYPE_EPS, IMG_TYPE_POSTSCRIPT, IMG_TYPE_PCL});
  if (is_read && !plain.empty() && !coded.empty()) read_back(plain, coded, code, lossless);
}

// What of an image can be seen; it is deleted.
void examine(std::int32_t image, const Settings& settings, Digest& digest) {
  const View view = look_at(image);
  TQ_CLAIM(view.has_pixels && view.header.header.biClrUsed == 0);
  digest.add(static_cast<std::int64_t>(view.in_runs));
  digest.add(view.digest());
  digest.add(IMGLOW_get_transp_color(image));
  save_in_codes(image, settings, digest);
  TQ_CLAIM(IMG_delete_bitmap(image) == 0);
  TQ_CLAIM(IMG_delete_bitmap(image) == IMG_BAD_HANDLE);
}

// ---- Ways to decode ---------------------------------------------------------------------------

std::int32_t decode_to_image(Route route, const Settings& settings, Bytes file) {
  const std::int32_t page = settings.page;
  const std::int32_t offset = settings.offset;
  Memory stream(static_cast<std::size_t>(offset), 0xC3);
  stream.insert(stream.end(), file.begin(), file.end());
  if (route == Route::global_block) return IMG_decompress_bitmap_mem(global_copy(file).get(), page);
  if (route == Route::packed_dib) return IMG_create_handle(global_copy(file).get());
  if (route == Route::name) return IMG_decompress_bitmap(TemporaryFile(file).name().c_str());
  if (route == Route::descriptor) {
    return IMG_decompress_bitmap_fd(TemporaryFile(stream).file, offset, page);
  }
  if (route == Route::caller_io) {
    const CallerIo input(settings, stream);
    return IMG_decompress_bitmap_fd(77, offset, page);
  }
  Memory copy(file.begin(), file.end());
  return IMG_decompress_bitmap_block(copy.data(), copy.size(), page);
}

std::int32_t decode_to_sink(Route route, const Settings& settings, Bytes file, CheckingSink& sink) {
  const std::int32_t page = settings.page;
  const auto row = CheckingSink::on_row;
  const auto header = CheckingSink::on_header;
  sink.failing_row = settings.failing_call;
  if (route == Route::sink_global_block) {
    return IMGLOW_decompress_bitmap_mem(global_copy(file).get(), page, row, &sink, header);
  }
  if (route == Route::sink_caller_io) {
    const CallerIo input(settings, file);
    return IMGLOW_decompress_bitmap(77, 0, page, row, &sink, header);
  }
  Memory copy(file.begin(), file.end());
  return IMGLOW_decompress_bitmap_block(copy.data(), copy.size(), page, row, &sink, header);
}

// The header and all tags that mean something of the first pages.
void query_pages(const Memory& file, std::int32_t pages, Digest& digest) {
  constexpr std::int32_t kMostPages = 4, kFirstTag = 250, kLastTag = 535;
  for (std::int32_t page = 0; page < std::min(pages, kMostPages); ++page) {
    std::array<std::uint8_t, 40> header{};
    digest.add(IMGLOW_get_fileinfo_page_block(file.data(), file.size(), page, header.data()));
    digest.add(header);
    for (std::int32_t tag = kFirstTag; tag <= kLastTag; ++tag) {
      std::array<std::uint8_t, 24> values{};
      std::int32_t value_type = 0, count = 0;
      const std::int32_t bytes =
          IMGLOW_get_tiff_tag_block(file.data(), file.size(), page, tag, &value_type, &count,
                                    values.data(), static_cast<std::int32_t>(values.size()));
      if (bytes == IMG_UNSUPPORTED) continue;
      TQ_CLAIM(bytes > 0 || one_of(bytes, {IMG_NOT_TILED, IMG_READ_FAILED, IMG_PAGE_PAST_END}));
      digest.add(bytes);
      digest.add(value_type);
      digest.add(count);
      digest.add(values);
    }
  }
}

void query(const Settings& settings, Bytes file, Digest& digest) {
  Memory copy(file.begin(), file.end());
  const std::int32_t type = IMGLOW_get_filetype_block(copy.data(), copy.size());
  TQ_CLAIM((type >= 0 && type <= 65) || (type >= IMG_TYPE_PNM && type <= IMG_TYPE_HEIF) ||
           one_of(type, {IMG_UNSUPPORTED, IMG_BAD_IMAGE, IMG_OUT_OF_MEMORY}));
  const std::int32_t pages = IMGLOW_get_pages_block(copy.data(), copy.size());
  TQ_CLAIM((pages > 0 && pages <= std::max<std::int64_t>(1024, std::ssize(file))) ||
           one_of(pages, {0, IMG_UNSUPPORTED, IMG_BAD_IMAGE, IMG_READ_FAILED, IMG_NO_LZW_MODULE,
                          IMG_OUT_OF_MEMORY}));
  std::array<std::uint8_t, 40> header{};
  digest.add(IMGLOW_get_fileinfo_block(copy.data(), copy.size(), header.data()));
  digest.add(header);
  digest.add(type);
  digest.add(pages);
  const bool has_tags = IMGLOW_get_tiff_tag_block(copy.data(), copy.size(), 0, 0, nullptr, nullptr,
                                                  nullptr, 0) == IMG_UNSUPPORTED &&
                        pages > 0;
  if (has_tags) query_pages(copy, pages, digest);
  if (settings.undisturbed()) {
    const TemporaryFile stored(file);
    TQ_CLAIM(IMGLOW_get_filetype_fd(stored.file) == IMG_UNSUPPORTED);  // stands at the end
    TQ_CLAIM(lseek(stored.file, 0, SEEK_CUR) == static_cast<off_t>(file.size()));
    TQ_CLAIM(IMGLOW_get_filetype(stored.name().c_str()) == type);
    if (!file.empty()) TQ_CLAIM(IMGLOW_get_filetype_mem(global_copy(file).get()) == type);
    return;
  }
  const CallerIo input(settings, file);
  digest.add(IMGLOW_get_filetype_fd(1));
  caller_file.position = 0;
  digest.add(IMGLOW_get_pages_fd(1));
}

constexpr std::int32_t kOptions[] = {IMG_OPTION_READING,       IMG_OPTION_DETECTION,
                                     IMG_OPTION_ORIENTATION,   IMG_OPTION_INKS,
                                     IMG_OPTION_STRICT,        IMG_OPTION_JPEG_WRITING,
                                     IMG_OPTION_JPEG_OPTIMISE, IMG_OPTION_JPEG_PROGRESSIVE};

void set_options(std::uint8_t on) {
  for (int i = 0; i < 8; ++i) TQ_CLAIM(IMG_set_option(kOptions[i], on >> i & 1) >= 0);
  IMG_set_option(IMG_OPTION_EXTENDED_FORMATS, on & 1);  // with the first
}

// ---- One run ----------------------------------------------------------------------------------

void set_fitting(std::int32_t reduction, const Settings& settings) {
  IMGLOW_set_decomp_reduction(reduction);
  IMGLOW_set_decompsize(settings.size_width, settings.size_height);
  IMGLOW_set_decomp_rect(settings.rect_x, settings.rect_y, settings.rect_width,
                         settings.rect_height);
}

void apply(const Settings& settings) {
  constexpr std::int32_t kReductions[] = {0, 8, 4, 1};
  set_fitting(kReductions[settings.colours & 3], settings);
  IMGLOW_set_dithermode(settings.colour_flag(2) ? 2 : 1);
  IMG_set_encrypt(settings.colour_flag(3) ? 1 : 0, 0x01020304);
  constexpr int kText = 7 << 4;  // of three bits, for its pages are large
  if ((settings.colours & kText) == kText) IMGLOW_set_auto_detect(IMG_TYPE_TEXT);
  IMGLOW_unset_auto_detect(settings.switched_off - 1);
  reports_left = settings.progress;
  // Large pictures take most of the time and little of the code.
  if (!(settings.touch_flag(3) && settings.touch_flag(7))) {
    IMG_set_option(IMG_OPTION_MAX_PIXELS, kFewPixels);
  }
  // A short file may claim millions of rows; scaled or cut they need no memory.
  const bool fitted = (settings.size_width | settings.rect_x | settings.rect_y |
                       settings.rect_width | settings.rect_height) != 0;
  if (reports_left == 0 && fitted) reports_left = kMostSinkRows;
  IMG_set_statusbar(7, count_reports, reports_left != 0 ? 1 : 0);
  memory_probe::refuse_after(settings.refused - 1);
}

// Whatever may disturb a look at the result.
void restore(const Settings& settings) {
  memory_probe::refuse_after(-1);
  IMG_set_option(IMG_OPTION_MAX_PIXELS, 0);
  IMG_set_statusbar(0, nullptr, 0);
  IMG_set_encrypt(0, 0);
  IMGLOW_set_dithermode(1);
  set_fitting(0, {});
  IMGLOW_set_auto_detect(settings.switched_off - 1);
  IMGLOW_unset_auto_detect(IMG_TYPE_TEXT);
}

// Whether there was not enough memory: how much is needed differs between the ways.
bool short_of_memory = false;

void decode(Route route, const Settings& settings, Bytes file, Digest& digest) {
  const bool to_image = route < Route::sink_block;
  CheckingSink sink;
  const std::int32_t result = to_image ? decode_to_image(route, settings, file)
                                       : decode_to_sink(route, settings, file, sink);
  if (memory_probe::refused()) TQ_CLAIM(result == IMG_OUT_OF_MEMORY);
  restore(settings);
  TQ_CLAIM(result >= 0 || one_of(result, {kAborted, IMG_OUT_OF_MEMORY, IMG_BAD_IMAGE,
                                          IMG_UNSUPPORTED, IMG_NO_LZW_MODULE, IMG_NO_DEVICE_BITMAP,
                                          IMG_NO_SUCH_PAGE, IMG_READ_FAILED, IMG_PAGE_PAST_END,
                                          IMG_STOP_AFTER_HEADER, IMG_CANNOT_OPEN}));
  TQ_CLAIM(result <= 0);  // the lowest free handle
  TQ_CLAIM(memory_probe::tracked_blocks() == 0);
  short_of_memory = short_of_memory || result == IMG_OUT_OF_MEMORY;
  digest = sink.digest;
  digest.add(result);
  if (to_image && result >= 0) examine(result, settings, digest);
}

Digest run(Route route, const Settings& settings, Memory file) {
  // What lies in the stream: callers' functions are given and give plain bytes.
  const bool by_caller = route == Route::caller_io || route == Route::sink_caller_io ||
                         (route == Route::query && !settings.undisturbed());
  if (settings.colour_flag(3) && !by_caller) {
    for (std::uint8_t& byte : file) byte ^= 1 + 2 + 3 + 4;
  }
  Digest digest;
  set_options(settings.options);
  apply(settings);
  if (route == Route::query) {
    query(settings, file, digest);
  } else {
    decode(route, settings, file, digest);
  }
  restore(settings);
  set_options(0);
  TQ_CLAIM(memory_probe::live_blocks() == 0 && memory_probe::tracked_blocks() == 0);
  return digest;
}

// The way that a second decode takes: from plain memory, if the first one's way had no say in the
// result. Containers hold positions in the whole stream, so an offset has.
Route second_route(const Settings& settings) {
  const Route route = settings.way();
  if (!settings.undisturbed() || route == Route::query) return route;
  if (settings.offset != 0) return route;
  return route < Route::sink_block ? Route::block : Route::sink_block;
}

}  // namespace

void fuzz(Bytes input) {
  Settings settings{};
  Input in(input);
  const Bytes chosen = in.take(sizeof settings);
  std::memcpy(&settings, chosen.data(), chosen.size());
  // These two have no page argument.
  if (settings.way() == Route::packed_dib || settings.way() == Route::name) settings.page = 0;
  Memory file(in.rest().begin(), in.rest().end());
  memory_probe::refuse_above(kLargestAllowed);
  memory_probe::fill_fresh(0x55);
  platform::mask_cpu_features({true, true, true, true, true});
  short_of_memory = false;
  const Digest first = run(settings.way(), settings, file);
  memory_probe::fill_fresh(0xAA);
  platform::mask_cpu_features({});
  const Digest second = run(second_route(settings), settings, file);
  if (!short_of_memory) TQ_CLAIM(first == second);
}

}  // namespace tq::fuzz
