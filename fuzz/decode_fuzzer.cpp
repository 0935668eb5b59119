// Decodes a file with the settings, and by the way, that the first bytes of the input choose; then
// decodes it again from plain memory over other heap bytes: both must look the same. What was
// decoded is read, cropped, converted, saved, read back and deleted.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <string>
#include <vector>

#include "core/dib.h"
#include "fuzz/decode_settings.h"
#include "fuzz/fuzz_support.h"
#include "include/tarnquill.h"
#include "platform/memory.h"

namespace tq::fuzz {
namespace {

using Bytes = std::span<const std::uint8_t>;

constexpr std::uint64_t kLargestAllowed = 96 << 10;  // bytes; the image table must fit
constexpr std::int32_t kAborted = -777;              // a callback's own answer
constexpr std::int32_t kMostSinkRows = 2000;
constexpr std::int64_t kMostSinkBytes = 256 << 10;

struct Settings {
  std::array<std::uint8_t, kSettingBytes> bytes{};

  std::uint8_t u8(SettingByte at) const { return bytes[at]; }
  std::int32_t i8(SettingByte at) const { return static_cast<std::int8_t>(bytes[at]); }
  bool flag(SettingByte at, int bit) const { return (bytes[at] >> bit & 1) != 0; }
  Route route() const {
    return static_cast<Route>(u8(kRouteByte) % static_cast<int>(Route::count));
  }
  bool scrambled() const { return flag(kColoursByte, 3); }
  // The stream tells the truth and nobody interferes: any way of decoding gives the same.
  bool undisturbed() const {
    return u8(kMostPerCallByte) == 0 && u8(kFailingCallByte) == 0 && u8(kProgressByte) == 0 &&
           u8(kRefusedByte) == 0;
  }
};

// ---- The caller's side ------------------------------------------------------------------------

struct CallerFile {
  Bytes content;
  std::int64_t position = 0;
  std::int32_t most_per_call = 0, failing_call = 0, calls = 0;
};
CallerFile caller_file;

std::int32_t IMG_CB_C caller_read(std::int32_t, void* buffer, std::int32_t count) {
  CallerFile& file = caller_file;
  if (++file.calls == file.failing_call) return -1;
  const auto size = static_cast<std::int64_t>(file.content.size());
  if (file.position < 0 || file.position >= size) return 0;
  std::int64_t got = std::min<std::int64_t>(count, size - file.position);
  if (file.most_per_call != 0) got = std::min<std::int64_t>(got, file.most_per_call);
  std::memcpy(buffer, file.content.data() + file.position, static_cast<std::size_t>(got));
  file.position += got;
  return static_cast<std::int32_t>(got);
}

std::int32_t IMG_CB_C caller_seek(std::int32_t, std::int32_t offset, std::int32_t origin) {
  CallerFile& file = caller_file;
  if (++file.calls == file.failing_call) return -1;
  const std::int64_t from[] = {0, file.position, static_cast<std::int64_t>(file.content.size())};
  const std::int64_t to = from[origin] + offset;
  if (to < 0 || to > std::numeric_limits<std::int32_t>::max()) return -1;
  file.position = to;
  return static_cast<std::int32_t>(to);
}

void install_caller_file(const Settings& settings, Bytes content) {
  caller_file = {.content = content,
                 .most_per_call = settings.u8(kMostPerCallByte),
                 .failing_call = settings.u8(kFailingCallByte)};
  IMGLOW_set_fileio(caller_read, nullptr, caller_seek);
}

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
  std::int32_t failing_row = 0, rows = 0, last_y = -1, direction = 0;
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
    // From the top or from the bottom, no row twice.
    const std::int32_t step = y - sink.last_y;
    TQ_CLAIM(sink.rows == 0 || step == 1 || step == -1);
    if (sink.rows == 1) sink.direction = step;
    TQ_CLAIM(sink.rows < 2 || step == sink.direction);
    sink.last_y = y;
    sink.digest.add(y);
    sink.digest.add({static_cast<const std::uint8_t*>(row), static_cast<std::size_t>(bytes)});
    sink.bytes += bytes;
    const bool enough = ++sink.rows == kMostSinkRows || sink.bytes > kMostSinkBytes;
    return enough || sink.rows == sink.failing_row - 1 ? kAborted : 0;
  }
};

// ---- What can be done with an image -----------------------------------------------------------

struct Shape {
  std::int32_t width = 0, height = 0, bits = 0;
  std::size_t row_bytes() const { return static_cast<std::size_t>(tq::row_bytes(width, bits)); }
};

Shape shape_of(std::int32_t image) {
  Shape shape;
  const std::intptr_t address = IMG_bitmap_info(image, &shape.width, &shape.height, &shape.bits);
  TQ_CLAIM(address != IMG_BAD_HANDLE && address != IMG_OUT_OF_MEMORY);
  return shape;
}

std::vector<std::uint8_t> rows_of(std::int32_t image, const Shape& shape) {
  std::vector<std::uint8_t> rows(shape.row_bytes() * static_cast<std::size_t>(shape.height));
  for (std::int32_t y = 0; y < shape.height; ++y) {
    const ExactBytes row(shape.row_bytes());
    TQ_CLAIM(IMGLOW_get_raster(image, row.data(), y, 0) == 0);
    std::copy_n(row.data(), row.size(), rows.begin() + static_cast<std::ptrdiff_t>(row.size()) * y);
  }
  return rows;
}

// With zeros behind the last pixel of each row.
std::vector<std::uint8_t> without_padding(std::vector<std::uint8_t> rows, const Shape& shape) {
  const std::int64_t bits = std::int64_t{shape.width} * shape.bits;
  const std::size_t used = static_cast<std::size_t>((bits + 7) / 8);
  for (std::size_t row = 0; row < rows.size(); row += shape.row_bytes()) {
    std::fill_n(&rows[row] + used, shape.row_bytes() - used, std::uint8_t{0});
    if (bits % 8 != 0) rows[row + used - 1] &= static_cast<std::uint8_t>(0xFF00 >> bits % 8);
  }
  return rows;
}

// Header and palette, and the rows behind them unless they are run lists.
void digest_block(std::int32_t image, const Shape& shape, Digest& digest) {
  std::array<std::uint8_t, IMG_HEADER_BLOCK_BYTES> header{};
  TQ_CLAIM(IMGLOW_get_bitmap_header(image, header.data()) == 0);
  digest.add(header);
  const std::intptr_t address = IMG_bitmap_info(image, nullptr, nullptr, nullptr);
  BitmapInfoHeader info;
  std::memcpy(&info, header.data(), sizeof info);
  TQ_CLAIM(info.biSize == 40 && info.biWidth == shape.width && info.biHeight == shape.height &&
           info.biBitCount == shape.bits && info.biClrUsed == 0);
  if (info.biCompression == kInRuns) return;
  digest.add({reinterpret_cast<const std::uint8_t*>(address),
              static_cast<std::size_t>(dib_bytes(shape.width, shape.height, shape.bits))});
}

void check_refused_arguments(std::int32_t image, const Shape& shape) {
  std::uint8_t byte = 0x5A;
  TQ_CLAIM(IMGLOW_get_raster(image, &byte, shape.height, 1) == IMG_UNSUPPORTED);
  TQ_CLAIM(IMGLOW_get_raster(image, &byte, -1, 1) == IMG_UNSUPPORTED);
  TQ_CLAIM(byte == 0x5A);
  TQ_CLAIM(IMG_save_bitmap_block(image, &byte, 1, 66) == IMG_UNSUPPORTED);
  TQ_CLAIM(byte == 0x5A);
}

void convert_there_and_back(std::int32_t image, const Shape& shape, Digest& digest) {
  if (shape.bits != 1) {
    TQ_CLAIM(IMG_dib_to_runs(image) == IMG_WRONG_DEPTH);
    TQ_CLAIM(IMG_runs_to_dib(image) == 0);
    return;
  }
  // Only plain rows have a say in what their padding is.
  const auto pixels = [&] { return without_padding(rows_of(image, shape), shape); };
  const auto before = pixels();
  TQ_CLAIM(IMG_runs_to_dib(image) == 0);
  digest_block(image, shape, digest);
  TQ_CLAIM(pixels() == before);
  TQ_CLAIM(IMG_dib_to_runs(image) == 0);
  TQ_CLAIM(pixels() == before);
  const auto runs = rows_of(image, shape);
  TQ_CLAIM(IMG_runs_to_dib(image) == 0);
  TQ_CLAIM(rows_of(image, shape) == runs);
}

struct Saved {
  std::int32_t result = 0;
  std::vector<std::uint8_t> file;
};

std::vector<std::uint8_t> caller_output;
std::int32_t IMG_CB_C caller_write(std::int32_t, void* buffer, std::int32_t count) {
  const auto* bytes = static_cast<const std::uint8_t*>(buffer);
  caller_output.insert(caller_output.end(), bytes, bytes + count);
  return count;
}

Saved save(std::int32_t image, std::int32_t code, const Shape& shape, const Settings& settings) {
  // Run-length coding may double what it codes.
  std::size_t room = 1200 + (2 * shape.row_bytes() + 8) * static_cast<std::size_t>(shape.height);
  if (settings.flag(kTouchByte, 1)) room = room * settings.u8(kCropXByte) / 300;
  Saved saved;
  if (settings.flag(kTouchByte, 2)) {
    caller_output.clear();
    IMGLOW_set_fileio(nullptr, caller_write, nullptr);
    saved.result = IMG_save_bitmap_fd(image, 3, code);
    IMGLOW_set_fileio(nullptr, nullptr, nullptr);
    saved.file = caller_output;
    return saved;
  }
  const ExactBytes block(room);
  saved.result = IMG_save_bitmap_block(image, block.data(), block.size(), code);
  TQ_CLAIM(saved.result <= static_cast<std::int64_t>(room));
  if (saved.result > 0) saved.file.assign(block.data(), block.data() + saved.result);
  return saved;
}

// Every code writes the same picture: what the run-length writer wrote must come back as what the
// plain one wrote.
void read_back(const Saved& plain, const Saved& coded) {
  std::vector<std::uint8_t> rows[2];
  const Saved* const files[] = {&plain, &coded};
  for (int i = 0; i < 2; ++i) {
    const ExactBytes file(files[i]->file);
    const std::int32_t image = IMG_decompress_bitmap_block(file.data(), file.size(), 0);
    if (image == IMG_OUT_OF_MEMORY) return;
    TQ_CLAIM(image >= 0);
    const Shape shape = shape_of(image);
    rows[i] = without_padding(rows_of(image, shape), shape);
    TQ_CLAIM(IMG_delete_bitmap(image) == 0);
  }
  TQ_CLAIM(rows[0] == rows[1]);
}

void save_everything(std::int32_t image, const Shape& shape, const Settings& settings,
                     Digest& digest) {
  Shape cropped = shape;
  if (settings.flag(kTouchByte, 0)) {
    TQ_CLAIM(IMG_set_croprect(image, settings.i8(kCropXByte), settings.i8(kCropYByte),
                              settings.u8(kCropWidthByte), settings.u8(kCropHeightByte)) == 0);
    std::int32_t x = 0, y = 0;
    TQ_CLAIM(IMG_get_croprect(image, &x, &y, &cropped.width, &cropped.height) == 0);
    TQ_CLAIM(x >= 0 && y >= 0 && cropped.width >= 0 && cropped.height >= 0);
    TQ_CLAIM(x + cropped.width <= shape.width && y + cropped.height <= shape.height);
    digest.add(x << 8 | y);
  }
  const bool empty = cropped.width < 1 || cropped.height < 1;
  Saved plain, coded;
  for (const std::int32_t code : {IMG_TYPE_DIB, IMG_TYPE_BMP, IMG_TYPE_BMP_RLE}) {
    const Saved saved = save(image, code, cropped, settings);
    if (empty) {
      TQ_CLAIM(saved.result == IMG_BAD_IMAGE && saved.file.empty());
    } else {
      TQ_CLAIM(saved.result >= 0 ||
               one_of(saved.result, {IMG_WRITE_FAILED, IMG_WRONG_DEPTH, IMG_OUT_OF_MEMORY}));
    }
    digest.add(saved.result);
    if (saved.result < 0) continue;
    digest.add(saved.file);
    (code == IMG_TYPE_BMP_RLE ? coded : plain) = saved;
  }
  if (!plain.file.empty() && !coded.file.empty() && (shape.bits == 4 || shape.bits == 8)) {
    read_back(plain, coded);
  }
}

// Reads, converts, saves and deletes an image; what of it could be seen.
void examine(std::int32_t image, const Settings& settings, Digest& digest) {
  const Shape shape = shape_of(image);
  TQ_CLAIM(shape.width > 0 && shape.height > 0 && shape.bits > 0);
  digest.add(rows_of(image, shape));
  digest_block(image, shape, digest);
  std::array<std::uint8_t, 1024> palette{};
  digest.add(IMG_get_bitmap_palette(image, palette.data()));
  digest.add(palette);
  digest.add(IMGLOW_get_transp_color(image));
  check_refused_arguments(image, shape);
  save_everything(image, shape, settings, digest);
  // Small machines may lack the room to hold both forms.
  if (dib_bytes(shape.width, shape.height, shape.bits) < kLargestAllowed / 12) {
    convert_there_and_back(image, shape, digest);
  }
  TQ_CLAIM(IMG_delete_bitmap(image) == 0);
  TQ_CLAIM(IMG_delete_bitmap(image) == IMG_BAD_HANDLE);
}

// ---- Ways to decode ---------------------------------------------------------------------------

struct GlobalCopy {
  explicit GlobalCopy(Bytes content)
      : block(static_cast<std::uint8_t*>(platform::block_alloc(content.size()))) {
    std::copy(content.begin(), content.end(), block);
    // An empty block has one byte, as the system knows none without.
    if (content.empty()) *block = 0;
  }
  ~GlobalCopy() { platform::block_free(block); }
  GlobalCopy(const GlobalCopy&) = delete;
  GlobalCopy& operator=(const GlobalCopy&) = delete;
  std::uint8_t* block;
};

// The file as the system's files see it, behind other bytes.
class TemporaryFile {
 public:
  explicit TemporaryFile(Bytes content) : file_(memfd_create("fuzz", MFD_CLOEXEC)) {
    TQ_CLAIM(file_ >= 0);
    TQ_CLAIM(write(file_, content.data(), content.size()) == static_cast<ssize_t>(content.size()));
    name_ = "/proc/self/fd/" + std::to_string(file_);
  }
  ~TemporaryFile() { close(file_); }
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;
  int file() const { return file_; }
  const char* name() const { return name_.c_str(); }

 private:
  int file_;
  std::string name_;
};

std::int32_t decode_to_image(Route route, const Settings& settings, Bytes file) {
  const std::int32_t page = settings.i8(kPageByte);
  const std::int32_t offset = settings.u8(kOffsetByte);
  std::vector<std::uint8_t> stream(static_cast<std::size_t>(offset), 0xC3);
  stream.insert(stream.end(), file.begin(), file.end());
  switch (route) {
    case Route::global_block:
      return IMG_decompress_bitmap_mem(GlobalCopy(file).block, page);
    case Route::packed_dib:
      return IMG_create_handle(GlobalCopy(file).block);
    case Route::caller_io: {
      const ExactBytes copy(stream);
      install_caller_file(settings, copy.bytes());
      const std::int32_t image = IMG_decompress_bitmap_fd(77, offset, page);
      IMGLOW_set_fileio(nullptr, nullptr, nullptr);
      return image;
    }
    case Route::descriptor:
      return IMG_decompress_bitmap_fd(TemporaryFile(stream).file(), offset, page);
    case Route::name:
      return IMG_decompress_bitmap(TemporaryFile(file).name());
    default: {
      const ExactBytes copy(file);
      return IMG_decompress_bitmap_block(copy.data(), copy.size(), page);
    }
  }
}

std::int32_t decode_to_sink(Route route, const Settings& settings, Bytes file, CheckingSink& sink) {
  const std::int32_t page = settings.i8(kPageByte);
  const auto row = CheckingSink::on_row;
  const auto header = CheckingSink::on_header;
  if (route == Route::sink_global_block) {
    return IMGLOW_decompress_bitmap_mem(GlobalCopy(file).block, page, row, &sink, header);
  }
  const ExactBytes copy(file);
  if (route == Route::sink_caller_io) {
    install_caller_file(settings, copy.bytes());
    const std::int32_t decoded = IMGLOW_decompress_bitmap(77, 0, page, row, &sink, header);
    IMGLOW_set_fileio(nullptr, nullptr, nullptr);
    return decoded;
  }
  return IMGLOW_decompress_bitmap_block(copy.data(), copy.size(), page, row, &sink, header);
}

void query(const Settings& settings, Bytes file, Digest& digest) {
  const ExactBytes copy(file);
  const std::int32_t type = IMGLOW_get_filetype_block(copy.data(), copy.size());
  TQ_CLAIM((type >= 0 && type <= 65) ||
           one_of(type, {IMG_UNSUPPORTED, IMG_BAD_IMAGE, IMG_OUT_OF_MEMORY}));
  digest.add(type);
  const std::int32_t pages = IMGLOW_get_pages_block(copy.data(), copy.size());
  TQ_CLAIM((pages >= 0 && pages <= 1024) ||
           one_of(pages, {IMG_UNSUPPORTED, IMG_NO_LZW_MODULE, IMG_OUT_OF_MEMORY}));
  digest.add(pages);
  if (settings.undisturbed()) {
    const TemporaryFile stored(file);
    TQ_CLAIM(IMGLOW_get_filetype(stored.name()) == type);
    TQ_CLAIM(IMGLOW_get_filetype_fd(stored.file()) == IMG_UNSUPPORTED);  // stands at the end
    TQ_CLAIM(lseek(stored.file(), 0, SEEK_CUR) == static_cast<off_t>(file.size()));
    TQ_CLAIM(lseek(stored.file(), 0, SEEK_SET) == 0);
    TQ_CLAIM(IMGLOW_get_filetype_fd(stored.file()) == type);
    TQ_CLAIM(lseek(stored.file(), 0, SEEK_CUR) == 0);
    const GlobalCopy global(file);
    if (!file.empty()) TQ_CLAIM(IMGLOW_get_filetype_mem(global.block) == type);
    return;
  }
  install_caller_file(settings, copy.bytes());
  digest.add(IMGLOW_get_filetype_fd(1));
  caller_file.position = 0;
  digest.add(IMGLOW_get_pages_fd(1));
  IMGLOW_set_fileio(nullptr, nullptr, nullptr);
}

// ---- One run ----------------------------------------------------------------------------------

void apply(const Settings& settings) {
  constexpr std::int32_t kReductions[] = {0, 8, 4, 1};
  IMGLOW_set_decomp_reduction(kReductions[settings.u8(kColoursByte) & 3]);
  IMGLOW_set_dithermode(settings.flag(kColoursByte, 2) ? 2 : 1);
  IMG_set_encrypt(settings.scrambled() ? 1 : 0, 0x01020304);
  if (settings.flag(kColoursByte, 4)) IMGLOW_set_auto_detect(IMG_TYPE_TEXT);
  if (settings.u8(kSwitchByte) != 0) IMGLOW_unset_auto_detect(settings.u8(kSwitchByte) - 1);
  IMGLOW_set_decompsize(settings.i8(kSizeWidthByte), settings.i8(kSizeHeightByte));
  IMGLOW_set_decomp_rect(settings.i8(kRectXByte), settings.i8(kRectYByte),
                         settings.i8(kRectWidthByte), settings.i8(kRectHeightByte));
}

void restore_settings() {
  IMGLOW_set_decomp_reduction(0);
  IMGLOW_set_dithermode(1);
  IMG_set_encrypt(0, 0);
  for (std::int32_t code = 0; code < 67; ++code) IMGLOW_set_auto_detect(code);
  IMGLOW_unset_auto_detect(IMG_TYPE_TEXT);
  IMGLOW_unset_auto_detect(66);
  IMGLOW_set_decompsize(0, 0);
  IMGLOW_set_decomp_rect(0, 0, 0, 0);
  IMGLOW_set_fileio(nullptr, nullptr, nullptr);
  IMG_set_statusbar(0, nullptr, 0);
}

std::int32_t decode(Route route, const Settings& settings, Bytes file, Digest& digest) {
  if (route >= Route::sink_block && route <= Route::sink_caller_io) {
    CheckingSink sink;
    sink.failing_row = settings.u8(kFailingCallByte);
    const std::int32_t decoded = decode_to_sink(route, settings, file, sink);
    TQ_CLAIM(decoded <= 0);
    digest = sink.digest;
    return decoded;
  }
  const std::int32_t image = decode_to_image(route, settings, file);
  return image;
}

// What lies in the stream: callers' functions are given and give plain bytes.
std::vector<std::uint8_t> stored(Route route, const Settings& settings, Bytes file) {
  std::vector<std::uint8_t> bytes(file.begin(), file.end());
  const bool by_caller = route == Route::caller_io || route == Route::sink_caller_io ||
                         (route == Route::query && !settings.undisturbed());
  if (settings.scrambled() && !by_caller) {
    for (std::uint8_t& byte : bytes) byte ^= 1 + 2 + 3 + 4;
  }
  return bytes;
}

// Whether there was not enough memory: how much is needed differs between the ways.
bool short_of_memory = false;

Digest run(Route route, const Settings& settings, Bytes plain_file) {
  const std::vector<std::uint8_t> file = stored(route, settings, plain_file);
  Digest digest;
  apply(settings);
  if (route == Route::query) {
    memory_probe::refuse_after(settings.u8(kRefusedByte) - 1);
    query(settings, file, digest);
    memory_probe::refuse_after(-1);
    restore_settings();
    return digest;
  }
  reports_left = settings.u8(kProgressByte);
  if (reports_left != 0) IMG_set_statusbar(7, count_reports, 1);
  memory_probe::refuse_after(settings.u8(kRefusedByte) - 1);
  const std::int32_t result = decode(route, settings, file, digest);
  if (memory_probe::refused()) TQ_CLAIM(result == IMG_OUT_OF_MEMORY);
  memory_probe::refuse_after(-1);
  IMG_set_statusbar(0, nullptr, 0);
  TQ_CLAIM(
      result >= 0 || result == kAborted ||
      one_of(result, {IMG_OUT_OF_MEMORY, IMG_BAD_IMAGE, IMG_UNSUPPORTED, IMG_NO_LZW_MODULE,
                      IMG_NO_PDF_MODULE, IMG_NO_DEVICE_BITMAP, IMG_NO_SUCH_PAGE, IMG_READ_FAILED,
                      IMG_PAGE_PAST_END, IMG_STOP_AFTER_HEADER, IMG_CANNOT_OPEN}));
  TQ_CLAIM(memory_probe::tracked_blocks() == 0);
  short_of_memory = short_of_memory || result == IMG_OUT_OF_MEMORY;
  digest.add(result);
  IMG_set_encrypt(0, 0);
  IMGLOW_set_decomp_reduction(0);
  IMGLOW_set_decompsize(0, 0);
  IMGLOW_set_decomp_rect(0, 0, 0, 0);
  IMGLOW_set_auto_detect(IMG_TYPE_BMP);
  const bool made_image = route < Route::sink_block;
  if (made_image && result >= 0) {
    TQ_CLAIM(result == 0);  // the lowest free handle
    examine(result, settings, digest);
  }
  TQ_CLAIM(memory_probe::live_blocks() == 0 && memory_probe::tracked_blocks() == 0);
  restore_settings();
  return digest;
}

// A short file may claim hundreds of millions of rows, and each of them is delivered.
bool claims_many_rows(Bytes file) {
  bool many = false;
  const auto on_header = [](void* block, void* context) -> std::int32_t {
    BitmapInfoHeader header;
    std::memcpy(&header, block, sizeof header);
    *static_cast<bool*>(context) = header.biHeight > 10 * kMostSinkRows;
    return IMG_STOP_AFTER_HEADER;
  };
  const ExactBytes copy(file);
  IMGLOW_decompress_bitmap_block(copy.data(), copy.size(), 0, nullptr, &many, on_header);
  return many;
}

// The way that a second decode takes: from plain memory, if the first one's way had no say in the
// result. Containers hold positions in the whole stream, so an offset has.
Route second_route(const Settings& settings) {
  const Route route = settings.route();
  if (!settings.undisturbed() || route == Route::query) return route;
  if (settings.u8(kOffsetByte) != 0) return route;
  return route < Route::sink_block ? Route::block : Route::sink_block;
}

void fuzz(Bytes input) {
  Settings settings;
  Input in(input);
  for (std::uint8_t& byte : settings.bytes) byte = in.u8();
  // These two have no page argument.
  if (one_of(static_cast<int>(settings.route()),
             {static_cast<int>(Route::packed_dib), static_cast<int>(Route::name)})) {
    settings.bytes[kPageByte] = 0;
  }
  const Bytes file = in.rest();
  std::uint8_t& progress = settings.bytes[kProgressByte];
  if (progress == 0 && claims_many_rows(file)) progress = 200;
  memory_probe::refuse_above(kLargestAllowed);
  memory_probe::fill_fresh(0x55);
  short_of_memory = false;
  const Digest first = run(settings.route(), settings, file);
  memory_probe::fill_fresh(0xAA);
  const Digest second = run(second_route(settings), settings, file);
  if (!short_of_memory) TQ_CLAIM(first == second);
}

}  // namespace
}  // namespace tq::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  tq::fuzz::fuzz({data, size});
  return 0;
}
